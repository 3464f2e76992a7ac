// H.263 reconstruction, OBMC, frame expansion and deblocking.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/arith.h"
#include "h263/recon.h"
#include "kplvc.h"
#include "support/support.h"

namespace {

using kplvc::h263::ReconKernels;
using kplvc::test::Guarded;
using kplvc::test::Rng;
using kplvc::test::variants;

const ReconKernels& ref() {
    static const ReconKernels k = kplvc::h263::recon_kernels_for(kplvc::cpu::Isa::c);
    return k;
}

// Annex J filter on one set of samples, from the standard's description.
void annex_j(int& A, int& B, int& C, int& D, int qp) {
    static const int strength[32] = {0, 1, 1, 2, 2, 3, 3, 4,  4,  4,  5,  5,  6,  6,  7,  7,
                                     7, 8, 8, 8, 9, 9, 9, 10, 10, 10, 11, 11, 11, 12, 12, 12};
    const int s = strength[qp];
    const int d = (A - 4 * B + 4 * C - D) / 8;
    auto up_down = [](int x, int st) {
        return std::max(0, std::abs(x) - std::max(0, 2 * (std::abs(x) - st)));
    };
    const int d1 = (d < 0 ? -1 : 1) * up_down(d, s);
    B = std::clamp(B + d1, 0, 255);
    C = std::clamp(C - d1, 0, 255);
    const int lim = std::abs(d1 / 2);
    const int d2 = std::clamp((A - D) / 4, -lim, lim);
    A -= d2;
    D += d2;
}

}  // namespace

TEST(H263Recon, WrappingAddThenSaturate) {
    // pred 200 + residual 32767 wraps to -32569 and saturates to 0; pred 10 +
    // -32768 wraps to -32758 -> 0; 100 + (-101) -> 0; 100 + 200 -> 255.
    struct Case {
        uint8_t pred;
        int16_t res;
        uint8_t want;
    };
    const Case cases[] = {{200, 32767, 0},  {10, -32768, 0}, {100, -101, 0}, {100, 200, 255},
                          {255, -32768, 0}, {1, 32767, 0},   {0, 255, 255},  {128, -1, 127}};
    for (const auto& c : cases) {
        std::vector<uint8_t> pred(16 * 16, c.pred), dst(16 * 16, 7);
        std::vector<int16_t> res(256, c.res);
        ASSERT_EQ(kpliReconMB_H263(pred.data(), res.data(), dst.data(), 16), kplStsNoErr);
        EXPECT_EQ(dst[37], c.want) << int(c.pred) << " + " << c.res;
        ASSERT_EQ(kpliReconBlock_H263_I(pred.data(), res.data(), 16), kplStsNoErr);
        EXPECT_EQ(pred[7 * 16 + 7], c.want);
        EXPECT_EQ(pred[8], c.pred);  // outside the 8x8 block
    }
}

TEST(H263Recon, VariantsMatchReference) {
    using Fn = void (*)(const uint8_t*, const int16_t*, uint8_t*, int32_t);
    for (auto [member, w] :
         {std::pair<Fn ReconKernels::*, int>{&ReconKernels::recon16, 16}, {&ReconKernels::recon8, 8}}) {
        for (auto [isa, fn] : variants(kplvc::h263::recon_kernels_for, member)) {
            Rng rng(77);
            for (int iter = 0; iter < 2000; ++iter) {
                const int step = w + rng.range(0, 9);
                Guarded pred(static_cast<size_t>(step * w)), a(static_cast<size_t>(step * w)),
                    b(static_cast<size_t>(step * w));
                std::vector<int16_t> res(static_cast<size_t>(w * w));
                rng.fill_extreme(pred.data(), pred.size());
                if (rng.coin())
                    rng.fill_extreme(res.data(), res.size());
                else
                    rng.fill(res.data(), res.size(), -300, 300);
                std::memset(a.data(), 0x11, a.size());
                std::memset(b.data(), 0x11, b.size());
                (ref().*member)(pred.data(), res.data(), a.data(), step);
                fn(pred.data(), res.data(), b.data(), step);
                ASSERT_EQ(std::memcmp(a.data(), b.data(), a.size()), 0)
                    << kplvc::cpu::isa_name(isa) << " iter " << iter;
                ASSERT_TRUE(a.intact() && b.intact());
            }
        }
    }
}

