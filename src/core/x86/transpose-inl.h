// transpose-inl.h: 128-bit transposes and packed pmaddwd constants shared by
// the x86 files of several families.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::<family>::x86::<isa>), after that file's
// intrinsics header. It includes nothing, so each including file compiles
// its own internal copy with its own flags. Needs: SSE2.
#pragma once

// A pair of 16-bit constants (a low, b high) in every dword, for pmaddwd.
inline __m128i pk(int a, int b) {
    return _mm_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(a)) |
                                               (static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16)));
}

// Eight vectors of eight 16-bit lanes seen as an 8x8 matrix, transposed.
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

// Four vectors of four dwords seen as a 4x4 matrix, transposed.
inline void transpose4x32(__m128i& a, __m128i& b, __m128i& c, __m128i& d) {
    const __m128i t0 = _mm_unpacklo_epi32(a, b), t1 = _mm_unpacklo_epi32(c, d);
    const __m128i t2 = _mm_unpackhi_epi32(a, b), t3 = _mm_unpackhi_epi32(c, d);
    a = _mm_unpacklo_epi64(t0, t1);
    b = _mm_unpackhi_epi64(t0, t1);
    c = _mm_unpacklo_epi64(t2, t3);
    d = _mm_unpackhi_epi64(t2, t3);
}
