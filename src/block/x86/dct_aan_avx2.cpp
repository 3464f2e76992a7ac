// AVX2 matrix-engine inverse (transposed input). Eight columns as 32-bit
// lanes; vpmulld gives the low 32 bits of each product, which is exactly the
// wrapping arithmetic of the reference.
#include <immintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"

namespace kplvc::block::x86::avx2 {
namespace {

#include "core/x86/transpose256-inl.h"

using dct::aan_c;

inline __m128i ld(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m256i mul(__m256i a, int32_t c) { return _mm256_mullo_epi32(a, _mm256_set1_epi32(c)); }
inline __m256i add(__m256i a, __m256i b) { return _mm256_add_epi32(a, b); }
inline __m256i sub(__m256i a, __m256i b) { return _mm256_sub_epi32(a, b); }

inline void aan_step(const __m256i* z, __m256i* r) {
    const int32_t c1 = aan_c[1], c2 = aan_c[2], c3 = aan_c[3], c4 = aan_c[4];
    const int32_t c5 = aan_c[5], c6 = aan_c[6], c7 = aan_c[7];
    const __m256i s04 = mul(add(z[0], z[4]), c4), d04 = mul(sub(z[0], z[4]), c4);
    const __m256i g = add(mul(z[2], c2), mul(z[6], c6)), h = sub(mul(z[2], c6), mul(z[6], c2));
    const __m256i e0 = add(s04, g), e3 = sub(s04, g), e1 = add(d04, h), e2 = sub(d04, h);
    const __m256i o0 = add(add(mul(z[1], c1), mul(z[3], c3)), add(mul(z[5], c5), mul(z[7], c7)));
    const __m256i o1 = sub(sub(mul(z[1], c3), mul(z[3], c7)), add(mul(z[5], c1), mul(z[7], c5)));
    const __m256i o2 = add(sub(mul(z[1], c5), mul(z[3], c1)), add(mul(z[5], c7), mul(z[7], c3)));
    const __m256i o3 = sub(add(sub(mul(z[1], c7), mul(z[3], c5)), mul(z[5], c3)), mul(z[7], c1));
    r[0] = add(e0, o0);
    r[7] = sub(e0, o0);
    r[1] = add(e1, o1);
    r[6] = sub(e1, o1);
    r[2] = add(e2, o2);
    r[5] = sub(e2, o2);
    r[3] = add(e3, o3);
    r[4] = sub(e3, o3);
}

// The step with z4..z7 = 0 (blocks confined to the 4x4 corner).
inline void aan_step_corner(const __m256i* z, __m256i* r) {
    const int32_t c1 = aan_c[1], c2 = aan_c[2], c3 = aan_c[3], c4 = aan_c[4];
    const int32_t c5 = aan_c[5], c6 = aan_c[6], c7 = aan_c[7];
    const __m256i s0 = mul(z[0], c4), g = mul(z[2], c2), h = mul(z[2], c6);
    const __m256i e0 = add(s0, g), e3 = sub(s0, g), e1 = add(s0, h), e2 = sub(s0, h);
    const __m256i o0 = add(mul(z[1], c1), mul(z[3], c3));
    const __m256i o1 = sub(mul(z[1], c3), mul(z[3], c7));
    const __m256i o2 = sub(mul(z[1], c5), mul(z[3], c1));
    const __m256i o3 = sub(mul(z[1], c7), mul(z[3], c5));
    r[0] = add(e0, o0);
    r[7] = sub(e0, o0);
    r[1] = add(e1, o1);
    r[6] = sub(e1, o1);
    r[2] = add(e2, o2);
    r[5] = sub(e2, o2);
    r[3] = add(e3, o3);
    r[4] = sub(e3, o3);
}

template <bool Corner>
inline void aan_two_passes(__m256i* z, int16_t* out) {
    __m256i r[8];
    if (Corner)
        aan_step_corner(z, r);
    else
        aan_step(z, r);
    const __m256i k1 = _mm256_set1_epi32(dct::aan_round1);
    for (int k = 0; k < 8; ++k) z[k] = _mm256_srai_epi32(add(r[k], k1), 16);
    transpose8x32(z);
    // In the corner case pass 1 leaves zeros in lanes 4..7, so after the
    // transpose z4..z7 are zero.
    if (Corner)
        aan_step_corner(z, r);
    else
        aan_step(z, r);
    const __m256i k2 = _mm256_set1_epi32(dct::aan_round2);
    const __m256i lo = _mm256_set1_epi32(-256), hi = _mm256_set1_epi32(255);
    for (int i = 0; i < 8; ++i)
        r[i] = _mm256_min_epi32(_mm256_max_epi32(_mm256_srai_epi32(add(r[i], k2), 18), lo), hi);
    for (int i = 0; i < 8; i += 2)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 8 * i),
                            _mm256_permute4x64_epi64(_mm256_packs_epi32(r[i], r[i + 1]), 0xD8));
}

void aan(const int16_t* src, int16_t* out) {
    __m256i z[8];
    for (int k = 0; k < 8; ++k) z[k] = _mm256_cvtepi16_epi32(ld(src + 8 * k));
    aan_two_passes<false>(z, out);
}

void aan_corner(const int16_t* src, int16_t* out) {
    __m256i z[8];
    for (int k = 0; k < 4; ++k)
        z[k] = _mm256_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + 8 * k)));
    for (int k = 4; k < 8; ++k) z[k] = _mm256_setzero_si256();
    aan_two_passes<true>(z, out);
}

}  // namespace

void upgrade_dct_aan(DctKernels& k) {
    k.aan = aan;
    k.aan_corner = aan_corner;
}

}  // namespace kplvc::block::x86::avx2
