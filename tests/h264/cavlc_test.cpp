// CAVLC analysis: trailing ones and signs, levels, runs and total zeros on
// hand-worked blocks, with checks that only N - T1 levels and N - 1 runs are
// written.
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "support/support.h"

namespace {

const Kpl32s kIdentity[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
// Scan index -> raster position of the 4x4 zigzag scan.
const Kpl32s kZigzag[16] = {0, 1, 4, 8, 5, 2, 3, 6, 9, 12, 13, 10, 7, 11, 14, 15};

struct Want {
    Kpl8u t1, signs, n, total;
    std::vector<int16_t> levels;
    std::vector<Kpl8u> runs;
};

// Calls `run` with fresh outputs, sentinel-filled, and checks them against
// `w`, including that nothing was written past N - T1 levels and N - 1 runs.
template <class Run>
void expect_analysis(const char* what, const Want& w, Run run) {
    Kpl8u t1 = 0xEE, signs = 0xEE, n = 0xEE, total = 0xEE;
    Kpl16s levels[17];
    Kpl8u runs[17];
    for (auto& v : levels) v = 0x5A5A;
    std::memset(runs, 0xA5, sizeof runs);
    ASSERT_EQ(run(&t1, &signs, &n, &total, levels, runs), kplStsNoErr) << what;
    EXPECT_TRUE(t1 == w.t1 && signs == w.signs && n == w.n && total == w.total)
        << what << ": t1 " << int(t1) << " signs " << int(signs) << " n " << int(n) << " total "
        << int(total);
    for (size_t i = 0; i < w.levels.size(); ++i) EXPECT_EQ(levels[i], w.levels[i]) << what << " level " << i;
    EXPECT_EQ(levels[w.levels.size()], 0x5A5A) << what << ": extra level written";
    for (size_t i = 0; i < w.runs.size(); ++i) EXPECT_EQ(runs[i], w.runs[i]) << what << " run " << i;
    EXPECT_EQ(runs[w.runs.size()], 0xA5) << what << ": extra run written";
}

struct CavlcCase {
    const char* what;
    std::vector<std::pair<int, int16_t>> nonzero;  // (raster position, level)
    const Kpl32s* scan;
    Kpl8u first, last;
    Want want;
};

TEST(H264Cavlc, BlockAnalysis) {
    const CavlcCase cases[] = {
        {"empty block", {}, kIdentity, 0, 15, {0, 0, 0, 16, {}, {}}},
        {"empty AC block", {}, kIdentity, 1, 15, {0, 0, 0, 15, {}, {}}},
        {"one position", {}, kIdentity, 5, 5, {0, 0, 0, 1, {}, {}}},
        {"one position set", {{5, -3}}, kIdentity, 5, 5, {0, 0, 1, 0, {-3}, {}}},
        // 1, -1, 1, 1 from the top: three trailing ones (signs 010), the
        // fourth goes to the levels; the 12 zeros below count as total zeros.
        {"three trailing ones",
         {{15, 1}, {14, -1}, {13, 1}, {12, 1}},
         kIdentity,
         0,
         15,
         {3, 2, 4, 12, {1}, {0, 0, 0}}},
        // 2 above 1: the 2 ends the trailing ones at once.
        {"big level first", {{15, 2}, {14, 1}}, kIdentity, 0, 15, {0, 0, 2, 14, {2, 1}, {0}}},
        // From the top: 1 at 5 (T1), zeros at 4, 3, -1 at 2 (T1), zero at 1, 3 at 0.
        {"runs", {{0, 3}, {2, -1}, {5, 1}}, kIdentity, 0, 15, {2, 1, 3, 3, {3}, {2, 1}}},
        // Zeros above the highest level (positions 15..6) are not counted.
        {"zeros above ignored", {{5, 7}}, kIdentity, 0, 15, {0, 0, 1, 5, {7}, {}}},
        // Only positions first..last are examined.
        {"window", {{0, 9}, {3, 1}, {9, -1}}, kIdentity, 1, 8, {1, 0, 1, 2, {}, {}}},
        // A trailing one after a larger level is an ordinary level.
        {"late one",
         {{8, -1}, {6, 4}, {2, 1}, {1, -1}},
         kIdentity,
         0,
         15,
         {1, 1, 4, 5, {4, 1, -1}, {1, 3, 0}}},
        // The scan table is followed: raster 4 is scan index 2, twelve zeros
        // above it up to raster 15 (scan 15); the 2 first ends the trailing ones.
        {"zigzag", {{4, -1}, {15, 2}}, kZigzag, 0, 15, {0, 0, 2, 14, {2, -1}, {12}}},
    };
    for (const auto& c : cases) {
        Kpl16s blk[16] = {};
        for (auto [p, v] : c.nonzero) blk[p] = v;
        expect_analysis(c.what, c.want,
                        [&](Kpl8u* t1, Kpl8u* signs, Kpl8u* n, Kpl8u* total, Kpl16s* lv, Kpl8u* runs) {
                            return kpliEncodeCoeffsCAVLC_H264_16s(blk, c.first, c.scan, c.last, t1, signs, n,
                                                                  total, lv, runs);
                        });
    }
}

struct DcCase {
    int16_t lv[4];
    Want want;
};

TEST(H264Cavlc, ChromaDcOrder3To0) {
    const DcCase cases[] = {
        {{0, 0, 0, 0}, {0, 0, 0, 4, {}, {}}},
        {{5, 0, -1, 0}, {1, 1, 2, 1, {5}, {1}}},
        {{1, 1, 1, 1}, {3, 0, 4, 0, {1}, {0, 0, 0}}},
        {{-1, -1, 1, 0}, {3, 3, 3, 0, {}, {0, 0}}},  // signs: +1 (0), then -1, -1 -> 011
        {{0, 0, 0, -2}, {0, 0, 1, 3, {-2}, {}}},
    };
    for (const auto& c : cases) {
        expect_analysis("chroma DC", c.want,
                        [&](Kpl8u* t1, Kpl8u* signs, Kpl8u* n, Kpl8u* total, Kpl16s* lv, Kpl8u* runs) {
                            return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(c.lv, t1, signs, n, total, lv,
                                                                          runs);
                        });
    }
}

}  // namespace
