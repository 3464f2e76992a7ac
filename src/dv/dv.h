// DV: the inverse-quantisation kernels and the two-level Huffman table layout.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::dv {

// The built lookup table: one block of kTableBytes bytes read as 32-bit
// words; the first level at word kFirstBase (indexed by up to 9 bits), the
// second at word kSecondBase. Word 0 and the last byte are never written.
constexpr int32_t kTableBytes = 4097;
constexpr int32_t kTableWords = 1024;  // whole words in the block
constexpr int32_t kFirstBase = 1;
constexpr int32_t kSecondBase = 513;

struct DvKernels {
    // x = low16((x * q[i]) >> 14) & ~3 for the 64 coefficients.
    void (*quant_inv)(int16_t* block, const int16_t* q);
};

DvKernels dv_kernels_for(cpu::Isa isa);
const DvKernels& dv_kernels();

// Fills the entries of one input code table into the block's words from
// `base`; the length field of every entry is L + len_add.
void dv_fill(uint32_t* words, const int32_t* input, int32_t base, uint32_t len_add);

namespace x86::sse2 {
void upgrade_dv(DvKernels& k);
}
namespace x86::avx2 {
void upgrade_dv(DvKernels& k);
}

}  // namespace kplvc::dv
