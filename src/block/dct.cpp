// 8x8 transform family: kernel table and the exported entry points (argument
// checks, count paths of the matrix engine).
#include "block/dct.h"

#include "block/dct_ref.h"
#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::block {

namespace {

constexpr DctKernels kScalar = {
    ref::inv,        ref::inv_4x4,   ref::inv_2x2,    ref::inv_u8,    ref::fwd,
    ref::fwd_u8,     ref::aan,       ref::aan_corner, ref::put_16s,   ref::put_u8,
    ref::put_16s_p2, ref::put_u8_p2, ref::field_fwd,  ref::field_inv,
};

// One upgrade per engine and ISA file.
constexpr Upgrade<DctKernels> kCascade[] = {
    {cpu::Isa::c, [](DctKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES(
        {cpu::Isa::sse2, x86::sse2::upgrade_dct_table}, {cpu::Isa::sse2, x86::sse2::upgrade_dct_aan},
        {cpu::Isa::sse2, x86::sse2::upgrade_dct_field}, {cpu::Isa::avx2, x86::avx2::upgrade_dct_table},
        {cpu::Isa::avx2, x86::avx2::upgrade_dct_aan}, {cpu::Isa::avx2, x86::avx2::upgrade_dct_field})};

}  // namespace

DctKernels dct_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const DctKernels& dct_kernels() { return active_table<DctKernels, dct_kernels_for>(); }

namespace {

// The matrix engine's count paths: 0 writes zeros without reading the
// source, 1 spreads dc / 8 (toward zero), 2..8 reads the 4x4 corner, and any
// other value (compared unsigned, so negative counts too) runs the full path.
void aan_block(const DctKernels& k, const int16_t* src, Kpl32s count, int16_t* v) {
    const uint32_t n = static_cast<uint32_t>(count);
    if (n == 0)
        ref::aan_fill(0, v);
    else if (n == 1)
        ref::aan_fill(ref::aan_dc_value(src[0]), v);
    else if (n <= 8)
        k.aan_corner(src, v);
    else
        k.aan(src, v);
}

// Counts 0 and 1 of the single-block forms: every sample gets one value, so
// the rows are filled directly (8 or 16 bytes each, in increasing order).
bool aan_fill_u8(const int16_t* src, Kpl32s count, uint8_t* dst, int32_t step) {
    const uint32_t n = static_cast<uint32_t>(count);
    if (n > 1) return false;
    const uint8_t v = n == 0 ? 0 : clip_u8(ref::aan_dc_value(src[0]));
    const uint64_t pattern = uint64_t{v} * 0x0101010101010101u;
    for (int i = 0; i < 8; ++i) __builtin_memcpy(dst + static_cast<intptr_t>(i) * step, &pattern, 8);
    return true;
}

bool aan_fill_16s(const int16_t* src, Kpl32s count, int16_t* dst, int32_t step) {
    const uint32_t n = static_cast<uint32_t>(count);
    if (n > 1) return false;
    const int16_t v = n == 0 ? int16_t{0} : ref::aan_dc_value(src[0]);
    const uint64_t pattern = uint64_t{static_cast<uint16_t>(v)} * 0x0001000100010001u;
    for (int i = 0; i < 8; ++i) {
        uint8_t* row = reinterpret_cast<uint8_t*>(dst) + static_cast<intptr_t>(i) * step;
        __builtin_memcpy(row, &pattern, 8);
        __builtin_memcpy(row + 8, &pattern, 8);
    }
    return true;
}

// The transform paths of the single-block forms, kept out of line so that the
// fill paths above need no stack frame.
__attribute__((noinline)) void aan_transform_u8(const int16_t* src, Kpl32s count, uint8_t* dst,
                                                int32_t step) {
    const auto& k = dct_kernels();
    int16_t v[64];
    aan_block(k, src, count, v);
    k.put_u8(v, dst, step);
}

__attribute__((noinline)) void aan_transform_16s(const int16_t* src, Kpl32s count, int16_t* dst,
                                                 int32_t step) {
    const auto& k = dct_kernels();
    int16_t v[64];
    aan_block(k, src, count, v);
    k.put_16s(v, dst, step);
}

}  // namespace

void dct8x8_inv_aan_16s(const int16_t* src, int16_t* dst, int32_t step, int32_t count) {
    if (!aan_fill_16s(src, count, dst, step)) aan_transform_16s(src, count, dst, step);
}

void dct8x8_inv_aan_u8(const int16_t* src, uint8_t* dst, int32_t step, int32_t count) {
    if (!aan_fill_u8(src, count, dst, step)) aan_transform_u8(src, count, dst, step);
}

}  // namespace kplvc::block

using kplvc::block::dct_kernels;

extern "C" {

KPLVC_API KplStatus kpliDCT8x8Inv_16s_C1I(Kpl16s* pSrcDst) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    dct_kernels().inv(pSrcDst, pSrcDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_16s_C1(const Kpl16s* pSrc, Kpl16s* pDst) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    dct_kernels().inv(pSrc, pDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_4x4_16s_C1I(Kpl16s* pSrcDst) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    dct_kernels().inv_4x4(pSrcDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_2x2_16s_C1I(Kpl16s* pSrcDst) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    dct_kernels().inv_2x2(pSrcDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_16s8u_C1R(const Kpl16s* pSrc, Kpl8u* pDst, Kpl32s dstStep) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (dstStep < 1) return kplStsStepErr;
    dct_kernels().inv_u8(pSrc, pDst, dstStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCTInv_8x8_16s8u(const Kpl16s* pSrc, Kpl8u* pDst, Kpl32s dstStep) {
    if (pDst == nullptr) return kplStsNullPtrErr;
    if (dstStep < 8) return kplStsBlockStepErr;
    // The full 16-bit inverse into a local block checks pSrc; its status is
    // passed back unchanged. Clamping its results to 0..255 gives the same
    // bytes as the saturating store of kpliDCT8x8Inv_16s8u_C1R.
    int16_t v[64];
    const KplStatus st = kpliDCT8x8Inv_16s_C1(pSrc, v);
    if (st != kplStsNoErr) return st;
    dct_kernels().put_u8(v, pDst, dstStep);  // clamps each value to 0..255
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Fwd_8u16s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl16s* pDst) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (srcStep < 1) return kplStsStepErr;
    dct_kernels().fwd_u8(pSrc, srcStep, pDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Fwd_16s_C1(const Kpl16s* pSrc, Kpl16s* pDst) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    dct_kernels().fwd(pSrc, pDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s_C1R(const Kpl16s* pSrc, Kpl16s* pDst, Kpl32s dstStep,
                                                        Kpl32s count) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    kplvc::block::dct8x8_inv_aan_16s(pSrc, pDst, dstStep, count);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s8u_C1R(const Kpl16s* pSrc, Kpl8u* pDst, Kpl32s dstStep,
                                                          Kpl32s count) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    kplvc::block::dct8x8_inv_aan_u8(pSrc, pDst, dstStep, count);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s_P2C2R(const Kpl16s* pSrcU, const Kpl16s* pSrcV,
                                                          Kpl16s* pDst, Kpl32s dstStep, Kpl32s countU,
                                                          Kpl32s countV) {
    if (pSrcU == nullptr || pSrcV == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    const auto& k = dct_kernels();
    int16_t u[64], v[64];
    kplvc::block::aan_block(k, pSrcU, countU, u);
    kplvc::block::aan_block(k, pSrcV, countV, v);
    k.put_16s_p2(u, v, pDst, dstStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT8x8Inv_AANTransposed_16s8u_P2C2R(const Kpl16s* pSrcU, const Kpl16s* pSrcV,
                                                            Kpl8u* pDst, Kpl32s dstStep, Kpl32s countU,
                                                            Kpl32s countV) {
    if (pSrcU == nullptr || pSrcV == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    const auto& k = dct_kernels();
    int16_t u[64], v[64];
    kplvc::block::aan_block(k, pSrcU, countU, u);
    kplvc::block::aan_block(k, pSrcV, countV, v);
    k.put_u8_p2(u, v, pDst, dstStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT2x4x8Frw_16s_C1I(Kpl16s* pSrcDst) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    dct_kernels().field_fwd(pSrcDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDCT2x4x8Inv_16s_C1I(Kpl16s* pSrcDst) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    dct_kernels().field_inv(pSrcDst);
    return kplStsNoErr;
}

}  // extern "C"
