// Block-matching metrics through the exported functions: worked values that
// pin positions, rounding, wrap-around and truncation, and the argument checks.
#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "support/args.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;
using kplvc::test::Guarded;

namespace {

// A 17x17 (plus slack) plane with a 32-byte step, filled by f(x, y).
struct Plane {
    static constexpr int32_t kStep = 32;
    std::vector<uint8_t> px = std::vector<uint8_t>(kStep * 18, 0);
    template <class F>
    explicit Plane(F f) {
        for (int y = 0; y < 18; ++y)
            for (int x = 0; x < kStep; ++x)
                px[static_cast<size_t>(y * kStep + x)] = static_cast<uint8_t>(f(x, y));
    }
    const uint8_t* data() const { return px.data(); }
};

// v = 2x + 8y: the four positions predict v, v + 4 (vertical half),
// v + 1 (horizontal half: (2v + 3) >> 1) and v + 5 ((4v + 22) >> 2).
const Plane& gradient() {
    static const Plane p([](int x, int y) { return 2 * x + 8 * y; });
    return p;
}

}  // namespace

// ---- Behaviour ------------------------------------------------------------------

TEST(MetricsPositions, McTypeSelectsThePosition) {
    struct Case {
        Kpl32s mcType;
        Kpl32s sad16, sad8, sqr16;
    };
    // Offsets ff 0, fh 4, hf 1, hh 5 over 256 or 64 samples. The 8x8 SAD
    // takes only 0, 4 and 8 as full or half positions; every other value is
    // the centre of four.
    const Case cases[] = {
        {0, 0, 0, 0},          {1, 0, 320, 0},       {2, 0, 320, 0},        {3, 0, 320, 0},
        {4, 1024, 256, 4096},  {5, 1024, 320, 4096}, {7, 1024, 320, 4096},  {8, 256, 64, 256},
        {9, 256, 320, 256},    {11, 256, 320, 256},  {12, 1280, 320, 6400}, {13, 1280, 320, 6400},
        {15, 1280, 320, 6400},
    };
    const Plane& g = gradient();
    for (const auto& c : cases) {
        Kpl32s sad16 = -1, sad8 = -1, sqr = -1;
        ASSERT_EQ(kpliSAD16x16_8u32s(g.data(), Plane::kStep, g.data(), Plane::kStep, &sad16, c.mcType),
                  kplStsNoErr);
        ASSERT_EQ(kpliSAD8x8_8u32s_C1R(g.data(), Plane::kStep, g.data(), Plane::kStep, &sad8, c.mcType),
                  kplStsNoErr);
        ASSERT_EQ(kpliSqrDiff16x16_8u32s(g.data(), Plane::kStep, g.data(), Plane::kStep, c.mcType, &sqr),
                  kplStsNoErr);
        EXPECT_EQ(sad16, c.sad16) << "mcType " << c.mcType;
        EXPECT_EQ(sad8, c.sad8) << "mcType " << c.mcType;
        EXPECT_EQ(sqr, c.sqr16) << "mcType " << c.mcType;
    }
}

TEST(MetricsPositions, CentreOfFourRoundsOnceNotTwice) {
    const struct {
        const char* what;
        int (*ref)(int, int);
        int cur;
        Kpl32s sad16;
    } cases[] = {
        // Every 2x2 window holds 0, 255, 255, 0: (510 + 2) >> 2 = 128.
        {"checkerboard 0/255", [](int x, int y) { return ((x + y) & 1) * 255; }, 0, 256 * 128},
        {"checkerboard 0/255 vs 128", [](int x, int y) { return ((x + y) & 1) * 255; }, 128, 0},
        // One 1 in every window: (1 + 2) >> 2 = 0, where averaging the row
        // averages would give 1.
        {"single one per window", [](int x, int y) { return (x % 2 == 0 && y % 2 == 0) ? 1 : 0; }, 0, 0},
        // Windows summing to 2: (2 + 2) >> 2 = 1.
        {"two ones per window", [](int x, int) { return x % 2 == 0 ? 1 : 0; }, 0, 256},
        // Windows summing to 1021 (255, 255, 255, 256 is impossible; use
        // 254 + 3 x 255 = 1019): (1019 + 2) >> 2 = 255.
        {"near white", [](int x, int y) { return (x % 2 == 0 && y % 2 == 0) ? 254 : 255; }, 255, 0},
    };
    for (const auto& c : cases) {
        const Plane ref(c.ref);
        const Plane cur([&](int, int) { return c.cur; });
        Kpl32s sad = -1, sad8 = -1;
        ASSERT_EQ(kpliSAD16x16_8u32s(cur.data(), Plane::kStep, ref.data(), Plane::kStep, &sad, 12),
                  kplStsNoErr);
        ASSERT_EQ(kpliSAD8x8_8u32s_C1R(cur.data(), Plane::kStep, ref.data(), Plane::kStep, &sad8, 12),
                  kplStsNoErr);
        EXPECT_EQ(sad, c.sad16) << c.what;
        EXPECT_EQ(sad8, c.sad16 / 4) << c.what;
    }
}

