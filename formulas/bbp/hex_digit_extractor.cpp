// The parallel driver of the two-formula extraction (see hex_digit_extractor.h).
#include "formulas/bbp/hex_digit_extractor.h"

#include "qmp/exception.h"
#include "qmp/parallel/first_error.h"
#include "qmp/parallel/thread_control.h"

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <mutex>

namespace qv::bbp {
namespace {

constexpr const char* kFunction = "HexDigitExtractor::extract()";
using Clock = std::chrono::steady_clock;

struct Chunk {
    int formula;
    uint64_t k_first, k_end;
    uint64_t weight;  // terms, for progress
};

const DigitFormula& formula_by_index(int i) { return i == 0 ? bbp_formula() : bellard_formula(); }

// Ranges of k for both formulas, made on demand from their index (far positions have too many
// to list): about 16 per thread and formula so that the threads finish together, no shorter
// than 4096 k (kernel set-up is per range), no longer than 2^22 k so that progress lines come
// every few seconds.
class ChunkPlan {
public:
    ChunkPlan(uint64_t position, uint32_t threads) {
        for (int f = 0; f < 2; ++f) {
            k_count_[f] = head_k_count(formula_by_index(f), position);
            const uint64_t size = k_count_[f] / (uint64_t(threads) * 16);
            size_[f] = std::clamp<uint64_t>((size + 63) & ~uint64_t(63), 4096, uint64_t(1) << 22);
            count_[f] = (k_count_[f] + size_[f] - 1) / size_[f];
        }
    }
    uint64_t count() const { return count_[0] + count_[1]; }
    Chunk chunk(uint64_t index) const {
        const int f = index < count_[0] ? 0 : 1;
        const uint64_t i = f == 0 ? index : index - count_[0];
        const uint64_t first = i * size_[f], end = std::min(k_count_[f], first + size_[f]);
        return {f, first, end, (end - first) * formula_by_index(f).terms.size()};
    }
    uint64_t total_weight() const {
        return k_count_[0] * bbp_formula().terms.size() + k_count_[1] * bellard_formula().terms.size();
    }

private:
    uint64_t k_count_[2], size_[2], count_[2];
};

// Restores the calling thread's affinity when a run that pinned it ends.
class AffinityGuard {
public:
    explicit AffinityGuard(bool active) : active_(active) {
        if (active_) saved_ = pthread_getaffinity_np(pthread_self(), sizeof(set_), &set_) == 0;
    }
    ~AffinityGuard() {
        if (active_ && saved_) pthread_setaffinity_np(pthread_self(), sizeof(set_), &set_);
    }
    AffinityGuard(const AffinityGuard&) = delete;
    AffinityGuard& operator=(const AffinityGuard&) = delete;

private:
    bool active_;
    bool saved_ = false;
    cpu_set_t set_{};
};

class ProgressReporter {
public:
    ProgressReporter(const ExtractorSettings& s, uint64_t total_weight)
        : callback_(s.progress), interval_(s.progress_interval_seconds), total_(total_weight),
          start_(Clock::now()), last_(start_) {}

