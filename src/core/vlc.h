// Generic multi-level VLC tables and the word-oriented reader that decodes
// with them. The MPEG-1/MPEG-2 block decoders share this reader.
//
// Word-oriented position: a pointer to the current 32-bit word (a native
// integer, read most significant bit first) and the index of the next bit in
// it, 31 for the most significant bit, 0 for the least.
//
// Table layout (see vlc.cpp): word 0 is the first level's bit count, then its
// 2^b entries; every further sub-table is one word with its bit count and
// 2^b entries. An entry is a leaf (value << 8 | u, u = bits to give back),
// a link (w << 8 | 0x80, w = word index of the sub-table) or kVlcInvalid.
#pragma once

#include <cstdint>

#include "core/arith.h"
#include "core/bitstream.h"

namespace kplvc {

// The entry of bit patterns that begin no code: value 0xF0F1, u = 1.
constexpr uint32_t kVlcInvalid = 0x00F0F101u;
constexpr int32_t kVlcInvalidValue = 0xF0F1;
constexpr uint32_t kVlcLinkFlag = 0x80u;

// Block sizes in words of the two table forms.
constexpr int32_t kVlcWords = 16384;
constexpr int32_t kVlcWordsRL = 262144;

// Takes n bits (0..32) at (p, off) and advances the position. When the
// current word holds at least n + 1 bits the result comes from it alone and
// off decreases by n; otherwise the word pointer moves to the next word,
// which supplies the remaining bits (it is read only when at least one bit
// comes from it), and off becomes off - n + 32. off is 0..31.
KPLVC_INLINE uint32_t vlc_get_bits(const uint32_t*& p, int32_t& off, int32_t n) {
    const int32_t rest = off - n;
    const uint64_t w = load32u(p);
    if (rest >= 0) {
        off = rest;
        // rest + 1 in 1..32: a 64-bit shift keeps 32 well defined.
        return low_bits(static_cast<uint32_t>(w >> ((rest + 1) & 63)), n);
    }
    // k = n - (off + 1) bits come from the next word, 0..31 for off 0..31.
    const int32_t k = -rest - 1;
    ++p;
    off = rest + 32;
    if (k == 0) return low_bits(static_cast<uint32_t>(w), n);
    const uint64_t both = (w << 32) | load32u(p);
    return low_bits(static_cast<uint32_t>(both >> ((32 - k) & 63)), n);
}

// Gives n bits (0..31) back: off += n; reaching 32 moves to the previous word.
KPLVC_INLINE void vlc_unget_bits(const uint32_t*& p, int32_t& off, int32_t n) {
    off += n;
    if (off >= 32) {
        off -= 32;
        --p;
    }
}

// Decodes one code word with a built table. On a leaf: gives back the
// look-ahead bits, stores the value and returns 0. On a pattern that begins
// no code: stores 0xF0F1 and returns kplStsVLCErr (-74), the looked-up bits
// not given back. The position is advanced in both cases.
KPLVC_INLINE int32_t vlc_decode_one(const uint32_t*& p, int32_t& off, const int32_t* table, int32_t* value) {
    const int32_t* sub = table;
    uint32_t entry = static_cast<uint32_t>(sub[1 + vlc_get_bits(p, off, sub[0])]);
    while ((entry & kVlcLinkFlag) != 0) {
        sub = table + (entry >> 8);
        entry = static_cast<uint32_t>(sub[1 + vlc_get_bits(p, off, sub[0])]);
    }
    const int32_t v = static_cast<int32_t>(entry) >> 8;
    *value = v;
    if (v == kVlcInvalidValue) return -74;
    vlc_unget_bits(p, off, static_cast<int32_t>(entry & 0xFFu));
    return 0;
}

// Fills `table` (nwords words) from a caller's description; `rl` selects the
// three-value records. Words that a malformed description would place
// outside the block are not written (see vlc.cpp).
void vlc_build(const int32_t* desc, int32_t* table, int32_t nwords, bool rl);

}  // namespace kplvc
