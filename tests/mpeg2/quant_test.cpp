// The MPEG-1/2 and MPEG-4 quantisers. The inverse quantisers of both share
// their arithmetic (16-bit wrapping products, truncating division by a power
// of two, clamp, mismatch control on coefficient 63) and differ only in the
// divisors, so one set of tests covers both; the MPEG-2 forward quantisers
// work in single precision with reciprocal weights.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "kplvc.h"
#include "mpeg2/quant.h"
#include "mpeg4/quant.h"
#include "support/args.h"
#include "support/code_lists.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::test::Arena;
using kplvc::test::Rng;

namespace {

struct Block {
    int16_t v[64] = {};
};

Block flat(int16_t w) {
    Block b;
    for (auto& x : b.v) x = w;
    return b;
}

int32_t block_sum(const int16_t* b) {
    int32_t s = 0;
    for (int i = 0; i < 64; ++i) s += b[i];
    return s;
}

// Division truncated toward zero, clamped: the meaning of the lane arithmetic
// as long as no 16-bit product wraps.
int16_t div_clamp(int64_t num, int64_t den) {
    const int64_t v = num / den;
    return static_cast<int16_t>(v < -2048 ? -2048 : (v > 2047 ? 2047 : v));
}

using InvFn = KplStatus (*)(Kpl16s*, Kpl32s, const Kpl16s*);

// c·QP·W / intra_div (intra), (2c + sgn c)·QP·W / inter_div, (2c + sgn c)·QP / flat_div.
struct Format {
    const char* name;
    InvFn intra, inter;
    int intra_div, inter_div, flat_div;
};
const Format kMpeg2{"MPEG-2", kpliQuantInvIntra_MPEG2_16s_C1I, kpliQuantInv_MPEG2_16s_C1I, 16, 32, 2};
const Format kMpeg4{"MPEG-4", kpliQuantInvIntra_MPEG4_16s_C1I, kpliQuantInv_MPEG4_16s_C1I, 8, 16, 1};

enum Form { kIntra, kInterW, kInterFlat };

KplStatus inv(const Format& f, Form form, int16_t* b, int32_t qp, const int16_t* w) {
    return form == kIntra ? f.intra(b, qp, w) : f.inter(b, qp, form == kInterW ? w : nullptr);
}

}  // namespace

// ---- Behaviour: inverse ----------------------------------------------------------

