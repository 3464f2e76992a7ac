// MPEG-4 inverse quantisers: argument checks and the kernel table, whose
// kernels (scalar and SIMD) are the MPEG-2 table's MPEG-4 entries.
//
// Per coefficient in 16-bit two's-complement lanes: products and sums keep
// their low 16 bits, shifts are arithmetic on the 16-bit value, the result is
// clamped to -2048..2047. The offset-then-shift pairs (7/3 intra, 15/4
// inter) divide with truncation toward zero while nothing wraps; a wrapped
// product is shifted and clamped as it is.
#include "mpeg4/quant.h"

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"
#include "mpeg2/quant.h"

namespace kplvc::mpeg4 {

// The MPEG-4 entries of the MPEG-2 quantiser table, level by level.
QuantKernels quant_kernels_for(cpu::Isa isa) {
    const mpeg2::QuantKernels k = mpeg2::quant_kernels_for(isa);
    return {k.mpeg4_intra, k.mpeg4_inter, k.mpeg4_flat};
}

const QuantKernels& quant_kernels() { return active_table<QuantKernels, quant_kernels_for>(); }

void Dequantize_16s_IntraMP14_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    quant_kernels().dequant_intra(block, qp, weights);
}

void Dequantize_16s_NonIntraMP14_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    const QuantKernels& k = quant_kernels();
    (weights != nullptr ? k.dequant_inter : k.dequant_flat)(block, qp, weights);
}

}  // namespace kplvc::mpeg4

extern "C" {

KPLVC_API KplStatus kpliQuantInvIntra_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix) {
    if (pCoeffs == nullptr || pQMatrix == nullptr) return kplStsNullPtrErr;
    kplvc::mpeg4::Dequantize_16s_IntraMP14_a6(pCoeffs, QP, pQMatrix);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInv_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix) {
    if (pCoeffs == nullptr) return kplStsNullPtrErr;
    kplvc::mpeg4::Dequantize_16s_NonIntraMP14_a6(pCoeffs, QP, pQMatrix);
    return kplStsNoErr;
}

}  // extern "C"
