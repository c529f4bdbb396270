// What whole scans of shares do not show, against a real server; tests/share/share_test.py starts this. The server is
// 127.0.0.1, SHARE_LOCAL the folder that its shares "tree" and "guest" serve; the server SHARE_SILENT never answers.
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

#include "common/qlib/qfile.h"
#include "common/qlib/qstr_name.h"
#include "share/qshare.h"
#include "share/qshare_connections_posix_user.h"
#include "support/fixture_table.h"
#include "support/runtime.h"

namespace {

constexpr std::u16string_view SHARE = u"\\\\127.0.0.1\\tree";
constexpr qshare_credentials GOOD{u"TESTGROUP", u"daemon", u"pässword, \"long\" €"};

std::string setting(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::u16string silent_share() { return u"\\\\" + qstr_name_from_bytes(setting("SHARE_SILENT")) + u"\\tree"; }

struct ShareTest : Runtime {
  ShareTest() { qshare_enable(); }
};

// A use for the length of a scope.
struct Use {
  explicit Use(std::u16string_view share, const qshare_credentials& credentials = GOOD)
      : remote(share), code(qshare_use_add(remote, credentials)) {}
  Use(Use&&) = delete;
  ~Use() { EXPECT_TRUE(code != QSHARE_OK || qshare_use_delete(remote) == QSHARE_OK); }
  const std::u16string remote;
  const std::uint32_t code;
};

TEST_F(ShareTest, OneServerHasOneSetOfCredentials) {
  const Use first(SHARE);
  ASSERT_EQ(first.code, QSHARE_OK);
  EXPECT_EQ(Use(SHARE, {GOOD.domain, u"other", u"x"}).code, QSHARE_CREDENTIAL_CONFLICT);
  EXPECT_EQ(Use(SHARE, {GOOD.domain, GOOD.user, u"other"}).code, QSHARE_CREDENTIAL_CONFLICT);
  EXPECT_EQ(Use(u"\\\\127.0.0.1\\guest", {u"testgroup", u"Daemon", GOOD.password}).code, QSHARE_OK);
  std::thread other([] { EXPECT_EQ(Use(SHARE, {GOOD.domain, GOOD.user, u"wrong"}).code, QSHARE_LOGON_FAILURE); });
  other.join();
  // Another name is another server.
  EXPECT_EQ(Use(u"\\\\localhost\\guest", {GOOD.domain, u"no-such-user", u"x"}).code, QSHARE_LOGON_FAILURE);
}

TEST_F(ShareTest, UsesAreCountedAndEndNotWhileFilesAreOpen) {
  ASSERT_EQ(qshare_use_add(SHARE, GOOD), QSHARE_OK);
  ASSERT_EQ(qshare_use_add(u"\\\\127.0.0.1\\TREE\\tree", GOOD), QSHARE_OK);  // the same connection
  QfileOwner file;
  ASSERT_EQ(qfile_open(file.out(), u"\\\\127.0.0.1\\Tree\\tree\\readme.txt", QFILE_READ), QERR_OK);
  EXPECT_EQ(qshare_use_delete(SHARE), QSHARE_OK);
  EXPECT_EQ(qshare_use_delete(SHARE), QSHARE_OPEN_FILES);
  char byte = 0;
  std::uint32_t got = 0;
  EXPECT_EQ(qfile_read(file.get(), &byte, 1, &got), QERR_OK);
  file.reset();
  EXPECT_EQ(qshare_use_delete(SHARE), QSHARE_OK);
  EXPECT_EQ(qshare_use_delete(SHARE), QSHARE_NOT_CONNECTED);
  EXPECT_EQ(qshare_use_delete(u"/tmp"), QSHARE_NOT_CONNECTED);
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);  // the share program that served this is gone
}

TEST_F(ShareTest, TheProgramEndsWithTheHostThoughAForkHoldsThePair) {
  ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);  // orphans become this process's children
  const pid_t host = ::fork();
  if (host == 0) {
    (void)::setpgid(0, 0);
    if (qshare_use_add(SHARE, GOOD) != QSHARE_OK) ::_exit(1);
    if (::fork() == 0) ::_exit(static_cast<int>(::sleep(30)) + 2);
    ::_exit(0);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(host, &status, 0), host);
  EXPECT_EQ(status, 0);
  EXPECT_GT(::waitpid(-1, &status, 0), 0);
  EXPECT_EQ(status, 0);  // not the fork, which waits
  EXPECT_EQ(::kill(-host, SIGKILL), 0);
  EXPECT_GT(::waitpid(-1, &status, 0), 0);
}

