// Block copies and differences: the public functions against a per-sample
// model, the argument checks, and every SIMD kernel against the reference.
#include <cstdint>
#include <cstring>
#include <vector>

#include "block/copy.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::block::BlockCopyKernels;
using kplvc::test::Arena;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

using DiffPub = KplStatus (*)(const Kpl8u*, Kpl32s, const Kpl8u*, Kpl32s, Kpl16s*, Kpl32s, Kpl16s*, Kpl32s,
                              Kpl32s, Kpl32s);
using DiffBPub = KplStatus (*)(const Kpl8u*, Kpl32s, const Kpl8u*, Kpl32s, Kpl32s, const Kpl8u*, Kpl32s,
                               Kpl32s, Kpl16s*, Kpl32s, Kpl32s);

struct DiffShapeInfo {
    kplvc::block::DiffShape shape;
    const char* name;
    int w, h;
    DiffPub single;
    DiffBPub bidir;
};

const DiffShapeInfo kShapes[] = {
    {kplvc::block::d16x16, "16x16", 16, 16, kpliGetDiff16x16_8u16s_C1, kpliGetDiff16x16B_8u16s_C1},
    {kplvc::block::d16x8, "16x8", 16, 8, kpliGetDiff16x8_8u16s_C1, kpliGetDiff16x8B_8u16s_C1},
    {kplvc::block::d8x16, "8x16", 8, 16, kpliGetDiff8x16_8u16s_C1, kpliGetDiff8x16B_8u16s_C1},
    {kplvc::block::d8x8, "8x8", 8, 8, kpliGetDiff8x8_8u16s_C1, kpliGetDiff8x8B_8u16s_C1},
    {kplvc::block::d8x4, "8x4", 8, 4, kpliGetDiff8x4_8u16s_C1, kpliGetDiff8x4B_8u16s_C1},
};

int px(const uint8_t* p, int step, int x, int y) { return p[static_cast<ptrdiff_t>(step) * y + x]; }

// Per-sample model with the position chosen at run time; any non-zero
// rounding control acts as 1.
int model_pred(const uint8_t* r, int step, int x, int y, int mc_type, int rc) {
    const int a = px(r, step, x, y), round = rc != 0 ? 1 : 0;
    switch (mc_type & 12) {
        case 0:
            return a;
        case 4:
            return (a + px(r, step, x, y + 1) + 1 - round) / 2;
        case 8:
            return (a + px(r, step, x + 1, y) + 1 - round) / 2;
        default:
            return (a + px(r, step, x + 1, y) + px(r, step, x, y + 1) + px(r, step, x + 1, y + 1) + 2 -
                    round) /
                   4;
    }
}

int16_t cell(const uint8_t* base, int step, int x, int y) {
    int16_t v;
    std::memcpy(&v, base + static_cast<ptrdiff_t>(step) * y + 2 * x, 2);
    return v;
}

// Exactly the bytes a w x h block at position pos (bit 0: half vertically,
// bit 1: half horizontally) reads at `step`; every fourth iteration the last
// one sits before an unmapped page, so that a kernel reading more faults.
kplvc::test::Buf<uint8_t> area(Arena& a, Rng& rng, int w, int h, int pos, int32_t step, int i) {
    const size_t n = static_cast<size_t>(step * (h - 1 + (pos & 1)) + w + (pos >> 1));
    auto b = a.in<uint8_t>(n, 1, i % 4 == 0 ? kplvc::test::Edge::end : kplvc::test::Edge::none);
    if (i % 3 == 0) rng.fill_extreme(a[b], n);
    return b;
}

// A 16-bit output at a byte step (odd steps misalign its rows).
struct Out16 {
    kplvc::test::Buf<uint8_t> buf;
    int32_t step;
    int16_t* p(Arena& x) const { return reinterpret_cast<int16_t*>(x[buf]); }
};
Out16 out16(Arena& a, Rng& rng, int w, int h) {
    const int32_t step = 2 * w + rng.range(0, 5);
    return {a.out<uint8_t>(static_cast<size_t>(step * h), 1), step};
}

}  // namespace

