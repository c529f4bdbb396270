// The share layer against a real server; tests/share/share_test.py starts this. The server is 127.0.0.1 and ::1,
// SHARE_LOCAL the folder that its shares "tree" and "guest" serve; the server SHARE_SILENT never answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "common/qlib/qfile.h"
#include "common/qlib/qfile_itr.h"
#include "common/qlib/qlib.h"
#include "common/qlib/qstr.h"
#include "common/qlib/qstr_name.h"
#include "common/qlib/share/qshare_posix_user.h"
#include "support/fixture_table.h"

namespace {

constexpr std::u16string_view SHARE = u"\\\\127.0.0.1\\tree";
constexpr qshare_credentials GOOD{u"TESTGROUP", u"daemon", u"pässword, \"long\" €"};

std::string setting(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

class ShareTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(qlib_lib_init_basic(), QERR_OK);
    ASSERT_NE(setting("SHARE_LOCAL"), "") << "run by share_test.py";
  }
  static void TearDownTestSuite() { qlib_lib_fini_basic(); }
};

// A use for the length of a scope.
class Use {
 public:
  explicit Use(std::u16string_view remote, const qshare_credentials& credentials = GOOD)
      : remote_(remote), code_(qshare_use_add(remote, credentials)) {}
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  ~Use() {
    if (code_ != QSHARE_OK) return;
    EXPECT_EQ(qshare_use_delete(remote_), QSHARE_OK);
  }
  [[nodiscard]] std::uint32_t code() const { return code_; }

 private:
  std::u16string remote_;
  std::uint32_t code_;
};

// What a walk yields: paths below the start's folder with '/' between them, directories with one at the end.
std::vector<std::string> walk(const std::u16string& start, qerr_t& end) {
  std::vector<std::string> found;
  qfile_itr iterator;
  end = qfile_itr_open(&iterator, start.c_str());
  const qchar* path = nullptr;
  std::uint32_t directory = 0;
  while (end == QERR_OK && (end = qfile_itr_next(&iterator, &path, &directory, nullptr)) == QERR_OK) {
    std::string name;
    if (!qstr_name_to_bytes(std::u16string(path).substr(start.find_last_of(u"\\/") + 1), name)) name = "?";
    std::replace(name.begin(), name.end(), '\\', '/');
    found.push_back(name + (directory != 0 ? "/" : ""));
  }
  EXPECT_EQ(qfile_itr_close(&iterator), QERR_OK);
  std::sort(found.begin(), found.end());
  return found;
}

TEST_F(ShareTest, EachFailureHasItsSystemError) {
  const struct {
    const char* what;
    std::u16string_view remote;
    qshare_credentials credentials;
    std::uint32_t code;
  } cases[] = {
      {"a folder that does not exist is the walk's affair", u"\\\\127.0.0.1\\tree\\nothing", GOOD, QSHARE_OK},
      {"wrong password", SHARE, {GOOD.domain, GOOD.user, u"wrong"}, QSHARE_LOGON_FAILURE},
      {"empty password", SHARE, {GOOD.domain, GOOD.user, u""}, QSHARE_LOGON_FAILURE},
      {"unknown user", SHARE, {GOOD.domain, u"no-such-user", u"x"}, QSHARE_LOGON_FAILURE},
      {"wrong password for a share that lets guests in",
       u"\\\\127.0.0.1\\guest",
       {GOOD.domain, GOOD.user, u"wrong"},
       QSHARE_LOGON_FAILURE},
      {"missing share", u"\\\\127.0.0.1\\nothing", GOOD, QSHARE_BAD_NET_NAME},
      {"a share for others", u"\\\\127.0.0.1\\denied", GOOD, QSHARE_ACCESS_DENIED},
      {"an address in brackets", u"\\\\[::1]\\tree", GOOD, QSHARE_OK},
      {"no host's address", u"\\\\0\\tree", GOOD, QSHARE_BAD_NETPATH},
      {"missing server", u"\\\\no-such-server.invalid\\tree", GOOD, QSHARE_BAD_NETPATH},
      {"a server without the service", u"\\\\127.0.9.9\\tree", GOOD, QSHARE_BAD_NETPATH},
      {"no share named", u"\\\\127.0.0.1", GOOD, QSHARE_BAD_NET_NAME},
      {"a local path", u"/tmp", GOOD, QSHARE_BAD_NET_NAME},
  };
  for (const auto& one : cases) EXPECT_EQ(Use(one.remote, one.credentials).code(), one.code) << one.what;
  const std::u16string too_long(300, u'p');
  EXPECT_EQ(Use(SHARE, {GOOD.domain, GOOD.user, too_long}).code(), QSHARE_INVALID_PARAMETER);  // not cut and tried
}

