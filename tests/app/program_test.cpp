// End-to-end runs of the built program in a fresh working directory: start-up messages, the
// environment file, the action words and their errors, job files, the main menu and its
// prompts, exit statuses, and what reaches a pipe versus a terminal.
#include "process_runner.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace {

using qvtest::count_occurrences;
using qvtest::RunOptions;
using qvtest::RunResult;
using qvtest::TempDir;

// Every run through pipes must print plain text: no colour or terminal control sequences.
RunResult run(const std::vector<std::string>& args, const TempDir& dir, const std::string& input = "") {
    RunOptions options;
    options.input = input;
    RunResult r = qvtest::run_program(args, dir.path(), options);
    EXPECT_EQ(r.output.find('\x1b'), std::string::npos) << "escape byte in piped output:\n" << r.output;
    return r;
}

const char* const kMenuLines[] = {
    "  0         Benchmark Pi      (standard, memory-intensive)\n",
    "  1         Benchmark Pi BBP  (digit extraction, CPU only)\n",
    "  2         Component Stress Tester\n",
    "  3         Run I/O Performance Analysis\n",
    "  4         Custom Compute a Constant\n",
    "                -   Compute other constants (e, Golden Ratio, etc...)\n",
    "                -   Choose your own settings (use disk for large computations)\n",
    "  5         BBP Digit Extractor for Pi (Customizer)\n",
    "  6         Digit Viewer\n",
    "  7/8       Advanced Options / About\n",
    "  9         Tuning Profile:  NT\n",
};

const char kFallback[] =
    "Unable to load configuration file. The \"DetectedHardware\" section does not\n"
    "match the current hardware configuration.\n"
    "Please fix or delete \"environment.cfg\"\n"
    "Falling back to default settings...\n";

TEST(Program, NoArgumentsShowsTheMenuAndEndOfInputExitsCleanly) {
    TempDir dir;
    const RunResult r = run({}, dir);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(r.output.rfind("Running from console...\n", 0), 0u) << r.output;
    std::string expected_menu;
    for (const char* line : kMenuLines) expected_menu += line;
    EXPECT_NE(r.output.find(expected_menu), std::string::npos) << r.output;
    EXPECT_EQ(count_occurrences(r.output, "Enter your choice: "), 1u);
}

