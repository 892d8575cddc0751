// One Karatsuba step, with A = A1 X + A0, B = B1 X + B0 (X = 2^(64 n), n = ceil(AL / 2)):
//   A B = v0 + (v0 + vinf - s vm1) X + vinf X^2,  v0 = A0 B0, vinf = A1 B1,
//   vm1 = |A0 - A1| |B0 - B1|, s = the sign of (A0 - A1)(B0 - B1).
// Layout while it runs (C has AL + BL words, scratch as below):
//   C:       [ |A0-A1| (n) | |B0-B1| (n) ]  then  [ v0 (2n) | vinf (s + t) ]
//   scratch: [ vm1 (2n) | sub-product scratch, later mid = v0 + vinf -/+ vm1 (2n + 1) ]
// The middle term is combined in place when vinf is longer than n words (combine_in_place);
// for the lopsided splits where it is not, it is built in the scratch and added at C[n].
#include "qmp/multiply/karatsuba.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "qmp/multiply/basecase.h"
#include "qmp/multiply/toom3.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

// D[0, n) = |X[0, n) - Y[0, m)| for n >= m; returns true when X < Y.
bool abs_diff(uint64_t* D, const uint64_t* X, uint64_t n, const uint64_t* Y, uint64_t m) {
    bool x_less = false;
    if (normalized_length(X + m, n - m) == 0) x_less = cmp(X, Y, m) < 0;
    if (x_less) {
        sub_n(D, Y, X, m);
        zero_words(D + m, n - m);
    } else {
        [[maybe_unused]] uint64_t borrow = sub(D, X, n, Y, m);
        assert(borrow == 0);
    }
    return x_less;
}

// C[n, total) += mid[0, mid_words); mid's words beyond the room of C are zero.
void add_middle(uint64_t* C, uint64_t total_words, uint64_t n, const uint64_t* mid,
                uint64_t mid_words) {
    const uint64_t room = total_words - n;
    const uint64_t len = std::min(room, mid_words);
    assert(normalized_length(mid + len, mid_words - len) == 0);
    [[maybe_unused]] uint64_t carry = add(C + n, C + n, room, mid, len);
    assert(carry == 0);
}

// In-place combination when vinf is longer than n words (every balanced split). With
// v0 = l0 + X h0 and vinf = l2 + X h2 in C, and H = h0 + l2:
//   A B = l0 + X (H + l0) + X^2 (H + h2) + X^3 h2 -/+ X vm1,
// so H is formed once and the middle needs about 4 n word operations instead of 6 n. H's carry
// belongs both at X^2 and at X^3. All arithmetic is modulo X^(AL + BL): the final value fits,
// so a carry that leaves the top while a later borrow is still pending cancels out.
void combine_in_place(uint64_t* C, uint64_t total_words, uint64_t n, const uint64_t* vm1,
                      bool subtract) {
    const uint64_t h2_words = total_words - 3 * n;  // >= 1
    uint64_t* l0 = C;
    uint64_t* h0 = C + n;
    uint64_t* l2 = C + 2 * n;
    uint64_t* h2 = C + 3 * n;
    const uint64_t cy_h = add_n(l2, h0, l2, n);        // C[2n, 3n) = H
    const uint64_t cy_low = add_n(h0, l2, l0, n);      // C[n, 2n) = H + l0
    const uint64_t cy_high = add(l2, l2, n, h2, h2_words);  // C[2n, 3n) = H + h2
    int64_t at_3n = int64_t(cy_h + cy_high);
    if (subtract)
        at_3n -= int64_t(sub_n(h0, h0, vm1, 2 * n));
    else
        at_3n += int64_t(add_n(h0, h0, vm1, 2 * n));
    add_1(l2, l2, total_words - 2 * n, cy_h + cy_low);
    if (at_3n > 0)
        add_1(h2, h2, h2_words, uint64_t(at_3n));
    else if (at_3n < 0)
        sub_1(h2, h2, h2_words, uint64_t(1));
}

void karatsuba_mul(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
                   uint64_t* scratch, const KaratsubaThresholds& th) {
    const uint64_t n = (AL + 1) / 2, s = AL - n, t = BL - n;  // 1 <= t <= s <= n
    const bool neg_a = abs_diff(C, A, n, A + n, s);
    const bool neg_b = abs_diff(C + n, B, n, B + n, t);
    uint64_t* vm1 = scratch;
    uint64_t* rest = scratch + 2 * n;
    bkt_mul(vm1, C, n, C + n, n, rest, th);
    bkt_mul(C, A, n, B, n, rest, th);
    bkt_mul(C + 2 * n, A + n, s, B + n, t, rest, th);

    if (s + t > n) {
        combine_in_place(C, AL + BL, n, vm1, neg_a == neg_b);
        return;
    }
    uint64_t* mid = rest;
    mid[2 * n] = add(mid, C, 2 * n, C + 2 * n, s + t);
    if (neg_a == neg_b) {
        [[maybe_unused]] uint64_t borrow = sub(mid, mid, 2 * n + 1, vm1, 2 * n);
        assert(borrow == 0);
    } else {
        [[maybe_unused]] uint64_t carry = add(mid, mid, 2 * n + 1, vm1, 2 * n);
        assert(carry == 0);
    }
    add_middle(C, AL + BL, n, mid, 2 * n + 1);
}

