#include <cstdint>
#include <cstring>
#include <vector>

#include "core/vector.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::VectorKernels;
using kplvc::test::Arena;
using kplvc::test::Guarded;
using kplvc::test::Rng;

// ---- Behaviour ------------------------------------------------------------------

TEST(Malloc, AlignedWithBackPointerAndNullForNonPositive) {
    for (Kpl32s len : {1, 2, 31, 32, 33, 1000, 1 << 20}) {
        Kpl8u* p = kplsMalloc_8u(len);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 32, 0u);
        void* raw;
        std::memcpy(&raw, p - sizeof(void*), sizeof(void*));
        const ptrdiff_t gap = p - static_cast<Kpl8u*>(raw);
        EXPECT_GE(gap, static_cast<ptrdiff_t>(sizeof(void*)));
        EXPECT_LE(gap, static_cast<ptrdiff_t>(31 + sizeof(void*)));
        std::memset(p, 0x5A, static_cast<size_t>(len));  // the whole block is usable (ASan checks)
        kplsFree(p);
    }
    for (Kpl32s len : {0, -1, INT32_MIN}) EXPECT_EQ(kplsMalloc_8u(len), nullptr) << len;
    kplsFree(nullptr);  // does nothing
}

TEST(MulC, RoundingAndSaturation) {
    const struct {
        int16_t x, val;
        int32_t sf;
        int16_t want;
    } cases[] = {
        // Right shifts round ties to even, for both signs.
        {3, 1, 1, 2},
        {5, 1, 1, 2},
        {-3, 1, 1, -2},
        {-5, 1, 1, -2},  // +-1.5, +-2.5
        {10, 1, 2, 2},
        {11, 1, 2, 3},                // 2.5, 2.75
        {-32768, -32768, 15, 32767},  // 2^30 / 2^15 = 32768 saturates
        {-32768, -32768, 16, 16384},
        {-32768, 32767, 30, -1},  // -0.99997 -> -1
        {16384, -32768, 30, 0},   // -0.5 -> 0 (even)
        {5, 7, 31, 0},
        {5, 7, 1000, 0},  // shifts past the product's width
        // Left shifts (negative sf) saturate, no shift saturates the product.
        {-3, 1, -16, -32768},
        {3, -1, -16, -32768},
        {-3, -1, -20, 32767},
        {0, 5, -20, 0},
        {5, 0, -3, 0},
        {1000, 1000, 0, 32767},
        {-1000, 1000, 0, -32768},
        {123, 1, 0, 123},
        {-1, 0, 0, 0},
        {300, 300, -1, 32767},  // clamped before the shift as well as after
        {-2, 3, -2, -24},
        {4096, 4, -1, 32767},  // 16384 << 1 saturates
    };
    for (const auto& c : cases) {
        int16_t v[3] = {c.x, c.x, c.x};
        ASSERT_EQ(kplsMulC_16s_ISfs(c.val, v, 3, c.sf), kplStsNoErr);
        for (int16_t got : v) EXPECT_EQ(got, c.want) << "x=" << c.x << " val=" << c.val << " sf=" << c.sf;
    }
}

// Operation 4 clips values above the level; every other code clips below it.
TEST(Threshold, GreaterAndLess) {
    for (int32_t op : {4, 1, 0, -1, 5}) {
        int16_t v[3] = {12, 7, 10};
        ASSERT_EQ(kplsThreshold_16s_I(v, 3, 10, op), kplStsNoErr);
        const int16_t want[3] = {int16_t(op == 4 ? 10 : 12), int16_t(op == 4 ? 7 : 10), 10};
        EXPECT_EQ(std::memcmp(v, want, sizeof v), 0)
            << "op " << op << ": " << v[0] << "," << v[1] << "," << v[2];
    }
}

TEST(SetRegion, StepsWiderEqualAndNarrower) {
    struct Case {
        int32_t step, w, h;
    };
    for (Case c : {Case{8, 5, 3}, Case{5, 5, 3}, Case{2, 5, 3}, Case{1, 4, 4}, Case{300, 256, 2}}) {
        std::vector<uint8_t> got(1024, 0), want(1024, 0);
        for (int y = 0; y < c.h; ++y)
            for (int x = 0; x < c.w; ++x) want[static_cast<size_t>(y * c.step + x)] = 0x77;
        ASSERT_EQ(kpliSet_8u_C1R(0x77, got.data(), c.step, {c.w, c.h}), kplStsNoErr);
        EXPECT_EQ(got, want) << "step " << c.step;
    }
}

TEST(CopyAndSet, EveryLengthClassMatches) {
    Rng rng(11);
    for (Kpl32s len : {1,    2,    3,    7,    8,     15,    16,    17,    31,    33,    64,
                       1023, 8191, 8192, 8193, 16383, 16384, 20479, 20480, 20481, 100003}) {
        Guarded src(static_cast<size_t>(len)), dst(static_cast<size_t>(len), 3);
        rng.fill(src.data(), src.size());
        ASSERT_EQ(kplsCopy_8u(src.data(), dst.data(), len), kplStsNoErr);
        EXPECT_EQ(std::memcmp(src.data(), dst.data(), static_cast<size_t>(len)), 0) << len;
        ASSERT_EQ(kplsSet_8u(0x3C, dst.data(), len), kplStsNoErr);
        for (Kpl32s i = 0; i < len; ++i) ASSERT_EQ(dst.data()[i], 0x3C) << len;
        Guarded s16(2 * static_cast<size_t>(len), 2);
        ASSERT_EQ(kplsSet_16s(-2, reinterpret_cast<Kpl16s*>(s16.data()), len), kplStsNoErr);
        for (Kpl32s i = 0; i < len; ++i) {
            int16_t got;
            std::memcpy(&got, s16.data() + 2 * i, 2);
            ASSERT_EQ(got, -2);
        }
        ASSERT_EQ(kplsZero_16s(reinterpret_cast<Kpl16s*>(s16.data()), len), kplStsNoErr);
        for (size_t i = 0; i < 2 * static_cast<size_t>(len); ++i) ASSERT_EQ(s16.data()[i], 0);
        EXPECT_TRUE(src.intact() && dst.intact() && s16.intact()) << len;
    }
}

