// Sub-sample refinement against a brute-force evaluation of every position
// it may consider, each predicted by the decoder's formula written out here,
// on windows whose blocks exactly fill a buffer between unmapped pages.
#include <gtest/gtest.h>

#include <algorithm>

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
