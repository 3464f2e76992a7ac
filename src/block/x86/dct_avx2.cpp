// AVX2 kernels of the transform family: the table-driven row steps two rows
// per vector, and the matrix engine on eight 32-bit lanes with vpmulld.
#include <immintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"
#include "block/dct_ref.h"
#include "core/arith.h"

namespace kplvc::block::x86::avx2 {
namespace {

#include "block/x86/dct_table_x86.inc"

// ---- Table-driven engine --------------------------------------------------------

// Row constants of rows 2p and 2p+1 side by side, one row per 128-bit lane.
struct alignas(32) RowPairConsts {
    int16_t k[4][16];
    int32_t rnd[8];
};
constexpr RowPairConsts row_pair(const RowConsts& a, const RowConsts& b, int32_t ra, int32_t rb) {
    RowPairConsts c{};
    for (int g = 0; g < 4; ++g)
        for (int i = 0; i < 8; ++i) {
            c.k[g][i] = a.k[g][i];
            c.k[g][8 + i] = b.k[g][i];
        }
    for (int i = 0; i < 4; ++i) {
        c.rnd[i] = ra;
        c.rnd[4 + i] = rb;
    }
    return c;
}
constexpr RowPairConsts kInvPair[4] = {
    row_pair(kInv[kRowGroup[0]], kInv[kRowGroup[1]], round_i[0], round_i[1]),
    row_pair(kInv[kRowGroup[2]], kInv[kRowGroup[3]], round_i[2], round_i[3]),
    row_pair(kInv[kRowGroup[4]], kInv[kRowGroup[5]], round_i[4], round_i[5]),
    row_pair(kInv[kRowGroup[6]], kInv[kRowGroup[7]], round_i[6], round_i[7])};
constexpr RowPairConsts kFwdPair[4] = {
    row_pair(kFwd[kRowGroup[0]], kFwd[kRowGroup[1]], round_frw_row, round_frw_row),
    row_pair(kFwd[kRowGroup[2]], kFwd[kRowGroup[3]], round_frw_row, round_frw_row),
    row_pair(kFwd[kRowGroup[4]], kFwd[kRowGroup[5]], round_frw_row, round_frw_row),
    row_pair(kFwd[kRowGroup[6]], kFwd[kRowGroup[7]], round_frw_row, round_frw_row)};

inline __m256i kw(const void* p) { return _mm256_load_si256(static_cast<const __m256i*>(p)); }

// The inverse row step of the SSE2 file on two rows at once.
inline __m256i inv_row2(__m256i x, const RowPairConsts& c) {
    x = _mm256_shufflelo_epi16(x, _MM_SHUFFLE(3, 1, 2, 0));
    x = _mm256_shufflehi_epi16(x, _MM_SHUFFLE(3, 1, 2, 0));
    __m256i a = _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0x00), kw(c.k[0]));
    a = _mm256_add_epi32(a, _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0xAA), kw(c.k[1])));
    a = _mm256_add_epi32(a, kw(c.rnd));
    __m256i b = _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0x55), kw(c.k[2]));
    b = _mm256_add_epi32(b, _mm256_madd_epi16(_mm256_shuffle_epi32(x, 0xFF), kw(c.k[3])));
    const __m256i lo = _mm256_srai_epi32(_mm256_add_epi32(a, b), 12);
    const __m256i hi = _mm256_srai_epi32(_mm256_sub_epi32(a, b), 12);
    return _mm256_packs_epi32(lo, _mm256_shuffle_epi32(hi, _MM_SHUFFLE(0, 1, 2, 3)));
}

inline void inv_rows(const int16_t* src, __m128i* x) {
    for (int p = 0; p < 4; ++p) {
        const __m256i y =
            inv_row2(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + 16 * p)), kInvPair[p]);
        x[2 * p] = _mm256_castsi256_si128(y);
        x[2 * p + 1] = _mm256_extracti128_si256(y, 1);
    }
}

void inv(const int16_t* src, int16_t* dst) {
    __m128i x[8];
    inv_rows(src, x);
    inv_cols(x);
    for (int p = 0; p < 4; ++p)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 16 * p),
                            _mm256_set_m128i(x[2 * p + 1], x[2 * p]));
}

void inv_u8(const int16_t* src, uint8_t* dst, int32_t step) {
    __m128i x[8];
    inv_rows(src, x);
    inv_cols(x);
    store_u8_rows(x, dst, step);
}

