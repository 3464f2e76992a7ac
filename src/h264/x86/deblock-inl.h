// deblock-inl.h: the H.264 deblocking kernels of the x86 files, written once
// for every ISA level.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::h264::x86::<isa>), after that file's
// intrinsics header, core/arith.h and core/x86/transpose-inl.h. It includes
// nothing, so each including file compiles its own internal copy with its
// own flags. Needs: SSE2. The kernels are templates on the file's hooks H:
//   H::blend8(mask, a, b)     bytes of a where the byte mask is set, else b;
//   H::luma_strong_edge(c, bs, alpha, beta)
//                             the strong luma filter on lines c[0..7] =
//                             p3..q3 (rewriting c[1..6]), built from
//                             luma_strong16<O> with the file's 16-bit lane
//                             ops O (vector type V and add, sub, sra<n>,
//                             max, lt, and_, andnot, sel, set1, zero).
// A file instantiates only the kernels it installs.
//
// The normal (luma and chroma) and the chroma strong filters run on 16
// unsigned bytes, one line per byte lane, with no widening: every quantity is
// either kept in an offset form that fits a byte or split into its positive
// and negative parts. The luma strong filter, whose 5- and 8-weight sums have
// no such form, runs in 16-bit lanes.
//
// Ranges: samples 0..255; the 16-bit sums of the strong filter are at most
// 8 * 255 + 4. Loads, transposes and parameter set-up use 128-bit SSE2
// operations only.
#pragma once

// ---- Byte lanes ------------------------------------------------------------------

inline __m128i absd8(__m128i a, __m128i b) { return _mm_or_si128(_mm_subs_epu8(a, b), _mm_subs_epu8(b, a)); }

// floor((a + b) / 2): pavgb rounds up, so take back the carried-in half.
inline __m128i avg_down8(__m128i a, __m128i b) {
    return _mm_sub_epi8(_mm_avg_epu8(a, b), _mm_and_si128(_mm_xor_si128(a, b), _mm_set1_epi8(1)));
}

// The step d = floor((4 (q0 - p0) + (p1 - q1) + 4) / 8) as pos = max(d, 0)
// and neg = max(-d, 0).
//
// With D = q0 - p0 and E = p1 - q1, d = floor((D + 1 + floor(E / 4)) / 2);
// splitting D = 2 floor(D / 2) + b (b its parity bit) gives
//   d = floor(D / 2) + floor((b + 1 + floor(E / 4)) / 2).
// Here  a = pavgb(q0, 255 - p0)            = 128 + floor(D / 2)
//       m = pavgb(p1, 255 - q1) >> 1        = 64 + floor(E / 4)   (0..127)
//       c = 160 - pavgb(m, b)               = 128 - floor((b + 1 + floor(E / 4)) / 2)
// so d = a - c with a in 0..255 and c in 96..160: |d| <= 160, and the two
// saturating differences a - c and c - a are exactly pos and neg.
KPLVC_INLINE void step_parts8(__m128i p1, __m128i p0, __m128i q0, __m128i q1, __m128i& pos, __m128i& neg) {
    const __m128i ff = _mm_set1_epi8(-1);
    const __m128i a = _mm_avg_epu8(q0, _mm_xor_si128(p0, ff));
    const __m128i m =
        _mm_and_si128(_mm_srli_epi16(_mm_avg_epu8(p1, _mm_xor_si128(q1, ff)), 1), _mm_set1_epi8(0x7f));
    const __m128i b = _mm_and_si128(_mm_xor_si128(p0, q0), _mm_set1_epi8(1));
    const __m128i c = _mm_sub_epi8(_mm_set1_epi8(static_cast<char>(160)), _mm_avg_epu8(m, b));
    pos = _mm_subs_epu8(a, c);
    neg = _mm_subs_epu8(c, a);
}

// Lanes that fail the activity test or have strength 0, as an all-ones mask:
// x < t exactly when the saturating t - x is non-zero, and a zero strength
// byte zeroes the minimum too.
KPLVC_INLINE __m128i idle8(__m128i p1, __m128i p0, __m128i q0, __m128i q1, __m128i alpha, __m128i beta,
                           __m128i bs) {
    const __m128i side = _mm_max_epu8(absd8(p1, p0), absd8(q1, q0));
    const __m128i room =
        _mm_min_epu8(_mm_min_epu8(_mm_subs_epu8(alpha, absd8(p0, q0)), _mm_subs_epu8(beta, side)), bs);
    return _mm_cmpeq_epi8(room, _mm_setzero_si128());
}

