// AVX2 MPEG-2 quantisers: inverse in sixteen 16-bit lanes, forward in eight
// single-precision lanes.
#include <immintrin.h>

#include "mpeg2/quant.h"
#include "mpeg2/x86/dequant_avx2.h"

namespace kplvc::mpeg2::x86::avx2 {
namespace {

// Clamp to -2047..2047 in float (a NaN becomes -2047: maxps returns its
// second operand on NaN), truncate, and narrow eight 32-bit levels to 16 bits.
inline __m128i levels8(__m256 v) {
    const __m256 lo = _mm256_set1_ps(-2047.0f), hi = _mm256_set1_ps(2047.0f);
    const __m256i t = _mm256_cvttps_epi32(_mm256_min_ps(_mm256_max_ps(v, lo), hi));
    return _mm_packs_epi32(_mm256_castsi256_si128(t), _mm256_extracti128_si256(t, 1));
}

template <int First, bool Flat>
int32_t quant_block(int16_t* block, int32_t qp, const float* m) {
    const __m256 r = _mm256_set1_ps(1.0f / static_cast<float>(qp));
    const __m256 sixteenth = _mm256_set1_ps(0.0625f);
    const int16_t c0 = block[0];
    uint32_t zero_bytes = 0;  // two mask bits per zero level
    int32_t zero_count = 0;
    for (int i = 0; i < 64; i += 8) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
        // 16·c, exact in float (|16c| <= 2^19).
        __m256 x = _mm256_cvtepi32_ps(_mm256_slli_epi32(_mm256_cvtepi16_epi32(c), 4));
        x = _mm256_mul_ps(x, r);
        if constexpr (Flat)
            x = _mm256_mul_ps(x, sixteenth);
        else
            x = _mm256_mul_ps(x, _mm256_loadu_ps(m + i));
        const __m128i v = levels8(x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(block + i), v);
        zero_bytes = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(v, _mm_setzero_si128())));
        zero_count += _mm_popcnt_u32(zero_bytes);
    }
    int32_t nonzero = 64 - zero_count / 2;
    if constexpr (First == 1) {
        nonzero -= block[0] != 0;
        block[0] = c0;
    }
    return nonzero;
}

}  // namespace

void upgrade_quant(QuantKernels& k) {
    k.dequant_intra = dequant_block<true, true, 4>;
    k.dequant_inter = dequant_block<false, true, 5>;
    k.dequant_flat = [](int16_t* b, int32_t qp, const int16_t*) {
        dequant_block<false, false, 1>(b, qp, nullptr);
    };
    k.quant_intra = quant_block<1, false>;
    k.quant_inter = quant_block<0, false>;
    k.quant_flat = quant_block<0, true>;
}

}  // namespace kplvc::mpeg2::x86::avx2
