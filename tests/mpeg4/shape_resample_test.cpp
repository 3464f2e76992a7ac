// MPEG-4 down-sampled BABs: the down-sampling thresholds and border rule,
// worked examples of the up-sampling filter (inside the block and at its
// border), round trips through the CAE coder at conv_ratio 2 and 4, and the
// shape vector predictor's candidate order.
#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "support/support.h"

namespace {

using kplvc::test::Rng;

// A 16x16 BAB at (4, 4) of a 24x24 alpha plane (its border fits).
constexpr int kStep = 24;
struct Plane {
    uint8_t px[kStep * kStep] = {};
    uint8_t* at(int x, int y) { return px + (y + 4) * kStep + x + 4; }
    bool on(int x, int y) const { return px[(y + 4) * kStep + x + 4] != 0; }
};

// A small block (size s) with the down-sampled border around it.
struct Small {
    uint8_t px[kStep * kStep] = {};
    uint8_t* at(int x, int y) { return px + (y + 2) * kStep + x + 2; }
};

}  // namespace

TEST(Mpeg4ShapeResample, DownsamplingThresholds) {
    // At least half of the block inside: 2 of 4, 8 of 16.
    const struct {
        int cr, on, expect;
    } cases[] = {{2, 1, 0}, {2, 2, 255}, {2, 4, 255}, {4, 7, 0}, {4, 8, 255}, {4, 16, 255}};
    for (const auto& c : cases) {
        uint8_t src[16 * 16] = {}, dst[4] = {7, 7, 7, 7};
        // The samples of the second block of the top row, in raster order.
        for (int k = 0; k < c.on; ++k) src[(k / c.cr) * 16 + c.cr + k % c.cr] = 255;
        ASSERT_EQ(kpliDownsampleAlpha_MPEG4_8u_C1R(src, 16, dst, 4, KpliSize{2, 1}, c.cr), kplStsNoErr);
        EXPECT_EQ(dst[0], 0) << c.cr << " " << c.on;
        EXPECT_EQ(dst[1], c.expect) << c.cr << " " << c.on;
        EXPECT_EQ(dst[2], 7);  // nothing beyond the roi
    }
}

TEST(Mpeg4ShapeResample, BorderDownsampling) {
    // One sample of each border group on: the group reads on, its
    // neighbours off; the corner samples are copied where they are.
    for (int cr : {2, 4}) {
        const int s = 16 / cr;
        Plane p;
        *p.at(-2, -2) = 255;              // above-left corner, outer row
        *p.at(17, -1) = 255;              // above-right corner, inner row
        *p.at(cr + cr - 1, -1) = 255;     // last sample of top group 1
        *p.at(-1, 2 * cr) = 255;          // first sample of left group 2
        *p.at(0, 0) = *p.at(5, 5) = 255;  // the BAB itself is not read
        Small d;
        std::memset(d.px, 9, sizeof d.px);
        ASSERT_EQ(kpliDownsampleBABBorder_MPEG4_8u_C1R(p.at(0, 0), kStep, d.at(0, 0), kStep, cr),
                  kplStsNoErr);
        for (int y = -2; y < s; ++y)
            for (int x = -2; x < s + 2; ++x) {
                const bool border = y < 0 || x < 0;
                if (!border && x < s) {
                    EXPECT_EQ(*d.at(x, y), 9) << cr << ": written inside at " << x << "," << y;
                    continue;
                }
                if (y >= 0 && x >= s) continue;
                const bool want = (x == -2 && y == -2) || (x == s + 1 && y == -1) || (x == 1 && y == -1) ||
                                  (x == -1 && y == 2);
                EXPECT_EQ(*d.at(x, y), want ? 255 : 0) << cr << ": " << x << "," << y;
            }
    }
}

