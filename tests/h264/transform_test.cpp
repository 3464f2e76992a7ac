// Behaviour of the H.264 decoder-side transforms, the prediction transform and
// the SP/SI reconstruction, on cases worked out by hand.
#include <climits>
#include <cstring>
#include <vector>

#include "h264/transform_tables.h"
#include "kplvc.h"
#include "support/support.h"

using kplvc::test::Rng;

namespace {

TEST(H264Tables, SpotValues) {
    using namespace kplvc::h264;
    EXPECT_EQ(InvQuantTable[0], 10);
    EXPECT_EQ(InvQuantTable[3 * 51 + 0], 3584);
    EXPECT_EQ(InvQuantTable[3 * 51 + 1], 5888);
    EXPECT_EQ(InvQuantTable[3 * 51 + 2], 4608);
    EXPECT_EQ(InvQuantTable[156] | InvQuantTable[157] | InvQuantTable[158] | InvQuantTable[159], 0);
    EXPECT_EQ(InvQuantLuma16x16DCTable[17], 18);
    EXPECT_EQ(InvQuantLuma16x16DCTable[18], 20);
    EXPECT_EQ(InvQuantLuma16x16DCTable[51], 896);
    EXPECT_EQ(QuantCoef[16 * 5 + 5], 2893);
    EXPECT_EQ(QuantCoef[16 * 3 + 2], 9362);
    EXPECT_EQ(FwdQuantTable[3], 11916);
    EXPECT_EQ(FwdQuantTable[17], 4559);
    // The multiply-add layout: (multiplier, 0) 16-bit pairs.
    int16_t pair[2];
    std::memcpy(pair, &mmx_FwdQuantTable[16 * 2 + 1], 4);
    EXPECT_EQ(pair[0], 6554);
    EXPECT_EQ(pair[1], 0);
    EXPECT_EQ(dc_q[53], 8);
    EXPECT_EQ(dc_rems[53], 5);
    EXPECT_EQ(dc_q[54] | dc_q[55] | dc_rems[54] | dc_rems[55], 0);
    EXPECT_EQ(dc_rounds[6], 699050);
    EXPECT_EQ(dc_rounds[8], 2796202);
    EXPECT_EQ(dc_rounds[9 + 8], 5592405);
    EXPECT_EQ(ClampTbl[0], 0);
    EXPECT_EQ(ClampTbl[256 + 77], 77);
    EXPECT_EQ(ClampTbl[767], 255);
}

struct LumaDcCase {
    int16_t in0;  // value at position 0 (others 0), or all 16 when `all`
    bool all;
    int32_t qp;
    int16_t out0, out15;
};

TEST(H264DequantDC, LumaShiftsAndRounding) {
    // All ones: the Hadamard gives 16 at position 0 and 0 elsewhere.
    // A lone value at position 0 spreads to every position.
    const LumaDcCase cases[] = {
        {1, true, 5, 72, 0},              // (16*18 + 2) >> 2
        {1, true, 6, 80, 0},              // (16*10 + 1) >> 1
        {1, true, 12, 160, 0},            // 16*10
        {1, true, 18, 320, 0},            // 16*20
        {1, true, 51, 14336, 0},          // 16*896
        {1, false, 5, 5, 5},              // (18 + 2) >> 2: 4.5 rounds up
        {1, false, 6, 5, 5},              // (10 + 1) >> 1: 5.5 rounds down
        {-1, false, 0, -2, -2},           // (-10 + 2) >> 2
        {-1, false, 6, -5, -5},           // (-10 + 1) >> 1
        {-1, false, 11, -9, -9},          // (-18 + 1) >> 1
        {100, false, 51, 24064, 24064},   // 89600 cut to 16 bits
        {40, false, 51, -29696, -29696},  // 35840 cut to 16 bits
    };
    for (const auto& c : cases) {
        int16_t b[16] = {};
        for (int i = 0; i < (c.all ? 16 : 1); ++i) b[i] = c.in0;
        ASSERT_EQ(kpliTransformDequantLumaDC_H264_16s_C1I(b, c.qp), kplStsNoErr);
        EXPECT_EQ(b[0], c.out0) << "qp " << c.qp;
        EXPECT_EQ(b[15], c.out15) << "qp " << c.qp;
        EXPECT_EQ(b[3], c.out15) << "qp " << c.qp;
    }
}

TEST(H264DequantDC, ChromaHadamardAndHalving) {
    struct Case {
        int16_t in[4];
        int32_t qp;
        int16_t out[4];
    };
    const Case cases[] = {
        {{1, 0, 0, 0}, 0, {5, 5, 5, 5}},       {{-1, 0, 0, 0}, 1, {-6, -6, -6, -6}},  // -11 >> 1
        {{0, 1, 0, 0}, 0, {5, -5, 5, -5}},     {{0, 0, 1, 0}, 0, {5, 5, -5, -5}},
        {{0, 0, 0, 1}, 6, {10, -10, -10, 10}},  // 20 >> 1
        {{3, 1, 1, 1}, 12, {120, 40, 40, 40}},  // (6, 2, 2, 2) * 40 >> 1
    };
    for (const auto& c : cases) {
        int16_t b[4];
        std::memcpy(b, c.in, sizeof b);
        ASSERT_EQ(kpliTransformDequantChromaDC_H264_16s_C1I(b, c.qp), kplStsNoErr);
        for (int i = 0; i < 4; ++i) EXPECT_EQ(b[i], c.out[i]) << "qp " << c.qp << " i " << i;
    }
}

// A block whose only coefficient is one level, dequantised by hand.
struct ResidualCase {
    const char* what;
    int pos;
    int16_t level;
    int16_t dc;  // used through the DC pointer when has_dc
    bool has_dc;
    int32_t ac, qp;
    int16_t row[4];  // every row of the output is this row
};

TEST(H264Residual, HandWorkedBlocks) {
    const ResidualCase cases[] = {
        // 4 * 16 (class 2 at QP 2) = 64 at position 1: row pass (64, 32, -32, -64),
        // columns copy it down, (v + 32) >> 6 gives (1, 1, 0, -1).
        {"position 1", 1, 4, 0, true, 1, 2, {1, 1, 0, -1}},
        // DC-only through the pointer: (640 + 32) >> 6 = 10, whatever the AC flag.
        {"dc ptr ac", 0, 99, 640, true, 1, 0, {10, 10, 10, 10}},
        {"dc ptr no ac", 0, 99, 640, true, 0, 0, {10, 10, 10, 10}},
        // DC from coefficient 0: 10 * 3584 = 35840 wraps to -29696 -> -464.
        {"dc wraps", 0, 10, 0, false, 0, 51, {-464, -464, -464, -464}},
        {"dc wraps ac", 0, 10, 0, false, 1, 51, {-464, -464, -464, -464}},
        // 32767 + 32 wraps in 16 bits before the shift.
        {"round wraps", 0, 0, 32767, true, 0, 0, {-512, -512, -512, -512}},
        {"round wraps ac", 0, 0, 32767, true, 1, 0, {-512, -512, -512, -512}},
        {"negative dc", 0, -7, 0, false, 0, 12, {-4, -4, -4, -4}},  // (-280 + 32) >> 6
    };
    for (const auto& c : cases) {
        for (int32_t step : {8, 9, 24}) {
            std::vector<uint8_t> buf(static_cast<size_t>(4 * step + 16), 0xEE);
            for (int r = 0; r < 4; ++r)
                for (int k = 0; k < 4; ++k) {
                    const int16_t v = (4 * r + k == c.pos) ? c.level : 0;
                    std::memcpy(&buf[static_cast<size_t>(r * step + 2 * k)], &v, 2);
                }
            const std::vector<uint8_t> before = buf;
            auto* p = reinterpret_cast<Kpl16s*>(buf.data());
            ASSERT_EQ(
                kpliDequantTransformResidual_H264_16s_C1I(p, step, c.has_dc ? &c.dc : nullptr, c.ac, c.qp),
                kplStsNoErr);
            for (int r = 0; r < 4; ++r)
                for (int k = 0; k < 4; ++k) {
                    int16_t v;
                    std::memcpy(&v, &buf[static_cast<size_t>(r * step + 2 * k)], 2);
                    EXPECT_EQ(v, c.row[k]) << c.what << " step " << step << " r" << r << " c" << k;
                }
            // Bytes between the rows are not touched.
            for (int r = 0; r < 4; ++r)
                for (int i = r * step + 8; i < (r + 1) * step && i < static_cast<int>(buf.size()); ++i) {
                    ASSERT_EQ(buf[static_cast<size_t>(i)], before[static_cast<size_t>(i)]) << c.what;
                }
        }
    }
}

TEST(H264Residual, AcFlagZeroUsesOnlyTheDc) {
    // Coefficient 0 alone decides: 30 * 10 = 300, (300 + 32) >> 6 = 5; the
    // other levels are ignored. With the DC pointer, coefficient 0 is too.
    int16_t p[16] = {30, 0, 0, 0, 0, 1000, 0, 0, 0, 0, -777, 0, 0, 0, 0, 5};
    ASSERT_EQ(kpliDequantTransformResidual_H264_16s_C1I(p, 8, nullptr, 0, 0), kplStsNoErr);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(p[i], 5) << i;
    int16_t q[16] = {30, 0, 0, 0, 0, 1000};
    const int16_t dc = -64;
    ASSERT_EQ(kpliDequantTransformResidual_H264_16s_C1I(q, 8, &dc, 0, 0), kplStsNoErr);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(q[i], -1) << i;  // (-64 + 32) >> 6
}

struct AddCase {
    int16_t dc;
    uint8_t pred;
    uint8_t want;
};

TEST(H264ResidualAdd, DcOnlyClampsAndLimits) {
    const AddCase cases[] = {
        {640, 250, 255},  {640, 100, 110}, {-640, 5, 0},
        {-640, 100, 90},  {32000, 0, 255},  // residual 500 limited to 256, 0 + 256 clamps to 255
        {-32000, 255, 0},                   // residual -500 limited to -256
        {0, 77, 77},
    };
    for (const auto& c : cases) {
        for (bool with_coef : {false, true}) {
            uint8_t pred[4 * 7], dst[4 * 5];
            std::memset(pred, c.pred, sizeof pred);
            std::memset(dst, 0xCD, sizeof dst);
            int16_t coef[16] = {123, 5, 5, 5};
            ASSERT_EQ(kpliDequantTransformResidualAndAdd_H264_16s_C1I(pred, with_coef ? coef : nullptr, &c.dc,
                                                                      dst, 7, 5, 20, 0),
                      kplStsNoErr);
            for (int r = 0; r < 4; ++r) {
                for (int k = 0; k < 4; ++k) EXPECT_EQ(dst[5 * r + k], c.want) << c.dc << " " << int(c.pred);
                if (r < 3) {
                    EXPECT_EQ(dst[5 * r + 4], 0xCD);
                }
            }
        }
    }
}

// The add variant on a packed block equals the in-place variant followed by
// a clamped addition, for any levels, AC flags and DC choices.
TEST(H264ResidualAdd, MatchesResidualPlusPrediction) {
    Rng rng(7301);
    for (int iter = 0; iter < 3000; ++iter) {
        SCOPED_TRACE(iter);
        int16_t a[16], b[16];
        if (iter % 3 == 0)
            rng.fill_extreme(a, 16);
        else
            rng.fill(a, 16, -300, 300);
        std::memcpy(b, a, sizeof a);
        const int32_t qp = rng.range(0, 51), ac = rng.range(0, 2);
        const int16_t dc = rng.s16();
        const bool has_dc = rng.coin();
        uint8_t pred[4 * 6], dst[4 * 6];
        rng.fill(pred, sizeof pred);
        ASSERT_EQ(kpliDequantTransformResidual_H264_16s_C1I(a, 8, has_dc ? &dc : nullptr, ac, qp),
                  kplStsNoErr);
        ASSERT_EQ(kpliDequantTransformResidualAndAdd_H264_16s_C1I(pred, b, has_dc ? &dc : nullptr, dst, 6, 6,
                                                                  qp, ac),
                  kplStsNoErr);
        for (int i = 0; i < 16; ++i) {
            ASSERT_EQ(b[i], a[i]) << i;
            const int r = i / 4, k = i % 4;
            int v = pred[6 * r + k] + a[i];
            v = v < 0 ? 0 : (v > 255 ? 255 : v);
            ASSERT_EQ(dst[6 * r + k], v) << i;
        }
    }
}

TEST(H264TransformPrediction, HandWorkedBlocks) {
    struct Case {
        uint8_t row[4];
        int16_t out_row0[4];
    };
    const Case cases[] = {
        {{10, 10, 10, 10}, {160, 0, 0, 0}},
        {{0, 1, 2, 3}, {24, -28, 0, -4}},  // rows (6, -7, 0, -1), columns scale by 4
        {{255, 0, 255, 0}, {2040, 1020, 0, 3060}},
    };
    for (const auto& c : cases) {
        uint8_t src[4 * 9];
        for (int r = 0; r < 4; ++r) std::memcpy(src + 9 * r, c.row, 4);
        int16_t out[16];
        ASSERT_EQ(kpliTransformPrediction_H264_8u16s_C1(src, 9, out), kplStsNoErr);
        for (int k = 0; k < 4; ++k) EXPECT_EQ(out[k], c.out_row0[k]) << k;
        for (int i = 4; i < 16; ++i) EXPECT_EQ(out[i], 0) << i;
    }
}

TEST(H264Sisp, ZeroLevelsReproduceAFlatPrediction) {
    // Prediction of flat 100: transformed DC 1600. At QS 28, L = (1600 * 8192
    // + 2^18) >> 19 = 25, rescaled 25 * 256 = 6400, (6400 + 32) >> 6 = 100.
    int16_t pred[16] = {1600};
    for (int32_t ac : {0, 1}) {
        int16_t blk[16] = {};
        ASSERT_EQ(kpliDequantTransformResidual_SISP_H264_16s_C1I(blk, pred, nullptr, ac, 3, 28, 0),
                  kplStsNoErr);
        for (int i = 0; i < 16; ++i) EXPECT_EQ(blk[i], 100) << i;
    }
}

TEST(H264Sisp, DcPointerTakenAsIsAndOutputClamped) {
    int16_t pred[16] = {};
    const int16_t dc = 64 * 300;  // 300 after the transform: clamped to 255
    int16_t blk[16];
    for (int i = 0; i < 16; ++i) blk[i] = static_cast<int16_t>(i);
    ASSERT_EQ(kpliDequantTransformResidual_SISP_H264_16s_C1I(blk, pred, &dc, 0, 20, 20, 0), kplStsNoErr);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(blk[i], 255) << i;
    const int16_t neg = -64 * 5;
    ASSERT_EQ(kpliDequantTransformResidual_SISP_H264_16s_C1I(blk, pred, &neg, 0, 20, 20, 0), kplStsNoErr);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(blk[i], 0) << i;
}

TEST(H264Sisp, SwitchingUsesQsForTheLevels) {
    Rng rng(4242);
    for (int iter = 0; iter < 500; ++iter) {
        int16_t lv[16], pred[16];
        rng.fill(lv, 16, -40, 40);
        rng.fill(pred, 16, -4000, 4000);
        const int32_t qp = rng.range(0, 51), qs = rng.range(0, 51);
        int16_t a[16], b[16];
        std::memcpy(a, lv, sizeof a);
        std::memcpy(b, lv, sizeof b);
        ASSERT_EQ(kpliDequantTransformResidual_SISP_H264_16s_C1I(a, pred, nullptr, 1, qp, qs, 1),
                  kplStsNoErr);
        ASSERT_EQ(kpliDequantTransformResidual_SISP_H264_16s_C1I(b, pred, nullptr, 1, qs, qs, 0),
                  kplStsNoErr);
        ASSERT_EQ(std::memcmp(a, b, sizeof a), 0) << iter;
        int16_t c[4] = {lv[0], lv[1], lv[2], lv[3]}, d[4] = {lv[0], lv[1], lv[2], lv[3]};
        ASSERT_EQ(kpliTransformDequantChromaDC_SISP_H264_16s_C1I(c, pred, qp, qs, 1), kplStsNoErr);
        ASSERT_EQ(kpliTransformDequantChromaDC_SISP_H264_16s_C1I(d, pred, qs, qs, 0), kplStsNoErr);
        ASSERT_EQ(std::memcmp(c, d, sizeof c), 0) << iter;
    }
}

TEST(H264Sisp, ChromaDcHandWorked) {
    // Prediction DC (64, 0, 0, 0) -> P = 64 everywhere; QS 28: L = (64 * 8192
    // + 2^19) >> 20 = 1, d = 256, Hadamard (1024, 0, 0, 0), halved.
    int16_t lv[4] = {};
    const int16_t pred[4] = {64, 0, 0, 0};
    ASSERT_EQ(kpliTransformDequantChromaDC_SISP_H264_16s_C1I(lv, pred, 0, 28, 0), kplStsNoErr);
    EXPECT_EQ(lv[0], 512);
    EXPECT_EQ(lv[1], 0);
    EXPECT_EQ(lv[2], 0);
    EXPECT_EQ(lv[3], 0);
    // A negative prediction gives the negated value.
    const int16_t npred[4] = {-64, 0, 0, 0};
    int16_t lv2[4] = {};
    ASSERT_EQ(kpliTransformDequantChromaDC_SISP_H264_16s_C1I(lv2, npred, 0, 28, 0), kplStsNoErr);
    EXPECT_EQ(lv2[0], -512);
}

TEST(H264Sisp, AnyQpAndQsStaysInsideTheTables) {
    // Only the absence of faults (the sanitizer build watches reads and
    // shifts) and sample-range outputs can be asserted outside 0..51.
    const int32_t odd[] = {INT_MIN, -100000, -7, -1, 52, 53, 54, 55, 56, 100, 1 << 20, INT_MAX};
    Rng rng(99);
    for (int32_t qp : odd)
        for (int32_t qs : odd)
            for (int32_t sw : {0, 1}) {
                int16_t blk[16], pred[16];
                rng.fill(blk, 16);
                rng.fill(pred, 16);
                ASSERT_EQ(kpliDequantTransformResidual_SISP_H264_16s_C1I(blk, pred, nullptr, 1, qp, qs, sw),
                          kplStsNoErr);
                for (int16_t v : blk) ASSERT_TRUE(v >= 0 && v <= 255);
                ASSERT_EQ(kpliTransformDequantChromaDC_SISP_H264_16s_C1I(blk, pred, qp, qs, sw), kplStsNoErr);
            }
}

}  // namespace
