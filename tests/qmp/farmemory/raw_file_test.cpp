// Raw files: direct-I/O round trips, the alignment rules, the errno texts of real failing
// system calls, short reads, resizing, renaming and errors on the destruction path.
#include "qmp/farmemory/raw_file.h"

#include "qmp/exception.h"
#include "qmp/farmemory/aligned_access_file.h"
#include "qmp/farmemory/aligned_malloc.h"
#include "qmp/farmemory/posix_errors.h"
#include "tests/qmp/farmemory/test_support.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace qmp {
namespace {

namespace fs = std::filesystem;
using Mode = RawFile::OpenMode;

void write_whole(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// Expects a FileException at `place` whose message ends with `last_line`; returns the message.
template <class F>
std::string expect_file_error(F&& f, const std::string& place, const std::string& last_line) {
    const std::string m = test::expect_thrown<FileIO::FileException>(f, place);
    EXPECT_TRUE(m.size() >= last_line.size() &&
                m.compare(m.size() - last_line.size(), last_line.size(), last_line) == 0)
        << "message: " << m;
    return m;
}

// Direct I/O needs a file system that supports O_DIRECT; the temporary directory is tried
// first, then the working directory.
std::unique_ptr<test::ScratchDir> direct_io_dir() {
    for (const fs::path& parent : {fs::temp_directory_path(), fs::current_path()}) {
        auto dir = std::make_unique<test::ScratchDir>(parent);
        const std::string probe = dir->file("probe");
        const int fd = ::open(probe.c_str(), O_CREAT | O_RDWR | O_DIRECT, 0644);
        if (fd >= 0) {
            ::close(fd);
            return dir;
        }
    }
    return nullptr;
}

TEST(RawFile, DirectIoRoundTripAtAlignedOffsets) {
    auto dir = direct_io_dir();
    if (!dir) GTEST_SKIP() << "O_DIRECT is refused in both the temporary and the working directory";
    std::mt19937_64 rng(test::test_seed());
    SCOPED_TRACE(test::seed_note());
    const uint64_t sector = 4096, file_bytes = 64 * sector;
    const std::string path = dir->file("direct.bin");
    std::string model(file_bytes, '\0');
    {
        AlignedAccessFile file(path, Mode::Create, true, 12);
        ASSERT_TRUE(file.raw_io());
        AlignedBlock buffer = make_aligned_block(file_bytes, sector);
        for (int i = 0; i < 40; ++i) {
            const uint64_t first = rng() % 64, n = 1 + rng() % (64 - first);
            const auto data = test::random_bytes(rng, n * sector);
            std::memcpy(buffer.get(), data.data(), data.size());
            file.store(buffer.get(), first * sector, n * sector);
            model.replace(first * sector, data.size(), reinterpret_cast<const char*>(data.data()), data.size());
        }
        file.set_size(file_bytes);  // regions never written read as zeros, as in the model
        std::memset(buffer.get(), 0x5A, file_bytes);
        file.load(buffer.get(), 0, file_bytes);
        EXPECT_EQ(0, std::memcmp(buffer.get(), model.data(), file_bytes));
        // The last write was whole sectors; the caller trims to the logical size.
        file.close_and_set_size(file_bytes - 100);
        EXPECT_FALSE(file.is_open());
    }
    // Read back through the page cache by an independent reader.
    EXPECT_EQ(test::read_whole(path), model.substr(0, file_bytes - 100));
}

TEST(AlignedAccessFile, MisalignmentRefusedInOrderBufferOffsetLength) {
    test::ScratchDir dir;
    AlignedAccessFile file(dir.file("a.bin"), Mode::Create, false, 12);
    EXPECT_EQ(file.alignment_bytes(), 4096u);
    AlignedBlock block = make_aligned_block(3 * 8192, 8192);
    char* aligned = static_cast<char*>(block.get());
    char* half_aligned = aligned + 2048;  // aligned to 2^11, not 2^12
    struct Case { char* buffer; uint64_t offset, bytes; const char* message; };
    const Case cases[] = {
        {half_aligned, 100, 100, "Buffer is misaligned."},
        {aligned, 100, 100, "Offset is misaligned."},
        {aligned, 4096, 100, "Length is misaligned."},
        {aligned + 4096, 8192, 4095, "Length is misaligned."},
    };
    for (const Case& c : cases) {
        for (bool is_store : {false, true}) {
            SCOPED_TRACE(std::string(c.message) + (is_store ? " store" : " load"));
            try {
                if (is_store) file.store(c.buffer, c.offset, c.bytes);
                else file.load(c.buffer, c.offset, c.bytes);
                ADD_FAILURE() << "accepted";
            } catch (const InvalidParametersException& e) {
                EXPECT_EQ(e.function(), "AlignedAccessFile::check_alignment()");
                EXPECT_EQ(e.message(), c.message);
            }
        }
    }
    EXPECT_EQ(file.size_bytes(), 0u);  // nothing reached the file
    // Through the base-class interface too.
    RawFile& raw = file;
    EXPECT_THROW(raw.store(half_aligned, 0, 4096), InvalidParametersException);
    raw.store(aligned, 4096, 8192);
    EXPECT_EQ(file.size_bytes(), 12288u);
}

TEST(AlignedMalloc, PowersOfTwoOnly) {
    for (size_t alignment : {size_t(0), size_t(3), size_t(24), size_t(4097)}) {
        try {
            aligned_malloc(64, alignment);
            ADD_FAILURE() << alignment << " accepted";
        } catch (const InvalidParametersException& e) {
            EXPECT_EQ(e.function(), "aligned_malloc()");
            EXPECT_EQ(e.message(), "Alignment must be a power of two.");
        }
    }
    for (size_t k = 0; k <= 21; ++k) {
        const size_t alignment = size_t(1) << k;
        AlignedBlock block = make_aligned_block(alignment + 3, alignment);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block.get()) % alignment, 0u) << alignment;
        std::memset(block.get(), 0xFF, alignment + 3);
    }
}

