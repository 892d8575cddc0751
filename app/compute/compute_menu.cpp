// The interactive editor of a computation job.
#include "app/compute/compute_menu.h"

#include "app/compute/compute_command_line.h"
#include "app/compute/float_session.h"
#include "app/compute/job_file.h"
#include "app/compute/run_artifacts.h"
#include "app/compute/working_memory.h"
#include "app/prompt.h"
#include "formulas/catalog/algorithm_table.h"
#include "formulas/catalog/constant_table.h"
#include "qmp/console.h"
#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/exception.h"

namespace qv {
namespace {

using qmp::Console::Colour;

std::string padded(const std::string& label, const std::string& value) {
    std::string line = label;
    if (line.size() < 32) line.resize(32, ' ');
    return line + value;
}

std::string output_text(const ComputeSettings& s) {
    if (s.output.writer == "stdout") return "standard output";
    std::string text = "." + s.output.extension + " in \"" + (s.output.path.empty() ? "." : s.output.path) + "\"";
    if (s.output.extension == "qcd")
        text += s.output.files.digits_per_file == 0 ? ", one file"
                                                    : ", " + qmp::format_with_commas(s.output.files.digits_per_file) + " digits per file";
    return text;
}

void choose_constant(ComputeSettings& settings) {
    // Changed on a copy: a refused argument or formula-file name leaves the settings as they were.
    ComputeSettings s = settings;
    qmp::Console::println(ConstantTable::menu_text());
    const int64_t last = int64_t(ConstantTable::entries().size()) - 1;
    const int64_t index = prompt_integer("Enter your choice: ", 0, last);
    for (const ConstantEntry& e : ConstantTable::entries()) {
        if (e.index != index) continue;
        const std::string token = e.token;
        if (token == "sqrt" || token == "log") s.argument = prompt_integer("Argument n: ", token == "sqrt" ? 1 : 2, INT64_MAX);
        if (token == "brent") s.argument = prompt_integer("Exponent k of n = 2^k: ", 1, 62);
        if (token == "custom") s.formula_file = prompt_line("Path or name of the formula file: ");
        s.set_constant(token);
        constant_file_name(s);
    }
    settings = s;
}

void choose_algorithm(ComputeSettings& s) {
    const AlgorithmMenu menu = AlgorithmTable::menu_for(s.constant, uint64_t(std::max<int64_t>(s.argument, 0)));
    qmp::Console::println(menu.text());
    const int64_t index = prompt_integer("Enter your choice: ", 0, int64_t(menu.algorithms.size()) - 1);
    for (const AlgorithmEntry& e : menu.algorithms)
        if (e.index == index) s.set_algorithm(e.token);
}

void choose_digits(ComputeSettings& s) {
    while (true) {
        const std::string line = prompt_line("Decimal Digits (e.g. 1000000 or 25m): ");
        const std::optional<uint64_t> digits = parse_digit_count(line);
        if (digits && *digits >= kMinDecimalDigits && *digits <= kMaxDecimalDigits) {
            s.decimal_digits = *digits;
            return;
        }
        qmp::Console::println("Please enter a count between 100 and 1,000,000,000,000,000.", Colour::Warning);
    }
}

void choose_output(ComputeSettings& s) {
    const std::string dir = prompt_line("Output directory (empty: working directory, \"-\": console): ");
    if (dir == "-") {
        s.output.writer = "stdout";
        return;
    }
    s.output.writer = "disk";
    s.output.path = dir;
    qmp::Console::println("  0     Text File (.txt)\n  1     Compressed Digit Files (.qcd)");
    s.output.extension = prompt_integer("Enter your choice: ", 0, 1) == 0 ? "txt" : "qcd";
    if (s.output.extension == "qcd") {
        while (true) {
            const int64_t n = prompt_integer("Digits per file (0 for one file): ", 0, INT64_MAX);
            try {
                s.output.files.set_digits_per_file(n);
                return;
            } catch (const qmp::InvalidParametersException& e) {
                qmp::Console::println(e.message(), Colour::Warning);
            }
        }
    }
}

void choose_threading(ComputeSettings& s) {
    qmp::ConfigObject& framework = s.parallelism.framework;
    if (framework.contains("WorkerThreads"))
        framework.get("WorkerThreads", "ComputeMenu") =
            qmp::ConfigObject::make_integer(prompt_integer("Worker threads (0 for one per logical core): ", 0, 65535));
    s.parallelism.task_decomposition =
        uint32_t(prompt_integer("Task decomposition: ", 1, qmp::kMaxTaskDecomposition));
}

void load_or_save(ComputeSettings& s) {
    qmp::Console::println("  1     Load Configuration File\n  2     Save Configuration File");
    if (prompt_integer("Enter your choice: ", 1, 2) == 1) {
        const std::string path = prompt_line("Enter path of configuration file. (the .cfg extension can be omitted)\n");
        load_job_file(path, s);
    } else {
        const std::string path = prompt_line("Enter path to save configuration file. (the .cfg extension can be omitted)\n");
        qmp::Console::println("Saved: " + save_job_file(path, s));
    }
}

}  // namespace

std::vector<std::string> compute_menu_lines(const ComputeSettings& s, ComputeMenuPurpose purpose,
                                            const std::string& memory_needed) {
    const uint64_t hex = s.hexadecimal_digits();
    std::vector<std::string> lines;
    lines.push_back("Custom Compute a Constant");
    lines.push_back("");
    lines.push_back(padded("  1     Constant:", constant_file_name(s)));
    lines.push_back(padded("  2     Algorithm:", algorithm_display_name(s, s.resolved_algorithm())));
    lines.push_back(padded("  3     Decimal Digits:", qmp::format_with_commas(s.decimal_digits)));
    lines.push_back(s.hex_digits ? padded("  4     Hexadecimal Digits:", qmp::format_with_commas(hex))
                                 : "  4     Hexadecimal Digits: (Disabled)");
    lines.push_back(padded("  5     Digit Output:", output_text(s)));
    lines.push_back(s.output_verify ? padded("  6     Verify Output:", "Enabled") : "  6     Verify Output: (Disabled)");
    lines.push_back("  7     Load/Save Configuration File");
    lines.push_back(padded("  8     Multi-Threading:", describe_threading(s)));
    lines.push_back(padded("  9     Logical Memory Needed:", memory_needed));
    lines.push_back(padded("        Logical Disk Needed:", "0 bytes (Ram Only)"));
    lines.push_back("");
    lines.push_back(purpose == ComputeMenuPurpose::Run ? "  0     Start Computation!" : "  0     Finish");
    return lines;
}

bool compute_menu(ComputeSettings& s, ComputeMenuPurpose purpose) {
    while (true) {
        std::string memory;
        try {
            memory = format_bytes(estimate_working_memory(s));
        } catch (const qmp::Exception& e) {
            memory = "unknown (" + e.message() + ")";
        }
        qmp::Console::println();
        for (const std::string& line : compute_menu_lines(s, purpose, memory)) qmp::Console::println(line);
        qmp::Console::println();
        const int64_t choice = prompt_integer("Enter your choice: ", 0, 9);
        try {
            switch (choice) {
                case 0: return true;
                case 1: choose_constant(s); break;
                case 2: choose_algorithm(s); break;
                case 3: choose_digits(s); break;
                case 4: s.hex_digits = !s.hex_digits; break;
                case 5: choose_output(s); break;
                case 6: s.output_verify = !s.output_verify; break;
                case 7: load_or_save(s); break;
                case 8: choose_threading(s); break;
                default: break;  // 9 shows the sizes again
            }
        } catch (const qmp::Exception& e) {
            // A bad choice keeps the previous settings; the menu shows why and goes on.
            e.print();
        }
    }
}

}  // namespace qv
