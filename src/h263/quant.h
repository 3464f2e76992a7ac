// H.263 inverse quantisation kernels (shared by the block decoders).
#pragma once

#include <cstdint>

#include "core/arith.h"
#include "core/cpu.h"

namespace kplvc::h263 {

struct QuantKernels {
    // The 64-coefficient inverse quantiser in 16-bit lanes, over indices
    // first..63 (first is 0 or 1).
    void (*quant_inv16)(int16_t* block, int first, int qp);
    // The forward quantiser over indices first..63 (first 0 or 1; index 0
    // is left alone when first is 1) with m = (float)(0.5 / QP): with
    // dead_zone, x > 0 becomes trunc(x*m - 0.25) and x < 0 trunc(x*m + 0.25),
    // without it trunc(x*m); the single-precision product is formed first;
    // results are clamped to -2047..2047. Returns the highest index whose
    // result is non-zero, or -1.
    int (*quant_fwd)(int16_t* block, float m, int first, int dead_zone);
};

QuantKernels quant_kernels_for(cpu::Isa isa);
const QuantKernels& quant_kernels();

// |rec| = 2*QP*|L| + QP (QP odd) or + QP - 1 (QP even), sign of L, clamped
// to -2048..2047; formed in 32 bits. 0 stays 0.
KPLVC_INLINE int16_t dequant_level(int32_t level, int32_t qp) {
    // Branch-free: the sign mask turns |L| back into sign(L) * |rec|.
    const int32_t neg = level < 0 ? -1 : 0;
    const int32_t mag = 2 * qp * ((level ^ neg) - neg) + ((qp & 1) ? qp : qp - 1);
    const int32_t rec = (mag ^ neg) - neg;
    const int32_t clamped = rec < -2048 ? -2048 : (rec > 2047 ? 2047 : rec);
    return static_cast<int16_t>(level == 0 ? 0 : clamped);
}

namespace x86::sse2 {
void upgrade_quant(QuantKernels& k);
}

}  // namespace kplvc::h263
