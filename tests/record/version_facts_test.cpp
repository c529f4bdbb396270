// Tables, machine, subsystem and link time of sound images are pefile's answers.
#include "record/version_facts.h"

#include "support/fixture_table.h"

namespace {

std::string told(const std::vector<record_problem>& problems) {
  std::string text;
  for (const record_problem& one : problems) {
    text += (text.empty() ? "" : " ") + std::string(one.code);
    if (one.count > 1) text += ":" + std::to_string(one.count);
  }
  return text;
}

std::u16string told(const std::vector<record_version_table>& tables) {
  std::u16string text;
  for (const record_version_table& table : tables) {
    char key[9];
    std::snprintf(key, sizeof key, "%04x%04x", table.language, table.code_page);
    text.append(text.empty() ? u"" : u"| ").append(qstr_to_wide(key)).append(u" ");
    for (const auto& [name, value] : table.values) text.append(name).append(u"=").append(value).append(u"; ");
  }
  return text;
}

TEST(ImageFacts, AreWhatAnotherReaderFinds) {
  for (const fixture_row& row : fixture_table("image_facts")) {
    SCOPED_TRACE(row.at("file"));
    blib_bin* opened = nullptr;
    ASSERT_EQ(blib_bin_open(fixture_wide(row.at("file")).c_str(), &opened, BLIB_READ, 0), QERR_OK);
    const BlibBinOwner image(opened);
    EXPECT_EQ(blib_bin_machine(opened), row.number("machine"));
    EXPECT_EQ(blib_bin_subsystem(opened), row.number("subsystem"));
    EXPECT_EQ(blib_bin_link_time(opened), row.number("link_time"));
    record_version_facts facts;
    EXPECT_EQ(record_get_version_facts(opened, facts), QERR_OK);
    const std::string& version = row.at("file_version");
    EXPECT_EQ(facts.file_version.has_value() ? *facts.file_version : 0,
              version.empty() ? 0 : std::stoull(version, nullptr, 16));
    EXPECT_EQ(told(facts.tables), row.wide("tables"));
    EXPECT_EQ(told(facts.problems), row.at("problems"));
  }
}

// A block of a version resource; `units` is its wValueLength.
std::string block(std::u16string text, std::size_t units, const std::string& body) {
  text.insert(0, 3, u'\0').push_back(u'\0');
  if (text.size() % 2 != 0) text.push_back(u'\0');
  std::string bytes(reinterpret_cast<const char*>(text.data()), text.size() * 2);
  bytes += body;
  const std::size_t length = bytes.size();
  for (const unsigned at : {0U, 1U}) bytes[at] = static_cast<char>(length >> 8 * at);
  for (const unsigned at : {0U, 1U}) bytes[2 + at] = static_cast<char>(units >> 8 * at);
  return bytes.append(-length % 4, '\0');
}

std::string value_of(std::u16string name, std::size_t units) {
  return block(std::move(name), units, std::string(units * 2, 'x'));
}

TEST(VersionFacts, StopAtTheirLimits) {
  std::string values = value_of(std::u16string(4001, u'n'), 1) + value_of(u"a", 4001) + value_of(u"b", 4000);
  for (int i = 0; i < 65; ++i) values += value_of(u"c", 0);
  std::string tables = block(u"040904b0", 0, values);
  for (int i = 0; i < 65; ++i) tables += block(u"04070000", 0, value_of(u"d", 1));
  const std::string resource = block(u"VS_VERSION_INFO", 0, block(u"StringFileInfo", 0, tables));
  record_version_facts facts;
  record_add_version(std::as_bytes(std::span(resource)), facts);
  ASSERT_EQ(facts.tables.size(), 64U);
  ASSERT_EQ(facts.tables[0].values.size(), 64U);
  EXPECT_EQ(facts.tables[0].values[0].value, std::u16string(4000, u'\x7878'));
  EXPECT_EQ(told(facts.problems), "version_value_too_long:2 version_values_cut:2 version_tables_cut:2");
}

}  // namespace
