// The one binary-splitting recursion, shared by every family F (a trait that defines the
// outputs, their capacities, the leaf, the merge and the merge of shadow residues):
//   BSR<F>::BSR_S(a, b)   tries BSR_End(a, b); otherwise splits at the series' own point m,
//                         recurses on [a, m) and [m, b) (as two tasks while tds >= 2), merges
//                         with the big products and checks the merge (qcb_Verify_BSR).
//   BSR<F>::BSR_End(a, b) builds a leaf plan (LeafPlan) for the range; a range of fewer than
//                         100 terms or with outputs below kBlockMaxWords is computed in memory
//                         as one block by BSR_BlockB (one task) or BSR_BlockT (two tasks) and
//                         checked; a larger or unaffordable range of >= 100 terms is declined
//                         (the caller splits); < 100 terms that do not fit: InvalidParameters
//                         "Unable to fit even 100 terms in memory.".
// Every routine runs in two modes on the same code path: counting (WorkArena::counting(),
// which sizes the plan) and running. Outputs are BigInts over caller-carved words whose
// capacities are the family's caps; scratch comes from the arena.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "qmp/exception.h"
#include "qmp/parallel/parallelizer.h"
#include "qmp/series/bsr_arith.h"
#include "qmp/series/modular_check.h"
#include "qmp/series/work_arena.h"
#include "qmp/words/mod_m61.h"