// One coefficient `c` at `pos` (9 or 63; 0: none) besides the DC: products
// that wrap in 16 bits, QP outside 1..31, and mismatch control on the last
// coefficient (the random test below covers the plain truncating division).
TEST(QuantInv, WorkedCases) {
    struct Case {
        const Format& f;
        Form form;
        int16_t dc;
        int pos;
        int16_t c;
        int32_t qp;
        int16_t w, want_dc, want_pos, want_last;
        const char* what;
    };
    const Case cases[] = {
        {kMpeg2, kIntra, 0, 9, 1000, 3, 16, 0, -1096, 1, "1000*3*16 wraps"},
        {kMpeg2, kIntra, 0, 63, 1000, 3, 16, 0, -1095, -1095, "wraps, then the last toggles"},
        {kMpeg2, kIntra, 0, 9, 2047, 31, 16, 0, 2017, 0, "products wrap twice"},
        {kMpeg2, kIntra, 0, 9, -2048, 31, 16, 0, -2048, 1, "-2048*31*16 wraps to -32768"},
        {kMpeg2, kIntra, 0, 9, 1000, 65536 + 3, 16, 0, -1096, 1, "QP uses its low 16 bits"},
        {kMpeg2, kIntra, 0, 9, -32768, -1, 1, 0, -2048, 1, "c*q wraps, QP -1"},
        {kMpeg2, kInterFlat, 0, 9, 2047, 31, 0, 0, -2048, 1, "flat 2047 QP 31 wraps"},
        {kMpeg2, kInterFlat, 0, 63, -2047, 31, 0, 0, 2047, 2047, "flat -2047 QP 31 wraps"},
        {kMpeg2, kInterFlat, 0, 9, 300, -2, 0, 0, -601, 0, "flat negative QP"},
        {kMpeg2, kInterW, 0, 9, 2047, 31, 16, 0, -16, 1, "W16 2047 QP 31 wraps"},
        {kMpeg2, kInterW, 0, 9, 5, -7, 16, 0, -39, 0, "W16 5 QP -7"},
        {kMpeg2, kInterW, 0, 9, -3, 0, 16, 0, 0, 1, "W16 QP 0"},
        // Mismatch control beyond the random model's range: QP 1 maps every
        // non-intra c to (2c + sgn c)·16/32 = c.
        {kMpeg2, kIntra, -32768, 63, 0, 1, 16, -32768, 1, 1, "DC -32768 kept, even: last 1"},
        {kMpeg2, kInterFlat, 1, 63, 2047, 1, 0, 1, 2046, 2046, "max 2047 even sum with DC 1 -> 2046"},
        {kMpeg2, kInterFlat, 0, 63, -2047, 1, 0, 0, -2047, -2047, "-2047 at last, odd sum, kept"},
        {kMpeg4, kIntra, 1, 9, -1, 1, 8, 1, -1, 1, "-1 QP 1 W 8: (-8 + 7) >> 3"},
        {kMpeg4, kIntra, 1, 9, 2047, 31, 16, 1, 2047, 1, "2047 QP 31 W 16 wraps to 4034, clamped"},
        {kMpeg4, kIntra, -32768, 9, 0, 31, 16, -32768, 0, 1, "DC never scaled"},
        {kMpeg4, kInterFlat, 2, 0, 0, 4, 0, 20, 0, 1, "flat no shift: 2 QP 4 -> 20, even"},
        {kMpeg4, kInterFlat, 0, 9, 1000, 31, 0, 0, -2048, 1, "flat 1000 QP 31 wraps to -3505 -> -2048"},
        {kMpeg4, kInterW, 0, 9, 2047, 31, 16, 0, -31, 0, "W16 2047 QP 31 wraps to -31 (flat: -2048)"},
        {kMpeg4, kInterW, 0, 9, -5, 3, 16, 0, -33, 0, "W16 -5 QP 3: (-33·16 + 15) >> 4"},
        {kMpeg4, kInterW, 0, 9, 5, 65536 + 3, 16, 0, 33, 0, "W16 QP 65536+3 uses low bits"},
        {kMpeg4, kInterW, 0, 9, 5, 0, 16, 0, 0, 1, "W16 QP 0"},
    };
    for (const auto& c : cases) {
        Block b;
        b.v[0] = c.dc;
        b.v[c.pos] = c.pos != 0 ? c.c : c.dc;
        const Block w = flat(c.w);
        ASSERT_EQ(inv(c.f, c.form, b.v, c.qp, w.v), kplStsNoErr);
        SCOPED_TRACE(std::string(c.f.name) + ": " + c.what);
        EXPECT_EQ(b.v[0], c.want_dc);
        for (int i = 1; i < 63; ++i) EXPECT_EQ(b.v[i], i == c.pos ? c.want_pos : 0) << i;
        EXPECT_EQ(b.v[63], c.want_last);
        EXPECT_EQ(block_sum(b.v) & 1, 1);
    }
}

// Random blocks, weights and QP small enough that no product wraps: the result
// is the truncating division of the whole product, then mismatch control
// changes at most block[63] by one and leaves the sum odd.
TEST(QuantInv, WithoutWrapIsTruncatingDivision) {
    Rng rng("quant inv no wrap");
    for (const Format* f : {&kMpeg2, &kMpeg4})
        for (int iter = 0; iter < kplvc::test::iters(3000); ++iter) {
            const Form form = static_cast<Form>(iter % 3);
            const int32_t qp = rng.range(1, 31);
            Block c, w, want;
            for (int i = 0; i < 64; ++i) {
                w.v[i] = static_cast<int16_t>(rng.range(1, 255));
                const int32_t wt = form == kInterFlat ? 1 : w.v[i];
                // |c·q·W| < 2^15 for intra; |(2c+1)·q·W| < 2^15 otherwise.
                const int32_t lim = form == kIntra ? 32767 / (qp * wt) : (32767 / (qp * wt) - 1) / 2;
                c.v[i] = static_cast<int16_t>(rng.range(-lim, lim));
                const int64_t x = c.v[i], odd = 2 * x + (x > 0) - (x < 0);
                want.v[i] = form == kIntra    ? (i == 0 ? c.v[0] : div_clamp(x * qp * w.v[i], f->intra_div))
                            : form == kInterW ? div_clamp(odd * qp * w.v[i], f->inter_div)
                                              : div_clamp(odd * qp, f->flat_div);
            }
            Block b = c;
            ASSERT_EQ(inv(*f, form, b.v, qp, w.v), kplStsNoErr);
            SCOPED_TRACE(std::string(f->name) + " form " + std::to_string(form) + " iter " +
                         std::to_string(iter));
            for (int i = 0; i < 63; ++i) ASSERT_EQ(b.v[i], want.v[i]) << i;
            const bool even = (block_sum(want.v) & 1) == 0;
            EXPECT_EQ(b.v[63], even ? (want.v[63] ^ 1) : want.v[63]);
        }
}

