// Reversible VLC texture coding of MPEG-4 error-resilient streams
// (ISO/IEC 14496-2 Tables B-23 and B-24): one set of 169 code words, each
// standing for one intra and one inter (LAST, RUN, LEVEL) event, plus a
// fixed-length escape. The words are both prefix-free and suffix-free, so a
// partition can be read from either end: forward from its first bit, or
// backward from its last one when a bit error stopped the forward pass.
//
// Every event is a code word followed by its sign bit. The escape is the
// 30-bit sequence
//     0000 1 LAST RUN(6) 1 |LEVEL|(11) 1 0000 s
// which begins and ends with the escape word, so it too reads both ways.
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "mpeg4/texture.h"

namespace kplvc::mpeg4 {

namespace {

struct RvlcCode {
    uint16_t code;     // the word without its sign, first bit most significant
    uint8_t len;       // 3..15
    uint8_t ev[2][3];  // [intra, inter] LAST, RUN, |LEVEL|
};

// Ordered by length, then by code word.
constexpr RvlcCode kCodes[169] = {
    {0x0006, 3, {{0, 0, 1}, {0, 0, 1}}},    {0x0007, 3, {{0, 0, 2}, {0, 1, 1}}},
    {0x0001, 4, {{0, 1, 1}, {0, 0, 2}}},    {0x000A, 4, {{0, 0, 3}, {0, 2, 1}}},
    {0x000B, 4, {{1, 0, 1}, {1, 0, 1}}},    {0x0004, 5, {{0, 2, 1}, {0, 0, 3}}},
    {0x0005, 5, {{0, 3, 1}, {0, 3, 1}}},    {0x0008, 5, {{0, 1, 2}, {0, 4, 1}}},
    {0x0009, 5, {{0, 0, 4}, {0, 5, 1}}},    {0x0012, 5, {{1, 1, 1}, {1, 1, 1}}},
    {0x0013, 5, {{1, 2, 1}, {1, 2, 1}}},    {0x000C, 6, {{0, 4, 1}, {0, 1, 2}}},
    {0x000D, 6, {{0, 5, 1}, {0, 6, 1}}},    {0x0014, 6, {{0, 0, 5}, {0, 7, 1}}},
    {0x0015, 6, {{0, 0, 6}, {0, 8, 1}}},    {0x0018, 6, {{1, 3, 1}, {1, 3, 1}}},
    {0x0019, 6, {{1, 4, 1}, {1, 4, 1}}},    {0x0022, 6, {{1, 5, 1}, {1, 5, 1}}},
    {0x0023, 6, {{1, 6, 1}, {1, 6, 1}}},    {0x001C, 7, {{0, 6, 1}, {0, 0, 4}}},
    {0x001D, 7, {{0, 7, 1}, {0, 2, 2}}},    {0x002C, 7, {{0, 2, 2}, {0, 9, 1}}},
    {0x002D, 7, {{0, 1, 3}, {0, 10, 1}}},   {0x0034, 7, {{0, 0, 7}, {0, 11, 1}}},
    {0x0035, 7, {{1, 7, 1}, {1, 7, 1}}},    {0x0038, 7, {{1, 8, 1}, {1, 8, 1}}},
    {0x0039, 7, {{1, 9, 1}, {1, 9, 1}}},    {0x0042, 7, {{1, 10, 1}, {1, 10, 1}}},
    {0x0043, 7, {{1, 11, 1}, {1, 11, 1}}},  {0x003C, 8, {{0, 8, 1}, {0, 0, 5}}},
    {0x003D, 8, {{0, 9, 1}, {0, 0, 6}}},    {0x005C, 8, {{0, 3, 2}, {0, 1, 3}}},
    {0x005D, 8, {{0, 4, 2}, {0, 3, 2}}},    {0x006C, 8, {{0, 1, 4}, {0, 4, 2}}},
    {0x006D, 8, {{0, 1, 5}, {0, 12, 1}}},   {0x0074, 8, {{0, 0, 8}, {0, 13, 1}}},
    {0x0075, 8, {{0, 0, 9}, {0, 14, 1}}},   {0x0078, 8, {{1, 0, 2}, {1, 0, 2}}},
    {0x0079, 8, {{1, 12, 1}, {1, 12, 1}}},  {0x0082, 8, {{1, 13, 1}, {1, 13, 1}}},
    {0x0083, 8, {{1, 14, 1}, {1, 14, 1}}},  {0x007C, 9, {{0, 10, 1}, {0, 0, 7}}},
    {0x007D, 9, {{0, 5, 2}, {0, 1, 4}}},    {0x00BC, 9, {{0, 2, 3}, {0, 2, 3}}},
    {0x00BD, 9, {{0, 3, 3}, {0, 5, 2}}},    {0x00DC, 9, {{0, 1, 6}, {0, 15, 1}}},
    {0x00DD, 9, {{0, 0, 10}, {0, 16, 1}}},  {0x00EC, 9, {{0, 0, 11}, {0, 17, 1}}},
    {0x00ED, 9, {{1, 1, 2}, {1, 1, 2}}},    {0x00F4, 9, {{1, 15, 1}, {1, 15, 1}}},
    {0x00F5, 9, {{1, 16, 1}, {1, 16, 1}}},  {0x00F8, 9, {{1, 17, 1}, {1, 17, 1}}},
    {0x00F9, 9, {{1, 18, 1}, {1, 18, 1}}},  {0x0102, 9, {{1, 19, 1}, {1, 19, 1}}},
    {0x0103, 9, {{1, 20, 1}, {1, 20, 1}}},  {0x00FC, 10, {{0, 11, 1}, {0, 0, 8}}},
    {0x00FD, 10, {{0, 12, 1}, {0, 0, 9}}},  {0x017C, 10, {{0, 6, 2}, {0, 1, 5}}},
    {0x017D, 10, {{0, 7, 2}, {0, 3, 3}}},   {0x01BC, 10, {{0, 8, 2}, {0, 6, 2}}},
    {0x01BD, 10, {{0, 4, 3}, {0, 7, 2}}},   {0x01DC, 10, {{0, 2, 4}, {0, 8, 2}}},
    {0x01DD, 10, {{0, 1, 7}, {0, 9, 2}}},   {0x01EC, 10, {{0, 0, 12}, {0, 18, 1}}},
    {0x01ED, 10, {{0, 0, 13}, {0, 19, 1}}}, {0x01F4, 10, {{0, 0, 14}, {0, 20, 1}}},
    {0x01F5, 10, {{1, 21, 1}, {1, 21, 1}}}, {0x01F8, 10, {{1, 22, 1}, {1, 22, 1}}},
    {0x01F9, 10, {{1, 23, 1}, {1, 23, 1}}}, {0x0202, 10, {{1, 24, 1}, {1, 24, 1}}},
    {0x0203, 10, {{1, 25, 1}, {1, 25, 1}}}, {0x01FC, 11, {{0, 13, 1}, {0, 0, 10}}},
    {0x01FD, 11, {{0, 9, 2}, {0, 0, 11}}},  {0x02FC, 11, {{0, 5, 3}, {0, 1, 6}}},
    {0x02FD, 11, {{0, 6, 3}, {0, 2, 4}}},   {0x037C, 11, {{0, 7, 3}, {0, 4, 3}}},
    {0x037D, 11, {{0, 3, 4}, {0, 5, 3}}},   {0x03BC, 11, {{0, 2, 5}, {0, 10, 2}}},
    {0x03BD, 11, {{0, 2, 6}, {0, 21, 1}}},  {0x03DC, 11, {{0, 1, 8}, {0, 22, 1}}},
    {0x03DD, 11, {{0, 1, 9}, {0, 23, 1}}},  {0x03EC, 11, {{0, 0, 15}, {0, 24, 1}}},
    {0x03ED, 11, {{0, 0, 16}, {0, 25, 1}}}, {0x03F4, 11, {{0, 0, 17}, {0, 26, 1}}},
    {0x03F5, 11, {{1, 0, 3}, {1, 0, 3}}},   {0x03F8, 11, {{1, 2, 2}, {1, 2, 2}}},
    {0x03F9, 11, {{1, 26, 1}, {1, 26, 1}}}, {0x0402, 11, {{1, 27, 1}, {1, 27, 1}}},
    {0x0403, 11, {{1, 28, 1}, {1, 28, 1}}}, {0x03FC, 12, {{0, 10, 2}, {0, 0, 12}}},
    {0x03FD, 12, {{0, 4, 4}, {0, 1, 7}}},   {0x05FC, 12, {{0, 5, 4}, {0, 2, 5}}},
    {0x05FD, 12, {{0, 6, 4}, {0, 3, 4}}},   {0x06FC, 12, {{0, 3, 5}, {0, 6, 3}}},
    {0x06FD, 12, {{0, 4, 5}, {0, 7, 3}}},   {0x077C, 12, {{0, 1, 10}, {0, 11, 2}}},
    {0x077D, 12, {{0, 0, 18}, {0, 27, 1}}}, {0x07BC, 12, {{0, 0, 19}, {0, 28, 1}}},
    {0x07BD, 12, {{0, 0, 22}, {0, 29, 1}}}, {0x07DC, 12, {{1, 1, 3}, {1, 1, 3}}},
    {0x07DD, 12, {{1, 3, 2}, {1, 3, 2}}},   {0x07EC, 12, {{1, 4, 2}, {1, 4, 2}}},
    {0x07ED, 12, {{1, 29, 1}, {1, 29, 1}}}, {0x07F4, 12, {{1, 30, 1}, {1, 30, 1}}},
    {0x07F5, 12, {{1, 31, 1}, {1, 31, 1}}}, {0x07F8, 12, {{1, 32, 1}, {1, 32, 1}}},
    {0x07F9, 12, {{1, 33, 1}, {1, 33, 1}}}, {0x0802, 12, {{1, 34, 1}, {1, 34, 1}}},
    {0x0803, 12, {{1, 35, 1}, {1, 35, 1}}}, {0x07FC, 13, {{0, 14, 1}, {0, 0, 13}}},
    {0x07FD, 13, {{0, 15, 1}, {0, 0, 14}}}, {0x0BFC, 13, {{0, 11, 2}, {0, 0, 15}}},
    {0x0BFD, 13, {{0, 8, 3}, {0, 0, 16}}},  {0x0DFC, 13, {{0, 9, 3}, {0, 1, 8}}},
    {0x0DFD, 13, {{0, 7, 4}, {0, 3, 5}}},   {0x0EFC, 13, {{0, 3, 6}, {0, 4, 4}}},
    {0x0EFD, 13, {{0, 2, 7}, {0, 5, 4}}},   {0x0F7C, 13, {{0, 2, 8}, {0, 8, 3}}},
    {0x0F7D, 13, {{0, 2, 9}, {0, 12, 2}}},  {0x0FBC, 13, {{0, 1, 11}, {0, 30, 1}}},
    {0x0FBD, 13, {{0, 0, 20}, {0, 31, 1}}}, {0x0FDC, 13, {{0, 0, 21}, {0, 32, 1}}},
    {0x0FDD, 13, {{0, 0, 23}, {0, 33, 1}}}, {0x0FEC, 13, {{1, 0, 4}, {1, 0, 4}}},
    {0x0FED, 13, {{1, 5, 2}, {1, 5, 2}}},   {0x0FF4, 13, {{1, 6, 2}, {1, 6, 2}}},
    {0x0FF5, 13, {{1, 7, 2}, {1, 7, 2}}},   {0x0FF8, 13, {{1, 8, 2}, {1, 8, 2}}},
    {0x0FF9, 13, {{1, 9, 2}, {1, 9, 2}}},   {0x1002, 13, {{1, 36, 1}, {1, 36, 1}}},
    {0x1003, 13, {{1, 37, 1}, {1, 37, 1}}}, {0x0FFC, 14, {{0, 16, 1}, {0, 0, 17}}},
    {0x0FFD, 14, {{0, 17, 1}, {0, 0, 18}}}, {0x17FC, 14, {{0, 18, 1}, {0, 1, 9}}},
    {0x17FD, 14, {{0, 8, 4}, {0, 1, 10}}},  {0x1BFC, 14, {{0, 5, 5}, {0, 2, 6}}},
    {0x1BFD, 14, {{0, 4, 6}, {0, 2, 7}}},   {0x1DFC, 14, {{0, 5, 6}, {0, 3, 6}}},
    {0x1DFD, 14, {{0, 3, 7}, {0, 6, 4}}},   {0x1EFC, 14, {{0, 3, 8}, {0, 9, 3}}},
    {0x1EFD, 14, {{0, 2, 10}, {0, 13, 2}}}, {0x1F7C, 14, {{0, 2, 11}, {0, 14, 2}}},
    {0x1F7D, 14, {{0, 1, 12}, {0, 15, 2}}}, {0x1FBC, 14, {{0, 1, 13}, {0, 16, 2}}},
    {0x1FBD, 14, {{0, 0, 24}, {0, 34, 1}}}, {0x1FDC, 14, {{0, 0, 25}, {0, 35, 1}}},
    {0x1FDD, 14, {{0, 0, 26}, {0, 36, 1}}}, {0x1FEC, 14, {{1, 0, 5}, {1, 0, 5}}},
    {0x1FED, 14, {{1, 1, 4}, {1, 1, 4}}},   {0x1FF4, 14, {{1, 10, 2}, {1, 10, 2}}},
    {0x1FF5, 14, {{1, 11, 2}, {1, 11, 2}}}, {0x1FF8, 14, {{1, 12, 2}, {1, 12, 2}}},
    {0x1FF9, 14, {{1, 38, 1}, {1, 38, 1}}}, {0x2002, 14, {{1, 39, 1}, {1, 39, 1}}},
    {0x2003, 14, {{1, 40, 1}, {1, 40, 1}}}, {0x1FFC, 15, {{0, 0, 27}, {0, 0, 19}}},
    {0x1FFD, 15, {{0, 3, 9}, {0, 3, 7}}},   {0x2FFC, 15, {{0, 6, 5}, {0, 4, 5}}},
    {0x2FFD, 15, {{0, 7, 5}, {0, 7, 4}}},   {0x37FC, 15, {{0, 9, 4}, {0, 17, 2}}},
    {0x37FD, 15, {{0, 12, 2}, {0, 37, 1}}}, {0x3BFC, 15, {{0, 19, 1}, {0, 38, 1}}},
    {0x3BFD, 15, {{1, 1, 5}, {1, 1, 5}}},   {0x3DFC, 15, {{1, 2, 3}, {1, 2, 3}}},
    {0x3DFD, 15, {{1, 13, 2}, {1, 13, 2}}}, {0x3EFC, 15, {{1, 41, 1}, {1, 41, 1}}},
    {0x3EFD, 15, {{1, 42, 1}, {1, 42, 1}}}, {0x3F7C, 15, {{1, 43, 1}, {1, 43, 1}}},
    {0x3F7D, 15, {{1, 44, 1}, {1, 44, 1}}},
};

constexpr int kEscLen = 4;                // the escape word 0000
constexpr int kLookBits = 15;             // the longest word
constexpr int kMinEventLen = 4;           // the shortest word and its sign
constexpr uint8_t kNone = 0, kEsc = 170;  // lookup entries: code index + 1, or these

constexpr uint32_t reverse_bits(uint32_t v, int n) {
    uint32_t r = 0;
    for (int i = 0; i < n; ++i) r |= ((v >> i) & 1u) << (n - 1 - i);
    return r;
}

// Entry of every 15-bit window that starts with a word (read forward), or
// that starts with a reversed word (the bits read backward from a word's
// end): the word's index + 1, kEsc for the escape word, kNone otherwise.
constexpr std::array<uint8_t, 1u << kLookBits> make_lookup(bool backward) {
    std::array<uint8_t, 1u << kLookBits> t{};
    auto fill = [&t](uint32_t code, int len, uint8_t v) {
        const uint32_t lo = code << (kLookBits - len), n = 1u << (kLookBits - len);
        for (uint32_t k = 0; k < n; ++k) t[lo + k] = v;
    };
    for (int i = 0; i < 169; ++i) {
        const uint32_t c = backward ? reverse_bits(kCodes[i].code, kCodes[i].len) : kCodes[i].code;
        fill(c, kCodes[i].len, static_cast<uint8_t>(i + 1));
    }
    fill(0, kEscLen, kEsc);
    return t;
}

constexpr auto kForward = make_lookup(false);
constexpr auto kBackward = make_lookup(true);

// Encoder: index + 1 of the word of (LAST, RUN, |LEVEL|), 0 when the table
// has none (|LEVEL| up to 27, the largest with a word).
constexpr int kMaxWordLevel = 27;
using EventIndex = std::array<std::array<std::array<uint8_t, kMaxWordLevel + 1>, 64>, 2>;
constexpr EventIndex make_event_index(int inter) {
    EventIndex t{};
    for (int i = 0; i < 169; ++i) {
        const uint8_t* e = kCodes[i].ev[inter];
        t[e[0]][e[1]][e[2]] = static_cast<uint8_t>(i + 1);
    }
    return t;
}
constexpr EventIndex kEventIndex[2] = {make_event_index(0), make_event_index(1)};

// The escape's fields in its 30 bits (first bit at bit 29). Checks the
// leading "00001", both markers, the trailing escape word and the level.
KplStatus parse_escape(uint32_t v, Event* ev, int* len) {
    if ((v >> 25) != 1u || ((v >> 1) & 15u) != 0) return kplStsTextureVLCErr;
    if (((v >> 17) & 1u) == 0 || ((v >> 5) & 1u) == 0) return kplStsMarkerErr;
    const int32_t mag = static_cast<int32_t>((v >> 6) & 0x7FFu);
    if (mag == 0) return kplStsTextureVLCErr;
    ev->last = static_cast<int32_t>((v >> 24) & 1u);
    ev->run = static_cast<int32_t>((v >> 18) & 63u);
    ev->level = (v & 1u) ? -mag : mag;
    *len = 30;
    return kplStsNoErr;
}

void set_event(const RvlcCode& c, int inter, uint32_t sign, Event* ev) {
    ev->last = c.ev[inter][0];
    ev->run = c.ev[inter][1];
    ev->level = sign ? -c.ev[inter][2] : c.ev[inter][2];
}

// One event read forward.
KplStatus read_forward(BitCache64& bc, int inter, Event* ev) {
    const uint32_t v = bc.peek(kLookBits + 1);
    const uint8_t e = kForward[v >> 1];
    if (e == kNone) return kplStsTextureVLCErr;
    if (e == kEsc) {
        // 25 + 5 bits: the cache serves at most 25 at once. The first 25 hold
        // every field but the closing word and the sign; they are checked
        // before the cache moves (and reloads past them), so zero padding
        // after a stream fails the markers without being run into.
        const uint32_t hi = bc.peek(25);
        int len;
        KplStatus st = parse_escape((hi << 5) | 1u, ev, &len);  // a closing word that passes
        if (st != kplStsNoErr) return st;
        BitCache64 t = bc;
        t.skip(25);
        st = parse_escape((hi << 5) | t.peek(5), ev, &len);
        if (st != kplStsNoErr) return st;
        bc = t;
        bc.skip(5);
        return kplStsNoErr;
    }
    const RvlcCode& c = kCodes[e - 1];
    set_event(c, inter, (v >> (kLookBits - c.len)) & 1u, ev);
    bc.skip(c.len + 1);
    return kplStsNoErr;
}

// Bits read backward from the bit position `pos` (counted from the most
// significant bit of base[0]) down to, but not below, `bound`.
struct BackReader {
    const uint8_t* base;
    int64_t pos, bound;

