// Variances and means of blocks and of prediction errors, and the mean
// absolute deviation: scalar reference kernels and the exported entry points.
#include <cstdlib>

#include "block/metrics_table.h"
#include "core/arith.h"
#include "kplvc.h"

namespace kplvc::block {

namespace {

// S <= 256 * 255 = 65280, Q <= 256 * 255^2 = 16 646 400. S * S exceeds
// int32 for S > 46340 and is taken modulo 2^32 as a signed value; the signed
// quotient by 256 truncates toward zero. |wrap(S*S) / 256| < 2^23 and
// Q < 2^24, so the final difference fits.
int32_t variance16x16_c(const uint8_t* src, int32_t ss) {
    int32_t s = 0, q = 0;
    for (int y = 0; y < 16; ++y) {
        const uint8_t* p = row_at(src, ss, y);
        for (int x = 0; x < 16; ++x) {
            s += p[x];
            q += p[x] * p[x];
        }
    }
    return q - mul32w(s, s) / 256;
}

// S <= 16320, Q <= 4 161 600: 64 Q and S^2 both stay below 2^28. The
// variance Q/64 - (S/64)^2 is formed exactly as (64 Q - S^2) / 4096, which
// is never negative (Cauchy-Schwarz), so truncation is plain division.
void varmean8x8_8u_c(const uint8_t* src, int32_t ss, int32_t* var, int32_t* mean) {
    int32_t s = 0, q = 0;
    for (int y = 0; y < 8; ++y) {
        const uint8_t* p = row_at(src, ss, y);
        for (int x = 0; x < 8; ++x) {
            s += p[x];
            q += p[x] * p[x];
        }
    }
    *var = static_cast<int32_t>((int64_t{64} * q - int64_t{s} * s) / 4096);
    *mean = s;
}

// Signed samples: |S| <= 64 * 32768 = 2^21 fits; each x^2 <= 2^30 fits but
// their sum does not, so Q is accumulated modulo 2^32 and read as signed.
// The variance (64 Q - S^2) / 4096 is formed in 64 bits (|64 Q| <= 2^37,
// S^2 <= 2^42) and truncated toward zero; the quotient lies within
// -2^30 - 2^25 .. 2^25 and fits int32.
void varmean8x8_16s_c(const int16_t* src, int32_t ss, int32_t* var, int32_t* mean) {
    int32_t s = 0;
    uint32_t q = 0;
    for (int y = 0; y < 8; ++y) {
        const int16_t* p = row_at(src, ss, y);
        for (int x = 0; x < 8; ++x) {
            const int32_t v = load16(p + x);
            s += v;
            q += static_cast<uint32_t>(v * v);
        }
    }
    const int64_t qs = static_cast<int32_t>(q);
    *var = static_cast<int32_t>((64 * qs - int64_t{s} * s) / 4096);
    *mean = s;
}

// The prediction in four-sample form: h, v the half flags of the position,
// k = 2 for any half position (a full position gives 4r >> 2 = r).
template <int P>
inline int32_t err_pred(const uint8_t* r, int32_t rs, int x) {
    constexpr int h = (P >> 1) & 1, v = P & 1, k = P != kFF ? 2 : 0;
    const uint8_t* rv = row_at(r, rs, v);
    return (r[x] + r[x + h] + rv[x] + rv[x + h] + k) >> 2;
}

// Per 8x8 quarter k (raster order): sq = sum d^2 <= 64 * 255^2 < 2^22,
// ps = sum pred <= 16320. mean = (srcSum - ps) / 8 with the caller's sum
// taken in 64 bits so that any Kpl32s value is safe; mean^2 < 2^56.
// var = (sq - mean^2) / 64 when sq > mean^2, else 0; it is then below sq.
template <int H, int P>
void varmeandiff_c(const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs, const int32_t* src_sum,
                   int32_t* var, int32_t* mean) {
    constexpr int n = 2 * (H / 8);
    for (int k = 0; k < n; ++k) {
        const int x0 = 8 * (k & 1), y0 = 8 * (k >> 1);
        int32_t sq = 0, ps = 0;
        for (int y = y0; y < y0 + 8; ++y) {
            const uint8_t* s = row_at(src, ss, y);
            const uint8_t* r = row_at(ref, rs, y);
            for (int x = x0; x < x0 + 8; ++x) {
                const int32_t pred = err_pred<P>(r, rs, x);
                const int32_t d = s[x] - pred;
                sq += d * d;
                ps += pred;
            }
        }
        const int64_t m = (int64_t{src_sum[k]} - ps) / 8;
        const int64_t m2 = m * m;
        mean[k] = static_cast<int32_t>(m);
        var[k] = sq > m2 ? static_cast<int32_t>((sq - m2) / 64) : 0;
    }
}

// m = (S + 128) >> 8 is the rounded mean (S <= 65280); the result is the sum
// of |x - m| (at most 256 * 255), not divided by 256.
int32_t meanabsdev16x16_c(const uint8_t* src, int32_t ss) {
    int32_t s = 0;
    for (int y = 0; y < 16; ++y) {
        const uint8_t* p = row_at(src, ss, y);
        for (int x = 0; x < 16; ++x) s += p[x];
    }
    const int32_t m = (s + 128) >> 8;
    int32_t dev = 0;
    for (int y = 0; y < 16; ++y) {
        const uint8_t* p = row_at(src, ss, y);
        for (int x = 0; x < 16; ++x) dev += std::abs(p[x] - m);
    }
    return dev;
}

}  // namespace

void scalar_var_kernels(MetricsKernels& k) {
    k.variance16x16 = variance16x16_c;
    k.varmean8x8_8u = varmean8x8_8u_c;
    k.varmean8x8_16s = varmean8x8_16s_c;
    k.varmeandiff16x16[kFF] = varmeandiff_c<16, kFF>;
    k.varmeandiff16x16[kFH] = varmeandiff_c<16, kFH>;
    k.varmeandiff16x16[kHF] = varmeandiff_c<16, kHF>;
    k.varmeandiff16x16[kHH] = varmeandiff_c<16, kHH>;
    k.varmeandiff16x8[kFF] = varmeandiff_c<8, kFF>;
    k.varmeandiff16x8[kFH] = varmeandiff_c<8, kFH>;
    k.varmeandiff16x8[kHF] = varmeandiff_c<8, kHF>;
    k.varmeandiff16x8[kHH] = varmeandiff_c<8, kHH>;
    k.meanabsdev16x16 = meanabsdev16x16_c;
}

}  // namespace kplvc::block

