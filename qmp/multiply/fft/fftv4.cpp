// The FFTv4 product (see fftv4.h): plan, scratch layout, the fresh and stored-transform forms
// and the checks around them.
//
// Scratch layout of one product on n complex points (every piece 128-byte aligned):
//   [points: n/8 blocks][work A: work_bytes][work B: work_bytes, products only]
//   [transform scratch][split carry plan: n/32 bytes]
// The points buffer takes each operand's split in turn and finally the inverse transform, so a
// product holds 3 operand-sized arrays and a square 2. When the operands are streamed into the
// column pass (FFTv4Config::stream_min_points_bytes: every large product) there is no points
// buffer: the inverse runs in place and the release reads the work area's layout, so a product
// holds 2 arrays and a square 1 (at 3.3M words: 11.5 -> 7.7 bytes of scratch per product byte). B's forward transform, the pointwise
// product and the inverse run as one pass (Transform::convolve()). A redo after a failed
// rounding check splits with fresh dither digits on the same size (on the next size up only
// when the caller's buffer happens to hold it), so the need is that of one size.
// Huge pages are not requested here: madvise(MADV_HUGEPAGE) on a scratch that is already
// populated made 4M-word products 2-3x slower on the measuring machine (THP defrag "madvise"),
// so the owner of the working buffer advises it once, before first touch
// (fft::advise_huge_pages()).
//
// Profile of one product on the AVX2 kernels (QMP_SIMD=avx2 on AMD Zen 5, one thread, process
// CPU time, `fft_mulbench N 1 --phases --cpu`, phases run separately, 2026-11-24):
//   N words   transform       split x2   forward x2   pointwise   inverse   release   product
//   10k       5*2^14, 19 b    0.06 ms    0.16 ms      0.01 ms     0.08 ms   0.06 ms   0.38 ms
//   100k      3*2^18, 18 b    0.80       2.72         0.14        1.17      0.83      5.4
//   1M        2^23, 17 b      10.6       38.4         4.0         21.2      20.6      78.8
//   4M        2^25, 17 b      45.4       172          14.6        95.5      71.8      344
// The forward transforms take ~45 % of the separate phases, the inverse ~25 %, and the release
// (rounding and carrying 8.4M coefficients into 2M words at 1M) as much as an inverse: its
// 128-bit carry chain reads one side of every block per sweep, two sweeps over the points.
// The fused product (split into the column pass, pointwise inside the inverse's row pass)
// saves ~17 % of the separate sum at 1M words.
#include "qmp/multiply/fft/fftv4.h"

#include "qmp/console.h"
#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/fft/release.h"
#include "qmp/multiply/fft/split.h"
#include "qmp/multiply/limit_table.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <sstream>

