// TCOEF writer for either H.263 run-level table (TCOEF or the Annex I intra
// table), in any of the three scans, with the Annex T extended escape.
#include "block/scan.h"
#include "core/once.h"
#include "h263/coef_tables.h"
#include "kplvc.h"

namespace kplvc::h263 {

namespace {

// A run-level code table wide enough for both tables: the Annex I table's
// levels reach 25 (the TCOEF table's 12), runs stay below 64.
struct WideTable {
    RunLevelCode code[2][64][32];
    uint8_t max_run[2];
    uint8_t max_level[2][64];
};

// The Annex I intra table as (LAST, RUN, |LEVEL|) -> code word, built once
// by walking the decoder's lookup tables: every 12-bit look that starts a
// code gives its event and length, and the code word is the look's leading
// `length` bits.
WideTable invert(const std::array<uint32_t, 112>& t0, const std::array<uint32_t, 96>& t1,
                 const std::array<uint32_t, 120>& t2) {
    WideTable t{};
    for (uint32_t c12 = 8; c12 < 4096; ++c12) {
        const uint32_t e = c12 >= 512 ? t0[(c12 >> 5) - 16] : c12 >= 128 ? t1[(c12 >> 2) - 32] : t2[c12 - 8];
        const uint32_t level = tcoef_level(e), run = tcoef_run(e), last = tcoef_last(e), len = tcoef_len(e);
        if (level == 0) continue;  // the escape
        t.code[last][run][level] =
            RunLevelCode{static_cast<uint16_t>(c12 >> (12 - len)), static_cast<uint8_t>(len)};
        if (run > t.max_run[last]) t.max_run[last] = static_cast<uint8_t>(run);
        if (level > t.max_level[last][run]) t.max_level[last][run] = static_cast<uint8_t>(level);
    }
    return t;
}

// For each scan and each raster row, the scan positions of that row's eight
// coefficients as a bit mask per pattern of non-zero coefficients: the
// block's non-zero positions in scan order are the OR of eight lookups, and
// the writer visits only those.
struct ScanMasks {
    uint64_t m[3][8][256];
};

ScanMasks make_scan_masks() {
    ScanMasks t{};
    const uint8_t* orders[3] = {block::ZigzagC, block::ZigzagH, block::ZigzagV};
    for (int s = 0; s < 3; ++s) {
        uint8_t pos[64];  // scan position of each raster index
        for (int i = 0; i < 64; ++i) pos[orders[s][i]] = static_cast<uint8_t>(i);
        for (int r = 0; r < 8; ++r)
            for (int bits = 0; bits < 256; ++bits)
                for (int c = 0; c < 8; ++c)
                    if (bits & (1 << c)) t.m[s][r][bits] |= uint64_t{1} << pos[8 * r + c];
    }
    return t;
}

const ScanMasks& scan_masks() { return built_once<ScanMasks, make_scan_masks>(); }

// Both tables in the same form, built once from the decoders' tables.
struct WideTables {
    WideTable t[2];
};
WideTables make_wide_tables() {
    return {{invert(DCTtab0, DCTtab1, DCTtab2), invert(advDCTtab0, advDCTtab1, advDCTtab2)}};
}
const WideTable& table(int which) { return built_once<WideTables, make_wide_tables>().t[which]; }

}  // namespace

}  // namespace kplvc::h263

using namespace kplvc;
using namespace kplvc::h263;