    // Bits [pos - 32, pos) with bit pos - 1 lowest; bits before base[0] are
    // 0. Reads only bytes base[0] .. the one holding bit pos - 1.
    uint32_t window() const {
        const int64_t last = (pos - 1) >> 3;
        uint64_t w = 0;
        if (last >= 7) {
            std::memcpy(&w, base + last - 7, 8);
            if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
        } else {
            for (int64_t k = 0; k <= last; ++k) w = (w << 8) | base[k];
        }
        return static_cast<uint32_t>(w >> (7 - ((pos - 1) & 7)));
    }

    // One event ending at pos: the sign bit, then the word reversed. Does
    // not move; *len gets the event's length.
    KplStatus peek(int inter, Event* ev, int* len) const {
        const int64_t avail = pos - bound;
        if (avail < kMinEventLen) return kplStsTextureVLCErr;
        const uint32_t w = window();
        // Bit pos - 2 first: the window reversed, without the sign bit.
        uint32_t r = w;
        r = ((r >> 1) & 0x55555555u) | ((r & 0x55555555u) << 1);
        r = ((r >> 2) & 0x33333333u) | ((r & 0x33333333u) << 2);
        r = ((r >> 4) & 0x0F0F0F0Fu) | ((r & 0x0F0F0F0Fu) << 4);
        r = __builtin_bswap32(r);
        const uint8_t e = kBackward[(r << 1) >> (32 - kLookBits)];
        if (e == kNone) return kplStsTextureVLCErr;
        if (e == kEsc) {
            if (avail < 30) return kplStsTextureVLCErr;
            return parse_escape(w & 0x3FFFFFFFu, ev, len);
        }
        const RvlcCode& c = kCodes[e - 1];
        if (avail < c.len + 1) return kplStsTextureVLCErr;
        set_event(c, inter, w & 1u, ev);
        *len = c.len + 1;
        return kplStsNoErr;
    }
};

// The levels of a block and their raster positions, in scan order.
struct Levels {
    int n = 0;
    uint8_t pos[64];
    int16_t val[64];
    void put(int16_t* dst, int first) const {
        std::memset(dst + first, 0, static_cast<size_t>(64 - first) * sizeof(int16_t));
        for (int k = 0; k < n; ++k) dst[pos[k]] = val[k];
    }
    // Appends an event after scan index *i; false past index 63.
    bool add(const Event& ev, const uint8_t* scan, int* i) {
        *i += ev.run + 1;
        if (*i > 63) return false;
        pos[n] = scan[*i];
        val[n++] = static_cast<int16_t>(ev.level);
        return true;
    }
};

// Forward: events until LAST, each level mapped by Dequant (given the raster
// position) as it is recorded. With mismatch control (the first inverse
// quantisation method), an even sum of the results flips the lowest bit of
// coefficient 63.
template <class Dequant>
KplStatus decode_forward(Kpl8u** pp, Kpl32s* off, Kpl16s* coeffs, Kpl32s* last_index, int inter, int start,
                         Kpl32s scan, Dequant dq, bool mismatch) {
    BitCache64 bc(*pp, *off);
    const uint8_t* s = scan_table(scan);
    Levels lv;
    int i = start;
    for (;;) {
        Event ev;
        const KplStatus st = read_forward(bc, inter, &ev);
        if (st != kplStsNoErr) return st;
        if (!lv.add(ev, s, &i)) return kplStsCoefCountErr;
        lv.val[lv.n - 1] = dq(ev.level, lv.pos[lv.n - 1]);
        if (ev.last) break;
    }
    lv.put(coeffs, start + 1);
    if (mismatch) {
        uint32_t sum = 0;
        for (int k = 0; k < lv.n; ++k) sum += static_cast<uint32_t>(lv.val[k]);
        if ((sum & 1u) == 0) {
            coeffs[63] = static_cast<int16_t>(coeffs[63] ^ 1);
            i = 63;
        }
    }
    *last_index = i;
    write_back(bc, pp, off);
    return kplStsNoErr;
}

struct KeepLevel {
    int16_t operator()(int32_t level, int) const { return static_cast<int16_t>(level); }
};

// Backward: the block's last event (LAST = 1) first, then earlier events
// until the start of the partition or the previous block's last event
// (LAST = 1, left unread).
KplStatus decode_backward(Kpl8u** pp, Kpl32s* off, const Kpl8u* start_byte, Kpl32s start_off, Kpl16s* coeffs,
                          Kpl32s* last_index, int inter, int start, Kpl32s scan) {
    BackReader br{start_byte, (*pp - start_byte) * 8 + *off, start_off};
    Event evs[64];
    int n = 0, run_sum = 0;
    for (;;) {
        Event ev;
        int len;
        if (n > 0 && br.pos == br.bound) break;
        const KplStatus st = br.peek(inter, &ev, &len);
        if (st != kplStsNoErr) return st;
        if (n == 0 && !ev.last) return kplStsTextureVLCErr;
        if (n > 0 && ev.last) break;
        // Each event takes at least one position: more than 64 cannot fit.
        run_sum += ev.run + 1;
        if (run_sum > 63 - start) return kplStsCoefCountErr;
        evs[n++] = ev;
        br.pos -= len;
    }
    const uint8_t* s = scan_table(scan);
    Levels lv;
    int i = start;
    for (int k = n - 1; k >= 0; --k) lv.add(evs[k], s, &i);
    lv.put(coeffs, start + 1);
    *last_index = i;
    *pp = const_cast<Kpl8u*>(start_byte) + (br.pos >> 3);
    *off = static_cast<Kpl32s>(br.pos & 7);
    return kplStsNoErr;
}

void put_event(uint8_t** pp, int32_t* off, int inter, int32_t last, int32_t run, int32_t level) {
    const int32_t mag = std::abs(level);
    const uint32_t sign = level < 0 ? 1u : 0u;
    const uint8_t e = mag <= kMaxWordLevel ? kEventIndex[inter][last][run][mag] : 0;
    if (e != 0) {
        const RvlcCode& c = kCodes[e - 1];
        PutBits(pp, off, (uint32_t{c.code} << 1) | sign, c.len + 1);
        return;
    }
    const uint32_t v = (1u << 25) | (static_cast<uint32_t>(last) << 24) | (static_cast<uint32_t>(run) << 18) |
                       (1u << 17) | (static_cast<uint32_t>(mag) << 6) | (1u << 5) | sign;
    PutBits(pp, off, v, 30);
}

KplStatus encode_block(const int16_t* c, uint8_t** pp, int32_t* off, int inter, int first, Kpl32s scan) {
    const uint8_t* s = scan_table(scan);
    int last = -1;
    for (int i = 63; i >= first; --i) {
        const int32_t v = c[s[i]];
        if (v < -2047 || v > 2047) return kplStsBadArgErr;
        if (last < 0 && v != 0) last = i;
    }
    int run = 0;
    for (int i = first; i <= last; ++i) {
        const int32_t v = c[s[i]];
        if (v == 0) {
            ++run;
            continue;
        }
        put_event(pp, off, inter, i == last ? 1 : 0, run, v);
        run = 0;
    }
    return kplStsNoErr;
}

bool bad_offset(Kpl32s o) { return o < 0 || o > 7; }
bool bad_scan(Kpl32s scan) { return scan < 0 || scan > 2; }

// The checks of the backward decoders, in order.
KplStatus check_backward(Kpl8u** pp, Kpl32s* off, const Kpl8u* start, Kpl32s start_off, const Kpl16s* coeffs,
                         const Kpl32s* last) {
    if (null_stream(pp, off) || start == nullptr || coeffs == nullptr || last == nullptr)
        return kplStsNullPtrErr;
    if (bad_offset(*off) || bad_offset(start_off)) return kplStsShapeArgErr;
    return kplStsNoErr;
}

bool start_after(Kpl8u* const* pp, const Kpl32s* off, const Kpl8u* start, Kpl32s start_off) {
    return start > *pp || (start == *pp && start_off > *off);
}

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc;
using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliDecodeCoeffsIntraRVLC_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                          Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                          Kpl32s dcVlc, Kpl32s scan) {
    if (null_stream(ppBitStream, pBitOffset) || pCoeffs == nullptr || pIndxLastNonZero == nullptr)
        return kplStsNullPtrErr;
    if (bad_offset(*pBitOffset)) return kplStsShapeArgErr;
    if (dcVlc != 0 && dcVlc != 1) return kplStsModeErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    return decode_forward(ppBitStream, pBitOffset, pCoeffs, pIndxLastNonZero, 0, dcVlc ? 0 : -1, scan,
                          KeepLevel{}, false);
}

KPLVC_API KplStatus kpliDecodeCoeffsInterRVLC_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                          Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                          Kpl32s scan) {
    if (null_stream(ppBitStream, pBitOffset) || pCoeffs == nullptr || pIndxLastNonZero == nullptr)
        return kplStsNullPtrErr;
    if (bad_offset(*pBitOffset)) return kplStsShapeArgErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    return decode_forward(ppBitStream, pBitOffset, pCoeffs, pIndxLastNonZero, 1, -1, scan, KeepLevel{},
                          false);
}

