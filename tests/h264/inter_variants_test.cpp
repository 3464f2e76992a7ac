// H.264 inter prediction: every SIMD kernel against the scalar reference,
// reads confined to the window (guard pages, samples outside the window
// changed), and the caller's two ways of providing the window.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "h264/inter.h"
#include "kplvc.h"
#include "support/support.h"

using kplvc::cpu::Isa;
using kplvc::h264::inter_kernels_for;
using kplvc::h264::InterKernels;
using kplvc::h264::kChromaH;
using kplvc::h264::kChromaSizes;
using kplvc::h264::kChromaW;
using kplvc::h264::kLumaH;
using kplvc::h264::kLumaSizes;
using kplvc::h264::kLumaW;
using kplvc::test::Guarded;
using kplvc::test::GuardPages;
using kplvc::test::Rng;

namespace {

// The levels where a table entry changes, with that level's entry.
template <class Fn, class Pick>
std::vector<std::pair<Isa, Fn>> changed(Pick pick) {
    std::vector<std::pair<Isa, Fn>> out;
    Fn prev = pick(inter_kernels_for(Isa::c));
    for (Isa isa : kplvc::test::simd_levels()) {
        const Fn f = pick(inter_kernels_for(isa));
        if (f != prev) out.emplace_back(isa, f);
        prev = f;
    }
    return out;
}

// Window contents that reach the arithmetic's limits: random, 0/255 noise,
// the tap-sign pattern of the six-tap filter in both polarities (the centre
// sum at its maximum and minimum), flat extremes and sharp edges.
void fill_window(Rng& rng, uint8_t* p, int32_t step, int w, int h, int kind) {
    auto sign = [](int i) { return (i % 6 == 1 || i % 6 == 4) ? -1 : 1; };  // taps 1,-5,20,20,-5,1
    const int phase_x = rng.range(0, 5), phase_y = rng.range(0, 5);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t v;
            switch (kind) {
                case 0:
                    v = rng.u8();
                    break;
                case 1:
                    v = rng.coin() ? 255 : 0;
                    break;
                case 2:
                    v = sign(x + phase_x) * sign(y + phase_y) > 0 ? 255 : 0;
                    break;
                case 3:
                    v = sign(x + phase_x) * sign(y + phase_y) > 0 ? 0 : 255;
                    break;
                case 4:
                    v = sign(x + phase_x) > 0 ? 255 : 0;
                    break;
                case 5:
                    v = static_cast<uint8_t>(rng.coin() ? rng.range(0, 3) : rng.range(252, 255));
                    break;
                default:
                    v = (x + phase_x) % 4 < 2 ? 255 : 0;
                    break;
            }
            p[static_cast<intptr_t>(y) * step + x] = v;
        }
}
constexpr int kKinds = 7;

std::vector<Isa> all_levels() {
    std::vector<Isa> levels{Isa::c};
    for (Isa isa : kplvc::test::simd_levels()) levels.push_back(isa);
    return levels;
}

// ---- Variants against the reference ---------------------------------------------------

