// Every SIMD variant of the H.264 transform kernels against the scalar
// reference: random, extreme and real levels, every QP, odd steps and
// misaligned rows, then sweeps of one value across the level limit.
#include <algorithm>
#include <cstring>
#include <vector>

#include "h264/transform.h"
#include "h264/transform_tables.h"
#include "support/variants.h"

using kplvc::h264::XformKernels;
using kplvc::test::Arena;
using kplvc::test::Buf;
using kplvc::test::Rng;

namespace {

const int16_t kZigzagIndex[16] = {0, 1, 5, 6, 2, 4, 7, 12, 3, 8, 11, 13, 9, 10, 14, 15};

const auto check = kplvc::test::variants_of(kplvc::h264::xform_kernels_for, "h264 ");

// Coefficient blocks of several shapes: full 16-bit range, extremes that push
// every butterfly to wrap, realistic ranges, sparse, and the levels a coder
// makes from a residual.
void fill_block(Rng& rng, int16_t* b, int iter) {
    switch (iter % 6) {
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
        case 4:
            kplvc::test::h264_levels(rng, b, rng.range(0, 51));
            break;
        default:
            std::fill(b, b + 16, int16_t{0});
            for (int k = rng.range(0, 3); k >= 0; --k)
                b[rng.range(0, 15)] = static_cast<int16_t>(rng.range(-40, 40));
    }
}

Buf<int16_t> block(Arena& a, Rng& rng, int iter) {
    auto b = a.out<int16_t>(16);
    fill_block(rng, a[b], iter);
    return b;
}

// A row of the dequantisation table, or any multipliers every seventh time:
// the kernels must not assume small ones.
Buf<int16_t> scale(Arena& a, Rng& rng, int iter) {
    auto s = a.in<int16_t>(16);
    if (iter % 7 != 6) {
        const auto& row = kplvc::h264::kDequant16[static_cast<size_t>(rng.range(0, 51))];
        std::copy(row.begin(), row.end(), a[s]);
    }
    return s;
}

// A 4-row byte area at a random step (extreme bytes every other iteration).
Buf<uint8_t> pixels(Arena& a, Rng& rng, int32_t step, int iter, bool out) {
    const size_t n = static_cast<size_t>(3 * step + 4);
    auto p = out ? a.out<uint8_t>(n, 1) : a.in<uint8_t>(n, 1);
    if (iter % 2) rng.fill_extreme(a[p], n);
    return p;
}

}  // namespace

TEST(H264XformVariants, DequantAndInverse) {
    check(&XformKernels::dequant_residual, "dequant_residual", 4000, [](Arena& a, Rng& rng, int i) {
        const int32_t step = rng.range(8, 40);
        auto c = a.out<uint8_t>(static_cast<size_t>(3 * step + 8), 2);
        for (int r = 0; r < 4; ++r) {
            int16_t row[16];
            fill_block(rng, row, i);
            std::memcpy(a[c] + r * step, row, 8);
        }
        auto s = scale(a, rng, i);
        auto dc = a.in<int16_t>(1);
        const bool with_dc = rng.coin();
        return [=](auto f, Arena& x) {
            f(reinterpret_cast<int16_t*>(x[c]), step, with_dc ? x[dc] : nullptr, x[s]);
        };
    });
    // The full inverse path and the DC-only shortcut, residuals up to the
    // 16-bit extremes.
    check(&XformKernels::dequant_residual_add, "dequant_residual_add", 4000, [](Arena& a, Rng& rng, int i) {
        const int32_t ps = rng.range(4, 33), ds = rng.range(4, 33);
        auto pred = pixels(a, rng, ps, i, false), dst = pixels(a, rng, ds, 0, true);
        auto c = block(a, rng, i);
        auto s = scale(a, rng, i);
        auto dc = a.in<int16_t>(1);
        const bool with_dc = rng.coin();
        return [=](auto f, Arena& x) {
            return f(x[pred], x[c], with_dc ? x[dc] : nullptr, x[dst], kplvc::h264::Steps{ps, ds}, x[s]);
        };
    });
    check(&XformKernels::add_dc, "add_dc", 4000, [](Arena& a, Rng& rng, int i) {
        const int32_t ps = rng.range(4, 33), ds = rng.range(4, 33);
        auto pred = pixels(a, rng, ps, i, false), dst = pixels(a, rng, ds, 0, true);
        const int16_t r = i % 3 == 0 ? rng.s16() : static_cast<int16_t>(rng.range(-300, 300));
        return [=](auto f, Arena& x) { f(x[pred], ps, x[dst], ds, r); };
    });
    // Luma DC dequantisation at every QP, and the forward core transform.
    check(&XformKernels::dequant_luma_dc, "dequant_luma_dc", 4000, [](Arena& a, Rng& rng, int i) {
        const int32_t qp = rng.range(0, 51);
        const int32_t s = qp < 6 ? 2 : (qp < 12 ? 1 : 0), r = s == 0 ? 0 : 1 << (s - 1);
        const int32_t m = kplvc::h264::InvQuantLuma16x16DCTable[static_cast<size_t>(qp)];
        auto b = block(a, rng, i);
        return [=](auto f, Arena& x) { f(x[b], m, r, s); };
    });
    check(&XformKernels::forward4x4, "forward4x4", 4000, [](Arena& a, Rng& rng, int i) {
        auto b = block(a, rng, i);
        return [=](auto f, Arena& x) { f(x[b]); };
    });
}