namespace qmp {

namespace {

// Transform scratch is sized for this many tasks (the plans never allow more).
constexpr uint64_t kMaxTds = 256;
// Transforms up to this size (tables of at most ~1 MiB) are built when sized.
constexpr uint64_t kPrebuiltMaxComplexPoints = uint64_t(1) << 19;

bool stream_operands(const fft::TransformSize& size, const FFTv4Config& config) {
    return fft::transform_streams_input(size.m, size.k) && size.complex_points() * 16 >= config.stream_min_points_bytes;
}

std::atomic<uint64_t> g_retries{0};
std::atomic<FFTv4::FaultInjector> g_fault_injector{nullptr};

void inject_fault(fft::Block* points, uint64_t n) {
    if (FFTv4::FaultInjector f = g_fault_injector.load()) f(points, n);
}

uint64_t align_up(uint64_t x, uint64_t a) { return (x + a - 1) / a * a; }

uint64_t transform_scratch(const fft::TransformSize& size) {
    return align_up(fft::transform_scratch_bytes(size.m, size.k, kMaxTds), 128);
}

uint64_t task_count(const MultiplyContext& context, const FFTv4Config& config, uint64_t complex_points) {
    if (context.parallelizer == nullptr || complex_points < config.min_parallel_complex_points) return 1;
    return std::max<uint64_t>(1, context.tds);
}

char* align_pointer(void* p) {
    const auto address = reinterpret_cast<uintptr_t>(p);
    return reinterpret_cast<char*>(align_up(address, 128));
}

uint64_t digits_of(uint64_t words, int bits) { return fft::split_digit_count(words, bits); }

// The stored transform: a header block, then the work area, both 128-aligned.
constexpr uint64_t kStoredMagic = 0x3476544646ull;  // "FFTv4"
struct StoredHeader {
    uint64_t magic;
    const FFTv4* owner;
    int32_t m, k, bits, mode;
    uint64_t operand_words;
    uint64_t bottom_word;  // A[0], for the bottom-word check of every product
};
static_assert(sizeof(StoredHeader) <= 128);

}  // namespace

FFTv4::Config FFTv4::load_config(const std::string& name) {
    Config config;
    if (name == "default") return config;
    if (name == "balanced") {
        config.mode = fft::DigitMode::Balanced;
        return config;
    }
    if (name == "unsigned") {
        config.mode = fft::DigitMode::Unsigned;
        return config;
    }
    throw InvalidParametersException("FFTv4::load_config()", "Invalid Config Name: " + name);
}

uint64_t FFTv4::max_product_words_for(const Config& config) {
    uint64_t best = 0;
    for (int m : {1, 3, 5, 7}) {
        for (int k = fft::minimum_k(m); k <= config.max_log2_points; ++k) {
            if (fft::ceil_log2_points(m, k) > config.max_log2_points) break;
            const int bits = fft::bits_per_point(m, k, config.mode);
            if (bits == 0) break;
            const uint64_t points = static_cast<uint64_t>(m) << k;
            best = std::max(best, (points - 2) * bits / 64);
        }
    }
    return best;
}

FFTv4::FFTv4(uint64_t max_product_words, Config config)
    : config_(config), max_product_words_(max_product_words) {}

void FFTv4::assert_valid() const {
    static const char* kFunction = "FFTv4::assert_valid()";
    if (max_product_words_ < kMinProductWords || max_product_words_ > max_product_words_for(config_))
        throw InvalidParametersException(kFunction, "Invalid table entry 0.");
    if (!(config_.max_distance_limit > 0.0 && config_.max_distance_limit < 0.5))
        throw InvalidParametersException(kFunction, "Invalid table entry 1.");
    // The limits must form valid convolution tables (increasing cbitlen per multiplier).
    for (int m : {1, 3, 5, 7})
        LimitTable(fft::cbitlen_entries(m, config_.mode, fft::minimum_k(m), config_.max_log2_points));
}

bool FFTv4::supports(const std::string& feature) const {
    if (feature == "AVX512 Float") return detected_simd_level() >= SimdLevel::AVX512;
    return false;
}

fft::TransformSize FFTv4::plan(uint64_t product_words, bool retry,
                               std::vector<fft::PlanCandidate>* declined) const {
    if (product_words > max_product_words_) return fft::TransformSize{1, 0, 0};
    return fft::choose_transform(product_words, config_.mode, config_.max_log2_points, retry ? 1 : 0,
                                 declined);
}

fft::TransformSize FFTv4::plan_forced(uint64_t product_words, int bits) const {
    return fft::choose_transform(product_words, config_.mode, config_.max_log2_points, 0, nullptr, bits);
}

const fft::Transform& FFTv4::Layout::transform() const {
    return fft::get_transform(m, k, kConversionBlockExponent);
}

FFTv4::Layout FFTv4::layout(const fft::TransformSize& size, bool square) const {
    Layout l;
    l.m = size.m;
    l.k = size.k;
    l.points_bytes = stream_operands(size, config_) ? 0 : align_up(size.complex_points() * 16, 128);
    l.work_bytes = align_up(fft::transform_work_bytes(size.m, size.k), 128);
    l.scratch_bytes = transform_scratch(size) +
                      fft::SplitSource::scratch_bytes(size.complex_points());
    l.total_bytes = 128 + l.points_bytes + l.work_bytes * (square ? 1 : 2) + l.scratch_bytes;
    // Sizing a small transform builds it, so that a plan leaves its tables ready and the run
    // does not build them (they are small); large ones are built on first use only, since a plan
    // also sizes transforms that never run and their tables would stay in memory.
    if (size.complex_points() <= kPrebuiltMaxComplexPoints) l.transform();
    return l;
}

uint64_t FFTv4::buffer_bytes(uint64_t product_words, bool square) const {
    const fft::TransformSize size = plan(product_words);
    if (size.bits == 0)
        throw LimitExceededException(square ? "FFTv4::square_buffer_bytes()" : "FFTv4::multiply_buffer_bytes()",
                                     "Product of " + std::to_string(product_words) + " words is beyond this transform.");
    // A redo runs on the same size with fresh digits, so no room is kept for the size up.
    return layout(size, square).total_bytes;
}

uint64_t FFTv4::multiply_buffer_bytes(uint64_t product_words) const { return buffer_bytes(product_words, false); }

uint64_t FFTv4::square_buffer_bytes(uint64_t product_words) const { return buffer_bytes(product_words, true); }

uint64_t FFTv4::transform_buffer_bytes(uint64_t product_words) const {
    const fft::TransformSize size = plan(product_words);
    if (size.bits == 0)
        throw LimitExceededException("FFTv4::transform_buffer_bytes()",
                                     "Product of " + std::to_string(product_words) + " words is beyond this transform.");
    return 128 + 128 + layout(size, true).work_bytes;
}

uint64_t FFTv4::stored_multiply_buffer_bytes(uint64_t max_product_words) const {
    const fft::TransformSize size = plan(max_product_words);
    if (size.bits == 0)
        throw LimitExceededException("FFTv4::stored_multiply_buffer_bytes()",
                                     "Product of " + std::to_string(max_product_words) + " words is beyond this transform.");
    return layout(size, true).total_bytes;
}

uint64_t FFTv4::retry_count() { return g_retries.load(); }

void FFTv4::set_fault_injector(FaultInjector injector) { g_fault_injector.store(injector); }

void FFTv4::fixup_bottom(uint64_t* C, uint64_t CL, uint64_t expected) {
    const uint64_t stored = C[0];
    if (stored == expected) return;
    if (expected == stored + 1) {
        fft::add_signed_carry(C, 0, CL, 1);
        return;
    }
    if (expected == stored - 1) {
        fft::add_signed_carry(C, 0, CL, -1);
        return;
    }
    throw AlgorithmFailedException("FFTv4::fixup_bottom()", "Bottom word mismatch.");
}

double FFTv4::store(uint64_t* C, uint64_t CL, const fft::Block* points, uint64_t n_complex, int bits,
                    uint64_t coefficient_count, double limit, Parallelizer* parallelizer, uint64_t tds,
                    const fft::PointLayout& points_layout) {
    const fft::ReleaseStatus status =
        fft::release_points(points, n_complex, bits, coefficient_count, C, CL, parallelizer, tds, points_layout);
    if (status.max_distance <= limit && status.overrun) {
        throw AlgorithmFailedException("FFTv4::store()", "Index has overrun range: is > oe");
    }
    return status.max_distance;
}

double FFTv4::run_product(const fft::TransformSize& size, uint64_t* C, const uint64_t* A, uint64_t AL,
                          const uint64_t* B, uint64_t BL, void* scratch, const MultiplyContext& context,
                          uint64_t seed) const {
    const bool square = B == nullptr;
    const Layout l = layout(size, square);
    char* base = align_pointer(scratch);
    auto* points = reinterpret_cast<fft::Block*>(base);
    auto* work_a = reinterpret_cast<fft::Block*>(base + l.points_bytes);
    auto* work_b = reinterpret_cast<fft::Block*>(base + l.points_bytes + l.work_bytes);
    void* tscratch = base + l.points_bytes + l.work_bytes * (square ? 1 : 2);
    const uint64_t n = size.complex_points();
    Parallelizer* p = context.parallelizer;
    const uint64_t tds = task_count(context, config_, n);
    const fft::Transform& t = l.transform();

    // A square transforms once; a product keeps A's forward transform and runs B's forward,
    // the pointwise product and the inverse as one fused pass. Shapes that can read their input
    // inside the column pass take the operands' digits straight from the words.
    uint64_t coefficients;
    if (stream_operands(size, config_)) {
        auto* carries = reinterpret_cast<uint8_t*>(tscratch) + transform_scratch(size);
        const fft::SplitSource a(A, AL, size.bits, config_.mode, n, carries, p, tds, seed);
        fft::Block* out;
        if (square) {
            out = work_a;
            t.convolve(a, work_a, nullptr, out, tscratch, p, tds);
            coefficients = 2 * digits_of(AL, size.bits) + 1;
        } else {
            t.forward(a, work_a, tscratch, p, tds);
            const fft::SplitSource b(B, BL, size.bits, config_.mode, n, carries, p, tds, seed);
            out = work_b;
            t.convolve(b, work_b, work_a, out, tscratch, p, tds);
            coefficients = digits_of(AL, size.bits) + digits_of(BL, size.bits) + 1;
        }
        inject_fault(out, n);
        return store(C, AL + (square ? AL : BL), out, n, size.bits, coefficients, config_.max_distance_limit,
                     p, tds, t.work_layout());
    }
    fft::split_words(A, AL, size.bits, config_.mode, points, n, p, tds, seed);
    if (square) {
        t.convolve(points, work_a, nullptr, points, tscratch, p, tds);
        coefficients = 2 * digits_of(AL, size.bits) + 1;
    } else {
        t.forward(points, work_a, tscratch, p, tds);
        fft::split_words(B, BL, size.bits, config_.mode, points, n, p, tds, seed);
        t.convolve(points, work_b, work_a, points, tscratch, p, tds);
        coefficients = digits_of(AL, size.bits) + digits_of(BL, size.bits) + 1;
    }
    inject_fault(points, n);
    return store(C, AL + (square ? AL : BL), points, n, size.bits, coefficients, config_.max_distance_limit,
                 p, tds);
}

void FFTv4::product_with_retry(const char* function, uint64_t* C, const uint64_t* A, uint64_t AL,
                               const uint64_t* B, uint64_t BL, void* scratch, uint64_t scratch_bytes,
                               const MultiplyContext& context) const {
    const bool square = B == nullptr;
    const uint64_t product_words = AL + (square ? AL : BL);
    if (AL == 0 || (!square && BL == 0))
        throw InvalidParametersException(function, "Operands cannot be empty.");
    fft::TransformSize size = plan(product_words);
    if (size.bits == 0)
        throw LimitExceededException(function, "Product of " + std::to_string(product_words) +
                                                   " words is beyond this transform.");
    const uint64_t need = layout(size, square).total_bytes;
    if (scratch_bytes < need) throw BufferTooSmallException(function, scratch_bytes, need);

    double distance = run_product(size, C, A, AL, B, BL, scratch, context, fft::kDitherSeed);
    if (!(distance <= config_.max_distance_limit) && config_.retry_one_size_up) {
        // The redo takes the next size up where the scratch allows it, and always fresh dither
        // digits: an operand that defeats the default digits does not defeat these.
        const fft::TransformSize up = plan(product_words, true);
        const fft::TransformSize failed = size;
        if (up.bits != 0 && scratch_bytes >= layout(up, square).total_bytes) size = up;
        std::ostringstream event;
        event << "FFTv4: max distance " << distance << " on " << fft::describe(failed) << " for a "
              << product_words << "-word product; redone on " << fft::describe(size) << " with fresh digits.";
        EventLog::append(event.str());
        g_retries.fetch_add(1);
        distance = run_product(size, C, A, AL, B, BL, scratch, context, fft::fresh_dither_seed());
    }
    if (!(distance <= config_.max_distance_limit)) {
        std::ostringstream message;
        message << "Rounding error is too large: max distance = " << distance << " on "
                << fft::describe(size) << ".";
        throw AlgorithmFailedException(function, message.str());
    }
    fixup_bottom(C, product_words, A[0] * (square ? A[0] : B[0]));
}

void FFTv4::multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
                     void* scratch, uint64_t scratch_bytes, const MultiplyContext& context) const {
    product_with_retry("FFTv4::multiply()", C, A, AL, B, BL, scratch, scratch_bytes, context);
}

