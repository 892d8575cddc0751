// The modular redundancy check of binary splitting (see modular_check.h).
#include "qmp/series/modular_check.h"

#include <algorithm>
#include <atomic>

#include "qmp/parallel/parallelizer.h"
#include "qmp/words/mod_m61.h"

namespace qmp::BinarySplitting {

namespace {

std::atomic<BSRFaultInjector> g_injector{nullptr};

std::string failure_message(uint64_t a, uint64_t b, uint64_t c0, uint64_t c1) {
    return "Modular Redundancy Check Failed: terms [" + std::to_string(a) + ", " + std::to_string(b) +
           "), check values " + std::to_string(c0) + " and " + std::to_string(c1) + ".";
}

// Residue of words[0, n) summed over `chunks` pieces, each reduced alone and shifted into place
// (2^(64 i) = 2^(64 i mod 61) modulo the prime).
uint64_t chunked_residue(const uint64_t* words, uint64_t n, uint64_t chunks) {
    chunks = std::max<uint64_t>(1, std::min(chunks, n));
    uint64_t r = 0;
    for (uint64_t c = 0; c < chunks; ++c) {
        const uint64_t lo = n * c / chunks, hi = n * (c + 1) / chunks;
        const uint64_t piece = mod_m61(words + lo, hi - lo);
        r = add_m61(r, mul_pow2_m61(piece, (64 * lo) % 61));
    }
    return r;
}

uint64_t signed_residue(const BigInt<uint64_t>& x, uint64_t chunks) {
    const uint64_t r = chunked_residue(x.T, x.L, chunks);
    return x.sign ? r : sub_m61(0, r);
}

}  // namespace

BSRCheckFailure::BSRCheckFailure(uint64_t a_, uint64_t b_, uint64_t c0, uint64_t c1)
    : BSRModularCheckFailedException("qcb_Verify_BSR()", failure_message(a_, b_, c0, c1)),
      a(a_), b(b_), check0(c0), check1(c1) {}

uint64_t residue_of(const BigInt<uint64_t>& x) { return signed_residue(x, 1); }

uint64_t residue_of(uint64_t magnitude, bool negative) {
    const uint64_t r = reduce_m61(magnitude);
    return negative ? sub_m61(0, r) : r;
}

void qcb_Verify_BSR(uint64_t a, uint64_t b, const BigInt<uint64_t>* outputs, const uint64_t* shadow,
                    unsigned count, unsigned mask, Parallelizer* parallelizer, uint64_t tds) {
    const uint64_t chunks = (std::max<uint64_t>(tds, 1) + 1) / 2;
    uint64_t checks[2] = {0, 0};
    auto form = [&](uint64_t which) {
        uint64_t value = 0, weight = 1;
        for (unsigned i = (which == 0 ? 0 : 1); i < (which == 0 ? 1u : count); ++i) {
            if (mask & (1u << i)) {
                const uint64_t diff = sub_m61(signed_residue(outputs[i], chunks), shadow[i]);
                value = add_m61(value, mul_m61(weight, diff));
            }
            if (which != 0) weight = mul_m61(weight, 3);
        }
        checks[which] = value;
    };
    uint64_t total_words = 0;
    for (unsigned i = 0; i < count; ++i) total_words += (mask & (1u << i)) ? outputs[i].L : 0;
    if (total_words < kVerifyParallelMinWords || parallelizer == nullptr || tds < 2) {
        form(0);
        form(1);
    } else {
        parallelizer->run(2, [&](uint64_t i) { form(i); });
    }
    if (checks[0] != 0 || checks[1] != 0) throw BSRCheckFailure(a, b, checks[0], checks[1]);
}

void set_bsr_fault_injector(BSRFaultInjector injector) { g_injector.store(injector); }
BSRFaultInjector bsr_fault_injector() { return g_injector.load(std::memory_order_relaxed); }

}  // namespace qmp::BinarySplitting
