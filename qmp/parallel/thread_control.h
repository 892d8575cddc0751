// Placement and priority of the calling thread: pinning to one logical core or to a set of
// cores, and the scheduling priority (a nice value, lower is more urgent). Failures never
// throw: a thread that cannot be pinned or reprioritised still computes correctly, so the
// failure is reported once on the console (Console::warning) and the work goes on.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace qmp {

// Pins the calling thread to `core`; on failure warns "Failed to set core affinity to core: N"
// and returns false.
bool set_current_thread_affinity(uint32_t core);
// Pins the calling thread to any of `cores` (empty: leaves the affinity alone). On failure warns
// with the first core of the list.
bool set_current_thread_affinity(const std::vector<uint32_t>& cores);

// Sets the calling thread's nice value (-20 .. 19). Returns false on failure after reporting it
// through the process-wide ThreadPriorityReporter.
bool set_current_thread_priority(int nice_value);

// Turns priority failures into console warnings. A refusal for lack of rights (EPERM, EACCES)
// is reported once, followed by a notice that further ones are suppressed; other errors are
// reported every time with their errno. One instance serves the whole process; tests make
// their own.
class ThreadPriorityReporter {
public:
    void report(int error_number);
    static ThreadPriorityReporter& global();

private:
    std::mutex mutex_;
    bool permission_reported_ = false;
};

}  // namespace qmp
