// SSE2 H.264 deblocking. A line of 16 samples across the block is one
// register; the arithmetic runs on its two halves in 16-bit lanes. Vertical
// edges transpose the whole 16-row stripe once (and the 4 columns left of
// it), filter the columns as rows, and transpose back.
#include <emmintrin.h>

#include "core/arith.h"
#include "h264/deblock.h"

namespace kplvc::h264::x86::sse2 {
namespace {

struct O {
    using V = __m128i;
    static V zero() { return _mm_setzero_si128(); }
    static V set1(int v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }
    static V add(V a, V b) { return _mm_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi16(a, b); }
    template <int N>
    static V sra(V a) { return _mm_srai_epi16(a, N); }
    static V min(V a, V b) { return _mm_min_epi16(a, b); }
    static V max(V a, V b) { return _mm_max_epi16(a, b); }
    static V lt(V a, V b) { return _mm_cmplt_epi16(a, b); }
    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V andnot(V m, V a) { return _mm_andnot_si128(m, a); }  // a & ~m
    static V or_(V a, V b) { return _mm_or_si128(a, b); }
    static V sel(V m, V a, V b) { return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b)); }
};

#include "h264/x86/deblock_core.inc"

inline __m128i lo16(__m128i v) { return _mm_unpacklo_epi8(v, _mm_setzero_si128()); }
inline __m128i hi16(__m128i v) { return _mm_unpackhi_epi8(v, _mm_setzero_si128()); }

// Four bytes b0..b3 spread to sixteen: b0 x4, b1 x4, b2 x4, b3 x4.
inline __m128i spread4(const uint8_t* p) {
    const __m128i x = _mm_cvtsi32_si128(static_cast<int>(load32u(p)));
    const __m128i y = _mm_unpacklo_epi8(x, x);
    return _mm_unpacklo_epi16(y, y);
}

// Filters one luma edge: c[0..7] are the lines p3..q3 (16 samples each).
inline void luma_edge(__m128i* c, const uint8_t* bs4, const uint8_t* tc4, int alpha, int beta, bool strong) {
    const __m128i s = spread4(bs4), t = spread4(tc4);
    for (int h = 0; h < 2; ++h) {
        auto half = h == 0 ? lo16 : hi16;
        LumaParams<O> k;
        k.alpha = O::set1(alpha);
        k.beta = O::set1(beta);
        k.tc0 = half(t);
        k.on = _mm_xor_si128(_mm_cmpeq_epi16(half(s), O::zero()), _mm_set1_epi16(-1));
        k.strong = strong ? _mm_set1_epi16(-1) : O::zero();
        LumaLines<O> l{half(c[0]), half(c[1]), half(c[2]), half(c[3]),
                       half(c[4]), half(c[5]), half(c[6]), half(c[7])};
        luma_filter<O>(l, k);
        const __m128i r[6] = {l.p2, l.p1, l.p0, l.q0, l.q1, l.q2};
        for (int i = 0; i < 6; ++i) {
            // Halves are packed back once both are done: keep the low one.
            if (h == 0)
                c[8 + i] = r[i];
            else
                c[1 + i] = _mm_packus_epi16(c[8 + i], r[i]);
        }
    }
}

// Chroma: both edges at once. The low 8 lanes carry edge 0, the high 8 lanes
// edge 1; the two edges share no sample (edge 0 changes lines -1 and 0, edge 1
// reads lines 2..5), so one pass equals the two in order.
inline LumaParams<O> chroma_params(const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
                                   const uint8_t* bs, int h) {
    // Strength and tc0 per line pair: [bs0..3 | bs8..11] spread to 16 lanes.
    const __m128i s8 = _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(load32u(bs))),
                                          _mm_cvtsi32_si128(static_cast<int>(load32u(bs + 8))));
    const __m128i t8 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(tc0));
    const __m128i s = _mm_unpacklo_epi8(s8, s8), t = _mm_unpacklo_epi8(t8, t8);
    auto half = h == 0 ? lo16 : hi16;
    LumaParams<O> k;
    k.alpha = O::set1(alpha[h]);
    k.beta = O::set1(beta[h]);
    k.tc0 = half(t);
    k.on = _mm_xor_si128(_mm_cmpeq_epi16(half(s), O::zero()), _mm_set1_epi16(-1));
    k.strong = (h == 0 && bs[0] == 4) ? _mm_set1_epi16(-1) : O::zero();
    return k;
}

// l[0..3] = p1, p0, q0, q1 with edge 0 in the low 8 bytes, edge 1 in the high.
inline void chroma_both(__m128i* l, const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
                        const uint8_t* bs) {
    __m128i out0[2], out1[2];
    for (int h = 0; h < 2; ++h) {
        auto half = h == 0 ? lo16 : hi16;
        const LumaParams<O> k = chroma_params(alpha, beta, tc0, bs, h);
        __m128i p0 = half(l[1]), q0 = half(l[2]);
        chroma_filter<O>(half(l[0]), p0, q0, half(l[3]), k);
        out0[h] = p0;
        out1[h] = q0;
    }
    l[1] = _mm_packus_epi16(out0[0], out0[1]);
    l[2] = _mm_packus_epi16(out1[0], out1[1]);
}

#include "h264/x86/deblock_driver.inc"

}  // namespace

void upgrade_deblock(DeblockKernels& k) {
    k.luma_ver = luma_ver;
    k.luma_hor = luma_hor;
    k.chroma_ver = chroma_ver;
    k.chroma_hor = chroma_hor;
}

}  // namespace kplvc::h264::x86::sse2
