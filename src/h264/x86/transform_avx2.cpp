// AVX2 kernels of the H.264 residual and luma DC quantisers: the transforms
// run on four-lane halves as in the SSE2 kernels, then all sixteen values are
// quantised in one 256-bit register (abs, 16x16->32-bit products, rounding
// shift, saturating pack and sign in a handful of instructions).
#include <immintrin.h>

#include <cstring>

#include "h264/transform.h"
#include "kplvc.h"

namespace kplvc::h264::x86::avx2 {
namespace {

// 4x4 transpose of 16-bit lanes held in the low halves of a0..a3.
inline void transpose4(__m128i& a0, __m128i& a1, __m128i& a2, __m128i& a3) {
    const __m128i t0 = _mm_unpacklo_epi16(a0, a1);  // a00 a10 a01 a11 a02 a12 a03 a13
    const __m128i t1 = _mm_unpacklo_epi16(a2, a3);  // a20 a30 a21 a31 ...
    const __m128i c01 = _mm_unpacklo_epi32(t0, t1);  // column 0 | column 1
    const __m128i c23 = _mm_unpackhi_epi32(t0, t1);  // column 2 | column 3
    a0 = c01;
    a1 = _mm_unpackhi_epi64(c01, c01);
    a2 = c23;
    a3 = _mm_unpackhi_epi64(c23, c23);
}

// Forward core butterfly on four lines at once.
inline void fwd_pass(__m128i& x0, __m128i& x1, __m128i& x2, __m128i& x3) {
    const __m128i s = _mm_add_epi16(x0, x3), t = _mm_add_epi16(x1, x2);
    const __m128i d = _mm_sub_epi16(x0, x3), u = _mm_sub_epi16(x1, x2);
    x0 = _mm_add_epi16(s, t);
    x1 = _mm_add_epi16(_mm_add_epi16(d, d), u);
    x2 = _mm_sub_epi16(s, t);
    x3 = _mm_sub_epi16(d, _mm_add_epi16(u, u));
}

// Forward transform of the packed block; rows come back in r0..r3.
inline void forward_rows(const int16_t* blk, __m128i& r0, __m128i& r1, __m128i& r2, __m128i& r3) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blk));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(blk + 8));
    r0 = a;
    r1 = _mm_unpackhi_epi64(a, a);
    r2 = b;
    r3 = _mm_unpackhi_epi64(b, b);
    transpose4(r0, r1, r2, r3);
    fwd_pass(r0, r1, r2, r3);
    transpose4(r0, r1, r2, r3);
    fwd_pass(r0, r1, r2, r3);
}

// Hadamard butterfly on four lines at once.
inline void had_pass(__m128i& x0, __m128i& x1, __m128i& x2, __m128i& x3) {
    const __m128i a = _mm_add_epi16(x0, x1), b = _mm_sub_epi16(x0, x1);
    const __m128i c = _mm_add_epi16(x2, x3), d = _mm_sub_epi16(x2, x3);
    x0 = _mm_add_epi16(a, c);
    x1 = _mm_sub_epi16(a, c);
    x2 = _mm_sub_epi16(b, d);
    x3 = _mm_add_epi16(b, d);
}

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
    return static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpgt_epi16(mag, _mm256_set1_epi16(2063))));
}

// Stores the levels, then the signed count and the largest scan entry among
// the non-zero levels (the others become -32768).
inline int32_t store_levels(int16_t* dst, __m256i lv, const int16_t* scan, uint8_t* count, uint8_t* last) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), lv);
    const __m256i z = _mm256_cmpeq_epi16(lv, _mm256_setzero_si256());
    const unsigned nz = ~static_cast<unsigned>(_mm256_movemask_epi8(z));  // two bits per position
    if (nz == 0) {
        *count = 0;
        *last = 0;
        return kplStsNoErr;
    }
    const int n = __builtin_popcount(nz) / 2;
    *count = static_cast<uint8_t>((nz & 1u) != 0 ? -n : n);
    const __m256i s = _mm256_blendv_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(scan)),
                                         _mm256_set1_epi16(-32768), z);
    __m128i x = _mm_max_epi16(_mm256_castsi256_si128(s), _mm256_extracti128_si256(s, 1));
    x = _mm_max_epi16(x, _mm_shuffle_epi32(x, _MM_SHUFFLE(1, 0, 3, 2)));
    x = _mm_max_epi16(x, _mm_shuffle_epi32(x, _MM_SHUFFLE(2, 3, 0, 1)));
    x = _mm_max_epi16(x, _mm_srli_epi32(x, 16));
    *last = static_cast<uint8_t>(_mm_cvtsi128_si32(x) & 0x7F);
    return kplStsNoErr;
}

// Rows before the first failing one (from the over mask) take levels.
inline void store_leading_rows(int16_t* dst, __m256i lv, unsigned over) {
    alignas(32) int16_t l[16];
    _mm256_store_si256(reinterpret_cast<__m256i*>(l), lv);
    const int row = __builtin_ctz(over) / 8;
    std::memcpy(dst, l, static_cast<size_t>(row) * 8);
}

int32_t transform_quant_residual(int16_t* blk, const int16_t* mf, int32_t round, int32_t shift,
                                 const int16_t* scan, uint8_t* count, uint8_t* last) {
    __m128i r0, r1, r2, r3;
    forward_rows(blk, r0, r1, r2, r3);
    const __m256i c = _mm256_set_m128i(_mm_unpacklo_epi64(r2, r3), _mm_unpacklo_epi64(r0, r1));
    __m256i mag;
    const __m256i lv = quant16(c, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(mf)), round, shift, mag);
    const unsigned over = over_mask(mag);
    if (over != 0) {
        // The failing row and later ones keep the transform coefficients.
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(blk), c);
        store_leading_rows(blk, lv, over);
        return kplStsLevelRangeErr;
    }
    return store_levels(blk, lv, scan, count, last);
}

int32_t transform_quant_luma_dc(int16_t* src, int16_t* tblock, bool transform, int32_t mf, int32_t round,
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

void upgrade_xform(XformKernels& k) {
    k.transform_quant_residual = transform_quant_residual;
    k.transform_quant_luma_dc = transform_quant_luma_dc;
}

}  // namespace kplvc::h264::x86::avx2
