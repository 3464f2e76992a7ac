// Inverse quantisation of a 64-coefficient block in sixteen 16-bit lanes, the
// shape shared by the MPEG-2 and MPEG-4 inverse quantisers. Include only from
// files compiled for AVX2: everything here sits in an unnamed namespace, so
// each including file gets its own copy.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace kplvc::mpeg2::x86::avx2 {
namespace {

// A block is usually written just before it is inverse-quantised, often by
// 16-byte stores; one 32-byte load spanning two of them cannot take its data
// from the store buffer and waits for both to retire. Two 16-byte loads can.
inline __m256i load_halves(const int16_t* p) {
    const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 8));
    return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

// The same arithmetic as the eight-lane form (see dequant_sse2.h): products
// and sums wrap at 16 bits, arithmetic shift, clamp to -2048..2047, mismatch
// parity from the xor of the stored values.
template <bool Intra, bool Weighted, int Shift>
void dequant_block(int16_t* block, int32_t qp, const int16_t* w) {
    static_assert(!Intra || Weighted, "the intra forms always have weights");
    const __m256i q = _mm256_set1_epi16(static_cast<int16_t>(qp));
    const __m256i zero = _mm256_setzero_si256();
    const __m256i one = _mm256_set1_epi16(1);
    const __m256i off = _mm256_set1_epi16(static_cast<int16_t>((1 << Shift) - 1));
    const __m256i lo = _mm256_set1_epi16(-2048), hi = _mm256_set1_epi16(2047);
    const __m256i not_dc = _mm256_setr_epi16(0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const int16_t c0 = block[0];
    __m256i parity = zero;
    for (int i = 0; i < 64; i += 16) {
        __m256i c = load_halves(block + i);
        __m256i p, cond;
        if constexpr (Intra) {
            if (i == 0) c = _mm256_and_si256(c, not_dc);
            p = _mm256_mullo_epi16(c, q);
            cond = _mm256_cmpgt_epi16(one, c);  // c <= 0
        } else {
            const __m256i neg = _mm256_cmpgt_epi16(zero, c), pos = _mm256_cmpgt_epi16(c, zero);
            const __m256i t = _mm256_add_epi16(_mm256_add_epi16(c, c), _mm256_sub_epi16(neg, pos));
            p = _mm256_mullo_epi16(t, q);
            cond = neg;
        }
        if constexpr (Weighted)
            p = _mm256_mullo_epi16(p, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(w + i)));
        if constexpr (Shift > 0)
            p = _mm256_srai_epi16(_mm256_add_epi16(p, _mm256_and_si256(cond, off)), Shift);
        p = _mm256_min_epi16(_mm256_max_epi16(p, lo), hi);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(block + i), p);
        parity = _mm256_xor_si256(parity, p);
    }
    __m128i x = _mm_xor_si128(_mm256_castsi256_si128(parity), _mm256_extracti128_si256(parity, 1));
    x = _mm_xor_si128(x, _mm_srli_si128(x, 8));
    x = _mm_xor_si128(x, _mm_srli_si128(x, 4));
    x = _mm_xor_si128(x, _mm_srli_si128(x, 2));
    int32_t odd = _mm_cvtsi128_si32(x) & 1;
    if constexpr (Intra) {
        block[0] = c0;  // its lane stored 0, so the sum gains c0 itself
        odd ^= c0 & 1;
    }
    if (odd == 0) block[63] = static_cast<int16_t>(block[63] ^ 1);
}

}  // namespace
}  // namespace kplvc::mpeg2::x86::avx2
