// Argument checks of the H.264 transform, quantisation and CAVLC functions:
// each failing argument in turn and two at once (to pin the order), with
// every buffer unchanged afterwards.
#include <climits>
#include <cstring>
#include <functional>

#include "kplvc.h"
#include "support/support.h"

namespace {

// Every buffer any of the functions can touch, filled with a pattern.
struct Bufs {
    Kpl16s coef[64];
    Kpl16s tblock[16];
    Kpl16s pred16[16];
    Kpl16s dc[2];
    Kpl8u pred8[64];
    Kpl8u dst[64];
    Kpl8u count[4];
    Kpl8u last[4];
    Kpl16s scan16[16];
    Kpl32s scan32[16];
    Kpl8u t1[2], signs[2], n[2], total[2], runs[16];
    Kpl16s levels[16];
    Bufs() {
        std::memset(this, 0x5B, sizeof *this);
        for (int i = 0; i < 16; ++i) {
            scan16[i] = static_cast<Kpl16s>(i);
            scan32[i] = i;
        }
        for (int i = 0; i < 64; ++i) coef[i] = static_cast<Kpl16s>(i * 3 - 20);
    }
};

struct ArgCase {
    const char* name;
    std::function<KplStatus(Bufs&)> call;
    KplStatus want;
};

const ArgCase kCases[] = {
    // Luma and chroma DC dequantisers: null, then QP.
    {"lumaDC null", [](Bufs&) { return kpliTransformDequantLumaDC_H264_16s_C1I(nullptr, 60); },
     kplStsNullPtrErr},
    {"lumaDC qp -1", [](Bufs& b) { return kpliTransformDequantLumaDC_H264_16s_C1I(b.coef, -1); },
     kplStsOutOfRangeErr},
    {"lumaDC qp 52", [](Bufs& b) { return kpliTransformDequantLumaDC_H264_16s_C1I(b.coef, 52); },
     kplStsOutOfRangeErr},
    {"chromaDC null", [](Bufs&) { return kpliTransformDequantChromaDC_H264_16s_C1I(nullptr, -3); },
     kplStsNullPtrErr},
    {"chromaDC qp 52", [](Bufs& b) { return kpliTransformDequantChromaDC_H264_16s_C1I(b.coef, 52); },
     kplStsOutOfRangeErr},
    // Residual: null, QP, step.
    {"residual null+qp+step",
     [](Bufs& b) { return kpliDequantTransformResidual_H264_16s_C1I(nullptr, 2, b.dc, 1, 99); },
     kplStsNullPtrErr},
    {"residual qp+step",
     [](Bufs& b) { return kpliDequantTransformResidual_H264_16s_C1I(b.coef, 2, b.dc, 1, 52); },
     kplStsOutOfRangeErr},
    {"residual qp -1",
     [](Bufs& b) { return kpliDequantTransformResidual_H264_16s_C1I(b.coef, 8, nullptr, 0, -1); },
     kplStsOutOfRangeErr},
    {"residual step 7",
     [](Bufs& b) { return kpliDequantTransformResidual_H264_16s_C1I(b.coef, 7, b.dc, 1, 51); },
     kplStsStepErr},
    {"residual step -8",
     [](Bufs& b) { return kpliDequantTransformResidual_H264_16s_C1I(b.coef, -8, nullptr, 0, 0); },
     kplStsStepErr},
    // Residual and add: null pred/dst, QP, then coefficient and DC both null.
    {"add null pred",
     [](Bufs& b) {
         return kpliDequantTransformResidualAndAdd_H264_16s_C1I(nullptr, b.coef, b.dc, b.dst, 4, 4, 60, 1);
     },
     kplStsNullPtrErr},
    {"add null dst",
     [](Bufs& b) {
         return kpliDequantTransformResidualAndAdd_H264_16s_C1I(b.pred8, b.coef, b.dc, nullptr, 4, 4, 0, 1);
     },
     kplStsNullPtrErr},
    {"add qp before coef/dc",
     [](Bufs& b) {
         return kpliDequantTransformResidualAndAdd_H264_16s_C1I(b.pred8, nullptr, nullptr, b.dst, 4, 4, 52,
                                                                1);
     },
     kplStsOutOfRangeErr},
    {"add coef and dc null",
     [](Bufs& b) {
         return kpliDequantTransformResidualAndAdd_H264_16s_C1I(b.pred8, nullptr, nullptr, b.dst, 4, 4, 51,
                                                                0);
     },
     kplStsNullPtrErr},
    // Forward transform of a prediction.
    {"pred null src", [](Bufs& b) { return kpliTransformPrediction_H264_8u16s_C1(nullptr, 4, b.coef); },
     kplStsNullPtrErr},
    {"pred null dst", [](Bufs& b) { return kpliTransformPrediction_H264_8u16s_C1(b.pred8, 4, nullptr); },
     kplStsNullPtrErr},
    // SP/SI: only pointers are checked.
    {"sisp null coef",
     [](Bufs& b) {
         return kpliDequantTransformResidual_SISP_H264_16s_C1I(nullptr, b.pred16, b.dc, 1, 0, 0, 0);
     },
     kplStsNullPtrErr},
    {"sisp null pred",
     [](Bufs& b) {
         return kpliDequantTransformResidual_SISP_H264_16s_C1I(b.coef, nullptr, nullptr, 1, 99, -5, 1);
     },
     kplStsNullPtrErr},
    {"sisp dc null",
     [](Bufs& b) { return kpliTransformDequantChromaDC_SISP_H264_16s_C1I(nullptr, b.pred16, 0, 0, 0); },
     kplStsNullPtrErr},
    {"sisp dc null pred",
     [](Bufs& b) { return kpliTransformDequantChromaDC_SISP_H264_16s_C1I(b.coef, nullptr, 0, 0, 0); },
     kplStsNullPtrErr},
    // Chroma DC quantiser: three pointers, then QP 0..39.
    {"qchroma null src",
     [](Bufs& b) { return kpliTransformQuantChromaDC_H264_16s_C1I(nullptr, b.tblock, 45, b.count, 1, 1); },
     kplStsNullPtrErr},
    {"qchroma null tblock",
     [](Bufs& b) { return kpliTransformQuantChromaDC_H264_16s_C1I(b.coef, nullptr, 0, b.count, 1, 1); },
     kplStsNullPtrErr},
    {"qchroma null count",
     [](Bufs& b) { return kpliTransformQuantChromaDC_H264_16s_C1I(b.coef, b.tblock, 0, nullptr, 1, 1); },
     kplStsNullPtrErr},
    {"qchroma qp 40",
     [](Bufs& b) { return kpliTransformQuantChromaDC_H264_16s_C1I(b.coef, b.tblock, 40, b.count, 1, 1); },
     kplStsOutOfRangeErr},
    {"qchroma qp -1",
     [](Bufs& b) { return kpliTransformQuantChromaDC_H264_16s_C1I(b.coef, b.tblock, -1, b.count, 0, 0); },
     kplStsOutOfRangeErr},
    // Luma DC quantiser: five pointers, then QP.
    {"qluma null src",
     [](Bufs& b) {
         return kpliTransformQuantLumaDC_H264_16s_C1I(nullptr, b.tblock, 60, b.count, 1, b.scan16, b.last);
     },
     kplStsNullPtrErr},
    {"qluma null tblock",
     [](Bufs& b) {
         return kpliTransformQuantLumaDC_H264_16s_C1I(b.coef, nullptr, 0, b.count, 1, b.scan16, b.last);
     },
     kplStsNullPtrErr},
    {"qluma null count",
     [](Bufs& b) {
         return kpliTransformQuantLumaDC_H264_16s_C1I(b.coef, b.tblock, 0, nullptr, 1, b.scan16, b.last);
     },
     kplStsNullPtrErr},
    {"qluma null scan",
     [](Bufs& b) {
         return kpliTransformQuantLumaDC_H264_16s_C1I(b.coef, b.tblock, 0, b.count, 1, nullptr, b.last);
     },
     kplStsNullPtrErr},
    {"qluma null last",
     [](Bufs& b) {
         return kpliTransformQuantLumaDC_H264_16s_C1I(b.coef, b.tblock, 0, b.count, 1, b.scan16, nullptr);
     },
     kplStsNullPtrErr},
    {"qluma qp 52",
     [](Bufs& b) {
         return kpliTransformQuantLumaDC_H264_16s_C1I(b.coef, b.tblock, 52, b.count, 1, b.scan16, b.last);
     },
     kplStsOutOfRangeErr},
    // Residual quantiser: four pointers, then QP.
    {"qres null src",
     [](Bufs& b) {
         return kpliTransformQuantResidual_H264_16s_C1I(nullptr, 60, b.count, 1, b.scan16, b.last);
     },
     kplStsNullPtrErr},
    {"qres null count",
     [](Bufs& b) { return kpliTransformQuantResidual_H264_16s_C1I(b.coef, 0, nullptr, 1, b.scan16, b.last); },
     kplStsNullPtrErr},
    {"qres null scan",
     [](Bufs& b) { return kpliTransformQuantResidual_H264_16s_C1I(b.coef, 0, b.count, 1, nullptr, b.last); },
     kplStsNullPtrErr},
    {"qres null last",
     [](Bufs& b) {
         return kpliTransformQuantResidual_H264_16s_C1I(b.coef, 0, b.count, 1, b.scan16, nullptr);
     },
     kplStsNullPtrErr},
    {"qres qp 52",
     [](Bufs& b) {
         return kpliTransformQuantResidual_H264_16s_C1I(b.coef, 52, b.count, 0, b.scan16, b.last);
     },
     kplStsOutOfRangeErr},
    {"qres qp -1",
     [](Bufs& b) {
         return kpliTransformQuantResidual_H264_16s_C1I(b.coef, -1, b.count, 0, b.scan16, b.last);
     },
     kplStsOutOfRangeErr},
    // CAVLC: pointers, then last index above 15 or below the first.
    {"cavlc null src",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(nullptr, 0, b.scan32, 16, b.t1, b.signs, b.n, b.total,
                                               b.levels, b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc null scan",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, nullptr, 15, b.t1, b.signs, b.n, b.total, b.levels,
                                               b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc null t1",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, b.scan32, 15, nullptr, b.signs, b.n, b.total,
                                               b.levels, b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc null signs",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, b.scan32, 15, b.t1, nullptr, b.n, b.total, b.levels,
                                               b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc null n",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, b.scan32, 15, b.t1, b.signs, nullptr, b.total,
                                               b.levels, b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc null total",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, b.scan32, 15, b.t1, b.signs, b.n, nullptr, b.levels,
                                               b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc null levels",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, b.scan32, 15, b.t1, b.signs, b.n, b.total, nullptr,
                                               b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc null runs",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, b.scan32, 15, b.t1, b.signs, b.n, b.total, b.levels,
                                               nullptr);
     },
     kplStsNullPtrErr},
    {"cavlc last 16",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 0, b.scan32, 16, b.t1, b.signs, b.n, b.total, b.levels,
                                               b.runs);
     },
     kplStsOutOfRangeErr},
    {"cavlc last < first",
     [](Bufs& b) {
         return kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 5, b.scan32, 4, b.t1, b.signs, b.n, b.total, b.levels,
                                               b.runs);
     },
     kplStsOutOfRangeErr},
    {"cavlc dc null src",
     [](Bufs& b) {
         return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(nullptr, b.t1, b.signs, b.n, b.total, b.levels,
                                                       b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc dc null t1",
     [](Bufs& b) {
         return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(b.coef, nullptr, b.signs, b.n, b.total, b.levels,
                                                       b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc dc null signs",
     [](Bufs& b) {
         return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(b.coef, b.t1, nullptr, b.n, b.total, b.levels, b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc dc null n",
     [](Bufs& b) {
         return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(b.coef, b.t1, b.signs, nullptr, b.total, b.levels,
                                                       b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc dc null total",
     [](Bufs& b) {
         return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(b.coef, b.t1, b.signs, b.n, nullptr, b.levels, b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc dc null levels",
     [](Bufs& b) {
         return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(b.coef, b.t1, b.signs, b.n, b.total, nullptr, b.runs);
     },
     kplStsNullPtrErr},
    {"cavlc dc null runs",
     [](Bufs& b) {
         return kpliEncodeChromaDcCoeffsCAVLC_H264_16s(b.coef, b.t1, b.signs, b.n, b.total, b.levels,
                                                       nullptr);
     },
     kplStsNullPtrErr},
};

TEST(H264XformArgs, FirstFailingCheckAndNothingWritten) {
    const Bufs pristine;
    for (const ArgCase& c : kCases) {
        Bufs b;
        EXPECT_EQ(c.call(b), c.want) << c.name;
        EXPECT_EQ(std::memcmp(&b, &pristine, sizeof b), 0) << c.name << ": an output was touched";
    }
}

// The same calls with the failing argument repaired succeed, so each case
// above fails for the reason it names and not for another one.
TEST(H264XformArgs, RepairedCallsSucceed) {
    Bufs b;
    EXPECT_EQ(kpliTransformDequantLumaDC_H264_16s_C1I(b.coef, 51), kplStsNoErr);
    EXPECT_EQ(kpliTransformDequantChromaDC_H264_16s_C1I(b.coef, 0), kplStsNoErr);
    EXPECT_EQ(kpliDequantTransformResidual_H264_16s_C1I(b.coef, 8, b.dc, 1, 51), kplStsNoErr);
    EXPECT_EQ(kpliDequantTransformResidualAndAdd_H264_16s_C1I(b.pred8, nullptr, b.dc, b.dst, -4, 1, 51, 1),
              kplStsNoErr);
    EXPECT_EQ(kpliTransformPrediction_H264_8u16s_C1(b.pred8, -1, b.coef), kplStsNoErr);
    EXPECT_EQ(
        kpliDequantTransformResidual_SISP_H264_16s_C1I(b.coef, b.pred16, nullptr, 1, INT_MIN, INT_MAX, 0),
        kplStsNoErr);
    EXPECT_EQ(kpliTransformDequantChromaDC_SISP_H264_16s_C1I(b.coef, b.pred16, INT_MAX, INT_MIN, 1),
              kplStsNoErr);
    std::memset(b.coef, 0, sizeof b.coef);
    EXPECT_EQ(kpliTransformQuantChromaDC_H264_16s_C1I(b.coef, b.tblock, 39, b.count, 1, 1), kplStsNoErr);
    EXPECT_EQ(kpliTransformQuantLumaDC_H264_16s_C1I(b.coef, b.tblock, 51, b.count, 1, b.scan16, b.last),
              kplStsNoErr);
    EXPECT_EQ(kpliTransformQuantResidual_H264_16s_C1I(b.coef, 51, b.count, 0, b.scan16, b.last), kplStsNoErr);
    EXPECT_EQ(
        kpliEncodeCoeffsCAVLC_H264_16s(b.coef, 4, b.scan32, 4, b.t1, b.signs, b.n, b.total, b.levels, b.runs),
        kplStsNoErr);
    EXPECT_EQ(kpliEncodeChromaDcCoeffsCAVLC_H264_16s(b.coef, b.t1, b.signs, b.n, b.total, b.levels, b.runs),
              kplStsNoErr);
}

}  // namespace
