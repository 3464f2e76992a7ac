// Every SIMD variant of the H.264 transform kernels against the scalar
// reference: random and extreme blocks, every QP, odd steps and misaligned
// rows, whole buffers (canaries included) compared exactly.
#include <algorithm>
#include <cstring>
#include <vector>

#include "h264/transform.h"
#include "h264/transform_tables.h"
#include "support/support.h"

using kplvc::h264::XformKernels;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

constexpr int kIters = 4000;
const int16_t kZigzagIndex[16] = {0, 1, 5, 6, 2, 4, 7, 12, 3, 8, 11, 13, 9, 10, 14, 15};

// Runs body(ref, fn, rng) for each level where `member` changes, with a fresh
// generator of the same seed.
template <class Fn, class Body>
void each_variant(Fn XformKernels::*member, uint64_t seed, Body body) {
    const Fn ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).*member;
    for (auto [isa, fn] : kplvc::test::variants(kplvc::h264::xform_kernels_for, member)) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        Rng rng(seed);
        body(ref, fn, rng);
    }
}

// A copy of `a` in a buffer with another misalignment.
Guarded twin(const Guarded& a, size_t mis) {
    Guarded b(a.size(), mis);
    std::memcpy(b.data(), a.data(), a.size());
    return b;
}

// Coefficient blocks of several shapes: full 16-bit range, extremes that push
// every butterfly to wrap, small levels (realistic), sparse.
void fill_block(Rng& rng, int16_t* b, int iter) {
    switch (iter % 5) {
        case 0:
            rng.fill(b, 16);
            break;
        case 1:
            rng.fill_extreme(b, 16);
            break;
        case 2:
            rng.fill(b, 16, -2048, 2047);
            break;
        case 3:
            rng.fill_extreme(b, 16, -255, 255);
            break;
        default:
            std::fill(b, b + 16, int16_t{0});
            for (int k = rng.range(0, 3); k >= 0; --k)
                b[rng.range(0, 15)] = static_cast<int16_t>(rng.range(-40, 40));
    }
}

// A random packed block in a buffer at a random even misalignment.
Guarded block(Rng& rng, int iter) {
    Guarded a(32, static_cast<size_t>(2 * rng.range(0, 7)));
    fill_block(rng, a.as<int16_t>(), iter);
    return a;
}

std::vector<int16_t> scale_for(Rng& rng, int iter) {
    std::vector<int16_t> s(16);
    if (iter % 7 == 6) {
        rng.fill(s.data(), 16);  // any multiplier: the kernels must not assume small ones
    } else {
        const auto& row = kplvc::h264::kDequant16[static_cast<size_t>(rng.range(0, 51))];
        std::copy(row.begin(), row.end(), s.begin());
    }
    return s;
}

// Random bytes, or extreme ones every other iteration.
void fill_pixels(Rng& rng, Guarded& g, int iter) {
    if (iter % 2)
        rng.fill_extreme(g.data(), g.size());
    else
        rng.fill(g.data(), g.size());
}

TEST(H264XformVariants, DequantResidual) {
    each_variant(&XformKernels::dequant_residual, 1001, [](auto ref, auto fn, Rng& rng) {
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t step = rng.range(8, 40);
            const size_t size = static_cast<size_t>(3 * step + 8);
            Guarded a(size, static_cast<size_t>(rng.range(0, 15)));
            rng.fill(a.data(), size);
            for (int r = 0; r < 4; ++r) {
                int16_t row[16];
                fill_block(rng, row, iter);
                std::memcpy(a.data() + r * step, row, 8);
            }
            Guarded b = twin(a, 5);
            const auto scale = scale_for(rng, iter);
            const int16_t dcv = rng.s16();
            const int16_t* dc = rng.coin() ? &dcv : nullptr;
            ref(a.as<int16_t>(), step, dc, scale.data());
            fn(b.as<int16_t>(), step, dc, scale.data());
            ASSERT_EQ(std::memcmp(a.data(), b.data(), size), 0) << "iter " << iter << " step " << step;
            ASSERT_TRUE(b.intact());
        }
    });
}