inline __m256i fwd_row2(__m256i x, const RowPairConsts& c) {
    const __m256i r = _mm256_shufflehi_epi16(x, _MM_SHUFFLE(0, 1, 2, 3));
    const __m256i rev = _mm256_unpackhi_epi64(r, r);
    const __m256i sd = _mm256_unpacklo_epi64(_mm256_adds_epi16(x, rev), _mm256_subs_epi16(x, rev));
    __m256i e = _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0x00), kw(c.k[0]));
    e = _mm256_add_epi32(_mm256_add_epi32(e, _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0x55), kw(c.k[1]))),
                         kw(c.rnd));
    __m256i o = _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0xAA), kw(c.k[2]));
    o = _mm256_add_epi32(_mm256_add_epi32(o, _mm256_madd_epi16(_mm256_shuffle_epi32(sd, 0xFF), kw(c.k[3]))),
                         kw(c.rnd));
    const __m256i eo = _mm256_packs_epi32(_mm256_srai_epi32(e, 20), _mm256_srai_epi32(o, 20));
    return _mm256_unpacklo_epi16(eo, _mm256_unpackhi_epi64(eo, eo));
}

inline void fwd_block(__m128i* x, int16_t* dst) {
    fwd_cols(x);
    for (int p = 0; p < 4; ++p)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + 16 * p),
                            fwd_row2(_mm256_set_m128i(x[2 * p + 1], x[2 * p]), kFwdPair[p]));
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

// ---- Matrix engine ----------------------------------------------------------------
// Eight columns as 32-bit lanes; vpmulld gives the low 32 bits of each
// product, which is exactly the wrapping arithmetic of the reference.

inline __m256i mul(__m256i a, int32_t c) { return _mm256_mullo_epi32(a, _mm256_set1_epi32(c)); }
inline __m256i add(__m256i a, __m256i b) { return _mm256_add_epi32(a, b); }
inline __m256i sub(__m256i a, __m256i b) { return _mm256_sub_epi32(a, b); }

inline void aan_step(const __m256i* z, __m256i* r) {
    const int32_t c1 = aan_c[1], c2 = aan_c[2], c3 = aan_c[3], c4 = aan_c[4];
    const int32_t c5 = aan_c[5], c6 = aan_c[6], c7 = aan_c[7];
    const __m256i s04 = mul(add(z[0], z[4]), c4), d04 = mul(sub(z[0], z[4]), c4);
    const __m256i g = add(mul(z[2], c2), mul(z[6], c6)), h = sub(mul(z[2], c6), mul(z[6], c2));
    const __m256i e0 = add(s04, g), e3 = sub(s04, g), e1 = add(d04, h), e2 = sub(d04, h);
    const __m256i o0 = add(add(mul(z[1], c1), mul(z[3], c3)), add(mul(z[5], c5), mul(z[7], c7)));
    const __m256i o1 = sub(sub(mul(z[1], c3), mul(z[3], c7)), add(mul(z[5], c1), mul(z[7], c5)));
    const __m256i o2 = add(sub(mul(z[1], c5), mul(z[3], c1)), add(mul(z[5], c7), mul(z[7], c3)));
    const __m256i o3 = sub(add(sub(mul(z[1], c7), mul(z[3], c5)), mul(z[5], c3)), mul(z[7], c1));
    r[0] = add(e0, o0);
    r[7] = sub(e0, o0);
    r[1] = add(e1, o1);
    r[6] = sub(e1, o1);
    r[2] = add(e2, o2);
    r[5] = sub(e2, o2);
    r[3] = add(e3, o3);
    r[4] = sub(e3, o3);
}

// The step with z4..z7 = 0 (blocks confined to the 4x4 corner).
inline void aan_step_corner(const __m256i* z, __m256i* r) {
    const int32_t c1 = aan_c[1], c2 = aan_c[2], c3 = aan_c[3], c4 = aan_c[4];
    const int32_t c5 = aan_c[5], c6 = aan_c[6], c7 = aan_c[7];
    const __m256i s0 = mul(z[0], c4), g = mul(z[2], c2), h = mul(z[2], c6);
    const __m256i e0 = add(s0, g), e3 = sub(s0, g), e1 = add(s0, h), e2 = sub(s0, h);
    const __m256i o0 = add(mul(z[1], c1), mul(z[3], c3));
    const __m256i o1 = sub(mul(z[1], c3), mul(z[3], c7));
    const __m256i o2 = sub(mul(z[1], c5), mul(z[3], c1));
    const __m256i o3 = sub(mul(z[1], c7), mul(z[3], c5));
    r[0] = add(e0, o0);
    r[7] = sub(e0, o0);
    r[1] = add(e1, o1);
    r[6] = sub(e1, o1);
    r[2] = add(e2, o2);
    r[5] = sub(e2, o2);
    r[3] = add(e3, o3);
    r[4] = sub(e3, o3);
}

