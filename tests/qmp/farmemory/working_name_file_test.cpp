// Files written under a working name: a commit gives the final name (replacing an older file),
// anything short of a commit leaves the final name untouched.
#include "qmp/farmemory/working_name_file.h"

#include "qmp/exception.h"
#include "tests/qmp/farmemory/test_support.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

namespace qmp {
namespace {

namespace fs = std::filesystem;

TEST(WorkingNameFile, CommitRenamesOverTheOldFile) {
    test::ScratchDir dir;
    const std::string final_path = dir.file("digits.txt");
    std::ofstream(final_path) << "previous run";
    WorkingNameFile writer(final_path, false, 0);
    EXPECT_EQ(writer.working_path(), final_path + ".tmp");
    writer.file().store("new digits + padding", 0, 20);
    EXPECT_EQ(test::read_whole(final_path), "previous run");  // nothing visible before the commit
    writer.commit(10);  // trimmed to the logical size, as after padded direct writes
    EXPECT_TRUE(writer.committed());
    EXPECT_EQ(test::read_whole(final_path), "new digits");
    EXPECT_FALSE(fs::exists(writer.working_path()));
    const std::string m = test::expect_thrown<FileIO::FileException>([&] { writer.commit(); },
                                                                      "WorkingNameFile::commit()");
    EXPECT_EQ(m, "Path: " + final_path + "\nFile has already been committed.");
    EXPECT_THROW(writer.file(), FileIO::FileException);
}

TEST(WorkingNameFile, AbandonedWritesNeverReachTheFinalName) {
    test::ScratchDir dir;
    const std::string final_path = dir.file("out.txt");
    std::ofstream(final_path) << "complete old file";
    // An error while writing unwinds through the writer.
    try {
        WorkingNameFile writer(final_path, false, 0);
        writer.file().store("half", 0, 4);
        ASSERT_TRUE(fs::exists(final_path + ".tmp"));
        throw std::runtime_error("write failed");
    } catch (const std::runtime_error&) {
    }
    EXPECT_FALSE(fs::exists(final_path + ".tmp"));
    EXPECT_EQ(test::read_whole(final_path), "complete old file");

    // Keep: the working file stays under its own (caller-chosen) name.
    const std::string working = dir.file("out (incomplete).txt");
    {
        WorkingNameFile writer(final_path, false, 0, WorkingNameFile::OnAbandon::Keep, working);
        writer.file().store("partial", 0, 7);
        writer.abandon();
        EXPECT_THROW(writer.commit(), FileIO::FileException);
    }
    EXPECT_EQ(test::read_whole(working), "partial");
    EXPECT_EQ(test::read_whole(final_path), "complete old file");
}

}  // namespace
}  // namespace qmp
