// MPEG-2 quantisers: argument checks, the kernel table, and the scalar
// reference kernels.
//
// Inverse quantisation runs per coefficient in 16-bit two's-complement lanes
// (the width of the original SIMD lanes): every product and sum keeps only
// its low 16 bits, shifts are arithmetic on the 16-bit value, then the result
// is clamped to -2048..2047. For inputs whose products do not wrap, the
// offset-then-shift pairs (15/4, 31/5, 1/1) divide with truncation toward
// zero; once a product wraps, the wrapped value is what gets shifted and
// clamped, and the SIMD variants must reproduce exactly that.
//
// Forward quantisation works in IEEE single precision: r = 1/QP once, then
// v = ((16c)·r)·M[i], each product rounded to float (the build disables
// contraction into fused multiply-adds), truncated toward zero and clamped to
// -2047..2047.
#include "mpeg2/quant.h"

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"
#include "mpeg2/dequant_ref.h"

namespace kplvc::mpeg2 {

namespace {

// The scalar reference of the inverse kernels is mpeg2/dequant_ref.h, at the
// shifts of both standards (MPEG-2: 4 intra, 5 non-intra, 1 flat; MPEG-4: 3,
// 4, none).

// ---- Scalar reference: forward ------------------------------------------------

// Truncation toward zero with the clamp to -2047..2047 done in float first, so
// that the conversion never sees a value outside the int range. A NaN (from a
// caller's matrix holding NaN or an infinity times zero) becomes -2047, the
// value the hardware's out-of-range conversion result clamps to.
int16_t trunc_clamp(float v) {
    if (!(v > -2047.0f)) return -2047;
    if (v >= 2047.0f) return 2047;
    return static_cast<int16_t>(static_cast<int32_t>(v));
}

// 16·c is at most 2^19 in magnitude, exact in float. First is 1 for the intra
// form, which leaves the DC alone.
template <int First>
int32_t quant_matrix_c(int16_t* block, int32_t qp, const float* m) {
    const float r = 1.0f / static_cast<float>(qp);
    int32_t count = 0;
    for (int i = First; i < 64; ++i) {
        const float x = static_cast<float>(16 * int32_t{block[i]});
        const float y = x * r;
        const int16_t v = trunc_clamp(y * m[i]);
        block[i] = v;
        count += v != 0;
    }
    return count;
}

// Without a matrix the weight is the constant 1/16: ((16c)·r)·0.0625. This is
// not always trunc(c/QP): (16c)·r can round just below an exact multiple.
int32_t quant_flat_c(int16_t* block, int32_t qp, const float*) {
    const float r = 1.0f / static_cast<float>(qp);
    int32_t count = 0;
    for (int i = 0; i < 64; ++i) {
        const float x = static_cast<float>(16 * int32_t{block[i]});
        const float y = x * r;
        const int16_t v = trunc_clamp(y * 0.0625f);
        block[i] = v;
        count += v != 0;
    }
    return count;
}

constexpr QuantKernels kScalar = {
    dequant_ref::intra<4>, dequant_ref::inter<5>, dequant_ref::flat<1>,
    quant_matrix_c<1>,     quant_matrix_c<0>,     quant_flat_c,
    dequant_ref::intra<3>, dequant_ref::inter<4>, dequant_ref::flat<0>,
};

constexpr Upgrade<QuantKernels> kCascade[] = {{cpu::Isa::c, [](QuantKernels& k) { k = kScalar; }},
                                              KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_quant},
                                                                 {cpu::Isa::avx2, x86::avx2::upgrade_quant})};

}  // namespace

QuantKernels quant_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const QuantKernels& quant_kernels() { return active_table<QuantKernels, quant_kernels_for>(); }

void Dequantize_16s_IntraMP2_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    quant_kernels().dequant_intra(block, qp, weights);
}

void Dequantize_16s_NonIntraMP2_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    const QuantKernels& k = quant_kernels();
    (weights != nullptr ? k.dequant_inter : k.dequant_flat)(block, qp, weights);
}

}  // namespace kplvc::mpeg2

extern "C" {

KPLVC_API KplStatus kpliQuantInvIntra_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl16s* pQPMatrix) {
    if (pSrcDst == nullptr || pQPMatrix == nullptr) return kplStsNullPtrErr;
    kplvc::mpeg2::Dequantize_16s_IntraMP2_a6(pSrcDst, QP, pQPMatrix);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInv_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl16s* pQPMatrix) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    kplvc::mpeg2::Dequantize_16s_NonIntraMP2_a6(pSrcDst, QP, pQPMatrix);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantIntra_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl32f* pQPMatrix,
                                                 Kpl32s* pCount) {
    if (pSrcDst == nullptr || pCount == nullptr) return kplStsNullPtrErr;
    if (QP == 0) return kplStsDivByZeroErr;
    const Kpl32f* m = pQPMatrix != nullptr ? pQPMatrix : kplvc::mpeg2::kDefaultIntraRecip.v;
    *pCount = kplvc::mpeg2::quant_kernels().quant_intra(pSrcDst, QP, m);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuant_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, const Kpl32f* pQPMatrix,
                                            Kpl32s* pCount) {
    if (pSrcDst == nullptr || pCount == nullptr) return kplStsNullPtrErr;
    if (QP == 0) return kplStsDivByZeroErr;
    const auto& k = kplvc::mpeg2::quant_kernels();
    *pCount =
        pQPMatrix != nullptr ? k.quant_inter(pSrcDst, QP, pQPMatrix) : k.quant_flat(pSrcDst, QP, nullptr);
    return kplStsNoErr;
}

}  // extern "C"
