// MPEG-4 quarter-sample interpolation and global motion compensation: worked
// examples (the filter's mirroring at block edges, translations, the
// macroblock vector), the warp of 2 and 3 points against the standard's
// equations written out per sample, reads confined to the block, every SIMD
// variant against the scalar kernels, and the argument checks.
#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "mpeg4/gmc.h"
#include "mpeg4/qpel.h"
#include "support/args.h"
#include "support/support.h"
#include "support/variants.h"

using kplvc::mpeg4::QpelKernels;
using kplvc::mpeg4::WarpBlock;
using kplvc::mpeg4::WarpKernels;
using kplvc::test::Arena;
using kplvc::test::check_variants;
using kplvc::test::GuardPages;
using kplvc::test::Rng;

namespace {

constexpr KpliSize kSizes[3] = {{16, 16}, {16, 8}, {8, 8}};

int64_t floor_shift(int64_t v, int k) { return v >= 0 ? v >> k : -((-v + (int64_t{1} << k) - 1) >> k); }
int64_t round_div(int64_t a, int64_t b) { return a >= 0 ? (a + b / 2) / b : -((-a + b / 2) / b); }

// The standard's warp of 2 or 3 points, one sample at a time (VOP at the
// origin, no reduction of common factors): the position in 1/s samples.
struct Model {
    int64_t s, r, rho, alpha, beta, W2, H2;
    int64_t i0p, j0p, i1v, j1v, i2v, j2v;
    int points;
    Model(const int* du, const int* dv, int pts, int acc, int W, int H) : points(pts) {
        s = 2 << acc;
        r = 16 / s;
        rho = 3 - acc;
        alpha = beta = 0;
        while ((1 << alpha) < W) ++alpha;
        while ((1 << beta) < H) ++beta;
        W2 = int64_t{1} << alpha;
        H2 = int64_t{1} << beta;
        i0p = s / 2 * du[0];
        j0p = s / 2 * dv[0];
        const int64_t i1p = s / 2 * (2 * W + du[0] + du[1]), j1p = s / 2 * (dv[0] + dv[1]);
        const int64_t i2p = s / 2 * (du[0] + du[2]), j2p = s / 2 * (2 * H + dv[0] + dv[2]);
        i1v = 16 * W2 + round_div((W - W2) * r * i0p + W2 * (r * i1p - 16 * W), W);
        j1v = round_div((W - W2) * r * j0p + W2 * r * j1p, W);
        i2v = round_div((H - H2) * r * i0p + H2 * r * i2p, H);
        j2v = 16 * H2 + round_div((H - H2) * r * j0p + H2 * (r * j2p - 16 * H), H);
    }
    // Luma position of sample (i, j), or chroma (ic, jc) with chroma = true.
    void at(int64_t i, int64_t j, bool chroma, int64_t* X, int64_t* Y) const {
        const int64_t ii = chroma ? 4 * i + 1 : i, jj = chroma ? 4 * j + 1 : j;
        if (points == 2) {
            const int64_t k = alpha + rho + (chroma ? 2 : 0);
            const int64_t a = -r * i0p + i1v, b = r * j0p - j1v, c = -r * j0p + j1v;
            const int64_t cx = chroma ? 2 * W2 * r * i0p - 16 * W2 : (i0p << k);
            const int64_t cy = chroma ? 2 * W2 * r * j0p - 16 * W2 : (j0p << k);
            *X = floor_shift(a * ii + b * jj + cx + (int64_t{1} << (k - 1)), static_cast<int>(k));
            *Y = floor_shift(c * ii + a * jj + cy + (int64_t{1} << (k - 1)), static_cast<int>(k));
        } else {
            const int64_t k = alpha + beta + rho + (chroma ? 2 : 0);
            const int64_t cx = chroma ? 2 * W2 * H2 * r * i0p - 16 * W2 * H2 : (i0p << k);
            const int64_t cy = chroma ? 2 * W2 * H2 * r * j0p - 16 * W2 * H2 : (j0p << k);
            *X = floor_shift(
                (-r * i0p + i1v) * H2 * ii + (-r * i0p + i2v) * W2 * jj + cx + (int64_t{1} << (k - 1)),
                static_cast<int>(k));
            *Y = floor_shift(
                (-r * j0p + j1v) * H2 * ii + (-r * j0p + j2v) * W2 * jj + cy + (int64_t{1} << (k - 1)),
                static_cast<int>(k));
        }
    }
};

// Bilinear sample at (X, Y) in 1/s units with the coordinates clamped.
int sample(const uint8_t* p, int stride, int w, int h, int64_t X, int64_t Y, int64_t s, int rc) {
    int lg = 0;
    while ((1 << lg) < s) ++lg;
    const int64_t fx = X & (s - 1), fy = Y & (s - 1), ix = X >> lg, iy = Y >> lg;
    auto px = [&](int64_t x, int64_t y) {
        x = x < 0 ? 0 : (x >= w ? w - 1 : x);
        y = y < 0 ? 0 : (y >= h ? h - 1 : y);
        return int64_t{p[y * stride + x]};
    };
    const int64_t top = (s - fx) * px(ix, iy) + fx * px(ix + 1, iy);
    const int64_t bot = (s - fx) * px(ix, iy + 1) + fx * px(ix + 1, iy + 1);
    return static_cast<int>(((s - fy) * top + fy * bot + s * s / 2 - rc) >> (2 * lg));
}

}  // namespace

