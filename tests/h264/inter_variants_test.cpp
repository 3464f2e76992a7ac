// H.264 inter prediction: every SIMD kernel against the scalar reference,
// with reads confined to the window (guard pages, samples outside the window
// changed).
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "h264/inter.h"
#include "kplvc.h"
#include "support/variants.h"

using kplvc::cpu::Isa;
using kplvc::h264::inter_kernels_for;
using kplvc::h264::InterKernels;
using kplvc::h264::kChromaH;
using kplvc::h264::kChromaSizes;
using kplvc::h264::kChromaW;
using kplvc::h264::kLumaH;
using kplvc::h264::kLumaSizes;
using kplvc::h264::kLumaW;
using kplvc::test::Arena;
using kplvc::test::Edge;
using kplvc::test::Rng;

namespace {

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

const auto check = kplvc::test::variants_of(inter_kernels_for, "h264 ");

// A w x h area at `step` (at least w) filled by fill_window; every other
// iteration exactly the area, against an unmapped page after its last byte or
// before its first, so that a kernel reading beyond it faults.
kplvc::test::Buf<uint8_t> window(Arena& a, Rng& rng, int w, int h, int32_t step, int i, bool out = false,
                                 int kind = -1) {
    const Edge edge = i % 2 == 0 ? Edge::none : i % 4 == 1 ? Edge::end : Edge::start;
    if (edge != Edge::none) step = w;
    const size_t n = static_cast<size_t>(step * (h - 1) + w);
    auto b = out ? a.out<uint8_t>(n, 1, edge) : a.in<uint8_t>(n, 1, edge);
    fill_window(rng, a[b], step, w, h, kind < 0 ? i % kKinds : kind);
    return b;
}

// ---- Variants against the reference ---------------------------------------------------

TEST(InterVariants, LumaEverySizeAndPosition) {
    for (int s = 0; s < kLumaSizes; ++s)
        for (int pos = 0; pos < 16; ++pos)
            check([=](const InterKernels& k) { return k.luma[s][pos]; },
                  "luma " + std::to_string(kLumaW[s]) + "x" + std::to_string(kLumaH[s]) + " pos " +
                      std::to_string(pos),
                  100,
                  [=](Arena& a, Rng& rng, int i) {
                      // The window: columns -2..W+2 and rows -2..H+2, or the block alone at position 0.
                      const int w = kLumaW[s], h = kLumaH[s], lead = pos == 0 ? 0 : 2,
                                ww = w + 2 * lead + (lead / 2);
                      int32_t sstep = ww + rng.range(0, 19);
                      auto src = window(a, rng, ww, h + 2 * lead + lead / 2, sstep, i);
                      if (i % 2) sstep = ww;
                      const int32_t dstep = w + rng.range(0, 9);
                      auto dst = a.out<uint8_t>(static_cast<size_t>(dstep * h), 1);
                      return [=](auto f, Arena& x) { f(x[src] + lead * sstep + lead, sstep, x[dst], dstep); };
                  });
}

TEST(InterVariants, ChromaEverySizeAndFraction) {
    for (int s = 0; s < kChromaSizes; ++s) {
        const int w = kChromaW[s], h = kChromaH[s];
        const std::string size = std::to_string(w) + "x" + std::to_string(h);
        // Columns 0..W and rows 0..H; the copy reads the block alone.
        check([=](const InterKernels& k) { return k.chroma[s]; }, "chroma " + size, 192,
              [=](Arena& a, Rng& rng, int i) {
                  const int xf = i % 8, yf = (i / 8) % 8 == 0 && xf == 0 ? 1 : (i / 8) % 8;
                  int32_t sstep = w + 1 + rng.range(0, 9);
                  auto src = window(a, rng, w + 1, h + 1, sstep, i);
                  if (i % 2) sstep = w + 1;
                  const int32_t dstep = w + rng.range(0, 5);
                  auto dst = a.out<uint8_t>(static_cast<size_t>(dstep * h), 1);
                  const int wa = (8 - xf) * (8 - yf), wb = xf * (8 - yf), wc = (8 - xf) * yf, wd = xf * yf;
                  return [=](auto f, Arena& x) { f(x[src], sstep, x[dst], dstep, wa, wb, wc, wd); };
              });
        check([=](const InterKernels& k) { return k.chroma_copy[s]; }, "chroma copy " + size, 192,
              [=](Arena& a, Rng& rng, int i) {
                  int32_t sstep = w + rng.range(0, 9);
                  auto src = window(a, rng, w, h, sstep, i);
                  if (i % 2) sstep = w;
                  const int32_t dstep = w + rng.range(0, 5);
                  auto dst = a.out<uint8_t>(static_cast<size_t>(dstep * h), 1);
                  return [=](auto f, Arena& x) { f(x[src], sstep, x[dst], dstep); };
              });
    }
}

// Every weighting and averaging kernel at each width and height, both
// predictions at their own step. The byte-weight kernels get only weights with
// |w0| + |w1| <= 128; the first iterations take the limits.
TEST(InterVariants, WeightingEveryWidth) {
    struct Params {
        int log_wd, w0, w1, o0, o1;
    };
    static const Params extremes[2][8] = {{{0, 128, 128, 127, 127},
                                           {0, -128, -128, -128, -128},
                                           {7, 128, 128, -128, -128},
                                           {7, -128, 128, 127, -128},
                                           {5, -64, 128, 0, 0},
                                           {0, 1, 1, 0, 0},
                                           {1, 0, 0, 127, 127},
                                           {6, 127, -128, -1, -2}},
                                          {{7, 64, 64, 127, 127},
                                           {0, 127, 1, 127, 127},
                                           {0, -128, 0, -128, -128},
                                           {7, -128, 0, 127, 127},
                                           {0, 127, -1, -128, 0},
                                           {7, 0, 127, -128, -128},
                                           {0, -64, -64, 127, -128},
                                           {6, 1, 127, 0, 0}}};
    static constexpr int kHeights[4][3] = {{16, 8, 8}, {16, 8, 4}, {8, 4, 2}, {4, 2, 2}};
    for (int wi = 0; wi < 4; ++wi) {
        const int w = 16 >> wi;
        // The two predictions at their own steps (the same area when tight).
        auto setup = [=](Arena& a, Rng& rng, int i, int32_t& s0, int32_t& s1, int& h) {
            h = kHeights[wi][i % 3];
            s0 = w + rng.range(0, 7), s1 = w + rng.range(0, 7);
            auto d = window(a, rng, w, h, s0, i, true);
            auto src = window(a, rng, w, h, s1, i, false, (i + 3) % kKinds);
            if (i % 2) s0 = s1 = w;
            return std::pair{d, src};
        };
        for (int small : {0, 1})
            check([=](const InterKernels& k) { return small ? k.weight_small[wi] : k.weight[wi]; },
                  std::string(small ? "weight_small " : "weight ") + std::to_string(w), 600,
                  [=](Arena& a, Rng& rng, int i) {
                      int32_t s0, s1;
                      int h;
                      const auto [d, src] = setup(a, rng, i, s0, s1, h);
                      Params p = extremes[small][i % 8];
                      if (i >= 8) {
                          p = {rng.range(0, 7), rng.range(-128, small ? 127 : 128), rng.range(-128, 128),
                               rng.range(-128, 127), rng.range(-128, 127)};
                          if (small)
                              p.w1 =
                                  std::min(127, std::clamp(p.w1, std::abs(p.w0) - 128, 128 - std::abs(p.w0)));
                      }
                      EXPECT_TRUE(!small || kplvc::h264::weights_fit_bytes(p.w0, p.w1));
                      a.note("logWD ", p.log_wd, " w ", p.w0, ",", p.w1, " o ", p.o0, ",", p.o1);
                      return [=, d = d, src = src](auto f, Arena& x) {
                          f(x[d], s0, x[src], s1, h, p.w0, p.w1, p.log_wd, (p.o0 + p.o1 + 1) >> 1);
                      };
                  });
        check([=](const InterKernels& k) { return k.average[wi]; }, "average " + std::to_string(w), 200,
              [=](Arena& a, Rng& rng, int i) {
                  int32_t s0, s1;
                  int h;
                  const auto [d, src] = setup(a, rng, i, s0, s1, h);
                  return [=, d = d, src = src](auto f, Arena& x) { f(x[d], s0, x[src], s1, h); };
              });
    }
}

// ---- The window -------------------------------------------------------------------------

// Samples outside the window never change the result, and samples outside
// columns 0..W and rows 0..H at once never change e, g, p or r (a variant
// reading them would differ from the reference above).
TEST(InterWindow, OutsideSamplesDoNotMatter) {
    Rng rng("h264 inter window");
    const InterKernels k = inter_kernels_for(Isa::c);
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
            for (int y = -8; y < h + 13; ++y)
                for (int x = -8; x < w + 13; ++x) {
                    const bool in_window = pos == 0 ? (x >= 0 && x < w && y >= 0 && y < h)
                                                    : (x >= -2 && x <= w + 2 && y >= -2 && y <= h + 2);
                    const bool corner = (x < 0 || x > w) && (y < 0 || y > h);
                    if (!in_window || (diagonal && corner))
                        buf[static_cast<size_t>((y + 8) * step + x + 8)] ^= 0xA7;
                }
            k.luma[s][pos](org, step, second, w);
            ASSERT_EQ(0, std::memcmp(first, second, static_cast<size_t>(w * h)))
                << w << "x" << h << " pos " << pos;
        }
}

}  // namespace
