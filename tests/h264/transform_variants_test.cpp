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
using kplvc::test::variants;

namespace {

constexpr int kIters = 4000;

// Coefficient blocks of several shapes: full 16-bit range, extremes that push
// every butterfly to wrap, small levels (realistic), sparse.
void fill_block(Rng& rng, int16_t* b, int iter) {
    switch (iter % 5) {
        case 0: rng.fill(b, 16); break;
        case 1: rng.fill_extreme(b, 16); break;
        case 2: rng.fill(b, 16, -2048, 2047); break;
        case 3: rng.fill_extreme(b, 16, -255, 255); break;
        default:
            std::fill(b, b + 16, int16_t{0});
            for (int k = rng.range(0, 3); k >= 0; --k) b[rng.range(0, 15)] = static_cast<int16_t>(rng.range(-40, 40));
    }
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

TEST(H264XformVariants, DequantResidual) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).dequant_residual;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::dequant_residual)) {
        Rng rng(1001);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t step = rng.range(8, 40);
            const size_t size = static_cast<size_t>(3 * step + 8);
            const size_t mis = static_cast<size_t>(rng.range(0, 15));
            Guarded a(size, mis), b(size, mis);
            rng.fill(a.data(), size);
            for (int r = 0; r < 4; ++r) {
                int16_t row[16];
                fill_block(rng, row, iter);
                std::memcpy(a.data() + r * step, row, 8);
            }
            std::memcpy(b.data(), a.data(), size);
            const auto scale = scale_for(rng, iter);
            const int16_t dcv = rng.s16();
            const int16_t* dc = rng.coin() ? &dcv : nullptr;
            ref(a.as<int16_t>(), step, dc, scale.data());
            fn(b.as<int16_t>(), step, dc, scale.data());
            ASSERT_EQ(std::memcmp(a.data(), b.data(), size), 0) << "iter " << iter << " step " << step;
            ASSERT_TRUE(b.intact());
        }
    }
}

TEST(H264XformVariants, DequantResidualAdd) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).dequant_residual_add;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::dequant_residual_add)) {
        Rng rng(1002);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t ps = rng.range(4, 33), ds = rng.range(4, 33);
            const size_t psize = static_cast<size_t>(3 * ps + 4), dsize = static_cast<size_t>(3 * ds + 4);
            Guarded pred(psize, static_cast<size_t>(rng.range(0, 31)));
            Guarded c1(32, static_cast<size_t>(2 * rng.range(0, 7))), c2(32, 0);
            Guarded d1(dsize, static_cast<size_t>(rng.range(0, 31))), d2(dsize, 3);
            if (iter % 2) rng.fill_extreme(pred.data(), psize);
            else rng.fill(pred.data(), psize);
            fill_block(rng, c1.as<int16_t>(), iter);
            std::memcpy(c2.data(), c1.data(), 32);
            rng.fill(d1.data(), dsize);
            std::memcpy(d2.data(), d1.data(), dsize);
            const auto scale = scale_for(rng, iter);
            const int16_t dcv = rng.s16();
            const int16_t* dc = rng.coin() ? &dcv : nullptr;
            ASSERT_EQ(ref(pred.data(), c1.as<int16_t>(), dc, d1.data(), {ps, ds}, scale.data()), 0);
            ASSERT_EQ(fn(pred.data(), c2.as<int16_t>(), dc, d2.data(), {ps, ds}, scale.data()), 0);
            ASSERT_EQ(std::memcmp(c1.data(), c2.data(), 32), 0) << "iter " << iter;
            ASSERT_EQ(std::memcmp(d1.data(), d2.data(), dsize), 0) << "iter " << iter;
            ASSERT_TRUE(c2.intact() && d2.intact() && pred.intact());
        }
    }
}

TEST(H264XformVariants, AddDc) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).add_dc;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::add_dc)) {
        Rng rng(1007);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t ps = rng.range(4, 33), ds = rng.range(4, 33);
            const size_t psize = static_cast<size_t>(3 * ps + 4), dsize = static_cast<size_t>(3 * ds + 4);
            Guarded pred(psize, static_cast<size_t>(rng.range(0, 31)));
            Guarded d1(dsize, static_cast<size_t>(rng.range(0, 31))), d2(dsize, 5);
            if (iter % 2) rng.fill_extreme(pred.data(), psize);
            else rng.fill(pred.data(), psize);
            rng.fill(d1.data(), dsize);
            std::memcpy(d2.data(), d1.data(), dsize);
            // Residuals around the limit and the 16-bit extremes.
            const int16_t r = iter % 3 == 0 ? rng.s16() : static_cast<int16_t>(rng.range(-300, 300));
            ref(pred.data(), ps, d1.data(), ds, r);
            fn(pred.data(), ps, d2.data(), ds, r);
            ASSERT_EQ(std::memcmp(d1.data(), d2.data(), dsize), 0) << "iter " << iter << " r " << r;
            ASSERT_TRUE(d2.intact() && pred.intact());
        }
    }
}

