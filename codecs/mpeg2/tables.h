// The code tables of ISO/IEC 13818-2 Annex B (the same code words serve
// ISO/IEC 11172-2 streams), the default quantiser matrix and the two scans,
// as this decoder keeps them; and the lookups built from them once.
#pragma once

#include <cstdint>

#include "kplvc.h"

namespace kplvc::codecs::mpeg2 {

// A code word (first transmitted bit the most significant of `len` bits)
// and what it stands for.
struct VlcCode {
    uint32_t code;
    uint8_t len;
    int16_t value;
};

// A (run, |level|) code word without its sign bit; EOB and escape carry
// KPLVC_RL_EOB and KPLVC_RL_ESCAPE as their run and 0 as their level.
struct RunLevelCode {
    uint32_t code;
    uint8_t len;
    int16_t run, level;
};

// macroblock_type flags (Tables B-2 to B-4).
enum MbFlags : int16_t {
    kQuant = 1,
    kForward = 2,
    kBackward = 4,
    kPattern = 8,
    kIntra = 16,
};

// Values of Table B-1 beyond the increments 1..33.
constexpr int16_t kMbaEscape = 34;
constexpr int16_t kMbaStuffing = 35;

extern const VlcCode kMbAddressIncrement[35];
extern const VlcCode kMbTypeI[2];
extern const VlcCode kMbTypeP[7];
extern const VlcCode kMbTypeB[11];
extern const VlcCode kCodedBlockPattern[64];
extern const VlcCode kMotionCode[33];
extern const VlcCode kDmVector[3];
extern const VlcCode kDcSizeLuma[12];
extern const VlcCode kDcSizeChroma[12];
extern const RunLevelCode kDctCoefZero[113];  // Table B-14
extern const RunLevelCode kDctCoefOne[113];   // Table B-15

// The default intra quantiser matrix in raster order (row = vertical
// frequency); the default non-intra matrix is 16 everywhere.
extern const uint8_t kDefaultIntraMatrix[64];
// Scan index to raster position.
extern const uint8_t kZigzagScan[64];
extern const uint8_t kAlternateScan[64];
// Non-linear quantiser_scale for quantiser_scale_code 0..31 (q_scale_type 1).
extern const uint8_t kNonLinearScale[32];

// A direct lookup of a prefix code by its next `bits` bits: value and code
// length, length 0 where no code word begins.
struct Lookup {
    int bits;
    const int16_t* value;
    const uint8_t* length;
};

// Everything the decoder reads code words with, built once per process
// (immutable afterwards). The run-level and DC size tables are the library's
// (kpliVCHuffmanInitAllocRL_32s, kpliVCHuffmanInitAlloc_32s).
struct Tables {
    Lookup mba, mb_type[3], cbp, motion, dmv;  // mb_type by picture type I, P, B
    const Kpl32s* coef[2];                     // B-14, B-15
    const Kpl32s* dc_size[2];                  // B-12 (luma), B-13 (chroma)
    bool ok;                                   // the library built every table
};
const Tables& tables();

// The generic VLC description (the library's list format) of a run-level
// table, with two lookup levels of 8 bits; for the tests as well.
int run_level_list(const RunLevelCode* codes, int n, Kpl32s* out, int out_size);

}  // namespace kplvc::codecs::mpeg2
