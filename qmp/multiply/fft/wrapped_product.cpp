// The wrapped (negacyclic) stored-transform product.
//
//   S = sum_j c_j 2^(j b)  (c_j the rounded inverse coefficients, j < 2n)
//     = A * B mod (2^N + 1) up to a multiple of 2^N + 1, |S| < 2^(N + 64)
//   result = (S mod 2^N) - floor(S / 2^N)  (mod 2^N + 1), of which the low words are kept;
// the kept words lie below N, and 2^N + 1 = 1 modulo 2^(64 kept), so a wrap of the result is a
// unit at the bottom word, no more.
#include "qmp/multiply/fft/wrapped_product.h"

#include <algorithm>
#include <string>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/multiply/fft/release.h"
#include "qmp/multiply/fft/split.h"
#include "qmp/multiply/fft/fftv4.h"

namespace qmp::fft {

using qmp::FFTv4;

namespace {

constexpr uint64_t align128(uint64_t x) { return (x + 127) / 128 * 128; }
constexpr double kMaxDistance = 0.3;
// Transforms below this many complex points stay on the calling thread (as in FFTv4).
constexpr uint64_t kMinParallelComplexPoints = uint64_t(1) << 16;

}  // namespace

WrappedProduct::WrappedProduct(uint64_t a_words, uint64_t b_words, uint64_t kept_words, DigitMode mode,
                               uint64_t stream_min_points_bytes)
    : mode_(mode), a_words_(a_words), b_words_(b_words), kept_words_(kept_words) {
    const uint64_t need_bits = std::max<uint64_t>(64 * kept_words, 64 * std::max(a_words, b_words));
    bool found = false;
    for (int log2 = kLimitMinLog2Points; log2 <= kLimitMaxLog2Points && !found; ++log2) {
        // Sizes in increasing order within one power of two: m 2^k with k = log2 - ceil(log2 m).
        for (int m : {1, 3, 5, 7}) {
            const int k = log2 - (m == 1 ? 0 : m == 3 ? 2 : 3);
            if (k < minimum_k(m)) continue;
            const int bits = bits_per_point(m, k, mode) - 1;
            if (bits <= 1) continue;
            const uint64_t points = uint64_t(m) << k;
            // Digits of each operand plus its carry digit, and the window below N.
            if (split_digit_count(std::max(a_words, b_words), bits) + 1 > points) continue;
            if (uint64_t(bits) * points < need_bits + 64) continue;
            if (!found || points < size_.real_points()) {
                size_ = TransformSize{m, k, bits};
                found = true;
            }
        }
    }
    if (!found)
        throw LimitExceededException("WrappedProduct::WrappedProduct()",
                                     "Product of " + std::to_string(a_words) + " words is beyond this transform.");
    transform_ = &get_transform(size_.m, size_.k, FFTv4::kConversionBlockExponent);
    release_words_ = (uint64_t(size_.bits) * size_.real_points() + 63) / 64 + 2;
    // Streamed operands need no points array: one transform-sized area fewer.
    streams_ = transform_->streams_input() && size_.complex_points() * 16 >= stream_min_points_bytes;
    points_bytes_ = streams_ ? 0 : align128(std::max(size_.complex_points() * 16, release_words_ * 8));
    work_bytes_ = align128(transform_->work_bytes());
    carry_bytes_ = streams_ ? align128(SplitSource::scratch_bytes(size_.complex_points())) : 0;
}

uint64_t WrappedProduct::scratch_bytes() const noexcept {
    return 128 + points_bytes_ + work_bytes_ + align128(transform_->scratch_bytes(64)) + align128(release_words_ * 8) +
           carry_bytes_;
}

// Scratch layout: [points (none when streaming) | work | transform scratch | S | split carries].
uint8_t* WrappedProduct::carries(char* base) const noexcept {
    return reinterpret_cast<uint8_t*>(base + points_bytes_ + work_bytes_ + align128(transform_->scratch_bytes(64)) +
                                      align128(release_words_ * 8));
}

uint64_t WrappedProduct::task_count(uint64_t tds) const noexcept {
    return size_.complex_points() >= kMinParallelComplexPoints ? tds : 1;
}

void WrappedProduct::forward_stored(void* T, const uint64_t* B, uint64_t BL, void* scratch, Parallelizer* p,
                                    uint64_t tds) const {
    if (BL > b_words_) throw InvalidParametersException("WrappedProduct::forward_stored()", "Operand does not fit the product size.");
    char* base = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(scratch) + 127) & ~uintptr_t(127));
    auto* points = reinterpret_cast<Block*>(base);
    void* tscratch = base + points_bytes_ + work_bytes_;
    const uint64_t t = task_count(tds);
    if (streams_) {
        const SplitSource source(B, BL, size_.bits, mode_, size_.complex_points(), carries(base), p, t);
        transform_->forward(source, static_cast<Block*>(T), tscratch, p, t);
        return;
    }
    split_words(B, BL, size_.bits, mode_, points, size_.complex_points(), p, t);
    transform_->forward(points, static_cast<Block*>(T), tscratch, p, t);
}