// ---- Behaviour ----------------------------------------------------------------------

// Public functions against the model for every size, every mcType (pairs for
// the B forms), rounding controls 0, 1 and wild values (which act as 1), with
// and without the predictor (which must then stay untouched); the 4x4 form is
// the plain difference.
TEST(GetDiff, PublicFunctionsMatchModel) {
    Rng rng("getdiff model");
    const int32_t rcs[] = {0, 1, 2, -1, INT32_MIN, INT32_MAX};
    for (const DiffShapeInfo& s : kShapes)
        for (int32_t rc : rcs)
            for (int tf = 0; tf < 16; ++tf)
                for (int tb = -1; tb < 16; tb += rc == 0 || rc == 1 ? 1 : 5) {
                    SCOPED_TRACE(testing::Message()
                                 << s.name << " mcType " << tf << "/" << tb << " rc " << rc);
                    // tb -1: one reference, with or without the predictor.
                    Arena a(rng);
                    const int32_t cs = s.w + rng.range(0, 7), rs = s.w + 1 + rng.range(0, 7);
                    const uint8_t *cur = a[area(a, rng, s.w, s.h, 0, cs, tf)],
                                  *f = a[area(a, rng, s.w, s.h, 3, rs, tf)],
                                  *b = a[area(a, rng, s.w, s.h, 3, rs, tf)];
                    const Out16 d = out16(a, rng, s.w, s.h), p = out16(a, rng, s.w, s.h);
                    const std::vector<uint8_t> pred_before(a[p.buf], a[p.buf] + p.step * s.h);
                    auto pf = [&](int x, int y) { return model_pred(f, rs, x, y, tf, rc); };
                    const bool with_pred = tb == -1 && rng.coin();
                    if (tb == -1)
                        ASSERT_EQ(s.single(cur, cs, f, rs, d.p(a), d.step, with_pred ? p.p(a) : nullptr,
                                           p.step, tf, rc),
                                  0);
                    else
                        ASSERT_EQ(s.bidir(cur, cs, f, rs, tf, b, rs, tb, d.p(a), d.step, rc), 0);
                    for (int y = 0; y < s.h; ++y)
                        for (int x = 0; x < s.w; ++x) {
                            const int pred =
                                tb == -1 ? pf(x, y) : (pf(x, y) + model_pred(b, rs, x, y, tb, rc) + 1) / 2;
                            ASSERT_EQ(cell(a[d.buf], d.step, x, y), px(cur, cs, x, y) - pred)
                                << x << "," << y;
                            if (with_pred) {
                                ASSERT_EQ(cell(a[p.buf], p.step, x, y), pred);
                            }
                        }
                    if (!with_pred) {
                        ASSERT_TRUE(std::equal(pred_before.begin(), pred_before.end(), a[p.buf]));
                    }
                    ASSERT_TRUE(a.intact());
                }
    for (int iter = 0; iter < 200; ++iter) {
        Arena a(rng);
        const int32_t cs = 4 + rng.range(0, 7), rs = 4 + rng.range(0, 7);
        const uint8_t *cur = a[area(a, rng, 4, 4, 0, cs, iter)], *ref = a[area(a, rng, 4, 4, 0, rs, iter)];
        const Out16 d = out16(a, rng, 4, 4);
        ASSERT_EQ(kpliGetDiff4x4_8u16s_C1(cur, cs, ref, rs, d.p(a), d.step), 0);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x)
                ASSERT_EQ(cell(a[d.buf], d.step, x, y), px(cur, cs, x, y) - px(ref, rs, x, y));
        ASSERT_TRUE(a.intact());
    }
}