// Worked examples of the filter: a lone sample inside the block is
// reproduced as exactly its own area at conv_ratio 2 (4A alone exceeds the
// empty context's threshold 3; 2B or one ring sample does not), and as its
// area without the four corners at 4 (the second doubling rounds the 2x2
// block off: A with its neighbours L and E on makes 6, which that context's
// threshold 6 does not exceed); uniform blocks stay uniform; a full block in
// a VOP's top-left corner loses its corner sample the same way, while the
// extension right and below keeps the far corners.
TEST(Mpeg4ShapeResample, UpsamplingWorkedExamples) {
    for (int cr : {2, 4}) {
        const int s = 16 / cr;
        for (int i = 1; i + 1 < s; ++i) {
            Plane p;
            uint8_t small[64] = {};
            small[i * s + (s - 1 - i)] = 255;
            ASSERT_EQ(kpliUpsampleBAB_MPEG4_8u_C1R(small, s, p.at(0, 0), kStep, cr), kplStsNoErr);
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 16; ++x) {
                    const int u = x - cr * (s - 1 - i), v = y - cr * i;
                    const bool cell = u >= 0 && u < cr && v >= 0 && v < cr;
                    const bool corner = cr == 4 && (u == 0 || u == 3) && (v == 0 || v == 3);
                    EXPECT_EQ(p.on(x, y), cell && !corner) << cr << " " << i << ": " << x << "," << y;
                }
        }
        for (int fill : {0, 255}) {
            Plane p;
            std::memset(p.px, fill, sizeof p.px);
            uint8_t small[64];
            std::memset(small, fill, sizeof small);
            ASSERT_EQ(kpliUpsampleBAB_MPEG4_8u_C1R(small, s, p.at(0, 0), kStep, cr), kplStsNoErr);
            int n = 0;
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 16; ++x) n += p.on(x, y);
            EXPECT_EQ(n, fill ? 256 : 0) << cr;
        }
        Plane p;
        uint8_t small[64];
        std::memset(small, 255, sizeof small);
        ASSERT_EQ(kpliUpsampleBAB_MPEG4_8u_C1R(small, s, p.at(0, 0), kStep, cr), kplStsNoErr);
        EXPECT_FALSE(p.on(0, 0)) << cr;
        EXPECT_TRUE(p.on(15, 15) && p.on(8, 8)) << cr;
        if (cr == 2) {
            EXPECT_TRUE(p.on(1, 0) && p.on(0, 1) && p.on(15, 0) && p.on(0, 15));
        }
        // With the area above and left inside the shape, the corner stays.
        std::memset(p.px, 255, sizeof p.px);
        ASSERT_EQ(kpliUpsampleBAB_MPEG4_8u_C1R(small, s, p.at(0, 0), kStep, cr), kplStsNoErr);
        EXPECT_TRUE(p.on(0, 0)) << cr;
    }
}

