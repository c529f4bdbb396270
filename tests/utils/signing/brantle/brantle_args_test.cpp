// Argument sequences of the command line: which flags they set, where the credentials stand, what is refused.
#include <sstream>
#include <vector>

#include "support/fixture_table.h"
#include "support/replaced.h"
#include "support/runtime.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_share.h"

namespace {

std::u16string last_use;
constexpr brantle_share_operations recorder = {[](const brantle_share_use& use, std::uint32_t*) {
                                                 last_use = use.remote + u"|" + use.domain + u"|" + use.user + u"|" +
                                                            use.password;
                                                 return BRANTLE_SHARE_LOGON_FAILURE;
                                               },
                                               [](const std::u16string&) { return BRANTLE_SHARE_NOT_SUPPORTED; }};

class Args : public Runtime {
 protected:
  // The result of `options` behind the two paths, and what was said.
  std::int32_t parse(Brantle& request, const std::string& options, std::string& usage) {
    words_ = {u"brantle", u"\\\\srv\\share\\dir", u"out"};
    std::istringstream stream(options);
    for (std::string word; stream >> word;) words_.push_back(qstr_to_wide(word));
    std::vector<const qchar*> argv;
    for (const std::u16string& word : words_) argv.push_back(word.c_str());
    std::int32_t result = -1;
    usage = said([&] { result = request.parseArgs(argv.data(), static_cast<int>(argv.size())); });
    return result;
  }
  std::vector<std::u16string> words_;
  replaced<brantle_share_set_operations> share_{&recorder};
};

std::string modes_of(const Brantle& request) {
  std::string modes;
  if (request.allCerts != 0) modes += 'A';
  if (request.certsOnly != 0) modes += 'O';
  if (request.cabFile != 0) modes += 'C';
  if (request.nwMode != 0) modes += 'N';
  if (request.checkAccess != 0) modes += 'X';
  return modes;
}

// Options from argument 3 on; the modes' letters are A all, O only, C cabinets, N share, X access.
TEST_F(Args, SequencesSetTheirModes) {
  const auto rows = fixture_rows("utils/signing/brantle/arguments.tsv");
  ASSERT_GT(rows.size(), 40U);
  for (const auto& row : rows) {
    Brantle request;
    std::string usage;
    const std::int32_t result = parse(request, row.at("options"), usage);
    EXPECT_EQ(std::to_string(result), row.at("result")) << row.at("options");
    EXPECT_EQ(usage.find("beextracted from a cab file") != std::string::npos, result == 22) << row.at("options");
    EXPECT_EQ(result == 0 ? modes_of(request) : "", row.at("modes")) << row.at("options");
  }
  const qchar* argv[] = {u"brantle", u"in"};
  Brantle request;
  (void)said([&] { EXPECT_EQ(request.parseArgs(argv, 2), 22); });
}

TEST_F(Args, CredentialsReachTheConnectionFromEveryPosition) {
  for (const char* options : {"-n DOM user secret", "--cab -O -n DOM user secret"}) {
    Brantle request;
    std::string usage;
    ASSERT_EQ(parse(request, options, usage), 0);
    EXPECT_EQ(said([&] { EXPECT_EQ(request.invoke(), BRANTLE_CONNECT_FAILED); }).rfind("Netuseadd() returned 1326", 0),
              0U);
    EXPECT_TEXT(std::exchange(last_use, u""), u"\\\\srv\\share\\dir|DOM|user|secret");
  }
}

}  // namespace
