// SSE2 vector kernels: 16 bytes per step, aligned streaming stores for long
// runs, eight 16-bit lanes for scaling and thresholds.
#include <emmintrin.h>

#include <cstring>

#include "core/vector.h"

namespace kplvc::vector::x86::sse2 {
namespace {

#include "core/x86/vector-inl.h"

inline __m128i loadu(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void storeu(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }

// Stores v over [dst, dst+len) with 16-byte stores; short runs use
// overlapping narrower stores so nothing outside the run is written.
inline void fill_pattern(uint8_t* dst, __m128i v, size_t len) {
    if (len < 16) {
        uint64_t w;
        _mm_storel_epi64(reinterpret_cast<__m128i*>(&w), v);
        if (len >= 8) {
            std::memcpy(dst, &w, 8);
            std::memcpy(dst + len - 8, &w, 8);
        } else if (len >= 4) {
            uint32_t u = static_cast<uint32_t>(w);
            std::memcpy(dst, &u, 4);
            std::memcpy(dst + len - 4, &u, 4);
        } else {
            for (size_t i = 0; i < len; ++i) dst[i] = static_cast<uint8_t>(w >> (8 * (i & 1)));
        }
        return;
    }
    storeu(dst, v);
    uint8_t* p = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(dst) + 16) & ~uintptr_t{15});
    uint8_t* const end = dst + len;
    while (p + 16 <= end) {
        _mm_store_si128(reinterpret_cast<__m128i*>(p), v);
        p += 16;
    }
    storeu(end - 16, v);
}

void set16(int16_t* dst, int16_t val, size_t len) {
    // A 16-bit pattern stays in phase under the overlapping byte stores only
    // when dst is 2-aligned, which Kpl16s* is.
    fill_pattern(reinterpret_cast<uint8_t*>(dst), _mm_set1_epi16(val), 2 * len);
}

// Streaming fill: scalar head up to 16-byte alignment, non-temporal stores,
// scalar tail, store fence.
void stream_pattern(uint8_t* dst, __m128i v, size_t len, uint8_t phase_bytes[16]) {
    size_t i = 0;
    while (i < len && ((reinterpret_cast<uintptr_t>(dst + i) & 15) != 0)) {
        dst[i] = phase_bytes[i & 15];
        ++i;
    }
    // Re-phase the pattern for the aligned body (only matters for 16-bit fills).
    alignas(16) uint8_t rot[16];
    for (int b = 0; b < 16; ++b) rot[b] = phase_bytes[(i + b) & 15];
    v = _mm_load_si128(reinterpret_cast<const __m128i*>(rot));
    for (; i + 64 <= len; i += 64) {
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), v);
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 16), v);
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 32), v);
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 48), v);
    }
    for (; i + 16 <= len; i += 16) _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), v);
    _mm_sfence();
    for (; i < len; ++i) dst[i] = phase_bytes[i & 15];
}

void set8_stream(uint8_t* dst, uint8_t val, size_t len) {
    uint8_t bytes[16];
    std::memset(bytes, val, 16);
    stream_pattern(dst, _mm_set1_epi8(static_cast<char>(val)), len, bytes);
}

void set16_stream(int16_t* dst, int16_t val, size_t len) {
    uint8_t bytes[16];
    for (int i = 0; i < 8; ++i) std::memcpy(bytes + 2 * i, &val, 2);
    stream_pattern(reinterpret_cast<uint8_t*>(dst), _mm_set1_epi16(val), 2 * len, bytes);
}

void copy8(const uint8_t* src, uint8_t* dst, size_t len) {
    if (len < 16) return copy_below16(src, dst, len);
    const __m128i last = loadu(src + len - 16);
    size_t i = 0;
    for (; i + 64 <= len; i += 64) {
        __m128i a = loadu(src + i), b = loadu(src + i + 16), c = loadu(src + i + 32), d = loadu(src + i + 48);
        storeu(dst + i, a);
        storeu(dst + i + 16, b);
        storeu(dst + i + 32, c);
        storeu(dst + i + 48, d);
    }
    for (; i + 16 <= len; i += 16) storeu(dst + i, loadu(src + i));
    storeu(dst + len - 16, last);
}

template <bool Prefetch>
void copy_stream(const uint8_t* src, uint8_t* dst, size_t len) {
    size_t i = 0;
    while (i < len && (reinterpret_cast<uintptr_t>(dst + i) & 15) != 0) {
        dst[i] = src[i];
        ++i;
    }
    for (; i + 64 <= len; i += 64) {
        if constexpr (Prefetch) _mm_prefetch(reinterpret_cast<const char*>(src + i + 512), _MM_HINT_NTA);
        __m128i a = loadu(src + i), b = loadu(src + i + 16), c = loadu(src + i + 32), d = loadu(src + i + 48);
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), a);
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 16), b);
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 32), c);
        _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i + 48), d);
    }
    for (; i + 16 <= len; i += 16) _mm_stream_si128(reinterpret_cast<__m128i*>(dst + i), loadu(src + i));
    _mm_sfence();
    for (; i < len; ++i) dst[i] = src[i];
}

// Eight 16-bit lanes.
struct O {
    using V = __m128i;
    static constexpr int kLanes = 8;
    static V set1(int16_t v) { return _mm_set1_epi16(v); }
    static V set1_32(int32_t v) { return _mm_set1_epi32(v); }
    static V zero() { return _mm_setzero_si128(); }
    static V load(const int16_t* p) { return loadu(p); }
    static void store(int16_t* p, V v) { storeu(p, v); }
    static V load_aligned(const int16_t* p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store_aligned(int16_t* p, V v) { _mm_store_si128(reinterpret_cast<__m128i*>(p), v); }
    static V mullo(V a, V b) { return _mm_mullo_epi16(a, b); }
    static V mulhi(V a, V b) { return _mm_mulhi_epi16(a, b); }
    static V unpacklo(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V unpackhi(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V packs(V a, V b) { return _mm_packs_epi32(a, b); }
    template <int N>
    static V srai32(V a) {
        return _mm_srai_epi32(a, N);
    }
    static V sll32(V a, __m128i n) { return _mm_sll_epi32(a, n); }
    static V sra32(V a, __m128i n) { return _mm_sra_epi32(a, n); }
    static V add32(V a, V b) { return _mm_add_epi32(a, b); }
    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V or_(V a, V b) { return _mm_or_si128(a, b); }
    static V cmpgt(V a, V b) { return _mm_cmpgt_epi16(a, b); }
    static V min(V a, V b) { return _mm_min_epi16(a, b); }
    static V max(V a, V b) { return _mm_max_epi16(a, b); }
};

}  // namespace

void upgrade_vector(VectorKernels& k) {
    // The plain byte fill stays scalar: the compiler turns that loop into a
    // call of the C library's memset, which measured faster than 16-byte
    // stores here (the 16-bit fill has no such library twin).
    k.set8_stream = set8_stream;
    k.set16 = set16;
    k.set16_stream = set16_stream;
    k.copy8 = copy8;
    k.copy8_stream = copy_stream<false>;
    k.copy8_stream_prefetch = copy_stream<true>;
    install_scaling<O>(k);
}

}  // namespace kplvc::vector::x86::sse2
