// MPEG-4 padding for arbitrary shape against a direct model of ISO/IEC
// 14496-2 7.6.1 (each outside sample looks for its nearest inside samples),
// on random shapes, luminance and chrominance; extended padding's priority;
// the whole-VOP padding; argument checks.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "support/args.h"
#include "support/support.h"

namespace {

using kplvc::test::Rng;

// The shape of a size x size block from the luminance alpha samples.
std::vector<uint8_t> model_mask(const uint8_t* alpha, int astep, int size, bool chroma) {
    std::vector<uint8_t> m(static_cast<size_t>(size * size));
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            bool in = false;
            for (int dy = 0; dy < (chroma ? 2 : 1); ++dy)
                for (int dx = 0; dx < (chroma ? 2 : 1); ++dx)
                    in = in || alpha[(chroma ? 2 * y + dy : y) * astep + (chroma ? 2 * x + dx : x)] != 0;
            m[static_cast<size_t>(y * size + x)] = in;
        }
    return m;
}

// Repetitive padding: along rows, an outside sample takes the mean (rounded
// up) of its nearest inside samples to the left and right, or the one that
// exists; then rows with no inside sample take, per column, the mean of the
// nearest rows above and below that had one, or the one that exists.
void model_pad(uint8_t* p, int step, const std::vector<uint8_t>& m, int size) {
    std::vector<int> h(static_cast<size_t>(size * size), -1);
    std::vector<bool> row_has(static_cast<size_t>(size), false);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            auto in = [&](int xx) { return m[static_cast<size_t>(y * size + xx)] != 0; };
            int v = -1;
            if (in(x)) {
                v = p[y * step + x];
                row_has[static_cast<size_t>(y)] = true;
            } else {
                int l = x - 1, r = x + 1;
                while (l >= 0 && !in(l)) --l;
                while (r < size && !in(r)) ++r;
                if (l >= 0 && r < size)
                    v = (p[y * step + l] + p[y * step + r] + 1) >> 1;
                else if (l >= 0)
                    v = p[y * step + l];
                else if (r < size)
                    v = p[y * step + r];
            }
            h[static_cast<size_t>(y * size + x)] = v;
        }
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            int v = h[static_cast<size_t>(y * size + x)];
            if (!row_has[static_cast<size_t>(y)]) {
                int a = y - 1, b = y + 1;
                while (a >= 0 && !row_has[static_cast<size_t>(a)]) --a;
                while (b < size && !row_has[static_cast<size_t>(b)]) ++b;
                const int va = a >= 0 ? h[static_cast<size_t>(a * size + x)] : -1;
                const int vb = b < size ? h[static_cast<size_t>(b * size + x)] : -1;
                v = va >= 0 && vb >= 0 ? (va + vb + 1) >> 1 : (va >= 0 ? va : vb);
            }
            p[y * step + x] = static_cast<uint8_t>(v);
        }
}

// A random alpha plane: noise of a random density, a disc, lines, or one
// sample, as 0/255 (and now and then other non-zero values).
void random_alpha(uint8_t* a, int astep, int w, int h, Rng& rng) {
    const int kind = rng.range(0, 4), density = rng.range(1, 15);
    const int cx = rng.range(-8, w + 8), cy = rng.range(-8, h + 8), r = rng.range(2, w);
    const int px = rng.range(0, w - 1), py = rng.range(0, h - 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            bool in;
            switch (kind) {
                case 0:
                    in = rng.range(0, 15) < density;
                    break;
                case 1:
                    in = (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r;
                    break;
                case 2:
                    in = x == px;
                    break;
                case 3:
                    in = y == py;
                    break;
                default:
                    in = x == px && y == py;
            }
            a[y * astep + x] = in ? (rng.range(0, 7) == 0 ? rng.range(1, 255) : 255) : 0;
        }
}

}  // namespace

