// MPEG-4 texture coding: the two run-level code tables (intra and inter),
// their escape limits, and the decoding loop shared by the coefficient
// decoders.
//
// Both tables have the same 102 code words plus ESCAPE; they differ in the
// (LAST, RUN, LEVEL) events the words stand for. The inter table is the
// H.263 TCOEF table, used here through the H.263 family's lookup tables; the
// intra table is built in texture_tables.cpp in the same layout.
#pragma once

#include <array>
#include <cstdint>

#include "core/arith.h"
#include "core/bitstream.h"
#include "h263/coef_tables.h"
#include "kplvc.h"

namespace kplvc::mpeg4 {

// One table: decoder lookups (the H.263 layout: indexed by the 12 bits at the
// position, see h263/coef_tables.h), the escape limits and the encoder's codes.
struct TcoefTable {
    const uint32_t* t0;  // 112 entries: 12-bit look >= 512, index (c12 >> 5) - 16
    const uint32_t* t1;  // 96 entries: 128 <= c12 < 512, index (c12 >> 2) - 32
    const uint32_t* t2;  // 120 entries: 8 <= c12 < 128, index c12 - 8
    // LMAX(LAST, RUN): the largest level the table codes for (LAST, RUN), 0
    // when it has no code for that pair. Escape type 1 adds it to a level.
    const uint8_t (*lmax)[64];
    // RMAX(LAST, LEVEL): the largest run the table codes for (LAST, LEVEL),
    // -1 when it has none (levels up to 31 listed). Escape type 2 adds
    // RMAX + 1 to a run.
    const int8_t (*rmax)[32];
    // Encoder: the code word of (LAST, RUN, |LEVEL|), for |LEVEL| <= LMAX.
    h263::RunLevelCode (*code)(int32_t last, int32_t run, int32_t mag);
};

// The intra table's code words by event (levels up to 27).
struct IntraCodes {
    h263::RunLevelCode code[2][64][28];
    uint8_t max_level[2][64];
};

extern const TcoefTable kIntraTcoef;  // Table B-16 with B-19 / B-21
extern const TcoefTable kInterTcoef;  // Table B-17 (H.263 TCOEF) with B-20 / B-22

// The intra table's lookups, exported for the tests.
extern const std::array<uint32_t, 112> kIntraTab0;
extern const std::array<uint32_t, 96> kIntraTab1;
extern const std::array<uint32_t, 120> kIntraTab2;
extern const IntraCodes kIntraCodes;

// The scan of a scan code (0 zigzag, 1 alternate horizontal, 2 alternate
// vertical); the code is checked by the caller.
const uint8_t* scan_table(int32_t scan);

// One coefficient event.
struct Event {
    int32_t last, run, level;  // level signed, never 0
};

// Reads one event (a code word with its sign, or an escape of type 1, 2 or
// 3) at the cache's position. On failure the cache may have moved; callers
// work on a copy. Inline, so that a caller's cache stays in registers.
// Escape layout after the 7-bit ESCAPE: "0" type 1, "10" type 2, "11"
// type 3 (LAST 1, RUN 6, marker, LEVEL 12 two's complement, marker).
[[gnu::always_inline]] inline KplStatus read_event(BitCache64& bc, const TcoefTable& t, Event* ev) {
    auto lookup = [&t](uint32_t c12) -> uint32_t {
        if (c12 >= 512) return t.t0[(c12 >> 5) - 16];
        if (c12 >= 128) return t.t1[(c12 >> 2) - 32];
        return c12 >= 8 ? t.t2[c12 - 8] : 0u;
    };
    // A normal code word with its sign: at most 12 + 1 bits.
    auto read_code = [&](uint32_t e) {
        const int len = static_cast<int>(h263::tcoef_len(e));
        const uint32_t sign = bc.peek(len + 1) & 1u;
        bc.skip(len + 1);
        const int32_t mag = static_cast<int32_t>(h263::tcoef_level(e));
        ev->last = static_cast<int32_t>(h263::tcoef_last(e));
        ev->run = static_cast<int32_t>(h263::tcoef_run(e));
        ev->level = sign ? -mag : mag;
    };
    uint32_t e = lookup(bc.peek(12));
    if (e == 0) return kplStsTextureVLCErr;
    if (h263::tcoef_level(e) != 0) {
        read_code(e);
        return kplStsNoErr;
    }
    bc.skip(7);
    const uint32_t mode = bc.peek(2);
    if (mode == 3) {
        // LAST, RUN, marker, LEVEL, marker: 21 bits.
        const uint32_t v = bc.peek(23) & 0x1FFFFFu;
        if (((v >> 13) & 1u) == 0 || (v & 1u) == 0) return kplStsMarkerErr;
        const int32_t level = static_cast<int32_t>((v >> 1) & 0xFFFu) - (((v >> 12) & 1u) ? 4096 : 0);
        // 0 and -2048 are not legal levels.
        if (level == 0 || level == -2048) return kplStsTextureVLCErr;
        bc.skip(23);
        ev->last = static_cast<int32_t>((v >> 20) & 1u);
        ev->run = static_cast<int32_t>((v >> 14) & 63u);
        ev->level = level;
        return kplStsNoErr;
    }
    const bool type2 = mode == 2;
    bc.skip(type2 ? 2 : 1);
    e = lookup(bc.peek(12));
    if (e == 0 || h263::tcoef_level(e) == 0) return kplStsTextureVLCErr;
    read_code(e);
    const int32_t mag = ev->level < 0 ? -ev->level : ev->level;
    if (type2)
        ev->run += t.rmax[ev->last][mag] + 1;  // the code exists, so RMAX does
    else
        ev->level += ev->level < 0 ? -t.lmax[ev->last][ev->run] : t.lmax[ev->last][ev->run];
    return kplStsNoErr;
}

// Inverse quantisers applied to each level as it is read (inter blocks).
// Second (H.263) method: |F| = QP (2|L| + 1), minus 1 for even QP.
struct DequantH263 {
    int32_t qmul, qadd;
    int16_t operator()(int32_t level, int) const {
        const int32_t f = level > 0 ? qmul * level + qadd : qmul * level - qadd;
        return static_cast<int16_t>(clip3(-2048, 2047, f));
    }
};

// First (MPEG) method, inter: F = ((2L + sign L) W QP) / 16, truncating.
struct DequantMatrix {
    const int16_t* w;
    int32_t qp;
    int16_t operator()(int32_t level, int pos) const {
        const int32_t t = 2 * level + (level > 0 ? 1 : -1);
        // |t| <= 4095 (escape levels up to 2047), W <= 32767, QP <= 31:
        // the product needs 64 bits only for weights beyond the 8-bit matrices.
        const int64_t p = int64_t{t} * w[pos] * qp;
        const int64_t q = p / 16;
        return static_cast<int16_t>(q < -2048 ? -2048 : (q > 2047 ? 2047 : q));
    }
};

// The largest legal stream position: a decoder never reads more than this
// many bytes past its current byte (the cache's eight-byte loads).
constexpr int kLookAheadBytes = 8;

inline bool null_stream(Kpl8u** pp, const Kpl32s* off) {
    return pp == nullptr || off == nullptr || *pp == nullptr;
}

inline void write_back(const BitCache64& bc, Kpl8u** pp, Kpl32s* off) {
    *pp = const_cast<Kpl8u*>(bc.byte());
    *off = bc.offset();
}

// dc_scaler of ISO/IEC 14496-2 7.4.3.1 (Table 7-1) for QP 1..31.
inline int32_t dc_scaler(int32_t qp, bool luma) {
    if (luma) {
        if (qp <= 4) return 8;
        if (qp <= 8) return 2 * qp;
        if (qp <= 24) return qp + 8;
        return 2 * qp - 16;
    }
    if (qp <= 4) return 8;
    if (qp <= 24) return (qp + 13) / 2;
    return qp - 6;
}

// Block indices 0..3 and 6..9 are luminance-like (luma, grey-scale alpha),
// 4 and 5 chrominance.
inline bool is_luma_block(int32_t block_index) { return block_index < 4 || block_index > 5; }

// Integer division rounding half away from zero (the standard's "//") for a
// positive divisor.
inline int32_t div_round(int32_t a, int32_t b) { return a >= 0 ? (a + b / 2) / b : -((-a + b / 2) / b); }

}  // namespace kplvc::mpeg4
