// The SIMD kernels of the searches against the scalar ones: four SADs at
// once over references at arbitrary offsets and steps, and the 16-bit column
// and row sums (random and extreme values, lengths around the vector widths,
// sums that wrap).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "me/me.h"
#include "support/variants.h"

using kplvc::me::MeKernels;
using namespace kplvc::test;

namespace {

int length(Rng& rng, int i) {
    static const int kEdges[] = {1, 7, 8, 9, 15, 16, 17, 31, 32, 33, 2062};
    return i < 11 ? kEdges[i] : rng.range(1, 300);
}

}  // namespace

TEST(MeKernels, SadX4) {
    for (int size : {kplvc::me::k16, kplvc::me::k8}) {
        const int n = kplvc::me::block_side(static_cast<kplvc::me::Size>(size));
        const auto get = [size](const MeKernels& k) { return k.sad_x4[size]; };
        check_variants(kplvc::me::me_kernels_for, get, "me sad_x4 " + std::to_string(n), 3000,
                       [n](Arena& a, Rng& rng, int i) {
                           const int32_t ss = n + rng.range(0, 20), rs = n + rng.range(0, 40);
                           const size_t area = static_cast<size_t>(rs) * (n + 8);
                           auto src = a.in<uint8_t>(static_cast<size_t>(ss) * n);
                           auto ref = a.in<uint8_t>(area, 1, i % 3 == 1 ? Edge::end : Edge::none);
                           auto sad = a.out<int32_t>(4);
                           if (i % 4 == 0) {
                               rng.fill_extreme(a[src], static_cast<size_t>(ss) * n);
                               rng.fill_extreme(a[ref], area);
                           }
                           ptrdiff_t off[4];
                           for (ptrdiff_t& o : off) o = rng.range(0, 8) * rs + rng.range(0, rs - n);
                           a.note("steps ", ss, "/", rs);
                           return [=](auto fn, Arena& x) {
                               const uint8_t* r[4] = {x[ref] + off[0], x[ref] + off[1], x[ref] + off[2],
                                                      x[ref] + off[3]};
                               fn(x[src], ss, r, rs, x[sad]);
                           };
                       });
    }
}

TEST(MeKernels, ColumnUpdate) {
    check_variants(kplvc::me::me_kernels_for, &MeKernels::col_update, "me col_update", 2000,
                   [](Arena& a, Rng& rng, int i) {
                       const int n = length(rng, i);
                       auto col = a.out<uint16_t>(static_cast<size_t>(n));
                       auto add = a.in<uint8_t>(static_cast<size_t>(n), 1, i & 1 ? Edge::end : Edge::none);
                       auto sub = a.in<uint8_t>(static_cast<size_t>(n), 1);
                       a.note("n ", n);
                       return [=](auto fn, Arena& x) { fn(x[col], x[add], x[sub], n); };
                   });
}

TEST(MeKernels, RowSums) {
    for (int size : {kplvc::me::k16, kplvc::me::k8}) {
        const int side = kplvc::me::block_side(static_cast<kplvc::me::Size>(size));
        const auto get = [size](const MeKernels& k) { return k.row_sums[size]; };
        check_variants(kplvc::me::me_kernels_for, get, "me row_sums " + std::to_string(side), 2000,
                       [side](Arena& a, Rng& rng, int i) {
                           const int n = length(rng, i);
                           const size_t cols = static_cast<size_t>(n + side - 1);
                           auto col = a.in<uint16_t>(cols, 2, i & 1 ? Edge::end : Edge::none);
                           auto dst = a.out<uint16_t>(static_cast<size_t>(n));
                           // Real column sums (at most 16 * 255) half the time; any
                           // 16-bit values, whose sums wrap, otherwise.
                           if (i % 2 == 0)
                               for (size_t c = 0; c < cols; ++c)
                                   a[col][c] = static_cast<uint16_t>(rng.range(0, side * 255));
                           a.note("n ", n);
                           return [=](auto fn, Arena& x) { fn(x[col], x[dst], n); };
                       });
    }
}