// ---- Argument checks --------------------------------------------------------------

TEST(VectorArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    kplvc::test::ArgPool p;
    Kpl8u* b = p.take<Kpl8u>(64);
    Kpl16s* w = p.take<Kpl16s>(32);
    CHECK_ARGS(p, kplsSet_8u, {1, b, 4}, {null(1), fails(2, 0, kplStsSizeErr)});
    CHECK_ARGS(p, kplsSet_16s, {1, w, 4}, {null(1), fails(2, -1, kplStsSizeErr)});
    CHECK_ARGS(p, kplsZero_16s, {w, 4}, {null(0), fails(1, 0, kplStsSizeErr)});
    CHECK_ARGS(p, kplsCopy_8u, {b + 32, b, 4}, {null(0), null(1), fails(2, 0, kplStsSizeErr)});
    CHECK_ARGS(p, kplsMulC_16s_ISfs, {3, w, 4, 1}, {null(1), fails(2, 0, kplStsSizeErr)});
    CHECK_ARGS(p, kplsThreshold_16s_I, {w, 4, -100, 1}, {null(0), fails(1, -1, kplStsSizeErr), passes(3, 9)});
    CHECK_ARGS(p, kpliSet_8u_C1R, {1, b, 8, KpliSize{4, 4}},
               {null(1), fails(3, KpliSize{0, 4}, kplStsSizeErr), fails(3, KpliSize{4, 0}, kplStsSizeErr),
                fails(2, 0, kplStsStepErr), passes(2, 1)});
}

// ---- Variants against the reference -----------------------------------------------

namespace {

size_t random_len(Rng& rng) {
    const int32_t lo[] = {1, 1, 1000, 20000}, hi[] = {40, 300, 5000, 70000};
    const int k = rng.range(0, 3);
    return static_cast<size_t>(rng.range(lo[k], hi[k]));
}

const auto check = kplvc::test::variants_of(kplvc::vector_kernels_for, "vector ");

}  // namespace

// Fills of both widths and every copy kernel at random lengths and misalignments.
TEST(VectorVariants, FillsAndCopiesMatchReference) {
    for (auto [m, name] :
         {std::pair{&VectorKernels::set8, "set8"}, {&VectorKernels::set8_stream, "set8_stream"}})
        check(m, name, 300, [](Arena& a, Rng& rng, int) {
            const size_t len = random_len(rng);
            auto dst = a.out<uint8_t>(len, 1);
            const uint8_t v = rng.u8();
            return [=](auto f, Arena& x) { f(x[dst], v, len); };
        });
    for (auto [m, name] :
         {std::pair{&VectorKernels::set16, "set16"}, {&VectorKernels::set16_stream, "set16_stream"}})
        check(m, name, 300, [](Arena& a, Rng& rng, int) {
            const size_t len = random_len(rng);
            auto dst = a.out<int16_t>(len);
            const int16_t v = rng.s16();
            return [=](auto f, Arena& x) { f(x[dst], v, len); };
        });
    for (auto [m, name] : {std::pair{&VectorKernels::copy8, "copy8"},
                           {&VectorKernels::copy8_stream, "copy8_stream"},
                           {&VectorKernels::copy8_stream_prefetch, "copy8_stream_prefetch"}})
        check(m, name, 300, [](Arena& a, Rng& rng, int) {
            const size_t len = random_len(rng);
            auto src = a.in<uint8_t>(len, 1), dst = a.out<uint8_t>(len, 1);
            return [=](auto f, Arena& x) { f(x[src], x[dst], len); };
        });
}

// Random or extreme data, multipliers at the extremes, every shift.
TEST(VectorVariants, ScalingMatchesReference) {
    auto data = [](Arena& a, Rng& rng, size_t& len, int16_t& v) {
        static const int16_t ext[] = {-32768, 32767, -1, 1, 2, -2, 255, -256, 181, -182};
        len = random_len(rng) % 4096 + 1;
        v = rng.coin() ? ext[rng.range(0, 9)] : rng.s16();
        if (v == 0) v = 3;
        auto p = a.out<int16_t>(len);
        if (rng.coin()) rng.fill_extreme(a[p], len);
        return p;
    };
    for (auto [m, name] : {std::pair{&VectorKernels::mulc_sat, "mulc_sat"},
                           {&VectorKernels::mulc_sign, "mulc_sign"},
                           {&VectorKernels::threshold_gt, "threshold_gt"},
                           {&VectorKernels::threshold_lt, "threshold_lt"}})
        check(m, name, 400, [&](Arena& a, Rng& rng, int) {
            size_t len;
            int16_t v;
            auto p = data(a, rng, len, v);
            return [=](auto f, Arena& x) { f(x[p], len, v); };
        });
    for (auto [m, name, hi] :
         {std::tuple{&VectorKernels::mulc_up, "mulc_up", 15}, {&VectorKernels::mulc_down, "mulc_down", 30}})
        check(m, name, 400, [&, hi = hi](Arena& a, Rng& rng, int) {
            size_t len;
            int16_t v;
            auto p = data(a, rng, len, v);
            const int s = rng.range(1, hi);
            return [=](auto f, Arena& x) { f(x[p], len, v, s); };
        });
}