// ---- Quarter sample --------------------------------------------------------------------

// A ramp R[x] = 10 x over an 8-wide row: at the block's left edge the taps
// beyond it mirror back (R[-1] = R[0], R[-2] = R[1], R[-3] = R[2]) and at the
// right edge (R[9] = R[8], R[10] = R[7], R[11] = R[6]).
TEST(Mpeg4Qpel, FilterMirrorsAtBlockEdges) {
    uint8_t ref[9 * 16] = {};
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x <= 8; ++x) ref[y * 16 + x] = static_cast<uint8_t>(10 * x);
    uint8_t dst[8 * 8];
    const struct {
        int pos, x, rc, want;
    } cases[] = {
        {2, 0, 0, 4},                   // (20*10 - 6*(0+20) + 3*(10+30) - (20+40) + 16) >> 5 = 156 >> 5
        {2, 3, 0, 35},                  // the middle of a ramp: exact
        {2, 3, 1, 35},  {2, 7, 0, 76},  // (20*150 - 6*140 + 3*120 - 100 + 16) >> 5
        {1, 0, 0, 2},                   // (0 + 4 + 1) >> 1
        {3, 7, 0, 78},                  // (76 + 80 + 1) >> 1
        {3, 0, 1, 7},                   // (4 + 10) >> 1
        {8, 0, 0, 0},                   // vertical half on equal rows
        {10, 7, 0, 76},                 // rows all equal: the vertical stage keeps the row value
    };
    for (const auto& c : cases) {
        ASSERT_EQ(kpliInterpolateQPel_MPEG4_8u_C1R(ref, 16, dst, 8, KpliSize{8, 8}, c.pos, c.rc),
                  kplStsNoErr);
        for (int y = 0; y < 8; ++y) EXPECT_EQ(dst[y * 8 + c.x], c.want) << "pos " << c.pos << " x " << c.x;
    }
    // Columns mirror the same way: transposed ramp, vertical half position.
    uint8_t col[9 * 16] = {};
    for (int y = 0; y <= 8; ++y)
        for (int x = 0; x < 9; ++x) col[y * 16 + x] = static_cast<uint8_t>(10 * y);
    ASSERT_EQ(kpliInterpolateQPel_MPEG4_8u_C1R(col, 16, dst, 8, KpliSize{8, 8}, 8, 0), kplStsNoErr);
    EXPECT_EQ(dst[0], 4);
    EXPECT_EQ(dst[3 * 8], 35);
    EXPECT_EQ(dst[7 * 8 + 5], 76);
}