TEST(H264XformVariants, DequantLumaDC) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).dequant_luma_dc;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::dequant_luma_dc)) {
        Rng rng(1008);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t qp = rng.range(0, 51);
            const int32_t s = qp < 6 ? 2 : (qp < 12 ? 1 : 0), r = s == 0 ? 0 : 1 << (s - 1);
            const int32_t m = kplvc::h264::InvQuantLuma16x16DCTable[static_cast<size_t>(qp)];
            Guarded a(32, static_cast<size_t>(2 * rng.range(0, 7))), b(32, 2);
            fill_block(rng, a.as<int16_t>(), iter);
            std::memcpy(b.data(), a.data(), 32);
            ref(a.as<int16_t>(), m, r, s);
            fn(b.as<int16_t>(), m, r, s);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 32), 0) << "iter " << iter << " qp " << qp;
            ASSERT_TRUE(b.intact());
        }
    }
}

TEST(H264XformVariants, Forward) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).forward4x4;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::forward4x4)) {
        Rng rng(1003);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        for (int iter = 0; iter < kIters; ++iter) {
            Guarded a(32, static_cast<size_t>(2 * rng.range(0, 7))), b(32, 2);
            fill_block(rng, a.as<int16_t>(), iter);
            std::memcpy(b.data(), a.data(), 32);
            ref(a.as<int16_t>());
            fn(b.as<int16_t>());
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 32), 0) << "iter " << iter;
            ASSERT_TRUE(b.intact());
        }
    }
}

TEST(H264XformVariants, TransformQuantResidual) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).transform_quant_residual;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::transform_quant_residual)) {
        Rng rng(1004);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        int failures = 0;
        for (int iter = 0; iter < kIters; ++iter) {
            const int32_t qp = rng.range(0, 51);
            const int32_t shift = qp / 6 + 15;
            const int32_t round = (1 << shift) / (rng.coin() ? 3 : 6);
            const int16_t* mf = kplvc::h264::kQuant16[static_cast<size_t>(qp % 6)].data();
            int16_t scan[16];
            if (iter % 4 == 3) {
                rng.fill(scan, 16);  // a caller's table may hold anything
            } else {
                for (int i = 0; i < 16; ++i) scan[i] = static_cast<int16_t>(i);
                for (int i = 15; i > 0; --i) std::swap(scan[i], scan[rng.range(0, i)]);
            }
            Guarded a(32, static_cast<size_t>(2 * rng.range(0, 7))), b(32, 6);
            fill_block(rng, a.as<int16_t>(), iter);
            std::memcpy(b.data(), a.data(), 32);
            uint8_t ca = 0x3C, la = 0xC3, cb = 0x3C, lb = 0xC3;
            const int32_t sa = ref(a.as<int16_t>(), mf, {round, shift}, scan, &ca, &la);
            const int32_t sb = fn(b.as<int16_t>(), mf, {round, shift}, scan, &cb, &lb);
            failures += sa != 0;
            ASSERT_EQ(sa, sb) << "iter " << iter;
            ASSERT_EQ(std::memcmp(a.data(), b.data(), 32), 0) << "iter " << iter;
            ASSERT_EQ(ca, cb) << "iter " << iter;
            ASSERT_EQ(la, lb) << "iter " << iter;
            ASSERT_TRUE(b.intact());
        }
        // Both outcomes are exercised often.
        EXPECT_GT(failures, kIters / 20);
        EXPECT_LT(failures, kIters * 19 / 20);
    }
}

// A single residual sample x transforms into multiples x, 2x and 4x; sweeping
// every x moves the largest level across 2063/2064 one step at a time, so the
// range limit is hit exactly (random blocks almost never land on it).
TEST(H264XformVariants, TransformQuantResidualLevelLimit) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).transform_quant_residual;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::transform_quant_residual)) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        const int16_t scan[16] = {0, 1, 5, 6, 2, 4, 7, 12, 3, 8, 11, 13, 9, 10, 14, 15};
        for (int32_t qp : {0, 10}) {
            for (int32_t div : {3, 6}) {
                const int32_t shift = qp / 6 + 15, round = (1 << shift) / div;
                const int16_t* mf = kplvc::h264::kQuant16[static_cast<size_t>(qp % 6)].data();
                for (int32_t x = -32768; x <= 32767; x += 1) {
                    int16_t a[16] = {}, b[16] = {};
                    a[(x & 0x300) >> 6] = b[(x & 0x300) >> 6] = static_cast<int16_t>(x);  // rows 0..3 in turn
                    uint8_t ca = 1, la = 2, cb = 1, lb = 2;
                    const int32_t sa = ref(a, mf, {round, shift}, scan, &ca, &la);
                    const int32_t sb = fn(b, mf, {round, shift}, scan, &cb, &lb);
                    ASSERT_EQ(sa, sb) << "qp " << qp << " x " << x;
                    ASSERT_EQ(std::memcmp(a, b, sizeof a), 0) << "qp " << qp << " x " << x;
                    ASSERT_EQ(ca, cb);
                    ASSERT_EQ(la, lb);
                }
            }
        }
    }
}