// The elimination filter: limits drawn around the bounds actually present,
// so that many lanes sit exactly at the limit.
TEST(MeKernels, SeaFilter) {
    check_variants(
        kplvc::me::me_kernels_for, &MeKernels::sea_filter, "me sea_filter", 3000,
        [](Arena& a, Rng& rng, int i) {
            const int n = length(rng, i);
            auto sums = a.in<uint16_t>(static_cast<size_t>(n), 2, i & 1 ? Edge::end : Edge::none);
            auto price = a.in<int32_t>(static_cast<size_t>(n), 4);
            auto idx = a.out<uint16_t>(static_cast<size_t>(n));
            const int lambda = i % 3 == 0 ? 0 : rng.range(0, 65535);
            const int32_t sc = i % 5 == 0 ? 65280 : rng.range(0, 65280);
            for (int k = 0; k < n; ++k) {
                a[sums][k] = static_cast<uint16_t>(
                    i % 7 == 0 ? rng.range(0, 65535) : std::clamp(sc + rng.range(-300, 300), 0, 65280));
                a[price][k] = lambda * rng.range(1, 19);
            }
            const int k = rng.range(0, n - 1);
            const int32_t at = 16 * std::abs(sc - a[sums][k]) + a[price][k];
            const int32_t limit = i % 11 == 0 ? -1 : at + rng.range(-2, 2);
            a.note("n ", n, ", limit ", limit);
            return [=](auto fn, Arena& x) { return fn(x[sums], x[price], n, sc, limit, x[idx]); };
        });
}

// The quarters' filter: quarter sums around the current ones (many lanes at
// the limit), any 16-bit values now and then (gaps past 16 bits), and the
// largest sums of a real plane.
TEST(MeKernels, SeaFilterQuarters) {
    check_variants(
        kplvc::me::me_kernels_for, &MeKernels::sea_filter_quarters, "me sea_filter_quarters", 3000,
        [](Arena& a, Rng& rng, int i) {
            const int n = length(rng, i);
            const size_t cells = static_cast<size_t>(n) + 8;
            auto qa = a.in<uint16_t>(cells, 2, i & 1 ? Edge::end : Edge::none);
            auto qb = a.in<uint16_t>(cells, 2, i & 2 ? Edge::end : Edge::none);
            auto sq = a.in<int32_t>(4, 4);
            auto price = a.in<int32_t>(static_cast<size_t>(n), 4);
            auto idx = a.out<uint16_t>(static_cast<size_t>(n));
            const bool wild = i % 7 == 0;
            for (int q = 0; q < 4; ++q)
                a[sq][q] = wild ? rng.range(0, 65535) : i % 5 == 0 ? 16320 : rng.range(0, 16320);
            const int lambda = i % 3 == 0 ? 0 : rng.range(0, 65535);
            for (size_t k = 0; k < cells; ++k) {
                const auto near = [&](int q) {
                    return static_cast<uint16_t>(wild ? rng.range(0, 65535)
                                                      : std::clamp(a[sq][q] + rng.range(-80, 80), 0, 16320));
                };
                a[qa][k] = near(k & 1);
                a[qb][k] = near(2 + (k & 1));
            }
            for (int k = 0; k < n; ++k) a[price][k] = lambda * rng.range(1, 19);
            const int k = rng.range(0, n - 1);
            const int32_t gap = std::abs(a[sq][0] - a[qa][k]) + std::abs(a[sq][1] - a[qa][k + 8]) +
                                std::abs(a[sq][2] - a[qb][k]) + std::abs(a[sq][3] - a[qb][k + 8]);
            const int32_t limit = i % 11 == 0 ? -1 : 16 * gap + a[price][k] + rng.range(-2, 2);
            a.note("n ", n, ", limit ", limit);
            return [=](auto fn, Arena& x) { return fn(x[qa], x[qb], x[sq], x[price], n, limit, x[idx]); };
        });
}
