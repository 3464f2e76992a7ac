#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#include "kplvc.h"
#include "mc/mc.h"
#include "support/support.h"

using kplvc::mc::McBFn;
using kplvc::mc::McFn;
using kplvc::mc::McKernels;
using kplvc::mc::Shape;
using kplvc::test::GuardPages;
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

int model_pred(const uint8_t* r, int step, int x, int y, int mc_type, int rc, int dx) {
    const int a = sample(r, step, x, y);
    switch (mc_type & 12) {
        case 0: return a;
        case 4: return (a + sample(r, step, x, y + 1) + 1 - rc) / 2;
        case 8: return (a + sample(r, step, x + dx, y) + 1 - rc) / 2;
        default:
            return (a + sample(r, step, x + dx, y) + sample(r, step, x, y + 1) + sample(r, step, x + dx, y + 1) +
                    2 - rc) /
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

int clip(int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); }

int16_t res_at(const uint8_t* res, int step, int x, int y) {
    int16_t v;
    std::memcpy(&v, res + static_cast<ptrdiff_t>(step) * y + 2 * x, 2);
    return v;
}

// Buffers for one call: reference (with the extra row and columns), residual
// and output, each with its own step (odd steps allowed) inside canaries.
struct Bufs {
    int w, h, dx;
    int ref_step, res_step, dst_step;
    Guarded ref, ref_b, res, dst;
    Bufs(int w_, int h_, int dx_, int rs, int bs, int ds, size_t mis)
        : w(w_), h(h_), dx(dx_), ref_step(rs), res_step(bs), dst_step(ds),
          ref(static_cast<size_t>(rs) * (h + 1) + w + 2, mis),
          ref_b(static_cast<size_t>(rs) * (h + 1) + w + 2, mis + 1),
          res(static_cast<size_t>(bs) * h, mis), dst(static_cast<size_t>(ds) * h, mis) {}
    void fill(Rng& rng, bool extreme) {
        if (extreme) {
            rng.fill_extreme(ref.data(), ref.size());
            rng.fill_extreme(ref_b.data(), ref_b.size());
        } else {
            rng.fill(ref.data(), ref.size());
            rng.fill(ref_b.data(), ref_b.size());
        }
        // Residual values: full range, small, or pushed to the ends; written
        // bytewise, so odd steps leave the 16-bit cells misaligned.
        const int kind = rng.range(0, 3);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                int16_t v = kind == 0   ? rng.s16()
                            : kind == 1 ? static_cast<int16_t>(rng.range(-300, 300))
                            : kind == 2 ? static_cast<int16_t>(rng.coin() ? 32767 : -32768)
                                        : static_cast<int16_t>(rng.range(-2, 2));
                std::memcpy(res.data() + static_cast<ptrdiff_t>(res_step) * y + 2 * x, &v, 2);
            }
        rng.fill(dst.data(), dst.size());
    }
    const int16_t* res16() { return reinterpret_cast<const int16_t*>(res.data()); }
};

int random_step(Rng& rng, int min) { return min + rng.range(0, 9); }

// ---- Behaviour ----------------------------------------------------------------------

struct PredCase {
    const char* what;
    uint8_t a, b, c, d;
    int mc_type, rc, want;
};

