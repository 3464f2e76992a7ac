#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "mc/mc.h"
#include "support/args.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::mc::McKernels;
using kplvc::mc::Shape;
using kplvc::test::Arena;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

using PubFn = KplStatus (*)(const Kpl8u*, Kpl32s, const Kpl16s*, Kpl32s, Kpl8u*, Kpl32s, Kpl32s, Kpl32s);
using PubBFn = KplStatus (*)(const Kpl8u*, Kpl32s, Kpl32s, const Kpl8u*, Kpl32s, Kpl32s, const Kpl16s*,
                             Kpl32s, Kpl8u*, Kpl32s, Kpl32s);

struct ShapeInfo {
    Shape shape;
    const char* name;
    int w, h, dx;
    bool bytes;  // two-reference form uses the byte-average construction
    PubFn single;
    PubBFn bidir;
};

const ShapeInfo kShapes[] = {
    {kplvc::mc::s16x16, "16x16", 16, 16, 1, true, kpliMC16x16_8u_C1, kpliMC16x16B_8u_C1},
    {kplvc::mc::s16x8, "16x8", 16, 8, 1, false, kpliMC16x8_8u_C1, kpliMC16x8B_8u_C1},
    {kplvc::mc::s16x8uv, "16x8UV", 16, 8, 2, false, kpliMC16x8UV_8u_C1, kpliMC16x8BUV_8u_C1},
    {kplvc::mc::s16x4uv, "16x4", 16, 4, 2, false, kpliMC16x4_8u_C1, kpliMC16x4B_8u_C1},
    {kplvc::mc::s8x16, "8x16", 8, 16, 1, true, kpliMC8x16_8u_C1, kpliMC8x16B_8u_C1},
    {kplvc::mc::s8x8, "8x8", 8, 8, 1, true, kpliMC8x8_8u_C1, kpliMC8x8B_8u_C1},
    {kplvc::mc::s8x4, "8x4", 8, 4, 1, true, kpliMC8x4_8u_C1, kpliMC8x4B_8u_C1},
    {kplvc::mc::s4x8, "4x8", 4, 8, 1, false, kpliMC4x8_8u_C1, kpliMC4x8B_8u_C1},
    {kplvc::mc::s4x4, "4x4", 4, 4, 1, false, kpliMC4x4_8u_C1, kpliMC4x4B_8u_C1},
    {kplvc::mc::s4x2, "4x2", 4, 2, 1, false, kpliMC4x2_8u_C1, kpliMC4x2B_8u_C1},
    {kplvc::mc::s2x4, "2x4", 2, 4, 1, false, kpliMC2x4_8u_C1, kpliMC2x4B_8u_C1},
    {kplvc::mc::s2x2, "2x2", 2, 2, 1, false, kpliMC2x2_8u_C1, kpliMC2x2B_8u_C1},
};

// ---- An independent per-sample model (runtime position, no tables) -----------------

int sample(const uint8_t* r, int step, int x, int y) { return r[static_cast<ptrdiff_t>(step) * y + x]; }

int model_pred(const uint8_t* r, int step, int x, int y, int mc_type, int32_t rc_in, int dx) {
    const int a = sample(r, step, x, y), rc = rc_in != 0 ? 1 : 0;
    switch (mc_type & 12) {
        case 0:
            return a;
        case 4:
            return (a + sample(r, step, x, y + 1) + 1 - rc) / 2;
        case 8:
            return (a + sample(r, step, x + dx, y) + 1 - rc) / 2;
        default:
            return (a + sample(r, step, x + dx, y) + sample(r, step, x, y + 1) +
                    sample(r, step, x + dx, y + 1) + 2 - rc) /
                   4;
    }
}

int avg(int x, int y) { return (x + y + 1) / 2; }
int dec(int x) { return x == 0 ? 0 : x - 1; }

int model_byte_pred(const uint8_t* r, int step, int x, int y, int mc_type, int rc, bool forward) {
    if ((mc_type & 12) != 12) return model_pred(r, step, x, y, mc_type, rc, 1);
    const int top = avg(sample(r, step, x, y), sample(r, step, x + 1, y));
    const int bottom = avg(sample(r, step, x, y + 1), sample(r, step, x + 1, y + 1));
    if (forward) return rc == 0 ? avg(top, dec(bottom)) : avg(dec(bottom), dec(top));
    return rc == 0 ? avg(dec(top), bottom) : avg(top, dec(bottom));
}

uint8_t clip(int v) { return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v)); }