TEST_F(ShareTest, OneServerHasOneSetOfCredentials) {
  const Use first(SHARE);
  ASSERT_EQ(first.code(), QSHARE_OK);
  EXPECT_EQ(Use(SHARE, {GOOD.domain, u"other", u"x"}).code(), QSHARE_CREDENTIAL_CONFLICT);
  EXPECT_EQ(Use(SHARE, {GOOD.domain, GOOD.user, u"other"}).code(), QSHARE_CREDENTIAL_CONFLICT);
  EXPECT_EQ(Use(u"\\\\127.0.0.1\\guest", {u"testgroup", u"Daemon", GOOD.password}).code(), QSHARE_OK);
  std::thread other([] { EXPECT_EQ(Use(SHARE, {GOOD.domain, GOOD.user, u"wrong"}).code(), QSHARE_LOGON_FAILURE); });
  other.join();
  // Another name is another server.
  EXPECT_EQ(Use(u"\\\\localhost\\guest", {GOOD.domain, u"no-such-user", u"x"}).code(), QSHARE_LOGON_FAILURE);
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
}

TEST_F(ShareTest, AWalkYieldsWhatTheDiskHolds) {
  const Use use(SHARE);
  qerr_t local_end = 0;
  qerr_t share_end = 0;
  const auto local = walk(qstr_name_from_bytes(setting("SHARE_LOCAL")), local_end);
  const auto share = walk(std::u16string(SHARE), share_end);
  EXPECT_EQ(share_end, QERR_END);
  // The share's root itself is no entry; a directory is.
  std::vector<std::string> expected(local.begin() + 1, local.end());
  EXPECT_GT(expected.size(), 1000U);
  EXPECT_EQ(share, expected);
}

TEST_F(ShareTest, StartsOfWalks) {
  const Use use(SHARE);
  const struct {
    const char16_t* start;
    std::vector<std::string> found;
  } cases[] = {
      {u"\\\\127.0.0.1\\tree\\names", {"names/", "names/größe 100%/", "names/größe 100%/日 & %41#.txt"}},
      {u"\\\\127.0.0.1\\tree\\tree\\readme.txt", {"readme.txt"}},
      {u"\\\\127.0.0.1\\tree\\tree\\SETUP.*", {"SETUP.EXE"}},
      {u"\\\\127.0.0.1\\tree\\nothing", {}},
      {u"\\\\127.0.0.1\\tree\\loop", {"loop/", "loop/inner/", "loop/inner/back/"}},
      {u"\\\\no-such-server.invalid\\tree", {}},
  };
  for (const auto& one : cases) {
    qerr_t end = 0;
    EXPECT_THAT(walk(one.start, end), testing::ContainerEq(one.found)) << qstr_to_utf8(one.start);
    EXPECT_EQ(end, QERR_END);
  }
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
    EXPECT_EQ(Use(u"\\\\" + qstr_name_from_bytes(setting("SHARE_SILENT")) + u"\\tree").code(), QSHARE_BAD_NETPATH);
    ended = true;
  });
  for (int round = 0; round < 10; ++round) {
    EXPECT_EQ(Use(SHARE).code(), QSHARE_OK);
    EXPECT_EQ(Use(u"\\\\localhost\\guest").code(), QSHARE_OK);
  }
  EXPECT_FALSE(ended);
  waiting.join();
}

}  // namespace
