// SSE2 Annex F prediction with a rounding type: each of the five
// predictions is formed as 16-bit rows with its half-sample case chosen once
// per vector, then the rows are weighted and summed in eight 16-bit lanes.
#include <emmintrin.h>

#include <cstring>

#include "h263/obmc.h"

namespace kplvc::h263::x86::sse2 {
namespace {

inline __m128i load8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline __m128i load4(const uint8_t* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    return _mm_cvtsi32_si128(static_cast<int>(w));
}
template <int N>
inline __m128i widen(const uint8_t* p) {
    return _mm_unpacklo_epi8(N == 8 ? load8(p) : load4(p), _mm_setzero_si128());
}

// Rows y0..y0+R-1 of the prediction for vector mv, N (4 or 8) samples from
// column x0, as 16-bit lanes in out[0..R-1]. Averages and the sums of four
// stay below 1024, so 16-bit lanes hold them.
template <int N, int R>
inline void predict(const uint8_t* ref, int32_t step, const int16_t* mv, int x0, int y0, int rt,
                    __m128i* out) {
    const uint8_t* s = ref + static_cast<intptr_t>(y0 + (mv[1] >> 1)) * step + x0 + (mv[0] >> 1);
    const int hx = mv[0] & 1, hy = mv[1] & 1;
    if (!hx && !hy) {
        for (int y = 0; y < R; ++y) out[y] = widen<N>(s + static_cast<intptr_t>(y) * step);
    } else if (hx && hy) {
        const __m128i k = _mm_set1_epi16(static_cast<short>(2 - rt));
        __m128i top = _mm_add_epi16(widen<N>(s), widen<N>(s + 1));
        for (int y = 0; y < R; ++y) {
            const uint8_t* n = s + static_cast<intptr_t>(y + 1) * step;
            const __m128i bottom = _mm_add_epi16(widen<N>(n), widen<N>(n + 1));
            out[y] = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(top, bottom), k), 2);
            top = bottom;
        }
    } else {
        const __m128i k = _mm_set1_epi16(static_cast<short>(1 - rt));
        const intptr_t d = hx ? 1 : step;
        for (int y = 0; y < R; ++y) {
            const uint8_t* p = s + static_cast<intptr_t>(y) * step;
            out[y] = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(widen<N>(p), widen<N>(p + d)), k), 1);
        }
    }
}

inline __m128i weights(const uint8_t (&w)[8]) { return _mm_unpacklo_epi8(load8(w), _mm_setzero_si128()); }

void obmc(const uint8_t* ref, uint8_t* dst, int32_t step, const ObmcVectors& mv, int rt) {
    __m128i q[8], r[8], sl[8], sr[8];
    predict<8, 8>(ref, step, mv.cur, 0, 0, rt, q);
    predict<8, 4>(ref, step, mv.above, 0, 0, rt, r);
    predict<8, 4>(ref, step, mv.below, 0, 4, rt, r + 4);
    predict<4, 8>(ref, step, mv.left, 0, 0, rt, sl);
    predict<4, 8>(ref, step, mv.right, 4, 0, rt, sr);
    const ObmcWeights& w = kObmcWeights;
    const __m128i four = _mm_set1_epi16(4);
    for (int y = 0; y < 8; ++y) {
        const __m128i s = _mm_unpacklo_epi64(sl[y], sr[y]);
        __m128i acc = _mm_mullo_epi16(q[y], weights(w.h0[y]));
        acc = _mm_add_epi16(acc, _mm_mullo_epi16(r[y], weights(w.h1[y])));
        acc = _mm_add_epi16(acc, _mm_mullo_epi16(s, weights(w.h2[y])));
        acc = _mm_srli_epi16(_mm_add_epi16(acc, four), 3);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + static_cast<intptr_t>(y) * step),
                         _mm_packus_epi16(acc, acc));
    }
}

}  // namespace

void upgrade_obmc(ObmcKernels& k) { k.obmc = obmc; }

}  // namespace kplvc::h263::x86::sse2
