// The integer searches against the plain model: the exhaustive search and
// the successive-elimination search (with and without a sum plane) must both
// return the model's vector and SAD for every tie rule, with and without the
// price of the vector, on windows whose blocks exactly fill a buffer between
// unmapped pages. MVFAST against a model written from the header's steps.
#include <gtest/gtest.h>

#include <vector>

#include "me/me.h"
#include "me_scene.h"

using namespace kplvc::test;
using namespace kplvc::test::me;

namespace {

struct SearchCase {
    const char* name;
    int n;
    KpliRect window;
    KplMotionVector pred;
    int lambda, fcode, quarter;
    Content content;
    Place place;
};

const SearchCase kSearchCases[] = {
    {"noise 16", 16, {-7, -5, 15, 11}, {3, -2}, 0, 1, 0, Content::noise, Place::heap},
    {"noise 8 priced", 8, {-8, -8, 16, 16}, {5, 7}, 40, 1, 0, Content::noise, Place::end},
    {"flat: all ties", 16, {-4, -3, 9, 7}, {2, 4}, 0, 1, 0, Content::flat, Place::start},
    {"flat priced: the code lengths decide",
     8,
     {-6, -6, 13, 13},
     {3, -5},
     16,
     1,
     0,
     Content::flat,
     Place::end},
    {"steps: many ties", 16, {-6, -6, 13, 13}, {0, 0}, 0, 2, 0, Content::steps, Place::end},
    {"steps 8 priced", 8, {-5, -4, 11, 9}, {-7, 6}, 24, 2, 0, Content::steps, Place::start},
    {"extreme samples", 16, {-3, -3, 7, 7}, {1, 1}, 0, 1, 0, Content::extreme, Place::end},
    {"real 16 +-16", 16, {-16, -16, 32, 32}, {6, 4}, 8, 1, 0, Content::real, Place::heap},
    {"real 16 priced high", 16, {-16, -16, 32, 32}, {6, 4}, 400, 1, 0, Content::real, Place::end},
    {"real 8 small window", 8, {1, 0, 5, 4}, {4, 2}, 12, 1, 0, Content::real, Place::start},
    {"shifted, window off zero", 16, {3, -9, 6, 5}, {8, -14}, 0, 2, 0, Content::shifted, Place::heap},
    {"shifted 8, fcode 3", 8, {-20, -12, 41, 25}, {-9, 30}, 10, 3, 0, Content::shifted, Place::end},
    // pred 31 half samples and window -16: differences up to -63 wrap
    {"wrapped differences", 16, {-16, -16, 32, 8}, {31, -32}, 30, 1, 0, Content::steps, Place::end},
    {"quarter samples", 16, {-8, -8, 16, 16}, {-13, 9}, 20, 1, 1, Content::real, Place::start},
    {"quarter, fcode 4, one row", 8, {-50, 7, 90, 1}, {100, 30}, 6, 4, 1, Content::noise, Place::end},
    {"one column", 16, {0, -10, 1, 20}, {0, 0}, 0, 1, 0, Content::shifted, Place::start},
    {"one position", 8, {-16, 15, 1, 1}, {0, 0}, 0, 1, 0, Content::noise, Place::end},
    {"lambda at its limit", 8, {-6, -6, 13, 13}, {-3, 8}, 65535, 1, 0, Content::extreme, Place::heap},
    {"lifted quarters", 16, {-20, -7, 41, 15}, {0, 0}, 0, 2, 0, Content::lifted, Place::end},
    {"lifted quarters, one row", 16, {-18, 0, 37, 1}, {0, 0}, 0, 2, 0, Content::lifted, Place::heap},
    {"lifted quarters priced", 16, {-17, -4, 35, 9}, {-5, 3}, 2, 2, 0, Content::lifted, Place::start},
    {"lifted 8", 8, {-9, -6, 19, 13}, {0, 0}, 0, 1, 0, Content::lifted, Place::start},
    {"wide window fcode 3", 16, {-64, -10, 128, 20}, {-40, 12}, 4, 3, 0, Content::noise, Place::heap},
};

KplMESearch record(const SearchCase& c, int tie) {
    return KplMESearch{c.window, c.pred, c.lambda, c.fcode, c.quarter, tie};
}

}  // namespace