// ---- Behaviour: forward --------------------------------------------------------

TEST(Mpeg2Quant, DefaultIntraMatrixIsReciprocalOfSharedTable) {
    int rows = 0;
    for (const auto& f : kplvc::codelists::read_rows("mpeg2_default_matrices.txt")) {
        if (f[0] != "intra") continue;
        ASSERT_EQ(f.size(), 10u);
        const int v = std::stoi(f[1]);
        for (int u = 0; u < 8; ++u) {
            const int w = std::stoi(f[2 + u]);
            EXPECT_EQ(kplvc::mpeg2::kDefaultIntraMatrix[8 * v + u], w);
            const float want = 1.0f / static_cast<float>(w),
                        got = kplvc::mpeg2::kDefaultIntraRecip.v[8 * v + u];
            EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << v << "," << u;
        }
        ++rows;
    }
    EXPECT_EQ(rows, 8);
}

// One value everywhere with a uniform matrix (0: none). Out-of-range
// matrix values clamp in float; a NaN level becomes -2047.
TEST(Mpeg2Quant, NonIntraTruncatesAndClamps) {
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        const char* what;
        float m;
        int16_t c;
        int32_t qp;
        int16_t want;
    };
    const Case cases[] = {
        // Without a matrix: ((16c)·(1/QP))·0.0625; 16·1312·(1/41 in float)
        // rounds below 512, so the level is 31 where 1312/41 is exactly 32.
        {"exact multiple at QP 41 truncates below", 0, 1312, 41, 31},
        {"same negative", 0, -1312, 41, -31},
        {"clamp high", 0, 32767, 1, 2047},
        {"clamp low is -2047", 0, -32768, 1, -2047},
        {"negative QP flips the sign", 0, 100, -3, -33},
        {"huge QP gives 0", 0, 32767, 2147483647, 0},
        {"matrix 1/16 equals no matrix here", 1.0f / 16, 1000, 7, 142},
        {"matrix 1/1: 16c/QP", 1.0f, 100, 3, 533},
        {"matrix 1/255", 1.0f / 255, 32767, 1, 2047},
        {"matrix 1/255 small", 1.0f / 255, 1000, 2, 31},
        {"1e30 positive", 1e30f, 1, 1, 2047},
        {"1e30 negative", 1e30f, -1, 1, -2047},
        {"-1e30", -1e30f, 1, 1, -2047},
        {"+inf", inf, 3, 1, 2047},
        {"inf times zero is NaN", inf, 0, 1, -2047},
        {"NaN", std::numeric_limits<float>::quiet_NaN(), 5, 1, -2047},
        {"3e9 is past int range", 3e9f, 1, 1, 2047},
        {"tiny", 1e-30f, 32767, 1, 0},
    };
    for (const auto& c : cases) {
        Block b = flat(c.c);
        const std::vector<float> m(64, c.m);
        Kpl32s count = -1;
        ASSERT_EQ(kpliQuant_MPEG2_16s_C1I(b.v, c.qp, c.m != 0 ? m.data() : nullptr, &count), kplStsNoErr);
        for (int i = 0; i < 64; ++i) ASSERT_EQ(b.v[i], c.want) << c.what;
        EXPECT_EQ(count, c.want != 0 ? 64 : 0) << c.what;
    }
}

