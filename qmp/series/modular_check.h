// The modular redundancy check of binary splitting, qcb_Verify_BSR(): every leaf block and
// every merge above the blocks carries "shadow" residues modulo 2^61 - 1 of its outputs,
// computed from the series' own residue evaluation of each term and propagated through the
// merge formula with mul_m61 (never from the big products). The check reduces the actual
// outputs with mod_m61 and forms two check values:
//   check 0 = res(out[0]) - shadow[0]
//   check 1 = sum_{i >= 1} 3^(i-1) * (res(out[i]) - shadow[i])
// (all mod 2^61 - 1; the first output, P, is the one every merge changes most). A correct
// range gives two zeros; anything else throws BSRCheckFailure from "qcb_Verify_BSR()".
// Each check value is accumulated over ceil(tds/2) chunks of the words; below 10,000 words
// in total the two are formed on the calling thread, else as two tasks of the parallelizer.
#pragma once

#include <cstdint>
#include <string>

#include "qmp/exception.h"
#include "qmp/numbers/big_int.h"

namespace qmp {
class Parallelizer;
}

namespace qmp::BinarySplitting {

// The failed check: a BSRModularCheckFailedException that also carries the range and the two
// check values, which its message lists.
class BSRCheckFailure final : public BSRModularCheckFailedException {
public:
    BSRCheckFailure(uint64_t a, uint64_t b, uint64_t check0, uint64_t check1);
    const char* type_name() const noexcept override { return "BSRModularCheckFailedException"; }
    uint64_t a, b, check0, check1;
};

// Residue of a signed BigInt modulo 2^61 - 1, in [0, p).
uint64_t residue_of(const BigInt<uint64_t>& x);
// Residue of a signed 64-bit magnitude.
uint64_t residue_of(uint64_t magnitude, bool negative);

// Below this many output words in total the two check values are formed on the calling thread.
inline constexpr uint64_t kVerifyParallelMinWords = 10000;

void qcb_Verify_BSR(uint64_t a, uint64_t b, const BigInt<uint64_t>* outputs, const uint64_t* shadow,
                    unsigned count, unsigned mask, Parallelizer* parallelizer, uint64_t tds);

// Test hook: called on a range's outputs after they are computed and before they are checked
// ("leaf" for a leaf block, "merge" for a merge above the blocks). Null: none.
using BSRFaultInjector = void (*)(const char* stage, uint64_t a, uint64_t b, BigInt<uint64_t>* outputs,
                                  unsigned count);
void set_bsr_fault_injector(BSRFaultInjector injector);
BSRFaultInjector bsr_fault_injector();

}  // namespace qmp::BinarySplitting
