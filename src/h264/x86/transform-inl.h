// transform-inl.h: the 128-bit kernels of the H.264 4x4 transforms and
// quantisers, written once and compiled twice: transform_sse2.cpp (legacy
// SSE encoding) and transform_avx2.cpp (VEX encoding: three-operand forms, no
// register copies).
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::h264::x86::<isa>), after <emmintrin.h> (or
// <immintrin.h>), <cstring>, h264/transform.h and kplvc.h. It includes
// nothing, so each including file compiles its own internal copy with its
// own flags. Needs: SSE2.
#pragma once

// A block is held either as four registers of four 16-bit lanes (the low
// halves) or as two registers of two rows each. A pass of butterflies works
// on "one element of each of four lines", so a row pass runs on the
// transposed block and a column pass on the block itself. paddw/psubw/psraw
// give exactly the 16-bit wrap and arithmetic shifts of the scalar reference.

inline __m128i load4x16(const void* p) { return _mm_loadl_epi64(static_cast<const __m128i*>(p)); }
inline void store4x16(void* p, __m128i v) { _mm_storel_epi64(static_cast<__m128i*>(p), v); }
inline const uint8_t* at(const void* base, int32_t step, int r) {
    return static_cast<const uint8_t*>(base) + static_cast<intptr_t>(step) * r;
}
inline uint8_t* at(void* base, int32_t step, int r) {
    return static_cast<uint8_t*>(base) + static_cast<intptr_t>(step) * r;
}

// 4x4 transpose of 16-bit lanes held in the low halves of a0..a3.
inline void transpose4(__m128i& a0, __m128i& a1, __m128i& a2, __m128i& a3) {
    const __m128i t0 = _mm_unpacklo_epi16(a0, a1);   // a00 a10 a01 a11 a02 a12 a03 a13
    const __m128i t1 = _mm_unpacklo_epi16(a2, a3);   // a20 a30 a21 a31 ...
    const __m128i c01 = _mm_unpacklo_epi32(t0, t1);  // column 0 | column 1
    const __m128i c23 = _mm_unpackhi_epi32(t0, t1);  // column 2 | column 3
    a0 = c01;
    a1 = _mm_unpackhi_epi64(c01, c01);
    a2 = c23;
    a3 = _mm_unpackhi_epi64(c23, c23);
}

// Forward core butterfly on four lines at once.
inline void fwd_pass(__m128i& x0, __m128i& x1, __m128i& x2, __m128i& x3) {
    const __m128i s = _mm_add_epi16(x0, x3), t = _mm_add_epi16(x1, x2);
    const __m128i d = _mm_sub_epi16(x0, x3), u = _mm_sub_epi16(x1, x2);
    x0 = _mm_add_epi16(s, t);
    x1 = _mm_add_epi16(_mm_add_epi16(d, d), u);
    x2 = _mm_sub_epi16(s, t);
    x3 = _mm_sub_epi16(d, _mm_add_epi16(u, u));
}

// The low half of a and the high half of b (one blend where SSE4.1 is there,
// a movsd otherwise).
inline __m128i lo_hi(__m128i a, __m128i b) {
#ifdef __SSE4_1__
    return _mm_blend_epi16(a, b, 0xF0);
#else
    return _mm_castpd_si128(_mm_move_sd(_mm_castsi128_pd(b), _mm_castsi128_pd(a)));
#endif
}

// 4x4 transpose of a block held as two rows per register: [a0|a1], [a2|a3]
// become [column 0|column 1], [column 2|column 3].
inline void transpose2(__m128i& x, __m128i& y) {
    const __m128i t0 = _mm_unpacklo_epi16(x, y);  // a0 and a2 interleaved
    const __m128i t1 = _mm_unpackhi_epi16(x, y);  // a1 and a3 interleaved
    x = _mm_unpacklo_epi16(t0, t1);
    y = _mm_unpackhi_epi16(t0, t1);
}

// Inverse core butterfly on four lines held two elements per register,
// u = [x0|x1], v = [x2|x3]; returns [y0|y1] and [y3|y2]. The halved terms are
// made by shifting a whole register and keeping the half that needs it:
// e|h = [x0|x1] + [x2|x3>>1], f|g = [x0|x1>>1] - [x2|x3], then one sum and one
// difference of [e|f] and [h|g] give all four outputs.
inline void inv_pass2(__m128i u, __m128i v, __m128i& y01, __m128i& y32) {
    const __m128i eh = _mm_add_epi16(u, lo_hi(v, _mm_srai_epi16(v, 1)));
    const __m128i fg = _mm_sub_epi16(lo_hi(u, _mm_srai_epi16(u, 1)), v);
    const __m128i ef = _mm_unpacklo_epi64(eh, fg), hg = _mm_unpackhi_epi64(eh, fg);
    y01 = _mm_add_epi16(ef, hg);
    y32 = _mm_sub_epi16(ef, hg);
}

// Dequantise the rows [r0|r1], [r2|r3] with the scale rows, override the DC,
// transform and round; the results come back as rows [o0|o1] and [o3|o2].
//
// The rounding +32 is added to coefficient 0 before the transforms instead of
// to each output: coefficient 0 reaches every output with weight +1 and is
// never one of the halved terms, and every other step is a wrapping add or
// subtract, so each output receives exactly +32 modulo 2^16, as the reference
// does at the end. It takes one add off the critical path.
inline void dequant_inverse(__m128i c01, __m128i c23, const int16_t* dc, const int16_t* scale, __m128i& o01,
                            __m128i& o32) {
    c01 = _mm_mullo_epi16(c01, _mm_loadu_si128(reinterpret_cast<const __m128i*>(scale)));
    c23 = _mm_mullo_epi16(c23, _mm_loadu_si128(reinterpret_cast<const __m128i*>(scale + 8)));
    if (dc != nullptr) c01 = _mm_insert_epi16(c01, *dc, 0);
    c01 = _mm_add_epi16(c01, _mm_cvtsi32_si128(32));
    transpose2(c01, c23);  // lane r of each half: row r
    __m128i y01, y32;
    inv_pass2(c01, c23, y01, y32);  // the row pass: columns 0, 1 and 3, 2 of the intermediate
    __m128i y23 = _mm_shuffle_epi32(y32, _MM_SHUFFLE(1, 0, 3, 2));
    transpose2(y01, y23);           // back to rows
    inv_pass2(y01, y23, o01, o32);  // the column pass
    o01 = _mm_srai_epi16(o01, 6);
    o32 = _mm_srai_epi16(o32, 6);
}

void dequant_residual(int16_t* coef, int32_t step, const int16_t* dc, const int16_t* scale) {
    __m128i o01, o32;
    dequant_inverse(_mm_unpacklo_epi64(load4x16(at(coef, step, 0)), load4x16(at(coef, step, 1))),
                    _mm_unpacklo_epi64(load4x16(at(coef, step, 2)), load4x16(at(coef, step, 3))), dc, scale,
                    o01, o32);
    store4x16(at(coef, step, 0), o01);
    store4x16(at(coef, step, 1), _mm_unpackhi_epi64(o01, o01));
    store4x16(at(coef, step, 3), o32);
    store4x16(at(coef, step, 2), _mm_unpackhi_epi64(o32, o32));
}

inline __m128i load_pred_rows(const uint8_t* p0, const uint8_t* p1) {
    uint32_t a, b;
    std::memcpy(&a, p0, 4);
    std::memcpy(&b, p1, 4);
    return _mm_unpacklo_epi32(_mm_cvtsi32_si128(static_cast<int>(a)), _mm_cvtsi32_si128(static_cast<int>(b)));
}

inline void store_row(uint8_t* d, __m128i v) {
    const uint32_t x = static_cast<uint32_t>(_mm_cvtsi128_si32(v));
    std::memcpy(d, &x, 4);
}

int32_t dequant_residual_add(const uint8_t* pred, int16_t* coef, const int16_t* dc, uint8_t* dst, Steps steps,
                             const int16_t* scale) {
    const int32_t pred_step = steps.pred, dst_step = steps.dst;
    __m128i o01, o32;
    dequant_inverse(_mm_loadu_si128(reinterpret_cast<const __m128i*>(coef)),
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(coef + 8)), dc, scale, o01, o32);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(coef), o01);
    store4x16(coef + 12, o32);
    _mm_storeh_pd(reinterpret_cast<double*>(coef + 8), _mm_castsi128_pd(o32));
    // The reference limits the residual to -256..256 before adding it to the
    // prediction (0..255) and clamping to 0..255. A saturating add followed by
    // the unsigned pack gives the same bytes without the limit: whenever the
    // limit changes r, the sum is already below 0 or above 255 either way.
    const __m128i zero = _mm_setzero_si128();
    const __m128i p01 =
        _mm_unpacklo_epi8(load_pred_rows(at(pred, pred_step, 0), at(pred, pred_step, 1)), zero);
    const __m128i p32 =
        _mm_unpacklo_epi8(load_pred_rows(at(pred, pred_step, 3), at(pred, pred_step, 2)), zero);
    const __m128i out = _mm_packus_epi16(_mm_adds_epi16(p01, o01), _mm_adds_epi16(p32, o32));  // rows 0 1 3 2
    store_row(at(dst, dst_step, 0), out);
