// Product verification by residues modulo p = 2^61 - 1: (A mod p)(B mod p) = C mod p. A random
// error in C escapes with probability ~2^-61; the check costs one pass over A, B and C (run in
// parallel ranges, combined by powers of 2^64). This is the library call behind checked
// multiplication; FFTv4 keeps the residue of a stored transform's operand with the transform.
// Failure: qmp::AlgorithmFailedException "Checksum Mismatch. Multiplication Failed." raised
// under "verify_product()".
#pragma once

#include <cstdint>

#include "qmp/multiply/basic_algorithm.h"

namespace qmp {

class Parallelizer;

// A[0, AL) mod 2^61 - 1, cut into ranges over the parallelizer (null: inline).
uint64_t parallel_mod_m61(const uint64_t* A, uint64_t AL, Parallelizer* parallelizer, uint64_t tds);

// Throws unless C mod p equals residue_a * residue_b mod p.
void verify_product(uint64_t residue_a, uint64_t residue_b, const uint64_t* C, uint64_t CL,
                    Parallelizer* parallelizer, uint64_t tds);

// C[0, AL + BL) = A * B through `algorithm`, verified by residues. For a square pass the same
// pointer and length for A and B: the algorithm's square() runs.
void checked_multiply(const BasicAlgorithm& algorithm, uint64_t* C, const uint64_t* A,
                      uint64_t AL, const uint64_t* B, uint64_t BL, void* scratch,
                      uint64_t scratch_bytes, const MultiplyContext& context);

}  // namespace qmp
