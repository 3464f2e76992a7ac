// Argument checks of every motion-estimation function, in the order the
// header documents. The search record's checks are the same for every
// search: one list, spliced into each function's own.
#include <gtest/gtest.h>

#include <vector>

#include "kplvc.h"
#include "support/args.h"

using namespace kplvc::test;

namespace {

// A window of 5x5 displacements around zero: the reference area holds its
// blocks, n + 4 square, and the co-located block sits at (2, 2).
constexpr KpliRect kWindow{-2, -2, 5, 5};
constexpr KplMESearch kGood{kWindow, {0, 0}, 4, 1, 0, KPLVC_ME_TIE_RASTER};

struct Bench {
    ArgPool p;
    int n;
    int32_t step;
    const Kpl8u* cur;
    const Kpl8u* ref;
    const Kpl16u* sums;
    KplMESearch base = kGood;  // what record() edits
    explicit Bench(int side) : n(side), step(side + 4) {
        cur = p.take<Kpl8u>(static_cast<size_t>(n) * n);
        ref = p.take<Kpl8u>(static_cast<size_t>(step) * step) + 2 * step + 2;
        sums = p.take<Kpl16u>(5 * 5) + 2 * 5 + 2;
    }
    const void* record(void (*edit)(KplMESearch&)) {
        KplMESearch s = base;
        edit(s);
        return p.take<KplMESearch>({s});
    }
    // The window size (with the null pointers' list before it), then the
    // steps, then the rest of the record.
    std::vector<Arg> list(std::vector<Arg> nulls, size_t rec, std::vector<Arg> steps,
                          std::vector<Arg> after = {}) {
        std::vector<Arg> v = nulls;
        v.push_back(fails(rec, record([](KplMESearch& s) { s.window.width = 0; }), kplStsSizeErr));
        v.push_back(fails(rec, record([](KplMESearch& s) { s.window.height = -1; }), kplStsSizeErr));
        v.insert(v.end(), steps.begin(), steps.end());
        const std::vector<Arg> fields = {
            fails(rec, record([](KplMESearch& s) { s.fcode = 0; }), kplStsFcodeErr),
            fails(rec, record([](KplMESearch& s) { s.fcode = 8; }), kplStsFcodeErr),
            fails(rec, record([](KplMESearch& s) { s.quarterSample = 2; }), kplStsModeErr),
            fails(rec, record([](KplMESearch& s) { s.tieRule = 3; }), kplStsBadArgErr),
            fails(rec, record([](KplMESearch& s) { s.lambda = -1; }), kplStsBadArgErr),
            fails(rec, record([](KplMESearch& s) { s.lambda = 65536; }), kplStsBadArgErr),
            // fcode 1 reaches -32..31 half samples: displacements -16..15.
            fails(rec, record([](KplMESearch& s) { s.window.x = -17; }), kplStsBadArgErr),
            fails(rec, record([](KplMESearch& s) { s.window.y = 12; }), kplStsBadArgErr),
            fails(rec, record([](KplMESearch& s) {
                      s.pred = {32, 0};
                  }),
                  kplStsBadArgErr),
            fails(rec, record([](KplMESearch& s) {
                      s.pred = {0, -33};
                  }),
                  kplStsBadArgErr),
            passes(rec, record([](KplMESearch& s) {
                       s.pred = {31, -32};
                   })),
        };
        v.insert(v.end(), fields.begin(), fields.end());
        v.insert(v.end(), after.begin(), after.end());
        return v;
    }
};

}  // namespace

TEST(MeArgs, BlockSums) {
    for (int n : {16, 8}) {
        ArgPool p;
        const Kpl8u* src = p.take<Kpl8u>(static_cast<size_t>(n + 3) * (n + 1));
        Kpl16u* dst = p.take<Kpl16u>(8);
        const auto fn = n == 16 ? kpliBlockSums16x16_8u16u_C1R : kpliBlockSums8x8_8u16u_C1R;
        p.check("block sums", fn, {src, n + 3, dst, 8, KpliSize{4, 2}},
                {null(0), null(2), fails(4, KpliSize{0, 2}, kplStsSizeErr),
                 fails(4, KpliSize{4, 0}, kplStsSizeErr), fails(1, n + 2, kplStsStepErr),
                 fails(3, 7, kplStsStepErr), passes(3, 9)});
    }
}

