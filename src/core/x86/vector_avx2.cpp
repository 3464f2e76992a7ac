// AVX2 vector kernels: 32 bytes per step; sixteen 16-bit lanes for scaling
// and thresholds.
#include <immintrin.h>

#include <cstring>

#include "core/vector.h"

namespace kplvc::vector::x86::avx2 {
namespace {

#include "core/x86/vector-inl.h"

inline __m256i loadu(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void storeu(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
inline __m128i loadu128(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void storeu128(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// Overlapping stores cover short runs exactly; long runs use an aligned body.
inline void fill_pattern(uint8_t* dst, __m256i v, size_t len) {
    if (len <= 32) {
        const __m128i x = _mm256_castsi256_si128(v);
        if (len >= 16) {
            storeu128(dst, x);
            storeu128(dst + len - 16, x);
        } else if (len >= 8) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), x);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + len - 8), x);
        } else if (len >= 4) {
            const uint32_t u = static_cast<uint32_t>(_mm_cvtsi128_si32(x));
            std::memcpy(dst, &u, 4);
            std::memcpy(dst + len - 4, &u, 4);
        } else {
            const uint32_t b = static_cast<uint32_t>(_mm_cvtsi128_si32(x));
            for (size_t i = 0; i < len; ++i) dst[i] = static_cast<uint8_t>(b >> (8 * (i & 1)));
        }
        return;
    }
    storeu(dst, v);
    uint8_t* p = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(dst) + 32) & ~uintptr_t{31});
    uint8_t* const end = dst + len;
    for (; p + 128 <= end; p += 128) {
        _mm256_store_si256(reinterpret_cast<__m256i*>(p), v);
        _mm256_store_si256(reinterpret_cast<__m256i*>(p + 32), v);
        _mm256_store_si256(reinterpret_cast<__m256i*>(p + 64), v);
        _mm256_store_si256(reinterpret_cast<__m256i*>(p + 96), v);
    }
    for (; p + 32 <= end; p += 32) _mm256_store_si256(reinterpret_cast<__m256i*>(p), v);
    storeu(end - 32, v);
}

void set8(uint8_t* dst, uint8_t val, size_t len) {
    fill_pattern(dst, _mm256_set1_epi8(static_cast<char>(val)), len);
}

void set16(int16_t* dst, int16_t val, size_t len) {
    // dst is 2-aligned, so every overlapping store stays in phase.
    fill_pattern(reinterpret_cast<uint8_t*>(dst), _mm256_set1_epi16(val), 2 * len);
}

// Streaming fill: scalar head to 32-byte alignment, non-temporal stores,
// scalar tail, store fence. `pattern` repeats with period 2 at most.
void stream_pattern(uint8_t* dst, const uint8_t pattern[2], size_t len) {
    size_t i = 0;
    while (i < len && (reinterpret_cast<uintptr_t>(dst + i) & 31) != 0) {
        dst[i] = pattern[i & 1];
        ++i;
    }
    const uint16_t pair = static_cast<uint16_t>(pattern[i & 1] | (pattern[(i + 1) & 1] << 8));
    const __m256i v = _mm256_set1_epi16(static_cast<short>(pair));
    for (; i + 128 <= len; i += 128) {
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i), v);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i + 32), v);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i + 64), v);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i + 96), v);
    }
    for (; i + 32 <= len; i += 32) _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i), v);
    _mm_sfence();
    for (; i < len; ++i) dst[i] = pattern[i & 1];
}

void set8_stream(uint8_t* dst, uint8_t val, size_t len) {
    const uint8_t pat[2] = {val, val};
    stream_pattern(dst, pat, len);
}

void set16_stream(int16_t* dst, int16_t val, size_t len) {
    uint8_t pat[2];
    std::memcpy(pat, &val, 2);
    stream_pattern(reinterpret_cast<uint8_t*>(dst), pat, 2 * len);
}

