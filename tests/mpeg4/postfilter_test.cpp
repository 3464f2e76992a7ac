// MPEG-4 display post-filters: worked lines of the deblocking filter (smooth
// step, texture, the default mode's clipping, QP limits), deringing of a
// ringing edge and of a low-contrast macroblock, the plane functions against
// a per-sample model, the argument checks, and every SIMD kernel against the
// scalar one on random, extreme and nearly flat inputs.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/arith.h"
#include "kplvc.h"
#include "mpeg4/postfilter.h"
#include "support/args.h"
#include "support/support.h"
#include "support/variants.h"

using kplvc::mpeg4::PostKernels;
using kplvc::test::Arena;
using kplvc::test::Rng;
using kplvc::test::variants_of;

namespace {

const auto check = variants_of(kplvc::mpeg4::post_kernels_for, "mpeg4 ");

// ---- Deblocking: one line of ten samples across an edge ------------------------

struct LineCase {
    const char* name;
    uint8_t v[10];
    int qp;
    uint8_t want[10];
};

const LineCase kLines[] = {
    // Smooth region (8 flat differences), step of 4 < 2 QP: the 9-tap filter
    // turns it into a ramp; the ends pad with v0 and v9.
    {"smooth step", {10, 10, 10, 10, 10, 14, 14, 14, 14, 14}, 4, {10, 10, 11, 11, 12, 13, 13, 14, 14, 14}},
    // The same step is 2 QP at QP 2: left alone.
    {"smooth step, QP 2",
     {10, 10, 10, 10, 10, 14, 14, 14, 14, 14},
     2,
     {10, 10, 10, 10, 10, 14, 14, 14, 14, 14}},
    // |v1 - v0| and |v8 - v9| >= QP: the line pads with v1 and v8 instead.
    {"smooth, far ends", {0, 20, 20, 20, 20, 22, 22, 22, 22, 60}, 4, {0, 20, 20, 21, 21, 21, 22, 22, 22, 60}},
    // Texture: no flat difference, |a3,0| = 26 >= QP.
    {"texture", {50, 80, 50, 80, 50, 80, 50, 80, 50, 80}, 10, {50, 80, 50, 80, 50, 80, 50, 80, 50, 80}},
    // Default mode: a3,0 = 20 // 8 = 3 (half away from zero), a3,1 =
    // a3,2 = 0, d = -15 // 8 = -2 within (30 - 40) / 2 = -5.
    {"default", {20, 22, 25, 28, 30, 40, 43, 46, 48, 50}, 10, {20, 22, 25, 28, 32, 38, 43, 46, 48, 50}},
    // d = -20 // 8 = -3, clipped to (100 - 103) / 2 = -1.
    {"default, clipped",
     {88, 90, 100, 104, 100, 103, 97, 95, 98, 99},
     10,
     {88, 90, 100, 104, 101, 102, 97, 95, 98, 99}},
    // |a3,0| = 4 is not below QP 4: untouched.
    {"default, QP 4",
     {88, 90, 100, 104, 100, 103, 97, 95, 98, 99},
     4,
     {88, 90, 100, 104, 100, 103, 97, 95, 98, 99}},
    // Two flat differences; d = -10 // 8 = -1, but (70 - 71) / 2 truncates
    // to 0: nothing moves.
    {"default, half 0",
     {50, 56, 62, 72, 70, 71, 60, 52, 44, 38},
     10,
     {50, 56, 62, 72, 70, 71, 60, 52, 44, 38}},
};

// Each case through both functions: as the rows of a 16x8 plane with a
// vertical edge at column 8, and as the columns of an 8x16 plane with a
// horizontal edge at row 8. The macroblocks are 8 wide; the QP of v5's one
// applies (the other one's QP 31 would filter every case).
TEST(Mpeg4Post, DeblockingLines) {
    for (const LineCase& c : kLines) {
        const Kpl8u qp[2] = {31, static_cast<Kpl8u>(c.qp)};
        uint8_t ver[8][16], hor[16][8];
        for (int r = 0; r < 8; ++r)
            for (int i = 0; i < 16; ++i) {
                const uint8_t v = i >= 3 && i < 13 ? c.v[i - 3] : static_cast<uint8_t>(200 + i);
                ver[r][i] = v;
                hor[i][r] = v;
            }
        ASSERT_EQ(kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR(&ver[0][0], 16, {16, 8}, qp, 2, 8), kplStsNoErr);
        const Kpl8u qpt[2] = {31, static_cast<Kpl8u>(c.qp)};  // one per row of macroblocks
        ASSERT_EQ(kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR(&hor[0][0], 8, {8, 16}, qpt, 1, 8), kplStsNoErr);
        for (int r = 0; r < 8; ++r)
            for (int i = 0; i < 16; ++i) {
                const int want = i >= 3 && i < 13 ? c.want[i - 3] : 200 + i;
                EXPECT_EQ(ver[r][i], want) << c.name << ", row " << r << " sample " << i;
                EXPECT_EQ(hor[i][r], want) << c.name << ", column " << r << " sample " << i;
            }
    }
}

// ---- Deringing ---------------------------------------------------------------

using Pattern = int (*)(int x, int y);
// A sharp vertical edge at column 10 (40 | 200) with a +-3 checkerboard
// ripple on both sides.
int ringing(int x, int y) { return (x < 10 ? 40 : 200) + (((x + y) & 1) ? 3 : -3); }
// Stripes 100 / 110: a low-contrast macroblock.
int stripes(int x, int) { return (x & 1) ? 110 : 100; }

struct DeringCase {
    const char* name;
    Pattern pattern;
    int mb, qp;
    // The expected sample at (x, y) of the 16x16 region, the source given.
    int (*want)(int x, int y, int src);
};

bool border(int x, int y) { return x == 0 || y == 0 || x == 15 || y == 15; }

const DeringCase kDering[] = {
    // The flat left blocks take the edge block's threshold 120: the ripple
    // averages to its mean (the 3x3 weights cancel a checkerboard) on both
    // sides; columns 9 and 10, whose windows cross the edge, stay.
    {"ringing edge, QP 8", ringing, 16, 8,
     [](int x, int y, int s) { return border(x, y) || x == 9 || x == 10 ? s : (x < 10 ? 40 : 200); }},
    // The same with max_diff = QP / 2 = 2: each sample moves by 2 of its 3.
    {"ringing edge, QP 5", ringing, 16, 5,
     [](int x, int y, int s) { return border(x, y) || x == 9 || x == 10 ? s : s + ((x + y) & 1 ? -2 : 2); }},
    // Luminance without contrast (range 10 < 64): threshold 0, every
    // sample smoothed to (8 + 1680) / 16 = 105.
    {"low contrast luma", stripes, 16, 31, [](int x, int y, int s) { return border(x, y) ? s : 105; }},
    // In chrominance each block keeps its own threshold 105 and the stripes
    // cross it everywhere: nothing changes.
    {"low contrast chroma", stripes, 8, 31, [](int, int, int s) { return s; }},
};

TEST(Mpeg4Post, DeringingBlocks) {
    for (const DeringCase& c : kDering) {
        uint8_t src[16][16], dst[16][16];
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x) src[y][x] = static_cast<uint8_t>(c.pattern(x, y));
        std::memset(dst, 0, sizeof dst);
        const Kpl8u qp[4] = {static_cast<Kpl8u>(c.qp), static_cast<Kpl8u>(c.qp), static_cast<Kpl8u>(c.qp),
                             static_cast<Kpl8u>(c.qp)};
        ASSERT_EQ(kpliFilterDeringing_MPEG4_8u_C1R(&src[0][0], 16, &dst[0][0], 16, {16, 16}, qp, 2, c.mb),
                  kplStsNoErr);
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x)
                EXPECT_EQ(dst[y][x], c.want(x, y, src[y][x])) << c.name << " at (" << x << ", " << y << ")";
    }
}

