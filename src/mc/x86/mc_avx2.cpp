// AVX2 motion compensation. 16-wide shapes: one row of 16 samples per 256-bit
// register in 16-bit lanes. The arithmetic is that of the SSE2 kernels (see
// mc_sse2.cpp): sums below 1023, saturating residual add, pack. 8-wide shapes
// keep the SSE2 kernels: two 8-wide rows per register (the form this file had
// for the half/half position) measured 13-15% slower than SSE2 on AMD Zen 4
// and on a Sapphire Rapids-class CPU, the other positions no faster.
#include <immintrin.h>

#include <utility>

#include "core/arith.h"
#include "mc/mc.h"

namespace kplvc::mc::x86::avx2 {
namespace {

#include "core/x86/halfpel-inl.h"
#include "core/x86/halfpel256-inl.h"

// Clipped bytes of two 16-lane rows: the in-lane pack interleaves their
// 8-byte halves (y lo, y+1 lo | y hi, y+1 hi); the permute puts each row's
// halves together.
KPLVC_INLINE void store_pair(__m256i v0, __m256i v1, uint8_t* dst, int32_t dst_step, int y) {
    const __m256i pk = _mm256_permute4x64_epi64(_mm256_packus_epi16(v0, v1), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row_at(dst, dst_step, y)), _mm256_castsi256_si128(pk));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(row_at(dst, dst_step, y + 1)),
                     _mm256_extracti128_si256(pk, 1));
}

// Rows of a 16-wide half-sample prediction in bytes, exact at rounding
// control RC: pavgb is (a + b + 1) >> 1, and less the odd bit it rounded up
// (avg_down) it is (a + b) >> 1. The neighbour is DX bytes to the right (P hf)
// or the row below (P fh, carried so each row is loaded once).
template <Pos P, int RC, int DX>
struct HalfRows16 {
    const uint8_t* r;
    intptr_t rs;
    __m128i below;
    const __m128i one = _mm_set1_epi8(1);

    __attribute__((always_inline)) HalfRows16(const uint8_t* ref, int32_t step) : r(ref), rs(step) {
        if constexpr (P == fh) below = load_bytes<16>(r);
    }
    __attribute__((always_inline)) __m128i half(__m128i a, __m128i b) const {
        return RC == 0 ? _mm_avg_epu8(a, b) : avg_down(a, b, one);
    }
    // The current row's prediction; then moves to the next row.
    __attribute__((always_inline)) __m128i row() {
        const uint8_t* cur = r;
        r += rs;
        if constexpr (P == hf) return half(load_bytes<16>(cur), load_bytes<16>(cur + DX));
        const __m128i next = load_bytes<16>(r), v = half(below, next);
        below = next;
        return v;
    }
};

// The two half positions from byte averages, widened once for the residual:
// in 16-bit lanes every row widens both its samples and their neighbours.
// (The full-sample position has nothing to average; the centre of four
// measured slower in bytes, its rounding correction costing more than the
// widening it saves.)
template <int H, int DX, Pos P, int RC>
KPLVC_INLINE void mc16_half_body(const uint8_t* ref, int32_t ref_step, const int16_t* res, int32_t res_step,
                                 uint8_t* dst, int32_t dst_step) {
    HalfRows16<P, RC, DX> pred(ref, ref_step);
    for (int y = 0; y < H; y += 2) {
        const __m256i v0 = _mm256_adds_epi16(widen(pred.row()), loadu256(row_at(res, res_step, y)));
        const __m256i v1 = _mm256_adds_epi16(widen(pred.row()), loadu256(row_at(res, res_step, y + 1)));
        store_pair(v0, v1, dst, dst_step, y);
    }
}

template <int H, int DX, Pos P>
void mc16(const uint8_t* ref, int32_t ref_step, const int16_t* res, int32_t res_step, uint8_t* dst,
          int32_t dst_step, int32_t rc) {
    if constexpr (P == fh || P == hf) {
        if (rc == 0)
            mc16_half_body<H, DX, P, 0>(ref, ref_step, res, res_step, dst, dst_step);
        else
            mc16_half_body<H, DX, P, 1>(ref, ref_step, res, res_step, dst, dst_step);
    } else {
        Predictor16<DX, P> pred(ref, ref_step, rc);
        for (int y = 0; y < H; y += 2) {
            const __m256i v0 = _mm256_adds_epi16(pred.row(y), loadu256(row_at(res, res_step, y)));
            const __m256i v1 = _mm256_adds_epi16(pred.row(y + 1), loadu256(row_at(res, res_step, y + 1)));
            store_pair(v0, v1, dst, dst_step, y);
        }
    }
}