void FFTv4::square(uint64_t* C, const uint64_t* A, uint64_t AL, void* scratch, uint64_t scratch_bytes,
                   const MultiplyContext& context) const {
    product_with_retry("FFTv4::square()", C, A, AL, nullptr, 0, scratch, scratch_bytes, context);
}

// ---- Stored transforms.

namespace {

StoredHeader* header_of(void* T) { return reinterpret_cast<StoredHeader*>(align_pointer(T)); }
const StoredHeader* header_of(const void* T) { return header_of(const_cast<void*>(T)); }
fft::Block* work_of(const void* T) {
    return reinterpret_cast<fft::Block*>(reinterpret_cast<char*>(header_of(const_cast<void*>(T))) + 128);
}

}  // namespace

void FFTv4::forward_operand(void* T, uint64_t T_bytes, const uint64_t* A, uint64_t AL,
                            uint64_t max_product_words, void* scratch, uint64_t scratch_bytes,
                            const MultiplyContext& context) const {
    static const char* kFunction = "FFTv4::forward_operand()";
    if (AL == 0 || max_product_words <= AL)
        throw InvalidParametersException(kFunction, "Operand does not fit the product size.");
    const fft::TransformSize size = plan(max_product_words);
    if (size.bits == 0)
        throw LimitExceededException(kFunction, "Product of " + std::to_string(max_product_words) +
                                                    " words is beyond this transform.");
    forward_sized(kFunction, T, T_bytes, A, AL, size, scratch, scratch_bytes, context);
}

