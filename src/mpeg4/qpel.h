// MPEG-4 quarter-sample luminance interpolation (ISO/IEC 14496-2 7.6.2):
// the kernel table, one kernel per block size and quarter-sample position.
//
// A W x H prediction at (x + fx/4, y + fy/4) reads the (W+1) x (H+1)
// reference samples from the integer position (only W+1 columns when fy = 0
// and H+1 rows when fx = 0 are needed, and no more are read). Horizontal
// pass, per row r = 0..H:
//   h(x) = clip((20 (R[x] + R[x+1]) - 6 (R[x-1] + R[x+2]) + 3 (R[x-2] + R[x+3])
//                - (R[x-3] + R[x+4]) + 16 - rc) >> 5)
// with the indices mirrored into the block's W+1 samples (-1 -> 0, -2 -> 1,
// -3 -> 2; W+1 -> W, W+2 -> W-1, W+3 -> W-2), and the row value at fx
//   0: R[x]   1: avg(R[x], h(x))   2: h(x)   3: avg(h(x), R[x+1]),
// avg(a, b) = (a + b + 1 - rc) >> 1. The vertical pass does the same down
// each column of those values (rows mirrored into 0..H) with fy.
// Value ranges: the filter sum lies in -3570..11730 (16 bits hold it) and
// every stage is clipped to 0..255 before the next.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::mpeg4 {

enum QpelSize : int { q16x16 = 0, q16x8, q8x8, kQpelSizes };

// dst = prediction at position pos = fx | fy << 2 (the kernel's own).
using QpelFn = void (*)(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t rc);
// dst = (a + b + 1) >> 1 over a block; a and b are W-wide with their steps.
using AvgFn = void (*)(const uint8_t* a, int32_t a_step, const uint8_t* b, int32_t b_step, uint8_t* dst,
                       int32_t dst_step);

struct QpelKernels {
    QpelFn put[kQpelSizes][16];
    AvgFn avg[kQpelSizes];
};

QpelKernels qpel_kernels_for(cpu::Isa isa);
const QpelKernels& qpel_kernels();

constexpr int qpel_width(QpelSize s) { return s == q8x8 ? 8 : 16; }
constexpr int qpel_height(QpelSize s) { return s == q16x16 ? 16 : 8; }

namespace x86::ssse3 {
void upgrade_qpel(QpelKernels& k);
}
namespace x86::avx2 {
void upgrade_qpel(QpelKernels& k);
}

}  // namespace kplvc::mpeg4