TEST(MeSearch, FullAndSeaEqualTheModel) {
    for (const SearchCase& c : kSearchCases) {
        for (int tie = KPLVC_ME_TIE_RASTER; tie <= KPLVC_ME_TIE_PRED; ++tie) {
            Rng rng(std::string("search ") + c.name + std::to_string(tie));
            const Scene s = make_scene(c.n, c.window, c.content, c.place, rng);
            const KplMESearch p = record(c, tie);
            const Found want = model_full(s, p);
            const auto full = c.n == 16 ? kpliSearchFull16x16_8u32s_C1R : kpliSearchFull8x8_8u32s_C1R;
            const auto sea = c.n == 16 ? kpliSearchSEA16x16_8u32s_C1R : kpliSearchSEA8x8_8u32s_C1R;
            const auto sums = c.n == 16 ? kpliBlockSums16x16_8u16u_C1R : kpliBlockSums8x8_8u16u_C1R;
            const std::string what = std::string(c.name) + ", tie rule " + std::to_string(tie);

            KplMotionVector mv{-1, -1};
            Kpl32s sad = -1;
            ASSERT_EQ(full(s.cur, s.cur_step, s.ref, s.ref_step, &p, &mv, &sad), kplStsNoErr) << what;
            EXPECT_EQ(found(mv, sad), want) << "exhaustive, " << what;

            ASSERT_EQ(sea(s.cur, s.cur_step, s.ref, s.ref_step, nullptr, 0, &p, &mv, &sad), kplStsNoErr)
                << what;
            EXPECT_EQ(found(mv, sad), want) << "SEA, sums of the window, " << what;

            // A sum plane over the whole area, with an odd step, addressed
            // like the reference.
            const int pw = s.aw - c.n + 1, ph = s.ah - c.n + 1;
            const int32_t plane_step = 2 * pw + 3;
            std::vector<uint8_t> plane(static_cast<size_t>(plane_step) * ph + 2);
            auto* p16 =
                reinterpret_cast<Kpl16u*>(plane.data() + 1);  // only passed on, never dereferenced here
            ASSERT_EQ(sums(s.area, s.ref_step, p16, plane_step, KpliSize{pw, ph}), kplStsNoErr);
            const auto* at00 =
                reinterpret_cast<const Kpl16u*>(plane.data() + 1 + (-s.ay) * plane_step + 2 * (-s.ax));
            ASSERT_EQ(sea(s.cur, s.cur_step, s.ref, s.ref_step, at00, plane_step, &p, &mv, &sad),
                      kplStsNoErr);
            EXPECT_EQ(found(mv, sad), want) << "SEA, sum plane, " << what;

            if (c.n != 16) continue;
            // The bound of the four quarters, with their sums computed by the
            // call and from a plane of 8x8 sums (odd step again).
            const auto quarters = kpliSearchSEAQuarters16x16_8u32s_C1R;
            ASSERT_EQ(quarters(s.cur, s.cur_step, s.ref, s.ref_step, nullptr, 0, &p, nullptr, &mv, &sad),
                      kplStsNoErr);
            EXPECT_EQ(found(mv, sad), want) << "SEA quarters, sums of the window, " << what;
            // A start at the answer (the best J at once: every tie decided by
            // the bound's tie test) and one anywhere, out of the window too.
            const KplMotionVector at_answer{static_cast<Kpl16s>(want.vx), static_cast<Kpl16s>(want.vy)};
            const KplMotionVector anywhere{static_cast<Kpl16s>(rng.range(-70, 70)),
                                           static_cast<Kpl16s>(rng.range(-70, 70))};
            for (const KplMotionVector& start : {at_answer, anywhere}) {
                ASSERT_EQ(quarters(s.cur, s.cur_step, s.ref, s.ref_step, nullptr, 0, &p, &start, &mv, &sad),
                          kplStsNoErr);
                EXPECT_EQ(found(mv, sad), want)
                    << "SEA quarters from (" << start.dx << ", " << start.dy << "), " << what;
            }
            const int qw = s.aw - 7, qh = s.ah - 7;
            const int32_t q_step = 2 * qw + 5;
            std::vector<uint8_t> q_plane(static_cast<size_t>(q_step) * qh + 2);
            ASSERT_EQ(
                kpliBlockSums8x8_8u16u_C1R(s.area, s.ref_step, reinterpret_cast<Kpl16u*>(q_plane.data() + 1),
                                           q_step, KpliSize{qw, qh}),
                kplStsNoErr);
            const auto* q00 =
                reinterpret_cast<const Kpl16u*>(q_plane.data() + 1 + (-s.ay) * q_step + 2 * (-s.ax));
            ASSERT_EQ(quarters(s.cur, s.cur_step, s.ref, s.ref_step, q00, q_step, &p, nullptr, &mv, &sad),
                      kplStsNoErr);
            EXPECT_EQ(found(mv, sad), want) << "SEA quarters, sum plane, " << what;
        }
    }
}

