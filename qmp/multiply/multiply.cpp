// Routing of products of any shape through the table. A long A against a short B is cut into
// pieces so that every piece product stays inside the table entry chosen for the short side:
//
//   A: [ piece 0 (p) | piece 1 (p) | ... | last (<= p) ]      p = entry threshold - BL
//   C: [ piece 0 * B (p + BL)        ]
//                   [ + piece 1 * B (p + BL)  ]  ...       (overlap of BL words added)
//
// The piece product is formed in the scratch, whose start is rounded to 128 bytes so that the
// algorithm's own scratch behind it keeps the caller's alignment.
#include "qmp/multiply/multiply.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "qmp/exception.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

// Pieces never exceed this many words (beyond 3 BL), so a large transform entry does not make
// the piece buffer huge when the short operand is small.
constexpr uint64_t max_piece_words_floor = 1 << 16;

struct Plan {
    bool whole = true;
    uint64_t piece_words = 0;           // A's piece length when !whole
    uint64_t piece_buffer_bytes = 0;    // product buffer of one piece, rounded to 128 bytes
    uint64_t algorithm_bytes = 0;       // scratch of the algorithm behind it
};

uint64_t round_up_128(uint64_t bytes) { return (bytes + 127) / 128 * 128; }

// AL >= BL.
Plan make_plan(const AlgorithmTableB& table, uint64_t AL, uint64_t BL) {
    Plan plan;
    const auto& entries = table.entries();
    uint64_t entry_limit = 0;
    for (const auto& e : entries) {
        if (e.first >= 2 * BL) {
            entry_limit = e.first;
            break;
        }
    }
    if (entry_limit == 0 || AL + BL <= entry_limit) {
        // Within one entry (or beyond the table, which the query reports).
        plan.algorithm_bytes = table.max_multiply_buffer_sizes(AL + BL, true);
        return plan;
    }
    plan.whole = false;
    plan.piece_words = std::min(entry_limit - BL, std::max(3 * BL, max_piece_words_floor));
    plan.piece_buffer_bytes = round_up_128((plan.piece_words + BL) * sizeof(uint64_t));
    plan.algorithm_bytes = table.max_multiply_buffer_sizes(plan.piece_words + BL, true);
    return plan;
}

uint64_t plan_bytes(const Plan& plan) { return plan.piece_buffer_bytes + plan.algorithm_bytes; }

}  // namespace

uint64_t multiply_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL) {
    if (AL < BL) std::swap(AL, BL);
    return plan_bytes(make_plan(table, AL, BL));
}

uint64_t square_scratch_bytes(const AlgorithmTableB& table, uint64_t AL) {
    return table.max_square_buffer_sizes(2 * AL, true);
}

void check_mul(const AlgorithmTableB& table, uint64_t AL, uint64_t BL, uint64_t buffer_bytes) {
    const uint64_t need = multiply_scratch_bytes(table, AL, BL);
    if (buffer_bytes < need) throw BufferTooSmallException("check_mul()", buffer_bytes, need);
}

void multiply(const AlgorithmTableB& table, uint64_t* C, const uint64_t* A, uint64_t AL,
              const uint64_t* B, uint64_t BL, void* scratch, uint64_t scratch_bytes,
              Parallelizer* parallelizer, uint64_t tds) {
    if (AL < BL) {
        std::swap(A, B);
        std::swap(AL, BL);
    }
    const Plan plan = make_plan(table, AL, BL);
    if (scratch_bytes < plan_bytes(plan))
        throw BufferTooSmallException("check_mul()", scratch_bytes, plan_bytes(plan));
    const MultiplyContext context{&table, parallelizer, tds};
    if (plan.whole) {
        table.get_algorithm(AL + BL).multiply(C, A, AL, B, BL, scratch, scratch_bytes, context);
        return;
    }
    uint64_t* piece = static_cast<uint64_t*>(scratch);
    void* rest = static_cast<char*>(scratch) + plan.piece_buffer_bytes;
    const uint64_t rest_bytes = scratch_bytes - plan.piece_buffer_bytes;
    const uint64_t p = plan.piece_words;
    const BasicAlgorithm& full = table.get_algorithm(p + BL);
    full.multiply(C, A, p, B, BL, rest, rest_bytes, context);
    for (uint64_t o = p; o < AL;) {
        const uint64_t len = std::min(p, AL - o);
        const uint64_t* X = A + o;
        uint64_t XL = len;
        const uint64_t* Y = B;
        uint64_t YL = BL;
        if (XL < YL) {
            std::swap(X, Y);
            std::swap(XL, YL);
        }
        table.get_algorithm(len + BL).multiply(piece, X, XL, Y, YL, rest, rest_bytes, context);
        const uint64_t carry = add_n(C + o, C + o, piece, BL);
        [[maybe_unused]] const uint64_t top = add_1(C + o + BL, piece + BL, len, carry);
        assert(top == 0);
        o += len;
    }
}

void square(const AlgorithmTableB& table, uint64_t* C, const uint64_t* A, uint64_t AL,
            void* scratch, uint64_t scratch_bytes, Parallelizer* parallelizer, uint64_t tds) {
    const uint64_t need = square_scratch_bytes(table, AL);
    if (scratch_bytes < need) throw BufferTooSmallException("check_mul()", scratch_bytes, need);
    const MultiplyContext context{&table, parallelizer, tds};
    table.get_algorithm(2 * AL).square(C, A, AL, scratch, scratch_bytes, context);
}

}  // namespace qmp
