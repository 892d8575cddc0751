// "FFTv4" (Fast Fourier Transform (v4)): exact products of 64-bit word arrays by a right-angle
// floating-point FFT. Operands are cut into b-bit signed digits (split.h), transformed as
// m * 2^k real points (transform.h), multiplied pointwise, transformed back, rounded and their
// carries released (release.h). The size is the smallest whose measured bits per point carry
// the product (plan.h, limit_table.h). Checks on every product: the max distance of any
// coefficient to its integer (a precision failure redoes the product once with fresh digits,
// logged), the range of every coefficient and word (store()), and the bottom word
// (fixup_bottom()).
// Scratch: multiply_buffer_bytes(AL + BL) from the caller, any alignment; nothing allocates.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/multiply/basic_algorithm.h"
#include "qmp/multiply/fft/limit_table.h"
#include "qmp/multiply/fft/plan.h"
#include "qmp/multiply/fft/transform.h"

namespace qmp {

class AlgorithmRegistry;

// Tuning of one FFTv4 instance (load_config() names the built-in ones).
struct FFTv4Config {
    fft::DigitMode mode = fft::DigitMode::Dithered;
    int max_log2_points = fft::kLimitMaxLog2Points;
    // A product whose max distance exceeds this is redone (or fails). The tables keep it
    // at or below 1/8; 0.3 leaves room while staying clear of a wrong rounding at 1/2.
    double max_distance_limit = 0.3;
    // Redo a product that fails the distance check once, with fresh dither digits (on the next
    // larger transform when the caller's buffer holds it, which multiply_buffer_bytes() does not
    // reserve); stored-transform products redo with fresh digits for the partner.
    bool retry_one_size_up = true;
    // Operands are split straight into the transform's column pass (fft::SplitSource) when the
    // points buffer has at least this many bytes, i.e. would not stay in the last-level cache:
    // the split then saves a write and a read of the whole buffer through DRAM, while in cache
    // the second look at every digit group that the streamed split needs costs more than it
    // saves. Measured with one thread on AMD Zen 5 (32 MiB L3 per CCD), streamed vs not:
    // 100k words (6 MiB of points) 6.4 vs 6.0 ms, 300k (32 MiB) 23.2 vs 25.2 ms, 1M (64 MiB)
    // 80.9 vs 85.2 ms (fft_mulbench WORDS 1 --cpu, best of 3 runs).
    uint64_t stream_min_points_bytes = uint64_t(16) << 20;
    // Transforms below this many complex points run on the calling thread whatever the context
    // allows: a product has about ten parallel phases, and below this the hand-over costs more
    // than the second core gives. Measured with the push pool, 2 tasks, qmp_mulbench-style
    // operands, AVX2 kernels, AMD Zen 5 with the second core idle (2026-11-24), threshold 2^19
    // against 2^16 complex points: 20k words 0.79 vs 0.61 ms, 50k 1.99 vs 1.37 ms, 100k 4.80
    // vs 3.03 ms, 200k 9.1 vs 7.3 ms; at 10k words (41k points) handing over lost (0.40 vs
    // 0.42 ms at 2^15). An earlier session on another host found the hand-over to a sleeping
    // core slow up to ~300k words, so this is a machine property worth tuning.
    uint64_t min_parallel_complex_points = uint64_t(1) << 16;
};

class FFTv4 final : public BasicAlgorithm {
public:
    using SkipReason = fft::SkipReason;

    using Config = FFTv4Config;
    // "default" (dithered digits), "balanced" (plain balanced digits, structured-input table),
    // "unsigned" (unsigned digits, all-max table). Anything else throws "Invalid Config Name: ".
    static Config load_config(const std::string& name);

    // Smallest product served: below it the transform would be mostly padding.
    static constexpr uint64_t kMinProductWords = 2;
    // Conversions cut coefficient ranges at multiples of 2^6 points.
    static constexpr int kConversionBlockExponent = 6;

    explicit FFTv4(uint64_t max_product_words = max_product_words_for(Config{}), Config config = Config{});

