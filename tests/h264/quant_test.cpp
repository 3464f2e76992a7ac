// Behaviour of the H.264 forward quantisers: rounding, level counts, last
// positions and the level-range failure with its row-wise early exit.
#include <cstring>

#include "kplvc.h"
#include "support/support.h"

using kplvc::test::Rng;

namespace {

// Raster position -> scan index of the 4x4 zigzag scan.
const Kpl16s kZigzagIndex[16] = {0, 1, 5, 6, 2, 4, 7, 12, 3, 8, 11, 13, 9, 10, 14, 15};

int8_t as_signed(Kpl8u v) { return static_cast<int8_t>(v); }

struct ChromaCase {
    const char* what;
    int16_t t[4];  // transformed values (needTransform 0)
    int32_t qp;
    Kpl8u intra;
    int16_t levels[4];
    int8_t count;
    KplStatus status;
};

TEST(H264QuantChromaDC, RoundingCountsAndRange) {
    const ChromaCase cases[] = {
        // (100 * 13107 + 21845) >> 16 = 20; only the DC: count -1.
        {"dc only", {100, 0, 0, 0}, 0, 1, {20, 0, 0, 0}, -1, kplStsNoErr},
        // (50 * 13107 + 21845) >> 16 = 10 at positions 1 and 2: count +2.
        {"positions 1 and 2", {0, 50, -50, 0}, 0, 1, {0, 10, -10, 0}, 2, kplStsNoErr},
        // 4 * 13107 = 52428: intra rounding 21845 lifts it to 1, inter 10922 does not.
        {"intra rounds up", {4, -4, 0, 0}, 0, 1, {1, -1, 0, 0}, -2, kplStsNoErr},
        {"inter rounds down", {4, -4, 0, 0}, 0, 0, {0, 0, 0, 0}, 0, kplStsNoErr},
        // QP 39: multiplier 9362, shift 22, intra rounding 2^22 / 3.
        {"qp 39", {1000, 0, 0, -1000}, 39, 1, {2, 0, 0, -2}, -2, kplStsNoErr},
        // 10318 gives 2063 (allowed), 10319 gives 2064.
        {"2063 allowed", {10318, 0, 0, 0}, 0, 1, {2063, 0, 0, 0}, -1, kplStsNoErr},
        {"2064 fails after writing", {10319, 1, 0, 5}, 0, 1, {2064, 0, 0, 1}, -2, kplStsLevelRangeErr},
        {"extreme", {-32768, 0, 32767, 0}, 0, 1, {-6553, 0, 6553, 0}, -2, kplStsLevelRangeErr},
    };
    for (const auto& c : cases) {
        int16_t src[4] = {9, 9, 9, 9}, tb[4];
        std::memcpy(tb, c.t, sizeof tb);
        Kpl8u count = 0x77;
        EXPECT_EQ(kpliTransformQuantChromaDC_H264_16s_C1I(src, tb, c.qp, &count, c.intra, 0), c.status)
            << c.what;
        for (int i = 0; i < 4; ++i) EXPECT_EQ(src[i], c.levels[i]) << c.what << " " << i;
        EXPECT_EQ(as_signed(count), c.count) << c.what;
        EXPECT_EQ(std::memcmp(tb, c.t, sizeof tb), 0) << c.what;
    }
}

TEST(H264QuantChromaDC, TransformFlagWritesTheHadamard) {
    int16_t src[4] = {10, 20, 30, 40}, tb[4] = {7, 7, 7, 7};
    Kpl8u count;
    ASSERT_EQ(kpliTransformQuantChromaDC_H264_16s_C1I(src, tb, 0, &count, 1, 1), kplStsNoErr);
    const int16_t want_t[4] = {100, -20, -40, 0};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(tb[i], want_t[i]) << i;
    EXPECT_EQ(src[0], 20);  // (100 * 13107 + 21845) >> 16
    EXPECT_EQ(src[1], -4);  // (20 * 13107 + 21845) >> 16 = 4
    EXPECT_EQ(src[2], -8);
    EXPECT_EQ(src[3], 0);
    EXPECT_EQ(as_signed(count), -3);
}

TEST(H264QuantLumaDC, HalvedHadamardCountAndLast) {
    // All 2: the Hadamard gives 32 at position 0, halved to 16; QP 0:
    // (16 * 13107 + 21845) >> 16 = 3.
    int16_t src[16], tb[16];
    for (auto& v : src) v = 2;
    Kpl8u count = 0, last = 0x55;
    ASSERT_EQ(kpliTransformQuantLumaDC_H264_16s_C1I(src, tb, 0, &count, 1, kZigzagIndex, &last), kplStsNoErr);
    EXPECT_EQ(tb[0], 16);
    for (int i = 1; i < 16; ++i) EXPECT_EQ(tb[i], 0) << i;
    EXPECT_EQ(src[0], 3);
    EXPECT_EQ(as_signed(count), -1);
    EXPECT_EQ(last, 0);
}

struct LastCase {
    int pos[3];  // raster positions holding a level (-1 = none)
    int8_t count;
    Kpl8u last;
};

TEST(H264QuantLumaDC, LastPositionIsTheLargestScanIndex) {
    const LastCase cases[] = {
        {{-1, -1, -1}, 0, 0},  {{3, -1, -1}, 1, 6}, {{3, 7, 4}, 3, 12},
        {{0, 15, -1}, -2, 15}, {{12, 5, -1}, 2, 9},
    };
    for (const auto& c : cases) {
        int16_t src[16] = {}, tb[16] = {};
        for (int p : c.pos)
            if (p >= 0) tb[p] = 3000;  // (3000 * 13107 + 21845) >> 16 = 600 at QP 0
        Kpl8u count = 0x33, last = 0x33;
        ASSERT_EQ(kpliTransformQuantLumaDC_H264_16s_C1I(src, tb, 0, &count, 0, kZigzagIndex, &last),
                  kplStsNoErr);
        EXPECT_EQ(as_signed(count), c.count);
        EXPECT_EQ(last, c.last);
        for (int p : c.pos) {
            if (p < 0) continue;
            EXPECT_EQ(src[p], 600);
        }
    }
    // The last position keeps 7 bits of the caller's scan entry.
    const Kpl16s odd_scan[16] = {200, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    int16_t src[16] = {}, tb[16] = {3000};
    Kpl8u count, last;
    ASSERT_EQ(kpliTransformQuantLumaDC_H264_16s_C1I(src, tb, 0, &count, 0, odd_scan, &last), kplStsNoErr);
    EXPECT_EQ(last, 200 & 0x7F);
}

TEST(H264QuantLumaDC, EarlyExitKeepsLaterRowsAndResults) {
    // Row 0 quantises, row 1 holds 10319 (-> 2064): rows 1..3 keep the input
    // DC values, the transformed block is complete, count and last untouched.
    int16_t src[16], tb[16] = {};
    for (int i = 0; i < 16; ++i) src[i] = static_cast<int16_t>(100 + i);
    tb[1] = 3000;
    tb[6] = -10319;
    tb[15] = 5000;
    const int16_t tb_before[16] = {0, 3000, 0, 0, 0, 0, -10319, 0, 0, 0, 0, 0, 0, 0, 0, 5000};
    Kpl8u count = 0x33, last = 0x44;
    ASSERT_EQ(kpliTransformQuantLumaDC_H264_16s_C1I(src, tb, 0, &count, 0, kZigzagIndex, &last),
              kplStsLevelRangeErr);
    const int16_t want[16] = {0, 600, 0, 0, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(src[i], want[i]) << i;
    EXPECT_EQ(std::memcmp(tb, tb_before, sizeof tb), 0);
    EXPECT_EQ(count, 0x33);
    EXPECT_EQ(last, 0x44);
}

TEST(H264QuantResidual, HandWorkedLevels) {
    // Rows (v, v, v, v) twice then (-v, ...) twice: the transform leaves 24v at
    // position 4 and -8v at position 12 (both class 2, multiplier 8066 at QP 0).
    struct Case {
        int16_t v;
        Kpl8u intra;
        int16_t l4, l12;
    };
    const Case cases[] = {
        {100, 1, 591, -197},  // (2400 * 8066 + 10922) >> 15, (800 * 8066 + 10922) >> 15
        {100, 0, 590, -197},  // inter rounding 5461
        {1, 1, 6, -2},        // (24 * 8066 + 10922) >> 15 = 6.24, (8 * 8066 + 10922) >> 15 = 2.3
    };
    for (const auto& c : cases) {
        int16_t blk[16];
        for (int i = 0; i < 16; ++i) blk[i] = i < 8 ? c.v : static_cast<int16_t>(-c.v);
        Kpl8u count = 0, last = 0;
        ASSERT_EQ(kpliTransformQuantResidual_H264_16s_C1I(blk, 0, &count, c.intra, kZigzagIndex, &last),
                  kplStsNoErr);
        for (int i = 0; i < 16; ++i) {
            const int16_t want = i == 4 ? c.l4 : (i == 12 ? c.l12 : 0);
            EXPECT_EQ(blk[i], want) << "v " << c.v << " i " << i;
        }
        EXPECT_EQ(as_signed(count), 2);
        EXPECT_EQ(last, 9);  // max(scan[4] = 2, scan[12] = 9)
    }
    // Flat 1: the transform gives 16 at the DC: (16 * 13107 + 10922) >> 15 = 6.
    int16_t flat[16];
    for (auto& v : flat) v = 1;
    Kpl8u count = 0, last = 0x11;
    ASSERT_EQ(kpliTransformQuantResidual_H264_16s_C1I(flat, 0, &count, 1, kZigzagIndex, &last), kplStsNoErr);
    EXPECT_EQ(flat[0], 6);
    EXPECT_EQ(as_signed(count), -1);
    EXPECT_EQ(last, 0);
}

TEST(H264QuantResidual, EarlyExitLeavesCoefficients) {
    // 24 * 400 = 9600 -> 2363 on row 1: row 0 holds levels (zeros), rows 1..3 coefficients.
    const int16_t want[16] = {0, 0, 0, 0, 9600, 0, 0, 0, 0, 0, 0, 0, -3200, 0, 0, 0};
    int16_t blk[16];
    for (int i = 0; i < 16; ++i) blk[i] = i < 8 ? 400 : -400;
    Kpl8u count = 0x33, last = 0x44;
    ASSERT_EQ(kpliTransformQuantResidual_H264_16s_C1I(blk, 0, &count, 1, kZigzagIndex, &last),
              kplStsLevelRangeErr);
    EXPECT_EQ(std::memcmp(blk, want, sizeof want), 0);
    EXPECT_TRUE(count == 0x33 && last == 0x44);
    // Flat 500: DC 8000 fails on row 0, so the whole block is coefficients.
    int16_t flat[16];
    for (auto& v : flat) v = 500;
    ASSERT_EQ(kpliTransformQuantResidual_H264_16s_C1I(flat, 0, &count, 1, kZigzagIndex, &last),
              kplStsLevelRangeErr);
    EXPECT_EQ(flat[0], 8000);
    for (int i = 1; i < 16; ++i) EXPECT_EQ(flat[i], 0) << i;
    EXPECT_EQ(count, 0x33);
}

// Encode then decode a residual: the reconstruction is within the
// quantiser's step of the source (step 0.625 * 2^(QP/6), doubled for the
// rounding of both directions and the transform's non-orthogonal scaling).
TEST(H264QuantResidual, RoundTripWithinQuantisationError) {
    Rng rng(515);
    for (int32_t qp : {0, 6, 12, 18, 24, 30}) {
        const double step = 0.625 * static_cast<double>(1 << (qp / 6)) * (1.0 + (qp % 6) / 6.0);
        for (int iter = 0; iter < 300; ++iter) {
            int16_t res[16], blk[16];
            rng.fill(res, 16, -60, 60);
            std::memcpy(blk, res, sizeof res);
            Kpl8u count, last;
            ASSERT_EQ(kpliTransformQuantResidual_H264_16s_C1I(blk, qp, &count, 0, kZigzagIndex, &last),
                      kplStsNoErr);
            ASSERT_EQ(kpliDequantTransformResidual_H264_16s_C1I(blk, 8, nullptr, 1, qp), kplStsNoErr);
            double err2 = 0;
            for (int i = 0; i < 16; ++i) err2 += (blk[i] - res[i]) * (blk[i] - res[i]);
            EXPECT_LE(err2 / 16, step * step + 1.0) << "qp " << qp;
        }
    }
}

}  // namespace
