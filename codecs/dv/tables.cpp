#include "tables.h"

#include <cmath>

namespace kplvc::codecs::dv {

// Ordered by length, then code; the code is canonical within each length.
const VlcRow kVlc[kVlcRows] = {
    {0b00, 2, 0, 1},
    {0b010, 3, 0, 2},
    {0b0111, 4, 1, 1},
    {0b1000, 4, 0, 3},
    {0b1001, 4, 0, 4},
    {0b10100, 5, 2, 1},
    {0b10101, 5, 1, 2},
    {0b10110, 5, 0, 5},
    {0b10111, 5, 0, 6},
    {0b110000, 6, 3, 1},
    {0b110001, 6, 4, 1},
    {0b110010, 6, 0, 7},
    {0b110011, 6, 0, 8},
    {0b1101000, 7, 5, 1},
    {0b1101001, 7, 6, 1},
    {0b1101010, 7, 2, 2},
    {0b1101011, 7, 1, 3},
    {0b1101100, 7, 1, 4},
    {0b1101101, 7, 0, 9},
    {0b1101110, 7, 0, 10},
    {0b1101111, 7, 0, 11},
    {0b11100000, 8, 7, 1},
    {0b11100001, 8, 8, 1},
    {0b11100010, 8, 9, 1},
    {0b11100011, 8, 10, 1},
    {0b11100100, 8, 3, 2},
    {0b11100101, 8, 4, 2},
    {0b11100110, 8, 2, 3},
    {0b11100111, 8, 1, 5},
    {0b11101000, 8, 1, 6},
    {0b11101001, 8, 1, 7},
    {0b11101010, 8, 0, 12},
    {0b11101011, 8, 0, 13},
    {0b11101100, 8, 0, 14},
    {0b11101101, 8, 0, 15},
    {0b11101110, 8, 0, 16},
    {0b11101111, 8, 0, 17},
    {0b111100000, 9, 11, 1},
    {0b111100001, 9, 12, 1},
    {0b111100010, 9, 13, 1},
    {0b111100011, 9, 14, 1},
    {0b111100100, 9, 5, 2},
    {0b111100101, 9, 6, 2},
    {0b111100110, 9, 3, 3},
    {0b111100111, 9, 4, 3},
    {0b111101000, 9, 2, 4},
    {0b111101001, 9, 2, 5},
    {0b111101010, 9, 1, 8},
    {0b111101011, 9, 0, 18},
    {0b111101100, 9, 0, 19},
    {0b111101101, 9, 0, 20},
    {0b111101110, 9, 0, 21},
    {0b111101111, 9, 0, 22},
    {0b1111100000, 10, 5, 3},
    {0b1111100001, 10, 3, 4},
    {0b1111100010, 10, 3, 5},
    {0b1111100011, 10, 2, 6},
    {0b1111100100, 10, 1, 9},
    {0b1111100101, 10, 1, 10},
    {0b1111100110, 10, 1, 11},
    {0b11111001110, 11, 0, 0},
    {0b11111001111, 11, 1, 0},
    {0b11111010000, 11, 6, 3},
    {0b11111010001, 11, 4, 4},
    {0b11111010010, 11, 3, 6},
    {0b11111010011, 11, 1, 12},
    {0b11111010100, 11, 1, 13},
    {0b11111010101, 11, 1, 14},
    {0b111110101100, 12, 2, 0},
    {0b111110101101, 12, 3, 0},
    {0b111110101110, 12, 4, 0},
    {0b111110101111, 12, 5, 0},
    {0b111110110000, 12, 7, 2},
    {0b111110110001, 12, 8, 2},
    {0b111110110010, 12, 9, 2},
    {0b111110110011, 12, 10, 2},
    {0b111110110100, 12, 7, 3},
    {0b111110110101, 12, 8, 3},
    {0b111110110110, 12, 4, 5},
    {0b111110110111, 12, 3, 7},
    {0b111110111000, 12, 2, 7},
    {0b111110111001, 12, 2, 8},
    {0b111110111010, 12, 2, 9},
    {0b111110111011, 12, 2, 10},
    {0b111110111100, 12, 2, 11},
    {0b111110111101, 12, 1, 15},
    {0b111110111110, 12, 1, 16},
    {0b111110111111, 12, 1, 17},
};

namespace {

// Records (code, value1, value2) grouped by length 1..9 in the builder's
// input layout: M, two unused words, then per length a count and triples.
struct Input {
    std::vector<Kpl32s> rec[10];
    void add(uint32_t code, int len, int v1, int v2) {
        rec[len].insert(rec[len].end(), {static_cast<Kpl32s>(code), v1, v2});
    }
    void emit(std::vector<Kpl32s>* out) const {
        out->assign({9, 0, 0});
        for (int len = 1; len <= 9; ++len) {
            out->push_back(static_cast<Kpl32s>(rec[len].size() / 3));
            out->insert(out->end(), rec[len].begin(), rec[len].end());
        }
    }
};

}  // namespace

void input_tables(const VlcRow* rows, int n, bool tolerant, std::vector<Kpl32s>* first,
                  std::vector<Kpl32s>* second) {
    Input a, b;
    for (int i = 0; i < n; ++i) {
        const VlcRow& r = rows[i];
        if (r.amp == 0) {
            // (0, 0) and (1, 0) in 11 bits, (2, 0)..(5, 0) in 12: no sign bit.
            b.add(r.code & ((1u << (r.len - 4)) - 1), r.len - 4, r.run, 0);
            continue;
        }
        for (int s = 0; s < 2; ++s) {
            const uint32_t code = (uint32_t{r.code} << 1) | static_cast<uint32_t>(s);
            const int len = r.len + 1, v2 = s ? -r.amp : r.amp;
            if (len <= 9)
                a.add(code, len, r.run, v2);
            else  // every longer code word starts with 1111
                b.add(code & ((1u << (len - 4)) - 1), len - 4, r.run, v2);
        }
    }
    a.add(0b0110, 4, KPLVC_DV_EOB, 0);
    a.add(0b11110, 5, KPLVC_DV_LINK, 0);
    a.add(0b111110, 6, KPLVC_DV_LINK, 0);
    a.add(0b1111110, 7, KPLVC_DV_LINK, 0);
    a.add(0b1111111, 7, KPLVC_DV_ESCAPE, tolerant ? 0 : 23);
    // 1111110 + six bits of run: (run, 0) for runs 6..61, seen by the second
    // level as 110 followed by the run.
    for (int run = 0; run < 64; ++run) {
        const bool valid = tolerant || (run >= 6 && run <= 61);
        b.add(0b110000000u | static_cast<uint32_t>(run), 9, valid ? run : KPLVC_DV_INVALID, 0);
    }
    a.emit(first);
    b.emit(second);
}

Kpl32u* build_table(bool tolerant) {
    std::vector<Kpl32s> a, b;
    input_tables(kVlc, kVlcRows, tolerant, &a, &b);
    Kpl32u* t = nullptr;
    return kpliInitAllocHuffmanTable_DV_32u(a.data(), b.data(), &t) == kplStsNoErr ? t : nullptr;
}

const Kpl32s kScans[128] = {
    // 8-8: the classical zigzag.
    0, 1, 8, 16, 9, 2, 3, 10, 17, 24, 32, 25, 18, 11, 4, 5, 12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6, 7,
    14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39,
    46, 53, 60, 61, 54, 47, 55, 62, 63,
    // 2-4-8: sum and difference coefficients of each frequency pair in turn.
    0, 32, 1, 33, 8, 40, 2, 34, 9, 41, 16, 48, 24, 56, 17, 49, 10, 42, 3, 35, 4, 36, 11, 43, 18, 50, 25, 57,
    26, 58, 19, 51, 12, 44, 5, 37, 6, 38, 13, 45, 20, 52, 27, 59, 28, 60, 21, 53, 14, 46, 7, 39, 15, 47, 22,
    54, 29, 61, 30, 62, 23, 55, 31, 63};

void dequant_tables(Dequant* d) {
    // Quantisation step 2^e: e = kShift[QNO + kClassOffset[c]][area] (+1 for
    // class 3), the area of a scan position growing with its frequency.
    static const uint8_t kShift[22][4] = {
        {3, 3, 4, 4}, {3, 3, 4, 4}, {2, 3, 3, 4}, {2, 3, 3, 4}, {2, 2, 3, 3}, {2, 2, 3, 3},
        {1, 2, 2, 3}, {1, 2, 2, 3}, {1, 1, 2, 2}, {1, 1, 2, 2}, {0, 1, 1, 2}, {0, 1, 1, 2},
        {0, 0, 1, 1}, {0, 0, 1, 1}, {0, 0, 0, 1}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0},
        {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 0}};
    static const int kClassOffset[4] = {6, 3, 0, 1};
    auto area = [](int i) { return i < 6 ? 0 : i < 21 ? 1 : i < 43 ? 2 : 3; };
    // The encoder weights coefficient (r, h) by w[r] * w[h] / 2 (w[0] = 1, the
    // DC by 1/4); the decoder undoes it. In 2-4-8 blocks row z and row 4 + z
    // share the vertical weight of frequency 2z.
    const double pi = std::acos(-1.0);
    auto cs = [pi](int k) { return std::cos(k * pi / 16); };
    const double w[8] = {1.0,
                         cs(4) / (4 * cs(7) * cs(2)),
                         cs(4) / (2 * cs(6)),
                         1 / (2 * cs(5)),
                         7.0 / 8,
                         cs(4) / cs(3),
                         cs(4) / cs(2),
                         cs(4) / cs(1)};
    for (int m = 0; m < 2; ++m)
        for (int c = 0; c < 4; ++c)
            for (int qno = 0; qno < 16; ++qno) {
                Kpl16s* q = d->q[m][c][qno];
                const Kpl32s* scan = kScans + 64 * m;
                q[scan[0]] = 1024;  // the DC: 64 * DC * 1024 >> 14 = 4 * DC
                for (int i = 1; i < 64; ++i) {
                    const int p = scan[i], r = p >> 3, h = p & 7;
                    const int e = kShift[qno + kClassOffset[c]][area(i)] + (c == 3 ? 1 : 0);
                    const double g = m == 0 ? 2 / (w[r] * w[h]) : 2 / (w[h] * w[2 * (r & 3)]);
                    q[p] = static_cast<Kpl16s>(std::lround(256.0 * (1 << e) * g));
                }
            }
}

}  // namespace kplvc::codecs::dv
