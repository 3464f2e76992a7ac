// halfpel-inl.h: half-sample predictions of 8-bit reference rows in byte
// lanes, shared by the block metrics and the motion compensation.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::<family>::x86::<isa>), after that file's
// intrinsics header and core/arith.h. It includes nothing, so each including
// file compiles its own internal copy with its own flags. Needs: SSE2.
//
// Positions are (mcType & 12) >> 2 throughout: 0 full sample, 1 vertical
// half, 2 horizontal half, 3 centre of four.
#pragma once

constexpr int kHalfFF = 0, kHalfFH = 1, kHalfHF = 2, kHalfHH = 3;

template <int W>
inline __m128i load_bytes(const uint8_t* p) {
    if constexpr (W == 16)
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    else
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}

// ---- Exact interpolation: (a + b + 1) >> 1 and (a + b + c + d + 2) >> 2 --------
//
// pavgb computes (a + b + 1) >> 1 exactly. The centre of four is the average
// of the two row averages h0 = avg(a, b), h1 = avg(c, d) minus a correction
// bit: avg(h0, h1) rounds up once too often exactly when the bits lost by the
// first averages ((a ^ b) | (c ^ d)) are set and h0 + h1 is odd, so
//   hh = avg(h0, h1) - (((a ^ b) | (c ^ d)) & (h0 ^ h1) & 1),
// all in bytes, no widening.

inline __m128i hh_fix(__m128i h0, __m128i x0, __m128i h1, __m128i x1) {
    const __m128i one = _mm_set1_epi8(1);
    const __m128i err = _mm_and_si128(_mm_and_si128(_mm_or_si128(x0, x1), _mm_xor_si128(h0, h1)), one);
    return _mm_sub_epi8(_mm_avg_epu8(h0, h1), err);
}

// The prediction of one row (W = 16 bytes, or 8 in the low half), computed
// from scratch; `next` is the row below.
template <int P, int W>
inline __m128i pred_row(const uint8_t* r, const uint8_t* next) {
    if constexpr (P == kHalfFF) {
        return load_bytes<W>(r);
    } else if constexpr (P == kHalfFH) {
        return _mm_avg_epu8(load_bytes<W>(r), load_bytes<W>(next));
    } else if constexpr (P == kHalfHF) {
        return _mm_avg_epu8(load_bytes<W>(r), load_bytes<W>(r + 1));
    } else {
        const __m128i a = load_bytes<W>(r), b = load_bytes<W>(r + 1);
        const __m128i c = load_bytes<W>(next), d = load_bytes<W>(next + 1);
        return hh_fix(_mm_avg_epu8(a, b), _mm_xor_si128(a, b), _mm_avg_epu8(c, d), _mm_xor_si128(c, d));
    }
}

// The prediction of a block row by row, carrying the vertical neighbour (and
// for the centre of four its row average and lost bits) from one row to the
// next, so each reference row is loaded once.
template <int P, int W>
struct RowPredictor {
    const uint8_t* r;
    int32_t rs;
    __m128i h, x;

    RowPredictor(const uint8_t* ref, int32_t step) : r(ref), rs(step), h(_mm_setzero_si128()), x(h) {
        if constexpr (P == kHalfFH) {
            h = load_bytes<W>(r);
        } else if constexpr (P == kHalfHH) {
            const __m128i a = load_bytes<W>(r), b = load_bytes<W>(r + 1);
            h = _mm_avg_epu8(a, b);
            x = _mm_xor_si128(a, b);
        }
    }
    // The current row's prediction; then moves to the next row.
    inline __attribute__((always_inline)) __m128i row() {
        const uint8_t* below = row_at(r, rs, 1);
        if constexpr (P == kHalfFF || P == kHalfHF) {
            const __m128i v = pred_row<P, W>(r, below);
            r = below;
            return v;
        } else if constexpr (P == kHalfFH) {
            r = below;
            const __m128i bot = load_bytes<W>(r);
            const __m128i v = _mm_avg_epu8(h, bot);
            h = bot;
            return v;
        } else {
            r = below;
            const __m128i a = load_bytes<W>(r), b = load_bytes<W>(r + 1);
            const __m128i h1 = _mm_avg_epu8(a, b), x1 = _mm_xor_si128(a, b);
            const __m128i v = hh_fix(h, x, h1, x1);
            h = h1;
            x = x1;
            return v;
        }
    }
};

// ---- Byte averages with a saturating decrement (two-reference MC) ----------------
//
// The byte-average two-reference kernels (16x16, 8x16, 8x8, 8x4): rounding
// byte averages (pavgb) and a saturating decrement (psubusb by 1), W = 16 or
// 8 samples of one row per call. Forward and backward references place the
// decrement differently in the centre-of-four case; the half positions are
// the exact interpolations, at rc 1 the rounding average minus the odd bit.

// (x + y) >> 1 from the rounding average: subtract the lost odd bit.
inline __m128i avg_down(__m128i x, __m128i y, __m128i one) {
    return _mm_sub_epi8(_mm_avg_epu8(x, y), _mm_and_si128(_mm_xor_si128(x, y), one));
}

template <int W, int P, bool Forward, int RC>
struct BytePredictor {
    const uint8_t* ref;
    int32_t step;
    __m128i carry = _mm_setzero_si128();  // HH: avg of the current row's pair; FH: the current row
    __m128i one = _mm_set1_epi8(1);

    __attribute__((always_inline)) BytePredictor(const uint8_t* r, int32_t s) : ref(r), step(s) {
        if constexpr (P == kHalfHH)
            carry = _mm_avg_epu8(load_bytes<W>(ref), load_bytes<W>(ref + 1));
        else if constexpr (P == kHalfFH)
            carry = load_bytes<W>(ref);
    }

    __attribute__((always_inline)) __m128i half(__m128i x, __m128i y) const {
        return RC == 0 ? _mm_avg_epu8(x, y) : avg_down(x, y, one);
    }

    __attribute__((always_inline)) __m128i row(int y) {
        if constexpr (P == kHalfFF) {
            return load_bytes<W>(row_at(ref, step, y));
        } else if constexpr (P == kHalfHF) {
            const uint8_t* r = row_at(ref, step, y);
            return half(load_bytes<W>(r), load_bytes<W>(r + 1));
        } else if constexpr (P == kHalfFH) {
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
