// H.264 inter prediction: behaviour on hand-checked windows (through the
// public functions and through every level's kernel table) and argument
// checks.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "h264/inter.h"
#include "kplvc.h"
#include "support/args.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::h264::inter_kernels_for;
using kplvc::h264::InterKernels;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

constexpr KpliSize kLuma[] = {{16, 16}, {16, 8}, {8, 16}, {8, 8}, {8, 4}, {4, 8}, {4, 4}};
constexpr KpliSize kChroma[] = {{8, 8}, {8, 4}, {4, 8}, {4, 4}, {4, 2}, {2, 4}, {2, 2}};

// Every level's table: c first, then each SIMD level the CPU has.
std::vector<std::pair<kplvc::cpu::Isa, InterKernels>> all_tables() {
    std::vector<std::pair<kplvc::cpu::Isa, InterKernels>> out;
    for (auto isa : kplvc::test::cpu_levels()) out.emplace_back(isa, inter_kernels_for(isa));
    return out;
}

// A reference plane with a margin of 8 samples around a block, filled by
// f(x, y) with x, y relative to the block's top-left.
struct Plane {
    static constexpr int kMargin = 8;
    int32_t step;
    std::vector<uint8_t> buf;
    Plane(int w, int h, const std::function<int(int, int)>& f)
        : step(w + 2 * kMargin + 3), buf(static_cast<size_t>(step) * (h + 2 * kMargin)) {
        for (int y = -kMargin; y < h + kMargin; ++y)
            for (int x = -kMargin; x < w + kMargin; ++x) at(x, y) = static_cast<uint8_t>(f(x, y));
    }
    uint8_t& at(int x, int y) { return buf[static_cast<size_t>((y + kMargin) * step + x + kMargin)]; }
    const uint8_t* origin() { return &at(0, 0); }
};

// The luma prediction of a plane at (xf, yf) through the public function and
// through every level's table; each must equal `want` (x, y).
void expect_luma(Plane& pl, KpliSize sz, int xf, int yf, const std::function<int(int, int)>& want,
                 const char* what) {
    const int w = sz.width, h = sz.height;
    std::vector<uint8_t> got(static_cast<size_t>(w * h));
    auto check = [&](const char* via) {
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                ASSERT_EQ(got[static_cast<size_t>(y * w + x)], want(x, y))
                    << what << " " << via << " " << w << "x" << h << " pos (" << xf << "," << yf << ") at ("
                    << x << "," << y << ")";
    };
    ASSERT_EQ(kpliInterpolateLuma_H264_8u_C1R(pl.origin(), pl.step, got.data(), w, xf, yf, sz), kplStsNoErr);
    check("public");
    const int si = kplvc::h264::luma_size_index(w, h);
    for (const auto& [isa, k] : all_tables()) {
        std::fill(got.begin(), got.end(), 0xEE);
        k.luma[si][4 * yf + xf](pl.origin(), pl.step, got.data(), w);
        check(kplvc::cpu::isa_name(isa));
    }
}

// ---- Luma ---------------------------------------------------------------------------

TEST(InterLuma, FlatReferenceGivesItsValueEverywhere) {
    for (int v : {0, 1, 128, 254, 255})
        for (KpliSize sz : kLuma) {
            Plane pl(sz.width, sz.height, [v](int, int) { return v; });
            for (int p = 0; p < 16; ++p)
                expect_luma(
                    pl, sz, p % 4, p / 4, [v](int, int) { return v; }, "flat");
        }
}

// The six-tap filter is exact on a ramp: b lies half a sample to the right,
// and every quarter position is the rounded average of its two neighbours.
TEST(InterLuma, RampsAlongEachAxis) {
    static constexpr int kCol0[4] = {100, 103, 105, 108};
    for (KpliSize sz : kLuma) {
        if (sz.width <= 8) {  // the ramp stays below 256 over the window
            Plane pl(sz.width, sz.height, [](int x, int) { return 100 + 10 * x; });
            for (int p = 0; p < 16; ++p)
                expect_luma(
                    pl, sz, p % 4, p / 4, [p](int x, int) { return kCol0[p % 4] + 10 * x; }, "ramp x");
        }
        if (sz.height <= 8) {
            Plane pl(sz.width, sz.height, [](int, int y) { return 100 + 10 * y; });
            for (int p = 0; p < 16; ++p)
                expect_luma(
                    pl, sz, p % 4, p / 4, [p](int, int y) { return kCol0[p / 4] + 10 * y; }, "ramp y");
        }
    }
}

struct EdgeCase {
    bool rising;  // 0 then 255 (rising) or 255 then 0
    int xf;
    int col[4];
};

