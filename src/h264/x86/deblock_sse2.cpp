// SSE2 H.264 deblocking. A line of 16 samples across the block is one
// register of bytes; the normal filters run on the bytes directly, the luma
// strong filter on the two halves in 16-bit lanes. Vertical edges transpose
// the whole 16-row stripe once (and the 4 columns left of it), filter the
// columns as rows, and transpose back.
#include <emmintrin.h>

#include "core/arith.h"
#include "h264/deblock.h"

namespace kplvc::h264::x86::sse2 {
namespace {

#include "core/x86/transpose-inl.h"

#include "h264/x86/deblock-inl.h"

struct O {
    using V = __m128i;
    static V zero() { return _mm_setzero_si128(); }
    static V set1(int v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }
    static V add(V a, V b) { return _mm_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi16(a, b); }
    template <int N>
    static V sra(V a) {
        return _mm_srai_epi16(a, N);
    }
    static V max(V a, V b) { return _mm_max_epi16(a, b); }
    static V lt(V a, V b) { return _mm_cmplt_epi16(a, b); }
    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V andnot(V m, V a) { return _mm_andnot_si128(m, a); }  // a & ~m
    static V sel(V m, V a, V b) { return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b)); }
};

inline __m128i lo16(__m128i v) { return _mm_unpacklo_epi8(v, _mm_setzero_si128()); }
inline __m128i hi16(__m128i v) { return _mm_unpackhi_epi8(v, _mm_setzero_si128()); }

struct Hooks {
    [[gnu::always_inline]] static __m128i blend8(__m128i m, __m128i a, __m128i b) {
        return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b));
    }
    [[gnu::always_inline]] static void luma_strong_edge(__m128i* c, __m128i bs, int alpha, int beta) {
        const __m128i on = _mm_xor_si128(_mm_cmpeq_epi8(bs, _mm_setzero_si128()), _mm_set1_epi8(-1));
        LumaLines<O> lo{lo16(c[0]), lo16(c[1]), lo16(c[2]), lo16(c[3]),
                        lo16(c[4]), lo16(c[5]), lo16(c[6]), lo16(c[7])};
        LumaLines<O> hi{hi16(c[0]), hi16(c[1]), hi16(c[2]), hi16(c[3]),
                        hi16(c[4]), hi16(c[5]), hi16(c[6]), hi16(c[7])};
        // The byte mask widened by interleaving with itself stays all-ones/zero.
        luma_strong16<O>(lo, _mm_unpacklo_epi8(on, on), alpha, beta);
        luma_strong16<O>(hi, _mm_unpackhi_epi8(on, on), alpha, beta);
        c[1] = _mm_packus_epi16(lo.p2, hi.p2);
        c[2] = _mm_packus_epi16(lo.p1, hi.p1);
        c[3] = _mm_packus_epi16(lo.p0, hi.p0);
        c[4] = _mm_packus_epi16(lo.q0, hi.q0);
        c[5] = _mm_packus_epi16(lo.q1, hi.q1);
        c[6] = _mm_packus_epi16(lo.q2, hi.q2);
    }
};

}  // namespace

void upgrade_deblock(DeblockKernels& k) {
    k.luma_ver = luma_ver<Hooks>;
    k.luma_hor = luma_hor<Hooks>;
    k.chroma_ver = chroma_ver<Hooks>;
    k.chroma_hor = chroma_hor<Hooks>;
}

}  // namespace kplvc::h264::x86::sse2
