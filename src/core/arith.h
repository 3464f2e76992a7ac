// Small integer helpers shared by every family.
//
// These are included by files compiled with different ISA flags (-msse2,
// -mavx2, ...). They are `static inline` with always_inline so that no
// out-of-line copy built with wider instructions can ever be picked by the
// linker for a plain path.
#pragma once

#include <cstdint>
#include <type_traits>

#define KPLVC_INLINE static inline __attribute__((always_inline))

namespace kplvc {

// Low 16 bits of v as a signed value (C++20 integral conversion is modular).
KPLVC_INLINE int16_t wrap16(int32_t v) { return static_cast<int16_t>(v); }
KPLVC_INLINE int16_t wrap16u(uint32_t v) { return static_cast<int16_t>(static_cast<uint16_t>(v)); }

// Saturate to -32768..32767.
KPLVC_INLINE int16_t sat16(int32_t v) {
    return static_cast<int16_t>(v < -32768 ? -32768 : (v > 32767 ? 32767 : v));
}
KPLVC_INLINE int16_t sat16_64(int64_t v) {
    return static_cast<int16_t>(v < -32768 ? -32768 : (v > 32767 ? 32767 : v));
}

// Saturate to 0..255.
KPLVC_INLINE uint8_t clip_u8(int32_t v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

// Clamp to lo..hi.
KPLVC_INLINE int32_t clip3(int32_t lo, int32_t hi, int32_t v) { return v < lo ? lo : (v > hi ? hi : v); }

// The high half of a 16x16-bit signed product, as pmulhw computes it:
// (a * b) >> 16 with an arithmetic shift. The product always fits in int32.
KPLVC_INLINE int16_t mulhi16(int16_t a, int16_t b) {
    return static_cast<int16_t>((static_cast<int32_t>(a) * b) >> 16);
}

// The low half of a 16x16-bit product, as pmullw computes it.
KPLVC_INLINE int16_t mullo16(int16_t a, int16_t b) { return wrap16(static_cast<int32_t>(a) * b); }

// Saturating 16-bit add and subtract (paddsw / psubsw).
KPLVC_INLINE int16_t adds16(int16_t a, int16_t b) { return sat16(int32_t{a} + b); }
KPLVC_INLINE int16_t subs16(int16_t a, int16_t b) { return sat16(int32_t{a} - b); }

// Wrapping 16-bit add and subtract (paddw / psubw).
KPLVC_INLINE int16_t addw16(int16_t a, int16_t b) { return wrap16(int32_t{a} + b); }
KPLVC_INLINE int16_t subw16(int16_t a, int16_t b) { return wrap16(int32_t{a} - b); }

// Wrapping 32-bit arithmetic without signed overflow.
KPLVC_INLINE int32_t add32w(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
KPLVC_INLINE int32_t sub32w(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
KPLVC_INLINE int32_t mul32w(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

// Unsigned byte average with rounding control rc (0 or 1): (a + b + 1 - rc) >> 1.
KPLVC_INLINE uint8_t avg2(uint32_t a, uint32_t b, uint32_t rc = 0) {
    return static_cast<uint8_t>((a + b + 1 - rc) >> 1);
}
// (a + b + c + d + 2 - rc) >> 2.
KPLVC_INLINE uint8_t avg4(uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint32_t rc = 0) {
    return static_cast<uint8_t>((a + b + c + d + 2 - rc) >> 2);
}

// Unaligned little-endian loads and stores of 16-bit cells addressed by byte
// pointers (odd row steps make int16_t* rows misaligned).
KPLVC_INLINE int16_t load16(const void* p) {
    int16_t v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}
KPLVC_INLINE void store16(void* p, int16_t v) { __builtin_memcpy(p, &v, sizeof v); }
KPLVC_INLINE uint32_t load32u(const void* p) {
    uint32_t v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}
KPLVC_INLINE void store32u(void* p, uint32_t v) { __builtin_memcpy(p, &v, sizeof v); }

// Byte pointer arithmetic for rows addressed by a byte step.
template <class T>
KPLVC_INLINE T* row_at(T* base, int32_t step, int32_t row) {
    using B = std::conditional_t<std::is_const_v<T>, const uint8_t, uint8_t>;
    return reinterpret_cast<T*>(reinterpret_cast<B*>(base) + static_cast<intptr_t>(step) * row);
}

}  // namespace kplvc
