// H.263 block coefficients as ITU-T H.263 codes them in H.263+ streams: the
// Annex T extended escape, the Annex S alternative inter table, Annex I
// advanced intra coding, and a TCOEF writer for either table and any scan.
//
// The decoders dequantise each coefficient as it is read (32-bit products:
// with Annex T a level reaches 1023 in magnitude, and 2*31*1023 + 31 needs
// 17 bits), place it at its raster position, and run the library's 8x8
// inverse DCT.
#include <cstring>

#include "block/dct.h"
#include "block/scan.h"
#include "core/arith.h"
#include "core/bitstream.h"
#include "core/once.h"
#include "h263/coef_tables.h"
#include "h263/quant.h"
#include "kplvc.h"

namespace kplvc::h263 {

namespace {

// The three lookup tables of a code table merged into one indexed by the
// whole 12-bit look (16 KB): one load per code instead of a chain of
// data-dependent branches. Entry 0 (looks below 8) is no code.
struct Table12 {
    uint32_t e[4096];
};

Table12 merge(const std::array<uint32_t, 112>& t0, const std::array<uint32_t, 96>& t1,
              const std::array<uint32_t, 120>& t2) {
    Table12 t{};
    for (uint32_t c12 = 8; c12 < 4096; ++c12)
        t.e[c12] = c12 >= 512 ? t0[(c12 >> 5) - 16] : (c12 >= 128 ? t1[(c12 >> 2) - 32] : t2[c12 - 8]);
    return t;
}

using Tables = Table12;
Table12 make_tcoef_table() { return merge(DCTtab0, DCTtab1, DCTtab2); }
Table12 make_intra_i_table() { return merge(advDCTtab0, advDCTtab1, advDCTtab2); }
const Table12& tcoef_table() { return built_once<Table12, make_tcoef_table>(); }
const Table12& intra_i_table() { return built_once<Table12, make_intra_i_table>(); }

// One decoded event.
struct Event {
    int32_t level;
    uint32_t run, last;
    bool escape;  // the level came from an escape (any value) rather than a table code (|level| <= 25)
};

// Reads one TCOEF event. A normal code is at most 12 bits plus its sign and
// an escape 7 + 1 + 6 + 8 bits, so one 22-bit look serves both; the Annex T
// extension adds 11 bits after the escape, read with a second look (the
// cache keeps at least 25 bits, so the look-ahead stays within eight bytes
// of the current byte).
inline KplStatus read_event(BitCache64& bc, const Tables& t, bool ext, Event* ev) {
    const uint32_t v = bc.peek(22);
    const uint32_t e = t.e[v >> 10];
    if (e == 0) return kplStsVLCErr;
    if (tcoef_level(e) != 0) {
        const uint32_t len = tcoef_len(e);
        const int32_t mag = static_cast<int32_t>(tcoef_level(e));
        const int32_t neg = -static_cast<int32_t>((v >> (21 - len)) & 1);  // 0 or -1
        bc.skip(static_cast<int>(len) + 1);
        ev->level = (mag ^ neg) - neg;
        ev->run = tcoef_run(e);
        ev->last = tcoef_last(e);
        ev->escape = false;
        return kplStsNoErr;
    }
    // ESCAPE 0000011, LAST (1), RUN (6), LEVEL (8, two's complement).
    ev->last = (v >> 14) & 1;
    ev->run = (v >> 8) & 63;
    ev->level = static_cast<int8_t>(static_cast<uint8_t>(v & 0xFF));
    ev->escape = true;
    bc.skip(22);
    if (ev->level == -128) {
        // 10000000 is no level: with Annex T it announces EXTENDED-LEVEL,
        // five low bits then six high bits in two's complement (the split
        // keeps long zero runs, and so start-code emulation, out of it).
        if (!ext) return kplStsVLCErr;
        const uint32_t x = bc.peek(11);
        bc.skip(11);
        const int32_t high = static_cast<int32_t>(x & 63) - static_cast<int32_t>((x & 32) << 1);  // -32..31
        ev->level = high * 32 + static_cast<int32_t>(x >> 6);
    }
    return kplStsNoErr;
}

// The codes of one block up to LAST. Each coefficient goes through `put`
// with its scan index (which starts at `start` and advances by RUN + 1).
// Returns the last scan index through *last, or the stream's status.
template <class Put>
inline KplStatus read_block(BitCache64& bc, const Tables& t, bool ext, int start, int* last, Put&& put) {
    int i = start;
    for (;;) {
        Event ev;
        const KplStatus st = read_event(bc, t, ext, &ev);
        if (st != kplStsNoErr) return st;
        i += static_cast<int>(ev.run) + 1;
        if (i > 63) return kplStsCoefCountErr;
        put(i, ev.level, ev.escape);
        if (ev.last) break;
    }
    *last = i;
    return kplStsNoErr;
}

// The H.263 inverse quantiser for a level read from a block: a table code's
// level is at most 25 in magnitude, so 2*31*25 + 31 stays far inside the
// clamp and only escaped levels (0, or up to 1024 in magnitude) take the
// general rule.
struct Dequant {
    int32_t q2, off, qp;
    explicit Dequant(int32_t q) : q2(2 * q), off((q & 1) ? q : q - 1), qp(q) {}
    int16_t operator()(int32_t level, bool escape) const {
        if (escape) return dequant_level(level, qp);
        const int32_t neg = level >> 31;
        const int32_t mag = q2 * ((level ^ neg) - neg) + off;
        return static_cast<int16_t>((mag ^ neg) - neg);
    }
};

inline bool null_stream(Kpl8u** pp, int* off) { return pp == nullptr || off == nullptr || *pp == nullptr; }

inline void write_back(const BitCache64& bc, Kpl8u** pp, int* off) {
    *pp = const_cast<Kpl8u*>(bc.byte());
    *off = bc.offset();
}

// Inter residual of a decoded block (raster coefficients, already
// dequantised, `last` the final scan index): the smallest of the library's
// inverse DCTs that covers the coded positions (the 2x2 and 4x4 forms give
// exactly the full transform's samples on such blocks).
void inter_transform(int16_t* blk, int last) {
    const auto& z = block::ZigzagC;
    if (last < 3)
        block::dct8x8_inv_2x2(blk);
    else if (last <= 18 && (blk[z[10]] | blk[z[14]] | blk[z[15]] | blk[z[16]]) == 0)
        block::dct8x8_inv_4x4(blk);
    else
        block::dct8x8_inv(blk, blk);
}

// Annex I reconstruction of one block after its codes are in blk (RECq,
// row-major): prediction, clamping, the odd DC, the predictors handed on.
void aic_reconstruct(int16_t* blk, const Kpl16s* above, const Kpl16s* left, int mode, int flags) {
    const bool has_above = (flags & KPLVC_H263_AIC_ABOVE) != 0, has_left = (flags & KPLVC_H263_AIC_LEFT) != 0;
    int32_t pred[8] = {};
    int stride = 0;  // 1: first row, 8: first column, 0: DC only
    if (mode == KPLVC_H263_AIC_DC) {
        // Reconstructed DCs are odd, so the sum of two is even and the halving
        // is exact.
        pred[0] = has_above && has_left ? (above[0] + left[0]) / 2
                  : has_above           ? above[0]
                  : has_left            ? left[0]
                                        : 1024;
    } else {
        const bool ok = mode == KPLVC_H263_AIC_VERTICAL ? has_above : has_left;
        const Kpl16s* src = mode == KPLVC_H263_AIC_VERTICAL ? above : left;
        if (ok) {
            for (int k = 0; k < 8; ++k) pred[k] = src[k];
            stride = mode == KPLVC_H263_AIC_VERTICAL ? 1 : 8;
        } else {
            pred[0] = 1024;
        }
    }
    blk[0] = static_cast<int16_t>(clip3(-2048, 2047, blk[0] + pred[0]));
    if (stride != 0)
        for (int k = 1; k < 8; ++k)
            blk[k * stride] = static_cast<int16_t>(clip3(-2048, 2047, blk[k * stride] + pred[k]));
    if ((blk[0] & 1) == 0) blk[0] = static_cast<int16_t>(blk[0] + 1);
}

// Zeros to clear a block with: a copy of a constant compiles to a few
// vector stores, where `= {}` may become a slow string instruction.
alignas(16) constexpr int16_t kZeroBlock[64] = {};

constexpr int kIntraFlags = KPLVC_H263_EXT_ESCAPE | KPLVC_H263_INTRA_DC_ONLY;
constexpr int kInterFlags = KPLVC_H263_EXT_ESCAPE | KPLVC_H263_ALT_INTER_VLC;
constexpr int kAicFlags =
    KPLVC_H263_EXT_ESCAPE | KPLVC_H263_AIC_ABOVE | KPLVC_H263_AIC_LEFT | KPLVC_H263_AIC_CODED;

}  // namespace

}  // namespace kplvc::h263