double WrappedProduct::multiply(uint64_t* C, const uint64_t* A, uint64_t AL, const void* T, void* scratch,
                                Parallelizer* p, uint64_t tds) const {
    const char* function = "WrappedProduct::multiply()";
    if (AL > a_words_) throw InvalidParametersException(function, "Operand does not fit the product size.");
    char* base = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(scratch) + 127) & ~uintptr_t(127));
    auto* points = reinterpret_cast<Block*>(base);
    auto* work = reinterpret_cast<Block*>(base + points_bytes_);
    void* tscratch = base + points_bytes_ + work_bytes_;
    auto* S = reinterpret_cast<uint64_t*>(base + points_bytes_ + work_bytes_ + align128(transform_->scratch_bytes(64)));
    const uint64_t t = task_count(tds);
    const uint64_t SL = release_words_;
    auto attempt = [&](uint64_t seed) {
        if (streams_) {
            const SplitSource source(A, AL, size_.bits, mode_, size_.complex_points(), carries(base), p, t, seed);
            transform_->convolve(source, work, static_cast<const Block*>(T), work, tscratch, p, t);
            return release_points(work, size_.complex_points(), size_.bits, size_.real_points(), S, SL, p, t,
                                  transform_->work_layout());
        }
        split_words(A, AL, size_.bits, mode_, points, size_.complex_points(), p, t, seed);
        transform_->convolve(points, work, static_cast<const Block*>(T), points, tscratch, p, t);
        return release_points(points, size_.complex_points(), size_.bits, size_.real_points(), S, SL, p, t);
    };
    ReleaseStatus status = attempt(kDitherSeed);
    if (!(status.max_distance <= kMaxDistance) && mode_ == DigitMode::Dithered) {
        // Redone once with A split with fresh digits: an A that defeats the default digits does
        // not defeat these.
        EventLog::append(std::string(function) + ": max distance " + std::to_string(status.max_distance) + " on " +
                         describe(size_) + "; redone with fresh digits.");
        status = attempt(fresh_dither_seed());
    }
    if (!(status.max_distance <= kMaxDistance))
        throw AlgorithmFailedException(function, "Rounding error is too large.");
    // A negative S leaves its two's complement and a carry of -1 out of the top (reported as an
    // overrun at SL); S is far below 2^(64 SL - 1) in magnitude, so the top word tells the sign.
    const bool negative = (S[SL - 1] >> 63) != 0;
    if (status.overrun && !(negative && status.overrun_index == SL))
        throw AlgorithmFailedException(function, "Index has overrun range: is > oe");
    // high = floor(S / 2^N), a signed value of at most ~66 bits.
    const uint64_t N = uint64_t(size_.bits) * size_.real_points();
    const uint64_t w = N / 64, r = N % 64;
    __int128 high = 0;
    {
        const uint64_t lo = S[w], mid = w + 1 < SL ? S[w + 1] : (negative ? ~0ull : 0),
                       hi = w + 2 < SL ? S[w + 2] : (negative ? ~0ull : 0);
        // Bits from N upward: (hi:mid:lo) >> r, as a signed 128-bit value.
        const unsigned __int128 part = (unsigned __int128)mid << 64 | lo;
        unsigned __int128 shifted = r == 0 ? part : (part >> r) | ((unsigned __int128)hi << (128 - r));
        high = static_cast<__int128>(shifted);
    }
    // C = (S mod 2^(64 kept)) - high: the kept words lie below N, which the mask keeps apart.
    std::copy(S, S + kept_words_, C);
    __int128 borrow = -high;
    for (uint64_t i = 0; i < kept_words_ && borrow != 0; ++i) {
        borrow += C[i];
        C[i] = static_cast<uint64_t>(borrow);
        borrow >>= 64;
    }
    return status.max_distance;
}

}  // namespace qmp::fft
