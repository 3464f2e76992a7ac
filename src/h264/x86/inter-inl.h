// inter-inl.h: the H.264 inter prediction kernels of the x86 files (luma
// six-tap, chroma, copies, weighting), written once for every ISA level.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::h264::x86::<isa>), after <tmmintrin.h> (or
// <immintrin.h>), <cstring>, <utility> and h264/inter.h. It includes
// nothing, so each including file compiles its own internal copy with its
// own flags. Needs: SSE2. The kernels are templates on the file's level
// traits L:
//   L::kSsse3   horizontal six-tap, chroma and byte weights through pmaddubsw
//   L::kAvx2    16-wide luma rows and weighting in one 256-bit register, and
//               8-wide luma and chroma two rows per register: L supplies
//               Strip16, Pair8, chroma8<H>, weight16 and weight_small16
//               (h264/x86/inter256-inl.h)
//   and the predicates of install<L>() below: what the level installs.
// The SSSE3 code paths are discarded (never instantiated) where L says no.
//
// Layout. A 16-wide luma block is one strip of 16 columns (AVX2) or two of
// 8; 4-wide blocks (and 8-wide ones with AVX2) go two rows per register.
// Everything works on 16-bit lanes: the unrounded b1 and h1 (-2550..10710)
// fit, and j1 is formed from the b1 of six rows in 32-bit lanes with pmaddwd,
// then rounded once. Rounded values are packed to bytes with unsigned
// saturation (the clip) and the quarter positions are byte averages (pavgb
// is exactly (u + v + 1) >> 1).
//
// Window. Every load stays inside the window: an N-wide strip starting at
// column c reads columns c-2 .. c+N+2 at most, and 4-wide rows use 4- and
// 8-byte loads, never 16.
#pragma once

// ---- Loads and stores of N bytes ---------------------------------------------------

template <int N>
inline __m128i loadn(const uint8_t* p) {
    if constexpr (N == 16) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    } else if constexpr (N == 8) {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    } else if constexpr (N == 4) {
        uint32_t v;
        std::memcpy(&v, p, 4);
        return _mm_cvtsi32_si128(static_cast<int>(v));
    } else {
        uint16_t v;
        std::memcpy(&v, p, 2);
        return _mm_cvtsi32_si128(v);
    }
}

template <int N>
inline void storen(uint8_t* p, __m128i v) {
    if constexpr (N == 16) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
    } else if constexpr (N == 8) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
    } else if constexpr (N == 4) {
        const uint32_t u = static_cast<uint32_t>(_mm_cvtsi128_si32(v));
        std::memcpy(p, &u, 4);
    } else {
        const uint16_t u = static_cast<uint16_t>(_mm_cvtsi128_si32(v));
        std::memcpy(p, &u, 2);
    }
}

// N bytes zero-extended to 16-bit lanes.
template <int N>
inline __m128i widen(const uint8_t* p) {
    return _mm_unpacklo_epi8(loadn<N>(p), _mm_setzero_si128());
}

inline __m128i splat16(int32_t v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }

// A pair of signed bytes (lo, hi) repeated, as pmaddubsw coefficients.
inline int16_t byte_pair(int32_t lo, int32_t hi) {
    return static_cast<int16_t>(static_cast<uint16_t>((lo & 0xFF) | ((hi & 0xFF) << 8)));
}
// A pair of 16-bit words (lo, hi) as one 32-bit lane, as pmaddwd coefficients.
inline int32_t word_pair(int32_t lo, int32_t hi) {
    return static_cast<int32_t>((static_cast<uint32_t>(lo) & 0xFFFFu) | (static_cast<uint32_t>(hi) << 16));
}

// ---- Strips of 8 or 4 columns in a 128-bit register --------------------------------

template <class L, int N>
struct Strip128 {
    using V = __m128i;
    static constexpr int kCols = N;