template <int H, int DX, Pos PF, Pos PB>
void mcb16_exact(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b,
                 const int16_t* res, int32_t res_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    Predictor16<DX, PF> pf(ref_f, step_f, rc);
    Predictor16<DX, PB> pb(ref_b, step_b, rc);
    for (int y = 0; y < H; y += 2) {
        const __m256i m0 = _mm256_avg_epu16(pf.row(y), pb.row(y));
        const __m256i m1 = _mm256_avg_epu16(pf.row(y + 1), pb.row(y + 1));
        store_pair(_mm256_adds_epi16(m0, loadu256(row_at(res, res_step, y))),
                   _mm256_adds_epi16(m1, loadu256(row_at(res, res_step, y + 1))), dst, dst_step, y);
    }
}

// Byte-average two-reference kernels, 16-wide: byte predictions as in SSE2,
// then the average widened to 16 lanes for the residual. (The 8-wide forms
// measured no faster than SSE2 and keep the SSE2 kernels.)
template <int W, int H, Pos PF, Pos PB, int RC>
KPLVC_INLINE void mcb_bytes_body(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b,
                                 const int16_t* res, int32_t res_step, uint8_t* dst, int32_t dst_step) {
    static_assert(W == 16);
    BytePredictor<W, PF, true, RC> pf(ref_f, step_f);
    BytePredictor<W, PB, false, RC> pb(ref_b, step_b);
    for (int y = 0; y < H; y += 2) {
        const __m256i m0 = widen(_mm_avg_epu8(pf.row(y), pb.row(y)));
        const __m256i m1 = widen(_mm_avg_epu8(pf.row(y + 1), pb.row(y + 1)));
        store_pair(_mm256_adds_epi16(m0, loadu256(row_at(res, res_step, y))),
                   _mm256_adds_epi16(m1, loadu256(row_at(res, res_step, y + 1))), dst, dst_step, y);
    }
}

template <int W, int H, Pos PF, Pos PB>
void mcb_bytes(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b, const int16_t* res,
               int32_t res_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    if (rc == 0)
        mcb_bytes_body<W, H, PF, PB, 0>(ref_f, step_f, ref_b, step_b, res, res_step, dst, dst_step);
    else
        mcb_bytes_body<W, H, PF, PB, 1>(ref_f, step_f, ref_b, step_b, res, res_step, dst, dst_step);
}

template <int W, int H, int... I>
void set_bidir_bytes(McBFn (&row)[16], std::integer_sequence<int, I...>) {
    ((row[I] = mcb_bytes<W, H, Pos(I & 3), Pos(I >> 2)>), ...);
}

template <int H, int DX>
void set_single16(McFn (&row)[4]) {
    row[ff] = mc16<H, DX, ff>;
    row[fh] = mc16<H, DX, fh>;
    row[hf] = mc16<H, DX, hf>;
    row[hh] = mc16<H, DX, hh>;
}
// Entry i: forward position i & 3, backward position i >> 2.
template <int H, int DX, int... I>
void set_bidir16(McBFn (&row)[16], std::integer_sequence<int, I...>) {
    ((row[I] = mcb16_exact<H, DX, Pos(I & 3), Pos(I >> 2)>), ...);
}

}  // namespace

void upgrade_mc(McKernels& k) {
    const auto seq = std::make_integer_sequence<int, 16>();
    set_single16<16, 1>(k.single[s16x16]);
    set_single16<8, 1>(k.single[s16x8]);
    set_single16<8, 2>(k.single[s16x8uv]);
    set_single16<4, 2>(k.single[s16x4uv]);
    set_bidir_bytes<16, 16>(k.bidir[s16x16], seq);
    set_bidir16<8, 1>(k.bidir[s16x8], seq);
    set_bidir16<8, 2>(k.bidir[s16x8uv], seq);
    set_bidir16<4, 2>(k.bidir[s16x4uv], seq);
}

}  // namespace kplvc::mc::x86::avx2
