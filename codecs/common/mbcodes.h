// The macroblock-layer code words that H.263 and MPEG-4 Visual share
// (ITU-T H.263 5.3, ISO/IEC 14496-2 Annex B):
// MCBPC, CBPY and MVD, written by both encoders.
#pragma once

#include <cstdint>

namespace kplvc::codecs {

// Code words the encoder writes itself: value in the low `len` bits, first
// transmitted bit most significant.
struct Vlc {
    uint16_t code;
    uint8_t len;
};
// MCBPC of I-pictures by [type - 3][cbpc] (type 3 INTRA, 4 INTRA+Q; cbpc bit
// 1 Cb, bit 0 Cr) and of P-pictures by [type][cbpc] for types 0..4.
extern const Vlc kMcbpcIntra[2][4];
extern const Vlc kMcbpcInter[5][4];
// CBPY by its inter meaning (bit 3 block 1 .. bit 0 block 4); an intra
// macroblock codes 15 minus its pattern.
extern const Vlc kCbpy[16];
// MVD by difference + 32 (half samples, -32..31).
extern const Vlc kMvd[64];

}  // namespace kplvc::codecs