// Per-edge parameters, one byte per line.
struct EdgeBytes {
    __m128i alpha, beta, bs;
    __m128i tc0;    // the caller's tc0 (clamps p1 and q1, whose change is up to 255)
    __m128i tc_lo;  // min(tc0, 160) + 2 (luma) or + 1 (chroma): the step never
                    // exceeds 160, so the cap changes no clip and the sum fits
};

// Normal luma filter on lines l[0..7] = p3..q3 (p2..q2 are rewritten).
KPLVC_INLINE void luma_normal8(__m128i* l, const EdgeBytes& k) {
    const __m128i p2 = l[1], p1 = l[2], p0 = l[3], q0 = l[4], q1 = l[5], q2 = l[6];
    const __m128i z = _mm_setzero_si128();
    const __m128i idle = idle8(p1, p0, q0, q1, k.alpha, k.beta, k.bs);
    // -1 where the p2 (q2) side is not flat: tc = tc0 + 2 - (not flat) ...
    const __m128i rough_p = _mm_cmpeq_epi8(_mm_subs_epu8(k.beta, absd8(p2, p0)), z);
    const __m128i rough_q = _mm_cmpeq_epi8(_mm_subs_epu8(k.beta, absd8(q2, q0)), z);
    const __m128i tc = _mm_andnot_si128(idle, _mm_add_epi8(_mm_add_epi8(k.tc_lo, rough_p), rough_q));
    __m128i pos, neg;
    step_parts8(p1, p0, q0, q1, pos, neg);
    pos = _mm_min_epu8(pos, tc);
    neg = _mm_min_epu8(neg, tc);
    l[3] = _mm_subs_epu8(_mm_adds_epu8(p0, pos), neg);
    l[4] = _mm_adds_epu8(_mm_subs_epu8(q0, pos), neg);
    // p1 + clip(+-tc0, (p2 + avg - 2 p1) >> 1) = clip(p1 - tc0, p1 + tc0, floor((p2 + avg) / 2)):
    // the target is 0..255, so saturating bounds clip the same way.
    const __m128i avg = _mm_avg_epu8(p0, q0);
    const __m128i tp = _mm_andnot_si128(_mm_or_si128(idle, rough_p), k.tc0);
    const __m128i tq = _mm_andnot_si128(_mm_or_si128(idle, rough_q), k.tc0);
    l[2] = _mm_min_epu8(_mm_max_epu8(avg_down8(p2, avg), _mm_subs_epu8(p1, tp)), _mm_adds_epu8(p1, tp));
    l[5] = _mm_min_epu8(_mm_max_epu8(avg_down8(q2, avg), _mm_subs_epu8(q1, tq)), _mm_adds_epu8(q1, tq));
}

// Chroma on lines p1, p0, q0, q1 (p0 and q0 are rewritten). With Strong,
// the lanes marked in `strong` take the strong filter
// (p0 = (2 p1 + p0 + q1 + 2) >> 2, a 3-tap mean computed exactly as
// pavgb(p1, floor((p0 + q1) / 2))); without, no lane does.
template <class H, bool Strong>
KPLVC_INLINE void chroma8(__m128i p1, __m128i& p0, __m128i& q0, __m128i q1, const EdgeBytes& k,
                          __m128i strong) {
    // The alpha and strength terms are ready before the beta one: fold them first.
    const __m128i side = _mm_max_epu8(absd8(p1, p0), absd8(q1, q0));
    const __m128i room =
        _mm_min_epu8(_mm_min_epu8(_mm_subs_epu8(k.alpha, absd8(p0, q0)), k.bs), _mm_subs_epu8(k.beta, side));
    const __m128i idle = _mm_cmpeq_epi8(room, _mm_setzero_si128());
    // Strong lanes start from their strong value and get no step: their tc is
    // cleared at set-up, and blending the start values runs beside the step
    // arithmetic instead of after it.
    const __m128i tc = _mm_andnot_si128(idle, Strong ? _mm_andnot_si128(strong, k.tc_lo) : k.tc_lo);
    __m128i base_p = p0, base_q = q0;
    if constexpr (Strong) {
        const __m128i st = _mm_andnot_si128(idle, strong);
        base_p = H::blend8(st, _mm_avg_epu8(p1, avg_down8(p0, q1)), p0);
        base_q = H::blend8(st, _mm_avg_epu8(q1, avg_down8(q0, p1)), q0);
    }
    __m128i pos, neg;
    step_parts8(p1, p0, q0, q1, pos, neg);
    pos = _mm_min_epu8(pos, tc);
    neg = _mm_min_epu8(neg, tc);
    p0 = _mm_subs_epu8(_mm_adds_epu8(base_p, pos), neg);
    q0 = _mm_adds_epu8(_mm_subs_epu8(base_q, pos), neg);
}