TEST(MC, InterpolationWorkedExamples) {
    const PredCase cases[] = {
        {"HH all ones rc0", 1, 1, 1, 1, 12, 0, 1}, {"HH all ones rc1", 1, 1, 1, 1, 12, 1, 1},
        {"HH 1,1,2,2 rc0", 1, 1, 2, 2, 12, 0, 2},  {"HH 1,1,2,2 rc1", 1, 1, 2, 2, 12, 1, 1},
        {"HF 1,2 rc0", 1, 2, 0, 0, 8, 0, 2},       {"HF 1,2 rc1", 1, 2, 0, 0, 8, 1, 1},
        {"FH 1,.,2 rc0", 1, 0, 2, 0, 4, 0, 2},     {"FH 1,.,2 rc1", 1, 0, 2, 0, 4, 1, 1},
        {"mcType 3 is FF", 7, 200, 200, 200, 3, 0, 7}, {"mcType 5 is FH", 1, 0, 2, 0, 5, 1, 1},
        {"mcType 13 is HH", 1, 1, 2, 2, 13, 0, 2}, {"HH 255s rc0", 255, 255, 255, 255, 12, 0, 255},
        {"HH 1,1,0,0 rc1", 1, 1, 0, 0, 12, 1, 0},  {"HH 1,1,0,0 rc0", 1, 1, 0, 0, 12, 0, 1},
        {"HH 3 ones rc1", 1, 1, 1, 0, 12, 1, 1},
    };
    for (const ShapeInfo& s : kShapes) {
        for (const PredCase& c : cases) {
            SCOPED_TRACE(std::string(s.name) + " " + c.what);
            // Every 2x2 neighbourhood of the reference is a, b / c, d (with the
            // interleaved forms' neighbour two bytes away).
            std::vector<uint8_t> ref(static_cast<size_t>(32 * (s.h + 1)));
            for (int y = 0; y <= s.h; ++y)
                for (int x = 0; x < 32; ++x)
                    ref[32 * y + x] = (y & 1) ? ((x / s.dx) & 1 ? c.d : c.c) : ((x / s.dx) & 1 ? c.b : c.a);
            std::vector<int16_t> res(static_cast<size_t>(16 * s.h), 0);
            std::vector<uint8_t> dst(static_cast<size_t>(16 * s.h), 99);
            ASSERT_EQ(s.single(ref.data(), 32, res.data(), 32, dst.data(), 16, c.mc_type, c.rc), kplStsNoErr);
            EXPECT_EQ(dst[0], c.want);
        }
    }
}

struct ResCase {
    uint8_t ref;
    int16_t res;
    uint8_t want;
};

TEST(MC, ResidualAddedExactlyThenSaturated) {
    const ResCase cases[] = {{0, 300, 255},   {0, -1, 0},       {255, -255, 0},   {255, 1, 255},
                             {200, 32767, 255}, {10, -32768, 0}, {128, -128, 0},  {128, 127, 255},
                             {100, 55, 155},   {255, -32768, 0}, {0, 32767, 255}, {1, 254, 255}};
    for (const ShapeInfo& s : kShapes)
        for (const ResCase& c : cases) {
            std::vector<uint8_t> ref(static_cast<size_t>(32 * (s.h + 1)), c.ref);
            std::vector<int16_t> res(static_cast<size_t>(16 * s.h), c.res);
            std::vector<uint8_t> dst(static_cast<size_t>(16 * s.h), 7);
            for (int t : {0, 12}) {
                ASSERT_EQ(s.single(ref.data(), 32, res.data(), 32, dst.data(), 16, t, 1), kplStsNoErr);
                for (int y = 0; y < s.h; ++y)
                    for (int x = 0; x < s.w; ++x) ASSERT_EQ(dst[16 * y + x], c.want) << s.name << " " << c.res;
                // Two references equal to ref: (2r + 2ref + 1) >> 1 = r + ref.
                ASSERT_EQ(s.bidir(ref.data(), 32, t, ref.data(), 32, t, res.data(), 32, dst.data(), 16, 0),
                          kplStsNoErr);
                for (int y = 0; y < s.h; ++y)
                    for (int x = 0; x < s.w; ++x) ASSERT_EQ(dst[16 * y + x], c.want) << s.name << " B " << c.res;
            }
        }
}

struct BidirCase {
    const char* what;
    uint8_t f, b;
    int16_t r;
    uint8_t want;
};

TEST(MC, BidirAverageRoundsUp) {
    const BidirCase cases[] = {{"1,2 r0", 1, 2, 0, 2},        {"1,2 r-3", 1, 2, -3, 0},
                               {"10,11 r0", 10, 11, 0, 11},   {"254,255 r0", 254, 255, 0, 255},
                               {"0,1 r-1", 0, 1, -1, 0},      {"0,255 r0", 0, 255, 0, 128},
                               {"0,255 r32767", 0, 255, 32767, 255}, {"255,255 r-32768", 255, 255, -32768, 0}};
    for (const ShapeInfo& s : kShapes)
        for (const BidirCase& c : cases)
            for (int rc : {0, 1}) {
                std::vector<uint8_t> rf(static_cast<size_t>(32 * (s.h + 1)), c.f), rb(rf.size(), c.b);
                std::vector<int16_t> res(static_cast<size_t>(16 * s.h), c.r);
                std::vector<uint8_t> dst(static_cast<size_t>(16 * s.h), 7);
                ASSERT_EQ(s.bidir(rf.data(), 32, 0, rb.data(), 32, 0, res.data(), 32, dst.data(), 16, rc), 0);
                EXPECT_EQ(dst[0], c.want) << s.name << " " << c.what;
                EXPECT_EQ(dst[16 * (s.h - 1) + s.w - 1], c.want) << s.name << " " << c.what;
            }
}