int16_t res_at(const uint8_t* res, int step, int x, int y) {
    int16_t v;
    std::memcpy(&v, res + static_cast<ptrdiff_t>(step) * y + 2 * x, 2);
    return v;
}

// Exactly the reference bytes position pos of shape s reads at `step`, tight
// against an unmapped page every fourth iteration.
kplvc::test::Buf<uint8_t> reference(Arena& a, Rng& rng, const ShapeInfo& s, int pos, int32_t step, int i) {
    const bool hor = pos == 2 || pos == 3, ver = pos == 1 || pos == 3;
    const size_t n = static_cast<size_t>(step * (s.h - 1 + (ver ? 1 : 0)) + s.w + (hor ? s.dx : 0));
    auto b = a.in<uint8_t>(n, 1, i % 4 == 0 ? kplvc::test::Edge::end : kplvc::test::Edge::none);
    if (i % 3 == 0) rng.fill_extreme(a[b], n);
    return b;
}

// The residual (full range, small, pushed to the ends, tiny) at a byte step
// that may be odd, and the output.
struct ResDst {
    kplvc::test::Buf<uint8_t> res, dst;
    int32_t res_step, dst_step;
    const int16_t* r(Arena& x) const { return reinterpret_cast<const int16_t*>(x[res]); }
};
ResDst res_dst(Arena& a, Rng& rng, const ShapeInfo& s) {
    ResDst b{{}, {}, 2 * s.w + rng.range(0, 5), s.w + rng.range(0, 9)};
    b.res = a.in<uint8_t>(static_cast<size_t>(b.res_step * s.h), 1);
    b.dst = a.out<uint8_t>(static_cast<size_t>(b.dst_step * s.h), 1);
    const int kind = rng.range(0, 3);
    for (int y = 0; y < s.h; ++y)
        for (int x = 0; x < s.w; ++x) {
            const int16_t v = kind == 0   ? rng.s16()
                              : kind == 1 ? static_cast<int16_t>(rng.range(-300, 300))
                              : kind == 2 ? static_cast<int16_t>(rng.coin() ? 32767 : -32768)
                                          : static_cast<int16_t>(rng.range(-2, 2));
            std::memcpy(a[b.res] + b.res_step * y + 2 * x, &v, 2);
        }
    return b;
}

// Every shape and every mcType (pairs for two references) through the public
// functions against the per-sample model: checks the table index, the
// forward/backward order of the pair index and each kernel's geometry.
// roundControl is not checked: any non-zero value acts as 1 (and must not
// overflow 1 - rc or 2 - rc).
TEST(MC, PublicFunctionsMatchModel) {
    Rng rng("mc model");
    for (const ShapeInfo& s : kShapes)
        for (int32_t rc : {0, 1, 2, -1, INT32_MIN, INT32_MAX})
            for (int tf = 0; tf < 16; ++tf)
                for (int tb = 0; tb < 16; tb += rc == 0 || rc == 1 ? 1 : 5) {
                    SCOPED_TRACE(testing::Message()
                                 << s.name << " mcType " << tf << "/" << tb << " rc " << rc);
                    Arena a(rng);
                    const int32_t st = s.w + 2 + rng.range(0, 9);
                    auto rf = reference(a, rng, s, 3, st, tf), rb = reference(a, rng, s, 3, st, tb);
                    const ResDst b = res_dst(a, rng, s);
                    const uint8_t *f = a[rf], *bk = a[rb];
                    auto r = [&](int x, int y) { return res_at(a[b.res], b.res_step, x, y); };
                    auto got = [&] { return std::vector<uint8_t>(a[b.dst], a[b.dst] + b.dst_step * s.h); };
                    // The output with block sample (x, y) replaced by clip(p(x, y)).
                    auto expect = [&](auto p) {
                        std::vector<uint8_t> want = got();
                        for (int y = 0; y < s.h; ++y)
                            for (int x = 0; x < s.w; ++x)
                                want[static_cast<size_t>(b.dst_step * y + x)] = clip(p(x, y));
                        return want;
                    };
                    if (tb == 0) {
                        const auto want = expect(
                            [&](int x, int y) { return model_pred(f, st, x, y, tf, rc, s.dx) + r(x, y); });
                        ASSERT_EQ(s.single(f, st, b.r(a), b.res_step, a[b.dst], b.dst_step, tf, rc), 0);
                        ASSERT_EQ(got(), want);
                    }
                    const auto want = expect([&](int x, int y) {
                        const int pf = s.bytes ? model_byte_pred(f, st, x, y, tf, rc, true)
                                               : model_pred(f, st, x, y, tf, rc, s.dx);
                        const int pb = s.bytes ? model_byte_pred(bk, st, x, y, tb, rc, false)
                                               : model_pred(bk, st, x, y, tb, rc, s.dx);
                        const int v = 2 * r(x, y) + pf + pb + 1;
                        return v >= 0 ? v / 2 : -((-v + 1) / 2);
                    });
                    ASSERT_EQ(s.bidir(f, st, tf, bk, st, tb, b.r(a), b.res_step, a[b.dst], b.dst_step, rc),
                              0);
                    ASSERT_EQ(got(), want);
                    ASSERT_TRUE(a.intact());
                }
}

