// "MULB" (Karatsuba over Transforms): products beyond the largest transform. One Karatsuba step
// (three products of about half the size, or two for a short B) cuts a product until it fits
// the split-modulus FFT (split_modulus_fft.h), which serves every piece; the steps nest as deep
// as the size needs. Each level holds its two sums and the middle product: about 4 h words for
// halves of h words. Checks: those of every piece product, the middle product's subtraction
// (A0 B1 + A1 B0 is never negative) and a residue of the whole product modulo 2^61 - 1 against
// those of A and B (AlgorithmFailedException "Checksum Mismatch. Multiplication Failed.").
#pragma once

#include <cstdint>
#include <string>

#include "qmp/multiply/basic_algorithm.h"
#include "qmp/multiply/fft/split_modulus_fft.h"

namespace qmp {

class AlgorithmRegistry;

class KaratsubaTransforms final : public BasicAlgorithm {
public:
    // Products up to max_product_words; pieces of up to piece_max_words go to the transform
    // (default and at most: the largest the split-modulus FFT carries).
    explicit KaratsubaTransforms(uint64_t max_product_words, uint64_t piece_max_words = 0);

    const char* name() const noexcept override { return "MULB"; }
    std::string display_name() const override { return "Karatsuba over Transforms"; }
    void assert_valid() const override;
    uint64_t multiply_buffer_bytes(uint64_t product_words) const override;
    void multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL, void* scratch,
                  uint64_t scratch_bytes, const MultiplyContext& context) const override;
    void square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch, uint64_t scratch_bytes,
                const MultiplyContext& context) const override;

private:
    void product(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL, uint64_t* scratch,
                 const MultiplyContext& context) const;

    uint64_t max_product_words_;
    uint64_t piece_max_words_;
    SplitModulusFFT pieces_;
};

// Registers "MULB"; a table entry's threshold becomes the largest product it is built for.
void register_karatsuba_transforms(AlgorithmRegistry& registry);

}  // namespace qmp
