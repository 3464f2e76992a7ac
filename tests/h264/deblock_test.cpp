#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "h264/deblock.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/code_lists.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::h264::DeblockFn;
using kplvc::h264::DeblockKernels;
using kplvc::test::Arena;
using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

// alpha', beta' and tC0' (bS 1..3) by index, read from the shared table file;
// a file without exactly 52 rows fails the test instead of being indexed past
// its end.
struct Row {
    int alpha, beta, tc0[3];
};
const Row& table(int index) {
    static const std::vector<Row> rows = [] {
        std::vector<Row> out;
        for (const auto& f : kplvc::codelists::read_rows("h264_deblock_tables.txt"))
            out.push_back(
                {std::stoi(f[1]), std::stoi(f[2]), {std::stoi(f[3]), std::stoi(f[4]), std::stoi(f[5])}});
        return out;
    }();
    static const Row none{};
    if (rows.size() != 52) {
        ADD_FAILURE() << "h264_deblock_tables.txt holds " << rows.size() << " rows, not 52";
        return none;
    }
    return rows[static_cast<size_t>(index)];
}

using Api = KplStatus (*)(Kpl8u*, Kpl32s, const Kpl8u*, const Kpl8u*, const Kpl8u*, const Kpl8u*);

// A 48x48 frame with the block at (16, 16).
struct Frame {
    static constexpr int32_t kStep = 48;
    Guarded g{48 * 48};
    Kpl8u* blk() { return g.data() + 16 * kStep + 16; }
    Kpl8u& at(int x, int y) { return blk()[y * kStep + x]; }
    std::vector<uint8_t> snap() const { return {g.data(), g.data() + g.size()}; }
};

// Smooth content with small steps every 4 samples: the edges pass the
// activity test for the thresholds of the QP at hand.
// Near the ends of the range a quarter of the time (clamping), and steps up
// to 3/4 alpha (some edges fail the alpha test); with `mid`, a mid-range base
// and steps below alpha/3, so that every edge passes.
void smooth(Rng& rng, uint8_t* p, int32_t step, int w, int h, int alpha, int beta, bool vertical_steps,
            bool mid = false) {
    const int base = !mid && rng.range(0, 3) == 0 ? (rng.coin() ? 4 : 251) : rng.range(30, 220);
    std::vector<int> off(static_cast<size_t>((vertical_steps ? w : h) / 4 + 1));
    const int spread = mid ? alpha / 3 : (alpha * 3) / 4;
    for (auto& o : off) o = rng.range(-spread, spread);
    const int noise = beta > 2 ? beta / 2 : 1;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int blk = (vertical_steps ? x : y) / 4;
            const int v = base + off[static_cast<size_t>(blk)] + rng.range(0, noise - 1);
            p[y * step + x] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
        }
}

}  // namespace

// ---- Behaviour ------------------------------------------------------------------

// One line across luma edge 0, every row the same: p3..p0 = 100, q0..q3 = 108.
TEST(Deblock, HandComputedLine) {
    struct Case {
        const char* what;
        int bs0, alpha;
        int want[6];  // p2 p1 p0 q0 q1 q2
    };
    const Case cases[] = {
        {"normal", 2, 20, {100, 101, 103, 105, 107, 108}},       // tc = 3, delta 4 -> 3
        {"strong, far", 4, 20, {100, 100, 102, 106, 108, 108}},  // 8 >= (20 >> 2) + 2
        {"strong, near", 4, 40, {101, 102, 103, 105, 106, 107}},
    };
    for (const auto& c : cases) {
        Frame f;
        for (int y = 0; y < 16; ++y)
            for (int x = -4; x < 16; ++x) f.at(x, y) = x < 0 ? 100 : 108;
        const Kpl8u alpha[2] = {static_cast<Kpl8u>(c.alpha), 0}, beta[2] = {10, 0};
        Kpl8u tc0[16] = {}, bs[16] = {};
        for (int k = 0; k < 4; ++k) {
            bs[k] = static_cast<Kpl8u>(c.bs0);
            tc0[k] = 1;
        }
        ASSERT_EQ(kpliFilterDeblockingLuma_VerEdge_H264_8u_C1IR(f.blk(), Frame::kStep, alpha, beta, tc0, bs),
                  kplStsNoErr);
        for (int y = 0; y < 16; ++y)
            for (int i = 0; i < 6; ++i)
                ASSERT_EQ(f.at(i - 3, y), c.want[i]) << c.what << " y " << y << " i " << i;
        EXPECT_EQ(f.at(-4, 0), 100);
        EXPECT_EQ(f.at(3, 0), 108);
    }
}

