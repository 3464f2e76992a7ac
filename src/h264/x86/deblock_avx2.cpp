// AVX2 H.264 deblocking: the byte-lane filters of the SSE2 file (with a
// one-instruction blend), but the luma strong filter takes a whole 16-sample
// line in one register of 16-bit lanes.
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
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    static V lt(V a, V b) { return _mm256_cmpgt_epi16(b, a); }
    static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    static V andnot(V m, V a) { return _mm256_andnot_si256(m, a); }
    static V sel(V m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
};

KPLVC_INLINE __m128i blend8(__m128i m, __m128i a, __m128i b) { return _mm_blendv_epi8(b, a, m); }

#include "h264/x86/deblock_core.inc"

inline __m256i widen(__m128i v) { return _mm256_cvtepu8_epi16(v); }
inline __m128i narrow(__m256i v) {
    return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

KPLVC_INLINE void luma_strong_edge(__m128i* c, __m128i bs, int alpha, int beta) {
    const __m256i on = _mm256_cvtepi8_epi16(_mm_xor_si128(_mm_cmpeq_epi8(bs, _mm_setzero_si128()), _mm_set1_epi8(-1)));
    LumaLines<O> l{widen(c[0]), widen(c[1]), widen(c[2]), widen(c[3]),
                   widen(c[4]), widen(c[5]), widen(c[6]), widen(c[7])};
    luma_strong16<O>(l, on, alpha, beta);
    c[1] = narrow(l.p2);
    c[2] = narrow(l.p1);
    c[3] = narrow(l.p0);
    c[4] = narrow(l.q0);
    c[5] = narrow(l.q1);
    c[6] = narrow(l.q2);
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
