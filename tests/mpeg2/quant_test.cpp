#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
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

Block flat_weights(int16_t w) {
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

}  // namespace

// ---- Behaviour: inverse ----------------------------------------------------------

// One coefficient at position `pos` (the rest 0); the stored value at pos.
struct InvCase {
    const char* what;
    int form;  // 0 intra, 1 non-intra with flat-16 weights, 2 non-intra without weights
    int16_t c;
    int32_t qp;
    int16_t w;
    int16_t want;
};

TEST(Mpeg2QuantInv, SingleCoefficients) {
    const InvCase cases[] = {
        {"intra -1: -16 + 15 >> 4", 0, -1, 1, 16, -1},
        {"intra 1", 0, 1, 1, 16, 1},
        {"intra 100*3*16/16", 0, 100, 3, 16, 300},
        {"intra 1000*3*16 wraps", 0, 1000, 3, 16, -1096},
        {"intra products wrap twice", 0, 2047, 31, 16, 2017},
        {"intra -2048*31*16 wraps to -32768", 0, -2048, 31, 16, -2048},
        {"intra QP uses its low 16 bits", 0, 1000, 65536 + 3, 16, -1096},
        {"intra c*q wraps, QP -1", 0, -32768, -1, 1, -2048},
        {"non-intra flat of 1, QP 1: (3 >> 1)", 2, 1, 1, 0, 1},
        {"non-intra flat of -1, QP 1: (-3 + 1) >> 1", 2, -1, 1, 0, -1},
        {"non-intra flat 2047 QP 31 wraps", 2, 2047, 31, 0, -2048},
        {"non-intra flat -2047 QP 31 wraps", 2, -2047, 31, 0, 2047},
        {"non-intra flat negative QP", 2, 300, -2, 0, -601},
        {"non-intra W16 2047 QP 31 wraps", 1, 2047, 31, 16, -16},
        {"non-intra W16 -5 QP 3", 1, -5, 3, 16, -16},
        {"non-intra W16 5 QP -7", 1, 5, -7, 16, -39},
        {"non-intra W16 QP 0", 1, -3, 0, 16, 0},
    };
    for (int pos : {5, 63}) {
        for (const auto& c : cases) {
            Block b;
            b.v[pos] = c.c;
            const Block w = flat_weights(c.w);
            KplStatus st = c.form == 0   ? kpliQuantInvIntra_MPEG2_16s_C1I(b.v, c.qp, w.v)
                           : c.form == 1 ? kpliQuantInv_MPEG2_16s_C1I(b.v, c.qp, w.v)
                                         : kpliQuantInv_MPEG2_16s_C1I(b.v, c.qp, nullptr);
            ASSERT_EQ(st, kplStsNoErr);
            int16_t got = b.v[pos];
            // At 63 mismatch control may have moved the value by one; undo it
            // when the sum came out even before the correction.
            if (pos == 63 && ((c.want & 1) == 0)) got = static_cast<int16_t>(got ^ 1);
            EXPECT_EQ(got, c.want) << c.what << " at " << pos;
            EXPECT_EQ(block_sum(b.v) & 1, 1) << c.what << " at " << pos;
        }
    }
}

