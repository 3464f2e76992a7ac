// MPEG-1/MPEG-2 block decoding (variable-length codes, inverse quantisation,
// transposed output with its count) and block encoding.
//
// The decoders read with the generic word-oriented reader of core/vlc.h.
// The one kernel behind them that pays for SIMD is the count: the count is
// 1 + the largest scan index whose raster position holds a non-zero value,
// which for a caller's arbitrary scan (repeated entries allowed) means
// looking up every scan entry, not just the last one that was decoded.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::mpeg2 {

// nz: bit p set when raster position p of the block holds a non-zero value.
// Returns the mask whose bit i is bit (scan[i] & 63) of nz, i = 0..63.
using ScanMaskFn = uint64_t (*)(uint64_t nz, const int32_t* scan);

struct BlockKernels {
    ScanMaskFn scan_mask;
};

BlockKernels block_kernels_for(cpu::Isa isa);
const BlockKernels& block_kernels();

// One decoder with a given kernel table and no argument checks (for the
// benchmarks of each level): version 1 or 2, intra or not; dc_table, pred
// and prec are read for intra blocks only. Returns the decoder's status.
int32_t reconstruct_with(const BlockKernels& k, int32_t version, bool intra, uint32_t** pp, int32_t* off,
                         int16_t* dst, int32_t* count, int16_t* pred, const int32_t* dc_table,
                         const int32_t* coef, const int32_t* scan, int32_t qp, const int16_t* w,
                         int32_t prec);

namespace x86::avx2 {
void upgrade_block(BlockKernels& k);
}

}  // namespace kplvc::mpeg2
