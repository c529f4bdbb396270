// The driver's arguments, result codes and messages, over a scratch tree, a replaced share and a faulty disk.
#include <set>

#include "support/faulty_provider.h"
#include "support/fixture_table.h"
#include "support/replaced.h"
#include "support/scratch.h"
#include "utils/signing/brantle/brantle.h"
#include "utils/signing/brantle/brantle_complaints.h"
#include "utils/signing/brantle/brantle_share.h"

namespace {

namespace fs = std::filesystem;

std::uint32_t connect_code = 0;
int disconnects = 0;
constexpr brantle_share_operations fake_share = {[](const brantle_share_use&, std::uint32_t* bad) {
                                                   *bad = connect_code == 0 ? 0 : 2;
                                                   return connect_code;
                                                 },
                                                 [](const std::u16string&) {
                                                   ++disconnects;
                                                   return std::uint32_t{0};
                                                 }};

class Driver : public ScratchTest {
 protected:
  void SetUp() override {
    ScratchTest::SetUp();
    qlib_set_standalone(true);
    put(u"in/a.txt", "text");
    put(u"out/");
    connect_code = 0;
    disconnects = 0;
  }
  // The result of a request from in to out, after `prepare`; what it said is in `text`.
  template <class Prepare = void (*)(Brantle&)>
  std::int32_t run(Prepare prepare = [](Brantle&) {}) {
    std::int32_t result = 0;
    text = said([&] {
      Brantle request;
      request.setReposPath(at(u"in"));
      request.setOutputPath(at(u"out"));
      prepare(request);
      result = request.invoke();
      incomplete = request.incompleteText();
    });
    return result;
  }
  [[nodiscard]] std::set<std::string> written() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(at(u"out"))) names.insert(entry.path().filename().string());
    return names;
  }

  std::string text, incomplete;
  replaced<brantle_share_set_operations> share_{&fake_share};
};

// The modes' letters are A all, O only, C cabinets, N share, X access.
TEST_F(Driver, SequencesOfArgumentsSetTheirModes) {
  const auto rows = fixture_rows("utils/signing/brantle/arguments.tsv");
  ASSERT_GT(rows.size(), 40U);
  for (const auto& row : rows) {
    std::vector<std::u16string> words;
    for (const std::string& word : fixture_cells(row.at("arguments"), ' ')) words.push_back(qstr_to_wide(word));
    std::vector<const qchar*> argv;
    for (const std::u16string& word : words) argv.push_back(word.c_str());
    Brantle request;
    std::string result, modes;
    text = said([&] { result = std::to_string(request.parseArgs(argv.data(), static_cast<int>(argv.size()))); });
    EXPECT_EQ(result, row.at("result")) << row.at("arguments");
    EXPECT_EQ(text.find("beextracted from a cab file") != std::string::npos, result == "22") << row.at("arguments");
    const std::int32_t set[] = {request.allCerts, request.certsOnly, request.cabFile, request.nwMode,
                                request.checkAccess};
    for (std::size_t i = 0; i < std::size(set); ++i) modes += std::string(set[i] != 0 ? 1 : 0, "AOCNX"[i]);
    EXPECT_EQ(result == "0" ? modes : "", row.at("modes")) << row.at("arguments");
  }
}

TEST_F(Driver, ShareAndPathFailuresLeaveNothing) {
  const struct {
    std::uint32_t share;  // the connection's code
    const char16_t* in;
    bool access;
    std::int32_t result;
    int disconnects;
  } cases[] = {{53, u"in", false, 20001, 0},    {67, u"in", false, 20001, 0},  {1219, u"in", false, 20003, 0},
               {5, u"in", false, 20002, 0},     {1326, u"in", true, 20002, 0}, {0, u"nowhere", false, 20001, 1},
               {0, u"nowhere", true, 20001, 2}, {0, u"in", true, 0, 3}};
  for (const auto& c : cases) {
    connect_code = c.share;
    EXPECT_EQ(run([&](Brantle& request) {
                request.setReposPath(at(c.in));
                request.nwMode = 1;
                request.checkAccess = c.access ? 1 : 0;
              }),
              c.result)
        << c.share;
    EXPECT_EQ(text.starts_with("Netuseadd() returned " + std::to_string(c.share) + " (arge# = 2)"), c.share != 0);
    EXPECT_EQ(disconnects, c.disconnects) << "a connection that was made, and no other, is removed";
    EXPECT_TRUE(written().empty());
  }
  EXPECT_EQ(run([](Brantle& request) { request.setReposPath(u""); }), BRANTLE_INVALID_PATH);
  EXPECT_EQ(run([&](Brantle& request) { request.setOutputPath(at(u"absent")); }), 0);
  EXPECT_FALSE(qfile_exists(at(u"absent").c_str()));
  EXPECT_EQ(disconnects, 3);
}

