// "SFTv4" (Split-Modulus Fast Fourier Transform (v4)): a large product C = A * B of P words as
// two negacyclic products of about half that size (negacyclic_product.h), on one transform
// shape with b and b - 1 bits per point:
//   r1 = C mod M1, M1 = B^N1 + 1, N1 = M b / 64;   r2 = C mod M2, M2 = B^N2 + 1, N2 = M (b-1) / 64,
// run one after the other in the same scratch, then joined by the Chinese remainder theorem
// (M1 and M2 are coprime because N1 and N2 differ in their power of two). The work is that of
// one transform of the whole product, but the scratch holds transforms of half its size: this
// is the algorithm of the largest products, where memory, not time, limits the computation.
// Checks: those of each negacyclic product (rounding distance, range), the quotient of the
// join fits its words, and a residue of C modulo 2^61 - 1 against those of A and B
// (AlgorithmFailedException "Checksum Mismatch. Multiplication Failed." naming SFTv4::multiply()).
// Shapes: max(AL, BL) <= N2 - 1 runs directly; a longer A is cut in two.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/multiply/basic_algorithm.h"
#include "qmp/multiply/fft/plan.h"

namespace qmp {

class AlgorithmRegistry;

class SplitModulusFFT final : public BasicAlgorithm {
public:
    explicit SplitModulusFFT(uint64_t max_product_words);

    // The transform shape of a P-word product: N2 - 1 >= ceil(P / 2), the fewest points.
    // bits == 0 when none carries it.
    static fft::TransformSize plan(uint64_t product_words);
    // The largest product any shape carries (about twice the single transform's).
    static uint64_t max_product_words();

    const char* name() const noexcept override { return "SFTv4"; }
    std::string display_name() const override { return "Split-Modulus Fast Fourier Transform (v4)"; }
    void assert_valid() const override;
    uint64_t multiply_buffer_bytes(uint64_t product_words) const override;
    void multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL, void* scratch,
                  uint64_t scratch_bytes, const MultiplyContext& context) const override;
    void square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch, uint64_t scratch_bytes,
                const MultiplyContext& context) const override;

    // A test hook that perturbs r1 (C mod M1, N1 + 1 words) of every product before the join
    // (null: none), so that tests can make the join's checks fire. Not for production use.
    using FaultInjector = void (*)(uint64_t* r1, uint64_t words);
    static void set_fault_injector(FaultInjector injector);

private:
    // C[0, AL + BL) = A * B with max(AL, BL) <= N2 - 1 of `size` (B null: a square).
    void direct(const fft::TransformSize& size, uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B,
                uint64_t BL, char* scratch, const MultiplyContext& context) const;

    uint64_t max_product_words_;
};

// Registers "SFTv4"; a table entry's threshold becomes the largest product it is built for.
void register_split_modulus_fft(AlgorithmRegistry& registry);

}  // namespace qmp
