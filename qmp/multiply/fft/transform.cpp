// The transform shapes, their construction checks, the shared cache of transforms and the
// huge-page hint. Shape choice in get_transform(): sub-transforms of at most 128 blocks (1024
// complex points, 16 KiB: L1) are swept whole (SmallTransform); longer ones run as four-step
// grids of 128-block rows (LargeTransform). Both shapes execute through TransformEngine, which
// picks the pass structure from the sub-transform length alone.
#include "qmp/multiply/fft/transform.h"

#include "qmp/cpu_features.h"
#include "qmp/exception.h"
#include "qmp/multiply/fft/reduction.h"
#include "qmp/multiply/fft/transform_engine.h"

#include <sys/mman.h>

#include <map>
#include <memory>
#include <mutex>
#include <tuple>

namespace qmp::fft {
namespace {

constexpr int kMinSubExponent = 6;   // 8 blocks: the in-block levels need whole blocks
constexpr int kMaxK = 40;
constexpr int kSmallMaxSubExponent = 10;

// The construction checks of both shapes, in order: the reduction lookup (which rejects the
// multiplier), the minimum sub-transform length, then the shape's own block-size check.
const TransformEngine* checked_engine(const char* function, int m, int k, bool block_size_ok,
                                      const char* block_size_message) {
    const Reduction& red = get_reduction(m, k);
    if (k - red.depth < kMinSubExponent)
        throw InvalidParametersException(function, "Transform length is below minimum size.");
    if (!block_size_ok) throw InvalidParametersException(function, block_size_message);
    if (k > kMaxK) throw InvalidParametersException(function, "Transform length is too large.");
    return new TransformEngine(m, k);
}

int sub_exponent_of(int m, int k) { return k - get_reduction(m, k).depth; }

class CustomTransform final : public Transform {
public:
    CustomTransform(int m, int k, const TransformEngine* engine) : Transform(m, k, engine) {}
};

}  // namespace

Transform::Transform(int m, int k, const TransformEngine* engine)
    : multiplier_(m), k_(k), complex_points_(uint64_t(m) << (k - 1)), engine_(engine) {}

Transform::~Transform() { delete engine_; }

uint64_t Transform::work_bytes() const { return engine_->work_blocks() * sizeof(Block); }

// The engine's geometry: w sub-transforms of B = 2^(k-d-3) blocks at a pitch of B + 1 + B/128,
// one extra block; four-step grids of R = B/128 rows stream their input from R >= 8.
uint64_t transform_work_bytes(int m, int k) {
    const Reduction& red = get_reduction(m, k);
    const uint64_t blocks = uint64_t(1) << (k - red.depth - 3);
    return (uint64_t(red.sub_transforms) * (blocks + 1 + blocks / 128) + 1) * sizeof(Block);
}

bool transform_streams_input(int m, int k) { return k - get_reduction(m, k).depth - 3 >= 7 + 3; }

uint64_t transform_scratch_bytes(int, int, uint64_t) { return 0; }

uint64_t Transform::scratch_bytes(uint64_t tds) const { return transform_scratch_bytes(multiplier_, k_, tds); }

void Transform::forward(const Block* input, Block* work, void* scratch, Parallelizer* p,
                        uint64_t tds) const {
    (void)scratch;
    engine_->forward(input, work, p, tds);
}

void Transform::pointwise_multiply(Block* a, const Block* b, Parallelizer* p, uint64_t tds) const {
    engine_->multiply(a, b, p, tds);
}

void Transform::pointwise_square(Block* a, Parallelizer* p, uint64_t tds) const {
    engine_->square(a, p, tds);
}

void Transform::inverse(Block* work, Block* output, void* scratch, Parallelizer* p,
                        uint64_t tds) const {
    (void)scratch;
    engine_->inverse(work, output, p, tds);
}

void Transform::convolve(const Block* input, Block* work, const Block* other, Block* output, void* scratch,
                         Parallelizer* p, uint64_t tds) const {
    (void)scratch;
    engine_->convolve(input, work, other, output, p, tds);
}

bool Transform::streams_input() const { return engine_->streams_input(); }

PointLayout Transform::work_layout() const { return engine_->work_layout(); }

void Transform::forward(const BlockSource& input, Block* work, void* scratch, Parallelizer* p, uint64_t tds) const {
    (void)scratch;
    if (!streams_input())
        throw InvalidParametersException("FFTv4::Transform::forward()", "This transform cannot stream its input.");
    engine_->forward(input, work, p, tds);
}

void Transform::convolve(const BlockSource& input, Block* work, const Block* other, Block* output, void* scratch,
                         Parallelizer* p, uint64_t tds) const {
    (void)scratch;
    if (!streams_input())
        throw InvalidParametersException("FFTv4::Transform::convolve()", "This transform cannot stream its input.");
    engine_->convolve(input, work, other, output, p, tds);
}

std::string Transform::description() const {
    const TransformEngine& e = *engine_;
    std::string s = "FFT " + std::to_string(multiplier_) + "*2^" + std::to_string(k_) + " real: " +
                    std::to_string(e.sub_transforms()) + " x 2^" + std::to_string(e.sub_exponent());
    if (e.four_step()) s += ", four-step " + std::to_string(e.rows()) + " x 128 blocks";
    s += ", ";
    s += simd_level_name(active_simd_level());
    return s;
}

SmallTransform::SmallTransform(int m, int k, int conversion_block_exponent)
    : Transform(m, k,
                checked_engine("FFTv4::SmallTransform()", m, k, conversion_block_exponent <= k,
                               "Transform length is not divisible by conversion block size.")) {}

LargeTransform::LargeTransform(int m, int k, int conversion_block_exponent)
    : Transform(m, k,
                checked_engine("FFTv4::LargeTransform()", m, k,
                               conversion_block_exponent <= sub_exponent_of(m, k),
                               "Sub-transform length is smaller than the conversion block size.")) {}

namespace {

std::mutex g_cache_mutex;
std::map<std::tuple<int, int, int>, std::unique_ptr<Transform>> g_cache;

}  // namespace

uint64_t twiddle_bytes_built() {
    std::lock_guard<std::mutex> lock(g_cache_mutex);
    uint64_t bytes = 0;
    for (const auto& [key, transform] : g_cache) bytes += transform->engine().twiddle_bytes();
    return bytes;
}

const Transform& get_transform(int m, int k, int conversion_block_exponent) {
    auto& cache = g_cache;
    const auto key = std::make_tuple(m, k, conversion_block_exponent);
    std::lock_guard<std::mutex> lock(g_cache_mutex);
    auto it = cache.find(key);
    if (it != cache.end()) return *it->second;
    const int sub_exponent = sub_exponent_of(m, k);
    std::unique_ptr<Transform> t;
    if (sub_exponent <= kSmallMaxSubExponent) t = std::make_unique<SmallTransform>(m, k, conversion_block_exponent);
    else t = std::make_unique<LargeTransform>(m, k, conversion_block_exponent);
    const Transform& ref = *t;
    cache.emplace(key, std::move(t));
    return ref;
}

std::unique_ptr<Transform> make_perturbed_transform(int m, int k, int sub, int depth, uint64_t group,
                                                    double delta) {
    auto* engine = const_cast<TransformEngine*>(
        checked_engine("FFTv4::make_perturbed_transform()", m, k, true, ""));
    engine->perturb_twiddle(sub, depth, group, delta);
    return std::make_unique<CustomTransform>(m, k, engine);
}

void advise_huge_pages(void* buffer, uint64_t size_bytes) {
    constexpr uint64_t kHuge = uint64_t(1) << 21;
    const uint64_t begin = (reinterpret_cast<uint64_t>(buffer) + kHuge - 1) & ~(kHuge - 1);
    const uint64_t end = (reinterpret_cast<uint64_t>(buffer) + size_bytes) & ~(kHuge - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace qmp::fft
