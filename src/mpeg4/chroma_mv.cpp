// MPEG-4 chroma motion vectors and the limiting of a vector to the reference
// rectangle. Scalar only: a few operations per macroblock.
#include <cstdint>

#include "core/arith.h"
#include "kplvc.h"

namespace kplvc::mpeg4 {

// Sixteenth-sample rounding of the summed luma vectors, by the remainder of
// the summed magnitude: four, three, two and one contributing vectors.
constexpr int32_t ownmp_cCbCrMvRound16[16] = {0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2};
constexpr int32_t ownmp_cCbCrMvRound12[12] = {0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 2, 2};
constexpr int32_t ownmp_cCbCrMvRound8[8] = {0, 0, 1, 1, 1, 1, 1, 2};
constexpr int32_t ownmp_cCbCrMvRound4[4] = {0, 1, 1, 1};

namespace {

// One luma component to chroma: m = |v|; r = (m >> 1) with its lowest bit
// set when m is not a multiple of 4; the sign of v. m <= 32768, so r <= 16384.
int16_t chroma_one(int16_t v) {
    const int32_t m = v < 0 ? -int32_t{v} : int32_t{v};
    const int32_t r = (m >> 1) | ((m & 3) != 0 ? 1 : 0);
    return wrap16(v < 0 ? -r : r);
}

// A sum of n/4 luma components (n = 16, 12, 8, 4; n = 0 has sum 0 and takes
// the n = 4 form). |s| <= 4·32768, and the magnitude stays below 2^15.
int16_t chroma_sum(int32_t s, int32_t n) {
    const int32_t a = s < 0 ? -s : s;
    int32_t r;
    switch (n) {
        case 16:
            r = (a >> 4) * 2 + ownmp_cCbCrMvRound16[a & 15];
            break;
        case 12:
            r = (a / 12) * 2 + ownmp_cCbCrMvRound12[a % 12];
            break;
        case 8:
            r = (a >> 3) * 2 + ownmp_cCbCrMvRound8[a & 7];
            break;
        default:
            r = (a >> 2) * 2 + ownmp_cCbCrMvRound4[a & 3];
            break;
    }
    return wrap16(s < 0 ? -r : r);
}

// One component of the limited vector, in half samples. Exact 64-bit sums of
// 32-bit positions (nothing overflows), stored as their low 16 bits.
int16_t limit_one(int16_t d, int32_t pos, int32_t origin, int32_t extent, int32_t size) {
    const int64_t p = int64_t{d} + 2 * int64_t{pos};
    const int64_t far = int64_t{origin} + extent - size;  // last start inside the rectangle
    int64_t out = d;
    if (p < 2 * int64_t{origin})
        out = 2 * (int64_t{origin} - pos);
    else if (p >= 2 * far)
        out = 2 * (far - pos);
    return static_cast<int16_t>(out);
}

}  // namespace

}  // namespace kplvc::mpeg4

extern "C" {

KPLVC_API KplStatus kpliComputeChromaMV_MPEG4(const KplMotionVector* pLumaMV, KplMotionVector* pChromaMV) {
    if (pLumaMV == nullptr || pChromaMV == nullptr) return kplStsNullPtrErr;
    const KplMotionVector out = {kplvc::mpeg4::chroma_one(pLumaMV->dx),
                                 kplvc::mpeg4::chroma_one(pLumaMV->dy)};
    *pChromaMV = out;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliComputeChroma4MV_MPEG4(const KplMotionVector* pLumaMV, KplMotionVector* pChromaMV,
                                               const Kpl8u* pTransparent) {
    if (pLumaMV == nullptr || pChromaMV == nullptr || pTransparent == nullptr) return kplStsNullPtrErr;
    int32_t sx = 0, sy = 0, n = 0;
    for (int b = 0; b < 4; ++b) {
        if (pTransparent[b] == 0) continue;
        sx += pLumaMV[b].dx;
        sy += pLumaMV[b].dy;
        n += 4;
    }
    const KplMotionVector out = {kplvc::mpeg4::chroma_sum(sx, n), kplvc::mpeg4::chroma_sum(sy, n)};
    *pChromaMV = out;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliLimitMVToRect_MPEG4(const KplMotionVector* pSrcMV, KplMotionVector* pDstMV,
                                            const KpliRect* pRectVOPRef, Kpl32s Xcoord, Kpl32s Ycoord,
                                            Kpl32s size) {
    if (pSrcMV == nullptr || pDstMV == nullptr || pRectVOPRef == nullptr) return kplStsNullPtrErr;
    if (size != 8 && size != 16) return kplStsBlockSizeErr;
    if (pRectVOPRef->width < 2 * size || pRectVOPRef->height < 2 * size) return kplStsSizeErr;
    const KpliRect r = *pRectVOPRef;
    const KplMotionVector out = {kplvc::mpeg4::limit_one(pSrcMV->dx, Xcoord, r.x, r.width, size),
                                 kplvc::mpeg4::limit_one(pSrcMV->dy, Ycoord, r.y, r.height, size)};
    *pDstMV = out;
    return kplStsNoErr;
}

}  // extern "C"
