// Every SIMD metrics kernel against the scalar reference on random and
// extreme blocks: all positions and position pairs, odd and negative steps,
// misaligned pointers.
#include <cstdint>
#include <cstring>

#include "block/metrics.h"
#include "support/variants.h"

using kplvc::block::MetricsKernels;
using kplvc::test::Arena;
using kplvc::test::Rng;

namespace {

// A block of up to 17 rows and 17 (+ slack) columns addressed by a random
// step of either sign: random, extreme, or neighbours that differ in the
// lowest bit (where double averaging and truncation go wrong).
struct Plane {
    kplvc::test::Buf<uint8_t> buf;
    int32_t step;
    const uint8_t* p(Arena& x) const { return x[buf] + (step < 0 ? -step * 17 : 0); }
};

Plane plane(Arena& a, Rng& rng, int min_width) {
    constexpr size_t kSize = 48 * 18 + 64;
    Plane pl{a.in<uint8_t>(kSize), rng.range(min_width + 1, 48)};
    const int kind = rng.range(0, 2), base = rng.range(0, 254);
    if (kind == 1) rng.fill_extreme(a[pl.buf], kSize);
    if (kind == 2)
        for (size_t i = 0; i < kSize; ++i) a[pl.buf][i] = static_cast<uint8_t>(base + (rng.u8() & 1));
    if (rng.range(0, 4) == 0) pl.step = rng.coin() ? -pl.step : min_width;  // bottom-up, or packed rows
    return pl;
}

const auto check = kplvc::test::variants_of(kplvc::block::metrics_kernels_for, "metrics ");

template <class Get>
void check_block_metric(Get get, const std::string& name, int width) {
    check(get, name, 500, [width](Arena& a, Rng& rng, int) {
        const Plane s = plane(a, rng, width), r = plane(a, rng, width + 1);
        return [=](auto f, Arena& x) { return f(s.p(x), s.step, r.p(x), r.step); };
    });
}

}  // namespace

TEST(MetricsVariants, SadAndSqrEveryPosition) {
    for (int pos = 0; pos < 4; ++pos) {
        const std::string at = " pos " + std::to_string(pos);
        check_block_metric([pos](const MetricsKernels& k) { return k.sad16x16[pos]; }, "sad16x16" + at, 16);
        check_block_metric([pos](const MetricsKernels& k) { return k.sad8x8[pos]; }, "sad8x8" + at, 8);
        check_block_metric([pos](const MetricsKernels& k) { return k.sqr16x16[pos]; }, "sqr16x16" + at, 16);
    }
    check_block_metric(&MetricsKernels::sad4x4, "sad4x4", 4);
    for (int idx = 0; idx < 16; ++idx)
        check([idx](const MetricsKernels& k) { return k.sqr16x16_bi[idx]; },
              "sqr16x16_bi " + std::to_string(idx), 250,
              [](Arena& a, Rng& rng, int) {
                  const Plane s = plane(a, rng, 16), f = plane(a, rng, 17), b = plane(a, rng, 17);
                  return
                      [=](auto fn, Arena& x) { return fn(s.p(x), s.step, f.p(x), f.step, b.p(x), b.step); };
              });
    for (auto [m, n] :
         {std::pair{&MetricsKernels::sad16x16_blocks8x8, 4}, {&MetricsKernels::sad16x16_blocks4x4, 16}})
        check(m, "sad16x16_blocks " + std::to_string(n), 500, [n = n](Arena& a, Rng& rng, int) {
            const Plane s = plane(a, rng, 16), r = plane(a, rng, 16);
            auto out = a.out<uint16_t>(static_cast<size_t>(n));
            return [=](auto f, Arena& x) { f(s.p(x), s.step, r.p(x), r.step, x[out]); };
        });
}

