// Eight requests on eight threads at once find what one alone finds. Runs under ThreadSanitizer too.
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/fixture_table.h"
#include "support/scratch.h"
#include "utils/signing/brantle/brantle.h"

namespace {

namespace fs = std::filesystem;

// What a scan of the sample repository writes, by file name; empty when it fails.
std::map<std::string, std::string> scan(const std::string& output, bool all) {
  const fs::path out = scratch_folder(output);
  auto request = std::make_unique<Brantle>();
  request->setReposPath(fixture_wide("tree"));
  request->setOutputPath(out.u16string());
  request->allCerts = all ? 1 : 0;
  std::map<std::string, std::string> found;
  if (request->invoke() != 0) return found;
  for (const auto& file : fs::directory_iterator(out)) found[file.path().filename().string()] = file_text(file.path());
  return found;
}

using Threads = Runtime;

TEST_F(Threads, EightScansAtOnceFindWhatOneFinds) {
  qlib_set_standalone(true);
  const std::map<std::string, std::string> expected[] = {scan("signers", false), scan("all", true)};
  ASSERT_GT(expected[0].size(), 2U);
  ASSERT_GT(expected[1].size(), expected[0].size());
  std::vector<int> equal(8, 0);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < equal.size(); ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 4; ++round)
        equal[i] += scan(std::to_string(i), i % 2 == 1) == expected[i % 2] ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(equal, std::vector<int>(8, 4));
}

}  // namespace
