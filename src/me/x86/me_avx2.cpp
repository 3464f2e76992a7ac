// AVX2 kernels of the searches: four 16x16 SADs per call with two
// references per register (the current row broadcast to both lanes), and the
// column and row sums sixteen 16-bit lanes at a time. The 8x8 SADs keep the
// SSE2 kernel: a row is half a 128-bit lane already.
#include <immintrin.h>

#include <cstdlib>

#include "core/arith.h"
#include "me/me.h"

namespace kplvc::me::x86::avx2 {
namespace {

inline __m128i ld16(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline __m256i ld32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
// Row y of two references, a in the low lane and b in the high one.
inline __m256i pair(const uint8_t* a, const uint8_t* b, int32_t step, int y) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(ld16(row_at(a, step, y))), ld16(row_at(b, step, y)),
                                   1);
}

void sad_x4_16(const uint8_t* src, int32_t ss, const uint8_t* const* ref, int32_t rs, int32_t* sad) {
    __m256i a01 = _mm256_setzero_si256(), a23 = a01;
    for (int y = 0; y < 16; ++y) {
        const __m256i s = _mm256_broadcastsi128_si256(ld16(row_at(src, ss, y)));
        a01 = _mm256_add_epi32(a01, _mm256_sad_epu8(s, pair(ref[0], ref[1], rs, y)));
        a23 = _mm256_add_epi32(a23, _mm256_sad_epu8(s, pair(ref[2], ref[3], rs, y)));
    }
    // Each lane holds its reference's two partial sums in 64-bit halves:
    // adding the halves swapped leaves the total in dword 0 of each lane.
    a01 = _mm256_add_epi32(a01, _mm256_shuffle_epi32(a01, 0x4E));
    a23 = _mm256_add_epi32(a23, _mm256_shuffle_epi32(a23, 0x4E));
    sad[0] = _mm256_extract_epi32(a01, 0);
    sad[1] = _mm256_extract_epi32(a01, 4);
    sad[2] = _mm256_extract_epi32(a23, 0);
    sad[3] = _mm256_extract_epi32(a23, 4);
}

void col_update(uint16_t* col, const uint8_t* add, const uint8_t* sub, int32_t n) {
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m256i a = _mm256_cvtepu8_epi16(ld16(add + i)), s = _mm256_cvtepu8_epi16(ld16(sub + i));
        __m256i* c = reinterpret_cast<__m256i*>(col + i);
        _mm256_storeu_si256(c, _mm256_sub_epi16(_mm256_add_epi16(_mm256_loadu_si256(c), a), s));
    }
    for (; i < n; ++i) col[i] = static_cast<uint16_t>(col[i] + add[i] - sub[i]);
}

// Sixteen block sums at a time from N shifted loads of the column sums.
template <int N>
void row_sums(const uint16_t* col, uint16_t* dst, int32_t n) {
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        __m256i acc = ld32(col + i);
        for (int k = 1; k < N; ++k) acc = _mm256_add_epi16(acc, ld32(col + i + k));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), acc);
    }
    for (; i < n; ++i) {
        uint32_t sum = 0;
        for (int k = 0; k < N; ++k) sum += col[i + k];
        dst[i] = static_cast<uint16_t>(sum);
    }
}

// Sixteen displacements at a time in two sets of eight 32-bit lanes.
int32_t sea_filter(const uint16_t* sums, const int32_t* price, int32_t n, int32_t sc, int32_t limit,
                   uint16_t* idx) {
    const __m256i c = _mm256_set1_epi32(sc), lim = _mm256_set1_epi32(limit);
    const auto fails = [&](int32_t i) {
        const __m256i v = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(sums + i)));
        const __m256i b =
            _mm256_add_epi32(_mm256_slli_epi32(_mm256_abs_epi32(_mm256_sub_epi32(v, c)), 4), ld32(price + i));
        return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpgt_epi32(b, lim))));
    };
    int32_t m = 0, i = 0;
    for (; i + 16 <= n; i += 16) {
        unsigned pass = ~(fails(i) | fails(i + 8) << 8) & 0xFFFFu;
        for (; pass != 0; pass &= pass - 1) idx[m++] = static_cast<uint16_t>(i + __builtin_ctz(pass));
    }
    for (; i < n; ++i) {
        const int32_t d = sc - sums[i];
        if (16 * (d < 0 ? -d : d) + price[i] <= limit) idx[m++] = static_cast<uint16_t>(i);
    }
    return m;
}