TEST(CopyBlock, CopiesRowsByTheirOwnSteps) {
    Rng rng("copyblock");
    for (auto [n, ss, ds] :
         {std::tuple{16, 16, 16}, {16, 17, 40}, {16, 33, 16}, {8, 8, 8}, {8, 9, 21}, {8, 64, 8}}) {
        Guarded src(static_cast<size_t>(ss * n)), dst(static_cast<size_t>(ds * n));
        rng.fill(src.data(), src.size());
        std::memset(dst.data(), 0xEE, dst.size());
        ASSERT_EQ((n == 16 ? kpliCopyBlock_16x16_8u : kpliCopyBlock_8x8_8u)(src.data(), ss, dst.data(), ds),
                  0);
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < ds; ++x)
                ASSERT_EQ(dst.data()[ds * y + x], x < n ? src.data()[ss * y + x] : 0xEE);
        ASSERT_TRUE(dst.intact());
    }
}

// RoundOn is rc 1 and RoundOff rc 0 of the 8x8 motion compensation with a
// zero residual; predType 0..3 picks FF, FH, HF, HH and other values act as HH
// (the rounding itself is pinned by the motion-compensation tests).
TEST(MCBlock, EqualsMotionCompensationWithZeroResidual) {
    Rng rng("mcblock");
    for (int pred_type = -2; pred_type < 8; ++pred_type)
        for (int rc : {0, 1}) {
            std::vector<uint8_t> ref(24 * 9);
            rng.fill(ref.data(), ref.size());
            std::vector<uint8_t> a(10 * 8, 1), b(10 * 8, 1);
            const std::vector<int16_t> zero(64, 0);
            const int mc_type = pred_type == 0 ? 0 : pred_type == 1 ? 4 : pred_type == 2 ? 8 : 12;
            ASSERT_EQ((rc ? kpliMCBlock_RoundOn_8u : kpliMCBlock_RoundOff_8u)(ref.data(), 24, a.data(), 10,
                                                                              pred_type),
                      0);
            ASSERT_EQ(kpliMC8x8_8u_C1(ref.data(), 24, zero.data(), 16, b.data(), 10, mc_type, rc), 0);
            EXPECT_EQ(a, b) << pred_type << " " << rc;
        }
}

// ---- Argument checks ------------------------------------------------------------------

// Copies check null pointers, then steps with their own codes; the
// differences check only the required pointers (the predictor may be null;
// steps, mcType and roundControl are not checked); RoundOn/Off check what
// the motion compensation checks, which is not the steps.
TEST(CopyDiffArgs, ChecksInOrderAndNothingWritten) {
    kplvc::test::ArgPool p;
    const Kpl8u *c = p.take<Kpl8u>(17 * 17), *r = p.take<Kpl8u>(17 * 17);
    Kpl8u* d8 = p.take<Kpl8u>(16 * 16);
    Kpl16s *d = p.take<Kpl16s>(256), *pr = p.take<Kpl16s>(256);
    CHECK_ARGS(p, kpliCopyBlock_8x8_8u, {c, 8, d8, 16},
               {null(0), null(2), fails(1, 7, kplStsStep8x8Err), fails(1, -16, kplStsStep8x8Err),
                fails(3, 7, kplStsStep8x8Err)});
    CHECK_ARGS(p, kpliCopyBlock_16x16_8u, {c, 17, d8, 16},
               {null(0), null(2), fails(1, 15, kplStsStep16x16Err), fails(3, 8, kplStsStep16x16Err)});
    for (auto f : {kpliMCBlock_RoundOn_8u, kpliMCBlock_RoundOff_8u})
        CHECK_ARGS(p, f, {r, 16, d8, 8, 3}, {null(0), null(2), passes(1, 1)});
    for (const DiffShapeInfo& s : kShapes) {
        SCOPED_TRACE(s.name);
        CHECK_ARGS(p, s.single, {c, 16, r, 17, d, 32, pr, 32, 12, 0},
                   {null(0), null(2), null(4), passes(6, nullptr), passes(8, -1), passes(9, 5)});
        CHECK_ARGS(p, s.bidir, {c, 16, r, 17, 4, r, 17, 8, d, 32, 1},
                   {null(0), null(2), null(5), null(8), passes(10, 9)});
    }
    CHECK_ARGS(p, kpliGetDiff4x4_8u16s_C1, {c, 4, r, 4, d, 8}, {null(0), null(2), null(4)});
}