// The plane function against a per-sample model of the rules: thresholds
// per block and their rearrangement per luminance macroblock, the window
// across block edges, the region's border copied, a QP per macroblock, and
// regions whose macroblocks are cut at the right and bottom.
TEST(Mpeg4Post, DeringingPlaneModel) {
    Rng rng("mpeg4 dering plane");
    for (int it = 0; it < kplvc::test::iters(60); ++it) {
        const int mb = rng.coin() ? 16 : 8;
        const int W = 8 * rng.range(1, 7), H = 8 * rng.range(1, 7);
        const int sstep = W + rng.range(0, 9), dstep = W + rng.range(0, 9);
        const int mbw = (W + mb - 1) / mb, mbh = (H + mb - 1) / mb;
        std::vector<uint8_t> src(static_cast<size_t>(H) * sstep), dst(static_cast<size_t>(H) * dstep, 7);
        std::vector<Kpl8u> qp(static_cast<size_t>(mbw) * mbh);
        for (auto& q : qp) q = static_cast<Kpl8u>(rng.range(1, 31));
        // Smooth areas, edges and noise of varying contrast.
        const int base = rng.range(0, 255), amp = rng.range(0, 3) == 0 ? 255 : rng.range(1, 40);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                src[static_cast<size_t>(y) * sstep + x] = static_cast<uint8_t>(
                    kplvc::clip3(0, 255, base + ((x * 7 / W + y * 5 / H) & 1 ? amp : 0) + rng.range(-3, 3)));
        ASSERT_EQ(kpliFilterDeringing_MPEG4_8u_C1R(src.data(), sstep, dst.data(), dstep, {W, H}, qp.data(),
                                                   mbw, mb),
                  kplStsNoErr);
        auto s = [&](int x, int y) { return int{src[static_cast<size_t>(y) * sstep + x]}; };
        // Thresholds per block.
        std::vector<int> thr(static_cast<size_t>(W / 8) * (H / 8)), range(thr.size());
        for (int by = 0; by < H / 8; ++by)
            for (int bx = 0; bx < W / 8; ++bx) {
                int lo = 255, hi = 0;
                for (int y = 0; y < 8; ++y)
                    for (int x = 0; x < 8; ++x) {
                        lo = std::min(lo, s(8 * bx + x, 8 * by + y));
                        hi = std::max(hi, s(8 * bx + x, 8 * by + y));
                    }
                thr[static_cast<size_t>(by) * (W / 8) + bx] = (hi + lo + 1) / 2;
                range[static_cast<size_t>(by) * (W / 8) + bx] = hi - lo;
            }
        if (mb == 16) {
            for (int my = 0; my < mbh; ++my)
                for (int mx = 0; mx < mbw; ++mx) {
                    std::vector<size_t> blocks;
                    for (int j = 0; j < 2; ++j)
                        for (int i = 0; i < 2; ++i)
                            if (2 * mx + i < W / 8 && 2 * my + j < H / 8)
                                blocks.push_back(static_cast<size_t>(2 * my + j) * (W / 8) + 2 * mx + i);
                    size_t kmax = blocks[0];
                    for (size_t b : blocks)
                        if (range[b] > range[kmax]) kmax = b;
                    const int max_range = range[kmax], thr_max = thr[kmax];
                    for (size_t b : blocks) {
                        if (range[b] < 32 && max_range >= 64) thr[b] = thr_max;
                        if (max_range < 64) thr[b] = 0;
                    }
                }
        }
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const int t = thr[static_cast<size_t>(y / 8) * (W / 8) + x / 8];
                const int md = qp[static_cast<size_t>(y / mb) * mbw + x / mb] / 2;
                int want = s(x, y);
                if (x > 0 && y > 0 && x < W - 1 && y < H - 1) {
                    int above = 0, sum = 0;
                    for (int j = -1; j <= 1; ++j)
                        for (int i = -1; i <= 1; ++i) {
                            above += s(x + i, y + j) >= t;
                            sum += (2 - std::abs(i)) * (2 - std::abs(j)) * s(x + i, y + j);
                        }
                    if (above == 0 || above == 9) want = kplvc::clip3(want - md, want + md, (sum + 8) >> 4);
                }
                ASSERT_EQ(dst[static_cast<size_t>(y) * dstep + x], want)
                    << "at (" << x << ", " << y << ") of " << W << "x" << H << ", mb " << mb << ", iteration "
                    << it;
            }
    }
}