// Each cell of a sum plane against the direct sum, for sizes that cross the
// column strips of the computation.
TEST(MeSearch, BlockSumPlanes) {
    struct Case {
        int n, width, height;
    };
    for (const Case& c :
         {Case{16, 1, 1}, Case{8, 37, 5}, Case{16, 2050, 3}, Case{8, 4100, 2}, Case{16, 23, 41}}) {
        Rng rng("sums " + std::to_string(c.n) + "x" + std::to_string(c.width));
        const int32_t ss = c.width + c.n - 1 + rng.range(0, 3), ds = 2 * c.width + 1;
        GuardPages src(static_cast<size_t>(ss) * (c.height + c.n - 1) - (ss - (c.width + c.n - 1)));
        rng.fill_extreme(src.flush_end(), src.size());
        Guarded dst(static_cast<size_t>(ds) * c.height);
        const auto fn = c.n == 16 ? kpliBlockSums16x16_8u16u_C1R : kpliBlockSums8x8_8u16u_C1R;
        ASSERT_EQ(fn(src.flush_end(), ss, dst.as<Kpl16u>(), ds, KpliSize{c.width, c.height}), kplStsNoErr);
        EXPECT_TRUE(dst.intact());
        int bad = 0;
        for (int y = 0; y < c.height && bad < 3; ++y)
            for (int x = 0; x < c.width && bad < 3; ++x) {
                int want = 0;
                for (int r = 0; r < c.n; ++r)
                    for (int q = 0; q < c.n; ++q) want += src.flush_end()[(y + r) * ss + x + q];
                Kpl16u got;
                std::memcpy(&got, dst.data() + y * ds + 2 * x, 2);
                if (got != want) ++bad;
                EXPECT_EQ(got, want) << c.n << "x" << c.n << " sums, plane " << c.width << "x" << c.height
                                     << ", cell (" << x << ", " << y << ")";
            }
    }
}

// The code lengths behind the price: every difference of every fcode
// against the table file and the header's words.
TEST(MeSearch, CodeLengths) {
    for (int fcode = 1; fcode <= 7; ++fcode) {
        const int f = 1 << (fcode - 1);
        for (int d = -64 * f + 1; d <= 64 * f - 1; ++d)
            ASSERT_EQ(kplvc::me::mv_bits(d, fcode), model_bits(d, fcode)) << "d " << d << ", fcode " << fcode;
    }
    EXPECT_EQ(model_bits(0, 1), 1);
    EXPECT_EQ(model_bits(1, 1), 3);
    EXPECT_EQ(model_bits(-32, 1), 13);
    EXPECT_EQ(model_bits(63, 1), 3);     // wraps to -1
    EXPECT_EQ(model_bits(5, 3), 4 + 2);  // code 2 and two residual bits
}

