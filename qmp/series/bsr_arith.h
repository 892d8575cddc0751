// Signed products and sums of the BigInt<uint64_t> outputs of binary splitting, with scratch
// from a WorkArena. mul_signed(): C = A * B written from C.base (C.capacity >= AL + BL, C
// disjoint from A and B); small operands go straight to the schoolbook rows, the rest through
// the multiplication table with everything left in the arena as scratch. add_signed_in_place():
// C += X (C.capacity >= max(CL, XL) + 1, C at its base). In counting mode both only record
// the scratch they would take for operands of the given capacities.
#pragma once

#include <cstdint>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/big_int.h"
#include "qmp/series/work_arena.h"

namespace qmp {
class Parallelizer;
class FFTv4;
}

namespace qmp::BinarySplitting {

// How the big products of a merge run: the table, the framework and the tasks they may use.
struct MulEnv {
    const AlgorithmTableB* table = nullptr;
    Parallelizer* parallelizer = nullptr;
    uint64_t tds = 1;
    MulEnv with_tds(uint64_t t) const { return {table, parallelizer, t}; }
};

using Int = BigInt<uint64_t>;

// Where a merge happens: the series, the two ranges [a, m) and [m, b), and the power of two
// taken out of the right-hand denominator (families that strip none leave it 0).
template <class S>
struct MergeSite {
    const S& series;
    uint64_t a, m, b;
    uint64_t right_scale = 0;
};

// Below this many words in the shorter operand the product runs as schoolbook rows.
inline constexpr uint64_t kRowProductMaxWords = 12;

// Scratch bytes of mul_signed() for operands of the given word capacities.
uint64_t mul_signed_scratch_bytes(const MulEnv& env, uint64_t a_words, uint64_t b_words);

void mul_signed(Int& C, const Int& A, const Int& B, WorkArena arena, const MulEnv& env, uint64_t a_cap,
                uint64_t b_cap);
void add_signed_in_place(Int& C, const Int& X);

// One operand shared by several products of a merge (Q2 in Q1 Q2 and P1 Q2; R1 in R1 P2 and
// R1 R2): when every product lies in the FFT's range and plans the same transform as the
// largest, the operand is transformed forward once and kept in the arena. Otherwise (or in
// smaller ranges) each product runs on its own. The decision depends on capacities only, so
// the counting and the running mode take the same path.
class SharedOperand {
public:
    SharedOperand(const Int& A, uint64_t a_cap, const uint64_t* partner_caps, unsigned partners, WorkArena& arena,
                  const MulEnv& env);
    // C = A * B (C.capacity >= A.L + B.L).
    void mul(Int& C, const Int& B, uint64_t b_cap, WorkArena arena, const MulEnv& env) const;
    bool stored() const noexcept { return fft_ != nullptr; }

private:
    const Int& A_;
    uint64_t a_cap_;
    const FFTv4* fft_ = nullptr;
    void* transform_ = nullptr;
    uint64_t max_product_words_ = 0;
};

// A BigInt over `words` words of capacity `cap` (zero), or an empty one in counting mode.
inline Int int_over(uint64_t* words, uint64_t cap) { return Int(words, words ? cap : 0); }

}  // namespace qmp::BinarySplitting