// Every kernel at every level reads only the W+1 x H+1 reference samples
// (W x H+1 or W+1 x H where one direction is whole): the area sits flush
// against an unmapped page after it, and before it.
TEST(Mpeg4Qpel, ReadsOnlyTheBlockAndItsNeighbours) {
    for (auto isa : kplvc::test::cpu_levels()) {
        const QpelKernels k = kplvc::mpeg4::qpel_kernels_for(isa);
        for (int sz = 0; sz < 3; ++sz)
            for (int pos = 0; pos < 16; ++pos) {
                const int w = kSizes[sz].width, h = kSizes[sz].height;
                const int cols = (pos & 3) ? w + 1 : w, rows = (pos >> 2) ? h + 1 : h;
                const int step = 17;  // odd: rows misaligned
                const size_t n = static_cast<size_t>((rows - 1) * step + cols);
                GuardPages g(n);
                for (uint8_t* base : {g.flush_end(), g.flush_start()}) {
                    for (size_t i = 0; i < n; ++i) base[i] = static_cast<uint8_t>(i * 7);
                    uint8_t dst[16 * 16];
                    k.put[sz][pos](base, step, dst, 16, 1);  // a fault ends the test
                }
            }
    }
}

// Each SIMD kernel equals the scalar one on random and extreme blocks, odd
// steps, both rounding controls; the output rows' neighbours stay intact.
TEST(Mpeg4Qpel, VariantsMatchScalar) {
    for (int sz = 0; sz < 3; ++sz)
        for (int pos = 0; pos < 16; ++pos) {
            const int w = kSizes[sz].width, h = kSizes[sz].height;
            check_variants(
                kplvc::mpeg4::qpel_kernels_for, [sz, pos](const QpelKernels& k) { return k.put[sz][pos]; },
                "mpeg4 qpel " + std::to_string(sz) + " " + std::to_string(pos), 300,
                [w, h](Arena& a, Rng& rng, int i) {
                    const int step = 19;  // odd: rows misaligned
                    auto src = a.in<uint8_t>(static_cast<size_t>(h * step + w + 1));
                    auto dst = a.out<uint8_t>(static_cast<size_t>((h - 1) * step + w));
                    if (i % 3 == 0) rng.fill_extreme(a[src], static_cast<size_t>(h * step + w + 1));
                    const int32_t rc = i & 1;
                    return [=](auto fn, Arena& x) { fn(x[src], step, x[dst], step, rc); };
                });
        }
}

// ---- Global motion compensation ----------------------------------------------------------