void FFTv4::forward_sized(const char* function, void* T, uint64_t T_bytes, const uint64_t* A, uint64_t AL,
                          const fft::TransformSize& size, void* scratch, uint64_t scratch_bytes,
                          const MultiplyContext& context) const {
    const Layout l = layout(size, true);
    const uint64_t t_need = 128 + 128 + l.work_bytes;
    if (T_bytes < t_need) throw BufferTooSmallException(function, T_bytes, t_need);
    if (scratch_bytes < l.total_bytes) throw BufferTooSmallException(function, scratch_bytes, l.total_bytes);
    if (fft::split_digit_count(AL, size.bits) + 2 > size.real_points())
        throw InvalidParametersException(function, "Operand does not fit the product size.");

    char* base = align_pointer(scratch);
    auto* points = reinterpret_cast<fft::Block*>(base);
    void* tscratch = base + l.points_bytes + l.work_bytes;
    Parallelizer* p = context.parallelizer;
    const uint64_t tds = task_count(context, config_, size.complex_points());
    if (stream_operands(size, config_)) {
        auto* carries = reinterpret_cast<uint8_t*>(tscratch) + transform_scratch(size);
        const fft::SplitSource a(A, AL, size.bits, config_.mode, size.complex_points(), carries, p, tds);
        l.transform().forward(a, work_of(T), tscratch, p, tds);
    } else {
        fft::split_words(A, AL, size.bits, config_.mode, points, size.complex_points(), p, tds);
        l.transform().forward(points, work_of(T), tscratch, p, tds);
    }

    StoredHeader* h = header_of(T);
    *h = StoredHeader{kStoredMagic, this, size.m, size.k, size.bits, static_cast<int32_t>(config_.mode), AL, A[0]};
}

