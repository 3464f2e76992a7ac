// Kernels behind the motion-compensation functions: prediction from one or
// two references at full or half-sample positions, residual added, result
// saturated to 8 bits.
#pragma once

#include <cstdint>

#include "core/cpu.h"
#include "core/dispatch.h"

namespace kplvc::mc {

// Sub-sample position: the value of (mcType & 12) >> 2.
enum Pos : int { ff = 0, fh = 1, hf = 2, hh = 3 };

// One reference: dst = clip(p + res), p interpolated from ref with rounding
// control rc (0 or 1). Steps are in bytes for every buffer.
using McFn = void (*)(const uint8_t* ref, int32_t ref_step, const int16_t* res, int32_t res_step,
                      uint8_t* dst, int32_t dst_step, int32_t rc);
// Two references: dst = clip(res + ((pF + pB + 1) >> 1)).
using McBFn = void (*)(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b,
                       const int16_t* res, int32_t res_step, uint8_t* dst, int32_t dst_step, int32_t rc);

// Block shapes. The UV shapes interleave two chroma planes (horizontal
// neighbour two bytes away).
enum Shape : int {
    s16x16 = 0,
    s16x8,
    s16x8uv,
    s16x4uv,
    s8x16,
    s8x8,
    s8x4,
    s4x8,
    s4x4,
    s4x2,
    s2x4,
    s2x2,
    kShapeCount
};

// Prediction alone at rounding control 0 (no residual): the half-sample
// block copies of H.263, dst = (a + b + 1) >> 1 or (a + b + c + d + 2) >> 2.
using HalfCopyFn = void (*)(const uint8_t* ref, int32_t ref_step, uint8_t* dst, int32_t dst_step);
// Sizes of the copies: 16x16 and 8x8.
enum CopySize : int { c16x16 = 0, c8x8, kCopySizes };

struct McKernels {
    // single[shape][pos], pos = (mcType & 12) >> 2
    McFn single[kShapeCount][4];
    // bidir[shape][((mcTypeF & 12) >> 2) | (mcTypeB & 12)]
    McBFn bidir[kShapeCount][16];
    // copy[size][pos]
    HalfCopyFn copy[kCopySizes][4];
};

McKernels mc_kernels_for(cpu::Isa isa);
// Inline, so that an entry point in another file (the H.263 copies, the
// block differences) loads the kernel pointer without a call in between.
inline const McKernels& mc_kernels() { return active_table<McKernels, mc_kernels_for>(); }

// The shapes whose two-reference kernels build half-sample predictions from
// rounding byte averages with a saturating decrement (see mc.cpp).
static constexpr bool uses_byte_average(Shape s) {
    return s == s16x16 || s == s8x16 || s == s8x8 || s == s8x4;
}

namespace x86::sse2 {
void upgrade_mc(McKernels& k);
}
namespace x86::avx2 {
void upgrade_mc(McKernels& k);
}

}  // namespace kplvc::mc
