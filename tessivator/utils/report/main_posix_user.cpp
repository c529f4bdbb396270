// Process entry point: arguments arrive as bytes.
#include <string>
#include <vector>

#include "common/qlib/qstr_name.h"
#include "utils/report/report_cli.h"

int main(int argc, char** argv) try {
  std::vector<std::u16string> texts;
  texts.reserve(static_cast<std::size_t>(argc));
  for (int i = 0; i < argc; ++i) texts.push_back(qstr_name_from_bytes(argv[i]));
  std::vector<const qchar*> pointers;
  pointers.reserve(texts.size());
  for (const std::u16string& text : texts) pointers.push_back(text.c_str());
  return reportMain(pointers.data(), argc);
} catch (...) {
  return 2;
}