TEST(H263Deblock, MatchesTheFilterDescription) {
    Rng rng(31);
    for (int iter = 0; iter < 20000; ++iter) {
        const int qp = rng.range(1, 31);
        const bool vertical = rng.coin();
        const int step = 8 + rng.range(0, 5);
        std::vector<uint8_t> frame(static_cast<size_t>(step * 12));
        // Smooth areas with a step at the edge, so that the filter acts.
        const int base = rng.range(0, 255), jump = rng.range(-40, 40);
        for (size_t i = 0; i < frame.size(); ++i) {
            const int x = static_cast<int>(i % static_cast<size_t>(step)),
                      y = static_cast<int>(i / static_cast<size_t>(step));
            const bool after = vertical ? x >= 4 : y >= 4;
            frame[i] = kplvc::clip_u8(base + (after ? jump : 0) + rng.range(-3, 3) +
                                      (rng.range(0, 50) == 0 ? rng.range(-255, 255) : 0));
        }
        std::vector<uint8_t> want = frame;
        for (int i = 0; i < 8; ++i) {
            auto at = [&](int k) -> uint8_t& {
                return vertical ? want[static_cast<size_t>(i * step + 4 + k)]
                                : want[static_cast<size_t>((4 + k) * step + i)];
            };
            int A = at(-2), B = at(-1), C = at(0), D = at(1);
            annex_j(A, B, C, D, qp);
            at(-2) = static_cast<uint8_t>(A), at(-1) = static_cast<uint8_t>(B);
            at(0) = static_cast<uint8_t>(C), at(1) = static_cast<uint8_t>(D);
        }
        uint8_t* edge = frame.data() + (vertical ? 4 : 4 * step);
        ASSERT_EQ((vertical ? kpliFilterDeblocking_VerEdge_H263_8u_I
                            : kpliFilterDeblocking_HorEdge_H263_8u_I)(edge, step, qp),
                  kplStsNoErr);
        ASSERT_EQ(frame, want) << "iter " << iter << " qp " << qp;
    }
}

TEST(H263Deblock, VariantsMatchReference) {
    using Fn = void (*)(uint8_t*, int32_t, int);
    for (Fn ReconKernels::*member : {&ReconKernels::deblock_hor, &ReconKernels::deblock_ver}) {
        for (auto [isa, fn] : variants(kplvc::h263::recon_kernels_for, member)) {
            Rng rng(4);
            for (int iter = 0; iter < 5000; ++iter) {
                const int step = 8 + rng.range(0, 9), strength = rng.range(1, 12);
                Guarded a(static_cast<size_t>(step * 12)), b(static_cast<size_t>(step * 12));
                if (rng.coin())
                    rng.fill_extreme(a.data(), a.size());
                else
                    rng.fill(a.data(), a.size());
                std::memcpy(b.data(), a.data(), a.size());
                const size_t at = member == &ReconKernels::deblock_ver ? 4 : static_cast<size_t>(4 * step);
                (ref().*member)(a.data() + at, step, strength);
                fn(b.data() + at, step, strength);
                ASSERT_EQ(std::memcmp(a.data(), b.data(), a.size()), 0)
                    << kplvc::cpu::isa_name(isa) << " iter " << iter;
                ASSERT_TRUE(b.intact());
            }
        }
    }
}

TEST(H263Obmc, EqualVectorsGiveThePlainPrediction) {
    Rng rng(6);
    const int step = 40;
    std::vector<uint8_t> ref(static_cast<size_t>(step * 40));
    rng.fill(ref.data(), ref.size());
    const uint8_t* at = ref.data() + 16 * step + 16;
    for (int iter = 0; iter < 200; ++iter) {
        const Kpl16s mv[2] = {static_cast<Kpl16s>(rng.range(-16, 16)),
                              static_cast<Kpl16s>(rng.range(-16, 16))};
        std::vector<uint8_t> out(static_cast<size_t>(step * 8));
        ASSERT_EQ(kpliPredictBlock_OBMC_8u(at, out.data(), step, mv, mv, mv, mv, mv), kplStsNoErr);
        const int ix = mv[0] >> 1, iy = mv[1] >> 1, hx = mv[0] & 1, hy = mv[1] & 1;
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) {
                const uint8_t* s = at + (y + iy) * step + x + ix;
                const int want = (s[0] + s[hx] + s[hy * step] + s[hy * step + hx] + 2) >> 2;
                ASSERT_EQ(out[static_cast<size_t>(y * step + x)], want) << mv[0] << "," << mv[1];
            }
    }
}