void karatsuba_sqr(uint64_t* C, const uint64_t* A, uint64_t AL, uint64_t* scratch,
                   const KaratsubaThresholds& th) {
    const uint64_t n = (AL + 1) / 2, s = AL - n;
    abs_diff(C, A, n, A + n, s);
    uint64_t* vm1 = scratch;
    uint64_t* rest = scratch + 2 * n;
    bkt_sqr(vm1, C, n, rest, th);
    bkt_sqr(C, A, n, rest, th);
    bkt_sqr(C + 2 * n, A + n, s, rest, th);

    if (2 * s > n) {
        combine_in_place(C, 2 * AL, n, vm1, true);
        return;
    }
    uint64_t* mid = rest;
    mid[2 * n] = add(mid, C, 2 * n, C + 2 * n, 2 * s);
    [[maybe_unused]] uint64_t borrow = sub(mid, mid, 2 * n + 1, vm1, 2 * n);
    assert(borrow == 0);
    add_middle(C, 2 * AL, n, mid, 2 * n + 1);
}

bool takes_karatsuba_step(uint64_t AL, uint64_t BL) { return BL > (AL + 1) / 2; }

}  // namespace

void bkt_mul(uint64_t* C, const uint64_t* A, uint64_t AL, const uint64_t* B, uint64_t BL,
             uint64_t* scratch, const KaratsubaThresholds& th) {
    if (AL < BL) {
        std::swap(A, B);
        std::swap(AL, BL);
    }
    if (BL < th.mul_min_words) {
        mul_basecase(C, A, AL, B, BL);
        return;
    }
    if (BL >= th.toom3_mul_min_words && detail::takes_toom3_step(AL, BL)) {
        detail::toom3_mul(C, A, AL, B, BL, scratch, th);
        return;
    }
    if (takes_karatsuba_step(AL, BL)) {
        karatsuba_mul(C, A, AL, B, BL, scratch, th);
        return;
    }
    // A is at least about twice as long as B: take A in pieces of BL words.
    //   C[0, 2 BL) = A[0, BL) B, then for each further piece at offset o:
    //   C[o, o + BL) already holds the top of the previous product; add the new one there.
    bkt_mul(C, A, BL, B, BL, scratch, th);
    uint64_t* piece = scratch;
    uint64_t* rest = scratch + 2 * BL;
    uint64_t o = BL;
    while (o < AL) {
        const uint64_t len = std::min(BL, AL - o);
        bkt_mul(piece, A + o, len, B, BL, rest, th);
        const uint64_t carry = add_n(C + o, C + o, piece, BL);
        [[maybe_unused]] uint64_t top = add_1(C + o + BL, piece + BL, len, carry);
        assert(top == 0);
        o += len;
    }
}

void bkt_sqr(uint64_t* C, const uint64_t* A, uint64_t AL, uint64_t* scratch,
             const KaratsubaThresholds& th) {
    if (AL < th.sqr_min_words) {
        sqr_basecase(C, A, AL);
        return;
    }
    if (AL >= th.toom3_sqr_min_words && detail::takes_toom3_step(AL, AL)) {
        detail::toom3_sqr(C, A, AL, scratch, th);
        return;
    }
    karatsuba_sqr(C, A, AL, scratch, th);
}

uint64_t bkt_mul_itch(uint64_t AL, uint64_t BL, const KaratsubaThresholds& th) {
    if (AL < BL) std::swap(AL, BL);
    if (BL < th.mul_min_words) return 0;
    if (BL >= th.toom3_mul_min_words && detail::takes_toom3_step(AL, BL)) {
        const uint64_t n = detail::toom3_piece_words(AL), s = AL - 2 * n, t = BL - 2 * n;
        const uint64_t sub = std::max({bkt_mul_itch(n + 1, n + 1, th), bkt_mul_itch(n, n, th),
                                       bkt_mul_itch(s, t, th)});
        return detail::toom3_step_words(AL) + sub;
    }
    if (takes_karatsuba_step(AL, BL)) {
        const uint64_t n = (AL + 1) / 2, s = AL - n, t = BL - n;
        const uint64_t sub = std::max(bkt_mul_itch(n, n, th), bkt_mul_itch(s, t, th));
        return 2 * n + std::max(2 * n + 1, sub);
    }
    const uint64_t r = AL % BL;
    uint64_t sub = bkt_mul_itch(BL, BL, th);
    if (r != 0) sub = std::max(sub, bkt_mul_itch(BL, r, th));
    return 2 * BL + sub;
}

uint64_t bkt_sqr_itch(uint64_t AL, const KaratsubaThresholds& th) {
    if (AL < th.sqr_min_words) return 0;
    if (AL >= th.toom3_sqr_min_words && detail::takes_toom3_step(AL, AL)) {
        const uint64_t n = detail::toom3_piece_words(AL), s = AL - 2 * n;
        const uint64_t sub = std::max({bkt_sqr_itch(n + 1, th), bkt_sqr_itch(n, th), bkt_sqr_itch(s, th)});
        return detail::toom3_step_words(AL) + sub;
    }
    const uint64_t n = (AL + 1) / 2;
    return 2 * n + std::max(2 * n + 1, bkt_sqr_itch(n, th));
}

// Bound of the whole recursion for a product of P words. A Karatsuba step on an n-word split
// takes 4n + 1 words over sub-products of at most 2/3 of P, which sums to about 2 P; a Toom-3
// step takes 8 (n + 1) words, about 1.6 P for the most lopsided shape it accepts, over
// sub-products of at most 0.4 P, which sums to about 2.7 P; pieces of a long operand take
// 2 BL <= 2/3 P over their own products. Each level adds a few words of rounding; 64-bit sizes
// have fewer than 128 levels.
uint64_t bkt_itch_bound(uint64_t product_words) { return 3 * product_words + 1024; }

}  // namespace qmp
