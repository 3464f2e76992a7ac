// MPEG-2 quantiser kernels: inverse quantisation in 16-bit wrapping lanes
// with mismatch control, forward quantisation in single precision with
// reciprocal weights. The table also holds the inverse kernels at the MPEG-4
// shifts, which the MPEG-4 inverse quantisers take from it.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::mpeg2 {

// In-place inverse quantisation of 64 coefficients (row-major, index 63 is
// the mismatch-control coefficient). QP is used through its low 16 bits.
using DequantFn = void (*)(int16_t* block, int32_t qp, const int16_t* weights);

// In-place forward quantisation of 64 coefficients with reciprocal weights
// m (64 floats; ignored by the flat kernel). qp is non-zero. Returns the
// number of non-zero levels stored (the intra kernel leaves index 0 alone
// and does not count it).
using QuantFn = int32_t (*)(int16_t* block, int32_t qp, const float* m);

struct QuantKernels {
    DequantFn dequant_intra;  // weights required; DC kept
    DequantFn dequant_inter;  // with weights
    DequantFn dequant_flat;   // without weights
    QuantFn quant_intra;      // indexes 1..63, matrix m
    QuantFn quant_inter;      // indexes 0..63, matrix m
    QuantFn quant_flat;       // indexes 0..63, factor 1/16
    // The same inverse method at the MPEG-4 shifts (3 intra, 4 inter, none
    // flat), for the MPEG-4 inverse quantisers (mpeg4/quant.h).
    DequantFn mpeg4_intra;
    DequantFn mpeg4_inter;
    DequantFn mpeg4_flat;
};

QuantKernels quant_kernels_for(cpu::Isa isa);
const QuantKernels& quant_kernels();

// The default intra quantiser matrix, raster order (row = vertical
// frequency, column = horizontal frequency).
inline constexpr int16_t kDefaultIntraMatrix[64] = {
    8,  16, 19, 22, 26, 27, 29, 34,  //
    16, 16, 22, 24, 27, 29, 34, 37,  //
    19, 22, 26, 27, 29, 34, 34, 38,  //
    22, 22, 26, 27, 29, 34, 37, 40,  //
    22, 26, 27, 29, 32, 35, 40, 48,  //
    26, 27, 29, 32, 35, 40, 48, 58,  //
    26, 27, 29, 34, 38, 46, 56, 69,  //
    27, 29, 35, 38, 46, 56, 69, 83,  //
};

struct RecipMatrix {
    float v[64];
};

// 1/w[i], each rounded once to single precision (constant evaluation rounds
// to nearest, as the run-time division does).
static constexpr RecipMatrix reciprocals(const int16_t (&w)[64]) {
    RecipMatrix r{};
    for (int i = 0; i < 64; ++i) r.v[i] = 1.0f / static_cast<float>(w[i]);
    return r;
}

// The forward quantiser's built-in matrix: reciprocals of the default intra
// matrix.
inline constexpr RecipMatrix kDefaultIntraRecip = reciprocals(kDefaultIntraMatrix);

// The two inverse-quantiser kernels, dispatched through quant_kernels().
// Arguments are trusted (the exported functions check them). A null weights
// pointer selects the flat path of the non-intra form.
void Dequantize_16s_IntraMP2_a6(int16_t* block, int32_t qp, const int16_t* weights);
void Dequantize_16s_NonIntraMP2_a6(int16_t* block, int32_t qp, const int16_t* weights);

namespace x86::sse2 {
void upgrade_quant(QuantKernels& k);
}
namespace x86::avx2 {
void upgrade_quant(QuantKernels& k);
}

}  // namespace kplvc::mpeg2