using kplvc::block::metrics_table;

extern "C" {

KPLVC_API KplStatus kpliVariance16x16_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, Kpl32s* pVar) {
    if (pSrc == nullptr || pVar == nullptr) return kplStsNullPtrErr;
    *pVar = metrics_table().variance16x16(pSrc, srcStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliVarMean8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl32s* pVar, Kpl32s* pMean) {
    if (pSrc == nullptr || pVar == nullptr || pMean == nullptr) return kplStsNullPtrErr;
    metrics_table().varmean8x8_8u(pSrc, srcStep, pVar, pMean);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliVarMean8x8_16s32s_C1R(const Kpl16s* pSrc, Kpl32s srcStep, Kpl32s* pVar,
                                              Kpl32s* pMean) {
    if (pSrc == nullptr || pVar == nullptr || pMean == nullptr) return kplStsNullPtrErr;
    metrics_table().varmean8x8_16s(pSrc, srcStep, pVar, pMean);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliVarMeanDiff16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                   Kpl32s refStep, const Kpl32s* pSrcSum, Kpl32s* pVar,
                                                   Kpl32s* pMean, Kpl32s mcType) {
    if (pSrc == nullptr || pRef == nullptr || pSrcSum == nullptr || pVar == nullptr || pMean == nullptr)
        return kplStsNullPtrErr;
    metrics_table().varmeandiff16x16[(mcType & 12) >> 2](pSrc, srcStep, pRef, refStep, pSrcSum, pVar, pMean);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliVarMeanDiff16x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const Kpl32s* pSrcSum, Kpl32s* pVar,
                                                  Kpl32s* pMean, Kpl32s mcType) {
    if (pSrc == nullptr || pRef == nullptr || pSrcSum == nullptr || pVar == nullptr || pMean == nullptr)
        return kplStsNullPtrErr;
    metrics_table().varmeandiff16x8[(mcType & 12) >> 2](pSrc, srcStep, pRef, refStep, pSrcSum, pVar, pMean);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliMeanAbsDev16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl32s* pDst) {
    if (pSrc == nullptr) return kplStsNullPtrErr;
    if (pDst == nullptr) return kplStsNoErr;  // not checked: nothing to write to
    *pDst = metrics_table().meanabsdev16x16(pSrc, srcStep);
    return kplStsNoErr;
}

}  // extern "C"
