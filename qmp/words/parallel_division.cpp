// The parallel single-word division. Layout for L words and tds tasks: sequential when tds < 2
// or L < 1000; otherwise b = max(999, (L - 1) / min(tds, 64)) + 1 words per block and
// (L - 1) / b + 1 blocks, the top block taking what is left. The incoming remainders go from the
// top block down: r_(k-1) = (r_k * 2^(w len_k) + residue_k) mod d, with the block residues taken
// in parallel first (array forms only; each block's residue runs as four interleaved chains so
// that this pass costs well under a division). The powers and products modulo d use the
// hardware divide: at most a few hundred of them, outside the word loops.
#include "qmp/words/parallel_division.h"

#include <algorithm>
#include <atomic>

#include "qmp/exception.h"
#include "qmp/parallel/parallelizer.h"

namespace qmp {
namespace {

using u128 = unsigned __int128;
constexpr uint64_t kMaxBlocks = 64;
constexpr uint64_t kMinParallelWords = 1000;

std::atomic<DivisionBlockHook> g_block_hook{nullptr};

uint64_t mulmod(uint64_t a, uint64_t b, uint64_t d) { return uint64_t(u128(a) * b % d); }

// 2^(w * words) mod d.
template <typename W>
uint64_t base_power(uint64_t words, uint64_t d) {
    const uint64_t base = uint64_t((u128(1) << (sizeof(W) * 8)) % d);
    uint64_t result = 1 % d, sq = base;
    for (; words != 0; words >>= 1) {
        if (words & 1) result = mulmod(result, sq, d);
        sq = mulmod(sq, sq, d);
    }
    return result;
}

// A[0, n) mod d as four independent chains over quarters of the array, joined by powers; the
// step is latency-bound, so the four chains cost little more than one.
template <typename W>
W residue(const W* A, uint64_t n, const ShoupDivider<W>& div) {
    const uint64_t q = n / 4, low = n - 4 * q;
    if (q < 16) return mod_words(A, n, div, W(0));
    const W* p3 = A + low;  // quarters from the bottom: p3, p2, p1, p0 (top)
    const W* p2 = p3 + q;
    const W* p1 = p2 + q;
    const W* p0 = p1 + q;
    W r0 = 0, r1 = 0, r2 = 0, r3 = 0;
    for (uint64_t i = q; i > 0; --i) {
        div.step(r0, p0[i - 1]);
        div.step(r1, p1[i - 1]);
        div.step(r2, p2[i - 1]);
        div.step(r3, p3[i - 1]);
    }
    const uint64_t d = div.d, pq = base_power<W>(q, d);
    uint64_t r = r0;
    r = (mulmod(r, pq, d) + r1) % d;
    r = (mulmod(r, pq, d) + r2) % d;
    r = (mulmod(r, pq, d) + r3) % d;
    return mod_words(A, low, div, W(r));
}

template <typename W>
W divide(const char* function, W* T, uint64_t TL, const W* A, uint64_t AL, const ShoupDivider<W>& div, W r,
         Parallelizer* parallelizer, uint64_t tds) {
    if (TL < AL) throw InvalidParametersException(function, "TL < AL");
    if (r >= div.d) throw InvalidParametersException(function, "Top word is too large.");
    // Input word i of the division is A[i - shift] for i >= shift and zero below.
    const uint64_t shift = TL - AL;
    const DivisionBlocks layout = parallelizer == nullptr ? DivisionBlocks{0, 0} : division_blocks(TL, tds);
    if (layout.blocks == 0) {
        r = divmod(T + shift, A, AL, div, r);
        return divmod(T, shift, div, r);
    }
    const uint64_t nb = layout.blocks, b = layout.block_words, d = div.d;
    auto start = [&](uint64_t k) { return k * b; };
    auto end = [&](uint64_t k) { return k + 1 < nb ? (k + 1) * b : TL; };

    // Residue of each block's input words, the words below `shift` counting as zeros.
    uint64_t block_residue[kMaxBlocks] = {};
    if (AL != 0) {
        parallelizer->run(nb, [&](uint64_t k) {
            const uint64_t s = std::max(start(k), shift), e = end(k);
            if (s >= e) return;
            const uint64_t value = residue(A + (s - shift), e - s, div);
            block_residue[k] = mulmod(value, base_power<W>(s - start(k), d), d);
        });
    }
    // Incoming remainders from the top block down; incoming[-1] would be the final remainder.
    uint64_t incoming[kMaxBlocks];
    incoming[nb - 1] = r;
    const uint64_t p_full = base_power<W>(b, d), p_top = base_power<W>(end(nb - 1) - start(nb - 1), d);
    uint64_t predicted_final = 0;
    for (uint64_t k = nb; k > 0; --k) {
        const uint64_t p = k == nb ? p_top : p_full;
        const uint64_t next = (mulmod(incoming[k - 1], p, d) + block_residue[k - 1]) % d;
        if (k > 1) incoming[k - 2] = next;
        else predicted_final = next;
    }

    uint64_t outgoing[kMaxBlocks];
    const DivisionBlockHook hook = g_block_hook.load(std::memory_order_relaxed);
    parallelizer->run(nb, [&](uint64_t k) {
        uint64_t in = incoming[k];
        if (hook != nullptr) hook(k, in);
        W rem = W(in);
        const uint64_t s = start(k), e = end(k), split = std::clamp(shift, s, e);
        if (e > split) rem = divmod(T + split, A + (split - shift), e - split, div, rem);
        rem = divmod(T + s, split - s, div, rem);
        outgoing[k] = rem;
    });
    for (uint64_t k = nb; k > 0; --k) {
        const uint64_t expected = k > 1 ? incoming[k - 2] : predicted_final;
        if (outgoing[k - 1] != expected) throw AlgorithmFailedException(function, "Mismatching block residuals.");
    }
    return W(outgoing[0]);
}

}  // namespace

DivisionBlocks division_blocks(uint64_t L, uint64_t tds) {
    if (tds < 2 || L < kMinParallelWords) return {0, 0};
    const uint64_t b = std::max<uint64_t>(999, (L - 1) / std::min(tds, kMaxBlocks)) + 1;
    return {(L - 1) / b + 1, b};
}

void set_division_block_hook(DivisionBlockHook hook) { g_block_hook.store(hook); }

template <typename W>
W bp_div_ex(W* T, uint64_t L, const ShoupDivider<W>& divider, W r, Parallelizer* parallelizer, uint64_t tds) {
    return divide<W>("bp_div_ex()", T, L, nullptr, 0, divider, r, parallelizer, tds);
}

template <typename W>
W bp_div_np(W* T, const W* A, uint64_t L, const ShoupDivider<W>& divider, W r, Parallelizer* parallelizer,
            uint64_t tds) {
    return divide<W>("bp_div_np()", T, L, A, L, divider, r, parallelizer, tds);
}

template <typename W>
W bp_div_np(W* T, uint64_t TL, const W* A, uint64_t AL, const ShoupDivider<W>& divider, W r,
            Parallelizer* parallelizer, uint64_t tds) {
    return divide<W>("bp_div_np()", T, TL, A, AL, divider, r, parallelizer, tds);
}

#define QMP_INSTANTIATE(W)                                                                                  \
    template W bp_div_ex<W>(W*, uint64_t, const ShoupDivider<W>&, W, Parallelizer*, uint64_t);             \
    template W bp_div_np<W>(W*, const W*, uint64_t, const ShoupDivider<W>&, W, Parallelizer*, uint64_t);   \
    template W bp_div_np<W>(W*, uint64_t, const W*, uint64_t, const ShoupDivider<W>&, W, Parallelizer*, uint64_t);
QMP_INSTANTIATE(uint32_t)
QMP_INSTANTIATE(uint64_t)
#undef QMP_INSTANTIATE

}  // namespace qmp
