#include <cstdint>
#include <cstring>
#include <vector>

#include "core/vector.h"
#include "kplvc.h"
#include "support/support.h"

using kplvc::VectorKernels;
using kplvc::test::Guarded;
using kplvc::test::Rng;
using kplvc::test::variants;

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
    Guarded g(64);
    auto* p = g.data();
    auto* p16 = g.as<Kpl16s>();
    const std::vector<uint8_t> before(p, p + 64);
    struct Case {
        const char* what;
        KplStatus got, want;
    };
    const Case cases[] = {
        {"set8 null", kplsSet_8u(1, nullptr, 4), kplStsNullPtrErr},
        {"set8 null+len", kplsSet_8u(1, nullptr, 0), kplStsNullPtrErr},
        {"set8 len", kplsSet_8u(1, p, 0), kplStsSizeErr},
        {"set16 null+len", kplsSet_16s(1, nullptr, -1), kplStsNullPtrErr},
        {"set16 len", kplsSet_16s(1, p16, -5), kplStsSizeErr},
        {"zero null", kplsZero_16s(nullptr, 0), kplStsNullPtrErr},
        {"zero len", kplsZero_16s(p16, 0), kplStsSizeErr},
        {"copy src null", kplsCopy_8u(nullptr, p, 0), kplStsNullPtrErr},
        {"copy dst null", kplsCopy_8u(p, nullptr, 4), kplStsNullPtrErr},
        {"copy len", kplsCopy_8u(p + 32, p, 0), kplStsSizeErr},
        {"mulc null", kplsMulC_16s_ISfs(0, nullptr, 0, 0), kplStsNullPtrErr},
        {"mulc len", kplsMulC_16s_ISfs(0, p16, 0, 3), kplStsSizeErr},
        {"threshold null", kplsThreshold_16s_I(nullptr, 0, 1, 4), kplStsNullPtrErr},
        {"threshold len", kplsThreshold_16s_I(p16, -1, -100, 1), kplStsSizeErr},
        {"region null", kpliSet_8u_C1R(1, nullptr, 0, {0, 0}), kplStsNullPtrErr},
        {"region size before step", kpliSet_8u_C1R(1, p, 0, {0, 4}), kplStsSizeErr},
        {"region height", kpliSet_8u_C1R(1, p, 8, {4, 0}), kplStsSizeErr},
        {"region step", kpliSet_8u_C1R(1, p, 0, {4, 4}), kplStsStepErr},
    };
    for (const auto& c : cases) EXPECT_EQ(c.got, c.want) << c.what;
    EXPECT_EQ(std::vector<uint8_t>(p, p + 64), before);
    EXPECT_TRUE(g.intact());
}

// ---- Variants against the reference -----------------------------------------------

namespace {

const VectorKernels& ref() {
    static const VectorKernels k = kplvc::vector_kernels_for(kplvc::cpu::Isa::c);
    return k;
}

size_t random_len(Rng& rng) {
    switch (rng.range(0, 3)) {
        case 0:
            return static_cast<size_t>(rng.range(1, 40));
        case 1:
            return static_cast<size_t>(rng.range(1, 300));
        case 2:
            return static_cast<size_t>(rng.range(1000, 5000));
        default:
            return static_cast<size_t>(rng.range(20000, 70000));
    }
}

int16_t pick_val(Rng& r) {
    const int16_t ext[] = {-32768, 32767, -1, 1, 2, -2, 255, -256, 181, -182};
    const int16_t v = r.coin() ? ext[r.range(0, 9)] : r.s16();
    return v == 0 ? int16_t{3} : v;
}

// Runs `call(fn, data, len, v, s)` on the reference and on every variant of
// `member` with the same random or extreme data and parameters.
template <class Fn, class Call>
void compare_16s(Fn VectorKernels::*member, int s_lo, int s_hi, Call call) {
    for (auto [isa, fn] : variants(kplvc::vector_kernels_for, member)) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        Rng rng(1234);
        for (int iter = 0; iter < 400; ++iter) {
            const size_t len = random_len(rng) % 4096 + 1;
            const int16_t v = pick_val(rng);
            const int s = rng.range(s_lo, s_hi);
            Guarded a(2 * len), b(2 * len);
            if (rng.coin())
                rng.fill(a.as<int16_t>(), len);
            else
                rng.fill_extreme(a.as<int16_t>(), len);
            std::memcpy(b.data(), a.data(), 2 * len);
            call(ref().*member, a.as<int16_t>(), len, v, s);
            call(fn, b.as<int16_t>(), len, v, s);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 2 * len), 0)
                << "iter " << iter << " len " << len << " v " << v << " s " << s;
            ASSERT_TRUE(a.intact() && b.intact());
        }
    }
}

}  // namespace