TEST(InterVariants, LumaEverySizeAndPosition) {
    const InterKernels ref = inter_kernels_for(Isa::c);
    int tested = 0;
    for (int s = 0; s < kLumaSizes; ++s)
        for (int pos = 0; pos < 16; ++pos) {
            const int w = kLumaW[s], h = kLumaH[s];
            for (const auto& [isa, fn] :
                 changed<kplvc::h264::LumaFn>([&](const InterKernels& k) { return k.luma[s][pos]; })) {
                ++tested;
                Rng rng(1000 + 16 * s + pos);
                for (int t = 0; t < 100; ++t) {
                    SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
                    const int32_t sstep = w + 5 + rng.range(0, 19);
                    const int32_t dstep = w + rng.range(0, 9);
                    Guarded src(static_cast<size_t>(sstep) * (h + 5), static_cast<size_t>(rng.range(0, 15)));
                    fill_window(rng, src.data(), sstep, sstep, h + 5, t % kKinds);
                    const uint8_t* org = src.data() + 2 * sstep + 2;
                    Guarded a(static_cast<size_t>(dstep) * h, 0),
                        b(static_cast<size_t>(dstep) * h, static_cast<size_t>(rng.range(0, 15)));
                    std::memset(a.data(), 0x3C, a.size());
                    std::memset(b.data(), 0x3C, b.size());
                    const std::vector<uint8_t> before(src.data(), src.data() + src.size());
                    ref.luma[s][pos](org, sstep, a.data(), dstep);
                    fn(org, sstep, b.data(), dstep);
                    ASSERT_EQ(0, std::memcmp(a.data(), b.data(), a.size()))
                        << kplvc::cpu::isa_name(isa) << " " << w << "x" << h << " pos " << pos << " kind "
                        << t % kKinds;
                    ASSERT_TRUE(b.intact() && src.intact());
                    ASSERT_TRUE(std::equal(before.begin(), before.end(), src.data()));
                }
            }
        }
    if (!kplvc::test::simd_levels().empty()) {
        EXPECT_GE(tested, kLumaSizes * 16);
    }
}

TEST(InterVariants, ChromaEverySizeAndFraction) {
    const InterKernels ref = inter_kernels_for(Isa::c);
    for (int s = 0; s < kChromaSizes; ++s) {
        const int w = kChromaW[s], h = kChromaH[s];
        auto run = [&](auto fn, Isa isa, bool copy) {
            Rng rng(2000 + s);
            for (int t = 0; t < 64 * 3; ++t) {
                SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
                const int xf = t % 8, yf = (t / 8) % 8;
                if (!copy && xf == 0 && yf == 0) continue;
                const int32_t sstep = w + 1 + rng.range(0, 9), dstep = w + rng.range(0, 5);
                Guarded src(static_cast<size_t>(sstep) * (h + 1), static_cast<size_t>(rng.range(0, 15)));
                fill_window(rng, src.data(), sstep, sstep, h + 1, t % kKinds);
                Guarded a(static_cast<size_t>(dstep) * h), b(static_cast<size_t>(dstep) * h, 3);
                std::memset(a.data(), 0x5A, a.size());
                std::memset(b.data(), 0x5A, b.size());
                if constexpr (std::is_same_v<decltype(fn), kplvc::h264::ChromaFn>) {
                    const int wa = (8 - xf) * (8 - yf), wb = xf * (8 - yf), wc = (8 - xf) * yf, wd = xf * yf;
                    ref.chroma[s](src.data(), sstep, a.data(), dstep, wa, wb, wc, wd);
                    fn(src.data(), sstep, b.data(), dstep, wa, wb, wc, wd);
                } else {
                    ref.chroma_copy[s](src.data(), sstep, a.data(), dstep);
                    fn(src.data(), sstep, b.data(), dstep);
                }
                ASSERT_EQ(0, std::memcmp(a.data(), b.data(), a.size()))
                    << kplvc::cpu::isa_name(isa) << " " << w << "x" << h << " (" << xf << "," << yf << ")";
                ASSERT_TRUE(b.intact() && src.intact());
            }
        };
        for (const auto& [isa, fn] :
             changed<kplvc::h264::ChromaFn>([&](const InterKernels& k) { return k.chroma[s]; }))
            run(fn, isa, false);
        for (const auto& [isa, fn] :
             changed<kplvc::h264::CopyFn>([&](const InterKernels& k) { return k.chroma_copy[s]; }))
            run(fn, isa, true);
    }
}

struct Params {
    int log_wd, w0, w1, o0, o1;
};

