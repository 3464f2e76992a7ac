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

// The forward quantiser, eight coefficients at a time in single precision.
// |x * m| is at most 16384, where a float's spacing is 2^-9 or finer, so
// x*m -+ 0.25 is exact in single precision and equals the reference's
// double-precision value; cvttps truncates toward zero like the reference.
// A zero coefficient gives -0.25 or 0 before truncation: 0 again.
int quant_fwd(int16_t* block, float m, int first, int dead_zone) {
    const __m128 mm = _mm_set1_ps(m);
    const __m128 quarter = _mm_set1_ps(dead_zone ? 0.25f : 0.0f);
    const __m128 sign_bit = _mm_set1_ps(-0.0f);
    const __m128i lo = _mm_set1_epi16(-2047), hi = _mm_set1_epi16(2047);
    const int16_t dc = block[0];
    uint64_t nonzero = 0;
    for (int i = 0; i < 64; i += 8) {
        __m128i* p = reinterpret_cast<__m128i*>(block + i);
        const __m128i x = _mm_loadu_si128(p);
        const __m128i x_lo = _mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16);
        const __m128i x_hi = _mm_srai_epi32(_mm_unpackhi_epi16(x, x), 16);
        __m128 p_lo = _mm_mul_ps(_mm_cvtepi32_ps(x_lo), mm);
        __m128 p_hi = _mm_mul_ps(_mm_cvtepi32_ps(x_hi), mm);
        // Towards zero by a quarter: subtract 0.25 carrying the product's sign.
        p_lo = _mm_sub_ps(p_lo, _mm_or_ps(quarter, _mm_and_ps(p_lo, sign_bit)));
        p_hi = _mm_sub_ps(p_hi, _mm_or_ps(quarter, _mm_and_ps(p_hi, sign_bit)));
        const __m128i q = _mm_packs_epi32(_mm_cvttps_epi32(p_lo), _mm_cvttps_epi32(p_hi));
        const __m128i r = _mm_min_epi16(_mm_max_epi16(q, lo), hi);
        _mm_storeu_si128(p, r);
        const __m128i z = _mm_cmpeq_epi16(r, _mm_setzero_si128());
        const uint32_t zbits = static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(z, z))) & 0xFFu;
        nonzero |= static_cast<uint64_t>(~zbits & 0xFFu) << i;
    }
    if (first == 1) {
        block[0] = dc;
        nonzero &= ~uint64_t{1};
    }
    return nonzero ? 63 - __builtin_clzll(nonzero) : -1;
}

}  // namespace

void upgrade_quant(QuantKernels& k) {
    k.quant_inv16 = quant_inv16;
    k.quant_fwd = quant_fwd;
}

}  // namespace kplvc::h263::x86::sse2