// ---- 16-bit lanes: the luma strong filter ----------------------------------------
//
// Ranges: samples 0..255, the sums at most 8 * 255 + 4: far inside 16 bits.

template <class O>
struct LumaLines {
    typename O::V p3, p2, p1, p0, q0, q1, q2, q3;
};

template <class O>
inline typename O::V absd16(typename O::V a, typename O::V b) {
    const auto d = O::sub(a, b);
    return O::max(d, O::sub(O::zero(), d));
}

// `on`: lanes with a non-zero strength. alpha, beta: the edge's thresholds.
template <class O>
inline void luma_strong16(LumaLines<O>& l, typename O::V on, int alpha_i, int beta_i) {
    using V = typename O::V;
    const V p3 = l.p3, p2 = l.p2, p1 = l.p1, p0 = l.p0, q0 = l.q0, q1 = l.q1, q2 = l.q2, q3 = l.q3;
    const V alpha = O::set1(alpha_i), beta = O::set1(beta_i);
    const V apq = absd16<O>(p0, q0);
    const V act = O::and_(O::and_(on, O::lt(apq, alpha)),
                          O::and_(O::lt(absd16<O>(p1, p0), beta), O::lt(absd16<O>(q1, q0), beta)));
    const V near = O::lt(apq, O::set1((alpha_i >> 2) + 2));
    const V sp = O::and_(O::and_(O::lt(absd16<O>(p2, p0), beta), near), act);
    const V sq = O::and_(O::and_(O::lt(absd16<O>(q2, q0), beta), near), act);
    const V wp = O::andnot(sp, act), wq = O::andnot(sq, act);
    // The sums share their parts: with t = p1 + p0 + q0 and s = p2 + t,
    //   p0' = (s + t + q1 + 4) >> 3,  p1' = (s + 2) >> 2,
    //   p2' = (2 (p3 + p2) + s + 4) >> 3,  and the weak p0' = (p1 + q1 + 2 + p1 + p0) >> 2.
    const V two = O::set1(2), four = O::set1(4);
    const V p0q0 = O::add(p0, q0), u = O::add(O::add(p1, q1), two);
    const V tp = O::add(p1, p0q0), tq = O::add(q1, p0q0);
    const V sp_ = O::add(p2, tp), sq_ = O::add(q2, tq);
    const V sp0 = O::template sra<3>(O::add(O::add(sp_, tp), O::add(q1, four)));
    const V sp1 = O::template sra<2>(O::add(sp_, two));
    const V p32 = O::add(p3, p2);
    const V sp2 = O::template sra<3>(O::add(O::add(p32, p32), O::add(sp_, four)));
    const V wp0 = O::template sra<2>(O::add(u, O::add(p1, p0)));
    const V sq0 = O::template sra<3>(O::add(O::add(sq_, tq), O::add(p1, four)));
    const V sq1 = O::template sra<2>(O::add(sq_, two));
    const V q32 = O::add(q3, q2);
    const V sq2 = O::template sra<3>(O::add(O::add(q32, q32), O::add(sq_, four)));
    const V wq0 = O::template sra<2>(O::add(u, O::add(q1, q0)));
    l.p0 = O::sel(sp, sp0, O::sel(wp, wp0, p0));
    l.p1 = O::sel(sp, sp1, p1);
    l.p2 = O::sel(sp, sp2, p2);
    l.q0 = O::sel(sq, sq0, O::sel(wq, wq0, q0));
    l.q1 = O::sel(sq, sq1, q1);
    l.q2 = O::sel(sq, sq2, q2);
}

