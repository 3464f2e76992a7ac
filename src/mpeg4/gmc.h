// MPEG-4 global motion compensation (sprite warping of GMC S-VOPs, ISO/IEC
// 14496-2 7.8): the per-block kernels.
//
// A plane's sample (i, j) is predicted from the reference at
//   X = (ox + dxx i + dxy j) >> shift,  Y = (oy + dyx i + dyy j) >> shift
// in units of 1/s sample (s = 2 << accuracy): with ix = X >> log2 s and
// fx = X & (s - 1) (likewise y), the prediction is
//   (((s - fy) ((s - fx) A + fx B) + fy ((s - fx) C + fx D)) + s*s/2 - rc)
//       >> 2 log2 s
// with A, B, C, D the samples at (ix, iy), (ix+1, iy), (ix, iy+1),
// (ix+1, iy+1), each coordinate clamped into the plane (the reference's
// unlimited padding). Sums stay below 2^16 * 255.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::mpeg4 {

// One block's mapping, reduced so that a kernel needs only 32-bit lanes:
// X(di, dj) = qx + ((rx + dxx di + dxy dj) >> shift) for the block's sample
// (di, dj), and the same for Y.
struct WarpBlock {
    int32_t qx, qy;    // whole part, in 1/s samples
    int32_t rx, ry;    // 0 .. 2^shift - 1
    int32_t dxx, dxy;  // |d| * 15 + 2^shift stays below 2^31
    int32_t dyx, dyy;
    int32_t shift;          // 0..30
    int32_t log2s;          // 1..4
    int32_t width, height;  // the plane, for clamping
};

// n x n block (n = 16 or 8) at dst.
using WarpFn = void (*)(const uint8_t* ref, int32_t ref_step, uint8_t* dst, int32_t dst_step,
                        const WarpBlock& b, int32_t rc);

struct WarpKernels {
    WarpFn affine16, affine8;  // any mapping
    // A translation (dxx = dyy = s << shift, dxy = dyx = 0) whose block and
    // its right and bottom neighbours lie inside the plane: one bilinear
    // filter with fixed weights.
    WarpFn shift16, shift8;
};

WarpKernels warp_kernels_for(cpu::Isa isa);
const WarpKernels& warp_kernels();

namespace x86::sse2 {
void upgrade_warp(WarpKernels& k);
}
namespace x86::avx2 {
void upgrade_warp(WarpKernels& k);
}

}  // namespace kplvc::mpeg4