    static V add(V a, V b) { return _mm_add_epi16(a, b); }
    static V row(const uint8_t* p) { return widen<N>(p); }
    static __m128i loadp(const uint8_t* p) { return loadn<N>(p); }
    static void storep(uint8_t* p, __m128i v) { storen<N>(p, v); }
    // 16-bit lanes to bytes, clipped to 0..255 (unsigned saturation).
    static __m128i pack(V v) { return _mm_packus_epi16(v, v); }
    static V rnd5(V v) { return _mm_srai_epi16(_mm_add_epi16(v, splat16(16)), 5); }

    // tap6 of six rows of 16-bit values: (v0 + v5) + 5 (4 (v2 + v3) - (v1 + v4)).
    static V tap(const V* r) {
        const V a = _mm_add_epi16(r[0], r[5]);
        const V f = _mm_add_epi16(r[1], r[4]);
        const V g = _mm_add_epi16(r[2], r[3]);
        const V t = _mm_sub_epi16(_mm_slli_epi16(g, 2), f);
        return _mm_add_epi16(a, _mm_add_epi16(t, _mm_slli_epi16(t, 2)));
    }

    // b1 of columns 0..N-1 of the row at p (reads columns -2..N+2).
    static V b1(const uint8_t* p) {
        if constexpr (L::kSsse3) {
            // Columns -2..N+2 in one register, then the three tap pairs by
            // pshufb and pmaddubsw: (1, -5), (20, 20), (-5, 1).
            const __m128i v = _mm_or_si128(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p - 2)),
                                           _mm_slli_si128(loadn<N>(p + 3), 5));
            const __m128i k01 = _mm_setr_epi8(0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8);
            const __m128i k23 = _mm_setr_epi8(2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10);
            const __m128i k45 = _mm_setr_epi8(4, 5, 5, 6, 6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12);
            const V s01 = _mm_maddubs_epi16(_mm_shuffle_epi8(v, k01), _mm_set1_epi16(byte_pair(1, -5)));
            const V s23 = _mm_maddubs_epi16(_mm_shuffle_epi8(v, k23), _mm_set1_epi16(byte_pair(20, 20)));
            const V s45 = _mm_maddubs_epi16(_mm_shuffle_epi8(v, k45), _mm_set1_epi16(byte_pair(-5, 1)));
            return _mm_add_epi16(_mm_add_epi16(s01, s45), s23);
        } else {
            const V r[6] = {row(p - 2), row(p - 1), row(p), row(p + 1), row(p + 2), row(p + 3)};
            return tap(r);
        }
    }

    // clip((j1 + 512) >> 10) packed to bytes, j1 the six-tap of six b1 rows:
    // (b0 + b5) - 5 (b1 + b4) + 20 (b2 + b3) + 512 as two pmaddwd per four
    // lanes. The pair sums fit 16 bits (-5100..21420), the total 20 bits.
    static __m128i jrnd(const V* b) {
        const V s05 = _mm_add_epi16(b[0], b[5]);
        const V s14 = _mm_add_epi16(b[1], b[4]);
        const V s23 = _mm_add_epi16(b[2], b[3]);
        const __m128i c15 = _mm_set1_epi32(word_pair(1, -5));
        const __m128i c20 = _mm_set1_epi32(word_pair(20, 1));
        const V k512 = splat16(512);
        __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(s05, s14), c15),
                                   _mm_madd_epi16(_mm_unpacklo_epi16(s23, k512), c20));
        lo = _mm_srai_epi32(lo, 10);
        if constexpr (N <= 4) {
            return pack(_mm_packs_epi32(lo, lo));
        } else {
            __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(s05, s14), c15),
                                       _mm_madd_epi16(_mm_unpackhi_epi16(s23, k512), c20));
            hi = _mm_srai_epi32(hi, 10);
            return pack(_mm_packs_epi32(lo, hi));  // -210..464, then clipped
        }
    }
};

