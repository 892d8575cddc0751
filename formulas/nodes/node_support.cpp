// Shared node helpers; see node_support.h.
#include "formulas/nodes/node_support.h"

#include <algorithm>

#include "qmp/exception.h"

namespace qmp {

AlignedBufferC buffer_of(const FormulaFloat& x) { return AlignedBufferC(x.base, x.capacity * sizeof(uint64_t)); }

void set_integer(FormulaFloat& x, int64_t v) {
    x.set_zero();
    if (v == 0) return;
    if (x.capacity < 1) throw BufferTooSmallException("set_integer()", 0, 1);
    x.T = x.base;
    x.T[0] = v < 0 ? uint64_t(0) - uint64_t(v) : uint64_t(v);
    x.L = 1;
    x.exp = 0;
    x.sign = v > 0;
}

void signed_add(FormulaFloat& r, const FormulaFloat& a, const FormulaFloat& b, uint64_t p) {
    // A zero operand carries no meaningful sign: the sum is the other operand.
    if (a.L == 0 || b.L == 0) {
        const FormulaFloat& x = a.L == 0 ? b : a;
        r.set_BigFloat(x, p);
        r.sign = x.sign;
        return;
    }
    if (a.sign == b.sign) {
        r.set_uadd(a, b, p);
        r.sign = a.sign;
        return;
    }
    // |a| - |b| comes out negative when |b| > |a|: then the sum has b's sign.
    r.set_usub(a, b, p);
    r.sign = r.sign ? a.sign : b.sign;
}

void shift_in_place(FormulaFloat& x, int64_t bits) {
    if (x.L == 0) return;
    // bits = 64 q + r with 0 <= r < 64 (floor division for negative shifts).
    int64_t q = bits / 64, r = bits % 64;
    if (r < 0) {
        r += 64;
        q -= 1;
    }
    if (r != 0) x.mul_uW(uint64_t(1) << r);
    x.exp += q;
}

uint64_t node_mul_scratch_bytes(const FormulaContext& context, uint64_t p) {
    const uint64_t n = node_value_words(p);
    return std::max(FormulaFloat::mul_scratch_bytes(*context.table, n, n),
                    FormulaFloat::sqr_scratch_bytes(*context.table, n));
}

FormulaSizing one_child_plan_sizing(const FormulaEvaluator& x, uint64_t p, uint64_t plan_scratch_bytes) {
    FormulaSizing s;
    s.output_words = node_value_words(p);
    s.scratch_bytes = std::max(x.total_bytes(), value_bytes(x.sizing().output_words) + plan_scratch_bytes);
    s.checkpoint_bytes = value_bytes(s.output_words);
    s.buffers = {{"m_x_words", x.sizing().output_words}};
    return s;
}

}  // namespace qmp