TEST(Mpeg2QuantInv, MismatchControlAndDc) {
    const Block w16 = flat_weights(16);
    struct Case {
        const char* what;
        int form;
        int16_t dc, last;
        int16_t want_dc, want_last;
    };
    const Case cases[] = {
        {"intra zeros with DC 8: even, last becomes 1", 0, 8, 0, 8, 1},
        {"intra only last = 1, DC 0: odd, unchanged", 0, 0, 1, 0, 1},
        {"intra DC odd, last 0: odd sum, unchanged", 0, 7, 0, 7, 0},
        {"intra DC -32768 kept, even: last 1", 0, -32768, 0, -32768, 1},
        {"intra last 2 -> 2 with DC 1 (sum 3 odd)", 0, 1, 2, 1, 2},
        {"intra last 2 -> 3 with DC 0 (sum 2 even)", 0, 0, 2, 0, 3},
        {"non-intra all zero: last 1", 1, 0, 0, 0, 1},
        {"non-intra DC 1 -> 1 (3>>1): odd", 2, 1, 0, 1, 0},
        {"non-intra last 1 (+1 dc 1 -> 2 even): last 1 -> 0", 2, 1, 1, 1, 0},
        {"non-intra max 2047 even sum with DC 1 -> 2046", 2, 1, 2047, 1, 2046},
        {"non-intra min -2048 at last -> -2047", 2, 0, -2047, 0, -2047},
    };
    for (const auto& c : cases) {
        Block b;
        b.v[0] = c.dc;
        b.v[63] = c.last;
        if (c.form == 0) {
            ASSERT_EQ(kpliQuantInvIntra_MPEG2_16s_C1I(b.v, 1, w16.v), kplStsNoErr);
        } else {
            // QP 1 without weights maps c to (2c + sgn c) >> 1 = c; the mismatch
            // case with -2047 gives -2047 stored, sum odd.
            ASSERT_EQ(kpliQuantInv_MPEG2_16s_C1I(b.v, 1, c.form == 1 ? w16.v : nullptr), kplStsNoErr);
        }
        EXPECT_EQ(b.v[0], c.want_dc) << c.what;
        EXPECT_EQ(b.v[63], c.want_last) << c.what;
        for (int i = 1; i < 63; ++i) ASSERT_EQ(b.v[i], 0) << c.what;
    }
}

// Random blocks, weights and QP small enough that no product wraps: the result
// is the truncating division of the whole product, then mismatch control
// changes at most block[63] by one and leaves the sum odd.
TEST(Mpeg2QuantInv, WithoutWrapIsTruncatingDivision) {
    Rng rng(801);
    for (int iter = 0; iter < 3000; ++iter) {
        SCOPED_TRACE(iter);
        const int form = iter % 3;
        const int32_t qp = rng.range(1, 31);
        Block c, w, b;
        for (int i = 0; i < 64; ++i) {
            w.v[i] = static_cast<int16_t>(rng.range(1, 255));
            // |c·q·W| < 2^15 for intra; |(2c+1)·q·W| < 2^15 otherwise.
            const int32_t lim = form == 0 ? 32767 / (qp * w.v[i]) : (32767 / (qp * w.v[i]) - 1) / 2;
            c.v[i] = static_cast<int16_t>(rng.range(-lim, lim));
        }
        b = c;
        Block want;
        for (int i = 0; i < 64; ++i) {
            const int64_t x = c.v[i];
            if (form == 0)
                want.v[i] = i == 0 ? c.v[0] : div_clamp(x * qp * w.v[i], 16);
            else if (form == 1)
                want.v[i] = div_clamp((2 * x + sgn(c.v[i])) * qp * w.v[i], 32);
            else
                want.v[i] = div_clamp((2 * x + sgn(c.v[i])) * qp, 2);
        }
        const KplStatus st = form == 0   ? kpliQuantInvIntra_MPEG2_16s_C1I(b.v, qp, w.v)
                             : form == 1 ? kpliQuantInv_MPEG2_16s_C1I(b.v, qp, w.v)
                                         : kpliQuantInv_MPEG2_16s_C1I(b.v, qp, nullptr);
        ASSERT_EQ(st, kplStsNoErr);
        for (int i = 0; i < 63; ++i) ASSERT_EQ(b.v[i], want.v[i]) << "form " << form << " i " << i;
        const bool even = (block_sum(want.v) & 1) == 0;
        EXPECT_EQ(b.v[63], even ? (want.v[63] ^ 1) : want.v[63]) << "form " << form;
    }
}

// ---- Behaviour: forward --------------------------------------------------------

TEST(Mpeg2Quant, DefaultIntraMatrixIsReciprocalOfSharedTable) {
    std::ifstream in(std::string(KPLVC_SHARED_DIR) + "/tables/mpeg2_default_matrices.txt");
    ASSERT_TRUE(in.good());
    std::string line;
    int rows = 0;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream ls(line);
        std::string name;
        int v;
        ls >> name >> v;
        if (name != "intra") continue;
        for (int u = 0; u < 8; ++u) {
            int w;
            ASSERT_TRUE(static_cast<bool>(ls >> w));
            EXPECT_EQ(kplvc::mpeg2::kDefaultIntraMatrix[8 * v + u], w);
            const float want = 1.0f / static_cast<float>(w);
            float got = kplvc::mpeg2::kDefaultIntraRecip.v[8 * v + u];
            EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << v << "," << u;
        }
        ++rows;
    }
    EXPECT_EQ(rows, 8);
}

