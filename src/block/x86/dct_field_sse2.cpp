// 2-4-8 (field) transforms with SSE2. Sums and products wrap in 32 bits and
// stores keep the low 16 bits, as in the scalar reference.
#include <emmintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "core/x86/transpose-inl.h"

using namespace kplvc::block::dct;

inline __m128i ld(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void st(int16_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline __m128i add(__m128i a, __m128i b) { return _mm_add_epi32(a, b); }
inline __m128i sub(__m128i a, __m128i b) { return _mm_sub_epi32(a, b); }

// Low 32 bits of a 32x32-bit product (signed and unsigned agree there).
inline __m128i mullo32(__m128i a, int32_t k) {
    const __m128i b = _mm_set1_epi32(k);
    const __m128i even = _mm_mul_epu32(a, b);
    const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(a, 32), b);
    return _mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(0, 0, 2, 0)),
                              _mm_shuffle_epi32(odd, _MM_SHUFFLE(0, 0, 2, 0)));
}

// Two vectors of 32-bit values to eight 16-bit cells, keeping the low bits.
inline __m128i trunc_pack(__m128i lo, __m128i hi) {
    return _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(lo, 16), 16),
                           _mm_srai_epi32(_mm_slli_epi32(hi, 16), 16));
}

// 16-bit lanes sign-extended to 32 bits: lanes 0..3 (h = 0) or 4..7.
inline __m128i widen(__m128i x, int h) {
    return _mm_srai_epi32(h ? _mm_unpackhi_epi16(x, x) : _mm_unpacklo_epi16(x, x), 16);
}

// ---- Forward -------------------------------------------------------------------

// Row pass as an 8x8 matrix of weights M[out][in] applied with pmaddwd to
// the input pairs (x0,x1) (x2,x3) (x4,x5) (x6,x7): the butterflies S and D
// distribute over the products modulo 2^32.
struct alignas(16) FieldRowConsts {
    int16_t k[4][2][8];  // [input pair][outputs 0..3 / 4..7][(w, w') x 4]
};
constexpr FieldRowConsts field_row_consts(const int32_t* w) {
    const int c0 = w[0], a = w[1], b = w[2], c1 = w[3], c3 = w[4], c5 = w[5], c7 = w[6];
    const int M[8][8] = {
        {c0, c0, c0, c0, c0, c0, c0, c0},     {c1, c3, c5, c7, -c7, -c5, -c3, -c1},
        {a, b, -b, -a, -a, -b, b, a},         {c3, -c7, -c1, -c5, c5, c1, c7, -c3},
        {c0, -c0, -c0, c0, c0, -c0, -c0, c0}, {c5, -c1, c7, c3, -c3, -c7, c1, -c5},
        {b, -a, a, -b, -b, a, -a, b},         {c7, -c5, c3, -c1, c1, -c3, c5, -c7},
    };
    FieldRowConsts r{};
    for (int p = 0; p < 4; ++p)
        for (int o = 0; o < 8; ++o) {
            r.k[p][o / 4][2 * (o % 4)] = static_cast<int16_t>(M[o][2 * p]);
            r.k[p][o / 4][2 * (o % 4) + 1] = static_cast<int16_t>(M[o][2 * p + 1]);
        }
    return r;
}
constexpr FieldRowConsts kFieldRow[2] = {field_row_consts(field_fwd_even), field_row_consts(field_fwd_odd)};

inline __m128i kv(const int16_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }

inline __m128i field_row(__m128i x, const FieldRowConsts& c) {
    const __m128i rnd = _mm_set1_epi32(32768);
    const __m128i pair[4] = {_mm_shuffle_epi32(x, 0x00), _mm_shuffle_epi32(x, 0x55),
                             _mm_shuffle_epi32(x, 0xAA), _mm_shuffle_epi32(x, 0xFF)};
    __m128i lo = rnd, hi = rnd;
    for (int p = 0; p < 4; ++p) {
        lo = add(lo, _mm_madd_epi16(pair[p], kv(c.k[p][0])));
        hi = add(hi, _mm_madd_epi16(pair[p], kv(c.k[p][1])));
    }
    return _mm_packs_epi32(_mm_srai_epi32(lo, 16), _mm_srai_epi32(hi, 16));
}

