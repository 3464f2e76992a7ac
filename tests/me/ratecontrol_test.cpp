// The rate control against sequences whose bits follow the quadratic model
// with known parameters: the fit must find them (and ignore an outlier), the
// quantiser must be the model's root within the change limits, the buffer
// must skip exactly when it overflows, and a closed loop must spend its
// budget.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kplvc.h"
#include "support/args.h"

using namespace kplvc::test;

namespace {

// Texture bits of the model, rounded as a coder's count would be.
int model_bits(double x1, double x2, int q, double s) {
    return static_cast<int>(std::lround(s * (x1 / q + x2 / (q * q))));
}

KplRateControl_MPEG4 start(int rate = 256000, int vops = 300, int qp = 8) {
    KplRateControl_MPEG4 st;
    EXPECT_EQ(kpliRateControlInit_MPEG4(&st, rate, 25, 1, vops, rate, qp), kplStsNoErr);
    return st;
}

}  // namespace

// Known (X1, X2); quantisers cycling so that the fit is determined, and
// complexities varying by a few percent (the window stays near 20 entries).
TEST(MeRateControl, FitFindsKnownParameters) {
    struct Case {
        const char* name;
        double x1, x2;
        int outlier_at;  // VOP whose bits are tripled, or -1
    };
    const Case cases[] = {
        {"first-order", 2.5, 0.0, -1},          {"quadratic", 1.2, 9.0, -1},
        {"negative X2", 4.0, -3.0, -1},         {"outlier dropped", 1.2, 9.0, 27},
        {"outlier, first-order", 2.5, 0.0, 25},
    };
    const int qs[] = {5, 7, 10, 13, 17, 8};
    for (const Case& c : cases) {
        KplRateControl_MPEG4 st = start(4000000);
        for (int i = 0; i < 30; ++i) {
            const int q = qs[i % 6];
            const double s = 3000.0 + 70.0 * (i % 5);
            int bits = model_bits(c.x1, c.x2, q, s) * (i == c.outlier_at ? 3 : 1);
            ASSERT_EQ(kpliRateControlUpdate_MPEG4(&st, q, bits + 150, 150, s, nullptr), kplStsNoErr);
        }
        EXPECT_NEAR(st.x1, c.x1, 0.01 * c.x1) << c.name;
        EXPECT_NEAR(st.x2, c.x2, 0.02 * std::fabs(c.x2) + 0.05) << c.name;
        EXPECT_EQ(st.count, KPLVC_RC_WINDOW) << c.name;
    }
}

// A change of complexity shortens the window: at four times the last VOP's
// complexity only ceil(20 / 4) = 5 entries count, so after five such VOPs
// the older regime is forgotten entirely.
TEST(MeRateControl, WindowFollowsComplexity) {
    KplRateControl_MPEG4 st = start(4000000);
    for (int i = 0; i < 20; ++i)
        kpliRateControlUpdate_MPEG4(&st, 10, model_bits(2.0, 0, 10, 200) + 100, 100, 200, nullptr);
    EXPECT_NEAR(st.x1, 2.0, 0.01);
    double s = 200;
    for (int i = 0; i < 5; ++i) {
        s *= 4;
        kpliRateControlUpdate_MPEG4(&st, 10, model_bits(3.0, 0, 10, s) + 100, 100, s, nullptr);
    }
    EXPECT_NEAR(st.x1, 3.0, 0.001);
    EXPECT_EQ(st.x2, 0.0);  // one quantiser in the window: first order
}