// b1 = 4080, 9180 (rounds to 287, clipped), 7905, 8160 on the rising edge;
// -1020 at column 1 of the falling edge rounds to -32 and clips to 0.
TEST(InterLuma, StepEdgeClipsBothWays) {
    const EdgeCase cases[] = {
        {true, 2, {128, 255, 247, 255}},
        {true, 1, {64, 255, 251, 255}},
        {true, 3, {192, 255, 251, 255}},
        {false, 2, {128, 0, 8, 0}},
    };
    for (const auto& c : cases) {
        Plane pl(4, 4, [&](int x, int) { return (x >= 1) == c.rising ? 255 : 0; });
        expect_luma(
            pl, {4, 4}, c.xf, 0, [&](int x, int) { return c.col[x]; }, c.rising ? "rising" : "falling");
    }
}

// One bright sample: j rounds the 20-bit sum once (100); rounding b first
// would give 99. f and e use the rounded b (159) with j and with h.
TEST(InterLuma, CentreRoundsOnce) {
    static constexpr int kJ[4][4] = {{100, 0, 5, 0}, {0, 6, 0, 0}, {5, 0, 0, 0}, {0, 0, 0, 0}};
    Plane pl(4, 4, [](int x, int y) { return x == 0 && y == 0 ? 255 : 0; });
    expect_luma(
        pl, {4, 4}, 2, 2, [](int x, int y) { return kJ[y][x]; }, "spike j");
    std::vector<uint8_t> out(16);
    for (const auto& [isa, k] : all_tables()) {
        k.luma[6][6](pl.origin(), pl.step, out.data(), 4);  // f
        EXPECT_EQ(out[0], 130) << kplvc::cpu::isa_name(isa);
        k.luma[6][5](pl.origin(), pl.step, out.data(), 4);  // e: never G with j (178)
        EXPECT_EQ(out[0], 159) << kplvc::cpu::isa_name(isa);
    }
}

// Tap signs: (1, -5, 20, 20, -5, 1) horizontally times the same vertically.
int tap_sign(int x, int y) {
    auto s = [](int i) { return (i == -1 || i == 2) ? -1 : 1; };  // taps at -2..3
    return s(x) * s(y);
}

TEST(InterLuma, CentreSumAtItsLimits) {
    for (KpliSize sz : kLuma) {
        // The sign pattern of the taps of output (0, 0), repeated with period 6
        // so that every output whose column and row are multiples of 6 sees it.
        auto wrap = [](int v) { return ((v + 2) % 6 + 6) % 6 - 2; };
        std::vector<uint8_t> out(static_cast<size_t>(sz.width * sz.height));
        const int si = kplvc::h264::luma_size_index(sz.width, sz.height);
        for (int want : {255, 0}) {
            Plane pl(sz.width, sz.height, [&](int x, int y) {
                return (tap_sign(wrap(x), wrap(y)) > 0) == (want == 255) ? 255 : 0;
            });
            for (const auto& [isa, k] : all_tables()) {
                k.luma[si][10](pl.origin(), pl.step, out.data(), sz.width);
                for (int y = 0; y < sz.height; y += 6)
                    for (int x = 0; x < sz.width; x += 6)
                        EXPECT_EQ(out[static_cast<size_t>(y * sz.width + x)], want)
                            << kplvc::cpu::isa_name(isa);
            }
        }
    }
}

// ---- Chroma ------------------------------------------------------------------------------

struct ChromaCase {
    int xf, yf, want;
};

TEST(InterChroma, PlaneAndCheckerboard) {
    // R = 10 + 10x + 20y: the result is R(x, y) plus the value at (0, 0) minus 10.
    const ChromaCase plane[] = {{4, 4, 25}, {1, 0, 11}, {7, 7, 36}, {3, 5, 26}, {0, 0, 10}, {0, 7, 28}};
    std::vector<uint8_t> out(64);
    for (KpliSize sz : kChroma) {
        Plane pl(sz.width, sz.height, [](int x, int y) { return 10 + 10 * x + 20 * y; });
        for (const auto& c : plane) {
            ASSERT_EQ(kpliInterpolateChroma_H264_8u_C1R(pl.origin(), pl.step, out.data(), 8, c.xf, c.yf, sz),
                      kplStsNoErr);
            for (int y = 0; y < sz.height; ++y)
                for (int x = 0; x < sz.width; ++x)
                    ASSERT_EQ(out[static_cast<size_t>(8 * y + x)], c.want + 10 * x + 20 * y)
                        << sz.width << "x" << sz.height << " (" << c.xf << "," << c.yf << ")";
        }
        Plane cb(sz.width, sz.height, [](int x, int y) { return ((x + y) & 1) ? 255 : 0; });
        for (const auto& [isa, k] : all_tables()) {
            const int si = kplvc::h264::chroma_size_index(sz.width, sz.height);
            k.chroma[si](cb.origin(), cb.step, out.data(), 8, 56, 8, 0, 0);  // (1, 0)
            for (int y = 0; y < sz.height; ++y)
                for (int x = 0; x < sz.width; ++x)
                    ASSERT_EQ(out[static_cast<size_t>(8 * y + x)], ((x + y) & 1) ? 223 : 32)
                        << kplvc::cpu::isa_name(isa);
            k.chroma[si](cb.origin(), cb.step, out.data(), 8, 16, 16, 16, 16);  // (4, 4)
            for (int y = 0; y < sz.height; ++y)
                for (int x = 0; x < sz.width; ++x) ASSERT_EQ(out[static_cast<size_t>(8 * y + x)], 128);
        }
    }
}

