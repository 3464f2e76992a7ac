#include <cstdint>
#include <cstring>
#include <vector>

#include "h264/pred.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::h264::PredKernels;
using kplvc::test::Arena;
using kplvc::test::Edge;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

// A 32x32 frame with the block at (8, 8): room for every neighbour.
struct Frame {
    static constexpr int32_t kStep = 32;
    Guarded g{32 * 32};
    Kpl8u* blk() { return g.data() + 8 * kStep + 8; }
    Kpl8u& at(int x, int y) { return blk()[y * kStep + x]; }
    std::vector<uint8_t> snap() const { return {g.data(), g.data() + 32 * 32}; }
};

// T = 10, 20, ..., 80 (above and above-right), L = 5, 15, 25, 35, C = 0.
void set_ramp(Frame& f) {
    std::memset(f.g.data(), 0, f.g.size());
    for (int x = 0; x < 8; ++x) f.at(x, -1) = static_cast<Kpl8u>(10 * (x + 1));
    for (int y = 0; y < 4; ++y) f.at(-1, y) = static_cast<Kpl8u>(5 + 10 * y);
    f.at(-1, -1) = 0;
}

}  // namespace

// ---- Behaviour ------------------------------------------------------------------

TEST(Pred4x4, HandComputedSamples) {
    struct Case {
        int mode, x, y, want;
    };
    const Case cases[] = {
        {0, 2, 3, 30},  // vertical: T[2]
        {1, 3, 2, 25},  // horizontal: L[2]
        {2, 1, 1, 23},  // DC: (100 + 80 + 4) >> 3
        {3, 0, 0, 20},  // (T0 + 2 T1 + T2 + 2) >> 2
        {3, 3, 3, 78},  // (T6 + 3 T7 + 2) >> 2
        {4, 0, 0, 4},   // (T0 + 2 C + L0 + 2) >> 2
        {4, 2, 0, 20},  // (T0 + 2 T1 + T2 + 2) >> 2
        {4, 0, 3, 25},  // (L3 + 2 L2 + L1 + 2) >> 2
        {5, 0, 0, 5},   // (C + T0 + 1) >> 1
        {5, 0, 1, 4},   // (L0 + 2 C + T0 + 2) >> 2
        {5, 0, 3, 15},  // (L2 + 2 L1 + L0 + 2) >> 2
        {6, 3, 0, 20},  // (T2 + 2 T1 + T0 + 2) >> 2
        {6, 0, 0, 3},   // (C + L0 + 1) >> 1
        {7, 3, 3, 60},  // (T4 + 2 T5 + T6 + 2) >> 2
        {7, 0, 0, 15},  // (T0 + T1 + 1) >> 1
        {8, 1, 2, 33},  // (L2 + 3 L3 + 2) >> 2
        {8, 3, 3, 35},  // L3
        {8, 0, 0, 10},  // (L0 + L1 + 1) >> 1
    };
    for (const auto& c : cases) {
        Frame f;
        set_ramp(f);
        ASSERT_EQ(kpliPredictIntra_4x4_H264_8u_C1IR(f.blk(), Frame::kStep, c.mode, 1 | 2 | 32 | 64),
                  kplStsNoErr);
        EXPECT_EQ(f.at(c.x, c.y), c.want) << "mode " << c.mode << " (" << c.x << "," << c.y << ")";
    }
}

TEST(Pred4x4, SubstitutionAndWarnings) {
    struct Case {
        int mode, avail, status;
    };
    const Case cases[] = {
        {0, 2 | 32 | 64, kplStsNoNeighbourWrn},
        {0, 1, kplStsNoErr},
        {1, 1 | 32, kplStsNoNeighbourWrn},
        {1, 2, kplStsNoErr},
        {2, 0, kplStsNoErr},
        {2, 1, kplStsNoErr},
        {3, 1, kplStsNoErr},
        {3, 2, kplStsNoNeighbourWrn},
        {4, 1 | 2, kplStsNoNeighbourWrn},
        {4, 1 | 2 | 32, kplStsNoErr},
        {5, 1 | 32, kplStsNoNeighbourWrn},
        {6, 2 | 32, kplStsNoNeighbourWrn},
        {7, 1, kplStsNoErr},
        {7, 64, kplStsNoNeighbourWrn},
        {8, 1 | 32 | 64, kplStsNoNeighbourWrn},
        {8, 2, kplStsNoErr},
    };
    for (const auto& c : cases) {
        Frame a, b;
        set_ramp(a);
        set_ramp(b);
        const KplStatus sts = kpliPredictIntra_4x4_H264_8u_C1IR(a.blk(), Frame::kStep, c.mode, c.avail);
        EXPECT_EQ(sts, c.status) << "mode " << c.mode << " avail " << c.avail;
        // The same as predicting with every neighbour present after writing the
        // substitutes into the frame by hand.
        if (!(c.avail & 1) && c.mode != 2)
            for (int x = 0; x < 4; ++x) b.at(x, -1) = 128;
        if (!(c.avail & 2) && c.mode != 2)
            for (int y = 0; y < 4; ++y) b.at(-1, y) = 128;
        if (!(c.avail & 32)) b.at(-1, -1) = 128;
        if (!(c.avail & 64))
            for (int x = 4; x < 8; ++x) b.at(x, -1) = b.at(3, -1);
        const int all = c.mode == 2 ? (c.avail & 3) : (1 | 2 | 32 | 64);
        kpliPredictIntra_4x4_H264_8u_C1IR(b.blk(), Frame::kStep, c.mode, all);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x)
                EXPECT_EQ(a.at(x, y), b.at(x, y)) << "mode " << c.mode << " avail " << c.avail;
    }
    Frame f;
    set_ramp(f);
    EXPECT_EQ(kpliPredictIntra_4x4_H264_8u_C1IR(f.blk(), Frame::kStep, 0, 0), kplStsNoNeighbourWrn);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) EXPECT_EQ(f.at(x, y), 128);
}