// Fills of both widths and every copy kernel at random lengths and misalignments.
TEST(VectorVariants, FillsAndCopiesMatchReference) {
    using Copy = void (*)(const uint8_t*, uint8_t*, size_t);
    Rng rng(99);
    auto fills = [&rng](auto member, auto value) {
        using T = decltype(value);
        for (auto [isa, fn] : variants(kplvc::vector_kernels_for, member)) {
            SCOPED_TRACE(kplvc::cpu::isa_name(isa));
            for (int iter = 0; iter < 300; ++iter) {
                const size_t len = random_len(rng),
                             mis = sizeof(T) * static_cast<size_t>(rng.range(0, 32 / sizeof(T) - 1));
                Guarded g(sizeof(T) * len, mis);
                const T v = static_cast<T>(rng.u32());
                fn(g.as<T>(), v, len);
                for (size_t i = 0; i < len; ++i)
                    ASSERT_EQ(g.as<T>()[i], v) << "len " << len << " mis " << mis;
                ASSERT_TRUE(g.intact()) << "len " << len << " mis " << mis;
            }
        }
    };
    fills(&VectorKernels::set8, uint8_t{});
    fills(&VectorKernels::set8_stream, uint8_t{});
    fills(&VectorKernels::set16, int16_t{});
    fills(&VectorKernels::set16_stream, int16_t{});
    for (Copy VectorKernels::*m :
         {&VectorKernels::copy8, &VectorKernels::copy8_stream, &VectorKernels::copy8_stream_prefetch}) {
        for (auto [isa, fn] : variants(kplvc::vector_kernels_for, m)) {
            for (int iter = 0; iter < 300; ++iter) {
                const size_t len = random_len(rng);
                Guarded s(len, static_cast<size_t>(rng.range(0, 31))),
                    d(len, static_cast<size_t>(rng.range(0, 31)));
                rng.fill(s.data(), len);
                fn(s.data(), d.data(), len);
                ASSERT_EQ(std::memcmp(s.data(), d.data(), len), 0)
                    << kplvc::cpu::isa_name(isa) << " len " << len;
                ASSERT_TRUE(d.intact() && s.intact());
            }
        }
    }
}

TEST(VectorVariants, ScalingMatchesReference) {
    using Sat = void (*)(int16_t*, size_t, int16_t);
    using Shift = void (*)(int16_t*, size_t, int16_t, int);
    for (Sat VectorKernels::*m : {&VectorKernels::mulc_sat, &VectorKernels::mulc_sign,
                                  &VectorKernels::threshold_gt, &VectorKernels::threshold_lt})
        compare_16s(m, 0, 0, [](Sat f, int16_t* p, size_t len, int16_t v, int) { f(p, len, v); });
    compare_16s(&VectorKernels::mulc_up, 1, 15,
                [](Shift f, int16_t* p, size_t len, int16_t v, int s) { f(p, len, v, s); });
    compare_16s(&VectorKernels::mulc_down, 1, 30,
                [](Shift f, int16_t* p, size_t len, int16_t v, int s) { f(p, len, v, s); });
}
