// H.263 TCOEF code tables.
#pragma once

#include <array>
#include <cstdint>

namespace kplvc::h263 {

// Decoder entries: bit 0 LAST, bits 1-6 RUN, bits 7-14 |LEVEL| (0 = the
// ESCAPE code), bits 15-18 the code length without the sign bit. Indexed by
// the 12 bits c12 at the position: c12 >= 512: tab0[(c12 >> 5) - 16];
// c12 >= 128: tab1[(c12 >> 2) - 32]; c12 >= 8: tab2[c12 - 8]; below 8 no
// code starts.
extern const std::array<uint32_t, 112> DCTtab0;
extern const std::array<uint32_t, 96> DCTtab1;
extern const std::array<uint32_t, 120> DCTtab2;
extern const std::array<uint32_t, 112> advDCTtab0;
extern const std::array<uint32_t, 96> advDCTtab1;
extern const std::array<uint32_t, 120> advDCTtab2;

constexpr uint32_t tcoef_last(uint32_t e) { return e & 1; }
constexpr uint32_t tcoef_run(uint32_t e) { return (e >> 1) & 63; }
constexpr uint32_t tcoef_level(uint32_t e) { return (e >> 7) & 255; }
constexpr uint32_t tcoef_len(uint32_t e) { return (e >> 15) & 15; }

// The inter run-level table (shared with MPEG-4): code word without the sign
// bit for (LAST, RUN, |LEVEL|), the largest RUN per LAST and the largest
// |LEVEL| per (LAST, RUN). Events outside it are coded with the escape.
struct RunLevelCode {
    uint16_t code;
    uint8_t len;
};
struct RunLevelTable {
    RunLevelCode code[2][64][13];
    uint8_t max_run[2];
    uint8_t max_level[2][64];
};
extern const RunLevelTable mVLC_TB17;

}  // namespace kplvc::h263
