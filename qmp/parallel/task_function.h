// A non-owning reference to a callable taking a task index, so that running tasks never
// allocates. The referenced callable must outlive every call made through the reference
// (Parallelizer::run_in_parallel() returns only after all tasks have finished, which is enough).
#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>

namespace qmp {

class TaskFunction {
public:
    template <typename F,
              typename = std::enable_if_t<!std::is_same_v<std::decay_t<F>, TaskFunction>>>
    TaskFunction(F& f) noexcept  // NOLINT: implicit by design
        : object_(const_cast<void*>(static_cast<const void*>(std::addressof(f)))),
          call_([](void* o, uint64_t index) { (*static_cast<F*>(o))(index); }) {}

    void operator()(uint64_t index) const { call_(object_, index); }

private:
    void* object_;
    void (*call_)(void*, uint64_t);
};

}  // namespace qmp