namespace qmp::BinarySplitting {

// The plan of one leaf block: the range, the task decomposition it was sized for (and the
// largest it supports), the word capacity of each output and the scratch it needs.
struct LeafPlan {
    uint64_t a = 0, b = 0;
    uint64_t tds = 1;
    uint64_t max_tds = 1;
    unsigned outputs = 0;
    uint64_t output_words[8] = {};
    uint64_t memory_bytes = 0;
    std::string print() const;
};

// Ranges whose outputs exceed this many words in total are not blocks (above 100 terms): the
// recursion above them checks every merge and can run its halves in parallel.
inline constexpr uint64_t kBlockMaxWords = 12288;
// Halves of ranges whose outputs are below this are not worth two tasks.
inline constexpr uint64_t kParallelMinWords = 2048;
// Ranges of more than 1/kSequentialTopShare of all terms run their halves one after the other:
// the top two levels. Planned memory of pi with two threads fell from 2.78 to 1.58 GB at 10^8
// digits and from 24.4 to 15.8 GB at 10^9 (quorvalith custom pi N, "Working Memory:"); the
// series time at 10^7 digits did not change beyond the noise of a loaded machine.
inline constexpr uint64_t kSequentialTopShare = 4;

// A range's outputs, their shadow residues and `scale`: families with kStripsTwos keep their
// denominator as Q * 2^scale with Q odd (the powers of two are shifts, never multiplied).
template <class F>
struct BSRNode {
    Int x[F::kOutputs];
    uint64_t shadow[F::kOutputs] = {};
    uint64_t scale = 0;
};

// Q <- Q / 2^t with t its trailing zero bits, scale += t, and the shadow divided to match.
template <class F>
void strip_twos(BSRNode<F>& node) {
    if constexpr (F::kStripsTwos) {
        Int& q = node.x[F::kQ];
        if (q.L == 0) return;
        uint64_t words = 0;
        while (q.T[words] == 0) ++words;
        const unsigned bits = unsigned(__builtin_ctzll(q.T[words]));
        if (words == 0 && bits == 0) return;
        const uint64_t n = q.L - words;
        if (bits == 0) {
            for (uint64_t i = 0; i < n; ++i) q.T[i] = q.T[i + words];
        } else {
            for (uint64_t i = 0; i + 1 < n; ++i) q.T[i] = (q.T[i + words] >> bits) | (q.T[i + words + 1] << (64 - bits));
            q.T[n - 1] = q.T[n - 1 + words] >> bits;
        }
        q.L = n - (q.T[n - 1] == 0);
        const uint64_t t = 64 * words + bits;
        node.scale += t;
        // 2^61 = 1 modulo the prime, so dividing by 2^t is multiplying by 2^(61 - t mod 61).
        node.shadow[F::kQ] = mul_pow2_m61(node.shadow[F::kQ], (61 - t % 61) % 61);
    }
}

template <class F>
uint64_t total_words(const typename F::Caps& caps, unsigned mask) {
    uint64_t n = 0;
    for (unsigned i = 0; i < F::kOutputs; ++i)
        if (mask & (1u << i)) n += caps[i];
    return n;
}

// Carves the outputs in `mask` with their capacities (empty BigInts in counting mode).
template <class F>
BSRNode<F> carve_node(const typename F::Caps& caps, unsigned mask, WorkArena& arena) {
    BSRNode<F> node;
    for (unsigned i = 0; i < F::kOutputs; ++i)
        if (mask & (1u << i)) node.x[i] = int_over(arena.take_words(caps[i]), caps[i]);
    return node;
}

// The in-memory recursion of one block on one task.
template <class F>
void block_recursion(const typename F::Series& s, uint64_t a, uint64_t b, BSRNode<F>& out, unsigned mask,
                     WorkArena arena, const MulEnv& env) {
    if (b - a <= F::kLeafTerms) {
        if (!arena.is_counting()) {
            F::leaf(s, a, b, out.x, out.shadow, mask);
            out.scale = 0;
            strip_twos<F>(out);
        }
        return;
    }
    const uint64_t m = s.split(a, b);
    const auto capL = F::caps(s, a, m), capR = F::caps(s, m, b);
    const unsigned maskL = F::left_mask(mask), maskR = F::right_mask(mask);
    BSRNode<F> L = carve_node<F>(capL, maskL, arena);
    BSRNode<F> R = carve_node<F>(capR, maskR, arena);
    block_recursion<F>(s, a, m, L, maskL, arena, env);
    block_recursion<F>(s, m, b, R, maskR, arena, env);
    F::merge(MergeSite<typename F::Series>{s, a, m, b, R.scale}, L.x, R.x, out.x, mask, capL, capR, arena, env);
    if (!arena.is_counting()) {
        F::merge_shadow(MergeSite<typename F::Series>{s, a, m, b, R.scale}, L.shadow, R.shadow, out.shadow, mask);
        out.scale = L.scale + R.scale;
    }
}

template <class F>
void check_block_outputs(const LeafPlan& plan, const BSRNode<F>& out, uint64_t tds, bool counting) {
    for (unsigned i = 0; i < F::kOutputs; ++i)
        if (!counting && (plan.outputs & (1u << i)) && out.x[i].capacity < plan.output_words[i])
            throw BufferTooSmallException("BSR_BlockB::run()", out.x[i].capacity, plan.output_words[i]);
    if (tds > plan.max_tds)
        throw InvalidParametersException("BSR_BlockB::run()",
                                         "Attempted to run with a larger tds than the plan supports.");
}

// A block on one task.
template <class F>
struct BSR_BlockB {
    static void run(const typename F::Series& s, const LeafPlan& plan, BSRNode<F>& out, WorkArena arena,
                    const MulEnv& env, uint64_t tds = 1) {
        check_block_outputs<F>(plan, out, tds, arena.is_counting());
        block_recursion<F>(s, plan.a, plan.b, out, plan.outputs, arena, env.with_tds(1));
    }
};

// A block on two tasks: its halves are blocks of their own, run in parallel and merged with
// products on tds tasks.
template <class F>
struct BSR_BlockT {
    static void run(const typename F::Series& s, const LeafPlan& plan, BSRNode<F>& out, WorkArena arena,
                    const MulEnv& env, uint64_t tds) {
        check_block_outputs<F>(plan, out, tds, arena.is_counting());
        const uint64_t a = plan.a, b = plan.b;
        if (tds < 2 || b - a <= F::kLeafTerms || (env.parallelizer == nullptr && !arena.is_counting())) {
            block_recursion<F>(s, a, b, out, plan.outputs, arena, env.with_tds(1));
            return;
        }
        const uint64_t m = s.split(a, b);
        const auto capL = F::caps(s, a, m), capR = F::caps(s, m, b);
        const unsigned maskL = F::left_mask(plan.outputs), maskR = F::right_mask(plan.outputs);
        BSRNode<F> L = carve_node<F>(capL, maskL, arena);
        BSRNode<F> R = carve_node<F>(capR, maskR, arena);
        const uint64_t needL = half_need(s, a, m, maskL, env);
        if (arena.is_counting()) {
            arena.note_transient(needL + half_need(s, m, b, maskR, env));
        } else {
            WorkArena rest = arena;  // the merge below gets the whole frame back
            WorkArena arenaL = rest.split_off(needL);
            env.parallelizer->run(2, [&](uint64_t i) {
                if (i == 0) block_recursion<F>(s, a, m, L, maskL, arenaL, env.with_tds(1));
                else block_recursion<F>(s, m, b, R, maskR, rest, env.with_tds(1));
            });
        }
        F::merge(MergeSite<typename F::Series>{s, a, m, b, R.scale}, L.x, R.x, out.x, plan.outputs, capL, capR, arena, env.with_tds(tds));
        if (!arena.is_counting()) {
            F::merge_shadow(MergeSite<typename F::Series>{s, a, m, b, R.scale}, L.shadow, R.shadow, out.shadow,
                            plan.outputs);
            out.scale = L.scale + R.scale;
        }
    }
    static uint64_t half_need(const typename F::Series& s, uint64_t a, uint64_t b, unsigned mask, const MulEnv& env) {
        WorkArena counter = WorkArena::counting();
        BSRNode<F> node;
        block_recursion<F>(s, a, b, node, mask, counter, env.with_tds(1));
        return counter.peak();
    }
};

// Progress of a summation: the number of terms whose leaf blocks are done.
// With `timing` set, the nanoseconds spent in leaf blocks (including their checks) and in the
// merges above them (with their checks), the merges by log2 of their output words.
struct BSRProgress {
    std::atomic<uint64_t> terms_done{0};
    void (*report)(uint64_t index, void* context) = nullptr;
    void* context = nullptr;
    bool timing = false;
    std::atomic<uint64_t> block_ns{0};
    std::atomic<uint64_t> merge_ns[64] = {};
    std::atomic<uint64_t> merge_count[64] = {};
    static uint64_t now_ns() {
        return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                            std::chrono::steady_clock::now().time_since_epoch())
                            .count());
    }
};

