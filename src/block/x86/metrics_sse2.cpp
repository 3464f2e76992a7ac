// SSE2 edge detection, sums of differences, zero count and texture error.
#include <emmintrin.h>

#include "block/metrics.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "core/x86/halfpel-inl.h"

#include "block/x86/metrics-inl.h"

// ---- Edge detection ------------------------------------------------------------

// One row at a time, as the reference: byte absolute differences with the
// right neighbour (the row shifted by one byte, so nothing past column 15 is
// read) and with the row below, clamped to 127 so that the signed byte
// compare against the threshold matches; column 15 is masked off. The
// decision after each row is the reference's byte arithmetic on the count.
uint8_t edges16x16(const uint8_t* p, int32_t ps, uint8_t pel_diff, uint8_t pel_count) {
    const __m128i thr = _mm_set1_epi8(static_cast<char>(pel_diff));
    const __m128i cap = _mm_set1_epi8(127);
    const uint8_t c = static_cast<uint8_t>(0u - pel_count);
    uint32_t n = 0;
    __m128i a = ld16(p);
    for (int y = 0; y < 15; ++y) {
        p = next(p, ps);
        const __m128i below = ld16(p);
        const __m128i right = _mm_srli_si128(a, 1);
        const __m128i dh = _mm_min_epu8(_mm_or_si128(_mm_subs_epu8(a, right), _mm_subs_epu8(right, a)), cap);
        const __m128i dv = _mm_min_epu8(_mm_or_si128(_mm_subs_epu8(a, below), _mm_subs_epu8(below, a)), cap);
        const __m128i edge = _mm_or_si128(_mm_cmpgt_epi8(dh, thr), _mm_cmpgt_epi8(dv, thr));
        n += static_cast<uint32_t>(
            __builtin_popcount(static_cast<unsigned>(_mm_movemask_epi8(edge)) & 0x7FFFu));
        if (static_cast<uint8_t>(255u * n) < c) return 1;
        a = below;
    }
    return 0;
}

// ---- Sums of differences, zero count, texture error ----------------------------

// Per band of four rows: the 16-bit differences of each row (columns 0-7 and
// 8-15) are stored four at a time into their sub-blocks' cells and summed
// over the band (at most 4 * 255 per lane); pmaddwd with ones then pairs the
// lanes, and one more pairing gives each sub-block's sum of 16.
template <int N>
void sumsdiff(const uint8_t* s, int32_t ss, const uint8_t* p, int32_t ps, int16_t* sums, int16_t* diff) {
    constexpr int per_row = N / 4;
    const __m128i z = _mm_setzero_si128(), ones = _mm_set1_epi16(1);
    for (int band = 0; band < per_row; ++band) {
        __m128i acc_lo = z, acc_hi = z;
        for (int r = 0; r < 4; ++r, s = next(s, ss), p = next(p, ps)) {
            const __m128i a = N == 16 ? ld16(s) : ld8(s);
            const __m128i b = N == 16 ? ld16(p) : ld8(p);
            const __m128i dlo = _mm_sub_epi16(_mm_unpacklo_epi8(a, z), _mm_unpacklo_epi8(b, z));
            acc_lo = _mm_add_epi16(acc_lo, dlo);
            __m128i dhi = z;
            if constexpr (N == 16) {
                dhi = _mm_sub_epi16(_mm_unpackhi_epi8(a, z), _mm_unpackhi_epi8(b, z));
                acc_hi = _mm_add_epi16(acc_hi, dhi);
            }
            if (diff != nullptr) {
                int16_t* d0 = diff + 16 * (band * per_row) + 4 * r;
                _mm_storel_epi64(reinterpret_cast<__m128i*>(d0), dlo);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(d0 + 16), _mm_unpackhi_epi64(dlo, dlo));
                if constexpr (N == 16) {
                    _mm_storel_epi64(reinterpret_cast<__m128i*>(d0 + 32), dhi);
                    _mm_storel_epi64(reinterpret_cast<__m128i*>(d0 + 48), _mm_unpackhi_epi64(dhi, dhi));
                }
            }
        }
        // Pairs of lanes, then pairs of pairs: one int32 per sub-block.
        const __m128i plo = _mm_madd_epi16(acc_lo, ones), phi = _mm_madd_epi16(acc_hi, ones);
        const __m128i even =
            _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(plo), _mm_castsi128_ps(phi), 0x88));
        const __m128i odd =
            _mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(plo), _mm_castsi128_ps(phi), 0xDD));
        const __m128i blk = _mm_packs_epi32(_mm_add_epi32(even, odd), z);  // |sum| <= 4080
        int16_t out[8];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), blk);
        for (int j = 0; j < per_row; ++j) sums[band * per_row + j] = out[j];
    }
}

// Each lane counts its zeros by subtracting the all-ones compare mask.
int32_t countzeros8x8(const int16_t* c) {
    const __m128i z = _mm_setzero_si128();
    __m128i n = z;
    for (int i = 0; i < 64; i += 8) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(c + i));
        n = _mm_sub_epi16(n, _mm_cmpeq_epi16(v, z));
    }
    return hsum32(_mm_madd_epi16(n, _mm_set1_epi16(1)));
}

// Two source rows against 16 packed reference bytes at a time; the SAD of
// the bytes is the sum of |differences|.
int32_t texture_error8x8(const uint8_t* s, int32_t ss, const uint8_t* ref, int16_t* dst) {
    const __m128i z = _mm_setzero_si128();
    __m128i sad = z;
    for (int y = 0; y < 8; y += 2, ref += 16, dst += 16) {
        const __m128i a = ld8x2(row_at(s, ss, y), ss), b = ld16(ref);
        sad = _mm_add_epi64(sad, _mm_sad_epu8(a, b));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst),
                         _mm_sub_epi16(_mm_unpacklo_epi8(a, z), _mm_unpacklo_epi8(b, z)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8),
                         _mm_sub_epi16(_mm_unpackhi_epi8(a, z), _mm_unpackhi_epi8(b, z)));
    }
    return hsum64(sad);
}

}  // namespace

void upgrade_metrics(MetricsKernels& k) {
    k.edges16x16 = edges16x16;
    k.sumsdiff16x16 = sumsdiff<16>;
    k.sumsdiff8x8 = sumsdiff<8>;
    k.countzeros8x8 = countzeros8x8;
    k.texture_error8x8 = texture_error8x8;
}

}  // namespace kplvc::block::x86::sse2