// ---- Argument checks ---------------------------------------------------------------

TEST(Mpeg4Post, Arguments) {
    using namespace kplvc::test;
    ArgPool p;
    Kpl8u* plane = p.take<Kpl8u>(40 * 32);
    Kpl8u* out = p.take<Kpl8u>(40 * 32);
    Kpl8u* qp = p.take<Kpl8u>({5, 6, 7, 8, 9, 10, 11, 12});       // 2 x 2 used (qpStep 4), or 4 x 4
    const Kpl8u* bad = p.take<Kpl8u>({5, 6, 7, 8, 9, 32, 1, 1});  // 32 only in the second row
    const Kpl8u* zero = p.take<Kpl8u>({5, 0, 7, 8});
    const std::vector<Arg> common = {
        fails(2, KpliSize{32, 4}, kplStsSizeErr),
        fails(2, KpliSize{12, 32}, kplStsSizeErr),
        fails(2, KpliSize{32, 0}, kplStsSizeErr),
        fails(5, 12, kplStsBlockSizeErr),
        fails(5, 0, kplStsBlockSizeErr),
        fails(1, 31, kplStsStepErr),
        passes(1, 33),
        fails(4, 1, kplStsStepErr),
        fails(3, static_cast<const void*>(zero), kplStsMPEG4QPErr),
        fails(3, static_cast<const void*>(bad), kplStsMPEG4QPErr),
    };
    auto with_null = [&](std::initializer_list<Arg> nulls) {
        std::vector<Arg> v(nulls);
        v.insert(v.end(), common.begin(), common.end());
        return v;
    };
    p.check("kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR", kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR,
            {plane, 40, KpliSize{32, 32}, qp, 4, 16}, with_null({null(0), null(3)}));
    p.check("kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR", kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR,
            {plane, 40, KpliSize{32, 32}, qp, 4, 16}, with_null({null(0), null(3)}));
    // Deringing: the arguments sit two further on, and each step is checked.
    std::vector<Arg> dr = {null(0), null(2), null(5)};
    for (Arg a : common) {
        const bool src_step = a.index == 1;
        a.index = src_step ? 1 : a.index + 2;
        dr.push_back(a);
        if (src_step && a.status == kplStsNoErr) dr.push_back(fails(3, 31, kplStsStepErr));
    }
    p.check("kpliFilterDeringing_MPEG4_8u_C1R", kpliFilterDeringing_MPEG4_8u_C1R,
            {plane, 40, out, 40, KpliSize{32, 32}, qp, 4, 16}, dr);
}

