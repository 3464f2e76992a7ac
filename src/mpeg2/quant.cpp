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

namespace kplvc::mpeg2 {

namespace {

// ---- Scalar reference: inverse ------------------------------------------------

int16_t clamp2048(int32_t v) { return static_cast<int16_t>(clip3(-2048, 2047, v)); }

// Mismatch control: when the sum of the block is even, the last coefficient
// moves by one toward the odd value beside it (odd - 1, even + 1). Only the
// parity of the sum matters; |sum| <= 32768 + 64·2048 fits in int32.
void mismatch(int16_t* block, int32_t sum) {
    if ((sum & 1) != 0) return;
    const int16_t v = block[63];
    block[63] = static_cast<int16_t>((v & 1) != 0 ? v - 1 : v + 1);
}

// sgn(c) in -1, 0, +1.
int32_t sgn(int16_t c) { return (c > 0) - (c < 0); }

// Intra: p = low16(low16(c·q)·W); +15 when c <= 0; >> 4; clamp. The DC takes
// part as 0 (giving 0) and is put back afterwards; it counts in the sum.
void dequant_intra_c(int16_t* block, int32_t qp, const int16_t* w) {
    const int16_t q = wrap16(qp);
    const int16_t c0 = block[0];
    int32_t sum = c0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = i == 0 ? int16_t{0} : block[i];
        int16_t p = mullo16(mullo16(c, q), w[i]);
        if (c <= 0) p = addw16(p, 15);
        p = clamp2048(p >> 4);
        block[i] = p;
        sum += p;
    }
    block[0] = c0;
    mismatch(block, sum);
}

// Non-intra with weights: t = low16(2c + sgn c); p = low16(low16(t·q)·W);
// +31 when c < 0; >> 5; clamp.
void dequant_inter_c(int16_t* block, int32_t qp, const int16_t* w) {
    const int16_t q = wrap16(qp);
    int32_t sum = 0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = block[i];
        const int16_t t = wrap16(2 * int32_t{c} + sgn(c));
        int16_t p = mullo16(mullo16(t, q), w[i]);
        if (c < 0) p = addw16(p, 31);
        p = clamp2048(p >> 5);
        block[i] = p;
        sum += p;
    }
    mismatch(block, sum);
}

// Non-intra without weights: p = low16(t·q); +1 when c < 0; >> 1; clamp.
// This is a flat weight of 16 only while nothing wraps: here t·q wraps at
// 16 bits, where the weighted form wraps t·q·16.
void dequant_flat_c(int16_t* block, int32_t qp, const int16_t*) {
    const int16_t q = wrap16(qp);
    int32_t sum = 0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = block[i];
        const int16_t t = wrap16(2 * int32_t{c} + sgn(c));
        int16_t p = mullo16(t, q);
        if (c < 0) p = addw16(p, 1);
        p = clamp2048(p >> 1);
        block[i] = p;
        sum += p;
    }
    mismatch(block, sum);
}

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
    dequant_intra_c,   dequant_inter_c,   dequant_flat_c,
    quant_matrix_c<1>, quant_matrix_c<0>, quant_flat_c,
};

}  // namespace

QuantKernels quant_kernels_for(cpu::Isa isa) {
    QuantKernels k = kScalar;
#if defined(__i386__) || defined(__x86_64__)
    if (isa >= cpu::Isa::sse2) x86::sse2::upgrade_mpeg2quant(k);
    if (isa >= cpu::Isa::avx2) x86::avx2::upgrade_mpeg2quant(k);
#else
    (void)isa;
#endif
    return k;
}

const QuantKernels& quant_kernels() { return active_table<QuantKernels, quant_kernels_for>(); }

cpu::Isa quant_level() { return level_in_use(cpu::Isa::avx2); }

void Dequantize_16s_IntraMP2_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    quant_kernels().dequant_intra(block, qp, weights);
}

void Dequantize_16s_NonIntraMP2_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    const QuantKernels& k = quant_kernels();
    (weights != nullptr ? k.dequant_inter : k.dequant_flat)(block, qp, weights);
}

}  // namespace kplvc::mpeg2

extern "C" {

KPLVC_API KplStatus kpliQuantInvIntra_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP,
                                                    const Kpl16s* pQPMatrix) {
    if (pSrcDst == nullptr || pQPMatrix == nullptr) return kplStsNullPtrErr;
    kplvc::mpeg2::Dequantize_16s_IntraMP2_a6(pSrcDst, QP, pQPMatrix);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInv_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP,
                                               const Kpl16s* pQPMatrix) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    kplvc::mpeg2::Dequantize_16s_NonIntraMP2_a6(pSrcDst, QP, pQPMatrix);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantIntra_MPEG2_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP,
                                                 const Kpl32f* pQPMatrix, Kpl32s* pCount) {
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
    *pCount = pQPMatrix != nullptr ? k.quant_inter(pSrcDst, QP, pQPMatrix)
                                   : k.quant_flat(pSrcDst, QP, nullptr);
    return kplStsNoErr;
}

}  // extern "C"