// Every weighting and averaging kernel against the reference at each width
// and height, both predictions at their own step and misalignment. The
// byte-weight kernels get only weights with |w0| + |w1| <= 128, limits first.
TEST(InterVariants, WeightingEveryWidth) {
    const InterKernels ref = inter_kernels_for(Isa::c);
    static constexpr int kHeights[4][3] = {{16, 8, 8}, {16, 8, 4}, {8, 4, 2}, {4, 2, 2}};
    const Params extremes[] = {{0, 128, 128, 127, 127},   {0, -128, -128, -128, -128},
                               {7, 128, 128, -128, -128}, {7, -128, 128, 127, -128},
                               {5, -64, 128, 0, 0},       {0, 1, 1, 0, 0},
                               {1, 0, 0, 127, 127},       {6, 127, -128, -1, -2}};
    const Params small_extremes[] = {
        {7, 64, 64, 127, 127}, {0, 127, 1, 127, 127},   {0, -128, 0, -128, -128}, {7, -128, 0, 127, 127},
        {0, 127, -1, -128, 0}, {7, 0, 127, -128, -128}, {0, -64, -64, 127, -128}, {6, 1, 127, 0, 0}};
    auto random_params = [](Rng& rng, bool small) {
        Params p{rng.range(0, 7), rng.range(-128, small ? 127 : 128), rng.range(-128, 128),
                 rng.range(-128, 127), rng.range(-128, 127)};
        if (small) p.w1 = std::min(127, std::clamp(p.w1, std::abs(p.w0) - 128, 128 - std::abs(p.w0)));
        return p;
    };
    for (int wi = 0; wi < 4; ++wi) {
        const int w = 16 >> wi;
        // call(fn or reference, destination, s0, source, s1, h, t, rng) runs one kernel.
        auto compare = [&](Isa isa, uint64_t seed, int count, auto pick, auto call) {
            Rng rng(seed);
            for (int t = 0; t < count; ++t) {
                SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
                const int h = kHeights[wi][t % 3];
                const int32_t s0 = w + rng.range(0, 7), s1 = w + rng.range(0, 7);
                Guarded a(static_cast<size_t>(s0) * h, static_cast<size_t>(rng.range(0, 15)));
                Guarded b(static_cast<size_t>(s0) * h, 2), src(static_cast<size_t>(s1) * h, 1);
                fill_window(rng, a.data(), s0, s0, h, t % kKinds);
                fill_window(rng, src.data(), s1, s1, h, (t + 3) % kKinds);
                std::memcpy(b.data(), a.data(), a.size());
                const std::string what = call(rng, t, pick(ref), a.data(), s0, src.data(), s1, h);
                call(rng, -1, pick(inter_kernels_for(isa)), b.data(), s0, src.data(), s1, h);
                ASSERT_EQ(0, std::memcmp(a.data(), b.data(), a.size()))
                    << kplvc::cpu::isa_name(isa) << " width " << w << " " << what;
                ASSERT_TRUE(b.intact() && src.intact());
            }
        };
        // The parameters are drawn on the reference call (t >= 0) and reused.
        for (bool small : {false, true}) {
            Params p{};
            auto weighted = [&](Rng& rng, int t, kplvc::h264::WeightFn f, uint8_t* d, int32_t s0,
                                const uint8_t* s, int32_t s1, int h) {
                if (t >= 0) p = t < 8 ? (small ? small_extremes : extremes)[t] : random_params(rng, small);
                EXPECT_TRUE(!small || kplvc::h264::weights_fit_bytes(p.w0, p.w1));
                f(d, s0, s, s1, h, p.w0, p.w1, p.log_wd, (p.o0 + p.o1 + 1) >> 1);
                return std::string(small ? "small " : "") + "logWD " + std::to_string(p.log_wd) + " w " +
                       std::to_string(p.w0) + "," + std::to_string(p.w1) + " o " + std::to_string(p.o0) +
                       "," + std::to_string(p.o1);
            };
            auto pick = [&](const InterKernels& k) { return small ? k.weight_small[wi] : k.weight[wi]; };
            for (const auto& [isa, fn] : changed<kplvc::h264::WeightFn>(pick))
                compare(isa, (small ? 3200 : 3000) + wi, 600, pick, weighted);
        }
        auto pick = [&](const InterKernels& k) { return k.average[wi]; };
        for (const auto& [isa, fn] : changed<kplvc::h264::AverageFn>(pick))
            compare(isa, 3100 + wi, 200, pick,
                    [](Rng&, int, kplvc::h264::AverageFn f, uint8_t* d, int32_t s0, const uint8_t* s,
                       int32_t s1, int h) {
                        f(d, s0, s, s1, h);
                        return std::string("average");
                    });
    }
}

