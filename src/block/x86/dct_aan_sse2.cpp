// Matrix-engine inverse (transposed input) and its stores, SSE2.
//
// Both passes have 16-bit inputs, and everything after the products wraps
// in 32 bits, so only the products modulo 2^32 matter. A weight C >= 32768
// does not fit a pmaddwd operand, but C*z = (C - 65536)*z + (z << 16) modulo
// 2^32, and (z << 16) of a 16-bit z is z in the high half of a dword: sums of
// such terms are formed with 16-bit wrapping adds and interleaved with zeros.
// No weight is -32768, so every pmaddwd pair sum is exact.
#include <emmintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"
#include "block/dct_ref.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "core/x86/transpose-inl.h"

using dct::aan_c;

constexpr int16_t kC1m = static_cast<int16_t>(aan_c[1] - 65536);
constexpr int16_t kC2m = static_cast<int16_t>(aan_c[2] - 65536);
constexpr int16_t kC3m = static_cast<int16_t>(aan_c[3] - 65536);
constexpr int16_t kC4m = static_cast<int16_t>(aan_c[4] - 65536);
constexpr int16_t kC5m = static_cast<int16_t>(aan_c[5] - 65536);
constexpr int16_t kC6 = static_cast<int16_t>(aan_c[6]);
constexpr int16_t kC7 = static_cast<int16_t>(aan_c[7]);
static_assert(aan_c[5] >= 32768 && aan_c[6] < 32768, "weight split");

// One 8-point step on eight vectors of 16-bit lanes; r[k][0] holds the 32-bit
// results of lanes 0..3, r[k][1] of lanes 4..7.
inline void aan_step(const __m128i* z, __m128i (*r)[2]) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i h04s = _mm_add_epi16(z[0], z[4]);
    const __m128i h04d = _mm_sub_epi16(z[0], z[4]);
    const __m128i h_o0 = _mm_add_epi16(_mm_add_epi16(z[1], z[3]), z[5]);
    const __m128i h_o1 = _mm_sub_epi16(_mm_sub_epi16(z[1], z[5]), z[7]);
    const __m128i h_o2 = _mm_add_epi16(_mm_sub_epi16(z[1], z[3]), z[7]);
    const __m128i h_o3 = _mm_sub_epi16(_mm_sub_epi16(z[5], z[3]), z[7]);
    for (int h = 0; h < 2; ++h) {
        auto il = [h](__m128i a, __m128i b) {
            return h ? _mm_unpackhi_epi16(a, b) : _mm_unpacklo_epi16(a, b);
        };
        const __m128i z04 = il(z[0], z[4]), z26 = il(z[2], z[6]);
        const __m128i z13 = il(z[1], z[3]), z57 = il(z[5], z[7]);
        const __m128i P = _mm_add_epi32(_mm_madd_epi16(z04, pk(kC4m, kC4m)), il(zero, h04s));
        const __m128i Pd = _mm_add_epi32(_mm_madd_epi16(z04, pk(kC4m, -kC4m)), il(zero, h04d));
        const __m128i Q = _mm_add_epi32(_mm_madd_epi16(z26, pk(kC2m, kC6)), il(zero, z[2]));
        const __m128i Qd = _mm_sub_epi32(_mm_madd_epi16(z26, pk(kC6, -kC2m)), il(zero, z[6]));
        const __m128i e0 = _mm_add_epi32(P, Q), e3 = _mm_sub_epi32(P, Q);
        const __m128i e1 = _mm_add_epi32(Pd, Qd), e2 = _mm_sub_epi32(Pd, Qd);
        const __m128i o0 = _mm_add_epi32(
            _mm_add_epi32(_mm_madd_epi16(z13, pk(kC1m, kC3m)), _mm_madd_epi16(z57, pk(kC5m, kC7))),
            il(zero, h_o0));
        const __m128i o1 = _mm_add_epi32(
            _mm_add_epi32(_mm_madd_epi16(z13, pk(kC3m, -kC7)), _mm_madd_epi16(z57, pk(-kC1m, -kC5m))),
            il(zero, h_o1));
        const __m128i o2 = _mm_add_epi32(
            _mm_add_epi32(_mm_madd_epi16(z13, pk(kC5m, -kC1m)), _mm_madd_epi16(z57, pk(kC7, kC3m))),
            il(zero, h_o2));
        const __m128i o3 = _mm_add_epi32(
            _mm_add_epi32(_mm_madd_epi16(z13, pk(kC7, -kC5m)), _mm_madd_epi16(z57, pk(kC3m, -kC1m))),
            il(zero, h_o3));
        r[0][h] = _mm_add_epi32(e0, o0);
        r[7][h] = _mm_sub_epi32(e0, o0);
        r[1][h] = _mm_add_epi32(e1, o1);
        r[6][h] = _mm_sub_epi32(e1, o1);
        r[2][h] = _mm_add_epi32(e2, o2);
        r[5][h] = _mm_sub_epi32(e2, o2);
        r[3][h] = _mm_add_epi32(e3, o3);
        r[4][h] = _mm_sub_epi32(e3, o3);
    }
}

