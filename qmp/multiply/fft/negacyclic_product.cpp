// Products modulo B^N + 1 (see negacyclic_product.h).
//
// Release: the 2n coefficients c_j give S = sum c_j 2^(j b), signed (dithered digits), with
// |S| < 2^(64 N + 60). release_points() writes S modulo B^(N+2) into N + 2 words; a negative S
// leaves a borrow above them, which it reports as an overrun: that is accepted only when the top
// word shows the negative sign. Then S = L + T B^N with L the low N words and T the signed top
// two words, and S = L - T modulo B^N + 1.
#include "qmp/multiply/fft/negacyclic_product.h"

#include <string>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/multiply/fft/release.h"
#include "qmp/multiply/fft/split.h"
#include "qmp/multiply/fft/transform.h"
#include "qmp/words/word_array.h"

namespace qmp::fft {

namespace {

constexpr int kMaxTds = 256;
constexpr uint64_t kMinParallelComplexPoints = uint64_t(1) << 16;  // as FFTv4's default
constexpr double kMaxDistance = 0.3;
constexpr const char* kMultiply = "NegacyclicProduct::multiply()";

uint64_t align_up(uint64_t x, uint64_t a) { return (x + a - 1) / a * a; }

char* align_pointer(void* p) {
    return reinterpret_cast<char*>(align_up(reinterpret_cast<uintptr_t>(p), 128));
}

uint64_t tasks(const TransformSize& size, Parallelizer* parallelizer, uint64_t tds) {
    return parallelizer == nullptr || size.complex_points() < kMinParallelComplexPoints ? 1 : tds;
}

const Transform& transform_of(const TransformSize& size) { return get_transform(size.m, size.k, 6); }

void log_redo(const char* function, double distance, const TransformSize& size) {
    EventLog::append(std::string(function) + ": max distance " + std::to_string(distance) + " on " + describe(size) +
                     "; redone with fresh digits.");
}

// Operands are split straight into the transform's column pass when the points would not stay
// in the last-level cache (FFTv4's rule and threshold, 16 MiB of points).
// Streamed operands need no points array: inverses then run in place in the work area.
bool streams(const Transform& t) { return t.streams_input() && t.complex_points() * 16 >= (uint64_t(16) << 20); }
bool streams(const TransformSize& s) {
    return transform_streams_input(s.m, s.k) && s.complex_points() * 16 >= (uint64_t(16) << 20);
}
uint64_t points_bytes(const Transform& t) { return streams(t) ? 0 : align_up(t.complex_points() * 16, 128); }
// Where the points of a product are released from: `points` (split input and output), or the
// work area when the operands stream.
Block* product_points(const Transform& t, Block* points, Block* work) { return streams(t) ? work : points; }
PointLayout product_layout(const Transform& t) { return streams(t) ? t.work_layout() : PointLayout{}; }

// Forward transform (into `work`) or product with `other` (into product_points()) of A's
// digits, split into `points` first or streamed from the words.
void transform_operand(const Transform& t, const uint64_t* A, uint64_t AL, int bits, Block* points, Block* work,
                       const Block* other, void* tscratch, uint8_t* carries, Parallelizer* parallelizer,
                       uint64_t ts, uint64_t seed = kDitherSeed) {
    const uint64_t n = t.complex_points();
    if (streams(t)) {
        const SplitSource source(A, AL, bits, DigitMode::Dithered, n, carries, parallelizer, ts, seed);
        if (other == nullptr)
            t.forward(source, work, tscratch, parallelizer, ts);
        else
            t.convolve(source, work, other, work, tscratch, parallelizer, ts);
        return;
    }
    split_words(A, AL, bits, DigitMode::Dithered, points, n, parallelizer, ts, seed);
    if (other == nullptr)
        t.forward(points, work, tscratch, parallelizer, ts);
    else
        t.convolve(points, work, other, points, tscratch, parallelizer, ts);
}

}  // namespace

NegacyclicProduct::NegacyclicProduct(uint64_t min_words) {
    uint64_t best_points = 0;
    for (int m : {1, 3, 5, 7}) {
        for (int k = minimum_k(m); ceil_log2_points(m, k) <= kLimitMaxLog2Points; ++k) {
            const int bits = bits_per_point(m, k, DigitMode::Dithered) - 1;
            if (bits <= 0) break;
            const TransformSize size{m, k, bits};
            if (size.real_points() * uint64_t(bits) / 64 < min_words) continue;
            if (best_points == 0 || size.real_points() < best_points) {
                best_points = size.real_points();
                size_ = size;
            }
            break;
        }
    }
    if (best_points == 0)
        throw LimitExceededException("NegacyclicProduct::NegacyclicProduct()",
                                     "Modulus of " + std::to_string(min_words) + " words is beyond this transform.");
    words_ = size_.real_points() * uint64_t(size_.bits) / 64;
}

NegacyclicProduct::NegacyclicProduct(const TransformSize& size) : size_(size) {
    const bool valid = size.k >= minimum_k(size.m) && ceil_log2_points(size.m, size.k) <= kLimitMaxLog2Points &&
                       size.bits >= 2 && size.bits <= bits_per_point(size.m, size.k, DigitMode::Dithered) - 1 &&
                       size.real_points() * uint64_t(size.bits) % 64 == 0;
    if (!valid)
        throw InvalidParametersException("NegacyclicProduct::NegacyclicProduct()", "Invalid negacyclic transform size.");
    words_ = size_.real_points() * uint64_t(size_.bits) / 64;
}

uint64_t NegacyclicProduct::stored_bytes() const { return align_up(transform_work_bytes(size_.m, size_.k), 128); }

// [ align | points (none when operands stream) | work | transform scratch | N + 2 released words |
//   split carries ]
uint64_t NegacyclicProduct::scratch_bytes() const {
    const uint64_t points = streams(size_) ? 0 : align_up(size_.complex_points() * 16, 128);
    return 128 + points + align_up(transform_work_bytes(size_.m, size_.k), 128) +
           align_up(transform_scratch_bytes(size_.m, size_.k, kMaxTds), 128) + align_up((words_ + 2) * 8, 128) +
           SplitSource::scratch_bytes(size_.complex_points());
}

void NegacyclicProduct::forward(void* T, const uint64_t* A, uint64_t AL, void* scratch, Parallelizer* parallelizer,
                                uint64_t tds) const {
    if (AL == 0 || AL >= words_)
        throw InvalidParametersException("NegacyclicProduct::forward()", "Operand does not fit the transform.");
    const Transform& t = transform_of(size_);
    const uint64_t ts = tasks(size_, parallelizer, tds);
    char* base = align_pointer(scratch);
    auto* points = reinterpret_cast<Block*>(base);
    void* tscratch = base + points_bytes(t) + align_up(t.work_bytes(), 128);
    auto* carries = static_cast<uint8_t*>(tscratch) + align_up(t.scratch_bytes(kMaxTds), 128) +
                    align_up((words_ + 2) * 8, 128);
    transform_operand(t, A, AL, size_.bits, points, static_cast<Block*>(T), nullptr, tscratch, carries, parallelizer,
                      ts);
}

double NegacyclicProduct::multiply(uint64_t* C, const void* TA, const uint64_t* B, uint64_t BL, void* scratch,
                                   Parallelizer* parallelizer, uint64_t tds) const {
    if (BL == 0 || BL >= words_) throw InvalidParametersException(kMultiply, "Operand does not fit the transform.");
    const Transform& t = transform_of(size_);
    const uint64_t ts = tasks(size_, parallelizer, tds);
    char* base = align_pointer(scratch);
    auto* points = reinterpret_cast<Block*>(base);
    auto* work = reinterpret_cast<Block*>(base + points_bytes(t));
    void* tscratch = base + points_bytes(t) + align_up(t.work_bytes(), 128);
    auto* S = reinterpret_cast<uint64_t*>(static_cast<char*>(tscratch) + align_up(t.scratch_bytes(kMaxTds), 128));
    auto* carries = reinterpret_cast<uint8_t*>(S) + align_up((words_ + 2) * 8, 128);
    // A redo splits B with fresh digits against the same stored transform of A.
    auto attempt = [&](uint64_t seed) {
        transform_operand(t, B, BL, size_.bits, points, work, static_cast<const Block*>(TA), tscratch, carries,
                          parallelizer, ts, seed);
        return release(C, product_points(t, points, work), product_layout(t), S, parallelizer, tds, kMultiply);
    };
    double distance = attempt(kDitherSeed);
    if (!(distance <= kMaxDistance)) {
        log_redo(kMultiply, distance, size_);
        distance = attempt(fresh_dither_seed());
    }
    if (!(distance <= kMaxDistance)) throw AlgorithmFailedException(kMultiply, "Rounding error is too large.");
    return distance;
}

double NegacyclicProduct::square(uint64_t* C, const void* TA, void* scratch, Parallelizer* parallelizer,
                                 uint64_t tds) const {
    const Transform& t = transform_of(size_);
    const uint64_t n = size_.complex_points(), ts = tasks(size_, parallelizer, tds);
    char* base = align_pointer(scratch);
    auto* points = reinterpret_cast<Block*>(base);
    auto* work = reinterpret_cast<Block*>(base + points_bytes(t));
    void* tscratch = base + points_bytes(t) + align_up(t.work_bytes(), 128);
    auto* S = reinterpret_cast<uint64_t*>(static_cast<char*>(tscratch) + align_up(t.scratch_bytes(kMaxTds), 128));
    static const char* kSquare = "NegacyclicProduct::square()";
    copy_words(reinterpret_cast<uint64_t*>(work), static_cast<const uint64_t*>(TA), t.work_bytes() / 8);
    t.pointwise_square(work, parallelizer, ts);
    t.inverse(work, work, tscratch, parallelizer, ts);
    double distance = release(C, work, t.work_layout(), S, parallelizer, tds, kSquare);
    if (!(distance <= kMaxDistance)) {
        // A redo takes A's words back from its transform (the inverse of the forward transform
        // alone) into S and squares them split with fresh digits.
        log_redo(kSquare, distance, size_);
        copy_words(reinterpret_cast<uint64_t*>(work), static_cast<const uint64_t*>(TA), t.work_bytes() / 8);
        t.inverse(work, work, tscratch, parallelizer, ts);
        const ReleaseStatus operand =
            release_points(work, n, size_.bits, 2 * n, S, words_, parallelizer, ts, t.work_layout());
        if (!(operand.max_distance <= kMaxDistance) || operand.overrun)
            throw AlgorithmFailedException(kSquare, "Stored transform does not hold its operand.");
        auto* carries = reinterpret_cast<uint8_t*>(S) + align_up((words_ + 2) * 8, 128);
        transform_operand(t, S, normalized_length(S, words_), size_.bits, points, work, nullptr, tscratch, carries,
                          parallelizer, ts, fresh_dither_seed());
        t.pointwise_square(work, parallelizer, ts);
        t.inverse(work, work, tscratch, parallelizer, ts);
        distance = release(C, work, t.work_layout(), S, parallelizer, tds, kSquare);
    }
    if (!(distance <= kMaxDistance)) throw AlgorithmFailedException(kSquare, "Rounding error is too large.");
    return distance;
}

double NegacyclicProduct::release(uint64_t* C, const void* points_in, const PointLayout& layout, uint64_t* S,
                                  Parallelizer* parallelizer,
                                  uint64_t tds, const char* function) const {
    const uint64_t n = size_.complex_points(), ts = tasks(size_, parallelizer, tds), N = words_;
    const auto* points = static_cast<const Block*>(points_in);
    const ReleaseStatus status = release_points(points, n, size_.bits, 2 * n, S, N + 2, parallelizer, ts, layout);
    if (!(status.max_distance <= kMaxDistance)) return status.max_distance;  // the caller redoes or fails
    const bool negative = (S[N + 1] >> 63) != 0;
    if (status.overrun && !negative) throw AlgorithmFailedException(function, "Product has overrun its range.");

    // C = L - T mod (B^N + 1), T = S[N] + S[N+1] B as a signed 128-bit value.
    copy_words(C, S, N);
    C[N] = 0;
    uint64_t t_words[2] = {S[N], S[N + 1]};
    if (!negative) {
        if (sub(C, C, N, t_words, 2) != 0) C[N] = add_1(C, C, N, uint64_t(1));  // + B^N + 1
    } else {
        neg(t_words, t_words, 2);  // |T|
        C[N] = add(C, C, N, t_words, 2);
        // At most B^N + |T| < 2 M: one subtraction of M = B^N + 1 when C >= M.
        if (C[N] != 0 && !is_zero(C, N)) {
            sub_1(C, C, N, uint64_t(1));
            C[N] = 0;
        }
    }
    return status.max_distance;
}

}  // namespace qmp::fft