    void add(uint64_t weight) {
        const uint64_t done = done_.fetch_add(weight) + weight;
        if (!callback_ || done >= total_) return;
        std::lock_guard<std::mutex> lock(mutex_);
        const Clock::time_point now = Clock::now();
        if (std::chrono::duration<double>(now - last_).count() < interval_) return;
        last_ = now;
        ExtractionProgress p;
        p.fraction = double(done) / double(total_);
        p.elapsed_seconds = std::chrono::duration<double>(now - start_).count();
        p.remaining_seconds = p.elapsed_seconds * (1 - p.fraction) / p.fraction;
        callback_(p);
    }
    double elapsed() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

private:
    std::function<void(const ExtractionProgress&)> callback_;
    double interval_;
    uint64_t total_;
    Clock::time_point start_, last_;
    std::atomic<uint64_t> done_{0};
    std::mutex mutex_;
};

void apply_fault(const FaultInjection& fault, uint64_t position, const Chunk& chunk, FormulaSum& sum) {
    if (!fault.active || fault.formula != chunk.formula || fault.k < chunk.k_first || fault.k >= chunk.k_end) return;
    const uint128 correct = head_term_value(formula_by_index(chunk.formula), position, fault.k, fault.term);
    const uint128 corrupted = correct ^ (uint128(1) << 100);
    sum.value += corrupted - correct;
}

std::string describe(const char* name, const FormulaSum& s) {
    return std::string(name) + " = 0." + hex128(s.value) + " +- " + std::to_string(s.error_units) + " x 2^-128";
}

}  // namespace

ExtractionResult extract_pi_hex_digits(const ExtractorSettings& settings) {
    if (settings.position > kMaxHexPosition)
        throw qmp::InvalidParametersException(kFunction, "The position must not exceed " +
                                                             std::to_string(kMaxHexPosition) + ".");
    if (settings.threads == 0 || (settings.threads > 1 && settings.parallelizer == nullptr))
        throw qmp::InvalidParametersException(kFunction, "A parallel run needs a framework.");
    const TermKernel& kernel = settings.kernel != nullptr ? *settings.kernel : active_term_kernel();
    const uint64_t n = settings.position;

    const ChunkPlan plan(n, settings.threads);
    // Each task adds its ranges into its own pair of sums (addition mod 2^128 is exact, so the
    // order does not matter).
    std::vector<std::array<FormulaSum, 2>> task_sums(settings.threads);
    ProgressReporter progress(settings, plan.total_weight());
    std::atomic<uint64_t> next_chunk{0};
    qmp::FirstError error;

    auto task = [&](uint64_t index) {
        if (!settings.pin_order.empty())
            qmp::set_current_thread_affinity(settings.pin_order[index % settings.pin_order.size()]);
        try {
            for (uint64_t c = next_chunk.fetch_add(1); c < plan.count() && !error.failed();
                 c = next_chunk.fetch_add(1)) {
                const Chunk chunk = plan.chunk(c);
                FormulaSum sum = sum_head(formula_by_index(chunk.formula), n, chunk.k_first, chunk.k_end, kernel);
                apply_fault(settings.fault, n, chunk, sum);
                task_sums[index][size_t(chunk.formula)] += sum;
                progress.add(chunk.weight);
            }
        } catch (...) {
            error.record(std::current_exception());
        }
    };
    {
        const AffinityGuard guard(!settings.pin_order.empty());
        if (settings.threads == 1) task(0);
        else settings.parallelizer->run(settings.threads, task);
    }
    error.rethrow_if_any();

    ExtractionResult result;
    result.position = n;
    result.kernel = kernel.name;
    result.bbp = sum_tail(bbp_formula(), n);
    result.bellard = sum_tail(bellard_formula(), n);
    for (const std::array<FormulaSum, 2>& sums : task_sums) {
        result.bbp += sums[0];
        result.bellard += sums[1];
    }
    result.seconds = progress.elapsed();

    const std::optional<HexInterval> agreed =
        intersect(HexInterval::around(result.bbp.value, result.bbp.error_units),
                  HexInterval::around(result.bellard.value, result.bellard.error_units));
    if (!agreed)
        throw qmp::AlgorithmFailedException(
            kFunction, "The two formulas disagree at position " + std::to_string(n) + ": " +
                           describe("BBP", result.bbp) + ", " + describe("Bellard", result.bellard) + ".");
    result.agreed = *agreed;
    result.certain_digits = agreed->certain_digits();
    if (result.certain_digits < kMinPrintedDigits)
        throw qmp::AlgorithmFailedException(
            kFunction, "Only " + std::to_string(result.certain_digits) +
                           " hexadecimal digits are certain at position " + std::to_string(n) + ".");
    result.digits = agreed->digits(std::min(result.certain_digits, kMaxPrintedDigits));
    return result;
}

std::unique_ptr<qmp::ParallelFramework> make_extractor_framework(uint32_t threads) {
    if (threads <= 1) return nullptr;
    qmp::ConfigObject settings = qmp::find_parallel_framework("pushpool").default_config();
    settings.get("WorkerThreads", kFunction) = qmp::ConfigObject::make_integer(int64_t(threads) - 1);
    return qmp::make_parallel_framework(settings);
}

double estimate_extraction_seconds(uint64_t position, uint32_t threads, const TermKernel& kernel) {
    // Time a run of BBP-like terms with exponents and moduli of the size met near the middle
    // of the k range, until a tenth of a second has passed; scale by the head term count.
    TermProgression sample;
    const uint64_t k = position / 2;
    sample.exponent_first = 4 * position - 4 * k + 2;
    sample.exponent_step = 4;
    sample.modulus_first = 8 * k + 1;
    sample.modulus_step = 8;
    sample.count = std::min<uint64_t>(4096, position / 4 + 1);
    uint64_t terms = 0;
    const Clock::time_point start = Clock::now();
    double seconds = 0;
    while (seconds < 0.1) {
        volatile uint128 sink = sum_terms_split(kernel, sample);
        (void)sink;
        terms += sample.count;
        seconds = std::chrono::duration<double>(Clock::now() - start).count();
    }
    const double total_terms =
        double(head_term_count(bbp_formula(), position) + head_term_count(bellard_formula(), position));
    return total_terms * (seconds / double(terms)) / double(std::max<uint32_t>(threads, 1));
}

}  // namespace qv::bbp
