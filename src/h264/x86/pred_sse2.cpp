// SSE2 H.264 16x16 and chroma 8x8 predictors: whole rows per store, sums by
// psadbw, plane rows in 16-bit lanes.
#include <emmintrin.h>

#include <cstring>

#include "core/arith.h"
#include "h264/pred.h"

namespace kplvc::h264::x86::sse2 {
namespace {

#include "h264/x86/pred-inl.h"

inline void store16b(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline void store8b(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
inline __m128i load8b(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }

// Sum of the bytes of v (psadbw against zero gives two 64-bit partial sums).
inline int sum_bytes(__m128i v) {
    const __m128i s = _mm_sad_epu8(v, _mm_setzero_si128());
    return _mm_cvtsi128_si32(s) + _mm_cvtsi128_si32(_mm_srli_si128(s, 8));
}

inline int sum_left(const uint8_t* p, int32_t step, int from, int n) {
    int s = 0;
    for (int i = from; i < from + n; ++i) s += row_at(p, step, i)[-1];
    return s;
}

// Rows y..y+3 from one base as [b], [b + s], [b + 2s], [b + 3s]: the four
// bases of a 16-row block come from p directly, so no store waits for a chain
// of pointer increments (row by row, 15 dependent adds outlast the stores).
template <int Rows, class Row>
inline void each_row(uint8_t* p, int32_t step, Row row) {
    const intptr_t s = step, s3 = 3 * s;
#pragma GCC unroll 4
    for (int y = 0; y < Rows; y += 4) {
        uint8_t* b = p + y * s;
        row(b, y);
        row(b + s, y + 1);
        row(b + 2 * s, y + 2);
        row(b + s3, y + 3);
    }
}

// The byte v in every lane: one multiply in a general register and a pshufd,
// where _mm_set1_epi8 on SSE2 is four vector operations.
inline __m128i splat_byte(uint8_t v) {
    return _mm_shuffle_epi32(_mm_cvtsi32_si128(static_cast<int>(v * 0x01010101u)), 0);
}

void vertical16(uint8_t* p, int32_t step, int32_t) {
    const __m128i t = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row_at(p, step, -1)));
    each_row<16>(p, step, [t](uint8_t* r, int) { store16b(r, t); });
}

void horizontal16(uint8_t* p, int32_t step, int32_t) {
    each_row<16>(p, step, [](uint8_t* r, int) { store16b(r, splat_byte(r[-1])); });
}

void dc16(uint8_t* p, int32_t step, int32_t avail) {
    const bool t = (avail & kAvailTop) != 0, l = (avail & kAvailLeft) != 0;
    int dc = 128;
    if (t || l) {
        const int st =
            t ? sum_bytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row_at(p, step, -1)))) : 0;
        const int sl = l ? sum_left(p, step, 0, 16) : 0;
        dc = t && l ? (st + sl + 16) >> 5 : (st + sl + 8) >> 4;
    }
    const __m128i v = _mm_set1_epi8(static_cast<char>(dc));
    each_row<16>(p, step, [v](uint8_t* r, int) { store16b(r, v); });
}

// sum over x = 0..n-1 of (x + 1) * (q[n + 1 + x] - q[n - 1 - x]) for n = 8,
// where q[0] is the corner and q[1 + i] neighbour i: the plane gradient.
inline int gradient8(const uint8_t* q) {
    const __m128i z = _mm_setzero_si128();
    const __m128i hi = _mm_unpacklo_epi8(load8b(q + 9), z);  // X8..X15
    __m128i lo = _mm_unpacklo_epi8(load8b(q), z);            // X-1..X6
    lo = _mm_shufflelo_epi16(lo, 0x1B);
    lo = _mm_shufflehi_epi16(lo, 0x1B);
    lo = _mm_shuffle_epi32(lo, 0x4E);  // X6..X-1
    // Differences are -255..255, weights 1..8: every pmaddwd pair fits easily.
    __m128i s = _mm_madd_epi16(_mm_sub_epi16(hi, lo), _mm_setr_epi16(1, 2, 3, 4, 5, 6, 7, 8));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0x4E));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0xB1));
    return _mm_cvtsi128_si32(s);
}

// Plane rows: the unshifted value stays within -11472..19648 (see the scalar
// kernel), so 16-bit lanes hold it; srai then packus clips to 0..255.
void plane16(uint8_t* p, int32_t step, int32_t) {
    const auto [b, c, base] = plane16_setup(p, step, gradient8(row_at(p, step, -1) - 1));
    const __m128i vb = _mm_set1_epi16(static_cast<int16_t>(b));
    __m128i lo = _mm_add_epi16(_mm_set1_epi16(static_cast<int16_t>(base)),
                               _mm_mullo_epi16(vb, _mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7)));
    __m128i hi = _mm_add_epi16(lo, _mm_slli_epi16(vb, 3));
    const __m128i vc = _mm_set1_epi16(static_cast<int16_t>(c));
    for (int y = 0; y < 16; ++y) {
        store16b(row_at(p, step, y), _mm_packus_epi16(_mm_srai_epi16(lo, 5), _mm_srai_epi16(hi, 5)));
        lo = _mm_add_epi16(lo, vc);
        hi = _mm_add_epi16(hi, vc);
    }
}