// ---- MVFAST -----------------------------------------------------------------------

namespace {

// The header's steps, one SAD per point priced (nothing remembered).
Found model_mvfast(const Scene& s, const KplMESearch& p, const KplMVFAST& m) {
    const int unit = p.quarterSample ? 4 : 2;
    const KpliRect& w = p.window;
    const auto clampv = [](int v, int lo, int hi) { return std::min(std::max(v, lo), hi); };
    const auto round_full = [&](int v) { return v < 0 ? -((-v + unit / 2) / unit) : (v + unit / 2) / unit; };
    const auto inside = [&](int x, int y) {
        return x >= w.x && x < w.x + w.width && y >= w.y && y < w.y + w.height;
    };
    struct Pt {
        int x, y;
    };
    ModelBest centre(p);
    Pt c{clampv(0, w.x, w.x + w.width - 1), clampv(0, w.y, w.y + w.height - 1)};
    const auto visit = [&](ModelBest& b, Pt q) { b.offer(q.x * unit, q.y * unit, model_sad(s, q.x, q.y)); };
    visit(centre, c);
    if (centre.f.sad < m.stopSAD) return centre.f;

    std::vector<Pt> cands;
    int activity = 0;
    for (int i = 0; i < 3; ++i) {
        if (!(m.available & (1 << i))) continue;
        const int cx = round_full(m.neighbour[i].dx), cy = round_full(m.neighbour[i].dy);
        activity = std::max(activity, std::abs(cx) + std::abs(cy));
        cands.push_back({clampv(cx, w.x, w.x + w.width - 1), clampv(cy, w.y, w.y + w.height - 1)});
    }
    const std::vector<Pt> small = {{0, -1}, {-1, 0}, {1, 0}, {0, 1}};
    const std::vector<Pt> large = {{0, -2}, {-1, -1}, {1, -1}, {-2, 0}, {2, 0}, {-1, 1}, {1, 1}, {0, 2}};
    // One step: the best of the centre and the pattern's points; true when it moved.
    const auto step = [&](const std::vector<Pt>& pattern) {
        ModelBest b = centre;
        for (const Pt& o : pattern)
            if (inside(c.x + o.x, c.y + o.y)) visit(b, {c.x + o.x, c.y + o.y});
        const bool moved = b.f.vx != centre.f.vx || b.f.vy != centre.f.vy;
        centre = b;
        c = {b.f.vx / unit, b.f.vy / unit};
        return moved;
    };
    if (activity > m.activityHigh) {
        for (const Pt& q : cands) visit(centre, q);
        c = {centre.f.vx / unit, centre.f.vy / unit};
        while (step(small)) {
        }
    } else if (activity > m.activityLow) {
        while (step(large)) {
        }
        step(small);
    } else {
        while (step(small)) {
        }
    }
    return centre.f;
}

struct MvfastCase {
    const char* name;
    int n;
    KpliRect window;
    KplMotionVector pred;
    int lambda, quarter;
    KplMVFAST params;
    Content content;
};

constexpr KplMotionVector kZeroMv{0, 0};
// Neighbour sets (half samples unless the case says quarter).
constexpr KplMVFAST kNone{{kZeroMv, kZeroMv, kZeroMv}, 0, 1, 2, 0};
constexpr KplMVFAST kSmall{
    {{1, 0}, {0, -1}, {-2, 0}}, 7, 1, 2, 0};  // L = 1 (half samples round away from zero)
constexpr KplMVFAST kMedium{{{3, 0}, {0, 0}, {-1, 1}}, 7, 1, 2, 0};          // L = 2
constexpr KplMVFAST kLarge{{{12, -7}, {-9, 3}, {20, 14}}, 7, 1, 2, 0};       // L = 17
constexpr KplMVFAST kLargeLeft{{{12, -7}, {-9, 3}, {20, 14}}, 1, 1, 2, 0};   // only the left one
constexpr KplMVFAST kOutside{{{-60, 40}, {-3, -3}, {58, -61}}, 5, 1, 2, 0};  // clamped into the window
constexpr KplMVFAST kStopAll{{{12, -7}, {-9, 3}, {20, 14}}, 7, 1, 2, 1 << 20};
constexpr KplMVFAST kHalfways{{{-5, 5}, {3, -3}, {0, 0}}, 3, 0, 3, 0};  // halves round away from zero

const MvfastCase kMvfastCases[] = {
    {"no neighbours, real", 16, {-16, -16, 32, 32}, {0, 0}, 0, 0, kNone, Content::real},
    {"small activity, real", 16, {-16, -16, 32, 32}, {2, 0}, 8, 0, kSmall, Content::real},
    {"medium activity, real", 16, {-16, -16, 32, 32}, {2, 0}, 8, 0, kMedium, Content::real},
    {"large activity, real", 16, {-16, -16, 32, 32}, {6, 4}, 8, 0, kLarge, Content::real},
    {"large activity, shifted", 16, {-16, -16, 32, 32}, {6, 4}, 0, 0, kLarge, Content::shifted},
    {"large, left only, 8x8", 8, {-8, -8, 16, 16}, {0, 0}, 20, 0, kLargeLeft, Content::shifted},
    {"neighbours outside the window", 16, {-6, -4, 10, 9}, {-2, 0}, 4, 0, kOutside, Content::real},
    {"window off zero", 8, {3, 2, 9, 7}, {8, 6}, 4, 0, kLarge, Content::noise},
    {"early stop", 16, {-16, -16, 32, 32}, {0, 0}, 0, 0, kStopAll, Content::real},
    {"flat: ties everywhere", 16, {-5, -5, 11, 11}, {3, -3}, 0, 0, kLarge, Content::flat},
    {"steps, medium", 8, {-8, -8, 16, 16}, {0, 0}, 12, 0, kMedium, Content::steps},
    {"quarter samples", 16, {-8, -8, 16, 16}, {-6, 6}, 8, 1, kHalfways, Content::real},
    {"half-sample halves", 16, {-8, -8, 16, 16}, {0, 0}, 0, 0, kHalfways, Content::shifted},
};

}  // namespace

TEST(MeSearch, MvfastEqualsTheModel) {
    for (const MvfastCase& c : kMvfastCases) {
        for (int tie = KPLVC_ME_TIE_RASTER; tie <= KPLVC_ME_TIE_PRED; ++tie) {
            for (int rep = 0; rep < 4; ++rep) {
                Rng rng(std::string("mvfast ") + c.name + std::to_string(tie * 4 + rep));
                const Scene s =
                    make_scene(c.n, c.window, c.content, rep & 1 ? Place::end : Place::start, rng);
                const KplMESearch p{c.window, c.pred, c.lambda, 1 + (c.window.width > 32), c.quarter, tie};
                const Found want = model_mvfast(s, p, c.params);
                const auto fn = c.n == 16 ? kpliSearchMVFAST16x16_8u32s_C1R : kpliSearchMVFAST8x8_8u32s_C1R;
                KplMotionVector mv{-1, -1};
                Kpl32s sad = -1;
                ASSERT_EQ(fn(s.cur, s.cur_step, s.ref, s.ref_step, &p, &c.params, &mv, &sad), kplStsNoErr);
                EXPECT_EQ(found(mv, sad), want) << c.name << ", tie rule " << tie << ", scene " << rep;
            }
        }
    }
}
