// 8x8 transform family: every SIMD kernel against the scalar reference, and
// the contracts of the reduced paths (4x4, 2x2 and the matrix engine's
// corner path equal the full transforms on blocks confined to their corner).
#include <cstdint>
#include <cstring>
#include <vector>

#include "block/dct.h"
#include "kplvc.h"
#include "support/variants.h"

using kplvc::block::DctKernels;
using kplvc::test::Arena;
using kplvc::test::Rng;

namespace {

using Block = std::vector<int16_t>;

// Coefficient blocks of the kinds that break transforms: a real transform's
// coefficients (pixels or residuals), random over the whole 16-bit range or
// the 12-bit range of streams, sparse, DC only, and extreme patterns that
// saturate every stage; `corner` (4 or 2) confines the block to that corner.
void make(Rng& rng, int16_t* b, int kind, int corner = 8) {
    std::memset(b, 0, 128);
    switch (kind % 6) {
        case 0:
            kplvc::test::dct_coefficients(rng, b, rng.coin());
            break;
        case 1:
            rng.fill(b, 64);
            break;
        case 2:
            rng.fill(b, 64, -2048, 2047);
            break;
        case 3:
            for (int n = rng.range(1, 6); n > 0; --n) b[rng.range(0, 63)] = rng.s16();
            break;
        case 4:
            b[0] = rng.s16();
            break;
        default:
            rng.fill_extreme(b, 64, rng.coin() ? -32768 : -32767, 32767);
            break;
    }
    for (int i = 0; i < 64; ++i)
        if (i / 8 >= corner || i % 8 >= corner) b[i] = 0;
}

const auto check = kplvc::test::variants_of(kplvc::block::dct_kernels_for, "dct ");

}  // namespace

// The 16-bit transforms of every engine, two-buffer and in place; the
// reduced inverses get blocks confined to their corner and blocks that are
// not (they must ignore what lies outside); the residual engines also get
// blocks of -256..255.
TEST(DctVariants, BlockTransformsMatchReference) {
    using Fn = void (*)(const int16_t*, int16_t*);
    for (auto [m, name, in_place] : {std::tuple{&DctKernels::inv, "inv", true},
                                     {&DctKernels::fwd, "fwd", true},
                                     {&DctKernels::aan, "aan", false},
                                     {&DctKernels::aan_corner, "aan_corner", false}})
        check(m, name, 1500, [in_place = in_place](Arena& a, Rng& rng, int i) {
            auto src = a.in<int16_t>(64), dst = a.out<int16_t>(64);
            make(rng, a[src], i);
            if (i % 7 == 3) rng.fill(a[src], 64, -256, 255);
            std::memcpy(a[dst], a[src], 128);
            const bool same = in_place && i % 2 == 1;
            return [=](Fn f, Arena& x) { f(same ? x[dst] : x[src], x[dst]); };
        });
    using FnI = void (*)(int16_t*);
    for (auto [m, name, corner] : {std::tuple{&DctKernels::inv_4x4, "inv_4x4", 4},
                                   {&DctKernels::inv_2x2, "inv_2x2", 2},
                                   {&DctKernels::field_fwd, "field_fwd", 8},
                                   {&DctKernels::field_inv, "field_inv", 8}})
        check(m, name, 1500, [corner = corner](Arena& a, Rng& rng, int i) {
            auto blk = a.out<int16_t>(64);
            make(rng, a[blk], i, i % 3 == 0 ? 8 : corner);
            if (corner == 8 && i % 3 == 1) rng.fill(a[blk], 64, -255, 255);
            return [=](FnI f, Arena& x) { f(x[blk]); };
        });
}

TEST(DctVariants, BytesInAndOutMatchReference) {
    check(&DctKernels::inv_u8, "inv_u8", 1500, [](Arena& a, Rng& rng, int i) {
        auto src = a.in<int16_t>(64);
        make(rng, a[src], i);
        if (rng.coin()) {  // mostly in pixel range, some clipping
            rng.fill(a[src], 64, -80, 80);
            a[src][0] = static_cast<int16_t>(rng.range(-400, 2400));
        }
        const int32_t step = rng.range(8, 40);
        auto dst = a.out<uint8_t>(static_cast<size_t>(7 * step + 8), 1);
        return [=](auto f, Arena& x) { f(x[src], x[dst], step); };
    });
    check(&DctKernels::fwd_u8, "fwd_u8", 1500, [](Arena& a, Rng& rng, int i) {
        const int32_t step = rng.range(8, 33);
        auto px = a.in<uint8_t>(static_cast<size_t>(7 * step + 8));
        if (i & 1) rng.fill_extreme(a[px], static_cast<size_t>(7 * step + 8));
        auto dst = a.out<int16_t>(64);
        return [=](auto f, Arena& x) { f(x[px], step, x[dst]); };
    });
}