namespace {

// A fresh smooth frame, filtered by `api` with the given strengths unless
// `api` is null.
std::vector<uint8_t> run_on(Api api, bool vertical, const Kpl8u* bs, uint64_t seed) {
    Rng rng(seed);
    const Row& r = table(40);
    Frame f;
    smooth(rng, f.g.data(), Frame::kStep, 48, 48, r.alpha, r.beta, vertical, true);
    const Kpl8u alpha[2] = {static_cast<Kpl8u>(r.alpha), static_cast<Kpl8u>(r.alpha)};
    const Kpl8u beta[2] = {static_cast<Kpl8u>(r.beta), static_cast<Kpl8u>(r.beta)};
    Kpl8u tc0[16];
    for (int i = 0; i < 16; ++i) tc0[i] = static_cast<Kpl8u>(r.tc0[i % 3]);
    if (api) {
        EXPECT_EQ(api(f.blk(), Frame::kStep, alpha, beta, tc0, bs), kplStsNoErr);
    }
    return f.snap();
}

// Each edge direction through its public function and its kernel table entry.
struct ApiCase {
    const char* name;
    Api api;
    DeblockFn DeblockKernels::*m;
    bool chroma, vertical;
};
const ApiCase kApis[] = {
    {"luma ver", kpliFilterDeblockingLuma_VerEdge_H264_8u_C1IR, &DeblockKernels::luma_ver, false, true},
    {"luma hor", kpliFilterDeblockingLuma_HorEdge_H264_8u_C1IR, &DeblockKernels::luma_hor, false, false},
    {"chroma ver", kpliFilterDeblockingChroma_VerEdge_H264_8u_C1IR, &DeblockKernels::chroma_ver, true, true},
    {"chroma hor", kpliFilterDeblockingChroma_HorEdge_H264_8u_C1IR, &DeblockKernels::chroma_hor, true, false},
};

}  // namespace

TEST(Deblock, StrengthRules) {
    // Pairs of strength arrays that must give the same frame, and pairs that
    // must not, on the same smooth input.
    struct Case {
        const char* what;
        Kpl8u a[16], b[16];
        bool same;
    };
    const Case cases[] = {
        {"strengths[0] = 4 makes all of edge 0 strong", {4, 2, 2, 2}, {4, 4, 4, 4}, true},
        {"a 4 elsewhere on edge 0 is a normal filter", {2, 4, 2, 2}, {2, 2, 2, 2}, true},
        {"strong differs from normal", {4, 4, 4, 4}, {2, 4, 4, 4}, false},
        {"internal 4 is normal",
         {0, 0, 0, 0, 4, 4, 4, 4, 1, 1, 1, 1, 3, 3, 3, 3},
         {0, 0, 0, 0, 3, 3, 3, 3, 1, 1, 1, 1, 3, 3, 3, 3},
         true},
    };
    for (const auto& api : kApis) {
        if (api.chroma) continue;
        for (const auto& c : cases) {
            const auto fa = run_on(api.api, api.vertical, c.a, 5);
            const auto fb = run_on(api.api, api.vertical, c.b, 5);
            EXPECT_EQ(fa == fb, c.same) << api.name << ": " << c.what;
            EXPECT_NE(fa, run_on(nullptr, api.vertical, nullptr, 5)) << api.name << ": " << c.what;
        }
    }
}