// ---- Luma ------------------------------------------------------------------------------
// One strip at position (XF, YF). Rows that a position needs from above and
// below are kept in a rolling set of six, so each row is loaded (or
// filtered) once.

template <class T, int H, int XF, int YF>
inline void luma_strip(const uint8_t* src, intptr_t ss, uint8_t* dst, intptr_t ds) {
    using V = typename T::V;
    constexpr int pos = 4 * YF + XF;
    // Column of the vertical half sample: h at x, or m at x + 1.
    constexpr int cx = XF == 3 ? 1 : 0;
    static_assert(pos != 0, "the full-sample position is a plain copy");
    if constexpr (YF == 0) {  // a, b, c
        for (int y = 0; y < H; ++y) {
            const uint8_t* p = src + y * ss;
            __m128i v = T::pack(T::rnd5(T::b1(p)));
            if constexpr (XF == 1) v = _mm_avg_epu8(v, T::loadp(p));
            if constexpr (XF == 3) v = _mm_avg_epu8(v, T::loadp(p + 1));
            T::storep(dst + y * ds, v);
        }
    } else if constexpr (XF == 0 || (XF != 2 && YF != 2)) {  // d, h, n; e, g, p, r
        V r[6];
        for (int i = 0; i < 5; ++i) r[i] = T::row(src + (i - 2) * ss + cx);
#pragma GCC unroll 16
        for (int y = 0; y < H; ++y) {
            r[5] = T::row(src + (y + 3) * ss + cx);
            __m128i v = T::pack(T::rnd5(T::tap(r)));
            if constexpr (XF == 0) {
                if constexpr (YF == 1) v = _mm_avg_epu8(v, T::loadp(src + y * ss));
                if constexpr (YF == 3) v = _mm_avg_epu8(v, T::loadp(src + (y + 1) * ss));
            } else {
                // b in row y (e, g) or s = b in row y + 1 (p, r).
                const uint8_t* p = src + (y + (YF == 3 ? 1 : 0)) * ss;
                v = _mm_avg_epu8(v, T::pack(T::rnd5(T::b1(p))));
            }
            T::storep(dst + y * ds, v);
            for (int i = 0; i < 5; ++i) r[i] = r[i + 1];
        }
    } else {  // j and the positions built on it: f, i, k, q
        V b[6];
        V r[6];
        constexpr bool vertical = XF != 2;  // i, k also need h or m
        for (int i = 0; i < 5; ++i) {
            b[i] = T::b1(src + (i - 2) * ss);
            if constexpr (vertical) r[i] = T::row(src + (i - 2) * ss + cx);
        }
#pragma GCC unroll 16
        for (int y = 0; y < H; ++y) {
            b[5] = T::b1(src + (y + 3) * ss);
            __m128i v = T::jrnd(b);
            if constexpr (vertical) {
                r[5] = T::row(src + (y + 3) * ss + cx);
                v = _mm_avg_epu8(v, T::pack(T::rnd5(T::tap(r))));
                for (int i = 0; i < 5; ++i) r[i] = r[i + 1];
            } else if constexpr (YF == 1) {
                v = _mm_avg_epu8(v, T::pack(T::rnd5(b[2])));  // f: b of row y
            } else if constexpr (YF == 3) {
                v = _mm_avg_epu8(v, T::pack(T::rnd5(b[3])));  // q: s, b of row y + 1
            }
            T::storep(dst + y * ds, v);
            for (int i = 0; i < 5; ++i) b[i] = b[i + 1];
        }
    }
}

// ---- Narrow blocks two rows at a time ----------------------------------------------------
// A register holds row y in its low half and row y + 1 in its high half, so
// the six-tap down a column works on pairs of rows (y-2+k, y-1+k), k = 0..5,
// and every step serves two output rows. Packed results keep the same
// order: row y's bytes, then row y + 1's.