#ifdef __SSE4_1__
    const uint32_t r1 = static_cast<uint32_t>(_mm_extract_epi32(out, 1));
    const uint32_t r3 = static_cast<uint32_t>(_mm_extract_epi32(out, 2));
    const uint32_t r2 = static_cast<uint32_t>(_mm_extract_epi32(out, 3));
    std::memcpy(at(dst, dst_step, 1), &r1, 4);
    std::memcpy(at(dst, dst_step, 3), &r3, 4);
    std::memcpy(at(dst, dst_step, 2), &r2, 4);
#else
    store_row(at(dst, dst_step, 1), _mm_srli_si128(out, 4));
    store_row(at(dst, dst_step, 3), _mm_srli_si128(out, 8));
    store_row(at(dst, dst_step, 2), _mm_srli_si128(out, 12));
#endif
    return kplStsNoErr;
}

// The limit of the residual to -256..256 is replaced by the saturating add,
// as in dequant_residual_add.
[[maybe_unused]] void add_dc(const uint8_t* pred, int32_t pred_step, uint8_t* dst, int32_t dst_step,
                             int16_t r) {
    const __m128i zero = _mm_setzero_si128(), rv = _mm_set1_epi16(r);
    const __m128i p01 =
        _mm_unpacklo_epi8(load_pred_rows(at(pred, pred_step, 0), at(pred, pred_step, 1)), zero);
    const __m128i p23 =
        _mm_unpacklo_epi8(load_pred_rows(at(pred, pred_step, 2), at(pred, pred_step, 3)), zero);
    const __m128i out = _mm_packus_epi16(_mm_adds_epi16(p01, rv), _mm_adds_epi16(p23, rv));
    store_row(at(dst, dst_step, 0), out);
    store_row(at(dst, dst_step, 1), _mm_srli_si128(out, 4));
    store_row(at(dst, dst_step, 2), _mm_srli_si128(out, 8));
    store_row(at(dst, dst_step, 3), _mm_srli_si128(out, 12));
}

