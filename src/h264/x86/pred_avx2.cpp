// AVX2 H.264 16x16 and chroma predictors: the plane rows two at a time (one register of
// 16-bit lanes holds eight samples of row y and eight of row y + 1, so a
// single pack yields two finished rows), DC and horizontal with one-instruction
// broadcasts.
#include <immintrin.h>

#include "core/arith.h"
#include "h264/pred.h"

namespace kplvc::h264::x86::avx2 {
namespace {

#include "h264/x86/pred-inl.h"

inline void store16b(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Rows y..y+3 from one base (see the SSE2 file): no chain of increments.
template <int Rows, class Row>
inline void each_row(uint8_t* p, int32_t step, Row row) {
    const intptr_t s = step, s3 = 3 * s;
#pragma GCC unroll 4
    for (int y = 0; y < Rows; y += 4) {
        uint8_t* b = p + y * s;
        row(b);
        row(b + s);
        row(b + 2 * s);
        row(b + s3);
    }
}

// Horizontal: vpbroadcastb straight from the left neighbour, one load-op.
void horizontal16(uint8_t* p, int32_t step, int32_t) {
    each_row<16>(p, step, [](uint8_t* r) {
        int8_t left;
        __builtin_memcpy(&left, r - 1, 1);
        store16b(r, _mm_set1_epi8(left));
    });
}

void horizontal8(uint8_t* p, int32_t step, int32_t) {
    each_row<8>(p, step, [](uint8_t* r) {
        int8_t left;
        __builtin_memcpy(&left, r - 1, 1);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(r), _mm_set1_epi8(left));
    });
}

// sum over i = 0..7 of (i + 1) * (q[9 + i] - q[7 - i]): the plane gradient
// along a run whose q[0] is the corner.
inline int gradient8(const uint8_t* q) {
    const __m128i hi = _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(q + 9)));
    const __m128i lo =
        _mm_shuffle_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(q)),
                         _mm_setr_epi8(7, -1, 6, -1, 5, -1, 4, -1, 3, -1, 2, -1, 1, -1, 0, -1));
    // Differences are -255..255, weights 1..8: every pmaddwd pair fits easily.
    __m128i s = _mm_madd_epi16(_mm_sub_epi16(hi, lo), _mm_setr_epi16(1, 2, 3, 4, 5, 6, 7, 8));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0x4E));
    s = _mm_add_epi32(s, _mm_shuffle_epi32(s, 0xB1));
    return _mm_cvtsi128_si32(s);
}

// The unshifted plane value stays within -11472..19648 (see the scalar
// kernel): 16-bit lanes hold it, srai and packus clip to 0..255.
void plane16(uint8_t* p, int32_t step, int32_t) {
    const auto [b, c, base] = plane16_setup(p, step, gradient8(row_at(p, step, -1) - 1));
    // lanes: [x = 0..7 of row y | x = 0..7 of row y + 1] and the same for x = 8..15.
    const __m256i x07 = _mm256_setr_epi16(0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i y01 = _mm256_setr_epi16(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1);
    const __m256i vb = _mm256_set1_epi16(static_cast<int16_t>(b));
    const __m256i vc = _mm256_set1_epi16(static_cast<int16_t>(c));
    __m256i lo = _mm256_add_epi16(_mm256_set1_epi16(static_cast<int16_t>(base)),
                                  _mm256_add_epi16(_mm256_mullo_epi16(vb, x07), _mm256_mullo_epi16(vc, y01)));
    __m256i hi = _mm256_add_epi16(lo, _mm256_slli_epi16(vb, 3));
    const __m256i vc2 = _mm256_add_epi16(vc, vc);
    for (int y = 0; y < 16; y += 2) {
        const __m256i two = _mm256_packus_epi16(_mm256_srai_epi16(lo, 5), _mm256_srai_epi16(hi, 5));
        store16b(row_at(p, step, y), _mm256_castsi256_si128(two));
        store16b(row_at(p, step, y + 1), _mm256_extracti128_si256(two, 1));
        lo = _mm256_add_epi16(lo, vc2);
        hi = _mm256_add_epi16(hi, vc2);
    }
}

void dc16(uint8_t* p, int32_t step, int32_t avail) {
    const bool t = (avail & kAvailTop) != 0, l = (avail & kAvailLeft) != 0;
    int dc = 128;
    if (t || l) {
        int st = 0, sl = 0;
        if (t) {
            const __m128i s = _mm_sad_epu8(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(row_at(p, step, -1))), _mm_setzero_si128());
            st = _mm_cvtsi128_si32(_mm_add_epi32(s, _mm_srli_si128(s, 8)));
        }
        if (l)
            for (int y = 0; y < 16; ++y) sl += row_at(p, step, y)[-1];
        dc = t && l ? (st + sl + 16) >> 5 : (st + sl + 8) >> 4;
    }
    const __m128i v = _mm_broadcastb_epi8(_mm_cvtsi32_si128(dc));
    each_row<16>(p, step, [v](uint8_t* r) { store16b(r, v); });
}

}  // namespace

void upgrade_pred(PredKernels& k) {
    k.pred16x16[1] = horizontal16;
    k.pred16x16[2] = dc16;
    k.pred16x16[3] = plane16;
    k.pred_chroma[1] = horizontal8;
}

}  // namespace kplvc::h264::x86::avx2
