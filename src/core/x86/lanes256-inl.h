// lanes256-inl.h: the 16-bit lane operations of a 256-bit register, the
// AVX2 twin of lanes-inl.h (same members, same meaning).
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::<family>::x86::<isa>), after <immintrin.h>.
// It includes nothing, so each including file compiles its own internal copy
// with its own flags. Needs: AVX2.
#pragma once

// Sixteen 16-bit lanes. unpack and pack work within each 128-bit half, so
// an unpack followed by a pack of the same pair keeps the lane order.
struct Lanes256 {
    using V = __m256i;
    static constexpr int kLanes = 16;
    static V zero() { return _mm256_setzero_si256(); }
    static V set1(int v) { return _mm256_set1_epi16(static_cast<int16_t>(v)); }
    static V set1_32(int32_t v) { return _mm256_set1_epi32(v); }
    static V load(const int16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store(int16_t* p, V v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
    static V load_aligned(const int16_t* p) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store_aligned(int16_t* p, V v) { _mm256_store_si256(reinterpret_cast<__m256i*>(p), v); }
    static V add(V a, V b) { return _mm256_add_epi16(a, b); }
    static V sub(V a, V b) { return _mm256_sub_epi16(a, b); }
    static V mullo(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V mulhi(V a, V b) { return _mm256_mulhi_epi16(a, b); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    static V cmpgt(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
    static V lt(V a, V b) { return _mm256_cmpgt_epi16(b, a); }
    template <int N>
    static V srai(V a) {
        return _mm256_srai_epi16(a, N);
    }
    static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    static V or_(V a, V b) { return _mm256_or_si256(a, b); }
    static V xor_(V a, V b) { return _mm256_xor_si256(a, b); }
    static V andnot(V m, V a) { return _mm256_andnot_si256(m, a); }  // a & ~m
    // Lanes of a where the mask m is all ones, of b where it is zero.
    static V sel(V m, V a, V b) { return _mm256_blendv_epi8(b, a, m); }
    static V unpacklo(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
    static V unpackhi(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
    static V packs(V a, V b) { return _mm256_packs_epi32(a, b); }  // 32 to 16 bits, saturating
    template <int N>
    static V srai32(V a) {
        return _mm256_srai_epi32(a, N);
    }
    static V sll32(V a, __m128i n) { return _mm256_sll_epi32(a, n); }
    static V sra32(V a, __m128i n) { return _mm256_sra_epi32(a, n); }
    static V add32(V a, V b) { return _mm256_add_epi32(a, b); }
};
