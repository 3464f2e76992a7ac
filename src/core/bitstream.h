// Byte-oriented bit-stream reading and writing shared by every decoder and
// encoder of the library, and the mask table.
//
// A position is a pointer to the byte holding the next bit plus the number of
// bits of that byte already used (0..7, counted from the most significant
// bit). Bytes are taken in increasing address order, each most significant
// bit first, so the stream is one big-endian bit sequence.
//
// The reader always loads five bytes: a caller's buffer must allow reads of
// up to four bytes past the last bit it returns. Decoders with a shorter
// look-ahead keep their own readers.
#pragma once

#include <cstdint>

#include "core/arith.h"

namespace kplvc {

// Entry n = 2^n - 1 for n = 0..32 (entry 32 is all ones), then zeros up to
// the table's end so that a count of up to 63 stays inside the table.
// `ownvBitMask` is the same table under its other name.
inline constexpr uint32_t _kplGetBitsMask[64] = {
    0x00000000u, 0x00000001u, 0x00000003u, 0x00000007u, 0x0000000Fu, 0x0000001Fu, 0x0000003Fu,
    0x0000007Fu, 0x000000FFu, 0x000001FFu, 0x000003FFu, 0x000007FFu, 0x00000FFFu, 0x00001FFFu,
    0x00003FFFu, 0x00007FFFu, 0x0000FFFFu, 0x0001FFFFu, 0x0003FFFFu, 0x0007FFFFu, 0x000FFFFFu,
    0x001FFFFFu, 0x003FFFFFu, 0x007FFFFFu, 0x00FFFFFFu, 0x01FFFFFFu, 0x03FFFFFFu, 0x07FFFFFFu,
    0x0FFFFFFFu, 0x1FFFFFFFu, 0x3FFFFFFFu, 0x7FFFFFFFu, 0xFFFFFFFFu,
};
inline constexpr const uint32_t (&ownvBitMask)[64] = _kplGetBitsMask;

// The low n bits of v through the mask table; any count is reduced to the
// table's 64 entries, so counts of 33..63 give 0 like the zero tail.
KPLVC_INLINE uint32_t low_bits(uint32_t v, int32_t n) {
    return v & _kplGetBitsMask[static_cast<uint32_t>(n) & 63u];
}

// Shifts with the count taken modulo 32, as the x86 shift instructions do:
// a shift by 32 leaves the value unchanged.
KPLVC_INLINE uint32_t shl32(uint32_t v, int32_t n) { return v << (static_cast<uint32_t>(n) & 31u); }
KPLVC_INLINE uint32_t shr32(uint32_t v, int32_t n) { return v >> (static_cast<uint32_t>(n) & 31u); }

// The next n bits (1..31) at (p, bitOffset) without moving. The five bytes
// at p form V = b0*2^32 + ... + b4; the result is
// (V >> (40 - bitOffset - n)) & ((1 << n) - 1), the mask built with the
// count modulo 32 so that n = 32 gives 0. bitOffset is 0..7.
KPLVC_INLINE uint32_t ownShowBits(const uint8_t* p, int32_t bitOffset, int32_t n) {
    const uint64_t v = (uint64_t{p[0]} << 32) | (uint64_t{p[1]} << 24) | (uint64_t{p[2]} << 16) |
                       (uint64_t{p[3]} << 8) | uint64_t{p[4]};
    // bitOffset 0..7 and n 0..32 keep the count in 1..40.
    const uint32_t shift = static_cast<uint32_t>(40 - bitOffset - n) & 63u;
    const uint32_t mask = shl32(1u, n) - 1u;
    return static_cast<uint32_t>(v >> shift) & mask;
}

// Moves the position by n bits, forwards or (n < 0) backwards: with
// q = bitOffset + n the pointer moves by q >> 3 (rounding towards minus
// infinity) and the offset becomes q & 7.
template <class Byte>
KPLVC_INLINE void ownFlushBits(Byte** ppBitStream, int32_t* pBitOffset, int32_t n) {
    const int32_t q = *pBitOffset + n;
    *ppBitStream += q >> 3;
    *pBitOffset = q & 7;
}

// ownShowBits then ownFlushBits.
template <class Byte>
KPLVC_INLINE uint32_t ownGetBits(Byte** ppBitStream, int32_t* pBitOffset, int32_t n) {
    const uint32_t v = ownShowBits(*ppBitStream, *pBitOffset, n);
    ownFlushBits(ppBitStream, pBitOffset, n);
    return v;
}

// Appends the low n bits (1..32) of code at the position. The current byte
// keeps its first `offset` bits; every byte touched is written whole, so the
// bits after the last one written are 0. Bits of code above n are dropped.
KPLVC_INLINE void PutBits(uint8_t** ppBitStream, int32_t* pBitOffset, uint32_t code, int32_t n) {
    uint8_t* p = *ppBitStream;
    const int32_t o = *pBitOffset;
    // c: the code left-aligned in 32 bits (a shift by 32 - 32 = 0 keeps it).
    const uint32_t c = shl32(code, 32 - n);
    // The 40-bit window starting at bit 7 of byte 0, with c placed after the
    // o bits that are kept: byte k is bits 39-8k .. 32-8k of the window.
    const uint64_t w = (uint64_t{c} << 8) >> o;
    const uint32_t keep = (0xFF00u >> o) & 0xFFu;  // the first o bits of byte 0
    p[0] = static_cast<uint8_t>((p[0] & keep) | static_cast<uint32_t>(w >> 32));
    for (int32_t k = 1; k <= 4; ++k) {
        if (n <= 8 * k - o) break;
        p[k] = static_cast<uint8_t>(w >> (32 - 8 * k));
    }
    ownFlushBits(ppBitStream, pBitOffset, n);
}

}  // namespace kplvc
