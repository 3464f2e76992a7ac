// AVX2 kernels of the H.264 4x4 transforms and quantisers: the shared
// 128-bit code of transform-inl.h in VEX encoding, and residual and luma DC
// quantisers that take all sixteen values in one 256-bit register (abs,
// 16x16->32-bit products, rounding shift, saturating pack and sign in a
// handful of instructions).
#include <immintrin.h>

#include <cstring>

#include "h264/transform.h"
#include "kplvc.h"

namespace kplvc::h264::x86::avx2 {
namespace {

#include "h264/x86/transform-inl.h"

// Sixteen-lane constants, loaded from memory: built in registers they cost a
// general-register move and a broadcast each.
alignas(32) constexpr int16_t kLimit[16] = {2063, 2063, 2063, 2063, 2063, 2063, 2063, 2063,
                                            2063, 2063, 2063, 2063, 2063, 2063, 2063, 2063};
alignas(32) constexpr int16_t kLow15[16] = {0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF,
                                            0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF, 0x7FFF};
inline __m256i load_const(const int16_t* c) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(c)); }

// Quantises sixteen values; returns the sign-restored levels and the
// magnitudes. |c| as unsigned 16 bits (|-32768| = 0x8000) times mf < 2^14 is
// an exact 30-bit product, + round < 2^23. Unpacking and packing both stay
// within the 128-bit lanes, so the pack restores raster order.
inline __m256i quant16(__m256i c, __m256i m, int32_t round, int32_t shift, __m256i& mag) {
    const __m256i a = _mm256_abs_epi16(c);
    const __m256i plo = _mm256_mullo_epi16(a, m), phi = _mm256_mulhi_epu16(a, m);
    const __m256i rnd = _mm256_set1_epi32(round);
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m256i lo = _mm256_sra_epi32(_mm256_add_epi32(_mm256_unpacklo_epi16(plo, phi), rnd), sh);
    const __m256i hi = _mm256_sra_epi32(_mm256_add_epi32(_mm256_unpackhi_epi16(plo, phi), rnd), sh);
    mag = _mm256_packs_epi32(lo, hi);
    return _mm256_sign_epi16(mag, c);
}

// Two mask bits per position: non-zero when some magnitude exceeds 2063.
inline unsigned over_mask(__m256i mag) {
    return static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpgt_epi16(mag, load_const(kLimit))));
}

// Stores the levels, then the signed count and the largest scan entry among
// the non-zero levels. For the latter, x ^ 0x7FFF maps signed 16-bit order
// onto reversed unsigned order (32767 -> 0, -32768 -> 0xFFFF) and zero levels
// become 0xFFFF, so one unsigned minimum finds it; its low seven bits are
// those of the complement. No non-zero level gives 0xFFFF and so 0, the
// result the reference gives then (as it does for a largest entry of -32768).
inline int32_t store_levels(int16_t* dst, __m256i lv, const int16_t* scan, uint8_t* count, uint8_t* last) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), lv);
    const __m256i z = _mm256_cmpeq_epi16(lv, _mm256_setzero_si256());
    const unsigned nz = ~static_cast<unsigned>(_mm256_movemask_epi8(z));  // two bits per position
    const int n = __builtin_popcount(nz) / 2;
    *count = static_cast<uint8_t>((nz & 1u) != 0 ? -n : n);
    const __m256i k = _mm256_or_si256(
        _mm256_xor_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(scan)), load_const(kLow15)), z);
    const __m128i m =
        _mm_minpos_epu16(_mm_min_epu16(_mm256_castsi256_si128(k), _mm256_extracti128_si256(k, 1)));
    *last = static_cast<uint8_t>(~_mm_cvtsi128_si32(m) & 0x7F);
    return kplStsNoErr;
}

// Rows before the first failing one (from the over mask) take levels.
inline void store_leading_rows(int16_t* dst, __m256i lv, unsigned over) {
    alignas(32) int16_t l[16];
    _mm256_store_si256(reinterpret_cast<__m256i*>(l), lv);
    const int row = __builtin_ctz(over) / 8;
    std::memcpy(dst, l, static_cast<size_t>(row) * 8);
}

int32_t transform_quant_residual_256(int16_t* blk, const int16_t* mf, Rounding rs, const int16_t* scan,
                                     uint8_t* count, uint8_t* last) {
    __m128i c01, c23;
    forward_rows(blk, c01, c23);
    const __m256i c = _mm256_set_m128i(c23, c01);
    __m256i mag;
    const __m256i lv =
        quant16(c, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(mf)), rs.round, rs.shift, mag);
    const unsigned over = over_mask(mag);
    if (over != 0) {
        // The failing row and later ones keep the transform coefficients.
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(blk), c);
        store_leading_rows(blk, lv, over);
        return kplStsLevelRangeErr;
    }
    return store_levels(blk, lv, scan, count, last);
}

int32_t transform_quant_luma_dc_256(int16_t* src, int16_t* tblock, bool transform, int32_t mf, int32_t round,
                                    int32_t shift, const int16_t* scan, uint8_t* count, uint8_t* last) {
    __m256i t;
    if (transform) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 8));
        __m128i r0 = a, r1 = _mm_unpackhi_epi64(a, a), r2 = b, r3 = _mm_unpackhi_epi64(b, b);
        had_pass(r0, r1, r2, r3);  // columns
        transpose4(r0, r1, r2, r3);
        had_pass(r0, r1, r2, r3);  // rows
        transpose4(r0, r1, r2, r3);
        t = _mm256_srai_epi16(_mm256_set_m128i(_mm_unpacklo_epi64(r2, r3), _mm_unpacklo_epi64(r0, r1)), 1);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(tblock), t);
    } else {
        t = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(tblock));
    }
    __m256i mag;
    const __m256i lv = quant16(t, _mm256_set1_epi16(static_cast<int16_t>(mf)), round, shift, mag);
    const unsigned over = over_mask(mag);
    if (over != 0) {
        store_leading_rows(src, lv, over);  // the rest of src stays as it was
        return kplStsLevelRangeErr;
    }
    return store_levels(src, lv, scan, count, last);
}

}  // namespace

// The 128-bit kernels enter at this level only where their VEX encoding
// measured faster than the SSE2 one (bench/h264t_bench.cpp): the DC add and
// the luma DC dequantiser did not, so they stay at SSE2.
void upgrade_xform(XformKernels& k) {
    k.dequant_residual = dequant_residual;
    k.dequant_residual_add = dequant_residual_add;
    k.forward4x4 = forward4x4;
    k.transform_quant_chroma_dc = transform_quant_chroma_dc;
    k.transform_quant_residual = transform_quant_residual_256;
    k.transform_quant_luma_dc = transform_quant_luma_dc_256;
}

}  // namespace kplvc::h264::x86::avx2
