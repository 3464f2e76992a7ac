#include <cstdint>
#include <cstring>

#include "kplvc.h"
#include "support/args.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::test::Rng;

namespace {

bool same(const KplMotionVector& a, const KplMotionVector& b) { return a.dx == b.dx && a.dy == b.dy; }

}  // namespace

// ---- One vector ----------------------------------------------------------------

TEST(ChromaMV, OneVector) {
    struct Case {
        int16_t x, y, wx, wy;
    };
    const Case cases[] = {
        {-1, 4, -1, 2},
        {0, -5, 0, -3},
        {1, 2, 1, 1},
        {3, 4, 1, 2},
        {5, 6, 3, 3},
        {7, 8, 3, 4},
        {-7, -8, -3, -4},
        {9, -9, 5, -5},
        {32767, -32768, 16383, -16384},
        {-32767, 32766, -16383, 16383},
    };
    for (const auto& c : cases) {
        const KplMotionVector in = {c.x, c.y};
        KplMotionVector out = {77, 77};
        ASSERT_EQ(kpliComputeChromaMV_MPEG4(&in, &out), kplStsNoErr);
        EXPECT_EQ(out.dx, c.wx) << c.x;
        EXPECT_EQ(out.dy, c.wy) << c.y;
    }
}

// ---- Four vectors ---------------------------------------------------------------

TEST(ChromaMV, FourVectorsWorkedCases) {
    struct Case {
        const char* what;
        KplMotionVector mv[4];
        uint8_t flags[4];
        KplMotionVector want;
    };
    const Case cases[] = {
        {"all four (1,0): S 4, table16[4] = 1", {{1, 0}, {1, 0}, {1, 0}, {1, 0}}, {1, 1, 1, 1}, {1, 0}},
        {"no flags", {{3, -3}, {100, 100}, {100, 100}, {100, 100}}, {0, 0, 0, 0}, {0, 0}},
        {"three: S 10 -> 0·2 + table12[10] = 2", {{4, -4}, {3, -3}, {3, -3}, {9, 9}}, {1, 1, 1, 0}, {2, -2}},
        {"three: S 25 -> 2·2 + table12[1] = 4", {{8, 0}, {8, 0}, {9, 0}, {0, 0}}, {1, 1, 1, 0}, {4, 0}},
        {"two: S 7 -> table8[7] = 2", {{3, 0}, {0, 0}, {4, 0}, {0, 0}}, {1, 0, 1, 0}, {2, 0}},
        {"two: S -17 -> -(2·2 + table8[1])", {{0, -8}, {0, 0}, {0, 0}, {0, -9}}, {1, 0, 0, 1}, {0, -4}},
        {"four: S 30 -> 1·2 + table16[14] = 4", {{7, 0}, {8, 0}, {7, 0}, {8, 0}}, {1, 1, 1, 1}, {4, 0}},
        {"four: S 19 -> 2 + table16[3] = 3", {{4, 0}, {5, 0}, {5, 0}, {5, 0}}, {1, 1, 1, 1}, {3, 0}},
        {"four extremes",
         {{-32768, 32767}, {-32768, 32767}, {-32768, 32767}, {-32768, 32767}},
         {1, 1, 1, 1},
         {-16384, 16383}},
    };
    for (const auto& c : cases) {
        KplMotionVector out = {99, 99};
        ASSERT_EQ(kpliComputeChroma4MV_MPEG4(c.mv, &out, c.flags), kplStsNoErr);
        EXPECT_TRUE(same(out, c.want)) << c.what << ": got (" << out.dx << "," << out.dy << ")";
    }
}

// One flagged vector (any non-zero flag) gives the same as the one-vector derivation.
TEST(ChromaMV, FourVectorsWithOneFlagMatchOneVector) {
    Rng rng(6300);
    for (int iter = 0; iter < 4000; ++iter) {
        KplMotionVector mv[4];
        for (auto& v : mv) v = {rng.s16(), rng.s16()};
        uint8_t flags[4] = {0, 0, 0, 0};
        const int b = rng.range(0, 3);
        flags[b] = static_cast<uint8_t>(rng.range(1, 255));
        KplMotionVector four, one;
        ASSERT_EQ(kpliComputeChroma4MV_MPEG4(mv, &four, flags), kplStsNoErr);
        ASSERT_EQ(kpliComputeChromaMV_MPEG4(&mv[b], &one), kplStsNoErr);
        ASSERT_TRUE(same(four, one)) << mv[b].dx << "," << mv[b].dy;
    }
}

