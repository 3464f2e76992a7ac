// H.263 macroblock-layer symbols: MCBPC, MODB, CBPY, motion-vector
// differences with median prediction, and the modified-quantisation update.
//
// These decoders look at the stream through a two-byte window (three bytes
// for a motion-vector code), never more, so a caller's buffer needs at most
// two bytes beyond the last bit a symbol uses. They do not use the general
// five-byte reader.
#include "h263/symbols.h"

#include <cstddef>

#include "kplvc.h"

namespace kplvc::h263 {

namespace {

struct Code {
    const char* bits;  // first transmitted bit first
    int32_t value;
};

constexpr int code_len(const char* s) {
    int n = 0;
    while (s[n] != 0) ++n;
    return n;
}

constexpr uint32_t code_bits(const char* s) {
    uint32_t v = 0;
    for (int i = 0; s[i] != 0; ++i) v = (v << 1) | static_cast<uint32_t>(s[i] - '0');
    return v;
}

// Code lists of the standard's tables.
// MCBPC, I-pictures: code word, output byte (type | CBPC << 4; 255 stuffing).
constexpr Code kMcbpcIntraCodes[] = {
    {"1", 3},       {"001", 19},    {"010", 35},    {"011", 51},        {"0001", 4},
    {"000001", 20}, {"000010", 36}, {"000011", 52}, {"000000001", 255},
};
// MCBPC, P-pictures (the INTER4V+Q words, type 5, are left out: they are rejected).
constexpr Code kMcbpcInterCodes[] = {
    {"1", 0},           {"0011", 16},     {"0010", 32},      {"000101", 48},    {"011", 1},
    {"0000111", 17},    {"0000110", 33},  {"000000101", 49}, {"010", 2},        {"0000101", 18},
    {"0000100", 34},    {"00000101", 50}, {"00011", 3},      {"00000100", 19},  {"00000011", 35},
    {"0000011", 51},    {"000100", 4},    {"000000100", 20}, {"000000011", 36}, {"000000010", 52},
    {"000000001", 255},
};
// CBPY, inter meaning (bit 3 = block 1 ... bit 0 = block 4).
constexpr Code kCbpyCodes[] = {
    {"0011", 15},  {"00101", 14}, {"00100", 13}, {"1001", 12},  {"00011", 11}, {"0111", 10},
    {"000010", 9}, {"1011", 8},   {"00010", 7},  {"000011", 6}, {"0101", 5},   {"1010", 4},
    {"0100", 3},   {"1000", 2},   {"0110", 1},   {"11", 0},
};
// MVD: the difference in half-sample units, in -32..31.
constexpr Code kMvdCodes[] = {
    {"0000000000101", -32},
    {"0000000000111", -31},
    {"000000000101", -30},
    {"000000000111", -29},
    {"000000001001", -28},
    {"000000001011", -27},
    {"000000001101", -26},
    {"000000001111", -25},
    {"00000001001", -24},
    {"00000001011", -23},
    {"00000001101", -22},
    {"00000001111", -21},
    {"00000010001", -20},
    {"00000010011", -19},
    {"00000010101", -18},
    {"00000010111", -17},
    {"00000011001", -16},
    {"00000011011", -15},
    {"00000011101", -14},
    {"00000011111", -13},
    {"00000100001", -12},
    {"00000100011", -11},
    {"0000010011", -10},
    {"0000010101", -9},
    {"0000010111", -8},
    {"00000111", -7},
    {"00001001", -6},
    {"00001011", -5},
    {"0000111", -4},
    {"00011", -3},
    {"0011", -2},
    {"011", -1},
    {"1", 0},
    {"010", 1},
    {"0010", 2},
    {"00010", 3},
    {"0000110", 4},
    {"00001010", 5},
    {"00001000", 6},
    {"00000110", 7},
    {"0000010110", 8},
    {"0000010100", 9},
    {"0000010010", 10},
    {"00000100010", 11},
    {"00000100000", 12},
    {"00000011110", 13},
    {"00000011100", 14},
    {"00000011010", 15},
    {"00000011000", 16},
    {"00000010110", 17},
    {"00000010100", 18},
    {"00000010010", 19},
    {"00000010000", 20},
    {"00000001110", 21},
    {"00000001100", 22},
    {"00000001010", 23},
    {"00000001000", 24},
    {"000000001110", 25},
    {"000000001100", 26},
    {"000000001010", 27},
    {"000000001000", 28},
    {"000000000110", 29},
    {"000000000100", 30},
    {"0000000000110", 31},
};

// A direct lookup table indexed by a `window`-bit look at the stream, minus
// `base`. Only the code words that start with `lead` (a bit string, possibly
// empty) enter, with that prefix dropped: every index whose leading bits
// equal the rest of a code word holds (value, length of the rest). Indices
// that fall outside 0..N-1 belong to a sibling table.
template <size_t N, size_t M>
constexpr std::array<VlcEntry, N> build(const Code (&codes)[M], const char* lead, int window, int32_t base) {
    std::array<VlcEntry, N> t{};
    const int skip = code_len(lead);
    for (const Code& c : codes) {
        bool match = true;
        for (int i = 0; i < skip; ++i) match = match && c.bits[i] == lead[i];
        const int len = code_len(c.bits) - skip;
        if (!match || len < 1 || len > window) continue;
        const uint32_t rest = code_bits(c.bits) & ((1u << len) - 1);
        const uint32_t first = rest << (window - len), count = 1u << (window - len);
        for (uint32_t i = first; i < first + count; ++i) {
            const int64_t idx = int64_t{i} - base;
            if (idx >= 0 && idx < static_cast<int64_t>(N))
                t[static_cast<size_t>(idx)] = VlcEntry{c.value, len};
        }
    }
    return t;
}

// The MCBPC tables look at the whole window (the leading 0 included); their
// entry 0 (all zeros) is never used and is marked (-1, 0).
template <size_t N, size_t M>
constexpr std::array<VlcEntry, N> build_mcbpc(const Code (&codes)[M], int window) {
    std::array<VlcEntry, N> t{};
    for (const Code& c : codes) {
        const int len = code_len(c.bits);
        if (c.bits[0] != '0' || len > window) continue;
        const uint32_t first = code_bits(c.bits) << (window - len), count = 1u << (window - len);
        for (uint32_t i = first; i < first + count; ++i) t[i] = VlcEntry{c.value, len};
    }
    t[0] = VlcEntry{-1, 0};
    return t;
}

// The stream through a byte window: `nbytes` bytes at p as one big-endian
// number, of which the top `offset` bits are already consumed.
inline uint32_t peek(const Kpl8u* p, int offset, int nbytes, int n) {
    uint32_t w = 0;
    for (int i = 0; i < nbytes; ++i) w = (w << 8) | p[i];
    return (w >> (8 * nbytes - offset - n)) & ((1u << n) - 1);
}

inline void advance(Kpl8u** pp, int* off, int n) {
    const int p = *off + n;
    *pp += p >> 3;
    *off = p & 7;
}

// One motion-vector difference code at (p, offset): returns the number of
// bits it takes (0 for an illegal code) and the difference.
inline int mvd(const Kpl8u* p, int offset, int32_t* diff) {
    if (peek(p, offset, 3, 1) != 0) {
        *diff = 0;
        return 1;
    }
    const uint32_t c12 = peek(p, offset, 3, 13) & 0xFFF;
    VlcEntry e;
    if (c12 >= 512)
        e = MVtab0[(c12 >> 8) - 2];
    else if (c12 >= 128)
        e = MVtab1[(c12 >> 2) - 32];
    else if (c12 >= 5)
        e = MVtab2[c12 - 5];
    else
        return 0;
    *diff = e.value;
    return 1 + e.len;
}

// Wraps a predicted-plus-difference component into -32..31.
inline Kpl16s wrap_mv(int32_t v) {
    if (v > 31) v -= 64;
    if (v < -32) v += 64;
    return static_cast<Kpl16s>(v);
}

// Decodes both components; `predict` forms element [1] from the candidates.
template <class Predict>
KplStatus decode_mv(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pMV, Predict predict) {
    if (ppBitStream == nullptr || pBitOffset == nullptr || *ppBitStream == nullptr || pMV == nullptr)
        return kplStsNullPtrErr;
    Kpl8u* p = *ppBitStream;
    int off = *pBitOffset;
    int32_t dx, dy;
    int n = mvd(p, off, &dx);
    if (n == 0) return kplStsH263MVCodeErr;
    advance(&p, &off, n);
    n = mvd(p, off, &dy);
    if (n == 0) return kplStsH263MVCodeErr;
    advance(&p, &off, n);
    int32_t px, py;
    predict(pMV, &px, &py);
    pMV[2] = wrap_mv(px + dx);
    pMV[3] = wrap_mv(py + dy);
    *ppBitStream = p;
    *pBitOffset = off;
    return kplStsNoErr;
}

// Median of three: with hi = max(l, a) and lo = min(l, a), r below hi gives
// max(lo, r), otherwise hi.
inline int32_t median3(int32_t l, int32_t a, int32_t r) {
    const int32_t hi = l > a ? l : a, lo = l > a ? a : l;
    return r < hi ? (lo > r ? lo : r) : hi;
}

inline bool bad_args(Kpl8u** pp, int* off, const void* out) {
    return pp == nullptr || off == nullptr || *pp == nullptr || out == nullptr;
}

}  // namespace

const std::array<VlcEntry, 32> MCBPCtabintra = build_mcbpc<32>(kMcbpcIntraCodes, 6);
const std::array<VlcEntry, 256> MCBPCtabinter = build_mcbpc<256>(kMcbpcInterCodes, 9);
const std::array<VlcEntry, 48> CBPYtab = build<48>(kCbpyCodes, "", 6, 0);
const std::array<VlcEntry, 16> MVtab0 = build<16>(kMvdCodes, "0", 4, 2);
const std::array<VlcEntry, 96> MVtab1 = build<96>(kMvdCodes, "0", 10, 32);
const std::array<VlcEntry, 124> MVtab2 = build<124>(kMvdCodes, "0", 12, 5);

// Annex T, Table T.1: the change of QUANT for DQUANT 10 (column 0) and 11
// (column 1). Row 0 is never a legal quantiser.
const int32_t changeQ[32][2] = {
    {0, 0},  {2, 1},  {-1, 1}, {-1, 1}, {-1, 1}, {-1, 1}, {-1, 1}, {-1, 1}, {-1, 1}, {-1, 1},  {-1, 1},
    {-2, 2}, {-2, 2}, {-2, 2}, {-2, 2}, {-2, 2}, {-2, 2}, {-2, 2}, {-2, 2}, {-2, 2}, {-2, 2},  {-3, 3},
    {-3, 3}, {-3, 3}, {-3, 3}, {-3, 3}, {-3, 3}, {-3, 3}, {-3, 3}, {-3, 2}, {-3, 1}, {-3, -5},
};

}  // namespace kplvc::h263

