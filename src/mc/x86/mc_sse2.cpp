// SSE2 motion compensation for the 16-, 8-, 4- and 2-wide shapes.
//
// Single reference and exact two-reference kernels widen the samples to
// 16-bit lanes, add the horizontal neighbour (a + b) once per row and the
// next row's sum for vertical halves, add (1 - rc) or (2 - rc) and shift:
// the sums stay below 1023, so the lanes never overflow. The residual is
// added with a saturating 16-bit add: p + r lies in -32768..33022 and any sum
// that saturates at 32767 is clipped to 255 by the pack anyway, so the result
// equals clip(p + r) exactly.
//
// Two references: (2r + pF + pB + 1) >> 1 = r + ((pF + pB + 1) >> 1) because
// 2r is even, so the rounded average (pavgw / pavgb) is added to r instead of
// forming 2r, which would not fit 16 bits.
#include <emmintrin.h>

#include <utility>

#include "core/arith.h"
#include "mc/mc.h"

namespace kplvc::mc::x86::sse2 {
namespace {

#include "core/x86/halfpel-inl.h"
#include "core/x86/halfpel16-inl.h"

// Adds the residual row to the 16-bit prediction and stores the clipped bytes.
template <int W>
KPLVC_INLINE void finish(const __m128i* p, const int16_t* res, uint8_t* out) {
    if constexpr (W == 16) {
        const __m128i lo = _mm_adds_epi16(p[0], loadu(res));
        const __m128i hi = _mm_adds_epi16(p[1], loadu(res + 8));
        storeu(out, _mm_packus_epi16(lo, hi));
    } else {
        const __m128i v = _mm_adds_epi16(p[0], loadu(res));
        storel(out, _mm_packus_epi16(v, v));
    }
}

template <int W, int H, int DX, Pos P>
void mc(const uint8_t* ref, int32_t ref_step, const int16_t* res, int32_t res_step, uint8_t* dst,
        int32_t dst_step, int32_t rc) {
    Predictor<W, DX, P> pred(ref, ref_step, rc);
    for (int y = 0; y < H; ++y) {
        __m128i p[W / 8];
        pred.row(y, p);
        finish<W>(p, row_at(res, res_step, y), row_at(dst, dst_step, y));
    }
}

template <int W, int H, int DX, Pos PF, Pos PB>
void mcb_exact(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b, const int16_t* res,
               int32_t res_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    Predictor<W, DX, PF> pf(ref_f, step_f, rc);
    Predictor<W, DX, PB> pb(ref_b, step_b, rc);
    for (int y = 0; y < H; ++y) {
        __m128i f[W / 8], b[W / 8];
        pf.row(y, f);
        pb.row(y, b);
        for (int i = 0; i < W / 8; ++i) f[i] = _mm_avg_epu16(f[i], b[i]);
        finish<W>(f, row_at(res, res_step, y), row_at(dst, dst_step, y));
    }
}

template <int W, int H, Pos PF, Pos PB, int RC>
KPLVC_INLINE void mcb_bytes_body(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b,
                                 const int16_t* res, int32_t res_step, uint8_t* dst, int32_t dst_step) {
    BytePredictor<W, PF, true, RC> pf(ref_f, step_f);
    BytePredictor<W, PB, false, RC> pb(ref_b, step_b);
    const __m128i z = _mm_setzero_si128();
    for (int y = 0; y < H; ++y) {
        const __m128i m = _mm_avg_epu8(pf.row(y), pb.row(y));
        __m128i p[2] = {_mm_unpacklo_epi8(m, z), _mm_unpackhi_epi8(m, z)};
        finish<W>(p, row_at(res, res_step, y), row_at(dst, dst_step, y));
    }
}

template <int W, int H, int DX, Pos PF, Pos PB>
void mcb_bytes(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b, const int16_t* res,
               int32_t res_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    static_assert(DX == 1);
    if (rc == 0)
        mcb_bytes_body<W, H, PF, PB, 0>(ref_f, step_f, ref_b, step_b, res, res_step, dst, dst_step);
    else
        mcb_bytes_body<W, H, PF, PB, 1>(ref_f, step_f, ref_b, step_b, res, res_step, dst, dst_step);
}

// ---- 4- and 2-wide kernels: two rows per register -----------------------------------
// Row y fills the low W lanes, row y+1 the next W lanes.

// W bytes of one row in the low bytes of a register.
template <int W>
KPLVC_INLINE __m128i load_row(const uint8_t* p) {
    if constexpr (W == 4)
        return _mm_cvtsi32_si128(static_cast<int>(load32u(p)));
    else
        return _mm_cvtsi32_si128(static_cast<uint16_t>(load16(p)));
}

template <int W>
KPLVC_INLINE __m128i join_rows(__m128i r0, __m128i r1) {
    if constexpr (W == 4)
        return _mm_unpacklo_epi32(r0, r1);
    else
        return _mm_unpacklo_epi16(r0, r1);
}

// Sums of rows y and y+1, widened.
template <int W, bool Hor>
KPLVC_INLINE __m128i pair_sum(const uint8_t* r0, const uint8_t* r1) {
    const __m128i z = _mm_setzero_si128();
    __m128i s = _mm_unpacklo_epi8(join_rows<W>(load_row<W>(r0), load_row<W>(r1)), z);
    if constexpr (Hor)
        s = _mm_add_epi16(s, _mm_unpacklo_epi8(join_rows<W>(load_row<W>(r0 + 1), load_row<W>(r1 + 1)), z));
    return s;
}
// Row y only (the last row a vertical half needs; nothing below is read).
template <int W, bool Hor>
KPLVC_INLINE __m128i single_sum(const uint8_t* r0) {
    const __m128i z = _mm_setzero_si128();
    __m128i s = _mm_unpacklo_epi8(load_row<W>(r0), z);
    if constexpr (Hor) s = _mm_add_epi16(s, _mm_unpacklo_epi8(load_row<W>(r0 + 1), z));
    return s;
}

template <int W, int H, Pos P>
struct PredictorNarrow {
    static constexpr bool Hor = P == hf || P == hh;
    static constexpr bool Ver = P == fh || P == hh;
    const uint8_t* ref;
    int32_t step;
    __m128i k;
    __m128i carry = _mm_setzero_si128();  // sums of rows y, y+1