TEST(Program, MenuAsksAgainOnBadEntriesAndReturnsAfterEntries789) {
    TempDir dir;
    // Not a number, out of range both ways, empty, trailing junk: each asked again, then EOF.
    RunResult r = run({}, dir, "abc\n10\n-1\n\n3x\n");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(count_occurrences(r.output, "Enter your choice: "), 6u) << r.output;
    EXPECT_EQ(count_occurrences(r.output, "Please enter a whole number from 0 to 9."), 5u);
    EXPECT_EQ(count_occurrences(r.output, "Main Menu:"), 1u);

    // 8 about, 9 tuning profile (choose 0), 7 advanced options: hardware, then back.
    r = run({}, dir, "8\n9\n0\n7\n1\n0\n");
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(count_occurrences(r.output, "Main Menu:"), 4u) << r.output;
    EXPECT_NE(r.output.find("quorvalith v0.1.0\n\nComputes mathematical constants"), std::string::npos);
    EXPECT_NE(r.output.find("No Training. Disable all training tables and use heuristics."),
              std::string::npos);
    EXPECT_NE(r.output.find("Active tuning profile: NT"), std::string::npos);
    EXPECT_NE(r.output.find("Detected Hardware:\n    CpuVendor: "), std::string::npos) << r.output;
    EXPECT_EQ(count_occurrences(r.output, "Advanced Options:"), 2u);

    // Entry 0 starts the benchmark's interactive form and leaves the menu.
    r = run({}, dir, "0\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("The Pi benchmark is not available in this build."), std::string::npos);
    EXPECT_EQ(count_occurrences(r.output, "Main Menu:"), 1u);
}

TEST(Program, ActionWordsAndTheirErrors) {
    TempDir dir;
    const struct {
        std::vector<std::string> args;
        int status;
        const char* text;
    } cases[] = {
        {{"Bench"}, 1, "Invalid Parameter: Bench"},
        {{"benchx"}, 1, "Invalid Parameter: benchx"},
        {{"bench"}, 1, "No benchmark size selected."},
        {{"bench", "-noSMT"}, 1, "No benchmark size selected."},
        {{"bench", "1b", "2b"}, 1, "Invalid Parameter: 2b"},
        {{"bench", "1b", "-foo"}, 1, "Invalid Command: -foo"},
        {{"bench", "1b", "-TD"}, 1, "Expected more parameters."},
        {{"bench", "1b", "-minIO", "4096"}, 1, "Option -minIO is not supported for this mode."},
        {{"bench", "1b", "-verify"}, 1, "Option -verify is not supported for this mode."},
        {{"bench", "-noSMT", "1b", "-swap", "/tmp", "-minIO", "4096"}, 1,
         "The Pi benchmark is not available in this build."},
        {{"bench-bbp"}, 1, "Expected more parameters."},
        {{"bench-bbp", "100B"}, 1, "Invalid benchmark size: 100B"},
        {{"bench-bbp", "100b", "-TD", "4"}, 1, "Option -TD is not supported for this mode."},
        {{"bench-bbp", "100t"}, 1, "Not run: estimated at more than a day. Add \"confirm\" to run it."},
        {{"stress", "extra"}, 1, "Invalid Parameter: extra"},
        {{"stress", "-M", "1000000"}, 1, "The component stress tester is not available in this build."},
        {{"benchio", "-M", "64k", "-minIO", "16k"}, 0, "Measured bytes per seek: "},
        {{"benchio", "-M", "lots"}, 1, "Invalid size: lots"},
        {{"custom", "-M", "1000"}, 1, "Option -M is not supported for this mode."},
        {{"custom", "-compress", "-verify"}, 1, "Expected more parameters."},
        {{"bbp"}, 1, "No position given."},
        {{"digitviewer", "pi.txt"}, 1, "Unable to open file."},
        {{"digitviewer", "a.txt", "b.txt"}, 1, "Invalid Parameter: b.txt"},
        {{"validate", "nowhere.txt"}, 1, "nowhere.txt"},
        {{"about", "more"}, 1, "Invalid Parameter: more"},
        {{"about"}, 0, "quorvalith v0.1.0\n"},
        {{"config"}, 1, "Please specify a config file."},
        {{"config", "a.cfg", "b.cfg"}, 1, "Invalid Parameter: b.cfg"},
    };
    for (const auto& c : cases) {
        std::string joined;
        for (const std::string& a : c.args) joined += a + " ";
        SCOPED_TRACE("args: " + joined);
        const RunResult r = run(c.args, dir);
        EXPECT_EQ(r.status, c.status) << r.output;
        EXPECT_NE(r.output.find(c.text), std::string::npos) << r.output;
        EXPECT_EQ(r.output.find("Main Menu:"), std::string::npos);  // an action never shows it
    }
}

TEST(Program, OutermostHandlerPrintsTheOperationAndMessage) {
    TempDir dir;
    const RunResult r = run({"Bench"}, dir);
    EXPECT_EQ(r.status, 1);
    const std::string report =
        "Exception Encountered: InvalidParametersException\n\n"
        "In Function: ActionTable::dispatch()\n"
        "Invalid Parameter: Bench\n";
    ASSERT_GE(r.output.size(), report.size());
    EXPECT_EQ(r.output.substr(r.output.size() - report.size() - 1), report + "\n") << r.output;
}

TEST(Program, JobFilesSelectTheJobByItsAction) {
    TempDir dir;
    qvtest::write_file(dir.file("job.cfg"), "{\r\n    Action : \"CustomCompute\"\r\n}\r\n");
    qvtest::write_file(dir.file("io.json"), "{\n  \"Action\": \"BenchIO\",\n  \"MinBlockBytes\": 1000\n}\n");
    qvtest::write_file(dir.file("stress.cfg"), "{ Action : \"StressTest\" }");
    qvtest::write_file(dir.file("swap.cfg"), "{ Action : \"SwapTester\" Threads : 0 }");
    qvtest::write_file(dir.file("lower.cfg"), "{ Action : \"customcompute\" }");
    qvtest::write_file(dir.file("job.txt"), "{ Action : \"CustomCompute\" }");
    qvtest::write_file(dir.file("noaction.cfg"), "{ Job : \"CustomCompute\" }");
    const struct {
        const char* path;
        const char* text;
    } cases[] = {
        // The computation job reads its settings: this file has none.
        {"job", "In Function: ComputeSettings::load_config()\nInvalid Key: Constant"},  // ".cfg" appended
        {"job.cfg", "In Function: ComputeSettings::load_config()\nInvalid Key: Constant"},
        {"io.json", "Cannot run benchmark with these parameters."},
        {"stress", "The component stress tester is not available in this build."},
        {"swap.cfg", "Cannot run swap test with these parameters."},
        {"lower", "Invalid Action: customcompute"},
        {"job.txt", "Extension must be .cfg or .json."},
        {"noaction", "Invalid Key: Action"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        const RunResult r = run({"config", c.path}, dir);
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.output.find(c.text), std::string::npos) << r.output;
    }
}

TEST(Program, EnvironmentFileIsGeneratedOnceAndCheckedAgainstTheHardware) {
    TempDir dir;
    const std::string env_path = dir.file("environment.cfg");
    RunResult r = run({"about"}, dir);
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.output.find("Loading Environment Configuration...\n"
                            "No configuration found. Generating default file...\n"),
              std::string::npos)
        << r.output;
    const std::string generated = qvtest::read_file(env_path);
    EXPECT_EQ(generated.rfind("//  quorvalith Environment Configuration File\r\n//\r\n{", 0), 0u)
        << generated;
    EXPECT_EQ(count_occurrences(generated, "\n"), count_occurrences(generated, "\r\n"));
    EXPECT_NE(generated.find("    DetectedHardware : {"), std::string::npos) << generated;
    EXPECT_NE(generated.find("TuningProfile : \"NT\""), std::string::npos);
    EXPECT_FALSE(std::ifstream(env_path + ".tmp").good());

    // The second run reads it back and accepts it, without rewriting it.
    r = run({"about"}, dir);
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.output.find("Loading Environment Configuration...\nLoading configuration file...\n"),
              std::string::npos)
        << r.output;
    EXPECT_EQ(r.output.find("Unable to load"), std::string::npos) << r.output;
    EXPECT_EQ(qvtest::read_file(env_path), generated);

    // Another processor in the record: the advice, the defaults, and the file left as it is.
    std::string tampered = generated;
    const size_t vendor = tampered.find("CpuVendor : \"");
    ASSERT_NE(vendor, std::string::npos);
    tampered.insert(vendor + 13, "Other");
    qvtest::write_file(env_path, tampered);
    r = run({"about"}, dir);
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.output.find(std::string("Loading configuration file...\n") + kFallback), std::string::npos)
        << r.output;
    EXPECT_EQ(qvtest::read_file(env_path), tampered);

    // A file that does not parse: its error first, then the same advice.
    qvtest::write_file(env_path, "{\r\n    DetectedHardware : {\r\n        CpuVendor : 12,\r\n");
    r = run({"about"}, dir);
    EXPECT_EQ(r.status, 0);
    const size_t error_at = r.output.find("Line 3: Don't use commas to separate elements.");
    const size_t advice_at = r.output.find(kFallback);
    EXPECT_NE(error_at, std::string::npos) << r.output;
    EXPECT_NE(advice_at, std::string::npos) << r.output;
    EXPECT_LT(error_at, advice_at);

    // A record that matches but a setting of the wrong kind is refused the same way.
    std::string bad_setting = generated;
    const size_t td = bad_setting.find("TaskDecomposition : ");
    ASSERT_NE(td, std::string::npos);
    bad_setting.replace(td, 20, "TaskDecomposition : \"many\" // ");
    qvtest::write_file(env_path, bad_setting);
    r = run({"about"}, dir);
    EXPECT_NE(r.output.find("TaskDecomposition: Expected Integer, got String."), std::string::npos)
        << r.output;
    EXPECT_NE(r.output.find(kFallback), std::string::npos);
}