namespace {

fft::TransformSize stored_size(const StoredHeader& h) { return fft::TransformSize{h.m, h.k, h.bits}; }

}  // namespace

double FFTv4::release_stored(uint64_t* C, uint64_t CL, const fft::TransformSize& size, const fft::Block* points,
                             const fft::PointLayout& points_layout, uint64_t coefficient_count,
                             const MultiplyContext& context) const {
    inject_fault(const_cast<fft::Block*>(points), size.complex_points());
    return store(C, CL, points, size.complex_points(), size.bits, coefficient_count, config_.max_distance_limit,
                 context.parallelizer, task_count(context, config_, size.complex_points()), points_layout);
}

double FFTv4::stored_convolve(uint64_t* C, uint64_t CL, const fft::TransformSize& size, const uint64_t* X,
                              uint64_t XL, const fft::Block* other, uint64_t coefficient_count, uint64_t seed,
                              void* scratch, const MultiplyContext& context) const {
    const Layout l = layout(size, true);
    char* base = align_pointer(scratch);
    auto* points = reinterpret_cast<fft::Block*>(base);
    auto* work = reinterpret_cast<fft::Block*>(base + l.points_bytes);
    void* tscratch = base + l.points_bytes + l.work_bytes;
    Parallelizer* p = context.parallelizer;
    const uint64_t n = size.complex_points();
    const uint64_t tds = task_count(context, config_, n);
    // X is read completely before the release writes C, so X may be C's own words.
    if (stream_operands(size, config_)) {
        auto* carries = reinterpret_cast<uint8_t*>(tscratch) + transform_scratch(size);
        const fft::SplitSource x(X, XL, size.bits, config_.mode, n, carries, p, tds, seed);
        l.transform().convolve(x, work, other, work, tscratch, p, tds);
        return release_stored(C, CL, size, work, l.transform().work_layout(), coefficient_count, context);
    }
    fft::split_words(X, XL, size.bits, config_.mode, points, n, p, tds, seed);
    l.transform().convolve(points, work, other, points, tscratch, p, tds);
    return release_stored(C, CL, size, points, fft::PointLayout{}, coefficient_count, context);
}

