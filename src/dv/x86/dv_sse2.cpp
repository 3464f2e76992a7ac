// SSE2 DV inverse quantisation, eight coefficients per step.
//
// Bits 14..29 of the 32-bit product are the low 16 bits of (x * q) >> 14;
// clearing the two lowest of them leaves bits 16..29 moved down by 14, i.e.
// the high half of the product (pmulhw) shifted left by 2 in 16 bits.
#include <emmintrin.h>

#include "dv/dv.h"

namespace kplvc::dv::x86::sse2 {
namespace {

void quant_inv(int16_t* block, const int16_t* q) {
    for (int i = 0; i < 64; i += 8) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
        const __m128i m = _mm_loadu_si128(reinterpret_cast<const __m128i*>(q + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(block + i), _mm_slli_epi16(_mm_mulhi_epi16(x, m), 2));
    }
}

}  // namespace

void upgrade_dv(DvKernels& k) { k.quant_inv = quant_inv; }

}  // namespace kplvc::dv::x86::sse2
