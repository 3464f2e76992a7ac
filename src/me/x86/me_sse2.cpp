// SSE2 kernels of the searches: four SADs per call with psadbw (the current
// row loaded once for the four references), and the column and row sums
// behind successive elimination in 16-bit lanes.
//
// The sums are exact in 16 bits: a column sum of 16 rows is at most 4080, a
// block sum at most 65280, and the lanes wrap modulo 2^16 exactly as the
// scalar kernels do.
#include <emmintrin.h>

#include "core/arith.h"
#include "me/me.h"

namespace kplvc::me::x86::sse2 {
namespace {

inline __m128i ld16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m128i ld8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
// Rows y and y + 1 of an 8-wide block in the low and high halves.
inline __m128i ld8x2(const uint8_t* p, int32_t step, int y) {
    return _mm_unpacklo_epi64(ld8(row_at(p, step, y)), ld8(row_at(p, step, y + 1)));
}
// psadbw leaves one partial sum in each 64-bit half.
inline int32_t halves(__m128i v) { return _mm_cvtsi128_si32(_mm_add_epi32(v, _mm_unpackhi_epi64(v, v))); }

void sad_x4_16(const uint8_t* src, int32_t ss, const uint8_t* const* ref, int32_t rs, int32_t* sad) {
    __m128i a0 = _mm_setzero_si128(), a1 = a0, a2 = a0, a3 = a0;
    for (int y = 0; y < 16; ++y) {
        const __m128i s = ld16(row_at(src, ss, y));
        a0 = _mm_add_epi32(a0, _mm_sad_epu8(s, ld16(row_at(ref[0], rs, y))));
        a1 = _mm_add_epi32(a1, _mm_sad_epu8(s, ld16(row_at(ref[1], rs, y))));
        a2 = _mm_add_epi32(a2, _mm_sad_epu8(s, ld16(row_at(ref[2], rs, y))));
        a3 = _mm_add_epi32(a3, _mm_sad_epu8(s, ld16(row_at(ref[3], rs, y))));
    }
    sad[0] = halves(a0);
    sad[1] = halves(a1);
    sad[2] = halves(a2);
    sad[3] = halves(a3);
}

void sad_x4_8(const uint8_t* src, int32_t ss, const uint8_t* const* ref, int32_t rs, int32_t* sad) {
    __m128i a0 = _mm_setzero_si128(), a1 = a0, a2 = a0, a3 = a0;
    for (int y = 0; y < 8; y += 2) {
        const __m128i s = ld8x2(src, ss, y);
        a0 = _mm_add_epi32(a0, _mm_sad_epu8(s, ld8x2(ref[0], rs, y)));
        a1 = _mm_add_epi32(a1, _mm_sad_epu8(s, ld8x2(ref[1], rs, y)));
        a2 = _mm_add_epi32(a2, _mm_sad_epu8(s, ld8x2(ref[2], rs, y)));
        a3 = _mm_add_epi32(a3, _mm_sad_epu8(s, ld8x2(ref[3], rs, y)));
    }
    sad[0] = halves(a0);
    sad[1] = halves(a1);
    sad[2] = halves(a2);
    sad[3] = halves(a3);
}

void col_update(uint16_t* col, const uint8_t* add, const uint8_t* sub, int32_t n) {
    const __m128i z = _mm_setzero_si128();
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m128i a = ld16(add + i), s = ld16(sub + i);
        __m128i* c = reinterpret_cast<__m128i*>(col + i);
        const __m128i lo = _mm_sub_epi16(_mm_add_epi16(_mm_loadu_si128(c), _mm_unpacklo_epi8(a, z)),
                                         _mm_unpacklo_epi8(s, z));
        const __m128i hi = _mm_sub_epi16(_mm_add_epi16(_mm_loadu_si128(c + 1), _mm_unpackhi_epi8(a, z)),
                                         _mm_unpackhi_epi8(s, z));
        _mm_storeu_si128(c, lo);
        _mm_storeu_si128(c + 1, hi);
    }
    for (; i < n; ++i) col[i] = static_cast<uint16_t>(col[i] + add[i] - sub[i]);
}

// Eight block sums at a time from N shifted loads of the column sums.
template <int N>
void row_sums(const uint16_t* col, uint16_t* dst, int32_t n) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i acc = _mm_loadu_si128(reinterpret_cast<const __m128i*>(col + i));
        for (int k = 1; k < N; ++k)
            acc = _mm_add_epi16(acc, _mm_loadu_si128(reinterpret_cast<const __m128i*>(col + i + k)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), acc);
    }
    for (; i < n; ++i) {
        uint32_t sum = 0;
        for (int k = 0; k < N; ++k) sum += col[i + k];
        dst[i] = static_cast<uint16_t>(sum);
    }
}

// Eight displacements at a time: |sc - sum| in unsigned 16-bit lanes (the
// two saturating differences, one of them 0), widened to 32 bits, times 16,
// plus the price; a lane passes unless it exceeds the limit.
int32_t sea_filter(const uint16_t* sums, const int32_t* price, int32_t n, int32_t sc, int32_t limit,
                   uint16_t* idx) {
    const __m128i z = _mm_setzero_si128(), c = _mm_set1_epi16(static_cast<int16_t>(sc)),
                  lim = _mm_set1_epi32(limit);
    int32_t m = 0, i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + i));
        const __m128i d = _mm_or_si128(_mm_subs_epu16(v, c), _mm_subs_epu16(c, v));
        const __m128i lo = _mm_add_epi32(_mm_slli_epi32(_mm_unpacklo_epi16(d, z), 4),
                                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(price + i)));
        const __m128i hi = _mm_add_epi32(_mm_slli_epi32(_mm_unpackhi_epi16(d, z), 4),
                                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(price + i + 4)));
        unsigned pass =
            ~static_cast<unsigned>(_mm_movemask_ps(_mm_castsi128_ps(_mm_cmpgt_epi32(lo, lim))) |
                                   _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpgt_epi32(hi, lim))) << 4) &
            0xFFu;
        for (; pass != 0; pass &= pass - 1) idx[m++] = static_cast<uint16_t>(i + __builtin_ctz(pass));
    }
    for (; i < n; ++i) {
        const int32_t d = sc - sums[i];
        if (16 * (d < 0 ? -d : d) + price[i] <= limit) idx[m++] = static_cast<uint16_t>(i);
    }
    return m;
}

}  // namespace

void upgrade_me(MeKernels& k) {
    k.sad_x4[k16] = sad_x4_16;
    k.sad_x4[k8] = sad_x4_8;
    k.row_sums[k16] = row_sums<16>;
    k.row_sums[k8] = row_sums<8>;
    k.col_update = col_update;
    k.sea_filter = sea_filter;
}

}  // namespace kplvc::me::x86::sse2