void FFTv4::recover_operand(const char* function, uint64_t* W, const void* T, void* scratch,
                            const MultiplyContext& context) const {
    const StoredHeader& h = *header_of(T);
    const fft::TransformSize size = stored_size(h);
    const Layout l = layout(size, true);
    char* base = align_pointer(scratch);
    auto* work = reinterpret_cast<fft::Block*>(base + l.points_bytes);
    Parallelizer* p = context.parallelizer;
    const uint64_t tds = task_count(context, config_, size.complex_points());
    std::memcpy(work, work_of(T), l.transform().work_bytes());
    l.transform().inverse(work, work, base + l.points_bytes + l.work_bytes, p, tds);
    const double distance = store(W, h.operand_words, work, size.complex_points(), size.bits,
                                  digits_of(h.operand_words, size.bits) + 1, config_.max_distance_limit, p, tds,
                                  l.transform().work_layout());
    if (!(distance <= config_.max_distance_limit) || W[0] != h.bottom_word)
        throw AlgorithmFailedException(function, "Stored transform does not hold its operand.");
}

template <class Redo>
double FFTv4::finish_stored(const char* function, uint64_t* C, uint64_t CL, const fft::TransformSize& size,
                            double distance, uint64_t bottom, Redo redo) const {
    if (!(distance <= config_.max_distance_limit) && config_.retry_one_size_up) {
        std::ostringstream event;
        event << "FFTv4: max distance " << distance << " on " << fft::describe(size) << " for a " << CL
              << "-word product from a stored transform; redone with fresh digits.";
        EventLog::append(event.str());
        g_retries.fetch_add(1);
        distance = redo(fft::fresh_dither_seed());
    }
    if (!(distance <= config_.max_distance_limit)) {
        std::ostringstream message;
        message << "Rounding error is too large: max distance = " << distance << " on " << fft::describe(size) << ".";
        throw AlgorithmFailedException(function, message.str());
    }
    fixup_bottom(C, CL, bottom);
    return distance;
}

double FFTv4::multiply_transformed(uint64_t* C, const void* TA, const uint64_t* B, uint64_t BL, void* scratch,
                                   uint64_t scratch_bytes, const MultiplyContext& context) const {
    static const char* kFunction = "FFTv4::multiply_transformed()";
    const StoredHeader& h = *header_of(TA);
    const fft::TransformSize size = stored_size(h);
    const bool compatible = h.magic == kStoredMagic && h.owner == this && BL != 0 &&
                            digits_of(h.operand_words, size.bits) + digits_of(BL, size.bits) + 1 + 1 <=
                                size.real_points();
    if (!compatible)
        throw InvalidParametersException(kFunction, "Stored transform is incompatible with this product.");
    const Layout l = layout(size, true);
    if (scratch_bytes < l.total_bytes) throw BufferTooSmallException(kFunction, scratch_bytes, l.total_bytes);

    const uint64_t CL = h.operand_words + BL;
    const uint64_t coefficients = digits_of(h.operand_words, size.bits) + digits_of(BL, size.bits) + 1;
    // B is split afresh on a redo: the stored digits of A stay as they are.
    auto run = [&](uint64_t seed) {
        return stored_convolve(C, CL, size, B, BL, work_of(TA), coefficients, seed, scratch, context);
    };
    return finish_stored(kFunction, C, CL, size, run(fft::kDitherSeed), h.bottom_word * B[0], run);
}