// ---- Weighted averaging --------------------------------------------------------------------

struct WeightCase {
    int p0, p1, log_wd, w0, w1, o0, o1, want;
};

TEST(InterWeight, FormulaCases) {
    const WeightCase cases[] = {
        {10, 11, 0, 1, 1, 0, 0, 11},               // default average rounds up
        {100, 200, 5, 40, 24, 3, -2, 139},         // explicit: 138 + 1
        {100, 200, 5, 48, 16, 0, 0, 125},          // implicit
        {100, 100, 0, 1, 1, -3, -2, 98},           // (-5 + 1) >> 1 = -2
        {100, 100, 0, 1, 1, -1, -2, 99},           // -1
        {100, 100, 0, 1, 1, 1, 2, 102},            // 2
        {255, 255, 0, 128, 128, 127, 127, 255},    // 32767 before the clip
        {255, 255, 0, -128, -128, -128, -128, 0},  // -32768
        {255, 0, 5, -64, 128, 0, 0, 0},            // -255
        {0, 255, 7, 0, 128, 0, 0, 128},            // (32640 + 128) >> 8
        {1, 0, 0, 1, 0, 0, 0, 1},                  // (1 + 1) >> 1
        {255, 255, 7, 128, 128, -128, -128, 127},
        {37, 201, 3, -7, 19, 5, -9, 221},
        // Either side of |w0| + |w1| = 128 with weights that fit bytes.
        {255, 255, 0, 127, 1, 127, 127, 255},    // 16320 + 127
        {255, 255, 0, 127, 2, -128, -128, 255},  // 16448 - 128
        {255, 255, 0, -128, 0, -128, -128, 0},
        {200, 100, 6, 100, 28, -7, 3, 176},  // 22864 >> 7 = 178, (-3) >> 1 = -2
        {13, 250, 2, -3, 5, 0, 0, 151},      // 1215 >> 3
        // Even weights beyond bytes, taken halved with logWD - 1.
        {1, 0, 1, 128, -128, 0, 0, 32},      // (128 + 2) >> 2
        {3, 0, 2, -126, 128, 127, 127, 80},  // (-378 + 4) >> 3 = -47, + 127
        {255, 1, 7, 127, 1, 0, 0,
         127},  // (32385 + 1 + 128) >> 8       // (-259 + 3819 + 8) >> 4 = 223, (-3) >> 1 = -2
    };
    for (const auto& c : cases) {
        const int want = c.want;
        for (KpliSize sz :
             {KpliSize{16, 16}, KpliSize{16, 8}, KpliSize{8, 16}, KpliSize{8, 8}, KpliSize{8, 4},
              KpliSize{4, 8}, KpliSize{4, 4}, KpliSize{4, 2}, KpliSize{2, 4}, KpliSize{2, 2}}) {
            Guarded a(16 * 16), b(16 * 16);
            std::memset(a.data(), c.p0, a.size());
            std::memset(b.data(), c.p1, b.size());
            ASSERT_EQ(kpliWeightedAverage_H264_8u_C1IR(a.data(), 16, b.data(), 16, c.log_wd, c.w0, c.w1, c.o0,
                                                       c.o1, sz),
                      kplStsNoErr);
            for (int y = 0; y < 16; ++y)
                for (int x = 0; x < 16; ++x) {
                    const bool in = x < sz.width && y < sz.height;
                    ASSERT_EQ(a.data()[16 * y + x], in ? want : c.p0)
                        << sz.width << "x" << sz.height << " case p0=" << c.p0 << " w0=" << c.w0;
                }
            EXPECT_TRUE(a.intact() && b.intact());
        }
    }
}