// With QP 1..40 and coefficients in -2048..2047 the float chain without a
// matrix agrees with the exact quotient (the first disagreement is at QP 41).
TEST(Mpeg2Quant, NoMatrixMatchesQuotientUpToQp40) {
    for (int32_t qp = 1; qp <= 40; ++qp) {
        for (int32_t base = -2048; base < 2048; base += 64) {
            Block b;
            for (int i = 0; i < 64; ++i) b.v[i] = static_cast<int16_t>(base + i);
            Kpl32s count = -1;
            ASSERT_EQ(kpliQuant_MPEG2_16s_C1I(b.v, qp, nullptr, &count), kplStsNoErr);
            int32_t nz = 0;
            for (int i = 0; i < 64; ++i) {
                const int32_t want = std::max(-2047, (base + i) / qp);
                ASSERT_EQ(b.v[i], want) << "qp " << qp << " c " << base + i;
                nz += want != 0;
            }
            ASSERT_EQ(count, nz);
        }
    }
}

TEST(Mpeg2Quant, IntraKeepsDcAndUsesDefaultMatrix) {
    Rng rng("mpeg2 quant intra");
    // The null matrix behaves as the caller passing the reciprocal table.
    std::vector<float> recip(64);
    for (int i = 0; i < 64; ++i) recip[i] = 1.0f / static_cast<float>(kplvc::mpeg2::kDefaultIntraMatrix[i]);
    for (int iter = 0; iter < kplvc::test::iters(500); ++iter) {
        Block b;
        rng.fill(b.v, 64, -2048, 2047);
        b.v[0] = iter == 0 ? int16_t{-32768} : rng.s16();  // a DC no quantiser would leave as it is
        Block c = b;
        const int16_t dc = b.v[0];
        const int32_t qp = rng.range(1, 31);
        Kpl32s n1 = -1, n2 = -1;
        ASSERT_EQ(kpliQuantIntra_MPEG2_16s_C1I(b.v, qp, nullptr, &n1), kplStsNoErr);
        ASSERT_EQ(kpliQuantIntra_MPEG2_16s_C1I(c.v, qp, recip.data(), &n2), kplStsNoErr);
        ASSERT_EQ(std::memcmp(b.v, c.v, sizeof b.v), 0) << iter;
        ASSERT_EQ(b.v[0], dc);
        ASSERT_EQ(n1, n2);
        int32_t nz = 0;
        for (int i = 1; i < 64; ++i) nz += b.v[i] != 0;
        ASSERT_EQ(n1, nz) << "the DC is never counted";
    }
}

// ---- Argument checks ---------------------------------------------------------------

TEST(QuantArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    kplvc::test::ArgPool p;
    Kpl16s *blk = p.take<Kpl16s>(64), *w = p.take<Kpl16s>(64);
    for (int i = 0; i < 64; ++i) w[i] = 16;
    const Kpl32f* m = p.take<Kpl32f>(64);
    Kpl32s* cnt = p.take<Kpl32s>(1);
    for (InvFn f : {kpliQuantInvIntra_MPEG2_16s_C1I, kpliQuantInvIntra_MPEG4_16s_C1I})
        CHECK_ARGS(p, f, {blk, 3, w}, {null(0), null(2), passes(1, 0)});
    for (InvFn f : {kpliQuantInv_MPEG2_16s_C1I, kpliQuantInv_MPEG4_16s_C1I})
        CHECK_ARGS(p, f, {blk, 3, w}, {null(0), passes(2, nullptr), passes(1, 0)});
    for (auto f : {kpliQuantIntra_MPEG2_16s_C1I, kpliQuant_MPEG2_16s_C1I})
        CHECK_ARGS(p, f, {blk, 3, m, cnt},
                   {null(0), null(3), fails(1, 0, kplStsDivByZeroErr), passes(2, nullptr)});
}

// ---- Variants against the reference ------------------------------------------------

