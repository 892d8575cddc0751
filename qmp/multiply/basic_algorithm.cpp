// The refusals of algorithms that keep no forward transforms (see basic_algorithm.h).
#include "qmp/multiply/basic_algorithm.h"

#include "qmp/exception.h"

namespace qmp {

namespace {

[[noreturn]] void refuse(const BasicAlgorithm& algorithm, const char* method) {
    throw InvalidParametersException(std::string(algorithm.name()) + "::" + method + "()",
                                     "Stored transforms are not supported.");
}

}  // namespace

uint64_t BasicAlgorithm::stored_multiply_buffer_bytes(uint64_t) const { refuse(*this, "stored_multiply_buffer_bytes"); }

void BasicAlgorithm::forward_operand(void*, uint64_t, const uint64_t*, uint64_t, uint64_t, void*, uint64_t,
                                     const MultiplyContext&) const {
    refuse(*this, "forward_operand");
}

double BasicAlgorithm::multiply_transformed(uint64_t*, const void*, const uint64_t*, uint64_t, void*, uint64_t,
                                            const MultiplyContext&) const {
    refuse(*this, "multiply_transformed");
}

}  // namespace qmp
