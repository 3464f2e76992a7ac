// 8x8 transform family: worked examples, accuracy against a floating-point
// transform, the count paths of the matrix engine, and argument checks.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "support/args.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

using Block = std::vector<int16_t>;

Block dc_block(int16_t dc) {
    Block b(64, 0);
    b[0] = dc;
    return b;
}

// Orthonormal 8x8 inverse (F[8*u + v], u vertical) or forward transform in
// double precision.
std::vector<double> dct_double(const Block& in, bool inverse) {
    auto basis = [](int k, int n) {
        return (k == 0 ? std::sqrt(0.125) : 0.5) * std::cos((2 * n + 1) * k * M_PI / 16);
    };
    std::vector<double> out(64, 0.0);
    for (int a = 0; a < 64; ++a)
        for (int b = 0; b < 64; ++b)
            out[a] += in[b] * (inverse ? basis(b / 8, a / 8) * basis(b % 8, a % 8)
                                       : basis(a / 8, b / 8) * basis(a % 8, b % 8));
    return out;
}

uint8_t clip(int v) { return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v); }

}  // namespace

// ---- Table-driven engine ------------------------------------------------------------

TEST(DctInverse, EmptyAndDcBlocks) {
    for (auto [dc, want] : {std::pair{0, 0}, {8, 1}, {-8, -1}, {16, 2}, {2400, 300}, {-24, -3}}) {
        Block full = dc_block(static_cast<int16_t>(dc)), quad = full, pair = full, out(64, 99);
        ASSERT_EQ(kpliDCT8x8Inv_16s_C1(full.data(), out.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_16s_C1I(full.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_4x4_16s_C1I(quad.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_2x2_16s_C1I(pair.data()), kplStsNoErr);
        for (const Block* b : {&out, &full, &quad, &pair})
            EXPECT_EQ(*b, Block(64, static_cast<int16_t>(want))) << dc;
    }
}

// DC blocks saturate to 0 and 255 and leave the gap between rows; on random
// blocks both byte forms equal the clamped 16-bit inverse, also with a step
// of 3, where each row overwrites the first five bytes of the row before it.
TEST(DctInverse, BytesSaturateAndBothByteFormsAgree) {
    for (auto [dc, want] : {std::pair{-24, 0}, {2400, 255}, {800, 100}, {0, 0}}) {
        const Block b = dc_block(static_cast<int16_t>(dc));
        uint8_t a[8 * 11], z[8 * 9];
        std::memset(a, 7, sizeof a);
        ASSERT_EQ(kpliDCT8x8Inv_16s8u_C1R(b.data(), a, 11), kplStsNoErr);
        ASSERT_EQ(kpliDCTInv_8x8_16s8u(b.data(), z, 9), kplStsNoErr);
        for (int r = 0; r < 8; ++r)
            for (int x = 0; x < 11; ++x) {
                ASSERT_EQ(a[11 * r + x], x < 8 ? want : 7) << dc;
                if (x < 8) {
                    ASSERT_EQ(z[9 * r + x], want) << dc;
                }
            }
    }
    Rng rng("dct bytes");
    for (int iter = 0; iter < kplvc::test::iters(500); ++iter) {
        Block b(64), v(64);
        rng.fill(b.data(), 64, iter % 3 ? -32768 : -600, iter % 3 ? 32767 : 600);
        uint8_t a[64], z[64], overlap[40] = {}, want3[40] = {};
        ASSERT_EQ(kpliDCT8x8Inv_16s_C1(b.data(), v.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_16s8u_C1R(b.data(), a, 8), kplStsNoErr);
        ASSERT_EQ(kpliDCTInv_8x8_16s8u(b.data(), z, 8), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_16s8u_C1R(b.data(), overlap, 3), kplStsNoErr);
        for (int i = 0; i < 64; ++i) {
            ASSERT_TRUE(a[i] == clip(v[i]) && z[i] == clip(v[i])) << "iter " << iter << " at " << i;
            want3[3 * (i / 8) + i % 8] = clip(v[i]);
        }
        ASSERT_EQ(std::memcmp(overlap, want3, sizeof want3), 0) << iter;
    }
}

// Both directions within one of the exact transform; the forward one gives 8v
// and nothing else for a constant block, from bytes and from 16-bit samples.
TEST(DctInverse, CloseToTheExactTransform) {
    for (int v : {0, 1, 100, 255}) {
        uint8_t px[8 * 10];
        std::memset(px, v, sizeof px);
        Block out(64, 123), out16(64, 123), in16(64, static_cast<int16_t>(v)), want(64, 0);
        want[0] = static_cast<int16_t>(8 * v);
        ASSERT_EQ(kpliDCT8x8Fwd_8u16s_C1R(px, 10, out.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Fwd_16s_C1(in16.data(), out16.data()), kplStsNoErr);
        EXPECT_TRUE(out == want && out16 == want) << v;
    }
    Rng rng("dct accuracy");
    int worst[2] = {0, 0};
    for (int iter = 0; iter < kplvc::test::iters(600); ++iter) {
        const bool inverse = iter & 1;
        Block in(64, 0), out(64);
        if (inverse)
            for (int k = rng.range(1, 64); k > 0; --k)
                in[rng.range(0, 63)] = static_cast<int16_t>(rng.range(-300, 300));
        else
            rng.fill(in.data(), 64, iter & 2 ? -256 : 0, 255);
        ASSERT_EQ((inverse ? kpliDCT8x8Inv_16s_C1 : kpliDCT8x8Fwd_16s_C1)(in.data(), out.data()),
                  kplStsNoErr);
        const auto ref = dct_double(in, inverse);
        for (int i = 0; i < 64; ++i)
            worst[inverse] =
                std::max(worst[inverse], std::abs(out[i] - static_cast<int>(std::lround(ref[i]))));
    }
    EXPECT_LE(worst[0], 1);
    EXPECT_LE(worst[1], 1);
}

TEST(DctForward, InPlaceEqualsSeparateBuffers) {
    Rng rng("dct in place");
    for (int iter = 0; iter < 100; ++iter) {
        Block a(64), out(64);
        rng.fill_extreme(a.data(), 64);
        Block b = a;
        auto f = iter & 1 ? kpliDCT8x8Fwd_16s_C1 : kpliDCT8x8Inv_16s_C1;
        ASSERT_EQ(f(a.data(), out.data()), kplStsNoErr);
        ASSERT_EQ(f(b.data(), b.data()), kplStsNoErr);
        ASSERT_EQ(b, out) << iter;
    }
}

// ---- Matrix engine ----------------------------------------------------------------

// DC blocks through the full path (count 1, the DC-only path, is pinned for
// every DC by the contract test): the result rounds with 0.625 and clamps to
// -256..255, then to bytes; counts beyond 64 or negative act as 64. Count 0
// gives zeros without reading the source (a source in an unmapped page).
TEST(DctAan, DcExamplesAndCountZero) {
    const struct {
        int16_t dc;
        int32_t count;
        int16_t want16;
        uint8_t want8;
    } cases[] = {
        {12, 9, 2, 2}, {-12, 9, -1, 0},      {-9, 9, -1, 0},       {12, 64, 2, 2}, {12, -1, 2, 2},
        {12, 5, 2, 2}, {4000, 64, 255, 255}, {-4000, 64, -256, 0}, {12, 70, 2, 2}, {32767, 0, 0, 0},
    };
    for (const auto& c : cases) {
        Block b = dc_block(c.dc);
        int16_t out16[64];
        uint8_t out8[64];
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s_C1R(b.data(), out16, 16, c.count), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(b.data(), out8, 8, c.count), kplStsNoErr);
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(out16[i], c.want16) << "dc " << c.dc << " count " << c.count;
            ASSERT_EQ(out8[i], c.want8) << "dc " << c.dc << " count " << c.count;
        }
    }
    kplvc::test::GuardPages gp(64);
    uint8_t* win = gp.flush_end();
    std::memset(win, 9, 64);
    const auto* past = reinterpret_cast<const Kpl16s*>(win + 64);
    ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(past, win, 8, 0), kplStsNoErr);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(win[i], 0);
}

TEST(DctAan, CloseToTheExactTransformOfTheTransposedBlock) {
    Rng rng("dct aan accuracy");
    int worst = 0;
    for (int iter = 0; iter < 300; ++iter) {
        Block F(64, 0);
        const int n = rng.range(2, 64);
        for (int k = 0; k < n; ++k) F[rng.range(0, 63)] = static_cast<int16_t>(rng.range(-400, 400));
        int16_t out[64];
        Block t(64);
        for (int i = 0; i < 64; ++i) t[8 * (i % 8) + i / 8] = F[i];
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s_C1R(t.data(), out, 16, 64), kplStsNoErr);
        const auto ref = dct_double(F, true);
        for (int i = 0; i < 64; ++i) {
            // Rounded with 0.625 instead of 0.5: floor(x + 0.625).
            const int want = static_cast<int>(std::floor(ref[i] + 0.625));
            if (want < -256 || want > 255) continue;
            worst = std::max(worst, std::abs(out[i] - want));
        }
    }
    EXPECT_LE(worst, 1);
}

TEST(DctAan, InterleavedOutputTakesEvenFromUAndOddFromV) {
    Rng rng("dct aan pairs");
    for (int iter = 0; iter < 40; ++iter) {
        Block u(64), v(64);
        rng.fill(u.data(), 64, -1024, 1023);
        rng.fill(v.data(), 64, -1024, 1023);
        const int32_t cu = rng.range(0, 70), cv = rng.range(0, 70);
        int16_t ou[64], ov[64];
        uint8_t bu[64], bv[64];
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s_C1R(u.data(), ou, 16, cu), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s_C1R(v.data(), ov, 16, cv), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(u.data(), bu, 8, cu), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(v.data(), bv, 8, cv), kplStsNoErr);
        const int32_t step16 = 2 * 16 + 2 * rng.range(0, 3), step8 = 16 + rng.range(0, 5);
        Guarded g16(static_cast<size_t>(7 * step16 + 32)), g8(static_cast<size_t>(7 * step8 + 16));
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s_P2C2R(u.data(), v.data(), g16.as<Kpl16s>(), step16, cu, cv),
                  kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_P2C2R(u.data(), v.data(), g8.data(), step8, cu, cv),
                  kplStsNoErr);
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 8; ++j) {
                int16_t a, b;
                std::memcpy(&a, g16.data() + i * step16 + 4 * j, 2);
                std::memcpy(&b, g16.data() + i * step16 + 4 * j + 2, 2);
                ASSERT_EQ(a, ou[8 * i + j]);
                ASSERT_EQ(b, ov[8 * i + j]);
                ASSERT_EQ(g8.data()[i * step8 + 2 * j], bu[8 * i + j]);
                ASSERT_EQ(g8.data()[i * step8 + 2 * j + 1], bv[8 * i + j]);
            }
        ASSERT_TRUE(g16.intact() && g8.intact());
    }
}