using namespace kplvc;
using namespace kplvc::h263;

extern "C" {

KPLVC_API KplStatus kpliDecodeBlockCoefEx_Intra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset, Kpl8u* pDst,
                                                          int step, int QP, int flags) {
    if (null_stream(ppBitStream, pBitOffset) || pDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    if ((flags & ~kIntraFlags) != 0) return kplStsBadArgErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    const uint32_t dc = bc.peek(8);
    if (dc == 0 || dc == 128) return kplStsIntraDCErr;
    bc.skip(8);
    alignas(16) int16_t blk[64] = {};
    if ((flags & KPLVC_H263_INTRA_DC_ONLY) == 0) {
        int last;
        const KplStatus st = read_block(bc, tcoef_table(), (flags & KPLVC_H263_EXT_ESCAPE) != 0, 0, &last,
                                        [&, dq = Dequant(QP)](int i, int32_t level, bool esc) {
                                            blk[block::ZigzagC[i]] = dq(level, esc);
                                        });
        if (st != kplStsNoErr) return st;
    }
    blk[0] = static_cast<int16_t>(dc == 255 ? 1024 : 8 * dc);
    block::dct8x8_inv_u8(blk, pDst, step);
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBlockCoefEx_Inter_H263_1u16s(Kpl8u** ppBitStream, int* pBitOffset, Kpl16s* pDst,
                                                           int QP, int flags) {
    if (null_stream(ppBitStream, pBitOffset) || pDst == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    if ((flags & ~kInterFlags) != 0) return kplStsBadArgErr;
    const bool ext = (flags & KPLVC_H263_EXT_ESCAPE) != 0;
    const BitCache64 start(*ppBitStream, *pBitOffset);
    BitCache64 bc = start;
    alignas(16) int16_t blk[64];
    std::memcpy(blk, kZeroBlock, sizeof blk);
    int last;
    const Dequant dq(QP);
    auto put = [&](int i, int32_t level, bool esc) { blk[block::ZigzagC[i]] = dq(level, esc); };
    KplStatus st = read_block(bc, tcoef_table(), ext, -1, &last, put);
    if (st == kplStsCoefCountErr && (flags & KPLVC_H263_ALT_INTER_VLC) != 0) {
        // Annex S: only the intra table can have produced codes that overrun
        // the block; read them again with it.
        std::memcpy(blk, kZeroBlock, sizeof blk);
        bc = start;
        st = read_block(bc, intra_i_table(), ext, -1, &last, put);
    }
    if (st != kplStsNoErr) return st;
    inter_transform(blk, last);
    std::memcpy(pDst, blk, sizeof blk);
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(Kpl8u** ppBitStream, int* pBitOffset,
                                                             Kpl8u* pDst, int step, Kpl16s* pPredRow,
                                                             Kpl16s* pPredCol, int QP, int mode, int flags) {
    if (null_stream(ppBitStream, pBitOffset) || pDst == nullptr || pPredRow == nullptr || pPredCol == nullptr)
        return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    if (mode < 0 || mode > 2) return kplStsAdvIntraModeErr;
    if ((flags & ~kAicFlags) != 0) return kplStsBadArgErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    alignas(16) int16_t blk[64] = {};
    if ((flags & KPLVC_H263_AIC_CODED) != 0) {
        const auto& scan = mode == KPLVC_H263_AIC_DC         ? block::ZigzagC
                           : mode == KPLVC_H263_AIC_VERTICAL ? block::ZigzagH
                                                             : block::ZigzagV;
        // RECq = 2 QP LEVEL: at most 2 * 31 * 1024 in magnitude, kept in
        // 32 bits until the clamp after prediction. Without prediction on a
        // position the clamp comes first.
        int32_t rec[64] = {};
        int last;
        const KplStatus st = read_block(bc, intra_i_table(), (flags & KPLVC_H263_EXT_ESCAPE) != 0, -1, &last,
                                        [&](int i, int32_t level, bool) { rec[scan[i]] = 2 * QP * level; });
        if (st != kplStsNoErr) return st;
        for (int i = 0; i < 64; ++i) blk[i] = static_cast<int16_t>(clip3(-2048, 2047, rec[i]));
    }
    // The predictors are read before either is overwritten: a caller may
    // pass the same array twice.
    Kpl16s above[8], left[8];
    std::memcpy(above, pPredRow, sizeof above);
    std::memcpy(left, pPredCol, sizeof left);
    aic_reconstruct(blk, above, left, mode, flags);
    for (int k = 0; k < 8; ++k) {
        pPredRow[k] = blk[k];
        pPredCol[k] = blk[8 * k];
    }
    block::dct8x8_inv_u8(blk, pDst, step);
    if ((flags & KPLVC_H263_AIC_CODED) != 0) write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

}  // extern "C"
