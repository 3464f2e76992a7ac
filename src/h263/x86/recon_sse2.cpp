// SSE2 H.263 reconstruction and Annex J deblocking: eight 16-bit lanes.
#include <emmintrin.h>

#include <cstring>

#include "h263/recon.h"

namespace kplvc::h263::x86::sse2 {
namespace {

inline __m128i load8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline void store8(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
inline __m128i loadu(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }

// paddw wraps exactly like the reference's 16-bit add; packuswb saturates.
void recon16(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step) {
    const __m128i z = _mm_setzero_si128();
    for (int y = 0; y < 16; ++y) {
        const __m128i p = loadu(pred + static_cast<intptr_t>(y) * step);
        const __m128i lo = _mm_add_epi16(_mm_unpacklo_epi8(p, z), loadu(res + 16 * y));
        const __m128i hi = _mm_add_epi16(_mm_unpackhi_epi8(p, z), loadu(res + 16 * y + 8));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + static_cast<intptr_t>(y) * step), _mm_packus_epi16(lo, hi));
    }
}

void recon8(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step) {
    const __m128i z = _mm_setzero_si128();
    for (int y = 0; y < 8; ++y) {
        const __m128i p = _mm_unpacklo_epi8(load8(pred + static_cast<intptr_t>(y) * step), z);
        store8(dst + static_cast<intptr_t>(y) * step, _mm_packus_epi16(_mm_add_epi16(p, loadu(res + 8 * y)), z));
    }
}

// x / 2^k truncating toward zero, for 16-bit lanes.
template <int K>
inline __m128i div_trunc(__m128i x) {
    const __m128i neg = _mm_srai_epi16(x, 15);  // all ones where x < 0
    return _mm_srai_epi16(_mm_add_epi16(x, _mm_and_si128(neg, _mm_set1_epi16((1 << K) - 1))), K);
}

inline __m128i abs16(__m128i x) {
    const __m128i s = _mm_srai_epi16(x, 15);
    return _mm_sub_epi16(_mm_xor_si128(x, s), s);
}

// The filter on eight positions at once: a, b, c, d hold the samples as
// 16-bit lanes and are updated in place.
inline void filter(__m128i& a, __m128i& b, __m128i& c, __m128i& d, int strength) {
    const __m128i z = _mm_setzero_si128();
    // A - 4B + 4C - D lies within +-2040.
    const __m128i t = _mm_add_epi16(_mm_sub_epi16(a, d), _mm_slli_epi16(_mm_sub_epi16(c, b), 2));
    const __m128i dd = div_trunc<3>(t);
    const __m128i sign = _mm_srai_epi16(dd, 15);
    const __m128i ad = abs16(dd);
    const __m128i ramp = _mm_max_epi16(_mm_slli_epi16(_mm_sub_epi16(ad, _mm_set1_epi16(static_cast<short>(strength))), 1), z);
    const __m128i mag = _mm_max_epi16(_mm_sub_epi16(ad, ramp), z);
    const __m128i d1 = _mm_sub_epi16(_mm_xor_si128(mag, sign), sign);
    // B and C saturate to 0..255 through the final pack.
    b = _mm_add_epi16(b, d1);
    c = _mm_sub_epi16(c, d1);
    const __m128i lim = _mm_srai_epi16(mag, 1);  // |d1 / 2| = |d1| >> 1
    const __m128i d2 = _mm_max_epi16(_mm_sub_epi16(z, lim), _mm_min_epi16(lim, div_trunc<2>(_mm_sub_epi16(a, d))));
    a = _mm_sub_epi16(a, d2);
    d = _mm_add_epi16(d, d2);
}

void deblock_hor(uint8_t* p, int32_t step, int strength) {
    const __m128i z = _mm_setzero_si128();
    uint8_t* ra = p - 2 * static_cast<intptr_t>(step);
    uint8_t* rb = p - step;
    uint8_t* rd = p + step;
    __m128i a = _mm_unpacklo_epi8(load8(ra), z), b = _mm_unpacklo_epi8(load8(rb), z);
    __m128i c = _mm_unpacklo_epi8(load8(p), z), d = _mm_unpacklo_epi8(load8(rd), z);
    filter(a, b, c, d, strength);
    store8(ra, _mm_packus_epi16(a, z));
    store8(rb, _mm_packus_epi16(b, z));
    store8(p, _mm_packus_epi16(c, z));
    store8(rd, _mm_packus_epi16(d, z));
}

void deblock_ver(uint8_t* p, int32_t step, int strength) {
    // Gather the four columns A..D of eight rows: row i's four bytes become
    // lane i of each column vector.
    alignas(16) uint8_t col[4][16] = {};
    for (int i = 0; i < 8; ++i) {
        const uint8_t* r = p + static_cast<intptr_t>(i) * step - 2;
        col[0][i] = r[0], col[1][i] = r[1], col[2][i] = r[2], col[3][i] = r[3];
    }
    const __m128i z = _mm_setzero_si128();
    __m128i a = _mm_unpacklo_epi8(load8(col[0]), z), b = _mm_unpacklo_epi8(load8(col[1]), z);
    __m128i c = _mm_unpacklo_epi8(load8(col[2]), z), d = _mm_unpacklo_epi8(load8(col[3]), z);
    filter(a, b, c, d, strength);
    store8(col[0], _mm_packus_epi16(a, z));
    store8(col[1], _mm_packus_epi16(b, z));
    store8(col[2], _mm_packus_epi16(c, z));
    store8(col[3], _mm_packus_epi16(d, z));
    for (int i = 0; i < 8; ++i) {
        uint8_t* r = p + static_cast<intptr_t>(i) * step - 2;
        r[0] = col[0][i], r[1] = col[1][i], r[2] = col[2][i], r[3] = col[3][i];
    }
}

}  // namespace

void upgrade_recon(ReconKernels& k) {
    k.recon16 = recon16;
    k.recon8 = recon8;
    k.deblock_hor = deblock_hor;
    k.deblock_ver = deblock_ver;
}

}  // namespace kplvc::h263::x86::sse2
