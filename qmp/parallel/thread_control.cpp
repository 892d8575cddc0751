// Thread pinning through pthread_setaffinity_np and priority through setpriority() on the
// thread id (Linux gives every thread its own nice value).
#include "qmp/parallel/thread_control.h"

#include "qmp/console.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace qmp {
namespace {

bool pin_to(const std::vector<uint32_t>& cores) {
    // A dynamically sized set: machines with more than CPU_SETSIZE (1024) cores exist.
    uint32_t max_core = 0;
    for (uint32_t c : cores) max_core = c > max_core ? c : max_core;
    const size_t n_cpus = size_t(max_core) + 1;
    cpu_set_t* set = CPU_ALLOC(n_cpus);
    if (set == nullptr) return false;
    const size_t size_bytes = CPU_ALLOC_SIZE(n_cpus);
    CPU_ZERO_S(size_bytes, set);
    for (uint32_t c : cores) CPU_SET_S(c, size_bytes, set);
    const int rc = pthread_setaffinity_np(pthread_self(), size_bytes, set);
    CPU_FREE(set);
    return rc == 0;
}

}  // namespace

bool set_current_thread_affinity(uint32_t core) {
    return set_current_thread_affinity(std::vector<uint32_t>{core});
}

bool set_current_thread_affinity(const std::vector<uint32_t>& cores) {
    if (cores.empty()) return true;
    if (pin_to(cores)) return true;
    Console::warning("Failed to set core affinity to core: " + std::to_string(cores.front()));
    return false;
}

bool set_current_thread_priority(int nice_value) {
    const pid_t tid = static_cast<pid_t>(syscall(SYS_gettid));
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice_value) == 0) return true;
    ThreadPriorityReporter::global().report(errno);
    return false;
}

void ThreadPriorityReporter::report(int error_number) {
    if (error_number == EPERM || error_number == EACCES) {
        std::lock_guard<std::mutex> lock(mutex_);
        // Every worker of a pool hits the same refusal; one explanation is enough.
        if (permission_reported_) return;
        permission_reported_ = true;
        Console::warning("Insufficient permissions to set thread priority. Please retry as root.");
        Console::warning("Further messages for this warning will be suppressed.");
        return;
    }
    Console::warning("Unable to set thread priority: errno = " + std::to_string(error_number));
}

ThreadPriorityReporter& ThreadPriorityReporter::global() {
    static ThreadPriorityReporter reporter;
    return reporter;
}

}  // namespace qmp
