// H.263 reconstruction, OBMC, frame expansion and deblocking.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/arith.h"
#include "h263/recon.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

namespace {

using kplvc::h263::ReconKernels;
using kplvc::test::Arena;
using kplvc::test::Rng;

const auto check = kplvc::test::variants_of(kplvc::h263::recon_kernels_for, "h263 ");

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
    for (auto [m, w] : {std::pair{&ReconKernels::recon16, 16}, {&ReconKernels::recon8, 8}})
        check(m, "recon" + std::to_string(w), 2000, [w = w](Arena& a, Rng& rng, int) {
            const int32_t step = w + rng.range(0, 9);
            const size_t n = static_cast<size_t>(step * (w - 1) + w);
            auto pred = a.in<uint8_t>(n, 1), dst = a.out<uint8_t>(n, 1);
            auto res = a.in<int16_t>(static_cast<size_t>(w * w));
            rng.fill_extreme(a[pred], n);
            if (rng.coin())
                rng.fill_extreme(a[res], static_cast<size_t>(w * w));
            else
                rng.fill(a[res], static_cast<size_t>(w * w), -300, 300);
            return [=](auto f, Arena& x) { f(x[pred], x[res], x[dst], step); };
        });
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
    for (auto [m, ver] : {std::pair{&ReconKernels::deblock_hor, false}, {&ReconKernels::deblock_ver, true}})
        check(m, ver ? "deblock_ver" : "deblock_hor", 5000, [ver = ver](Arena& a, Rng& rng, int) {
            const int32_t step = 8 + rng.range(0, 9), strength = rng.range(1, 12);
            auto buf = a.out<uint8_t>(static_cast<size_t>(step * 12), 1);
            if (rng.coin()) rng.fill_extreme(a[buf], static_cast<size_t>(step * 12));
            const int32_t at = ver ? 4 : 4 * step;
            return [=](auto f, Arena& x) { f(x[buf] + at, step, strength); };
        });
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
    kplvc::test::ArgPool p(1 << 15);
    Kpl8u* b = p.take<Kpl8u>(64 * 48);
    const Kpl16s *res = p.take<Kpl16s>(256), *mv = p.take<Kpl16s>({0, 0});
    CHECK_ARGS(p, kpliReconMB_H263, {b, res, b + 16, 64},
               {null(0), null(1), null(2), fails(3, 15, kplStsMBStepErr)});
    CHECK_ARGS(p, kpliReconMB_H263_I, {b, res, 64}, {null(0), null(1), fails(2, 15, kplStsMBStepErr)});
    CHECK_ARGS(p, kpliReconBlock_H263, {b, res, b + 8, 64},
               {null(0), null(1), null(2), fails(3, 7, kplStsBlockStepErr)});
    CHECK_ARGS(p, kpliReconBlock_H263_I, {b, res, 64}, {null(0), null(1), fails(2, 7, kplStsBlockStepErr)});
    CHECK_ARGS(
        p, kpliPredictBlock_OBMC_8u, {b + 64 * 16 + 16, b, 64, mv, mv, mv, mv, mv},
        {null(0), null(1), null(3), null(5), null(4), null(7), null(6), fails(2, 7, kplStsBlockStepErr)});
    // Width 8 and expansion 8 need a step of 24; 0x40000000 samples overflow no sum.
    CHECK_ARGS(p, kpliExpandFrame_H263_8u, {b, 8, 1, 8, 24},
               {null(0), fails(1, 7, kplStsFrameWidthErr), fails(2, 0, kplStsFrameHeightErr),
                fails(3, 7, kplStsFrameExpandErr), fails(4, 7, kplStsBlockStepErr),
                fails(4, 23, kplStsFrameStepErr), fails(3, 0x40000000, kplStsFrameStepErr)});
    for (auto f : {kpliFilterDeblocking_HorEdge_H263_8u_I, kpliFilterDeblocking_VerEdge_H263_8u_I})
        CHECK_ARGS(p, f, {b + 64 * 4 + 4, 64, 1},
                   {null(0), fails(1, 7, kplStsBlockStepErr), fails(2, 0, kplStsH263QPErr),
                    fails(2, 32, kplStsH263QPErr)});
}

TEST(H263Obmc, VariantsMatchReference) {
    check(&ReconKernels::obmc, "obmc", 3000, [](Arena& a, Rng& rng, int i) {
        const int32_t step = 40 + rng.range(0, 3);
        auto ref = a.in<uint8_t>(static_cast<size_t>(step * 48), 1);
        if (i % 4 == 0) rng.fill_extreme(a[ref], static_cast<size_t>(step * 48));
        auto mv = a.in<int16_t>(10);
        rng.fill(a[mv], 10, -30, 30);
        auto dst = a.out<uint8_t>(static_cast<size_t>(8 * step), 1);
        return [=](auto f, Arena& x) {
            const int16_t* v = x[mv];
            f(x[ref] + 20 * step + 16, x[dst], step, kplvc::h263::ObmcVectors{v, v + 2, v + 4, v + 6, v + 8});
        };
    });
}
