// Residual blocks round trip: random blocks written by a small CAVLC writer
// (the code lists the decoder exposes, levels by ITU-T H.264 9.2.2 read
// backwards), back to back in one stream, then read with
// read_residual_block. Catches a level decoded by the wrong suffixLength,
// an escape code off by one, a run placed wrong, or a bit cache that loses
// its place across a long block.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "h264/bits.h"
#include "h264/cavlc.h"

namespace kplvc::codecs::h264 {
namespace {

struct Writer {
    std::string bits;
    void code(int list, int value) {
        int n = 0;
        const CodeList& l = code_lists(&n)[list];
        for (int i = 0; i < l.count; ++i)
            if (l.codes[i].value == value) {
                bits += l.codes[i].bits;
                return;
            }
        FAIL() << l.name << " has no code for " << value;
    }
    void u(int n, uint32_t v) {
        for (int i = n - 1; i >= 0; --i) bits += ((v >> i) & 1) ? '1' : '0';
    }
    // level_prefix and level_suffix for one level code.
    void level(int code, int suffix_length) {
        int prefix, size, suffix;
        if (code < (suffix_length ? 15 << suffix_length : 14)) {
            prefix = code >> suffix_length, size = suffix_length, suffix = code & ((1 << suffix_length) - 1);
        } else if (suffix_length == 0 && code < 30) {
            prefix = 14, size = 4, suffix = code - 14;
        } else {
            const int base = (15 << suffix_length) + (suffix_length ? 0 : 15);
            for (prefix = 15;; ++prefix) {
                const int from = base + (prefix >= 16 ? (1 << (prefix - 3)) - 4096 : 0);
                if (code - from < (1 << (prefix - 3))) {
                    suffix = code - from;
                    break;
                }
            }
            size = prefix - 3;
        }
        bits += std::string(static_cast<size_t>(prefix), '0') + '1';
        u(size, static_cast<uint32_t>(suffix));
    }
};

// One block in scan order (coefficients 0..max_coeff-1) written as the
// standard's residual_block_cavlc.
void write_block(Writer& w, int nc, int max_coeff, const std::vector<int>& c) {
    std::vector<int> levels, pos;  // highest frequency first
    for (int i = max_coeff - 1; i >= 0; --i)
        if (c[static_cast<size_t>(i)]) levels.push_back(c[static_cast<size_t>(i)]), pos.push_back(i);
    const int total = static_cast<int>(levels.size());
    int t1 = 0;
    while (t1 < total && t1 < 3 && std::abs(levels[static_cast<size_t>(t1)]) == 1) ++t1;
    w.code(nc < 0 ? 4 : nc < 2 ? 0 : nc < 4 ? 1 : nc < 8 ? 2 : 3, 4 * total + t1);
    if (total == 0) return;
    for (int i = 0; i < t1; ++i) w.u(1, levels[static_cast<size_t>(i)] < 0);
    int suffix_length = total > 10 && t1 < 3 ? 1 : 0;
    for (int i = t1; i < total; ++i) {
        const int v = levels[static_cast<size_t>(i)];
        int code = v > 0 ? 2 * v - 2 : -2 * v - 1;
        if (i == t1 && t1 < 3) code -= 2;
        w.level(code, suffix_length);
        if (suffix_length == 0) suffix_length = 1;
        if (std::abs(v) > (3 << (suffix_length - 1)) && suffix_length < 6) ++suffix_length;
    }
    int zeros = pos[0] + 1 - total;
    if (total < max_coeff) w.code(max_coeff == 4 ? 19 + total : 4 + total, zeros);
    for (int i = 0; i < total - 1 && zeros > 0; ++i) {
        const int run = pos[static_cast<size_t>(i)] - pos[static_cast<size_t>(i) + 1] - 1;
        w.code(22 + std::min(zeros, 7), run);
        zeros -= run;
    }
}

TEST(H264Cavlc, RandomBlocksRoundTrip) {
    std::mt19937 rng(20);
    const uint8_t scan[16] = {0, 1, 4, 8, 5, 2, 3, 6, 9, 12, 13, 10, 7, 11, 14, 15};
    struct Block {
        int nc, max_coeff;
        std::vector<int> c;
    };
    std::vector<Block> blocks;
    Writer w;
    for (int n = 0; n < 20000; ++n) {
        const int kind = static_cast<int>(rng() % 3);
        Block b{kind == 0 ? -1 : static_cast<int>(rng() % 17), kind == 0 ? 4 : kind == 1 ? 15 : 16, {}};
        b.c.assign(static_cast<size_t>(b.max_coeff), 0);
        const int density = static_cast<int>(rng() % 101);
        const int range = std::array{2, 4, 30, 300, 3000, 32767}[rng() % 6];
        for (int& v : b.c)
            if (static_cast<int>(rng() % 100) < density) {
                v = 1 + static_cast<int>(rng() % static_cast<uint32_t>(range));
                if (rng() & 1) v = -v;
            }
        write_block(w, b.nc, b.max_coeff, b.c);
        blocks.push_back(std::move(b));
    }
    std::vector<uint8_t> buf((w.bits.size() + 7) / 8 + kTailPad, 0);
    for (size_t i = 0; i < w.bits.size(); ++i)
        if (w.bits[i] == '1') buf[i / 8] |= static_cast<uint8_t>(0x80 >> (i % 8));
    BitReader br(buf.data(), buf.size() - kTailPad, w.bits.size());
    for (size_t n = 0; n < blocks.size(); ++n) {
        const Block& b = blocks[n];
        int16_t coef[16] = {};
        int top = -1;
        const int total = read_residual_block(br, b.nc, b.max_coeff, scan, coef, &top);
        int want_total = 0, want_top = -1;
        for (int i = 0; i < b.max_coeff; ++i) {
            const int v = b.c[static_cast<size_t>(i)];
            if (v) ++want_total, want_top = i;
            ASSERT_EQ(coef[scan[i]], v) << "block " << n << " coefficient " << i;
        }
        ASSERT_EQ(total, want_total) << "block " << n;
        if (total) {
            ASSERT_EQ(top, want_top) << "block " << n;
        }
    }
    EXPECT_EQ(br.pos(), w.bits.size());
    EXPECT_FALSE(br.error());
}

}  // namespace
}  // namespace kplvc::codecs::h264