TEST(MeArgs, Searches) {
    for (int n : {16, 8}) {
        Bench b(n);
        const KplMESearch* good = b.p.take<KplMESearch>({kGood});
        KplMotionVector* mv = b.p.take<KplMotionVector>();
        Kpl32s* sad = b.p.take<Kpl32s>();
        const std::vector<Arg> steps = {fails(1, n - 1, kplStsStepErr), fails(3, n + 3, kplStsStepErr),
                                        passes(3, n + 5)};

        const auto full = n == 16 ? kpliSearchFull16x16_8u32s_C1R : kpliSearchFull8x8_8u32s_C1R;
        b.p.check("full search", full, {b.cur, n, b.ref, b.step, good, mv, sad},
                  b.list({null(0), null(2), null(4), null(5), null(6)}, 4, steps));

        // The sum plane's step is checked when a plane is given (a null
        // plane, which makes the step irrelevant, is the search tests' case).
        const auto sea = n == 16 ? kpliSearchSEA16x16_8u32s_C1R : kpliSearchSEA8x8_8u32s_C1R;
        const std::vector<Arg> sea_steps = {fails(1, n - 1, kplStsStepErr), fails(3, n + 3, kplStsStepErr),
                                            fails(5, 9, kplStsStepErr)};
        b.p.check("SEA", sea, {b.cur, n, b.ref, b.step, b.sums, 10, good, mv, sad},
                  b.list({null(0), null(2), null(6), null(7), null(8)}, 6, sea_steps));
        if (n == 16) {
            // The 8x8 sums reach 8 cells past the window: 13 x 13 of them.
            const Kpl16u* sums8 = b.p.take<Kpl16u>(13 * 13) + 2 * 13 + 2;
            const std::vector<Arg> q_steps = {fails(1, 15, kplStsStepErr), fails(3, 19, kplStsStepErr),
                                              fails(5, 25, kplStsStepErr), passes(5, 26)};
            b.p.check("SEA quarters", kpliSearchSEAQuarters16x16_8u32s_C1R,
                      {b.cur, n, b.ref, b.step, sums8, 26, good, mv, mv, sad},
                      b.list({null(0), null(2), null(6), null(8), null(9)}, 6, q_steps));
        }

        const auto fast = n == 16 ? kpliSearchMVFAST16x16_8u32s_C1R : kpliSearchMVFAST8x8_8u32s_C1R;
        const KplMVFAST ok{{{4, 2}, {0, 0}, {-6, 2}}, 7, 1, 2, 256};
        const auto params = [&](Kpl32s available, Kpl32s low, Kpl32s high, Kpl32s stop) {
            KplMVFAST m = ok;
            m.available = available;
            m.activityLow = low;
            m.activityHigh = high;
            m.stopSAD = stop;
            return static_cast<const void*>(b.p.take<KplMVFAST>({m}));
        };
        b.p.check("MVFAST", fast, {b.cur, n, b.ref, b.step, good, b.p.take<KplMVFAST>({ok}), mv, sad},
                  b.list({null(0), null(2), null(4), null(5), null(6), null(7)}, 4, steps,
                         {fails(5, params(8, 1, 2, 256), kplStsBadArgErr),
                          fails(5, params(-1, 1, 2, 256), kplStsBadArgErr),
                          fails(5, params(7, -1, 2, 256), kplStsBadArgErr),
                          fails(5, params(7, 3, 2, 256), kplStsBadArgErr),
                          fails(5, params(7, 1, 2, -1), kplStsBadArgErr), passes(5, params(0, 0, 0, 0))}));

        // The centre must lie in the window scaled to half samples; the
        // record must be in half samples.
        const auto half = n == 16 ? kpliRefineHalf16x16_8u32s_C1R : kpliRefineHalf8x8_8u32s_C1R;
        const auto centre = [&](Kpl16s x, Kpl16s y) {
            return static_cast<const void*>(b.p.take<KplMotionVector>({{x, y}}));
        };
        KplMotionVector* c = b.p.take<KplMotionVector>({{1, -3}});
        const auto quarter = b.record([](KplMESearch& s) { s.quarterSample = 1; });
        b.p.check("half refinement", half, {b.cur, n, b.ref, b.step, good, 0, c, sad},
                  b.list({null(0), null(2), null(4), null(6), null(7)}, 4, steps,
                         {fails(4, quarter, kplStsBadArgErr), fails(6, centre(-5, 0), kplStsBadArgErr),
                          fails(6, centre(0, 5), kplStsBadArgErr), passes(6, centre(4, -4)),
                          fails(5, 2, kplStsMode2Err), passes(5, 1)}));

        // Quarter samples: the record must say so, the centre lies in the
        // window scaled by 4, and the step is 1 or 2.
        const auto qpel = n == 16 ? kpliRefineQPel16x16_8u32s_C1R : kpliRefineQPel8x8_8u32s_C1R;
        KplMotionVector* qc = b.p.take<KplMotionVector>({{5, -7}});
        const auto in_half = b.record([](KplMESearch& s) { s.quarterSample = 0; });
        b.base.quarterSample = 1;
        const auto* qgood = static_cast<const KplMESearch*>(b.record([](KplMESearch&) {}));
        b.p.check("quarter refinement", qpel, {b.cur, n, b.ref, b.step, qgood, 0, 1, qc, sad},
                  b.list({null(0), null(2), null(4), null(7), null(8)}, 4, steps,
                         {fails(4, in_half, kplStsBadArgErr), fails(7, centre(-9, 0), kplStsBadArgErr),
                          fails(7, centre(0, 9), kplStsBadArgErr), passes(7, centre(8, -8)),
                          fails(5, 2, kplStsMode2Err), passes(5, 1), fails(6, 0, kplStsBadArgErr),
                          fails(6, 3, kplStsBadArgErr), passes(6, 2)}));
    }
}