    __attribute__((always_inline)) PredictorNarrow(const uint8_t* r, int32_t s, int32_t rc)
        : ref(r), step(s) {
        k = _mm_set1_epi16(static_cast<int16_t>((Hor && Ver ? 2 : 1) - rc));
        if constexpr (Ver) carry = pair_sum<W, Hor>(ref, row_at(ref, step, 1));
    }

    // Predictions of rows y and y+1 (y even).
    __attribute__((always_inline)) __m128i rows(int y) {
        __m128i p;
        if constexpr (Ver) {
            const __m128i nxt = y + 3 <= H
                                    ? pair_sum<W, Hor>(row_at(ref, step, y + 2), row_at(ref, step, y + 3))
                                    : single_sum<W, Hor>(row_at(ref, step, y + 2));
            // Sums of rows y+1, y+2: the high row of carry, the low row of nxt.
            __m128i mid;
            if constexpr (W == 4)
                mid = _mm_castpd_si128(_mm_shuffle_pd(_mm_castsi128_pd(carry), _mm_castsi128_pd(nxt), 1));
            else
                mid = _mm_unpacklo_epi32(_mm_srli_si128(carry, 4), nxt);
            p = _mm_add_epi16(carry, mid);
            carry = nxt;
        } else {
            p = pair_sum<W, Hor>(row_at(ref, step, y), row_at(ref, step, y + 1));
        }
        if constexpr (P != ff) {
            constexpr int shift = Hor && Ver ? 2 : 1;
            p = _mm_srli_epi16(_mm_add_epi16(p, k), shift);
        }
        return p;
    }
};

template <int W>
KPLVC_INLINE void finish_narrow(__m128i p, const int16_t* res, int32_t res_step, uint8_t* dst,
                                int32_t dst_step, int y) {
    const int16_t* r0 = row_at(res, res_step, y);
    const int16_t* r1 = row_at(res, res_step, y + 1);
    __m128i r;
    if constexpr (W == 4)
        r = _mm_unpacklo_epi64(loadl(r0), loadl(r1));
    else
        r = _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(load32u(r0))),
                               _mm_cvtsi32_si128(static_cast<int>(load32u(r1))));
    const __m128i v = _mm_adds_epi16(p, r);
    const __m128i pk = _mm_packus_epi16(v, v);
    if constexpr (W == 4) {
        store32u(row_at(dst, dst_step, y), static_cast<uint32_t>(_mm_cvtsi128_si32(pk)));
        store32u(row_at(dst, dst_step, y + 1),
                 static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(pk, 4))));
    } else {
        const uint32_t b = static_cast<uint32_t>(_mm_cvtsi128_si32(pk));
        store16(row_at(dst, dst_step, y), static_cast<int16_t>(static_cast<uint16_t>(b)));
        store16(row_at(dst, dst_step, y + 1), static_cast<int16_t>(static_cast<uint16_t>(b >> 16)));
    }
}