// Without motion every warp is a copy, at the plane's edges too; a
// translation moves by whole samples; the macroblock vector follows the
// trajectory and is clamped to the f_code range.
TEST(Mpeg4Warp, TranslationsAndMacroblockVector) {
    const int W = 48, H = 32;
    std::vector<uint8_t> y(W * H), c((W / 2) * (H / 2));
    Rng rng("mpeg4 qpel examples");
    rng.fill(y.data(), y.size());
    rng.fill(c.data(), c.size());
    const int zero[3] = {0, 0, 0};
    for (int points = 0; points <= 3; ++points)
        for (int acc = 0; acc <= 3; ++acc) {
            KplMPEG4Warp w;
            ASSERT_EQ(kpliWarpInit_MPEG4(&w, zero, zero, points, acc, KpliSize{W, H}), kplStsNoErr);
            for (int mby = 0; mby < H / 16; ++mby)
                for (int mbx = 0; mbx < W / 16; ++mbx) {
                    uint8_t out[16 * 16], cout[8 * 8];
                    ASSERT_EQ(kpliWarpLuma_MPEG4_8u_C1R(y.data(), W, out, 16, 16 * mbx, 16 * mby, &w, 1),
                              kplStsNoErr);
                    ASSERT_EQ(kpliWarpChroma_MPEG4_8u_C1R(c.data(), W / 2, cout, 8, 8 * mbx, 8 * mby, &w, 1),
                              kplStsNoErr);
                    for (int j = 0; j < 16; ++j)
                        for (int i = 0; i < 16; ++i)
                            ASSERT_EQ(out[j * 16 + i], y[(16 * mby + j) * W + 16 * mbx + i])
                                << points << " " << acc;
                    for (int j = 0; j < 8; ++j)
                        for (int i = 0; i < 8; ++i)
                            ASSERT_EQ(cout[j * 8 + i], c[(8 * mby + j) * (W / 2) + 8 * mbx + i])
                                << points << " " << acc;
                    KplMotionVector mv = {9, 9};
                    ASSERT_EQ(kpliWarpMV_MPEG4(&w, mbx, mby, 1, 0, &mv), kplStsNoErr);
                    EXPECT_TRUE(mv.dx == 0 && mv.dy == 0);
                }
        }
    // One point, du = (2, -4) half samples: one sample right, two up (edge
    // samples repeat); chroma: (1, -2) half samples of luma = half a chroma
    // sample right and one up.
    const int du[1] = {2}, dv[1] = {-4};
    KplMPEG4Warp w;
    ASSERT_EQ(kpliWarpInit_MPEG4(&w, du, dv, 1, 2, KpliSize{W, H}), kplStsNoErr);
    uint8_t out[16 * 16], cout[64];
    ASSERT_EQ(kpliWarpLuma_MPEG4_8u_C1R(y.data(), W, out, 16, 32, 0, &w, 0), kplStsNoErr);
    ASSERT_EQ(kpliWarpChroma_MPEG4_8u_C1R(c.data(), W / 2, cout, 8, 16, 0, &w, 1), kplStsNoErr);
    for (int j = 0; j < 16; ++j)
        for (int i = 0; i < 16; ++i) {
            const int sx = std::min(32 + i + 1, W - 1), sy = std::max(j - 2, 0);
            ASSERT_EQ(out[j * 16 + i], y[sy * W + sx]) << i << "," << j;
        }
    for (int j = 0; j < 8; ++j)
        for (int i = 0; i < 8; ++i) {
            const int x0 = std::min(16 + i, W / 2 - 1), x1 = std::min(16 + i + 1, W / 2 - 1),
                      sy = std::max(j - 1, 0);
            ASSERT_EQ(cout[j * 8 + i], (c[sy * (W / 2) + x0] + c[sy * (W / 2) + x1]) >> 1) << i << "," << j;
        }
    const struct {
        int du, dv, acc, fcode, qpel;
        int16_t x, y;
    } mvs[] = {
        {3, -5, 3, 1, 0, 3, -5},       {3, -5, 3, 1, 1, 6, -10},        {3, -5, 0, 2, 1, 6, -10},
        {100, -100, 3, 1, 0, 31, -32}, {100, -100, 1, 3, 0, 100, -100},
    };
    for (const auto& m : mvs) {
        ASSERT_EQ(kpliWarpInit_MPEG4(&w, &m.du, &m.dv, 1, m.acc, KpliSize{W, H}), kplStsNoErr);
        KplMotionVector mv;
        ASSERT_EQ(kpliWarpMV_MPEG4(&w, 1, 1, m.fcode, m.qpel, &mv), kplStsNoErr);
        EXPECT_EQ(mv.dx, m.x) << m.du;
        EXPECT_EQ(mv.dy, m.y) << m.dv;
    }
}

