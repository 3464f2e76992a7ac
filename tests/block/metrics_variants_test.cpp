// Every SIMD metrics kernel against the scalar reference on random and
// extreme blocks: all positions and position pairs, odd and negative steps,
// misaligned pointers. Results must match exactly; outputs are guarded.
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "block/metrics.h"
#include "support/support.h"

using kplvc::block::MetricsKernels;
using kplvc::cpu::Isa;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

constexpr int kIters = 500;

const MetricsKernels& table(Isa isa) {
    static const auto all = [] {
        std::array<MetricsKernels, kplvc::cpu::kIsaCount> t{};
        for (int i = 0; i < kplvc::cpu::kIsaCount; ++i)
            t[static_cast<size_t>(i)] = kplvc::block::metrics_kernels_for(static_cast<Isa>(i));
        return t;
    }();
    return all[static_cast<size_t>(isa)];
}

// For each level where get() changes, runs body(reference, variant, rng, i)
// for i = 0..iters-1 with a seeded generator; stops at the first failure.
template <class Get, class Body>
int each_variant(Get get, uint64_t seed, int iters, Body body) {
    const auto ref = get(table(Isa::c));
    auto prev = ref;
    int n = 0;
    for (Isa isa : kplvc::test::simd_levels()) {
        const auto f = get(table(isa));
        if (f != prev) {
            Rng rng(seed);
            for (int i = 0; i < iters && !testing::Test::HasFatalFailure(); ++i) {
                SCOPED_TRACE(testing::Message() << kplvc::cpu::isa_name(isa) << " "
                                                << kplvc::test::seed_trace(seed) << " iter " << i);
                body(ref, f, rng, i);
            }
            ++n;
        }
        prev = f;
    }
    return n;
}

// A block of up to 17 rows and 17 (+ slack) columns addressed by a random
// step of either sign and a misaligned start.
struct Block {
    Guarded buf;
    int32_t step;
    const uint8_t* p;

    Block(Rng& rng, int min_width)
        : buf(48 * 18 + 64, static_cast<size_t>(rng.range(0, 15))), step(rng.range(min_width + 1, 48)) {
        const int kind = rng.range(0, 3);
        if (kind == 0) {
            rng.fill(buf.data(), buf.size());
        } else if (kind == 1) {
            rng.fill_extreme(buf.data(), buf.size());
        } else {
            // Neighbours that differ in the lowest bit: where double
            // averaging and truncation go wrong.
            const int base = rng.range(0, 254);
            for (size_t i = 0; i < buf.size(); ++i)
                buf.data()[i] = static_cast<uint8_t>(base + (rng.u8() & 1));
        }
        if (rng.range(0, 4) == 0) step = rng.coin() ? -step : min_width;  // bottom-up, or packed rows
        p = buf.data() + (step < 0 ? -step * 17 : 0);
    }
};

template <class Fn>
int check_block_metric(Fn get, int width) {
    return each_variant(get, 0x5AD0 + static_cast<uint64_t>(width), kIters,
                        [width](auto ref, auto fn, Rng& rng, int) {
                            Block s(rng, width), r(rng, width + 1);
                            ASSERT_EQ(fn(s.p, s.step, r.p, r.step), ref(s.p, s.step, r.p, r.step));
                        });
}

}  // namespace

TEST(MetricsVariants, SadAndSqrEveryPosition) {
    int tested = 0;
    for (int pos = 0; pos < 4; ++pos) {
        SCOPED_TRACE(testing::Message() << "position " << pos);
        tested += check_block_metric([pos](const MetricsKernels& k) { return k.sad16x16[pos]; }, 16);
        tested += check_block_metric([pos](const MetricsKernels& k) { return k.sad8x8[pos]; }, 8);
        tested += check_block_metric([pos](const MetricsKernels& k) { return k.sqr16x16[pos]; }, 16);
    }
    tested += check_block_metric([](const MetricsKernels& k) { return k.sad4x4; }, 4);
    if (kplvc::cpu::supports(Isa::sse2)) {
        EXPECT_GE(tested, 8);
    }
}