// The quantiser against the header's words solved another way: the root of
// t Q^2 - X1 S Q - X2 S by bisection, rounded and limited; the target from
// the buffer rules.
TEST(MeRateControl, QuantiserAndTarget) {
    struct Case {
        double x1, x2, level, mad;
        int qp, header;
    };
    const Case cases[] = {
        {2.0, 0.0, 0.5, 300, 10, 200}, {1.0, 8.0, 0.5, 500, 12, 300},
        {1.0, 8.0, 0.5, 5, 12, 300},  // limit below
        {6.0, 40.0, 0.5, 900, 4, 50},  {2.0, -3.0, 0.3, 250, 20, 100},
        {2.0, 5.0, 0.85, 400, 9, 100},                               // buffer high
        {2.0, 5.0, 0.05, 400, 9, 100}, {3.0, 0.0, 0.5, 0, 16, 100},  // mad 0
    };
    for (const Case& c : cases) {
        KplRateControl_MPEG4 st = start();
        st.x1 = c.x1;
        st.x2 = c.x2;
        st.count = 5;  // entries the quantiser does not read, only checks
        for (int i = 0; i < 5; ++i) st.histQP[i] = 6, st.histBits[i] = 1000, st.histMAD[i] = 100;
        st.qp = c.qp;
        st.lastBits = 9000;
        st.lastHeaderBits = c.header;
        st.bufferLevel = c.level * st.bufferSize;
        st.bitsLeft = 2.7e6;
        st.vopsLeft = 250;

        const double rs = st.bitRate, rp = st.bitsPerVOP, bs = st.bufferSize, b = st.bufferLevel;
        double t = std::max(0.95 * st.bitsLeft / st.vopsLeft + 0.05 * st.lastBits, rs / 30);
        t = t * (b + 2 * (bs - b)) / (2 * b + (bs - b));
        if (b + t > 0.9 * bs)
            t = std::max(rs / 30, 0.9 * bs - b);
        else if (b - rp + t < 0.1 * bs)
            t = rp - b + 0.1 * bs;
        const double tex = std::max(t - c.header, rp / 8);
        const int lo = std::max(1, static_cast<int>(std::floor(0.75 * c.qp)));
        const int hi = std::min(31, static_cast<int>(std::ceil(1.25 * c.qp)));
        int want = lo;
        if (c.mad > 0) {
            // bits(Q) = S (X1 / Q + X2 / Q^2) - tex falls through zero once on (0.1, 1000).
            const auto f = [&](double q) { return c.mad * (c.x1 / q + c.x2 / (q * q)) - tex; };
            double a = 0.1, z = 1000;
            for (int k = 0; k < 200; ++k) (f((a + z) / 2) > 0 ? a : z) = (a + z) / 2;
            want = std::clamp(static_cast<int>(std::lround(a)), lo, hi);
        }
        Kpl32s q = -1, target = -1;
        ASSERT_EQ(kpliRateControlQP_MPEG4(&st, c.mad, &q, &target), kplStsNoErr);
        EXPECT_EQ(q, want) << "x1 " << c.x1 << " x2 " << c.x2 << " mad " << c.mad << " qp " << c.qp;
        EXPECT_EQ(target, std::lround(t)) << "buffer level " << c.level;
    }
}

// Skipping: a VOP that fills the buffer beyond 80% skips as many VOPs as it
// takes to drain it below.
TEST(MeRateControl, SkipsOnOverflow) {
    for (int big : {0, 100000, 200000, 400000}) {
        KplRateControl_MPEG4 st = start(256000);
        const double rp = st.bitsPerVOP;
        double level = std::max(0.0, st.bufferLevel + big - rp);
        int want = 0;
        while (level > 0.8 * st.bufferSize) level -= rp, ++want;
        Kpl32s skip = -1;
        ASSERT_EQ(kpliRateControlUpdate_MPEG4(&st, 8, big, 0, 100, &skip), kplStsNoErr);
        EXPECT_EQ(skip, want) << big << " bits";
        EXPECT_EQ(st.vopsLeft, 300 - 1 - want);
        EXPECT_LE(st.bufferLevel, 0.8 * st.bufferSize);
    }
}

