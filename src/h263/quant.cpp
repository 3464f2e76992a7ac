// H.263 inverse quantisers and forward quantisers.
#include "h263/quant.h"

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::h263 {

namespace {

// The full-block form works in 16-bit lanes, as packed-word code does:
//   a = |L| (16 bits: |-32768| stays 0x8000), p = low 16 bits of a * 2QP;
//   a product that wraps to exactly 0 gives 0; otherwise m = p + offset
//   (16-bit wrap), the sign of L is applied (16-bit negate), and the result
//   is clamped to -2048..2047. 2QP and the offset are themselves taken to 16
//   bits, since QP is not range-checked here.
void quant_inv16_c(int16_t* block, int first, int qp) {
    const int16_t q2 = wrap16(mul32w(2, qp));
    const int16_t off = wrap16((qp & 1) ? qp : sub32w(qp, 1));
    for (int i = first; i < 64; ++i) {
        const int16_t l = block[i];
        const int16_t a = l < 0 ? wrap16(-int32_t{l}) : l;
        const int16_t p = mullo16(a, q2);
        if (p == 0) {
            block[i] = 0;
            continue;
        }
        const int16_t m = addw16(p, off);
        const int16_t rec = l < 0 ? wrap16(-int32_t{m}) : m;
        block[i] = static_cast<int16_t>(clip3(-2048, 2047, rec));
    }
}

// Truncation toward zero of a value that the clamp keeps small; the clamp is
// applied in floating point first so the conversion is always defined.
int32_t trunc_clamp(double v) {
    if (v > 2047.0) return 2047;
    if (v < -2047.0) return -2047;
    return static_cast<int32_t>(v);
}

// The product is rounded to single precision; the dead zone of 0.25 is then
// applied in double precision and the result truncated toward zero. Zero
// coefficients stay zero.
int quant_fwd_c(int16_t* block, float m, int first, int dead_zone) {
    int last = -1;
    for (int i = 63; i >= first; --i) {
        const int16_t x = block[i];
        if (x == 0) continue;
        const float prod = static_cast<float>(x) * m;
        const double v = !dead_zone ? double{prod} : (x > 0 ? double{prod} - 0.25 : double{prod} + 0.25);
        block[i] = static_cast<int16_t>(trunc_clamp(v));
        if (last < 0 && block[i] != 0) last = i;
    }
    return last;
}

constexpr Upgrade<QuantKernels> kCascade[] = {{cpu::Isa::c,
                                               [](QuantKernels& k) {
                                                   k.quant_inv16 = quant_inv16_c;
                                                   k.quant_fwd = quant_fwd_c;
                                               }},
                                              KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_quant})};

}  // namespace

QuantKernels quant_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const QuantKernels& quant_kernels() { return active_table<QuantKernels, quant_kernels_for>(); }

}  // namespace kplvc::h263

using kplvc::h263::dequant_level;
using kplvc::h263::quant_kernels;

extern "C" {

KPLVC_API KplStatus kpliQuantInvIntra_H263_C1I(Kpl16s* pSrcDst, int QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    quant_kernels().quant_inv16(pSrcDst, 1, QP);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInv_H263_C1I(Kpl16s* pSrcDst, int QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    quant_kernels().quant_inv16(pSrcDst, 0, QP);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInvIntra_Compact_H263_16s_I(Kpl16s* pSrcDst, int count, int QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (count < 1) return kplStsSizeErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    for (int i = 1; i < count; ++i) pSrcDst[i] = dequant_level(pSrcDst[i], QP);
    // Element 0 holds the INTRADC code: 255 stands for 128 * 8.
    pSrcDst[0] = static_cast<Kpl16s>(pSrcDst[0] == 255 ? 1024 : 8 * int32_t{pSrcDst[0]});
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInvInter_Compact_H263_16s_I(Kpl16s* pSrcDst, int count, int QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (count < 1) return kplStsSizeErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    for (int i = 0; i < count; ++i) pSrcDst[i] = dequant_level(pSrcDst[i], QP);
    return kplStsNoErr;
}

// Forward quantisers in single precision: m = (float)(0.5 / QP), and each
// product x * m is rounded to single before anything else happens to it.
KPLVC_API KplStatus kpliQuantIntra_H263_C1I(Kpl16s* pSrcDst, int QP, int* pCount) {
    if (pSrcDst == nullptr || pCount == nullptr) return kplStsNullPtrErr;
    if (QP < 1) return kplStsH263QPErr;
    *pCount = quant_kernels().quant_fwd(pSrcDst, static_cast<float>(0.5 / QP), 1, 0);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuant_H263_C1I(Kpl16s* pSrcDst, int QP, int* pCount) {
    if (pSrcDst == nullptr || pCount == nullptr) return kplStsNullPtrErr;
    if (QP < 1) return kplStsH263QPErr;
    *pCount = quant_kernels().quant_fwd(pSrcDst, static_cast<float>(0.5 / QP), 0, 1);
    return kplStsNoErr;
}

}  // extern "C"
