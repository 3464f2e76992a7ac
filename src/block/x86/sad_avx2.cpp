// AVX2 sums of absolute and squared differences for 16-wide blocks: two rows
// per 256-bit register for byte SADs, one widened row (16 x 16-bit) per
// register for squares. Half-sample rows come from core/x86/halfpel-inl.h
// (128-bit) or are formed two rows at a time with the same construction.
#include <immintrin.h>

#include <utility>

#include "block/metrics.h"
#include "core/arith.h"

namespace kplvc::block::x86::avx2 {
namespace {

#include "core/x86/halfpel-inl.h"

#include "block/x86/metrics-inl.h"

// Row p in the low lane, row p + step in the high lane.
inline __m256i ld16x2(const uint8_t* p, int32_t step) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(ld16(p)), ld16(next(p, step)), 1);
}

inline int32_t hsum32(__m256i v) {
    __m128i x = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    x = _mm_add_epi32(x, _mm_unpackhi_epi64(x, x));
    x = _mm_add_epi32(x, _mm_shuffle_epi32(x, 0x55));
    return _mm_cvtsi128_si32(x);
}

// Eight int32 lanes of squared differences of one 16-byte row pair; each
// lane takes two squares (at most 130050).
inline __m256i sqr_row(__m128i s, __m128i p) {
    const __m256i d = _mm256_sub_epi16(_mm256_cvtepu8_epi16(s), _mm256_cvtepu8_epi16(p));
    return _mm256_madd_epi16(d, d);
}

// Two rows per register, each prediction formed from its own loads (three
// loads a cycle make reloading cheaper than shuffling rows across lanes).
inline __m256i hh_fix2(__m256i a, __m256i b, __m256i c, __m256i d) {
    const __m256i h0 = _mm256_avg_epu8(a, b), h1 = _mm256_avg_epu8(c, d);
    const __m256i lost = _mm256_or_si256(_mm256_xor_si256(a, b), _mm256_xor_si256(c, d));
    const __m256i err =
        _mm256_and_si256(_mm256_and_si256(lost, _mm256_xor_si256(h0, h1)), _mm256_set1_epi8(1));
    return _mm256_sub_epi8(_mm256_avg_epu8(h0, h1), err);
}

template <int P>
inline __m256i pred_rows2(const uint8_t* r, int32_t rs) {
    if constexpr (P == kFF) {
        return ld16x2(r, rs);
    } else if constexpr (P == kFH) {
        return _mm256_avg_epu8(ld16x2(r, rs), ld16x2(next(r, rs), rs));
    } else if constexpr (P == kHF) {
        return _mm256_avg_epu8(ld16x2(r, rs), ld16x2(r + 1, rs));
    } else {
        const uint8_t* r1 = next(r, rs);
        return hh_fix2(ld16x2(r, rs), ld16x2(r + 1, rs), ld16x2(r1, rs), ld16x2(r1 + 1, rs));
    }
}

template <int P>
int32_t sad16x16(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m256i acc = _mm256_setzero_si256();
    for (int y = 0; y < 16; y += 2) {
        acc = _mm256_add_epi64(
            acc, _mm256_sad_epu8(ld16x2(row_at(s, ss, y), ss), pred_rows2<P>(row_at(r, rs, y), rs)));
    }
    return hsum32(acc);
}

template <int P>
int32_t sqr16x16(const uint8_t* s, int32_t ss, const uint8_t* r, int32_t rs) {
    __m256i acc = _mm256_setzero_si256();
    walk<P, 16, 16>(s, ss, r, rs, [&](__m128i a, __m128i p) { acc = _mm256_add_epi32(acc, sqr_row(a, p)); });
    return hsum32(acc);
}

template <int PF, int PB>
int32_t sqr16x16_bi(const uint8_t* s, int32_t ss, const uint8_t* f, int32_t fs, const uint8_t* b,
                    int32_t bs) {
    __m256i acc = _mm256_setzero_si256();
    RowPredictor<PF, 16> pf(f, fs);
    RowPredictor<PB, 16> pb(b, bs);
    for (int y = 0; y < 16; ++y, s = next(s, ss)) {
        const __m128i p = _mm_avg_epu8(pf.row(), pb.row());
        acc = _mm256_add_epi32(acc, sqr_row(ld16(s), p));
    }
    return hsum32(acc);
}

template <int PF, int... PB>
void fill_bi(BiMetricFn* t, std::integer_sequence<int, PB...>) {
    ((t[PF | (PB << 2)] = sqr16x16_bi<PF, PB>), ...);
}

}  // namespace

void upgrade_sad(MetricsKernels& k) {
    // Full and vertical-half 16x16 SADs: no gain over the reference, which
    // the compiler already turns into psadbw / pavgb code; the block is
    // bound by its 32 row loads either way.
    k.sad16x16[kHF] = sad16x16<kHF>;
    k.sad16x16[kHH] = sad16x16<kHH>;
    k.sqr16x16[kFF] = sqr16x16<kFF>;
    k.sqr16x16[kFH] = sqr16x16<kFH>;
    k.sqr16x16[kHF] = sqr16x16<kHF>;
    k.sqr16x16[kHH] = sqr16x16<kHH>;
    constexpr std::integer_sequence<int, 0, 1, 2, 3> all{};
    fill_bi<kFF>(k.sqr16x16_bi, all);
    fill_bi<kFH>(k.sqr16x16_bi, all);
    fill_bi<kHF>(k.sqr16x16_bi, all);
    fill_bi<kHH>(k.sqr16x16_bi, all);
}

}  // namespace kplvc::block::x86::avx2