// ---- The window -------------------------------------------------------------------------

// Every level, every size and position: the window placed with an unmapped
// page right before its first sample and right after its last. Steps equal
// the window's width, so a read past either end faults.
TEST(InterWindow, GuardPagesAroundLumaWindow) {
    Rng rng(77);
    for (Isa isa : all_levels()) {
        const InterKernels k = inter_kernels_for(isa);
        for (int s = 0; s < kLumaSizes; ++s)
            for (int pos = 0; pos < 16; ++pos) {
                const int w = kLumaW[s], h = kLumaH[s];
                const int ww = pos == 0 ? w : w + 5, wh = pos == 0 ? h : h + 5, lead = pos == 0 ? 0 : 2;
                GuardPages g(static_cast<size_t>(ww) * wh);
                uint8_t out[2][16 * 16];
                for (int end = 0; end < 2; ++end) {
                    uint8_t* base = end ? g.flush_end() : g.flush_start();
                    rng.fill(base, g.size());
                    k.luma[s][pos](base + lead * ww + lead, ww, out[end], w);
                    if (end) {
                        std::vector<uint8_t> tmp(static_cast<size_t>(ww) * wh);
                        std::memcpy(tmp.data(), base, tmp.size());
                        uint8_t want[16 * 16];
                        inter_kernels_for(Isa::c).luma[s][pos](tmp.data() + lead * ww + lead, ww, want, w);
                        ASSERT_EQ(0, std::memcmp(want, out[1], static_cast<size_t>(w * h)))
                            << kplvc::cpu::isa_name(isa) << " " << w << "x" << h << " pos " << pos;
                    }
                }
            }
    }
}

TEST(InterWindow, GuardPagesAroundChromaWindowAndWeighting) {
    Rng rng(78);
    for (Isa isa : all_levels()) {
        const InterKernels k = inter_kernels_for(isa);
        for (int s = 0; s < kChromaSizes; ++s) {
            const int w = kChromaW[s], h = kChromaH[s];
            uint8_t out[64];
            {
                GuardPages g(static_cast<size_t>(w + 1) * (h + 1));
                for (uint8_t* base : {g.flush_start(), g.flush_end()}) {
                    rng.fill(base, g.size());
                    k.chroma[s](base, w + 1, out, w, 7, 21, 9, 27);
                    std::vector<uint8_t> tmp(base, base + g.size());
                    uint8_t want[64];
                    inter_kernels_for(Isa::c).chroma[s](tmp.data(), w + 1, want, w, 7, 21, 9, 27);
                    ASSERT_EQ(0, std::memcmp(want, out, static_cast<size_t>(w * h)))
                        << kplvc::cpu::isa_name(isa);
                }
            }
            GuardPages g(static_cast<size_t>(w) * h), g2(static_cast<size_t>(w) * h);
            for (int end = 0; end < 2; ++end) {
                uint8_t* base = end ? g.flush_end() : g.flush_start();
                uint8_t* base2 = end ? g2.flush_end() : g2.flush_start();
                rng.fill(base, g.size());
                rng.fill(base2, g2.size());
                k.chroma_copy[s](base, w, out, w);
                const int wi = w == 8 ? 1 : w == 4 ? 2 : 3;
                k.weight[wi](base2, w, base, w, h, 20, -3, 4, 7);
                k.weight_small[wi](base2, w, base, w, h, 20, -3, 4, 7);
                k.average[wi](base2, w, base, w, h);
            }
        }
        for (int h : {16, 8}) {  // 16-wide weighting
            GuardPages a(static_cast<size_t>(16 * h)), b(static_cast<size_t>(16 * h));
            for (int end = 0; end < 2; ++end) {
                uint8_t* pa = end ? a.flush_end() : a.flush_start();
                uint8_t* pb = end ? b.flush_end() : b.flush_start();
                k.weight[0](pa, 16, pb, 16, h, 1, 2, 1, 0);
                k.weight_small[0](pa, 16, pb, 16, h, 1, 2, 1, 0);
                k.average[0](pa, 16, pb, 16, h);
            }
        }
    }
}