// Forward transform of the packed block; rows come back as [o0|o1], [o2|o3].
// The transform has no halving, so it is a product of integer matrices taken
// modulo 2^16 and the two passes can run in either order with the same
// result: the column pass runs first, on the rows as loaded, which saves the
// first transpose.
inline void forward_rows(const int16_t* blk, __m128i& o01, __m128i& o23) {
    __m128i x0 = load4x16(blk), x1 = load4x16(blk + 4), x2 = load4x16(blk + 8), x3 = load4x16(blk + 12);
    fwd_pass(x0, x1, x2, x3);  // columns: lane c of x_k is element (k, c)
    const __m128i t0 = _mm_unpacklo_epi16(x0, x1), t1 = _mm_unpacklo_epi16(x2, x3);
    const __m128i c01 = _mm_unpacklo_epi32(t0, t1), c23 = _mm_unpackhi_epi32(t0, t1);  // columns 0|1, 2|3
    x0 = c01;
    x1 = _mm_unpackhi_epi64(c01, c01);
    x2 = c23;
    x3 = _mm_unpackhi_epi64(c23, c23);
    fwd_pass(x0, x1, x2, x3);  // rows: lane r of x_k is element (r, k)
    const __m128i u0 = _mm_unpacklo_epi16(x0, x1), u1 = _mm_unpacklo_epi16(x2, x3);
    o01 = _mm_unpacklo_epi32(u0, u1);
    o23 = _mm_unpackhi_epi32(u0, u1);
}