// ---- Loads, transposes, parameter set-up and edge order ---------------------------

inline __m128i loadu(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void storeu(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
inline __m128i load8b(const uint8_t* p) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)); }
inline void store8b(uint8_t* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
inline __m128i load4b(const uint8_t* p) { return _mm_cvtsi32_si128(static_cast<int>(load32u(p))); }

// The thresholds as byte vectors: alpha[0], alpha[1], beta[0], beta[1] each
// broadcast to four dwords of one register: 7 operations instead of four
// byte broadcasts per edge.
inline void thresholds(const uint8_t* alpha, const uint8_t* beta, __m128i* out) {
    const uint32_t w =
        uint32_t{alpha[0]} | uint32_t{alpha[1]} << 8 | uint32_t{beta[0]} << 16 | uint32_t{beta[1]} << 24;
    __m128i x = _mm_cvtsi32_si128(static_cast<int>(w));
    x = _mm_unpacklo_epi8(x, x);
    x = _mm_unpacklo_epi16(x, x);  // [a0 x4, a1 x4, b0 x4, b1 x4]
    out[0] = _mm_shuffle_epi32(x, 0x00);
    out[1] = _mm_shuffle_epi32(x, 0x55);
    out[2] = _mm_shuffle_epi32(x, 0xAA);
    out[3] = _mm_shuffle_epi32(x, 0xFF);
}

// Sixteen bytes b0..b15 as four registers: b[4e..4e+3] each repeated 4 times.
inline void spread16(__m128i v, __m128i* out) {
    const __m128i lo = _mm_unpacklo_epi8(v, v), hi = _mm_unpackhi_epi8(v, v);
    out[0] = _mm_unpacklo_epi16(lo, lo);
    out[1] = _mm_unpackhi_epi16(lo, lo);
    out[2] = _mm_unpacklo_epi16(hi, hi);
    out[3] = _mm_unpackhi_epi16(hi, hi);
}

// Runs the four edges over lines c[0..19] (line i is at offset i - 4). The
// per-line parameters of all four edges are set up together, and the code is
// straight: an edge whose strengths are all zero filters no lane, and edge 0
// is left out at compile time when it is off (E0) or strong (Strong0), so the
// lines can stay in registers from edge to edge.
template <class H, bool E0, bool Strong0>
KPLVC_INLINE void luma_edges(__m128i* c, const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
                             const uint8_t* bs) {
    __m128i th[4], s[4], t[4], tl[4];
    thresholds(alpha, beta, th);
    const __m128i tc16 = loadu(tc0);
    spread16(loadu(bs), s);
    spread16(tc16, t);
    spread16(_mm_add_epi8(_mm_min_epu8(tc16, _mm_set1_epi8(static_cast<char>(160))), _mm_set1_epi8(2)), tl);
    if constexpr (Strong0)
        H::luma_strong_edge(c, s[0], alpha[0], beta[0]);
    else if constexpr (E0)
        luma_normal8(c, EdgeBytes{th[0], th[2], s[0], t[0], tl[0]});
    for (int e = 1; e < 4; ++e) luma_normal8(c + 4 * e, EdgeBytes{th[1], th[3], s[e], t[e], tl[e]});
}

// Rows above the block are read and written only when edge 0 is filtered.
template <class H, bool E0, bool Strong0>
KPLVC_INLINE void luma_hor_t(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta,
                             const uint8_t* tc0, const uint8_t* bs) {
    __m128i c[20];
    for (int i = 0; i < 4; ++i) c[i] = E0 ? loadu(row_at(p, step, i - 4)) : _mm_setzero_si128();
    for (int y = 0; y < 16; ++y) c[4 + y] = loadu(row_at(p, step, y));
    luma_edges<H, E0, Strong0>(c, alpha, beta, tc0, bs);
    if (E0)
        for (int i = 1; i < 4; ++i) storeu(row_at(p, step, i - 4), c[i]);
    for (int y = 0; y < 15; ++y) storeu(row_at(p, step, y), c[4 + y]);
}

template <class H>
void luma_hor(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
              const uint8_t* bs) {
    if (bs[0] == 4)
        luma_hor_t<H, true, true>(p, step, alpha, beta, tc0, bs);
    else if (load32u(bs) != 0)
        luma_hor_t<H, true, false>(p, step, alpha, beta, tc0, bs);
    else
        luma_hor_t<H, false, false>(p, step, alpha, beta, tc0, bs);
}

// 16x16 byte transpose: four rounds of the same interleave. Each round maps
// (vector bits v3..v0, byte bits b3..b0) to (v2 v1 v0 b3, b2 b1 b0 v3), a
// rotation of the 8-bit index; four rotations swap vector and byte index.
KPLVC_INLINE void transpose16(__m128i* r) {
    for (int round = 0; round < 4; ++round) {
        __m128i t[16];
        for (int i = 0; i < 8; ++i) {
            t[2 * i] = _mm_unpacklo_epi8(r[i], r[i + 8]);
            t[2 * i + 1] = _mm_unpackhi_epi8(r[i], r[i + 8]);
        }
        for (int i = 0; i < 16; ++i) r[i] = t[i];
    }
}

// The 16 rows at p (16 bytes each) as 16 column registers, and back.
KPLVC_INLINE void load_columns16(const uint8_t* p, int32_t step, __m128i* col) {
    for (int y = 0; y < 16; ++y) col[y] = loadu(row_at(p, step, y));
    transpose16(col);
}
KPLVC_INLINE void store_columns16(uint8_t* p, int32_t step, __m128i* col) {
    transpose16(col);
    for (int y = 0; y < 16; ++y) storeu(row_at(p, step, y), col[y]);
}

// A 4x4 byte matrix in one dword group, row-major in, column-major out (and
// back: the transpose is its own inverse).
inline __m128i transpose4x4_in_dwords(__m128i w) {
    const __m128i a = _mm_unpacklo_epi8(w, _mm_srli_si128(w, 8));
    return _mm_unpacklo_epi8(a, _mm_srli_si128(a, 8));
}

// Four dwords, one from each of rows y0..y0+3 at p + x.
inline __m128i gather4(const uint8_t* p, int32_t step, int y0, int x) {
    const __m128i a =
        _mm_unpacklo_epi32(load4b(row_at(p, step, y0) + x), load4b(row_at(p, step, y0 + 1) + x));
    const __m128i b =
        _mm_unpacklo_epi32(load4b(row_at(p, step, y0 + 2) + x), load4b(row_at(p, step, y0 + 3) + x));
    return _mm_unpacklo_epi64(a, b);
}
inline void scatter4(uint8_t* p, int32_t step, int y0, int x, __m128i w) {
    store32u(row_at(p, step, y0) + x, static_cast<uint32_t>(_mm_cvtsi128_si32(w)));
    store32u(row_at(p, step, y0 + 1) + x, static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(w, 4))));
    store32u(row_at(p, step, y0 + 2) + x, static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(w, 8))));
    store32u(row_at(p, step, y0 + 3) + x, static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(w, 12))));
}

