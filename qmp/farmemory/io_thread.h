// The worker threads of a disk lane and the queue that feeds them. A caller's request is cut
// into pieces; the pieces of one lane form one LaneCommand, pushed on that lane's queue. Each
// worker of the lane claims the next unclaimed piece of the oldest command, runs it with its
// own IoBuffer, and reports it done to the request's IoCompletion, which wakes the caller when
// the last piece is done. The first exception of any piece is kept and rethrown by wait() in
// the caller's thread; a worker never dies of an exception (IoThread::thread_routine() catches
// everything; a non-qmp exception becomes "An exception was thrown from a worker thread.").
#pragma once

#include "qmp/farmemory/io_buffer.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace qmp {

class IoCompletion {
public:
    explicit IoCompletion(size_t pieces) : remaining_(pieces) {}
    virtual ~IoCompletion() = default;
    // Called once per piece, with the piece's exception (or none).
    void piece_done(std::exception_ptr error) noexcept;
    // Blocks until every piece is done; rethrows the first exception (once: a second wait
    // returns normally).
    void wait();
    bool finished() const;

protected:
    // Runs once, after the last piece and before any waiter can wake (the owner's bookkeeping
    // of active requests); it must not call back into this object.
    virtual void on_finished() noexcept {}

private:
    mutable std::mutex mutex_;
    std::condition_variable done_;
    size_t remaining_;
    std::exception_ptr error_;
};

class LaneCommand {
public:
    LaneCommand(std::shared_ptr<IoCompletion> completion, size_t piece_count)
        : completion_(std::move(completion)), piece_count_(piece_count) {}
    virtual ~LaneCommand() = default;
    size_t piece_count() const noexcept { return piece_count_; }
    const std::shared_ptr<IoCompletion>& completion_pointer() const noexcept { return completion_; }
    virtual void run_piece(size_t index, IoBuffer& buffer) = 0;

private:
    friend class LaneQueue;
    std::shared_ptr<IoCompletion> completion_;
    size_t piece_count_;
    size_t next_piece_ = 0;  // guarded by the queue's mutex
};

class LaneQueue {
public:
    void push(std::shared_ptr<LaneCommand> command);
    // Waits for a piece; false once stop() was called and the queue is empty.
    bool claim(std::shared_ptr<LaneCommand>& command, size_t& index);
    void stop();

private:
    std::mutex mutex_;
    std::condition_variable work_;
    std::deque<std::shared_ptr<LaneCommand>> commands_;
    bool stopping_ = false;
};

class IoThread {
public:
    // Starts the worker. A nonzero `nice_increment` lowers (positive) or raises (negative) its
    // scheduling priority, with a warning when refused.
    IoThread(LaneQueue& queue, IoBuffer buffer, int nice_increment, size_t lane);
    // Pins the worker to `cores` ("DiskRaid0: Unable to set worker thread affinity for lane N"
    // as qmp::DiskRaid0::Raid0Exception when the system refuses). A separate step, so that a
    // refusal leaves a whole object that the owner stops and joins.
    void pin(const std::vector<int>& cores);
    // The queue must have been stopped; joins the thread.
    ~IoThread();
    IoThread(const IoThread&) = delete;
    IoThread& operator=(const IoThread&) = delete;

private:
    static void thread_routine(IoThread* self);

    LaneQueue& queue_;
    IoBuffer buffer_;
    int nice_increment_;
    size_t lane_;
    std::thread thread_;
};

}  // namespace qmp
