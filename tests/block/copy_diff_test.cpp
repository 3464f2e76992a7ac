#include <cstdint>
#include <cstring>
#include <vector>

#include "block/copy.h"
#include "kplvc.h"
#include "support/support.h"

using kplvc::block::BlockCopyKernels;
using kplvc::block::DiffBFn;
using kplvc::block::DiffFn;
using kplvc::test::Guarded;
using kplvc::test::GuardPages;
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

// Per-sample model with the position chosen at run time.
int model_pred(const uint8_t* r, int step, int x, int y, int mc_type, int rc) {
    const int a = px(r, step, x, y);
    switch (mc_type & 12) {
        case 0:
            return a;
        case 4:
            return (a + px(r, step, x, y + 1) + 1 - rc) / 2;
        case 8:
            return (a + px(r, step, x + 1, y) + 1 - rc) / 2;
        default:
            return (a + px(r, step, x + 1, y) + px(r, step, x, y + 1) + px(r, step, x + 1, y + 1) + 2 - rc) /
                   4;
    }
}

int16_t cell(const uint8_t* base, int step, int x, int y) {
    int16_t v;
    std::memcpy(&v, base + static_cast<ptrdiff_t>(step) * y + 2 * x, 2);
    return v;
}

// cur, two references and two 16-bit outputs with their own (possibly odd) steps.
struct Bufs {
    int w, h, cur_step, ref_step, diff_step, pred_step;
    Guarded cur, ref, ref_b, diff, pred;
    Bufs(Rng& rng, int w_, int h_)
        : w(w_),
          h(h_),
          cur_step(w_ + rng.range(0, 7)),
          ref_step(w_ + 1 + rng.range(0, 7)),
          diff_step(2 * w_ + rng.range(0, 5)),
          pred_step(2 * w_ + rng.range(0, 5)),
          cur(static_cast<size_t>(cur_step) * h_, static_cast<size_t>(rng.range(0, 31))),
          ref(static_cast<size_t>(ref_step) * (h_ + 1), static_cast<size_t>(rng.range(0, 31))),
          ref_b(static_cast<size_t>(ref_step) * (h_ + 1), static_cast<size_t>(rng.range(0, 31))),
          diff(static_cast<size_t>(diff_step) * h_, static_cast<size_t>(rng.range(0, 31))),
          pred(static_cast<size_t>(pred_step) * h_, static_cast<size_t>(rng.range(0, 31))) {
        const bool extreme = rng.coin();
        for (Guarded* g : {&cur, &ref, &ref_b}) {
            if (extreme)
                rng.fill_extreme(g->data(), g->size());
            else
                rng.fill(g->data(), g->size());
        }
        rng.fill(diff.data(), diff.size());
        rng.fill(pred.data(), pred.size());
    }
    int16_t* d16() { return diff.as<int16_t>(); }
    int16_t* p16() { return pred.as<int16_t>(); }
};

std::vector<uint8_t> snapshot(const Guarded& g) { return {g.data(), g.data() + g.size()}; }

// ---- Behaviour ----------------------------------------------------------------------

TEST(GetDiff, HalfSampleWorkedExample) {
    // Reference row 10, 11, 12, ...; current all 20. HF: (10 + 11 + 1) >> 1 = 11
    // at rc 0 gives 9; (10 + 11) >> 1 = 10 at rc 1 gives 10.
    struct Case {
        int rc, want;
    } cases[] = {{0, 9}, {1, 10}};
    for (const auto& c : cases) {
        std::vector<uint8_t> ref(16 * 9), cur(8 * 8, 20);
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 16; ++x) ref[16 * y + x] = static_cast<uint8_t>(10 + x);
        std::vector<int16_t> diff(64, 0x7777);
        ASSERT_EQ(
            kpliGetDiff8x8_8u16s_C1(cur.data(), 8, ref.data(), 16, diff.data(), 16, nullptr, 0, 8, c.rc), 0);
        for (int y = 0; y < 8; ++y) EXPECT_EQ(diff[8 * y], c.want);
        EXPECT_EQ(diff[7], c.want - 7);
    }
}