TEST_F(Driver, AFileIsOpenedOnceForAllThatIsSaidAboutIt) {
  for (const char* name : {"images/exe64_rsa.exe", "images/exe32.exe", "packages/product_rsa.msi"}) {
    fs::copy_file(fixture_path(name), fs::path(at(u"in")) / fs::path(name).filename());
  }
  faulty_provider disk;
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(disk.calls(file_op::open), 4U);
  EXPECT_EQ(written().size(), 2U);
}

// Each way to a signature knows what the request has written, and forgets the file before.
TEST_F(Driver, ACertificateIsWrittenOnceARequest) {
  for (const std::string kind : {"cabinets/signed_*.cab", "images/exe64_*.exe", "packages/product_*.msi"}) {
    const std::u16string folder = u"in/" + qstr_to_wide(kind.substr(0, kind.find('/')));
    const std::string extension = kind.substr(kind.find('.'));
    for (const std::string file : {"1_rsa", "2_ec", "3_rsa"}) {
      std::string name = kind;
      name.replace(name.find('*'), 1, file.substr(2));
      put(folder + u"/" + qstr_to_wide(file + extension), file_text(fixture_path(name)));
    }
    faulty_provider disk;
    EXPECT_EQ(run([&](Brantle& request) {
                request.setReposPath(at(folder));
                request.certsOnly = 1;
                request.cabFile = extension == ".cab" ? 1 : 0;
              }),
              0);
    EXPECT_EQ(disk.calls(file_op::create_exclusive), 2U) << kind;
  }
}

// Whatever fails, the scan ends well, says what it left out, and keeps the old report when there is no new one.
TEST_F(Driver, WhatWasLeftOutIsSaidAndAFailedReportKeepsTheOldOne) {
  const struct {
    file_op op;
    std::u16string_view path;
    qerr_t code;
    const char* text;
  } cases[] = {{file_op::exists, u"none", QERR_IO, ""},
               {file_op::open, u".exe", QERR_PERMISSION, "incomplete: 1 file"},
               {file_op::read, u".exe", QERR_IO, "incomplete: 1 file"},
               {file_op::read, u".exe", QERR_OK, "incomplete: 1 file"},  // it shrinks
               {file_op::list, u"sub", QERR_PERMISSION, "incomplete: 1 directory"},
               {file_op::next, u"sub", QERR_IO, "incomplete: the walk ended early"},
               {file_op::write, u".tmp", QERR_NO_SPACE, nullptr},
               {file_op::create_exclusive, u".tmp", QERR_PERMISSION, nullptr}};
  for (const auto& c : cases) {
    const std::u16string image = put(u"in/a.exe", file_text(fixture_path("images/exe32_rsa.exe")));
    put(u"in/sub/b.txt", "text");
    put(u"out/info.xml", "old");
    faulty_provider disk;
    disk.only(std::u16string(c.path));
    disk.before(c.op, [&] {
      if (c.op == file_op::read && c.code == QERR_OK) fs::resize_file(image, 700);
    });
    disk.fail(c.op, c.code == QERR_OK ? 0 : 1, c.code, faulty_provider::ALWAYS);
    qlog_console_on();
    EXPECT_EQ(run(), BRANTLE_OK);
    EXPECT_EQ(text.find("Failed to read file") != std::string::npos, c.op == file_op::read);
    const std::string report = get(at(u"out/info.xml"));
    EXPECT_EQ(report == "old", c.text == nullptr);
    EXPECT_EQ(incomplete, c.text == nullptr ? "" : c.text);
    EXPECT_EQ(report.find("<!-- " + incomplete + " -->") != std::string::npos, !incomplete.empty()) << report;
    for (const std::string& name : written()) EXPECT_FALSE(name.ends_with(".tmp"));
  }
}

