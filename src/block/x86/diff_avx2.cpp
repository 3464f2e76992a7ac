// AVX2 block differences for the 16-wide shapes: one row per register of
// sixteen 16-bit lanes. Same arithmetic as diff_sse2.cpp. (Two 8-wide rows
// per register measured no faster than SSE2, so the 8-wide shapes keep the
// SSE2 kernels.)
#include <immintrin.h>

#include <utility>

#include "block/copy.h"
#include "core/arith.h"
#include "mc/mc.h"

namespace kplvc::block::x86::avx2 {
namespace {

#include "core/x86/halfpel-inl.h"
#include "core/x86/halfpel256-inl.h"

using mc::Pos;

KPLVC_INLINE __m256i cur16(const uint8_t* p) {
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
KPLVC_INLINE void store16x16(int16_t* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

template <int H, Pos P, bool WithPred>
KPLVC_INLINE void diff16_body(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step,
                              int16_t* d, int32_t d_step, int16_t* pred, int32_t pred_step, int32_t rc) {
    Predictor16<1, P> predictor(ref, ref_step, rc);
    for (int y = 0; y < H; ++y) {
        const __m256i p = predictor.row(y);
        store16x16(row_at(d, d_step, y), _mm256_sub_epi16(cur16(row_at(cur, cur_step, y)), p));
        if constexpr (WithPred) store16x16(row_at(pred, pred_step, y), p);
    }
}

template <int W, int H, Pos P>
void diff(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step, int16_t* d,
          int32_t d_step, int16_t* pred, int32_t pred_step, int32_t rc) {
    static_assert(W == 16);
    if (pred != nullptr)
        diff16_body<H, P, true>(cur, cur_step, ref, ref_step, d, d_step, pred, pred_step, rc);
    else
        diff16_body<H, P, false>(cur, cur_step, ref, ref_step, d, d_step, pred, pred_step, rc);
}

template <int W, int H, Pos PF, Pos PB>
void diff_b(const uint8_t* cur, int32_t cur_step, const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b,
            int32_t step_b, int16_t* d, int32_t d_step, int32_t rc) {
    static_assert(W == 16);
    Predictor16<1, PF> pf(ref_f, step_f, rc);
    Predictor16<1, PB> pb(ref_b, step_b, rc);
    for (int y = 0; y < H; ++y) {
        const __m256i m = _mm256_avg_epu16(pf.row(y), pb.row(y));
        store16x16(row_at(d, d_step, y), _mm256_sub_epi16(cur16(row_at(cur, cur_step, y)), m));
    }
}

#include "block/x86/diff_table-inl.h"

}  // namespace

void upgrade_blockcopy(BlockCopyKernels& k) {
    set_diff<16, 16>(k.diff[d16x16]);
    set_diff<16, 8>(k.diff[d16x8]);
    set_diff_b<16, 16>(k.diff_b[d16x16]);
    set_diff_b<16, 8>(k.diff_b[d16x8]);
}

}  // namespace kplvc::block::x86::avx2
