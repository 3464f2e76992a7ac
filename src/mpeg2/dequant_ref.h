// Scalar reference of the weighted inverse quantisers shared by MPEG-2 and
// MPEG-4 (the MPEG-4 method is MPEG-2's with one less bit of shift).
//
// Per coefficient in 16-bit two's-complement lanes: products and sums keep
// their low 16 bits, shifts are arithmetic on the 16-bit value, the result is
// clamped to -2048..2047. Adding 2^S - 1 before the shift by S makes it
// truncate toward zero while nothing wraps; a wrapped product is shifted and
// clamped as it is.
#pragma once

#include <cstdint>

#include "core/arith.h"

namespace kplvc::dequant_ref {

KPLVC_INLINE int16_t clamp2048(int32_t v) { return static_cast<int16_t>(clip3(-2048, 2047, v)); }

// Mismatch control: when the sum of the block is even, the last coefficient
// moves by one toward the odd value beside it (odd - 1, even + 1). Only the
// parity of the sum matters; |sum| <= 32768 + 64 * 2048 fits in int32.
KPLVC_INLINE void mismatch(int16_t* block, int32_t sum) {
    if ((sum & 1) != 0) return;
    const int16_t v = block[63];
    block[63] = static_cast<int16_t>((v & 1) != 0 ? v - 1 : v + 1);
}

KPLVC_INLINE int32_t sgn(int16_t c) { return (c > 0) - (c < 0); }

// Intra: p = low16(low16(c*q)*W); + 2^S - 1 when c <= 0; >> S; clamp. The DC
// takes part as 0 (giving 0) and is put back afterwards; it counts in the
// sum as given.
template <int S>
void intra(int16_t* block, int32_t qp, const int16_t* w) {
    const int16_t q = wrap16(qp);
    const int16_t c0 = block[0];
    int32_t sum = c0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = i == 0 ? int16_t{0} : block[i];
        int16_t p = mullo16(mullo16(c, q), w[i]);
        if (c <= 0) p = addw16(p, (1 << S) - 1);
        p = clamp2048(p >> S);
        block[i] = p;
        sum += p;
    }
    block[0] = c0;
    mismatch(block, sum);
}

// Non-intra with weights: t = low16(2c + sgn c); p = low16(low16(t*q)*W);
// + 2^S - 1 when c < 0; >> S; clamp.
template <int S>
void inter(int16_t* block, int32_t qp, const int16_t* w) {
    const int16_t q = wrap16(qp);
    int32_t sum = 0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = block[i];
        const int16_t t = wrap16(2 * int32_t{c} + sgn(c));
        int16_t p = mullo16(mullo16(t, q), w[i]);
        if (c < 0) p = addw16(p, (1 << S) - 1);
        p = clamp2048(p >> S);
        block[i] = p;
        sum += p;
    }
    mismatch(block, sum);
}

// Non-intra without weights: p = low16(t*q); + 2^S - 1 when c < 0; >> S;
// clamp. This equals a flat weight of 16 only while nothing wraps: here t*q
// wraps at 16 bits, where the weighted form wraps t*q*16.
template <int S>
void flat(int16_t* block, int32_t qp, const int16_t*) {
    const int16_t q = wrap16(qp);
    int32_t sum = 0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = block[i];
        const int16_t t = wrap16(2 * int32_t{c} + sgn(c));
        int16_t p = mullo16(t, q);
        if (c < 0) p = addw16(p, (1 << S) - 1);
        p = clamp2048(p >> S);
        block[i] = p;
        sum += p;
    }
    mismatch(block, sum);
}

}  // namespace kplvc::dequant_ref