double FFTv4::multiply_transformed(uint64_t* C, const void* TA, const void* TB, void* scratch, uint64_t scratch_bytes,
                                   const MultiplyContext& context) const {
    static const char* kFunction = "FFTv4::multiply_transformed()";
    const StoredHeader& ha = *header_of(TA);
    const StoredHeader& hb = *header_of(TB);
    const fft::TransformSize size = stored_size(ha);
    const bool compatible = ha.magic == kStoredMagic && hb.magic == kStoredMagic && ha.owner == this &&
                            hb.owner == this && size == stored_size(hb) &&
                            digits_of(ha.operand_words, size.bits) + digits_of(hb.operand_words, size.bits) + 2 <=
                                size.real_points();
    if (!compatible)
        throw InvalidParametersException(kFunction, "Stored transform is incompatible with this product.");
    const Layout l = layout(size, true);
    if (scratch_bytes < l.total_bytes) throw BufferTooSmallException(kFunction, scratch_bytes, l.total_bytes);

    char* base = align_pointer(scratch);
    auto* work = reinterpret_cast<fft::Block*>(base + l.points_bytes);
    std::memcpy(work, work_of(TA), l.transform().work_bytes());
    const uint64_t tds = task_count(context, config_, size.complex_points());
    l.transform().pointwise_multiply(work, work_of(TB), context.parallelizer, tds);
    l.transform().inverse(work, work, base + l.points_bytes + l.work_bytes, context.parallelizer, tds);
    const uint64_t CL = ha.operand_words + hb.operand_words;
    const uint64_t coefficients = digits_of(ha.operand_words, size.bits) + digits_of(hb.operand_words, size.bits) + 1;
    // A redo takes B's words back from its transform into C and splits them afresh.
    auto redo = [&](uint64_t seed) {
        recover_operand(kFunction, C, TB, scratch, context);
        return stored_convolve(C, CL, size, C, hb.operand_words, work_of(TA), coefficients, seed, scratch, context);
    };
    return finish_stored(kFunction, C, CL, size, release_stored(C, CL, size, work, l.transform().work_layout(), coefficients, context),
                         ha.bottom_word * hb.bottom_word, redo);
}

double FFTv4::square_transformed(uint64_t* C, const void* TA, void* scratch, uint64_t scratch_bytes,
                                 const MultiplyContext& context) const {
    static const char* kFunction = "FFTv4::square_transformed()";
    const StoredHeader& h = *header_of(TA);
    const fft::TransformSize size = stored_size(h);
    const bool compatible = h.magic == kStoredMagic && h.owner == this &&
                            2 * digits_of(h.operand_words, size.bits) + 2 <= size.real_points();
    if (!compatible)
        throw InvalidParametersException(kFunction, "Stored transform is incompatible with this product.");
    const Layout l = layout(size, true);
    if (scratch_bytes < l.total_bytes) throw BufferTooSmallException(kFunction, scratch_bytes, l.total_bytes);

    char* base = align_pointer(scratch);
    auto* work = reinterpret_cast<fft::Block*>(base + l.points_bytes);
    std::memcpy(work, work_of(TA), l.transform().work_bytes());
    const uint64_t tds = task_count(context, config_, size.complex_points());
    l.transform().pointwise_square(work, context.parallelizer, tds);
    l.transform().inverse(work, work, base + l.points_bytes + l.work_bytes, context.parallelizer, tds);
    const uint64_t CL = 2 * h.operand_words;
    const uint64_t coefficients = 2 * digits_of(h.operand_words, size.bits) + 1;
    // A redo takes A's words back into C and squares them split afresh.
    auto redo = [&](uint64_t seed) {
        recover_operand(kFunction, C, TA, scratch, context);
        return stored_convolve(C, CL, size, C, h.operand_words, nullptr, coefficients, seed, scratch, context);
    };
    return finish_stored(kFunction, C, CL, size, release_stored(C, CL, size, work, l.transform().work_layout(), coefficients, context),
                         h.bottom_word * h.bottom_word, redo);
}

void register_fftv4(AlgorithmRegistry& registry) {
    registry.add("FFTv4", [](const NamedAlgorithmEntry& entry) {
        const FFTv4::Config config;
        const uint64_t words = std::min(entry.threshold_words, FFTv4::max_product_words_for(config));
        return std::make_unique<FFTv4>(words, config);
    });
}

}  // namespace qmp
