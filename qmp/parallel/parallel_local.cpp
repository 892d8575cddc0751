// Status frame stacks and their balance checks.
#include "qmp/parallel/parallel_local.h"

#include "qmp/exception.h"
#include "qmp/parallel/fatal_error.h"

#include <exception>

namespace qmp {

ParallelLocalNode::ParallelLocalNode(std::string label)
    : label_(std::move(label)), uncaught_at_construction_(std::uncaught_exceptions()) {}

ParallelLocalNode::~ParallelLocalNode() {
    // A derived class checks in its own destructor, where destroy_error() still names it; this
    // check then only sees plain nodes (or leftovers already judged harmless).
    if (leftover_frames_are_a_bug()) fatal_error("ParallelLocalNode: Attempted to destroy a node with subnodes.");
}

bool ParallelLocalNode::leftover_frames_are_a_bug() const {
    std::lock_guard<std::mutex> lock(mutex_);
    // More exceptions in flight than when the node was made: unwinding skipped the pops.
    return !frames_.empty() && std::uncaught_exceptions() <= uncaught_at_construction_;
}

const char* ParallelLocalNode::destroy_error() const noexcept {
    return "ParallelLocalNode: Attempted to destroy a node with subnodes.";
}

ParallelLocalNode& ParallelLocalNode::push(std::unique_ptr<ParallelLocalNode> frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    frames_.push_back(std::move(frame));
    return *frames_.back();
}

ParallelLocalNode& ParallelLocalNode::push_frame(std::string label) {
    return push(std::make_unique<ParallelLocalNode>(std::move(label)));
}

ParallelLocalIteration& ParallelLocalNode::push_iteration(std::string label, uint64_t total) {
    return static_cast<ParallelLocalIteration&>(push(std::make_unique<ParallelLocalIteration>(std::move(label), total)));
}

void ParallelLocalNode::pop_frame() {
    std::unique_ptr<ParallelLocalNode> top;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (frames_.empty())
            throw AlgorithmFailedException("ParallelLocalNode::pop_frame()", "Attempted to pop a non-existent node.");
        if (frames_.back()->frame_count() != 0)
            throw AlgorithmFailedException("ParallelLocalNode::pop_frame()", frames_.back()->destroy_error());
        top = std::move(frames_.back());
        frames_.pop_back();
    }
}

uint64_t ParallelLocalNode::frame_count() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return frames_.size();
}

std::string ParallelLocalNode::status() const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::string text = own_status();
    if (!frames_.empty()) text += " > " + frames_.back()->status();
    return text;
}

ParallelLocalIteration::ParallelLocalIteration(std::string label, uint64_t total)
    : ParallelLocalNode(std::move(label)), total_(total) {}

ParallelLocalIteration::~ParallelLocalIteration() {
    if (leftover_frames_are_a_bug()) fatal_error(destroy_error());
}

void ParallelLocalIteration::set_iteration(uint64_t iteration) {
    std::lock_guard<std::mutex> lock(mutex_);
    iteration_ = iteration;
}

uint64_t ParallelLocalIteration::iteration() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return iteration_;
}

// Called with mutex_ held by status().
std::string ParallelLocalIteration::own_status() const {
    return label() + " (" + std::to_string(iteration_) + "/" + std::to_string(total_) + ")";
}

const char* ParallelLocalIteration::destroy_error() const noexcept {
    return "ParallelLocalIteration: Attempted to destroy a node with subnodes.";
}

}  // namespace qmp