template <int W, int H, Pos P>
void mc_narrow(const uint8_t* ref, int32_t ref_step, const int16_t* res, int32_t res_step, uint8_t* dst,
               int32_t dst_step, int32_t rc) {
    PredictorNarrow<W, H, P> pred(ref, ref_step, rc);
    for (int y = 0; y < H; y += 2) finish_narrow<W>(pred.rows(y), res, res_step, dst, dst_step, y);
}

template <int W, int H, Pos PF, Pos PB>
void mcb_narrow(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b,
                const int16_t* res, int32_t res_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    PredictorNarrow<W, H, PF> pf(ref_f, step_f, rc);
    PredictorNarrow<W, H, PB> pb(ref_b, step_b, rc);
    for (int y = 0; y < H; y += 2)
        finish_narrow<W>(_mm_avg_epu16(pf.rows(y), pb.rows(y)), res, res_step, dst, dst_step, y);
}

template <int W, int H>
void set_single_narrow(McFn (&row)[4]) {
    row[ff] = mc_narrow<W, H, ff>;
    row[fh] = mc_narrow<W, H, fh>;
    row[hf] = mc_narrow<W, H, hf>;
    row[hh] = mc_narrow<W, H, hh>;
}

template <int W, int H, int... I>
void set_bidir_narrow(McBFn (&row)[16], std::integer_sequence<int, I...>) {
    ((row[I] = mcb_narrow<W, H, Pos(I & 3), Pos(I >> 2)>), ...);
}

template <int W, int H, int DX>
void set_single(McFn (&row)[4]) {
    row[ff] = mc<W, H, DX, ff>;
    row[fh] = mc<W, H, DX, fh>;
    row[hf] = mc<W, H, DX, hf>;
    row[hh] = mc<W, H, DX, hh>;
}

// Entry i: forward position i & 3, backward position i >> 2.
template <int W, int H, int DX, bool Bytes, int... I>
void set_bidir(McBFn (&row)[16], std::integer_sequence<int, I...>) {
    if constexpr (Bytes)
        ((row[I] = mcb_bytes<W, H, DX, Pos(I & 3), Pos(I >> 2)>), ...);
    else
        ((row[I] = mcb_exact<W, H, DX, Pos(I & 3), Pos(I >> 2)>), ...);
}

}  // namespace

void upgrade_mc(McKernels& k) {
    const auto seq = std::make_integer_sequence<int, 16>();
    set_single<16, 16, 1>(k.single[s16x16]);
    set_single<16, 8, 1>(k.single[s16x8]);
    set_single<16, 8, 2>(k.single[s16x8uv]);
    set_single<16, 4, 2>(k.single[s16x4uv]);
    set_single<8, 16, 1>(k.single[s8x16]);
    set_single<8, 8, 1>(k.single[s8x8]);
    set_single<8, 4, 1>(k.single[s8x4]);
    set_bidir<16, 16, 1, true>(k.bidir[s16x16], seq);
    set_bidir<16, 8, 1, false>(k.bidir[s16x8], seq);
    set_bidir<16, 8, 2, false>(k.bidir[s16x8uv], seq);
    set_bidir<16, 4, 2, false>(k.bidir[s16x4uv], seq);
    set_bidir<8, 16, 1, true>(k.bidir[s8x16], seq);
    set_bidir<8, 8, 1, true>(k.bidir[s8x8], seq);
    set_bidir<8, 4, 1, true>(k.bidir[s8x4], seq);
    set_single_narrow<4, 8>(k.single[s4x8]);
    set_single_narrow<4, 4>(k.single[s4x4]);
    set_single_narrow<4, 2>(k.single[s4x2]);
    set_single_narrow<2, 4>(k.single[s2x4]);
    set_single_narrow<2, 2>(k.single[s2x2]);
    set_bidir_narrow<4, 8>(k.bidir[s4x8], seq);
    set_bidir_narrow<4, 4>(k.bidir[s4x4], seq);
    set_bidir_narrow<4, 2>(k.bidir[s4x2], seq);
    set_bidir_narrow<2, 4>(k.bidir[s2x4], seq);
    set_bidir_narrow<2, 2>(k.bidir[s2x2], seq);
}

}  // namespace kplvc::mc::x86::sse2
