// Power table of the radix conversion: P_0 = B^block by repeated word products, then P_{j+1} =
// P_j^2 through the multiplication table; each level's forward transform is made right after
// its power. Layout in the caller's block: for each level its power words, then its transform;
// the build scratch (a square's product area and the table's squaring/transform scratch) lies
// above them and is free again when make_tables() returns.
#include "qmp/radix/power_table.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "qmp/exception.h"
#include "qmp/multiply/fft/wrapped_product.h"
#include "qmp/multiply/multiply.h"
#include "qmp/words/word_array.h"

namespace qmp {

uint64_t decimal_power_words(uint64_t m) {
    // log2(10^19) = 63.116633802859894...; the long double product is good to ~2^-64 relative,
    // far inside the +1 word of slack.
    const long double bits = (long double)m * 63.1166338028598942L;
    return uint64_t(bits / 64.0L) + 1;
}

uint64_t PowerTransform::product_words(uint64_t AL) const { return fft != nullptr ? fft->kept_words() : AL + length; }

void PowerTransform::multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const AlgorithmTableB& table,
                              void* scratch, uint64_t scratch_bytes, Parallelizer* parallelizer,
                              uint64_t tds) const {
    if (fft != nullptr) {
        if (scratch_bytes < fft->scratch_bytes())
            throw BufferTooSmallException("PowerTransform::multiply()", scratch_bytes, fft->scratch_bytes());
        fft->multiply(C, A, AL, transform, scratch, parallelizer, tds);
        return;
    }
    qmp::multiply(table, C, A, AL, words, length, scratch, scratch_bytes, parallelizer, tds);
}

void PowerTransform::replace(const PowerTransform& other) {
    if (fft == nullptr || other.fft != fft || other.transform_bytes != transform_bytes)
        throw InvalidParametersException("PowerTransform::replace()", "Transforms are incompatible.");
    std::memcpy(transform, other.transform, transform_bytes);
}

ReadyTableB::ReadyTableB(const std::vector<PowerLevel>& levels, const AlgorithmTableB& table)
    : levels_(levels), powers_(levels.size()), table_(&table) {
    uint64_t kept = 0, build = 0;
    for (uint64_t j = 0; j < levels_.size(); ++j) {
        const PowerLevel& L = levels_[j];
        kept += AlignedBufferC::round_up(L.power_words * 8) + AlignedBufferC::round_up(L.transform_bytes);
        uint64_t need = 0;
        if (j + 1 < levels_.size()) {
            // Squaring P_j into a 2 |P_j|-word area, then its scratch.
            need = AlignedBufferC::round_up(2 * L.power_words * 8) +
                   AlignedBufferC::round_up(square_scratch_bytes(table, L.power_words));
        }
        if (L.fft != nullptr) need = std::max(need, AlignedBufferC::round_up(L.fft->scratch_bytes()));
        build = std::max(build, need);
    }
    table_bytes_ = kept;
    build_scratch_bytes_ = build;
}

void ReadyTableB::make_tables(AlignedBufferC memory, Parallelizer* parallelizer, uint64_t tds) {
    // Carve every level's room first, then use the rest as build scratch.
    for (uint64_t j = 0; j < levels_.size(); ++j) {
        PowerTransform& P = powers_[j];
        P = PowerTransform{};
        P.words = memory.spawn_words<uint64_t>(levels_[j].power_words).words<uint64_t>();
        if (levels_[j].transform_bytes != 0) {
            P.transform = memory.spawn(AlignedBufferC::round_up(levels_[j].transform_bytes)).data();
            P.transform_bytes = levels_[j].transform_bytes;
            P.fft = levels_[j].fft;
        }
    }
    AlignedBufferC build = memory;
    for (uint64_t j = 0; j < levels_.size(); ++j) {
        PowerTransform& P = powers_[j];
        uint64_t* W = const_cast<uint64_t*>(P.words);
        const uint64_t room = levels_[j].power_words;
        if (j == 0) {
            // B^m by m word products: quadratic in m, but m is one conversion block.
            W[0] = 1;
            uint64_t n = 1;
            for (uint64_t i = 0; i < levels_[0].block_words; ++i) {
                const uint64_t carry = mul_1(W, W, n, kDecimalWordBase);
                if (carry != 0) {
                    if (n == room) throw BufferTooSmallException("ReadyTableB::make_tables()", room, n + 1);
                    W[n++] = carry;
                }
            }
            P.length = n;
        } else {
            const PowerTransform& Q = powers_[j - 1];
            AlignedBufferC area = build;
            uint64_t* S = area.spawn_words<uint64_t>(2 * Q.length).words<uint64_t>();
            square(*table_, S, Q.words, Q.length, area.data(), area.size_bytes(), parallelizer, tds);
            const uint64_t n = normalized_length(S, 2 * Q.length);
            if (n > room) throw BufferTooSmallException("ReadyTableB::make_tables()", room, n);
            copy_words(W, S, n);
            P.length = n;
        }
        if (P.fft != nullptr) {
            if (build.size_bytes() < P.fft->scratch_bytes())
                throw BufferTooSmallException("ReadyTableB::make_tables()", build.size_bytes(), P.fft->scratch_bytes());
            P.fft->forward_stored(P.transform, P.words, P.length, build.data(), parallelizer, tds);
        }
    }
}

uint64_t ReadyTableB::perform_split(uint64_t n_words) const {
    if (levels_.empty() || n_words > 2 * levels_.back().block_words)
        throw InvalidParametersException("ReadyTableB::perform_split()", "Table isn't large enough.");
    for (uint64_t j = levels_.size(); j-- > 0;)
        if (levels_[j].block_words < n_words) return j;
    throw InvalidParametersException("ReadyTableB::perform_split()", "Table isn't large enough.");
}

}  // namespace qmp
