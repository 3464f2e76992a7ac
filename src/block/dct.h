// Kernels of the 8x8 transform family: the table-driven 16-bit engine, the
// 32-bit matrix engine (transposed input, count shortcuts) and the 2-4-8
// field engine. Other block decoders of the library call the inverse
// transforms through the helpers at the end of this header.
#pragma once

#include <cstdint>

#include "core/arith.h"
#include "core/cpu.h"

namespace kplvc::block {

struct DctKernels {
    // Table-driven engine. Blocks are 64 int16 in row-major order.
    // Full inverse; src may equal dst.
    void (*inv)(const int16_t* src, int16_t* dst);
    // Inverses of blocks confined to the top-left 4x4 / 2x2 corner, in place.
    void (*inv_4x4)(int16_t* blk);
    void (*inv_2x2)(int16_t* blk);
    // Full inverse, each result saturated to 0..255, row k at dst + k*step.
    void (*inv_u8)(const int16_t* src, uint8_t* dst, int32_t step);
    // Forward transforms; src may equal dst for the 16-bit form.
    void (*fwd)(const int16_t* src, int16_t* dst);
    void (*fwd_u8)(const uint8_t* src, int32_t step, int16_t* dst);

    // Matrix engine on a transposed block (index 8*v + u). The results are
    // clamped to -256..255 and written row-major to out[8*i + j].
    void (*aan)(const int16_t* src, int16_t* out);
    // The same reading only source rows 0..3 of columns 0..3.
    void (*aan_corner)(const int16_t* src, int16_t* out);
    // Stores of matrix-engine results (row-major v[8*i + j]): row i at
    // dst + i*step bytes, clamped to -256..255 (16-bit) or 0..255 (bytes),
    // rows in increasing order. The pair forms write u to the even and v to
    // the odd elements of each row: all of u's rows first, then v's, which
    // only matters when rows overlap.
    void (*put_16s)(const int16_t* v, int16_t* dst, int32_t step);
    void (*put_u8)(const int16_t* v, uint8_t* dst, int32_t step);
    void (*put_16s_p2)(const int16_t* u, const int16_t* v, int16_t* dst, int32_t step);
    void (*put_u8_p2)(const int16_t* u, const int16_t* v, uint8_t* dst, int32_t step);

    // 2-4-8 field engine, in place.
    void (*field_fwd)(int16_t* blk);
    void (*field_inv)(int16_t* blk);
};

DctKernels dct_kernels_for(cpu::Isa isa);
const DctKernels& dct_kernels();

// Scalar pieces shared by the reference kernels and the entry points.
namespace ref {
// Count paths 0 and 1 of the matrix engine: every sample gets the same value.
int16_t aan_dc_value(int16_t dc);            // dc / 8 toward zero, clamped to -256..255
void aan_fill(int16_t value, int16_t* out);  // out[0..63] = value
}  // namespace ref

// One upgrade per engine and ISA file.
namespace x86::sse2 {
void upgrade_dct_table(DctKernels& k);
void upgrade_dct_aan(DctKernels& k);
void upgrade_dct_field(DctKernels& k);
}  // namespace x86::sse2
namespace x86::avx2 {
void upgrade_dct_table(DctKernels& k);
void upgrade_dct_aan(DctKernels& k);
void upgrade_dct_field(DctKernels& k);
}  // namespace x86::avx2

// ---- Internal entry points for other decoders (no argument checks) ----------
KPLVC_INLINE void dct8x8_inv(const int16_t* src, int16_t* dst) { dct_kernels().inv(src, dst); }
KPLVC_INLINE void dct8x8_inv_4x4(int16_t* blk) { dct_kernels().inv_4x4(blk); }
KPLVC_INLINE void dct8x8_inv_2x2(int16_t* blk) { dct_kernels().inv_2x2(blk); }
KPLVC_INLINE void dct8x8_inv_u8(const int16_t* src, uint8_t* dst, int32_t step) {
    dct_kernels().inv_u8(src, dst, step);
}
// Matrix-engine inverse of a transposed block with its count paths, clamped
// to -256..255 (16-bit) or 0..255 (bytes), row i at dst + i*step bytes.
void dct8x8_inv_aan_16s(const int16_t* src, int16_t* dst, int32_t step, int32_t count);
void dct8x8_inv_aan_u8(const int16_t* src, uint8_t* dst, int32_t step, int32_t count);

}  // namespace kplvc::block