inline void transpose8x32(__m256i* r) {
    __m256i t[8], u[8];
    for (int i = 0; i < 4; ++i) {
        t[2 * i] = _mm256_unpacklo_epi32(r[2 * i], r[2 * i + 1]);
        t[2 * i + 1] = _mm256_unpackhi_epi32(r[2 * i], r[2 * i + 1]);
    }
    for (int i = 0; i < 2; ++i) {
        u[4 * i + 0] = _mm256_unpacklo_epi64(t[4 * i], t[4 * i + 2]);
        u[4 * i + 1] = _mm256_unpackhi_epi64(t[4 * i], t[4 * i + 2]);
        u[4 * i + 2] = _mm256_unpacklo_epi64(t[4 * i + 1], t[4 * i + 3]);
        u[4 * i + 3] = _mm256_unpackhi_epi64(t[4 * i + 1], t[4 * i + 3]);
    }
    for (int i = 0; i < 4; ++i) {
        r[i] = _mm256_permute2x128_si256(u[i], u[4 + i], 0x20);
        r[4 + i] = _mm256_permute2x128_si256(u[i], u[4 + i], 0x31);
    }
}

template <bool Corner>
inline void aan_two_passes(__m256i* z, int16_t* out) {
    __m256i r[8];
    if (Corner)
        aan_step_corner(z, r);
    else
        aan_step(z, r);
    const __m256i k1 = _mm256_set1_epi32(kplvc::block::dct::aan_round1);
    for (int k = 0; k < 8; ++k) z[k] = _mm256_srai_epi32(add(r[k], k1), 16);
    transpose8x32(z);
    // In the corner case pass 1 leaves zeros in lanes 4..7, so after the
    // transpose z4..z7 are zero.
    if (Corner)
        aan_step_corner(z, r);
    else
        aan_step(z, r);
    const __m256i k2 = _mm256_set1_epi32(kplvc::block::dct::aan_round2);
    const __m256i lo = _mm256_set1_epi32(-256), hi = _mm256_set1_epi32(255);
    for (int i = 0; i < 8; ++i)
        r[i] = _mm256_min_epi32(_mm256_max_epi32(_mm256_srai_epi32(add(r[i], k2), 18), lo), hi);
    for (int i = 0; i < 8; i += 2)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 8 * i),
                            _mm256_permute4x64_epi64(_mm256_packs_epi32(r[i], r[i + 1]), 0xD8));
}

void aan(const int16_t* src, int16_t* out) {
    __m256i z[8];
    for (int k = 0; k < 8; ++k) z[k] = _mm256_cvtepi16_epi32(ld(src + 8 * k));
    aan_two_passes<false>(z, out);
}

void aan_corner(const int16_t* src, int16_t* out) {
    __m256i z[8];
    for (int k = 0; k < 4; ++k)
        z[k] = _mm256_cvtepi16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + 8 * k)));
    for (int k = 4; k < 8; ++k) z[k] = _mm256_setzero_si256();
    aan_two_passes<true>(z, out);
}

// ---- 2-4-8 inverse ----------------------------------------------------------------
// The row pass works on all eight rows at once (lanes = rows, after a 16-bit
// transpose); a 32-bit transpose then puts the columns in the lanes for the
// two 4-point vertical passes. vpmulld gives the wrapped products.

inline __m256i pk(int a, int b) {
    return _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(a)) |
                                                  (static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16)));
}

inline void transpose8x16(__m128i* t) {
    const __m128i a0 = _mm_unpacklo_epi16(t[0], t[1]), a1 = _mm_unpackhi_epi16(t[0], t[1]);
    const __m128i a2 = _mm_unpacklo_epi16(t[2], t[3]), a3 = _mm_unpackhi_epi16(t[2], t[3]);
    const __m128i a4 = _mm_unpacklo_epi16(t[4], t[5]), a5 = _mm_unpackhi_epi16(t[4], t[5]);
    const __m128i a6 = _mm_unpacklo_epi16(t[6], t[7]), a7 = _mm_unpackhi_epi16(t[6], t[7]);
    const __m128i b0 = _mm_unpacklo_epi32(a0, a2), b1 = _mm_unpackhi_epi32(a0, a2);
    const __m128i b2 = _mm_unpacklo_epi32(a1, a3), b3 = _mm_unpackhi_epi32(a1, a3);
    const __m128i b4 = _mm_unpacklo_epi32(a4, a6), b5 = _mm_unpackhi_epi32(a4, a6);
    const __m128i b6 = _mm_unpacklo_epi32(a5, a7), b7 = _mm_unpackhi_epi32(a5, a7);
    t[0] = _mm_unpacklo_epi64(b0, b4);
    t[1] = _mm_unpackhi_epi64(b0, b4);
    t[2] = _mm_unpacklo_epi64(b1, b5);
    t[3] = _mm_unpackhi_epi64(b1, b5);
    t[4] = _mm_unpacklo_epi64(b2, b6);
    t[5] = _mm_unpackhi_epi64(b2, b6);
    t[6] = _mm_unpacklo_epi64(b3, b7);
    t[7] = _mm_unpackhi_epi64(b3, b7);
}