// 4-wide rows in a 128-bit register (16-bit lanes 0..3 and 4..7).
template <class L>
struct Pair4 : Strip128<L, 8> {
    using V = __m128i;
    static __m128i bytes2(const uint8_t* p0, const uint8_t* p1) {
        return _mm_unpacklo_epi32(loadn<4>(p0), loadn<4>(p1));
    }
    static V rows2(const uint8_t* p0, const uint8_t* p1) {
        return _mm_unpacklo_epi8(bytes2(p0, p1), _mm_setzero_si128());
    }
    static V b1_2(const uint8_t* p0, const uint8_t* p1) {
        return _mm_unpacklo_epi64(Strip128<L, 4>::b1(p0), Strip128<L, 4>::b1(p1));
    }
    // The high row of a and the low row of b.
    static V swap(V a, V b) {
        return _mm_castpd_si128(_mm_shuffle_pd(_mm_castsi128_pd(a), _mm_castsi128_pd(b), 1));
    }
    static void store2(uint8_t* d0, uint8_t* d1, __m128i v) {
        storen<4>(d0, v);
        storen<4>(d1, _mm_srli_si128(v, 4));
    }
};

template <class P, int H, int XF, int YF>
inline void luma_pairs(const uint8_t* src, intptr_t ss, uint8_t* dst, intptr_t ds) {
    using V = typename P::V;
    constexpr int cx = XF == 3 ? 1 : 0;
    auto at = [src, ss](int y) { return src + y * ss; };
    auto bytes2 = [&](int y, int c) { return P::bytes2(at(y) + c, at(y + 1) + c); };
    auto rows2 = [&](int y, int c) { return P::rows2(at(y) + c, at(y + 1) + c); };
    auto b1_2 = [&](int y) { return P::b1_2(at(y), at(y + 1)); };
    auto store2 = [&](int y, __m128i v) { P::store2(dst + y * ds, dst + (y + 1) * ds, v); };
    if constexpr (YF == 0) {  // a, b, c
        for (int y = 0; y < H; y += 2) {
            __m128i v = P::pack(P::rnd5(b1_2(y)));
            if constexpr (XF == 1) v = _mm_avg_epu8(v, bytes2(y, 0));
            if constexpr (XF == 3) v = _mm_avg_epu8(v, bytes2(y, 1));
            store2(y, v);
        }
    } else if constexpr (XF == 0 || (XF != 2 && YF != 2)) {  // d, h, n; e, g, p, r
        V r[6];
        for (int k = 0; k < 4; ++k) r[k] = rows2(k - 2, cx);
#pragma GCC unroll 8
        for (int y = 0; y < H; y += 2) {
            r[4] = rows2(y + 2, cx);
            r[5] = rows2(y + 3, cx);
            __m128i v = P::pack(P::rnd5(P::tap(r)));
            if constexpr (XF == 0) {
                if constexpr (YF == 1) v = _mm_avg_epu8(v, bytes2(y, 0));
                if constexpr (YF == 3) v = _mm_avg_epu8(v, bytes2(y + 1, 0));
            } else {
                v = _mm_avg_epu8(v, P::pack(P::rnd5(b1_2(y + (YF == 3 ? 1 : 0)))));
            }
            store2(y, v);
            for (int k = 0; k < 4; ++k) r[k] = r[k + 2];
        }
    } else {  // j, f, i, k, q
        constexpr bool vertical = XF != 2;
        // b[k] holds the b1 of rows (y-2+k, y-1+k). The pairs that start on
        // an odd offset (k = 1, 3, 5) are filtered two rows at a time; the
        // others are their swaps (the high row of one and the low row of the
        // next), except the first, which lies above every odd pair.
        V b[6];
        b[0] = b1_2(-2);
        b[1] = b1_2(-1);
        b[3] = b1_2(1);
        b[2] = P::swap(b[1], b[3]);
        V r[6];
        if constexpr (vertical)
            for (int k = 0; k < 4; ++k) r[k] = rows2(k - 2, cx);
#pragma GCC unroll 8
        for (int y = 0; y < H; y += 2) {
            b[5] = b1_2(y + 3);
            b[4] = P::swap(b[3], b[5]);
            __m128i v = P::jrnd(b);
            if constexpr (vertical) {
                r[4] = rows2(y + 2, cx);
                r[5] = rows2(y + 3, cx);
                v = _mm_avg_epu8(v, P::pack(P::rnd5(P::tap(r))));
                for (int k = 0; k < 4; ++k) r[k] = r[k + 2];
            } else if constexpr (YF == 1) {
                v = _mm_avg_epu8(v, P::pack(P::rnd5(b[2])));
            } else if constexpr (YF == 3) {
                v = _mm_avg_epu8(v, P::pack(P::rnd5(b[3])));
            }
            store2(y, v);
            for (int k = 0; k < 4; ++k) b[k] = b[k + 2];
        }
    }
}