// The errno texts, each from a system call that really fails that way.
TEST(RawFileErrors, ErrnoTextsOfFailingCalls) {
    test::ScratchDir dir;
    // ENOENT: a directory that does not exist; the message names the path and the errno.
    const std::string missing = dir.file("no-such-dir/file.bin");
    const std::string m = expect_file_error([&] { RawFile(missing, Mode::Create, false); },
                                            "RawFile()", "Path does not exist.");
    EXPECT_NE(m.find("Path: " + missing), std::string::npos) << m;
    EXPECT_NE(m.find("Error Code: 2 "), std::string::npos) << m;
    expect_file_error([&] { RawFile(dir.file("absent"), Mode::OpenExisting, false); },
                      "RawFile()", "Path does not exist.");
    // EACCES: root ignores directory permissions, but sysfs refuses to create files.
    expect_file_error([&] { RawFile("/sys/qmp-farmemory-test", Mode::Create, false); },
                      "RawFile()", "Access Denied");
    // Any errno outside the table (here EISDIR) gets the fixed unknown text and its number.
    const std::string u = expect_file_error([&] { RawFile(dir.path().string(), Mode::OpenExisting, false); },
                                            "RawFile()", "Unknown POSIX or runtime error.");
    EXPECT_NE(u.find("Error Code: 21 "), std::string::npos) << u;
}

TEST(RawFileErrors, DiskFull) {
    // A real file system that fills up: a 64 KiB tmpfs when mounting is allowed; otherwise
    // /dev/full, which fails every write with ENOSPC.
    test::ScratchDir dir;
    const std::string mount_point = dir.file("small");
    fs::create_directory(mount_point);
    const bool mounted = ::mount("tmpfs", mount_point.c_str(), "tmpfs", 0, "size=64k") == 0;
    const std::string path = mounted ? mount_point + "/fill.bin" : "/dev/full";
    {
        RawFile file(path, mounted ? Mode::Create : Mode::OpenExisting, false);
        std::vector<char> data(1 << 20, 'x');
        expect_file_error([&] { file.store(data.data(), 0, data.size()); }, "RawFile::store()",
                          "Disk is Full");
        EXPECT_TRUE(file.is_open());  // a failed access leaves the file open
    }
    if (mounted) ::umount(mount_point.c_str());
}

TEST(RawFileErrors, DirectIoRejectsMisalignedBufferWithEinvalText) {
    auto dir = direct_io_dir();
    if (!dir) GTEST_SKIP() << "O_DIRECT is refused in both the temporary and the working directory";
    RawFile file(dir->file("d.bin"), Mode::Create, true);
    AlignedBlock block = make_aligned_block(8192, 4096);
    expect_file_error([&] { file.store(static_cast<char*>(block.get()) + 1, 0, 4096); },
                      "RawFile::store()",
                      "Invalid parameter. This can happen if the sector alignment is too small.");
}

