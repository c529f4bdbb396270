#include "common/qlib/qstr_name.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "common/qlib/qutf8.h"

std::u16string qstr_name_from_bytes(std::string_view bytes) {
  std::u16string name;
  name.reserve(bytes.size());
  while (!bytes.empty()) {
    const qutf8_step step = qutf8_next(bytes);
    if (step.valid) {
      qutf16_append(name, step.scalar);
    } else {
      // Every byte of an invalid sequence is 0x80 or more, so none can be taken for a separator.
      for (const char byte : bytes.substr(0, step.length)) {
        name.push_back(static_cast<char16_t>(0xDC00 + static_cast<std::uint8_t>(byte)));
      }
    }
    bytes.remove_prefix(step.length);
  }
  return name;
}

bool qstr_name_to_bytes(std::u16string_view name, std::string& bytes) {
  // Leading plain ASCII, which is nearly always the whole path, in one step.
  const auto* const other = std::find_if(name.begin(), name.end(), [](char16_t unit) { return unit >= 0x80; });
  std::string result(name.begin(), other);
  name.remove_prefix(result.size());
  result.reserve(result.size() + name.size());
  while (!name.empty()) {
    const qutf8_step step = qutf16_next(name);
    if (step.valid) {
      qutf8_append(result, step.scalar);
    } else if (name.front() >= 0xDC80 && name.front() <= 0xDCFF) {
      result.push_back(static_cast<char>(static_cast<std::uint8_t>(name.front() - 0xDC00)));
    } else {
      return false;
    }
    name.remove_prefix(step.length);
  }
  bytes = std::move(result);
  return true;
}

int qstr_name_run(int argc, char** argv, int (*run)(const qchar* const* argv, int argc)) {
  std::vector<std::u16string> texts;
  texts.reserve(static_cast<std::size_t>(argc));
  for (int i = 0; i < argc; ++i) texts.push_back(qstr_name_from_bytes(argv[i]));
  std::vector<const qchar*> pointers;
  pointers.reserve(texts.size());
  for (const std::u16string& text : texts) pointers.push_back(text.c_str());
  return run(pointers.data(), argc);
}