// ---- SIMD kernels against the scalar ones -----------------------------------------

// A 16-column band of rows: nearly flat lines (so that the smooth mode and
// its range test are reached), steps, ramps, noise and extremes.
void fill_lines(Rng& rng, uint8_t* p, int step, int rows, int cols, bool by_column) {
    for (int l = 0; l < (by_column ? cols : rows); ++l) {
        const int kind = rng.range(0, 5), base = rng.range(0, 255), jump = rng.range(-60, 60);
        const int at = rng.range(0, 10);
        for (int i = 0; i < (by_column ? rows : cols); ++i) {
            int v;
            switch (kind) {
                case 0:
                    v = base + rng.range(-2, 2);
                    break;
                case 1:
                    v = base + (i >= at ? jump : 0) + rng.range(-1, 1);
                    break;
                case 2:
                    v = base + i * jump / 16;
                    break;
                case 3:
                    v = rng.coin() ? 0 : 255;
                    break;
                case 4:
                    v = base + (i >= at ? jump / 8 : 0) + rng.range(-3, 3);
                    break;
                default:
                    v = rng.range(0, 255);
            }
            const int x = by_column ? l : i, y = by_column ? i : l;
            p[y * step + x] = static_cast<uint8_t>(kplvc::clip3(0, 255, v));
        }
    }
}