TEST(MetricsVariants, VariancesAndMeans) {
    for (auto [m, name] : {std::pair{&MetricsKernels::variance16x16, "variance16x16"},
                           {&MetricsKernels::meanabsdev16x16, "meanabsdev16x16"}})
        check(m, name, 500, [](Arena& a, Rng& rng, int) {
            const Plane s = plane(a, rng, 16);
            return [=](auto f, Arena& x) { return f(s.p(x), s.step); };
        });
    check(&MetricsKernels::varmean8x8_8u, "varmean8x8_8u", 500, [](Arena& a, Rng& rng, int) {
        const Plane s = plane(a, rng, 8);
        auto out = a.out<int32_t>(2);
        return [=](auto f, Arena& x) { f(s.p(x), s.step, x[out], x[out] + 1); };
    });
    // Rows of 8 cells at odd byte steps and starts, which misalign them.
    check(&MetricsKernels::varmean8x8_16s, "varmean8x8_16s", 500, [](Arena& a, Rng& rng, int) {
        const int32_t step = rng.coin() ? 16 : rng.range(17, 40);
        const size_t n = static_cast<size_t>(step) * 4 + 8;
        auto src = a.in<int16_t>(n, 1);
        if (rng.coin()) rng.fill_extreme(a[src], n);
        auto out = a.out<int32_t>(2);
        return [=](auto f, Arena& x) { f(x[src], step, x[out], x[out] + 1); };
    });
    for (int quarters : {4, 2})
        for (int pos = 0; pos < 4; ++pos)
            check(
                [=](const MetricsKernels& k) {
                    return quarters == 4 ? k.varmeandiff16x16[pos] : k.varmeandiff16x8[pos];
                },
                "varmeandiff quarters " + std::to_string(quarters) + " pos " + std::to_string(pos), 500,
                [](Arena& a, Rng& rng, int) {
                    const Plane s = plane(a, rng, 16), r = plane(a, rng, 17);
                    auto sums = a.in<int32_t>(4);
                    for (int k = 0; k < 4; ++k) {
                        const int kind = rng.range(0, 2);
                        a[sums][k] = kind == 0    ? rng.range(0, 16320)
                                     : kind == 1  ? static_cast<int32_t>(rng.u32())
                                     : rng.coin() ? INT32_MAX
                                                  : INT32_MIN;
                    }
                    auto out = a.out<int32_t>(8);
                    return [=](auto f, Arena& x) {
                        f(s.p(x), s.step, r.p(x), r.step, x[sums], x[out], x[out] + 4);
                    };
                });
}

TEST(MetricsVariants, OtherKernels) {
    check(&MetricsKernels::edges16x16, "edges16x16", 500, [](Arena& a, Rng& rng, int) {
        const Plane s = plane(a, rng, 16);
        const uint8_t d = rng.u8(), c = rng.u8();
        return [=](auto f, Arena& x) { return f(s.p(x), s.step, d, c); };
    });
    for (auto [m, name] : {std::pair{&MetricsKernels::sumsdiff16x16, "sumsdiff16x16"},
                           {&MetricsKernels::sumsdiff8x8, "sumsdiff8x8"}})
        check(m, name, 500, [](Arena& a, Rng& rng, int i) {
            const Plane s = plane(a, rng, 16), p = plane(a, rng, 16);
            auto sums = a.out<int16_t>(16), diff = a.out<int16_t>(256);
            return [=](auto f, Arena& x) {
                f(s.p(x), s.step, p.p(x), p.step, x[sums], i % 2 ? x[diff] : nullptr);
            };
        });
    check(&MetricsKernels::countzeros8x8, "countzeros8x8", 500, [](Arena& a, Rng& rng, int) {
        auto c = a.in<int16_t>(64);
        for (int k = 0; k < 64; ++k)
            if (rng.coin()) a[c][k] = 0;
        return [=](auto f, Arena& x) { return f(x[c]); };
    });
    check(&MetricsKernels::texture_error8x8, "texture_error8x8", 500, [](Arena& a, Rng& rng, int) {
        const Plane s = plane(a, rng, 8);
        auto ref = a.in<uint8_t>(64, 1);
        auto dst = a.out<int16_t>(64);
        return [=](auto f, Arena& x) { return f(s.p(x), s.step, x[ref], x[dst]); };
    });
}
