// 8x8 transform family: every SIMD kernel against the scalar reference, and
// the contracts of the reduced paths (4x4, 2x2 and the matrix engine's
// corner path equal the full transforms on blocks confined to their corner).
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "block/dct.h"
#include "kplvc.h"
#include "support/support.h"

using kplvc::block::DctKernels;
using kplvc::cpu::Isa;
using kplvc::test::Guarded;
using kplvc::test::Rng;
using kplvc::test::variants;

namespace {

using Block = std::vector<int16_t>;

const DctKernels& ref() {
    static const DctKernels k = kplvc::block::dct_kernels_for(Isa::c);
    return k;
}

std::vector<DctKernels> all_levels() {
    std::vector<DctKernels> out{ref()};
    for (Isa isa : kplvc::test::simd_levels()) out.push_back(kplvc::block::dct_kernels_for(isa));
    return out;
}

// Coefficient blocks of the kinds that break transforms: random over the
// whole 16-bit range or the 12-bit range of real streams, sparse, DC only,
// confined to a corner, and extreme patterns that saturate every stage.
enum class Kind { random16, random12, sparse, dc, corner4, corner2, extreme, extreme_corner };
constexpr Kind kKinds[] = {Kind::random16, Kind::random12, Kind::sparse,  Kind::dc,
                           Kind::corner4,  Kind::corner2,  Kind::extreme, Kind::extreme_corner};

Block make(Rng& rng, Kind kind) {
    Block b(64, 0);
    switch (kind) {
        case Kind::random16:
            rng.fill(b.data(), 64);
            break;
        case Kind::random12:
            rng.fill(b.data(), 64, -2048, 2047);
            break;
        case Kind::sparse:
            for (int n = rng.range(1, 6); n > 0; --n) b[rng.range(0, 63)] = rng.s16();
            break;
        case Kind::dc:
            b[0] = rng.s16();
            break;
        case Kind::corner4:
        case Kind::corner2: {
            const int n = kind == Kind::corner4 ? 4 : 2;
            const bool big = rng.coin();
            for (int r = 0; r < n; ++r)
                for (int c = 0; c < n; ++c)
                    b[8 * r + c] = static_cast<int16_t>(big ? rng.s16() : rng.range(-2048, 2047));
            break;
        }
        case Kind::extreme:
            rng.fill_extreme(b.data(), 64, -32768, 32767);
            break;
        case Kind::extreme_corner: {
            Block e(64);
            rng.fill_extreme(e.data(), 64, rng.coin() ? -32768 : -32767, 32767);
            const int n = rng.coin() ? 4 : 2;
            for (int r = 0; r < n; ++r)
                for (int c = 0; c < n; ++c) b[8 * r + c] = e[8 * r + c];
            break;
        }
    }
    return b;
}

Block confine(const Block& b, int n) {
    Block c(64, 0);
    for (int r = 0; r < n; ++r)
        for (int x = 0; x < n; ++x) c[8 * r + x] = b[8 * r + x];
    return c;
}

constexpr int kIters = 1500;

// Runs fn(reference, variant, block, trace) for every variant of `member`.
template <class Fn>
void each_variant(Fn DctKernels::*member, const std::function<void(Fn, Fn, Rng&, int)>& body) {
    for (auto [isa, fn] : variants(kplvc::block::dct_kernels_for, member)) {
        SCOPED_TRACE(kplvc::cpu::isa_name(isa));
        Rng rng(0xD07 + static_cast<int>(isa));
        SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
        for (int iter = 0; iter < kIters; ++iter) {
            body(ref().*member, fn, rng, iter);
            if (::testing::Test::HasFatalFailure()) return;
        }
    }
}

}  // namespace

// ---- Transforms --------------------------------------------------------------------