// Single-list explicit weighting: the second prediction is the first one
// (same buffer and step), w1 = w0 and o1 = o0.
TEST(InterWeight, SingleListInPlace) {
    const WeightCase cases[] = {{100, 100, 1, 3, 3, -5, -5, 145},
                                {100, 100, 0, 2, 2, 10, 10, 210},
                                {200, 200, 6, -128, -128, 127, 127, 0},
                                {7, 7, 3, 128, 128, -128, -128, 0}};
    for (const auto& c : cases) {
        for (const auto& [isa, k] : all_tables()) {
            for (int wi = 0; wi < 4; ++wi) {
                uint8_t buf[4 * 24];
                std::memset(buf, c.p0, sizeof buf);
                k.weight[wi](buf, 24, buf, 24, 4, c.w0, c.w1, c.log_wd, (c.o0 + c.o1 + 1) >> 1);
                const int w = 16 >> wi;
                for (int y = 0; y < 4; ++y)
                    for (int x = 0; x < 24; ++x)
                        ASSERT_EQ(buf[24 * y + x], x < w ? c.want : c.p0)
                            << kplvc::cpu::isa_name(isa) << " w " << w;
            }
        }
    }
}

// ---- Argument checks ------------------------------------------------------------------------

// Pointers, then the size (below 1, then not one of the block sizes), the
// steps, then fractions or weights; the range limits themselves are accepted.
// The weighted average takes exactly the luma and chroma partition sizes.
TEST(InterArgs, WeightedAverageSizes) {
    const std::vector<std::pair<int, int>> sizes = {{16, 16}, {16, 8}, {8, 16}, {8, 8}, {8, 4},
                                                    {4, 8},   {4, 4},  {4, 2},  {2, 4}, {2, 2}};
    std::vector<Kpl8u> a(64 * 64), b(64 * 64);
    for (int w = 1; w <= 33; ++w)
        for (int h = 1; h <= 33; ++h) {
            const bool ok = std::find(sizes.begin(), sizes.end(), std::pair{w, h}) != sizes.end();
            EXPECT_EQ(
                kpliWeightedAverage_H264_8u_C1IR(a.data(), 64, b.data(), 64, 0, 1, 1, 0, 0, KpliSize{w, h}),
                ok ? kplStsNoErr : kplStsBlockSizeErr)
                << w << "x" << h;
        }
}

TEST(InterArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    kplvc::test::ArgPool p;
    const Kpl8u* src = p.take<Kpl8u>(64 * 64) + 2 * 32 + 2;  // room for the window before the block
    Kpl8u* dst = p.take<Kpl8u>(32 * 32);
    CHECK_ARGS(p, kpliInterpolateLuma_H264_8u_C1R, {src, 32, dst, 16, 1, 2, KpliSize{16, 16}},
               {null(0), null(2), fails(6, KpliSize{0, 16}, kplStsSizeErr),
                fails(6, KpliSize{16, -1}, kplStsSizeErr), fails(6, KpliSize{16, 4}, kplStsBlockSizeErr),
                fails(6, KpliSize{2, 2}, kplStsBlockSizeErr), fails(6, KpliSize{4, 16}, kplStsBlockSizeErr),
                fails(1, 15, kplStsStepErr), fails(3, 7, kplStsStepErr), fails(4, 4, kplStsBadArgErr),
                fails(5, -1, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliInterpolateChroma_H264_8u_C1R, {src, 32, dst, 8, 1, 7, KpliSize{8, 8}},
               {null(0), null(2), fails(6, KpliSize{2, 0}, kplStsSizeErr),
                fails(6, KpliSize{16, 16}, kplStsBlockSizeErr), fails(6, KpliSize{2, 8}, kplStsBlockSizeErr),
                fails(1, 3, kplStsStepErr), fails(3, 7, kplStsStepErr), fails(4, 8, kplStsBadArgErr),
                fails(5, -1, kplStsBadArgErr)});
    const KplStatus range = kplStsOutOfRangeErr;
    CHECK_ARGS(
        p, kpliWeightedAverage_H264_8u_C1IR, {dst, 16, src, 16, 5, 1, 1, 0, 0, KpliSize{16, 16}},
        {null(0), null(2), fails(9, KpliSize{-3, 4}, kplStsSizeErr),
         fails(9, KpliSize{2, 8}, kplStsBlockSizeErr), fails(9, KpliSize{16, 4}, kplStsBlockSizeErr),
         fails(1, 15, kplStsStepErr), fails(3, 3, kplStsStepErr), fails(4, 8, range), fails(4, -1, range),
         fails(5, 129, range), fails(6, -129, range), fails(7, 128, range), fails(8, -129, range),
         passes(4, 0), passes(4, 7), passes(5, -128), passes(6, 128), passes(7, -128), passes(8, 127)});
}

}  // namespace
