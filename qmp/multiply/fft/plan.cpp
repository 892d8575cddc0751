// Transform choice for a product size (see plan.h). Candidates are all m * 2^k with m in
// {1, 3, 5, 7}, visited in increasing number of points; the first that the limit table allows
// and that carries the product wins. Odd multipliers fill the gaps between powers of two
// (3/4, 5/8, 7/8 of the next power), which saves up to 25 % of the transform length.
#include "qmp/multiply/fft/plan.h"

#include "qmp/multiply/fft/reduction.h"

#include <algorithm>
#include <array>

namespace qmp::fft {
namespace {

constexpr int kMaxK = 31;

// All (m, k) with m 2^k <= 2^kMaxK, sorted by points.
struct CandidateList {
    std::array<TransformSize, 4 * kMaxK> sizes{};
    int count = 0;
    CandidateList() {
        for (int m : {1, 3, 5, 7}) {
            for (int k = minimum_k(m); k <= kMaxK; ++k) {
                if ((static_cast<uint64_t>(m) << k) > (uint64_t(1) << kMaxK)) break;
                sizes[count++] = TransformSize{m, k, 0};
            }
        }
        std::sort(sizes.begin(), sizes.begin() + count,
                  [](const TransformSize& a, const TransformSize& b) { return a.real_points() < b.real_points(); });
    }
};

const CandidateList& candidates() {
    static const CandidateList list;
    return list;
}

int log2_ceil(uint64_t x) {
    int r = 0;
    while ((uint64_t(1) << r) < x) ++r;
    return r;
}

}  // namespace

const char* skip_reason_name(SkipReason reason) {
    switch (reason) {
        case SkipReason::None: return "none";
        case SkipReason::BelowMinimumSize: return "below minimum size";
        case SkipReason::BeyondLimitTable: return "beyond the limit table";
        case SkipReason::AboveMaximumSize: return "above the maximum size";
        case SkipReason::ProductDoesNotFit: return "product does not fit";
    }
    return "invalid";
}

int minimum_k(int m) {
    // k - d >= 6 with d from the reduction table: k = 7 for every multiplier.
    for (int k = 1;; ++k)
        if (k - get_reduction(m, k).depth >= 6) return k;
}

bool product_fits(const TransformSize& size, uint64_t product_words) {
    if (size.bits <= 0) return false;
    const uint64_t digits = (product_words * 64 + size.bits - 1) / size.bits;
    return digits + 2 <= size.real_points();
}

TransformSize choose_transform(uint64_t product_words, DigitMode mode, int max_log2_points,
                               int skip, std::vector<PlanCandidate>* declined, int forced_bits) {
    const CandidateList& list = candidates();
    for (int i = 0; i < list.count; ++i) {
        TransformSize size = list.sizes[i];
        SkipReason reason = SkipReason::None;
        if (log2_ceil(size.real_points()) > max_log2_points) {
            reason = SkipReason::AboveMaximumSize;
        } else {
            size.bits = bits_per_point(size.m, size.k, mode);
            if (forced_bits > 0 && size.bits > 0) size.bits = forced_bits;
            if (size.bits == 0) {
                reason = SkipReason::BeyondLimitTable;
            } else if (!product_fits(size, product_words)) {
                reason = SkipReason::ProductDoesNotFit;
            }
        }
        if (reason == SkipReason::None) {
            if (skip-- == 0) return size;
            reason = SkipReason::ProductDoesNotFit;  // passed over by a retry
        }
        if (declined != nullptr) declined->push_back(PlanCandidate{size, reason});
    }
    return TransformSize{1, 0, 0};
}

std::string describe(const TransformSize& size) {
    return std::to_string(size.m) + "*2^" + std::to_string(size.k) + ", " + std::to_string(size.bits) + " bits";
}

}  // namespace qmp::fft