// The add kernels with and without coefficients: the full inverse path and
// the DC-only shortcut, residuals up to the 16-bit extremes.
TEST(H264XformVariants, DequantResidualAddAndAddDc) {
    each_variant(&XformKernels::dequant_residual_add, 1002, [](auto ref, auto fn, Rng& rng) {
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t ps = rng.range(4, 33), ds = rng.range(4, 33);
            Guarded pred(static_cast<size_t>(3 * ps + 4), static_cast<size_t>(rng.range(0, 31)));
            Guarded d1(static_cast<size_t>(3 * ds + 4), static_cast<size_t>(rng.range(0, 31)));
            fill_pixels(rng, pred, iter);
            Guarded c1 = block(rng, iter), c2 = twin(c1, 0);
            rng.fill(d1.data(), d1.size());
            Guarded d2 = twin(d1, 3);
            const auto scale = scale_for(rng, iter);
            const int16_t dcv = rng.s16();
            const int16_t* dc = rng.coin() ? &dcv : nullptr;
            ASSERT_EQ(ref(pred.data(), c1.as<int16_t>(), dc, d1.data(), {ps, ds}, scale.data()), 0);
            ASSERT_EQ(fn(pred.data(), c2.as<int16_t>(), dc, d2.data(), {ps, ds}, scale.data()), 0);
            ASSERT_EQ(std::memcmp(c1.data(), c2.data(), 32), 0) << "iter " << iter;
            ASSERT_EQ(std::memcmp(d1.data(), d2.data(), d1.size()), 0) << "iter " << iter;
            ASSERT_TRUE(c2.intact() && d2.intact() && pred.intact());
        }
    });
    each_variant(&XformKernels::add_dc, 1007, [](auto ref, auto fn, Rng& rng) {
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t ps = rng.range(4, 33), ds = rng.range(4, 33);
            Guarded pred(static_cast<size_t>(3 * ps + 4), static_cast<size_t>(rng.range(0, 31)));
            Guarded d1(static_cast<size_t>(3 * ds + 4), static_cast<size_t>(rng.range(0, 31)));
            fill_pixels(rng, pred, iter);
            rng.fill(d1.data(), d1.size());
            Guarded d2 = twin(d1, 5);
            const int16_t r = iter % 3 == 0 ? rng.s16() : static_cast<int16_t>(rng.range(-300, 300));
            ref(pred.data(), ps, d1.data(), ds, r);
            fn(pred.data(), ps, d2.data(), ds, r);
            ASSERT_EQ(std::memcmp(d1.data(), d2.data(), d1.size()), 0) << "iter " << iter << " r " << r;
            ASSERT_TRUE(d2.intact() && pred.intact());
        }
    });
}

// The in-place packed-block kernels: luma DC dequantisation at every QP and
// the forward core transform.
TEST(H264XformVariants, DequantLumaDcAndForward) {
    each_variant(&XformKernels::dequant_luma_dc, 1008, [](auto ref, auto fn, Rng& rng) {
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t qp = rng.range(0, 51);
            const int32_t s = qp < 6 ? 2 : (qp < 12 ? 1 : 0), r = s == 0 ? 0 : 1 << (s - 1);
            const int32_t m = kplvc::h264::InvQuantLuma16x16DCTable[static_cast<size_t>(qp)];
            Guarded a = block(rng, iter), b = twin(a, 2);
            ref(a.as<int16_t>(), m, r, s);
            fn(b.as<int16_t>(), m, r, s);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 32), 0) << "iter " << iter << " qp " << qp;
            ASSERT_TRUE(b.intact());
        }
    });
    each_variant(&XformKernels::forward4x4, 1003, [](auto ref, auto fn, Rng& rng) {
        for (int iter = 0; iter < kIters; ++iter) {
            Guarded a = block(rng, iter), b = twin(a, 2);
            ref(a.as<int16_t>());
            fn(b.as<int16_t>());
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 32), 0) << "iter " << iter;
            ASSERT_TRUE(b.intact());
        }
    });
}