// g(v) = (v * 27146 + 32768) >> 16 on the 32-bit v of both halves, low 16 bits.
inline __m128i g16(const __m128i* v) {
    const __m128i rnd = _mm_set1_epi32(32768);
    return trunc_pack(_mm_srai_epi32(add(mullo32(v[0], 27146), rnd), 16),
                      _mm_srai_epi32(add(mullo32(v[1], 27146), rnd), 16));
}

void field_fwd(int16_t* blk) {
    __m128i x[8];
    for (int r = 0; r < 8; ++r) x[r] = ld(blk + 8 * r);
    // Field sums and differences, 16-bit wrapping: only their low 16 bits
    // reach the stored rows 0, 2, 4, 6 and the non-g terms of 1, 3, 5, 7.
    __m128i s[4], d[4];
    for (int k = 0; k < 4; ++k) {
        s[k] = _mm_add_epi16(x[2 * k], x[2 * k + 1]);
        d[k] = _mm_sub_epi16(x[2 * k], x[2 * k + 1]);
    }
    // The arguments of g need their full 18 bits.
    __m128i v_s12[2], v_s03[2], v_d12[2], v_d03[2];
    for (int h = 0; h < 2; ++h) {
        __m128i w[8];
        for (int r = 0; r < 8; ++r) w[r] = widen(x[r], h);
        const __m128i S0 = add(w[0], w[1]), S1 = add(w[2], w[3]), S2 = add(w[4], w[5]), S3 = add(w[6], w[7]);
        const __m128i D0 = sub(w[0], w[1]), D1 = sub(w[2], w[3]), D2 = sub(w[4], w[5]), D3 = sub(w[6], w[7]);
        v_s12[h] = sub(S1, S2);
        v_s03[h] = sub(S0, S3);
        v_d12[h] = sub(D1, D2);
        v_d03[h] = sub(D0, D3);
    }
    __m128i y[8];
    y[0] = _mm_add_epi16(_mm_add_epi16(s[0], s[1]), _mm_add_epi16(s[2], s[3]));
    y[2] = _mm_sub_epi16(_mm_add_epi16(s[0], s[3]), _mm_add_epi16(s[1], s[2]));
    y[1] = _mm_add_epi16(g16(v_s12), _mm_sub_epi16(s[0], s[3]));
    y[3] = _mm_sub_epi16(g16(v_s03), _mm_sub_epi16(s[1], s[2]));
    y[4] = _mm_add_epi16(_mm_add_epi16(d[0], d[3]), _mm_add_epi16(d[1], d[2]));
    y[6] = _mm_sub_epi16(_mm_add_epi16(d[0], d[3]), _mm_add_epi16(d[1], d[2]));
    y[5] = _mm_add_epi16(g16(v_d12), _mm_sub_epi16(d[0], d[3]));
    y[7] = _mm_sub_epi16(g16(v_d03), _mm_sub_epi16(d[1], d[2]));
    for (int r = 0; r < 8; ++r) st(blk + 8 * r, field_row(y[r], kFieldRow[r & 1]));
}

// ---- Inverse -------------------------------------------------------------------