TEST(MetricsVariants, BidirectionalEveryPair) {
    for (int idx = 0; idx < 16; ++idx) {
        SCOPED_TRACE(testing::Message() << "pair " << idx);
        each_variant([idx](const MetricsKernels& k) { return k.sqr16x16_bi[idx]; },
                     0xB1D0 + static_cast<uint64_t>(idx), kIters / 2,
                     [](auto ref, auto fn, Rng& rng, int) {
                         Block s(rng, 16), f(rng, 17), b(rng, 17);
                         ASSERT_EQ(fn(s.p, s.step, f.p, f.step, b.p, b.step),
                                   ref(s.p, s.step, f.p, f.step, b.p, b.step));
                     });
    }
}

TEST(MetricsVariants, SubBlockSads) {
    using Get = kplvc::block::SubSadFn (*)(const MetricsKernels&);
    const std::pair<Get, int> members[] = {
        {[](const MetricsKernels& k) { return k.sad16x16_blocks8x8; }, 4},
        {[](const MetricsKernels& k) { return k.sad16x16_blocks4x4; }, 16},
    };
    for (auto [get, n] : members)
        each_variant(get, 0x5B00 + static_cast<uint64_t>(n), kIters,
                     [n = n](auto ref, auto fn, Rng& rng, int) {
                         Block s(rng, 16), r(rng, 16);
                         Guarded a(2 * static_cast<size_t>(n)), b(2 * static_cast<size_t>(n));
                         ref(s.p, s.step, r.p, r.step, a.as<uint16_t>());
                         fn(s.p, s.step, r.p, r.step, b.as<uint16_t>());
                         ASSERT_EQ(std::memcmp(a.data(), b.data(), a.size()), 0);
                         ASSERT_TRUE(b.intact());
                     });
}

TEST(MetricsVariants, VariancesAndMeans) {
    using StatGet = kplvc::block::Stat8uFn (*)(const MetricsKernels&);
    for (StatGet get : {StatGet([](const MetricsKernels& k) { return k.variance16x16; }),
                        StatGet([](const MetricsKernels& k) { return k.meanabsdev16x16; })})
        each_variant(get, 0x7A40, kIters, [](auto ref, auto fn, Rng& rng, int) {
            Block s(rng, 16);
            ASSERT_EQ(fn(s.p, s.step), ref(s.p, s.step));
        });
    // Both var/mean forms; the 16-bit one gets rows of 8 cells at odd byte
    // steps and starts, which misalign them.
    auto same = [](auto ref, auto fn, const auto* p, int32_t step) {
        int32_t v1 = 0, m1 = 0, v2 = 1, m2 = 1;
        ref(p, step, &v1, &m1);
        fn(p, step, &v2, &m2);
        ASSERT_EQ(v1, v2);
        ASSERT_EQ(m1, m2);
    };
    each_variant([](const MetricsKernels& k) { return k.varmean8x8_8u; }, 0x7A41, kIters,
                 [&](auto ref, auto fn, Rng& rng, int) {
                     Block s(rng, 8);
                     same(ref, fn, s.p, s.step);
                 });
    each_variant([](const MetricsKernels& k) { return k.varmean8x8_16s; }, 0x7A42, kIters,
                 [&](auto ref, auto fn, Rng& rng, int) {
                     const int32_t step = rng.coin() ? 16 : rng.range(17, 40);
                     Guarded g(static_cast<size_t>(step) * 8 + 16, static_cast<size_t>(rng.range(0, 3)));
                     std::vector<int16_t> vals(g.size() / 2);
                     if (rng.coin())
                         rng.fill(vals.data(), vals.size());
                     else
                         rng.fill_extreme(vals.data(), vals.size());
                     std::memcpy(g.data(), vals.data(), 2 * vals.size());
                     same(ref, fn, reinterpret_cast<const int16_t*>(g.data()), step);
                 });
}

