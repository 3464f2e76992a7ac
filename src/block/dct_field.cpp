// 2-4-8 (field) transforms, scalar reference. Everything is computed in
// wrapping 32-bit arithmetic and stored into 16-bit cells by keeping the low
// 16 bits: with 16-bit inputs the field sums are 17 bits, their differences
// 18, and the products by 27146 or the row weights pass 2^31.
#include "block/dct_consts.h"
#include "block/dct_ref.h"
#include "core/arith.h"

namespace kplvc::block::ref {

namespace {

using namespace dct;

KPLVC_INLINE int32_t mw(int32_t a, int32_t b) { return mul32w(a, b); }
KPLVC_INLINE int32_t ad(int32_t a, int32_t b) { return add32w(a, b); }
KPLVC_INLINE int32_t sb(int32_t a, int32_t b) { return sub32w(a, b); }

// (v * 27146 + 32768) >> 16: v times tan(2 pi / 16) without the cos(pi / 8)
// factor, which the odd-row weights restore.
KPLVC_INLINE int32_t g(int32_t v) { return ad(mw(v, 27146), 32768) >> 16; }

// 8-point forward row step with weights w = c0, a, b, c1, c3, c5, c7.
void field_row(int16_t* x, const int32_t* w) {
    const int32_t S07 = x[0] + x[7], S16 = x[1] + x[6], S25 = x[2] + x[5], S34 = x[3] + x[4];
    const int32_t D07 = x[0] - x[7], D16 = x[1] - x[6], D25 = x[2] - x[5], D34 = x[3] - x[4];
    const int32_t c0 = w[0], a = w[1], b = w[2], c1 = w[3], c3 = w[4], c5 = w[5], c7 = w[6];
    int32_t o[8];
    o[0] = mw(c0, ad(ad(S07, S16), ad(S25, S34)));
    o[4] = mw(c0, ad(sb(sb(S07, S25), S16), S34));
    o[2] = sb(sb(ad(mw(a, S07), mw(b, S16)), mw(b, S25)), mw(a, S34));
    o[6] = sb(ad(sb(mw(b, S07), mw(a, S16)), mw(a, S25)), mw(b, S34));
    o[1] = ad(ad(ad(mw(c1, D07), mw(c3, D16)), mw(c5, D25)), mw(c7, D34));
    o[3] = sb(sb(sb(mw(c3, D07), mw(c7, D16)), mw(c1, D25)), mw(c5, D34));
    o[5] = ad(ad(sb(mw(c5, D07), mw(c1, D16)), mw(c7, D25)), mw(c3, D34));
    o[7] = sb(ad(sb(mw(c7, D07), mw(c5, D16)), mw(c3, D25)), mw(c1, D34));
    for (int k = 0; k < 8; ++k) x[k] = wrap16(ad(o[k], 32768) >> 16);
}

}  // namespace

void field_fwd(int16_t* blk) {
    for (int c = 0; c < 8; ++c) {
        int32_t s[4], d[4];
        for (int k = 0; k < 4; ++k) {
            s[k] = blk[8 * (2 * k) + c] + blk[8 * (2 * k + 1) + c];
            d[k] = blk[8 * (2 * k) + c] - blk[8 * (2 * k + 1) + c];
        }
        const int32_t r[8] = {
            s[0] + s[1] + s[2] + s[3],       ad(g(s[1] - s[2]), s[0] - s[3]), (s[0] + s[3]) - (s[1] + s[2]),
            sb(g(s[0] - s[3]), s[1] - s[2]), (d[0] + d[3]) + (d[1] + d[2]),   ad(g(d[1] - d[2]), d[0] - d[3]),
            (d[0] + d[3]) - (d[1] + d[2]),   sb(g(d[0] - d[3]), d[1] - d[2]),
        };
        for (int k = 0; k < 8; ++k) blk[8 * k + c] = wrap16(r[k]);
    }
    for (int r = 0; r < 8; ++r) field_row(blk + 8 * r, (r & 1) ? dct::field_fwd_odd : dct::field_fwd_even);
}

void field_inv(int16_t* blk) {
    int32_t w[64];
    for (int r = 0; r < 8; ++r) {
        int32_t x[8];
        for (int k = 0; k < 8; ++k) x[k] = blk[8 * r + k];
        // Products of 16-bit inputs by weights below 2^15 fit; their sums wrap.
        const int32_t p = ad(field_inv_c1 * x[1], field_inv_c7 * x[7]);
        const int32_t q = sb(field_inv_c7 * x[1], field_inv_c1 * x[7]);
        const int32_t rr = ad(field_inv_c3 * x[3], field_inv_c5 * x[5]);
        const int32_t ww = ad(-field_inv_c5 * x[3], field_inv_c3 * x[5]);
        const int32_t m = mw(ad(sb(sb(ad(p, q), rr), ww), 1024) >> 11, field_inv_r) >> 3;
        const int32_t n = mw(ad(ad(sb(sb(p, q), rr), ww), 1024) >> 11, field_inv_r) >> 3;
        const int32_t E0 = (x[0] + x[4]) * field_inv_c4, E1 = (x[0] - x[4]) * field_inv_c4;  // |.| <= 2^30
        const int32_t gg = ad(field_inv_c2 * x[2], field_inv_c6 * x[6]);
        const int32_t hh = sb(field_inv_c6 * x[2], field_inv_c2 * x[6]);
        const int32_t y[8] = {
            ad(ad(p, rr), ad(gg, E0)), ad(m, ad(E1, hh)), ad(n, sb(E1, hh)), ad(ad(q, ww), sb(E0, gg)),
            sb(sb(E0, gg), ad(q, ww)), sb(sb(E1, hh), n), sb(ad(E1, hh), m), sb(ad(gg, E0), ad(p, rr)),
        };
        for (int k = 0; k < 8; ++k) w[8 * r + k] = ad(y[k], 8192) >> 14;
    }
    // Two 4-point vertical passes per column: rows 0..3 hold the sum field,
    // rows 4..7 the difference field; then the fields are interleaved.
    for (int c = 0; c < 8; ++c) {
        int32_t f[2][4];
        for (int h = 0; h < 2; ++h) {
            const int32_t c0 = w[8 * (4 * h) + c], c1 = w[8 * (4 * h + 1) + c];
            const int32_t c2 = w[8 * (4 * h + 2) + c], c3 = w[8 * (4 * h + 3) + c];
            const int32_t a = mw(sb(c0, c2), field_inv_c4), b = mw(ad(c0, c2), field_inv_c4);
            const int32_t G = ad(mw(field_inv_c2, c1), mw(field_inv_c6, c3));
            const int32_t H = sb(mw(field_inv_c6, c1), mw(field_inv_c2, c3));
            f[h][0] = ad(ad(G, b), 65536) >> 17;
            f[h][1] = ad(ad(a, H), 65536) >> 17;
            f[h][2] = ad(sb(a, H), 65536) >> 17;
            f[h][3] = ad(sb(b, G), 65536) >> 17;
        }
        for (int k = 0; k < 4; ++k) {
            blk[8 * (2 * k) + c] = wrap16(ad(f[0][k], f[1][k]));
            blk[8 * (2 * k + 1) + c] = wrap16(sb(f[0][k], f[1][k]));
        }
    }
}

}  // namespace kplvc::block::ref
