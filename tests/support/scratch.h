// A folder of its own for each test, made empty before and removed after it, and what walks of it yield. Paths are wide
// and of the platform's form.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "common/qlib/qfile.h"
#include "common/qlib/qfile_itr.h"
#include "common/qlib/qpath.h"
#include "common/qlib/qstr_name.h"
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

// One whole walk.
struct walked {
  // In order, with slashes; a directory ends in one, a symbolic link in "@".
  std::vector<std::string> entries;
  qerr_t opened = 0, ended = 0;
  qfile_left_out left_out;
};

// Of each entry's path the part from unit `base` on is written down.
inline walked walk(const std::u16string& path, std::size_t base, std::uint32_t flags = 0) {
  walked result;
  qfile_itr iterator;
  result.opened = qfile_itr_open_ex(&iterator, path.c_str(), flags);
  if (result.opened != QERR_OK) return result;
  const qchar* entry = nullptr;
  std::uint32_t directory = 9, symlink = 9;
  while ((result.ended = qfile_itr_next(&iterator, &entry, &directory, &symlink)) == QERR_OK) {
    std::string name;
    EXPECT_TRUE(qstr_name_to_bytes(std::u16string(entry).substr(base), name));
    std::replace(name.begin(), name.end(), '\\', '/');
    result.entries.push_back(name + (directory == 1 ? "/" : "") + (symlink == 1 ? "@" : ""));
    if (result.entries.size() > 500000) break;
  }
  result.left_out = iterator.left_out;
  EXPECT_EQ(entry, nullptr);
  EXPECT_EQ(qfile_itr_next(&iterator, &entry, &directory, &symlink), QERR_END) << "a walk that has ended stays so";
  EXPECT_EQ(qfile_itr_close(&iterator), QERR_OK);
  return result;
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
    std::replace(path.begin() + static_cast<std::ptrdiff_t>(root_.size()), path.end(), u'/', sep());
    return path;
  }
  // Makes a file with its directories, or with a slash at the end a directory.
  std::u16string put(std::u16string_view relative, std::string_view bytes = "x") const {
    const std::u16string path = at(relative);
    EXPECT_EQ(qfile_mkdir_parents(path.c_str()), QERR_OK);
    if (relative.ends_with(u'/')) return path.substr(0, path.size() - 1);
    EXPECT_EQ(qfile_write_whole(path.c_str(), bytes.data(), bytes.size(), 0), QERR_OK);
    return path;
  }
  static qerr_t open_code(const std::u16string& path, std::uint32_t flags = QFILE_READ) {
    QfileOwner file;
    return qfile_open(file.out(), path.c_str(), flags);
  }
  // The file's bytes, and the error that kept from the rest in angle brackets.
  static std::string get(const std::u16string& path) {
    QfileOwner file;
    qerr_t code = qfile_open(file.out(), path.c_str(), QFILE_READ);
    std::string bytes;
    while (code == QERR_OK) {
      char buffer[4096] = {};
      std::uint32_t done = sizeof buffer;
      code = qfile_read(file.get(), buffer, sizeof buffer, &done);
      if (code == QERR_OK && done == 0) return bytes;
      bytes.append(buffer, done);
    }
    return bytes + "<" + std::to_string(code) + ">";
  }
  // What a walk yields that starts `relative` to the folder, told relative to it.
  [[nodiscard]] walked walk_at(std::u16string_view relative, std::uint32_t flags = 0) const {
    return walk(at(relative), root_.size() + 1, flags);
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
