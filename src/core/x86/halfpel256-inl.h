// halfpel256-inl.h: exact half-sample prediction rows in 16-bit lanes of
// 256-bit registers, shared by the AVX2 motion compensation and block
// differences: one row of a 16-wide block, or two rows (y low, y+1 high) of
// an 8-wide block. The arithmetic is that of halfpel16-inl.h.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::<family>::x86::<isa>), after <immintrin.h>,
// core/arith.h and core/x86/halfpel-inl.h (for the position names). It
// includes nothing, so each including file compiles its own internal copy
// with its own flags. Needs: AVX2.
#pragma once

KPLVC_INLINE __m128i loadu(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
KPLVC_INLINE __m128i loadl(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
KPLVC_INLINE __m256i loadu256(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
KPLVC_INLINE __m256i widen(__m128i v) { return _mm256_cvtepu8_epi16(v); }

// Clipped bytes of 16 lanes: low 8 lanes to bytes 0..7, high 8 to 8..15.
KPLVC_INLINE __m128i pack16(__m256i v) {
    return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

// ---- 16-wide ---------------------------------------------------------------------

template <int DX, bool Hor>
KPLVC_INLINE __m256i row_sum16(const uint8_t* p) {
    __m256i s = widen(loadu(p));
    if constexpr (Hor) s = _mm256_add_epi16(s, widen(loadu(p + DX)));
    return s;
}

template <int DX, int P>
struct Predictor16 {
    static constexpr bool Hor = P == kHalfHF || P == kHalfHH;
    static constexpr bool Ver = P == kHalfFH || P == kHalfHH;
    const uint8_t* ref;
    int32_t step;
    __m256i k;
    __m256i carry = _mm256_setzero_si256();

    __attribute__((always_inline)) Predictor16(const uint8_t* r, int32_t s, int32_t rc) : ref(r), step(s) {
        k = _mm256_set1_epi16(static_cast<int16_t>((Hor && Ver ? 2 : 1) - rc));
        if constexpr (Ver) carry = row_sum16<DX, Hor>(ref);
    }

    __attribute__((always_inline)) __m256i row(int y) {
        __m256i p;
        if constexpr (Ver) {
            const __m256i nxt = row_sum16<DX, Hor>(row_at(ref, step, y + 1));
            p = _mm256_add_epi16(carry, nxt);
            carry = nxt;
        } else {
            p = row_sum16<DX, Hor>(row_at(ref, step, y));
        }
        if constexpr (P != kHalfFF) {
            constexpr int shift = Hor && Ver ? 2 : 1;
            p = _mm256_srli_epi16(_mm256_add_epi16(p, k), shift);
        }
        return p;
    }
};

// ---- 8-wide, two rows per register -------------------------------------------------

// Rows y and y+1 (8 samples each) widened, plus the horizontal neighbour.
template <bool Hor>
KPLVC_INLINE __m256i pair_sum8(const uint8_t* r0, const uint8_t* r1) {
    __m256i s = widen(_mm_unpacklo_epi64(loadl(r0), loadl(r1)));
    if constexpr (Hor) s = _mm256_add_epi16(s, widen(_mm_unpacklo_epi64(loadl(r0 + 1), loadl(r1 + 1))));
    return s;
}
// Only row y (the high half is zero): used for the last row a vertical half
// needs, so nothing below it is read.
template <bool Hor>
KPLVC_INLINE __m256i single_sum8(const uint8_t* r0) {
    __m256i s = widen(loadl(r0));
    if constexpr (Hor) s = _mm256_add_epi16(s, widen(loadl(r0 + 1)));
    return s;
}

template <int H, int P>
struct Predictor8 {
    static constexpr bool Hor = P == kHalfHF || P == kHalfHH;
    static constexpr bool Ver = P == kHalfFH || P == kHalfHH;
    const uint8_t* ref;
    int32_t step;
    __m256i k;
    __m256i carry = _mm256_setzero_si256();  // sums of rows y, y+1

    __attribute__((always_inline)) Predictor8(const uint8_t* r, int32_t s, int32_t rc) : ref(r), step(s) {
        k = _mm256_set1_epi16(static_cast<int16_t>((Hor && Ver ? 2 : 1) - rc));
        if constexpr (Ver) carry = pair_sum8<Hor>(ref, row_at(ref, step, 1));
    }

    // Predictions of rows y and y+1 (y even).
    __attribute__((always_inline)) __m256i rows(int y) {
        __m256i p;
        if constexpr (Ver) {
            // Sums of rows y+2, y+3 (or y+2 alone at the bottom edge).
            const __m256i nxt = y + 3 <= H
                                    ? pair_sum8<Hor>(row_at(ref, step, y + 2), row_at(ref, step, y + 3))
                                    : single_sum8<Hor>(row_at(ref, step, y + 2));
            // Sums of rows y+1, y+2.
            const __m256i mid = _mm256_permute2x128_si256(carry, nxt, 0x21);
            p = _mm256_add_epi16(carry, mid);
            carry = nxt;
        } else {
            p = pair_sum8<Hor>(row_at(ref, step, y), row_at(ref, step, y + 1));
        }
        if constexpr (P != kHalfFF) {
            constexpr int shift = Hor && Ver ? 2 : 1;
            p = _mm256_srli_epi16(_mm256_add_epi16(p, k), shift);
        }
        return p;
    }
};
