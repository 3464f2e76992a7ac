// Kernels behind the block-matching metrics: sums of absolute and squared
// differences at full and half-sample positions, variances and means, and the
// small helpers an encoder uses for mode decisions.
//
// Sub-sample positions are indexed 0 ff, 1 fh (vertical half), 2 hf
// (horizontal half), 3 hh (centre of four), i.e. (mcType & 12) >> 2. The
// metrics never take a rounding control: a half position predicts
// (a + b + 1) >> 1 and the centre of four (a + b + c + d + 2) >> 2.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::block {

enum Pos : int { kFF = 0, kFH = 1, kHF = 2, kHH = 3 };

// Sum over a block of |cur - pred| or (cur - pred)^2.
using BlockMetricFn = int32_t (*)(const uint8_t* src, int32_t src_step, const uint8_t* ref, int32_t ref_step);
// Bidirectional squared difference: pred = (pF + pB + 1) >> 1.
using BiMetricFn = int32_t (*)(const uint8_t* src, int32_t src_step, const uint8_t* ref_f, int32_t ref_f_step,
                               const uint8_t* ref_b, int32_t ref_b_step);
// Per-sub-block SADs in raster order (Kpl16u cells).
using SubSadFn = void (*)(const uint8_t* src, int32_t src_step, const uint8_t* ref, int32_t ref_step,
                          uint16_t* sads);
// One-block statistics of samples.
using Stat8uFn = int32_t (*)(const uint8_t* src, int32_t src_step);
using VarMean8uFn = void (*)(const uint8_t* src, int32_t src_step, int32_t* var, int32_t* mean);
using VarMean16sFn = void (*)(const int16_t* src, int32_t src_step, int32_t* var, int32_t* mean);
// Variance and mean of the prediction error per 8x8 quarter.
using VarMeanDiffFn = void (*)(const uint8_t* src, int32_t src_step, const uint8_t* ref, int32_t ref_step,
                               const int32_t* src_sum, int32_t* var, int32_t* mean);
using EdgesFn = uint8_t (*)(const uint8_t* src, int32_t src_step, uint8_t pel_diff, uint8_t pel_count);
// Sums of differences per 4x4 sub-block; diff may be null.
using SumsDiffFn = void (*)(const uint8_t* src, int32_t src_step, const uint8_t* pred, int32_t pred_step,
                            int16_t* sums, int16_t* diff);
using CountZerosFn = int32_t (*)(const int16_t* coefs);
// Texture error of an 8x8 block against a packed reference; returns the SAD.
using TextureErrorFn = int32_t (*)(const uint8_t* src, int32_t src_step, const uint8_t* ref, int16_t* dst);

struct MetricsKernels {
    BlockMetricFn sad16x16[4];    // by position
    BlockMetricFn sad8x8[4];      // by position
    BlockMetricFn sad4x4;         // full-sample
    SubSadFn sad16x16_blocks8x8;  // 4 sums
    SubSadFn sad16x16_blocks4x4;  // 16 sums
    BlockMetricFn sqr16x16[4];    // by position
    BiMetricFn sqr16x16_bi[16];   // forward position | backward position << 2
    Stat8uFn variance16x16;       // Q - wrap32(S*S)/256
    VarMean8uFn varmean8x8_8u;
    VarMean16sFn varmean8x8_16s;
    VarMeanDiffFn varmeandiff16x16[4];  // by position
    VarMeanDiffFn varmeandiff16x8[4];   // by position
    Stat8uFn meanabsdev16x16;
    EdgesFn edges16x16;
    SumsDiffFn sumsdiff16x16;
    SumsDiffFn sumsdiff8x8;
    CountZerosFn countzeros8x8;
    TextureErrorFn texture_error8x8;
};

MetricsKernels metrics_kernels_for(cpu::Isa isa);
const MetricsKernels& metrics_kernels();

// The scalar references, split by file (sad.cpp, var.cpp, metrics.cpp).
void scalar_sad_kernels(MetricsKernels& k);
void scalar_var_kernels(MetricsKernels& k);
void scalar_misc_kernels(MetricsKernels& k);

// One upgrade per x86 file, split as the scalar files are: sad_<isa>.cpp,
// var_<isa>.cpp and metrics_<isa>.cpp.
namespace x86::sse2 {
void upgrade_sad(MetricsKernels& k);
void upgrade_var(MetricsKernels& k);
void upgrade_metrics(MetricsKernels& k);
}  // namespace x86::sse2
namespace x86::avx2 {
void upgrade_sad(MetricsKernels& k);
void upgrade_var(MetricsKernels& k);
}  // namespace x86::avx2

}  // namespace kplvc::block
