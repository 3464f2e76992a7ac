// CAVLC symbol analysis of one block of quantised levels: trailing ones and
// their signs, the remaining levels, the zero runs and the total of zeros,
// found by walking the block from the highest scan position down. No bits are
// written; the caller maps these values to codes.
#include "kplvc.h"

namespace {

struct CavlcOut {
    Kpl8u* trailing_ones;
    Kpl8u* trailing_signs;
    Kpl8u* num_coeffs;
    Kpl8u* total_zeros;
    Kpl16s* levels;
    Kpl8u* runs;
};

// Walks `count` levels given by level_at(i) for i = count-1 down to 0.
template <class LevelAt>
void analyse(int32_t count, LevelAt level_at, const CavlcOut& out) {
    int32_t n = 0, t1 = 0, run = 0, total = 0;
    uint32_t signs = 0;
    bool trailing = true;
    for (int32_t i = count - 1; i >= 0; --i) {
        const int16_t c = level_at(i);
        if (c == 0) {
            ++run;
            continue;
        }
        if (trailing && (c == 1 || c == -1)) {
            ++t1;
            signs = ((signs << 1) | (c == -1 ? 1u : 0u)) & 0xFFu;
            trailing = t1 < 3;
        } else {
            out.levels[n - t1] = c;
            trailing = false;
        }
        // Zeros above the highest non-zero level are dropped here: run is
        // only recorded once a level has been seen.
        if (n > 0) {
            out.runs[n - 1] = static_cast<Kpl8u>(run);
            total += run;
        }
        run = 0;
        ++n;
    }
    *out.trailing_ones = static_cast<Kpl8u>(t1);
    *out.trailing_signs = static_cast<Kpl8u>(signs);
    *out.num_coeffs = static_cast<Kpl8u>(n);
    *out.total_zeros = static_cast<Kpl8u>(total + run);
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliEncodeCoeffsCAVLC_H264_16s(const Kpl16s* pSrc, Kpl8u AC, const Kpl32s* pScanMatrix,
                                                   Kpl8u Count, Kpl8u* Trailing_Ones,
                                                   Kpl8u* Trailing_One_Signs, Kpl8u* NumOutCoeffs,
                                                   Kpl8u* TotalZeros, Kpl16s* Levels, Kpl8u* Runs) {
    if (pSrc == nullptr || Trailing_Ones == nullptr || Trailing_One_Signs == nullptr ||
        NumOutCoeffs == nullptr || TotalZeros == nullptr || Levels == nullptr || Runs == nullptr ||
        pScanMatrix == nullptr)
        return kplStsNullPtrErr;
    if (Count > 15 || Count < AC) return kplStsOutOfRangeErr;
    const CavlcOut out{Trailing_Ones, Trailing_One_Signs, NumOutCoeffs, TotalZeros, Levels, Runs};
    // Scan indices first..last map to i = 0..last-first of the walk.
    analyse(
        int32_t{Count} - AC + 1, [&](int32_t i) { return pSrc[pScanMatrix[AC + i]]; }, out);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliEncodeChromaDcCoeffsCAVLC_H264_16s(const Kpl16s* pSrc, Kpl8u* Trailing_Ones,
                                                           Kpl8u* Trailing_One_Signs, Kpl8u* NumOutCoeffs,
                                                           Kpl8u* TotalZeros, Kpl16s* Levels, Kpl8u* Runs) {
    if (pSrc == nullptr || Trailing_Ones == nullptr || Trailing_One_Signs == nullptr ||
        NumOutCoeffs == nullptr || TotalZeros == nullptr || Levels == nullptr || Runs == nullptr)
        return kplStsNullPtrErr;
    const CavlcOut out{Trailing_Ones, Trailing_One_Signs, NumOutCoeffs, TotalZeros, Levels, Runs};
    analyse(
        4, [&](int32_t i) { return pSrc[i]; }, out);
    return kplStsNoErr;
}

}  // extern "C"