// The 4 columns x = -4..-1 of 16 rows, as 4 column registers, and back.
KPLVC_INLINE void load_left4(const uint8_t* p, int32_t step, __m128i* col) {
    __m128i g[4];
    for (int k = 0; k < 4; ++k) g[k] = transpose4x4_in_dwords(gather4(p, step, 4 * k, -4));
    transpose4x32(g[0], g[1], g[2], g[3]);
    for (int k = 0; k < 4; ++k) col[k] = g[k];
}

KPLVC_INLINE void store_left4(uint8_t* p, int32_t step, const __m128i* col) {
    __m128i g[4] = {col[0], col[1], col[2], col[3]};
    transpose4x32(g[0], g[1], g[2], g[3]);
    for (int k = 0; k < 4; ++k) scatter4(p, step, 4 * k, -4, transpose4x4_in_dwords(g[k]));
}

template <class H, bool E0, bool Strong0>
KPLVC_INLINE void luma_ver_t(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta,
                             const uint8_t* tc0, const uint8_t* bs) {
    __m128i c[20];
    // Columns left of the block are read only when edge 0 is filtered.
    if (E0)
        load_left4(p, step, c);
    else
        c[0] = c[1] = c[2] = c[3] = _mm_setzero_si128();
    load_columns16(p, step, c + 4);
    luma_edges<H, E0, Strong0>(c, alpha, beta, tc0, bs);
    store_columns16(p, step, c + 4);
    if (E0) store_left4(p, step, c);
}