// Samples outside the window never change the result, and samples outside
// columns 0..W and rows 0..H at once never change e, g, p or r.
TEST(InterWindow, OutsideSamplesDoNotMatter) {
    Rng rng(79);
    for (Isa isa : all_levels()) {
        const InterKernels k = inter_kernels_for(isa);
        for (int s = 0; s < kLumaSizes; ++s)
            for (int pos = 0; pos < 16; ++pos) {
                const int w = kLumaW[s], h = kLumaH[s];
                const int32_t step = w + 5 + 16;
                std::vector<uint8_t> buf(static_cast<size_t>(step) * (h + 5 + 16));
                rng.fill(buf.data(), buf.size());
                const uint8_t* org = buf.data() + 8 * step + 8;  // window from (6, 6)
                uint8_t first[256], second[256];
                k.luma[s][pos](org, step, first, w);
                const bool diagonal = pos == 5 || pos == 7 || pos == 13 || pos == 15;
                const bool full = pos == 0;
                for (int y = -8; y < h + 13; ++y)
                    for (int x = -8; x < w + 13; ++x) {
                        const bool in_window = full ? (x >= 0 && x < w && y >= 0 && y < h)
                                                    : (x >= -2 && x <= w + 2 && y >= -2 && y <= h + 2);
                        const bool corner = (x < 0 || x > w) && (y < 0 || y > h);
                        if (!in_window || (diagonal && corner))
                            buf[static_cast<size_t>((y + 8) * step + x + 8)] ^= 0xA7;
                    }
                k.luma[s][pos](org, step, second, w);
                ASSERT_EQ(0, std::memcmp(first, second, static_cast<size_t>(w * h)))
                    << kplvc::cpu::isa_name(isa) << " " << w << "x" << h << " pos " << pos;
            }
    }
}

// ---- The caller's recipes --------------------------------------------------------------------

// A picture, its copy with a replicated border, and edge emulation.
struct Picture {
    int w, h, border;
    int32_t step;
    std::vector<uint8_t> pic, framed;
    Picture(Rng& rng, int pw, int ph, int b) : w(pw), h(ph), border(b), step(pw + 2 * b) {
        pic.resize(static_cast<size_t>(w * h));
        rng.fill(pic.data(), pic.size());
        rebuild();
    }
    void rebuild() {
        framed.resize(static_cast<size_t>(step) * (h + 2 * border));
        for (int y = -border; y < h + border; ++y)
            for (int x = -border; x < w + border; ++x)
                framed[static_cast<size_t>((y + border) * step + x + border)] = clamped(x, y);
    }
    uint8_t clamped(int x, int y) const {
        return pic[static_cast<size_t>(std::clamp(y, 0, h - 1) * w + std::clamp(x, 0, w - 1))];
    }
    const uint8_t* at(int x, int y) const { return framed.data() + (y + border) * step + x + border; }
    // A scratch window copied at clamped coordinates: columns x0-lead .. and
    // rows y0-lead .., ww x wh samples; returns the pointer lead samples in.
    const uint8_t* emulate(std::vector<uint8_t>& scratch, int x0, int y0, int lead, int ww, int wh) const {
        scratch.resize(static_cast<size_t>(ww * wh));
        for (int y = 0; y < wh; ++y)
            for (int x = 0; x < ww; ++x)
                scratch[static_cast<size_t>(y * ww + x)] = clamped(x0 - lead + x, y0 - lead + y);
        return scratch.data() + lead * ww + lead;
    }
};

