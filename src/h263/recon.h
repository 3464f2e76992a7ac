// Kernels of H.263 reconstruction and the Annex J deblocking filter.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::h263 {

// Annex J, Table J.2: filter strength by QP (entry 0 unused).
extern const uint8_t _h263Deblock_QPStrength[32];

struct ReconKernels {
    // dst = clip_u8(wrap16(pred + res)); res holds 16 (or 8) values per row.
    void (*recon16)(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step);
    void (*recon8)(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step);
    // Eight positions across an edge; p is the first sample after the edge.
    void (*deblock_hor)(uint8_t* p, int32_t step, int strength);
    void (*deblock_ver)(uint8_t* p, int32_t step, int strength);
};

ReconKernels recon_kernels_for(cpu::Isa isa);
const ReconKernels& recon_kernels();
cpu::Isa recon_level();

namespace x86::sse2 {
void upgrade_recon(ReconKernels& k);
}

}  // namespace kplvc::h263
