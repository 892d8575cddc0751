// The multiplication entry points everyone calls: route a product through an AlgorithmTableB.
//   multiply(): C[0, AL + BL) = A * B, AL, BL >= 1, any shape; square(): C[0, 2 AL) = A^2.
// C must not overlap A, B or the scratch. The scratch (8-byte aligned; 128-byte alignment is
// kept for the algorithm when the caller gives it) must hold multiply_scratch_bytes() (for a
// square, square_scratch_bytes()); check_mul() is the check, a qmp::BufferTooSmallException
// naming "check_mul()", run before anything is written. Sizes beyond the table throw
// qmp::LimitExceededException.
//
// Shapes: the algorithm chosen for the balanced product 2 BL serves the whole product when the
// table entry also covers AL + BL; otherwise A is cut into pieces that entry covers, each
// product is formed in the scratch and accumulated into C.
#pragma once

#include <cstdint>

#include "qmp/multiply/algorithm_table.h"

namespace qmp {

class Parallelizer;

uint64_t multiply_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL);
uint64_t square_scratch_bytes(const AlgorithmTableB& table, uint64_t AL);

// Throws BufferTooSmallException("check_mul()") when buffer_bytes is below the table's need
// for an AL x BL product.
void check_mul(const AlgorithmTableB& table, uint64_t AL, uint64_t BL, uint64_t buffer_bytes);

void multiply(const AlgorithmTableB& table, uint64_t* C, const uint64_t* A, uint64_t AL,
              const uint64_t* B, uint64_t BL, void* scratch, uint64_t scratch_bytes,
              Parallelizer* parallelizer = nullptr, uint64_t tds = 1);
void square(const AlgorithmTableB& table, uint64_t* C, const uint64_t* A, uint64_t AL,
            void* scratch, uint64_t scratch_bytes, Parallelizer* parallelizer = nullptr,
            uint64_t tds = 1);

}  // namespace qmp
