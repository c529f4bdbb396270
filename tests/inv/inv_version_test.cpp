#include "inv/inv_version.h"

#include <gtest/gtest.h>

#include <memory>

#include "inv/record_text.h"
#include "support/version_builder.h"

namespace {

using namespace version_builder;
using Outcome = inv_version_outcome;
using Record = InvCfciOwner;

struct Reading {
  qerr_t code;
  Outcome outcome;
  std::u16string company;
  std::u16string product;
};

// Reads a copy that ends where the resource ends, so that a sanitizer sees every step beyond.
Reading read(const Buffer& resource, Record record = new_record()) {
  const auto exact = std::make_unique<std::byte[]>(resource.size());
  std::copy(resource.begin(), resource.end(), exact.get());
  Reading out{};
  out.code = inv_read_version(Bytes(exact.get(), resource.size()), *record, out.outcome);
  out.company = text_or(record->CompanyName);
  out.product = text_or(record->ProductName);
  return out;
}

const Buffer company = string(u"CompanyName", u"Works");
const Buffer product = string(u"ProductName", u"Tool");
const Buffer english_table = table(u"040904b0", {company, product});

Buffer cut(Buffer resource, std::size_t size) {
  resource.resize(size);
  return resource;
}

Buffer padded(std::size_t size, std::size_t declared) {
  Buffer resource = english({company, product});
  resource.resize(size);
  set16(resource, 0, declared);
  return resource;
}

TEST(VersionWalk, ReadsWhatTheBlocksSay) {
  const struct {
    const char* what;
    Buffer resource;
    qerr_t code;
    Outcome outcome;
    std::u16string company;
    std::u16string product;
  } rows[] = {
      {"an ordinary block", english({company, product}), 0, Outcome::read_strings, u"Works", u"Tool"},
      {"45 bytes", cut(english({company}), 45), QERR_INVALID, Outcome::no_strings, absent, absent},
      {"46 bytes that declare more", cut(english({company}), 46), QERR_INVALID, Outcome::no_strings, absent, absent},
      {"46 bytes that declare no more", cut(version({}, {.length = 46}), 46), 0, Outcome::no_strings, absent, absent},
      {"a declared length past the end", version({string_info({english_table})}, {.length = 0xFFFF}), QERR_INVALID,
       Outcome::no_strings, absent, absent},
      {"7999 bytes that declare more", padded(7999, 8004), QERR_INVALID, Outcome::no_strings, absent, absent},
      {"8000 bytes that declare more", padded(8000, 65535), 0, Outcome::read_strings, u"Works", u"Tool"},
      {"8001 bytes that declare more", padded(8001, 8004), QERR_INVALID, Outcome::no_strings, absent, absent},
      {"no root key", version({string_info({english_table})}, {}, u""), 0, Outcome::no_key, absent, absent},
      {"another root key", version({string_info({english_table})}, {}, u"VS_VERSION_INFX"), 0, Outcome::no_strings,
       absent, absent},
      {"a root key that goes on", version({string_info({english_table})}, {}, u"VS_VERSION_INFO_"), 0,
       Outcome::no_strings, absent, absent},
      {"variables first", version({var_info(), string_info({english_table})}), 0, Outcome::no_strings, absent, absent},
      {"an unknown child first", version({block(u"Something", Buffer(30), 30), string_info({english_table})}), 0,
       Outcome::read_strings, u"Works", u"Tool"},
      {"a child of 43 bytes",
       version({block(u"Something", Buffer(30), 30, {}, {.length = 43}), string_info({english_table})}), 0,
       Outcome::no_strings, absent, absent},
      {"a German table", version({string_info({table(u"040704b0", {company})})}), 0, Outcome::no_strings, absent,
       absent},
      {"a German, then a British table",
       version({string_info({table(u"040704b0", {company}), table(u"080904b0", {product})})}), 0, Outcome::read_strings,
       absent, u"Tool"},
      {"a neutral, then an English table",
       version({string_info({table(u"000004b0", {string(u"CompanyName", u"Neutral")}), english_table})}), 0,
       Outcome::read_strings, u"Neutral", u"Tool"},
      {"an English table without strings", version({string_info({table(u"040904b0", {Buffer(6)})})}), 0,
       Outcome::read_strings, absent, absent},
      {"a table of 29 bytes", version({string_info({table(u"040904b0", {company}, {.length = 29})})}), 0,
       Outcome::no_strings, absent, absent},
      {"a table that passes the end", version({string_info({table(u"040904b0", {company}, {.length = 999})})}), 0,
       Outcome::no_strings, absent, absent},
      {"a string of 7 bytes ends the walk",
       version({string_info({table(u"040904b0", {company, string(u"x", u"y", {.length = 7})}), english_table})}), 0,
       Outcome::read_strings, u"Works", absent},
      {"a string that passes the end ends the walk",
       english({company, string(u"ProductName", u"Tool", {.length = 999})}), 0, Outcome::read_strings, u"Works",
       absent},
      {"a string without a value", english({string(u"CompanyName", u"Works", {.value_length = 0}), product}), 0,
       Outcome::read_strings, absent, u"Tool"},
      {"a value shorter than its text", english({string(u"CompanyName", u"Works", {.value_length = 4})}), 0,
       Outcome::read_strings, u"Work", absent},
      {"a value counted in bytes", english({string(u"CompanyName", u"Works", {.value_length = 12}), product}), 0,
       Outcome::read_strings, u"Works", u"Tool"},
      {"an empty value stays", english({string(u"CompanyName", u""), company}), 0, Outcome::read_strings, u"", absent},
      {"the first value stays", english({company, string(u"CompanyName", u"Other")}), 0, Outcome::read_strings,
       u"Works", absent},
      {"keys of another case", english({string(u"companyname", u"x"), string(u"CompanyName2", u"x")}), 0,
       Outcome::read_strings, absent, absent},
      {"white space at the end", english({string(u"CompanyName", u" a b \t\n\v\f\r"), string(u"ProductName", u"   ")}),
       0, Outcome::read_strings, u" a b", u" "},
      {"characters that only look blank",
       english({string(u"CompanyName", u"a\u00a0"), string(u"ProductName", u"a\u2003\u0085")}), 0,
       Outcome::read_strings, u"a\u00a0", u"a\u2003\u0085"},
      {"control characters and lone surrogates",
       english({string(u"CompanyName", u"\x01\x1f\uffff"), string(u"ProductName", std::u16string{0xDC00, 0xD800})}), 0,
       Outcome::read_strings, u"\x01\x1f\uffff", std::u16string{0xDC00, 0xD800}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    const Reading got = read(row.resource);
    EXPECT_EQ(got.code, row.code);
    EXPECT_EQ(got.outcome, row.outcome);
    EXPECT_EQ(got.company, row.company);
    EXPECT_EQ(got.product, row.product);
  }
}

TEST(VersionWalk, FillsEachFieldFromItsOwnKey) {
  const std::pair<const qchar*, qchar * inv_cfci_t::*> keys[] = {
      {u"CompanyName", &inv_cfci_t::CompanyName},           {u"FileVersion", &inv_cfci_t::FileVersion},
      {u"ProductName", &inv_cfci_t::ProductName},           {u"ProductVersion", &inv_cfci_t::ProductVersion},
      {u"OriginalFilename", &inv_cfci_t::OriginalFilename}, {u"FileDescription", &inv_cfci_t::FileDescription},
      {u"InternalName", &inv_cfci_t::InternalName}};
  for (const auto& [key, field] : keys) {
    const Record record = new_record();
    const Buffer resource = english({string(key, u"value")});
    Outcome outcome{};
    ASSERT_EQ(inv_read_version(resource, *record, outcome), QERR_OK);
    for (const auto& other : keys) {
      EXPECT_EQ(text_or(record.get()->*other.second), other.second == field ? u"value" : absent);
    }
  }
}

TEST(VersionWalk, KeepsWhatTheRecordAlreadyHas) {
  Record record = new_record();
  record->CompanyName = qstr_dup(u"");
  const Reading got = read(english({company, product}), std::move(record));
  EXPECT_EQ(got.company, u"");
  EXPECT_EQ(got.product, u"Tool");
}

// Every 16-bit field at its extremes, and every place where the resource may end: no access leaves the resource (the
// sanitizers' finding), no walk hangs, and no value has more than the resource holds.
TEST(VersionWalk, StaysInsideWhateverTheFieldsSay) {
  const Buffer good = version({block(u"Something", Buffer(30), 30), string_info({english_table, english_table})});
  for (std::size_t at = 0; at + 2 <= good.size(); at += 2) {
    for (const unsigned value : {0x0000U, 0x0001U, 0x0008U, 0x002CU, 0x7FFFU, 0xFFFDU, 0xFFFFU}) {
      Buffer changed = good;
      set16(changed, at, value);
      EXPECT_LE(read(changed).company.size(), good.size() / 2);
      changed.resize(8000);
      EXPECT_LE(read(changed).company.size(), 4000U);
    }
  }
  for (std::size_t size = 0; size <= good.size(); ++size) {
    Buffer cut_off = cut(good, size);
    if (size >= 2) set16(cut_off, 0, 0);  // else the declared length is all that is looked at
    EXPECT_EQ(read(cut_off).code, size < 46 ? QERR_INVALID : QERR_OK) << size;
  }
}

}  // namespace