template <class F>
class BSR {
public:
    using Series = typename F::Series;

    // horizon: the end of the whole summation (0: unknown). With a horizon and a series whose
    // split depends on the length only, a block's memory is planned once per (length, outputs,
    // tds) at the last position before the horizon, where every bound is largest, and reused.
    BSR(const Series& series, MulEnv env, BSRProgress* progress = nullptr, uint64_t horizon = 0,
        uint64_t block_max_words = kBlockMaxWords)
        : s_(series), env_(env), progress_(progress), horizon_(horizon), block_max_words_(block_max_words) {}

    // The plan of [a, b) for `tds` tasks.
    LeafPlan make_plan(uint64_t a, uint64_t b, unsigned mask, uint64_t tds) const {
        LeafPlan plan;
        plan.a = a;
        plan.b = b;
        plan.tds = tds;
        plan.max_tds = tds;
        plan.outputs = mask;
        const auto caps = F::caps(s_, a, b);
        for (unsigned i = 0; i < F::kOutputs; ++i) plan.output_words[i] = (mask & (1u << i)) ? caps[i] : 0;
        plan.memory_bytes = block_memory(a, b, mask, tds);
        return plan;
    }

    uint64_t block_memory(uint64_t a, uint64_t b, unsigned mask, uint64_t tds) const {
        const bool memo = horizon_ >= b && s_.split_by_length();
        const uint64_t key = ((b - a) << 8) | (uint64_t(mask) << 2) | (tds >= 2 ? 1 : 0);
        if (memo) {
            std::lock_guard<std::mutex> lock(memo_mutex_);
            auto it = memo_.find(key);
            if (it != memo_.end()) return it->second;
        }
        const uint64_t a0 = memo ? horizon_ - (b - a) : a, b0 = memo ? horizon_ : b;
        LeafPlan probe;
        probe.a = a0;
        probe.b = b0;
        probe.tds = probe.max_tds = tds;
        probe.outputs = mask;
        WorkArena counter = WorkArena::counting();
        BSRNode<F> node;
        if (tds >= 2) {
            BSR_BlockT<F>::run(s_, probe, node, counter, env_, tds);
        } else {
            BSR_BlockB<F>::run(s_, probe, node, counter, env_, 1);
        }
        if (memo) {
            std::lock_guard<std::mutex> lock(memo_mutex_);
            memo_[key] = counter.peak();
        }
        return counter.peak();
    }

    // Returns true when [a, b) was computed (and checked) as one block.
    bool BSR_End(uint64_t a, uint64_t b, BSRNode<F>& out, unsigned mask, WorkArena arena, uint64_t tds) {
        const bool small = b - a < 100;
        if (!small && total_words<F>(F::caps(s_, a, b), mask) > block_max_words_) return false;
        LeafPlan plan = make_plan(a, b, mask, tds);
        if (!arena.is_counting() && plan.memory_bytes > arena.remaining_bytes() && tds > 1) plan = make_plan(a, b, mask, 1);
        if (plan.memory_bytes > arena.remaining_bytes() && !arena.is_counting()) {
            if (!small) return false;
            throw InvalidParametersException(std::string(F::kFamily) + "::BSR_BlockB::BSR_End()",
                                             "Unable to fit even 100 terms in memory.");
        }
        if (arena.is_counting()) {
            arena.note_transient(plan.memory_bytes);
            return true;
        }
        const uint64_t t0 = timing() ? BSRProgress::now_ns() : 0;
        if (plan.tds >= 2) {
            BSR_BlockT<F>::run(s_, plan, out, arena, env_, plan.tds);
        } else {
            BSR_BlockB<F>::run(s_, plan, out, arena, env_, 1);
        }
        if (BSRFaultInjector inject = bsr_fault_injector()) inject("leaf", a, b, out.x, F::kOutputs);
        qcb_Verify_BSR(a, b, out.x, out.shadow, F::kOutputs, mask, env_.parallelizer, plan.tds);
        if (timing()) progress_->block_ns += BSRProgress::now_ns() - t0;
        if (progress_) {
            const uint64_t done = progress_->terms_done.fetch_add(b - a) + (b - a);
            if (progress_->report) progress_->report(done, progress_->context);
        }
        return true;
    }

