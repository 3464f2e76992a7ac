// SSE2 block differences for the 16- and 8-wide shapes and the 4x4 block.
// The prediction comes from the motion-compensation predictor rows (16-bit
// lanes, exact interpolation); cur - p and cur - ((f + b + 1) >> 1) lie in
// -255..255, so plain 16-bit subtraction is exact.
#include <emmintrin.h>

#include <utility>

#include "block/copy.h"
#include "core/arith.h"
#include "mc/mc.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "core/x86/halfpel-inl.h"
#include "core/x86/halfpel16-inl.h"

using mc::Pos;

// Current row widened to 16-bit lanes.
template <int W>
KPLVC_INLINE void cur_row(const uint8_t* p, __m128i* out) {
    const __m128i z = _mm_setzero_si128();
    if constexpr (W == 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        out[0] = _mm_unpacklo_epi8(a, z);
        out[1] = _mm_unpackhi_epi8(a, z);
    } else {
        out[0] = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), z);
    }
}

template <int W>
KPLVC_INLINE void store_row(int16_t* p, const __m128i* v) {
    for (int i = 0; i < W / 8; ++i) _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 8 * i), v[i]);
}

template <int W, int H, Pos P, bool WithPred>
KPLVC_INLINE void diff_body(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step,
                            int16_t* diff, int32_t diff_step, int16_t* pred, int32_t pred_step, int32_t rc) {
    constexpr int N = W / 8;
    Predictor<W, 1, P> predictor(ref, ref_step, rc);
    for (int y = 0; y < H; ++y) {
        __m128i p[N], c[N];
        predictor.row(y, p);
        cur_row<W>(row_at(cur, cur_step, y), c);
        for (int i = 0; i < N; ++i) c[i] = _mm_sub_epi16(c[i], p[i]);
        store_row<W>(row_at(diff, diff_step, y), c);
        if constexpr (WithPred) store_row<W>(row_at(pred, pred_step, y), p);
    }
}

template <int W, int H, Pos P>
void diff(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step, int16_t* d,
          int32_t d_step, int16_t* pred, int32_t pred_step, int32_t rc) {
    if (pred != nullptr)
        diff_body<W, H, P, true>(cur, cur_step, ref, ref_step, d, d_step, pred, pred_step, rc);
    else
        diff_body<W, H, P, false>(cur, cur_step, ref, ref_step, d, d_step, pred, pred_step, rc);
}

template <int W, int H, Pos PF, Pos PB>
void diff_b(const uint8_t* cur, int32_t cur_step, const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b,
            int32_t step_b, int16_t* d, int32_t d_step, int32_t rc) {
    constexpr int N = W / 8;
    Predictor<W, 1, PF> pf(ref_f, step_f, rc);
    Predictor<W, 1, PB> pb(ref_b, step_b, rc);
    for (int y = 0; y < H; ++y) {
        __m128i f[N], b[N], c[N];
        pf.row(y, f);
        pb.row(y, b);
        cur_row<W>(row_at(cur, cur_step, y), c);
        for (int i = 0; i < N; ++i) c[i] = _mm_sub_epi16(c[i], _mm_avg_epu16(f[i], b[i]));
        store_row<W>(row_at(d, d_step, y), c);
    }
}

// Two rows of four samples at a time.
void diff4x4(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step, int16_t* d,
             int32_t d_step) {
    const __m128i z = _mm_setzero_si128();
    for (int y = 0; y < 4; y += 2) {
        const __m128i c =
            _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(load32u(row_at(cur, cur_step, y)))),
                               _mm_cvtsi32_si128(static_cast<int>(load32u(row_at(cur, cur_step, y + 1)))));
        const __m128i r =
            _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(load32u(row_at(ref, ref_step, y)))),
                               _mm_cvtsi32_si128(static_cast<int>(load32u(row_at(ref, ref_step, y + 1)))));
        const __m128i v = _mm_sub_epi16(_mm_unpacklo_epi8(c, z), _mm_unpacklo_epi8(r, z));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(row_at(d, d_step, y)), v);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(row_at(d, d_step, y + 1)), _mm_unpackhi_epi64(v, v));
    }
}

#include "block/x86/diff_table-inl.h"

}  // namespace

void upgrade_diff(BlockCopyKernels& k) {
    set_diff<16, 16>(k.diff[d16x16]);
    set_diff<16, 8>(k.diff[d16x8]);
    set_diff<8, 16>(k.diff[d8x16]);
    set_diff<8, 8>(k.diff[d8x8]);
    set_diff<8, 4>(k.diff[d8x4]);
    set_diff_b<16, 16>(k.diff_b[d16x16]);
    set_diff_b<16, 8>(k.diff_b[d16x8]);
    set_diff_b<8, 16>(k.diff_b[d8x16]);
    set_diff_b<8, 8>(k.diff_b[d8x8]);
    set_diff_b<8, 4>(k.diff_b[d8x4]);
    k.diff4x4 = diff4x4;
}

}  // namespace kplvc::block::x86::sse2
