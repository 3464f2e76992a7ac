// MPEG-4 binary shape at a reduced resolution (ISO/IEC 14496-2 7.5.4): a BAB
// coded with conv_ratio 2 or 4 is an 8x8 or 4x4 block that the decoder
// up-samples back to 16x16 with an adaptive interpolation filter; its border
// is down-sampled for the CAE contexts and the filter. Also the predictor of
// shape vectors (7.5.3.x).
#include <cstring>

#include "kplvc.h"

namespace kplvc::mpeg4 {

namespace {

// The threshold of the interpolation filter for each context of the eight
// outer samples of its neighbourhood (ISO/IEC 14496-2 7.5.4, the filter's
// threshold table).
constexpr uint8_t kUpThreshold[256] = {
    3, 6,  6, 7,  4,  7,  7,  8,  6,  7,  5,  8,  7,  8,  8,  9,  6,  5,  5,  8,  5,  6,  8,  9,  7, 6,
    8, 9,  8, 7,  9,  10, 6,  7,  7,  8,  7,  8,  8,  9,  7,  10, 8,  9,  8,  9,  9,  10, 7,  8,  6, 9,
    6, 9,  9, 10, 8,  9,  9,  10, 11, 10, 10, 11, 6,  9,  5,  8,  5,  6,  8,  9,  7,  10, 10, 9,  8, 7,
    9, 10, 7, 6,  8,  9,  8,  7,  7,  10, 8,  9,  9,  10, 9,  8,  10, 9,  7,  8,  8,  9,  6,  9,  9, 10,
    8, 9,  9, 10, 9,  10, 10, 9,  8,  9,  11, 10, 7,  10, 10, 11, 9,  12, 10, 11, 10, 11, 11, 12, 5, 6,
    6, 7,  6, 7,  7,  8,  6,  7,  7,  8,  7,  8,  8,  9,  6,  7,  7,  8,  7,  8,  8,  9,  7,  8,  8, 9,
    8, 9,  9, 10, 6,  7,  7,  8,  7,  8,  8,  9,  7,  8,  8,  9,  8,  9,  9,  10, 7,  8,  8,  9,  8, 9,
    9, 10, 8, 9,  9,  10, 9,  10, 10, 11, 6,  7,  7,  8,  7,  8,  8,  9,  7,  8,  8,  9,  8,  9,  9, 10,
    7, 8,  8, 9,  8,  9,  9,  10, 8,  9,  9,  10, 9,  10, 10, 11, 7,  8,  8,  9,  8,  9,  9,  10, 8, 9,
    9, 10, 9, 10, 10, 11, 8,  9,  9,  10, 9,  10, 10, 11, 9,  10, 10, 11, 10, 11, 11, 12,
};

// A block with a two-sample border as 0/1 bytes; (x, y), -2 <= x, y < 18.
constexpr int kS = 20;
struct Grid {
    uint8_t px[kS * kS];
    uint8_t& at(int x, int y) { return px[(y + 2) * kS + x + 2]; }
    uint8_t at(int x, int y) const { return px[(y + 2) * kS + x + 2]; }
};

// The border of a 16x16 BAB (top-left sample at p) down-sampled by cr into
// g around a (16 / cr)-sample block: the two rows above keep their depth,
// each of their samples over the BAB is on when any of the cr samples it
// stands for is, and the two samples each side (the above-left and
// above-right corners) are taken as they are; the two columns on the left
// likewise down each column.
void border_down(Grid& g, const uint8_t* p, int32_t step, int cr) {
    const int s = 16 / cr;
    auto get = [p, step](int x, int y) -> uint8_t { return p[y * step + x] != 0 ? 1 : 0; };
    for (int y = -2; y < 0; ++y) {
        for (int x = -2; x < 0; ++x) g.at(x, y) = get(x, y);
        for (int x = 0; x < s; ++x) {
            uint8_t v = 0;
            for (int k = 0; k < cr; ++k) v |= get(cr * x + k, y);
            g.at(x, y) = v;
        }
        for (int x = 0; x < 2; ++x) g.at(s + x, y) = get(16 + x, y);
    }
    for (int x = -2; x < 0; ++x)
        for (int y = 0; y < s; ++y) {
            uint8_t v = 0;
            for (int k = 0; k < cr; ++k) v |= get(x, cr * y + k);
            g.at(x, y) = v;
        }
}

// Completes the border right of and below an s x s block: the samples not
// decoded yet repeat the block's last column (rows 0..s-1), then its last row
// (with the left border's last row).
void extend_right_below(Grid& g, int s) {
    for (int y = 0; y < s; ++y) g.at(s, y) = g.at(s + 1, y) = g.at(s - 1, y);
    for (int x = -2; x < s + 2; ++x) g.at(x, s) = g.at(x, s + 1) = g.at(x, s - 1);
}

// One doubling of an s x s block with its border in g into the 2s x 2s
// block out (0/1, row step 16). Each output sample lies in the square of
// four input samples around it: A the nearest, B beside it horizontally, C
// vertically, D diagonally; the eight samples around that square (the 4x4
// neighbourhood without its corners), taken around the square from the one
// above A towards B (clockwise when B is right of A and C below), form the
// context. The sample is on when
// 4A + 2(B + C + D) + (the eight) exceeds the context's threshold. The four
// positions in a square mirror each other, so the same table serves all.
void double_once(const Grid& g, int s, uint8_t* out) {
    for (int y = 0; y < 2 * s; ++y)
        for (int x = 0; x < 2 * s; ++x) {
            const int nx = x >> 1, ny = y >> 1;
            const int dx = (x & 1) ? 1 : -1, dy = (y & 1) ? 1 : -1;
            auto v = [&](int u, int w) -> int { return g.at(nx + u * dx, ny + w * dy); };
            const int a = v(0, 0), b = v(1, 0), c = v(0, 1), d = v(1, 1);
            const int ring[8] = {v(0, -1), v(1, -1), v(2, 0), v(2, 1), v(1, 2), v(0, 2), v(-1, 1), v(-1, 0)};
            int ctx = 0, sum = 4 * a + 2 * (b + c + d);
            for (int k = 0; k < 8; ++k) {
                ctx |= ring[k] << k;
                sum += ring[k];
            }
            out[y * 16 + x] = sum > kUpThreshold[ctx] ? 1 : 0;
        }
}

bool bad_ratio(Kpl32s cr) { return cr != 2 && cr != 4; }

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliDownsampleAlpha_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                     Kpl32s dstStep, KpliSize dstRoi, Kpl32s convRatio) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (bad_ratio(convRatio)) return kplStsShapeArgErr;
    if (dstRoi.width < 1 || dstRoi.height < 1) return kplStsSizeErr;
    if (srcStep < dstRoi.width * convRatio || dstStep < dstRoi.width) return kplStsStepErr;
    // A sample is on when at least half of the cr x cr samples it stands
    // for are (2 of 4, 8 of 16).
    const int need = convRatio * convRatio;
    for (int y = 0; y < dstRoi.height; ++y)
        for (int x = 0; x < dstRoi.width; ++x) {
            int n = 0;
            for (int j = 0; j < convRatio; ++j)
                for (int i = 0; i < convRatio; ++i)
                    n += pSrc[(y * convRatio + j) * srcStep + x * convRatio + i] != 0 ? 1 : 0;
            pDst[y * dstStep + x] = 2 * n >= need ? 255 : 0;
        }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDownsampleBABBorder_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                         Kpl32s dstStep, Kpl32s convRatio) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (bad_ratio(convRatio)) return kplStsShapeArgErr;
    if (srcStep < 16 || dstStep < 16 / convRatio) return kplStsStepErr;
    Grid g;
    border_down(g, pSrc, srcStep, convRatio);
    const int s = 16 / convRatio;
    for (int y = -2; y < 0; ++y)
        for (int x = -2; x < s + 2; ++x) pDst[y * dstStep + x] = g.at(x, y) ? 255 : 0;
    for (int y = 0; y < s; ++y)
        for (int x = -2; x < 0; ++x) pDst[y * dstStep + x] = g.at(x, y) ? 255 : 0;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliUpsampleBAB_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                 Kpl32s dstStep, Kpl32s convRatio) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (bad_ratio(convRatio)) return kplStsShapeArgErr;
    if (srcStep < 16 / convRatio || dstStep < 16) return kplStsStepErr;
    int s = 16 / convRatio;
    Grid g;
    uint8_t out[16 * 16];
    border_down(g, pDst, dstStep, convRatio);
    for (int y = 0; y < s; ++y)
        for (int x = 0; x < s; ++x) g.at(x, y) = pSrc[y * srcStep + x] != 0 ? 1 : 0;
    for (int cr = convRatio; cr > 1; cr /= 2, s *= 2) {
        extend_right_below(g, s);
        double_once(g, s, out);
        if (cr > 2) {
            // The next doubling reads the border at the next resolution.
            border_down(g, pDst, dstStep, cr / 2);
            for (int y = 0; y < 2 * s; ++y)
                for (int x = 0; x < 2 * s; ++x) g.at(x, y) = out[y * 16 + x];
        }
    }
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) pDst[y * dstStep + x] = out[y * 16 + x] ? 255 : 0;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPredictShapeMV_MPEG4(const KplMotionVector* pShapeMV,
                                             const KplMotionVector* pTextureMV, Kpl32s valid,
                                             KplMotionVector* pPred) {
    if (pShapeMV == nullptr || pTextureMV == nullptr || pPred == nullptr) return kplStsNullPtrErr;
    if (valid < 0 || valid > 63) return kplStsBadArgErr;
    KplMotionVector p = {0, 0};
    for (int k = 0; k < 6; ++k) {
        if (((valid >> k) & 1) == 0) continue;
        if (k < 3) {
            p = pShapeMV[k];
        } else {
            // Half-sample texture vectors to whole samples, toward zero.
            const KplMotionVector& t = pTextureMV[k - 3];
            p = {static_cast<Kpl16s>(t.dx / 2), static_cast<Kpl16s>(t.dy / 2)};
        }
        break;
    }
    *pPred = p;
    return kplStsNoErr;
}

}  // extern "C"