TEST(Pred16x16, DcAndPlane) {
    struct Case {
        int avail, want;
    };
    // T[x] = x, L[y] = 100 + y: sums 120 and 1720.
    for (const Case c : {Case{1 | 2, (120 + 1720 + 16) >> 5}, Case{1, (120 + 8) >> 4},
                         Case{2, (1720 + 8) >> 4}, Case{0, 128}, Case{32 | 64, 128}}) {
        Guarded g(48 * 48);
        Kpl8u* p = g.data() + 48 * 8 + 8;
        for (int i = 0; i < 16; ++i) {
            p[-48 + i] = static_cast<Kpl8u>(i);
            p[48 * i - 1] = static_cast<Kpl8u>(100 + i);
        }
        ASSERT_EQ(kpliPredictIntra_16x16_H264_8u_C1IR(p, 48, 2, c.avail), kplStsNoErr);
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x) ASSERT_EQ(p[48 * y + x], c.want) << c.avail;
        EXPECT_TRUE(g.intact());
    }
    // A step at the middle of both neighbour runs drives the plane to 0 in
    // the top-left corner and 255 in the bottom-right: b = c = 717, a = 8160.
    Guarded g(48 * 48);
    Kpl8u* p = g.data() + 48 * 8 + 8;
    p[-49] = 0;
    for (int i = 0; i < 16; ++i) {
        p[-48 + i] = i < 8 ? 0 : 255;
        p[48 * i - 1] = i < 8 ? 0 : 255;
    }
    ASSERT_EQ(kpliPredictIntra_16x16_H264_8u_C1IR(p, 48, 3, 1 | 2 | 32), kplStsNoErr);
    EXPECT_EQ(p[0], 0);
    EXPECT_EQ(p[48 * 15 + 15], 255);
    EXPECT_EQ(p[48 * 7 + 7], (8160 + 16) >> 5 > 255 ? 255 : (8160 + 16) >> 5);
    EXPECT_EQ(p[48 * 7 + 8], 255);                    // (8176 + 717) >> 5 = 277
    EXPECT_EQ(p[48 * 7 + 0], (8176 - 7 * 717) >> 5);  // 98
}

TEST(PredChroma, DcQuarters) {
    // T = 10 (0..3), 50 (4..7); L = 20 (0..3), 90 (4..7).
    struct Case {
        int avail, q[4];
    };
    const Case cases[] = {
        {1 | 2, {15, 50, 90, 70}},
        {1, {10, 50, 10, 50}},
        {2, {20, 20, 90, 90}},
        {0, {128, 128, 128, 128}},
    };
    for (const auto& c : cases) {
        Guarded g(32 * 32);
        Kpl8u* p = g.data() + 32 * 8 + 8;
        for (int i = 0; i < 8; ++i) {
            p[-32 + i] = i < 4 ? 10 : 50;
            p[32 * i - 1] = i < 4 ? 20 : 90;
        }
        ASSERT_EQ(kpliPredictIntraChroma8x8_H264_8u_C1IR(p, 32, 0, c.avail), kplStsNoErr);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) ASSERT_EQ(p[32 * y + x], c.q[(y / 4) * 2 + x / 4]) << c.avail;
    }
}

// ---- Argument checks --------------------------------------------------------------

