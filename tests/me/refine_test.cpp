// Sub-sample refinement against a brute-force evaluation of every position
// it may consider, each predicted by the decoder's formula written out here,
// on windows whose blocks exactly fill a buffer between unmapped pages.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "me_scene.h"

using namespace kplvc::test;
using namespace kplvc::test::me;

namespace {

// The decoder's half-sample prediction of sample (x, y) of the block at half
// vector (vx, vy), with rounding control rc.
int half_pred(const Scene& s, int vx, int vy, int x, int y, int rc) {
    const int ix = (vx - (vx & 1)) / 2 + x, iy = (vy - (vy & 1)) / 2 + y;
    const int a = s.at(ix, iy);
    if ((vx & 1) && (vy & 1))
        return (a + s.at(ix + 1, iy) + s.at(ix, iy + 1) + s.at(ix + 1, iy + 1) + 2 - rc) >> 2;
    if (vx & 1) return (a + s.at(ix + 1, iy) + 1 - rc) >> 1;
    if (vy & 1) return (a + s.at(ix, iy + 1) + 1 - rc) >> 1;
    return a;
}

Found model_half(const Scene& s, const KplMESearch& p, KplMotionVector c, int rc) {
    const KpliRect& w = p.window;
    ModelBest best(p);
    for (int vy = c.dy - 1; vy <= c.dy + 1; ++vy)
        for (int vx = c.dx - 1; vx <= c.dx + 1; ++vx) {
            if (vx < 2 * w.x || vx > 2 * (w.x + w.width - 1) || vy < 2 * w.y || vy > 2 * (w.y + w.height - 1))
                continue;
            int sad = 0;
            for (int y = 0; y < s.n; ++y)
                for (int x = 0; x < s.n; ++x)
                    sad += std::abs(s.cur_at(x, y) - half_pred(s, vx, vy, x, y, rc));
            best.offer(vx, vy, sad);
        }
    return best.f;
}

struct HalfCase {
    const char* name;
    int n;
    KpliRect window;
    KplMotionVector centre, pred;
    int lambda;
    Content content;
};

const HalfCase kHalfCases[] = {
    {"real, centre inside", 16, {-8, -8, 16, 16}, {6, -4}, {5, -3}, 0, Content::real},
    {"real 8x8, priced", 8, {-8, -8, 16, 16}, {-2, 10}, {-1, 9}, 30, Content::real},
    {"noise, half-sample centre", 16, {-4, -4, 8, 8}, {3, -5}, {0, 0}, 4, Content::noise},
    {"top-left corner of the window", 16, {-3, -2, 5, 4}, {-6, -4}, {0, 0}, 0, Content::shifted},
    {"bottom-right corner", 8, {-3, -2, 5, 4}, {2, 2}, {1, 1}, 0, Content::real},
    {"one-position window", 16, {2, 1, 1, 1}, {4, 2}, {4, 2}, 0, Content::noise},
    {"flat: the tie rule decides", 16, {-4, -4, 8, 8}, {1, 1}, {2, 3}, 0, Content::flat},
    {"flat priced", 8, {-4, -4, 8, 8}, {0, 0}, {3, -1}, 16, Content::flat},
    {"steps", 16, {-6, -6, 12, 12}, {-3, 7}, {0, 0}, 8, Content::steps},
    {"extreme", 8, {-2, -2, 5, 5}, {1, -1}, {0, 0}, 0, Content::extreme},
};

}  // namespace

TEST(MeRefine, HalfEqualsBruteForce) {
    for (const HalfCase& c : kHalfCases) {
        for (int tie = KPLVC_ME_TIE_RASTER; tie <= KPLVC_ME_TIE_PRED; ++tie) {
            for (int rc = 0; rc <= 1; ++rc) {
                for (Place place : {Place::start, Place::end}) {
                    Rng rng(std::string("half ") + c.name +
                            std::to_string(tie * 4 + rc * 2 + (place == Place::end)));
                    const Scene s = make_scene(c.n, c.window, c.content, place, rng);
                    const KplMESearch p{c.window, c.pred, c.lambda, 1, 0, tie};
                    const Found want = model_half(s, p, c.centre, rc);
                    const auto fn = c.n == 16 ? kpliRefineHalf16x16_8u32s_C1R : kpliRefineHalf8x8_8u32s_C1R;
                    KplMotionVector mv = c.centre;
                    Kpl32s sad = -1;
                    ASSERT_EQ(fn(s.cur, s.cur_step, s.ref, s.ref_step, &p, rc, &mv, &sad), kplStsNoErr)
                        << c.name;
                    EXPECT_EQ(found(mv, sad), want) << c.name << ", tie rule " << tie << ", rc " << rc;
                }
            }
        }
    }
}

