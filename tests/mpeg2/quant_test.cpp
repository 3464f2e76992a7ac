#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "kplvc.h"
#include "mpeg2/quant.h"
#include "support/support.h"

using kplvc::mpeg2::QuantKernels;
using kplvc::test::Guarded;
using kplvc::test::Rng;
using kplvc::test::variants;

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

int32_t sgn(int32_t c) { return (c > 0) - (c < 0); }

// Division truncated toward zero, clamped: the meaning of the lane arithmetic
// as long as no 16-bit product wraps.
int16_t div_clamp(int64_t num, int64_t den) {
    const int64_t v = num / den;
    return static_cast<int16_t>(v < -2048 ? -2048 : (v > 2047 ? 2047 : v));
}

enum Form { kIntra, kInterW, kInterFlat };

KplStatus inv(Form f, int16_t* b, int32_t qp, const int16_t* w) {
    return f == kIntra    ? kpliQuantInvIntra_MPEG2_16s_C1I(b, qp, w)
           : f == kInterW ? kpliQuantInv_MPEG2_16s_C1I(b, qp, w)
                          : kpliQuantInv_MPEG2_16s_C1I(b, qp, nullptr);
}

}  // namespace

// ---- Behaviour: inverse ----------------------------------------------------------

// One coefficient `c` at `pos` (9 or 63) besides the DC: products that wrap in
// 16 bits, QP outside 1..31, and mismatch control on the last coefficient
// (the random test below covers the plain truncating division).
TEST(Mpeg2QuantInv, WorkedCases) {
    struct Case {
        const char* what;
        Form form;
        int16_t dc;
        int pos;
        int16_t c;
        int32_t qp;
        int16_t w, want_dc, want_pos, want_last;
    };
    const Case cases[] = {
        {"intra 1000*3*16 wraps", kIntra, 0, 9, 1000, 3, 16, 0, -1096, 1},
        {"intra wraps, then the last toggles", kIntra, 0, 63, 1000, 3, 16, 0, -1095, -1095},
        {"intra products wrap twice", kIntra, 0, 9, 2047, 31, 16, 0, 2017, 0},
        {"intra -2048*31*16 wraps to -32768", kIntra, 0, 9, -2048, 31, 16, 0, -2048, 1},
        {"intra QP uses its low 16 bits", kIntra, 0, 9, 1000, 65536 + 3, 16, 0, -1096, 1},
        {"intra c*q wraps, QP -1", kIntra, 0, 9, -32768, -1, 1, 0, -2048, 1},
        {"non-intra flat 2047 QP 31 wraps", kInterFlat, 0, 9, 2047, 31, 0, 0, -2048, 1},
        {"non-intra flat -2047 QP 31 wraps", kInterFlat, 0, 63, -2047, 31, 0, 0, 2047, 2047},
        {"non-intra flat negative QP", kInterFlat, 0, 9, 300, -2, 0, 0, -601, 0},
        {"non-intra W16 2047 QP 31 wraps", kInterW, 0, 9, 2047, 31, 16, 0, -16, 1},
        {"non-intra W16 5 QP -7", kInterW, 0, 9, 5, -7, 16, 0, -39, 0},
        {"non-intra W16 QP 0", kInterW, 0, 9, -3, 0, 16, 0, 0, 1},
        // QP 1 maps every non-intra c to (2c + sgn c)·16/32 = c.
        {"intra zeros with DC 8: even, last becomes 1", kIntra, 8, 63, 0, 1, 16, 8, 1, 1},
        {"intra only last = 1, DC 0: odd, unchanged", kIntra, 0, 63, 1, 1, 16, 0, 1, 1},
        {"intra DC odd, last 0: odd sum, unchanged", kIntra, 7, 63, 0, 1, 16, 7, 0, 0},
        {"intra DC -32768 kept, even: last 1", kIntra, -32768, 63, 0, 1, 16, -32768, 1, 1},
        {"intra last 2 -> 2 with DC 1 (sum 3 odd)", kIntra, 1, 63, 2, 1, 16, 1, 2, 2},
        {"intra last 2 -> 3 with DC 0 (sum 2 even)", kIntra, 0, 63, 2, 1, 16, 0, 3, 3},
        {"non-intra all zero: last 1", kInterW, 0, 63, 0, 1, 16, 0, 1, 1},
        {"non-intra last 1 (+1 dc 1 -> 2 even): last 1 -> 0", kInterFlat, 1, 63, 1, 1, 0, 1, 0, 0},
        {"non-intra max 2047 even sum with DC 1 -> 2046", kInterFlat, 1, 63, 2047, 1, 0, 1, 2046, 2046},
        {"non-intra -2047 at last, odd sum, kept", kInterFlat, 0, 63, -2047, 1, 0, 0, -2047, -2047},
    };
    for (const auto& c : cases) {
        Block b;
        b.v[0] = c.dc;
        b.v[c.pos] = c.c;
        const Block w = flat(c.w);
        ASSERT_EQ(inv(c.form, b.v, c.qp, w.v), kplStsNoErr);
        EXPECT_EQ(b.v[0], c.want_dc) << c.what;
        EXPECT_EQ(b.v[c.pos], c.want_pos) << c.what;
        EXPECT_EQ(b.v[63], c.want_last) << c.what;
        EXPECT_EQ(block_sum(b.v) & 1, 1) << c.what;
        for (int i = 1; i < 63; ++i) ASSERT_EQ(b.v[i], i == c.pos ? c.want_pos : 0) << c.what;
    }
}

