// One multiplication algorithm as the algorithm tables see it: it multiplies little-endian arrays
// of 64-bit words (a 32-bit-word number multiplies as the same bytes read as 64-bit words), and
// it states in advance how much scratch a product of a given size needs, so that callers can
// size their buffers before they multiply. Nothing here allocates: scratch is carved from the
// caller's buffer, and a buffer smaller than the stated need is a qmp::BufferTooSmallException.
//
// Sizes are in 64-bit words; "product_words" is AL + BL.
#pragma once

#include <cstdint>
#include <string>

namespace qmp {

class Parallelizer;
class AlgorithmTableB;

// The context of one product: where recursion looks up smaller products, how to run parallel
// pieces and how many tasks the plan allows (tds).
struct MultiplyContext {
    const AlgorithmTableB* table = nullptr;  // for recursion into smaller algorithms; may be null
    Parallelizer* parallelizer = nullptr;    // null: run on the calling thread
    uint64_t tds = 1;                        // task decomposition allowed for this product
};

class BasicAlgorithm {
public:
    virtual ~BasicAlgorithm() = default;

    // Registry name, e.g. "BKT", and display name, e.g. "Basecase + Karatsuba".
    virtual const char* name() const noexcept = 0;
    virtual std::string display_name() const = 0;
    // Checks the algorithm's own parameter table ("Invalid table entry 0." ...).
    virtual void assert_valid() const {}
    // Whether the algorithm can do what a table entry asks of it, e.g. an instruction-set
    // variant ("Scalar Integer", "AVX512 Float"). Tables built from named entries refuse an
    // algorithm that answers false.
    virtual bool supports(const std::string& feature) const { (void)feature; return false; }

    // Scratch bytes needed by multiply()/square() for a product of `product_words` words.
    virtual uint64_t multiply_buffer_bytes(uint64_t product_words) const = 0;
    // Scratch bytes needed by square() for a product of `product_words` words; an algorithm that
    // squares in less room than it multiplies says so here.
    virtual uint64_t square_buffer_bytes(uint64_t product_words) const { return multiply_buffer_bytes(product_words); }
    // Bytes of a forward transform kept for reuse (0 for algorithms without transforms).
    virtual uint64_t transform_buffer_bytes(uint64_t product_words) const { (void)product_words; return 0; }
    // ---- Stored forward transforms, for algorithms whose transform_buffer_bytes() is not 0.
    // T (transform_buffer_bytes(max_product_words) bytes) receives A's forward transform sized for
    // products of up to max_product_words words; multiply_transformed() then forms C[0, AL + BL) =
    // A * B for any B that fits, leaving T intact. Scratch of both: stored_multiply_buffer_bytes().
    // The defaults refuse (InvalidParametersException "Stored transforms are not supported.").
    virtual uint64_t stored_multiply_buffer_bytes(uint64_t max_product_words) const;
    virtual void forward_operand(void* T, uint64_t T_bytes, const uint64_t* A, uint64_t AL,
                                 uint64_t max_product_words, void* scratch, uint64_t scratch_bytes,
                                 const MultiplyContext& context) const;
    virtual double multiply_transformed(uint64_t* C, const void* TA, const uint64_t* B, uint64_t BL,
                                        void* scratch, uint64_t scratch_bytes, const MultiplyContext& context) const;

    // C[0, AL + BL) = A * B. C must not overlap A or B. AL >= 1, BL >= 1.
    virtual void multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B,
                          uint64_t BL, void* scratch, uint64_t scratch_bytes,
                          const MultiplyContext& context) const = 0;
    // C[0, 2 AL) = A^2. C must not overlap A.
    virtual void square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch,
                        uint64_t scratch_bytes, const MultiplyContext& context) const = 0;
};

}  // namespace qmp
