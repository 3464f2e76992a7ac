// H.263 and H.263+ shared definitions of the decoder and the encoder: the
// picture header, the picture formats and the macroblock-layer code tables
// the codec writes itself.
#pragma once

#include <cstdint>

#include "common/mbcodes.h"

namespace kplvc::codecs::h263 {

// Source formats of PTYPE / OPPTYPE (1 sub-QCIF .. 5 16CIF, 6 custom).
enum Format { kSubQcif = 1, kQcif = 2, kCif = 3, k4Cif = 4, k16Cif = 5, kCustom = 6 };

// Luma size of a standard format (false for custom or reserved values).
bool format_size(int format, int* width, int* height);
// The standard format of a size, or kCustom.
int format_of(int width, int height);

// Macroblock rows per GOB: 1 up to 400 lines, 2 up to 800, 4 above.
inline int gob_rows(int height) { return height <= 400 ? 1 : (height <= 800 ? 2 : 4); }

// Width in bits of a slice header's MBA field for a picture of `mbs`
// macroblocks (Annex K, Table K.2).
int mba_bits(int mbs);

// Picture-level coding modes.
struct Modes {
    bool plus = false;  // PLUSPTYPE: an H.263+ header
    bool umv = false;   // Annex D unrestricted motion vectors
    bool sac = false;   // Annex E syntax-based arithmetic coding (not supported)
    bool ap = false;    // Annex F advanced prediction (4 vectors, OBMC)
    bool pb = false;    // Annex G / M PB-frames (not supported)
    bool aic = false;   // Annex I advanced intra coding
    bool df = false;    // Annex J deblocking filter
    bool ss = false;    // Annex K slice structured
    bool rps = false;   // Annex N reference picture selection (not supported)
    bool isd = false;   // Annex R independent segment decoding (not supported)
    bool aiv = false;   // Annex S alternative inter VLC
    bool mq = false;    // Annex T modified quantisation
    bool pcf = false;   // custom picture clock frequency
    int uui = 0;        // Annex D with PLUSPTYPE: 1 limited range, 2 unlimited
    int sss = 0;        // Annex K submodes: bit 0 rectangular slices, bit 1 arbitrary order
};

struct PictureHeader {
    int tr = 0;      // temporal reference (8 bits, 10 with ETR)
    int format = 0;  // Format
    int width = 0;   // luma size
    int height = 0;
    int type = 0;        // 0 I, 1 P; 2.. (improved PB, B, EI, EP) not supported
    int rtype = 0;       // rounding type of half-sample averages
    bool cpm = false;    // continuous presence multipoint
    int quant = 0;       // PQUANT
    int par = 2;         // pixel aspect ratio code (2: 12:11)
    int clock_code = 0;  // custom clock: conversion code (0: 1000, 1: 1001)
    int clock_div = 0;   //               divisor
    Modes modes;
};

// Chroma quantiser of modified quantisation (Annex T) for luma QP 1..31.
extern const uint8_t kChromaQp[32];

}  // namespace kplvc::codecs::h263