// Discs through the down-sampled coding path an encoder and the decoder
// take: down-sample the BAB (and the compensated BAB with its border),
// down-sample the border, CAE-code the small block, decode it with a fresh
// copy of the border, up-sample. The small block must survive exactly, and
// the up-sampled BAB follow the disc better than repeating each small
// sample does (in total; no BAB more than 16 samples worse).
TEST(Mpeg4ShapeResample, RoundTripThroughTheCoder) {
    Rng rng("shape-resample-roundtrip");
    int worst = 0, sum[2] = {}, rep_sum[2] = {};
    for (int rep = 0; rep < 200; ++rep) {
        const int cr = rep % 2 ? 4 : 2, s = 16 / cr;
        const bool inter = (rep / 2) % 2 != 0;
        const int scan = (rep / 4) % 2;
        const int cx = rng.range(-4, 20), cy = rng.range(-4, 20), r = rng.range(5, 14);
        Plane p, mc;
        for (int y = -4; y < 20; ++y)
            for (int x = -4; x < 20; ++x) {
                *p.at(x, y) = (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r ? 255 : 0;
                const int mx = x + rng.range(0, 1), my = y;  // a slightly different compensated shape
                *mc.at(x, y) = (mx - cx) * (mx - cx) + (my - cy) * (my - cy) <= r * r ? 255 : 0;
            }
        uint8_t small[64], mc_small[100];
        ASSERT_EQ(kpliDownsampleAlpha_MPEG4_8u_C1R(p.at(0, 0), kStep, small, s, KpliSize{s, s}, cr),
                  kplStsNoErr);
        ASSERT_EQ(kpliDownsampleAlpha_MPEG4_8u_C1R(mc.at(-cr, -cr), kStep, mc_small, s + 2,
                                                   KpliSize{s + 2, s + 2}, cr),
                  kplStsNoErr);
        Small enc, dec;
        ASSERT_EQ(kpliDownsampleBABBorder_MPEG4_8u_C1R(p.at(0, 0), kStep, enc.at(0, 0), kStep, cr),
                  kplStsNoErr);
        dec = enc;
        for (int y = 0; y < s; ++y)
            for (int x = 0; x < s; ++x) *enc.at(x, y) = small[y * s + x];
        std::vector<uint8_t> buf(600, 0);
        uint8_t* w = buf.data();
        Kpl32s wo = 0;
        if (inter)
            ASSERT_EQ(
                kpliEncodeBABInter_MPEG4_8u1u(enc.at(0, 0), kStep, mc_small + s + 3, s + 2, s, scan, &w, &wo),
                kplStsNoErr);
        else
            ASSERT_EQ(kpliEncodeBABIntra_MPEG4_8u1u(enc.at(0, 0), kStep, s, scan, &w, &wo), kplStsNoErr);
        Kpl8u* rd = buf.data();
        Kpl32s ro = 0;
        if (inter)
            ASSERT_EQ(kpliDecodeBABInter_MPEG4_1u8u(&rd, &ro, dec.at(0, 0), kStep, mc_small + s + 3, s + 2, s,
                                                    scan),
                      kplStsNoErr);
        else
            ASSERT_EQ(kpliDecodeBABIntra_MPEG4_1u8u(&rd, &ro, dec.at(0, 0), kStep, s, scan), kplStsNoErr);
        EXPECT_EQ(rd, w);
        EXPECT_EQ(ro, wo);
        uint8_t got[64];
        for (int y = 0; y < s; ++y)
            for (int x = 0; x < s; ++x) got[y * s + x] = *dec.at(x, y);
        ASSERT_EQ(std::memcmp(got, small, static_cast<size_t>(s * s)), 0) << rep;
        Plane up = p;
        ASSERT_EQ(kpliUpsampleBAB_MPEG4_8u_C1R(got, s, up.at(0, 0), kStep, cr), kplStsNoErr);
        int diff = 0, rep_diff = 0;
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x) {
                diff += up.on(x, y) != p.on(x, y);
                rep_diff += (got[(y / cr) * s + x / cr] != 0) != p.on(x, y);
            }
        worst = diff - rep_diff > worst ? diff - rep_diff : worst;
        sum[cr / 4] += diff;
        rep_sum[cr / 4] += rep_diff;
    }
    for (int k = 0; k < 2; ++k) EXPECT_LT(sum[k], rep_sum[k]) << "conv_ratio " << 2 * (k + 1);
    EXPECT_LE(worst, 16);
}

TEST(Mpeg4ShapeResample, ShapeVectorPredictorOrder) {
    const KplMotionVector shape[3] = {{1, -2}, {3, 4}, {-5, 6}};
    const KplMotionVector tex[3] = {{-7, 9}, {8, -3}, {1, -1}};  // half samples: toward zero
    const struct {
        int valid;
        KplMotionVector want;
    } cases[] = {
        {0, {0, 0}},   {63, {1, -2}},    {62, {3, 4}},  {60, {-5, 6}},
        {56, {-3, 4}}, {8 | 4, {-5, 6}}, {48, {4, -1}}, {32, {0, 0}},
    };
    for (const auto& c : cases) {
        KplMotionVector p = {99, 99};
        ASSERT_EQ(kpliPredictShapeMV_MPEG4(shape, tex, c.valid, &p), kplStsNoErr);
        EXPECT_EQ(p.dx, c.want.dx) << c.valid;
        EXPECT_EQ(p.dy, c.want.dy) << c.valid;
    }
    KplMotionVector p;
    EXPECT_EQ(kpliPredictShapeMV_MPEG4(shape, tex, 64, &p), kplStsBadArgErr);
    EXPECT_EQ(kpliPredictShapeMV_MPEG4(nullptr, tex, 1, &p), kplStsNullPtrErr);
    uint8_t a[16] = {}, b[20 * 20] = {};
    EXPECT_EQ(kpliUpsampleBAB_MPEG4_8u_C1R(a, 8, b + 34, 16, 3), kplStsShapeArgErr);
}
