// Inverse quantisation of a 64-coefficient block in eight 16-bit lanes, the
// shape shared by the MPEG-2 and MPEG-4 inverse quantisers. Include only from
// files compiled for SSE2: everything here sits in an unnamed namespace, so
// each including file gets its own copy and no wider-ISA copy can be merged
// into it by the linker.
#pragma once

#include <emmintrin.h>

#include <cstdint>

namespace kplvc::mpeg2::x86::sse2 {
namespace {

// Intra: p = low16(c·q)·W, offset when c <= 0, the DC taking part as 0 and
// put back afterwards. Otherwise: t = 2c + sgn c, p = t·q (·W when
// Weighted), offset when c < 0. Then p = (p + (2^Shift - 1 if offset)) >>
// Shift, clamped to -2048..2047. All products and sums wrap at 16 bits, as
// pmullw / paddw do. Mismatch control flips the low bit of block[63] when the
// sum of the block (the intra DC included as given) is even; the parity of a
// sum is the xor of the low bits, so the lanes are xor-ed.
template <bool Intra, bool Weighted, int Shift>
void dequant_block(int16_t* block, int32_t qp, const int16_t* w) {
    static_assert(!Intra || Weighted, "the intra forms always have weights");
    const __m128i q = _mm_set1_epi16(static_cast<int16_t>(qp));
    const __m128i zero = _mm_setzero_si128();
    const __m128i one = _mm_set1_epi16(1);
    const __m128i off = _mm_set1_epi16(static_cast<int16_t>((1 << Shift) - 1));
    const __m128i lo = _mm_set1_epi16(-2048), hi = _mm_set1_epi16(2047);
    const int16_t c0 = block[0];
    __m128i parity = zero;
    for (int i = 0; i < 64; i += 8) {
        __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block + i));
        __m128i p, cond;
        if constexpr (Intra) {
            if (i == 0) c = _mm_insert_epi16(c, 0, 0);
            p = _mm_mullo_epi16(c, q);
            cond = _mm_cmpgt_epi16(one, c);  // c <= 0
        } else {
            const __m128i neg = _mm_cmpgt_epi16(zero, c), pos = _mm_cmpgt_epi16(c, zero);
            const __m128i t = _mm_add_epi16(_mm_add_epi16(c, c), _mm_sub_epi16(neg, pos));
            p = _mm_mullo_epi16(t, q);
            cond = neg;
        }
        if constexpr (Weighted)
            p = _mm_mullo_epi16(p, _mm_loadu_si128(reinterpret_cast<const __m128i*>(w + i)));
        if constexpr (Shift > 0) p = _mm_srai_epi16(_mm_add_epi16(p, _mm_and_si128(cond, off)), Shift);
        p = _mm_min_epi16(_mm_max_epi16(p, lo), hi);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(block + i), p);
        parity = _mm_xor_si128(parity, p);
    }
    parity = _mm_xor_si128(parity, _mm_srli_si128(parity, 8));
    parity = _mm_xor_si128(parity, _mm_srli_si128(parity, 4));
    parity = _mm_xor_si128(parity, _mm_srli_si128(parity, 2));
    int32_t odd = _mm_cvtsi128_si32(parity) & 1;
    if constexpr (Intra) {
        block[0] = c0;  // its lane stored 0, so the sum gains c0 itself
        odd ^= c0 & 1;
    }
    if (odd == 0) block[63] = static_cast<int16_t>(block[63] ^ 1);
}

}  // namespace
}  // namespace kplvc::mpeg2::x86::sse2