struct FwdCase {
    const char* what;
    bool matrix;  // flat weights 1/w (w given) or no matrix
    int16_t w;
    int16_t c;
    int32_t qp;
    int16_t want;
};

TEST(Mpeg2Quant, NonIntraTruncatesAndClamps) {
    const FwdCase cases[] = {
        // Without a matrix: ((16c)·(1/QP))·0.0625; 16·1312·(1/41 in float)
        // rounds below 512, so the level is 31 where 1312/41 is exactly 32.
        {"exact multiple at QP 41 truncates below", false, 0, 1312, 41, 31},
        {"same negative", false, 0, -1312, 41, -31},
        {"exact multiple at QP 40 stays", false, 0, 1280, 40, 32},
        {"7/2 toward zero", false, 0, 7, 2, 3},
        {"-7/2 toward zero", false, 0, -7, 2, -3},
        {"clamp high", false, 0, 32767, 1, 2047},
        {"clamp low is -2047", false, 0, -32768, 1, -2047},
        {"-2047 exactly", false, 0, -2047, 1, -2047},
        {"negative QP flips the sign", false, 0, 100, -3, -33},
        {"huge QP gives 0", false, 0, 32767, 2147483647, 0},
        {"matrix 1/16 equals no matrix here", true, 16, 1000, 7, 142},
        {"matrix 1/1: 16c/QP", true, 1, 100, 3, 533},
        {"matrix 1/255", true, 255, 32767, 1, 2047},
        {"matrix 1/255 small", true, 255, 1000, 2, 31},
    };
    for (const auto& c : cases) {
        Block b;
        b.v[0] = c.c;
        b.v[40] = c.c;
        std::vector<float> m(64, c.matrix ? 1.0f / static_cast<float>(c.w) : 0.0f);
        Kpl32s count = -1;
        ASSERT_EQ(kpliQuant_MPEG2_16s_C1I(b.v, c.qp, c.matrix ? m.data() : nullptr, &count), kplStsNoErr);
        EXPECT_EQ(b.v[0], c.want) << c.what;
        EXPECT_EQ(b.v[40], c.want) << c.what;
        EXPECT_EQ(count, c.want != 0 ? 2 : 0) << c.what;
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
    for (int iter = 0; iter < 500; ++iter) {
        Block b, c;
        rng.fill(b.v, 64, -2048, 2047);
        b.v[0] = rng.s16();
        c = b;
        const int32_t qp = rng.range(1, 31);
        // The null matrix behaves as the caller passing the reciprocal table.
        std::vector<float> recip(64);
        for (int i = 0; i < 64; ++i) recip[i] = 1.0f / static_cast<float>(kplvc::mpeg2::kDefaultIntraMatrix[i]);
        Kpl32s n1 = -1, n2 = -1;
        ASSERT_EQ(kpliQuantIntra_MPEG2_16s_C1I(b.v, qp, nullptr, &n1), kplStsNoErr);
        ASSERT_EQ(kpliQuantIntra_MPEG2_16s_C1I(c.v, qp, recip.data(), &n2), kplStsNoErr);
        ASSERT_EQ(std::memcmp(b.v, c.v, sizeof b.v), 0) << iter;
        ASSERT_EQ(n1, n2);
        int32_t nz = 0;
        for (int i = 1; i < 64; ++i) nz += b.v[i] != 0;
        ASSERT_EQ(n1, nz) << "the DC is never counted";
    }
    // A DC that no quantiser would leave as it is: untouched, not counted.
    Block b;
    b.v[0] = -32768;
    b.v[1] = 16;
    Kpl32s n = -1;
    ASSERT_EQ(kpliQuantIntra_MPEG2_16s_C1I(b.v, 1, nullptr, &n), kplStsNoErr);
    EXPECT_EQ(b.v[0], -32768);
    EXPECT_EQ(b.v[1], 16);  // 16·16·(1/16) = 16
    EXPECT_EQ(n, 1);
}

// Matrices holding values outside any weight: the clamp happens in float, a
// NaN level becomes -2047.
TEST(Mpeg2Quant, OutOfRangeMatrixValues) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        const char* what;
        float m;
        int16_t c;
        int16_t want;
    };
    const Case cases[] = {
        {"1e30 positive", 1e30f, 1, 2047},   {"1e30 negative", 1e30f, -1, -2047},
        {"-1e30", -1e30f, 1, -2047},         {"+inf", inf, 3, 2047},
        {"inf times zero is NaN", inf, 0, -2047}, {"NaN", nan, 5, -2047},
        {"3e9 is past int range", 3e9f, 1, 2047}, {"tiny", 1e-30f, 32767, 0},
    };
    for (const auto& c : cases) {
        Block b;
        for (auto& x : b.v) x = c.c;
        std::vector<float> m(64, c.m);
        Kpl32s count = -1;
        ASSERT_EQ(kpliQuant_MPEG2_16s_C1I(b.v, 1, m.data(), &count), kplStsNoErr);
        for (int i = 0; i < 64; ++i) ASSERT_EQ(b.v[i], c.want) << c.what;
        EXPECT_EQ(count, c.want != 0 ? 64 : 0) << c.what;
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

const QuantKernels& ref() {
    static const QuantKernels k = kplvc::mpeg2::quant_kernels_for(kplvc::cpu::Isa::c);
    return k;
}

// QP in and out of 1..31: the kernels use any value as given.
int32_t pick_qp(Rng& rng, bool nonzero) {
    const int32_t odd[] = {0,     -1,         32,         63,        255,        4095, 32767,
                           32768, 65536 + 31, -65536 - 5, INT32_MAX, INT32_MIN, 1,    31};
    int32_t q;
    switch (rng.range(0, 3)) {
        case 0: q = odd[rng.range(0, 13)]; break;
        case 1: q = static_cast<int32_t>(rng.u32()); break;
        default: q = rng.range(1, 31); break;
    }
    return (nonzero && q == 0) ? 7 : q;
}

void fill_block(Rng& rng, int16_t* b) {
    switch (rng.range(0, 3)) {
        case 0: rng.fill(b, 64); break;
        case 1: rng.fill(b, 64, -2048, 2047); break;
        case 2: rng.fill(b, 64, -8, 8); break;
        default: rng.fill_extreme(b, 64); break;
    }
}

// The weight matrices the variants see: every value 1..255 as a uniform
// matrix (iteration-indexed), random transmitted weights, any 16-bit value.
void fill_weights(Rng& rng, int iter, int16_t* w) {
    if (iter < 255) {
        for (int i = 0; i < 64; ++i) w[i] = static_cast<int16_t>(iter + 1);
    } else if (rng.coin()) {
        rng.fill(w, 64, 1, 255);
    } else {
        rng.fill_extreme(w, 64);
    }
}

using DequantFn = kplvc::mpeg2::DequantFn;
using QuantFn = kplvc::mpeg2::QuantFn;

void compare_dequant(DequantFn QuantKernels::*member, bool uses_weights) {
    for (auto [isa, fn] : variants(kplvc::mpeg2::quant_kernels_for, member)) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        Rng rng(8000 + static_cast<int>(isa));
        for (int iter = 0; iter < 3000; ++iter) {
            const size_t mis = 2 * static_cast<size_t>(rng.range(0, 15));
            Guarded a(128, mis), b(128, mis), wg(128, 2 * static_cast<size_t>(rng.range(0, 15)));
            fill_block(rng, a.as<int16_t>());
            std::memcpy(b.data(), a.data(), 128);
            fill_weights(rng, iter, wg.as<int16_t>());
            const std::vector<uint8_t> w_before(wg.data(), wg.data() + 128);
            const int16_t* w = uses_weights ? wg.as<int16_t>() : nullptr;
            const int32_t qp = pick_qp(rng, false);
            (ref().*member)(a.as<int16_t>(), qp, w);
            fn(b.as<int16_t>(), qp, w);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 128), 0) << "iter " << iter << " qp " << qp;
            ASSERT_TRUE(a.intact() && b.intact() && wg.intact());
            ASSERT_EQ(std::vector<uint8_t>(wg.data(), wg.data() + 128), w_before);
        }
    }
}