TEST(GetDiff, BidirAverageRoundsUp) {
    // f = 10, b = 11, cur = 10: 10 - 11 = -1 at both rounding controls.
    struct Case {
        uint8_t cur, f, b;
        int16_t want;
    } cases[] = {{10, 10, 11, -1}, {0, 255, 254, -255}, {255, 0, 0, 255}, {0, 0, 1, -1}, {7, 8, 8, -1}};
    for (const DiffShapeInfo& s : kShapes)
        for (const auto& c : cases)
            for (int rc : {0, 1}) {
                std::vector<uint8_t> cur(16 * 16, c.cur), rf(17 * 17, c.f), rb(17 * 17, c.b);
                std::vector<int16_t> diff(16 * 16, 0);
                ASSERT_EQ(s.bidir(cur.data(), 16, rf.data(), 17, 12, rb.data(), 17, 4, diff.data(), 32, rc),
                          0);
                EXPECT_EQ(diff[0], c.want) << s.name;
                EXPECT_EQ(diff[16 * (s.h - 1) + s.w - 1], c.want) << s.name;
            }
}

// Public functions against the model for every size, every mcType (pairs for
// the B forms), both rounding controls, with and without the predictor (which
// must then stay untouched); the 4x4 form is the plain difference.
TEST(GetDiff, PublicFunctionsMatchModel) {
    Rng rng(5150);
    SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
    // Checks every cell of the block against want(x, y) and the canaries.
    auto check = [](Bufs& b, const Guarded& out, int out_step, auto want) {
        for (int y = 0; y < b.h; ++y)
            for (int x = 0; x < b.w; ++x)
                ASSERT_EQ(cell(out.data(), out_step, x, y), want(x, y)) << x << "," << y;
        ASSERT_TRUE(b.diff.intact() && b.pred.intact());
    };
    for (const DiffShapeInfo& s : kShapes)
        for (int rc : {0, 1})
            for (int tf = 0; tf < 16; ++tf) {
                SCOPED_TRACE(testing::Message() << s.name << " mcType " << tf << " rc " << rc);
                for (bool with_pred : {false, true}) {
                    Bufs b(rng, s.w, s.h);
                    const std::vector<uint8_t> pred_before = snapshot(b.pred);
                    ASSERT_EQ(s.single(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, b.d16(),
                                       b.diff_step, with_pred ? b.p16() : nullptr, b.pred_step, tf, rc),
                              kplStsNoErr);
                    auto p = [&](int x, int y) { return model_pred(b.ref.data(), b.ref_step, x, y, tf, rc); };
                    check(b, b.diff, b.diff_step,
                          [&](int x, int y) { return px(b.cur.data(), b.cur_step, x, y) - p(x, y); });
                    if (with_pred)
                        check(b, b.pred, b.pred_step, p);
                    else
                        ASSERT_EQ(snapshot(b.pred), pred_before);
                }
                for (int tb = 0; tb < 16; ++tb) {
                    Bufs b(rng, s.w, s.h);
                    ASSERT_EQ(s.bidir(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, tf, b.ref_b.data(),
                                      b.ref_step, tb, b.d16(), b.diff_step, rc),
                              kplStsNoErr);
                    check(b, b.diff, b.diff_step, [&](int x, int y) {
                        const int f = model_pred(b.ref.data(), b.ref_step, x, y, tf, rc);
                        const int bb = model_pred(b.ref_b.data(), b.ref_step, x, y, tb, rc);
                        return px(b.cur.data(), b.cur_step, x, y) - (f + bb + 1) / 2;
                    });
                }
            }
    for (int iter = 0; iter < 200; ++iter) {
        Bufs b(rng, 4, 4);
        ASSERT_EQ(
            kpliGetDiff4x4_8u16s_C1(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, b.d16(), b.diff_step),
            0);
        check(b, b.diff, b.diff_step, [&](int x, int y) {
            return px(b.cur.data(), b.cur_step, x, y) - px(b.ref.data(), b.ref_step, x, y);
        });
    }
}

