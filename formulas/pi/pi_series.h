// The two pi series as P/Q/R series objects with hand-written one- and two-term leaves.
// Chudnovsky, term k >= 1 (alternating; the sign is carried by R):
//   R(k) = -(2k-1)(6k-5)(6k-1),  Q(k) = k^3 * 10939058860032000,
//   P(k) = R(k) * (545140134 k + 13591409)
//   pi = 4270934400 / (sqrt(10005) * (13591409 + S)),  S = sum_k P/Q.
// Ramanujan, term k >= 1:
//   R(k) = (2k-1)(4k-3)(4k-1),  Q(k) = k^3 * 3073907232,  P(k) = R(k) * (26390 k + 1103)
//   pi = 9801 / (sqrt(8) * (1103 + S)).
// Leaf routines write into BigInt buffers and need at least the capacity they are named with
// (Chudnovsky R1 3, P1 5, Q1 4, PR2 6 (R) and 9 (P), Q2 8; Ramanujan R1 3, P1 5, Q1 4,
// R2 6, PR2 9 (P), Q2 7 words); a shorter buffer is BufferTooSmallException naming the leaf.
#pragma once

#include <cstdint>
#include <memory>

#include "qmp/numbers/big_int.h"
#include "qmp/series/pqr_series.h"

namespace qv {

using Int = qmp::BigInt<uint64_t>;

// From this term on, 545140134 k + 13591409 no longer fits one word.
inline constexpr uint64_t kChudnovskyWideLinearTerm = 33838536045ull;
// Above this term, Ramanujan's (2k-1)(4k-3) no longer fits one word.
inline constexpr uint64_t kRamanujanNarrowMaxTerm = uint64_t(1) << 30;

void Pi_Chudnovsky_BSR_End_R1(uint64_t k, Int& R);
void Pi_Chudnovsky_BSR_End_P1(uint64_t k, const Int& R, Int& P);
void Pi_Chudnovsky_BSR_End_Q1(uint64_t k, Int& Q);
// Terms k and k+1: R = R(k) R(k+1) (when R is not null) and P = P(k) Q(k+1) + R(k) P(k+1).
void Pi_Chudnovsky_BSR_End_PR2(uint64_t k, Int& P, Int* R);
void Pi_Chudnovsky_BSR_End_Q2(uint64_t k, Int& Q);

void Pi_Ramanujan_BSR_End_R1(uint64_t k, Int& R);
void Pi_Ramanujan_BSR_End_P1(uint64_t k, const Int& R, Int& P);
void Pi_Ramanujan_BSR_End_Q1(uint64_t k, Int& Q);
void Pi_Ramanujan_BSR_End_R2(uint64_t k, Int& R);
void Pi_Ramanujan_BSR_End_PR2(uint64_t k, Int& P, Int* R);
void Pi_Ramanujan_BSR_End_Q2(uint64_t k, Int& Q);

// The series objects bound to the leaves, and the constants of their finishing step
// pi = D / (sqrt(radicand) * (CQ + S)).
struct PiSeriesConstants {
    uint64_t coefficient_d;
    uint64_t coefficient_q;
    uint64_t radicand;
};
std::unique_ptr<qmp::BinarySplitting::PQRSeries> SeriesStub_Pi_Chudnovsky();
std::unique_ptr<qmp::BinarySplitting::PQRSeries> SeriesStub_Pi_Ramanujan();
inline constexpr PiSeriesConstants kChudnovskyConstants{4270934400ull, 13591409ull, 10005};
inline constexpr PiSeriesConstants kRamanujanConstants{9801ull, 1103ull, 8};

}  // namespace qv
