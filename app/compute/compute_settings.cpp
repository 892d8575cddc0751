// Reading, writing and checking the settings of a computation job.
#include "app/compute/compute_settings.h"

#include <sys/stat.h>

#include <cmath>

#include "app/active_profile.h"
#include "app/environment.h"
#include "formulas/catalog/algorithm_table.h"
#include "formulas/catalog/constant_table.h"
#include "qmp/console.h"
#include "qmp/exception.h"

namespace qv {
namespace {

constexpr const char* kLoad = "ComputeSettings::load_config()";
constexpr const char* kOutput = "DigitOutput::load_config()";
constexpr const char* kCheck = "ComputeSettings::check()";

bool takes_integer_argument(const std::string& constant) {
    return constant == "sqrt" || constant == "log" || constant == "brent";
}

}  // namespace

void DigitOutputSettings::load_config(const qmp::ConfigObject& output) {
    const qmp::ConfigObject& object = output.as_object(kOutput);
    path = object.get_string("Path", kOutput);
    const qmp::ConfigObject& digit_writer = object.get("DigitWriter", kOutput).as_object(kOutput);
    const std::string& type = digit_writer.get_string("Framework", kOutput);
    if (type != "disk" && type != "stdout") throw qmp::InvalidParametersException(kOutput, "Invalid Digit Writer: " + type);
    writer = type;
    const std::string& ext = digit_writer.get_string("Extension", kOutput);
    if (ext.empty()) throw qmp::InvalidParametersException(kOutput, "No Extension found.");
    if (ext != "txt" && ext != "qcd") throw qmp::InvalidParametersException(kOutput, "Unrecognized Extension: " + ext);
    extension = ext;
    files = qmp::DigitFileSettings{};
    files.load(digit_writer);
}

qmp::ConfigObject DigitOutputSettings::to_config() const {
    qmp::ConfigObject output = qmp::ConfigObject::make_object();
    output.add_string("Path", path);
    qmp::ConfigObject& digit_writer = output.add_object("DigitWriter");
    digit_writer.add_string("Framework", writer);
    digit_writer.add_string("Extension", extension);
    files.store(digit_writer);
    return output;
}

ComputeSettings ComputeSettings::defaults() {
    ComputeSettings s;
    const qmp::ConfigObject& environment = environment_settings();
    s.parallelism.task_decomposition = uint32_t(environment.get_integer("TaskDecomposition", kLoad));
    s.parallelism.framework = qmp::find_parallel_framework(environment.get_string("Framework", kLoad)).default_config();
    s.algorithm = s.resolved_algorithm();
    return s;
}

void ComputeSettings::set_constant(const std::string& token) {
    constant = ConstantTable::find(token).token;
    algorithm.clear();
    if (constant == "sqrt" && argument < 1) argument = 2;
    if (constant == "log" && argument < 2) argument = 2;
    algorithm = resolved_algorithm();
}

void ComputeSettings::set_algorithm(const std::string& token) {
    const AlgorithmMenu menu = AlgorithmTable::menu_for(constant, uint64_t(std::max<int64_t>(argument, 0)));
    algorithm = token.empty() ? menu.primary().token : menu.find(token).token;
}

std::string ComputeSettings::resolved_algorithm() const {
    const AlgorithmMenu menu = AlgorithmTable::menu_for(constant, uint64_t(std::max<int64_t>(argument, 0)));
    return algorithm.empty() ? menu.primary().token : menu.find(algorithm).token;
}

uint64_t ComputeSettings::hexadecimal_digits() const {
    // log16(10) = 0.830482023721841...; long double keeps the product exact to the digit for
    // every accepted count (below 2^50 * 0.83, 64-bit mantissa).
    const long double ratio = 0.8304820237218405364L;
    return uint64_t(std::floor((long double)decimal_digits * ratio));
}

void ComputeSettings::load_config(const qmp::ConfigObject& job) {
    const qmp::ConfigObject& root = job.as_object(kLoad);

    const qmp::ConfigObject& c = root.get("Constant", kLoad).as_object(kLoad);
    const std::string token = c.get_string("Constant", kLoad);
    constant = ConstantTable::find(token).token;
    argument = 0;
    if (takes_integer_argument(constant)) argument = c.get_integer("Argument", kLoad);
    formula_file = constant == "custom" ? c.get_string("FormulaFile", kLoad) : std::string();
    algorithm.clear();
    set_algorithm(c.get_string("Algorithm", kLoad));

    const qmp::ConfigObject& size = root.get("ComputeSize", kLoad).as_object(kLoad);
    const int64_t digits = size.get_integer("DecimalDigits", kLoad);
    decimal_digits = digits < 0 ? 0 : uint64_t(digits);
    hex_digits = size.get_bool("EnableHexDigits", kLoad);

    output.load_config(root.get("Output", kLoad));
    output_verify = root.get_bool("OutputVerify", kLoad);
    const qmp::ConfigObject* secondary = root.find("VerifyWithSecondary");
    verify_with_secondary = secondary != nullptr && secondary->as_bool("VerifyWithSecondary");
    if (const qmp::ConfigObject* profile = root.find("TuningProfile"))
        set_active_tuning_profile(profile->as_string("TuningProfile"));

    mode = root.get_string("Mode", kLoad);
    if (mode == "swap")
        throw qmp::InvalidParametersException(kLoad, "Swap mode is not available in this build: use \"ram\".");
    if (mode != "ram") throw qmp::InvalidParametersException(kLoad, "Invalid Mode: " + mode);
    parallelism = qmp::ParallelSettings::load_config(root.get("Parallelism", kLoad));
    const qmp::ConfigObject& alloc = root.get("Allocator", kLoad).as_object(kLoad);
    allocator = alloc.get_string("Allocator", kLoad);
    if (allocator != "mmap" && allocator != "mmap-largepages" && allocator != "malloc")
        throw qmp::InvalidParametersException(kLoad, "Invalid Allocator: " + allocator);
}

qmp::ConfigObject ComputeSettings::to_config() const {
    qmp::ConfigObject job = qmp::ConfigObject::make_object();
    job.add_string("Action", "CustomCompute");
    qmp::ConfigObject& c = job.add_object("Constant");
    c.add_string("Constant", constant);
    c.add_string("Algorithm", resolved_algorithm());
    if (takes_integer_argument(constant)) c.add_integer("Argument", argument);
    if (constant == "custom") c.add_string("FormulaFile", formula_file);
    qmp::ConfigObject& size = job.add_object("ComputeSize");
    size.add_integer("DecimalDigits", int64_t(decimal_digits));
    size.add_bool("EnableHexDigits", hex_digits);
    job.add_node("Output", output.to_config());
    job.add_bool("OutputVerify", output_verify);
    job.add_bool("VerifyWithSecondary", verify_with_secondary);
    job.add_string("TuningProfile", active_tuning_profile().name);
    job.add_string("Mode", mode);
    job.add_node("Parallelism", parallelism.to_config());
    job.add_object("Allocator").add_string("Allocator", allocator);
    return job;
}

std::string ComputeSettings::refusal_reason() const {
    if (decimal_digits < kMinDecimalDigits || decimal_digits > kMaxDecimalDigits)
        return "Decimal digits must be between 100 and 1,000,000,000,000,000.";
    if (constant == "sqrt" && argument < 1) return "The argument of Sqrt(n) must be at least 1.";
    if (constant == "log" && argument < 2) return "The argument of Log(n) must be at least 2.";
    if (constant == "brent" && argument < 1) return "The exponent of the Brent-McMillan parameter must be at least 1.";
    if (constant == "custom" && formula_file.empty()) return "A custom constant needs a formula file.";
    if (mode != "ram") return "Only the in-memory mode is available.";
    if (output.writer == "disk" && !output.path.empty()) {
        struct stat st {};
        if (::stat(output.path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
            return "The output directory does not exist: " + output.path;
    }
    if (parallelism.task_decomposition < 1) return "The task decomposition must be at least 1.";
    return "";
}

void ComputeSettings::check() const {
    const std::string reason = refusal_reason();
    if (reason.empty()) return;
    qmp::Console::println(reason, qmp::Console::Colour::Error);
    throw qmp::InvalidParametersException(kCheck, "Cannot run computation with these parameters.");
}

}  // namespace qv