// A random QP, often at its ends.
int random_qp(Rng& rng) { return rng.range(0, 3) == 0 ? (rng.coin() ? 1 : 31) : rng.range(1, 31); }

TEST(Mpeg4Post, DeblockingVariants) {
    for (int ver = 0; ver < 2; ++ver) {
        auto get = ver ? &PostKernels::deblock_ver : &PostKernels::deblock_hor;
        check(get, ver ? "deblock_ver" : "deblock_hor", 6000, [ver](Arena& a, Rng& rng, int) {
            const int step = 16 + rng.range(0, 9), qp = random_qp(rng);
            auto buf = a.out<uint8_t>(static_cast<size_t>(step) * 10 + 16, 1);
            fill_lines(rng, a[buf], step, 10, 16, ver == 0);
            a.note("qp ", qp, " step ", step);
            // The edge at row 5 (column 8), in the middle of the band.
            const size_t at = ver ? static_cast<size_t>(step) + 8 : 5 * static_cast<size_t>(step);
            return [=](auto fn, Arena& x) { fn(x[buf] + at, step, qp); };
        });
    }
    check(&PostKernels::deblock_hor16, "deblock_hor16", 6000, [](Arena& a, Rng& rng, int) {
        const int step = 16 + rng.range(0, 9), qp0 = random_qp(rng), qp1 = random_qp(rng);
        auto buf = a.out<uint8_t>(static_cast<size_t>(step) * 10, 1);
        fill_lines(rng, a[buf], step, 10, 16, true);
        a.note("qp ", qp0, ", ", qp1, " step ", step);
        return [=](auto fn, Arena& x) { fn(x[buf] + 5 * static_cast<size_t>(step), step, qp0, qp1); };
    });
}

TEST(Mpeg4Post, DeringingVariants) {
    check(&PostKernels::dering, "dering", 6000, [](Arena& a, Rng& rng, int i) {
        const int sstep = 10 + rng.range(0, 9), dstep = 8 + rng.range(0, 9);
        auto src = a.in<uint8_t>(static_cast<size_t>(sstep) * 10, 1);
        auto dst = a.out<uint8_t>(static_cast<size_t>(dstep) * 8, 1);
        if (i % 3 == 0)
            rng.fill_extreme(a[src], static_cast<size_t>(sstep) * 10);
        else
            fill_lines(rng, a[src], sstep, 10, 10, rng.coin());
        // Thresholds at the ends (0: everything at or above) and
        // inside the data's range.
        const int thr = i % 5 == 0 ? (rng.coin() ? 0 : 255) : a[src][rng.range(0, 9 * sstep + 9)];
        const int md = rng.range(0, 15);
        a.note("thr ", thr, " max_diff ", md);
        return [=](auto fn, Arena& x) { fn(x[src] + sstep + 1, sstep, x[dst], dstep, thr, md); };
    });
    check(&PostKernels::minmax, "minmax", 3000, [](Arena& a, Rng& rng, int i) {
        const int step = 8 + rng.range(0, 9);
        auto src = a.in<uint8_t>(static_cast<size_t>(step) * 8, 1);
        auto res = a.out<int32_t>(2);
        if (i & 1)
            rng.fill_extreme(a[src], static_cast<size_t>(step) * 8);
        else
            fill_lines(rng, a[src], step, 8, 8, false);
        return [=](auto fn, Arena& x) { fn(x[src], step, x[res], x[res] + 1); };
    });
}

}  // namespace