TEST(Program, UnfinishedComputationIsAnnouncedBeforeAnyAction) {
    TempDir dir;
    qvtest::write_file(dir.file("qcp-checkpoint.cfg"), "{}");
    const RunResult r = run({"about"}, dir, "\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.output.find("An unfinished computation has been found.\n"
                            "Resuming from:\n    qcp-checkpoint.cfg\n"
                            "Press ENTER to continue . . .\n\n"),
              std::string::npos)
        << r.output;
    EXPECT_NE(r.output.find("Resuming a computation is not available in this build."), std::string::npos);
    EXPECT_EQ(r.output.find("Computes mathematical constants"), std::string::npos);  // no action ran
}

TEST(Program, TerminalGetsColoursUnlessNoColourIsSet) {
    if (!qvtest::terminals_available()) GTEST_SKIP() << "no pseudo-terminal on this system";
    TempDir dir;
    RunOptions options;
    options.terminal = true;
    RunResult r = qvtest::run_program({}, dir.path(), options);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("Running from console..."), std::string::npos) << r.output;
    // Each entry line sits in its own colour sequence; the four lines checked differ in colour.
    std::vector<std::string> colours;
    for (const char* line : {"  0         Benchmark", "  1         Benchmark", "  2         Component",
                             "  9         Tuning"}) {
        const size_t at = r.output.find(line);
        ASSERT_NE(at, std::string::npos) << r.output;
        const size_t esc = r.output.rfind("\x1b[", at);
        ASSERT_NE(esc, std::string::npos);
        EXPECT_EQ(r.output.find('m', esc) + 1, at) << "entry not directly after its colour";
        colours.push_back(r.output.substr(esc, at - esc));
    }
    for (size_t i = 0; i < colours.size(); ++i)
        for (size_t j = i + 1; j < colours.size(); ++j) EXPECT_NE(colours[i], colours[j]);

    options.extra_env = {"NO_COLOR=1"};
    r = qvtest::run_program({}, dir.path(), options);
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.output.find("Main Menu:"), std::string::npos);
    EXPECT_EQ(r.output.find('\x1b'), std::string::npos) << r.output;
}

TEST(Program, SeparateConsoleSetsTheWindowSizeAndWaitsBeforeClosing) {
    if (!qvtest::terminals_available()) GTEST_SKIP() << "no pseudo-terminal on this system";
    TempDir dir;
    RunOptions options;
    options.terminal = true;
    options.own_session = true;
    options.extra_env = {"NO_COLOR=1"};
    options.input = "\n";  // answers the pause before the window would close
    const RunResult r = qvtest::run_program({"about"}, dir.path(), options);
    EXPECT_EQ(r.status, 0) << r.output;
    // The terminal turns "\n" into "\r\n" (and echoes the typed-ahead input first).
    EXPECT_NE(r.output.find("Running from separate console. Attempting to set window size...\r\n"
                            "\x1b[8;25;80t"),
              std::string::npos)
        << r.output;
    EXPECT_NE(r.output.find("Press ENTER to continue . . ."), std::string::npos);
    EXPECT_EQ(r.output.find("Running from console..."), std::string::npos);
}

}  // namespace