// A line says that its file was not read whole, whatever kept from it; details that do not fit keep the old ones.
TEST_F(Driver, DetailsSayWhatIsNotComplete) {
  const struct {
    file_op op;
    qerr_t code;
    const char* line;
  } cases[] = {{file_op::exists, QERR_IO, "true"},          {file_op::open, QERR_PERMISSION, "open_failed"},
               {file_op::read, QERR_IO, "false"},           {file_op::read, QERR_OK, "changed_while_read"},
               {file_op::rename, QERR_PERMISSION, "false"},  // of its certificate
               {file_op::flush, QERR_NO_SPACE, nullptr}};
  for (const auto& c : cases) {
    const std::u16string image = put(u"in/a.exe", file_text(fixture_path("images/exe32_rsa.exe")));
    put(u"out/details.jsonl", "old");
    faulty_provider disk;
    disk.only(c.op == file_op::flush ? u".tmp" : c.op == file_op::rename ? u".cer" : u".exe");
    disk.before(c.op, [&] {
      if (c.op == file_op::read && c.code == QERR_OK) fs::last_write_time(image, {});
    });
    const std::uint32_t nth = c.op == file_op::flush ? 2 : 1;  // the report's is the first
    disk.fail(c.op, c.code == QERR_OK ? 0 : nth, c.code, faulty_provider::ALWAYS);
    EXPECT_EQ(run([](Brantle& request) { request.details = BRANTLE_DETAILS_ON; }), BRANTLE_OK);
    const std::string details = get(at(u"out/details.jsonl"));
    EXPECT_EQ(details == "old", c.line == nullptr);
    EXPECT_NE(get(at(u"out/info.xml")), "old");
    if (c.line == nullptr) continue;
    std::string line = details.substr(details.find("a.exe"));
    line.resize(line.find('\n'));
    EXPECT_NE(line.find(c.line), std::string::npos) << line;
    EXPECT_EQ(line.find("\"complete\":true") != std::string::npos, c.line == std::string("true")) << line;
  }
}

// On standard error: what was not written ("@" is the folder of the test), the first paths left out and how many more.
TEST_F(Driver, WhatFailedIsSaidInLines) {
  const struct {
    const char16_t *in, *out, *fault;  // the end of the paths that fail
    qsys_condition condition;
    std::string end, remarks;
    std::ptrdiff_t lines;
  } cases[] = {
      {u"in", u"out", u"info.xml", qsys_condition::none, "@out/info.xml: not written: Permission denied\n",
       ", info.xml not written", 1},
      {u"in", u"out", u"info.xml", qsys_condition::held,
       "@out/info.xml: in use by another program; the new one is @out/info-new.xml\n", ", info.xml not replaced", 1},
      {u"in", u"none", u"info.xml", qsys_condition::none,
       "@none/info.xml: not written: No such file or directory\n"
       "brantle: @none: 1 certificate not written: No such file or directory\n",
       ", info.xml not written, 1 certificate not written", 2},
      {u"many", u"out", u".exe", qsys_condition::none, "2 more were left out\nbrantle: incomplete: 12 files\n", "",
       12}};
  put(u"in/signed.dll", file_text(fixture_path("images/exe32_rsa.exe")));
  for (char16_t name = u'a'; name < u'm'; ++name) put(std::u16string(u"many/") + name + u"\u202E.exe");
  put(u"out/info.xml", "old");
  put(u"out/details.jsonl", "old");
  for (const auto& c : cases) {
    faulty_provider disk;
    disk.only(c.fault);
    disk.fail(file_op::open, 1, QERR_PERMISSION, faulty_provider::ALWAYS);
    disk.fail(file_op::rename, 1, QERR_PERMISSION, 52, c.condition);
    Brantle request;
    request.setReposPath(at(c.in));
    request.setOutputPath(at(c.out));
    request.details = BRANTLE_DETAILS_ON;
    EXPECT_EQ(request.invoke(), BRANTLE_OK);
    // An old report that stays keeps its details; the new one's are beside it.
    EXPECT_EQ(get(at(u"out/details.jsonl")) == "old", c.fault == std::u16string(u"info.xml"));
    EXPECT_EQ(fs::remove(at(u"out/details-new.jsonl")), c.condition == qsys_condition::held);
    std::string said = qstr_to_utf8(brantleComplaints(request)), root = qstr_to_utf8(at(u""));
    for (std::size_t place = 0; (place = said.find(root)) != said.npos;) said.replace(place, root.size(), "@");
    std::replace(said.begin(), said.end(), '\\', '/');
    EXPECT_TRUE(said.ends_with("brantle: " + c.end)) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), c.lines) << said;
    EXPECT_EQ(said.find("@many/a\xEF\xBF\xBD.exe: left out: Permission denied\n") != said.npos, c.remarks.empty())
        << said;
    EXPECT_EQ(brantleRemarks(request, false), c.remarks);
  }
}

}  // namespace
