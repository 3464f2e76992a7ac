// Inverse scans: coefficients in scan order placed at their raster positions.
// The full forms write all 64 positions; the compact forms write only the
// first len positions of the scan and leave the rest of the block as it was.
#include "block/scan.h"

#include "kplvc.h"

using kplvc::block::inverse_scan;

namespace {

KplStatus full(const Kpl16s* pSrc, Kpl16s* pDst, const std::array<int16_t, 64>& scan) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    inverse_scan(pSrc, pDst, scan, 64);
    return kplStsNoErr;
}

KplStatus compact(const Kpl16s* pSrc, Kpl32s len, Kpl16s* pDst, const std::array<int16_t, 64>& scan) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (len < 1 || len > 64) return kplStsCoefCountErr;
    inverse_scan(pSrc, pDst, scan, len);
    return kplStsNoErr;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliZigzagInv_Horizontal_16s(const Kpl16s* pSrc, Kpl16s* pDst) {
    return full(pSrc, pDst, kplvc::block::ownZigZagH);
}

KPLVC_API KplStatus kpliZigzagInv_Vertical_16s(const Kpl16s* pSrc, Kpl16s* pDst) {
    return full(pSrc, pDst, kplvc::block::ownZigZagV);
}

KPLVC_API KplStatus kpliZigzagInvClassical_Compact_16s(const Kpl16s* pSrc, Kpl32s len, Kpl16s* pDst) {
    return compact(pSrc, len, pDst, kplvc::block::ownZigZagC);
}

KPLVC_API KplStatus kpliZigzagInvHorizontal_Compact_16s(const Kpl16s* pSrc, Kpl32s len, Kpl16s* pDst) {
    return compact(pSrc, len, pDst, kplvc::block::ownZigZagH);
}

KPLVC_API KplStatus kpliZigzagInvVertical_Compact_16s(const Kpl16s* pSrc, Kpl32s len, Kpl16s* pDst) {
    return compact(pSrc, len, pDst, kplvc::block::ownZigZagV);
}

}  // extern "C"