void fill_matrix(Rng& rng, int iter, float* m) {
    const float inf = std::numeric_limits<float>::infinity();
    const float specials[] = {0.0f, -0.0f, 1e30f, -1e30f, inf, -inf, std::numeric_limits<float>::quiet_NaN(),
                              1e-40f, 3e9f, 1.0f, 0.0625f, 65536.0f};
    if (iter < 255) {
        for (int i = 0; i < 64; ++i) m[i] = 1.0f / static_cast<float>(iter + 1);
        return;
    }
    for (int i = 0; i < 64; ++i) {
        switch (rng.range(0, 4)) {
            case 0: m[i] = 1.0f / static_cast<float>(rng.range(1, 255)); break;
            case 1: m[i] = specials[rng.range(0, 11)]; break;
            case 2: m[i] = static_cast<float>(rng.range(-100000, 100000)) / 1000.0f; break;
            default: {
                const uint32_t bits = rng.u32();  // any float, NaNs and denormals included
                std::memcpy(&m[i], &bits, 4);
            }
        }
    }
}

void compare_quant(QuantFn QuantKernels::*member, bool uses_matrix) {
    for (auto [isa, fn] : variants(kplvc::mpeg2::quant_kernels_for, member)) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        Rng rng(9000 + static_cast<int>(isa));
        for (int iter = 0; iter < 3000; ++iter) {
            const size_t mis = 2 * static_cast<size_t>(rng.range(0, 15));
            Guarded a(128, mis), b(128, mis), mg(256, 4 * static_cast<size_t>(rng.range(0, 7)));
            fill_block(rng, a.as<int16_t>());
            std::memcpy(b.data(), a.data(), 128);
            fill_matrix(rng, iter, mg.as<float>());
            const float* m = uses_matrix ? mg.as<float>() : nullptr;
            const int32_t qp = pick_qp(rng, true);
            const int32_t na = (ref().*member)(a.as<int16_t>(), qp, m);
            const int32_t nb = fn(b.as<int16_t>(), qp, m);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 128), 0) << "iter " << iter << " qp " << qp;
            ASSERT_EQ(na, nb) << "iter " << iter;
            ASSERT_TRUE(a.intact() && b.intact() && mg.intact());
        }
    }
}

}  // namespace

