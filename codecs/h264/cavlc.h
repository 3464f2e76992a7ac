// CAVLC residual blocks: coeff_token, the levels, total_zeros and run_before,
// read straight into a coefficient block.
#pragma once

#include <cstdint>

#include "bits.h"

namespace kplvc::codecs::h264 {

// Reads one residual block of up to max_coeff (4, 15 or 16) coefficients.
// nc is the predicted coefficient count (0.. for 4x4 blocks, -1 for chroma DC).
// Levels in scan order i go to coef[scan[i]] (coef must hold zeros there).
// Returns TotalCoeff, or -1 when the block cannot be parsed. *top receives
// the scan index of the highest non-zero coefficient (undefined when 0 is
// returned).
int read_residual_block(BitReader& br, int nc, int max_coeff, const uint8_t* scan, int16_t* coef, int* top);

// The code tables as written in the decoder, for tests: each entry is a code
// word (a string of '0' and '1') and its value.
struct Code {
    const char* bits;
    uint8_t value;
};
struct CodeList {
    const char* name;  // "coeff_token 0..1", "total_zeros 4x4 3", "run_before 7+", ...
    const Code* codes;
    int count;
};
// All the lists, and a decode of one code word through the lookup tables
// that the reader uses (for a table-against-list test): the value, or -1.
const CodeList* code_lists(int* count);
int decode_with_table(int list, const uint8_t* bits, size_t bytes, int* length);

}  // namespace kplvc::codecs::h264
