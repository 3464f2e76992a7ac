// H.263 macroblock-layer lookup tables, shared by the symbol decoders and
// their tests.
#pragma once

#include <array>
#include <cstdint>

namespace kplvc::h263 {

// A direct-lookup entry: decoded value and the number of bits it consumes.
struct VlcEntry {
    int32_t value;
    int32_t len;
};

// MCBPC for I-pictures, indexed by the next 6 bits when the first is 0.
extern const std::array<VlcEntry, 32> MCBPCtabintra;
// MCBPC for P-pictures, indexed by the next 9 bits when the first is 0.
extern const std::array<VlcEntry, 256> MCBPCtabinter;
// CBPY (inter meaning), indexed by the next 6 bits when they are below 48.
extern const std::array<VlcEntry, 48> CBPYtab;
// MVD, by the 12 bits c12 after the leading 0: MVtab0[(c12 >> 8) - 2] for
// c12 >= 512, MVtab1[(c12 >> 2) - 32] for c12 >= 128, MVtab2[c12 - 5] for
// c12 >= 5. Lengths exclude the leading 0.
extern const std::array<VlcEntry, 16> MVtab0;
extern const std::array<VlcEntry, 96> MVtab1;
extern const std::array<VlcEntry, 124> MVtab2;
// Modified quantisation (DQUANT 10 and 11): changeQ[QP][second bit].
extern const int32_t changeQ[32][2];

}  // namespace kplvc::h263