// ---- Limiting -----------------------------------------------------------------

TEST(LimitMV, WorkedCases) {
    struct Case {
        const char* what;
        KpliRect r;
        int32_t x, y, size;
        KplMotionVector in, want;
    };
    const Case cases[] = {
        {"right and top", {0, 0, 176, 144}, 160, 0, 16, {10, -4}, {0, 0}},
        {"inside", {0, 0, 176, 144}, 16, 16, 16, {10, -4}, {10, -4}},
        {"exactly at the left bound", {0, 0, 176, 144}, 16, 16, 16, {-32, -32}, {-32, -32}},
        {"one half sample left of it", {0, 0, 176, 144}, 16, 16, 16, {-33, -33}, {-32, -32}},
        {"one half sample before the far bound", {0, 0, 176, 144}, 16, 16, 16, {287, 223}, {287, 223}},
        {"at the far bound: replaced by the same value",
         {0, 0, 176, 144},
         16,
         16,
         16,
         {288, 224},
         {288, 224}},
        {"past the far bound", {0, 0, 176, 144}, 16, 16, 16, {300, 1000}, {288, 224}},
        {"offset rectangle, size 8", {-16, 8, 64, 48}, 0, 8, 8, {-40, -2}, {-32, 0}},
        {"offset rectangle far side", {-16, 8, 64, 48}, 0, 8, 8, {200, 200}, {80, 80}},
        {"result wraps to 16 bits", {-40000, 0, 80000, 32}, 0, 0, 16, {-32768, 0}, {-32768, 0}},
        {"far bound beyond 16 bits", {0, 0, 2000000, 32}, 0, 0, 16, {32767, 0}, {32767, 0}},
        {"huge position, exact sums",
         {0, 0, 64, 64},
         2000000000,
         -2000000000,
         16,
         {0, 0},
         {static_cast<int16_t>(2 * (48 - 2000000000LL)), static_cast<int16_t>(4000000000LL)}},
    };
    for (const auto& c : cases) {
        KplMotionVector out = {123, 123};
        ASSERT_EQ(kpliLimitMVToRect_MPEG4(&c.in, &out, &c.r, c.x, c.y, c.size), kplStsNoErr) << c.what;
        EXPECT_TRUE(same(out, c.want)) << c.what << ": got (" << out.dx << "," << out.dy << ")";
    }
}

// ---- Argument checks ------------------------------------------------------------

// Pointers, then the block size (8 or 16), then a rectangle narrower or
// lower than the block.
TEST(ChromaMVArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    kplvc::test::ArgPool p;
    const KplMotionVector* in = p.take<KplMotionVector>({{1, 1}, {2, 2}, {3, 3}, {4, 4}});
    KplMotionVector* out = p.take<KplMotionVector>(1);
    // A rectangle must hold two blocks across and down.
    const KpliRect *ok = p.take<KpliRect>({{0, 0, 32, 32}}), *narrow = p.take<KpliRect>({{0, 0, 31, 32}}),
                   *low = p.take<KpliRect>({{0, 0, 32, 15}}), *w24 = p.take<KpliRect>({{0, 0, 24, 100}});
    CHECK_ARGS(p, kpliComputeChromaMV_MPEG4, {in, out}, {null(0), null(1)});
    CHECK_ARGS(p, kpliComputeChroma4MV_MPEG4, {in, out, p.take<Kpl8u>({1, 1, 1, 1})},
               {null(0), null(1), null(2)});
    const KplStatus size = kplStsBlockSizeErr;
    CHECK_ARGS(p, kpliLimitMVToRect_MPEG4, {in, out, ok, 0, 0, 16},
               {null(0), null(1), null(2), fails(5, 12, size), fails(5, 0, size), fails(5, 4, size),
                fails(5, 32, size), fails(2, narrow, kplStsSizeErr)});
    CHECK_ARGS(p, kpliLimitMVToRect_MPEG4, {in, out, w24, 0, 0, 8}, {fails(2, low, kplStsSizeErr)});
}
