// The first exception thrown by any of the tasks of one run, kept to be rethrown on the caller
// once every task has finished. failed() is a cheap check tasks use to skip work after a
// failure. Thread-safe.
#pragma once

#include <atomic>
#include <exception>
#include <mutex>

namespace qmp {

class FirstError {
public:
    void record(std::exception_ptr error) noexcept {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!error_) error_ = std::move(error);
        failed_.store(true, std::memory_order_release);
    }
    bool failed() const noexcept { return failed_.load(std::memory_order_acquire); }
    // Call only after every task has finished.
    void rethrow_if_any() const {
        if (error_) std::rethrow_exception(error_);
    }

private:
    std::mutex mutex_;
    std::exception_ptr error_;
    std::atomic<bool> failed_{false};
};

}  // namespace qmp