KPLVC_API KplStatus kpliReconstructCoeffsInterRVLC_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                               Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                               Kpl32s scan, Kpl32s QP,
                                                               const Kpl16s* pQMatrix) {
    if (null_stream(ppBitStream, pBitOffset) || pCoeffs == nullptr || pIndxLastNonZero == nullptr)
        return kplStsNullPtrErr;
    if (bad_offset(*pBitOffset)) return kplStsShapeArgErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    if (pQMatrix == nullptr)
        return decode_forward(ppBitStream, pBitOffset, pCoeffs, pIndxLastNonZero, 1, -1, scan,
                              DequantH263{2 * QP, (QP & 1) ? QP : QP - 1}, false);
    return decode_forward(ppBitStream, pBitOffset, pCoeffs, pIndxLastNonZero, 1, -1, scan,
                          DequantMatrix{pQMatrix, QP}, true);
}

KPLVC_API KplStatus kpliDecodeCoeffsIntraRVLCBack_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                              const Kpl8u* pStart, Kpl32s startOffset,
                                                              Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                              Kpl32s dcVlc, Kpl32s scan) {
    const KplStatus st =
        check_backward(ppBitStream, pBitOffset, pStart, startOffset, pCoeffs, pIndxLastNonZero);
    if (st != kplStsNoErr) return st;
    if (dcVlc != 0 && dcVlc != 1) return kplStsModeErr;
    if (bad_scan(scan) || start_after(ppBitStream, pBitOffset, pStart, startOffset)) return kplStsBadArgErr;
    return decode_backward(ppBitStream, pBitOffset, pStart, startOffset, pCoeffs, pIndxLastNonZero, 0,
                           dcVlc ? 0 : -1, scan);
}