void vertical8(uint8_t* p, int32_t step, int32_t) {
    const __m128i t = load8b(row_at(p, step, -1));
    each_row<8>(p, step, [t](uint8_t* r, int) { store8b(r, t); });
}

void horizontal8(uint8_t* p, int32_t step, int32_t) {
    each_row<8>(p, step, [](uint8_t* r, int) { store8b(r, splat_byte(r[-1])); });
}

void dc_chroma(uint8_t* p, int32_t step, int32_t avail) {
    const bool t = (avail & kAvailTop) != 0, l = (avail & kAvailLeft) != 0;
    int t0 = 0, t1 = 0, l0 = 0, l1 = 0;
    if (t) {
        const __m128i s = _mm_sad_epu8(_mm_unpacklo_epi32(load8b(row_at(p, step, -1)), _mm_setzero_si128()),
                                       _mm_setzero_si128());
        t0 = _mm_cvtsi128_si32(s);
        t1 = _mm_cvtsi128_si32(_mm_srli_si128(s, 8));
    }
    if (l) {
        l0 = sum_left(p, step, 0, 4);
        l1 = sum_left(p, step, 4, 4);
    }
    int q0 = 128, q1 = 128, q2 = 128, q3 = 128;
    if (t && l) {
        q0 = (t0 + l0 + 4) >> 3;
        q1 = (t1 + 2) >> 2;
        q2 = (l1 + 2) >> 2;
        q3 = (t1 + l1 + 4) >> 3;
    } else if (t) {
        q0 = q2 = (t0 + 2) >> 2;
        q1 = q3 = (t1 + 2) >> 2;
    } else if (l) {
        q0 = q1 = (l0 + 2) >> 2;
        q2 = q3 = (l1 + 2) >> 2;
    }
    const __m128i top =
        _mm_unpacklo_epi32(_mm_set1_epi8(static_cast<char>(q0)), _mm_set1_epi8(static_cast<char>(q1)));
    const __m128i bot =
        _mm_unpacklo_epi32(_mm_set1_epi8(static_cast<char>(q2)), _mm_set1_epi8(static_cast<char>(q3)));
    for (int y = 0; y < 4; ++y) store8b(row_at(p, step, y), top);
    for (int y = 4; y < 8; ++y) store8b(row_at(p, step, y), bot);
}

// Chroma plane: unshifted values within -10824..19016, 16-bit lanes again.
void plane_chroma(uint8_t* p, int32_t step, int32_t) {
    const uint8_t* above = row_at(p, step, -1);
    auto T = [&](int x) { return int{above[x]}; };
    auto L = [&](int y) { return int{row_at(p, step, y)[-1]}; };
    int h = 0, v = 0;
    for (int i = 0; i < 4; ++i) {
        h += (i + 1) * (T(4 + i) - T(2 - i));
        v += (i + 1) * (L(4 + i) - L(2 - i));
    }
    const int a = 16 * (L(7) + T(7));
    const int b = (17 * h + 16) >> 5, c = (17 * v + 16) >> 5;
    const int base = a - 3 * b - 3 * c + 16;
    __m128i row = _mm_add_epi16(
        _mm_set1_epi16(static_cast<int16_t>(base)),
        _mm_mullo_epi16(_mm_set1_epi16(static_cast<int16_t>(b)), _mm_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7)));
    const __m128i vc = _mm_set1_epi16(static_cast<int16_t>(c));
    for (int y = 0; y < 8; y += 2) {
        const __m128i next = _mm_add_epi16(row, vc);
        const __m128i two = _mm_packus_epi16(_mm_srai_epi16(row, 5), _mm_srai_epi16(next, 5));
        store8b(row_at(p, step, y), two);
        store8b(row_at(p, step, y + 1), _mm_srli_si128(two, 8));
        row = _mm_add_epi16(next, vc);
    }
}

}  // namespace

void upgrade_pred(PredKernels& k) {
    k.pred16x16[0] = vertical16;
    k.pred16x16[1] = horizontal16;
    k.pred16x16[2] = dc16;
    k.pred16x16[3] = plane16;
    k.pred_chroma[0] = dc_chroma;
    k.pred_chroma[1] = horizontal8;
    k.pred_chroma[2] = vertical8;
    k.pred_chroma[3] = plane_chroma;
}

}  // namespace kplvc::h264::x86::sse2