// ---- 2-4-8 engine ------------------------------------------------------------------

// Zeros stay zeros; forward then inverse gives the samples back to within two
// units (the inverse weights are one below the forward ones and both round);
// coefficients only in the sum field (rows 0..3) give equal line pairs.
TEST(DctField, RoundTripAndSumField) {
    Rng rng("dct field");
    int worst = 0;
    for (int iter = 0; iter < 300; ++iter) {
        Block a(64, 0);
        if (iter > 0) rng.fill(a.data(), 64, -255, 255);
        Block b = a;
        ASSERT_EQ(kpliDCT2x4x8Frw_16s_C1I(b.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT2x4x8Inv_16s_C1I(b.data()), kplStsNoErr);
        for (int i = 0; i < 64; ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
        if (iter == 0) {
            EXPECT_EQ(b, a);
        }
        std::fill(a.begin() + 32, a.end(), 0);
        ASSERT_EQ(kpliDCT2x4x8Inv_16s_C1I(a.data()), kplStsNoErr);
        for (int i = 0; i < 64; i += 16) ASSERT_TRUE(std::equal(&a[i], &a[i + 8], &a[i + 8])) << iter;
    }
    EXPECT_LE(worst, 2);
}

// ---- Argument checks ---------------------------------------------------------------

TEST(DctArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    kplvc::test::ArgPool p;
    const Kpl16s *s = p.take<Kpl16s>(64), *v = p.take<Kpl16s>(64);
    const Kpl8u* px = p.take<Kpl8u>(64);
    Kpl16s* d16 = p.take<Kpl16s>(8 * 16);
    Kpl8u* d8 = p.take<Kpl8u>(8 * 16);
    for (auto f : {kpliDCT8x8Inv_16s_C1I, kpliDCT8x8Inv_4x4_16s_C1I, kpliDCT8x8Inv_2x2_16s_C1I,
                   kpliDCT2x4x8Frw_16s_C1I, kpliDCT2x4x8Inv_16s_C1I})
        CHECK_ARGS(p, f, {d16}, {null(0)});
    for (auto f : {kpliDCT8x8Inv_16s_C1, kpliDCT8x8Fwd_16s_C1})
        CHECK_ARGS(p, f, {s, d16}, {null(0), null(1)});
    CHECK_ARGS(p, kpliDCT8x8Inv_16s8u_C1R, {s, d8, 8},
               {null(0), null(1), fails(2, 0, kplStsStepErr), fails(2, -8, kplStsStepErr), passes(2, 1)});
    CHECK_ARGS(p, kpliDCTInv_8x8_16s8u, {s, d8, 8}, {null(1), fails(2, 7, kplStsBlockStepErr), null(0)});
    CHECK_ARGS(p, kpliDCT8x8Fwd_8u16s_C1R, {px, 8, d16}, {null(0), null(2), fails(1, 0, kplStsStepErr)});
    CHECK_ARGS(p, kpliDCT8x8Inv_AANTransposed_16s_C1R, {s, d16, 16, 64}, {null(0), null(1), passes(3, 0)});
    CHECK_ARGS(p, kpliDCT8x8Inv_AANTransposed_16s8u_C1R, {s, d8, 8, 64}, {null(0), null(1), passes(3, 0)});
    CHECK_ARGS(p, kpliDCT8x8Inv_AANTransposed_16s_P2C2R, {s, v, d16, 32, 1, 1}, {null(0), null(1), null(2)});
    CHECK_ARGS(p, kpliDCT8x8Inv_AANTransposed_16s8u_P2C2R, {s, v, d8, 16, 0, 0}, {null(0), null(1), null(2)});
}