TEST(MetricsBidirectional, AverageRoundsUpAndPositionsPair) {
    // Flat references 10 and 11 against 10: (10 + 11 + 1) >> 1 = 11.
    {
        const Plane f([](int, int) { return 10; }), b([](int, int) { return 11; });
        Kpl32s sq = -1;
        ASSERT_EQ(kpliSqrDiff16x16B_8u32s(f.data(), 32, f.data(), 32, 0, b.data(), 32, 0, &sq), kplStsNoErr);
        EXPECT_EQ(sq, 256);
    }
    // On the gradient: pred = v + ((oF + oB + 1) >> 1).
    const struct {
        Kpl32s tf, tb, want;
    } cases[] = {
        {0, 0, 0},   {0, 12, 256 * 9}, {12, 0, 256 * 9},   {4, 8, 256 * 9},
        {8, 8, 256}, {8, 4, 256 * 9},  {12, 12, 256 * 25}, {4, 4, 256 * 16},
        {1, 2, 0},   {13, 3, 256 * 9}, {7, 14, 256 * 25},  {8, 0, 256},
    };
    const Plane& g = gradient();
    for (const auto& c : cases) {
        Kpl32s sq = -1;
        ASSERT_EQ(kpliSqrDiff16x16B_8u32s(g.data(), 32, g.data(), 32, c.tf, g.data(), 32, c.tb, &sq),
                  kplStsNoErr);
        EXPECT_EQ(sq, c.want) << c.tf << "/" << c.tb;
    }
}

TEST(MetricsSubBlocks, SadsLandInRasterOrder) {
    // Current sub-block k is flat at 15 k + 1 (8x8: 60 k + 3), reference 0.
    const Plane cur4([](int x, int y) { return 15 * ((y / 4) * 4 + x / 4) + 1; });
    const Plane cur8([](int x, int y) { return 60 * ((y / 8) * 2 + x / 8) + 3; });
    const Plane zero([](int, int) { return 0; });
    Kpl16u s4[16], s8[4];
    ASSERT_EQ(kpliSAD16x16Blocks4x4_8u16u(cur4.data(), 32, zero.data(), 32, s4), kplStsNoErr);
    ASSERT_EQ(kpliSAD16x16Blocks8x8_8u16u(cur8.data(), 32, zero.data(), 32, s8), kplStsNoErr);
    for (int k = 0; k < 16; ++k) EXPECT_EQ(s4[k], 16 * (15 * k + 1)) << k;
    for (int k = 0; k < 4; ++k) EXPECT_EQ(s8[k], 64 * (60 * k + 3)) << k;
    Kpl32s s = -1;
    ASSERT_EQ(kpliSAD4x4_8u32s(zero.data(), 32, cur4.data() + 12, 32, &s), kplStsNoErr);
    EXPECT_EQ(s, 16 * 46);
}

