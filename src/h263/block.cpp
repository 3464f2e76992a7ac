// H.263 block coefficients: the TCOEF decoding loop and the four block
// decoders built on it (intra, inter, intra DC only, advanced intra), and the
// two coefficient encoders.
#include <cstring>

#include "block/dct.h"
#include "block/scan.h"
#include "core/arith.h"
#include "core/bitstream.h"
#include "h263/coef_tables.h"
#include "h263/quant.h"
#include "kplvc.h"

namespace kplvc::h263 {

namespace {

struct TcoefTables {
    const std::array<uint32_t, 112>& t0;
    const std::array<uint32_t, 96>& t1;
    const std::array<uint32_t, 120>& t2;
};
const TcoefTables kNormal = {DCTtab0, DCTtab1, DCTtab2};
const TcoefTables kAdvanced = {advDCTtab0, advDCTtab1, advDCTtab2};

// Reads run-level codes through a private look-ahead until the code with
// LAST = 1. The scan index i advances by RUN + 1 per code from `start` (0 for
// intra blocks, whose DC sits at scan position 0; -1 for inter blocks), and
// each level lands at out[i] (a compact block in scan order) or, for Raster,
// straight at its raster position out[scan[i]] of a cleared block. On
// success the last scan index is returned through *last; the caller writes
// the position back only then.
//
// One 22-bit look per code covers both a normal code with its sign (at most
// 13 bits) and a whole escape (7 + 1 + 6 + 8 bits).
template <bool Raster>
KplStatus decode_tcoef(BitCache64& position, const TcoefTables& t, int start, int16_t* out, int* last,
                       const uint8_t* scan = nullptr) {
    BitCache64 bc = position;  // a local copy stays in registers
    int i = start;
    for (;;) {
        const uint32_t v = bc.peek(22);
        const uint32_t c12 = v >> 10;
        if (c12 < 8) return kplStsVLCErr;
        const uint32_t e =
            c12 >= 512 ? t.t0[(c12 >> 5) - 16] : (c12 >= 128 ? t.t1[(c12 >> 2) - 32] : t.t2[c12 - 8]);
        uint32_t is_last, run;
        int32_t level;
        if (tcoef_level(e) == 0) {
            // ESCAPE: LAST (1), RUN (6), LEVEL (8, two's complement); the
            // levels 0 and -128 that the standard forbids are kept as read.
            bc.skip(22);
            is_last = (v >> 14) & 1;
            run = (v >> 8) & 63;
            level = static_cast<int8_t>(static_cast<uint8_t>(v & 0xFF));
        } else {
            const uint32_t len = tcoef_len(e);
            const int32_t mag = static_cast<int32_t>(tcoef_level(e));
            const int32_t neg = -static_cast<int32_t>((v >> (21 - len)) & 1);  // 0 or -1
            bc.skip(static_cast<int>(len) + 1);
            is_last = tcoef_last(e);
            run = tcoef_run(e);
            level = (mag ^ neg) - neg;
        }
        i += static_cast<int>(run) + 1;
        if (i > 63) return kplStsCoefCountErr;
        if constexpr (Raster)
            out[scan[i]] = static_cast<int16_t>(level);
        else
            out[i] = static_cast<int16_t>(level);
        if (is_last) break;
    }
    *last = i;
    position = bc;
    return kplStsNoErr;
}

inline bool null_stream(Kpl8u** pp, int* off) { return pp == nullptr || off == nullptr || *pp == nullptr; }

// The fixed-length INTRADC; 0 and 128 are not legal codes.
inline KplStatus read_intradc(BitCache64& bc, int16_t* dc) {
    const uint32_t v = bc.peek(8);
    if (v == 0 || v == 128) return kplStsIntraDCErr;
    bc.skip(8);
    *dc = static_cast<int16_t>(v);
    return kplStsNoErr;
}

inline void write_back(const BitCache64& bc, Kpl8u** pp, int* off) {
    *pp = const_cast<Kpl8u*>(bc.byte());
    *off = bc.offset();
}

inline void fill8x8(uint8_t* dst, int step, uint8_t v) {
    for (int y = 0; y < 8; ++y) std::memset(dst + static_cast<intptr_t>(y) * step, v, 8);
}

inline int16_t clamp2048(int32_t v) { return static_cast<int16_t>(clip3(-2048, 2047, v)); }

}  // namespace

}  // namespace kplvc::h263

