// Status frames of nested parallel work, for the live status display. A thread running a
// parallel operation owns a ParallelLocalNode and pushes a frame (a subnode) for each nested
// step it enters, popping it when the step ends; ParallelLocalIteration is a frame that also
// counts iterations ("label (3/10)"). The display may read status() from another thread at any
// time: every node guards its frames with its own mutex, locked parent before child.
//
// Errors: pop_frame() with no frame throws "Attempted to pop a non-existent node."; popping a
// frame that still has frames of its own throws "ParallelLocalNode: Attempted to destroy a node
// with subnodes." (or "ParallelLocalIteration: ..." for an iteration frame), the stack
// unchanged; all AlgorithmFailedException, because they mean unbalanced push/pop in our code.
// A destructor cannot throw: a node destroyed with frames left ends the program through
// fatal_error() with the same message, except while an exception is unwinding the stack, when
// the leftover frames are expected (their pops were skipped) and are dropped silently.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace qmp {

class ParallelLocalIteration;

class ParallelLocalNode {
public:
    explicit ParallelLocalNode(std::string label);
    virtual ~ParallelLocalNode();
    ParallelLocalNode(const ParallelLocalNode&) = delete;
    ParallelLocalNode& operator=(const ParallelLocalNode&) = delete;

    // Pushes a frame on top of this node's stack and returns it.
    ParallelLocalNode& push_frame(std::string label);
    ParallelLocalIteration& push_iteration(std::string label, uint64_t total);
    // Removes the top frame (see the errors above).
    void pop_frame();

    uint64_t frame_count() const;
    // This node's text followed by its top frame's status: "Multiply > FFT pass (2/3)".
    std::string status() const;
    const std::string& label() const noexcept { return label_; }

protected:
    virtual std::string own_status() const { return label_; }
    // The message for destroying this kind of node while it has frames.
    virtual const char* destroy_error() const noexcept;

    // Frames are left and no exception is unwinding past this node.
    bool leftover_frames_are_a_bug() const;

    mutable std::mutex mutex_;

private:
    ParallelLocalNode& push(std::unique_ptr<ParallelLocalNode> frame);

    std::string label_;
    std::vector<std::unique_ptr<ParallelLocalNode>> frames_;
    int uncaught_at_construction_;
};

class ParallelLocalIteration final : public ParallelLocalNode {
public:
    ParallelLocalIteration(std::string label, uint64_t total);
    ~ParallelLocalIteration() override;
    void set_iteration(uint64_t iteration);
    uint64_t iteration() const;

protected:
    std::string own_status() const override;
    const char* destroy_error() const noexcept override;

private:
    uint64_t iteration_ = 0;
    uint64_t total_;
};

}  // namespace qmp