// Values over the whole 16-bit range (the stores clamp), steps that make rows
// overlap, negative steps; the destination starts mid-buffer so that negative
// steps stay inside.
TEST(DctVariants, MatrixStoresMatchReference) {
    struct Store {
        kplvc::test::Buf<int16_t> u, v;
        kplvc::test::Buf<uint8_t> dst;
        int32_t step;
        int16_t* d16(Arena& x) const { return reinterpret_cast<int16_t*>(x[dst] + 8 * 70); }
        uint8_t* d8(Arena& x) const { return x[dst] + 8 * 70; }
    };
    auto store = [](Arena& a, Rng& rng, int i, bool bytes) {
        static const int32_t steps16[] = {2, 6, 16, 18, 31, 32, 34, 64, -32, -40, 7, 33};
        static const int32_t steps8[] = {1, 3, 8, 9, 15, 16, 17, 40, -16, -24, 2, 5};
        const size_t k = static_cast<size_t>(i) % 12;
        Store s{a.in<int16_t>(64), a.in<int16_t>(64), a.out<uint8_t>(2 * 8 * 70),
                bytes ? steps8[k] : steps16[k]};
        for (auto b : {s.u, s.v})
            if (rng.coin()) rng.fill(a[b], 64, -300, 300);
        return s;
    };
    check(&DctKernels::put_16s, "put_16s", 1500, [&](Arena& a, Rng& rng, int i) {
        const Store s = store(a, rng, i, false);
        return [=](auto f, Arena& x) { f(x[s.u], s.d16(x), s.step); };
    });
    check(&DctKernels::put_u8, "put_u8", 1500, [&](Arena& a, Rng& rng, int i) {
        const Store s = store(a, rng, i, true);
        return [=](auto f, Arena& x) { f(x[s.u], s.d8(x), s.step); };
    });
    check(&DctKernels::put_16s_p2, "put_16s_p2", 1500, [&](Arena& a, Rng& rng, int i) {
        const Store s = store(a, rng, i, false);
        return [=](auto f, Arena& x) { f(x[s.u], x[s.v], s.d16(x), s.step); };
    });
    check(&DctKernels::put_u8_p2, "put_u8_p2", 1500, [&](Arena& a, Rng& rng, int i) {
        const Store s = store(a, rng, i, true);
        return [=](auto f, Arena& x) { f(x[s.u], x[s.v], s.d8(x), s.step); };
    });
}

// ---- Contracts of the reduced paths -------------------------------------------------

TEST(DctContract, ReducedPathsEqualFullOnTheirCorner) {
    for (kplvc::cpu::Isa isa : kplvc::test::cpu_levels()) {
        const DctKernels k = kplvc::block::dct_kernels_for(isa);
        Rng rng("dct corner");
        for (int iter = 0; iter < kplvc::test::iters(3000); ++iter) {
            int16_t in[64], full[64], reduced[64];
            for (int n : {4, 2}) {
                make(rng, in, iter, n);
                k.inv(in, full);
                std::memcpy(reduced, in, sizeof in);
                (n == 4 ? k.inv_4x4 : k.inv_2x2)(reduced);
                ASSERT_EQ(std::memcmp(full, reduced, sizeof full), 0)
                    << kplvc::cpu::isa_name(isa) << " corner " << n << " iter " << iter;
            }
            make(rng, in, iter % 3, 4);
            k.aan(in, full);
            k.aan_corner(in, reduced);
            ASSERT_EQ(std::memcmp(full, reduced, sizeof full), 0)
                << kplvc::cpu::isa_name(isa) << " aan iter " << iter;
        }
    }
    // Through the entry points: the reduced inverses, and every count 2..8 of
    // the matrix engine against count 64 and -5.
    Rng rng("dct corner entry points");
    for (int iter = 0; iter < kplvc::test::iters(300); ++iter) {
        int16_t in[64], full[64], q[64], p[64];
        make(rng, in, iter % 6, 2);
        std::memcpy(full, in, 128);
        std::memcpy(q, in, 128);
        std::memcpy(p, in, 128);
        ASSERT_EQ(kpliDCT8x8Inv_16s_C1I(full), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_4x4_16s_C1I(q), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_2x2_16s_C1I(p), kplStsNoErr);
        ASSERT_TRUE(std::memcmp(full, q, 128) == 0 && std::memcmp(full, p, 128) == 0) << iter;
        make(rng, in, 2, 4);
        uint8_t want[64], got[64];
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(in, want, 8, 64), kplStsNoErr);
        for (int32_t count : {-5, 2, 3, 4, 5, 6, 7, 8}) {
            ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(in, got, 8, count), kplStsNoErr);
            ASSERT_EQ(std::memcmp(want, got, 64), 0) << "count " << count;
        }
        // From count 9 on, the whole block counts.
        make(rng, in, 2);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(in, want, 8, 64), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(in, got, 8, 9), kplStsNoErr);
        ASSERT_EQ(std::memcmp(want, got, 64), 0) << "count 9";
    }
}

TEST(DctContract, MatrixCountOneIsTruncatedDcOverEight) {
    for (int dc = -32768; dc <= 32767; dc += 7) {
        Block b(64, 0x5555);
        b[0] = static_cast<int16_t>(dc);
        int16_t out[64];
        uint8_t out8[64];
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s_C1R(b.data(), out, 16, 1), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(b.data(), out8, 8, 1), kplStsNoErr);
        const int want = std::min(255, std::max(-256, dc / 8));
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(out[i], want) << dc;
            ASSERT_EQ(out8[i], std::max(0, want)) << dc;
        }
    }
}