TEST(MetricsVariants, VarMeanDiffEveryPosition) {
    for (int quarters : {4, 2})
        for (int pos = 0; pos < 4; ++pos) {
            SCOPED_TRACE(testing::Message() << "quarters " << quarters << " position " << pos);
            auto get = [pos, quarters](const MetricsKernels& k) {
                return quarters == 4 ? k.varmeandiff16x16[pos] : k.varmeandiff16x8[pos];
            };
            each_variant(get, 0x7D00 + static_cast<uint64_t>(quarters), kIters,
                         [](auto ref, auto fn, Rng& rng, int) {
                             Block s(rng, 16), r(rng, 17);
                             int32_t sums[4];
                             for (int32_t& v : sums) {
                                 switch (rng.range(0, 2)) {
                                     case 0:
                                         v = rng.range(0, 16320);
                                         break;
                                     case 1:
                                         v = static_cast<int32_t>(rng.u32());
                                         break;
                                     default:
                                         v = rng.coin() ? INT32_MAX : INT32_MIN;
                                         break;
                                 }
                             }
                             Guarded a(32), b(32);
                             ref(s.p, s.step, r.p, r.step, sums, a.as<int32_t>(), a.as<int32_t>() + 4);
                             fn(s.p, s.step, r.p, r.step, sums, b.as<int32_t>(), b.as<int32_t>() + 4);
                             ASSERT_EQ(std::memcmp(a.data(), b.data(), 32), 0);
                             ASSERT_TRUE(b.intact());
                         });
        }
}

TEST(MetricsVariants, OtherKernels) {
    each_variant([](const MetricsKernels& k) { return k.edges16x16; }, 0xED6E, kIters,
                 [](auto ref, auto fn, Rng& rng, int) {
                     Block s(rng, 16);
                     const uint8_t d = rng.u8(), c = rng.u8();
                     ASSERT_EQ(fn(s.p, s.step, d, c), ref(s.p, s.step, d, c));
                 });
    for (int n : {16, 8})
        each_variant(
            [n](const MetricsKernels& k) { return n == 16 ? k.sumsdiff16x16 : k.sumsdiff8x8; }, 0x5D1F,
            kIters,
            [](auto ref, auto fn, Rng& rng, int) {
                Block s(rng, 16), p(rng, 16);
                Guarded a(32 + 512), b(32 + 512);
                const bool with_diff = rng.coin();
                ref(s.p, s.step, p.p, p.step, a.as<int16_t>(), with_diff ? a.as<int16_t>() + 16 : nullptr);
                fn(s.p, s.step, p.p, p.step, b.as<int16_t>(), with_diff ? b.as<int16_t>() + 16 : nullptr);
                ASSERT_EQ(std::memcmp(a.data(), b.data(), a.size()), 0);
                ASSERT_TRUE(b.intact());
            });
    each_variant([](const MetricsKernels& k) { return k.countzeros8x8; }, 0xC0, kIters,
                 [](auto ref, auto fn, Rng& rng, int) {
                     int16_t c[64];
                     for (int16_t& v : c) v = rng.coin() ? 0 : rng.s16();
                     ASSERT_EQ(fn(c), ref(c));
                 });
    each_variant([](const MetricsKernels& k) { return k.texture_error8x8; }, 0x7E, kIters,
                 [](auto ref, auto fn, Rng& rng, int) {
                     Block s(rng, 8), r(rng, 8);
                     Guarded a(128), b(128);
                     ASSERT_EQ(ref(s.p, s.step, r.buf.data(), a.as<int16_t>()),
                               fn(s.p, s.step, r.buf.data(), b.as<int16_t>()));
                     ASSERT_EQ(std::memcmp(a.data(), b.data(), 128), 0);
                     ASSERT_TRUE(b.intact());
                 });
}
