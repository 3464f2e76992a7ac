// SSE2 variances and means: sums by psadbw, squares by pmaddwd.
#include <emmintrin.h>

#include "block/metrics.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "core/x86/halfpel-inl.h"

#include "block/x86/metrics-inl.h"

// S by psadbw against zero, Q by pmaddwd of the widened samples (each lane
// at most 2 * 255^2 per row).
inline void sum_sq16(__m128i v, __m128i& s, __m128i& q) {
    const __m128i z = _mm_setzero_si128();
    const __m128i lo = _mm_unpacklo_epi8(v, z), hi = _mm_unpackhi_epi8(v, z);
    s = _mm_add_epi64(s, _mm_sad_epu8(v, z));
    q = _mm_add_epi32(q, _mm_add_epi32(_mm_madd_epi16(lo, lo), _mm_madd_epi16(hi, hi)));
}

int32_t variance16x16(const uint8_t* p, int32_t ps) {
    __m128i s = _mm_setzero_si128(), q = s;
    for (int y = 0; y < 16; ++y, p = next(p, ps)) sum_sq16(ld16(p), s, q);
    const int32_t S = hsum64(s), Q = hsum32(q);
    return Q - mul32w(S, S) / 256;
}

void varmean8x8_8u(const uint8_t* p, int32_t ps, int32_t* var, int32_t* mean) {
    __m128i s = _mm_setzero_si128(), q = s;
    for (int y = 0; y < 8; y += 2) sum_sq16(ld8x2(row_at(p, ps, y), ps), s, q);
    const int32_t S = hsum64(s), Q = hsum32(q);
    *var = static_cast<int32_t>((int64_t{64} * Q - int64_t{S} * S) / 4096);
    *mean = S;
}

// pmaddwd of x with itself wraps only when both products are 2^30, giving
// 2^31 mod 2^32: the same residue as the exact sum, so Q stays the sum
// modulo 2^32. S: pmaddwd with ones, at most 2^16 per lane per row.
void varmean8x8_16s(const int16_t* p, int32_t ps, int32_t* var, int32_t* mean) {
    const __m128i ones = _mm_set1_epi16(1);
    __m128i s = _mm_setzero_si128(), q = s;
    for (int y = 0; y < 8; ++y, p = row_at(p, ps, 1)) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        s = _mm_add_epi32(s, _mm_madd_epi16(v, ones));
        q = _mm_add_epi32(q, _mm_madd_epi16(v, v));
    }
    const int32_t S = hsum32(s);
    const int64_t Q = hsum32(q);
    *var = static_cast<int32_t>((64 * Q - int64_t{S} * S) / 4096);
    *mean = S;
}

// Per row: the left and right halves belong to quarters 2k and 2k + 1.
// sq per half-row lane pair via pmaddwd; the prediction sum via psadbw.
template <int H, int P>
void varmeandiff(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs, const int32_t* src_sum,
                 int32_t* var, int32_t* mean) {
    const __m128i z = _mm_setzero_si128();
    for (int band = 0; band < H / 8; ++band) {
        __m128i sql = z, sqh = z, ps = z;
        walk<P, 8, 16>(row_at(s, ss, 8 * band), ss, row_at(r, rs, 8 * band), rs, [&](__m128i a, __m128i p) {
            const __m128i dl = _mm_sub_epi16(_mm_unpacklo_epi8(a, z), _mm_unpacklo_epi8(p, z));
            const __m128i dh = _mm_sub_epi16(_mm_unpackhi_epi8(a, z), _mm_unpackhi_epi8(p, z));
            sql = _mm_add_epi32(sql, _mm_madd_epi16(dl, dl));
            sqh = _mm_add_epi32(sqh, _mm_madd_epi16(dh, dh));
            ps = _mm_add_epi64(ps, _mm_sad_epu8(p, z));
        });
        const int32_t sq[2] = {hsum32(sql), hsum32(sqh)};
        const int32_t pss[2] = {_mm_cvtsi128_si32(ps), _mm_cvtsi128_si32(_mm_unpackhi_epi64(ps, ps))};
        for (int h = 0; h < 2; ++h) {
            const int k = 2 * band + h;
            const int64_t m = (int64_t{src_sum[k]} - pss[h]) / 8;
            const int64_t m2 = m * m;
            mean[k] = static_cast<int32_t>(m);
            var[k] = sq[h] > m2 ? static_cast<int32_t>((sq[h] - m2) / 64) : 0;
        }
    }
}

// Rounded mean m fits a byte, so sum |x - m| is psadbw against m broadcast.
int32_t meanabsdev16x16(const uint8_t* p, int32_t ps) {
    const __m128i z = _mm_setzero_si128();
    __m128i s = z;
    const uint8_t* q = p;
    for (int y = 0; y < 16; ++y, q = next(q, ps)) s = _mm_add_epi64(s, _mm_sad_epu8(ld16(q), z));
    const int32_t m = (hsum64(s) + 128) >> 8;
    const __m128i mv = _mm_set1_epi8(static_cast<char>(m));
    __m128i d = z;
    for (int y = 0; y < 16; ++y, p = next(p, ps)) d = _mm_add_epi64(d, _mm_sad_epu8(ld16(p), mv));
    return hsum64(d);
}
}  // namespace

void upgrade_var(MetricsKernels& k) {
    k.variance16x16 = variance16x16;
    k.varmean8x8_8u = varmean8x8_8u;
    k.varmean8x8_16s = varmean8x8_16s;
    k.varmeandiff16x16[kFF] = varmeandiff<16, kFF>;
    k.varmeandiff16x16[kFH] = varmeandiff<16, kFH>;
    k.varmeandiff16x16[kHF] = varmeandiff<16, kHF>;
    k.varmeandiff16x16[kHH] = varmeandiff<16, kHH>;
    k.varmeandiff16x8[kFF] = varmeandiff<8, kFF>;
    k.varmeandiff16x8[kFH] = varmeandiff<8, kFH>;
    k.varmeandiff16x8[kHF] = varmeandiff<8, kHF>;
    k.varmeandiff16x8[kHH] = varmeandiff<8, kHH>;
    k.meanabsdev16x16 = meanabsdev16x16;
}

}  // namespace kplvc::block::x86::sse2
