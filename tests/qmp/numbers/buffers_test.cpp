// AlignedBufferC and LinearWordBuffer: carving keeps the 128-byte alignment, never hands out
// more than the block holds, and fails with the exact texts.
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/linear_word_buffer.h"
#include "tests/qmp/numbers/numbers_test_support.h"

namespace qmp::test {
namespace {

TEST(BuffersTest, AlignedBufferCarvesAlignedPiecesAndRefusesMisuse) {
    Scratch block(1024);
    char* start = static_cast<char*>(block.buffer.data());
    expect_throw<InvalidParametersException>([&] { AlignedBufferC bad(start + 8, 256); },
                                             "AlignedBufferC::AlignedBufferC()", "Pointer is misaligned.");
    AlignedBufferC b(start, 1000);  // the tail below the alignment is not usable
    EXPECT_EQ(b.size_bytes(), 896u);
    AlignedBufferC child = b.spawn_words<uint32_t>(33);  // 132 bytes -> 256
    EXPECT_EQ(child.data(), start);
    EXPECT_EQ(child.size_bytes(), 256u);
    EXPECT_EQ(b.data(), start + 256);
    EXPECT_EQ(static_cast<void*>(b.extract_aligned<uint64_t>(1)), start + 256);
    EXPECT_EQ(b.extract(128), start + 384);
    EXPECT_EQ(b.size_bytes(), 384u);
    expect_throw<InvalidParametersException>([&] { b.spawn(100); }, "AlignedBufferC::spawn()", "Size is misaligned.");
    expect_throw<InvalidParametersException>([&] { b.extract(64); }, "AlignedBufferC::extract()",
                                             "Size is misaligned.");
    expect_throw<BufferTooSmallException>([&] { b.spawn(512); }, "AlignedBufferC::spawn()",
                                          "Buffer is too small:\n    Buffer Size: 384\n    Required Size: 512");
    expect_throw<BufferTooSmallException>([&] { b.extract_aligned<uint64_t>(49); },
                                          "AlignedBufferC::extract_aligned()",
                                          "Buffer is too small:\n    Buffer Size: 384\n    Required Size: 512");
    EXPECT_EQ(b.size_bytes(), 384u);  // failed requests take nothing
    EXPECT_EQ(b.spawn(384).size_bytes(), 384u);
    EXPECT_EQ(b.size_bytes(), 0u);
}

TEST(BuffersTest, LinearWordBufferCutsConsecutivePieces) {
    std::vector<uint64_t> words(10);
    LinearWordBuffer<uint64_t> buffer(words.data(), words.size());
    EXPECT_EQ(buffer.cut_from_bottom(3), words.data());
    EXPECT_EQ(buffer.cut_from_bottom(0), words.data() + 3);
    EXPECT_EQ(buffer.cut_from_bottom(4), words.data() + 3);
    expect_throw<BufferTooSmallException>([&] { buffer.cut_from_bottom(4); }, "LinearWordBuffer::cut_from_bottom()",
                                          "Buffer is too small:\n    Buffer Size: 3\n    Required Size: 4");
    EXPECT_EQ(buffer.remaining_words(), 3u);
}

}  // namespace
}  // namespace qmp::test