// Eight (a, b) pairs of 16-bit lanes as the dwords of one 256-bit vector.
inline __m256i pairs(__m128i a, __m128i b) {
    return _mm256_set_m128i(_mm_unpackhi_epi16(a, b), _mm_unpacklo_epi16(a, b));
}

// Low 16 bits of each 32-bit lane, sign-extended (so packs keeps them).
inline __m256i low16(__m256i v) { return _mm256_srai_epi32(_mm256_slli_epi32(v, 16), 16); }

void field_inv(int16_t* blk) {
    __m128i X[8];
    for (int r = 0; r < 8; ++r) X[r] = ld(blk + 8 * r);
    transpose8x16(X);
    const __m256i x17 = pairs(X[1], X[7]), x35 = pairs(X[3], X[5]);
    const __m256i x04 = pairs(X[0], X[4]), x26 = pairs(X[2], X[6]);
    const __m256i p = _mm256_madd_epi16(x17, pk(22725, 4520)), q = _mm256_madd_epi16(x17, pk(4520, -22725));
    const __m256i r = _mm256_madd_epi16(x35, pk(19265, 12872)), w = _mm256_madd_epi16(x35, pk(-12872, 19265));
    const __m256i E0 = _mm256_madd_epi16(x04, pk(16384, 16384)),
                  E1 = _mm256_madd_epi16(x04, pk(16384, -16384));
    const __m256i g = _mm256_madd_epi16(x26, pk(21406, 8866)), hh = _mm256_madd_epi16(x26, pk(8866, -21406));
    const __m256i r1024 = _mm256_set1_epi32(1024);
    const __m256i m =
        _mm256_srai_epi32(mul(_mm256_srai_epi32(add(sub(sub(add(p, q), r), w), r1024), 11), 11585), 3);
    const __m256i n =
        _mm256_srai_epi32(mul(_mm256_srai_epi32(add(add(sub(sub(p, q), r), w), r1024), 11), 11585), 3);
    const __m256i pr = add(p, r), qw = add(q, w), gE0 = add(g, E0), E0g = sub(E0, g);
    const __m256i E1h = add(E1, hh), E1mh = sub(E1, hh);
    __m256i Y[8] = {add(pr, gE0), add(m, E1h),  add(n, E1mh), add(qw, E0g),
                    sub(E0g, qw), sub(E1mh, n), sub(E1h, m),  sub(gE0, pr)};
    const __m256i r8192 = _mm256_set1_epi32(8192);
    for (int k = 0; k < 8; ++k) Y[k] = _mm256_srai_epi32(add(Y[k], r8192), 14);
    transpose8x32(Y);  // Y[row], lanes = columns
    const __m256i r65536 = _mm256_set1_epi32(65536);
    __m256i f[2][4];
    for (int fld = 0; fld < 2; ++fld) {
        const __m256i c0 = Y[4 * fld], c1 = Y[4 * fld + 1], c2 = Y[4 * fld + 2], c3 = Y[4 * fld + 3];
        const __m256i a = _mm256_slli_epi32(sub(c0, c2), 14), b = _mm256_slli_epi32(add(c0, c2), 14);
        const __m256i G = add(mul(c1, 21406), mul(c3, 8866));
        const __m256i H = sub(mul(c1, 8866), mul(c3, 21406));
        f[fld][0] = _mm256_srai_epi32(add(add(G, b), r65536), 17);
        f[fld][1] = _mm256_srai_epi32(add(add(a, H), r65536), 17);
        f[fld][2] = _mm256_srai_epi32(add(sub(a, H), r65536), 17);
        f[fld][3] = _mm256_srai_epi32(add(sub(b, G), r65536), 17);
    }
    for (int k = 0; k < 4; ++k) {
        const __m256i even = low16(add(f[0][k], f[1][k])), odd = low16(sub(f[0][k], f[1][k]));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(blk + 16 * k),
                            _mm256_permute4x64_epi64(_mm256_packs_epi32(even, odd), 0xD8));
    }
}

}  // namespace

void upgrade_dct_field(block::DctKernels& k) { k.field_inv = field_inv; }

void upgrade_dct_table(block::DctKernels& k) {
    k.inv = inv;
    k.inv_u8 = inv_u8;
    k.fwd = fwd;
    k.fwd_u8 = fwd_u8;
}

void upgrade_dct_aan(block::DctKernels& k) {
    k.aan = aan;
    k.aan_corner = aan_corner;
}

}  // namespace kplvc::block::x86::avx2
