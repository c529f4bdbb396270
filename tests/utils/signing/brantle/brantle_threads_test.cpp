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
using Output = std::map<std::string, std::string>;

std::int32_t scan(const fs::path& repository, const fs::path& output, bool all) {
  auto request = std::make_unique<Brantle>();
  request->setReposPath(repository.u16string());
  request->setOutputPath(output.u16string());
  request->allCerts = all ? 1 : 0;
  return request->invoke();
}

Output contents(const fs::path& folder) {
  Output found;
  for (const auto& entry : fs::directory_iterator(folder)) {
    found[entry.path().filename().string()] = file_text(entry.path());
  }
  return found;
}

using Threads = Runtime;

TEST_F(Threads, EightScansAtOnceFindWhatOneFinds) {
  qlib_set_standalone(true);
  const fs::path tree = fixture_path("tree");
  Output expected[2];
  for (const bool all : {false, true}) {
    const fs::path out = scratch_folder(all ? "all" : "signers");
    ASSERT_EQ(scan(tree, out, all), 0);
    expected[all ? 1 : 0] = contents(out);
    ASSERT_GT(expected[all ? 1 : 0].size(), 2U);
  }
  std::vector<int> equal(8, 0);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < equal.size(); ++i) {
    threads.emplace_back([&, i] {
      const bool all = i % 2 == 1;
      for (int round = 0; round < 4; ++round) {
        const fs::path out = scratch_folder(std::to_string(i));
        if (scan(tree, out, all) == 0 && contents(out) == expected[all ? 1 : 0]) ++equal[i];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(equal, std::vector<int>(8, 4));
}

}  // namespace