TEST(MetricsVariance, VarMean8x8IntegerForms) {
    const struct {
        const char* what;
        int (*f)(int, int);
        Kpl32s var, mean;
    } cases[] = {
        {"flat 10", [](int, int) { return 10; }, 0, 640},
        {"halves 0/255", [](int x, int) { return x < 4 ? 0 : 255; }, 16256, 8160},
        {"one bright sample", [](int x, int y) { return x == 0 && y == 0 ? 255 : 0; },
         (64 * 65025 - 65025) / 4096, 255},
    };
    for (const auto& c : cases) {
        const Plane p(c.f);
        Kpl32s var = -1, mean = -1;
        ASSERT_EQ(kpliVarMean8x8_8u32s_C1R(p.data(), Plane::kStep, &var, &mean), kplStsNoErr);
        EXPECT_EQ(var, c.var) << c.what;
        EXPECT_EQ(mean, c.mean) << c.what;
    }

    const struct {
        const char* what;
        int16_t a, b;  // a in the first 32 samples, b in the rest
        Kpl32s var, mean;
    } signed_cases[] = {
        // Q = 64 * 2^30 wraps to 0: (0 - 2^42) / 4096.
        {"all -32768", -32768, -32768, -1073741824, -2097152},
        {"all 32767", 32767, 32767, -1073741824, 2097088},
        // Q wraps to -2097120; (64 Q - 1024) / 4096 = -32767.75 truncates to -32767.
        {"halves -32768/32767", -32768, 32767, -32767, -32},
        {"flat -5", -5, -5, 0, -320},
        {"halves -3/3", -3, 3, 9, 0},
    };
    for (const auto& c : signed_cases) {
        // Rows 18 bytes apart (odd in 16-bit units), so cells are misaligned.
        std::vector<uint8_t> buf(8 * 18 + 1);
        for (int i = 0; i < 64; ++i) {
            const int16_t v = i < 32 ? c.a : c.b;
            std::memcpy(buf.data() + 1 + (i / 8) * 18 + (i % 8) * 2, &v, 2);
        }
        Kpl32s var = -1, mean = -1;
        ASSERT_EQ(kpliVarMean8x8_16s32s_C1R(reinterpret_cast<const Kpl16s*>(buf.data() + 1), 18, &var, &mean),
                  kplStsNoErr);
        EXPECT_EQ(var, c.var) << c.what;
        EXPECT_EQ(mean, c.mean) << c.what;
    }
}

TEST(MetricsVariance, VarMeanDiffMeansTruncateTowardZero) {
    // Current 20, reference 10 at every position: d = 10, sq = 6400 and the
    // prediction sum 640 in each quarter.
    const Plane cur([](int, int) { return 20; }), ref([](int, int) { return 10; });
    struct Case {
        Kpl32s sum, mean, var;
    };
    const Case q[4] = {
        {1280, 80, 0},     // (1280 - 640) / 8 = 80, 80^2 = 6400 is not below sq
        {1, -79, 2},       // -639 / 8 = -79.875 -> -79; (6400 - 6241) / 64 = 2
        {640, 0, 100},     // 6400 / 64
        {-1000, -205, 0},  // -1640 / 8; 205^2 > 6400
    };
    for (Kpl32s mcType : {0, 4, 8, 12, 3, 15}) {
        const Kpl32s sums[4] = {q[0].sum, q[1].sum, q[2].sum, q[3].sum};
        Kpl32s var[4] = {-7, -7, -7, -7}, mean[4] = {-7, -7, -7, -7};
        ASSERT_EQ(kpliVarMeanDiff16x16_8u32s_C1R(cur.data(), 32, ref.data(), 32, sums, var, mean, mcType),
                  kplStsNoErr);
        for (int k = 0; k < 4; ++k) {
            EXPECT_EQ(mean[k], q[k].mean) << "mcType " << mcType << " quarter " << k;
            EXPECT_EQ(var[k], q[k].var) << "mcType " << mcType << " quarter " << k;
        }
        Kpl32s var2[4] = {-7, -7, -7, -7}, mean2[4] = {-7, -7, -7, -7};
        ASSERT_EQ(kpliVarMeanDiff16x8_8u32s_C1R(cur.data(), 32, ref.data(), 32, sums, var2, mean2, mcType),
                  kplStsNoErr);
        EXPECT_EQ(mean2[1], q[1].mean);
        EXPECT_EQ(var2[1], q[1].var);
        EXPECT_EQ(var2[2], -7);  // a 16x8 block has two quarters only
        EXPECT_EQ(mean2[3], -7);
    }
    // The gradient at hh predicts v + 5 everywhere: d = -5, sum pred 64 v + 320.
    const Plane& g = gradient();
    Kpl32s sums[4];
    for (int k = 0; k < 4; ++k) {
        int s = 0;
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
                s += g.px[static_cast<size_t>((8 * (k >> 1) + y) * 32 + 8 * (k & 1) + x)];
        sums[k] = s;
    }
    Kpl32s var[4], mean[4];
    ASSERT_EQ(kpliVarMeanDiff16x16_8u32s_C1R(g.data(), 32, g.data(), 32, sums, var, mean, 12), kplStsNoErr);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(mean[k], -40);  // -320 / 8
        EXPECT_EQ(var[k], 0);     // sq = 1600 = 40^2
    }
}

