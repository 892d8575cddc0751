// Bounds checks and strided access of the FarMemory base class, run over a recording back-end
// (to see how many transfers happen) and checked against a plain byte-vector model.
#include "qmp/farmemory/far_memory.h"

#include "tests/qmp/farmemory/test_support.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qmp {
namespace {

// A back-end over a vector that records every transfer it is asked to make.
class RecordingFarMemory : public FarMemory {
public:
    RecordingFarMemory(uint64_t size) : FarMemory("recorder", size), bytes(size) {}
    std::vector<unsigned char> bytes;
    int loads = 0;
    int stores = 0;

protected:
    void do_load(void* buffer, uint64_t offset, uint64_t n) override {
        ++loads;
        std::memcpy(buffer, bytes.data() + offset, n);
    }
    void do_store(const void* buffer, uint64_t offset, uint64_t n) override {
        ++stores;
        std::memcpy(bytes.data() + offset, buffer, n);
    }
};

void expect_out_of_bounds(const std::function<void()>& access, const char* place, uint64_t offset,
                          uint64_t length) {
    try {
        access();
        ADD_FAILURE() << "no exception at " << place;
    } catch (const FarMemoryOutOfBoundsException& e) {
        EXPECT_EQ(e.function(), place);
        EXPECT_EQ(e.object_name(), "recorder");
        EXPECT_EQ(e.offset(), offset);
        EXPECT_EQ(e.length(), length);
    }
}

TEST(FarMemoryBounds, LastByteSucceedsOneMoreFailsBeforeAnyTransfer) {
    const uint64_t size = 1000;
    RecordingFarMemory far(size);
    for (uint64_t i = 0; i < size; ++i) far.bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    std::vector<unsigned char> buffer(size + 1, 0xEE);

    far.load(buffer.data(), 900, 100);
    EXPECT_EQ(0, std::memcmp(buffer.data(), far.bytes.data() + 900, 100));
    far.store(buffer.data(), 0, size);
    far.gather(buffer.data(), 10, 990, 10, 10, 1);
    far.scatter(buffer.data(), 0, 0, 110, 10, 10);  // last block is [990, 1000)
    const int loads = far.loads, stores = far.stores;

    std::fill(buffer.begin(), buffer.end(), 0xEE);
    const std::vector<unsigned char> before = far.bytes;
    unsigned char* b = buffer.data();
    expect_out_of_bounds([&] { far.load(b, 900, 101); }, "FarMemory::load()", 900, 101);
    expect_out_of_bounds([&] { far.store(b, 901, 100); }, "FarMemory::store()", 901, 100);
    expect_out_of_bounds([&] { far.load(b, size + 1, 0); }, "FarMemory::load()", size + 1, 0);
    // offset + length wraps around 2^64 and must not look small.
    expect_out_of_bounds([&] { far.load(b, size - 1, UINT64_MAX); }, "FarMemory::load()",
                         size - 1, UINT64_MAX);
    // Strided: only the last block is outside. Block path and one-transfer path alike.
    expect_out_of_bounds([&] { far.gather(b, 10, 1, 110, 10, 10); }, "FarMemory::gather()", 1, 1000);
    expect_out_of_bounds([&] { far.scatter(b, 10, 1, 110, 10, 10); }, "FarMemory::scatter()", 1, 1000);
    expect_out_of_bounds([&] { far.gather(b, 100, 1, 100, 100, 10); }, "FarMemory::gather()", 1, 1000);
    expect_out_of_bounds([&] { far.scatter(b, 100, 100, 100, 100, 10); }, "FarMemory::scatter()", 100, 1000);
    // (count - 1) * stride overflows 64 bits.
    expect_out_of_bounds([&] { far.gather(b, 0, 0, uint64_t(1) << 62, 1, 8); },
                         "FarMemory::gather()", 0, UINT64_MAX);
    expect_out_of_bounds([&] { far.scatter(b, 1, 0, 1, 1, UINT64_MAX); },
                         "FarMemory::scatter()", 0, UINT64_MAX);

    EXPECT_EQ(far.loads, loads);
    EXPECT_EQ(far.stores, stores);
    EXPECT_EQ(far.bytes, before);
    EXPECT_TRUE(std::all_of(buffer.begin(), buffer.end(), [](unsigned char c) { return c == 0xEE; }));

    // A count of zero moves nothing and checks nothing, wherever it points.
    far.gather(b, 1, UINT64_MAX, 1, 1, 0);
    far.scatter(b, 1, UINT64_MAX, 1, 1, 0);
    EXPECT_EQ(far.loads, loads);
    EXPECT_EQ(far.stores, stores);
}

TEST(FarMemoryStrided, ContiguousRunIsOneTransferAndMatchesTheBlockPath) {
    std::mt19937_64 rng(test::test_seed());
    SCOPED_TRACE(test::seed_note());
    const uint64_t block = 48, count = 20;
    RecordingFarMemory far(4096);
    const auto data = test::random_bytes(rng, block * count);

    far.scatter(data.data(), int64_t(block), 100, block, block, count);
    EXPECT_EQ(far.stores, 1);
    std::vector<unsigned char> whole(block * count), blockwise(block * count);
    far.gather(whole.data(), int64_t(block), 100, block, block, count);
    EXPECT_EQ(far.loads, 1);
    // The block path: same layout, but a buffer stride that differs from the far one by
    // gathering every other block twice.
    for (uint64_t parity = 0; parity < 2; ++parity) {
        far.gather(blockwise.data() + parity * block, int64_t(2 * block), 100 + parity * block,
                   2 * block, block, count / 2);
    }
    EXPECT_EQ(far.loads, 1 + int(count));
    EXPECT_EQ(whole, data);
    EXPECT_EQ(blockwise, data);
}

TEST(FarMemoryStrided, RandomRoundTripsAgainstByteModel) {
    std::mt19937_64 rng(test::test_seed() + 1);
    SCOPED_TRACE(test::seed_note());
    const uint64_t size = 1 << 16;
    RecordingFarMemory far(size);
    std::vector<unsigned char> model(size, 0);
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const uint64_t block = 1 + rng() % 64;
        const uint64_t far_stride = block + rng() % 3 * (rng() % 50);  // includes == block
        const uint64_t count = 1 + rng() % 40;
        const uint64_t span = (count - 1) * far_stride + block;
        if (span > size) continue;
        const uint64_t offset = rng() % (size - span + 1);
        // Buffer stride: equal to the block, larger, or negative (walking down the buffer).
        const int64_t gap = int64_t(rng() % 3) * int64_t(rng() % 20);
        const int64_t buffer_stride = (rng() % 4 == 0) ? -int64_t(block) - gap : int64_t(block) + gap;
        const uint64_t buffer_bytes = (count - 1) * uint64_t(std::abs(buffer_stride)) + block;
        auto source = test::random_bytes(rng, buffer_bytes);
        const int64_t start = buffer_stride < 0 ? int64_t(buffer_bytes - block) : 0;

        far.scatter(source.data() + start, buffer_stride, offset, far_stride, block, count);
        for (uint64_t i = 0; i < count; ++i) {
            std::memcpy(&model[offset + i * far_stride], &source[start + int64_t(i) * buffer_stride], block);
        }
        ASSERT_EQ(far.bytes, model);

        std::vector<unsigned char> back(buffer_bytes, 0xA5), expect(buffer_bytes, 0xA5);
        far.gather(back.data() + start, buffer_stride, offset, far_stride, block, count);
        for (uint64_t i = 0; i < count; ++i) {
            std::memcpy(&expect[start + int64_t(i) * buffer_stride], &model[offset + i * far_stride], block);
        }
        ASSERT_EQ(back, expect);
    }
}

TEST(FarMemory, DescriptionPadsLabelsTo32Columns) {
    RecordingFarMemory far(123456);
    test::CaptureConsole capture;
    far.print_description();
    EXPECT_EQ(capture.text(), std::string("Name") + std::string(28, ' ') + "recorder\n" +
                                  "Bytes" + std::string(27, ' ') + "123456\n");
}

}  // namespace
}  // namespace qmp
