// SSE2 MPEG-2 quantisers: inverse (MPEG-2 and MPEG-4 shifts) in eight 16-bit
// lanes, forward in four single-precision lanes.
#include <emmintrin.h>

#include "mpeg2/quant.h"

namespace kplvc::mpeg2::x86::sse2 {
namespace {

#include "mpeg2/x86/dequant-inl.h"

// Eight 16-bit lanes.
struct O {
    using V = __m128i;
    static constexpr int kLanes = 8;
    static V set1(int16_t v) { return _mm_set1_epi16(v); }
    static V zero() { return _mm_setzero_si128(); }
    static V load(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static V load_weights(const int16_t* p) { return load(p); }
    static void store(int16_t* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static V add(V a, V b) { return _mm_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi16(a, b); }
    static V mullo(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V cmpgt(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V xor_(V a, V b) { return _mm_xor_si128(a, b); }
    static V min(V a, V b) { return _mm_min_epi16(a, b); }
    static V max(V a, V b) { return _mm_max_epi16(a, b); }
    template <int N>
    static V srai(V a) {
        return _mm_srai_epi16(a, N);
    }
    static V clear_lane0(V a) { return _mm_insert_epi16(a, 0, 0); }
    static int32_t parity(V x) {
        x = _mm_xor_si128(x, _mm_srli_si128(x, 8));
        x = _mm_xor_si128(x, _mm_srli_si128(x, 4));
        x = _mm_xor_si128(x, _mm_srli_si128(x, 2));
        return _mm_cvtsi128_si32(x) & 1;
    }
};

// Eight coefficients to 16·c as two vectors of four floats (exact: |16c| <=
// 2^19). unpack puts c in the high half of each 32-bit lane, so an
// arithmetic shift by 12 leaves 16·c.
inline void to_float16c(__m128i c, __m128& a, __m128& b) {
    const __m128i zero = _mm_setzero_si128();
    a = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(zero, c), 12));
    b = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(zero, c), 12));
}

// Clamp to -2047..2047 in float, then truncate. maxps returns its second
// operand when the first is NaN, so a NaN becomes -2047, as in the
// reference.
inline __m128i trunc_clamp(__m128 v) {
    const __m128 lo = _mm_set1_ps(-2047.0f), hi = _mm_set1_ps(2047.0f);
    return _mm_cvttps_epi32(_mm_min_ps(_mm_max_ps(v, lo), hi));
}

// Flat: the weight is the constant 1/16. First = 1 keeps the DC and leaves
// it out of the count.
template <int First, bool Flat>
int32_t quant_block(int16_t* block, int32_t qp, const float* m) {
    const __m128 r = _mm_set1_ps(1.0f / static_cast<float>(qp));
    const __m128 sixteenth = _mm_set1_ps(0.0625f);
    const __m128i zero = _mm_setzero_si128();
    const int16_t c0 = block[0];
    __m128i zeros = zero;  // per lane: minus the number of zero levels
    for (int i = 0; i < 64; i += 8) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
        __m128 a, b;
        to_float16c(c, a, b);
        a = _mm_mul_ps(a, r);
        b = _mm_mul_ps(b, r);
        if constexpr (Flat) {
            a = _mm_mul_ps(a, sixteenth);
            b = _mm_mul_ps(b, sixteenth);
        } else {
            a = _mm_mul_ps(a, _mm_loadu_ps(m + i));
            b = _mm_mul_ps(b, _mm_loadu_ps(m + i + 4));
        }
        const __m128i v = _mm_packs_epi32(trunc_clamp(a), trunc_clamp(b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(block + i), v);
        zeros = _mm_add_epi16(zeros, _mm_cmpeq_epi16(v, zero));
    }
    // Lanes hold -(0..8); negate and add the eight lanes up.
    zeros = _mm_sub_epi16(zero, zeros);
    zeros = _mm_sad_epu8(zeros, zero);
    int32_t nonzero = 64 - (_mm_cvtsi128_si32(zeros) + _mm_extract_epi16(zeros, 4));
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

}  // namespace kplvc::mpeg2::x86::sse2
