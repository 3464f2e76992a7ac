// Kernels behind the H.264 intra predictors (4x4, 16x16 luma, 8x8 chroma).
#pragma once

#include <cstdint>

#include "core/cpu.h"

namespace kplvc::h264 {

// Availability bits, as the entry points take them.
constexpr int32_t kAvailTop = 1;
constexpr int32_t kAvailLeft = 2;
constexpr int32_t kAvailCorner = 32;
constexpr int32_t kAvailTopRight = 64;

// The neighbours of a 4x4 block gathered (and substituted) into one run of
// 16 bytes:
//   e[1..4]  = L[3], L[2], L[1], L[0]  (left column, bottom to top)
//   e[5]     = C                       (corner)
//   e[6..13] = T[0..7]                 (above, then above-right)
//   e[0] = L[3] and e[14] = T[7] again, e[15] = 0.
// Along this run every diagonal of the directional modes is a sliding 3-tap
// or 2-tap filter, and the repeated ends make the two corner cases of
// diagonal down-left and horizontal-up ordinary 3-tap values too.
constexpr int kEdge4C = 5;
constexpr int kEdge4Size = 16;

// Which neighbours each 4x4 mode reads (DC reads what is available).
constexpr bool kUsesTop[9] = {true, false, false, true, true, true, true, true, false};
constexpr bool kUsesLeft[9] = {false, true, false, false, true, true, true, false, true};
constexpr bool kUsesCorner[9] = {false, false, false, false, true, true, true, false, false};
constexpr bool kUsesTopRight[9] = {false, false, false, true, false, false, false, true, false};

// Predicts the 4x4 block at dst in place. The kernel reads from the frame the
// neighbours its mode uses, only those avail marks present, and substitutes
// the others: 128 for a missing top, left or corner, T[3] for a missing
// above-right run. DC averages what is present (128 if nothing is).
// Returns the entry point's status: kNoNeighbourWarning when a top, left or
// corner sample the mode reads was substituted, else 0. (Returning it from
// the kernel lets the entry point end in a plain jump to it.)
using Pred4x4Fn = int32_t (*)(uint8_t* dst, int32_t step, int32_t avail);
constexpr int32_t kNoNeighbourWarning = 11;

// The neighbours each 4x4 mode needs present to predict without the warning.
static constexpr int32_t needed4x4(int m) {
    return (kUsesTop[m] ? kAvailTop : 0) | (kUsesLeft[m] ? kAvailLeft : 0) |
           (kUsesCorner[m] ? kAvailCorner : 0);
}
static constexpr int32_t status4x4(int m, int32_t avail) {
    return (avail & needed4x4(m)) == needed4x4(m) ? 0 : kNoNeighbourWarning;
}
// Fills the 16x16 (or 8x8 chroma) block in place, reading the neighbours from
// the frame around it. DC looks at avail; the entry point has already checked
// that the mode's neighbours are present.
using PredBlockFn = void (*)(uint8_t* p, int32_t step, int32_t avail);

struct PredKernels {
    Pred4x4Fn pred4x4[9];        // 4x4 modes 0..8
    PredBlockFn pred16x16[4];    // vertical, horizontal, DC, plane
    PredBlockFn pred_chroma[4];  // DC, horizontal, vertical, plane
};

PredKernels pred_kernels_for(cpu::Isa isa);
const PredKernels& pred_kernels();

namespace x86::sse2 {
void upgrade_pred(PredKernels& k);
}
namespace x86::ssse3 {
void upgrade_pred(PredKernels& k);
}
namespace x86::avx2 {
void upgrade_pred(PredKernels& k);
}

}  // namespace kplvc::h264
