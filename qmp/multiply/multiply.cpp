// Routing of products of any shape through the table. A long A against a short B is cut into
// pieces so that every piece product stays inside the table entry chosen for the short side:
//
//   A: [ piece 0 (p) | piece 1 (p) | ... | last (<= p) ]
//   C: [ piece 0 * B (p + BL)        ]
//                   [ + piece 1 * B (p + BL)  ]  ...       (overlap of BL words added)
//
// When that entry keeps forward transforms (the FFT), B is transformed once for products of
// p + BL words and every piece costs one forward and one inverse transform of that size: an
// AL x BL product then costs about AL / p products of the short size instead of one transform
// of the whole product. Otherwise p = entry threshold - BL and each piece is an ordinary product.
// Pieces are formed in the scratch, whose start is rounded to 128 bytes so that the algorithm's
// own scratch behind it keeps the caller's alignment. With two or more tasks the pieces run in
// two rounds (even pieces, then odd ones, each round's pieces disjoint in C).
#include "qmp/multiply/multiply.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "qmp/exception.h"
#include "qmp/parallel/parallelizer.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

// Pieces never exceed this many words (beyond 3 BL), so a large transform entry does not make
// the piece buffer huge when the short operand is small.
constexpr uint64_t max_piece_words_floor = 1 << 16;

// Stored-transform pieces: taken when B has at least kStoredMinShortWords words and A at least
// kStoredMinRatio times as many (below it one transform of the whole product is as cheap); a
// piece is kStoredPieceRatio times B's words and at least kStoredMinPieceWords (small transforms
// cost more per word). Measured on AMD Zen 5 (AVX-512 kernels), 4,000,000-word A, one thread,
// seconds per product (qmp_mulbench --short M 4000000): the basecase pieces against stored
// pieces took 0.044 vs 0.048 at 20 words, 0.055 vs 0.048 at 32, 0.088 vs 0.047 at 64, 0.13 vs
// 0.047 at 100; piece floors 2048/4096/8192/16384 words gave 0.048/0.048/0.054/0.070 s at 145
// words and 0.072/0.059/0.063/0.076 s at 1000; the ratio (3 to 15) was within noise.
constexpr uint64_t kStoredMinRatio = 10;
constexpr uint64_t kStoredMinShortWords = 28;
constexpr uint64_t kStoredPieceRatio = 7;
constexpr uint64_t kStoredMinPieceWords = 4096;
// Pieces run as tasks when the context allows and each piece is at least this long.
constexpr uint64_t kParallelMinPieceWords = 2048;

struct Plan {
    bool whole = true;
    bool stored = false;                // B's forward transform is reused by every piece
    const BasicAlgorithm* stored_algorithm = nullptr;
    uint64_t piece_words = 0;           // A's piece length when !whole
    uint64_t piece_buffer_bytes = 0;    // product buffer of one piece, rounded to 128 bytes
    uint64_t transform_bytes = 0;       // B's stored transform, when stored
    uint64_t algorithm_bytes = 0;       // scratch of the algorithm behind it (per task)
    uint64_t tasks = 1;                 // tasks that run pieces, each with its own buffers
    uint64_t carry_bytes = 0;           // carry out of every piece, when tasks > 1
};

uint64_t round_up_128(uint64_t bytes) { return (bytes + 127) / 128 * 128; }

