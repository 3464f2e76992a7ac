// lanes-inl.h: the 16-bit lane operations of a 128-bit register, written
// once for the SSE2 bodies that take a lane ops struct (the vector scaling,
// the MPEG-2 dequantisers, the H.264 deblocking filters).
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::<family>::x86::<isa>), after <emmintrin.h>.
// It includes nothing, so each including file compiles its own internal copy
// with its own flags. Needs: SSE2.
//
// A family that needs more (a load of its own, a parity, a lane clear)
// derives from Lanes128 and adds or hides members; a derived member of the
// same name hides the one here.
#pragma once

// Eight 16-bit lanes. Shifts, packs and the 32-bit operations work on the
// same register read as four 32-bit lanes.
struct Lanes128 {
    using V = __m128i;
    static constexpr int kLanes = 8;
    static V zero() { return _mm_setzero_si128(); }
    static V set1(int v) { return _mm_set1_epi16(static_cast<int16_t>(v)); }
    static V set1_32(int32_t v) { return _mm_set1_epi32(v); }
    static V load(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(int16_t* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
    static V load_aligned(const int16_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store_aligned(int16_t* p, V v) { _mm_store_si128(reinterpret_cast<__m128i*>(p), v); }
    static V add(V a, V b) { return _mm_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm_sub_epi16(a, b); }
    static V mullo(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V mulhi(V a, V b) { return _mm_mulhi_epi16(a, b); }
    static V min(V a, V b) { return _mm_min_epi16(a, b); }
    static V max(V a, V b) { return _mm_max_epi16(a, b); }
    static V cmpgt(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static V lt(V a, V b) { return _mm_cmplt_epi16(a, b); }
    template <int N>
    static V srai(V a) {
        return _mm_srai_epi16(a, N);
    }
    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V or_(V a, V b) { return _mm_or_si128(a, b); }
    static V xor_(V a, V b) { return _mm_xor_si128(a, b); }
    static V andnot(V m, V a) { return _mm_andnot_si128(m, a); }  // a & ~m
    // Lanes of a where the mask m is all ones, of b where it is zero.
    static V sel(V m, V a, V b) { return _mm_or_si128(_mm_and_si128(m, a), _mm_andnot_si128(m, b)); }
    static V unpacklo(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V unpackhi(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V packs(V a, V b) { return _mm_packs_epi32(a, b); }  // 32 to 16 bits, saturating
    template <int N>
    static V srai32(V a) {
        return _mm_srai_epi32(a, N);
    }
    static V sll32(V a, __m128i n) { return _mm_sll_epi32(a, n); }
    static V sra32(V a, __m128i n) { return _mm_sra_epi32(a, n); }
    static V add32(V a, V b) { return _mm_add_epi32(a, b); }
};