// Two and three warping points on planes of several sizes (powers of two
// and not): every sample against the standard's equations evaluated per
// sample in 64 bits, and the macroblock vector against their mean.
TEST(Mpeg4Warp, TwoAndThreePointsFollowTheStandardEquations) {
    Rng rng("mpeg4 warp points");
    SCOPED_TRACE(kplvc::test::seed_text());
    const KpliSize sizes[] = {{64, 64}, {48, 32}, {112, 80}};
    for (const KpliSize sz : sizes) {
        const int W = sz.width, H = sz.height, CW = W / 2, CH = H / 2;
        std::vector<uint8_t> y(static_cast<size_t>(W * H)), c(static_cast<size_t>(CW * CH));
        rng.fill(y.data(), y.size());
        rng.fill(c.data(), c.size());
        for (int iter = 0; iter < 24; ++iter) {
            const int points = 2 + iter % 2, acc = rng.range(0, 3), rc = rng.range(0, 1);
            const int span = iter < 12 ? 8 : 200;  // small warps, then large ones reaching past the edges
            int du[3], dv[3];
            for (int n = 0; n < 3; ++n) du[n] = rng.range(-span, span), dv[n] = rng.range(-span, span);
            KplMPEG4Warp w;
            ASSERT_EQ(kpliWarpInit_MPEG4(&w, du, dv, points, acc, sz), kplStsNoErr);
            const Model m(du, dv, points, acc, W, H);
            for (int mby = 0; mby < H / 16; ++mby)
                for (int mbx = 0; mbx < W / 16; ++mbx) {
                    uint8_t out[256], cout[64];
                    ASSERT_EQ(kpliWarpLuma_MPEG4_8u_C1R(y.data(), W, out, 16, 16 * mbx, 16 * mby, &w, rc),
                              kplStsNoErr);
                    ASSERT_EQ(kpliWarpChroma_MPEG4_8u_C1R(c.data(), CW, cout, 8, 8 * mbx, 8 * mby, &w, rc),
                              kplStsNoErr);
                    int64_t sx = 0, sy = 0;
                    for (int j = 0; j < 16; ++j)
                        for (int i = 0; i < 16; ++i) {
                            int64_t X, Y;
                            m.at(16 * mbx + i, 16 * mby + j, false, &X, &Y);
                            sx += X - m.s * (16 * mbx + i);
                            sy += Y - m.s * (16 * mby + j);
                            ASSERT_EQ(out[j * 16 + i], sample(y.data(), W, W, H, X, Y, m.s, rc))
                                << points << " points, mb " << mbx << "," << mby << " sample " << i << ","
                                << j;
                        }
                    for (int j = 0; j < 8; ++j)
                        for (int i = 0; i < 8; ++i) {
                            int64_t X, Y;
                            m.at(8 * mbx + i, 8 * mby + j, true, &X, &Y);
                            ASSERT_EQ(cout[j * 8 + i], sample(c.data(), CW, CW, CH, X, Y, m.s, rc))
                                << points << " points, chroma mb " << mbx << "," << mby;
                        }
                    KplMotionVector mv;
                    ASSERT_EQ(kpliWarpMV_MPEG4(&w, mbx, mby, 7, 1, &mv), kplStsNoErr);
                    EXPECT_EQ(mv.dx, round_div(sx, int64_t{128} << acc));
                    EXPECT_EQ(mv.dy, round_div(sy, int64_t{128} << acc));
                }
        }
    }
}

