// MPEG-4 texture decoding: the intra DC differential, intra and inter
// coefficients with the three escape types, and the inter decoder that
// inverse-quantises as it goes.
#include <cstring>

#include "core/arith.h"
#include "mpeg4/texture.h"

namespace kplvc::mpeg4 {

namespace {

// dct_dc_size of ISO/IEC 14496-2 Table B-13 (luminance) and B-14
// (chrominance), read from the count z of leading zeros:
//   luminance:   1x (x=1: 1, x=0: 2), 01x (x=1: 0, x=0: 3), then z >= 2
//                zeros and a one give z + 2 (lengths 3..11; 11 zeros: none)
//   chrominance: 1x (x=1: 0, x=0: 1), 01 gives 2, then z >= 2 zeros and a
//                one give z + 1 (lengths 3..12; 12 zeros: none)
// Returns the size, or -1 for the code-less pattern; *len gets the length.
int dc_size(uint32_t look12, bool luma, int* len) {
    const int z = std::countl_zero(look12 << 20);  // leading zeros of the 12 bits
    const uint32_t second = (look12 >> 10) & 1u;
    if (luma) {
        if (z >= 11) return -1;
        *len = z < 2 ? z + 2 : z + 1;
        if (z == 0) return second ? 1 : 2;
        if (z == 1) return ((look12 >> 9) & 1u) ? 0 : 3;
        return z + 2;
    }
    if (z >= 12) return -1;
    *len = z < 2 ? 2 : z + 1;
    if (z == 0) return second ? 0 : 1;
    return z < 2 ? 2 : z + 1;
}

// The coefficients of a block as they are read: raster positions and
// values, in scan order. The caller's block is written only once the whole
// block has decoded (cleared, then these scattered), which is cheaper than
// building a whole block aside and copying it.
struct Coefs {
    int n = 0;
    uint8_t pos[64];
    int16_t val[64];
    // Clears dst[first..63] and places the coefficients.
    void put(int16_t* dst, int first) const {
        std::memset(dst + first, 0, static_cast<size_t>(64 - first) * sizeof(int16_t));
        for (int k = 0; k < n; ++k) dst[pos[k]] = val[k];
    }
};

// Events from `start` (the scan index before the first coefficient) until
// LAST; each level, mapped by Dequant, is recorded with its raster position
// through `scan`. Returns the last scan index through *last.
template <class Dequant>
KplStatus decode_block(BitCache64& position, const TcoefTable& t, int start, const uint8_t* scan, Coefs* out,
                       int* last, Dequant dq) {
    BitCache64 bc = position;  // a local copy stays in registers
    int i = start;
    for (;;) {
        // The common case inline: a code word and its sign (13 bits at
        // most); escapes take the general reader.
        Event ev;
        const uint32_t v = bc.peek(13), c12 = v >> 1;
        const uint32_t e = c12 >= 512 ? t.t0[(c12 >> 5) - 16] : (c12 >= 128 ? t.t1[(c12 >> 2) - 32] : 0u);
        if (e != 0 && h263::tcoef_level(e) != 0) {
            const int len = static_cast<int>(h263::tcoef_len(e));
            const int32_t mag = static_cast<int32_t>(h263::tcoef_level(e));
            const int32_t neg = -static_cast<int32_t>((v >> (12 - len)) & 1u);  // 0 or -1
            bc.skip(len + 1);
            ev.last = static_cast<int32_t>(h263::tcoef_last(e));
            ev.run = static_cast<int32_t>(h263::tcoef_run(e));
            ev.level = (mag ^ neg) - neg;
        } else {
            const KplStatus st = read_event(bc, t, &ev);
            if (st != kplStsNoErr) return st;
        }
        i += ev.run + 1;
        if (i > 63) return kplStsCoefCountErr;
        const int pos = scan[i];
        out->pos[out->n] = static_cast<uint8_t>(pos);
        out->val[out->n++] = dq(ev.level, pos);
        if (ev.last) break;
    }
    *last = i;
    position = bc;
    return kplStsNoErr;
}

struct KeepLevel {
    int16_t operator()(int32_t level, int) const { return static_cast<int16_t>(level); }
};

bool bad_scan(Kpl32s scan) { return scan < 0 || scan > 2; }

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc;
using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliDecodeDCIntra_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset, Kpl16s* pDCDiff,
                                                  Kpl32s blockIndex) {
    if (null_stream(ppBitStream, pBitOffset) || pDCDiff == nullptr) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (blockIndex < 0 || blockIndex > 9) return kplStsBlockIndexErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    int len = 0;
    const int size = dc_size(bc.peek(12), is_luma_block(blockIndex), &len);
    if (size < 0) return kplStsTextureVLCErr;
    bc.skip(len);
    int32_t diff = 0;
    if (size > 0) {
        const int32_t v = static_cast<int32_t>(bc.peek(size));
        bc.skip(size);
        // A leading 1 bit: positive as read; otherwise the one's complement of
        // the magnitude: v - (2^size - 1).
        diff = (v >> (size - 1)) ? v : v - ((1 << size) - 1);
        if (size > 8) {
            if (bc.peek(1) == 0) return kplStsMarkerErr;
            bc.skip(1);
        }
    }
    *pDCDiff = static_cast<Kpl16s>(diff);
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeCoeffsIntra_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                      Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero, Kpl32s dcVlc,
                                                      Kpl32s scan) {
    if (null_stream(ppBitStream, pBitOffset) || pCoeffs == nullptr || pIndxLastNonZero == nullptr)
        return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (dcVlc != 0 && dcVlc != 1) return kplStsModeErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    Coefs c;
    int last = 0;
    // With a separate DC the first code's RUN counts from scan position 1.
    const KplStatus st =
        decode_block(bc, kIntraTcoef, dcVlc ? 0 : -1, scan_table(scan), &c, &last, KeepLevel{});
    if (st != kplStsNoErr) return st;
    c.put(pCoeffs, dcVlc);
    *pIndxLastNonZero = last;
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeCoeffsInter_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                      Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                      Kpl32s scan) {
    if (null_stream(ppBitStream, pBitOffset) || pCoeffs == nullptr || pIndxLastNonZero == nullptr)
        return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    Coefs c;
    int last = 0;
    const KplStatus st = decode_block(bc, kInterTcoef, -1, scan_table(scan), &c, &last, KeepLevel{});
    if (st != kplStsNoErr) return st;
    c.put(pCoeffs, 0);
    *pIndxLastNonZero = last;
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliReconstructCoeffsInter_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                           Kpl16s* pCoeffs, Kpl32s* pIndxLastNonZero,
                                                           Kpl32s scan, Kpl32s QP, const Kpl16s* pQMatrix) {
    if (null_stream(ppBitStream, pBitOffset) || pCoeffs == nullptr || pIndxLastNonZero == nullptr)
        return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (bad_scan(scan)) return kplStsBadArgErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    Coefs c;
    int last = 0;
    const uint8_t* sc = scan_table(scan);
    const KplStatus st =
        pQMatrix == nullptr
            ? decode_block(bc, kInterTcoef, -1, sc, &c, &last, DequantH263{2 * QP, (QP & 1) ? QP : QP - 1})
            : decode_block(bc, kInterTcoef, -1, sc, &c, &last, DequantMatrix{pQMatrix, QP});
    if (st != kplStsNoErr) return st;
    c.put(pCoeffs, 0);
    if (pQMatrix != nullptr) {
        // Mismatch control: when the sum of the coefficients is even, the
        // last one's lowest bit flips (+1 when even, -1 when odd).
        uint32_t sum = 0;
        for (int k = 0; k < c.n; ++k) sum += static_cast<uint32_t>(c.val[k]);
        if ((sum & 1u) == 0) {
            pCoeffs[63] = static_cast<int16_t>(pCoeffs[63] ^ 1);
            last = 63;
        }
    }
    *pIndxLastNonZero = last;
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

}  // extern "C"
