// Block copies and the zero-residual 8x8 motion compensation, plus the
// kernel table of the copy/difference family.
#include "block/copy.h"

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::block {

namespace {

template <int N>
void copy_c(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    for (int y = 0; y < N; ++y) {
        const uint8_t* s = row_at(src, src_step, y);
        uint8_t* d = row_at(dst, dst_step, y);
        for (int x = 0; x < N; ++x) d[x] = s[x];
    }
}

// A zero residual for the 8x8 motion compensation: 8 rows of 8 Kpl16s, rows
// 16 bytes apart.
constexpr int16_t kZeroResidual[64] = {};

void install_scalar(BlockCopyKernels& k) {
    k.copy8x8 = copy_c<8>;
    k.copy16x16 = copy_c<16>;
    install_scalar_diff(k);
}

constexpr Upgrade<BlockCopyKernels> kCascade[] = {
    {cpu::Isa::c, install_scalar},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_blockcopy},
                       {cpu::Isa::avx2, x86::avx2::upgrade_blockcopy})};

}  // namespace

BlockCopyKernels blockcopy_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

namespace {
KPLVC_INLINE KplStatus mc_block(const Kpl8u* src, Kpl32s src_step, Kpl8u* dst, Kpl32s dst_step,
                                Kpl32s pred_type, Kpl32s rc) {
    const Kpl32s mc_type = pred_type == 0   ? KPLVC_MC_APX_FF
                           : pred_type == 1 ? KPLVC_MC_APX_FH
                           : pred_type == 2 ? KPLVC_MC_APX_HF
                                            : KPLVC_MC_APX_HH;
    return kpliMC8x8_8u_C1(src, src_step, kZeroResidual, 16, dst, dst_step, mc_type, rc);
}
}  // namespace

}  // namespace kplvc::block

using kplvc::block::blockcopy_kernels;

extern "C" {

KPLVC_API KplStatus kpliCopyBlock_8x8_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (srcStep < 8 || dstStep < 8) return kplStsStep8x8Err;
    blockcopy_kernels().copy8x8(pSrc, srcStep, pDst, dstStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliCopyBlock_16x16_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (srcStep < 16 || dstStep < 16) return kplStsStep16x16Err;
    blockcopy_kernels().copy16x16(pSrc, srcStep, pDst, dstStep);
    return kplStsNoErr;
}

// RoundOff passes rc 0, so half-sample averages add the rounding term; RoundOn
// passes rc 1 and truncates.
KPLVC_API KplStatus kpliMCBlock_RoundOff_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep,
                                            Kpl32s predType) {
    return kplvc::block::mc_block(pSrc, srcStep, pDst, dstStep, predType, 0);
}

KPLVC_API KplStatus kpliMCBlock_RoundOn_8u(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst, Kpl32s dstStep,
                                           Kpl32s predType) {
    return kplvc::block::mc_block(pSrc, srcStep, pDst, dstStep, predType, 1);
}

}  // extern "C"
