// Kernels behind the H.264 inter prediction functions: quarter-sample luma
// interpolation, eighth-sample chroma interpolation and weighted averaging.
#pragma once

#include <bit>
#include <cstdint>

#include "core/cpu.h"

namespace kplvc::h264 {

// Luma block sizes, in the order of the kernel table's first index.
constexpr int kLumaSizes = 7;
constexpr int kLumaW[kLumaSizes] = {16, 16, 8, 8, 8, 4, 4};
constexpr int kLumaH[kLumaSizes] = {16, 8, 16, 8, 4, 8, 4};
// Chroma block sizes (the 4:2:0 halves of the luma ones).
constexpr int kChromaSizes = 7;
constexpr int kChromaW[kChromaSizes] = {8, 8, 4, 4, 4, 2, 2};
constexpr int kChromaH[kChromaSizes] = {8, 4, 8, 4, 2, 4, 2};
// Widths of the weighted-averaging kernels: 16, 8, 4, 2.
constexpr int kAvgWidths = 4;

// Index of a luma or chroma size in its table, -1 when not in the set.
int luma_size_index(int32_t w, int32_t h);
int chroma_size_index(int32_t w, int32_t h);
// Index of a weighted-averaging size's width (16, 8, 4, 2 -> 0..3), -1 when
// w x h is none of the ten sizes. Without a search, inline in the entry
// point: w and h must each be 2, 4, 8 or 16, and the pair one of the ten
// sizes, bit 4 (log2 w - 1) + (log2 h - 1) of kAvgSizes.
inline int avg_width_index(int32_t w, int32_t h) {
    const uint32_t uw = static_cast<uint32_t>(w), uh = static_cast<uint32_t>(h);
    if (uw - 2 > 14 || uh - 2 > 14 || (uw & (uw - 1)) != 0 || (uh & (uh - 1)) != 0) return -1;
    const int lw = std::countr_zero(uw) - 1, lh = std::countr_zero(uh) - 1;
    // 16x16, 16x8, 8x16, 8x8, 8x4, 4x8, 4x4, 4x2, 2x4, 2x2
    constexpr uint32_t kAvgSizes =
        1u << 15 | 1u << 14 | 1u << 11 | 1u << 10 | 1u << 9 | 1u << 6 | 1u << 5 | 1u << 4 | 1u << 1 | 1u << 0;
    return (kAvgSizes >> (4 * lw + lh)) & 1u ? 3 - lw : -1;
}

// One luma kernel per size and position (index 4*yFrac + xFrac). src points
// at the block's top-left reference sample.
using LumaFn = void (*)(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step);
// One chroma kernel per size. wa..wd are the bilinear weights
// (8-xf)(8-yf), xf(8-yf), (8-xf)yf, xf*yf, never all on A alone (that case
// is the copy kernel, which reads only the block).
using ChromaFn = void (*)(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t wa,
                          int32_t wb, int32_t wc, int32_t wd);
using CopyFn = void (*)(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step);
// Weighted average of one width: rows rows; round = 2^logWD, shift = logWD+1,
// offset = (o0 + o1 + 1) >> 1.
using WeightFn = void (*)(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows,
                          int32_t w0, int32_t w1, int32_t log_wd, int32_t offset);
// The same formula for weights that fit signed bytes (-128..127) with
// |w0| + |w1| <= 128: the weighted sum then fits 16 bits, which the SIMD
// kernels use. The entry point checks the condition.
static constexpr bool weights_fit_bytes(int32_t w0, int32_t w1) {
    return w0 <= 127 && w1 <= 127 && (w0 < 0 ? -w0 : w0) + (w1 < 0 ? -w1 : w1) <= 128;
}
// The default average (p0 + p1 + 1) >> 1 of one width.
using AverageFn = void (*)(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows);

struct InterKernels {
    LumaFn luma[kLumaSizes][16];
    ChromaFn chroma[kChromaSizes];
    CopyFn chroma_copy[kChromaSizes];
    WeightFn weight[kAvgWidths];
    WeightFn weight_small[kAvgWidths];  // only when weights_fit_bytes(w0, w1)
    AverageFn average[kAvgWidths];
};

InterKernels inter_kernels_for(cpu::Isa isa);
const InterKernels& inter_kernels();

namespace x86::sse2 {
void upgrade_inter(InterKernels& k);
}
namespace x86::ssse3 {
void upgrade_inter(InterKernels& k);
}
namespace x86::avx2 {
void upgrade_inter(InterKernels& k);
}

}  // namespace kplvc::h264
