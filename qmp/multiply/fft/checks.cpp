// Residue checks of products modulo 2^61 - 1 (see checks.h). A range [i0, i1) of words has
// weight 2^(64 i0) = 2^(64 i0 mod 61): its residue is rotated into place before the sum, so the
// result does not depend on how the array was cut.
#include "qmp/multiply/fft/checks.h"

#include "qmp/exception.h"
#include "qmp/words/mod_m61.h"
#include "qmp/parallel/parallelizer.h"

#include <algorithm>

namespace qmp {
namespace {

constexpr uint64_t kMaxRanges = 64;
constexpr uint64_t kMinRangeWords = 65536;

}  // namespace

uint64_t parallel_mod_m61(const uint64_t* A, uint64_t AL, Parallelizer* parallelizer, uint64_t tds) {
    if (parallelizer == nullptr || tds < 2 || AL < 2 * kMinRangeWords) return mod_m61(A, AL);
    const uint64_t ranges = std::min<uint64_t>({kMaxRanges, tds, AL / kMinRangeWords});
    const uint64_t step = (AL + ranges - 1) / ranges;
    uint64_t residue[kMaxRanges];
    auto task = [&](uint64_t i) {
        const uint64_t begin = std::min(AL, i * step);
        const uint64_t end = std::min(AL, begin + step);
        residue[i] = mul_pow2_m61(mod_m61(A + begin, end - begin), 64 * begin);
    };
    parallelizer->run(ranges, task);
    uint64_t sum = 0;
    for (uint64_t i = 0; i < ranges; ++i) sum = add_m61(sum, residue[i]);
    return sum;
}

void verify_product(uint64_t residue_a, uint64_t residue_b, const uint64_t* C, uint64_t CL,
                    Parallelizer* parallelizer, uint64_t tds) {
    const uint64_t expected = mul_m61(residue_a, residue_b);
    if (parallel_mod_m61(C, CL, parallelizer, tds) != expected)
        throw AlgorithmFailedException("verify_product()", "Checksum Mismatch. Multiplication Failed.");
}

void checked_multiply(const BasicAlgorithm& algorithm, uint64_t* C, const uint64_t* A,
                      uint64_t AL, const uint64_t* B, uint64_t BL, void* scratch,
                      uint64_t scratch_bytes, const MultiplyContext& context) {
    // Residues of the inputs first: C may not overlap them, but a faulty product must not be
    // able to influence what it is compared with.
    const uint64_t ra = parallel_mod_m61(A, AL, context.parallelizer, context.tds);
    const bool is_square = A == B && AL == BL;
    const uint64_t rb = is_square ? ra : parallel_mod_m61(B, BL, context.parallelizer, context.tds);
    if (is_square) {
        algorithm.square(C, A, AL, scratch, scratch_bytes, context);
    } else {
        algorithm.multiply(C, A, AL, B, BL, scratch, scratch_bytes, context);
    }
    verify_product(ra, rb, C, AL + BL, context.parallelizer, context.tds);
}

}  // namespace qmp
