// Names, the digit fingerprint and the end-of-run files.
#include "app/compute/run_artifacts.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "app/environment.h"
#include "app/report/sha256.h"
#include "app/report/validation_file.h"
#include "app/version.h"
#include "formulas/catalog/algorithm_table.h"
#include "formulas/catalog/constant_table.h"
#include "formulas/catalog/custom_formula_file.h"
#include "qmp/console.h"
#include "qmp/cpu_features.h"
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/digitfiles/digit_stats.h"
#include "qmp/exception.h"

namespace qv {

std::string constant_file_name(const ComputeSettings& s) {
    if (s.constant == "sqrt") return "Sqrt(" + std::to_string(s.argument) + ")";
    if (s.constant == "log") return "Log(" + std::to_string(s.argument) + ")";
    if (s.constant == "brent") return "Euler-Mascheroni Constant";
    if (s.constant == "custom") {
        // The formula file's name without directory and ".cfg": it names the digit files.
        std::string name = s.formula_file.substr(s.formula_file.find_last_of('/') + 1);
        if (name.size() > 4 && name.compare(name.size() - 4, 4, ".cfg") == 0) name.resize(name.size() - 4);
        if (name.empty()) return "Custom Constant";
        CustomFormulaFile::check_name(name);
        return name;
    }
    return ConstantTable::find(s.constant).display_name;
}

std::string algorithm_display_name(const ComputeSettings& s, const std::string& token) {
    const AlgorithmMenu menu = AlgorithmTable::menu_for(s.constant, uint64_t(std::max<int64_t>(s.argument, 0)));
    return menu.find(token).menu_name;
}

std::string describe_threading(const ComputeSettings& s) {
    const std::string key = s.parallelism.framework.get_string("Framework", "describe_threading()");
    std::string text = qmp::find_parallel_framework(key).display_name + " (";
    if (const qmp::ConfigObject* w = s.parallelism.framework.find("WorkerThreads"))
        text += "WorkerThreads " + std::to_string(w->as_integer()) + ", ";
    return text + "TaskDecomposition " + std::to_string(s.parallelism.task_decomposition) + ")";
}

std::string sha256_of_digits(const qmp::FloatWriterB& writer, uint64_t digits) {
    Sha256 hasher;
    constexpr uint64_t kBlock = uint64_t(1) << 20;
    std::vector<char> raw(std::min(digits, kBlock));
    for (uint64_t at = 0; at < digits; at += kBlock) {
        const uint64_t n = std::min(kBlock, digits - at);
        writer.digits(raw.data(), at, n);
        for (uint64_t i = 0; i < n; ++i) raw[i] = char('0' + raw[i]);
        hasher.update(raw.data(), n);
    }
    return Sha256::to_hex(hasher.finish());
}

// The user named by "Username.txt" in the working directory (first line), else the login
// name of the process's user, else $USER; empty when none is known.
static std::string user_name() {
    if (FILE* f = std::fopen("Username.txt", "rb")) {
        char line[256] = {};
        const bool got = std::fgets(line, sizeof line, f) != nullptr;
        std::fclose(f);
        std::string name = got ? line : "";
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
        if (!name.empty()) return name;
    }
    if (const passwd* pw = getpwuid(getuid()); pw != nullptr && pw->pw_name != nullptr) return pw->pw_name;
    const char* user = std::getenv("USER");
    return user != nullptr ? user : "";
}

std::string report_directory(const ComputeSettings& s) {
    return s.output.writer == "stdout" ? std::string() : s.output.path;
}

void write_run_artifacts(const ComputeSettings& s, const RunSummary& summary, const RunTimes& times,
                         const qmp::FloatWriterB* hex_writer, const qmp::FloatWriterB& dec_writer) {
    ValidationRecord r;
    r.program_version = kProgramVersion;
    r.binary_tag = std::string("x64 ") + qmp::simd_level_name(qmp::active_simd_level());
    r.user = user_name();
    r.constant_name = summary.constant_name;
    r.algorithm_name = summary.algorithm_name;
    r.decimal_digits = summary.decimal_digits;
    r.hexadecimal_digits = summary.hexadecimal_digits;
    r.mode = ComputationMode::Ram;
    r.threading_mode = describe_threading(s);
    r.working_memory_bytes = summary.working_memory_bytes;
    r.total_memory_bytes = uint64_t(detect_hardware().total_memory_bytes);
    r.configuration = s.to_config();
    r.start_date = times.start_date;
    r.end_date = times.end_date;
    r.computation_seconds = times.computation_seconds;
    r.wall_seconds = times.wall_seconds;
    r.sha256_first_digit = 1;
    r.sha256_last_digit = summary.decimal_digits;
    r.sha256_decimal_hex = summary.sha256_decimal;
    qmp::DigitCounts dec_counts(10);
    qmp::DigitHash dec_hash(10);
    dec_writer.stat_dec_digits(dec_counts, dec_hash);
    for (uint32_t d = 0; d < 10; ++d) r.decimal_counts[d] = dec_counts[d];
    r.decimal_hash = summary.decimal_hash;
    if (hex_writer != nullptr) {
        qmp::DigitCounts hex_counts(16);
        qmp::DigitHash hex_hash(16);
        hex_writer->stat_hex_digits(hex_counts, hex_hash);
        for (uint32_t d = 0; d < 16; ++d) r.hexadecimal_counts[d] = hex_counts[d];
        r.hexadecimal_hash = summary.hexadecimal_hash.value_or(0);
    }
    if (summary.spot_check_good_through) {
        r.spot_check.kind = SpotCheckKind::GoodThrough;
        r.spot_check.digit_position = *summary.spot_check_good_through;
    }
    r.timer_sanity = TimerSanity::UnableToValidate;
    r.colours = qmp::Console::colours_enabled();
    r.event_log = qmp::EventLog::entries();

    const std::string dir = report_directory(s);
    const std::string validation_path = qmp::join_path(dir, summary.constant_name + " - Validation.txt");
    write_validation_file(validation_path, r);
    const std::string report_path = qmp::join_path(dir, summary.constant_name + " - Report.json");
    const std::string working = report_path + ".tmp";
    const std::string json = run_summary_json(summary);
    std::FILE* f = std::fopen(working.c_str(), "wb");
    bool written = f != nullptr && std::fwrite(json.data(), 1, json.size(), f) == json.size();
    if (f != nullptr && std::fclose(f) != 0) written = false;
    if (!written || std::rename(working.c_str(), report_path.c_str()) != 0) {
        std::remove(working.c_str());
        throw qmp::InvalidParametersException("RunReport::write()", "Unable to write the report: " + report_path);
    }
    qmp::Console::println("Validation File: " + validation_path, qmp::Console::Colour::Info);
    qmp::Console::println("Report:          " + report_path, qmp::Console::Colour::Info);
}

}  // namespace qv