// Random blocks and scan tables (both outcomes often), then a single residual
// sample x swept over every 16-bit value: it transforms into x, 2x and 4x, so
// the largest level crosses 2063/2064 one step at a time and the range limit
// is hit exactly (random blocks almost never land on it).
TEST(H264XformVariants, TransformQuantResidual) {
    each_variant(&XformKernels::transform_quant_residual, 1004, [](auto ref, auto fn, Rng& rng) {
        auto run = [&](const int16_t* src, int32_t qp, int32_t div, const int16_t* scan, int32_t i) {
            const int32_t shift = qp / 6 + 15, round = (1 << shift) / div;
            const int16_t* mf = kplvc::h264::kQuant16[static_cast<size_t>(qp % 6)].data();
            Guarded a(32, static_cast<size_t>(2 * (i & 7))), b(32, 6);
            std::memcpy(a.data(), src, 32);
            std::memcpy(b.data(), src, 32);
            uint8_t ca = 0x3C, la = 0xC3, cb = 0x3C, lb = 0xC3;
            const int32_t sa = ref(a.as<int16_t>(), mf, {round, shift}, scan, &ca, &la);
            const int32_t sb = fn(b.as<int16_t>(), mf, {round, shift}, scan, &cb, &lb);
            EXPECT_EQ(sa, sb) << "qp " << qp << " " << i;
            EXPECT_EQ(std::memcmp(a.data(), b.data(), 32), 0) << "qp " << qp << " " << i;
            EXPECT_TRUE(ca == cb && la == lb && b.intact()) << "qp " << qp << " " << i;
            return sa != 0;
        };
        int failures = 0;
        for (int iter = 0; iter < kIters; ++iter) {
            int16_t scan[16], src[16];
            if (iter % 4 == 3) {
                rng.fill(scan, 16);  // a caller's table may hold anything
            } else {
                for (int i = 0; i < 16; ++i) scan[i] = static_cast<int16_t>(i);
                for (int i = 15; i > 0; --i) std::swap(scan[i], scan[rng.range(0, i)]);
            }
            fill_block(rng, src, iter);
            const int32_t qp = rng.range(0, 51);
            failures += run(src, qp, rng.coin() ? 3 : 6, scan, iter);
            ASSERT_FALSE(::testing::Test::HasFailure());
        }
        EXPECT_GT(failures, kIters / 20);
        EXPECT_LT(failures, kIters * 19 / 20);
        for (int32_t qp : {0, 10})
            for (int32_t div : {3, 6})
                for (int32_t x = -32768; x <= 32767; ++x) {
                    int16_t src[16] = {};
                    src[(x & 0x300) >> 6] = static_cast<int16_t>(x);  // rows 0..3 in turn
                    run(src, qp, div, kZigzagIndex, x);
                    ASSERT_FALSE(::testing::Test::HasFailure());
                }
    });
}

