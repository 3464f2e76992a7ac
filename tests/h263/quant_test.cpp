// H.263 quantisers: the reconstruction rule, its 16-bit full-block form, the
// compact forms, the single-precision forward quantisers, and the checks.
#include <cmath>
#include <cstring>
#include <vector>

#include "h263/quant.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::h263::QuantKernels;
using kplvc::test::Rng;

TEST(H263Quant, ReconstructionRule) {
    struct Case {
        int16_t level;
        int qp;
        int16_t want;
    };
    const Case cases[] = {{1, 2, 5},      {1, 3, 9},        {-1, 3, -9},    {-1, 2, -5},    {0, 7, 0},
                          {40, 31, 2047}, {-40, 31, -2048}, {33, 31, 2047}, {32, 31, 2015}, {-33, 31, -2048}};
    for (const auto& c : cases) {
        int16_t blk[64] = {};
        blk[5] = c.level;
        blk[0] = c.level;
        ASSERT_EQ(kpliQuantInv_H263_C1I(blk, c.qp), kplStsNoErr);
        EXPECT_EQ(blk[5], c.want) << c.level << " qp " << c.qp;
        EXPECT_EQ(blk[0], c.want);
        int16_t compact[2] = {c.level, c.level};
        ASSERT_EQ(kpliQuantInvInter_Compact_H263_16s_I(compact, 2, c.qp), kplStsNoErr);
        EXPECT_EQ(compact[1], c.want);
    }
}

TEST(H263Quant, FullBlockProductsWrapIn16Bits) {
    // 2*16*2048 = 65536 wraps to 0 and gives 0; the compact (32-bit) form
    // clamps the same level to 2047.
    int16_t blk[64] = {};
    blk[9] = 2048;
    blk[10] = 1500;    // 93000 wraps to 27464, + 31 -> clamp 2047
    blk[11] = 1057;    // 2*31*1057 = 65534 wraps to -2: -2 + 31 = 29
    blk[12] = -1057;   // the sign applies after the wrap: -29
    blk[13] = -32768;  // |L| stays 0x8000; 0x8000 * 2 wraps to 0: 0
    kpliQuantInv_H263_C1I(blk, 16);
    EXPECT_EQ(blk[9], 0);
    int16_t b31[64] = {};
    b31[10] = 1500, b31[11] = 1057, b31[12] = -1057, b31[13] = -32768;
    kpliQuantInv_H263_C1I(b31, 31);
    EXPECT_EQ(b31[10], 2047);
    EXPECT_EQ(b31[11], 29);
    EXPECT_EQ(b31[12], -29);
    EXPECT_EQ(b31[13], 0);
    int16_t compact[1] = {2048};
    kpliQuantInvInter_Compact_H263_16s_I(compact, 1, 16);
    EXPECT_EQ(compact[0], 2047);
}

TEST(H263Quant, IntraFormsKeepOrMapTheDC) {
    int16_t blk[64];
    for (int i = 0; i < 64; ++i) blk[i] = static_cast<int16_t>(i - 20);
    kpliQuantInvIntra_H263_C1I(blk, 5);
    EXPECT_EQ(blk[0], -20);
    EXPECT_EQ(blk[1], -(2 * 5 * 19 + 5));
    for (auto [dc, want] : {std::pair<int16_t, int16_t>{255, 1024}, {1, 8}, {254, 2032}, {128, 1024}}) {
        int16_t c[3] = {dc, 1, -2};
        ASSERT_EQ(kpliQuantInvIntra_Compact_H263_16s_I(c, 3, 4), kplStsNoErr);
        EXPECT_EQ(c[0], want);
        EXPECT_EQ(c[1], 11);
        EXPECT_EQ(c[2], -19);
    }
}

