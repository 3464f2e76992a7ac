// Kernels behind the H.264 deblocking functions: one kernel per function,
// filtering all edges of a luma macroblock or chroma block in order.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::h264 {

// p: top-left sample of the block; alpha, beta: [external, internal];
// tc0: 16 (luma) or 8 (chroma) clamping values; bs: the 16 boundary strengths.
using DeblockFn = void (*)(uint8_t* p, int32_t step, const uint8_t* alpha, const uint8_t* beta,
                           const uint8_t* tc0, const uint8_t* bs);

struct DeblockKernels {
    DeblockFn luma_ver;
    DeblockFn luma_hor;
    DeblockFn chroma_ver;
    DeblockFn chroma_hor;
};

DeblockKernels deblock_kernels_for(cpu::Isa isa);
const DeblockKernels& deblock_kernels();

namespace x86::sse2 {
void upgrade_deblock(DeblockKernels& k);
}
namespace x86::avx2 {
void upgrade_deblock(DeblockKernels& k);
}
namespace x86::avx512 {
void upgrade_deblock(DeblockKernels& k);
}

}  // namespace kplvc::h264