TEST(RawFile, IncompleteReadReportsBytesMoved) {
    test::ScratchDir dir;
    write_whole(dir.file("short.bin"), std::string(100, 'q'));
    RawFile file(dir.file("short.bin"), Mode::ReadOnly, false);
    std::vector<char> buffer(200);
    expect_file_error([&] { file.load(buffer.data(), 0, 200); }, "RawFile::load()", "Incomplete Read: 100");
    expect_file_error([&] { file.load(buffer.data(), 150, 1); }, "RawFile::load()", "Incomplete Read: 0");
    EXPECT_EQ(std::string(buffer.data(), 100), std::string(100, 'q'));
}

TEST(RawFile, Resizing) {
    test::ScratchDir dir;
    const std::string path = dir.file("r.bin");
    RawFile file(path, Mode::Create, false);
    file.set_size(12345);
    EXPECT_EQ(file.size_bytes(), 12345u);
    file.store("abc", 12345, 3);
    file.close_and_set_size(12346);
    EXPECT_EQ(fs::file_size(path), 12346u);
    EXPECT_EQ(test::read_whole(path).substr(12345), "a");
    expect_file_error([&] { file.set_size(1); }, "RawFile::set_size()", "File isn't open.");
    expect_file_error([&] { file.store("x", 0, 1); }, "RawFile::store()", "File isn't open.");

    // ftruncate on a descriptor opened read-only fails; the size is in the message.
    RawFile reader(path, Mode::ReadOnly, false);
    const std::string m = expect_file_error([&] { reader.set_size(77); }, "RawFile::set_size()", "");
    EXPECT_EQ(m.find("Path: " + path + "\nftruncate() failed. Size: 77\nError Code: "), 0u) << m;
    const std::string c = expect_file_error([&] { reader.close_and_set_size(77); },
                                            "RawFile::close_and_set_size()", "");
    EXPECT_NE(c.find("\nftruncate() failed.\n"), std::string::npos) << c;
    EXPECT_TRUE(reader.is_open());
    EXPECT_EQ(fs::file_size(path), 12346u);
}

TEST(RawFile, RenameReplacesTargetAndKeepsFileOpen) {
    test::ScratchDir dir;
    const std::string a = dir.file("a.bin"), b = dir.file("b.bin");
    write_whole(b, "old contents of b");
    RawFile file(a, Mode::Create, false);
    file.store("fresh", 0, 5);
    file.rename(b);
    EXPECT_EQ(file.path(), b);
    EXPECT_TRUE(file.is_open());
    EXPECT_FALSE(fs::exists(a));
    file.store("!", 5, 1);  // still writable, and the reopen did not truncate
    char back[6];
    file.load(back, 0, 6);
    EXPECT_EQ(std::string(back, 6), "fresh!");
    EXPECT_EQ(test::read_whole(b), "fresh!");

    // The target cannot be deleted (a non-empty directory): the file stays open under its name.
    const std::string blocker = dir.file("blocker");
    fs::create_directories(blocker + "/inside");
    const std::string m = expect_file_error([&] { file.rename(blocker); }, "BaseFile::rename()", "");
    EXPECT_NE(m.find("Unable to rename file because the existing one can't be deleted.\n"),
              std::string::npos) << m;
    EXPECT_TRUE(file.is_open());
    EXPECT_EQ(file.path(), b);
    // The rename itself fails (missing directory).
    const std::string r = expect_file_error([&] { file.rename(dir.file("missing/c.bin")); },
                                            "BaseFile::rename()", "");
    EXPECT_EQ(r.find("Path: " + b + "\nUnable to rename file.\n"), 0u) << r;
    EXPECT_TRUE(file.is_open());
    file.load(back, 0, 6);
    EXPECT_EQ(std::string(back, 6), "fresh!");

    file.close();
    expect_file_error([&] { file.rename(a); }, "BaseFile::rename()", "File isn't open.");
    EXPECT_TRUE(fs::exists(b));
}

// The descriptor of an open file, found through /proc.
int find_fd(const std::string& path) {
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ec;
        if (fs::read_symlink(entry.path(), ec) == fs::path(path)) {
            return std::stoi(entry.path().filename().string());
        }
    }
    return -1;
}

TEST(RawFile, ErrorsInDestructorAreReportedNotThrown) {
    test::ScratchDir dir;
    const std::string path = fs::canonical(dir.path()).string() + "/gone.bin";
    test::CaptureConsole capture;
    {
        RawFile file(path, Mode::Create, false);
        const int fd = find_fd(path);
        ASSERT_GE(fd, 0);
        ::close(fd);  // the destructor's close() now fails with EBADF
    }
    const std::string out = capture.text();
    EXPECT_NE(out.find("In Function: RawFile::close()"), std::string::npos) << out;
    EXPECT_NE(out.find("Exception thrown on destruction path.\n"), std::string::npos) << out;
}

}  // namespace
}  // namespace qmp
