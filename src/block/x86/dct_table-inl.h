// dct_table-inl.h: the table-driven 8x8 engine on 128-bit vectors, shared by
// dct_table_sse2.cpp and dct_table_avx2.cpp.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::block::x86::<isa>), after <emmintrin.h> (or
// <immintrin.h>) and block/dct_consts.h. It includes nothing, so each
// including file compiles its own internal copy with its own flags. Needs:
// SSE2.
#pragma once

// Row steps: one row per vector. The input is shuffled into the dword pairs
// (x0,x2) (x1,x3) (x4,x6) (x5,x7); each pair is broadcast and multiplied with
// pmaddwd by the table entries that weigh it, four sums at once. No table
// entry is -32768, so every pmaddwd pair sum is exact; the adds wrap in 32
// bits exactly as the reference does.

using namespace kplvc::block::dct;

struct alignas(16) RowConsts {
    int16_t k[4][8];
};

// Inverse: k[0] weighs (x0,x2) for a0..a3, k[1] (x4,x6), k[2] (x1,x3) for
// b0..b3, k[3] (x5,x7).
constexpr RowConsts inv_consts(const int16_t* T) {
    RowConsts c{};
    constexpr int base[4] = {0, 4, 16, 20};
    for (int g = 0; g < 4; ++g)
        for (int i = 0; i < 4; ++i) {
            c.k[g][i] = T[base[g] + i];
            c.k[g][4 + i] = T[base[g] + 8 + i];
        }
    return c;
}
constexpr RowConsts kInv[4] = {inv_consts(tab_i_04), inv_consts(tab_i_17), inv_consts(tab_i_26),
                               inv_consts(tab_i_35)};
constexpr int kRowGroup[8] = {0, 1, 2, 3, 0, 3, 2, 1};

// Forward: k[0] weighs (S0,S1) for the even outputs 0,2,4,6, k[1] (S2,S3);
// k[2] (D0,D1) for the odd outputs, k[3] (D2,D3).
constexpr RowConsts fwd_consts(const int16_t* F) {
    RowConsts c{};
    constexpr int off[4] = {0, 4, 2, 6};
    for (int g = 0; g < 4; ++g)
        for (int j = 0; j < 4; ++j) {
            c.k[g][2 * j] = F[8 * j + off[g]];
            c.k[g][2 * j + 1] = F[8 * j + off[g] + 1];
        }
    return c;
}
constexpr RowConsts kFwd[4] = {fwd_consts(tab_f_04.v), fwd_consts(tab_f_17.v), fwd_consts(tab_f_26.v),
                               fwd_consts(tab_f_35.v)};

