// Kernels behind the H.264 4x4 transform and quantisation functions.
//
// The entry points check arguments, resolve QP into table rows and decide the
// DC-only paths; the kernels below do the block arithmetic. Every kernel has a
// scalar reference (transform.cpp, quant.cpp) that the SIMD variants in x86/
// must match bit for bit.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::h264 {

// The row steps of a prediction and of a destination block, and the rounding
// offset and right shift of a quantiser: small pairs passed by value so that
// the kernels below take all their arguments in registers and the entry
// points can hand over to them with a jump.
struct Steps {
    int32_t pred;
    int32_t dst;
};
struct Rounding {
    int32_t round;
    int32_t shift;
};

struct XformKernels {
    // Dequantise a 4x4 block (coefficient 0 replaced by *dc when dc is not
    // null, else scaled like the others; every product wraps to 16 bits), run
    // the inverse core transform and store (v + 32) >> 6 in place. The four
    // rows lie `step` bytes apart (any alignment).
    void (*dequant_residual)(int16_t* coef, int32_t step, const int16_t* dc, const int16_t* scale);
    // The same on a packed block; then dst = clamp(pred + residual) with the
    // residual limited to -256..256. coef receives the residuals. Returns
    // kplStsNoErr (it cannot fail), which the entry point passes on.
    int32_t (*dequant_residual_add)(const uint8_t* pred, int16_t* coef, const int16_t* dc, uint8_t* dst,
                                    Steps steps, const int16_t* scale);
    // dst = clamp(pred + r) for a 4x4 block, r limited to -256..256 first:
    // the residual of a block without AC levels.
    void (*add_dc)(const uint8_t* pred, int32_t pred_step, uint8_t* dst, int32_t dst_step, int16_t r);
    // Luma DC: 4x4 Hadamard (columns, then rows) of the 16 levels, then each
    // value y becomes (y * m + r) >> s cut to 16 bits (m < 2^10, s <= 2).
    void (*dequant_luma_dc)(int16_t* b, int32_t m, int32_t r, int32_t s);
    // Forward core transform of a packed block in place (16-bit wrap).
    void (*forward4x4)(int16_t* blk);
    // Forward transform, then quantise row by row: L = (|c| * mf[p] + round)
    // >> shift. Returns 0 with *count and *last written, or -13 at the first
    // row holding a magnitude above 2063 (earlier rows levels, that row and
    // later ones transform coefficients, count and last untouched).
    int32_t (*transform_quant_residual)(int16_t* blk, const int16_t* mf, Rounding rs, const int16_t* scan,
                                        uint8_t* count, uint8_t* last);
    // Luma DC: when `transform` is set, tblock = (4x4 Hadamard of src) >> 1.
    // Then the levels of tblock with one multiplier replace src row by row,
    // with the early exit of the residual quantiser (failing and later rows
    // keep src as it was).
    int32_t (*transform_quant_luma_dc)(int16_t* src, int16_t* tblock, bool transform, int32_t mf,
                                       int32_t round, int32_t shift, const int16_t* scan, uint8_t* count,
                                       uint8_t* last);
    // Chroma DC: when `transform` is set, tblock = 2x2 Hadamard of src. All
    // four levels and the count are written, then -13 if one exceeds 2063.
    int32_t (*transform_quant_chroma_dc)(int16_t* src, int16_t* tblock, bool transform, int32_t mf,
                                         int32_t round, int32_t shift, uint8_t* count);
};

XformKernels xform_kernels_for(cpu::Isa isa);
const XformKernels& xform_kernels();

// Hadamard transforms shared by the DC functions (16-bit wrap at every
// stage): one 4-point line, the 4x4 block (columns first, then rows) and the
// 2x2 block (c0, c1 / c2, c3).
void hadamard_line(int16_t& x0, int16_t& x1, int16_t& x2, int16_t& x3);
void hadamard4x4(int16_t* b);
void hadamard2(int16_t* c);

// Scalar references, also used directly by the entry points for the paths
// that have no table entry.
namespace ref {
void dequant_residual(int16_t* coef, int32_t step, const int16_t* dc, const int16_t* scale);
int32_t dequant_residual_add(const uint8_t* pred, int16_t* coef, const int16_t* dc, uint8_t* dst, Steps steps,
                             const int16_t* scale);
void add_dc(const uint8_t* pred, int32_t pred_step, uint8_t* dst, int32_t dst_step, int16_t r);
void dequant_luma_dc(int16_t* b, int32_t m, int32_t r, int32_t s);
void forward4x4(int16_t* blk);
int32_t transform_quant_residual(int16_t* blk, const int16_t* mf, Rounding rs, const int16_t* scan,
                                 uint8_t* count, uint8_t* last);
int32_t transform_quant_luma_dc(int16_t* src, int16_t* tblock, bool transform, int32_t mf, int32_t round,
                                int32_t shift, const int16_t* scan, uint8_t* count, uint8_t* last);
int32_t transform_quant_chroma_dc(int16_t* src, int16_t* tblock, bool transform, int32_t mf, int32_t round,
                                  int32_t shift, uint8_t* count);
// The inverse core transform with the final (v + 32) >> 6, packed, in place.
void inverse4x4(int16_t* blk);
}  // namespace ref

namespace x86::sse2 {
void upgrade_xform(XformKernels& k);
}
namespace x86::avx2 {
void upgrade_xform(XformKernels& k);
}

}  // namespace kplvc::h264
