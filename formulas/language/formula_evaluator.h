// FormulaEvaluator: the compiled form of one formula node, and the context every evaluator runs
// in. Evaluation has two passes. plan(p) is the sizing pass: it fixes the working precision of
// the node and its subtree (p words kept from the top) and states the node's memory (the words
// of its result buffer and the scratch bytes it carves below that, children included), its
// named buffers and its checkpoint size, without touching any number. evaluate() then runs the
// subtree bottom-up from one caller buffer; it refuses a buffer smaller than the plan before the
// node runs (BufferTooSmallException), which is also the audit that the plan was right.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qmp/multiply/algorithm_table.h"
#include "qmp/numbers/aligned_buffer.h"
#include "qmp/numbers/big_float.h"

namespace qmp {

class Parallelizer;
using FormulaFloat = BigFloat<uint64_t>;

struct FormulaSizing {
    uint64_t output_words = 0;      // result buffer the parent provides
    uint64_t scratch_bytes = 0;     // carved by this node below its result, children included
    uint64_t checkpoint_bytes = 0;  // what a checkpoint of this node's finished value holds
    std::vector<std::pair<std::string, uint64_t>> buffers;  // e.g. {"m_bufferA_x_words", 12}
};

// Shared by the sizing pass and the run. The table must outlive every evaluator planned with it.
struct FormulaContext {
    const AlgorithmTableB* table = nullptr;
    Parallelizer* parallelizer = nullptr;
    uint64_t tds = 1;
    // Status lines ("Multiplying: 3"); empty means silent.
    std::function<void(std::string_view)> status;
    // Test hook: runs on a checked product's words after the product and before its check.
    std::function<void(uint64_t* words, uint64_t n)> product_hook;
    uint64_t steps_done = 0;

    // Prints `verb` followed by the running step number.
    void report(std::string_view verb);
    // A status sink that prints each line on the console in the information colour.
    static std::function<void(std::string_view)> console_status();
};

class FormulaEvaluator {
public:
    explicit FormulaEvaluator(std::string class_name) : class_name_(std::move(class_name)) {}
    virtual ~FormulaEvaluator() = default;
    FormulaEvaluator(const FormulaEvaluator&) = delete;
    FormulaEvaluator& operator=(const FormulaEvaluator&) = delete;

    const std::string& class_name() const noexcept { return class_name_; }

    // The sizing pass for this subtree at p >= 1 words.
    void plan(uint64_t p, const FormulaContext& context);
    bool planned() const noexcept { return planned_; }
    uint64_t precision() const noexcept { return p_; }
    const FormulaSizing& sizing() const noexcept { return sizing_; }
    // Result buffer plus scratch, in bytes, as a parent carves them.
    uint64_t total_bytes() const noexcept;

    // Runs the planned subtree; `out` is set up on `out_buffer` (sizing().output_words words).
    void evaluate(FormulaFloat& out, AlignedBufferC out_buffer, AlignedBufferC scratch, FormulaContext& context);

    virtual void for_each_child(const std::function<void(const FormulaEvaluator&)>& visit) const;

    // A value of a word exponent beyond this is refused: products and powers of such numbers
    // could overflow the 64-bit exponent.
    static constexpr int64_t max_exponent_words = int64_t(1) << 52;

protected:
    virtual FormulaSizing size_node(uint64_t p, const FormulaContext& context) = 0;
    virtual void run(FormulaFloat& out, AlignedBufferC scratch, FormulaContext& context) = 0;

    // "FormulaB_X::run()" for the node's messages.
    std::string run_name() const { return class_name_ + "::run()"; }
    // Throws LimitExceededException "Exponent is out of range." for a value near the limit.
    void check_exponent(const FormulaFloat& x) const;

private:
    std::string class_name_;
    uint64_t p_ = 0;
    bool planned_ = false;
    FormulaSizing sizing_;
};

// Bytes that a value of n_words words takes when carved (rounded to the buffer alignment).
inline uint64_t value_bytes(uint64_t n_words) { return AlignedBufferC::round_up(n_words * sizeof(uint64_t)); }

// Carves a value buffer of n_words words off the bottom of `scratch` and sets `x` on it (zero).
FormulaFloat carve_value(AlignedBufferC& scratch, uint64_t n_words);

// Carves the planned child's result off `scratch` (which keeps the rest) and evaluates the child
// into it with the scratch above; the child's scratch is free again when this returns.
void evaluate_child(FormulaEvaluator& child, FormulaFloat& value, AlignedBufferC& scratch, FormulaContext& context);

}  // namespace qmp