using namespace kplvc::h263;

extern "C" {

KPLVC_API KplStatus kpliDecodeMCBPCIntra_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pMCBPC) {
    if (bad_args(ppBitStream, pBitOffset, pMCBPC)) return kplStsNullPtrErr;
    const uint32_t c9 = peek(*ppBitStream, *pBitOffset, 2, 9);
    int32_t value, len;
    if (c9 == 1) {
        value = 255, len = 9;
    } else if (c9 < 8) {
        return kplStsMCBPCIntraErr;
    } else if ((c9 >> 3) < 32) {
        value = MCBPCtabintra[c9 >> 3].value, len = MCBPCtabintra[c9 >> 3].len;
    } else {
        value = 3, len = 1;
    }
    *pMCBPC = static_cast<Kpl8u>(value);
    advance(ppBitStream, pBitOffset, len);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeMCBPCInter_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pMCBPC) {
    if (bad_args(ppBitStream, pBitOffset, pMCBPC)) return kplStsNullPtrErr;
    const uint32_t c9 = peek(*ppBitStream, *pBitOffset, 2, 9);
    int32_t value, len;
    if (c9 == 1) {
        value = 255, len = 9;
    } else if (c9 == 0) {
        return kplStsMCBPCInterErr;  // nine zeros: INTER4V+Q, not supported
    } else if (c9 < 256) {
        value = MCBPCtabinter[c9].value, len = MCBPCtabinter[c9].len;
    } else {
        value = 0, len = 1;
    }
    *pMCBPC = static_cast<Kpl8u>(value);
    advance(ppBitStream, pBitOffset, len);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeMODB_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pMODB) {
    if (bad_args(ppBitStream, pBitOffset, pMODB)) return kplStsNullPtrErr;
    const uint32_t c2 = peek(*ppBitStream, *pBitOffset, 2, 2);
    if (c2 < 2) {
        *pMODB = 0;
        advance(ppBitStream, pBitOffset, 1);
    } else {
        *pMODB = static_cast<Kpl8u>(c2);
        advance(ppBitStream, pBitOffset, 2);
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeCBPY_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pCBPY) {
    if (bad_args(ppBitStream, pBitOffset, pCBPY)) return kplStsNullPtrErr;
    const uint32_t c6 = peek(*ppBitStream, *pBitOffset, 2, 6);
    if (c6 < 2) return kplStsCBPYErr;
    if (c6 < 48) {
        *pCBPY = static_cast<Kpl8u>(CBPYtab[c6].value);
        advance(ppBitStream, pBitOffset, CBPYtab[c6].len);
    } else {
        *pCBPY = 0;
        advance(ppBitStream, pBitOffset, 2);
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeMV_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pMotionVector) {
    return decode_mv(ppBitStream, pBitOffset, pMotionVector, [](const Kpl16s* mv, int32_t* x, int32_t* y) {
        *x = median3(mv[0], mv[2], mv[4]);
        *y = median3(mv[1], mv[3], mv[5]);
    });
}

KPLVC_API KplStatus kpliDecodeMV_TopBorder_H263(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pMotionVector) {
    return decode_mv(ppBitStream, pBitOffset, pMotionVector, [](const Kpl16s* mv, int32_t* x, int32_t* y) {
        *x = mv[0];
        *y = mv[1];
    });
}

KPLVC_API KplStatus kpliUpdateQuant_MQ_H263_1u32s_I(Kpl8u** ppBitStream, int* pBitOffset, Kpl32s* pQuant) {
    if (bad_args(ppBitStream, pBitOffset, pQuant)) return kplStsNullPtrErr;
    const uint32_t c6 = peek(*ppBitStream, *pBitOffset, 2, 6);
    if (c6 & 32) {
        // The caller keeps the quantiser in 0..31; the mask only keeps a
        // broken caller from reading outside the table.
        *pQuant += changeQ[*pQuant & 31][(c6 >> 4) & 1];
        advance(ppBitStream, pBitOffset, 2);
    } else {
        *pQuant = static_cast<Kpl32s>(c6 & 31);
        advance(ppBitStream, pBitOffset, 6);
    }
    return kplStsNoErr;
}

}  // extern "C"
