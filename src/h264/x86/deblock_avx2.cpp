// AVX2 H.264 deblocking: the same loads and transposes as SSE2 (128-bit), but
// a whole 16-sample line fits one register in 16-bit lanes, so every edge is
// one pass of the arithmetic instead of two halves.
#include <immintrin.h>

#include "core/arith.h"
#include "h264/deblock.h"

namespace kplvc::h264::x86::avx2 {
namespace {

struct O {
    using V = __m256i;
    static V zero() { return _mm256_setzero_si256(); }
    static V set1(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
    static V add(V a, V b) { return _mm256_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm256_sub_epi16(a, b); }
    template <int N>
    static V sra(V a) { return _mm256_srai_epi16(a, N); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    static V lt(V a, V b) { return _mm256_cmpgt_epi16(b, a); }
    static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    static V andnot(V m, V a) { return _mm256_andnot_si256(m, a); }
    static V or_(V a, V b) { return _mm256_or_si256(a, b); }
    static V sel(V m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
};

#include "h264/x86/deblock_core.inc"

inline __m256i widen(__m128i v) { return _mm256_cvtepu8_epi16(v); }
inline __m128i narrow(__m256i v) {
    return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}
inline __m256i nonzero(__m128i bytes) {
    return _mm256_xor_si256(_mm256_cmpeq_epi16(widen(bytes), O::zero()), _mm256_set1_epi16(-1));
}

inline __m128i spread4(const uint8_t* p) {
    const __m128i x = _mm_cvtsi32_si128(static_cast<int>(load32u(p)));
    const __m128i y = _mm_unpacklo_epi8(x, x);
    return _mm_unpacklo_epi16(y, y);
}

inline void luma_edge(__m128i* c, const uint8_t* bs4, const uint8_t* tc4, int alpha, int beta, bool strong) {
    LumaParams<O> k;
    k.alpha = O::set1(alpha);
    k.beta = O::set1(beta);
    k.tc0 = widen(spread4(tc4));
    k.on = nonzero(spread4(bs4));
    k.strong = strong ? _mm256_set1_epi16(-1) : O::zero();
    LumaLines<O> l{widen(c[0]), widen(c[1]), widen(c[2]), widen(c[3]),
                   widen(c[4]), widen(c[5]), widen(c[6]), widen(c[7])};
    luma_filter<O>(l, k);
    c[1] = narrow(l.p2);
    c[2] = narrow(l.p1);
    c[3] = narrow(l.p0);
    c[4] = narrow(l.q0);
    c[5] = narrow(l.q1);
    c[6] = narrow(l.q2);
}

// Lanes 0..7 carry chroma edge 0, lanes 8..15 edge 1 (see the SSE2 file).
inline void chroma_both(__m128i* l, const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
                        const uint8_t* bs) {
    const __m128i s8 = _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(load32u(bs))),
                                          _mm_cvtsi32_si128(static_cast<int>(load32u(bs + 8))));
    const __m128i t8 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(tc0));
    LumaParams<O> k;
    const __m128i lanes_hi = _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i hi = widen(_mm_and_si128(lanes_hi, _mm_set1_epi8(1)));  // 1 in edge-1 lanes
    const __m256i is1 = _mm256_cmpgt_epi16(hi, O::zero());
    k.alpha = O::sel(is1, O::set1(alpha[1]), O::set1(alpha[0]));
    k.beta = O::sel(is1, O::set1(beta[1]), O::set1(beta[0]));
    k.tc0 = widen(_mm_unpacklo_epi8(t8, t8));
    k.on = nonzero(_mm_unpacklo_epi8(s8, s8));
    k.strong = bs[0] == 4 ? _mm256_andnot_si256(is1, _mm256_set1_epi16(-1)) : O::zero();
    __m256i p0 = widen(l[1]), q0 = widen(l[2]);
    chroma_filter<O>(widen(l[0]), p0, q0, widen(l[3]), k);
    l[1] = narrow(p0);
    l[2] = narrow(q0);
}

#include "h264/x86/deblock_driver.inc"

}  // namespace

void upgrade_deblock(DeblockKernels& k) {
    k.luma_ver = luma_ver;
    k.luma_hor = luma_hor;
    k.chroma_ver = chroma_ver;
    k.chroma_hor = chroma_hor;
}

}  // namespace kplvc::h264::x86::avx2