// (r + round) >> shift for both halves, packed to 16 bits. The shifted
// values fit (>> 16 of a 32-bit value, or >> 18), so packs never saturates.
template <int Shift>
inline __m128i round_pack(const __m128i* r, int32_t round) {
    const __m128i k = _mm_set1_epi32(round);
    return _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(r[0], k), Shift),
                           _mm_srai_epi32(_mm_add_epi32(r[1], k), Shift));
}

inline __m128i clamp_m256_255(__m128i v) {
    return _mm_min_epi16(_mm_max_epi16(v, _mm_set1_epi16(-256)), _mm_set1_epi16(255));
}

// z[k] = source row k (lanes = source columns m). Pass 1 gives t[k] with
// lanes m; transposed, z[m] has lanes j for pass 2, whose result r[i] is
// output row i.
inline void aan_two_passes(__m128i* z, int16_t* out) {
    __m128i r[8][2];
    aan_step(z, r);
    for (int k = 0; k < 8; ++k) z[k] = round_pack<16>(r[k], dct::aan_round1);
    transpose8x16(z);
    aan_step(z, r);
    for (int i = 0; i < 8; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 8 * i),
                         clamp_m256_255(round_pack<18>(r[i], dct::aan_round2)));
}

void aan(const int16_t* src, int16_t* out) {
    __m128i z[8];
    for (int k = 0; k < 8; ++k) z[k] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 8 * k));
    aan_two_passes(z, out);
}

// Columns 4..7 of pass 1 see zeros and give zeros, so pass 2 gets zero z4..z7.
void aan_corner(const int16_t* src, int16_t* out) {
    __m128i z[8];
    for (int k = 0; k < 4; ++k) z[k] = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + 8 * k));
    for (int k = 4; k < 8; ++k) z[k] = _mm_setzero_si128();
    aan_two_passes(z, out);
}

inline __m128i ldv(const int16_t* v, int i) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(v + 8 * i));
}

void put_16s(const int16_t* v, int16_t* dst, int32_t step) {
    for (int i = 0; i < 8; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row_at(dst, step, i)), clamp_m256_255(ldv(v, i)));
}

void put_u8(const int16_t* v, uint8_t* dst, int32_t step) {
    for (int i = 0; i < 8; ++i) {
        const __m128i x = ldv(v, i);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + static_cast<intptr_t>(i) * step),
                         _mm_packus_epi16(x, x));
    }
}

// Rows that cannot overlap (|step| at least a row of 16 or 32 bytes) are
// written whole, interleaved; otherwise u's rows must all land before v's.
void put_16s_p2(const int16_t* u, const int16_t* v, int16_t* dst, int32_t step) {
    if (step > -32 && step < 32) return ref::put_16s_p2(u, v, dst, step);
    for (int i = 0; i < 8; ++i) {
        const __m128i a = clamp_m256_255(ldv(u, i)), b = clamp_m256_255(ldv(v, i));
        auto* row = reinterpret_cast<__m128i*>(row_at(dst, step, i));
        _mm_storeu_si128(row, _mm_unpacklo_epi16(a, b));
        _mm_storeu_si128(row + 1, _mm_unpackhi_epi16(a, b));
    }
}

void put_u8_p2(const int16_t* u, const int16_t* v, uint8_t* dst, int32_t step) {
    if (step > -16 && step < 16) return ref::put_u8_p2(u, v, dst, step);
    for (int i = 0; i < 8; ++i) {
        const __m128i a = ldv(u, i), b = ldv(v, i);
        const __m128i pa = _mm_packus_epi16(a, a), pb = _mm_packus_epi16(b, b);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + static_cast<intptr_t>(i) * step),
                         _mm_unpacklo_epi8(pa, pb));
    }
}

}  // namespace

void upgrade_dct_aan(DctKernels& k) {
    k.aan = aan;
    k.aan_corner = aan_corner;
    k.put_16s = put_16s;
    k.put_u8 = put_u8;
    k.put_16s_p2 = put_16s_p2;
    k.put_u8_p2 = put_u8_p2;
}

}  // namespace kplvc::block::x86::sse2
