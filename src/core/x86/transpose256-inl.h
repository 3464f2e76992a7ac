// transpose256-inl.h: 256-bit transposes and packed pmaddwd constants shared
// by the AVX2 files of several families.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::<family>::x86::<isa>), after <immintrin.h>.
// It includes nothing, so each including file compiles its own internal copy
// with its own flags. Needs: AVX2.
#pragma once

// A pair of 16-bit constants (a low, b high) in every dword, for vpmaddwd.
inline __m256i pk256(int a, int b) {
    return _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(a)) |
                                                  (static_cast<uint32_t>(static_cast<uint16_t>(b)) << 16)));
}

// Eight vectors of eight dwords seen as an 8x8 matrix, transposed.
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
