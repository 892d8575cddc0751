// IoCompletion, LaneQueue and IoThread: the hand-over of pieces between callers and workers.
#include "qmp/farmemory/io_thread.h"

#include "qmp/console.h"
#include "qmp/farmemory/disk_raid0.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace qmp {

void IoCompletion::piece_done(std::exception_ptr error) noexcept {
    // Everything under the lock: a waiter that sees remaining_ == 0 may go on to destroy the
    // request's owner, so the bookkeeping and the wake-up must both be over by then. The
    // worker keeps its own reference to this object while it is here.
    std::lock_guard<std::mutex> lock(mutex_);
    if (error && !error_) error_ = std::move(error);
    if (--remaining_ != 0) return;
    on_finished();
    done_.notify_all();
}

void IoCompletion::wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [this] { return remaining_ == 0; });
    // The caller takes the exception over, so that the exception object dies in its thread
    // and never in a worker that drops its last reference to this request later.
    std::exception_ptr error = std::move(error_);
    error_ = nullptr;
    lock.unlock();
    if (error) std::rethrow_exception(error);
}

bool IoCompletion::finished() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return remaining_ == 0;
}

void LaneQueue::push(std::shared_ptr<LaneCommand> command) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        commands_.push_back(std::move(command));
    }
    work_.notify_all();
}

bool LaneQueue::claim(std::shared_ptr<LaneCommand>& command, size_t& index) {
    std::unique_lock<std::mutex> lock(mutex_);
    work_.wait(lock, [this] { return stopping_ || !commands_.empty(); });
    if (commands_.empty()) return false;
    command = commands_.front();
    index = command->next_piece_++;
    if (command->next_piece_ == command->piece_count_) commands_.pop_front();
    return true;
}

void LaneQueue::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    work_.notify_all();
}

IoThread::IoThread(LaneQueue& queue, IoBuffer buffer, int nice_increment, size_t lane)
    : queue_(queue), buffer_(buffer), nice_increment_(nice_increment), lane_(lane) {
    thread_ = std::thread(&IoThread::thread_routine, this);
}

void IoThread::pin(const std::vector<int>& cores) {
    if (cores.empty()) return;
    cpu_set_t set;
    CPU_ZERO(&set);
    bool valid = true;
    for (int core : cores) {
        if (core < 0 || core >= CPU_SETSIZE) valid = false;
        else CPU_SET(core, &set);
    }
    if (!valid || pthread_setaffinity_np(thread_.native_handle(), sizeof set, &set) != 0) {
        throw DiskRaid0::Raid0Exception(
            "IoThread::pin()",
            "DiskRaid0: Unable to set worker thread affinity for lane " + std::to_string(lane_));
    }
}

IoThread::~IoThread() {
    if (thread_.joinable()) thread_.join();
}

void IoThread::thread_routine(IoThread* self) {
    if (self->nice_increment_ != 0) {
        // On Linux the nice value is per thread: PRIO_PROCESS with the thread id sets this one.
        const id_t tid = id_t(::gettid());
        errno = 0;
        const int now = ::getpriority(PRIO_PROCESS, tid);
        if (::setpriority(PRIO_PROCESS, tid, now + self->nice_increment_) != 0) {
            Console::warning("DiskRaid0: Unable to set the worker thread priority for lane " +
                             std::to_string(self->lane_) + ": " + std::strerror(errno));
        }
    }
    std::shared_ptr<LaneCommand> command;
    size_t index = 0;
    while (self->queue_.claim(command, index)) {
        std::exception_ptr error;
        try {
            command->run_piece(index, self->buffer_);
        } catch (const qmp::Exception&) {
            error = std::current_exception();
        } catch (const std::exception& e) {
            error = std::make_exception_ptr(DiskRaid0::Raid0Exception(
                "IoThread::thread_routine()",
                std::string("An exception was thrown from a worker thread.\n") + e.what()));
        } catch (...) {
            error = std::make_exception_ptr(DiskRaid0::Raid0Exception(
                "IoThread::thread_routine()", "An exception was thrown from a worker thread."));
        }
        if (error) {
            self->buffer_.abandon();
            EventLog::append("IoThread::thread_routine(): An exception was thrown from a worker thread.");
        }
        const std::shared_ptr<IoCompletion> completion = command->completion_pointer();
        command.reset();
        completion->piece_done(std::move(error));
    }
}

}  // namespace qmp
