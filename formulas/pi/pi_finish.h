// Pi from one of its series, in memory: the series is summed by PSR_SeriesB with power -1 and
// coefficients {CP 1, CQ c_q, CD c_d}, which gives V = c_d Q / (c_q Q + P) = pi sqrt(r); then
//   q = V as one quotient (Division_BigFloatR), y = r^(-1/2) (InvsqrtWord_BigFloatR),
//   pi = q * y, a full product checked by residues: mod_m61 of the product must equal the
// product of the operands' residues, else AlgorithmFailedException "Checksum Mismatch.
// Multiplication Failed." from "Pi_Series_BigFloatR::run()". The result keeps `words` words
// (relative error a few units of 2^(-64 words)). A wrong algorithm name is InvalidParameters
// "Algorithm must be "chudnovsky" or "ramanujan".".
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "formulas/pi/pi_series.h"
#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/big_float.h"
#include "qmp/series/bsr_arith.h"
#include "qmp/series/bsr_engine.h"
#include "qmp/series/common_p2b3.h"
#include "qmp/series/psr_series.h"

namespace qv {

struct PiTimings {
    double series_s = 0;
    double final_s = 0;
    double division_s = 0;
    double invsqrt_s = 0;
    double product_s = 0;
    // Filled when `profile.timing` is set before the run.
    qmp::BinarySplitting::BSRProgress profile;
};

class Pi_Series_BigFloatR {
public:
    // algorithm: "chudnovsky" or "ramanujan".
    Pi_Series_BigFloatR(const std::string& algorithm, const qmp::AlgorithmTableB& table, uint64_t words,
                        uint64_t tds);

    uint64_t words() const noexcept { return words_; }
    uint64_t terms() const;
    // One buffer for everything (series, quotient, root, product), and the result's capacity.
    uint64_t memory_bytes() const noexcept { return memory_bytes_; }
    uint64_t result_words() const noexcept { return words_ + 4; }

    // pi into `result` (capacity >= result_words(), outside `buffer`).
    void run(qmp::BigFloat<uint64_t>& result, qmp::AlignedBufferC buffer, qmp::Parallelizer* parallelizer,
             PiTimings* timings = nullptr, bool verbose = false) const;

    // Test hook: a word flipped in the final product before its check (null: none).
    static void set_product_fault(void (*fault)(uint64_t* words, uint64_t n));

private:
    std::unique_ptr<qmp::BinarySplitting::PQRSeries> series_;
    std::unique_ptr<qmp::BinarySplitting::PSR_SeriesB<qmp::BinarySplitting::CommonP2B3>> psr_;
    PiSeriesConstants constants_;
    const qmp::AlgorithmTableB& table_;
    uint64_t words_;
    uint64_t tds_;
    uint64_t series_bytes_ = 0;
    uint64_t memory_bytes_ = 0;
};

// floor(x * 16^h) modulo 2^61 - 1 for a positive BigFloat x (the hexadecimal digits of x up to
// the h-th after the point, as one integer).
uint64_t hex_prefix_residue(const qmp::BigFloat<uint64_t>& x, uint64_t h);

}  // namespace qv