// The 16-bit transforms of every engine; `in_place` ones also run with the
// source as destination, `residuals` ones also get blocks of -256..255.
TEST(DctVariants, BlockTransformsMatchReference) {
    using Fn = void (*)(const int16_t*, int16_t*);
    const struct {
        Fn DctKernels::*member;
        bool in_place, residuals;
    } two_buffer[] = {{&DctKernels::inv, true, false},
                      {&DctKernels::fwd, true, true},
                      {&DctKernels::aan, false, false},
                      {&DctKernels::aan_corner, false, false}};
    for (const auto& m : two_buffer)
        each_variant<Fn>(m.member, [&m](Fn r, Fn f, Rng& rng, int iter) {
            Block in = make(rng, kKinds[iter % 8]);
            if (m.residuals && iter % 3 == 0) rng.fill(in.data(), 64, -256, 255);
            Block a(64), b(64), c = in;
            r(in.data(), a.data());
            f(in.data(), b.data());
            ASSERT_EQ(a, b) << "iter " << iter;
            if (!m.in_place) return;
            f(c.data(), c.data());
            ASSERT_EQ(a, c) << "iter " << iter << " in place";
        });
    // In-place only: the reduced inverses (which must also ignore coefficients
    // outside their corner) and the 2-4-8 engine.
    using FnI = void (*)(int16_t*);
    const struct {
        FnI DctKernels::*member;
        bool residuals;
    } one_buffer[] = {{&DctKernels::inv_4x4, false},
                      {&DctKernels::inv_2x2, false},
                      {&DctKernels::field_fwd, true},
                      {&DctKernels::field_inv, true}};
    for (const auto& m : one_buffer)
        each_variant<FnI>(m.member, [&m](FnI r, FnI f, Rng& rng, int iter) {
            Block a = make(rng, kKinds[iter % 8]);
            if (m.residuals && iter % 3 == 0) rng.fill(a.data(), 64, -255, 255);
            Block b = a;
            r(a.data());
            f(b.data());
            ASSERT_EQ(a, b) << "iter " << iter;
        });
}

TEST(DctVariants, InverseToBytesMatchesReference) {
    using Fn = void (*)(const int16_t*, uint8_t*, int32_t);
    each_variant<Fn>(&DctKernels::inv_u8, [](Fn r, Fn f, Rng& rng, int iter) {
        Block in = make(rng, kKinds[iter % 8]);
        if (rng.coin()) {  // mostly in pixel range, some clipping
            rng.fill(in.data(), 64, -80, 80);
            in[0] = static_cast<int16_t>(rng.range(-400, 2400));
        }
        const int32_t step = rng.range(8, 40);
        const size_t size = static_cast<size_t>(7 * step + 8);
        Guarded a(size), b(size, static_cast<size_t>(rng.range(0, 15)));
        std::memset(a.data(), 0x11, size);
        std::memset(b.data(), 0x11, size);
        r(in.data(), a.data(), step);
        f(in.data(), b.data(), step);
        ASSERT_EQ(std::memcmp(a.data(), b.data(), size), 0) << "iter " << iter << " step " << step;
        ASSERT_TRUE(b.intact());
    });
}

TEST(DctVariants, ForwardFromBytesMatchesReference) {
    using Fn8 = void (*)(const uint8_t*, int32_t, int16_t*);
    each_variant<Fn8>(&DctKernels::fwd_u8, [](Fn8 r, Fn8 f, Rng& rng, int iter) {
        const int32_t step = rng.range(8, 33);
        std::vector<uint8_t> px(static_cast<size_t>(7 * step + 8));
        if (iter & 1)
            rng.fill(px.data(), px.size());
        else
            rng.fill_extreme(px.data(), px.size());
        Block a(64), b(64);
        r(px.data(), step, a.data());
        f(px.data(), step, b.data());
        ASSERT_EQ(a, b) << "iter " << iter << " step " << step;
    });
}

// ---- Matrix engine ------------------------------------------------------------------