// The variance wraps S*S in 32 bits and truncates; the mean absolute
// deviation rounds the mean.
TEST(MetricsVariance, WrapAndTruncationOf16x16AndRoundedMean) {
    const auto var = kpliVariance16x16_8u32s, mad = kpliMeanAbsDev16x16_8u32s_C1R;
    const struct {
        const char* what;
        KplStatus (*fn)(const Kpl8u*, Kpl32s, Kpl32s*);
        int (*f)(int, int);
        Kpl32s want;
    } cases[] = {
        {"flat 100", var, [](int, int) { return 100; }, 0},
        // S = 65280: S*S wraps to -33488896, / 256 = -130816.
        {"all 255", var, [](int, int) { return 255; }, 16777216},
        // S = 65279: S*S wraps to -33619455, / 256 truncates to -131325.
        {"all 255 but one 254", var, [](int x, int y) { return x == 3 && y == 5 ? 254 : 255; }, 16777216},
        // S = 32640: S*S = 1065369600 does not wrap.
        {"halves 0/255", var, [](int x, int) { return x < 8 ? 0 : 255; }, 128 * 65025 - 32640 * 32640 / 256},
        {"ramp 0..255", mad, [](int x, int y) { return 16 * y + x; }, 16384},
        // S = 128: m = (128 + 128) >> 8 = 1, not 0.
        {"one sample 128", mad, [](int x, int y) { return x == 0 && y == 0 ? 128 : 0; }, 255 + 127},
        // S = 127: m = 0.
        {"one sample 127", mad, [](int x, int y) { return x == 0 && y == 0 ? 127 : 0; }, 127},
        {"flat 200", mad, [](int, int) { return 200; }, 0},
    };
    for (const auto& c : cases) {
        const Plane p(c.f);
        Kpl32s v = -1;
        ASSERT_EQ(c.fn(p.data(), Plane::kStep, &v), kplStsNoErr);
        EXPECT_EQ(v, c.want) << c.what;
    }
}

TEST(MetricsEdges, ByteArithmeticOfTheDecision) {
    // Column 0 is 0 and the rest 200: exactly one edge per row (at x = 0,
    // difference clamped to 127), so n = y + 1 after row y.
    const Plane one_per_row([](int x, int) { return x == 0 ? 0 : 200; });
    const Plane flat([](int, int) { return 77; });
    // As one_per_row, with row 15 flat at 90 (row 14 against it adds 15
    // vertical edges: 29 after row 14) and row 16 at 255, which would add
    // more if row 15 were ever scanned.
    const Plane last_rows([](int x, int y) { return y == 16 ? 255 : y == 15 ? 90 : (x == 0 ? 0 : 200); });
    const struct {
        const char* what;
        const Plane* p;
        Kpl8u diff, count, want;
    } cases[] = {
        {"flat, count 5: no edge in the first row", &flat, 10, 5, 1},
        {"flat, count 0", &flat, 10, 0, 0},
        {"flat, count 255", &flat, 10, 255, 1},
        {"15 edges, count 15", &one_per_row, 100, 15, 0},
        {"15 edges, count 14", &one_per_row, 100, 14, 1},
        {"clamped 127 is not above 127", &one_per_row, 127, 15, 1},
        {"clamped 127 is above 126", &one_per_row, 126, 15, 0},
        // 200 is -56 as a signed byte: every tested sample is an edge, at
        // most 225 < 250, never more than the count.
        {"threshold 200 counts every sample", &flat, 200, 250, 0},
        {"threshold 200, count 20", &flat, 200, 20, 1},
        {"29 edges, count 29: row 15 not scanned", &last_rows, 50, 29, 0},
        {"29 edges, count 28", &last_rows, 50, 28, 1},
    };
    for (const auto& c : cases) {
        Kpl8u res = 9;
        ASSERT_EQ(kpliEdgesDetect16x16_8u_C1R(c.p->data(), Plane::kStep, c.diff, c.count, &res), kplStsNoErr);
        EXPECT_EQ(res, c.want) << c.what;
    }
}

