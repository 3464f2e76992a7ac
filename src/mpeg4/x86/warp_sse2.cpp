// MPEG-4 global motion compensation, SSE2: the translation kernels. The four
// bilinear weights sum to s*s <= 256, so a weighted sum of bytes plus the
// rounding term stays below 2^16 and 16-bit lanes with a logical shift hold
// it exactly.
#include <emmintrin.h>

#include "mpeg4/gmc.h"

namespace kplvc::mpeg4::x86::sse2 {

namespace {

template <int N>
inline __m128i load_n(const uint8_t* p) {
    if constexpr (N == 16) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

template <int N>
void shift(const uint8_t* ref, int32_t step, uint8_t* dst, int32_t dst_step, const WarpBlock& b, int32_t rc) {
    const int32_t s = 1 << b.log2s, mask = s - 1;
    const int32_t X = b.qx + (b.rx >> b.shift), Y = b.qy + (b.ry >> b.shift);
    const int32_t fx = X & mask, fy = Y & mask;
    const uint8_t* r = ref + static_cast<intptr_t>(Y >> b.log2s) * step + (X >> b.log2s);
    const __m128i wa = _mm_set1_epi16(static_cast<int16_t>((s - fx) * (s - fy)));
    const __m128i wb = _mm_set1_epi16(static_cast<int16_t>(fx * (s - fy)));
    const __m128i wc = _mm_set1_epi16(static_cast<int16_t>((s - fx) * fy));
    const __m128i wd = _mm_set1_epi16(static_cast<int16_t>(fx * fy));
    const __m128i round = _mm_set1_epi16(static_cast<int16_t>((s * s >> 1) - rc));
    const __m128i sh = _mm_cvtsi32_si128(2 * b.log2s), z = _mm_setzero_si128();
    for (int j = 0; j < N; ++j) {
        const uint8_t* r0 = r + static_cast<intptr_t>(j) * step;
        const __m128i p00 = load_n<N>(r0), p01 = load_n<N>(r0 + 1);
        const __m128i p10 = load_n<N>(r0 + step), p11 = load_n<N>(r0 + step + 1);
        auto half = [&](bool hi) {
            auto w = [&](__m128i v) { return hi ? _mm_unpackhi_epi8(v, z) : _mm_unpacklo_epi8(v, z); };
            __m128i t = _mm_add_epi16(_mm_mullo_epi16(w(p00), wa), _mm_mullo_epi16(w(p01), wb));
            t = _mm_add_epi16(t, _mm_add_epi16(_mm_mullo_epi16(w(p10), wc), _mm_mullo_epi16(w(p11), wd)));
            return _mm_srl_epi16(_mm_add_epi16(t, round), sh);
        };
        uint8_t* d = dst + static_cast<intptr_t>(j) * dst_step;
        if constexpr (N == 16)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(half(false), half(true)));
        else
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(half(false), z));
    }
}

}  // namespace

void upgrade_warp(WarpKernels& k) {
    k.shift16 = shift<16>;
    k.shift8 = shift<8>;
}

}  // namespace kplvc::mpeg4::x86::sse2