void forward4x4(int16_t* blk) {
    __m128i o01, o23;
    forward_rows(blk, o01, o23);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(blk), o01);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(blk + 8), o23);
}

// Levels of eight coefficients: sign-restored sat16((|c| * mf + round) >> shift).
// |c| is taken as an unsigned 16-bit value (|-32768| = 0x8000), mf < 2^14, so
// pmulhuw/pmullw give the exact 30-bit product; + round < 2^23 stays positive.
inline __m128i quant8(__m128i c, __m128i mf, __m128i round, __m128i shift, __m128i& mag) {
    const __m128i sgn = _mm_srai_epi16(c, 15);
    const __m128i a = _mm_sub_epi16(_mm_xor_si128(c, sgn), sgn);
    const __m128i plo = _mm_mullo_epi16(a, mf), phi = _mm_mulhi_epu16(a, mf);
    const __m128i lo = _mm_sra_epi32(_mm_add_epi32(_mm_unpacklo_epi16(plo, phi), round), shift);
    const __m128i hi = _mm_sra_epi32(_mm_add_epi32(_mm_unpackhi_epi16(plo, phi), round), shift);
    mag = _mm_packs_epi32(lo, hi);
    return _mm_sub_epi16(_mm_xor_si128(mag, sgn), sgn);
}

// Stores the sixteen levels, then the signed count and the largest scan
// entry among the non-zero levels (the others become -32768).
inline int32_t store_levels(int16_t* dst, __m128i l01, __m128i l23, const int16_t* scan, uint8_t* count,
                            uint8_t* last) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), l01);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8), l23);
    const __m128i zero = _mm_setzero_si128();
    const __m128i z01 = _mm_cmpeq_epi16(l01, zero), z23 = _mm_cmpeq_epi16(l23, zero);
    const unsigned nz = ~static_cast<unsigned>(_mm_movemask_epi8(_mm_packs_epi16(z01, z23))) & 0xFFFFu;
    if (nz == 0) {
        *count = 0;
        *last = 0;
        return kplStsNoErr;
    }
    const int n = __builtin_popcount(nz);
    *count = static_cast<uint8_t>((nz & 1u) != 0 ? -n : n);
    const __m128i floor = _mm_set1_epi16(-32768);
    const __m128i s01 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(scan));
    const __m128i s23 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(scan + 8));
    __m128i m = _mm_max_epi16(_mm_or_si128(_mm_andnot_si128(z01, s01), _mm_and_si128(z01, floor)),
                              _mm_or_si128(_mm_andnot_si128(z23, s23), _mm_and_si128(z23, floor)));
    m = _mm_max_epi16(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(1, 0, 3, 2)));
    m = _mm_max_epi16(m, _mm_shuffle_epi32(m, _MM_SHUFFLE(2, 3, 0, 1)));
    m = _mm_max_epi16(m, _mm_srli_epi32(m, 16));
    *last = static_cast<uint8_t>(_mm_cvtsi128_si32(m) & 0x7F);
    return kplStsNoErr;
}

