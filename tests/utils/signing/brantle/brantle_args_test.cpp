// Argument sequences of the command line: which flags they set, where the credentials stand, what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "support/replaced.h"
#include "support/runtime.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_share.h"

namespace {

struct Seen {
  std::u16string remote, domain, user, password;
};
std::optional<Seen> last_use;

std::uint32_t recordUse(const brantle_share_use& use, std::uint32_t*) {
  last_use = Seen{use.remote, use.domain, use.user, use.password};
  return BRANTLE_SHARE_LOGON_FAILURE;
}
std::uint32_t refuse(const std::u16string&) { return BRANTLE_SHARE_NOT_SUPPORTED; }
constexpr brantle_share_operations kRecorder = {recordUse, refuse};

struct Case {
  std::vector<const qchar*> options;  // from argument 3 on
  std::int32_t result;
  const char* modes;  // letters: A all, O only, C cab, N share, X access
};

std::string modesOf(const Brantle& request) {
  std::string modes;
  if (request.allCerts != 0) modes += 'A';
  if (request.certsOnly != 0) modes += 'O';
  if (request.cabFile != 0) modes += 'C';
  if (request.nwMode != 0) modes += 'N';
  if (request.checkAccess != 0) modes += 'X';
  return modes;
}

class Args : public Runtime {
  replaced<brantle_share_set_operations> share_{&kRecorder};
};

TEST_F(Args, SequencesSetTheirModes) {
  const Case cases[] = {
      {{}, 0, ""},
      {{u"-X"}, 0, ""},
      {{u"-d"}, 0, ""},
      {{u"-a"}, 0, ""},
      {{u"-n", u"D", u"U", u"P"}, 0, "N"},
      {{u"-n", u"D", u"U"}, 22, ""},
      {{u"-n", u"D", u"U", u"-d"}, 0, "N"},  // -d stands where the password is expected
      {{u"-c", u"D", u"U", u"P"}, 0, "NX"},
      {{u"-c"}, 22, ""},
      {{u"-A"}, 0, "A"},
      {{u"-A", u"-n", u"D", u"U", u"P"}, 0, "AN"},
      {{u"-A", u"-n", u"D", u"U"}, 22, ""},
      {{u"-A", u"-c", u"D", u"U", u"P"}, 0, "ANX"},
      {{u"-A", u"-O"}, 0, "AO"},
      {{u"-A", u"-O", u"-n", u"D", u"U", u"P"}, 0, "AON"},
      {{u"-A", u"-O", u"-n", u"D", u"U"}, 22, ""},
      {{u"-A", u"-O", u"-c", u"D", u"U", u"P"}, 0, "AO"},
      {{u"-O"}, 0, "O"},
      {{u"-O", u"-n", u"D", u"U", u"P"}, 0, "ON"},
      {{u"-O", u"-n", u"D", u"U"}, 22, ""},
      {{u"-O", u"-c", u"D", u"U", u"P"}, 0, "ONX"},
      {{u"-O", u"-A"}, 0, "AO"},
      {{u"-O", u"-A", u"-n", u"D", u"U", u"P"}, 0, "AON"},
      {{u"-O", u"-A", u"-c", u"D", u"U", u"P"}, 0, "AO"},
      {{u"-O", u"-X", u"-n"}, 0, "O"},
      {{u"--cab"}, 22, ""},
      {{u"--cab", u"-X"}, 22, ""},
      {{u"--cab", u"-d"}, 22, ""},
      {{u"--cab", u"-A"}, 22, ""},
      {{u"--cab", u"-A", u"-X"}, 22, ""},
      {{u"--cab", u"-O"}, 0, "OC"},
      {{u"--cab", u"-O", u"-n", u"D", u"U", u"P"}, 0, "OCN"},
      {{u"--cab", u"-O", u"-c", u"D", u"U", u"P"}, 0, "OCNX"},
      {{u"--cab", u"-O", u"-n", u"D", u"U"}, 22, ""},
      {{u"--cab", u"-O", u"-A"}, 0, "AOC"},
      {{u"--cab", u"-A", u"-O"}, 0, "AOC"},
      {{u"--cab", u"-A", u"-O", u"-c"}, 0, "AOC"},
      {{u"--cab", u"-O", u"-A", u"-n", u"D", u"U", u"P"}, 22, ""},  // ten arguments
      {{u"--cab", u"-O", u"-A", u"-n", u"D", u"U", u"-d"}, 0, "AOCN"},
      {{u"-n", u"D", u"U", u"P", u"x", u"y", u"z"}, 22, ""},  // ten again
      {{u"-n", u"D", u"U", u"P", u"x", u"y", u"-d"}, 0, "N"},
      {{u"-n", u"D", u"U", u"P", u"x", u"y", u"z", u"-d"}, 22, ""},
  };
  for (const Case& c : cases) {
    std::vector<const qchar*> argv = {u"brantle", u"in", u"out"};
    argv.insert(argv.end(), c.options.begin(), c.options.end());
    Brantle request;
    std::string shown;
    for (const qchar* option : c.options)
      shown += std::string(option, option + std::u16string_view(option).size()) + " ";
    const std::string usage =
        said([&] { EXPECT_EQ(request.parseArgs(argv.data(), static_cast<int>(argv.size())), c.result) << shown; });
    EXPECT_EQ(usage.find("beextracted from a cab file") != std::string::npos, c.result == 22) << shown;
    if (c.result == 0) {
      EXPECT_EQ(modesOf(request), c.modes) << shown;
    }
  }
}

TEST_F(Args, FewerThanThreeArgumentsAreRefused) {
  const qchar* argv[] = {u"brantle", u"in"};
  for (int argc = 0; argc <= 2; ++argc) {
    Brantle request;
    (void)said([&] { EXPECT_EQ(request.parseArgs(argv, argc), 22); });
  }
}

TEST_F(Args, CredentialsReachTheConnectionFromEveryPosition) {
  const std::vector<const qchar*> prefixes[] = {{u"-n"}, {u"-A", u"-c"}, {u"--cab", u"-O", u"-n"}};
  for (const auto& prefix : prefixes) {
    std::vector<const qchar*> argv = {u"brantle", u"\\\\srv\\share\\dir", u"out"};
    argv.insert(argv.end(), prefix.begin(), prefix.end());
    argv.insert(argv.end(), {u"DOM", u"user", u"secret"});
    Brantle request;
    ASSERT_EQ(request.parseArgs(argv.data(), static_cast<int>(argv.size())), 0);
    last_use.reset();
    EXPECT_THAT(said([&] { EXPECT_EQ(request.invoke(), BRANTLE_CONNECT_FAILED); }),
                testing::StartsWith("Netuseadd() returned 1326 (arge# = 0)"));
    ASSERT_TRUE(last_use.has_value());
    EXPECT_EQ(last_use->remote, u"\\\\srv\\share\\dir");
    EXPECT_EQ(last_use->domain, u"DOM");
    EXPECT_EQ(last_use->user, u"user");
    EXPECT_EQ(last_use->password, u"secret");
  }
}

}  // namespace
