// deblock256-inl.h: the hooks of the deblocking kernels (deblock-inl.h) for
// the AVX2 and AVX-512 files: the byte blend in one instruction, and the
// luma strong filter on a whole 16-sample line in one register of 16-bit
// lanes.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::h264::x86::<isa>), after <immintrin.h>,
// core/arith.h and h264/x86/deblock-inl.h. It includes nothing, so each
// including file compiles its own internal copy with its own flags. Needs:
// AVX2.
#pragma once

struct O {
    using V = __m256i;
    static V zero() { return _mm256_setzero_si256(); }
    static V set1(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
    static V add(V a, V b) { return _mm256_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm256_sub_epi16(a, b); }
    template <int N>
    static V sra(V a) {
        return _mm256_srai_epi16(a, N);
    }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    static V lt(V a, V b) { return _mm256_cmpgt_epi16(b, a); }
    static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    static V andnot(V m, V a) { return _mm256_andnot_si256(m, a); }
    static V sel(V m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
};

inline __m256i widen(__m128i v) { return _mm256_cvtepu8_epi16(v); }
inline __m128i narrow(__m256i v) {
    return _mm_packus_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

struct Hooks {
    [[gnu::always_inline]] static __m128i blend8(__m128i m, __m128i a, __m128i b) {
        return _mm_blendv_epi8(b, a, m);
    }
    [[gnu::always_inline]] static void luma_strong_edge(__m128i* c, __m128i bs, int alpha, int beta) {
        const __m256i on =
            _mm256_cvtepi8_epi16(_mm_xor_si128(_mm_cmpeq_epi8(bs, _mm_setzero_si128()), _mm_set1_epi8(-1)));
        LumaLines<O> l{widen(c[0]), widen(c[1]), widen(c[2]), widen(c[3]),
                       widen(c[4]), widen(c[5]), widen(c[6]), widen(c[7])};
        luma_strong16<O>(l, on, alpha, beta);
        c[1] = narrow(l.p2);
        c[2] = narrow(l.p1);
        c[3] = narrow(l.p0);
        c[4] = narrow(l.q0);
        c[5] = narrow(l.q1);
        c[6] = narrow(l.q2);
    }
};
