// Overlapped block motion compensation (Annex F) with the H.263+ rounding
// type: the kernels behind kpliPredictBlockEx_OBMC_8u.
#pragma once

#include <cstdint>

#include "core/cpu.h"
#include "h263/recon.h"

namespace kplvc::h263 {

struct ObmcKernels {
    // One 8x8 block; ref is the reference at the block's position, rt the
    // rounding type (0 or 1) subtracted in every half-sample average.
    void (*obmc)(const uint8_t* ref, uint8_t* dst, int32_t step, const ObmcVectors& mv, int rt);
};

ObmcKernels obmc_kernels_for(cpu::Isa isa);
const ObmcKernels& obmc_kernels();

namespace x86::sse2 {
void upgrade_obmc(ObmcKernels& k);
}

}  // namespace kplvc::h263
