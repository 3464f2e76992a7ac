// halfpel16-inl.h: exact half-sample prediction rows in 16-bit lanes (SSE2),
// shared by the motion compensation and the block differences.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::<family>::x86::<isa>), after <emmintrin.h>,
// core/arith.h and core/x86/halfpel-inl.h (for the position names). It
// includes nothing, so each including file compiles its own internal copy
// with its own flags. Needs: SSE2.
//
// Samples are widened to 16-bit lanes, the horizontal neighbour added once
// per row, the vertical neighbour row's sum carried to the next row, then
// (1 - rc) or (2 - rc) added and the sum shifted. Every sum is below 1023, so
// no lane overflows.
#pragma once

KPLVC_INLINE __m128i loadu(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
KPLVC_INLINE __m128i loadl(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
KPLVC_INLINE void storeu(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
KPLVC_INLINE void storel(void* p, __m128i v) { _mm_storel_epi64(static_cast<__m128i*>(p), v); }

// Row y of the reference widened to 16 bits, plus the horizontal neighbour
// when Hor: W/8 vectors of 8 lanes.
template <int W, int DX, bool Hor>
KPLVC_INLINE void row_sum(const uint8_t* p, __m128i* out) {
    const __m128i z = _mm_setzero_si128();
    if constexpr (W == 16) {
        const __m128i a = loadu(p);
        out[0] = _mm_unpacklo_epi8(a, z);
        out[1] = _mm_unpackhi_epi8(a, z);
        if constexpr (Hor) {
            const __m128i b = loadu(p + DX);
            out[0] = _mm_add_epi16(out[0], _mm_unpacklo_epi8(b, z));
            out[1] = _mm_add_epi16(out[1], _mm_unpackhi_epi8(b, z));
        }
    } else {
        out[0] = _mm_unpacklo_epi8(loadl(p), z);
        if constexpr (Hor) out[0] = _mm_add_epi16(out[0], _mm_unpacklo_epi8(loadl(p + DX), z));
    }
}

// Exact interpolated prediction, one row per call, in 16-bit lanes. For
// vertical halves the previous row's sum is carried over.
template <int W, int DX, int P>
struct Predictor {
    static constexpr int N = W / 8;
    static constexpr bool Hor = P == kHalfHF || P == kHalfHH;
    static constexpr bool Ver = P == kHalfFH || P == kHalfHH;
    const uint8_t* ref;
    int32_t step;
    __m128i k;
    __m128i carry[N];

    __attribute__((always_inline)) Predictor(const uint8_t* r, int32_t s, int32_t rc) : ref(r), step(s) {
        k = _mm_set1_epi16(static_cast<int16_t>((Hor && Ver ? 2 : 1) - rc));
        if constexpr (Ver) row_sum<W, DX, Hor>(ref, carry);
    }

    __attribute__((always_inline)) void row(int y, __m128i* p) {
        if constexpr (Ver) {
            __m128i nxt[N];
            row_sum<W, DX, Hor>(row_at(ref, step, y + 1), nxt);
            for (int i = 0; i < N; ++i) {
                p[i] = _mm_add_epi16(carry[i], nxt[i]);
                carry[i] = nxt[i];
            }
        } else {
            row_sum<W, DX, Hor>(row_at(ref, step, y), p);
        }
        if constexpr (P != kHalfFF) {
            constexpr int shift = Hor && Ver ? 2 : 1;
            for (int i = 0; i < N; ++i) p[i] = _mm_srli_epi16(_mm_add_epi16(p[i], k), shift);
        }
    }
};
