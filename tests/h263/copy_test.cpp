// H.263 whole-sample and half-sample copies against the rounding-type-0
// averages, and their step codes.
#include <cstring>
#include <vector>

#include "kplvc.h"
#include "support/args.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

namespace {

using Copy = KplStatus (*)(const Kpl8u*, Kpl8u*, int);

struct CopyCase {
    const char* name;
    Copy fn;
    int size, hx, hy;  // block size, half-sample flags
    KplStatus step_err;
};

const CopyCase kCases[] = {
    {"MB", kpliCopyMB_H263_8u, 16, 0, 0, kplStsMBStepErr},
    {"Block", kpliCopyBlock_H263_8u, 8, 0, 0, kplStsBlockStepErr},
    {"HMB", kpliCopyApproxHMB_H263_8u, 16, 1, 0, kplStsBlockStepErr},
    {"HBlock", kpliCopyApproxHBlock_H263_8u, 8, 1, 0, kplStsBlockStepErr},
    {"VMB", kpliCopyApproxVMB_H263_8u, 16, 0, 1, kplStsBlockStepErr},
    {"VBlock", kpliCopyApproxVBlock_H263_8u, 8, 0, 1, kplStsBlockStepErr},
    {"HVMB", kpliCopyApproxHVMB_H263_8u, 16, 1, 1, kplStsBlockStepErr},
    {"HVBlock", kpliCopyApproxHVBlock_H263_8u, 8, 1, 1, kplStsBlockStepErr},
};

}  // namespace

TEST(H263Copy, AveragesWithRoundingTypeZero) {
    kplvc::test::Rng rng(55);
    for (const auto& c : kCases) {
        for (int iter = 0; iter < 300; ++iter) {
            const int step = c.size + rng.range(0, 7) + (iter & 1);  // odd steps too
            std::vector<uint8_t> src(static_cast<size_t>(step * (c.size + 1) + 1));
            if (iter % 3 == 0)
                rng.fill_extreme(src.data(), src.size());
            else
                rng.fill(src.data(), src.size());
            // Destination interleaved with the same step; bytes beyond the
            // block in each row must stay.
            std::vector<uint8_t> dst(static_cast<size_t>(step * c.size), 0x5A);
            ASSERT_EQ(c.fn(src.data(), dst.data(), step), kplStsNoErr) << c.name;
            for (int y = 0; y < c.size; ++y)
                for (int x = 0; x < step; ++x) {
                    const size_t o = static_cast<size_t>(y * step + x);
                    if (x >= c.size) {
                        ASSERT_EQ(dst[o], 0x5A) << c.name;
                        continue;
                    }
                    const int a = src[o], b = src[o + 1], d = src[o + static_cast<size_t>(step)],
                              e = src[o + static_cast<size_t>(step) + 1];
                    int want = a;
                    if (c.hx && c.hy)
                        want = (a + b + d + e + 2) >> 2;
                    else if (c.hx)
                        want = (a + b + 1) >> 1;
                    else if (c.hy)
                        want = (a + d + 1) >> 1;
                    ASSERT_EQ(dst[o], want) << c.name << " at " << x << "," << y;
                }
        }
    }
}

TEST(H263Copy, ChecksAndStepCodes) {
    kplvc::test::ArgPool p;
    const Kpl8u* src = p.take<Kpl8u>(17 * 17);
    Kpl8u* dst = p.take<Kpl8u>(17 * 17);
    for (const auto& c : kCases)
        CHECK_ARGS(p, c.fn, {src, dst, 17},
                   {null(0), null(1), {2, c.size - 1, c.step_err}, {2, -c.size, c.step_err}});
}