TEST(MC, InterleavedChromaUsesNeighbourTwoBytesAway) {
    // Reference row 10, 20, 30, 40, ...: HF at rc 0 gives (10 + 30 + 1) >> 1 = 20
    // at byte 0 and (20 + 40 + 1) >> 1 = 30 at byte 1.
    for (PubFn f : {kpliMC16x8UV_8u_C1, kpliMC16x4_8u_C1}) {
        std::vector<uint8_t> ref(32 * 9);
        for (int y = 0; y < 9; ++y)
            for (int x = 0; x < 18; ++x) ref[32 * y + x] = static_cast<uint8_t>(10 * (x + 1));
        std::vector<int16_t> res(16 * 8, 0);
        std::vector<uint8_t> dst(16 * 8, 0);
        ASSERT_EQ(f(ref.data(), 32, res.data(), 32, dst.data(), 16, KPLVC_MC_APX_HF, 0), 0);
        EXPECT_EQ(dst[0], 20);
        EXPECT_EQ(dst[1], 30);
        EXPECT_EQ(dst[15], 170);  // (160 + 180 + 1) >> 1
    }
}

// The byte-average forms: a = 1, b = c = d = 0 gives a forward HH prediction of
// 1 (the four-sample sum gives 0); FH and HF at rc 1 are the truncating
// averages, so a = 1, c = 0 predicts 0 (a decrement-based construction would
// give 1).
struct ByteCase {
    const char* what;
    uint8_t a, b, c, d;  // forward reference's neighbourhood
    int type_f, rc;
    uint8_t back;  // backward reference, flat, FF
    uint8_t want_bytes, want_exact;
};

TEST(MC, ByteAverageConstruction) {
    const ByteCase cases[] = {
        // pF bytes = 1, exact = 0; pB = 0: (pF + 0 + 1) >> 1.
        {"HH a=1 rc0", 1, 0, 0, 0, 12, 0, 0, 1, 0},
        {"HH a=1 rc1", 1, 0, 0, 0, 12, 1, 0, 0, 0},
        // top = 1, bottom = 2: rc0 avg(1, 1) = 1, rc1 avg(1, 0) = 1; exact (1+1+2+2+2-rc)>>2 = 2 / 1.
        {"HH 1,1,2,2 rc0 back 1", 1, 1, 2, 2, 12, 0, 1, 1, 2},
        {"HH 1,1,2,2 rc1 back 1", 1, 1, 2, 2, 12, 1, 1, 1, 1},
        {"FH a=1 c=0 rc1", 1, 0, 0, 0, 4, 1, 0, 0, 0},
        {"HF a=1 b=0 rc1", 1, 0, 0, 0, 8, 1, 0, 0, 0},
        {"FH a=1 c=0 rc0", 1, 0, 0, 0, 4, 0, 0, 1, 1},
        {"HF 5,6 rc1 back 5", 5, 6, 0, 0, 8, 1, 5, 5, 5},
    };
    for (const ShapeInfo& s : kShapes)
        for (const ByteCase& c : cases) {
            std::vector<uint8_t> rf(static_cast<size_t>(32 * (s.h + 1)));
            for (int y = 0; y <= s.h; ++y)
                for (int x = 0; x < 32; ++x)
                    rf[32 * y + x] = (y & 1) ? ((x / s.dx) & 1 ? c.d : c.c) : ((x / s.dx) & 1 ? c.b : c.a);
            std::vector<uint8_t> rb(rf.size(), c.back);
            std::vector<int16_t> res(static_cast<size_t>(16 * s.h), 0);
            std::vector<uint8_t> dst(static_cast<size_t>(16 * s.h), 7);
            ASSERT_EQ(s.bidir(rf.data(), 32, c.type_f, rb.data(), 32, 0, res.data(), 32, dst.data(), 16, c.rc), 0);
            EXPECT_EQ(dst[0], s.bytes ? c.want_bytes : c.want_exact) << s.name << " " << c.what;
        }
}