// The window read from a picture with a replicated border equals the window
// built by clamping coordinates, for every block size, far outside the picture.
TEST(InterRecipes, BorderExpansionMatchesEdgeEmulation) {
    Rng rng(91);
    std::vector<uint8_t> scratch;
    auto check = [&](bool luma, int w, int h) {
        // Luma reads 2 samples before and 3 after the block, chroma 0 and 1.
        const int lead = luma ? 2 : 0, ext = luma ? 5 : 1, pw = luma ? 32 : 16, ph = luma ? 24 : 12;
        const int b = std::max(w, h) + (luma ? 4 : 0), reach = luma ? 60 : 30, fmax = luma ? 3 : 7;
        const auto api = luma ? kpliInterpolateLuma_H264_8u_C1R : kpliInterpolateChroma_H264_8u_C1R;
        Picture pic(rng, pw, ph, b);
        for (int t = 0; t < 200; ++t) {
            const int xi = rng.range(-reach - w, pw + reach), yi = rng.range(-reach - h, ph + reach);
            const int xf = rng.range(0, fmax), yf = rng.range(0, fmax);
            const uint8_t* e = pic.emulate(scratch, xi, yi, lead, w + ext, h + ext);
            uint8_t want[256], got[256];
            ASSERT_EQ(api(e, w + ext, want, w, xf, yf, {w, h}), kplStsNoErr);
            const int cx = std::clamp(xi, lead - b, pw + b - w - (ext - lead));
            const int cy = std::clamp(yi, lead - b, ph + b - h - (ext - lead));
            ASSERT_EQ(api(pic.at(cx, cy), pic.step, got, w, xf, yf, {w, h}), kplStsNoErr);
            ASSERT_EQ(0, std::memcmp(want, got, static_cast<size_t>(w * h)))
                << w << "x" << h << " at " << xi << "," << yi << " frac " << xf << "," << yf;
        }
    };
    for (int s = 0; s < kLumaSizes; ++s) check(true, kLumaW[s], kLumaH[s]);
    for (int s = 0; s < kChromaSizes; ++s) check(false, kChromaW[s], kChromaH[s]);
}

// A border one sample too narrow (W + 3) moves a 16x16 block at integer
// column -18 so that its window reaches picture column 1.
TEST(InterRecipes, BorderTooNarrowDiffers) {
    Rng rng(92);
    Picture pic(rng, 32, 24, 19);
    for (int y = 0; y < 24; ++y)  // column 1 unlike column 0 in every row
        pic.pic[static_cast<size_t>(y * 32 + 1)] =
            static_cast<uint8_t>(pic.pic[static_cast<size_t>(y * 32)] ^ 0x80);
    pic.rebuild();
    std::vector<uint8_t> scratch;
    const uint8_t* e = pic.emulate(scratch, -18, 4, 2, 21, 21);
    uint8_t want[256], got[256];
    ASSERT_EQ(kpliInterpolateLuma_H264_8u_C1R(e, 21, want, 16, 2, 0, {16, 16}), kplStsNoErr);
    const int cx = std::clamp(-18, 2 - 19, 32 + 19 - 16 - 3);
    ASSERT_EQ(cx, -17);
    ASSERT_EQ(kpliInterpolateLuma_H264_8u_C1R(pic.at(cx, 4), pic.step, got, 16, 2, 0, {16, 16}), kplStsNoErr);
    EXPECT_NE(0, std::memcmp(want, got, sizeof want));
}

}  // namespace
