// H.263 whole-sample and half-sample block copies (rounding type 0).
//
// The whole-sample copies are the block-copy kernels; the half-sample ones
// are the motion-compensation family's predictions without a residual at
// rounding control 0, whose averages (a + b + 1) >> 1 and
// (a + b + c + d + 2) >> 2 are H.263's. Note the codes: a small step is -81 for the whole-sample
// macroblock copy but -82 for the half-sample macroblock copies.
#include "block/copy.h"
#include "kplvc.h"
#include "mc/mc.h"

namespace {

using kplvc::mc::CopySize;
using kplvc::mc::Pos;

KplStatus approx(const Kpl8u* pSrc, Kpl8u* pDst, int step, CopySize size, Pos pos, int min_step) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (step < min_step) return kplStsBlockStepErr;
    kplvc::mc::mc_kernels().copy[size][pos](pSrc, step, pDst, step);
    return kplStsNoErr;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliCopyMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (step < 16) return kplStsMBStepErr;
    kplvc::block::blockcopy_kernels().copy16x16(pSrc, step, pDst, step);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliCopyBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    kplvc::block::blockcopy_kernels().copy8x8(pSrc, step, pDst, step);
    return kplStsNoErr;
}

// Horizontal half-sample: half horizontally, full vertically (HF).
KPLVC_API KplStatus kpliCopyApproxHMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    return approx(pSrc, pDst, step, kplvc::mc::c16x16, kplvc::mc::hf, 16);
}
KPLVC_API KplStatus kpliCopyApproxHBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    return approx(pSrc, pDst, step, kplvc::mc::c8x8, kplvc::mc::hf, 8);
}
// Vertical half-sample: full horizontally, half vertically (FH).
KPLVC_API KplStatus kpliCopyApproxVMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    return approx(pSrc, pDst, step, kplvc::mc::c16x16, kplvc::mc::fh, 16);
}
KPLVC_API KplStatus kpliCopyApproxVBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    return approx(pSrc, pDst, step, kplvc::mc::c8x8, kplvc::mc::fh, 8);
}
KPLVC_API KplStatus kpliCopyApproxHVMB_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    return approx(pSrc, pDst, step, kplvc::mc::c16x16, kplvc::mc::hh, 16);
}
KPLVC_API KplStatus kpliCopyApproxHVBlock_H263_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step) {
    return approx(pSrc, pDst, step, kplvc::mc::c8x8, kplvc::mc::hh, 8);
}

}  // extern "C"
