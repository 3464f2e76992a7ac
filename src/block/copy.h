// Kernels behind the block copies and the block differences (the
// "blockcopy" family).
#pragma once

#include <cstdint>

#include "core/cpu.h"
#include "core/dispatch.h"

namespace kplvc::block {

using CopyFn = void (*)(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step);

// cur - prediction from ref; the prediction itself also goes to pred when
// pred is not null. rc is the rounding control of the half-sample averages.
using DiffFn = void (*)(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step,
                        int16_t* diff, int32_t diff_step, int16_t* pred, int32_t pred_step, int32_t rc);
// cur - ((f + b + 1) >> 1), f and b predicted from ref_f and ref_b.
using DiffBFn = void (*)(const uint8_t* cur, int32_t cur_step, const uint8_t* ref_f, int32_t step_f,
                         const uint8_t* ref_b, int32_t step_b, int16_t* diff, int32_t diff_step, int32_t rc);
using Diff4x4Fn = void (*)(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step,
                           int16_t* diff, int32_t diff_step);

// Difference block shapes, in the order of the exported functions.
enum DiffShape : int { d16x16 = 0, d16x8, d8x16, d8x8, d8x4, kDiffShapeCount };

struct BlockCopyKernels {
    CopyFn copy8x8;
    CopyFn copy16x16;
    // Per shape, indexed by (mcType & 12) + (pDstPredictor != null): the four
    // entries of a group hold the same kernel, which tests the predictor
    // pointer itself (GetDiff16x16FnTbl, GetDiff16x8FnTbl, ...).
    DiffFn diff[kDiffShapeCount][16];
    // Per shape, indexed by ((mcTypeF & 12) >> 2) | (mcTypeB & 12)
    // (GetDiff16x16BFnTbl, ...).
    DiffBFn diff_b[kDiffShapeCount][16];
    Diff4x4Fn diff4x4;
};

BlockCopyKernels blockcopy_kernels_for(cpu::Isa isa);
// Inline, so that an entry point in another file (the H.263 copies) loads
// the kernel pointer without a call in between.
inline const BlockCopyKernels& blockcopy_kernels() {
    return active_table<BlockCopyKernels, blockcopy_kernels_for>();
}

// The scalar difference kernels (diff.cpp), installed first by the builder.
void install_scalar_diff(BlockCopyKernels& k);

namespace x86::sse2 {
void upgrade_blockcopy(BlockCopyKernels& k);  // copy_sse2.cpp
void upgrade_diff(BlockCopyKernels& k);       // diff_sse2.cpp
}  // namespace x86::sse2
namespace x86::avx2 {
void upgrade_blockcopy(BlockCopyKernels& k);
}

}  // namespace kplvc::block
