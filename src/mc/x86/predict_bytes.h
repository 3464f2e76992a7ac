// Byte predictions of the byte-average two-reference kernels (16x16, 8x16,
// 8x8, 8x4): rounding byte averages (pavgb) and a saturating decrement
// (psubusb by 1), 16 or 8 samples of one row per call. Forward and backward
// references place the decrement differently in the HH case; FH and HF are
// the exact interpolations, at rc 1 the rounding average minus the odd bit.
//
// Uses SSE2 instructions only. Everything here has internal linkage, so each
// including file (SSE2 or AVX2) keeps its own copy compiled with its flags.
#pragma once

#include <emmintrin.h>

#include "core/arith.h"
#include "mc/mc.h"

namespace kplvc::mc::x86::bytes {
namespace {

template <int W>
KPLVC_INLINE __m128i load_bytes(const uint8_t* p) {
    if constexpr (W == 16)
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    else
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

// (x + y) >> 1 from the rounding average: subtract the lost odd bit.
KPLVC_INLINE __m128i avg_down(__m128i x, __m128i y, __m128i one) {
    return _mm_sub_epi8(_mm_avg_epu8(x, y), _mm_and_si128(_mm_xor_si128(x, y), one));
}

template <int W, Pos P, bool Forward, int RC>
struct BytePredictor {
    const uint8_t* ref;
    int32_t step;
    __m128i carry = _mm_setzero_si128();  // HH: avg of the current row's pair; FH: the current row
    __m128i one = _mm_set1_epi8(1);

    __attribute__((always_inline)) BytePredictor(const uint8_t* r, int32_t s) : ref(r), step(s) {
        if constexpr (P == hh)
            carry = _mm_avg_epu8(load_bytes<W>(ref), load_bytes<W>(ref + 1));
        else if constexpr (P == fh)
            carry = load_bytes<W>(ref);
    }

    __attribute__((always_inline)) __m128i half(__m128i x, __m128i y) const {
        return RC == 0 ? _mm_avg_epu8(x, y) : avg_down(x, y, one);
    }

    __attribute__((always_inline)) __m128i row(int y) {
        if constexpr (P == ff) {
            return load_bytes<W>(row_at(ref, step, y));
        } else if constexpr (P == hf) {
            const uint8_t* r = row_at(ref, step, y);
            return half(load_bytes<W>(r), load_bytes<W>(r + 1));
        } else if constexpr (P == fh) {
            const __m128i c = load_bytes<W>(row_at(ref, step, y + 1));
            const __m128i p = half(carry, c);
            carry = c;
            return p;
        } else {
            const uint8_t* r = row_at(ref, step, y + 1);
            const __m128i top = carry;
            const __m128i bottom = _mm_avg_epu8(load_bytes<W>(r), load_bytes<W>(r + 1));
            carry = bottom;
            if constexpr (Forward) {
                if constexpr (RC == 0)
                    return _mm_avg_epu8(top, _mm_subs_epu8(bottom, one));
                else
                    return _mm_avg_epu8(_mm_subs_epu8(bottom, one), _mm_subs_epu8(top, one));
            } else {
                if constexpr (RC == 0)
                    return _mm_avg_epu8(_mm_subs_epu8(top, one), bottom);
                else
                    return _mm_avg_epu8(top, _mm_subs_epu8(bottom, one));
            }
        }
    }
};

}  // namespace
}  // namespace kplvc::mc::x86::bytes