// AL >= BL.
Plan make_plan(const AlgorithmTableB& table, uint64_t AL, uint64_t BL, uint64_t tds) {
    Plan plan;
    const auto& entries = table.entries();
    uint64_t entry_limit = 0;
    for (const auto& e : entries) {
        if (e.first >= 2 * BL) {
            entry_limit = e.first;
            break;
        }
    }
    if (BL >= kStoredMinShortWords && AL >= kStoredMinRatio * BL) {
        // The first entry that keeps transforms and carries a piece product, whatever serves 2 BL.
        const uint64_t p = std::min(AL, std::max(kStoredPieceRatio * BL, kStoredMinPieceWords));
        const BasicAlgorithm* stored = nullptr;
        for (const auto& e : entries) {
            if (e.first >= p + BL && e.second->transform_buffer_bytes(p + BL) != 0) {
                stored = e.second;
                break;
            }
        }
        if (stored != nullptr) {
            plan.stored_algorithm = stored;
            plan.whole = false;
            plan.stored = true;
            plan.piece_words = p;
            plan.piece_buffer_bytes = round_up_128((p + BL) * sizeof(uint64_t));
            plan.transform_bytes = round_up_128(stored->transform_buffer_bytes(p + BL));
            plan.algorithm_bytes = round_up_128(stored->stored_multiply_buffer_bytes(p + BL));
            if (tds >= 2 && p >= kParallelMinPieceWords && AL >= 4 * p) {
                plan.tasks = 2;
                plan.carry_bytes = round_up_128((AL / p + 1) * sizeof(uint64_t));
            }
            return plan;
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

uint64_t plan_bytes(const Plan& plan) {
    return plan.transform_bytes + plan.carry_bytes + plan.tasks * (plan.piece_buffer_bytes + plan.algorithm_bytes);
}

// The product of piece j (A[o, o + len) * B) into `piece`, by the plan's route.
struct PieceRunner {
    const AlgorithmTableB& table;
    const Plan& plan;
    const uint64_t* A;
    uint64_t AL;
    const uint64_t* B;
    uint64_t BL;
    const void* TB;  // B's stored transform, when plan.stored

    uint64_t offset(uint64_t j) const { return j * plan.piece_words; }
    uint64_t length(uint64_t j) const { return std::min(plan.piece_words, AL - offset(j)); }

    void run(uint64_t j, uint64_t* piece, void* scratch, const MultiplyContext& context) const {
        const uint64_t len = length(j);
        const uint64_t* X = A + offset(j);
        if (plan.stored) {
            plan.stored_algorithm->multiply_transformed(piece, TB, X, len, scratch, plan.algorithm_bytes, context);
            return;
        }
        const uint64_t* Y = B;
        uint64_t XL = len, YL = BL;
        if (XL < YL) {
            std::swap(X, Y);
            std::swap(XL, YL);
        }
        table.get_algorithm(len + BL).multiply(piece, X, XL, Y, YL, scratch, plan.algorithm_bytes, context);
    }
};

// C[o, o + len + BL) += piece (len + BL words); returns the carry out of that range.
uint64_t add_piece(uint64_t* C, uint64_t o, const uint64_t* piece, uint64_t len, uint64_t BL, uint64_t CL) {
    const uint64_t n = std::min(len + BL, CL - o);
    const uint64_t carry = add_n(C + o, C + o, piece, n);
    return carry;
}

}  // namespace

uint64_t multiply_scratch_bytes(const AlgorithmTableB& table, uint64_t AL, uint64_t BL) {
    if (AL < BL) std::swap(AL, BL);
    // Sized for two tasks, so that a caller sizing once can run with any task count.
    return plan_bytes(make_plan(table, AL, BL, 2));
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
    Plan plan = make_plan(table, AL, BL, parallelizer != nullptr ? tds : 1);
    if (scratch_bytes < plan_bytes(plan)) {
        // A buffer sized for one task still runs, on one task.
        plan.tasks = 1;
        plan.carry_bytes = 0;
        if (scratch_bytes < plan_bytes(plan))
            throw BufferTooSmallException("check_mul()", scratch_bytes, plan_bytes(plan));
    }
    const MultiplyContext context{&table, parallelizer, tds};
    if (plan.whole) {
        table.get_algorithm(AL + BL).multiply(C, A, AL, B, BL, scratch, scratch_bytes, context);
        return;
    }
    char* base = static_cast<char*>(scratch);
    void* TB = nullptr;
    if (plan.stored) {
        TB = base;
        plan.stored_algorithm->forward_operand(TB, plan.transform_bytes, B, BL, plan.piece_words + BL,
                                                    base + plan.transform_bytes, plan.algorithm_bytes + plan.piece_buffer_bytes,
                                                    context);
        base += plan.transform_bytes;
    }
    auto* carries = reinterpret_cast<uint64_t*>(base);
    base += plan.carry_bytes;
    const PieceRunner runner{table, plan, A, AL, B, BL, TB};
    const uint64_t pieces = (AL + plan.piece_words - 1) / plan.piece_words;
    const uint64_t CL = AL + BL;
    auto task_piece = [&](uint64_t task) { return reinterpret_cast<uint64_t*>(base + task * (plan.piece_buffer_bytes + plan.algorithm_bytes)); };
    auto task_scratch = [&](uint64_t task) { return static_cast<void*>(task_piece(task) + plan.piece_buffer_bytes / 8); };

    if (plan.tasks == 1) {
        // Piece 0 straight into C, the others added over the BL overlapping words.
        const MultiplyContext one{&table, parallelizer, tds};
        runner.run(0, C, task_scratch(0), one);
        if (runner.length(0) + BL < CL) zero_words(C + runner.length(0) + BL, CL - runner.length(0) - BL);
        for (uint64_t j = 1; j < pieces; ++j) {
            runner.run(j, task_piece(0), task_scratch(0), one);
            const uint64_t o = runner.offset(j);
            const uint64_t carry = add_piece(C, o, task_piece(0), runner.length(j), BL, CL);
            [[maybe_unused]] const uint64_t top = carry != 0 ? add_1(C + o + runner.length(j) + BL, C + o + runner.length(j) + BL, CL - o - runner.length(j) - BL, carry) : 0;
            assert(top == 0);
        }
        return;
    }

    // Two rounds: the even pieces are disjoint in C and are written, the odd ones are disjoint
    // and are added; each task takes every other piece of its round.
    zero_words(C, CL);
    const MultiplyContext single{&table, nullptr, 1};
    for (uint64_t parity = 0; parity < 2; ++parity) {
        parallelizer->run(plan.tasks, [&](uint64_t task) {
            for (uint64_t j = parity + 2 * task; j < pieces; j += 2 * plan.tasks) {
                runner.run(j, task_piece(task), task_scratch(task), single);
                carries[j] = add_piece(C, runner.offset(j), task_piece(task), runner.length(j), BL, CL);
            }
        });
    }
    // A piece's carry enters above its range, which other pieces of its round never touch.
    for (uint64_t j = 0; j < pieces; ++j) {
        if (carries[j] == 0) continue;
        const uint64_t end = runner.offset(j) + runner.length(j) + BL;
        [[maybe_unused]] const uint64_t top = add_1(C + end, C + end, CL - end, carries[j]);
        assert(top == 0);
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
