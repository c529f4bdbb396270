// A folder of its own for each test, made empty before and removed after it. Paths are wide and of the platform's form.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "common/qlib/qfile.h"
#include "common/qlib/qfile_itr.h"
#include "common/qlib/qpath.h"
#include "support/runtime.h"

inline std::filesystem::path scratch_path(std::string_view name) {
  const char* const place = std::getenv("TESSIVATOR_SCRATCH");
  return std::filesystem::absolute(std::filesystem::path(place != nullptr ? place : "build/scratch") / name)
      .make_preferred();
}

// An empty folder of the running test program, where a test needs more than its own.
inline std::filesystem::path scratch_folder(std::string_view name) {
  std::filesystem::path folder = scratch_path(name);
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  return folder;
}

class ScratchTest : public Runtime {
 protected:
  void SetUp() override {
    Runtime::SetUp();
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    root_ = scratch_path(std::string(test->test_suite_name()) + "." + test->name()).u16string();
    remove_tree(root_);
    ASSERT_EQ(qfile_mkdir_parents((root_ + sep()).c_str()), QERR_OK);
  }
  void TearDown() override {
    remove_tree(root_);
    Runtime::TearDown();
  }

  static qchar sep() { return qpath_native_separator(); }

  [[nodiscard]] const std::u16string& root() const { return root_; }
  // `relative` is written with slashes.
  [[nodiscard]] std::u16string at(std::u16string_view relative) const {
    std::u16string path = root_ + sep() + std::u16string(relative);
    for (std::size_t i = root_.size(); i < path.size(); ++i) {
      if (path[i] == u'/') path[i] = sep();
    }
    return path;
  }
  // Makes a file with its directories, or with a slash at the end a directory.
  std::u16string put(std::u16string_view relative, std::string_view bytes = "x") const {
    std::u16string path = at(relative);
    if (relative.ends_with(u'/')) {
      EXPECT_EQ(qfile_mkdir_parents(path.c_str()), QERR_OK);
      return path.substr(0, path.size() - 1);
    }
    QfileOwner file;
    EXPECT_EQ(qfile_open(file.out(), path.c_str(), QFILE_WRITE | QFILE_CREATE | QFILE_TRUNCATE), QERR_OK);
    std::uint32_t done = 0;
    EXPECT_EQ(qfile_write(file.get(), bytes.data(), static_cast<std::uint32_t>(bytes.size()), &done), QERR_OK);
    EXPECT_EQ(done, bytes.size());
    return path;
  }
  // The file's bytes, or its error in angle brackets.
  static std::string get(const std::u16string& path) {
    QfileOwner file;
    qerr_t code = qfile_open(file.out(), path.c_str(), QFILE_READ);
    std::string bytes;
    while (code == QERR_OK) {
      char buffer[4096];
      std::uint32_t done = 0;
      code = qfile_read(file.get(), buffer, sizeof buffer, &done);
      if (code == QERR_OK && done == 0) return bytes;
      bytes.append(buffer, done);
    }
    return "<" + std::to_string(code) + ">";
  }

  // Removes what is below `path` and itself; links are removed, not followed. Our own walk reaches long paths on
  // Windows, the standard library special files on Linux.
  static void remove_tree(const std::u16string& path) {
    std::vector<std::u16string> entries;
    qfile_itr walk;
    const qchar* entry = nullptr;
    if (qfile_itr_open_ex(&walk, path.c_str(), QFILE_ITR_NO_REPARSE) != QERR_OK) return;
    while (qfile_itr_next(&walk, &entry, nullptr, nullptr) == QERR_OK) entries.emplace_back(entry);
    for (; !entries.empty(); entries.pop_back()) {
      if (qfile_delete(entries.back().c_str()) != QERR_OK) (void)qfile_rmdir(entries.back().c_str());
    }
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(path), ignored);
  }

 private:
  std::u16string root_;
};