TEST(DctVariants, MatrixStoresMatchReference) {
    // Values over the whole 16-bit range (the stores clamp), steps that make
    // rows overlap, negative steps.
    const int32_t steps16[] = {2, 6, 16, 18, 31, 32, 34, 64, -32, -40, 7, 33};
    const int32_t steps8[] = {1, 3, 8, 9, 15, 16, 17, 40, -16, -24, 2, 5};
    using Put16 = void (*)(const int16_t*, int16_t*, int32_t);
    using Put8 = void (*)(const int16_t*, uint8_t*, int32_t);
    using Pair16 = void (*)(const int16_t*, const int16_t*, int16_t*, int32_t);
    using Pair8 = void (*)(const int16_t*, const int16_t*, uint8_t*, int32_t);
    auto values = [](Rng& rng) {
        Block v(64);
        if (rng.coin())
            rng.fill(v.data(), 64, -300, 300);
        else
            rng.fill_extreme(v.data(), 64);
        return v;
    };
    // A buffer big enough for any of the steps, with the block's origin in
    // the middle so negative steps stay inside.
    constexpr size_t kSize = 2 * 8 * 70, kOrigin = 8 * 70;
    auto run = [&](auto r, auto f, bool bytes) {
        return [=](decltype(r) rr, decltype(f) ff, Rng& rng, int iter) {
            const int32_t step = bytes ? steps8[iter % 12] : steps16[iter % 12];
            const Block u = values(rng), v = values(rng);
            Guarded a(kSize), b(kSize);
            rng.fill(a.data(), kSize);
            std::memcpy(b.data(), a.data(), kSize);
            auto call = [&](auto fn, uint8_t* base) {
                if constexpr (std::is_same_v<decltype(fn), Put16>)
                    fn(u.data(), reinterpret_cast<int16_t*>(base), step);
                if constexpr (std::is_same_v<decltype(fn), Put8>) fn(u.data(), base, step);
                if constexpr (std::is_same_v<decltype(fn), Pair16>)
                    fn(u.data(), v.data(), reinterpret_cast<int16_t*>(base), step);
                if constexpr (std::is_same_v<decltype(fn), Pair8>) fn(u.data(), v.data(), base, step);
            };
            call(rr, a.data() + kOrigin);
            call(ff, b.data() + kOrigin);
            ASSERT_EQ(std::memcmp(a.data(), b.data(), kSize), 0) << "iter " << iter << " step " << step;
            ASSERT_TRUE(b.intact());
        };
    };
    each_variant<Put16>(&DctKernels::put_16s, run(Put16{}, Put16{}, false));
    each_variant<Put8>(&DctKernels::put_u8, run(Put8{}, Put8{}, true));
    each_variant<Pair16>(&DctKernels::put_16s_p2, run(Pair16{}, Pair16{}, false));
    each_variant<Pair8>(&DctKernels::put_u8_p2, run(Pair8{}, Pair8{}, true));
}

// ---- Contracts of the reduced paths -------------------------------------------------

TEST(DctContract, ReducedInversesEqualFullOnTheirCorner) {
    for (const DctKernels& k : all_levels()) {
        Rng rng(77);
        for (int iter = 0; iter < 3000; ++iter) {
            const Kind kinds[] = {Kind::corner4, Kind::corner2, Kind::extreme_corner, Kind::random16,
                                  Kind::extreme};
            const Block src = make(rng, kinds[iter % 5]);
            for (int n : {4, 2}) {
                const Block in = confine(src, n);
                Block full(64), reduced = in;
                k.inv(in.data(), full.data());
                (n == 4 ? k.inv_4x4 : k.inv_2x2)(reduced.data());
                ASSERT_EQ(full, reduced) << "corner " << n << " iter " << iter;
            }
        }
    }
    // The exported functions as well.
    Rng rng(78);
    for (int iter = 0; iter < 500; ++iter) {
        const Block in = confine(make(rng, Kind::extreme), 2);
        Block full = in, q = in, p = in;
        ASSERT_EQ(kpliDCT8x8Inv_16s_C1I(full.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_4x4_16s_C1I(q.data()), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_2x2_16s_C1I(p.data()), kplStsNoErr);
        ASSERT_EQ(full, q);
        ASSERT_EQ(full, p);
    }
}

TEST(DctContract, MatrixCornerPathEqualsFullPathOnTheCorner) {
    for (const DctKernels& k : all_levels()) {
        Rng rng(79);
        for (int iter = 0; iter < 3000; ++iter) {
            const Block in = confine(make(rng, iter & 1 ? Kind::random12 : Kind::random16), 4);
            Block full(64), corner(64);
            k.aan(in.data(), full.data());
            k.aan_corner(in.data(), corner.data());
            ASSERT_EQ(full, corner) << "iter " << iter;
        }
    }
    // Through the entry points: every count 2..8 against count 64 and -5.
    Rng rng(80);
    for (int iter = 0; iter < 300; ++iter) {
        const Block in = confine(make(rng, Kind::random12), 4);
        uint8_t full[64], neg[64];
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(in.data(), full, 8, 64), kplStsNoErr);
        ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(in.data(), neg, 8, -5), kplStsNoErr);
        ASSERT_EQ(std::memcmp(full, neg, 64), 0);
        for (int32_t count = 2; count <= 8; ++count) {
            uint8_t got[64];
            ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(in.data(), got, 8, count), kplStsNoErr);
            ASSERT_EQ(std::memcmp(full, got, 64), 0) << "count " << count;
        }
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