// QP in and out of 1..31: the full-block forms do not check it.
TEST(H263Quant, VariantsMatchReference) {
    kplvc::test::check_variants(kplvc::h263::quant_kernels_for, &QuantKernels::quant_inv16,
                                "h263 quant_inv16", 20000, [](kplvc::test::Arena& a, Rng& rng, int i) {
                                    auto blk = a.out<int16_t>(64);
                                    if (i % 4 == 1) rng.fill_extreme(a[blk], 64);
                                    if (i % 4 == 2) rng.fill(a[blk], 64, -200, 200);
                                    if (i % 4 == 3)
                                        kplvc::test::dct_coefficients(rng, a[blk], true, rng.range(2, 62));
                                    const int qp = i % 5 == 0 ? rng.range(-70000, 70000) : rng.range(1, 31);
                                    return [=](auto f, kplvc::test::Arena& x) { f(x[blk], i & 1, qp); };
                                });
}

TEST(H263Quant, ForwardQuantisersInSinglePrecision) {
    Rng rng(14);
    for (int iter = 0; iter < 3000; ++iter) {
        const int qp = rng.range(1, 40);
        int16_t x[64], inter[64], intra[64];
        rng.fill(x, 64, -4000, 4000);
        for (int i = 0; i < 64; ++i)
            if (rng.range(0, 2) == 0) x[i] = 0;
        std::memcpy(inter, x, sizeof x);
        std::memcpy(intra, x, sizeof x);
        int last_inter = 99, last_intra = 99;
        ASSERT_EQ(kpliQuant_H263_C1I(inter, qp, &last_inter), kplStsNoErr);
        ASSERT_EQ(kpliQuantIntra_H263_C1I(intra, qp, &last_intra), kplStsNoErr);
        const float m = static_cast<float>(0.5 / qp);
        int want_inter = -1, want_intra = -1;
        for (int i = 0; i < 64; ++i) {
            const float prod = static_cast<float>(x[i]) * m;
            double vi = x[i] > 0 ? double{prod} - 0.25 : (x[i] < 0 ? double{prod} + 0.25 : 0.0);
            const int qi = static_cast<int>(std::fmax(-2047.0, std::fmin(2047.0, std::trunc(vi))));
            const int qa =
                i == 0 ? x[0]
                       : static_cast<int>(std::fmax(-2047.0, std::fmin(2047.0, std::trunc(double{prod}))));
            ASSERT_EQ(inter[i], qi) << "x " << x[i] << " qp " << qp;
            ASSERT_EQ(intra[i], qa) << "x " << x[i] << " qp " << qp;
            if (qi != 0) want_inter = i;
            if (i > 0 && qa != 0) want_intra = i;
        }
        ASSERT_EQ(last_inter, want_inter);
        ASSERT_EQ(last_intra, want_intra);
    }
    // An intra block without AC levels: no last index.
    int last = 0;
    int16_t dc_only[64] = {500};
    kpliQuantIntra_H263_C1I(dc_only, 3, &last);
    EXPECT_EQ(dc_only[0], 500);
    EXPECT_EQ(last, -1);
}

TEST(H263Quant, ChecksInOrder) {
    kplvc::test::ArgPool p;
    Kpl16s* blk = p.take<Kpl16s>(64);
    int* last = p.take<int>(1);
    for (auto f : {kpliQuantInv_H263_C1I, kpliQuantInvIntra_H263_C1I})
        CHECK_ARGS(p, f, {blk, 3}, {null(0), passes(1, 0)});
    for (auto f : {kpliQuantInvInter_Compact_H263_16s_I, kpliQuantInvIntra_Compact_H263_16s_I})
        CHECK_ARGS(p, f, {blk, 5, 3},
                   {null(0), fails(1, 0, kplStsSizeErr), fails(2, 0, kplStsH263QPErr),
                    fails(2, 32, kplStsH263QPErr)});
    for (auto f : {kpliQuant_H263_C1I, kpliQuantIntra_H263_C1I})
        CHECK_ARGS(p, f, {blk, 3, last}, {null(0), null(2), fails(1, 0, kplStsH263QPErr), passes(1, 1000)});
}