TEST_F(ShareTest, BytesAreTheSameHoweverTheyAreRead) {
  const Use use(SHARE);
  const std::string expected = file_text(setting("SHARE_LOCAL") + "/large.bin");
  ASSERT_GT(expected.size(), std::size_t{3} << 20U);
  QfileOwner file;
  ASSERT_EQ(qfile_open(file.out(), u"\\\\127.0.0.1\\tree\\large.bin", QFILE_READ), QERR_OK);
  std::uint64_t size = 0;
  EXPECT_EQ(qfile_size(file.get(), &size), QERR_OK);
  EXPECT_EQ(size, expected.size());
  constexpr std::uint32_t pieces[] = {7001, 65536, 100000, 1U << 20U, 5U << 20U};
  std::uint64_t at = 0;
  std::string piece(pieces[4], '\0');
  for (std::uint32_t round = 0; round < 400; ++round) {
    if (round % 3 == 2) {  // else it reads on
      at = (at * 6364136223846793005U + 1442695040888963407U) % (expected.size() + 50000);
      ASSERT_EQ(qfile_seek(file.get(), static_cast<std::int64_t>(at), QFILE_FROM_START, nullptr), QERR_OK);
    }
    std::uint32_t got = 0;
    ASSERT_EQ(qfile_read(file.get(), piece.data(), pieces[round % 5], &got), QERR_OK);
    ASSERT_TRUE(piece.substr(0, got) == (at < expected.size() ? expected.substr(at, got) : "")) << at;
    ASSERT_EQ(got == 0, at >= expected.size());
    at += got;
  }
}

TEST_F(ShareTest, WhatTheServerRefusesAndWhatIsNotDoneAtAll) {
  const Use use(SHARE);
  QfileOwner file;
  EXPECT_EQ(qfile_open(file.out(), u"\\\\127.0.0.1\\tree\\refused.exe", QFILE_READ), QERR_PERMISSION);
  EXPECT_EQ(qfile_open(file.out(), u"\\\\127.0.0.1\\tree\\nothing", QFILE_READ), QERR_NOT_FOUND);
  constexpr qerr_t READ_ONLY = EROFS;
  EXPECT_EQ(qfile_open(file.out(), u"\\\\127.0.0.1\\tree\\new", QFILE_WRITE | QFILE_CREATE), READ_ONLY);
  EXPECT_EQ(qfile_write_whole(u"\\\\127.0.0.1\\tree\\new", "x", 1, 0), READ_ONLY);
  EXPECT_EQ(qfile_delete(u"\\\\127.0.0.1\\tree\\large.bin"), READ_ONLY);
  EXPECT_FALSE(qfile_exists(u"\\\\127.0.0.1\\tree\\new"));
  // A directory opens, and holds no bytes.
  ASSERT_EQ(qfile_open(file.out(), u"\\\\127.0.0.1\\tree\\tree", QFILE_READ), QERR_OK);
  char byte = 0;
  std::uint32_t got = 0;
  EXPECT_EQ(qfile_read(file.get(), &byte, 1, &got), static_cast<qerr_t>(EISDIR));
}

TEST_F(ShareTest, NobodyWaitsForASilentServerThatAnotherThreadUses) {
  std::atomic<bool> ended{false};
  std::thread waiting([&] {
    EXPECT_EQ(Use(silent_share()).code, QSHARE_BAD_NETPATH);
    ended = true;
  });
  for (int round = 0; round < 10; ++round) {
    EXPECT_EQ(Use(SHARE).code, QSHARE_OK);
    EXPECT_EQ(Use(u"\\\\localhost\\guest").code, QSHARE_OK);
  }
  EXPECT_FALSE(ended);
  waiting.join();
}

// The last test, since a cancelled process stays cancelled.
TEST_F(ShareTest, CancelEndsTheWaitOfAnotherThread) {
  const auto start = std::chrono::steady_clock::now();
  std::thread waiting([] { EXPECT_NE(Use(silent_share()).code, QSHARE_OK); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  qlib_cancel();
  waiting.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));  // it would be lost after 10
}

}  // namespace