void copy8(const uint8_t* src, uint8_t* dst, size_t len) {
    if (len <= 32) {
        if (len >= 16) {
            const __m128i a = loadu128(src), b = loadu128(src + len - 16);
            storeu128(dst, a);
            storeu128(dst + len - 16, b);
        } else {
            copy_below16(src, dst, len);
        }
        return;
    }
    const __m256i first = loadu(src), last = loadu(src + len - 32);
    // Aligned destination body after an unaligned first vector.
    size_t i = 32 - (reinterpret_cast<uintptr_t>(dst) & 31);
    for (; i + 128 <= len; i += 128) {
        const __m256i a = loadu(src + i), b = loadu(src + i + 32), c = loadu(src + i + 64),
                      d = loadu(src + i + 96);
        _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i), a);
        _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i + 32), b);
        _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i + 64), c);
        _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i + 96), d);
    }
    for (; i + 32 <= len; i += 32) _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i), loadu(src + i));
    storeu(dst, first);
    storeu(dst + len - 32, last);
}

template <bool Prefetch>
void copy_stream(const uint8_t* src, uint8_t* dst, size_t len) {
    size_t i = 0;
    while (i < len && (reinterpret_cast<uintptr_t>(dst + i) & 31) != 0) {
        dst[i] = src[i];
        ++i;
    }
    for (; i + 128 <= len; i += 128) {
        if constexpr (Prefetch) {
            _mm_prefetch(reinterpret_cast<const char*>(src + i + 1024), _MM_HINT_NTA);
            _mm_prefetch(reinterpret_cast<const char*>(src + i + 1088), _MM_HINT_NTA);
        }
        const __m256i a = loadu(src + i), b = loadu(src + i + 32), c = loadu(src + i + 64),
                      d = loadu(src + i + 96);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i), a);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i + 32), b);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i + 64), c);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i + 96), d);
    }
    for (; i + 32 <= len; i += 32) _mm256_stream_si256(reinterpret_cast<__m256i*>(dst + i), loadu(src + i));
    _mm_sfence();
    for (; i < len; ++i) dst[i] = src[i];
}

// Sixteen 16-bit lanes (unpack and pack work within 128-bit lanes, so their
// pairs keep the order).
struct O {
    using V = __m256i;
    static constexpr int kLanes = 16;
    static V set1(int16_t v) { return _mm256_set1_epi16(v); }
    static V set1_32(int32_t v) { return _mm256_set1_epi32(v); }
    static V zero() { return _mm256_setzero_si256(); }
    static V load(const int16_t* p) { return loadu(p); }
    static void store(int16_t* p, V v) { storeu(p, v); }
    static V load_aligned(const int16_t* p) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(p)); }
    static void store_aligned(int16_t* p, V v) { _mm256_store_si256(reinterpret_cast<__m256i*>(p), v); }
    static V mullo(V a, V b) { return _mm256_mullo_epi16(a, b); }
    static V mulhi(V a, V b) { return _mm256_mulhi_epi16(a, b); }
    static V unpacklo(V a, V b) { return _mm256_unpacklo_epi16(a, b); }
    static V unpackhi(V a, V b) { return _mm256_unpackhi_epi16(a, b); }
    static V packs(V a, V b) { return _mm256_packs_epi32(a, b); }
    template <int N>
    static V srai32(V a) {
        return _mm256_srai_epi32(a, N);
    }
    static V sll32(V a, __m128i n) { return _mm256_sll_epi32(a, n); }
    static V sra32(V a, __m128i n) { return _mm256_sra_epi32(a, n); }
    static V add32(V a, V b) { return _mm256_add_epi32(a, b); }
    static V and_(V a, V b) { return _mm256_and_si256(a, b); }
    static V or_(V a, V b) { return _mm256_or_si256(a, b); }
    static V cmpgt(V a, V b) { return _mm256_cmpgt_epi16(a, b); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
};

}  // namespace

void upgrade_vector(VectorKernels& k) {
    k.set8 = set8;
    k.set8_stream = set8_stream;
    k.set16 = set16;
    k.set16_stream = set16_stream;
    k.copy8 = copy8;
    k.copy8_stream = copy_stream<false>;
    k.copy8_stream_prefetch = copy_stream<true>;
    install_scaling<O>(k);
}

}  // namespace kplvc::vector::x86::avx2
