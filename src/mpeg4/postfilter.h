// The MPEG-4 display post-filters (ISO/IEC 14496-2 Annex F.3): deblocking
// across 8x8 block edges and deringing inside blocks, per-block kernels.
//
// Deblocking looks at ten samples v0..v9 across an edge (v4 | v5, v0 and v9
// five samples away from it). Nine neighbour differences of at most THR1 = 2
// in magnitude count as flat; with THR2 = 6 or more of them the line is in a
// smooth region and, if v1..v8 span less than 2 QP, v1..v8 become a 9-tap
// low-pass ({1,1,2,2,4,2,2,1,1} / 16) of the line padded with v0 (v9) when
// |v1 - v0| < QP (|v8 - v9| < QP), else with v1 (v8). Otherwise (default
// mode) only v4 and v5 move, by d = clip(5 (a3,0' - a3,0) // 8, 0,
// (v4 - v5) / 2) when |a3,0| < QP, where a3,k = [2 -5 5 -2] . (v3..v6,
// v1..v4, v5..v8) // 8 and a3,0' = sign(a3,0) min |a3,k|. "//" divides
// rounding to nearest with halves away from zero, "/" truncates.
//
// Deringing, per 8x8 block with its threshold thr and max_diff = QP / 2:
// a sample whose 3x3 window (samples of the neighbouring blocks included)
// is entirely >= thr or entirely < thr becomes (8 + sum of the window
// weighted [1 2 1; 2 4 2; 1 2 1]) / 16, kept within max_diff of its value;
// every other sample is copied. The window always reads the unfiltered
// samples.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::mpeg4 {

struct PostKernels {
    // One horizontal edge across eight columns: p is v5 of the first column
    // (the first row below the edge); rows -5..4 are read, -4..3 written.
    void (*deblock_hor)(uint8_t* p, int32_t step, int32_t qp);
    // The same across sixteen columns, two blocks: QP qp0 for columns 0-7,
    // qp1 for 8-15.
    void (*deblock_hor16)(uint8_t* p, int32_t step, int32_t qp0, int32_t qp1);
    // One vertical edge across eight rows: p is v5 of the first row (the
    // first column right of the edge).
    void (*deblock_ver)(uint8_t* p, int32_t step, int32_t qp);
    // The smallest and largest sample of an 8x8 block.
    void (*minmax)(const uint8_t* p, int32_t step, int32_t* mn, int32_t* mx);
    // One 8x8 block: reads src rows and columns -1..8, writes dst 8x8.
    void (*dering)(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t thr,
                   int32_t max_diff);
};

PostKernels post_kernels_for(cpu::Isa isa);
const PostKernels& post_kernels();

namespace x86::sse2 {
void upgrade_post(PostKernels& k);
}
namespace x86::avx2 {
void upgrade_post(PostKernels& k);
}

}  // namespace kplvc::mpeg4
