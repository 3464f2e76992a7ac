// SSE2 sums of absolute and squared differences: byte SADs with psadbw,
// squares with pmaddwd on 16-bit differences, half-sample predictions with
// pavgb (core/x86/halfpel-inl.h).
#include <emmintrin.h>

#include <cstring>
#include <utility>

#include "block/metrics.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "core/x86/halfpel-inl.h"

#include "block/x86/metrics-inl.h"

// Sum of squares of the differences of 16 byte pairs, as four int32 lanes.
// Each lane gets two squares of at most 255^2, so 130050 per row.
inline __m128i sqr_bytes(__m128i s, __m128i p) {
    const __m128i z = _mm_setzero_si128();
    const __m128i dl = _mm_sub_epi16(_mm_unpacklo_epi8(s, z), _mm_unpacklo_epi8(p, z));
    const __m128i dh = _mm_sub_epi16(_mm_unpackhi_epi8(s, z), _mm_unpackhi_epi8(p, z));
    return _mm_add_epi32(_mm_madd_epi16(dl, dl), _mm_madd_epi16(dh, dh));
}

template <int P>
int32_t sad16x16(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m128i acc = _mm_setzero_si128();
    walk<P, 16, 16>(s, ss, r, rs,
                    [&](__m128i a, __m128i b) { acc = _mm_add_epi64(acc, _mm_sad_epu8(a, b)); });
    return hsum64(acc);
}

// Half positions: one 8-byte row in the low half (the high halves are zero
// in both operands and add nothing).
template <int P>
int32_t sad8x8(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m128i acc = _mm_setzero_si128();
    walk<P, 8, 8>(s, ss, r, rs, [&](__m128i a, __m128i b) { acc = _mm_add_epi64(acc, _mm_sad_epu8(a, b)); });
    return _mm_cvtsi128_si32(acc);
}

int32_t sad4x4(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    auto rows = [](const uint8_t* p, int32_t st) {
        const __m128i lo = _mm_unpacklo_epi32(ld4(p), ld4(row_at(p, st, 1)));
        const __m128i hi = _mm_unpacklo_epi32(ld4(row_at(p, st, 2)), ld4(row_at(p, st, 3)));
        return _mm_unpacklo_epi64(lo, hi);
    };
    return hsum64(_mm_sad_epu8(rows(s, ss), rows(r, rs)));
}

// psadbw sums each 8-byte half: rows 0..7 give quarters 0 and 1, rows 8..15
// quarters 2 and 3.
void sad_blocks8x8(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs, uint16_t* out) {
    for (int half = 0; half < 2; ++half) {
        __m128i acc = _mm_setzero_si128();
        for (int y = 0; y < 8; ++y, s = next(s, ss), r = next(r, rs))
            acc = _mm_add_epi64(acc, _mm_sad_epu8(ld16(s), ld16(r)));
        out[2 * half] = static_cast<uint16_t>(_mm_cvtsi128_si32(acc));
        out[2 * half + 1] = static_cast<uint16_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(acc, acc)));
    }
}

// Absolute differences masked to bytes 0-3 / 8-11 (sub-blocks 0 and 2 of
// the row) and 4-7 / 12-15 (sub-blocks 1 and 3), each summed by psadbw.
void sad_blocks4x4(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs, uint16_t* out) {
    const __m128i even = _mm_set_epi32(0, -1, 0, -1), z = _mm_setzero_si128();
    for (int band = 0; band < 4; ++band) {
        __m128i e = z, o = z;
        for (int y = 0; y < 4; ++y, s = next(s, ss), r = next(r, rs)) {
            const __m128i a = ld16(s), b = ld16(r);
            const __m128i ad = _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a));
            e = _mm_add_epi64(e, _mm_sad_epu8(_mm_and_si128(ad, even), z));
            o = _mm_add_epi64(o, _mm_sad_epu8(_mm_andnot_si128(even, ad), z));
        }
        uint16_t* q = out + 4 * band;
        q[0] = static_cast<uint16_t>(_mm_cvtsi128_si32(e));
        q[1] = static_cast<uint16_t>(_mm_cvtsi128_si32(o));
        q[2] = static_cast<uint16_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(e, e)));
        q[3] = static_cast<uint16_t>(_mm_cvtsi128_si32(_mm_unpackhi_epi64(o, o)));
    }
}

template <int P>
int32_t sqr16x16(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m128i acc = _mm_setzero_si128();
    walk<P, 16, 16>(s, ss, r, rs, [&](__m128i a, __m128i b) { acc = _mm_add_epi32(acc, sqr_bytes(a, b)); });
    return hsum32(acc);
}

// pred = (pF + pB + 1) >> 1 is pavgb of the two predictions.
template <int PF, int PB>
int32_t sqr16x16_bi(const uint8_t* s, int32_t ss, const uint8_t* f, int32_t fs, const uint8_t* b,
                    int32_t bs) {
    __m128i acc = _mm_setzero_si128();
    RowPredictor<PF, 16> pf(f, fs);
    RowPredictor<PB, 16> pb(b, bs);
    for (int y = 0; y < 16; ++y, s = next(s, ss)) {
        const __m128i p = _mm_avg_epu8(pf.row(), pb.row());
        acc = _mm_add_epi32(acc, sqr_bytes(ld16(s), p));
    }
    return hsum32(acc);
}

template <int PF, int... PB>
void fill_bi(BiMetricFn* t, std::integer_sequence<int, PB...>) {
    ((t[PF | (PB << 2)] = sqr16x16_bi<PF, PB>), ...);
}
}  // namespace

void upgrade_sad(MetricsKernels& k) {
    // The full and vertical-half 16x16 SADs, the full 8x8 SAD and the full and
    // vertical-half squared differences stay with the reference: GCC turns
    // those loops into the same psadbw / pavgb / pmaddwd code, and the
    // benchmark shows no gain from hand-written SSE2 (kplvc-bench,
    // metrics/sad16x16_ff, _fh, sad8x8_ff, sqrdiff16x16_ff, _fh).
    k.sad16x16[kHF] = sad16x16<kHF>;
    k.sad16x16[kHH] = sad16x16<kHH>;
    k.sad8x8[kFH] = sad8x8<kFH>;
    k.sad8x8[kHF] = sad8x8<kHF>;
    k.sad8x8[kHH] = sad8x8<kHH>;
    k.sad4x4 = sad4x4;
    k.sad16x16_blocks8x8 = sad_blocks8x8;
    k.sad16x16_blocks4x4 = sad_blocks4x4;
    k.sqr16x16[kHF] = sqr16x16<kHF>;
    k.sqr16x16[kHH] = sqr16x16<kHH>;
    constexpr std::integer_sequence<int, 0, 1, 2, 3> all{};
    fill_bi<kFF>(k.sqr16x16_bi, all);
    fill_bi<kFH>(k.sqr16x16_bi, all);
    fill_bi<kHF>(k.sqr16x16_bi, all);
    fill_bi<kHH>(k.sqr16x16_bi, all);
}

}  // namespace kplvc::block::x86::sse2