// A closed loop: a coder whose bits follow the model (with complexity that
// drifts and jumps) spends its budget within 5%, every quantiser in 1..31.
TEST(MeRateControl, ClosedLoopMeetsTheBudget) {
    for (int rate : {96000, 256000, 768000}) {
        const int vops = 250;
        KplRateControl_MPEG4 st = start(rate, vops, 10);
        double spent = 0;
        int coded = 0;
        for (int i = 0; i < vops; ++i) {
            const double s = (i < 120 ? 4000.0 : 9000.0) + 500.0 * std::sin(i * 0.3);
            Kpl32s q;
            ASSERT_EQ(kpliRateControlQP_MPEG4(&st, s, &q, nullptr), kplStsNoErr);
            ASSERT_GE(q, 1);
            ASSERT_LE(q, 31);
            const int bits = model_bits(3.0, 40.0, q, s) + 400;
            Kpl32s skip;
            ASSERT_EQ(kpliRateControlUpdate_MPEG4(&st, q, bits, 400, s, &skip), kplStsNoErr);
            spent += bits;
            ++coded;
            i += skip;
        }
        const double budget = static_cast<double>(rate) * vops / 25;
        EXPECT_NEAR(spent / budget, 1.0, 0.05) << rate << " bit/s, " << coded << " VOPs coded";
    }
}

TEST(MeArgs, RateControl) {
    ArgPool p;
    auto* st = p.take<KplRateControl_MPEG4>();
    p.check("init", kpliRateControlInit_MPEG4, {st, 256000, 25, 1, 100, 256000, 8},
            {null(0), fails(1, 0, kplStsBadArgErr), fails(2, 0, kplStsBadArgErr),
             fails(3, 0, kplStsBadArgErr), fails(4, 0, kplStsBadArgErr), fails(5, 20479, kplStsBadArgErr),
             passes(5, 20480), fails(6, 0, kplStsMPEG4QPErr), fails(6, 32, kplStsMPEG4QPErr), passes(6, 31)});
    kpliRateControlInit_MPEG4(st, 256000, 25, 1, 100, 256000, 8);
    // States no call can leave behind: each field that could make a call
    // index past the history, loop for ever or compute with NaN.
    const auto broken = [&](void (*edit)(KplRateControl_MPEG4&)) {
        KplRateControl_MPEG4 b = *st;
        edit(b);
        return fails(0, static_cast<const void*>(p.take<KplRateControl_MPEG4>({b})), kplStsBadArgErr);
    };
    const std::vector<Arg> states = {
        broken([](KplRateControl_MPEG4& b) { b.count = KPLVC_RC_WINDOW + 1; }),
        broken([](KplRateControl_MPEG4& b) { b.count = -1; }),
        broken([](KplRateControl_MPEG4& b) { b.bitsPerVOP = 0; }),
        broken([](KplRateControl_MPEG4& b) { b.bufferLevel = INFINITY; }),
        broken([](KplRateControl_MPEG4& b) { b.x1 = NAN; }),
        broken([](KplRateControl_MPEG4& b) { b.qp = 0; }),
        broken([](KplRateControl_MPEG4& b) { b.count = 1, b.histQP[0] = 40; }),
        broken([](KplRateControl_MPEG4& b) {
            b.count = 1, b.histQP[0] = 4, b.histBits[0] = 10, b.histMAD[0] = 0;
        }),
    };
    Kpl32s* q = p.take<Kpl32s>(2);
    p.check("QP", kpliRateControlQP_MPEG4, {st, 10.0, q, q + 1},
            {null(0), null(2), passes(3, nullptr), fails(1, -1.0, kplStsBadArgErr),
             fails(1, NAN, kplStsBadArgErr)});
    std::vector<Arg> update_list = {null(0)};
    update_list.insert(update_list.end(), states.begin(), states.end());
    for (const Arg& a :
         {fails(1, 0, kplStsMPEG4QPErr), fails(1, 32, kplStsMPEG4QPErr), fails(2, -1, kplStsBadArgErr),
          fails(3, -1, kplStsBadArgErr), fails(3, 5001, kplStsBadArgErr), passes(3, 5000),
          fails(4, -0.5, kplStsBadArgErr), fails(4, NAN, kplStsBadArgErr), passes(5, nullptr)})
        update_list.push_back(a);
    Kpl32s* skip = p.take<Kpl32s>(1);
    p.check("Update", kpliRateControlUpdate_MPEG4, {st, 10, 5000, 100, 5.0, skip}, update_list);
}
