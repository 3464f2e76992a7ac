// Scan tables and inverse scans.
#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "block/scan.h"
#include "kplvc.h"
#include "support/args.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::test::Rng;
namespace blk = kplvc::block;

namespace {

// The classical zigzag, walked along the anti-diagonals: even diagonals go
// up and to the right, odd ones down and to the left.
std::array<int, 64> walk_zigzag() {
    std::array<int, 64> z{};
    int i = 0;
    for (int d = 0; d < 15; ++d) {
        for (int k = 0; k <= d; ++k) {
            const int row = (d % 2 == 0) ? d - k : k;
            const int col = d - row;
            if (row < 8 && col < 8) z[static_cast<size_t>(i++)] = row * 8 + col;
        }
    }
    return z;
}

using CompactFn = KplStatus (*)(const Kpl16s*, Kpl32s, Kpl16s*);

struct Compact {
    const char* name;
    CompactFn fn;
    const uint8_t* scan;
};
const Compact kCompact[] = {
    {"classical", kpliZigzagInvClassical_Compact_16s, blk::ZigzagC},
    {"horizontal", kpliZigzagInvHorizontal_Compact_16s, blk::ZigzagH},
    {"vertical", kpliZigzagInvVertical_Compact_16s, blk::ZigzagV},
};

}  // namespace

TEST(ScanTables, PermutationsAndRelations) {
    for (const uint8_t* s : {blk::ZigzagC, blk::ZigzagH, blk::ZigzagV}) {
        std::vector<int> v(s, s + 64);
        std::sort(v.begin(), v.end());
        for (int i = 0; i < 64; ++i) ASSERT_EQ(v[static_cast<size_t>(i)], i);
    }
    const auto z = walk_zigzag();
    for (int i = 0; i < 64; ++i) EXPECT_EQ(blk::ZigzagC[i], z[static_cast<size_t>(i)]) << i;
    // The alternate-vertical scan starts down the first column; the
    // alternate-horizontal one is it transposed.
    EXPECT_TRUE(blk::ZigzagV[1] == 8 && blk::ZigzagV[3] == 24 && blk::ZigzagV[4] == 1);
    for (int i = 0; i < 64; ++i) {
        const int v = blk::ZigzagV[i];
        EXPECT_EQ(blk::ZigzagH[i], (v % 8) * 8 + v / 8) << i;
    }
    // The encoders' tables are the same tables, under swapped names.
    EXPECT_EQ(&blk::_kplClassicalZigzag[0], &blk::ZigzagC[0]);
    EXPECT_EQ(&blk::_kplVerticalZigzag[0], &blk::ZigzagH[0]);
    EXPECT_EQ(&blk::_kplHorizontalZigzag[0], &blk::ZigzagV[0]);
}

// Coefficient i lands at raster position scan[i] for i < len; every other
// output cell keeps its value. The full forms place all 64.
TEST(InverseScan, PlaceTheFirstLenCoefficients) {
    struct Case {
        const char* name;
        std::function<KplStatus(const Kpl16s*, Kpl32s, Kpl16s*)> fn;
        const uint8_t* scan;
        std::vector<Kpl32s> lens;
    };
    std::vector<Case> cases = {
        {"full horizontal",
         [](const Kpl16s* s, Kpl32s, Kpl16s* d) { return kpliZigzagInv_Horizontal_16s(s, d); },
         blk::ZigzagH,
         {64}},
        {"full vertical",
         [](const Kpl16s* s, Kpl32s, Kpl16s* d) { return kpliZigzagInv_Vertical_16s(s, d); },
         blk::ZigzagV,
         {64}},
    };
    for (const auto& c : kCompact) cases.push_back({c.name, c.fn, c.scan, {1, 2, 3, 17, 63, 64}});
    Rng rng(702);
    for (const auto& c : cases)
        for (Kpl32s len : c.lens) {
            int16_t src[64], dst[64];
            rng.fill(src, 64);
            for (auto& d : dst) d = -12345;
            ASSERT_EQ(c.fn(src, len, dst), kplStsNoErr);
            std::vector<int> want(64, -12345);
            for (int i = 0; i < len; ++i) want[c.scan[i]] = src[i];
            for (int r = 0; r < 64; ++r)
                EXPECT_EQ(dst[r], want[static_cast<size_t>(r)]) << c.name << " len " << len << " pos " << r;
        }
}

TEST(InverseScanArgs, FirstFailureAndNothingWritten) {
    kplvc::test::ArgPool p;
    const Kpl16s* src = p.take<Kpl16s>(64);
    Kpl16s* dst = p.take<Kpl16s>(64);
    for (auto f : {kpliZigzagInv_Horizontal_16s, kpliZigzagInv_Vertical_16s})
        CHECK_ARGS(p, f, {src, dst}, {null(0), null(1)});
    for (const auto& c : kCompact)
        CHECK_ARGS(p, c.fn, {src, 5, dst},
                   {null(0), null(2), fails(1, 0, kplStsCoefCountErr), fails(1, 65, kplStsCoefCountErr),
                    fails(1, -1, kplStsCoefCountErr)});
}