// Block k's sixteen differences go to cells 16k..16k+15 in raster order, its
// sum to cell k; nothing beyond the blocks is written, and a null difference
// pointer leaves the sums unchanged.
TEST(MetricsSumsDiff, LayoutSumsAndNullDiff) {
    auto sv = [](int x, int y) { return x * 16 + y; };
    auto pv = [](int x, int y) { return (x + y) % 3 == 0 ? 255 : 0; };
    const Plane src(sv), pred(pv);
    auto bytes = [](const Guarded& g) { return std::vector<uint8_t>(g.data(), g.data() + g.size()); };
    for (int n : {16, 8}) {
        const int per_row = n / 4;
        const auto fn = n == 16 ? kpliSumsDiff16x16Blocks4x4_8u16s_C1 : kpliSumsDiff8x8Blocks4x4_8u16s_C1;
        Guarded sums(2 * 16), sums2(2 * 16), diff(2 * 256);
        ASSERT_EQ(fn(src.data(), 32, pred.data(), 32, sums.as<Kpl16s>(), diff.as<Kpl16s>()), kplStsNoErr);
        ASSERT_EQ(fn(src.data(), 32, pred.data(), 32, sums2.as<Kpl16s>(), nullptr), kplStsNoErr);
        std::vector<uint8_t> want_sums(32, Guarded::kCanary), want_diff(512, Guarded::kCanary);
        for (int k = 0; k < per_row * per_row; ++k) {
            int16_t sum = 0;
            for (int i = 0; i < 16; ++i) {
                const int x = 4 * (k % per_row) + i % 4, y = 4 * (k / per_row) + i / 4;
                const auto d = static_cast<int16_t>(sv(x, y) - pv(x, y));
                sum = static_cast<int16_t>(sum + d);
                std::memcpy(&want_diff[static_cast<size_t>(2 * (16 * k + i))], &d, 2);
            }
            std::memcpy(&want_sums[static_cast<size_t>(2 * k)], &sum, 2);
        }
        EXPECT_EQ(bytes(sums), want_sums) << n;
        EXPECT_EQ(bytes(sums2), want_sums) << n;
        EXPECT_EQ(bytes(diff), want_diff) << n;
        EXPECT_TRUE(sums.intact() && sums2.intact() && diff.intact());
    }
    // Sums reach -4080 without saturation or wrap.
    const Plane black([](int, int) { return 0; }), white([](int, int) { return 255; });
    Kpl16s s4[4];
    ASSERT_EQ(kpliSumsDiff8x8Blocks4x4_8u16s_C1(black.data(), 32, white.data(), 32, s4, nullptr),
              kplStsNoErr);
    for (Kpl16s v : s4) EXPECT_EQ(v, -4080);
}

TEST(MetricsCountZeros, Counts) {
    const struct {
        const char* what;
        int16_t (*f)(int);
        Kpl32s want;
    } cases[] = {
        {"all zero", [](int) -> int16_t { return 0; }, 64},
        {"none", [](int i) -> int16_t { return static_cast<int16_t>(i + 1); }, 0},
        {"every other", [](int i) -> int16_t { return static_cast<int16_t>(i % 2 ? -32768 : 0); }, 32},
        {"last only", [](int i) -> int16_t { return static_cast<int16_t>(i == 63 ? 0 : 256); }, 1},
    };
    for (const auto& c : cases) {
        Kpl16s b[64];
        for (int i = 0; i < 64; ++i) b[i] = c.f(i);
        Kpl32s n = -1;
        ASSERT_EQ(kpliCountZeros8x8_16s_C1(b, &n), kplStsNoErr);
        EXPECT_EQ(n, c.want) << c.what;
    }
}

TEST(MetricsTextureError, DifferencesAgainstPackedReference) {
    const Plane src([](int x, int y) { return (x * 37 + y * 11) & 255; });
    uint8_t ref[64];
    for (int i = 0; i < 64; ++i) ref[i] = static_cast<uint8_t>(255 - 3 * i);
    Guarded d1(128), d2(128);
    Kpl32s sad = -1;
    ASSERT_EQ(kpliComputeTextureErrorBlock_SAD_8u16s(src.data(), 32, ref, d1.as<Kpl16s>(), &sad),
              kplStsNoErr);
    ASSERT_EQ(kpliComputeTextureErrorBlock_8u16s(src.data(), 32, ref, d2.as<Kpl16s>()), kplStsNoErr);
    int want_sad = 0;
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const int want = ((x * 37 + y * 11) & 255) - ref[8 * y + x];
            want_sad += want < 0 ? -want : want;
            int16_t got;
            std::memcpy(&got, d1.data() + 2 * (8 * y + x), 2);
            ASSERT_EQ(got, want) << x << "," << y;
        }
    EXPECT_EQ(sad, want_sad);
    EXPECT_EQ(std::memcmp(d1.data(), d2.data(), 128), 0);
    EXPECT_TRUE(d1.intact() && d2.intact());
}