[[maybe_unused]] int32_t transform_quant_residual(int16_t* blk, const int16_t* mf, Rounding rs,
                                                  const int16_t* scan, uint8_t* count, uint8_t* last) {
    const int32_t round = rs.round, shift = rs.shift;
    __m128i c01, c23;
    forward_rows(blk, c01, c23);
    const __m128i rnd = _mm_set1_epi32(round), sh = _mm_cvtsi32_si128(shift);
    __m128i m01, m23;
    const __m128i l01 = quant8(c01, _mm_loadu_si128(reinterpret_cast<const __m128i*>(mf)), rnd, sh, m01);
    const __m128i l23 = quant8(c23, _mm_loadu_si128(reinterpret_cast<const __m128i*>(mf + 8)), rnd, sh, m23);
    const __m128i lim = _mm_set1_epi16(2063);
    const int over = _mm_movemask_epi8(_mm_packs_epi16(_mm_cmpgt_epi16(m01, lim), _mm_cmpgt_epi16(m23, lim)));
    if (over != 0) {
        // Rows before the first failing one take levels, the rest keep the
        // transform coefficients.
        alignas(16) int16_t lv[16];
        _mm_store_si128(reinterpret_cast<__m128i*>(lv), l01);
        _mm_store_si128(reinterpret_cast<__m128i*>(lv + 8), l23);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(blk), c01);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(blk + 8), c23);
        const int row = __builtin_ctz(static_cast<unsigned>(over)) / 4;
        std::memcpy(blk, lv, static_cast<size_t>(row) * 8);
        return kplStsLevelRangeErr;
    }
    return store_levels(blk, l01, l23, scan, count, last);
}

// Hadamard butterfly on four lines at once: (a+c, a-c, b-d, b+d) with
// a = x0+x1, b = x0-x1, c = x2+x3, d = x2-x3.
inline void had_pass(__m128i& x0, __m128i& x1, __m128i& x2, __m128i& x3) {
    const __m128i a = _mm_add_epi16(x0, x1), b = _mm_sub_epi16(x0, x1);
    const __m128i c = _mm_add_epi16(x2, x3), d = _mm_sub_epi16(x2, x3);
    x0 = _mm_add_epi16(a, c);
    x1 = _mm_sub_epi16(a, c);
    x2 = _mm_sub_epi16(b, d);
    x3 = _mm_add_epi16(b, d);
}

[[maybe_unused]] void dequant_luma_dc(int16_t* b, int32_t m, int32_t r, int32_t s) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b));
    const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + 8));
    __m128i r0 = a, r1 = _mm_unpackhi_epi64(a, a), r2 = c, r3 = _mm_unpackhi_epi64(c, c);
    had_pass(r0, r1, r2, r3);  // columns
    transpose4(r0, r1, r2, r3);
    had_pass(r0, r1, r2, r3);  // rows
    transpose4(r0, r1, r2, r3);
    // y * m as 32-bit products (m < 2^10), + r, >> s, then the low 16 bits
    // (shift up and back down so that the signed pack cannot saturate).
    const __m128i mv = _mm_set1_epi16(static_cast<int16_t>(m)), rv = _mm_set1_epi32(r),
                  sh = _mm_cvtsi32_si128(s);
    const __m128i y[2] = {_mm_unpacklo_epi64(r0, r1), _mm_unpacklo_epi64(r2, r3)};
    for (int i = 0; i < 2; ++i) {
        const __m128i lo = _mm_mullo_epi16(y[i], mv), hi = _mm_mulhi_epi16(y[i], mv);
        __m128i p0 = _mm_sra_epi32(_mm_add_epi32(_mm_unpacklo_epi16(lo, hi), rv), sh);
        __m128i p1 = _mm_sra_epi32(_mm_add_epi32(_mm_unpackhi_epi16(lo, hi), rv), sh);
        p0 = _mm_srai_epi32(_mm_slli_epi32(p0, 16), 16);
        p1 = _mm_srai_epi32(_mm_slli_epi32(p1, 16), 16);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(b + 8 * i), _mm_packs_epi32(p0, p1));
    }
}