template <class H>
void luma_ver(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
              const uint8_t* bs) {
    if (bs[0] == 4)
        luma_ver_t<H, true, true>(p, step, alpha, beta, tc0, bs);
    else if (load32u(bs) != 0)
        luma_ver_t<H, true, false>(p, step, alpha, beta, tc0, bs);
    else
        luma_ver_t<H, false, false>(p, step, alpha, beta, tc0, bs);
}

// Chroma: both edges at once, edge 0 in byte lanes 0..7 and edge 1 in lanes
// 8..15. The two edges share no sample (edge 0 changes lines -1 and 0, edge 1
// reads lines 2..5), so one pass equals the two in order. Strength and tc0
// per line pair: [bs0..3 | bs8..11] and tc0[0..7], each byte doubled.
template <class H>
KPLVC_INLINE void chroma_both(__m128i p1, __m128i& p0, __m128i& q0, __m128i q1, const uint8_t* alpha,
                              const uint8_t* beta, const uint8_t* tc0, const uint8_t* bs) {
    EdgeBytes k;
    const __m128i s4 = _mm_unpacklo_epi32(load4b(bs), load4b(bs + 8));
    const __m128i t8 = load8b(tc0);
    k.bs = _mm_unpacklo_epi8(s4, s4);
    k.tc0 = _mm_unpacklo_epi8(t8, t8);
    k.tc_lo = _mm_add_epi8(_mm_min_epu8(k.tc0, _mm_set1_epi8(static_cast<char>(160))), _mm_set1_epi8(1));
    __m128i th[4];
    thresholds(alpha, beta, th);
    k.alpha = _mm_unpacklo_epi64(th[0], th[1]);
    k.beta = _mm_unpacklo_epi64(th[2], th[3]);
    if (bs[0] == 4)
        chroma8<H, true>(p1, p0, q0, q1, k, _mm_setr_epi32(-1, -1, 0, 0));
    else
        chroma8<H, false>(p1, p0, q0, q1, k, _mm_setzero_si128());
}

// Lines p1..q1 of edge 0 are rows -2..1, of edge 1 rows 2..5; without edge 0
// the rows above the block are not touched.
template <class H, bool E0>
KPLVC_INLINE void chroma_hor_t(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta,
                               const uint8_t* tc0, const uint8_t* bs) {
    auto line = [&](int i) {
        const __m128i a = E0 ? load8b(row_at(p, step, i - 2)) : _mm_setzero_si128();
        return _mm_unpacklo_epi64(a, load8b(row_at(p, step, i + 2)));
    };
    const __m128i p1 = line(0), q1 = line(3);
    __m128i p0 = line(1), q0 = line(2);
    chroma_both<H>(p1, p0, q0, q1, alpha, beta, tc0, bs);
    if (E0) {
        store8b(row_at(p, step, -1), p0);
        store8b(row_at(p, step, 0), q0);
    }
    store8b(row_at(p, step, 3), _mm_unpackhi_epi64(p0, p0));
    store8b(row_at(p, step, 4), _mm_unpackhi_epi64(q0, q0));
}

template <class H>
void chroma_hor(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
                const uint8_t* bs) {
    if (load32u(bs) != 0)
        chroma_hor_t<H, true>(p, step, alpha, beta, tc0, bs);
    else if (load32u(bs + 8) != 0)
        chroma_hor_t<H, false>(p, step, alpha, beta, tc0, bs);
}