TEST(Mpeg2QuantVariants, InverseMatchesReference) {
    compare_dequant(&QuantKernels::dequant_intra, true);
    compare_dequant(&QuantKernels::dequant_inter, true);
    compare_dequant(&QuantKernels::dequant_flat, false);
}

TEST(Mpeg2QuantVariants, ForwardMatchesReference) {
    compare_quant(&QuantKernels::quant_intra, true);
    compare_quant(&QuantKernels::quant_inter, true);
    compare_quant(&QuantKernels::quant_flat, false);
}

// Each SIMD level the CPU has (SSE2, AVX2) brings its own version of every
// kernel, so the comparisons above cover them all.
TEST(Mpeg2QuantVariants, EveryKernelHasItsSimdVersions) {
    size_t levels = 0;
    for (auto isa : kplvc::test::simd_levels())
        levels += isa == kplvc::cpu::Isa::sse2 || isa == kplvc::cpu::Isa::avx2;
    using M = QuantKernels;
    EXPECT_EQ(variants(kplvc::mpeg2::quant_kernels_for, &M::dequant_intra).size(), levels);
    EXPECT_EQ(variants(kplvc::mpeg2::quant_kernels_for, &M::dequant_inter).size(), levels);
    EXPECT_EQ(variants(kplvc::mpeg2::quant_kernels_for, &M::dequant_flat).size(), levels);
    EXPECT_EQ(variants(kplvc::mpeg2::quant_kernels_for, &M::quant_intra).size(), levels);
    EXPECT_EQ(variants(kplvc::mpeg2::quant_kernels_for, &M::quant_inter).size(), levels);
    EXPECT_EQ(variants(kplvc::mpeg2::quant_kernels_for, &M::quant_flat).size(), levels);
}
