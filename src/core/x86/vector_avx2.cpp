// AVX2 vector kernels: 32 bytes per step; sixteen 16-bit lanes for scaling
// and thresholds.
#include <immintrin.h>

#include <cstring>

#include "core/vector.h"

namespace kplvc::vector::x86::avx2 {
namespace {

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
        } else if (len >= 8) {
            uint64_t a, b;
            std::memcpy(&a, src, 8);
            std::memcpy(&b, src + len - 8, 8);
            std::memcpy(dst, &a, 8);
            std::memcpy(dst + len - 8, &b, 8);
        } else if (len >= 4) {
            uint32_t a, b;
            std::memcpy(&a, src, 4);
            std::memcpy(&b, src + len - 4, 4);
            std::memcpy(dst, &a, 4);
            std::memcpy(dst + len - 4, &b, 4);
        } else {
            for (size_t i = 0; i < len; ++i) dst[i] = src[i];
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

template <class Op>
inline void map16(int16_t* p, size_t len, Op op) {
    size_t i = 0;
    for (; i + 16 <= len; i += 16) storeu(p + i, op(loadu(p + i)));
    if (i < len) {
        alignas(32) int16_t t[16] = {};
        std::memcpy(t, p + i, (len - i) * 2);
        _mm256_store_si256(reinterpret_cast<__m256i*>(t),
                           op(_mm256_load_si256(reinterpret_cast<const __m256i*>(t))));
        std::memcpy(p + i, t, (len - i) * 2);
    }
}

// 32-bit products of the 16-bit lanes, low and high halves of each 128-bit
// lane (packs_epi32 puts them back in order).
inline void mul32(__m256i x, __m256i v, __m256i& lo, __m256i& hi) {
    const __m256i l = _mm256_mullo_epi16(x, v), h = _mm256_mulhi_epi16(x, v);
    lo = _mm256_unpacklo_epi16(l, h);
    hi = _mm256_unpackhi_epi16(l, h);
}

void mulc_sat(int16_t* p, size_t len, int16_t val) {
    const __m256i v = _mm256_set1_epi16(val);
    map16(p, len, [v](__m256i x) {
        __m256i lo, hi;
        mul32(x, v, lo, hi);
        return _mm256_packs_epi32(lo, hi);
    });
}

void mulc_up(int16_t* p, size_t len, int16_t val, int n) {
    const __m256i v = _mm256_set1_epi16(val);
    const __m128i sh = _mm_cvtsi32_si128(n);
    map16(p, len, [v, sh](__m256i x) {
        __m256i lo, hi;
        mul32(x, v, lo, hi);
        const __m256i q = _mm256_packs_epi32(lo, hi);  // sat(x * val)
        lo = _mm256_sll_epi32(_mm256_srai_epi32(_mm256_unpacklo_epi16(q, q), 16), sh);
        hi = _mm256_sll_epi32(_mm256_srai_epi32(_mm256_unpackhi_epi16(q, q), 16), sh);
        return _mm256_packs_epi32(lo, hi);
    });
}

void mulc_down(int16_t* p, size_t len, int16_t val, int s) {
    const __m256i v = _mm256_set1_epi16(val);
    const __m128i sh = _mm_cvtsi32_si128(s);
    const __m256i half = _mm256_set1_epi32((1 << (s - 1)) - 1);
    const __m256i one = _mm256_set1_epi32(1);
    map16(p, len, [=](__m256i x) {
        __m256i lo, hi;
        mul32(x, v, lo, hi);
        lo = _mm256_add_epi32(_mm256_add_epi32(lo, half), _mm256_and_si256(_mm256_sra_epi32(lo, sh), one));
        hi = _mm256_add_epi32(_mm256_add_epi32(hi, half), _mm256_and_si256(_mm256_sra_epi32(hi, sh), one));
        return _mm256_packs_epi32(_mm256_sra_epi32(lo, sh), _mm256_sra_epi32(hi, sh));
    });
}

void mulc_sign(int16_t* p, size_t len, int16_t val) {
    const __m256i pos = _mm256_set1_epi16(val < 0 ? -32768 : 32767);
    const __m256i neg = _mm256_set1_epi16(val < 0 ? 32767 : -32768);
    const __m256i zero = _mm256_setzero_si256();
    map16(p, len, [=](__m256i x) {
        const __m256i gt = _mm256_cmpgt_epi16(x, zero), lt = _mm256_cmpgt_epi16(zero, x);
        return _mm256_or_si256(_mm256_and_si256(gt, pos), _mm256_and_si256(lt, neg));
    });
}

void threshold_gt(int16_t* p, size_t len, int16_t level) {
    const __m256i l = _mm256_set1_epi16(level);
    map16(p, len, [l](__m256i x) { return _mm256_min_epi16(x, l); });
}

void threshold_lt(int16_t* p, size_t len, int16_t level) {
    const __m256i l = _mm256_set1_epi16(level);
    map16(p, len, [l](__m256i x) { return _mm256_max_epi16(x, l); });
}

}  // namespace

void upgrade_vector(VectorKernels& k) {
    k.set8 = set8;
    k.set8_stream = set8_stream;
    k.set16 = set16;
    k.set16_stream = set16_stream;
    k.copy8 = copy8;
    k.copy8_stream = copy_stream<false>;
    k.copy8_stream_prefetch = copy_stream<true>;
    k.mulc_sat = mulc_sat;
    k.mulc_up = mulc_up;
    k.mulc_down = mulc_down;
    k.mulc_sign = mulc_sign;
    k.threshold_gt = threshold_gt;
    k.threshold_lt = threshold_lt;
}

}  // namespace kplvc::vector::x86::avx2