TEST(Deblock, ZeroStrengthLinesUntouched) {
    for (const auto& api : kApis) {
        const int lines = api.chroma ? 2 : 4;  // lines per strength entry
        struct Case {
            Kpl8u bs[16];
        };
        const Case cases[] = {
            {{0}},
            {{4, 0, 4, 4}},  // strong edge 0, segment 1 off
            {{2, 0, 3, 1, 0, 0, 0, 0, 1, 0, 2, 2, 0, 0, 0, 0}},
            {{0, 0, 0, 0, 2, 2, 2, 2, 0, 0, 0, 0, 0, 0, 0, 0}},  // chroma ignores luma edge 1
        };
        for (const auto& c : cases) {
            const auto before = run_on(nullptr, api.vertical, nullptr, 9);
            const auto after = run_on(api.api, api.vertical, c.bs, 9);
            const int edges = api.chroma ? 2 : 4;
            for (int e = 0; e < edges; ++e) {
                for (int k = 0; k < 4; ++k) {
                    const int s = c.bs[(api.chroma ? 8 : 4) * e + k];
                    if (s != 0) continue;
                    // The samples next to the edge (and left of edge 0, which
                    // no other edge reaches) are as before.
                    for (int j = k * lines; j < (k + 1) * lines; ++j)
                        for (int d = e == 0 ? -3 : -1; d <= 0; ++d) {
                            const int across = 4 * e + d;
                            const int x = api.vertical ? across : j, y = api.vertical ? j : across;
                            const size_t idx = static_cast<size_t>((16 + y) * Frame::kStep + 16 + x);
                            ASSERT_EQ(after[idx], before[idx]) << api.name << " edge " << e << " seg " << k;
                        }
                }
            }
            bool chroma_off = true;
            for (int i : {0, 1, 2, 3, 8, 9, 10, 11}) chroma_off = chroma_off && c.bs[i] == 0;
            if (api.chroma && chroma_off) {
                EXPECT_EQ(after, before) << api.name;
            }
        }
    }
}

