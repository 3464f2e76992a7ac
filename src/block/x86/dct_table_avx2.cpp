// AVX2 table-driven 8x8 transforms: the row steps two rows per vector (the
// column steps are the SSE2 file's, VEX-encoded).
#include <immintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"

namespace kplvc::block::x86::avx2 {
namespace {

#include "block/x86/dct_table-inl.h"

struct alignas(32) RowPairConsts {
    int16_t k[4][16];
    int32_t rnd[8];
};
constexpr RowPairConsts row_pair(const RowConsts& a, const RowConsts& b, int32_t ra, int32_t rb) {
    RowPairConsts c{};
    for (int g = 0; g < 4; ++g)
        for (int i = 0; i < 8; ++i) {
            c.k[g][i] = a.k[g][i];
            c.k[g][8 + i] = b.k[g][i];
        }
    for (int i = 0; i < 4; ++i) {
        c.rnd[i] = ra;
        c.rnd[4 + i] = rb;
    }
    return c;
}
constexpr RowPairConsts kInvPair[4] = {
    row_pair(kInv[kRowGroup[0]], kInv[kRowGroup[1]], round_i[0], round_i[1]),
    row_pair(kInv[kRowGroup[2]], kInv[kRowGroup[3]], round_i[2], round_i[3]),
    row_pair(kInv[kRowGroup[4]], kInv[kRowGroup[5]], round_i[4], round_i[5]),
    row_pair(kInv[kRowGroup[6]], kInv[kRowGroup[7]], round_i[6], round_i[7])};
constexpr RowPairConsts kFwdPair[4] = {
    row_pair(kFwd[kRowGroup[0]], kFwd[kRowGroup[1]], round_frw_row, round_frw_row),
    row_pair(kFwd[kRowGroup[2]], kFwd[kRowGroup[3]], round_frw_row, round_frw_row),
    row_pair(kFwd[kRowGroup[4]], kFwd[kRowGroup[5]], round_frw_row, round_frw_row),
    row_pair(kFwd[kRowGroup[6]], kFwd[kRowGroup[7]], round_frw_row, round_frw_row)};

inline __m256i kw(const void* p) { return _mm256_load_si256(static_cast<const __m256i*>(p)); }

// The inverse row step of the SSE2 file on two rows at once.
inline __m256i inv_row2(__m256i x, const RowPairConsts& c) {
    x = _mm256_shufflelo_epi16(x, _MM_SHUFFLE(3, 1, 2, 0));
    x = _mm256_shufflehi_epi16(x, _MM_SHUFFLE(3, 1, 2, 0));
    __m256i a = _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0x00), kw(c.k[0]));
    a = _mm256_add_epi32(a, _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0xAA), kw(c.k[1])));
    a = _mm256_add_epi32(a, kw(c.rnd));
    __m256i b = _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0x55), kw(c.k[2]));
    b = _mm256_add_epi32(b, _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0xFF), kw(c.k[3])));
    const __m256i lo = _mm256_srai_epi32(_mm256_add_epi32(a, b), 12);
    const __m256i hi = _mm256_srai_epi32(_mm256_sub_epi32(a, b), 12);
    return _mm256_packs_epi32(lo, _mm256_shuffle_epi32(hi, _MM_SHUFFLE(0, 1, 2, 3)));
}

inline void inv_rows(const int16_t* src, __m128i* x) {
    for (int p = 0; p < 4; ++p) {
        const __m256i y =
            inv_row2(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 16 * p)), kInvPair[p]);
        x[2 * p] = _mm256_castsi256_si128(y);
        x[2 * p + 1] = _mm256_extracti128_si256(y, 1);
    }
}

void inv(const int16_t* src, int16_t* dst) {
    __m128i x[8];
    inv_rows(src, x);
    inv_cols(x);
    for (int p = 0; p < 4; ++p)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 16 * p),
                            _mm256_set_m128i(x[2 * p + 1], x[2 * p]));
}

void inv_u8(const int16_t* src, uint8_t* dst, int32_t step) {
    __m128i x[8];
    inv_rows(src, x);
    inv_cols(x);
    store_u8_rows(x, dst, step);
}

inline __m256i fwd_row2(__m256i x, const RowPairConsts& c) {
    const __m256i r = _mm256_shufflehi_epi16(x, _MM_SHUFFLE(0, 1, 2, 3));
    const __m256i rev = _mm256_unpackhi_epi64(r, r);
    const __m256i sd = _mm256_unpacklo_epi64(_mm256_adds_epi16(x, rev), _mm256_subs_epi16(x, rev));
    __m256i e = _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0x00), kw(c.k[0]));
    e = _mm256_add_epi32(_mm256_add_epi32(e, _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0x55), kw(c.k[1]))),
                         kw(c.rnd));
    __m256i o = _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0xAA), kw(c.k[2]));
    o = _mm256_add_epi32(_mm256_add_epi32(o, _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0xFF), kw(c.k[3]))),
                         kw(c.rnd));
    const __m256i eo = _mm256_packs_epi32(_mm256_srai_epi32(e, 20), _mm256_srai_epi32(o, 20));
    return _mm256_unpacklo_epi16(eo, _mm256_unpackhi_epi64(eo, eo));
}

inline void fwd_block(__m128i* x, int16_t* dst) {
    fwd_cols(x);
    for (int p = 0; p < 4; ++p)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 16 * p),
                            fwd_row2(_mm256_set_m128i(x[2 * p + 1], x[2 * p]), kFwdPair[p]));
}

void fwd(const int16_t* src, int16_t* dst) {
    __m128i x[8];
    for (int r = 0; r < 8; ++r) x[r] = ld(src + 8 * r);
    fwd_block(x, dst);
}

void fwd_u8(const uint8_t* src, int32_t step, int16_t* dst) {
    __m128i x[8];
    load_u8_rows(src, step, x);
    fwd_block(x, dst);
}

}  // namespace

void upgrade_dct_table(DctKernels& k) {
    k.inv = inv;
    k.inv_u8 = inv_u8;
    k.fwd = fwd;
    k.fwd_u8 = fwd_u8;
}

}  // namespace kplvc::block::x86::avx2