// ---- Argument checks ------------------------------------------------------------------

// Any null pointer gives -8; steps, mcType and roundControl are not checked.
TEST(MCArgs, NullPointersFailAndWriteNothing) {
    kplvc::test::ArgPool p;
    const uint8_t* r = p.take<uint8_t>(64 * 20);
    const int16_t* e = p.take<int16_t>(16 * 16);
    uint8_t* d = p.take<uint8_t>(16 * 16);
    for (const ShapeInfo& s : kShapes) {
        SCOPED_TRACE(s.name);
        CHECK_ARGS(p, s.single, {r, 64, e, 32, d, 16, 12, 0},
                   {null(0), null(2), null(4), passes(1, 1), passes(5, 1), passes(6, -1), passes(7, 7)});
        CHECK_ARGS(p, s.bidir, {r, 64, 12, r, 64, 4, e, 32, d, 16, 1},
                   {null(0), null(3), null(6), null(8), passes(2, 99), passes(10, -5)});
    }
}

// ---- SIMD variants against the scalar reference -------------------------------------

const auto check = kplvc::test::variants_of(kplvc::mc::mc_kernels_for, "mc ");

TEST(MCVariants, MatchReference) {
    for (const ShapeInfo& s : kShapes) {
        for (int pos = 0; pos < 4; ++pos)
            check([&](const McKernels& k) { return k.single[s.shape][pos]; },
                  std::string(s.name) + " pos " + std::to_string(pos), 60,
                  [&, pos](Arena& a, Rng& rng, int i) {
                      const int32_t rs = s.w + 2 + rng.range(0, 9);
                      auto ref = reference(a, rng, s, pos, rs, i);
                      const ResDst b = res_dst(a, rng, s);
                      return [=](auto f, Arena& x) {
                          f(x[ref], rs, b.r(x), b.res_step, x[b.dst], b.dst_step, i & 1);
                      };
                  });
        if (s.shape == kplvc::mc::s16x16 || s.shape == kplvc::mc::s8x8) {
            // The residual-free copies of the same square sizes, on the same
            // reference windows (extreme samples, windows ending at a page).
            const int c = s.shape == kplvc::mc::s16x16 ? kplvc::mc::c16x16 : kplvc::mc::c8x8;
            for (int pos = 0; pos < 4; ++pos)
                check([&](const McKernels& k) { return k.copy[c][pos]; },
                      std::string(s.name) + " copy pos " + std::to_string(pos), 60,
                      [&, pos](Arena& a, Rng& rng, int i) {
                          const int32_t rs = s.w + 2 + rng.range(0, 9), ds = s.w + rng.range(0, 5);
                          auto ref = reference(a, rng, s, pos, rs, i);
                          auto dst = a.out<uint8_t>(static_cast<size_t>(ds * s.h), 1);
                          return [=](auto f, Arena& x) { f(x[ref], rs, x[dst], ds); };
                      });
        }
        for (int idx = 0; idx < 16; ++idx)
            check([&](const McKernels& k) { return k.bidir[s.shape][idx]; },
                  std::string(s.name) + " pair " + std::to_string(idx), 24,
                  [&, idx](Arena& a, Rng& rng, int i) {
                      const int32_t fs = s.w + 2 + rng.range(0, 9), bs = s.w + 2 + rng.range(0, 9);
                      auto rf = reference(a, rng, s, idx & 3, fs, i),
                           rb = reference(a, rng, s, idx >> 2, bs, i);
                      const ResDst b = res_dst(a, rng, s);
                      return [=](auto f, Arena& x) {
                          f(x[rf], fs, x[rb], bs, b.r(x), b.res_step, x[b.dst], b.dst_step, i & 1);
                      };
                  });
    }
}

}  // namespace