TEST(MetricsSteps, NegativeStepsAreTrusted) {
    // Bottom-up addressing with a negative step gives the same SAD as the
    // rows read top-down in reverse.
    const Plane& g = gradient();
    const Plane flipped([](int x, int y) { return 2 * x + 8 * (15 - y); });
    Kpl32s up = -1;
    ASSERT_EQ(kpliSAD16x16_8u32s(flipped.data(), 32, g.data() + 15 * 32, -32, &up, 0), kplStsNoErr);
    EXPECT_EQ(up, 0);
}

// ---- Argument checks --------------------------------------------------------------

// Null pointers in order; a few results may be null (nothing is written
// then), and the texture-error functions answer -5.
TEST(MetricsArgs, NullPointersInOrderAndNothingWritten) {
    kplvc::test::ArgPool p;
    const Kpl8u* s = p.take<Kpl8u>(32 * 18);
    const Kpl16s* coefs = p.take<Kpl16s>(64);
    const Kpl32s* sums = p.take<Kpl32s>(4);
    Kpl32s* o = p.take<Kpl32s>(8);
    Kpl16s* o16 = p.take<Kpl16s>(16 + 256);
    Kpl16u* o16u = p.take<Kpl16u>(16);
    Kpl8u* o8 = p.take<Kpl8u>(1);
    for (auto f : {kpliSAD16x16_8u32s, kpliSAD8x8_8u32s_C1R})
        CHECK_ARGS(p, f, {s, 32, s, 32, o, 12}, {null(0), null(2), null(4, kplStsNoErr)});
    CHECK_ARGS(p, kpliSAD4x4_8u32s, {s, 32, s, 32, o}, {null(0), null(2), null(4)});
    for (auto f : {kpliSAD16x16Blocks8x8_8u16u, kpliSAD16x16Blocks4x4_8u16u})
        CHECK_ARGS(p, f, {s, 32, s, 32, o16u}, {null(0), null(2), null(4)});
    CHECK_ARGS(p, kpliSqrDiff16x16_8u32s, {s, 32, s, 32, 0, o}, {null(0), null(2), null(5)});
    CHECK_ARGS(p, kpliSqrDiff16x16B_8u32s, {s, 32, s, 32, 0, s, 32, 12, o},
               {null(0), null(2), null(5), null(8)});
    CHECK_ARGS(p, kpliVariance16x16_8u32s, {s, 32, o}, {null(0), null(2)});
    CHECK_ARGS(p, kpliMeanAbsDev16x16_8u32s_C1R, {s, 32, o}, {null(0), null(2, kplStsNoErr)});
    CHECK_ARGS(p, kpliVarMean8x8_8u32s_C1R, {s, 32, o, o + 1}, {null(0), null(2), null(3)});
    CHECK_ARGS(p, kpliVarMean8x8_16s32s_C1R, {coefs, 16, o, o + 1}, {null(0), null(2), null(3)});
    for (auto f : {kpliVarMeanDiff16x16_8u32s_C1R, kpliVarMeanDiff16x8_8u32s_C1R})
        CHECK_ARGS(p, f, {s, 32, s, 32, sums, o, o + 4, 0}, {null(0), null(2), null(4), null(5), null(6)});
    CHECK_ARGS(p, kpliEdgesDetect16x16_8u_C1R, {s, 32, 1, 1, o8}, {null(0), null(4)});
    for (auto f : {kpliSumsDiff16x16Blocks4x4_8u16s_C1, kpliSumsDiff8x8Blocks4x4_8u16s_C1})
        CHECK_ARGS(p, f, {s, 32, s, 32, o16, o16 + 16}, {null(0), null(2), null(4), null(5, kplStsNoErr)});
    CHECK_ARGS(p, kpliCountZeros8x8_16s_C1, {coefs, o}, {null(0), null(1)});
    const KplStatus bad = kplStsBadArgErr;
    CHECK_ARGS(p, kpliComputeTextureErrorBlock_SAD_8u16s, {s, 32, s, o16, o},
               {null(0, bad), null(2, bad), null(3, bad), null(4, bad)});
    CHECK_ARGS(p, kpliComputeTextureErrorBlock_8u16s, {s, 32, s, o16},
               {null(0, bad), null(2, bad), null(3, bad)});
}
