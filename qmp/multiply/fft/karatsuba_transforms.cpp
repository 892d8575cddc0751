// Karatsuba over the transforms (see karatsuba_transforms.h).
//
// With A the longer operand and h = ceil(AL / 2), A = A0 + A1 B^h:
//   BL <= h:  C = A0 B + (A1 B) B^h                                    (two pieces)
//   BL >  h:  B = B0 + B1 B^h, C = z0 + z1 B^h + z2 B^(2h),
//             z0 = A0 B0, z2 = A1 B1, z1 = (A0 + A1)(B0 + B1) - z0 - z2  (three pieces)
// A piece has at most 3P/4 + 3 words, so the bound of the scratch recurses on that size.
// Scratch per level (words): the sums (h + 1 each) and the middle product (2h + 2), or the
// second piece of the short case (a1 + BL), then the level below.
#include "qmp/multiply/fft/karatsuba_transforms.h"

#include <algorithm>
#include <string>

#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/fft/checks.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

constexpr const char* kMultiply = "MULB::multiply()";

// Three pieces need BL > h, hence AL < 2P/3 and 4h + 4 < 4P/3 + 8 words; two pieces need
// a1 + BL <= P - AL/2 <= 3P/4 words.
uint64_t level_words(uint64_t product_words) { return product_words * 4 / 3 + 8; }
uint64_t piece_bound(uint64_t product_words) { return product_words * 3 / 4 + 3; }

[[noreturn]] void fail() { throw AlgorithmFailedException(kMultiply, "Checksum Mismatch. Multiplication Failed."); }

}  // namespace

KaratsubaTransforms::KaratsubaTransforms(uint64_t max_product_words, uint64_t piece_max_words)
    : max_product_words_(max_product_words),
      piece_max_words_(piece_max_words == 0 ? SplitModulusFFT::max_product_words()
                                            : std::min(piece_max_words, SplitModulusFFT::max_product_words())),
      pieces_(piece_max_words_) {}

void KaratsubaTransforms::assert_valid() const {
    if (piece_max_words_ < 8192 || max_product_words_ < 2)
        throw InvalidParametersException("MULB::assert_valid()", "Invalid table entry 0.");
    pieces_.assert_valid();
}

uint64_t KaratsubaTransforms::multiply_buffer_bytes(uint64_t product_words) const {
    if (product_words > max_product_words_)
        throw LimitExceededException("MULB::multiply_buffer_bytes()",
                                     "Product of " + std::to_string(product_words) + " words is beyond this transform.");
    // The levels' words, then a piece of any size the transform serves (a piece can reach the
    // transform at any level, at up to its level's bound).
    uint64_t words = 0;
    uint64_t P = product_words;
    while (P > piece_max_words_) {
        words += level_words(P);
        P = piece_bound(P);
    }
    const uint64_t piece = product_words > piece_max_words_ ? piece_max_words_ : product_words;
    return 8 * words + pieces_.multiply_buffer_bytes(piece) + 128;
}

void KaratsubaTransforms::product(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
                                  uint64_t* scratch, const MultiplyContext& context) const {
    if (AL < BL) {
        std::swap(A, B);
        std::swap(AL, BL);
    }
    const uint64_t P = AL + BL;
    if (P <= piece_max_words_) {
        pieces_.multiply(C, A, AL, B, BL, scratch, pieces_.multiply_buffer_bytes(P), context);
        return;
    }
    const uint64_t h = (AL + 1) / 2, a1 = AL - h;
    uint64_t* below = scratch + level_words(P);
    if (BL <= h) {
        // C = A0 B + (A1 B) B^h.
        uint64_t* T = scratch;
        product(C, A, h, B, BL, below, context);
        zero_words(C + h + BL, P - h - BL);
        product(T, A + h, a1, B, BL, below, context);
        if (add(C + h, C + h, P - h, T, a1 + BL) != 0) fail();
        return;
    }
    const uint64_t b1 = BL - h;
    uint64_t* sa = scratch;
    uint64_t* sb = sa + h + 1;
    uint64_t* z1 = sb + h + 1;
    sa[h] = add(sa, A, h, A + h, a1);
    sb[h] = add(sb, B, h, B + h, b1);
    product(C, A, h, B, h, below, context);                      // z0 into C[0, 2h)
    product(C + 2 * h, A + h, a1, B + h, b1, below, context);    // z2 into C[2h, P)
    product(z1, sa, h + 1, sb, h + 1, below, context);           // (A0 + A1)(B0 + B1)
    if (sub(z1, z1, 2 * h + 2, C, 2 * h) != 0) fail();
    if (sub(z1, z1, 2 * h + 2, C + 2 * h, P - 2 * h) != 0) fail();
    // z1 = A0 B1 + A1 B0 < B^(P - h): its words from P - h up are zero.
    const uint64_t kept = std::min(2 * h + 2, P - h);
    if (!is_zero(z1 + kept, 2 * h + 2 - kept)) fail();
    if (add(C + h, C + h, P - h, z1, kept) != 0) fail();
}

void KaratsubaTransforms::multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
                                   void* scratch, uint64_t scratch_bytes, const MultiplyContext& context) const {
    if (AL == 0 || BL == 0) throw InvalidParametersException(kMultiply, "Operands cannot be empty.");
    const uint64_t need = multiply_buffer_bytes(AL + BL);
    if (scratch_bytes < need) throw BufferTooSmallException(kMultiply, scratch_bytes, need);
    auto* words = reinterpret_cast<uint64_t*>((reinterpret_cast<uintptr_t>(scratch) + 127) & ~uintptr_t(127));
    const uint64_t ra = parallel_mod_m61(A, AL, context.parallelizer, context.tds);
    const uint64_t rb = B == A ? ra : parallel_mod_m61(B, BL, context.parallelizer, context.tds);
    product(C, A, AL, B, BL, words, context);
    verify_product(ra, rb, C, AL + BL, context.parallelizer, context.tds);
}

void KaratsubaTransforms::square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch, uint64_t scratch_bytes,
                                 const MultiplyContext& context) const {
    multiply(C, A, AL, A, AL, scratch, scratch_bytes, context);
}

void register_karatsuba_transforms(AlgorithmRegistry& registry) {
    registry.add("MULB", [](const NamedAlgorithmEntry& entry) {
        return std::make_unique<KaratsubaTransforms>(entry.threshold_words);
    });
}

}  // namespace qmp