TEST(H263Obmc, WeightsOfEachNeighbour) {
    // A reference whose sample value encodes which vector read it: the own
    // vector (0,0) sees 0 everywhere, the other vectors land on constant
    // areas. Output = (H1 * r + H2 * s + 4) >> 3 with r, s those constants.
    const int step = 64;
    std::vector<uint8_t> ref(static_cast<size_t>(step * 64), 0);
    auto fill_area = [&](int x0, int y0, uint8_t v) {
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) ref[static_cast<size_t>((y0 + y) * step + x0 + x)] = v;
    };
    fill_area(8, 24, 80);    // left vector (-32, 0) half-samples = -16 samples
    fill_area(40, 24, 160);  // right (+16 samples)
    fill_area(24, 8, 240);   // above
    fill_area(24, 40, 200);  // below
    const uint8_t* at = ref.data() + 24 * step + 24;
    const Kpl16s cur[2] = {0, 0}, left[2] = {-32, 0}, right[2] = {32, 0}, above[2] = {0, -32},
                 below[2] = {0, 32};
    std::vector<uint8_t> out(static_cast<size_t>(8 * step));
    ASSERT_EQ(kpliPredictBlock_OBMC_8u(at, out.data(), step, cur, left, right, above, below), kplStsNoErr);
    const int H1[8][8] = {{2, 2, 2, 2, 2, 2, 2, 2}, {1, 1, 2, 2, 2, 2, 1, 1}, {1, 1, 1, 1, 1, 1, 1, 1},
                          {1, 1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1, 1}, {1, 1, 1, 1, 1, 1, 1, 1},
                          {1, 1, 2, 2, 2, 2, 1, 1}, {2, 2, 2, 2, 2, 2, 2, 2}};
    const int H2[8][8] = {{2, 1, 1, 1, 1, 1, 1, 2}, {2, 2, 1, 1, 1, 1, 2, 2}, {2, 2, 1, 1, 1, 1, 2, 2},
                          {2, 2, 1, 1, 1, 1, 2, 2}, {2, 2, 1, 1, 1, 1, 2, 2}, {2, 2, 1, 1, 1, 1, 2, 2},
                          {2, 2, 1, 1, 1, 1, 2, 2}, {2, 1, 1, 1, 1, 1, 1, 2}};
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const int r = y < 4 ? 240 : 200, s = x < 4 ? 80 : 160;
            EXPECT_EQ(out[static_cast<size_t>(y * step + x)], (H1[y][x] * r + H2[y][x] * s + 4) >> 3)
                << y << "," << x;
        }
}

TEST(H263Expand, BordersAndCornersForEveryPath) {
    for (int E : {8, 16, 32, 9}) {
        const int W = 24, H = 5, S = W + 2 * E + 3;
        std::vector<uint8_t> buf(static_cast<size_t>(S * (H + 2 * E) + 8), 0xEE);
        Rng rng(static_cast<uint64_t>(E));
        std::vector<uint8_t> pic(static_cast<size_t>(W * H));
        rng.fill(pic.data(), pic.size());
        for (int y = 0; y < H; ++y)
            std::memcpy(&buf[static_cast<size_t>((E + y) * S + E)], &pic[static_cast<size_t>(y * W)], W);
        ASSERT_EQ(kpliExpandFrame_H263_8u(buf.data(), W, H, E, S), kplStsNoErr);
        for (int y = 0; y < H + 2 * E; ++y) {
            const int py = std::clamp(y - E, 0, H - 1);
            for (int x = 0; x < W + 2 * E; ++x) {
                const int px = std::clamp(x - E, 0, W - 1);
                ASSERT_EQ(buf[static_cast<size_t>(y * S + x)], pic[static_cast<size_t>(py * W + px)])
                    << E << " " << x << "," << y;
            }
            for (int x = W + 2 * E; x < S; ++x)
                ASSERT_EQ(buf[static_cast<size_t>(y * S + x)], 0xEE);  // step padding untouched
        }
    }
}