TEST(CopyBlock, CopiesRowsByTheirOwnSteps) {
    struct Case {
        int n, src_step, dst_step;
    } cases[] = {{16, 16, 16}, {16, 17, 40}, {16, 33, 16}, {8, 8, 8}, {8, 9, 21}, {8, 64, 8}};
    Rng rng(9);
    for (const auto& c : cases) {
        Guarded src(static_cast<size_t>(c.src_step * c.n)), dst(static_cast<size_t>(c.dst_step * c.n));
        rng.fill(src.data(), src.size());
        std::memset(dst.data(), 0xEE, dst.size());
        const KplStatus st = c.n == 16
                                 ? kpliCopyBlock_16x16_8u(src.data(), c.src_step, dst.data(), c.dst_step)
                                 : kpliCopyBlock_8x8_8u(src.data(), c.src_step, dst.data(), c.dst_step);
        ASSERT_EQ(st, kplStsNoErr);
        for (int y = 0; y < c.n; ++y)
            for (int x = 0; x < c.dst_step; ++x)
                ASSERT_EQ(dst.data()[c.dst_step * y + x], x < c.n ? src.data()[c.src_step * y + x] : 0xEE);
        ASSERT_TRUE(dst.intact());
    }
}

// RoundOn is rc 1 and RoundOff rc 0 of the 8x8 motion compensation with a
// zero residual; predType 0..3 picks FF, FH, HF, HH and other values act as HH
// (the rounding itself is pinned by the motion-compensation tests).
TEST(MCBlock, EqualsMotionCompensationWithZeroResidual) {
    Rng rng(31);
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

TEST(GetDiff, NonZeroRoundControlActsAsOne) {
    Rng rng(4343);
    for (const DiffShapeInfo& s : kShapes)
        for (int rc : {2, -1, INT32_MIN, INT32_MAX}) {
            Bufs b(rng, s.w, s.h);
            std::vector<int16_t> one(256), other(256), p1(256), p2(256);
            for (int t : {12, 8, 4}) {
                s.single(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, one.data(), 32, p1.data(), 32, t,
                         1);
                s.single(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, other.data(), 32, p2.data(), 32,
                         t, rc);
                ASSERT_EQ(one, other) << s.name << " rc " << rc;
                ASSERT_EQ(p1, p2);
                s.bidir(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, t, b.ref_b.data(), b.ref_step, 12,
                        one.data(), 32, 1);
                s.bidir(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, t, b.ref_b.data(), b.ref_step, 12,
                        other.data(), 32, rc);
                ASSERT_EQ(one, other) << s.name << " B rc " << rc;
            }
        }
}

// ---- Argument checks ------------------------------------------------------------------

TEST(CopyArgs, NullThenStepWithOwnCodes) {
    struct Case {
        bool src_null, dst_null;
        int src_step, dst_step;
        KplStatus want8, want16;
    } cases[] = {
        {false, true, 7, 7, kplStsNullPtrErr, kplStsNullPtrErr},  // null beats a bad step
        {true, false, 16, 16, kplStsNullPtrErr, kplStsNullPtrErr},
        {false, false, 7, 16, kplStsStep8x8Err, kplStsStep16x16Err},
        {false, false, 16, 7, kplStsStep8x8Err, kplStsStep16x16Err},
        {false, false, 16, 15, kplStsNoErr, kplStsStep16x16Err},
        {false, false, 15, 16, kplStsNoErr, kplStsStep16x16Err},
        {false, false, 8, 8, kplStsNoErr, kplStsStep16x16Err},
        {false, false, -16, 16, kplStsStep8x8Err, kplStsStep16x16Err},
        {false, false, 16, 16, kplStsNoErr, kplStsNoErr},
    };
    std::vector<uint8_t> src(16 * 16, 3);
    for (const auto& c : cases)
        for (int n : {8, 16}) {
            Guarded dst(16 * 16);
            std::memset(dst.data(), 0x42, dst.size());
            const Kpl8u* s = c.src_null ? nullptr : src.data();
            Kpl8u* d = c.dst_null ? nullptr : dst.data();
            const KplStatus st = n == 8 ? kpliCopyBlock_8x8_8u(s, c.src_step, d, c.dst_step)
                                        : kpliCopyBlock_16x16_8u(s, c.src_step, d, c.dst_step);
            EXPECT_EQ(st, n == 8 ? c.want8 : c.want16) << n << " " << c.src_step << " " << c.dst_step;
            if (st != kplStsNoErr) {
                for (size_t i = 0; i < dst.size(); ++i) ASSERT_EQ(dst.data()[i], 0x42);
            }
            EXPECT_TRUE(dst.intact());
        }
}

TEST(MCBlockArgs, NullPointersComeFromTheMotionCompensation) {
    std::vector<uint8_t> ref(16 * 9, 1), dst(64, 5);
    for (auto f : {kpliMCBlock_RoundOn_8u, kpliMCBlock_RoundOff_8u}) {
        EXPECT_EQ(f(nullptr, 16, dst.data(), 8, 0), kplStsNullPtrErr);
        EXPECT_EQ(f(ref.data(), 16, nullptr, 8, 3), kplStsNullPtrErr);
        // Steps are not checked here (no -169 from these).
        EXPECT_EQ(f(ref.data(), 1, dst.data(), 8, 0), kplStsNoErr);
    }
    EXPECT_EQ(std::vector<uint8_t>(dst.begin(), dst.end()), std::vector<uint8_t>(64, 1));
}

// Every required pointer is checked (-8, nothing written); the predictor may
// be null, and steps, mcType and roundControl are not checked.
TEST(GetDiffArgs, OnlyRequiredPointersAreChecked) {
    std::vector<uint8_t> cur_v(17 * 17, 1), ref_v(17 * 17, 2);
    const uint8_t *c = cur_v.data(), *r = ref_v.data();
    for (const DiffShapeInfo& s : kShapes) {
        Guarded diff(2 * 16 * 16), pred(2 * 16 * 16);
        std::memset(diff.data(), 0x33, diff.size());
        std::memset(pred.data(), 0x33, pred.size());
        const std::vector<uint8_t> before = snapshot(diff);
        Kpl16s* d = diff.as<Kpl16s>();
        Kpl16s* p = pred.as<Kpl16s>();
        const KplStatus got[] = {
            s.single(nullptr, 16, r, 17, d, 32, p, 32, 0, 0),
            s.single(c, 16, nullptr, 17, d, 32, p, 32, 0, 0),
            s.single(c, 16, r, 17, nullptr, 32, p, 32, 0, 0),
            s.bidir(nullptr, 16, r, 17, 0, r, 17, 0, d, 32, 0),
            s.bidir(c, 16, nullptr, 17, 0, r, 17, 0, d, 32, 0),
            s.bidir(c, 16, r, 17, 0, nullptr, 17, 0, d, 32, 0),
            s.bidir(c, 16, r, 17, 0, r, 17, 0, nullptr, 32, 0),
            kpliGetDiff4x4_8u16s_C1(nullptr, 4, r, 4, d, 8),
            kpliGetDiff4x4_8u16s_C1(c, 4, nullptr, 4, d, 8),
            kpliGetDiff4x4_8u16s_C1(c, 4, r, 4, nullptr, 8),
        };
        for (size_t i = 0; i < std::size(got); ++i)
            EXPECT_EQ(got[i], kplStsNullPtrErr) << s.name << " case " << i;
        EXPECT_EQ(snapshot(diff), before) << s.name;
        EXPECT_EQ(snapshot(pred), before) << s.name;
        EXPECT_TRUE(diff.intact() && pred.intact());
        EXPECT_EQ(s.single(c, 16, r, 17, d, 32, nullptr, -3, -1, 5), kplStsNoErr);
        EXPECT_EQ(d[0], -1) << s.name;  // 1 - 2 at any position
    }
}

// ---- SIMD variants against the scalar reference -------------------------------------

template <class Fn, class Get>
std::vector<std::pair<kplvc::cpu::Isa, Fn>> changed(Get get) {
    std::vector<std::pair<kplvc::cpu::Isa, Fn>> out;
    Fn prev = get(kplvc::block::blockcopy_kernels_for(kplvc::cpu::Isa::c));
    for (kplvc::cpu::Isa isa : kplvc::test::simd_levels()) {
        const Fn f = get(kplvc::block::blockcopy_kernels_for(isa));
        if (f != prev) out.emplace_back(isa, f);
        prev = f;
    }
    return out;
}

// Runs call(reference?, bufs, diff, pred, rc) for the reference (into copies
// of the outputs) and for the variant on random buffers; whole buffers must
// match.
template <class Call>
void compare(Rng& rng, int w, int h, int iters, Call call) {
    for (int iter = 0; iter < iters; ++iter) {
        const int rc = iter & 1;
        const bool with_pred = (iter & 2) != 0;
        Bufs b(rng, w, h);
        Guarded want_d(b.diff.size()), want_p(b.pred.size());
        std::memcpy(want_d.data(), b.diff.data(), b.diff.size());
        std::memcpy(want_p.data(), b.pred.data(), b.pred.size());
        call(true, b, want_d.as<int16_t>(), with_pred ? want_p.as<int16_t>() : nullptr, rc);
        call(false, b, b.d16(), with_pred ? b.p16() : nullptr, rc);
        ASSERT_EQ(snapshot(b.diff), snapshot(want_d)) << "iter " << iter << " rc " << rc;
        ASSERT_EQ(snapshot(b.pred), snapshot(want_p)) << "iter " << iter;
        ASSERT_TRUE(b.diff.intact() && b.pred.intact());
    }
}

TEST(BlockCopyVariants, DiffMatchesReference) {
    Rng rng(6060);
    SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
    const BlockCopyKernels c = kplvc::block::blockcopy_kernels_for(kplvc::cpu::Isa::c);
    for (const DiffShapeInfo& s : kShapes) {
        for (int pos = 0; pos < 4; ++pos)
            for (auto [isa, fn] :
                 changed<DiffFn>([&](const BlockCopyKernels& k) { return k.diff[s.shape][4 * pos]; })) {
                SCOPED_TRACE(testing::Message()
                             << kplvc::cpu::isa_name(isa) << " " << s.name << " pos " << pos);
                compare(rng, s.w, s.h, 40,
                        [&, fn = fn](bool is_ref, Bufs& b, int16_t* d, int16_t* p, int rc) {
                            (is_ref ? c.diff[s.shape][4 * pos] : fn)(b.cur.data(), b.cur_step, b.ref.data(),
                                                                     b.ref_step, d, b.diff_step, p,
                                                                     b.pred_step, rc);
                        });
            }
        for (int idx = 0; idx < 16; ++idx)
            for (auto [isa, fn] :
                 changed<DiffBFn>([&](const BlockCopyKernels& k) { return k.diff_b[s.shape][idx]; })) {
                SCOPED_TRACE(testing::Message()
                             << kplvc::cpu::isa_name(isa) << " " << s.name << " pair " << idx);
                compare(rng, s.w, s.h, 16, [&, fn = fn](bool is_ref, Bufs& b, int16_t* d, int16_t*, int rc) {
                    (is_ref ? c.diff_b[s.shape][idx] : fn)(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step,
                                                           b.ref_b.data(), b.ref_step, d, b.diff_step, rc);
                });
            }
    }
}

TEST(BlockCopyVariants, CopiesAndFourByFourMatchReference) {
    Rng rng(6061);
    SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
    const BlockCopyKernels c = kplvc::block::blockcopy_kernels_for(kplvc::cpu::Isa::c);
    for (int n : {8, 16})
        for (auto [isa, fn] : changed<kplvc::block::CopyFn>(
                 [n](const BlockCopyKernels& k) { return n == 8 ? k.copy8x8 : k.copy16x16; }))
            for (int iter = 0; iter < 100; ++iter) {
                const int ss = n + rng.range(0, 9), ds = n + rng.range(0, 9);
                Guarded src(static_cast<size_t>(ss * n), static_cast<size_t>(rng.range(0, 31)));
                Guarded dst(static_cast<size_t>(ds * n), static_cast<size_t>(rng.range(0, 31)));
                rng.fill(src.data(), src.size());
                rng.fill(dst.data(), dst.size());
                std::vector<uint8_t> want = snapshot(dst);
                (n == 8 ? c.copy8x8 : c.copy16x16)(src.data(), ss, want.data(), ds);
                fn(src.data(), ss, dst.data(), ds);
                ASSERT_EQ(snapshot(dst), want) << kplvc::cpu::isa_name(isa) << " " << n;
                ASSERT_TRUE(dst.intact());
            }
    for (auto [isa, fn] :
         changed<kplvc::block::Diff4x4Fn>([](const BlockCopyKernels& k) { return k.diff4x4; })) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        compare(rng, 4, 4, 300, [&, fn = fn](bool is_ref, Bufs& b, int16_t* d, int16_t*, int) {
            (is_ref ? c.diff4x4 : fn)(b.cur.data(), b.cur_step, b.ref.data(), b.ref_step, d, b.diff_step);
        });
    }
}