extern "C" {

KPLVC_API KplStatus kpliEncode_TCOEFEx_H263_16s1u(const Kpl16s* pQCoef, Kpl8u** ppBitStream, int* pBitOffset,
                                                  int scan, int first, int table, int flags, int* pCount) {
    if (pQCoef == nullptr || ppBitStream == nullptr || pBitOffset == nullptr || *ppBitStream == nullptr ||
        pCount == nullptr)
        return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (scan < 0 || scan > 2 || first < 0 || first > 1 || table < 0 || table > 1 ||
        (flags & ~KPLVC_H263_EXT_ESCAPE) != 0)
        return kplStsBadArgErr;
    const uint8_t* order = scan == 0 ? block::ZigzagC : scan == 1 ? block::ZigzagH : block::ZigzagV;
    const WideTable& t = h263::table(table);
    const bool ext = (flags & KPLVC_H263_EXT_ESCAPE) != 0;
    // The non-zero coefficients in scan order, from position `first`.
    const auto& masks = scan_masks().m[scan];
    uint64_t nz = 0;
    for (int r = 0; r < 8; ++r) {
        unsigned bits = 0;
        for (int c = 0; c < 8; ++c) bits |= (pQCoef[8 * r + c] != 0 ? 1u : 0u) << c;
        nz |= masks[r][bits];
    }
    nz &= ~uint64_t{0} << first;
    if (nz == 0) {
        *pCount = 0;
        return kplStsNoErr;
    }
    const int last = 63 - __builtin_clzll(nz);
    // Codes collect left-aligned in a 64-bit accumulator and leave it four
    // whole bytes at a time (an event is at most 33 bits, so it always
    // fits). The current byte keeps its first `off` bits, and the bits after
    // the last code are zero, as the library's byte writer leaves them.
    uint8_t* p = *ppBitStream;
    const int32_t off = *pBitOffset;
    uint64_t acc = off ? static_cast<uint64_t>(p[0] >> (8 - off)) << (64 - off) : 0;
    int bits = off;
    auto put = [&](uint32_t code, int n) {
        acc |= static_cast<uint64_t>(code) << (64 - bits - n);
        bits += n;
        if (bits >= 32) {
            const uint32_t word = static_cast<uint32_t>(acc >> 32);
            p[0] = static_cast<uint8_t>(word >> 24);
            p[1] = static_cast<uint8_t>(word >> 16);
            p[2] = static_cast<uint8_t>(word >> 8);
            p[3] = static_cast<uint8_t>(word);
            p += 4;
            acc <<= 32;
            bits -= 32;
        }
    };
    int count = 0, prev = first - 1;
    const int32_t lo = ext ? -1024 : -127, hi = ext ? 1023 : 127;
    for (; nz != 0; nz &= nz - 1) {
        const int i = __builtin_ctzll(nz);
        const int run = i - prev - 1;
        prev = i;
        int32_t level = pQCoef[order[i]];
        const int is_last = i == last ? 1 : 0;
        level = level < lo ? lo : (level > hi ? hi : level);
        const int32_t mag = level < 0 ? -level : level;
        if (run <= t.max_run[is_last] && mag <= t.max_level[is_last][run]) {
            const RunLevelCode c = t.code[is_last][run][mag];
            put((uint32_t{c.code} << 1) | (level < 0 ? 1u : 0u), c.len + 1);
        } else {
            // ESCAPE 0000011, LAST, RUN (6 bits), LEVEL (8 bits); a level
            // outside -127..127 writes 10000000 and the 11-bit extension:
            // its low five bits, then its upper six.
            const bool extended = mag > 127 || level == -128;
            const uint32_t byte = extended ? 0x80u : static_cast<uint32_t>(level) & 0xFFu;
            put((3u << 15) | (static_cast<uint32_t>(is_last) << 14) | (static_cast<uint32_t>(run) << 8) |
                    byte,
                22);
            if (extended) {
                const uint32_t u = static_cast<uint32_t>(level) & 0x7FFu;
                put(((u & 31u) << 6) | (u >> 5), 11);
            }
        }
        ++count;
    }
    for (; bits >= 8; bits -= 8, acc <<= 8) *p++ = static_cast<uint8_t>(acc >> 56);
    if (bits > 0) p[0] = static_cast<uint8_t>(acc >> 56);
    *ppBitStream = p;
    *pBitOffset = bits;
    *pCount = count;
    return kplStsNoErr;
}

}  // extern "C"