    // The largest product (words) a configuration can carry.
    static uint64_t max_product_words_for(const Config& config);

    const char* name() const noexcept override { return "FFTv4"; }
    std::string display_name() const override { return "Fast Fourier Transform (v4)"; }
    void assert_valid() const override;
    bool supports(const std::string& feature) const override;

    uint64_t multiply_buffer_bytes(uint64_t product_words) const override;
    uint64_t square_buffer_bytes(uint64_t product_words) const override;
    uint64_t transform_buffer_bytes(uint64_t product_words) const override;

    void multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
                  void* scratch, uint64_t scratch_bytes, const MultiplyContext& context) const override;
    void square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch, uint64_t scratch_bytes,
                const MultiplyContext& context) const override;

    // ---- Stored forward transforms, reusable with several partners.
    // T (transform_buffer_bytes(max_product_words), any alignment) receives the forward
    // transform of A[0, AL) sized for products of up to `max_product_words` words (>= AL + 1).
    // Scratch: stored_multiply_buffer_bytes(max_product_words).
    void forward_operand(void* T, uint64_t T_bytes, const uint64_t* A, uint64_t AL,
                         uint64_t max_product_words, void* scratch, uint64_t scratch_bytes,
                         const MultiplyContext& context) const override;
    // C[0, AL + BL) = A * B with A given by its stored transform. The stored transform is left
    // intact. A transform of another size, mode or algorithm, or one too small for AL + BL,
    // throws InvalidParametersException "Stored transform is incompatible with this product.".
    // Each returns the product's max distance to the integers (diagnostics).
    double multiply_transformed(uint64_t* C, const void* TA, const uint64_t* B, uint64_t BL,
                                void* scratch, uint64_t scratch_bytes, const MultiplyContext& context) const override;
    // C = A * B with both stored (same size), and C = A^2 from one stored transform.
    double multiply_transformed(uint64_t* C, const void* TA, const void* TB, void* scratch,
                                uint64_t scratch_bytes, const MultiplyContext& context) const;
    double square_transformed(uint64_t* C, const void* TA, void* scratch, uint64_t scratch_bytes,
                              const MultiplyContext& context) const;
    uint64_t stored_multiply_buffer_bytes(uint64_t max_product_words) const override;

    // ---- Checks.
    // After the carries of a product are released: `expected` is the true bottom word (a0 b0
    // mod 2^64). Equal: nothing; expected = stored + 1 or stored - 1: mend and propagate; any
    // other difference: AlgorithmFailedException "Bottom word mismatch.".
    static void fixup_bottom(uint64_t* C, uint64_t CL, uint64_t expected);
    // Rounds and releases the inverse transform `points` (n complex points) into C[0, CL);
    // coefficients above `coefficient_count` must vanish. Returns the max distance. When the
    // distance is within `limit` but a value lands past the range: AlgorithmFailedException
    // "Index has overrun range: is > oe" (a larger distance is left to the caller's retry).
    // `points_layout`: where the points lie (the work layout after an in-place inverse).
    static double store(uint64_t* C, uint64_t CL, const fft::Block* points, uint64_t n_complex,
                        int bits, uint64_t coefficient_count, double limit, Parallelizer* parallelizer,
                        uint64_t tds, const fft::PointLayout& points_layout = {});

    // ---- Plans.
    // The transform a product of `product_words` words uses (`retry`: the one size up), with
    // the sizes declined before it. bits == 0 when none fits.
    fft::TransformSize plan(uint64_t product_words, bool retry = false,
                            std::vector<fft::PlanCandidate>* declined = nullptr) const;
    const Config& config() const noexcept { return config_; }
    uint64_t max_product_words() const noexcept { return max_product_words_; }
    // Number of products redone by any instance since start-up.
    static uint64_t retry_count();

    // A test hook that perturbs the inverse transform of every product before it is rounded
    // (null: none), so that tests can make each check fire. Not for production use.
    using FaultInjector = void (*)(fft::Block* points, uint64_t n_complex);
    static void set_fault_injector(FaultInjector injector);

    // ---- Self-test.
    enum class TestType { SeparateMul, SeparateSqr, FusedMul, FusedSqr, ChainSqr };
    enum class InputType { Random, Worst };
    // "separate_mul", ... and "random", "worst"; other names throw "Invalid TestType" /
    // "Invalid InputType".
    static TestType parse_test_type(const std::string& name);
    static InputType parse_input_type(const std::string& name);
    struct TestResult {
        std::string label;  // e.g. "FFTv4::fused_mul(bits=17, balanced=1, words=4096)"
        double max_distance = 0.0;
        bool passed = false;
    };
    // Multiplies operands of `words` words each (`Worst`: digit 2^(b-1) everywhere in balanced
    // modes, all-ones words in unsigned mode) in the chosen form at `bits` per point (0: the
    // table's), and checks the product exactly against residues and the basecase (small sizes).
    // Allocates its own operands and buffers: a diagnostic, not arithmetic.
    TestResult Test_Multiply(TestType type, InputType input, uint64_t words, int bits = 0,
                             uint64_t seed = 1, Parallelizer* parallelizer = nullptr,
                             uint64_t tds = 1) const;