template <class L, int W, int H, int XF, int YF>
void luma(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    const intptr_t ss = src_step, ds = dst_step;
    if constexpr (XF == 0 && YF == 0) {  // the block itself, one load per row
        for (int y = 0; y < H; ++y) storen<W>(dst + y * ds, loadn<W>(src + y * ss));
    } else if constexpr (W == 16 && L::kAvx2) {
        luma_strip<typename L::Strip16, H, XF, YF>(src, ss, dst, ds);
    } else if constexpr (W == 16) {
        luma_strip<Strip128<L, 8>, H, XF, YF>(src, ss, dst, ds);
        luma_strip<Strip128<L, 8>, H, XF, YF>(src + 8, ss, dst + 8, ds);
    } else if constexpr (W == 8 && L::kAvx2) {
        luma_pairs<typename L::Pair8, H, XF, YF>(src, ss, dst, ds);
    } else if constexpr (W == 4) {
        luma_pairs<Pair4<L>, H, XF, YF>(src, ss, dst, ds);
    } else {
        luma_strip<Strip128<L, W>, H, XF, YF>(src, ss, dst, ds);
    }
}

// Sums of four weighted samples stay in 0..16352: 16-bit lanes, and with
// pmaddubsw the unsigned-sample by signed-weight pairs never saturate
// (64 * 255 = 16320 per pair).

template <class L, int W, int H>
void chroma(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t wa, int32_t wb,
            int32_t wc, int32_t wd) {
    const intptr_t ss = src_step, ds = dst_step;
    const __m128i k32 = splat16(32);
    if constexpr (L::kSsse3) {
        const __m128i wab = _mm_set1_epi16(byte_pair(wa, wb));
        const __m128i wcd = _mm_set1_epi16(byte_pair(wc, wd));
        // Row y as (A, B) byte pairs: columns x and x + 1 interleaved.
        auto pairs = [src, ss](int y) {
            return _mm_unpacklo_epi8(loadn<W>(src + y * ss), loadn<W>(src + y * ss + 1));
        };
        if constexpr (W == 8 && L::kAvx2) {
            L::template chroma8<H>(src, ss, dst, ds, wa, wb, wc, wd);
            return;
        }
        if constexpr (W == 4) {  // rows y and y + 1 in the two halves; heights are even
            __m128i p0 = pairs(0);
            for (int y = 0; y < H; y += 2) {
                const __m128i p1 = pairs(y + 1), p2 = pairs(y + 2);
                __m128i v = _mm_add_epi16(_mm_maddubs_epi16(_mm_unpacklo_epi64(p0, p1), wab),
                                          _mm_maddubs_epi16(_mm_unpacklo_epi64(p1, p2), wcd));
                v = _mm_srli_epi16(_mm_add_epi16(v, k32), 6);
                v = _mm_packus_epi16(v, v);
                storen<4>(dst + y * ds, v);
                storen<4>(dst + (y + 1) * ds, _mm_srli_si128(v, 4));
                p0 = p2;
            }
            return;
        }
        __m128i top = pairs(0);
        for (int y = 0; y < H; ++y) {
            const uint8_t* p = src + (y + 1) * ss;
            const __m128i bot = _mm_unpacklo_epi8(loadn<W>(p), loadn<W>(p + 1));
            __m128i v = _mm_add_epi16(_mm_maddubs_epi16(top, wab), _mm_maddubs_epi16(bot, wcd));
            v = _mm_srli_epi16(_mm_add_epi16(v, k32), 6);
            storen<W>(dst + y * ds, _mm_packus_epi16(v, v));
            top = bot;
        }
    } else {
        const __m128i va = splat16(wa), vb = splat16(wb), vc = splat16(wc), vd = splat16(wd);
        __m128i a = widen<W>(src), b = widen<W>(src + 1);
        for (int y = 0; y < H; ++y) {
            const uint8_t* p = src + (y + 1) * ss;
            const __m128i c = widen<W>(p), d = widen<W>(p + 1);
            __m128i v = _mm_add_epi16(_mm_add_epi16(_mm_mullo_epi16(a, va), _mm_mullo_epi16(b, vb)),
                                      _mm_add_epi16(_mm_mullo_epi16(c, vc), _mm_mullo_epi16(d, vd)));
            v = _mm_srli_epi16(_mm_add_epi16(v, k32), 6);
            storen<W>(dst + y * ds, _mm_packus_epi16(v, v));
            a = c;
            b = d;
        }
    }
}

