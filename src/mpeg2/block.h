// MPEG-1/MPEG-2 block decoding (variable-length codes, inverse quantisation,
// transposed output with its count) and block encoding.
//
// Two decoders with the same results:
// - the reference (block_decode.cpp) walks the caller's table with the
//   generic word-oriented reader of core/vlc.h, one field at a time, and
//   finds the count by looking up every scan entry; it is the oracle of the
//   tests and the fallback;
// - the fast decoder (x86/block_fast-inl.h, compiled once per ISA file) reads
//   through a 64-bit window refilled a word at a time, takes a code word and
//   its sign bit in one step, inverse-quantises as each coefficient arrives
//   and finds the count from the top of the scan down, so a block whose
//   last coefficient is (7, 7) (most MPEG-2 blocks after mismatch control)
//   looks at one group of scan entries. A table whose levels it does not
//   expect (a level of more than 24 bits, a leaf that gives back more bits
//   than it looked up) sends the whole block to the reference, which has
//   written nothing by then.
#pragma once

#include <cstdint>

#include "core/cpu.h"
#include "kplvc.h"

namespace kplvc::mpeg2 {

// One block decoder call after the argument checks.
struct BlockArgs {
    Kpl32u** ppBitStream;
    Kpl32s* pOffset;
    Kpl16s* pDstBlock;
    Kpl32s* pDstCount;
    Kpl16s* pDCPred;             // intra only
    const Kpl32s* pDCSizeTable;  // intra only
    const Kpl32s* pCoefTable;
    const Kpl32s* pScanTable;
    int32_t qp;
    const Kpl16s* pQMatrix;  // null: flat 16 (non-intra only)
    int32_t dc_shift;        // intra DC multiplier 8 >> dc_shift (MPEG-2); 0 for MPEG-1
};

using BlockDecodeFn = KplStatus (*)(const BlockArgs& a);

struct BlockKernels {
    // [version - 1][intra]
    BlockDecodeFn decode[2][2];
};

BlockKernels block_kernels_for(cpu::Isa isa);
const BlockKernels& block_kernels();

// The reference decoder (the scalar table's entries).
KplStatus decode_ref(int32_t version, bool intra, const BlockArgs& a);

// The weight of an intra AC coefficient that a caller's scan puts on raster
// position 0: the intra functions never read W[0], so such a coefficient
// (impossible with the standards' scans) is weighted 8, the DC entry of the
// default intra matrix.
constexpr int16_t kIntraWeightAtDc = 8;

namespace x86::sse2 {
void upgrade_block(BlockKernels& k);
}
namespace x86::avx2 {
void upgrade_block(BlockKernels& k);
}

}  // namespace kplvc::mpeg2