void field_inv(int16_t* blk) {
    __m128i X[8];
    for (int r = 0; r < 8; ++r) X[r] = ld(blk + 8 * r);
    transpose8x16(X);  // X[k]: input column k, lanes = rows
    // Row pass, four rows per vector: Y[k][h] = output k of rows 4h..4h+3.
    // Every pair product sum fits in 32 bits (weights below 2^15).
    __m128i Y[8][2];
    const __m128i r8192 = _mm_set1_epi32(8192), r1024 = _mm_set1_epi32(1024);
    for (int h = 0; h < 2; ++h) {
        auto il = [h](__m128i a, __m128i b) {
            return h ? _mm_unpackhi_epi16(a, b) : _mm_unpacklo_epi16(a, b);
        };
        const __m128i x17 = il(X[1], X[7]), x35 = il(X[3], X[5]);
        const __m128i x04 = il(X[0], X[4]), x26 = il(X[2], X[6]);
        const __m128i p = _mm_madd_epi16(x17, pk(field_inv_c1, field_inv_c7)),
                      q = _mm_madd_epi16(x17, pk(field_inv_c7, -field_inv_c1));
        const __m128i r = _mm_madd_epi16(x35, pk(field_inv_c3, field_inv_c5)),
                      w = _mm_madd_epi16(x35, pk(-field_inv_c5, field_inv_c3));
        const __m128i E0 = _mm_madd_epi16(x04, pk(field_inv_c4, field_inv_c4)),
                      E1 = _mm_madd_epi16(x04, pk(field_inv_c4, -field_inv_c4));
        const __m128i g = _mm_madd_epi16(x26, pk(field_inv_c2, field_inv_c6)),
                      hh = _mm_madd_epi16(x26, pk(field_inv_c6, -field_inv_c2));
        const __m128i m = _mm_srai_epi32(
            mullo32(_mm_srai_epi32(add(sub(sub(add(p, q), r), w), r1024), 11), field_inv_r), 3);
        const __m128i n = _mm_srai_epi32(
            mullo32(_mm_srai_epi32(add(add(sub(sub(p, q), r), w), r1024), 11), field_inv_r), 3);
        const __m128i pr = add(p, r), qw = add(q, w), gE0 = add(g, E0), E0g = sub(E0, g);
        const __m128i E1h = add(E1, hh), E1mh = sub(E1, hh);
        const __m128i y[8] = {add(pr, gE0), add(m, E1h),  add(n, E1mh), add(qw, E0g),
                              sub(E0g, qw), sub(E1mh, n), sub(E1h, m),  sub(gE0, pr)};
        for (int k = 0; k < 8; ++k) Y[k][h] = _mm_srai_epi32(add(y[k], r8192), 14);
    }
    // To row-major: R[row][cg] holds columns 4cg..4cg+3 of that row.
    __m128i R[8][2];
    for (int h = 0; h < 2; ++h)
        for (int cg = 0; cg < 2; ++cg) {
            __m128i a = Y[4 * cg][h], b = Y[4 * cg + 1][h], c = Y[4 * cg + 2][h], d = Y[4 * cg + 3][h];
            transpose4x32(a, b, c, d);
            R[4 * h][cg] = a;
            R[4 * h + 1][cg] = b;
            R[4 * h + 2][cg] = c;
            R[4 * h + 3][cg] = d;
        }
    // Vertical 4-point passes on each field, then the fields interleaved.
    const __m128i r65536 = _mm_set1_epi32(65536);
    __m128i f[2][4][2];  // [field][k][column group]
    for (int fld = 0; fld < 2; ++fld)
        for (int cg = 0; cg < 2; ++cg) {
            const __m128i c0 = R[4 * fld][cg], c1 = R[4 * fld + 1][cg];
            const __m128i c2 = R[4 * fld + 2][cg], c3 = R[4 * fld + 3][cg];
            const __m128i a = _mm_slli_epi32(sub(c0, c2), 14), b = _mm_slli_epi32(add(c0, c2), 14);
            const __m128i G = add(mullo32(c1, field_inv_c2), mullo32(c3, field_inv_c6));
            const __m128i H = sub(mullo32(c1, field_inv_c6), mullo32(c3, field_inv_c2));
            f[fld][0][cg] = _mm_srai_epi32(add(add(G, b), r65536), 17);
            f[fld][1][cg] = _mm_srai_epi32(add(add(a, H), r65536), 17);
            f[fld][2][cg] = _mm_srai_epi32(add(sub(a, H), r65536), 17);
            f[fld][3][cg] = _mm_srai_epi32(add(sub(b, G), r65536), 17);
        }
    for (int k = 0; k < 4; ++k) {
        st(blk + 8 * (2 * k), trunc_pack(add(f[0][k][0], f[1][k][0]), add(f[0][k][1], f[1][k][1])));
        st(blk + 8 * (2 * k + 1), trunc_pack(sub(f[0][k][0], f[1][k][0]), sub(f[0][k][1], f[1][k][1])));
    }
}

}  // namespace

void upgrade_dct_field(DctKernels& k) {
    k.field_fwd = field_fwd;
    k.field_inv = field_inv;
}

}  // namespace kplvc::block::x86::sse2
