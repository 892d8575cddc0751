// Pi from its series and its finishing steps (see pi_finish.h).
#include "formulas/pi/pi_finish.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "qmp/exception.h"
#include "qmp/functions/division.h"
#include "qmp/functions/invsqrt.h"
#include "qmp/multiply/multiply.h"
#include "qmp/series/psr_series.h"
#include "qmp/words/mod_m61.h"
#include "qmp/words/word_array.h"

namespace qv {

namespace {

using qmp::AlignedBufferC;
using Float = qmp::BigFloat<uint64_t>;
using qmp::BinarySplitting::MulEnv;
using PSR_SeriesB = qmp::BinarySplitting::PSR_SeriesB<qmp::BinarySplitting::CommonP2B3>;

constexpr const char* kRun = "Pi_Series_BigFloatR::run()";
std::atomic<void (*)(uint64_t*, uint64_t)> g_product_fault{nullptr};

double now_s() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

uint64_t words_bytes(uint64_t n) { return AlignedBufferC::round_up(n * 8); }

}  // namespace

Pi_Series_BigFloatR::Pi_Series_BigFloatR(const std::string& algorithm, const qmp::AlgorithmTableB& table,
                                         uint64_t words, uint64_t tds)
    : table_(table), words_(words), tds_(std::max<uint64_t>(tds, 1)) {
    if (algorithm == "chudnovsky") {
        series_ = SeriesStub_Pi_Chudnovsky();
        constants_ = kChudnovskyConstants;
    } else if (algorithm == "ramanujan") {
        series_ = SeriesStub_Pi_Ramanujan();
        constants_ = kRamanujanConstants;
    } else {
        throw qmp::InvalidParametersException("Pi_Series_BigFloatR::Pi_Series_BigFloatR()",
                                              "Algorithm must be \"chudnovsky\" or \"ramanujan\".");
    }
    const MulEnv env{&table_, nullptr, tds_};
    const uint64_t p = words_ + 2;
    psr_ = std::make_unique<PSR_SeriesB>(
        *series_, -1, qmp::BinarySplitting::SeriesCoefficients{1, int64_t(constants_.coefficient_q),
                                                               int64_t(constants_.coefficient_d)});
    series_bytes_ = psr_->memory_bytes(env, p, tds_);
    // After the series, on top of the fraction, one phase at a time: the quotient and its
    // division's scratch, then the root and its scratch, then the product and its scratch.
    const uint64_t fraction = 2 * words_bytes(PSR_SeriesB::result_words(p)), one = words_bytes(p + 3);
    const uint64_t finish =
        fraction + std::max({one + qmp::Division_BigFloatR<uint64_t>::scratch_bytes(table_, p),
                             2 * one + qmp::InvsqrtWord_BigFloatR<uint64_t>::scratch_bytes(table_, p),
                             2 * one + words_bytes(2 * p + 6) + qmp::multiply_scratch_bytes(table_, p + 2, p + 2)}) +
        4096;
    memory_bytes_ = std::max(series_bytes_ + fraction, finish) + 1024;
}

uint64_t Pi_Series_BigFloatR::terms() const { return psr_->terms(words_ + 2); }

void Pi_Series_BigFloatR::set_product_fault(void (*fault)(uint64_t*, uint64_t)) { g_product_fault.store(fault); }

void Pi_Series_BigFloatR::run(Float& result, AlignedBufferC buffer, qmp::Parallelizer* parallelizer,
                              PiTimings* timings, bool verbose) const {
    const uint64_t p = words_ + 2;
    const MulEnv env{&table_, parallelizer, tds_};
    const double t0 = now_s();
    // The fraction sits at the bottom; the series' scratch above it is reused afterwards.
    const uint64_t fw = PSR_SeriesB::result_words(p);
    Float num(buffer.spawn_words<uint64_t>(fw)), den(buffer.spawn_words<uint64_t>(fw));
    {
        psr_->run(p, env, parallelizer ? tds_ : 1, buffer, num, den, verbose, timings ? &timings->profile : nullptr);
    }
    const double t1 = now_s();
    const uint64_t tds = parallelizer ? tds_ : 1;
    Float q(buffer.spawn_words<uint64_t>(p + 3));
    qmp::Division_BigFloatR<uint64_t> division(table_, p, tds_);
    division.run(q, num, den, p, buffer, parallelizer, tds);
    const double t2 = now_s();
    Float y(buffer.spawn_words<uint64_t>(p + 3));
    qmp::InvsqrtWord_BigFloatR<uint64_t> invsqrt(table_, p, tds_);
    invsqrt.run(y, constants_.radicand, p, buffer, parallelizer, tds);
    const double t3 = now_s();
    // pi = q * y, the full product checked against the operands' residues.
    uint64_t* product = buffer.spawn_words<uint64_t>(q.L + y.L).words<uint64_t>();
    qmp::multiply(table_, product, q.T, q.L, y.T, y.L, buffer.data(), buffer.size_bytes(), parallelizer, tds);
    if (auto fault = g_product_fault.load()) fault(product, q.L + y.L);
    const uint64_t expected = qmp::mul_m61(qmp::mod_m61(q.T, q.L), qmp::mod_m61(y.T, y.L));
    if (qmp::mod_m61(product, q.L + y.L) != expected)
        throw qmp::AlgorithmFailedException(kRun, "Checksum Mismatch. Multiplication Failed.");
    Float full(product, q.L + y.L);
    full.L = qmp::normalized_length(product, q.L + y.L);
    full.exp = q.exp + y.exp;
    full.sign = true;
    result.set_BigFloat(full, words_ + 1);
    if (timings) {
        timings->series_s = t1 - t0;
        timings->final_s = now_s() - t1;
        timings->division_s = t2 - t1;
        timings->invsqrt_s = t3 - t2;
        timings->product_s = now_s() - t3;
    }
}

uint64_t hex_prefix_residue(const Float& x, uint64_t h) {
    // floor(x 2^(4h)): bit 0 of word i has weight 2^(64 (exp + i) + 4h); bits below 2^0 drop.
    uint64_t r = 0;
    for (uint64_t i = 0; i < x.L; ++i) {
        const int64_t low_bit = 64 * (x.exp + int64_t(i)) + 4 * int64_t(h);
        if (low_bit <= -64) continue;
        if (low_bit < 0) {
            r = qmp::add_m61(r, qmp::reduce_m61(x.T[i] >> -low_bit));
        } else {
            r = qmp::add_m61(r, qmp::mul_pow2_m61(qmp::reduce_m61(x.T[i]), uint64_t(low_bit)));
        }
    }
    return r;
}

}  // namespace qv
