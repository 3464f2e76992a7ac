// Kernels of H.263 reconstruction and the Annex J deblocking filter.
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::h263 {

// Annex J, Table J.2: filter strength by QP (entry 0 unused).
extern const uint8_t _h263Deblock_QPStrength[32];

// Annex F weights per sample: H0 for the block's own vector, H1 for the
// above/below vectors, H2 for the left/right vectors (they sum to 8).
struct ObmcWeights {
    uint8_t h0[8][8], h1[8][8], h2[8][8];
};
extern const ObmcWeights kObmcWeights;

// The five vectors of an OBMC prediction, (dx, dy) in half-sample units.
struct ObmcVectors {
    const int16_t *cur, *left, *right, *above, *below;
};

struct ReconKernels {
    // dst = clip_u8(wrap16(pred + res)); res holds 16 (or 8) values per row.
    void (*recon16)(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step);
    void (*recon8)(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step);
    // Eight positions across an edge; p is the first sample after the edge.
    void (*deblock_hor)(uint8_t* p, int32_t step, int strength);
    void (*deblock_ver)(uint8_t* p, int32_t step, int strength);
    // Annex F prediction of one 8x8 block; ref is the block's position.
    void (*obmc)(const uint8_t* ref, uint8_t* dst, int32_t step, const ObmcVectors& mv);
};

ReconKernels recon_kernels_for(cpu::Isa isa);
const ReconKernels& recon_kernels();

namespace x86::sse2 {
void upgrade_recon(ReconKernels& k);
}

}  // namespace kplvc::h263