TEST(MC, BackwardHalfUsesItsOwnDecrementPlacement) {
    // top = avg(a, b), bottom = avg(c, d). With top = 2, bottom = 0:
    //   forward rc0 avg(2, dec 0) = 1; backward rc0 avg(dec 2, 0) = 1
    // With top = 0, bottom = 2:
    //   forward rc0 avg(0, 1) = 1; backward rc0 avg(0, 2) = 1; rc1 forward
    //   avg(1, 0) = 1, backward avg(0, 1) = 1.
    // With top = 1, bottom = 1: forward rc1 avg(0, 0) = 0; backward rc1 avg(1, 0) = 1.
    for (const ShapeInfo& s : kShapes) {
        if (!s.bytes) continue;
        std::vector<uint8_t> one(static_cast<size_t>(32 * (s.h + 1)), 1), zero(one.size(), 0);
        std::vector<int16_t> res(static_cast<size_t>(16 * s.h), 0);
        std::vector<uint8_t> dst(static_cast<size_t>(16 * s.h), 7);
        // Forward HH on ones (pF = 0 at rc1), backward FF zeros: (0 + 0 + 1) >> 1 = 0.
        ASSERT_EQ(s.bidir(one.data(), 32, 12, zero.data(), 32, 0, res.data(), 32, dst.data(), 16, 1), 0);
        EXPECT_EQ(dst[0], 0) << s.name;
        // Backward HH on ones (pB = 1 at rc1), forward FF ones: (1 + 1 + 1) >> 1 = 1.
        ASSERT_EQ(s.bidir(one.data(), 32, 0, one.data(), 32, 12, res.data(), 32, dst.data(), 16, 1), 0);
        EXPECT_EQ(dst[0], 1) << s.name;
        // Forward HH ones rc1 (0) with backward HH ones rc1 (1): (0 + 1 + 1) >> 1 = 1.
        ASSERT_EQ(s.bidir(one.data(), 32, 12, one.data(), 32, 12, res.data(), 32, dst.data(), 16, 1), 0);
        EXPECT_EQ(dst[0], 1) << s.name;
        // rc0: forward avg(1, dec 1) = 1, backward avg(dec 1, 1) = 1 -> 1.
        ASSERT_EQ(s.bidir(one.data(), 32, 12, one.data(), 32, 12, res.data(), 32, dst.data(), 16, 0), 0);
        EXPECT_EQ(dst[0], 1) << s.name;
        // Residual -1 with both predictions 1 at rc1 forward (0) and backward
        // (1): (-2 + 0 + 1 + 1) >> 1 = 0.
        std::vector<int16_t> m1(res.size(), -1);
        ASSERT_EQ(s.bidir(one.data(), 32, 12, one.data(), 32, 12, m1.data(), 32, dst.data(), 16, 1), 0);
        EXPECT_EQ(dst[0], 0) << s.name;
    }
}