template <int W, int H>
void copy(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    for (int y = 0; y < H; ++y)
        storen<W>(dst + static_cast<intptr_t>(y) * dst_step,
                  loadn<W>(src + static_cast<intptr_t>(y) * src_step));
}

// ---- Weighted averaging ----------------------------------------------------------------------
// (p0, p1) word pairs times (w0, w1) by pmaddwd give the 17-bit sum in 32-bit
// lanes; after the shift it packs to 16 bits without saturation
// (-32640..32640), the offset add stays in range (-32768..32767) and packus
// is the final clip.

template <int N>
inline void weight_chunk(uint8_t* d, const uint8_t* s, __m128i wpair, __m128i rnd, __m128i sh, __m128i off) {
    const __m128i p0 = widen<N>(d), p1 = widen<N>(s);
    __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(p0, p1), wpair), rnd);
    lo = _mm_sra_epi32(lo, sh);
    __m128i v;
    if constexpr (N <= 4) {
        v = _mm_packs_epi32(lo, lo);
    } else {
        __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(p0, p1), wpair), rnd);
        v = _mm_packs_epi32(lo, _mm_sra_epi32(hi, sh));
    }
    v = _mm_add_epi16(v, off);
    storen<N>(d, _mm_packus_epi16(v, v));
}

// Any weights (-128..128) with pmaddubsw: split w = 2 wh + wl, wh = w >> 1
// (-64..64), wl = w & 1. With q = (p0, p1) interleaved bytes,
//   H = p0 wh0 + p1 wh1   exact in 16 bits: each product within 255 * 64,
//                         |H| <= 32640, no saturation
//   L = p0 wl0 + p1 wl1   0..510
// and p0 w0 + p1 w1 = 2H + L, which needs 17 bits. But
//   (2H + L + 2^k) >> (k + 1) = (H + ((L + 2^k) >> 1)) >> k
// (halve first, then shift by k: floor of floor), and (L + 2^k) >> 1 is
// pavgw(L, 2^k - 1). H + that stays within -32640..32576 (an odd weight gives
// up half a sample of H for what it adds back through L), so the whole sum is
// 16-bit lanes; the offset goes on with a saturating add and packus clips.
struct SplitWeights {
    int16_t hi, lo, rnd;
};
inline SplitWeights split_weights(int32_t w0, int32_t w1, int32_t log_wd) {
    return {byte_pair(w0 >> 1, w1 >> 1), byte_pair(w0 & 1, w1 & 1), static_cast<int16_t>((1 << log_wd) - 1)};
}