    void BSR_S(uint64_t a, uint64_t b, BSRNode<F>& out, unsigned mask, WorkArena arena, uint64_t tds) {
        if (BSR_End(a, b, out, mask, arena, tds)) return;
        const uint64_t m = s_.split(a, b);
        const auto capL = F::caps(s_, a, m), capR = F::caps(s_, m, b);
        const unsigned maskL = F::left_mask(mask), maskR = F::right_mask(mask);
        BSRNode<F> L = carve_node<F>(capL, maskL, arena);
        BSRNode<F> R = carve_node<F>(capR, maskR, arena);
        // The halves of the largest nodes run one after the other, each with every task (their
        // products and their own halves use them): run side by side, two halves of the top hold
        // their scratch at once, which sets the peak memory of the whole sum, while one after
        // the other the peak is a single half's or the top merge's.
        const bool top_node = horizon_ != 0 && (b - a) * kSequentialTopShare > horizon_;
        const bool parallel = tds >= 2 && !top_node && (env_.parallelizer != nullptr || arena.is_counting()) &&
                              std::min(total_words<F>(capL, maskL), total_words<F>(capR, maskR)) >= kParallelMinWords;
        if (parallel) {
            const uint64_t tdsL = tds / 2, tdsR = tds - tds / 2;
            const uint64_t needL = need(a, m, maskL, tdsL);
            if (arena.is_counting()) {
                arena.note_transient(needL + need(m, b, maskR, tdsR));
            } else {
                WorkArena rest = arena;  // the merge below gets the whole frame back
                WorkArena arenaL = rest.split_off(needL);
                env_.parallelizer->run(2, [&](uint64_t i) {
                    if (i == 0) BSR_S(a, m, L, maskL, arenaL, tdsL);
                    else BSR_S(m, b, R, maskR, rest, tdsR);
                });
            }
        } else {
            BSR_S(a, m, L, maskL, arena, tds);
            BSR_S(m, b, R, maskR, arena, tds);
        }
        const uint64_t t0 = timing() ? BSRProgress::now_ns() : 0;
        F::merge(MergeSite<typename F::Series>{s_, a, m, b, R.scale}, L.x, R.x, out.x, mask, capL, capR, arena, env_.with_tds(tds));
        if (arena.is_counting()) return;
        F::merge_shadow(MergeSite<typename F::Series>{s_, a, m, b, R.scale}, L.shadow, R.shadow, out.shadow, mask);
        out.scale = L.scale + R.scale;
        if (BSRFaultInjector inject = bsr_fault_injector()) inject("merge", a, b, out.x, F::kOutputs);
        qcb_Verify_BSR(a, b, out.x, out.shadow, F::kOutputs, mask, env_.parallelizer, tds);
        if (timing()) {
            const unsigned bucket = std::bit_width(total_words<F>(F::caps(s_, a, b), mask));
            progress_->merge_ns[bucket] += BSRProgress::now_ns() - t0;
            progress_->merge_count[bucket] += 1;
        }
    }

    // Scratch bytes of BSR_S(a, b) (the outputs not included).
    uint64_t need(uint64_t a, uint64_t b, unsigned mask, uint64_t tds) {
        WorkArena counter = WorkArena::counting();
        BSRNode<F> node;
        BSR_S(a, b, node, mask, counter, tds);
        return counter.peak();
    }

    const Series& series() const noexcept { return s_; }
    const MulEnv& env() const noexcept { return env_; }

private:
    bool timing() const noexcept { return progress_ != nullptr && progress_->timing; }

    const Series& s_;
    MulEnv env_;
    BSRProgress* progress_;
    uint64_t horizon_;
    uint64_t block_max_words_;
    mutable std::mutex memo_mutex_;
    mutable std::map<uint64_t, uint64_t> memo_;
};

}  // namespace qmp::BinarySplitting