// The DC quantisers with and without their Hadamard, random and extreme DC
// arrays, then a sweep of one value across the 2063/2064 limit.
TEST(H264XformVariants, TransformQuantLumaDC) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).transform_quant_luma_dc;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::transform_quant_luma_dc)) {
        Rng rng(1005);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        const int16_t scan[16] = {0, 1, 5, 6, 2, 4, 7, 12, 3, 8, 11, 13, 9, 10, 14, 15};
        auto run = [&](const int16_t* src, const int16_t* tb, bool transform, int32_t qp, const char* what, int32_t i) {
            const int32_t per = qp / 6;
            const int32_t mf = kplvc::h264::FwdQuantTable[static_cast<size_t>(3 * (qp % 6))];
            const int32_t round = kplvc::h264::dc_rounds[static_cast<size_t>(9 + per)];
            int16_t sa[16], sb[16], ta[16], tbb[16];
            std::memcpy(sa, src, 32);
            std::memcpy(sb, src, 32);
            std::memcpy(ta, tb, 32);
            std::memcpy(tbb, tb, 32);
            uint8_t ca = 1, la = 2, cb = 1, lb = 2;
            const int32_t ra = ref(sa, ta, transform, mf, round, per + 16, scan, &ca, &la);
            const int32_t rb = fn(sb, tbb, transform, mf, round, per + 16, scan, &cb, &lb);
            ASSERT_EQ(ra, rb) << what << " " << i;
            ASSERT_EQ(std::memcmp(sa, sb, 32), 0) << what << " " << i;
            ASSERT_EQ(std::memcmp(ta, tbb, 32), 0) << what << " " << i;
            ASSERT_EQ(ca, cb) << what << " " << i;
            ASSERT_EQ(la, lb) << what << " " << i;
        };
        for (int iter = 0; iter < kIters; ++iter) {
            int16_t src[16], tb[16];
            fill_block(rng, src, iter);
            fill_block(rng, tb, iter + 1);
            run(src, tb, rng.coin(), rng.range(0, 51), "random", iter);
        }
        for (int32_t qp : {5, 6}) {
            for (int32_t x = -32768; x <= 32767; x += 1) {
                int16_t src[16] = {}, tb[16] = {};
                tb[(x & 0xF0) >> 4] = static_cast<int16_t>(x);
                src[0] = static_cast<int16_t>(x);
                run(src, tb, false, qp, "sweep", x);
                if ((x & 7) == 0) run(src, tb, true, qp, "sweep transformed", x);
            }
        }
    }
}

TEST(H264XformVariants, TransformQuantChromaDC) {
    const auto ref = kplvc::h264::xform_kernels_for(kplvc::cpu::Isa::c).transform_quant_chroma_dc;
    for (auto [isa, fn] : variants(kplvc::h264::xform_kernels_for, &XformKernels::transform_quant_chroma_dc)) {
        Rng rng(1006);
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        auto run = [&](const int16_t* src, const int16_t* tb, bool transform, int32_t qp, bool intra, int32_t i) {
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
            ASSERT_EQ(ra, rb) << i;
            ASSERT_EQ(std::memcmp(sa.data(), sb.data(), 8), 0) << i;
            ASSERT_EQ(std::memcmp(ta.data(), tbb.data(), 8), 0) << i;
            ASSERT_EQ(ca, cb) << i;
            ASSERT_TRUE(sb.intact() && tbb.intact());
        };
        for (int iter = 0; iter < kIters; ++iter) {
            int16_t src[16], tb[16];
            fill_block(rng, src, iter);
            fill_block(rng, tb, iter + 2);
            run(src, tb, rng.coin(), rng.range(0, 39), rng.coin(), iter);
        }
        for (int32_t x = -32768; x <= 32767; x += 3) {
            const int16_t src[4] = {static_cast<int16_t>(x), 0, static_cast<int16_t>(x / 3), 0};
            const int16_t tb[4] = {0, static_cast<int16_t>(x), 0, 1};
            run(src, tb, false, x & 7, (x & 8) != 0, x);
            run(src, tb, true, x & 7, (x & 8) != 0, x);
        }
    }
}

}  // namespace