template <class V, class Ops>
inline V weight_split(V q, V wh, V wl, V rnd, __m128i sh, V off) {
    const V h = Ops::maddubs(q, wh);
    const V r = Ops::avg16(Ops::maddubs(q, wl), rnd);
    return Ops::adds16(Ops::sra16(Ops::add16(h, r), sh), off);
}

struct Ops128 {
    static __m128i maddubs(__m128i a, __m128i b) { return _mm_maddubs_epi16(a, b); }
    static __m128i avg16(__m128i a, __m128i b) { return _mm_avg_epu16(a, b); }
    static __m128i add16(__m128i a, __m128i b) { return _mm_add_epi16(a, b); }
    static __m128i adds16(__m128i a, __m128i b) { return _mm_adds_epi16(a, b); }
    static __m128i sra16(__m128i a, __m128i n) { return _mm_sra_epi16(a, n); }
};

template <class L, int W>
void weight(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows, int32_t w0,
            int32_t w1, int32_t log_wd, int32_t offset) {
    const intptr_t ds = sd_step, ss = s_step;
    if constexpr (W == 16 && L::kAvx2) {
        L::weight16(sd, sd_step, s, s_step, rows, w0, w1, log_wd, offset);
        return;
    } else if constexpr (L::kSsse3) {
        const SplitWeights sw = split_weights(w0, w1, log_wd);
        const __m128i wh = _mm_set1_epi16(sw.hi), wl = _mm_set1_epi16(sw.lo), rnd = _mm_set1_epi16(sw.rnd);
        const __m128i sh = _mm_cvtsi32_si128(log_wd);
        const __m128i off = splat16(offset);
        for (int32_t y = 0; y < rows; ++y) {
            uint8_t* d = sd + y * ds;
            const __m128i a = loadn<W>(d), b = loadn<W>(s + y * ss);
            const __m128i lo = weight_split<__m128i, Ops128>(_mm_unpacklo_epi8(a, b), wh, wl, rnd, sh, off);
            if constexpr (W == 16) {
                const __m128i hi =
                    weight_split<__m128i, Ops128>(_mm_unpackhi_epi8(a, b), wh, wl, rnd, sh, off);
                storen<W>(d, _mm_packus_epi16(lo, hi));
            } else {
                storen<W>(d, _mm_packus_epi16(lo, lo));
            }
        }
        return;
    }
    const __m128i wpair = _mm_set1_epi32(word_pair(w0, w1));
    const __m128i rnd = _mm_set1_epi32(int32_t{1} << log_wd);
    const __m128i sh = _mm_cvtsi32_si128(log_wd + 1);
    const __m128i off = splat16(offset);
    constexpr int N = W > 8 ? 8 : W;
    for (int32_t y = 0; y < rows; ++y) {
        for (int c = 0; c < W; c += N) weight_chunk<N>(sd + y * ds + c, s + y * ss + c, wpair, rnd, sh, off);
    }
}

// Weights that fit signed bytes with |w0| + |w1| <= 128: pmaddubsw of the
// interleaved (p0, p1) bytes gives p0 w0 + p1 w1 exactly in 16 bits
// (|sum| <= 255 * 128, no saturation), and pmulhrsw by 2^(14 - logWD) is
// (sum * 2^(14-logWD) + 2^14) >> 15 = (sum + 2^logWD) >> (logWD + 1) exactly,
// its product formed in 32 bits.
template <class L, int W>
void weight_small(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows, int32_t w0,
                  int32_t w1, int32_t log_wd, int32_t offset) {
    const intptr_t ds = sd_step, ss = s_step;
    if constexpr (W == 16 && L::kAvx2) {
        L::weight_small16(sd, sd_step, s, s_step, rows, w0, w1, log_wd, offset);
        return;
    }
    const __m128i wb = _mm_set1_epi16(byte_pair(w0, w1));
    const __m128i scale = splat16(1 << (14 - log_wd));
    const __m128i off = splat16(offset);
    for (int32_t y = 0; y < rows; ++y) {
        uint8_t* d = sd + y * ds;
        const __m128i a = loadn<W>(d), b = loadn<W>(s + y * ss);
        __m128i lo = _mm_maddubs_epi16(_mm_unpacklo_epi8(a, b), wb);
        lo = _mm_add_epi16(_mm_mulhrs_epi16(lo, scale), off);
        __m128i v;
        if constexpr (W == 16) {
            __m128i hi = _mm_maddubs_epi16(_mm_unpackhi_epi8(a, b), wb);
            hi = _mm_add_epi16(_mm_mulhrs_epi16(hi, scale), off);
            v = _mm_packus_epi16(lo, hi);
        } else {
            v = _mm_packus_epi16(lo, lo);
        }
        storen<W>(d, v);
    }
}

