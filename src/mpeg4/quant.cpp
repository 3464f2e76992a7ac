// MPEG-4 inverse quantisers: argument checks, the kernel table and the scalar
// reference kernels.
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

namespace kplvc::mpeg4 {

namespace {

int16_t clamp2048(int32_t v) { return static_cast<int16_t>(clip3(-2048, 2047, v)); }

// When the block sum is even, block[63] moves to the odd neighbour (odd - 1,
// even + 1). |sum| <= 32768 + 64·2048 fits in int32.
void mismatch(int16_t* block, int32_t sum) {
    if ((sum & 1) != 0) return;
    const int16_t v = block[63];
    block[63] = static_cast<int16_t>((v & 1) != 0 ? v - 1 : v + 1);
}

int32_t sgn(int16_t c) { return (c > 0) - (c < 0); }

// Intra: p = low16(low16(c·q)·W); +7 when c <= 0; >> 3; clamp. The DC takes
// part as 0 and is restored; the sum includes it as given.
void dequant_intra_c(int16_t* block, int32_t qp, const int16_t* w) {
    const int16_t q = wrap16(qp);
    const int16_t c0 = block[0];
    int32_t sum = c0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = i == 0 ? int16_t{0} : block[i];
        int16_t p = mullo16(mullo16(c, q), w[i]);
        if (c <= 0) p = addw16(p, 7);
        p = clamp2048(p >> 3);
        block[i] = p;
        sum += p;
    }
    block[0] = c0;
    mismatch(block, sum);
}

// Inter with weights: t = low16(2c + sgn c); p = low16(low16(t·q)·W); +15
// when c < 0; >> 4; clamp.
void dequant_inter_c(int16_t* block, int32_t qp, const int16_t* w) {
    const int16_t q = wrap16(qp);
    int32_t sum = 0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = block[i];
        const int16_t t = wrap16(2 * int32_t{c} + sgn(c));
        int16_t p = mullo16(mullo16(t, q), w[i]);
        if (c < 0) p = addw16(p, 15);
        p = clamp2048(p >> 4);
        block[i] = p;
        sum += p;
    }
    mismatch(block, sum);
}

// Inter without weights: p = low16(t·q), clamped; no offset, no shift. Equal
// to a weight of 16 only while t·q·16 does not wrap.
void dequant_flat_c(int16_t* block, int32_t qp, const int16_t*) {
    const int16_t q = wrap16(qp);
    int32_t sum = 0;
    for (int i = 0; i < 64; ++i) {
        const int16_t c = block[i];
        const int16_t t = wrap16(2 * int32_t{c} + sgn(c));
        const int16_t p = clamp2048(mullo16(t, q));
        block[i] = p;
        sum += p;
    }
    mismatch(block, sum);
}

constexpr QuantKernels kScalar = {dequant_intra_c, dequant_inter_c, dequant_flat_c};

}  // namespace

QuantKernels quant_kernels_for(cpu::Isa isa) {
    QuantKernels k = kScalar;
#if defined(__i386__) || defined(__x86_64__)
    if (isa >= cpu::Isa::sse2) x86::sse2::upgrade_mpeg4quant(k);
    if (isa >= cpu::Isa::avx2) x86::avx2::upgrade_mpeg4quant(k);
#else
    (void)isa;
#endif
    return k;
}

const QuantKernels& quant_kernels() { return active_table<QuantKernels, quant_kernels_for>(); }

cpu::Isa quant_level() { return level_in_use(cpu::Isa::avx2); }

void Dequantize_16s_IntraMP14_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    quant_kernels().dequant_intra(block, qp, weights);
}

void Dequantize_16s_NonIntraMP14_a6(int16_t* block, int32_t qp, const int16_t* weights) {
    const QuantKernels& k = quant_kernels();
    (weights != nullptr ? k.dequant_inter : k.dequant_flat)(block, qp, weights);
}

}  // namespace kplvc::mpeg4

extern "C" {

KPLVC_API KplStatus kpliQuantInvIntra_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP,
                                                    const Kpl16s* pQMatrix) {
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