// Random blocks, weights and QP small enough that no product wraps: the result
// is the truncating division of the whole product, then mismatch control
// changes at most block[63] by one and leaves the sum odd.
TEST(Mpeg2QuantInv, WithoutWrapIsTruncatingDivision) {
    Rng rng(801);
    for (int iter = 0; iter < 3000; ++iter) {
        SCOPED_TRACE(iter);
        const Form form = static_cast<Form>(iter % 3);
        const int32_t qp = rng.range(1, 31);
        Block c, w, want;
        for (int i = 0; i < 64; ++i) {
            w.v[i] = static_cast<int16_t>(rng.range(1, 255));
            // |c·q·W| < 2^15 for intra; |(2c+1)·q·W| < 2^15 otherwise.
            const int32_t lim = form == kIntra ? 32767 / (qp * w.v[i]) : (32767 / (qp * w.v[i]) - 1) / 2;
            c.v[i] = static_cast<int16_t>(rng.range(-lim, lim));
            const int64_t x = c.v[i];
            if (form == kIntra)
                want.v[i] = i == 0 ? c.v[0] : div_clamp(x * qp * w.v[i], 16);
            else if (form == kInterW)
                want.v[i] = div_clamp((2 * x + sgn(c.v[i])) * qp * w.v[i], 32);
            else
                want.v[i] = div_clamp((2 * x + sgn(c.v[i])) * qp, 2);
        }
        Block b = c;
        ASSERT_EQ(inv(form, b.v, qp, w.v), kplStsNoErr);
        for (int i = 0; i < 63; ++i) ASSERT_EQ(b.v[i], want.v[i]) << "form " << form << " i " << i;
        const bool even = (block_sum(want.v) & 1) == 0;
        EXPECT_EQ(b.v[63], even ? (want.v[63] ^ 1) : want.v[63]) << "form " << form;
    }
}

// ---- Behaviour: forward --------------------------------------------------------

