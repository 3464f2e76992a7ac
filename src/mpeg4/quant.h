// MPEG-4 inverse quantisers (the weighting-matrix method): 16-bit wrapping
// lanes, truncating division by a power of two, clamp to -2048..2047 and
// mismatch control on the last coefficient.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::mpeg4 {

// In-place inverse quantisation of 64 coefficients; QP is used through its
// low 16 bits.
using DequantFn = void (*)(int16_t* block, int32_t qp, const int16_t* weights);

struct QuantKernels {
    DequantFn dequant_intra;  // weights required; DC kept
    DequantFn dequant_inter;  // with weights
    DequantFn dequant_flat;   // without weights
};

QuantKernels quant_kernels_for(cpu::Isa isa);
const QuantKernels& quant_kernels();

// The two kernels, dispatched through quant_kernels(); arguments trusted. A
// null weights pointer selects the flat inter path.
void Dequantize_16s_IntraMP14_a6(int16_t* block, int32_t qp, const int16_t* weights);
void Dequantize_16s_NonIntraMP14_a6(int16_t* block, int32_t qp, const int16_t* weights);

}  // namespace kplvc::mpeg4
