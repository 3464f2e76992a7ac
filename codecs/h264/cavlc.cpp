#include "cavlc.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace kplvc::codecs::h264 {

namespace {

// The code words of ITU-T H.264 Tables 9-5 (coeff_token), 9-7 and 9-8
// (total_zeros, 4x4 blocks), 9-9 (total_zeros, 4:2:0 chroma DC) and 9-10
// (run_before), first transmitted bit first.

// coeff_token, 0 <= nC < 2: value 4 * TotalCoeff + TrailingOnes
constexpr Code kCoeffToken0[] = {
    {"1", 0},
    {"000101", 4},
    {"01", 5},
    {"00000111", 8},
    {"000100", 9},
    {"001", 10},
    {"000000111", 12},
    {"00000110", 13},
    {"0000101", 14},
    {"00011", 15},
    {"0000000111", 16},
    {"000000110", 17},
    {"00000101", 18},
    {"000011", 19},
    {"00000000111", 20},
    {"0000000110", 21},
    {"000000101", 22},
    {"0000100", 23},
    {"0000000001111", 24},
    {"00000000110", 25},
    {"0000000101", 26},
    {"00000100", 27},
    {"0000000001011", 28},
    {"0000000001110", 29},
    {"00000000101", 30},
    {"000000100", 31},
    {"0000000001000", 32},
    {"0000000001010", 33},
    {"0000000001101", 34},
    {"0000000100", 35},
    {"00000000001111", 36},
    {"00000000001110", 37},
    {"0000000001001", 38},
    {"00000000100", 39},
    {"00000000001011", 40},
    {"00000000001010", 41},
    {"00000000001101", 42},
    {"0000000001100", 43},
    {"000000000001111", 44},
    {"000000000001110", 45},
    {"00000000001001", 46},
    {"00000000001100", 47},
    {"000000000001011", 48},
    {"000000000001010", 49},
    {"000000000001101", 50},
    {"00000000001000", 51},
    {"0000000000001111", 52},
    {"000000000000001", 53},
    {"000000000001001", 54},
    {"000000000001100", 55},
    {"0000000000001011", 56},
    {"0000000000001110", 57},
    {"0000000000001101", 58},
    {"000000000001000", 59},
    {"0000000000000111", 60},
    {"0000000000001010", 61},
    {"0000000000001001", 62},
    {"0000000000001100", 63},
    {"0000000000000100", 64},
    {"0000000000000110", 65},
    {"0000000000000101", 66},
    {"0000000000001000", 67},
};

// coeff_token, 2 <= nC < 4: value 4 * TotalCoeff + TrailingOnes
constexpr Code kCoeffToken2[] = {
    {"11", 0},
    {"001011", 4},
    {"10", 5},
    {"000111", 8},
    {"00111", 9},
    {"011", 10},
    {"0000111", 12},
    {"001010", 13},
    {"001001", 14},
    {"0101", 15},
    {"00000111", 16},
    {"000110", 17},
    {"000101", 18},
    {"0100", 19},
    {"00000100", 20},
    {"0000110", 21},
    {"0000101", 22},
    {"00110", 23},
    {"000000111", 24},
    {"00000110", 25},
    {"00000101", 26},
    {"001000", 27},
    {"00000001111", 28},
    {"000000110", 29},
    {"000000101", 30},
    {"000100", 31},
    {"00000001011", 32},
    {"00000001110", 33},
    {"00000001101", 34},
    {"0000100", 35},
    {"000000001111", 36},
    {"00000001010", 37},
    {"00000001001", 38},
    {"000000100", 39},
    {"000000001011", 40},
    {"000000001110", 41},
    {"000000001101", 42},
    {"00000001100", 43},
    {"000000001000", 44},
    {"000000001010", 45},
    {"000000001001", 46},
    {"00000001000", 47},
    {"0000000001111", 48},
    {"0000000001110", 49},
    {"0000000001101", 50},
    {"000000001100", 51},
    {"0000000001011", 52},
    {"0000000001010", 53},
    {"0000000001001", 54},
    {"0000000001100", 55},
    {"0000000000111", 56},
    {"00000000001011", 57},
    {"0000000000110", 58},
    {"0000000001000", 59},
    {"00000000001001", 60},
    {"00000000001000", 61},
    {"00000000001010", 62},
    {"0000000000001", 63},
    {"00000000000111", 64},
    {"00000000000110", 65},
    {"00000000000101", 66},
    {"00000000000100", 67},
};

// coeff_token, 4 <= nC < 8: value 4 * TotalCoeff + TrailingOnes
constexpr Code kCoeffToken4[] = {
    {"1111", 0},        {"001111", 4},      {"1110", 5},        {"001011", 8},      {"01111", 9},
    {"1101", 10},       {"001000", 12},     {"01100", 13},      {"01110", 14},      {"1100", 15},
    {"0001111", 16},    {"01010", 17},      {"01011", 18},      {"1011", 19},       {"0001011", 20},
    {"01000", 21},      {"01001", 22},      {"1010", 23},       {"0001001", 24},    {"001110", 25},
    {"001101", 26},     {"1001", 27},       {"0001000", 28},    {"001010", 29},     {"001001", 30},
    {"1000", 31},       {"00001111", 32},   {"0001110", 33},    {"0001101", 34},    {"01101", 35},
    {"00001011", 36},   {"00001110", 37},   {"0001010", 38},    {"001100", 39},     {"000001111", 40},
    {"00001010", 41},   {"00001101", 42},   {"0001100", 43},    {"000001011", 44},  {"000001110", 45},
    {"00001001", 46},   {"00001100", 47},   {"000001000", 48},  {"000001010", 49},  {"000001101", 50},
    {"00001000", 51},   {"0000001101", 52}, {"000000111", 53},  {"000001001", 54},  {"000001100", 55},
    {"0000001001", 56}, {"0000001100", 57}, {"0000001011", 58}, {"0000001010", 59}, {"0000000101", 60},
    {"0000001000", 61}, {"0000000111", 62}, {"0000000110", 63}, {"0000000001", 64}, {"0000000100", 65},
    {"0000000011", 66}, {"0000000010", 67},
};

// coeff_token, 8 <= nC: value 4 * TotalCoeff + TrailingOnes
constexpr Code kCoeffToken8[] = {
    {"000011", 0},  {"000000", 4},  {"000001", 5},  {"000100", 8},  {"000101", 9},  {"000110", 10},
    {"001000", 12}, {"001001", 13}, {"001010", 14}, {"001011", 15}, {"001100", 16}, {"001101", 17},
    {"001110", 18}, {"001111", 19}, {"010000", 20}, {"010001", 21}, {"010010", 22}, {"010011", 23},
    {"010100", 24}, {"010101", 25}, {"010110", 26}, {"010111", 27}, {"011000", 28}, {"011001", 29},
    {"011010", 30}, {"011011", 31}, {"011100", 32}, {"011101", 33}, {"011110", 34}, {"011111", 35},
    {"100000", 36}, {"100001", 37}, {"100010", 38}, {"100011", 39}, {"100100", 40}, {"100101", 41},
    {"100110", 42}, {"100111", 43}, {"101000", 44}, {"101001", 45}, {"101010", 46}, {"101011", 47},
    {"101100", 48}, {"101101", 49}, {"101110", 50}, {"101111", 51}, {"110000", 52}, {"110001", 53},
    {"110010", 54}, {"110011", 55}, {"110100", 56}, {"110101", 57}, {"110110", 58}, {"110111", 59},
    {"111000", 60}, {"111001", 61}, {"111010", 62}, {"111011", 63}, {"111100", 64}, {"111101", 65},
    {"111110", 66}, {"111111", 67},
};

// coeff_token, nC = -1 (chroma DC, 4:2:0): value 4 * TotalCoeff + TrailingOnes
constexpr Code kCoeffTokenChromaDc[] = {
    {"01", 0},      {"000111", 4},    {"1", 5},         {"000100", 8},   {"000110", 9},
    {"001", 10},    {"000011", 12},   {"0000011", 13},  {"0000010", 14}, {"000101", 15},
    {"000010", 16}, {"00000011", 17}, {"00000010", 18}, {"0000000", 19},
};

// total_zeros, 4x4 blocks, TotalCoeff 1
constexpr Code kTotalZeros1[] = {
    {"1", 0},         {"011", 1},        {"010", 2},        {"0011", 3},
    {"0010", 4},      {"00011", 5},      {"00010", 6},      {"000011", 7},
    {"000010", 8},    {"0000011", 9},    {"0000010", 10},   {"00000011", 11},
    {"00000010", 12}, {"000000011", 13}, {"000000010", 14}, {"000000001", 15},
};

// total_zeros, 4x4 blocks, TotalCoeff 2
constexpr Code kTotalZeros2[] = {
    {"111", 0},    {"110", 1},     {"101", 2},     {"100", 3},     {"011", 4},
    {"0101", 5},   {"0100", 6},    {"0011", 7},    {"0010", 8},    {"00011", 9},
    {"00010", 10}, {"000011", 11}, {"000010", 12}, {"000001", 13}, {"000000", 14},
};

// total_zeros, 4x4 blocks, TotalCoeff 3
constexpr Code kTotalZeros3[] = {
    {"0101", 0}, {"111", 1},  {"110", 2},   {"101", 3},    {"0100", 4},    {"0011", 5},   {"100", 6},
    {"011", 7},  {"0010", 8}, {"00011", 9}, {"00010", 10}, {"000001", 11}, {"00001", 12}, {"000000", 13},
};

// total_zeros, 4x4 blocks, TotalCoeff 4
constexpr Code kTotalZeros4[] = {
    {"00011", 0}, {"111", 1}, {"0101", 2}, {"0100", 3},   {"110", 4},    {"101", 5},    {"100", 6},
    {"0011", 7},  {"011", 8}, {"0010", 9}, {"00010", 10}, {"00001", 11}, {"00000", 12},
};

// total_zeros, 4x4 blocks, TotalCoeff 5
constexpr Code kTotalZeros5[] = {
    {"0101", 0}, {"0100", 1}, {"0011", 2}, {"111", 3},   {"110", 4},   {"101", 5},
    {"100", 6},  {"011", 7},  {"0010", 8}, {"00001", 9}, {"0001", 10}, {"00000", 11},
};

// total_zeros, 4x4 blocks, TotalCoeff 6
constexpr Code kTotalZeros6[] = {
    {"000001", 0}, {"00001", 1}, {"111", 2},  {"110", 3}, {"101", 4},     {"100", 5},
    {"011", 6},    {"010", 7},   {"0001", 8}, {"001", 9}, {"000000", 10},
};

// total_zeros, 4x4 blocks, TotalCoeff 7
constexpr Code kTotalZeros7[] = {
    {"000001", 0}, {"00001", 1}, {"101", 2},  {"100", 3}, {"011", 4},
    {"11", 5},     {"010", 6},   {"0001", 7}, {"001", 8}, {"000000", 9},
};

// total_zeros, 4x4 blocks, TotalCoeff 8
constexpr Code kTotalZeros8[] = {
    {"000001", 0}, {"0001", 1}, {"00001", 2}, {"011", 3},    {"11", 4},
    {"10", 5},     {"010", 6},  {"001", 7},   {"000000", 8},
};

// total_zeros, 4x4 blocks, TotalCoeff 9
constexpr Code kTotalZeros9[] = {
    {"000001", 0}, {"000000", 1}, {"0001", 2}, {"11", 3}, {"10", 4}, {"001", 5}, {"01", 6}, {"00001", 7},
};

// total_zeros, 4x4 blocks, TotalCoeff 10
constexpr Code kTotalZeros10[] = {
    {"00001", 0}, {"00000", 1}, {"001", 2}, {"11", 3}, {"10", 4}, {"01", 5}, {"0001", 6},
};

// total_zeros, 4x4 blocks, TotalCoeff 11
constexpr Code kTotalZeros11[] = {
    {"0000", 0}, {"0001", 1}, {"001", 2}, {"010", 3}, {"1", 4}, {"011", 5},
};

// total_zeros, 4x4 blocks, TotalCoeff 12
constexpr Code kTotalZeros12[] = {
    {"0000", 0}, {"0001", 1}, {"01", 2}, {"1", 3}, {"001", 4},
};

// total_zeros, 4x4 blocks, TotalCoeff 13
constexpr Code kTotalZeros13[] = {
    {"000", 0},
    {"001", 1},
    {"1", 2},
    {"01", 3},
};

// total_zeros, 4x4 blocks, TotalCoeff 14
constexpr Code kTotalZeros14[] = {
    {"00", 0},
    {"01", 1},
    {"1", 2},
};

// total_zeros, 4x4 blocks, TotalCoeff 15
constexpr Code kTotalZeros15[] = {
    {"0", 0},
    {"1", 1},
};

// total_zeros, chroma DC 2x2, TotalCoeff 1
constexpr Code kTotalZerosDc1[] = {
    {"1", 0},
    {"01", 1},
    {"001", 2},
    {"000", 3},
};

// total_zeros, chroma DC 2x2, TotalCoeff 2
constexpr Code kTotalZerosDc2[] = {
    {"1", 0},
    {"01", 1},
    {"00", 2},
};

// total_zeros, chroma DC 2x2, TotalCoeff 3
constexpr Code kTotalZerosDc3[] = {
    {"1", 0},
    {"0", 1},
};

// run_before, zerosLeft 1
constexpr Code kRunBefore1[] = {
    {"1", 0},
    {"0", 1},
};

// run_before, zerosLeft 2
constexpr Code kRunBefore2[] = {
    {"1", 0},
    {"01", 1},
    {"00", 2},
};

// run_before, zerosLeft 3
constexpr Code kRunBefore3[] = {
    {"11", 0},
    {"10", 1},
    {"01", 2},
    {"00", 3},
};

// run_before, zerosLeft 4
constexpr Code kRunBefore4[] = {
    {"11", 0}, {"10", 1}, {"01", 2}, {"001", 3}, {"000", 4},
};

// run_before, zerosLeft 5
constexpr Code kRunBefore5[] = {
    {"11", 0}, {"10", 1}, {"011", 2}, {"010", 3}, {"001", 4}, {"000", 5},
};

// run_before, zerosLeft 6
constexpr Code kRunBefore6[] = {
    {"11", 0}, {"000", 1}, {"001", 2}, {"011", 3}, {"010", 4}, {"101", 5}, {"100", 6},
};

// run_before, zerosLeft 7+
constexpr Code kRunBefore7plus[] = {
    {"111", 0},      {"110", 1},       {"101", 2},        {"100", 3},         {"011", 4},
    {"010", 5},      {"001", 6},       {"0001", 7},       {"00001", 8},       {"000001", 9},
    {"0000001", 10}, {"00000001", 11}, {"000000001", 12}, {"0000000001", 13}, {"00000000001", 14},
};

// A lookup table for one code, in two levels. The first indexes the next K
// bits directly and resolves every code of up to K bits. Longer codes (and
// patterns that are no code) fall through to the second: the reader counts the
// leading zeros of the next 16 bits (a sentinel stops the count at 16), then
// indexes a row for that count with the bits that follow the first one. Row
// lz holds 2^suffix entries, enough for the longest code with lz leading
// zeros; shorter codes fill several entries. An entry is (length << 8) |
// value, 0 for a bit pattern that is no code. A code of only zeros (total_zeros
// and run_before have some) serves every row from its length on.
constexpr int kRows = 17;

constexpr int code_length(const char* s) {
    int n = 0;
    while (s[n]) ++n;
    return n;
}
constexpr int leading_zeros(const char* s) {
    int n = 0;
    while (s[n] == '0') ++n;
    return n;
}

template <size_t N>
constexpr void row_suffixes(const Code (&codes)[N], int suffix[kRows]) {
    for (int r = 0; r < kRows; ++r) suffix[r] = 0;
    for (const Code& c : codes) {
        const int len = code_length(c.bits), lz = leading_zeros(c.bits);
        if (lz < len && suffix[lz] < len - lz - 1) suffix[lz] = len - lz - 1;
    }
}

template <size_t N>
constexpr size_t table_size(const Code (&codes)[N]) {
    int suffix[kRows] = {};
    row_suffixes(codes, suffix);
    size_t n = 0;
    for (int r = 0; r < kRows; ++r) n += size_t{1} << suffix[r];
    return n;
}

struct Row {
    uint16_t base;
    uint8_t suffix;
};

template <int K, size_t Size>
struct Vlc {
    uint16_t fast[1 << K] = {};
    Row row[kRows] = {};
    uint16_t entry[Size] = {};
};

template <int K, size_t Size, size_t N>
constexpr Vlc<K, Size> build(const Code (&codes)[N]) {
    Vlc<K, Size> t{};
    int suffix[kRows] = {};
    row_suffixes(codes, suffix);
    int base = 0;
    for (int r = 0; r < kRows; ++r) {
        t.row[r] = {static_cast<uint16_t>(base), static_cast<uint8_t>(suffix[r])};
        base += 1 << suffix[r];
    }
    for (const Code& c : codes) {
        const int len = code_length(c.bits), lz = leading_zeros(c.bits);
        const uint16_t e = static_cast<uint16_t>(len << 8 | c.value);
        if (len <= K) {
            int v = 0;
            for (int i = 0; i < len; ++i) v = v * 2 + (c.bits[i] - '0');
            for (int j = 0; j < (1 << (K - len)); ++j) t.fast[(v << (K - len)) + j] = e;
        }
        if (lz == len) {
            for (int r = len; r < kRows; ++r) t.entry[t.row[r].base] = e;
            continue;
        }
        int s = 0;
        for (int i = lz + 1; i < len; ++i) s = s * 2 + (c.bits[i] - '0');
        const int spare = suffix[lz] - (len - lz - 1);
        for (int j = 0; j < (1 << spare); ++j) t.entry[t.row[lz].base + (s << spare) + j] = e;
    }
    return t;
}

#define KPLVC_VLC(name, k, codes) constexpr auto name = build<k, table_size(codes)>(codes)
KPLVC_VLC(kCt0, 8, kCoeffToken0);
KPLVC_VLC(kCt2, 8, kCoeffToken2);
KPLVC_VLC(kCt4, 8, kCoeffToken4);
KPLVC_VLC(kCt8, 6, kCoeffToken8);
KPLVC_VLC(kCtDc, 8, kCoeffTokenChromaDc);
KPLVC_VLC(kTz1, 6, kTotalZeros1);
KPLVC_VLC(kTz2, 6, kTotalZeros2);
KPLVC_VLC(kTz3, 6, kTotalZeros3);
KPLVC_VLC(kTz4, 6, kTotalZeros4);
KPLVC_VLC(kTz5, 6, kTotalZeros5);
KPLVC_VLC(kTz6, 6, kTotalZeros6);
KPLVC_VLC(kTz7, 6, kTotalZeros7);
KPLVC_VLC(kTz8, 6, kTotalZeros8);
KPLVC_VLC(kTz9, 6, kTotalZeros9);
KPLVC_VLC(kTz10, 6, kTotalZeros10);
KPLVC_VLC(kTz11, 6, kTotalZeros11);
KPLVC_VLC(kTz12, 6, kTotalZeros12);
KPLVC_VLC(kTz13, 6, kTotalZeros13);
KPLVC_VLC(kTz14, 6, kTotalZeros14);
KPLVC_VLC(kTz15, 6, kTotalZeros15);
KPLVC_VLC(kTzDc1, 3, kTotalZerosDc1);
KPLVC_VLC(kTzDc2, 3, kTotalZerosDc2);
KPLVC_VLC(kTzDc3, 3, kTotalZerosDc3);
KPLVC_VLC(kRb1, 3, kRunBefore1);
KPLVC_VLC(kRb2, 3, kRunBefore2);
KPLVC_VLC(kRb3, 3, kRunBefore3);
KPLVC_VLC(kRb4, 3, kRunBefore4);
KPLVC_VLC(kRb5, 3, kRunBefore5);
KPLVC_VLC(kRb6, 3, kRunBefore6);
#undef KPLVC_VLC

// A type-erased view of one table, so that a table can be chosen by index.
struct VlcRef {
    const uint16_t* fast;
    int k;
    const Row* row;
    const uint16_t* entry;
};
template <int K, size_t S>
constexpr VlcRef ref(const Vlc<K, S>& t) {
    return {t.fast, K, t.row, t.entry};
}

constexpr VlcRef kCoeffTokenTables[5] = {ref(kCt0), ref(kCt2), ref(kCt4), ref(kCt8), ref(kCtDc)};
constexpr VlcRef kTotalZerosTables[16] = {
    ref(kTz1), ref(kTz1), ref(kTz2),  ref(kTz3),  ref(kTz4),  ref(kTz5),  ref(kTz6),  ref(kTz7),
    ref(kTz8), ref(kTz9), ref(kTz10), ref(kTz11), ref(kTz12), ref(kTz13), ref(kTz14), ref(kTz15),
};
constexpr VlcRef kTotalZerosDcTables[4] = {ref(kTzDc1), ref(kTzDc1), ref(kTzDc2), ref(kTzDc3)};

// The bit position of the reader in a register, over the reader's buffer.
struct Cursor {
    const uint8_t* data;
    size_t last, pos;
    explicit Cursor(const BitReader& br) : data(br.data()), last(br.last()), pos(br.pos()) {}
    uint64_t peek64() const { return BitReader::load64(data, last, pos); }
    void skip(int n) { pos += static_cast<size_t>(n); }
};

// The table entry for the code word at the top of w ((length << 8) | value,
// 0 for a pattern that is no code word). The lookup looks at no more than 17
// bits of w (every code word here is at most 16 bits long).
inline uint16_t vlc_entry(uint64_t w, const VlcRef& t) {
    uint16_t e = t.fast[w >> (64 - t.k)];
    if (e == 0) {
        const int lz = std::countl_zero(w | (uint64_t{1} << 47));
        const uint64_t rest = (w << lz) << 1;
        const Row r = t.row[lz];
        e = t.entry[r.base + static_cast<uint32_t>((rest >> 1) >> (63 - r.suffix))];
    }
    return e;
}

// One code word: its value, or -1 (nothing consumed) for a pattern that is
// no code word.
inline int read_vlc(Cursor& br, const VlcRef& t) {
    const uint16_t e = vlc_entry(br.peek64(), t);
    br.skip(e >> 8);
    return e ? (e & 255) : -1;
}

// run_before for zerosLeft 1..6 straight from the next three bits: every
// code word there is at most 3 bits long and every 3-bit pattern starts one,
// so the lookup cannot fail and never yields a run beyond zerosLeft. Rows 7
// to 15 (zerosLeft 7 and more) hold the 3-bit codes 001..111 (runs 6..0);
// 000 starts a longer code and gives 0.
constexpr auto kRunFast = [] {
    std::array<std::array<uint16_t, 8>, 16> t{};
    const VlcRef small[7] = {{}, ref(kRb1), ref(kRb2), ref(kRb3), ref(kRb4), ref(kRb5), ref(kRb6)};
    for (size_t z = 1; z < 7; ++z)
        for (size_t i = 0; i < 8; ++i) t[z][i] = small[z].fast[i];
    for (size_t z = 7; z < 16; ++z)
        for (size_t i = 1; i < 8; ++i) t[z][i] = static_cast<uint16_t>(3 << 8 | (7 - i));
    return t;
}();
constexpr bool run_fast_complete() {
    for (size_t z = 1; z < 7; ++z)
        for (size_t i = 0; i < 8; ++i)
            if (kRunFast[z][i] == 0 || (kRunFast[z][i] & 255) > static_cast<int>(z)) return false;
    return true;
}
static_assert(run_fast_complete());

// run_before for zerosLeft `zeros` (1.., 7 and more alike) from the code word
// at the top of w (at least 12 stream bits): (length << 8) | run, or 0 for a
// pattern that is no code word.
inline uint32_t run_before_entry(uint64_t w, int zeros) {
    const uint32_t top = static_cast<uint32_t>(w >> 61);
    if (zeros < 7 || top != 0) return kRunFast[static_cast<size_t>(zeros < 7 ? zeros : 7)][top];
    // n zeros (3..10) and a one: run n + 4
    const int lz = std::countl_zero(w | (uint64_t{1} << 52));
    if (lz > 10) return 0;
    return static_cast<uint32_t>((lz + 1) << 8 | (lz + 4));
}

inline int read_run_before(Cursor& br, int zeros) {
    const uint32_t e = run_before_entry(br.peek64(), zeros);
    br.skip(static_cast<int>(e >> 8));
    return e ? static_cast<int>(e & 255) : -1;
}

// Table index of coeff_token by nC (-1 .. 16): 0..1, 2..3, 4..7, 8.., chroma DC.
constexpr std::array<uint8_t, 18> kCoeffTokenIndex = {4, 0, 0, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 3};

// The reader's bits in a register: one 64-bit load serves several syntax
// elements. `w` holds the stream from bit `base + used` on in its top bits;
// a load gives at least 57 stream bits, so 57 - used of them are still
// stream bits (below them are zeros shifted in). Each element checks that
// enough remain for its longest code word and reloads if not.
struct Window {
    const uint8_t* data;
    size_t last, base;
    uint64_t w;
    int used = 0;
    explicit Window(const BitReader& br)
        : data(br.data()), last(br.last()), base(br.pos()), w(BitReader::load64(data, last, base)) {}
    void reload() {
        base += static_cast<size_t>(used);
        used = 0;
        w = BitReader::load64(data, last, base);
    }
    // Make sure at least n (<= 57) stream bits are in w.
    void need(int n) {
        if (used > 57 - n) reload();
    }
    void skip(int n) {
        w <<= n;
        used += n;
    }
    size_t pos() const { return base + static_cast<size_t>(used); }
};

// suffixLength grows by one when a level's magnitude exceeds 3 << (suffixLength - 1),
// up to 6.
constexpr std::array<int, 7> kGrowAbove = {0, 3, 6, 12, 24, 48, 1 << 30};

// Even level codes are positive levels, odd codes negative: 0 -> 1, 1 -> -1, 2 -> 2, ...
constexpr int level_of(int code) {
    const int mag = (code >> 1) + 1, neg = -(code & 1);
    return (mag ^ neg) - neg;
}
constexpr int next_suffix_length(int suffix_length, int mag) {
    suffix_length += suffix_length == 0;
    return suffix_length + (mag > kGrowAbove[static_cast<size_t>(suffix_length)]);
}

// +-1 for each of three sign bits (0 is +1), first bit first.
constexpr auto kTrailingOnes = [] {
    std::array<std::array<int, 3>, 8> t{};
    for (int bits = 0; bits < 8; ++bits)
        for (int i = 0; i < 3; ++i)
            t[static_cast<size_t>(bits)][static_cast<size_t>(i)] = 1 - 2 * ((bits >> (2 - i)) & 1);
    return t;
}();

// Levels whose prefix, its one and suffix fit in the next kLevelBits bits,
// by suffixLength and those bits: the level in the low 16 bits, the code
// length in bits 16..23 and the suffixLength that follows in bits 24..31; 0
// for longer codes.
constexpr int kLevelBits = 10;
constexpr auto kLevelTable = [] {
    std::array<std::array<uint32_t, 1 << kLevelBits>, 7> t{};
    for (int sl = 0; sl < 7; ++sl)
        for (int bits = 1; bits < (1 << kLevelBits); ++bits) {
            int prefix = 0;
            while (!((bits >> (kLevelBits - 1 - prefix)) & 1)) ++prefix;
            const int len = prefix + 1 + sl;
            if (len > kLevelBits) continue;
            const int code = (prefix << sl) + ((bits >> (kLevelBits - len)) & ((1 << sl) - 1));
            const int level = level_of(code);
            t[static_cast<size_t>(sl)][static_cast<size_t>(bits)] =
                static_cast<uint16_t>(level) | static_cast<uint32_t>(len) << 16 |
                static_cast<uint32_t>(next_suffix_length(sl, (code >> 1) + 1)) << 24;
        }
    return t;
}();

// One level of any length, its code raised by `bump`; false for a prefix
// too long for any 16-bit coefficient.
inline bool read_level(Window& br, int& suffix_length, int bump, int* level) {
    // A level prefix below 14 with its suffix takes at most 20 bits.
    br.need(21);
    int prefix = std::countl_zero(br.w);
    int code;
    if (prefix < 14) [[likely]] {
        // suffix_length bits after the prefix and its one (none when 0)
        code = (prefix << suffix_length) +
               static_cast<int>(((br.w << (prefix + 1)) >> 1) >> (63 - suffix_length));
        br.skip(prefix + 1 + suffix_length);
    } else {
        // Long prefixes: escape codes of up to 26 + 22 bits, from a fresh load.
        br.reload();
        const uint64_t w = br.w;
        prefix = std::countl_zero(w | (uint64_t{1} << 31));
        if (prefix > 25) return false;
        br.skip(prefix + 1);
        code = (prefix < 15 ? prefix : 15) << suffix_length;
        if (suffix_length > 0 || prefix >= 14) {
            const int size =
                prefix >= 15 ? prefix - 3 : (prefix == 14 && suffix_length == 0 ? 4 : suffix_length);
            code += static_cast<int>((w << (prefix + 1)) >> (64 - size));
            br.skip(size);
        }
        if (prefix >= 15 && suffix_length == 0) code += 15;
        if (prefix >= 16) code += (1 << (prefix - 3)) - 4096;
    }
    code += bump;
    *level = level_of(code);
    suffix_length = next_suffix_length(suffix_length, (code >> 1) + 1);
    return true;
}

}  // namespace