// Vertical chroma edges: each row's bytes x = -2..5 hold p1..q1 of edge 0
// (x = -2..1) and of edge 1 (x = 2..5). An 8x8 byte transpose of the 8 rows
// makes column j of rows 0..7 in byte lanes 0..7 and column j + 4 in lanes
// 8..15: exactly the layout of chroma_both. Without edge 0, the columns left
// of the block are not touched: rows are loaded from x = 0 and shifted up by
// two bytes so that byte j still holds x = j - 2 (bytes 0 and 1 are zero).
template <class H, bool E0>
KPLVC_INLINE void chroma_ver_t(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta,
                               const uint8_t* tc0, const uint8_t* bs) {
    auto row = [&](int y) {
        return E0 ? load8b(row_at(p, step, y) - 2) : _mm_slli_epi64(load8b(row_at(p, step, y)), 16);
    };
    // Round 1: bytes of row pairs; round 2: 16-bit pairs of pair pairs; round
    // 3: dwords, giving [col j rows 0..7 | col j+1 rows 0..7].
    const __m128i a0 = _mm_unpacklo_epi8(row(0), row(1)), a1 = _mm_unpacklo_epi8(row(2), row(3));
    const __m128i a2 = _mm_unpacklo_epi8(row(4), row(5)), a3 = _mm_unpacklo_epi8(row(6), row(7));
    const __m128i b0 = _mm_unpacklo_epi16(a0, a1);  // cols 0..3, rows 0..3
    const __m128i b1 = _mm_unpackhi_epi16(a0, a1);  // cols 4..7, rows 0..3
    const __m128i b2 = _mm_unpacklo_epi16(a2, a3);  // cols 0..3, rows 4..7
    const __m128i b3 = _mm_unpackhi_epi16(a2, a3);  // cols 4..7, rows 4..7
    const __m128i c01 = _mm_unpacklo_epi32(b0, b2), c23 = _mm_unpackhi_epi32(b0, b2);
    const __m128i c45 = _mm_unpacklo_epi32(b1, b3), c67 = _mm_unpackhi_epi32(b1, b3);
    const __m128i p1 = _mm_unpacklo_epi64(c01, c45), q1 = _mm_unpackhi_epi64(c23, c67);
    __m128i p0 = _mm_unpackhi_epi64(c01, c45), q0 = _mm_unpacklo_epi64(c23, c67);
    chroma_both<H>(p1, p0, q0, q1, alpha, beta, tc0, bs);
    // Back: the same three rounds undo it (lines are [col j | col j+4]).
    const __m128i d0 = _mm_unpacklo_epi8(p1, p0);  // rows 0..7 of cols 0,1
    const __m128i d1 = _mm_unpacklo_epi8(q0, q1);  // cols 2,3
    const __m128i d2 = _mm_unpackhi_epi8(p1, p0);  // cols 4,5
    const __m128i d3 = _mm_unpackhi_epi8(q0, q1);  // cols 6,7
    const __m128i e0l = _mm_unpacklo_epi16(d0, d1),
                  e0h = _mm_unpackhi_epi16(d0, d1);  // rows 0..3 / 4..7, cols 0..3
    const __m128i e1l = _mm_unpacklo_epi16(d2, d3), e1h = _mm_unpackhi_epi16(d2, d3);  // cols 4..7
    const __m128i w[4] = {_mm_unpacklo_epi32(e0l, e1l), _mm_unpackhi_epi32(e0l, e1l),
                          _mm_unpacklo_epi32(e0h, e1h), _mm_unpackhi_epi32(e0h, e1h)};  // two rows each
    for (int y = 0; y < 8; ++y) {
        const __m128i r = (y & 1) ? _mm_unpackhi_epi64(w[y >> 1], w[y >> 1]) : w[y >> 1];
        if (E0)
            store8b(row_at(p, step, y) - 2, r);
        else  // bytes 4..7 are x = 2..5, all that edge 1 can change
            store32u(row_at(p, step, y) + 2, static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_srli_si128(r, 4))));
    }
}

template <class H>
void chroma_ver(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta, const uint8_t* tc0,
                const uint8_t* bs) {
    if (load32u(bs) != 0)
        chroma_ver_t<H, true>(p, step, alpha, beta, tc0, bs);
    else if (load32u(bs + 8) != 0)
        chroma_ver_t<H, false>(p, step, alpha, beta, tc0, bs);
}