// A whole VOP, by kpliPadVOP_MPEG4_8u_C1IR or macroblock by macroblock:
// boundary blocks padded, transparent ones from their non-transparent
// neighbours in the order left, above, right, below (or 128), opaque ones
// left alone; luminance and chrominance, on random shapes with whole
// transparent and opaque macroblocks among them.
TEST(Mpeg4Padding, WholeVopMatchesTheModel) {
    Rng rng("pad-vop");
    for (int chroma : {0, 1})
        for (int rep = 0; rep < kplvc::test::iters(800); ++rep) {
            const int bw = rng.range(1, 5), bh = rng.range(1, 4), size = chroma ? 8 : 16;
            const int w = bw * size, h = bh * size, step = w + 3, aw = w * (chroma ? 2 : 1),
                      ah = h * (chroma ? 2 : 1), astep = aw + 1;
            std::vector<uint8_t> alpha(static_cast<size_t>(astep * ah)), plane(static_cast<size_t>(step * h));
            random_alpha(alpha.data(), astep, aw, ah, rng);
            // Whole transparent and opaque macroblocks too.
            for (int k = 0; k < 2; ++k) {
                const int mx = rng.range(0, bw - 1), my = rng.range(0, bh - 1), v = k ? 255 : 0;
                for (int y = 0; y < 16; ++y)
                    for (int x = 0; x < 16; ++x)
                        alpha[static_cast<size_t>((my * 16 + y) * astep + mx * 16 + x)] = v;
            }
            rng.fill(plane.data(), plane.size());
            std::vector<uint8_t> want = plane;
            std::vector<int> cls(static_cast<size_t>(bw * bh));  // 0 transparent, 1 boundary, 2 opaque
            const int as = chroma ? 2 : 1;
            for (int by = 0; by < bh; ++by)
                for (int bx = 0; bx < bw; ++bx) {
                    const auto m = model_mask(alpha.data() + (by * size * as) * astep + bx * size * as, astep,
                                              size, chroma);
                    int n = 0;
                    for (uint8_t v : m) n += v;
                    cls[static_cast<size_t>(by * bw + bx)] = n == 0 ? 0 : (n == size * size ? 2 : 1);
                    if (n > 0 && n < size * size)
                        model_pad(want.data() + by * size * step + bx * size, step, m, size);
                }
            for (int by = 0; by < bh; ++by)
                for (int bx = 0; bx < bw; ++bx) {
                    if (cls[static_cast<size_t>(by * bw + bx)] != 0) continue;
                    auto solid = [&](int x, int y) {
                        return x >= 0 && y >= 0 && x < bw && y < bh &&
                               cls[static_cast<size_t>(y * bw + x)] != 0;
                    };
                    uint8_t* b = want.data() + by * size * step + bx * size;
                    for (int y = 0; y < size; ++y)
                        for (int x = 0; x < size; ++x) {
                            uint8_t v = 128;
                            if (solid(bx - 1, by))
                                v = b[y * step - 1];
                            else if (solid(bx, by - 1))
                                v = b[-step + x];
                            else if (solid(bx + 1, by))
                                v = b[y * step + size];
                            else if (solid(bx, by + 1))
                                v = b[size * step + x];
                            b[y * step + x] = v;
                        }
                }
            if (rep & 1) {
                ASSERT_EQ(kpliPadVOP_MPEG4_8u_C1IR(plane.data(), step, alpha.data(), astep, {w, h}, chroma),
                          kplStsNoErr);
            } else {
                // The same by macroblock, as a caller that pads as it goes.
                auto c = [&](int x, int y) { return cls[static_cast<size_t>(y * bw + x)]; };
                for (int pass = 0; pass < 2; ++pass)
                    for (int by = 0; by < bh; ++by)
                        for (int bx = 0; bx < bw; ++bx) {
                            uint8_t* b = plane.data() + by * size * step + bx * size;
                            const uint8_t* a = alpha.data() + by * size * as * astep + bx * size * as;
                            if (pass == 0 && c(bx, by) == 1) {
                                ASSERT_EQ(kpliPadMB_MPEG4_8u_C1IR(b, step, a, astep, chroma), kplStsNoErr);
                            }
                            if (pass == 1 && c(bx, by) == 0) {
                                const int nb = (bx > 0 && c(bx - 1, by)) | (by > 0 && c(bx, by - 1)) << 1 |
                                               (bx + 1 < bw && c(bx + 1, by)) << 2 |
                                               (by + 1 < bh && c(bx, by + 1)) << 3;
                                ASSERT_EQ(kpliPadMBExtended_MPEG4_8u_C1R(b, step, size, nb), kplStsNoErr);
                            }
                        }
            }
            ASSERT_EQ(plane, want) << "chroma " << chroma << " rep " << rep << " " << bw << "x" << bh;
        }
}

TEST(Mpeg4Padding, ArgumentChecks) {
    using namespace kplvc::test;
    ArgPool p(8192);
    Kpl8u* blk = p.take<Kpl8u>(20 * 20);
    Kpl8u* alpha = p.take<Kpl8u>(32 * 32);
    std::memset(alpha, 255, 32 * 32);
    CHECK_ARGS(p, kpliPadMB_MPEG4_8u_C1IR, {blk, 16, alpha, 16, 0},
               {null(0), null(2), fails(1, 7, kplStsStepErr), fails(3, 15, kplStsStepErr),
                fails(4, 2, kplStsModeErr), passes(4, 1)});
    CHECK_ARGS(p, kpliPadMBExtended_MPEG4_8u_C1R, {blk + 21, 20, 16, 15},
               {null(0), fails(2, 4, kplStsBlockSizeErr), fails(1, 7, kplStsStepErr), passes(2, 8),
                fails(3, 16, kplStsBadArgErr), fails(3, -1, kplStsBadArgErr)});
    Kpl8u* zero = p.take<Kpl8u>(256);
    std::memset(zero, 0, 256);
    // A block with no sample inside the shape has nothing to pad from.
    Kpl8u* untouched = p.take<Kpl8u>(256);
    const std::vector<uint8_t> before(untouched, untouched + 256);
    EXPECT_EQ(kpliPadMB_MPEG4_8u_C1IR(untouched, 16, zero, 16, 0), kplStsErr);
    EXPECT_TRUE(std::equal(before.begin(), before.end(), untouched));
    Kpl8u* plane = p.take<Kpl8u>(32 * 16);
    CHECK_ARGS(p, kpliPadVOP_MPEG4_8u_C1IR, {plane, 32, alpha, 32, KpliSize{32, 16}, 0},
               {null(0), null(2), fails(4, KpliSize{0, 16}, kplStsSizeErr),
                fails(4, KpliSize{24, 16}, kplStsSizeErr), fails(1, 31, kplStsStepErr),
                fails(3, 31, kplStsStepErr), fails(5, 2, kplStsModeErr)});
}