int read_residual_block(BitReader& reader, int nc, int max_coeff, const uint8_t* scan, int16_t* coef,
                        int* top) {
    Window br(reader);
    struct WriteBack {
        BitReader& to;
        const Window& from;
        ~WriteBack() { to.seek(from.pos()); }
    } write_back{reader, br};

    // coeff_token (up to 16 bits) and the trailing ones' signs (up to 3)
    // come from the first load.
    const size_t ct = static_cast<size_t>(nc < 16 ? nc + 1 : 17);
    const uint16_t e = vlc_entry(br.w, kCoeffTokenTables[kCoeffTokenIndex[ct]]);
    if (e == 0) return -1;
    br.skip(e >> 8);
    const int token = e & 255;
    if (token == 0) return 0;
    const int total = token >> 2, t1 = token & 3;
    if (total > max_coeff) return -1;

    // Trailing ones: one sign bit each, the highest frequency first. All
    // three come from the next three bits; levels past t1 are overwritten.
    std::array<int, 16> level;
    std::memcpy(level.data(), kTrailingOnes[br.w >> 61].data(), 3 * sizeof(int));
    br.skip(t1);
    int suffix_length = total > 10 && t1 < 3 ? 1 : 0;
    int i = t1;
    // The first level after fewer than three trailing ones cannot be +-1,
    // so its code is sent two lower.
    if (t1 < 3 && i < total && !read_level(br, suffix_length, 2, &level[static_cast<size_t>(i++)])) return -1;
    for (; i < total; ++i) {
        br.need(kLevelBits);
        const uint32_t e = kLevelTable[static_cast<size_t>(suffix_length)][br.w >> (64 - kLevelBits)];
        if (e != 0) {
            level[static_cast<size_t>(i)] = static_cast<int16_t>(e);
            br.skip(static_cast<int>((e >> 16) & 255));
            suffix_length = static_cast<int>(e >> 24);
        } else if (!read_level(br, suffix_length, 0, &level[static_cast<size_t>(i)])) {
            return -1;
        }
    }

    int zeros = 0;
    if (total < max_coeff) {
        br.need(17);
        const uint16_t z =
            vlc_entry(br.w, max_coeff == 4 ? kTotalZerosDcTables[total] : kTotalZerosTables[total]);
        zeros = z & 255;
        if (z == 0 || total + zeros > max_coeff) return -1;
        br.skip(z >> 8);
    }
    // Place the levels from the highest frequency down; each run_before is
    // the number of zeros just below the level before it. Once no zeros are
    // left, the remaining levels sit next to each other.
    int pos = total + zeros - 1;
    *top = pos;
    // At most 14 runs of at most 3 bits follow (42 bits) unless a run is 7
    // or more; that longer code (up to 11 bits) reloads first, leaving room
    // for the 3-bit codes after it. So one load serves the runs without a
    // check per run.
    i = 0;
    if (zeros > 0) br.reload();
    for (; zeros > 0 && i < total - 1; ++i) {
        coef[scan[pos]] = static_cast<int16_t>(level[static_cast<size_t>(i)]);
        uint32_t r = kRunFast[static_cast<size_t>(zeros)][br.w >> 61];
        if (r == 0) {  // a run of 7 or more
            br.reload();
            r = run_before_entry(br.w, zeros);
            if (r == 0 || static_cast<int>(r & 255) > zeros) return -1;
        }
        const int run = static_cast<int>(r & 255);
        br.skip(static_cast<int>(r >> 8));
        zeros -= run;
        pos -= run + 1;
    }
    for (; i < total; ++i) coef[scan[pos--]] = static_cast<int16_t>(level[static_cast<size_t>(i)]);
    return total;
}