// Every shape and every mcType (pairs for two references) through the public
// functions against the per-sample model: checks the table index, the
// forward/backward order of the pair index and each kernel's geometry.
TEST(MC, PublicFunctionsMatchModel) {
    Rng rng(20240601);
    SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
    for (const ShapeInfo& s : kShapes) {
        for (int rc : {0, 1}) {
            for (int tf = 0; tf < 16; ++tf) {
                for (int tb = 0; tb < 16; ++tb) {
                    Bufs bf(s.w, s.h, s.dx, random_step(rng, s.w + 2), 2 * s.w + rng.range(0, 5),
                            random_step(rng, s.w), static_cast<size_t>(rng.range(0, 15)));
                    bf.fill(rng, rng.coin());
                    std::vector<uint8_t> want(bf.dst.size());
                    std::memcpy(want.data(), bf.dst.data(), want.size());
                    for (int y = 0; y < s.h; ++y)
                        for (int x = 0; x < s.w; ++x) {
                            int p;
                            const int r = res_at(bf.res.data(), bf.res_step, x, y);
                            if (tb == 0) {
                                p = model_pred(bf.ref.data(), bf.ref_step, x, y, tf, rc, s.dx);
                                want[static_cast<size_t>(bf.dst_step * y + x)] = static_cast<uint8_t>(clip(p + r));
                            }
                        }
                    if (tb == 0) {
                        ASSERT_EQ(s.single(bf.ref.data(), bf.ref_step, bf.res16(), bf.res_step, bf.dst.data(),
                                           bf.dst_step, tf, rc),
                                  kplStsNoErr);
                        ASSERT_EQ(std::memcmp(want.data(), bf.dst.data(), want.size()), 0)
                            << s.name << " mcType " << tf << " rc " << rc;
                        ASSERT_TRUE(bf.dst.intact());
                    }
                    for (int y = 0; y < s.h; ++y)
                        for (int x = 0; x < s.w; ++x) {
                            const int r = res_at(bf.res.data(), bf.res_step, x, y);
                            int pf, pb;
                            if (s.bytes) {
                                pf = model_byte_pred(bf.ref.data(), bf.ref_step, x, y, tf, rc, true);
                                pb = model_byte_pred(bf.ref_b.data(), bf.ref_step, x, y, tb, rc, false);
                            } else {
                                pf = model_pred(bf.ref.data(), bf.ref_step, x, y, tf, rc, s.dx);
                                pb = model_pred(bf.ref_b.data(), bf.ref_step, x, y, tb, rc, s.dx);
                            }
                            const int v = 2 * r + pf + pb + 1;
                            want[static_cast<size_t>(bf.dst_step * y + x)] =
                                static_cast<uint8_t>(clip(v >= 0 ? v / 2 : -((-v + 1) / 2)));
                        }
                    ASSERT_EQ(s.bidir(bf.ref.data(), bf.ref_step, tf, bf.ref_b.data(), bf.ref_step, tb, bf.res16(),
                                      bf.res_step, bf.dst.data(), bf.dst_step, rc),
                              kplStsNoErr);
                    ASSERT_EQ(std::memcmp(want.data(), bf.dst.data(), want.size()), 0)
                        << s.name << " B mcTypeF " << tf << " mcTypeB " << tb << " rc " << rc;
                    ASSERT_TRUE(bf.dst.intact());
                }
            }
        }
    }
}

// roundControl outside 0..1 is not checked; any non-zero value acts as 1
// (and must not overflow 1 - rc or 2 - rc).
TEST(MC, NonZeroRoundControlActsAsOne) {
    Rng rng(4242);
    for (const ShapeInfo& s : kShapes)
        for (int rc : {2, 7, -1, INT32_MIN, INT32_MAX}) {
            Bufs bf(s.w, s.h, s.dx, s.w + 4, 2 * s.w, s.w, 0);
            bf.fill(rng, false);
            std::vector<uint8_t> one(bf.dst.size()), other(bf.dst.size());
            for (int t : {12, 8, 4}) {
                s.single(bf.ref.data(), bf.ref_step, bf.res16(), bf.res_step, one.data(), bf.dst_step, t, 1);
                s.single(bf.ref.data(), bf.ref_step, bf.res16(), bf.res_step, other.data(), bf.dst_step, t, rc);
                ASSERT_EQ(one, other) << s.name << " rc " << rc;
                s.bidir(bf.ref.data(), bf.ref_step, t, bf.ref_b.data(), bf.ref_step, 12, bf.res16(), bf.res_step,
                        one.data(), bf.dst_step, 1);
                s.bidir(bf.ref.data(), bf.ref_step, t, bf.ref_b.data(), bf.ref_step, 12, bf.res16(), bf.res_step,
                        other.data(), bf.dst_step, rc);
                ASSERT_EQ(one, other) << s.name << " B rc " << rc;
            }
        }
}

// ---- Argument checks ------------------------------------------------------------------