KPLVC_API KplStatus kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                              const Kpl8u* pStart, Kpl32s startOffset,
                                                              Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                              Kpl32s scan) {
    const KplStatus st =
        check_backward(ppBitStream, pBitOffset, pStart, startOffset, pCoeffs, pIndxLastNonZero);
    if (st != kplStsNoErr) return st;
    if (bad_scan(scan) || start_after(ppBitStream, pBitOffset, pStart, startOffset)) return kplStsBadArgErr;
    return decode_backward(ppBitStream, pBitOffset, pStart, startOffset, pCoeffs, pIndxLastNonZero, 1, -1,
                           scan);
}

KPLVC_API KplStatus kpliEncodeCoeffsIntraRVLC_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                          Kpl32s* pBitOffset, Kpl32s dcVlc, Kpl32s scan) {
    if (pCoeffs == nullptr || null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (bad_offset(*pBitOffset)) return kplStsShapeArgErr;
    if (dcVlc != 0 && dcVlc != 1) return kplStsModeErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    return encode_block(pCoeffs, ppBitStream, pBitOffset, 0, dcVlc, scan);
}

KPLVC_API KplStatus kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                          Kpl32s* pBitOffset, Kpl32s scan) {
    if (pCoeffs == nullptr || null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (bad_offset(*pBitOffset)) return kplStsShapeArgErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    return encode_block(pCoeffs, ppBitStream, pBitOffset, 1, 0, scan);
}

}  // extern "C"