private:
    struct Layout {
        int m = 1, k = 0;
        // Built on first use only: sizing never builds a transform.
        const fft::Transform& transform() const;
        uint64_t points_bytes = 0;
        uint64_t work_bytes = 0;
        uint64_t scratch_bytes = 0;
        uint64_t total_bytes = 0;  // including 128 bytes of alignment slack
    };
    Layout layout(const fft::TransformSize& size, bool square) const;
    uint64_t buffer_bytes(uint64_t product_words, bool square) const;
    // One product on a fixed size; returns the max distance (C written in full).
    double run_product(const fft::TransformSize& size, uint64_t* C, const uint64_t* A, uint64_t AL,
                       const uint64_t* B, uint64_t BL, void* scratch, const MultiplyContext& context,
                       uint64_t seed) const;
    void product_with_retry(const char* function, uint64_t* C, const uint64_t* A, uint64_t AL,
                            const uint64_t* B, uint64_t BL, void* scratch, uint64_t scratch_bytes,
                            const MultiplyContext& context) const;
    fft::TransformSize plan_forced(uint64_t product_words, int bits) const;
    void forward_sized(const char* function, void* T, uint64_t T_bytes, const uint64_t* A, uint64_t AL,
                       const fft::TransformSize& size, void* scratch, uint64_t scratch_bytes,
                       const MultiplyContext& context) const;
    // Rounds the inverse in `points` into C[0, CL) and returns the max distance (no check).
    double release_stored(uint64_t* C, uint64_t CL, const fft::TransformSize& size, const fft::Block* points,
                          const fft::PointLayout& points_layout, uint64_t coefficient_count,
                          const MultiplyContext& context) const;
    // C = (operand of the stored transform `other`, or X when `other` is null) * X, with X[0, XL)
    // split with `seed` on the stored size; returns the max distance. X may live in C.
    double stored_convolve(uint64_t* C, uint64_t CL, const fft::TransformSize& size, const uint64_t* X,
                           uint64_t XL, const fft::Block* other, uint64_t coefficient_count, uint64_t seed,
                           void* scratch, const MultiplyContext& context) const;
    // Writes the operand of a stored transform back into words W[0, operand_words): the inverse of
    // the forward transform alone, rounded (its distance is tiny; a large one is a fault).
    void recover_operand(const char* function, uint64_t* W, const void* T, void* scratch,
                         const MultiplyContext& context) const;
    // The end of every stored product: a failed distance redoes it once (`redo`, fresh digits),
    // then the distance check and the bottom word.
    template <class Redo>
    double finish_stored(const char* function, uint64_t* C, uint64_t CL, const fft::TransformSize& size,
                         double distance, uint64_t bottom, Redo redo) const;

    Config config_;
    uint64_t max_product_words_;
};

// Registers "FFTv4"; a table entry's threshold becomes the largest product it is built for
// (clamped to what the limit table carries).
void register_fftv4(AlgorithmRegistry& registry);

}  // namespace qmp