TEST(MCArgs, NullPointersFailFirstAndWriteNothing) {
    std::vector<uint8_t> ref(64 * 20, 3);
    std::vector<int16_t> res(16 * 16, 5);
    for (const ShapeInfo& s : kShapes) {
        Guarded dst(16 * 16);
        std::memset(dst.data(), 0x5C, dst.size());
        auto untouched = [&] {
            for (size_t i = 0; i < dst.size(); ++i)
                if (dst.data()[i] != 0x5C) return false;
            return dst.intact();
        };
        struct {
            const Kpl8u* ref;
            const Kpl16s* res;
            Kpl8u* dst;
        } single_cases[] = {{nullptr, res.data(), dst.data()},
                            {ref.data(), nullptr, dst.data()},
                            {ref.data(), res.data(), nullptr},
                            {nullptr, nullptr, nullptr}};
        for (auto& c : single_cases) {
            // Steps and mode values are not checked, so a bad step beside a
            // null pointer still gives -8.
            EXPECT_EQ(s.single(c.ref, -5, c.res, 0, c.dst, 0, 99, 7), kplStsNullPtrErr) << s.name;
            EXPECT_TRUE(untouched()) << s.name;
        }
        struct {
            const Kpl8u *f, *b;
            const Kpl16s* res;
            Kpl8u* dst;
        } bidir_cases[] = {{nullptr, ref.data(), res.data(), dst.data()},
                           {ref.data(), nullptr, res.data(), dst.data()},
                           {ref.data(), ref.data(), nullptr, dst.data()},
                           {ref.data(), ref.data(), res.data(), nullptr}};
        for (auto& c : bidir_cases) {
            EXPECT_EQ(s.bidir(c.f, 0, 12, c.b, 0, 12, c.res, 0, c.dst, 0, 1), kplStsNullPtrErr) << s.name;
            EXPECT_TRUE(untouched()) << s.name;
        }
        // Wild steps, mcType and roundControl are accepted (the block is computed).
        EXPECT_EQ(s.single(ref.data(), 64, res.data(), 32, dst.data(), 16, -1, 0), kplStsNoErr);
        EXPECT_TRUE(dst.intact());
    }
}

// ---- SIMD variants against the scalar reference -------------------------------------

// The levels at which get(table) changes, each with the entry at that level.
template <class Fn, class Get>
std::vector<std::pair<kplvc::cpu::Isa, Fn>> changed(Get get) {
    std::vector<std::pair<kplvc::cpu::Isa, Fn>> out;
    Fn prev = get(kplvc::mc::mc_kernels_for(kplvc::cpu::Isa::c));
    for (kplvc::cpu::Isa isa : kplvc::test::simd_levels()) {
        const Fn f = get(kplvc::mc::mc_kernels_for(isa));
        if (f != prev) out.emplace_back(isa, f);
        prev = f;
    }
    return out;
}

TEST(MCVariants, SingleMatchesReference) {
    Rng rng(77001);
    SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
    const McKernels c = kplvc::mc::mc_kernels_for(kplvc::cpu::Isa::c);
    int tested = 0;
    for (const ShapeInfo& s : kShapes)
        for (int pos = 0; pos < 4; ++pos)
            for (auto [isa, fn] : changed<McFn>([&](const McKernels& k) { return k.single[s.shape][pos]; })) {
                ++tested;
                for (int iter = 0; iter < 60; ++iter) {
                    const int rc = iter & 1;
                    Bufs a(s.w, s.h, s.dx, random_step(rng, s.w + 2), 2 * s.w + rng.range(0, 5),
                           random_step(rng, s.w), static_cast<size_t>(rng.range(0, 31)));
                    a.fill(rng, iter % 3 == 0);
                    std::vector<uint8_t> ref_copy(a.ref.data(), a.ref.data() + a.ref.size());
                    std::vector<uint8_t> want(a.dst.data(), a.dst.data() + a.dst.size());
                    // Reference result into a copy of the output buffer.
                    c.single[s.shape][pos](a.ref.data(), a.ref_step, a.res16(), a.res_step, want.data(),
                                           a.dst_step, rc);
                    fn(a.ref.data(), a.ref_step, a.res16(), a.res_step, a.dst.data(), a.dst_step, rc);
                    ASSERT_EQ(std::memcmp(want.data(), a.dst.data(), want.size()), 0)
                        << kplvc::cpu::isa_name(isa) << " " << s.name << " pos " << pos << " rc " << rc;
                    ASSERT_TRUE(a.dst.intact() && a.ref.intact());
                    ASSERT_EQ(std::memcmp(ref_copy.data(), a.ref.data(), ref_copy.size()), 0);
                }
            }
    if (!kplvc::test::simd_levels().empty()) {
        EXPECT_GT(tested, 0);
    }
}

