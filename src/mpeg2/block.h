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
cpu::Isa block_level();

}  // namespace kplvc::mpeg2

namespace kplvc::x86::avx2 {
void upgrade_block(mpeg2::BlockKernels& k);
}
