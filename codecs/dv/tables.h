// The constant tables of the DV decoder: the AC code, the two input tables
// that the library's table builder takes, the scans, and the multipliers of
// the inverse quantisation.
#pragma once

#include <cstdint>
#include <vector>

#include "kplvc.h"

namespace kplvc::codecs::dv {

// One row of the IEC 61834-2 AC code: the code word without its sign bit
// (a sign bit follows when amp >= 1), run zeros and then amp.
struct VlcRow {
    uint16_t code;
    uint8_t len;
    uint8_t run;
    uint8_t amp;
};
constexpr int kVlcRows = 88;
extern const VlcRow kVlc[kVlcRows];

// The two input tables of kpliInitAllocHuffmanTable_DV_32u for the segment
// decoder: the code words of up to 9 bits with the sign, EOB, the links and
// the escape; then the longer code words less their first four bits. The
// tolerant form also accepts the (run, 0) patterns for runs 0..5, 62, 63 and
// escape amplitudes below 23, which the standard leaves unassigned.
void input_tables(const VlcRow* rows, int n, bool tolerant, std::vector<Kpl32s>* first,
                  std::vector<Kpl32s>* second);

// A built table for the standard code (tolerant: see above), or null when
// the allocation fails. Free it with kpliFreeHuffmanTable_DV_32u.
Kpl32u* build_table(bool tolerant = false);

// The scan argument of the segment decoder: the 8-8 zigzag in raster order,
// then the 2-4-8 scan in the layout of kpliDCT2x4x8Inv_16s_C1I (rows 0..3 the
// sum field, rows 4..7 the difference field).
extern const Kpl32s kScans[128];

// Multipliers with 14 fractional bits for DCT mode m (0, 1), class c (0..3)
// and QNO (0..15), in the output layout of kScans: 128 tables of 64. For a
// value x of the segment decoder (64 times the quantised value), (x q) >> 14
// is the coefficient in the scale of the library's inverse transforms (a DC
// alone of D gives samples D / 8); kpliQuantInv_DV_16s_C1I takes them too.
struct Dequant {
    alignas(32) Kpl16s q[2][4][16][64];
};
void dequant_tables(Dequant* d);

}  // namespace kplvc::codecs::dv