[[maybe_unused]] int32_t transform_quant_luma_dc(int16_t* src, int16_t* tblock, bool transform, int32_t mf,
                                                 int32_t round, int32_t shift, const int16_t* scan,
                                                 uint8_t* count, uint8_t* last) {
    __m128i t01, t23;
    if (transform) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + 8));
        __m128i r0 = a, r1 = _mm_unpackhi_epi64(a, a), r2 = b, r3 = _mm_unpackhi_epi64(b, b);
        had_pass(r0, r1, r2, r3);  // columns: lane c of row k is element (k, c)
        transpose4(r0, r1, r2, r3);
        had_pass(r0, r1, r2, r3);  // rows
        transpose4(r0, r1, r2, r3);
        t01 = _mm_srai_epi16(_mm_unpacklo_epi64(r0, r1), 1);
        t23 = _mm_srai_epi16(_mm_unpacklo_epi64(r2, r3), 1);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(tblock), t01);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(tblock + 8), t23);
    } else {
        t01 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(tblock));
        t23 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(tblock + 8));
    }
    // mf < 2^14, |t| <= 32768, round < 2^23: the same exact products as the
    // residual quantiser.
    const __m128i m = _mm_set1_epi16(static_cast<int16_t>(mf));
    const __m128i rnd = _mm_set1_epi32(round), sh = _mm_cvtsi32_si128(shift);
    __m128i m01, m23;
    const __m128i l01 = quant8(t01, m, rnd, sh, m01);
    const __m128i l23 = quant8(t23, m, rnd, sh, m23);
    const __m128i lim = _mm_set1_epi16(2063);
    const int over = _mm_movemask_epi8(_mm_packs_epi16(_mm_cmpgt_epi16(m01, lim), _mm_cmpgt_epi16(m23, lim)));
    if (over != 0) {
        // Rows before the first failing one take levels; the rest of src is
        // left as it was.
        alignas(16) int16_t lv[16];
        _mm_store_si128(reinterpret_cast<__m128i*>(lv), l01);
        _mm_store_si128(reinterpret_cast<__m128i*>(lv + 8), l23);
        const int row = __builtin_ctz(static_cast<unsigned>(over)) / 4;
        std::memcpy(src, lv, static_cast<size_t>(row) * 8);
        return kplStsLevelRangeErr;
    }
    return store_levels(src, l01, l23, scan, count, last);
}

int32_t transform_quant_chroma_dc(int16_t* src, int16_t* tblock, bool transform, int32_t mf, int32_t round,
                                  int32_t shift, uint8_t* count) {
    __m128i t;
    if (transform) {
        const __m128i v = load4x16(src);                                    // c0 c1 c2 c3
        const __m128i p = _mm_shufflelo_epi16(v, _MM_SHUFFLE(2, 3, 0, 1));  // c1 c0 c3 c2
        const __m128i pairs = _mm_unpacklo_epi16(_mm_add_epi16(v, p), _mm_sub_epi16(v, p));
        const __m128i u = _mm_shuffle_epi32(pairs, _MM_SHUFFLE(3, 1, 2, 0));  // a b d e (a = c0+c1, ...)
        const __m128i w = _mm_shufflelo_epi16(u, _MM_SHUFFLE(1, 0, 3, 2));    // d e a b
        t = _mm_unpacklo_epi32(_mm_add_epi16(u, w), _mm_sub_epi16(u, w));     // a+d b+e a-d b-e
        store4x16(tblock, t);
    } else {
        t = load4x16(tblock);
    }
    __m128i mag;
    const __m128i lv = quant8(t, _mm_set1_epi16(static_cast<int16_t>(mf)), _mm_set1_epi32(round),
                              _mm_cvtsi32_si128(shift), mag);
    store4x16(src, lv);
    const int over = _mm_movemask_epi8(_mm_cmpgt_epi16(mag, _mm_set1_epi16(2063))) & 0xFF;
    const unsigned nz =
        ~static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi16(lv, _mm_setzero_si128()))) & 0xFFu;
    const int n = __builtin_popcount(nz) / 2;
    *count = static_cast<uint8_t>((nz & 1u) != 0 ? -n : n);
    return over != 0 ? kplStsLevelRangeErr : kplStsNoErr;
}