using namespace kplvc;
using namespace kplvc::h263;

extern "C" {

KPLVC_API KplStatus kpliDecodeBlockCoef_Intra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pDst,
                                                        int step, int QP) {
    if (null_stream(ppBitStream, pBitOffset) || pDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    int16_t dc;
    KplStatus st = read_intradc(bc, &dc);
    if (st != kplStsNoErr) return st;
    // Levels go straight to their raster positions (the classical inverse
    // scan), then the block is inverse-quantised in place. Stream levels are
    // at most 255 in magnitude, so 2*QP*|L| + QP stays below 16 bits and the
    // 16-bit full-block kernel gives exactly the compact rule's values.
    alignas(16) int16_t blk[64] = {};
    int last;
    st = decode_tcoef<true>(bc, kNormal, 0, blk, &last, block::ZigzagC);
    if (st != kplStsNoErr) return st;
    quant_kernels().quant_inv16(blk, 1, QP);
    blk[0] = static_cast<int16_t>(dc == 255 ? 1024 : 8 * dc);
    block::dct8x8_inv_u8(blk, pDst, step);
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBlockCoef_Inter_H263_1u16s(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pDst,
                                                         int QP) {
    if (null_stream(ppBitStream, pBitOffset) || pDst == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    std::memset(pDst, 0, 64 * sizeof(Kpl16s));
    BitCache64 bc(*ppBitStream, *pBitOffset);
    int last;
    // Levels land at their raster positions in the cleared destination (see
    // the intra decoder for why the 16-bit dequantiser is exact here).
    const KplStatus st = decode_tcoef<true>(bc, kNormal, -1, pDst, &last, block::ZigzagC);
    if (st != kplStsNoErr) {
        std::memset(pDst, 0, 64 * sizeof(Kpl16s));
        return st;
    }
    if (last == 0) {
        // Only the first coefficient: its inverse transform is flat,
        // (rec + 4) >> 3 everywhere, and no transform needs to run.
        const int16_t rec = dequant_level(pDst[0], QP);
        const int16_t v = static_cast<int16_t>((rec + 4) >> 3);
        for (int i = 0; i < 64; ++i) pDst[i] = v;
    } else {
        quant_kernels().quant_inv16(pDst, 0, QP);
        // The smallest transform that covers the coded positions: scan
        // positions below 4 lie in the 2x2 corner; below 20 all but 10, 14,
        // 15 and 16 lie in the 4x4 corner.
        const int count = last + 1;
        const auto& z = block::ZigzagC;
        if (count < 4)
            block::dct8x8_inv_2x2(pDst);
        else if (count <= 19 && (pDst[z[10]] | pDst[z[14]] | pDst[z[15]] | pDst[z[16]]) == 0)
            block::dct8x8_inv_4x4(pDst);
        else
            block::dct8x8_inv(pDst, pDst);
    }
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBlockCoef_IntraDCOnly_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset,
                                                              Kpl8u* pDst, int step) {
    if (null_stream(ppBitStream, pBitOffset) || pDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    // The byte pointer moves on before the value is checked: an illegal
    // INTRADC leaves the position advanced.
    const uint32_t v = ownShowBits(*ppBitStream, *pBitOffset, 8);
    *ppBitStream += 1;
    if (v == 0 || v == 128) return kplStsIntraDCErr;
    fill8x8(pDst, step, static_cast<uint8_t>(v == 255 ? 128 : v));
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBlockCoef_AdvIntra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pDst,
                                                           int step, Kpl16s* pCoefRow, Kpl16s* pCoefCol,
                                                           int QP, int mode) {
    if (null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (pDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    if (pCoefRow == nullptr || pCoefCol == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    if (mode < 1 || mode > 3) return kplStsAdvIntraModeErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    alignas(16) int16_t compact[64] = {};
    KplStatus st = read_intradc(bc, &compact[0]);
    if (st != kplStsNoErr) return st;
    int last;
    st = decode_tcoef<false>(bc, kAdvanced, 0, compact, &last);
    if (st != kplStsNoErr) return st;
    // AC levels times 2QP, no offset; |level| <= 255 keeps the product in
    // 16 bits, and the clamp bounds it to -2048..2047.
    for (int i = 1; i <= last; ++i) compact[i] = clamp2048(int32_t{compact[i]} * 2 * QP);
    alignas(16) int16_t blk[64] = {};
    const auto& scan = mode == 3 ? block::ownZigZagC : (mode == 1 ? block::ownZigZagH : block::ownZigZagV);
    block::inverse_scan(compact, blk, scan, last + 1);
    // Prediction from the neighbours' first row / first column; a predictor
    // whose element 0 is negative is unavailable.
    const bool row_ok = pCoefRow[0] >= 0, col_ok = pCoefCol[0] >= 0;
    int32_t dc = blk[0];
    if (mode == 3) {
        if (row_ok && col_ok)
            dc += (pCoefRow[0] + pCoefCol[0]) / 2;
        else if (row_ok)
            dc += pCoefRow[0];
        else if (col_ok)
            dc += pCoefCol[0];
        else
            dc += 1024;
    } else {
        const bool ok = mode == 1 ? col_ok : row_ok;
        const Kpl16s* pred = mode == 1 ? pCoefCol : pCoefRow;
        const int stride = mode == 1 ? 8 : 1;  // first column or first row
        if (!ok) {
            dc += 1024;
        } else {
            dc = clamp2048(dc + pred[0]);
            for (int k = 1; k < 8; ++k) blk[k * stride] = clamp2048(blk[k * stride] + pred[k]);
        }
    }
    if ((dc & 1) == 0) dc += 1;
    if (dc >= 2048) dc = 2047;
    if (dc < 0) dc = 0;
    blk[0] = static_cast<int16_t>(dc);
    for (int k = 0; k < 8; ++k) {
        pCoefRow[k] = blk[k];
        pCoefCol[k] = blk[8 * k];
    }
    block::dct8x8_inv_u8(blk, pDst, step);
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliEncode_IntraDCVLC_H263_16s1u(Kpl16s qDC, Kpl8u** ppBitStream, int* pBitOffset) {
    if (null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    // The code 128 does not exist; 255 stands for it.
    const uint32_t code = qDC == 128 ? 255u : static_cast<uint32_t>(static_cast<uint16_t>(qDC)) & 0xFFu;
    int32_t off = *pBitOffset;
    PutBits(ppBitStream, &off, code, 8);
    *pBitOffset = off;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliEncode_ACVLC_H263_16s1u(const Kpl16s* pQCoef, Kpl8u** ppBitStream, int* pBitOffset,
                                                int intra) {
    if (pQCoef == nullptr || null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    const int first = intra ? 1 : 0;
    int last = -1;
    for (int i = 63; i >= first; --i)
        if (pQCoef[block::ZigzagC[i]] != 0) {
            last = i;
            break;
        }
    if (last < 0) return kplStsNoErr;
    uint8_t* p = *ppBitStream;
    int32_t off = *pBitOffset;
    int run = 0;
    for (int i = first; i <= last; ++i) {
        const int32_t level = pQCoef[block::ZigzagC[i]];
        if (level == 0) {
            ++run;
            continue;
        }
        const int is_last = i == last ? 1 : 0;
        const int32_t mag = level < 0 ? -level : level;
        if (run <= mVLC_TB17.max_run[is_last] && mag <= mVLC_TB17.max_level[is_last][run]) {
            const RunLevelCode c = mVLC_TB17.code[is_last][run][mag];
            PutBits(&p, &off, (uint32_t{c.code} << 1) | (level < 0 ? 1u : 0u), c.len + 1);
        } else {
            // ESCAPE 0000011, LAST, RUN (6 bits), LEVEL (low 8 bits).
            const uint32_t code = (3u << 15) | (static_cast<uint32_t>(is_last) << 14) |
                                  (static_cast<uint32_t>(run) << 8) | (static_cast<uint32_t>(level) & 0xFFu);
            PutBits(&p, &off, code, 22);
        }
        run = 0;
    }
    *ppBitStream = p;
    *pBitOffset = off;
    return kplStsNoErr;
}

}  // extern "C"