// The quarters' filter: |x - y| of 16-bit lanes exactly as the OR of both
// saturated differences, the four summed in 32-bit lanes (garbage sums may
// reach 4 * 65535).
int32_t sea_filter_quarters(const uint16_t* a, const uint16_t* b, const int32_t* sq, const int32_t* price,
                            int32_t n, int32_t limit, uint16_t* idx) {
    const __m256i lim = _mm256_set1_epi32(limit);
    __m256i s[4];
    for (int q = 0; q < 4; ++q) s[q] = _mm256_set1_epi16(static_cast<int16_t>(static_cast<uint16_t>(sq[q])));
    const auto absd = [](__m256i x, __m256i y) {
        return _mm256_or_si256(_mm256_subs_epu16(x, y), _mm256_subs_epu16(y, x));
    };
    const auto lo = [](__m256i x) { return _mm256_cvtepu16_epi32(_mm256_castsi256_si128(x)); };
    const auto hi = [](__m256i x) { return _mm256_cvtepu16_epi32(_mm256_extracti128_si256(x, 1)); };
    const auto fails = [&](__m256i gap, int32_t i) {
        const __m256i v = _mm256_add_epi32(_mm256_slli_epi32(gap, 4), ld32(price + i));
        return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpgt_epi32(v, lim))));
    };
    // Sixteen displacements from i: bit k set when i + k passes.
    const auto passes = [&](int32_t i) {
        const __m256i d0 = absd(ld32(a + i), s[0]), d1 = absd(ld32(a + i + 8), s[1]);
        const __m256i d2 = absd(ld32(b + i), s[2]), d3 = absd(ld32(b + i + 8), s[3]);
        const __m256i g0 =
            _mm256_add_epi32(_mm256_add_epi32(lo(d0), lo(d1)), _mm256_add_epi32(lo(d2), lo(d3)));
        const __m256i g1 =
            _mm256_add_epi32(_mm256_add_epi32(hi(d0), hi(d1)), _mm256_add_epi32(hi(d2), hi(d3)));
        return ~(fails(g0, i) | fails(g1, i + 8) << 8) & 0xFFFFu;
    };
    int32_t m = 0, i = 0;
    for (; i + 16 <= n; i += 16)
        for (unsigned pass = passes(i); pass != 0; pass &= pass - 1)
            idx[m++] = static_cast<uint16_t>(i + __builtin_ctz(pass));
    if (i < n && n >= 16) {
        // The last sixteen, less those already done (windows are often 31
        // wide: the rest is most of the row).
        const int32_t at = n - 16;
        for (unsigned pass = passes(at) & ~((1u << (i - at)) - 1); pass != 0; pass &= pass - 1)
            idx[m++] = static_cast<uint16_t>(at + __builtin_ctz(pass));
        i = n;
    }
    for (; i < n; ++i) {
        const int32_t gap = std::abs(sq[0] - a[i]) + std::abs(sq[1] - a[i + 8]) + std::abs(sq[2] - b[i]) +
                            std::abs(sq[3] - b[i + 8]);
        if (16 * gap + price[i] <= limit) idx[m++] = static_cast<uint16_t>(i);
    }
    return m;
}

}  // namespace

void upgrade_me(MeKernels& k) {
    k.sad_x4[k16] = sad_x4_16;
    k.row_sums[k16] = row_sums<16>;
    k.row_sums[k8] = row_sums<8>;
    k.col_update = col_update;
    k.sea_filter = sea_filter;
    k.sea_filter_quarters = sea_filter_quarters;
}

}  // namespace kplvc::me::x86::avx2
