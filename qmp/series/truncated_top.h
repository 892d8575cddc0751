// The top merge of a CommonP2B3 sum when only the ratio P / Q is wanted, to `keep` words.
// Near the top of a summation the halves' outputs are longer than the precision (for the pi
// series about 1.3 times it in each half, 2.6 times in the full P and Q), so the exact merge
// multiplies words that the division afterwards throws away. Here every operand is cut to its
// top `keep` words first, so the three products are at most 2 keep words long:
//   X = P1 Q2 2^scale2,   t = R1 P2,   Q = Q1 Q2,   P = X + t,
// with each value carried as a BigInt and a word exponent. P is formed at the larger exponent of
// its terms (the other loses only words below that one's last), then P and Q are cut to at most
// keep + 1 words and their exponents move into the denominator's shift:
// S = P / (Q 2^(scale1 + scale2 + 64 (eQ - eP))), with a relative error of a few units of
// 2^(-64 (keep - 1)).
// The truncated values have no shadow residues; instead each product is checked against its
// operands' residues modulo 2^61 - 1 and each sum against its terms' (BSRCheckFailure for the
// whole range on a mismatch). The halves themselves are checked as every merge is.
// Memory: X and Q stay carved from `arena` for the caller; t and the product scratch are
// transient. Counting mode sizes the same steps from the capacities.
#pragma once

#include <cstdint>

#include "qmp/series/bsr_engine.h"
#include "qmp/series/common_p2b3.h"
#include "qmp/series/psr_series.h"

namespace qmp::BinarySplitting {

// Products of the top with operands of at least this many words in total are formed as their top
// part from three products half as long (the low halves' product, below the words kept, is
// never formed): 1.5 times the work of one product, but the scratch of a product half its
// length, which at this size sets the peak memory of the whole sum.
inline constexpr uint64_t kTopSplitMinWords = uint64_t(1) << 22;
// Test seam: the threshold above (0: every top product splits).
void set_top_split_min_words(uint64_t words);

// Whether cutting the operands of the top merge of halves with these capacities saves work.
bool truncated_top_applies(const CommonP2B3::Caps& capL, const CommonP2B3::Caps& capR, uint64_t keep);

// The top of [a, b) from its halves L = [a, m) (P, Q, R) and R = [m, b) (P, Q), both checked;
// capTop: the capacities of the whole range. `out` points into words carved from `arena`.
void truncated_top_merge(uint64_t a, uint64_t b, const BSRNode<CommonP2B3>& L, const BSRNode<CommonP2B3>& R,
                         const CommonP2B3::Caps& capL, const CommonP2B3::Caps& capR,
                         const CommonP2B3::Caps& capTop, uint64_t keep,
                         SeriesFraction& out, WorkArena& arena, const MulEnv& env);

}  // namespace qmp::BinarySplitting
