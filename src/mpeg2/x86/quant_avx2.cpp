// AVX2 MPEG-2 quantisers: inverse (MPEG-2 and MPEG-4 shifts) in sixteen
// 16-bit lanes, forward in eight single-precision lanes.
#include <immintrin.h>

#include "mpeg2/quant.h"

namespace kplvc::mpeg2::x86::avx2 {
namespace {

#include "mpeg2/x86/dequant-inl.h"

// Sixteen 16-bit lanes.
struct O {
    using V = __m256i;
    static constexpr int kLanes = 16;
    static V set1(int16_t v) { return _mm256_set1_epi16(v); }
    static V zero() { return _mm256_setzero_si256(); }
    // A block is usually written just before it is inverse-quantised, often
    // by 16-byte stores; one 32-byte load spanning two of them cannot take its
    // data from the store buffer and waits for both to retire. Two 16-byte
    // loads can.
    static V load(const int16_t* p) {
        const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8));
        return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
    }
    static V load_weights(const int16_t* p) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    }
    static void store(int16_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static V add(V a, V b) { return _mm256_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V mullo(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V cmpgt(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
    static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    static V xor_(V a, V b) { return _mm256_xor_si256(a, b); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    template <int N>
    static V srai(V a) {
        return _mm256_srai_epi16(a, N);
    }
    static V clear_lane0(V a) {
        return _mm256_and_si256(
            a, _mm256_setr_epi16(0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
    }
    static int32_t parity(V v) {
        __m128i x = _mm_xor_si128(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
        x = _mm_xor_si128(x, _mm_srli_si128(x, 8));
        x = _mm_xor_si128(x, _mm_srli_si128(x, 4));
        x = _mm_xor_si128(x, _mm_srli_si128(x, 2));
        return _mm_cvtsi128_si32(x) & 1;
    }
};

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
    install_dequant<O>(k);
    k.quant_intra = quant_block<1, false>;
    k.quant_inter = quant_block<0, false>;
    k.quant_flat = quant_block<0, true>;
}

}  // namespace kplvc::mpeg2::x86::avx2
