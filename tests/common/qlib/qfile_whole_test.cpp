#include <algorithm>

#include "support/faulty_provider.h"
#include "support/scratch.h"

namespace {

class WriteWhole : public ScratchTest {
 protected:
  static qerr_t write(const std::u16string& path, std::string_view bytes, std::uint32_t flush = 0) {
    return qfile_write_whole(path.c_str(), bytes.data(), bytes.size(), flush);
  }
  [[nodiscard]] std::size_t files() const {
    std::size_t count = 0;
    qfile_itr walk;
    const qchar* entry = nullptr;
    std::uint32_t directory = 0;
    EXPECT_EQ(qfile_itr_open(&walk, root().c_str()), QERR_OK);
    while (qfile_itr_next(&walk, &entry, &directory, nullptr) == QERR_OK) count += directory == 0 ? 1U : 0U;
    return count;
  }
};

TEST_F(WriteWhole, CreatesAndReplaces) {
  const std::u16string path = at(u"report.xml");
  EXPECT_EQ(write(path, "first, and longer"), QERR_OK);
  EXPECT_EQ(write(path, "second", 1), QERR_OK);
  EXPECT_EQ(get(path), "second");
  EXPECT_EQ(write(path, ""), QERR_OK);
  EXPECT_EQ(get(path), "");
  EXPECT_EQ(files(), 1U);
}

TEST_F(WriteWhole, RefusesWhatItCannotReplace) {
  EXPECT_EQ(qfile_write_whole(nullptr, "x", 1, 0), QERR_ARG1);
  EXPECT_EQ(qfile_write_whole(at(u"f").c_str(), nullptr, 1, 0), QERR_ARG2);
  EXPECT_EQ(write(at(u"missing/f"), "x"), QERR_NOT_FOUND) << "directories are not created";
  put(u"directory/kept");
  EXPECT_NE(write(at(u"directory"), "x"), QERR_OK);
  EXPECT_EQ(files(), 1U);
}

TEST_F(WriteWhole, AnyFailureLeavesTheTargetAndNothingElse) {
  const std::u16string path = put(u"f", "old");
  const file_op steps[] = {file_op::create_exclusive, file_op::write, file_op::flush, file_op::rename};
  for (const file_op step : steps) {
    faulty_provider disk;
    disk.fail(step, 1, QERR_IO);
    EXPECT_EQ(write(path, "new", 1), QERR_IO) << static_cast<int>(step);
    EXPECT_EQ(disk.open_files(), 0U);
    EXPECT_EQ(get(path), "old");
    EXPECT_EQ(files(), 1U) << static_cast<int>(step);
  }
  faulty_provider disk;
  disk.room(2);
  EXPECT_EQ(write(path, "newer"), QERR_NO_SPACE);
  EXPECT_EQ(get(path), "old");
  EXPECT_EQ(files(), 1U);
}

TEST_F(WriteWhole, AnotherNameWhenOneIsTaken) {
  faulty_provider disk;
  disk.fail(file_op::create_exclusive, 1, QERR_EXISTS, 3, qsys_condition::already_exists);
  EXPECT_EQ(write(at(u"f"), "x"), QERR_OK);
  EXPECT_EQ(disk.calls(file_op::create_exclusive), 4U);
  disk.fail(file_op::create_exclusive, 1, QERR_EXISTS, faulty_provider::ALWAYS, qsys_condition::already_exists);
  EXPECT_EQ(write(at(u"f"), "y"), QERR_EXISTS);
  EXPECT_EQ(get(at(u"f")), "x");
}

TEST_F(WriteWhole, NoFlushUnlessAskedFor) {
  faulty_provider disk;
  EXPECT_EQ(write(at(u"f"), "x"), QERR_OK);
  EXPECT_EQ(disk.calls(file_op::flush), 0U);
}

}  // namespace