TEST(Mpeg2Quant, DefaultIntraMatrixIsReciprocalOfSharedTable) {
    std::ifstream in(std::string(KPLVC_TEST_DATA_DIR) + "/mpeg2_default_matrices.txt");
    ASSERT_TRUE(in.good());
    std::string line, name;
    int rows = 0, v, w;
    while (std::getline(in, line)) {
        std::istringstream ls(line);
        if (line.empty() || line[0] == '#' || !(ls >> name >> v) || name != "intra") continue;
        for (int u = 0; u < 8; ++u) {
            ASSERT_TRUE(static_cast<bool>(ls >> w));
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
    Rng rng(802);
    // The null matrix behaves as the caller passing the reciprocal table.
    std::vector<float> recip(64);
    for (int i = 0; i < 64; ++i) recip[i] = 1.0f / static_cast<float>(kplvc::mpeg2::kDefaultIntraMatrix[i]);
    for (int iter = 0; iter < 500; ++iter) {
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

TEST(Mpeg2QuantArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    Guarded g(128), mg(256), cg(4);
    auto* blk = g.as<Kpl16s>();
    for (int i = 0; i < 64; ++i) blk[i] = static_cast<Kpl16s>(i * 37 - 1000);
    auto* w = mg.as<Kpl16s>();
    auto* m = mg.as<Kpl32f>();
    for (int i = 0; i < 64; ++i) m[i] = 0.5f;
    auto* cnt = cg.as<Kpl32s>();
    *cnt = 12345;
    const std::vector<uint8_t> before(g.data(), g.data() + 128);
    struct Case {
        const char* what;
        KplStatus got, want;
    };
    const Case cases[] = {
        {"inv intra block", kpliQuantInvIntra_MPEG2_16s_C1I(nullptr, 1, w), kplStsNullPtrErr},
        {"inv intra weights", kpliQuantInvIntra_MPEG2_16s_C1I(blk, 1, nullptr), kplStsNullPtrErr},
        {"inv block", kpliQuantInv_MPEG2_16s_C1I(nullptr, 1, w), kplStsNullPtrErr},
        {"inv block, no weights", kpliQuantInv_MPEG2_16s_C1I(nullptr, 0, nullptr), kplStsNullPtrErr},
        {"intra block", kpliQuantIntra_MPEG2_16s_C1I(nullptr, 1, m, cnt), kplStsNullPtrErr},
        {"intra count", kpliQuantIntra_MPEG2_16s_C1I(blk, 1, m, nullptr), kplStsNullPtrErr},
        {"intra null before QP 0", kpliQuantIntra_MPEG2_16s_C1I(blk, 0, nullptr, nullptr), kplStsNullPtrErr},
        {"intra QP 0", kpliQuantIntra_MPEG2_16s_C1I(blk, 0, m, cnt), kplStsDivByZeroErr},
        {"intra QP 0 no matrix", kpliQuantIntra_MPEG2_16s_C1I(blk, 0, nullptr, cnt), kplStsDivByZeroErr},
        {"inter block", kpliQuant_MPEG2_16s_C1I(nullptr, 1, m, cnt), kplStsNullPtrErr},
        {"inter count", kpliQuant_MPEG2_16s_C1I(blk, 1, nullptr, nullptr), kplStsNullPtrErr},
        {"inter null before QP 0", kpliQuant_MPEG2_16s_C1I(nullptr, 0, m, cnt), kplStsNullPtrErr},
        {"inter QP 0", kpliQuant_MPEG2_16s_C1I(blk, 0, m, cnt), kplStsDivByZeroErr},
        {"inter QP 0 no matrix", kpliQuant_MPEG2_16s_C1I(blk, 0, nullptr, cnt), kplStsDivByZeroErr},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.want) << c.what;
    EXPECT_EQ(std::vector<uint8_t>(g.data(), g.data() + 128), before);
    EXPECT_EQ(*cnt, 12345);
    EXPECT_TRUE(g.intact() && mg.intact() && cg.intact());
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

void fill_block(Rng& rng, int16_t* b) {
    switch (rng.range(0, 3)) {
        case 0:
            rng.fill(b, 64);
            break;
        case 1:
            rng.fill(b, 64, -2048, 2047);
            break;
        case 2:
            rng.fill(b, 64, -8, 8);
            break;
        default:
            rng.fill_extreme(b, 64);
            break;
    }
}

// The weights (16-bit) or reciprocal matrix (float) the variants see: every
// value 1..255 as a uniform matrix first (iteration-indexed), then random
// transmitted weights and any value, extremes, NaNs and denormals included.
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
        if (iter < 255) {
            m[i] = 1.0f / static_cast<float>(iter + 1);
            continue;
        }
        switch (rng.range(0, 4)) {
            case 0:
                m[i] = 1.0f / static_cast<float>(rng.range(1, 255));
                break;
            case 1:
                m[i] = specials[rng.range(0, 11)];
                break;
            case 2:
                m[i] = static_cast<float>(rng.range(-100000, 100000)) / 1000.0f;
                break;
            default: {
                const uint32_t bits = rng.u32();
                std::memcpy(&m[i], &bits, 4);
            }
        }
    }
}

// Compares every SIMD version of `member` with the c table's on misaligned
// guarded blocks; the auxiliary table (weights or matrix) must stay unchanged.
// Also checks that each SIMD level the CPU has (SSE2, AVX2) brings its own
// version, so that the comparison reaches them all.
template <class Aux, class Fn>
void compare(Fn QuantKernels::*member, bool uses_aux) {
    const QuantKernels ref = kplvc::mpeg2::quant_kernels_for(kplvc::cpu::Isa::c);
    size_t levels = 0;
    for (auto isa : kplvc::test::simd_levels())
        levels += isa == kplvc::cpu::Isa::sse2 || isa == kplvc::cpu::Isa::avx2;
    const auto vs = variants(kplvc::mpeg2::quant_kernels_for, member);
    EXPECT_EQ(vs.size(), levels);
    for (auto [isa, fn] : vs) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        Rng rng(8000 + 1000 * sizeof(Aux) + static_cast<int>(isa));
        for (int iter = 0; iter < 3000; ++iter) {
            const size_t mis = 2 * static_cast<size_t>(rng.range(0, 15));
            Guarded a(128, mis), b(128, mis),
                xg(64 * sizeof(Aux), sizeof(Aux) * static_cast<size_t>(rng.range(0, 32 / sizeof(Aux) - 1)));
            fill_block(rng, a.as<int16_t>());
            std::memcpy(b.data(), a.data(), 128);
            fill_aux(rng, iter, xg.as<Aux>());
            const std::vector<uint8_t> x_before(xg.data(), xg.data() + xg.size());
            const Aux* x = uses_aux ? xg.as<Aux>() : nullptr;
            const int32_t qp = pick_qp(rng, std::is_same_v<Aux, float>);
            if constexpr (std::is_same_v<Aux, float>) {
                ASSERT_EQ((ref.*member)(a.as<int16_t>(), qp, x), fn(b.as<int16_t>(), qp, x))
                    << "iter " << iter;
            } else {
                (ref.*member)(a.as<int16_t>(), qp, x);
                fn(b.as<int16_t>(), qp, x);
            }
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 128), 0) << "iter " << iter << " qp " << qp;
            ASSERT_TRUE(a.intact() && b.intact() && xg.intact());
            ASSERT_EQ(std::vector<uint8_t>(xg.data(), xg.data() + xg.size()), x_before);
        }
    }
}

}  // namespace

TEST(Mpeg2QuantVariants, InverseMatchesReference) {
    compare<int16_t>(&QuantKernels::dequant_intra, true);
    compare<int16_t>(&QuantKernels::dequant_inter, true);
    compare<int16_t>(&QuantKernels::dequant_flat, false);
}

TEST(Mpeg2QuantVariants, ForwardMatchesReference) {
    compare<float>(&QuantKernels::quant_intra, true);
    compare<float>(&QuantKernels::quant_inter, true);
    compare<float>(&QuantKernels::quant_flat, false);
}