namespace {

// The decoder's quarter-sample prediction of the n x n block at quarter
// vector (vx, vy): the eight-tap half-sample filter along rows, then down
// the columns of the row values, taps mirrored into the block's n + 1
// samples, quarter positions the average of their two neighbours.
std::vector<int> qpel_block(const Scene& s, int vx, int vy, int rc) {
    const int n = s.n, fx = vx & 3, fy = vy & 3;
    const int ix = (vx - fx) / 4, iy = (vy - fy) / 4;
    auto mirror = [n](int i) { return i < 0 ? -i - 1 : (i > n ? 2 * n + 1 - i : i); };
    auto clip = [](int v) { return v < 0 ? 0 : (v > 255 ? 255 : v); };
    auto avg = [rc](int a, int b) { return (a + b + 1 - rc) >> 1; };
    // The filter at the half position between samples i and i + 1 of a line.
    auto half = [&](auto at, int i) {
        const int t[8] = {-1, 3, -6, 20, 20, -6, 3, -1};
        int sum = 0;
        for (int k = 0; k < 8; ++k) sum += t[k] * at(mirror(i - 3 + k));
        return clip((sum + 16 - rc) >> 5);
    };
    auto pick = [&](auto at, int i, int f) {
        switch (f) {
            case 0:
                return at(i);
            case 1:
                return avg(at(i), half(at, i));
            case 2:
                return half(at, i);
            default:
                return avg(half(at, i), at(i + 1));
        }
    };
    const int rows = fy ? n + 1 : n;
    std::vector<int> v(static_cast<size_t>(rows) * n);
    for (int r = 0; r < rows; ++r)
        for (int x = 0; x < n; ++x) v[r * n + x] = pick([&](int i) { return s.at(ix + i, iy + r); }, x, fx);
    std::vector<int> out(static_cast<size_t>(n) * n);
    for (int x = 0; x < n; ++x)
        for (int y = 0; y < n; ++y) out[y * n + x] = pick([&](int i) { return v[i * n + x]; }, y, fy);
    return out;
}

Found model_qpel(const Scene& s, const KplMESearch& p, KplMotionVector c, int rc, int step) {
    const KpliRect& w = p.window;
    ModelBest best(p);
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const int vx = c.dx + step * dx, vy = c.dy + step * dy;
            if (vx < 4 * w.x || vx > 4 * (w.x + w.width - 1) || vy < 4 * w.y || vy > 4 * (w.y + w.height - 1))
                continue;
            const std::vector<int> pred = qpel_block(s, vx, vy, rc);
            int sad = 0;
            for (int y = 0; y < s.n; ++y)
                for (int x = 0; x < s.n; ++x) sad += std::abs(s.cur_at(x, y) - pred[y * s.n + x]);
            best.offer(vx, vy, sad);
        }
    return best.f;
}

// Centres in quarter samples.
const HalfCase kQpelCases[] = {
    {"real, whole-sample centre", 16, {-8, -8, 16, 16}, {12, -8}, {10, -6}, 0, Content::real},
    {"real 8x8, priced, half centre", 8, {-8, -8, 16, 16}, {-6, 18}, {-1, 9}, 30, Content::real},
    {"noise, quarter centre", 16, {-4, -4, 8, 8}, {5, -7}, {0, 0}, 4, Content::noise},
    {"top-left corner of the window", 16, {-3, -2, 5, 4}, {-12, -8}, {0, 0}, 0, Content::shifted},
    {"bottom-right corner", 8, {-3, -2, 5, 4}, {4, 4}, {1, 1}, 0, Content::real},
    {"one-position window", 16, {2, 1, 1, 1}, {8, 4}, {8, 4}, 0, Content::noise},
    {"flat: the tie rule decides", 16, {-4, -4, 8, 8}, {2, 2}, {3, 5}, 0, Content::flat},
    {"steps", 16, {-6, -6, 12, 12}, {-6, 14}, {0, 0}, 8, Content::steps},
    {"extreme: the filter clips", 8, {-2, -2, 5, 5}, {2, -2}, {0, 0}, 0, Content::extreme},
};

}  // namespace

TEST(MeRefine, QuarterEqualsBruteForce) {
    for (const HalfCase& c : kQpelCases) {
        for (int tie = KPLVC_ME_TIE_RASTER; tie <= KPLVC_ME_TIE_PRED; ++tie) {
            for (int rc = 0; rc <= 1; ++rc) {
                for (int step = 1; step <= 2; ++step) {
                    const Place place = (tie + rc + step) & 1 ? Place::end : Place::start;
                    Rng rng(std::string("qpel ") + c.name + std::to_string(tie * 8 + rc * 4 + step));
                    const Scene s = make_scene(c.n, c.window, c.content, place, rng);
                    const KplMESearch p{c.window, c.pred, c.lambda, 1, 1, tie};
                    const Found want = model_qpel(s, p, c.centre, rc, step);
                    const auto fn = c.n == 16 ? kpliRefineQPel16x16_8u32s_C1R : kpliRefineQPel8x8_8u32s_C1R;
                    KplMotionVector mv = c.centre;
                    Kpl32s sad = -1;
                    ASSERT_EQ(fn(s.cur, s.cur_step, s.ref, s.ref_step, &p, rc, step, &mv, &sad), kplStsNoErr)
                        << c.name;
                    EXPECT_EQ(found(mv, sad), want)
                        << c.name << ", tie rule " << tie << ", rc " << rc << ", step " << step;
                }
            }
        }
    }
}