TEST(PredArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    kplvc::test::ArgPool p;
    Kpl8u* blk = p.take<Kpl8u>(48 * 48) + 48 * 8 + 8;
    CHECK_ARGS(p, kpliPredictIntra_4x4_H264_8u_C1IR, {blk, 48, 0, 1 | 2 | 32 | 64},
               {null(0), fails(1, 3, kplStsStepErr), fails(2, 9, kplStsOutOfRangeErr),
                fails(2, -1, kplStsOutOfRangeErr)});
    // 16x16 and chroma: the neighbours a mode needs are checked after the
    // mode; the good calls use the plane mode with every neighbour.
    CHECK_ARGS(p, kpliPredictIntra_16x16_H264_8u_C1IR, {blk, 48, 3, 1 | 2 | 32},
               {null(0), fails(1, 15, kplStsMBStepErr), fails(2, 4, kplStsOutOfRangeErr),
                fails(2, -1, kplStsOutOfRangeErr), fails(3, 1 | 2, kplStsNeighbourErr),
                fails(3, 1 | 32 | 64, kplStsNeighbourErr)});
    for (auto [mode, lacking] : {std::pair{0, 2 | 32}, {1, 1 | 32}})
        CHECK_ARGS(p, kpliPredictIntra_16x16_H264_8u_C1IR, {blk, 48, mode, 1 | 2 | 32},
                   {fails(3, lacking, kplStsNeighbourErr)});
    CHECK_ARGS(p, kpliPredictIntraChroma8x8_H264_8u_C1IR, {blk, 48, 3, 1 | 2 | 32},
               {null(0), fails(1, 7, kplStsMBStepErr), fails(2, 4, kplStsOutOfRangeErr),
                fails(3, 2 | 32, kplStsNeighbourErr)});
    for (auto [mode, lacking] : {std::pair{2, 2 | 32}, {1, 1}})
        CHECK_ARGS(p, kpliPredictIntraChroma8x8_H264_8u_C1IR, {blk, 8, mode, 1 | 2 | 32},
                   {fails(3, lacking, kplStsNeighbourErr)});
}

TEST(PredArgs, MissingNeighboursAreNotRead) {
    // Block flush against an unmapped page above and to the left: with the
    // neighbours marked absent, the 4x4 modes and the DC modes must not read.
    kplvc::test::GuardPages gp(16 * 16);
    Kpl8u* p = gp.flush_start();
    for (int mode = 0; mode < 9; ++mode) {
        const KplStatus s = kpliPredictIntra_4x4_H264_8u_C1IR(p, 16, mode, 0);
        EXPECT_EQ(s, mode == 2 ? kplStsNoErr : kplStsNoNeighbourWrn) << mode;
    }
    EXPECT_EQ(kpliPredictIntra_16x16_H264_8u_C1IR(p, 16, 2, 0), kplStsNoErr);
    EXPECT_EQ(kpliPredictIntraChroma8x8_H264_8u_C1IR(p, 16, 0, 0), kplStsNoErr);
    EXPECT_EQ(p[0], 128);
}

// ---- Variants against the reference -----------------------------------------------

namespace {

// Random or extreme frames, any availability bits (4, 8 and 16 mean
// nothing). The 4x4 and DC kernels must not read a neighbour marked absent:
// every other time the top, corner and above-right are all absent the block
// starts the buffer, right after an unmapped page.
template <class Get>
void check_pred(Get get, const std::string& name, bool reads_by_avail) {
    kplvc::test::check_variants(kplvc::h264::pred_kernels_for, get, "h264 pred " + name, 1000,
                                [=](Arena& a, Rng& rng, int i) {
                                    const int32_t step = rng.range(16, 40), avail = rng.range(0, 127);
                                    const bool gap = reads_by_avail && (avail & (1 | 32 | 64)) == 0 && i % 2;
                                    const size_t n = static_cast<size_t>(step) * 26;
                                    auto frame = a.out<uint8_t>(n, 1, gap ? Edge::start : Edge::none);
                                    if (rng.range(0, 2) != 0) rng.fill_extreme(a[frame], n);
                                    const int32_t at = gap ? 8 : 8 * step + 8;
                                    return [=](auto f, Arena& x) { return f(x[frame] + at, step, avail); };
                                });
}

}  // namespace

TEST(PredVariants, MatchReference) {
    for (int m = 0; m < 9; ++m)
        check_pred([m](const PredKernels& k) { return k.pred4x4[m]; }, "4x4 mode " + std::to_string(m), true);
    for (int m = 0; m < 4; ++m) {
        check_pred([m](const PredKernels& k) { return k.pred16x16[m]; }, "16x16 mode " + std::to_string(m),
                   m == 2);
        check_pred([m](const PredKernels& k) { return k.pred_chroma[m]; }, "chroma mode " + std::to_string(m),
                   m == 0);
    }
}