TEST(Deblock, NullPointersRejectedBeforeAnything) {
    kplvc::test::ArgPool p;
    Kpl8u* blk = p.take<Kpl8u>(48 * 48) + 16 * 48 + 16;
    const Kpl8u *a = p.take<Kpl8u>({40, 40}), *b = p.take<Kpl8u>({10, 10}), *t = p.take<Kpl8u>(16);
    const Kpl8u* four = p.take<Kpl8u>({4, 4, 4, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    const Kpl8u* zero = p.take<Kpl8u>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    for (const auto& api : kApis)
        CHECK_ARGS(p, api.api, {blk, 48, a, b, t, four},
                   {null(0), null(2), null(3), null(4), null(5), passes(5, zero), passes(1, 0)});
}

TEST(Deblock, ZeroStrengthEdgeZeroReadsNothingOutside) {
    // Block flush against unmapped pages above and to the left: edge 0 off
    // means no access left of or above the block.
    kplvc::test::GuardPages gp(16 * 16);
    const Kpl8u a[2] = {40, 40}, b[2] = {10, 10}, t[16] = {};
    const Kpl8u bs[16] = {0, 0, 0, 0, 2, 2, 2, 2, 3, 3, 3, 3, 1, 1, 1, 1};
    std::memset(gp.flush_start(), 90, 256);
    for (const auto& api : kApis)
        EXPECT_EQ(api.api(gp.flush_start(), 16, a, b, t, bs), kplStsNoErr) << api.name;
}

// ---- Variants against the reference -----------------------------------------------

namespace {

// The parameters and frame of one call: half the time thresholds of a QP
// with a smooth frame on which the filters fire, else any bytes as
// thresholds (the byte-lane kernels cap tc0 internally and treat a zero alpha
// or beta as "never"; strengths above 4 get the normal filter, as in the
// reference).
struct Filtering {
    uint8_t params[36];  // alpha[2], beta[2], tc0[16], bs[16]
    int32_t step;
    std::vector<uint8_t> frame;
};

Filtering filtering(Rng& rng, int i, bool vertical) {
    static const int kQps[] = {18, 24, 30, 36, 42, 51};
    Filtering s;
    uint8_t *alpha = s.params, *beta = s.params + 2, *tc0 = s.params + 4, *bs = s.params + 20;
    if (i % 2 == 0) {
        const Row &ra = table(kQps[rng.range(0, 5)]), &rb = table(kQps[rng.range(0, 5)]);
        alpha[0] = static_cast<uint8_t>(ra.alpha), alpha[1] = static_cast<uint8_t>(rb.alpha);
        beta[0] = static_cast<uint8_t>(ra.beta), beta[1] = static_cast<uint8_t>(rb.beta);
        const int pattern = rng.range(0, 3);
        for (int k = 0; k < 16; ++k) {
            bs[k] = static_cast<uint8_t>(pattern == 0 ? rng.range(0, 4) : pattern == 1 ? 2 : rng.range(0, 3));
            const Row& r = k < 4 ? ra : rb;
            tc0[k] = static_cast<uint8_t>(bs[k] == 0 || bs[k] == 4 ? r.tc0[2] : r.tc0[bs[k] - 1]);
        }
        if (rng.range(0, 5) == 0) std::memset(bs, 0, 4);  // edge 0 off
    } else {
        // large tc0, tc0 at the cap, zero thresholds, anything
        static const int kRegimes[4][7] = {{20, 120, 4, 40, 150, 255, 4},
                                           {60, 255, 10, 255, 158, 163, 4},
                                           {0, 1, 0, 2, 0, 30, 4},
                                           {0, 255, 0, 255, 0, 255, 255}};
        const int* rg = kRegimes[i / 2 % 4];
        for (int k = 0; k < 2; ++k) {
            alpha[k] = static_cast<uint8_t>(rng.range(rg[0], rg[1]));
            beta[k] = static_cast<uint8_t>(rng.range(rg[2], rg[3]));
        }
        for (int k = 0; k < 16; ++k) {
            tc0[k] = static_cast<uint8_t>(rng.range(rg[4], rg[5]));
            bs[k] = static_cast<uint8_t>(rng.range(0, 4) == 0 ? 0 : rng.range(1, rg[6]));
        }
    }
    if (rng.range(0, 2) == 0) bs[0] = 4;
    s.step = rng.range(24, 64) | (rng.coin() ? 1 : 0);
    s.frame.resize(static_cast<size_t>(s.step) * 28);
    if (rng.range(0, 9) == 0)
        rng.fill_extreme(s.frame.data(), s.frame.size());
    else
        smooth(rng, s.frame.data(), s.step, s.step, 28, alpha[rng.range(0, 1)] | 1, beta[rng.range(0, 1)] | 1,
               vertical);
    return s;
}

}  // namespace

TEST(DeblockVariants, MatchReference) {
    for (const auto& en : kApis)
        kplvc::test::check_variants(kplvc::h264::deblock_kernels_for, en.m,
                                    std::string("h264 deblock ") + en.name, 3000,
                                    [&en](Arena& a, Rng& rng, int i) {
                                        Filtering s = filtering(rng, i, en.vertical);
                                        auto par = a.in<uint8_t>(36, 1);
                                        auto frame = a.out<uint8_t>(s.frame.size(), 1);
                                        std::memcpy(a[par], s.params, 36);
                                        std::memcpy(a[frame], s.frame.data(), s.frame.size());
                                        const int32_t step = s.step;
                                        return [=](auto f, Arena& x) {
                                            const uint8_t* q = x[par];
                                            f(x[frame] + 6 * step + 6, step, q, q + 2, q + 4, q + 20);
                                        };
                                    });
}

// The frames of the QP half make the reference filters change most frames,
// or the comparison above would prove little.
TEST(DeblockVariants, FiltersFireOnTheTestFrames) {
    const DeblockKernels c = kplvc::h264::deblock_kernels_for(kplvc::cpu::Isa::c);
    for (const auto& en : kApis) {
        Rng rng("deblock frames");
        int changed = 0;
        for (int i = 0; i < 400; i += 2) {
            Filtering s = filtering(rng, i, en.vertical);
            const std::vector<uint8_t> before = s.frame;
            const uint8_t* q = s.params;
            (c.*en.m)(s.frame.data() + 6 * s.step + 6, s.step, q, q + 2, q + 4, q + 20);
            changed += s.frame != before;
        }
        EXPECT_GT(changed, 100) << en.name;
    }
}