// The rows written out in full for each height the width has (16, 8, 4 or
// 2, all even): a 16x16 average is 32 loads and 16 stores, and a counted
// loop around them added a taken branch per pair of rows to a kernel that
// the loads and stores alone bound.
template <int W, int Rows>
inline void average_rows(uint8_t* d, intptr_t ds, const uint8_t* p, intptr_t ss) {
#pragma GCC unroll 16
    for (int y = 0; y < Rows; ++y)
        storen<W>(d + y * ds, _mm_avg_epu8(loadn<W>(d + y * ds), loadn<W>(p + y * ss)));
}

template <int W>
void average(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows) {
    const intptr_t ds = sd_step, ss = s_step;
    if (rows == 16)
        average_rows<W, 16>(sd, ds, s, ss);
    else if (rows == 8)
        average_rows<W, 8>(sd, ds, s, ss);
    else if (rows == 4)
        average_rows<W, 4>(sd, ds, s, ss);
    else
        average_rows<W, 2>(sd, ds, s, ss);
}

// ---- The entries a level installs ----------------------------------------------------
// L says, entry by entry, what its level installs (luma(size, position),
// chroma(size), copy(size), weight(width index), weight_small(width index),
// average(width index)); only those kernels are instantiated, so a level
// compiles nothing it does not install. Without SSSE3 the byte-weight entries
// take the general weighting kernel.

template <class L, int S, int P>
void install_luma(InterKernels& k) {
    if constexpr (L::luma(S, P)) k.luma[S][P] = luma<L, kLumaW[S], kLumaH[S], P % 4, P / 4>;
}
template <class L, int S>
void install_size(InterKernels& k) {
    [&]<int... P>(std::integer_sequence<int, P...>) { (install_luma<L, S, P>(k), ...); }
    (std::make_integer_sequence<int, 16>());
    if constexpr (L::chroma(S)) k.chroma[S] = chroma<L, kChromaW[S], kChromaH[S]>;
    if constexpr (L::copy(S)) k.chroma_copy[S] = copy<kChromaW[S], kChromaH[S]>;
}
template <class L, int I>
void install_width(InterKernels& k) {
    constexpr int w = 16 >> I;
    if constexpr (L::weight(I)) k.weight[I] = weight<L, w>;
    if constexpr (L::weight_small(I)) {
        if constexpr (L::kSsse3)
            k.weight_small[I] = weight_small<L, w>;
        else
            k.weight_small[I] = weight<L, w>;
    }
    if constexpr (L::average(I)) k.average[I] = average<w>;
}
template <class L>
void install(InterKernels& k) {
    static_assert(kLumaSizes == kChromaSizes);
    [&]<int... S>(std::integer_sequence<int, S...>) { (install_size<L, S>(k), ...); }
    (std::make_integer_sequence<int, kLumaSizes>());
    [&]<int... I>(std::integer_sequence<int, I...>) { (install_width<L, I>(k), ...); }
    (std::make_integer_sequence<int, kAvgWidths>());
}
