// The one interface through which all parallel work runs: run tasks 0..N-1 and return when all
// have finished. The arithmetic never creates threads; it cuts its work into N independent
// pieces with disjoint outputs and hands them to whichever framework the user chose.
//
// Contract of run_in_parallel():
//   - every index in [0, task_count) runs exactly once; task_count = 0 does nothing;
//   - the calling thread takes part in the work;
//   - it returns only after every task has finished, also when a task throws;
//   - a task may itself call run_in_parallel() (nested forks, as binary splitting does), to any
//     depth, on every framework, without deadlock;
//   - an exception thrown by a task is carried to the caller and rethrown there (the first one
//     seen), except in frameworks whose design makes a task's exception fatal. After the first
//     exception, tasks that have not started yet may be skipped: the run has failed anyway.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/exception.h"
#include "qmp/parallel/parallel_resource.h"
#include "qmp/parallel/task_function.h"

namespace qmp {

class Parallelizer {
public:
    virtual ~Parallelizer() = default;

    virtual void run_in_parallel(uint64_t task_count, TaskFunction task) = 0;

    template <typename F>
    void run(uint64_t task_count, F&& f) {
        run_in_parallel(task_count, TaskFunction(f));
    }

    template <typename F>
    void run_resource(const ParallelResource& resource, F&& f) {
        run_in_parallel_resource(resource, TaskFunction(f));
    }

    // Runs task(i) for every i in the resource's task range [task_start, task_end), placing the
    // work on the resource's cores where the framework can. Frameworks that cannot throw
    // InvalidParametersException "Not supported.".
    virtual void run_in_parallel_resource(const ParallelResource& resource, TaskFunction task) {
        (void)resource;
        (void)task;
        throw InvalidParametersException("Parallelizer::run_in_parallel_resource()", "Not supported.");
    }

    // One line describing the framework and its settings, as the report's "Threading Mode".
    virtual std::string description() const = 0;
};

// Runs every task inline on the calling thread, in index order: the reference against which
// every parallel framework must give identical results.
class SequentialParallelizer final : public Parallelizer {
public:
    void run_in_parallel(uint64_t task_count, TaskFunction task) override {
        for (uint64_t i = 0; i < task_count; ++i) task(i);
    }
    void run_in_parallel_resource(const ParallelResource& resource, TaskFunction task) override {
        for (uint64_t i = resource.task_start; i < resource.task_end; ++i) task(i);
    }
    std::string description() const override { return "None (No Multi-threading)"; }
};

}  // namespace qmp
