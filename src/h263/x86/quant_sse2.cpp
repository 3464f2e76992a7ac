// SSE2 H.263 full-block inverse quantiser: eight 16-bit lanes with exactly
// the wrapping of the scalar kernel (pmullw, paddw, negate by xor/sub).
#include <emmintrin.h>

#include "h263/quant.h"

namespace kplvc::h263::x86::sse2 {
namespace {

inline __m128i dequant8(__m128i l, __m128i q2, __m128i off) {
    const __m128i z = _mm_setzero_si128();
    const __m128i sign = _mm_srai_epi16(l, 15);
    const __m128i a = _mm_sub_epi16(_mm_xor_si128(l, sign), sign);  // |L|, 0x8000 stays
    const __m128i p = _mm_mullo_epi16(a, q2);
    const __m128i nz = _mm_xor_si128(_mm_cmpeq_epi16(p, z), _mm_set1_epi16(-1));
    const __m128i m = _mm_add_epi16(p, off);
    const __m128i rec = _mm_sub_epi16(_mm_xor_si128(m, sign), sign);
    const __m128i clamped = _mm_min_epi16(_mm_max_epi16(rec, _mm_set1_epi16(-2048)), _mm_set1_epi16(2047));
    return _mm_and_si128(clamped, nz);
}

void quant_inv16(int16_t* block, int first, int qp) {
    const __m128i q2 = _mm_set1_epi16(static_cast<short>(static_cast<uint32_t>(qp) * 2u));
    const __m128i off = _mm_set1_epi16(
        static_cast<short>((qp & 1) ? static_cast<uint32_t>(qp) : static_cast<uint32_t>(qp) - 1u));
    const int16_t dc = block[0];
    for (int i = 0; i < 64; i += 8) {
        __m128i* p = reinterpret_cast<__m128i*>(block + i);
        _mm_storeu_si128(p, dequant8(_mm_loadu_si128(p), q2, off));
    }
    if (first == 1) block[0] = dc;
}

}  // namespace

void upgrade_quant(QuantKernels& k) { k.quant_inv16 = quant_inv16; }

}  // namespace kplvc::h263::x86::sse2