// Random blocks and scan tables (a caller's table may hold anything), then a
// single residual sample x swept over every 16-bit value: it transforms into
// x, 2x and 4x, so the largest level crosses 2063/2064 one step at a time and
// the range limit is hit exactly (random blocks almost never land on it).
TEST(H264XformVariants, TransformQuantResidual) {
    auto call = [](Arena& a, Buf<int16_t> b, int32_t qp, int32_t div, Buf<int16_t> scan) {
        const int32_t shift = qp / 6 + 15, round = (1 << shift) / div;
        const int16_t* mf = kplvc::h264::kQuant16[static_cast<size_t>(qp % 6)].data();
        auto cl = a.out<uint8_t>(2);
        return [=](auto f, Arena& x) {
            return f(x[b], mf, kplvc::h264::Rounding{round, shift}, x[scan], x[cl], x[cl] + 1);
        };
    };
    check(&XformKernels::transform_quant_residual, "transform_quant_residual", 4000,
          [&](Arena& a, Rng& rng, int i) {
              auto scan = a.in<int16_t>(16);
              if (i % 4 != 3) {
                  for (int k = 0; k < 16; ++k) a[scan][k] = static_cast<int16_t>(k);
                  for (int k = 15; k > 0; --k) std::swap(a[scan][k], a[scan][rng.range(0, k)]);
              }
              return call(a, block(a, rng, i), rng.range(0, 51), rng.coin() ? 3 : 6, scan);
          });
    check(&XformKernels::transform_quant_residual, "transform_quant_residual sweep", 4 * 65536,
          [&](Arena& a, Rng&, int i) {
              const int32_t v = i % 65536 - 32768;
              auto b = a.out<int16_t>(16), scan = a.in<int16_t>(16);
              std::fill(a[b], a[b] + 16, int16_t{0});
              a[b][(v & 0x300) >> 6] = static_cast<int16_t>(v);  // rows 0..3 in turn
              std::copy(kZigzagIndex, kZigzagIndex + 16, a[scan]);
              return call(a, b, i / 65536 % 2 ? 10 : 0, i / 131072 ? 6 : 3, scan);
          });
}

// The DC quantisers with and without their Hadamard, random and extreme DC
// arrays, then a sweep of one value across the 2063/2064 limit.
TEST(H264XformVariants, TransformQuantDC) {
    auto luma = [](Arena& a, Buf<int16_t> src, Buf<int16_t> tb, bool transform, int32_t qp) {
        const int32_t per = qp / 6, mf = kplvc::h264::FwdQuantTable[static_cast<size_t>(3 * (qp % 6))];
        const int32_t round = kplvc::h264::dc_rounds[static_cast<size_t>(9 + per)];
        auto scan = a.in<int16_t>(16);
        std::copy(kZigzagIndex, kZigzagIndex + 16, a[scan]);
        auto cl = a.out<uint8_t>(2);
        return [=](auto f, Arena& x) {
            return f(x[src], x[tb], transform, mf, round, per + 16, x[scan], x[cl], x[cl] + 1);
        };
    };
    check(&XformKernels::transform_quant_luma_dc, "transform_quant_luma_dc", 4000,
          [&](Arena& a, Rng& rng, int i) {
              auto src = block(a, rng, i), tb = block(a, rng, i + 1);
              return luma(a, src, tb, rng.coin(), rng.range(0, 51));
          });
    check(&XformKernels::transform_quant_luma_dc, "transform_quant_luma_dc sweep", 2 * 65536,
          [&](Arena& a, Rng&, int i) {
              const int32_t v = i % 65536 - 32768;
              auto src = a.out<int16_t>(16), tb = a.out<int16_t>(16);
              std::fill(a[src], a[src] + 16, int16_t{0});
              std::fill(a[tb], a[tb] + 16, int16_t{0});
              a[tb][(v & 0xF0) >> 4] = static_cast<int16_t>(v);
              a[src][0] = static_cast<int16_t>(v);
              return luma(a, src, tb, (v & 7) == 0, i < 65536 ? 5 : 6);
          });
    auto chroma = [](Arena& a, Buf<int16_t> src, Buf<int16_t> tb, bool transform, int32_t qp, bool intra) {
        const int32_t per = qp / 6, mf = kplvc::h264::FwdQuantTable[static_cast<size_t>(3 * (qp % 6))];
        const int32_t round = kplvc::h264::dc_rounds[static_cast<size_t>((intra ? 9 : 0) + per)];
        auto count = a.out<uint8_t>(1);
        return [=](auto f, Arena& x) { return f(x[src], x[tb], transform, mf, round, per + 16, x[count]); };
    };
    check(&XformKernels::transform_quant_chroma_dc, "transform_quant_chroma_dc", 4000,
          [&](Arena& a, Rng& rng, int i) {
              auto src = a.out<int16_t>(4), tb = a.out<int16_t>(4);
              int16_t b[16];
              fill_block(rng, b, i);
              std::memcpy(a[src], b, 8);
              fill_block(rng, b, i + 2);
              std::memcpy(a[tb], b, 8);
              return chroma(a, src, tb, rng.coin(), rng.range(0, 39), rng.coin());
          });
    check(&XformKernels::transform_quant_chroma_dc, "transform_quant_chroma_dc sweep", 65536,
          [&](Arena& a, Rng&, int i) {
              const int32_t v = i - 32768;
              auto src = a.out<int16_t>(4), tb = a.out<int16_t>(4);
              const int16_t s[4] = {static_cast<int16_t>(v), 0, static_cast<int16_t>(v / 3), 0},
                            t[4] = {0, static_cast<int16_t>(v), 0, 1};
              std::memcpy(a[src], s, 8);
              std::memcpy(a[tb], t, 8);
              return chroma(a, src, tb, (v & 16) != 0, v & 7, (v & 8) != 0);
          });
}
