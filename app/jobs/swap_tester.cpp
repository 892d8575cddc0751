// The far-memory swap tester (job files with "Action" "SwapTester", advanced options): random
// traffic against a far-memory object and an in-memory copy (swap_tester_core.h). Job keys:
// "FarMemoryConfig", "TestBytes", "TotalBytes", "Seconds", "Seed", "Threads". A mismatch or
// an error ends the job with an exception after the report, so the run's status shows it.
#include "app/jobs/jobs.h"

#include "app/jobs/benchio_far_memory.h"
#include "app/jobs/swap_tester_core.h"
#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/farmemory/framework_registry.h"

namespace qv {
namespace {

constexpr const char* kRun = "SwapTester::run()";

void run(const SwapTestSettings& settings) {
    const std::string problem = settings.problem();
    if (!problem.empty()) {
        qmp::Console::println(problem, qmp::Console::Colour::Error);
        throw qmp::InvalidParametersException(kRun, "Cannot run swap test with these parameters.");
    }
    auto framework = qmp::make_far_memory_framework(settings.far_memory);
    qmp::Console::println("Far-Memory Swap Tester", qmp::Console::Colour::Header);
    framework->print_description();
    SwapTestResult result;
    {
        auto object = framework->create("swap-test", settings.test_bytes);
        result = run_swap_test(*object, settings);
    }
    print_swap_test_result(result);
    if (result.mismatch) {
        throw qmp::AlgorithmFailedException(kRun, "Data mismatch at offset " + std::to_string(result.mismatch_offset) + ".");
    }
    if (!result.error.empty()) throw qmp::AlgorithmFailedException(kRun, "The swap test stopped on an error.");
}

}  // namespace

void swap_tester_menu() {
    qmp::Console::print("Path for the test files (empty: the working directory): ", qmp::Console::Colour::Prompt);
    std::string path;
    if (!qmp::Console::read_line(path)) return;
    SwapTestSettings settings = SwapTestSettings::defaults();
    if (!path.empty()) settings.far_memory = disk_far_memory_config({path});
    run(settings);
}

void swap_tester_job(const qmp::ConfigObject& job) { run(SwapTestSettings::from_job(job)); }

}  // namespace qv