// The DC quantisers with and without their Hadamard, random and extreme DC
// arrays, then a sweep of one value across the 2063/2064 limit.
TEST(H264XformVariants, TransformQuantLumaDC) {
    each_variant(&XformKernels::transform_quant_luma_dc, 1005, [](auto ref, auto fn, Rng& rng) {
        auto run = [&](const int16_t* src, const int16_t* tb, bool transform, int32_t qp, int32_t i) {
            const int32_t per = qp / 6;
            const int32_t mf = kplvc::h264::FwdQuantTable[static_cast<size_t>(3 * (qp % 6))];
            const int32_t round = kplvc::h264::dc_rounds[static_cast<size_t>(9 + per)];
            int16_t s[2][16], t[2][16];
            uint8_t c[2] = {1, 1}, l[2] = {2, 2};
            int32_t r[2];
            for (int k = 0; k < 2; ++k) {
                std::memcpy(s[k], src, 32);
                std::memcpy(t[k], tb, 32);
                r[k] = (k ? fn : ref)(s[k], t[k], transform, mf, round, per + 16, kZigzagIndex, &c[k], &l[k]);
            }
            ASSERT_TRUE(r[0] == r[1] && c[0] == c[1] && l[0] == l[1]) << i << " qp " << qp;
            ASSERT_EQ(std::memcmp(s[0], s[1], 32), 0) << i << " qp " << qp;
            ASSERT_EQ(std::memcmp(t[0], t[1], 32), 0) << i << " qp " << qp;
        };
        for (int iter = 0; iter < kIters; ++iter) {
            int16_t src[16], tb[16];
            fill_block(rng, src, iter);
            fill_block(rng, tb, iter + 1);
            run(src, tb, rng.coin(), rng.range(0, 51), iter);
            ASSERT_FALSE(::testing::Test::HasFailure());
        }
        for (int32_t qp : {5, 6})
            for (int32_t x = -32768; x <= 32767; ++x) {
                int16_t src[16] = {}, tb[16] = {};
                tb[(x & 0xF0) >> 4] = static_cast<int16_t>(x);
                src[0] = static_cast<int16_t>(x);
                run(src, tb, false, qp, x);
                if ((x & 7) == 0) run(src, tb, true, qp, x);
                ASSERT_FALSE(::testing::Test::HasFailure());
            }
    });
}

TEST(H264XformVariants, TransformQuantChromaDC) {
    each_variant(&XformKernels::transform_quant_chroma_dc, 1006, [](auto ref, auto fn, Rng& rng) {
        auto run = [&](const int16_t* src, const int16_t* tb, bool transform, int32_t qp, bool intra,
                       int32_t i) {
            const int32_t per = qp / 6;
            const int32_t mf = kplvc::h264::FwdQuantTable[static_cast<size_t>(3 * (qp % 6))];
            const int32_t round = kplvc::h264::dc_rounds[static_cast<size_t>((intra ? 9 : 0) + per)];
            Guarded sa(8, 2), sb(8, 4), ta(8, 6), tbb(8, 0);
            std::memcpy(sa.data(), src, 8);
            std::memcpy(sb.data(), src, 8);
            std::memcpy(ta.data(), tb, 8);
            std::memcpy(tbb.data(), tb, 8);
            uint8_t ca = 1, cb = 1;
            const int32_t ra = ref(sa.as<int16_t>(), ta.as<int16_t>(), transform, mf, round, per + 16, &ca);
            const int32_t rb = fn(sb.as<int16_t>(), tbb.as<int16_t>(), transform, mf, round, per + 16, &cb);
            ASSERT_TRUE(ra == rb && ca == cb) << i;
            ASSERT_EQ(std::memcmp(sa.data(), sb.data(), 8), 0) << i;
            ASSERT_EQ(std::memcmp(ta.data(), tbb.data(), 8), 0) << i;
            ASSERT_TRUE(sb.intact() && tbb.intact());
        };
        for (int iter = 0; iter < kIters; ++iter) {
            int16_t src[16], tb[16];
            fill_block(rng, src, iter);
            fill_block(rng, tb, iter + 2);
            run(src, tb, rng.coin(), rng.range(0, 39), rng.coin(), iter);
            ASSERT_FALSE(::testing::Test::HasFailure());
        }
        for (int32_t x = -32768; x <= 32767; x += 3) {
            const int16_t src[4] = {static_cast<int16_t>(x), 0, static_cast<int16_t>(x / 3), 0};
            const int16_t tb[4] = {0, static_cast<int16_t>(x), 0, 1};
            run(src, tb, false, x & 7, (x & 8) != 0, x);
            run(src, tb, true, x & 7, (x & 8) != 0, x);
            ASSERT_FALSE(::testing::Test::HasFailure());
        }
    });
}

}  // namespace