TEST(Mpeg4Warp, VariantsMatchScalar) {
    using Fn = kplvc::mpeg4::WarpFn;
    const struct {
        Fn WarpKernels::*member;
        const char* name;
        int n;
        bool shift;
    } entries[] = {{&WarpKernels::affine16, "affine16", 16, false},
                   {&WarpKernels::affine8, "affine8", 8, false},
                   {&WarpKernels::shift16, "shift16", 16, true},
                   {&WarpKernels::shift8, "shift8", 8, true}};
    constexpr int kW = 80, kH = 72;
    for (const auto& e : entries) {
        const int n = e.n;
        const bool shift = e.shift;
        check_variants(kplvc::mpeg4::warp_kernels_for, e.member, std::string("mpeg4 warp ") + e.name, 2000,
                       [n, shift](Arena& a, Rng& rng, int i) {
                           auto plane = a.in<uint8_t>(kW * kH);
                           auto dst = a.out<uint8_t>(static_cast<size_t>(17 * (n - 1) + n));
                           if (i % 4 == 0) rng.fill_extreme(a[plane], kW * kH);
                           WarpBlock b{};
                           b.log2s = rng.range(1, 4);
                           b.width = kW;
                           b.height = kH;
                           b.shift = shift ? rng.range(0, 6) : rng.range(0, 18);
                           const int s = 1 << b.log2s;
                           if (shift) {
                               b.dxx = b.dyy = s << b.shift;
                               // Inside the plane with the right and bottom neighbours.
                               b.qx = rng.range(0, (kW - n - 1) * s - 1);
                               b.qy = rng.range(0, (kH - n - 1) * s - 1);
                               b.rx = rng.range(0, (1 << b.shift) - 1);
                               b.ry = rng.range(0, (1 << b.shift) - 1);
                               if (b.qx + (b.rx >> b.shift) > (kW - n - 1) * s - 1) b.rx = 0;
                               if (b.qy + (b.ry >> b.shift) > (kH - n - 1) * s - 1) b.ry = 0;
                           } else {
                               const int unit = s << b.shift, spread = unit / 4 + 1;
                               b.dxx = unit + rng.range(-spread, spread);
                               b.dyy = unit + rng.range(-spread, spread);
                               b.dxy = rng.range(-spread, spread);
                               b.dyx = rng.range(-spread, spread);
                               // Mostly inside, sometimes across or beyond the edges.
                               b.qx = rng.range(-20 * s, 90 * s);
                               b.qy = rng.range(-20 * s, 80 * s);
                               b.rx = rng.range(0, (1 << b.shift) - 1);
                               b.ry = rng.range(0, (1 << b.shift) - 1);
                           }
                           const int32_t rc = rng.range(0, 1);
                           a.note("log2s ", b.log2s, " shift ", b.shift, " q ", b.qx, ",", b.qy);
                           return [=](auto fn, Arena& x) { fn(x[plane], kW, x[dst], 17, b, rc); };
                       });
    }
}

TEST(Mpeg4InterpArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    using kplvc::test::Arg, kplvc::test::fails, kplvc::test::null;
    kplvc::test::ArgPool p;
    Kpl8u *ref = p.take<Kpl8u>(32 * 32), *dst = p.take<Kpl8u>(16 * 16);
    KplMPEG4Warp* w = p.take<KplMPEG4Warp>();
    Kpl32s* du = p.take<Kpl32s>({1, 2, 3});
    const KpliSize b16{16, 16}, b8{8, 8};
    CHECK_ARGS(p, kpliInterpolateQPel_MPEG4_8u_C1R, {ref, 32, dst, 16, b16, 0, 0},
               {null(0), fails(4, KpliSize{8, 16}, kplStsBlockSizeErr), fails(1, 15, kplStsStepErr),
                fails(5, 16, kplStsBadArgErr), fails(6, 2, kplStsModeErr)});
    CHECK_ARGS(p, kpliInterpolateQPelBi_MPEG4_8u_C1R, {ref, 32, 0, ref, 32, 0, dst, 16, b8, 0},
               {null(3), fails(8, KpliSize{4, 4}, kplStsBlockSizeErr), fails(4, 7, kplStsStepErr),
                fails(5, -1, kplStsBadArgErr)});
    // The good call leaves *w set up for the warps below.
    CHECK_ARGS(p, kpliWarpInit_MPEG4, {w, du, du, 3, 3, KpliSize{32, 32}},
               {null(1), fails(5, KpliSize{0, 32}, kplStsSizeErr),
                Arg{1, p.take<Kpl32s>({16384, 0, 0}), kplStsBadArgErr}, fails(3, 4, kplStsBadArgErr),
                fails(4, 4, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliWarpLuma_MPEG4_8u_C1R, {ref, 32, dst, 16, 0, 0, w, 0},
               {null(6), fails(1, 31, kplStsStepErr), fails(7, 2, kplStsModeErr)});
    CHECK_ARGS(p, kpliWarpChroma_MPEG4_8u_C1R, {ref, 16, dst, 16, 0, 0, w, 0}, {fails(3, 7, kplStsStepErr)});
    CHECK_ARGS(p, kpliWarpMV_MPEG4, {w, 0, 0, 1, 0, p.take<KplMotionVector>()},
               {null(5), fails(3, 0, kplStsFcodeErr), fails(4, 2, kplStsModeErr)});
}
