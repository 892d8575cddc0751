// The parallel fill: below 16384 words (or tds < 2) it runs on the calling thread; otherwise
// up to min(tds, 64) tasks each fill a piece of whole 64-byte blocks, the last piece taking the
// rest. The per-piece loop is a plain store loop that the compiler vectorises at the baseline
// width; the stores are memory-bound, so wider registers would not help.
#include "qmp/words/parallel_fill.h"

#include <algorithm>

#include "qmp/exception.h"
#include "qmp/words/word_array.h"
#include "qmp/parallel/parallelizer.h"

namespace qmp {
namespace {

constexpr uint64_t kMinParallelWords = 16384;
constexpr uint64_t kMaxTasks = 64;

}  // namespace

template <typename W>
void bp_fill(W* T, uint64_t L, W x, Parallelizer* parallelizer, uint64_t tds) {
    if (reinterpret_cast<uintptr_t>(T) % simd_block_bytes != 0)
        throw InvalidParametersException("bp_fill()", "T is misaligned.");
    if (parallelizer == nullptr || tds < 2 || L < kMinParallelWords) {
        fill_words(T, L, x);
        return;
    }
    constexpr uint64_t block_words = simd_block_bytes / sizeof(W);
    const uint64_t tasks = std::min(tds, kMaxTasks);
    const uint64_t blocks = (L + block_words - 1) / block_words;
    const uint64_t piece_words = (blocks + tasks - 1) / tasks * block_words;
    const uint64_t pieces = (L + piece_words - 1) / piece_words;
    parallelizer->run(pieces, [&](uint64_t i) {
        const uint64_t s = i * piece_words;
        fill_words(T + s, std::min(L - s, piece_words), x);
    });
}

template void bp_fill<uint32_t>(uint32_t*, uint64_t, uint32_t, Parallelizer*, uint64_t);
template void bp_fill<uint64_t>(uint64_t*, uint64_t, uint64_t, Parallelizer*, uint64_t);

}  // namespace qmp
