// Argument checks of the H.264 transform, quantisation and CAVLC functions:
// each failing argument in turn and two at once (to pin the order), with
// every buffer unchanged afterwards.
#include <climits>
#include <cstring>

#include "kplvc.h"
#include "support/args.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

namespace {

kplvc::test::Arg range(size_t i, long long v) { return fails(i, v, kplStsOutOfRangeErr); }

TEST(H264XformArgs, FirstFailingCheckWinsAndNothingWritten) {
    kplvc::test::ArgPool p;
    Kpl16s *coef = p.take<Kpl16s>(64), *zeros = p.take<Kpl16s>(64), *tblock = p.take<Kpl16s>(16);
    for (int i = 0; i < 64; ++i) coef[i] = static_cast<Kpl16s>(i * 3 - 20);
    std::memset(zeros, 0, 128);
    const Kpl16s *dc = p.take<Kpl16s>({640}), *pred16 = p.take<Kpl16s>(16);
    Kpl8u *pred8 = p.take<Kpl8u>(64), *dst = p.take<Kpl8u>(64), *count = p.take<Kpl8u>(1),
          *last = p.take<Kpl8u>(1);
    Kpl16s* scan16 = p.take<Kpl16s>(16);
    Kpl32s* scan32 = p.take<Kpl32s>(16);
    for (int i = 0; i < 16; ++i) scan16[i] = static_cast<Kpl16s>(scan32[i] = i);

    CHECK_ARGS(p, kpliTransformDequantLumaDC_H264_16s_C1I, {coef, 51}, {null(0), range(1, -1), range(1, 52)});
    CHECK_ARGS(p, kpliTransformDequantChromaDC_H264_16s_C1I, {coef, 0}, {null(0), range(1, 52)});
    // The QP before the step.
    CHECK_ARGS(p, kpliDequantTransformResidual_H264_16s_C1I, {coef, 8, dc, 1, 51},
               {null(0), range(4, 52), range(4, -1), fails(1, 7, kplStsStepErr), fails(1, -8, kplStsStepErr),
                passes(2, nullptr), passes(3, 0)});
    // Coefficients and DC may each be null, not both (checked after the QP);
    // the steps are not checked.
    CHECK_ARGS(p, kpliDequantTransformResidualAndAdd_H264_16s_C1I, {pred8, coef, dc, dst, 4, 4, 51, 1},
               {null(0), null(3), range(6, 52), passes(1, nullptr), passes(2, nullptr), passes(5, 1)});
    p.expect("AndAdd, both null", kpliDequantTransformResidualAndAdd_H264_16s_C1I,
             {pred8, nullptr, nullptr, dst, 4, 4, 51, 0}, kplStsNullPtrErr);
    CHECK_ARGS(p, kpliTransformPrediction_H264_8u16s_C1, {pred8, 4, coef}, {null(0), null(2), passes(1, 1)});
    // SP/SI: only pointers are checked.
    CHECK_ARGS(p, kpliDequantTransformResidual_SISP_H264_16s_C1I, {coef, pred16, dc, 1, 28, 28, 0},
               {null(0), null(1), passes(2, nullptr), passes(4, INT_MIN), passes(5, INT_MAX), passes(6, 1)});
    CHECK_ARGS(p, kpliTransformDequantChromaDC_SISP_H264_16s_C1I, {coef, pred16, 28, 28, 0},
               {null(0), null(1), passes(2, INT_MAX), passes(3, INT_MIN)});
    // Quantisers: pointers, then QP.
    CHECK_ARGS(p, kpliTransformQuantChromaDC_H264_16s_C1I, {zeros, tblock, 39, count, 1, 1},
               {null(0), null(1), null(3), range(2, 40), range(2, -1)});
    CHECK_ARGS(p, kpliTransformQuantLumaDC_H264_16s_C1I, {zeros, tblock, 51, count, 1, scan16, last},
               {null(0), null(1), null(3), null(5), null(6), range(2, 52)});
    CHECK_ARGS(p, kpliTransformQuantResidual_H264_16s_C1I, {zeros, 51, count, 0, scan16, last},
               {null(0), null(2), null(4), null(5), range(1, 52), range(1, -1)});
    // CAVLC: pointers, then a last index above 15 or below the first.
    CHECK_ARGS(p, kpliEncodeCoeffsCAVLC_H264_16s,
               {coef, 4, scan32, 4, count, p.take<Kpl8u>(1), p.take<Kpl8u>(1), p.take<Kpl8u>(1),
                p.take<Kpl16s>(16), p.take<Kpl8u>(16)},
               {null(0), null(2), null(4), null(5), null(6), null(7), null(8), null(9), range(3, 16),
                range(3, 3), range(1, 5)});
    CHECK_ARGS(p, kpliEncodeChromaDcCoeffsCAVLC_H264_16s,
               {coef, count, p.take<Kpl8u>(1), p.take<Kpl8u>(1), p.take<Kpl8u>(1), p.take<Kpl16s>(16),
                p.take<Kpl8u>(16)},
               {null(0), null(1), null(2), null(3), null(4), null(5), null(6)});
}

}  // namespace