inline __m128i kv(const int16_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m128i ld(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void st(int16_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// (x0,x2) (x1,x3) (x4,x6) (x5,x7) as dwords 0..3.
inline __m128i pair_even_odd(__m128i x) {
    x = _mm_shufflelo_epi16(x, _MM_SHUFFLE(3, 1, 2, 0));
    return _mm_shufflehi_epi16(x, _MM_SHUFFLE(3, 1, 2, 0));
}

// y0..y3 = sat((a+b) >> 12), y4..y7 = sat((a-b) >> 12) reversed.
inline __m128i inv_row_finish(__m128i a, __m128i b) {
    const __m128i lo = _mm_srai_epi32(_mm_add_epi32(a, b), 12);
    const __m128i hi = _mm_srai_epi32(_mm_sub_epi32(a, b), 12);
    return _mm_packs_epi32(lo, _mm_shuffle_epi32(hi, _MM_SHUFFLE(0, 1, 2, 3)));
}

inline __m128i inv_row(__m128i x, const RowConsts& c, int32_t rounder) {
    const __m128i p = pair_even_odd(x);
    __m128i a = _mm_madd_epi16(_mm_shuffle_epi32(p, 0x00), kv(c.k[0]));
    a = _mm_add_epi32(a, _mm_madd_epi16(_mm_shuffle_epi32(p, 0xAA), kv(c.k[1])));
    a = _mm_add_epi32(a, _mm_set1_epi32(rounder));
    __m128i b = _mm_madd_epi16(_mm_shuffle_epi32(p, 0x55), kv(c.k[2]));
    b = _mm_add_epi32(b, _mm_madd_epi16(_mm_shuffle_epi32(p, 0xFF), kv(c.k[3])));
    return inv_row_finish(a, b);
}

// The same for a row whose x4..x7 are zero (only k[0] and k[2] matter).
inline __m128i inv_row_half(__m128i x, const RowConsts& c, int32_t rounder) {
    const __m128i p = pair_even_odd(x);
    __m128i a = _mm_madd_epi16(_mm_shuffle_epi32(p, 0x00), kv(c.k[0]));
    a = _mm_add_epi32(a, _mm_set1_epi32(rounder));
    const __m128i b = _mm_madd_epi16(_mm_shuffle_epi32(p, 0x55), kv(c.k[2]));
    return inv_row_finish(a, b);
}

inline __m128i mulhi(__m128i a, int16_t k) { return _mm_mulhi_epi16(a, _mm_set1_epi16(k)); }
inline __m128i adds(__m128i a, __m128i b) { return _mm_adds_epi16(a, b); }
inline __m128i subs(__m128i a, __m128i b) { return _mm_subs_epi16(a, b); }

// Inverse column step on all eight columns; x[k] is row k. Results before
// the final >> 5.
inline void inv_cols(__m128i* x) {
    const __m128i u = adds(adds(mulhi(x[5], tg_3_16), x[5]), x[3]);
    const __m128i v = subs(x[5], adds(mulhi(x[3], tg_3_16), x[3]));
    const __m128i p = subs(mulhi(x[1], tg_1_16), x[7]);
    const __m128i q = adds(mulhi(x[7], tg_1_16), x[1]);
    const __m128i b0 = adds(q, u), t = subs(q, u);
    const __m128i b3 = adds(p, v), s = subs(p, v);
    const __m128i ts = adds(t, s), td = subs(t, s);
    const __m128i b1 = adds(ts, mulhi(ts, cos_4_16));
    const __m128i b2 = adds(mulhi(td, cos_4_16), td);
    const __m128i e = adds(mulhi(x[6], tg_2_16), x[2]);
    const __m128i f = subs(mulhi(x[2], tg_2_16), x[6]);
    const __m128i s04 = adds(x[0], x[4]), d04 = subs(x[0], x[4]);
    const __m128i a0 = adds(s04, e), a3 = subs(s04, e);
    const __m128i a1 = adds(d04, f), a2 = subs(d04, f);
    x[0] = _mm_srai_epi16(adds(a0, b0), 5);
    x[1] = _mm_srai_epi16(adds(a1, b1), 5);
    x[2] = _mm_srai_epi16(adds(a2, b2), 5);
    x[3] = _mm_srai_epi16(adds(a3, b3), 5);
    x[4] = _mm_srai_epi16(subs(a3, b3), 5);
    x[5] = _mm_srai_epi16(subs(a2, b2), 5);
    x[6] = _mm_srai_epi16(subs(a1, b1), 5);
    x[7] = _mm_srai_epi16(subs(a0, b0), 5);
}

// The column step of a block confined to its 2x2 corner, as a 2-input
// butterfly on the row results X0, X1: rows 4..7 of the work block are what
// the row step makes of empty rows (rounders below 4096: zero), row 3 is zero
// too (3408 >> 12) and row 2 is 1 in every entry (4520 >> 12), which the
// +-1 (one_corr) stands for. out[k] is row k of the block.
inline void inv_cols_2x2(__m128i X0, __m128i X1, __m128i* out) {
    const __m128i one = _mm_set1_epi16(one_corr);
    const __m128i tt = mulhi(X1, tg_1_16);
    const __m128i p1 = adds(X0, one), m1 = subs(X0, one);
    const __m128i m = subs(X1, tt), n = adds(tt, X1);
    const __m128i mm = adds(mulhi(m, cos_4_16), m);
    const __m128i nn = adds(mulhi(n, cos_4_16), n);
    out[0] = _mm_srai_epi16(adds(p1, X1), 5);
    out[7] = _mm_srai_epi16(subs(p1, X1), 5);
    out[3] = _mm_srai_epi16(adds(tt, m1), 5);
    out[4] = _mm_srai_epi16(subs(m1, tt), 5);
    out[1] = _mm_srai_epi16(adds(nn, X0), 5);
    out[6] = _mm_srai_epi16(subs(X0, nn), 5);
    out[2] = _mm_srai_epi16(adds(mm, X0), 5);
    out[5] = _mm_srai_epi16(subs(X0, mm), 5);
}

// Forward column step on all eight columns, in place on x[0..7].
inline void fwd_cols(__m128i* x) {
    const __m128i one = _mm_set1_epi16(one_corr);
    const __m128i s07 = _mm_slli_epi16(adds(x[0], x[7]), 3);
    const __m128i s16 = _mm_slli_epi16(adds(x[1], x[6]), 3);
    const __m128i s25 = _mm_slli_epi16(adds(x[2], x[5]), 3);
    const __m128i s34 = _mm_slli_epi16(adds(x[3], x[4]), 3);
    const __m128i d16 = _mm_slli_epi16(subs(x[1], x[6]), 4);
    const __m128i d25 = _mm_slli_epi16(subs(x[2], x[5]), 4);
    const __m128i d34 = _mm_slli_epi16(subs(x[3], x[4]), 3);
    const __m128i d07 = _mm_slli_epi16(subs(x[0], x[7]), 3);
    const __m128i A = subs(s16, s25), B = subs(s07, s34);
    const __m128i s0734 = adds(s07, s34), s1625 = adds(s16, s25);
    const __m128i P = _mm_or_si128(mulhi(adds(d16, d25), ocos_4_16), one);
    const __m128i Q = mulhi(subs(d16, d25), ocos_4_16);
    const __m128i m1 = adds(d34, Q), m4 = subs(d34, Q);
    const __m128i m7 = subs(d07, P), m3 = adds(d07, P);
    x[0] = adds(s0734, s1625);
    x[4] = subs(s0734, s1625);
    x[2] = _mm_or_si128(adds(mulhi(A, tg_2_16), B), one);
    x[6] = _mm_or_si128(subs(mulhi(B, tg_2_16), A), one);
    x[1] = _mm_or_si128(adds(mulhi(m1, tg_1_16), m3), one);
    x[7] = subs(mulhi(m3, tg_1_16), m1);
    x[3] = subs(m7, adds(mulhi(m4, tg_3_16), m4));
    x[5] = adds(adds(mulhi(m7, tg_3_16), m7), m4);
}

// Forward row step: S = (x0+x7, x1+x6, x2+x5, x3+x4) and D likewise
// (saturating), then the even outputs from (S0,S1) (S2,S3) and the odd ones
// from (D0,D1) (D2,D3), (sum + 2^19) >> 20 saturated, interleaved.
inline __m128i fwd_row(__m128i x, const RowConsts& c) {
    const __m128i r = _mm_shufflehi_epi16(x, _MM_SHUFFLE(0, 1, 2, 3));
    const __m128i rev = _mm_unpackhi_epi64(r, r);                       // x7 x6 x5 x4 in the low half
    const __m128i sd = _mm_unpacklo_epi64(adds(x, rev), subs(x, rev));  // S0..S3 D0..D3
    const __m128i rnd = _mm_set1_epi32(round_frw_row);
    __m128i e = _mm_madd_epi16(_mm_shuffle_epi32(sd, 0x00), kv(c.k[0]));
    e = _mm_add_epi32(_mm_add_epi32(e, _mm_madd_epi16(_mm_shuffle_epi32(sd, 0x55), kv(c.k[1]))), rnd);
    __m128i o = _mm_madd_epi16(_mm_shuffle_epi32(sd, 0xAA), kv(c.k[2]));
    o = _mm_add_epi32(_mm_add_epi32(o, _mm_madd_epi16(_mm_shuffle_epi32(sd, 0xFF), kv(c.k[3]))), rnd);
    const __m128i eo = _mm_packs_epi32(_mm_srai_epi32(e, 20), _mm_srai_epi32(o, 20));
    return _mm_unpacklo_epi16(eo, _mm_unpackhi_epi64(eo, eo));
}

inline void load_u8_rows(const uint8_t* src, int32_t step, __m128i* x) {
    const __m128i z = _mm_setzero_si128();
    for (int r = 0; r < 8; ++r)
        x[r] = _mm_unpacklo_epi8(
            _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + static_cast<intptr_t>(r) * step)), z);
}

inline void store_u8_rows(const __m128i* x, uint8_t* dst, int32_t step) {
    for (int r = 0; r < 8; ++r)
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + static_cast<intptr_t>(r) * step),
                         _mm_packus_epi16(x[r], x[r]));
}