// ---- SIMD variants against the scalar reference -------------------------------------

const auto check = kplvc::test::variants_of(kplvc::block::blockcopy_kernels_for, "blockcopy ");

TEST(BlockCopyVariants, DiffMatchesReference) {
    for (const DiffShapeInfo& s : kShapes) {
        for (int pos = 0; pos < 4; ++pos)
            check([&](const BlockCopyKernels& k) { return k.diff[s.shape][4 * pos]; },
                  std::string("diff ") + s.name + " pos " + std::to_string(pos), 40,
                  [&](Arena& a, Rng& rng, int i) {
                      const int32_t cs = s.w + rng.range(0, 7), rs = s.w + 1 + rng.range(0, 7);
                      auto cur = area(a, rng, s.w, s.h, 0, cs, i), ref = area(a, rng, s.w, s.h, pos, rs, i);
                      const Out16 d = out16(a, rng, s.w, s.h), p = out16(a, rng, s.w, s.h);
                      const bool with_pred = i & 2;
                      return [=](auto f, Arena& x) {
                          f(x[cur], cs, x[ref], rs, d.p(x), d.step, with_pred ? p.p(x) : nullptr, p.step,
                            i & 1);
                      };
                  });
        for (int idx = 0; idx < 16; ++idx)
            check([&](const BlockCopyKernels& k) { return k.diff_b[s.shape][idx]; },
                  std::string("diff_b ") + s.name + " pair " + std::to_string(idx), 16,
                  [&](Arena& a, Rng& rng, int i) {
                      const int32_t cs = s.w + rng.range(0, 7), fs = s.w + 1 + rng.range(0, 7),
                                    bs = s.w + 1 + rng.range(0, 7);
                      auto cur = area(a, rng, s.w, s.h, 0, cs, i),
                           rf = area(a, rng, s.w, s.h, idx & 3, fs, i),
                           rb = area(a, rng, s.w, s.h, idx >> 2, bs, i);
                      const Out16 d = out16(a, rng, s.w, s.h);
                      return [=](auto f, Arena& x) {
                          f(x[cur], cs, x[rf], fs, x[rb], bs, d.p(x), d.step, i & 1);
                      };
                  });
    }
}

TEST(BlockCopyVariants, CopiesAndFourByFourMatchReference) {
    for (auto [m, n] : {std::pair{&BlockCopyKernels::copy8x8, 8}, {&BlockCopyKernels::copy16x16, 16}})
        check(m, "copy " + std::to_string(n), 100, [n = n](Arena& a, Rng& rng, int i) {
            const int32_t ss = n + rng.range(0, 9), ds = n + rng.range(0, 9);
            auto src = area(a, rng, n, n, 0, ss, i);
            auto dst = a.out<uint8_t>(static_cast<size_t>(ds * n), 1);
            return [=](auto f, Arena& x) { f(x[src], ss, x[dst], ds); };
        });
    check(&BlockCopyKernels::diff4x4, "diff4x4", 300, [](Arena& a, Rng& rng, int i) {
        const int32_t cs = 4 + rng.range(0, 7), rs = 4 + rng.range(0, 7);
        auto cur = area(a, rng, 4, 4, 0, cs, i), ref = area(a, rng, 4, 4, 0, rs, i);
        const Out16 d = out16(a, rng, 4, 4);
        return [=](auto f, Arena& x) { f(x[cur], cs, x[ref], rs, d.p(x), d.step); };
    });
}
