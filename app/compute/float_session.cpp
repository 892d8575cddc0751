// The in-memory computation driver.
#include "app/compute/float_session.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "app/compute/digit_output.h"
#include "app/compute/run_artifacts.h"
#include "app/compute/spot_check.h"
#include "app/compute/working_memory.h"
#include "formulas/catalog/algorithm_table.h"
#include "formulas/catalog/formula_generator.h"
#include "formulas/language/formula_program.h"
#include "formulas/nodes/node_factories.h"
#include "qmp/console.h"
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/exception.h"
#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/builtin_algorithms.h"
#include "qmp/multiply/fft/fftv4.h"
#include "qmp/multiply/fft/split_modulus_fft.h"
#include "qmp/multiply/fft/transform.h"
#include "qmp/multiply/tuning_profile.h"

namespace qv {
namespace {

using Clock = std::chrono::steady_clock;
using qmp::Console::Colour;
constexpr const char* kRun = "NormalFloatSessionB::run()";
constexpr uint64_t kTokenValue = 0x51c0a7e5d17e0b5dull;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string now_text() {
    const std::time_t t = std::time(nullptr);
    std::tm local{};
    localtime_r(&t, &local);
    char text[64];
    std::strftime(text, sizeof text, "%a %b %d %H:%M:%S %Y", &local);
    return text;
}

void label(const std::string& name, const std::string& value) {
    qmp::Console::print(name, Colour::Label);
    qmp::Console::println(value, Colour::Value);
}

// Decimal digits computed beyond those written: the conversion and its hash check read them,
// and a few units of error in the last words never reach a written digit.
constexpr uint64_t kGuardDigits = 40;

// Words of precision for `digits` decimal digits and the guard: a 64-bit word holds 19.26.
uint64_t precision_words(uint64_t digits) { return (digits + kGuardDigits + 20) / 19 + 2; }

// One planned evaluation of a catalog formula.
struct PlannedFormula {
    GeneratedFormula formula;
    std::unique_ptr<qmp::FormulaProgram> program;
    uint64_t bytes = 0;
    uint64_t result_words = 0;
};

PlannedFormula plan_formula(const ComputeSettings& s, const std::string& algorithm, uint64_t p,
                            const qmp::FormulaContext& context) {
    FormulaRequest request;
    request.constant = s.constant;
    request.algorithm = algorithm;
    request.argument = s.argument;
    request.digits = s.decimal_digits;
    request.formula_file = s.formula_file;
    PlannedFormula planned;
    planned.formula = generate_formula(request);
    planned.program = std::make_unique<qmp::FormulaProgram>(
        qmp::parse_cfg(planned.formula.text), qmp::builtin_node_registry(),
        [](std::string_view warning) { qmp::Console::warning(warning); });
    planned.bytes = planned.program->plan(p, context);
    planned.result_words = planned.program->root().sizing().output_words;
    return planned;
}

// floor(|x| * radix^digits) mod 2^61 - 1 from the integer part and the hash of the digits after
// the point (which the writer's statistics give without the integer part).
uint64_t full_hash(uint64_t integer_part, uint64_t fraction_hash, uint32_t radix, uint64_t digits) {
    const uint64_t p = (uint64_t(1) << 61) - 1;
    unsigned __int128 power = 1, base = radix;
    for (uint64_t e = digits; e != 0; e >>= 1, base = base * base % p)
        if (e & 1) power = power * base % p;
    return uint64_t(((unsigned __int128)(integer_part % p) * power + fraction_hash) % p);
}

// The writer memory for a result of `words` words: a writer over a stand-in number of that
// shape (its constructor only plans) tells it.
uint64_t writer_bytes(uint32_t radix, uint64_t computed, uint64_t output, uint64_t words,
                      const qmp::AlgorithmTableB& table, qmp::Parallelizer* parallelizer, uint64_t tds) {
    std::vector<uint64_t> stand_in(words, 0x5555555555555555ull);
    stand_in.back() = 3;
    qmp::BigFloat<uint64_t> x(stand_in.data(), words);
    x.L = words;
    x.exp = -int64_t(words - 1);
    x.sign = true;
    return qmp::FloatWriterB(x, radix, computed, output, true, nullptr, table, parallelizer, tds).memory_bytes();
}

void corrupt_for_test(qmp::FloatWriterB& writer) {
    const char* index_text = std::getenv(kCorruptDigitWordVariable);
    if (index_text == nullptr || *index_text == '\0') return;
    const uint64_t index = std::strtoull(index_text, nullptr, 10);
    if (index < writer.output_words()) writer.words_for_test()[index] ^= 1;
}

// Builds the transform that a product of `product_words` words runs on.
void build_largest_transform(const qmp::AlgorithmTableB& table, uint64_t product_words) {
    const qmp::BasicAlgorithm& algorithm = table.get_algorithm(product_words);
    qmp::fft::TransformSize size{1, 0, 0};
    if (const auto* fft = dynamic_cast<const qmp::FFTv4*>(&algorithm)) size = fft->plan(product_words);
    else if (dynamic_cast<const qmp::SplitModulusFFT*>(&algorithm)) size = qmp::SplitModulusFFT::plan(product_words);
    if (size.bits != 0) qmp::fft::get_transform(size.m, size.k, qmp::FFTv4::kConversionBlockExponent);
}

struct RunSizing {
    uint64_t result_bytes = 0;
    uint64_t needed_bytes = 0;
};

// The working block: the largest formula plan, or the result with the writers' memory above it.
RunSizing size_run(const ComputeSettings& s, const std::vector<const PlannedFormula*>& formulas,
                   const qmp::AlgorithmTableB& table, qmp::Parallelizer* parallelizer, uint64_t tds) {
    const uint64_t dec_digits = s.decimal_digits;
    const uint64_t hex_digits = s.hex_digits ? s.hexadecimal_digits() : 0;
    uint64_t result_words = 0, formula_bytes = 0;
    for (const PlannedFormula* f : formulas) {
        result_words = std::max(result_words, f->result_words);
        formula_bytes = std::max(formula_bytes, f->bytes);
    }
    RunSizing sizing;
    sizing.result_bytes = qmp::AlignedBufferC::round_up(result_words * 8);
    uint64_t conversion = writer_bytes(10, dec_digits + kGuardDigits, dec_digits, result_words, table, parallelizer, tds);
    if (s.hex_digits)
        conversion = std::max(conversion, writer_bytes(16, hex_digits + kGuardDigits, hex_digits, result_words, table,
                                                       parallelizer, tds));
    sizing.needed_bytes = std::max(formula_bytes, sizing.result_bytes + qmp::AlignedBufferC::round_up(conversion));
    return sizing;
}

uint64_t run_precision_words(const ComputeSettings& s) {
    const uint64_t hex_digits = s.hex_digits ? s.hexadecimal_digits() : 0;
    return precision_words(std::max(s.decimal_digits, hex_digits * 6 / 5 + 1));
}

}  // namespace

uint64_t estimate_working_memory(const ComputeSettings& s) {
    qmp::AlgorithmRegistry registry;
    qmp::register_builtin_algorithms(registry);
    const qmp::AlgorithmTableB table = qmp::make_default_table(registry);
    qmp::FormulaContext context;
    context.table = &table;
    context.tds = s.parallelism.task_decomposition;
    const PlannedFormula primary = plan_formula(s, s.resolved_algorithm(), run_precision_words(s), context);
    return size_run(s, {&primary}, table, nullptr, context.tds).needed_bytes;
}

SessionToken issue_session_token() { return SessionToken{kTokenValue}; }

NormalFloatSessionB::NormalFloatSessionB(const ComputeSettings& settings, SessionToken token)
    : settings_(settings), token_(token) {
    if (token.value != kTokenValue)
        throw qmp::InvalidParametersException("NormalFloatSessionB::NormalFloatSessionB()", "AuthorizationToken is invalid.");
}

void NormalFloatSessionB::set(uint64_t seed) {
    if (seed_ && *seed_ != seed)
        throw qmp::InvalidParametersException("NormalFloatSession::set()", "Cannot set to different seed.");
    seed_ = seed;
}

RunSummary NormalFloatSessionB::run(SessionToken token) {
    if (token.value != kTokenValue || token.value != token_.value)
        throw qmp::InvalidParametersException(kRun, "AuthorizationToken is invalid.");
    const ComputeSettings& s = settings_;
    s.check();
    const Clock::time_point wall_start = Clock::now();
    const std::string start_date = now_text();

    RunSummary summary;
    summary.constant_token = s.constant;
    summary.constant_name = constant_file_name(s);
    summary.algorithm_name = algorithm_display_name(s, s.resolved_algorithm());
    summary.decimal_digits = s.decimal_digits;
    if (s.hex_digits) summary.hexadecimal_digits = s.hexadecimal_digits();
    summary.seed = seed_;
    const uint64_t dec_digits = s.decimal_digits;
    const uint64_t hex_digits = s.hex_digits ? s.hexadecimal_digits() : 0;

    // Parallelism.
    std::unique_ptr<qmp::ParallelFramework> framework = s.parallelism.make_framework();
    const uint64_t tds = s.parallelism.task_decomposition;
    summary.framework = framework->key();
    if (const qmp::ConfigObject* w = s.parallelism.framework.find("WorkerThreads"))
        summary.worker_threads = uint64_t(w->as_integer());
    summary.task_decomposition = tds;

    qmp::Console::println();
    label("Constant:            ", summary.constant_name);
    label("Algorithm:           ", summary.algorithm_name);
    label("Decimal Digits:      ", qmp::format_with_commas(dec_digits));
    label("Hexadecimal Digits:  ", s.hex_digits ? qmp::format_with_commas(hex_digits) : std::string("Disabled"));
    label("Computation Mode:    ", "Ram Only");
    label("Threading Mode:      ", describe_threading(s));
    qmp::Console::println();

    // Multiplication tables. The transforms build their twiddle tables once, on first use, for
    // the sizes the run needs; here the table that chooses among them is made and the tables of
    // the largest transform (that of a full-precision product, which holds most of the bytes
    // the run will build) are built and counted.
    Clock::time_point phase = Clock::now();
    qmp::Console::print("Twiddle Tables...  ");
    qmp::AlgorithmRegistry registry;
    qmp::register_builtin_algorithms(registry);
    const qmp::AlgorithmTableB table = qmp::make_default_table(registry);
    build_largest_transform(table, std::min(2 * run_precision_words(s) + 8, table.max_product_words()));
    qmp::Console::println();
    label("Twiddle Tables: ", format_bytes(qmp::fft::twiddle_bytes_built()));

    qmp::FormulaContext context;
    context.table = &table;
    context.parallelizer = framework.get();
    context.tds = tds;
    context.status = qmp::FormulaContext::console_status();

    // Sizing: the formula(s), then the writers working above the result.
    const uint64_t p = run_precision_words(s);
    const uint64_t dec_computed = dec_digits + kGuardDigits;
    const uint64_t hex_computed = hex_digits + kGuardDigits;
    PlannedFormula primary = plan_formula(s, s.resolved_algorithm(), p, context);
    std::optional<PlannedFormula> secondary;
    std::string secondary_algorithm;
    if (s.verify_with_secondary) {
        secondary_algorithm = AlgorithmTable::menu_for(s.constant, uint64_t(std::max<int64_t>(s.argument, 0))).secondary().token;
        secondary = plan_formula(s, secondary_algorithm, p, context);
    }
    std::vector<const PlannedFormula*> formulas{&primary};
    if (secondary) formulas.push_back(&*secondary);
    const RunSizing sizing = size_run(s, formulas, table, framework.get(), tds);
    const uint64_t result_bytes = sizing.result_bytes;
    const uint64_t needed = sizing.needed_bytes;

    qmp::Console::print("Working Memory...  ");
    WorkingMemory memory;
    const bool allocation_errors = memory.allocate(needed, s.allocator);
    qmp::Console::println();
    label("Working Memory: ", format_bytes(memory.size_bytes()));
    summary.working_memory_bytes = memory.size_bytes();
    if (allocation_errors)
        qmp::Console::println("Memory allocation errors detected. Possible performance degradation.\n"
                              "Please see event log for details.", Colour::Warning);
    summary.phase_seconds.emplace_back("Setup", seconds_since(phase));

    qmp::EventLog::append("Begin Computation");
    qmp::Console::println();
    qmp::Console::println("Begin Computation: " + now_text(), Colour::Header);
    const Clock::time_point compute_start = Clock::now();

    // A conversion of one result: the writers (checked) and the hashes of their digits.
    ForwardingSink dec_forward, hex_forward;
    std::unique_ptr<qmp::FloatWriterB> dec_writer, hex_writer;
    WorkingMemory overflow;
    auto convert = [&](const qmp::FormulaFloat& x, bool primary_result) {
        qmp::AlignedBufferC above(memory.buffer().words<uint64_t>() + result_bytes / 8, memory.size_bytes() - result_bytes);
        dec_writer = std::make_unique<qmp::FloatWriterB>(x, 10, dec_computed, dec_digits, true, &dec_forward, table,
                                                         framework.get(), tds);
        hex_writer.reset();
        if (s.hex_digits && primary_result)
            hex_writer = std::make_unique<qmp::FloatWriterB>(x, 16, hex_computed, hex_digits, true, &hex_forward,
                                                             table, framework.get(), tds);
        const uint64_t actual = std::max(dec_writer->memory_bytes(), hex_writer ? hex_writer->memory_bytes() : 0);
        if (actual > above.size_bytes()) {
            qmp::Console::println("Inconsistency: Memory requirement increased with " +
                                      qmp::format_with_commas(above.size_bytes()) + " -> " +
                                      qmp::format_with_commas(actual) + ".\nThis is a known bug for some constants.",
                                  Colour::Warning);
            overflow.allocate(actual, s.allocator);
            above = overflow.buffer();
        }
        dec_writer->convert(above);
        if (primary_result) corrupt_for_test(*dec_writer);
        dec_writer->verify(above);
        if (hex_writer) {
            hex_writer->convert(above);
            hex_writer->verify(above);
            hex_writer->verify_binary_words();
        }
    };
    auto decimal_hash = [&]() {
        qmp::DigitCounts counts(10);
        qmp::DigitHash hash(10);
        dec_writer->stat_dec_digits(counts, hash);
        return full_hash(dec_writer->integer_part(), hash.value(), 10, dec_digits);
    };

    if (secondary) {
        qmp::Console::println("Secondary Algorithm: " + algorithm_display_name(s, secondary_algorithm), Colour::Info);
        if (secondary_algorithm == s.resolved_algorithm())
            qmp::Console::println("This constant has one algorithm: the second computation repeats it.", Colour::Info);
        qmp::Console::println(secondary->formula.label, Colour::Info);
        phase = Clock::now();
        const qmp::FormulaFloat y = secondary->program->evaluate(memory.buffer(), context);
        convert(y, false);
        summary.secondary_decimal_hash = decimal_hash();
        summary.phase_seconds.emplace_back("SecondaryComputation", seconds_since(phase));
        secondary.reset();
    }

    qmp::Console::println(primary.formula.label, Colour::Info);
    if (!primary.formula.details.empty()) qmp::Console::println(primary.formula.details, Colour::Info);
    phase = Clock::now();
    const qmp::FormulaFloat x = primary.program->evaluate(memory.buffer(), context);
    summary.phase_seconds.emplace_back("Computation", seconds_since(phase));
    qmp::EventLog::append("End Computation");

    phase = Clock::now();
    convert(x, true);
    summary.decimal_hash = decimal_hash();
    summary.checks_passed.push_back("Base Conversion Hash");
    if (hex_writer) {
        qmp::DigitCounts counts(16);
        qmp::DigitHash hash(16);
        hex_writer->stat_hex_digits(counts, hash);
        summary.hexadecimal_hash = full_hash(hex_writer->integer_part(), hash.value(), 16, hex_digits);
        summary.checks_passed.push_back("Binary Output Hash");
    }
    summary.phase_seconds.emplace_back("Conversion", seconds_since(phase));
    const double computation_seconds = seconds_since(compute_start);

    if (summary.secondary_decimal_hash) {
        if (*summary.secondary_decimal_hash != summary.decimal_hash)
            throw qmp::AlgorithmFailedException(kRun, "Verification failed: the primary and secondary algorithms give different digits.");
        qmp::Console::println("Secondary algorithm agrees.", Colour::Info);
        summary.checks_passed.push_back("Secondary Algorithm");
    }

    const std::string key = spot_check_key(s.constant, s.argument);
    summary.spot_check_good_through = key.empty() ? std::nullopt
        : check_spot_digits(key, dec_writer->integer_part(), dec_digits,
                            [&](char* raw, uint64_t index, uint64_t count) { dec_writer->digits(raw, index, count); });
    if (summary.spot_check_good_through) {
        qmp::Console::println("Spot Check: Good through " + qmp::format_with_commas(*summary.spot_check_good_through), Colour::Info);
        summary.checks_passed.push_back("Spot Check");
    } else {
        qmp::Console::println("Spot Check: Not Available", Colour::Info);
    }

    phase = Clock::now();
    const std::vector<std::string> dec_files = write_digit_output(*dec_writer, dec_forward, dec_digits, s.output,
                                                                  summary.constant_name, summary.algorithm_name,
                                                                  s.output_verify);
    summary.files = dec_files;
    if (hex_writer) {
        const std::vector<std::string> hex_files = write_digit_output(*hex_writer, hex_forward, hex_digits, s.output,
                                                                      summary.constant_name, summary.algorithm_name,
                                                                      s.output_verify);
        summary.files.insert(summary.files.end(), hex_files.begin(), hex_files.end());
    }
    if (s.output_verify && s.output.writer == "disk") summary.checks_passed.push_back("Output Read-Back");
    summary.phase_seconds.emplace_back("Writing", seconds_since(phase));

    summary.sha256_decimal = sha256_of_digits(*dec_writer, dec_digits);
    summary.total_seconds = seconds_since(wall_start);
    summary.peak_memory_bytes = peak_resident_bytes();

    RunTimes times{start_date, now_text(), computation_seconds, summary.total_seconds};
    write_run_artifacts(s, summary, times, hex_writer ? hex_writer.get() : nullptr, *dec_writer);

    qmp::Console::println();
    label("Total Computation Time:  ", std::to_string(computation_seconds) + " seconds");
    label("Start-to-End Wall Time:  ", std::to_string(summary.total_seconds) + " seconds");
    qmp::Console::println();
    return summary;
}

}  // namespace qv
