// MPEG-4 texture code tables: the intra run-level table (ISO/IEC 14496-2
// Table B-16) built at compile time into the H.263 lookup layout, its escape
// limits, and the inter table's limits (the inter table itself is the H.263
// TCOEF table of src/h263).
#include <cstddef>

#include "block/scan.h"
#include "mpeg4/texture.h"

namespace kplvc::mpeg4 {

namespace {

struct Code {
    const char* bits;      // code word without its sign bit, first bit first
    int last, run, level;  // level 0: ESCAPE
};

// Table B-16: the same code words as the inter table, other events.
constexpr Code kIntraCodeList[] = {
    {"10", 0, 0, 1},
    {"110", 0, 0, 2},
    {"1111", 0, 0, 3},
    {"01101", 0, 0, 4},
    {"01100", 0, 0, 5},
    {"010101", 0, 0, 6},
    {"010011", 0, 0, 7},
    {"010010", 0, 0, 8},
    {"0010111", 0, 0, 9},
    {"00011111", 0, 0, 10},
    {"00011110", 0, 0, 11},
    {"00011101", 0, 0, 12},
    {"000100101", 0, 0, 13},
    {"000100100", 0, 0, 14},
    {"000100011", 0, 0, 15},
    {"000100001", 0, 0, 16},
    {"0000100001", 0, 0, 17},
    {"0000100000", 0, 0, 18},
    {"0000001111", 0, 0, 19},
    {"0000001110", 0, 0, 20},
    {"00000000111", 0, 0, 21},
    {"00000000110", 0, 0, 22},
    {"00000100000", 0, 0, 23},
    {"00000100001", 0, 0, 24},
    {"000001010000", 0, 0, 25},
    {"000001010001", 0, 0, 26},
    {"000001010010", 0, 0, 27},
    {"1110", 0, 1, 1},
    {"010100", 0, 1, 2},
    {"0010110", 0, 1, 3},
    {"00011100", 0, 1, 4},
    {"000100000", 0, 1, 5},
    {"000011111", 0, 1, 6},
    {"0000001101", 0, 1, 7},
    {"00000100010", 0, 1, 8},
    {"000001010011", 0, 1, 9},
    {"000001010101", 0, 1, 10},
    {"01011", 0, 2, 1},
    {"0010101", 0, 2, 2},
    {"000011110", 0, 2, 3},
    {"0000001100", 0, 2, 4},
    {"000001010110", 0, 2, 5},
    {"010001", 0, 3, 1},
    {"00011011", 0, 3, 2},
    {"000011101", 0, 3, 3},
    {"0000001011", 0, 3, 4},
    {"010000", 0, 4, 1},
    {"000100010", 0, 4, 2},
    {"0000001010", 0, 4, 3},
    {"001101", 0, 5, 1},
    {"000011100", 0, 5, 2},
    {"0000001000", 0, 5, 3},
    {"0010010", 0, 6, 1},
    {"000011011", 0, 6, 2},
    {"000001010100", 0, 6, 3},
    {"0010100", 0, 7, 1},
    {"000011010", 0, 7, 2},
    {"000001010111", 0, 7, 3},
    {"00011001", 0, 8, 1},
    {"0000001001", 0, 8, 2},
    {"00011000", 0, 9, 1},
    {"00000100011", 0, 9, 2},
    {"00010111", 0, 10, 1},
    {"000011001", 0, 11, 1},
    {"000011000", 0, 12, 1},
    {"0000000111", 0, 13, 1},
    {"000001011000", 0, 14, 1},
    {"0111", 1, 0, 1},
    {"001100", 1, 0, 2},
    {"00010110", 1, 0, 3},
    {"000010111", 1, 0, 4},
    {"0000000110", 1, 0, 5},
    {"00000000101", 1, 0, 6},
    {"00000000100", 1, 0, 7},
    {"000001011001", 1, 0, 8},
    {"001111", 1, 1, 1},
    {"000010110", 1, 1, 2},
    {"0000000101", 1, 1, 3},
    {"001110", 1, 2, 1},
    {"0000000100", 1, 2, 2},
    {"0010001", 1, 3, 1},
    {"00000100100", 1, 3, 2},
    {"0010000", 1, 4, 1},
    {"00000100101", 1, 4, 2},
    {"0010011", 1, 5, 1},
    {"000001011010", 1, 5, 2},
    {"00010101", 1, 6, 1},
    {"000001011011", 1, 6, 2},
    {"00010100", 1, 7, 1},
    {"00010011", 1, 8, 1},
    {"00011010", 1, 9, 1},
    {"000010101", 1, 10, 1},
    {"000010100", 1, 11, 1},
    {"000010011", 1, 12, 1},
    {"000010010", 1, 13, 1},
    {"000010001", 1, 14, 1},
    {"00000100110", 1, 15, 1},
    {"00000100111", 1, 16, 1},
    {"000001011100", 1, 17, 1},
    {"000001011101", 1, 18, 1},
    {"000001011110", 1, 19, 1},
    {"000001011111", 1, 20, 1},
    {"0000011", 0, 0, 0},
};

constexpr int length(const char* s) {
    int n = 0;
    while (s[n] != 0) ++n;
    return n;
}

constexpr uint32_t value(const char* s) {
    uint32_t v = 0;
    for (int i = 0; s[i] != 0; ++i) v = (v << 1) | static_cast<uint32_t>(s[i] - '0');
    return v;
}

// One lookup table of the H.263 layout: every 12-bit look whose leading bits
// are a code word maps, through (c12 >> shift) - base, to LAST | RUN << 1 |
// LEVEL << 7 | length << 15.
template <size_t N>
constexpr std::array<uint32_t, N> build(int shift, int32_t base) {
    std::array<uint32_t, N> t{};
    for (const Code& c : kIntraCodeList) {
        const int len = length(c.bits);
        const uint32_t entry = static_cast<uint32_t>(c.last) | static_cast<uint32_t>(c.run) << 1 |
                               static_cast<uint32_t>(c.level) << 7 | static_cast<uint32_t>(len) << 15;
        const uint32_t first = value(c.bits) << (12 - len), end = first + (1u << (12 - len));
        for (uint32_t c12 = first; c12 < end; ++c12) {
            const int64_t idx = int64_t{c12 >> shift} - base;
            if (idx >= 0 && idx < static_cast<int64_t>(N)) t[static_cast<size_t>(idx)] = entry;
        }
    }
    return t;
}

constexpr IntraCodes build_codes() {
    IntraCodes t{};
    for (const Code& c : kIntraCodeList) {
        if (c.level == 0) continue;
        t.code[c.last][c.run][c.level] =
            h263::RunLevelCode{static_cast<uint16_t>(value(c.bits)), static_cast<uint8_t>(length(c.bits))};
        if (c.level > t.max_level[c.last][c.run]) t.max_level[c.last][c.run] = static_cast<uint8_t>(c.level);
    }
    return t;
}

struct Rmax {
    int8_t v[2][32];
};

// RMAX(LAST, LEVEL) of a code list: the largest run with a code word, -1
// where the level has none.
constexpr Rmax build_rmax() {
    Rmax r{};
    for (auto& row : r.v)
        for (auto& x : row) x = -1;
    for (const Code& c : kIntraCodeList)
        if (c.level > 0 && c.run > r.v[c.last][c.level]) r.v[c.last][c.level] = static_cast<int8_t>(c.run);
    return r;
}

constexpr Rmax kIntraRmax = build_rmax();

// Table B-22 (inter RMAX): LAST 0 levels 1..12, LAST 1 levels 1..3.
constexpr Rmax kInterRmax = {{
    {-1, 26, 10, 6,  2,  1,  1,  0,  0,  0,  0,  0,  0,  -1, -1, -1,
     -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
    {-1, 40, 1,  0,  -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
     -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
}};

}  // namespace

const std::array<uint32_t, 112> kIntraTab0 = build<112>(5, 16);
const std::array<uint32_t, 96> kIntraTab1 = build<96>(2, 32);
const std::array<uint32_t, 120> kIntraTab2 = build<120>(0, 8);
const IntraCodes kIntraCodes = build_codes();

namespace {
h263::RunLevelCode intra_code(int32_t last, int32_t run, int32_t mag) {
    return kIntraCodes.code[last][run][mag];
}
h263::RunLevelCode inter_code(int32_t last, int32_t run, int32_t mag) {
    return h263::mVLC_TB17.code[last][run][mag];
}
}  // namespace

const TcoefTable kIntraTcoef = {kIntraTab0.data(),     kIntraTab1.data(), kIntraTab2.data(),
                                kIntraCodes.max_level, kIntraRmax.v,      intra_code};
const TcoefTable kInterTcoef = {h263::DCTtab0.data(),      h263::DCTtab1.data(), h263::DCTtab2.data(),
                                h263::mVLC_TB17.max_level, kInterRmax.v,         inter_code};

const uint8_t* scan_table(int32_t scan) {
    return scan == 1 ? block::ZigzagH : (scan == 2 ? block::ZigzagV : block::ZigzagC);
}

}  // namespace kplvc::mpeg4