// The 2x2 row step: y_k = sat((V x0 + W_k x1 + R) >> 12) from the pair
// (x0, x1); rows 0 and 1 use the x0/x1 entries of tables 04 and 17.
struct alignas(16) PairConsts {
    int16_t lo[8], hi[8];
};
constexpr PairConsts pair_consts(const int16_t* T) {
    // (V, W_k) with V = T0 and W_k = the x1 weights of outputs 0..7.
    const int16_t w[8] = {T[16],
                          T[18],
                          T[24],
                          T[26],
                          static_cast<int16_t>(-T[26]),
                          static_cast<int16_t>(-T[24]),
                          static_cast<int16_t>(-T[18]),
                          static_cast<int16_t>(-T[16])};
    PairConsts c{};
    for (int k = 0; k < 4; ++k) {
        c.lo[2 * k] = T[0];
        c.lo[2 * k + 1] = w[k];
        c.hi[2 * k] = T[0];
        c.hi[2 * k + 1] = w[4 + k];
    }
    return c;
}
constexpr PairConsts k2x2[2] = {pair_consts(tab_i_04), pair_consts(tab_i_17)};

inline __m128i row_2x2(const int16_t* row, const PairConsts& c, int32_t rounder) {
    int32_t pair;
    __builtin_memcpy(&pair, row, 4);
    const __m128i p = _mm_set1_epi32(pair);
    const __m128i r = _mm_set1_epi32(rounder);
    const __m128i lo = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(p, kv(c.lo)), r), 12);
    const __m128i hi = _mm_srai_epi32(_mm_add_epi32(_mm_madd_epi16(p, kv(c.hi)), r), 12);
    return _mm_packs_epi32(lo, hi);
}
