// Table-driven 8x8 transforms, scalar reference: a 32-bit row pass with the
// 16-bit row tables and a 16-bit saturating column pass.
#include <cstring>

#include "block/dct_consts.h"
#include "block/dct_ref.h"
#include "core/arith.h"

namespace kplvc::block::ref {

namespace {

using namespace kplvc::block::dct;

// x * t for 16-bit x and a table entry: |t| <= 31521, so |x * t| < 2^30.
KPLVC_INLINE int32_t mul(int16_t x, int16_t t) { return int32_t{x} * t; }

// Inverse row step. Each sum of four products plus a rounder can pass 2^31
// when the inputs are near +-32768 (four products of up to 1.03e9): the sums
// wrap in 32 bits, as the pair multiply-accumulate instructions do.
void inv_row(const int16_t* x, const int16_t* T, int32_t R, int16_t* y) {
    const int32_t a0 =
        add32w(add32w(add32w(mul(x[0], T[0]), mul(x[2], T[1])), add32w(mul(x[4], T[4]), mul(x[6], T[5]))), R);
    const int32_t a1 =
        add32w(add32w(add32w(mul(x[0], T[2]), mul(x[2], T[3])), add32w(mul(x[4], T[6]), mul(x[6], T[7]))), R);
    const int32_t a2 = add32w(
        add32w(add32w(mul(x[0], T[8]), mul(x[2], T[9])), add32w(mul(x[4], T[12]), mul(x[6], T[13]))), R);
    const int32_t a3 = add32w(
        add32w(add32w(mul(x[0], T[10]), mul(x[2], T[11])), add32w(mul(x[4], T[14]), mul(x[6], T[15]))), R);
    const int32_t b0 =
        add32w(add32w(mul(x[1], T[16]), mul(x[3], T[17])), add32w(mul(x[5], T[20]), mul(x[7], T[21])));
    const int32_t b1 =
        add32w(add32w(mul(x[1], T[18]), mul(x[3], T[19])), add32w(mul(x[5], T[22]), mul(x[7], T[23])));
    const int32_t b2 =
        add32w(add32w(mul(x[1], T[24]), mul(x[3], T[25])), add32w(mul(x[5], T[28]), mul(x[7], T[29])));
    const int32_t b3 =
        add32w(add32w(mul(x[1], T[26]), mul(x[3], T[27])), add32w(mul(x[5], T[30]), mul(x[7], T[31])));
    y[0] = sat16(add32w(a0, b0) >> 12);
    y[1] = sat16(add32w(a1, b1) >> 12);
    y[2] = sat16(add32w(a2, b2) >> 12);
    y[3] = sat16(add32w(a3, b3) >> 12);
    y[4] = sat16(sub32w(a3, b3) >> 12);
    y[5] = sat16(sub32w(a2, b2) >> 12);
    y[6] = sat16(sub32w(a1, b1) >> 12);
    y[7] = sat16(sub32w(a0, b0) >> 12);
}

// Inverse column step on x[0], x[8], ..., x[56]; every operation saturates
// to 16 bits. The tangent products are high halves (mulhi), so a multiplier
// stored as value - 65536 (tg_3_16, cos_4_16) is compensated by adding x.
// The row-0 rounder supplied the rounding of the final >> 5.
void inv_col(const int16_t* x, int16_t* out) {
    const int16_t x0 = x[0], x1 = x[8], x2 = x[16], x3 = x[24];
    const int16_t x4 = x[32], x5 = x[40], x6 = x[48], x7 = x[56];
    const int16_t u = adds16(adds16(mulhi16(x5, tg_3_16), x5), x3);
    const int16_t v = subs16(x5, adds16(mulhi16(x3, tg_3_16), x3));
    const int16_t p = subs16(mulhi16(x1, tg_1_16), x7);
    const int16_t q = adds16(mulhi16(x7, tg_1_16), x1);
    const int16_t b0 = adds16(q, u), t = subs16(q, u);
    const int16_t b3 = adds16(p, v), s = subs16(p, v);
    const int16_t ts = adds16(t, s), td = subs16(t, s);
    const int16_t b1 = adds16(ts, mulhi16(cos_4_16, ts));
    const int16_t b2 = adds16(mulhi16(cos_4_16, td), td);
    const int16_t e = adds16(mulhi16(x6, tg_2_16), x2);
    const int16_t f = subs16(mulhi16(x2, tg_2_16), x6);
    const int16_t s04 = adds16(x0, x4), d04 = subs16(x0, x4);
    const int16_t a0 = adds16(s04, e), a3 = subs16(s04, e);
    const int16_t a1 = adds16(d04, f), a2 = subs16(d04, f);
    out[0] = static_cast<int16_t>(adds16(a0, b0) >> 5);
    out[8] = static_cast<int16_t>(adds16(a1, b1) >> 5);
    out[16] = static_cast<int16_t>(adds16(a2, b2) >> 5);
    out[24] = static_cast<int16_t>(adds16(a3, b3) >> 5);
    out[32] = static_cast<int16_t>(subs16(a3, b3) >> 5);
    out[40] = static_cast<int16_t>(subs16(a2, b2) >> 5);
    out[48] = static_cast<int16_t>(subs16(a1, b1) >> 5);
    out[56] = static_cast<int16_t>(subs16(a0, b0) >> 5);
}

void inv_rows(const int16_t* src, int16_t* w, int rows) {
    for (int r = 0; r < rows; ++r) inv_row(src + 8 * r, inv_table(r), round_i[r], w + 8 * r);
}

// Forward column step, 16-bit with saturation; shl wraps (keeps 16 bits).
KPLVC_INLINE int16_t shl(int16_t v, int n) { return wrap16(int32_t{v} * (int32_t{1} << n)); }
KPLVC_INLINE int16_t or1(int16_t v) { return static_cast<int16_t>(v | one_corr); }

void fwd_col(const int16_t* x, int16_t* out) {
    const int16_t x0 = x[0], x1 = x[8], x2 = x[16], x3 = x[24];
    const int16_t x4 = x[32], x5 = x[40], x6 = x[48], x7 = x[56];
    const int16_t s07 = shl(adds16(x0, x7), 3), s16 = shl(adds16(x1, x6), 3);
    const int16_t s25 = shl(adds16(x2, x5), 3), s34 = shl(adds16(x3, x4), 3);
    const int16_t d16 = shl(subs16(x1, x6), 4), d25 = shl(subs16(x2, x5), 4);
    const int16_t d34 = shl(subs16(x3, x4), 3), d07 = shl(subs16(x0, x7), 3);
    const int16_t A = subs16(s16, s25), B = subs16(s07, s34);
    const int16_t s0734 = adds16(s07, s34), s1625 = adds16(s16, s25);
    const int16_t P = or1(mulhi16(adds16(d16, d25), ocos_4_16));
    const int16_t Q = mulhi16(subs16(d16, d25), ocos_4_16);
    const int16_t m1 = adds16(d34, Q), m4 = subs16(d34, Q);
    const int16_t m7 = subs16(d07, P), m3 = adds16(d07, P);
    out[0] = adds16(s0734, s1625);
    out[32] = subs16(s0734, s1625);
    out[16] = or1(adds16(mulhi16(A, tg_2_16), B));
    out[48] = or1(subs16(mulhi16(B, tg_2_16), A));
    out[8] = or1(adds16(mulhi16(m1, tg_1_16), m3));
    out[56] = subs16(mulhi16(m3, tg_1_16), m1);
    out[24] = subs16(m7, adds16(mulhi16(m4, tg_3_16), m4));
    out[40] = adds16(adds16(mulhi16(m7, tg_3_16), m7), m4);
}

// Forward row step: saturated butterflies, then 32-bit sums of four
// products (wrapping, as in the inverse) rounded by 2^19 and shifted by 20.
void fwd_row(int16_t* x, const int16_t* F) {
    const int16_t S[4] = {adds16(x[0], x[7]), adds16(x[1], x[6]), adds16(x[2], x[5]), adds16(x[3], x[4])};
    const int16_t D[4] = {subs16(x[0], x[7]), subs16(x[1], x[6]), subs16(x[2], x[5]), subs16(x[3], x[4])};
    for (int j = 0; j < 4; ++j) {
        const int16_t* f = F + 8 * j;
        const int32_t e =
            add32w(add32w(add32w(mul(S[0], f[0]), mul(S[1], f[1])), add32w(mul(S[2], f[4]), mul(S[3], f[5]))),
                   round_frw_row);
        const int32_t o =
            add32w(add32w(add32w(mul(D[0], f[2]), mul(D[1], f[3])), add32w(mul(D[2], f[6]), mul(D[3], f[7]))),
                   round_frw_row);
        x[2 * j] = sat16(e >> 20);
        x[2 * j + 1] = sat16(o >> 20);
    }
}

}  // namespace

void inv(const int16_t* src, int16_t* dst) {
    int16_t w[64];
    inv_rows(src, w, 8);
    for (int c = 0; c < 8; ++c) inv_col(w + c, dst + c);
}

// The block confined to its top-left 4x4 (or 2x2) corner, then the full
// inverse: the coefficients outside the corner are not read.
void inv_4x4(int16_t* blk) {
    int16_t x[64] = {};
    for (int r = 0; r < 4; ++r) std::memcpy(x + 8 * r, blk + 8 * r, 4 * sizeof(int16_t));
    inv(x, blk);
}

void inv_2x2(int16_t* blk) {
    int16_t x[64] = {};
    for (int r = 0; r < 2; ++r) std::memcpy(x + 8 * r, blk + 8 * r, 2 * sizeof(int16_t));
    inv(x, blk);
}

void inv_u8(const int16_t* src, uint8_t* dst, int32_t step) {
    int16_t v[64];
    inv(src, v);
    for (int r = 0; r < 8; ++r) {
        uint8_t* row = dst + static_cast<intptr_t>(r) * step;
        for (int c = 0; c < 8; ++c) row[c] = clip_u8(v[8 * r + c]);
    }
}

void fwd(const int16_t* src, int16_t* dst) {
    int16_t w[64];
    for (int c = 0; c < 8; ++c) fwd_col(src + c, w + c);
    for (int r = 0; r < 8; ++r) fwd_row(w + 8 * r, fwd_table(r));
    std::memcpy(dst, w, sizeof w);
}

void fwd_u8(const uint8_t* src, int32_t step, int16_t* dst) {
    int16_t x[64];
    for (int r = 0; r < 8; ++r) {
        const uint8_t* row = src + static_cast<intptr_t>(r) * step;
        for (int c = 0; c < 8; ++c) x[8 * r + c] = row[c];
    }
    fwd(x, dst);
}

}  // namespace kplvc::block::ref