namespace {

// QP in and out of 1..31: the kernels use any value as given.
int32_t pick_qp(Rng& rng, bool nonzero) {
    const int32_t odd[] = {0,     -1,         32,         63,        255,       4095, 32767,
                           32768, 65536 + 31, -65536 - 5, INT32_MAX, INT32_MIN, 1,    31};
    const int k = rng.range(0, 3);
    const int32_t q = k == 0   ? odd[rng.range(0, 13)]
                      : k == 1 ? static_cast<int32_t>(rng.u32())
                               : rng.range(1, 31);
    return (nonzero && q == 0) ? 7 : q;
}

// Coefficients: the whole range, the stream range, small levels, extremes,
// and the levels a coder makes (transform coefficients over a quantiser step).
void fill_block(Rng& rng, int16_t* b) {
    switch (rng.range(0, 4)) {
        case 0:
            rng.fill(b, 64);
            break;
        case 1:
            rng.fill(b, 64, -2048, 2047);
            break;
        case 2:
            rng.fill(b, 64, -8, 8);
            break;
        case 3:
            rng.fill_extreme(b, 64);
            break;
        default:
            kplvc::test::dct_coefficients(rng, b, rng.coin(), rng.range(1, 62));
            break;
    }
}

// Weights (16-bit) or reciprocal matrix (float): every value 1..255 as a
// uniform matrix first (iteration-indexed), then random transmitted weights
// and any value, extremes, NaNs and denormals included.
void fill_aux(Rng& rng, int iter, int16_t* w) {
    if (iter < 255)
        for (int i = 0; i < 64; ++i) w[i] = static_cast<int16_t>(iter + 1);
    else if (rng.coin())
        rng.fill(w, 64, 1, 255);
    else
        rng.fill_extreme(w, 64);
}

void fill_aux(Rng& rng, int iter, float* m) {
    const float inf = std::numeric_limits<float>::infinity();
    const float specials[] = {
        0.0f,   -0.0f, 1e30f, -1e30f,  inf,     -inf, std::numeric_limits<float>::quiet_NaN(),
        1e-40f, 3e9f,  1.0f,  0.0625f, 65536.0f};
    for (int i = 0; i < 64; ++i) {
        const int kind = iter < 255 ? -1 : rng.range(0, 3);
        const uint32_t bits = rng.u32();
        m[i] = kind < 0    ? 1.0f / static_cast<float>(iter + 1)
               : kind == 0 ? 1.0f / static_cast<float>(rng.range(1, 255))
               : kind == 1 ? specials[rng.range(0, 11)]
               : kind == 2 ? static_cast<float>(rng.range(-100000, 100000)) / 1000.0f
                           : 0;
        if (kind == 3) std::memcpy(&m[i], &bits, 4);
    }
}

// Every variant of `get`: the block in place, the auxiliary table an input
// (null for the flat kernels).
template <class Aux, class Table, class Get>
void compare(Table (*for_isa)(kplvc::cpu::Isa), Get get, const std::string& name, bool uses_aux) {
    kplvc::test::check_variants(for_isa, get, name, 3000, [uses_aux](Arena& a, Rng& rng, int i) {
        auto blk = a.out<int16_t>(64);
        fill_block(rng, a[blk]);
        auto aux = a.in<Aux>(64);
        fill_aux(rng, i, a[aux]);
        const int32_t qp = pick_qp(rng, std::is_same_v<Aux, float>);
        return [=](auto f, Arena& x) { return f(x[blk], qp, uses_aux ? x[aux] : nullptr); };
    });
}

}  // namespace

TEST(QuantVariants, InverseMatchesReference) {
    using Q2 = kplvc::mpeg2::QuantKernels;
    using Q4 = kplvc::mpeg4::QuantKernels;
    compare<int16_t>(kplvc::mpeg2::quant_kernels_for, &Q2::dequant_intra, "mpeg2 dequant_intra", true);
    compare<int16_t>(kplvc::mpeg2::quant_kernels_for, &Q2::dequant_inter, "mpeg2 dequant_inter", true);
    compare<int16_t>(kplvc::mpeg2::quant_kernels_for, &Q2::dequant_flat, "mpeg2 dequant_flat", false);
    compare<int16_t>(kplvc::mpeg4::quant_kernels_for, &Q4::dequant_intra, "mpeg4 dequant_intra", true);
    compare<int16_t>(kplvc::mpeg4::quant_kernels_for, &Q4::dequant_inter, "mpeg4 dequant_inter", true);
    compare<int16_t>(kplvc::mpeg4::quant_kernels_for, &Q4::dequant_flat, "mpeg4 dequant_flat", false);
}

TEST(QuantVariants, ForwardMatchesReference) {
    using Q2 = kplvc::mpeg2::QuantKernels;
    compare<float>(kplvc::mpeg2::quant_kernels_for, &Q2::quant_intra, "mpeg2 quant_intra", true);
    compare<float>(kplvc::mpeg2::quant_kernels_for, &Q2::quant_inter, "mpeg2 quant_inter", true);
    compare<float>(kplvc::mpeg2::quant_kernels_for, &Q2::quant_flat, "mpeg2 quant_flat", false);
}