TEST(H263ReconArgs, ChecksInOrderAndNothingWritten) {
    Guarded g(64 * 64);
    uint8_t* p = g.data() + 64 * 16 + 16;
    std::vector<uint8_t> before(g.data(), g.data() + g.size());
    int16_t res[256] = {};
    const Kpl16s mv[2] = {0, 0};
    struct Case {
        const char* what;
        KplStatus got, want;
    };
    const Case cases[] = {
        {"recon mb null", kpliReconMB_H263(p, nullptr, p, 2), kplStsNullPtrErr},
        {"recon mb step", kpliReconMB_H263(p, res, p, 15), kplStsMBStepErr},
        {"recon mb_i step", kpliReconMB_H263_I(p, res, 15), kplStsMBStepErr},
        {"recon block null", kpliReconBlock_H263(nullptr, res, p, 8), kplStsNullPtrErr},
        {"recon block step", kpliReconBlock_H263(p, res, p, 7), kplStsBlockStepErr},
        {"recon block_i step", kpliReconBlock_H263_I(p, res, 7), kplStsBlockStepErr},
        {"obmc null below before step", kpliPredictBlock_OBMC_8u(p, p, 1, mv, mv, mv, mv, nullptr),
         kplStsNullPtrErr},
        {"obmc null left", kpliPredictBlock_OBMC_8u(p, p, 64, mv, nullptr, mv, mv, mv), kplStsNullPtrErr},
        {"obmc step", kpliPredictBlock_OBMC_8u(p, p, 7, mv, mv, mv, mv, mv), kplStsBlockStepErr},
        {"expand null", kpliExpandFrame_H263_8u(nullptr, 0, 0, 0, 0), kplStsNullPtrErr},
        {"expand width", kpliExpandFrame_H263_8u(p, 7, 0, 0, 0), kplStsFrameWidthErr},
        {"expand height", kpliExpandFrame_H263_8u(p, 8, 0, 0, 0), kplStsFrameHeightErr},
        {"expand pels", kpliExpandFrame_H263_8u(p, 8, 1, 7, 0), kplStsFrameExpandErr},
        {"expand block step", kpliExpandFrame_H263_8u(p, 8, 1, 8, 7), kplStsBlockStepErr},
        {"expand frame step", kpliExpandFrame_H263_8u(p, 8, 1, 8, 23), kplStsFrameStepErr},
        {"expand huge pels", kpliExpandFrame_H263_8u(p, 8, 1, 0x40000000, 64), kplStsFrameStepErr},
        {"deblock null", kpliFilterDeblocking_HorEdge_H263_8u_I(nullptr, 0, 0), kplStsNullPtrErr},
        {"deblock step before qp", kpliFilterDeblocking_HorEdge_H263_8u_I(p, 7, 0), kplStsBlockStepErr},
        {"deblock qp 0", kpliFilterDeblocking_VerEdge_H263_8u_I(p, 8, 0), kplStsH263QPErr},
        {"deblock qp 32", kpliFilterDeblocking_VerEdge_H263_8u_I(p, 8, 32), kplStsH263QPErr},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.want) << c.what;
    EXPECT_EQ(std::vector<uint8_t>(g.data(), g.data() + g.size()), before);
    // The exact fitting step succeeds.
    std::vector<uint8_t> frame(static_cast<size_t>(24 * 17), 1);
    EXPECT_EQ(kpliExpandFrame_H263_8u(frame.data(), 8, 1, 8, 24), kplStsNoErr);
}

TEST(H263Obmc, VariantsMatchReference) {
    using kplvc::h263::ObmcVectors;
    const auto ref_obmc = ref().obmc;
    for (auto [isa, fn] : variants(kplvc::h263::recon_kernels_for, &ReconKernels::obmc)) {
        Rng rng(9);
        for (int iter = 0; iter < 3000; ++iter) {
            const int step = 40 + rng.range(0, 3);
            std::vector<uint8_t> ref(static_cast<size_t>(step * 48));
            if (iter % 4 == 0)
                rng.fill_extreme(ref.data(), ref.size());
            else
                rng.fill(ref.data(), ref.size());
            Kpl16s v[5][2];
            for (auto& m : v)
                m[0] = static_cast<Kpl16s>(rng.range(-30, 30)),
                m[1] = static_cast<Kpl16s>(rng.range(-30, 30));
            const ObmcVectors mv{v[0], v[1], v[2], v[3], v[4]};
            const uint8_t* at = ref.data() + 20 * step + 16;
            Guarded a(static_cast<size_t>(8 * step)), b(static_cast<size_t>(8 * step));
            std::memset(a.data(), 0x3C, a.size());
            std::memset(b.data(), 0x3C, b.size());
            ref_obmc(at, a.data(), step, mv);
            fn(at, b.data(), step, mv);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), a.size()), 0)
                << kplvc::cpu::isa_name(isa) << " iter " << iter;
            ASSERT_TRUE(b.intact());
        }
    }
}
