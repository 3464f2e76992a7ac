#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "h264/deblock.h"
#include "kplvc.h"
#include "support/support.h"

using kplvc::h264::DeblockFn;
using kplvc::h264::DeblockKernels;
using kplvc::test::Guarded;
using kplvc::test::Rng;
using kplvc::test::variants;

namespace {

// alpha', beta' and tC0' (bS 1..3) by index, read from the shared table file.
struct Row {
    int alpha, beta, tc0[3];
};
const std::vector<Row>& table() {
    static const std::vector<Row> rows = [] {
        std::vector<Row> out;
        std::ifstream in(KPLVC_TEST_DATA_DIR "/h264_deblock_tables.txt");
        std::string line;
        while (std::getline(in, line)) {
            if (line.empty() || line[0] == '#') continue;
            std::istringstream s(line);
            int idx;
            Row r;
            s >> idx >> r.alpha >> r.beta >> r.tc0[0] >> r.tc0[1] >> r.tc0[2];
            out.push_back(r);
        }
        return out;
    }();
    return rows;
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
    const Row& r = table()[40];
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
    Frame f;
    for (size_t i = 0; i < f.g.size(); ++i) f.g.data()[i] = static_cast<uint8_t>(100 + (i % 3));
    const auto before = f.snap();
    const Kpl8u a[2] = {40, 40}, b[2] = {10, 10}, t[16] = {1}, zero[16] = {}, four[16] = {4, 4, 4, 4};
    for (const auto& api : kApis) {
        Kpl8u* p = f.blk();
        EXPECT_EQ(api.api(nullptr, 0, a, b, t, four), kplStsNullPtrErr) << api.name;
        EXPECT_EQ(api.api(p, 48, nullptr, b, t, four), kplStsNullPtrErr) << api.name;
        EXPECT_EQ(api.api(p, 48, a, nullptr, t, four), kplStsNullPtrErr) << api.name;
        EXPECT_EQ(api.api(p, 48, a, b, nullptr, zero), kplStsNullPtrErr) << api.name;
        EXPECT_EQ(api.api(p, 48, a, b, nullptr, four), kplStsNullPtrErr) << api.name;
        EXPECT_EQ(api.api(p, 48, a, b, t, nullptr), kplStsNullPtrErr) << api.name;
        EXPECT_EQ(api.api(p, 48, a, b, t, zero), kplStsNoErr) << api.name;
    }
    EXPECT_EQ(f.snap(), before);
    EXPECT_TRUE(f.g.intact());
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

TEST(DeblockVariants, MatchReferenceOnFramesWhereFiltersFire) {
    ASSERT_EQ(table().size(), 52u);
    const DeblockKernels c = kplvc::h264::deblock_kernels_for(kplvc::cpu::Isa::c);
    const int qps[] = {18, 24, 30, 36, 42, 51};
    for (const auto& en : kApis) {
        for (auto [isa, fn] : variants(kplvc::h264::deblock_kernels_for, en.m)) {
            SCOPED_TRACE(std::string(en.name) + " " + kplvc::cpu::isa_name(isa));
            Rng rng(2024);
            int changed = 0, iters = 0;
            for (int iter = 0; iter < 1500; ++iter, ++iters) {
                const int qa = qps[rng.range(0, 5)], qb = qps[rng.range(0, 5)];
                const Row& ra = table()[static_cast<size_t>(qa)];
                const Row& rb = table()[static_cast<size_t>(qb)];
                const Kpl8u alpha[2] = {static_cast<Kpl8u>(ra.alpha), static_cast<Kpl8u>(rb.alpha)};
                const Kpl8u beta[2] = {static_cast<Kpl8u>(ra.beta), static_cast<Kpl8u>(rb.beta)};
                Kpl8u bs[16], tc0[16];
                const int pattern = rng.range(0, 3);
                for (int i = 0; i < 16; ++i) {
                    bs[i] = static_cast<Kpl8u>(pattern == 0   ? rng.range(0, 4)
                                               : pattern == 1 ? 2
                                                              : rng.range(0, 3));
                    const Row& r = i < 4 ? ra : rb;
                    tc0[i] = static_cast<Kpl8u>(bs[i] == 0 || bs[i] == 4 ? r.tc0[2] : r.tc0[bs[i] - 1]);
                }
                if (rng.range(0, 2) == 0) bs[0] = 4;
                if (rng.range(0, 5) == 0) std::memset(bs, 0, 4);  // edge 0 off
                const int32_t step = rng.range(24, 64) | (rng.coin() ? 1 : 0);
                const size_t n = static_cast<size_t>(step) * 28, mis = static_cast<size_t>(rng.range(0, 15));
                Guarded a(n, mis), b(n, mis);
                if (rng.range(0, 9) == 0)
                    rng.fill_extreme(a.data(), n);
                else
                    smooth(rng, a.data(), step, step, 28, alpha[rng.range(0, 1)], beta[rng.range(0, 1)],
                           en.vertical);
                std::memcpy(b.data(), a.data(), n);
                const std::vector<uint8_t> input(a.data(), a.data() + n);
                uint8_t* pa = a.data() + 6 * step + 6;
                uint8_t* pb = b.data() + 6 * step + 6;
                (c.*en.m)(pa, step, alpha, beta, tc0, bs);
                fn(pb, step, alpha, beta, tc0, bs);
                ASSERT_EQ(std::memcmp(a.data(), b.data(), n), 0) << "iter " << iter << " step " << step;
                ASSERT_TRUE(a.intact() && b.intact());
                // Count the frames the filters really changed.
                changed += std::memcmp(a.data(), input.data(), n) != 0 ? 1 : 0;
            }
            // The smooth frames must make the filters fire most of the time,
            // or this comparison would prove little.
            EXPECT_GT(changed * 2, iters) << changed << " of " << iters;
        }
    }
}

// Callers may pass any bytes as thresholds: the byte-lane kernels cap tc0
// internally and treat a zero alpha or beta as "never", which must not differ
// from the reference anywhere in the parameter range.
TEST(DeblockVariants, MatchReferenceWithAnyParameters) {
    struct Regime {
        const char* what;
        int alpha_lo, alpha_hi, beta_lo, beta_hi, tc_lo, tc_hi, bs_hi;
    };
    // Strengths above 4 are not meaningful, but the reference gives them the
    // normal filter, and so must every kernel.
    const Regime regimes[] = {
        {"large tc0", 20, 120, 4, 40, 150, 255, 4},
        {"tc0 at the cap", 60, 255, 10, 255, 158, 163, 4},
        {"zero thresholds", 0, 1, 0, 2, 0, 30, 4},
        {"anything", 0, 255, 0, 255, 0, 255, 255},
    };
    const DeblockKernels c = kplvc::h264::deblock_kernels_for(kplvc::cpu::Isa::c);
    for (const auto& en : kApis)
        for (auto [isa, fn] : variants(kplvc::h264::deblock_kernels_for, en.m))
            for (const auto& rg : regimes) {
                SCOPED_TRACE(std::string(en.name) + " " + kplvc::cpu::isa_name(isa) + " " + rg.what);
                Rng rng(99);
                for (int iter = 0; iter < 400; ++iter) {
                    Kpl8u alpha[2], beta[2], tc0[16], bs[16];
                    for (int i = 0; i < 2; ++i) {
                        alpha[i] = static_cast<Kpl8u>(rng.range(rg.alpha_lo, rg.alpha_hi));
                        beta[i] = static_cast<Kpl8u>(rng.range(rg.beta_lo, rg.beta_hi));
                    }
                    for (int i = 0; i < 16; ++i) {
                        tc0[i] = static_cast<Kpl8u>(rng.range(rg.tc_lo, rg.tc_hi));
                        bs[i] = static_cast<Kpl8u>(rng.range(0, 4) == 0 ? 0 : rng.range(1, rg.bs_hi));
                    }
                    if (rng.coin()) bs[0] = 4;
                    const int32_t step = 40;
                    const size_t n = static_cast<size_t>(step) * 28;
                    Guarded a(n), b(n);
                    if (rng.range(0, 3) == 0)
                        rng.fill_extreme(a.data(), n);
                    else
                        smooth(rng, a.data(), step, step, 28, alpha[rng.range(0, 1)] | 1,
                               beta[rng.range(0, 1)] | 1, en.vertical);
                    std::memcpy(b.data(), a.data(), n);
                    (c.*en.m)(a.data() + 6 * step + 6, step, alpha, beta, tc0, bs);
                    fn(b.data() + 6 * step + 6, step, alpha, beta, tc0, bs);
                    ASSERT_EQ(std::memcmp(a.data(), b.data(), n), 0) << "iter " << iter;
                    ASSERT_TRUE(a.intact() && b.intact());
                }
            }
}
