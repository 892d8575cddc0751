// Hexadecimal digits of pi after a position n, by two formulas that must agree. Digits are
// counted after the point: position n gives digits n+1, n+2, ... (position 0: 243f6a88...).
// Both formulas' head sums are cut into ranges of k and run as tasks on a Parallelizer; each
// of `threads` tasks pins itself to StaticPinOrder[task mod size] when that list is set and
// then takes ranges from a shared counter until none are left. Their intervals (value +- the
// error bound) must overlap: otherwise AlgorithmFailedException with both values, never digits.
// The digits printed are those fixed by the overlap, at most 24, and at least 16 (fewer is
// an AlgorithmFailedException too).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "formulas/bbp/digit_formulas.h"
#include "formulas/bbp/hex_interval.h"
#include "qmp/parallel/parallel_framework.h"

namespace qv::bbp {

inline constexpr int kMinPrintedDigits = 16;
inline constexpr int kMaxPrintedDigits = 24;

// A test hook: the term `term` at k of formula 0 (BBP) or 1 (Bellard) has one bit of its
// value flipped (bit 100 of the 128-bit fraction), as a hardware fault would.
struct FaultInjection {
    bool active = false;
    int formula = 0;
    uint64_t k = 0;
    uint32_t term = 0;
};

struct ExtractionProgress {
    double fraction = 0;           // of the estimated work done
    double elapsed_seconds = 0;
    double remaining_seconds = 0;  // extrapolated from the rate so far
};

struct ExtractorSettings {
    uint64_t position = 0;
    uint32_t threads = 1;                        // tasks run at once; 1: the calling thread only
    qmp::Parallelizer* parallelizer = nullptr;   // required when threads > 1
    std::vector<uint32_t> pin_order;             // StaticPinOrder; empty: no pinning
    const TermKernel* kernel = nullptr;          // nullptr: active_term_kernel()
    std::function<void(const ExtractionProgress&)> progress;  // called from any task's thread
    double progress_interval_seconds = 10;
    FaultInjection fault;
};

struct ExtractionResult {
    uint64_t position = 0;
    FormulaSum bbp, bellard;
    HexInterval agreed;
    int certain_digits = 0;
    std::string digits;  // lower case, the first certain ones (16 to 24)
    double seconds = 0;
    std::string kernel;
};

// Throws InvalidParametersException for a position above kMaxHexPosition or bad thread
// settings, AlgorithmFailedException when the formulas disagree or fix too few digits.
ExtractionResult extract_pi_hex_digits(const ExtractorSettings& settings);

// A "pushpool" framework giving `threads` tasks a thread each (the caller is one of them);
// nullptr for one thread.
std::unique_ptr<qmp::ParallelFramework> make_extractor_framework(uint32_t threads);

// Seconds the extraction at `position` should take on `threads` threads, from a short timed
// sample of the kernel on terms of the size found at that position.
double estimate_extraction_seconds(uint64_t position, uint32_t threads, const TermKernel& kernel);

}  // namespace qv::bbp