TEST(MCVariants, BidirMatchesReference) {
    Rng rng(77002);
    SCOPED_TRACE(kplvc::test::seed_trace(rng.seed()));
    const McKernels c = kplvc::mc::mc_kernels_for(kplvc::cpu::Isa::c);
    for (const ShapeInfo& s : kShapes)
        for (int idx = 0; idx < 16; ++idx)
            for (auto [isa, fn] : changed<McBFn>([&](const McKernels& k) { return k.bidir[s.shape][idx]; })) {
                for (int iter = 0; iter < 24; ++iter) {
                    const int rc = iter & 1;
                    Bufs a(s.w, s.h, s.dx, random_step(rng, s.w + 2), 2 * s.w + rng.range(0, 5),
                           random_step(rng, s.w), static_cast<size_t>(rng.range(0, 31)));
                    a.fill(rng, iter % 3 == 0);
                    std::vector<uint8_t> want(a.dst.data(), a.dst.data() + a.dst.size());
                    const int step_b = a.ref_step;
                    c.bidir[s.shape][idx](a.ref.data(), a.ref_step, a.ref_b.data(), step_b, a.res16(), a.res_step,
                                          want.data(), a.dst_step, rc);
                    fn(a.ref.data(), a.ref_step, a.ref_b.data(), step_b, a.res16(), a.res_step, a.dst.data(),
                       a.dst_step, rc);
                    ASSERT_EQ(std::memcmp(want.data(), a.dst.data(), want.size()), 0)
                        << kplvc::cpu::isa_name(isa) << " " << s.name << " pair " << idx << " rc " << rc;
                    ASSERT_TRUE(a.dst.intact() && a.ref.intact() && a.ref_b.intact());
                }
            }
}

// Every kernel (every level) reads nothing beyond the reference area the
// position needs: the last needed byte sits just before an unmapped page.
TEST(MCVariants, ReadsOnlyTheNeededReferenceArea) {
    Rng rng(77003);
    const McKernels c = kplvc::mc::mc_kernels_for(kplvc::cpu::Isa::c);
    std::vector<kplvc::cpu::Isa> levels{kplvc::cpu::Isa::c};
    for (auto l : kplvc::test::simd_levels()) levels.push_back(l);
    for (kplvc::cpu::Isa isa : levels) {
        const McKernels k = kplvc::mc::mc_kernels_for(isa);
        for (const ShapeInfo& s : kShapes)
            for (int pf = 0; pf < 4; ++pf)
                for (int pb = 0; pb < 4; ++pb) {
                    const int step = s.w + 2 * s.dx + 3;
                    auto area = [&](int pos) {
                        const bool hor = pos == 2 || pos == 3, ver = pos == 1 || pos == 3;
                        return static_cast<size_t>(step * (s.h - 1 + (ver ? 1 : 0)) + s.w + (hor ? s.dx : 0));
                    };
                    GuardPages gf(area(pf)), gb(area(pb));
                    rng.fill(gf.flush_end(), gf.size());
                    rng.fill(gb.flush_end(), gb.size());
                    std::vector<int16_t> res(static_cast<size_t>(16 * s.h), 1);
                    std::vector<uint8_t> dst(static_cast<size_t>(16 * s.h)), want(dst.size());
                    if (pb == 0) {
                        k.single[s.shape][pf](gf.flush_end(), step, res.data(), 32, dst.data(), 16, 1);
                        c.single[s.shape][pf](gf.flush_end(), step, res.data(), 32, want.data(), 16, 1);
                        ASSERT_EQ(dst, want) << kplvc::cpu::isa_name(isa) << " " << s.name;
                    }
                    k.bidir[s.shape][pf | (pb << 2)](gf.flush_end(), step, gb.flush_end(), step, res.data(), 32,
                                                     dst.data(), 16, 0);
                    c.bidir[s.shape][pf | (pb << 2)](gf.flush_end(), step, gb.flush_end(), step, res.data(), 32,
                                                     want.data(), 16, 0);
                    ASSERT_EQ(dst, want) << kplvc::cpu::isa_name(isa) << " " << s.name << " B";
                }
    }
}

}  // namespace