namespace {
constexpr CodeList kLists[] = {
    {"coeff_token 0..1", kCoeffToken0, static_cast<int>(std::size(kCoeffToken0))},
    {"coeff_token 2..3", kCoeffToken2, static_cast<int>(std::size(kCoeffToken2))},
    {"coeff_token 4..7", kCoeffToken4, static_cast<int>(std::size(kCoeffToken4))},
    {"coeff_token 8+", kCoeffToken8, static_cast<int>(std::size(kCoeffToken8))},
    {"coeff_token -1", kCoeffTokenChromaDc, static_cast<int>(std::size(kCoeffTokenChromaDc))},
    {"total_zeros 4x4 1", kTotalZeros1, static_cast<int>(std::size(kTotalZeros1))},
    {"total_zeros 4x4 2", kTotalZeros2, static_cast<int>(std::size(kTotalZeros2))},
    {"total_zeros 4x4 3", kTotalZeros3, static_cast<int>(std::size(kTotalZeros3))},
    {"total_zeros 4x4 4", kTotalZeros4, static_cast<int>(std::size(kTotalZeros4))},
    {"total_zeros 4x4 5", kTotalZeros5, static_cast<int>(std::size(kTotalZeros5))},
    {"total_zeros 4x4 6", kTotalZeros6, static_cast<int>(std::size(kTotalZeros6))},
    {"total_zeros 4x4 7", kTotalZeros7, static_cast<int>(std::size(kTotalZeros7))},
    {"total_zeros 4x4 8", kTotalZeros8, static_cast<int>(std::size(kTotalZeros8))},
    {"total_zeros 4x4 9", kTotalZeros9, static_cast<int>(std::size(kTotalZeros9))},
    {"total_zeros 4x4 10", kTotalZeros10, static_cast<int>(std::size(kTotalZeros10))},
    {"total_zeros 4x4 11", kTotalZeros11, static_cast<int>(std::size(kTotalZeros11))},
    {"total_zeros 4x4 12", kTotalZeros12, static_cast<int>(std::size(kTotalZeros12))},
    {"total_zeros 4x4 13", kTotalZeros13, static_cast<int>(std::size(kTotalZeros13))},
    {"total_zeros 4x4 14", kTotalZeros14, static_cast<int>(std::size(kTotalZeros14))},
    {"total_zeros 4x4 15", kTotalZeros15, static_cast<int>(std::size(kTotalZeros15))},
    {"total_zeros 2x2 1", kTotalZerosDc1, static_cast<int>(std::size(kTotalZerosDc1))},
    {"total_zeros 2x2 2", kTotalZerosDc2, static_cast<int>(std::size(kTotalZerosDc2))},
    {"total_zeros 2x2 3", kTotalZerosDc3, static_cast<int>(std::size(kTotalZerosDc3))},
    {"run_before 1", kRunBefore1, static_cast<int>(std::size(kRunBefore1))},
    {"run_before 2", kRunBefore2, static_cast<int>(std::size(kRunBefore2))},
    {"run_before 3", kRunBefore3, static_cast<int>(std::size(kRunBefore3))},
    {"run_before 4", kRunBefore4, static_cast<int>(std::size(kRunBefore4))},
    {"run_before 5", kRunBefore5, static_cast<int>(std::size(kRunBefore5))},
    {"run_before 6", kRunBefore6, static_cast<int>(std::size(kRunBefore6))},
    {"run_before 7+", kRunBefore7plus, static_cast<int>(std::size(kRunBefore7plus))},
};

// The lookup of a coeff_token or total_zeros list (run_before has its own
// decode).
const VlcRef& table_of(int list) {
    if (list < 5) return kCoeffTokenTables[list];
    if (list < 20) return kTotalZerosTables[list - 4];
    return kTotalZerosDcTables[list - 19];
}
}  // namespace

const CodeList* code_lists(int* count) {
    *count = static_cast<int>(std::size(kLists));
    return kLists;
}

int decode_with_table(int list, const uint8_t* bits, size_t bytes, int* length) {
    const BitReader reader(bits, bytes, bytes * 8);
    Cursor br(reader);
    // run_before goes through the reader's own decode, not its table
    const int v = list >= 23 ? read_run_before(br, list - 22) : read_vlc(br, table_of(list));
    *length = static_cast<int>(br.pos);
    return v;
}

}  // namespace kplvc::codecs::h264
