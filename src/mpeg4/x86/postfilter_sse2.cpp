// SSE2 MPEG-4 post-filters: deblocking of eight lines at once in 16-bit
// lanes (a vertical edge through a byte transpose), deringing of one block
// row at a time.
#include <emmintrin.h>

#include "mpeg4/postfilter.h"

namespace kplvc::mpeg4::x86::sse2 {
namespace {

inline __m128i load8(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline void store8(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
inline __m128i widen(__m128i b) { return _mm_unpacklo_epi8(b, _mm_setzero_si128()); }

// mask ? a : b
inline __m128i select(__m128i mask, __m128i a, __m128i b) {
    return _mm_or_si128(_mm_and_si128(mask, a), _mm_andnot_si128(mask, b));
}

#include "core/x86/lanes-inl.h"
#include "mpeg4/x86/postfilter-inl.h"

inline void filter(__m128i (&v)[10], int32_t qp) {
    DeblockLanes<Lanes128>::filter(v, _mm_set1_epi16(static_cast<short>(qp)));
}

void deblock_hor(uint8_t* p, int32_t step, int32_t qp) {
    uint8_t* top = p - 5 * static_cast<intptr_t>(step);
    __m128i v[10];
    for (int i = 0; i < 10; ++i) v[i] = widen(load8(top + i * static_cast<intptr_t>(step)));
    filter(v, qp);
    for (int i = 1; i <= 8; ++i)
        store8(top + i * static_cast<intptr_t>(step), _mm_packus_epi16(v[i], _mm_setzero_si128()));
}

void deblock_hor16(uint8_t* p, int32_t step, int32_t qp0, int32_t qp1) {
    deblock_hor(p, step, qp0);
    deblock_hor(p + 8, step, qp1);
}

void deblock_ver(uint8_t* p, int32_t step, int32_t qp) {
    // Columns -8..7 of eight rows, transposed: c[k] holds columns 2k and
    // 2k + 1 (eight rows each).
    __m128i r[8];
    for (int i = 0; i < 8; ++i)
        r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + static_cast<intptr_t>(i) * step - 8));
    __m128i a[8], b[8], c[8];
    for (int i = 0; i < 4; ++i) {
        a[2 * i] = _mm_unpacklo_epi8(r[2 * i], r[2 * i + 1]);
        a[2 * i + 1] = _mm_unpackhi_epi8(r[2 * i], r[2 * i + 1]);
    }
    for (int h = 0; h < 2; ++h) {  // rows 0-3, rows 4-7
        const __m128i* s = a + 4 * h;
        b[4 * h + 0] = _mm_unpacklo_epi16(s[0], s[2]);  // columns 0-3
        b[4 * h + 1] = _mm_unpackhi_epi16(s[0], s[2]);  // 4-7
        b[4 * h + 2] = _mm_unpacklo_epi16(s[1], s[3]);  // 8-11
        b[4 * h + 3] = _mm_unpackhi_epi16(s[1], s[3]);  // 12-15
    }
    for (int i = 0; i < 4; ++i) {
        c[2 * i] = _mm_unpacklo_epi32(b[i], b[4 + i]);
        c[2 * i + 1] = _mm_unpackhi_epi32(b[i], b[4 + i]);
    }
    const __m128i zero = _mm_setzero_si128();
    __m128i v[10];
    for (int j = 3; j <= 12; ++j)  // columns -5..4
        v[j - 3] = (j & 1) ? _mm_unpackhi_epi8(c[j >> 1], zero) : _mm_unpacklo_epi8(c[j >> 1], zero);
    filter(v, qp);
    // v[1..8] (columns -4..3) back to rows.
    __m128i u[4], w[4];
    for (int i = 0; i < 4; ++i)
        u[i] = _mm_unpacklo_epi8(_mm_packus_epi16(v[2 * i + 1], zero), _mm_packus_epi16(v[2 * i + 2], zero));
    w[0] = _mm_unpacklo_epi16(u[0], u[1]);
    w[1] = _mm_unpackhi_epi16(u[0], u[1]);
    w[2] = _mm_unpacklo_epi16(u[2], u[3]);
    w[3] = _mm_unpackhi_epi16(u[2], u[3]);
    const __m128i x[4] = {_mm_unpacklo_epi32(w[0], w[2]), _mm_unpackhi_epi32(w[0], w[2]),
                          _mm_unpacklo_epi32(w[1], w[3]), _mm_unpackhi_epi32(w[1], w[3])};
    for (int i = 0; i < 4; ++i) {
        store8(p + static_cast<intptr_t>(2 * i) * step - 4, x[i]);
        store8(p + static_cast<intptr_t>(2 * i + 1) * step - 4, _mm_srli_si128(x[i], 8));
    }
}

void minmax(const uint8_t* p, int32_t step, int32_t* mn, int32_t* mx) {
    __m128i lo = load8(p), hi = lo;
    for (int y = 1; y < 8; ++y) {
        const __m128i r = load8(p + static_cast<intptr_t>(y) * step);
        lo = _mm_min_epu8(lo, r);
        hi = _mm_max_epu8(hi, r);
    }
    // Byte shifts take immediates: the three folds written out.
    lo = _mm_min_epu8(lo, _mm_srli_si128(lo, 4));
    hi = _mm_max_epu8(hi, _mm_srli_si128(hi, 4));
    lo = _mm_min_epu8(lo, _mm_srli_si128(lo, 2));
    hi = _mm_max_epu8(hi, _mm_srli_si128(hi, 2));
    lo = _mm_min_epu8(lo, _mm_srli_si128(lo, 1));
    hi = _mm_max_epu8(hi, _mm_srli_si128(hi, 1));
    *mn = _mm_cvtsi128_si32(lo) & 255;
    *mx = _mm_cvtsi128_si32(hi) & 255;
}

void dering(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t thr,
            int32_t max_diff) {
    const __m128i t = _mm_set1_epi8(static_cast<char>(thr));
    // Per row -1..8: the horizontal sums L + 2C + R (at most 1020) and
    // whether the three samples are all >= thr, or any of them is.
    __m128i hsum[10], all[10], any[10], rec[10];
    for (int j = 0; j < 10; ++j) {
        const uint8_t* row = src + static_cast<intptr_t>(j - 1) * src_step;
        const __m128i l = load8(row - 1), c = load8(row), r = load8(row + 1);
        auto ge = [t](__m128i x) { return _mm_cmpeq_epi8(_mm_max_epu8(x, t), x); };
        const __m128i gl = ge(l), gc = ge(c), gr = ge(r);
        all[j] = _mm_and_si128(_mm_and_si128(gl, gc), gr);
        any[j] = _mm_or_si128(_mm_or_si128(gl, gc), gr);
        rec[j] = widen(c);
        hsum[j] = _mm_add_epi16(_mm_add_epi16(widen(l), widen(r)), _mm_slli_epi16(rec[j], 1));
    }
    const __m128i md = _mm_set1_epi16(static_cast<short>(max_diff));
    for (int y = 0; y < 8; ++y) {
        const __m128i a = _mm_and_si128(_mm_and_si128(all[y], all[y + 1]), all[y + 2]);
        const __m128i n = _mm_or_si128(_mm_or_si128(any[y], any[y + 1]), any[y + 2]);
        const __m128i same8 = _mm_or_si128(a, _mm_andnot_si128(n, _mm_set1_epi8(-1)));
        const __m128i same = _mm_unpacklo_epi8(same8, same8);
        const __m128i sum =
            _mm_add_epi16(_mm_add_epi16(hsum[y], hsum[y + 2]), _mm_slli_epi16(hsum[y + 1], 1));
        const __m128i v = rec[y + 1];
        __m128i flt = _mm_srli_epi16(_mm_add_epi16(sum, _mm_set1_epi16(8)), 4);
        flt = _mm_max_epi16(_mm_sub_epi16(v, md), _mm_min_epi16(_mm_add_epi16(v, md), flt));
        store8(dst + static_cast<intptr_t>(y) * dst_step,
               _mm_packus_epi16(select(same, flt, v), _mm_setzero_si128()));
    }
}

}  // namespace

void upgrade_post(PostKernels& k) {
    k.deblock_hor = deblock_hor;
    k.deblock_hor16 = deblock_hor16;
    k.deblock_ver = deblock_ver;
    k.minmax = minmax;
    k.dering = dering;
}

}  // namespace kplvc::mpeg4::x86::sse2
