// AVX2 2-4-8 (field) inverse transform. The row pass works on all eight rows
// at once (lanes = rows, after a 16-bit transpose); a 32-bit transpose then
// puts the columns in the lanes for the two 4-point vertical passes. vpmulld
// gives the wrapped products.
#include <immintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"

namespace kplvc::block::x86::avx2 {
namespace {

#include "core/x86/transpose-inl.h"
#include "core/x86/transpose256-inl.h"

using namespace dct;

inline __m128i ld(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m256i mul(__m256i a, int32_t c) { return _mm256_mullo_epi32(a, _mm256_set1_epi32(c)); }
inline __m256i add(__m256i a, __m256i b) { return _mm256_add_epi32(a, b); }
inline __m256i sub(__m256i a, __m256i b) { return _mm256_sub_epi32(a, b); }

// Eight (a, b) pairs of 16-bit lanes as the dwords of one 256-bit vector.
inline __m256i pairs(__m128i a, __m128i b) {
    return _mm256_set_m128i(_mm_unpackhi_epi16(a, b), _mm_unpacklo_epi16(a, b));
}

// Low 16 bits of each 32-bit lane, sign-extended (so packs keeps them).
inline __m256i low16(__m256i v) { return _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16); }

void field_inv(int16_t* blk) {
    __m128i X[8];
    for (int r = 0; r < 8; ++r) X[r] = ld(blk + 8 * r);
    transpose8x16(X);
    const __m256i x17 = pairs(X[1], X[7]), x35 = pairs(X[3], X[5]);
    const __m256i x04 = pairs(X[0], X[4]), x26 = pairs(X[2], X[6]);
    const __m256i p = _mm256_madd_epi16(x17, pk256(field_inv_c1, field_inv_c7)),
                  q = _mm256_madd_epi16(x17, pk256(field_inv_c7, -field_inv_c1));
    const __m256i r = _mm256_madd_epi16(x35, pk256(field_inv_c3, field_inv_c5)),
                  w = _mm256_madd_epi16(x35, pk256(-field_inv_c5, field_inv_c3));
    const __m256i E0 = _mm256_madd_epi16(x04, pk256(field_inv_c4, field_inv_c4)),
                  E1 = _mm256_madd_epi16(x04, pk256(field_inv_c4, -field_inv_c4));
    const __m256i g = _mm256_madd_epi16(x26, pk256(field_inv_c2, field_inv_c6)),
                  hh = _mm256_madd_epi16(x26, pk256(field_inv_c6, -field_inv_c2));
    const __m256i r1024 = _mm256_set1_epi32(1024);
    const __m256i m =
        _mm256_srai_epi32(mul(_mm256_srai_epi32(add(sub(sub(add(p, q), r), w), r1024), 11), field_inv_r), 3);
    const __m256i n =
        _mm256_srai_epi32(mul(_mm256_srai_epi32(add(add(sub(sub(p, q), r), w), r1024), 11), field_inv_r), 3);
    const __m256i pr = add(p, r), qw = add(q, w), gE0 = add(g, E0), E0g = sub(E0, g);
    const __m256i E1h = add(E1, hh), E1mh = sub(E1, hh);
    __m256i Y[8] = {add(pr, gE0), add(m, E1h),  add(n, E1mh), add(qw, E0g),
                    sub(E0g, qw), sub(E1mh, n), sub(E1h, m),  sub(gE0, pr)};
    const __m256i r8192 = _mm256_set1_epi32(8192);
    for (int k = 0; k < 8; ++k) Y[k] = _mm256_srai_epi32(add(Y[k], r8192), 14);
    transpose8x32(Y);  // Y[row], lanes = columns
    const __m256i r65536 = _mm256_set1_epi32(65536);
    __m256i f[2][4];
    for (int fld = 0; fld < 2; ++fld) {
        const __m256i c0 = Y[4 * fld], c1 = Y[4 * fld + 1], c2 = Y[4 * fld + 2], c3 = Y[4 * fld + 3];
        const __m256i a = _mm256_slli_epi32(sub(c0, c2), 14), b = _mm256_slli_epi32(add(c0, c2), 14);
        const __m256i G = add(mul(c1, field_inv_c2), mul(c3, field_inv_c6));
        const __m256i H = sub(mul(c1, field_inv_c6), mul(c3, field_inv_c2));
        f[fld][0] = _mm256_srai_epi32(add(add(G, b), r65536), 17);
        f[fld][1] = _mm256_srai_epi32(add(add(a, H), r65536), 17);
        f[fld][2] = _mm256_srai_epi32(add(sub(a, H), r65536), 17);
        f[fld][3] = _mm256_srai_epi32(add(sub(b, G), r65536), 17);
    }
    for (int k = 0; k < 4; ++k) {
        const __m256i even = low16(add(f[0][k], f[1][k])), odd = low16(sub(f[0][k], f[1][k]));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(blk + 16 * k),
                            _mm256_permute4x64_epi64(_mm256_packs_epi32(even, odd), 0xD8));
    }
}

}  // namespace

void upgrade_dct_field(DctKernels& k) { k.field_inv = field_inv; }

}  // namespace kplvc::block::x86::avx2
