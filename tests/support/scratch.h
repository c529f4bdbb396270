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

// An empty folder of the running test program, where a test needs more than its own.
inline std::filesystem::path scratch_folder(std::string_view name) {
  const char* const place = std::getenv("TESSIVATOR_SCRATCH");
  std::filesystem::path folder = std::filesystem::path(place != nullptr ? place : "build/scratch") / name;
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  return std::filesystem::absolute(folder).make_preferred();
}

class ScratchTest : public Runtime {
 protected:
  void SetUp() override {
    Runtime::SetUp();
    const char* const place = std::getenv("TESSIVATOR_SCRATCH");
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(test->test_suite_name()) + "." + test->name();
    root_ = full(qstr_to_wide(place != nullptr ? place : "build/scratch")) + sep() + qstr_to_wide(name);
    remove_tree(root_);
    ASSERT_EQ(qfile_mkdir_parents((root_ + sep()).c_str()), QERR_OK);
  }
  void TearDown() override {
    remove_tree(root_);
    Runtime::TearDown();
  }

  static qchar sep() { return qpath_native_separator(); }
  static std::u16string full(const std::u16string& path) {
    std::vector<qchar> buffer(32768);
    auto size = static_cast<std::uint32_t>(buffer.size());
    EXPECT_EQ(qfile_full_path(path.c_str(), buffer.data(), &size), QERR_OK);
    return buffer.data();
  }

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
    std::vector<std::u16string> directories;
    qfile_itr walk;
    const qchar* entry = nullptr;
    std::uint32_t is_directory = 0;
    std::uint32_t is_symlink = 0;
    if (qfile_itr_open_ex(&walk, path.c_str(), QFILE_ITR_NO_REPARSE) != QERR_OK) return;
    while (qfile_itr_next(&walk, &entry, &is_directory, &is_symlink) == QERR_OK) {
      if (is_directory != 0 && is_symlink == 0)
        directories.emplace_back(entry);
      else if (qfile_delete(entry) != QERR_OK)
        (void)qfile_rmdir(entry);
    }
    while (!directories.empty()) {
      (void)qfile_rmdir(directories.back().c_str());
      directories.pop_back();
    }
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(path), ignored);
  }

 private:
  std::u16string root_;
};