// No kernel reads past the samples its position needs (last needed byte just
// before an unmapped page), at any level; results still match the reference.
TEST(BlockCopyVariants, DiffReadsOnlyTheNeededArea) {
    Rng rng(6062);
    std::vector<kplvc::cpu::Isa> levels{kplvc::cpu::Isa::c};
    for (auto l : kplvc::test::simd_levels()) levels.push_back(l);
    const BlockCopyKernels c = kplvc::block::blockcopy_kernels_for(kplvc::cpu::Isa::c);
    for (auto isa : levels) {
        const BlockCopyKernels k = kplvc::block::blockcopy_kernels_for(isa);
        for (const DiffShapeInfo& s : kShapes)
            for (int pf = 0; pf < 4; ++pf)
                for (int pb = 0; pb < 4; ++pb) {
                    const int step = s.w + 5;
                    auto area = [&](int pos) {
                        return static_cast<size_t>(step * (s.h - 1 + ((pos & 1) ? 1 : 0)) + s.w +
                                                   ((pos & 2) ? 1 : 0));
                    };
                    GuardPages gf(area(pf)), gb(area(pb)), gc(static_cast<size_t>(step * (s.h - 1) + s.w));
                    rng.fill(gf.flush_end(), gf.size());
                    rng.fill(gb.flush_end(), gb.size());
                    rng.fill(gc.flush_end(), gc.size());
                    std::vector<int16_t> d(256), p(256), wd(256), wp(256);
                    k.diff[s.shape][4 * pf + 1](gc.flush_end(), step, gf.flush_end(), step, d.data(), 32,
                                                p.data(), 32, 1);
                    c.diff[s.shape][4 * pf + 1](gc.flush_end(), step, gf.flush_end(), step, wd.data(), 32,
                                                wp.data(), 32, 1);
                    ASSERT_EQ(d, wd);
                    ASSERT_EQ(p, wp);
                    k.diff_b[s.shape][pf | (pb << 2)](gc.flush_end(), step, gf.flush_end(), step,
                                                      gb.flush_end(), step, d.data(), 32, 0);
                    c.diff_b[s.shape][pf | (pb << 2)](gc.flush_end(), step, gf.flush_end(), step,
                                                      gb.flush_end(), step, wd.data(), 32, 0);
                    ASSERT_EQ(d, wd) << kplvc::cpu::isa_name(isa) << " " << s.name;
                }
        GuardPages g(3 * 7 + 4);
        rng.fill(g.flush_end(), g.size());
        std::vector<int16_t> d(16), wd(16);
        k.diff4x4(g.flush_end(), 7, g.flush_end(), 7, d.data(), 8);
        c.diff4x4(g.flush_end(), 7, g.flush_end(), 7, wd.data(), 8);
        ASSERT_EQ(d, wd);
        GuardPages g8(7 * 9 + 8), g16(15 * 17 + 16);
        std::vector<uint8_t> out(16 * 16);
        k.copy8x8(g8.flush_end(), 9, out.data(), 8);
        k.copy16x16(g16.flush_end(), 17, out.data(), 16);
    }
}

}  // namespace
