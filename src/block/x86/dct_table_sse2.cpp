// Table-driven 8x8 transforms with SSE2: a row per vector in the row steps,
// all eight columns per vector in the column steps.
#include <emmintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "block/x86/dct_table-inl.h"

inline void inv_rows(const int16_t* src, __m128i* x) {
    for (int r = 0; r < 8; ++r) x[r] = inv_row(ld(src + 8 * r), kInv[kRowGroup[r]], round_i[r]);
}

void inv(const int16_t* src, int16_t* dst) {
    __m128i x[8];
    inv_rows(src, x);
    inv_cols(x);
    for (int r = 0; r < 8; ++r) st(dst + 8 * r, x[r]);
}

void inv_u8(const int16_t* src, uint8_t* dst, int32_t step) {
    __m128i x[8];
    inv_rows(src, x);
    inv_cols(x);
    store_u8_rows(x, dst, step);
}

void inv_4x4(int16_t* blk) {
    __m128i x[8];
    const __m128i keep = _mm_set_epi32(0, 0, -1, -1);
    for (int r = 0; r < 4; ++r)
        x[r] = inv_row_half(_mm_and_si128(ld(blk + 8 * r), keep), kInv[kRowGroup[r]], round_i[r]);
    for (int r = 4; r < 8; ++r) x[r] = _mm_setzero_si128();
    inv_cols(x);
    for (int r = 0; r < 8; ++r) st(blk + 8 * r, x[r]);
}

void inv_2x2(int16_t* blk) {
    const __m128i X0 = row_2x2(blk, k2x2[0], round_i[0]);
    const __m128i X1 = row_2x2(blk + 8, k2x2[1], round_i[1]);
    __m128i out[8];
    inv_cols_2x2(X0, X1, out);
    for (int r = 0; r < 8; ++r) st(blk + 8 * r, out[r]);
}

inline void fwd_block(__m128i* x, int16_t* dst) {
    fwd_cols(x);
    for (int r = 0; r < 8; ++r) st(dst + 8 * r, fwd_row(x[r], kFwd[kRowGroup[r]]));
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
    k.inv_4x4 = inv_4x4;
    k.inv_2x2 = inv_2x2;
    k.inv_u8 = inv_u8;
    k.fwd = fwd;
    k.fwd_u8 = fwd_u8;
}

}  // namespace kplvc::block::x86::sse2
