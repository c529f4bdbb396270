// Eight requests on eight threads at once find what one alone finds. Runs under ThreadSanitizer too.
#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/fixture_table.h"
#include "support/scratch.h"
#include "utils/signing/brantle/brantle.h"

namespace {

namespace fs = std::filesystem;

using Files = std::map<std::string, std::string>;

Files files(const fs::path& folder) {
  Files found;
  for (const auto& file : fs::directory_iterator(folder)) {
    found[file.path().filename().string()] = file_text(file.path());
  }
  return found;
}

// Scans the sample repository into a new folder.
std::int32_t scan(const std::string& output, bool all) {
  const fs::path out = scratch_folder(output);
  auto request = std::make_unique<Brantle>();
  request->setReposPath(fixture_wide("tree"));
  request->setOutputPath(out.u16string());
  request->allCerts = all ? 1 : 0;
  return request->invoke();
}

// What that writes, by file name; empty when it fails.
Files scanned(const std::string& output, bool all) {
  return scan(output, all) == BRANTLE_OK ? files(scratch_path(output)) : Files();
}

using Threads = Runtime;

TEST_F(Threads, EightScansAtOnceFindWhatOneFinds) {
  qlib_set_standalone(true);
  const Files expected[] = {scanned("signers", false), scanned("all", true)};
  ASSERT_GT(expected[0].size(), 2U);
  ASSERT_GT(expected[1].size(), expected[0].size());
  std::vector<int> equal(8, 0);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < equal.size(); ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 4; ++round)
        equal[i] += scanned(std::to_string(i), i % 2 == 1) == expected[i % 2] ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(equal, std::vector<int>(8, 4));
}

// The last test, since a cancelled process stays cancelled. What is there afterwards is whole, and no report.
TEST_F(Threads, CancelEndsTheScansOfAllThreads) {
  const Files expected = scanned("signers", false);
  std::vector<std::int32_t> results(8, BRANTLE_OK);
  std::atomic<int> scans{0};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([&, i] {
      for (; results[i] == BRANTLE_OK; ++scans) results[i] = scan(std::to_string(i), false);
    });
  }
  while (scans < 8) std::this_thread::yield();
  qlib_cancel();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(results, std::vector<std::int32_t>(8, BRANTLE_INTERRUPTED));
  for (std::size_t i = 0; i < results.size(); ++i) {
    for (const auto& [name, text] : files(scratch_path(std::to_string(i)))) {
      EXPECT_TRUE(name != "info.xml" && expected.count(name) == 1 && expected.at(name) == text) << name;
    }
  }
}

}  // namespace
