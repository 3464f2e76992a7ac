// MPEG-4 binary shape coding (ISO/IEC 14496-2 7.5): bab_type by the
// neighbours' types, shape vector differences, and the context-based
// arithmetic decoding and encoding of intra and inter BABs at 16x16, 8x8 and
// 4x4 (the down-sampled sizes of conv_ratio 2 and 4), in either scan order.
#include <cstring>

#include "mpeg4/shape.h"
#include "mpeg4/texture.h"

namespace kplvc::mpeg4 {

namespace {

uint32_t stream_bit(const uint8_t* p, int32_t k) { return (p[k >> 3] >> (7 - (k & 7))) & 1u; }

// Matches the code words of `codes` (count of them, 0/1 strings) at bit
// position pos; returns the index of the one that matches, or -1, and its
// length.
int match_code(const uint8_t* p, int32_t pos, const char* const* codes, int count, int* len) {
    for (int i = 0; i < count; ++i) {
        const char* c = codes[i];
        int n = 0;
        while (c[n] != 0 && stream_bit(p, pos + n) == static_cast<uint32_t>(c[n] - '0')) ++n;
        if (c[n] == 0) {
            *len = n;
            return i;
        }
    }
    return -1;
}

bool bad_stream(Kpl8u** pp, const Kpl32s* off) { return pp == nullptr || *pp == nullptr || off == nullptr; }

void set_position(Kpl8u** pp, Kpl32s* off, int32_t pos) {
    *pp += pos >> 3;
    *off = pos & 7;
}

// The BAB's own border in coding order, from the plane around it (pixel
// (0, 0) at p). Horizontal scan: the two rows above (columns -2..size+1,
// the above-left, above and above-right BABs) and the two columns to the
// left. Vertical scan (the block transposed): the two columns to the left
// (rows -2..size-1; the below-left BAB is not decoded yet and reads as 0)
// and the two rows above, each becoming the other. Everything else is 0; the
// columns right of the BAB are filled row by row as the BAB is decoded.
void load_border(BorderedBab& b, const uint8_t* p, int32_t step, int size, bool transposed) {
    std::memset(b.px, 0, sizeof b.px);
    auto get = [p, step](int x, int y) -> uint8_t { return p[y * step + x] != 0 ? 1 : 0; };
    for (int y = -2; y < 0; ++y) {
        for (int x = -2; x < size + 2; ++x)
            if (!transposed)
                b.at(x, y) = get(x, y);
            else if (x < size)
                b.at(x, y) = get(y, x);
    }
    for (int y = 0; y < size; ++y)
        for (int x = -2; x < 0; ++x) b.at(x, y) = transposed ? get(y, x) : get(x, y);
}

// The motion-compensated BAB with a one-pixel border, in coding order.
void load_mc(BorderedBab& m, const uint8_t* p, int32_t step, int size, bool transposed) {
    std::memset(m.px, 0, sizeof m.px);
    for (int y = -1; y <= size; ++y)
        for (int x = -1; x <= size; ++x) {
            const uint8_t v = transposed ? p[x * step + y] : p[y * step + x];
            m.at(x, y) = v != 0 ? 1 : 0;
        }
}

// The pixels right of row y are not known when the rows below are coded:
// they take the row's last pixel (the context rules c7 = c8, c3 = c4, c2 = c3
// of the intra context and c1 = c2 of the inter one).
void close_row(BorderedBab& b, int size, int y) {
    b.at(size, y) = b.at(size - 1, y);
    b.at(size + 1, y) = b.at(size - 1, y);
}

KplStatus check_bab(Kpl32s size, Kpl32s step, const Kpl8u* mc, Kpl32s mc_step, Kpl32s scan) {
    if (size != 16 && size != 8 && size != 4) return kplStsBlockSizeErr;
    if (step < size || (mc != nullptr && mc_step < size)) return kplStsStepErr;
    if (scan != 0 && scan != 1) return kplStsModeErr;
    return kplStsNoErr;
}

// Decodes a BAB; mc null for intra.
void decode_bab(Kpl8u** pp, Kpl32s* off, uint8_t* dst, int32_t step, const uint8_t* mc, int32_t mc_step,
                int size, bool transposed) {
    BorderedBab b, m;
    load_border(b, dst, step, size, transposed);
    if (mc != nullptr) load_mc(m, mc, mc_step, size, transposed);
    CaeDecoder dec(*pp, *off);
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            const uint32_t c0 = mc != nullptr ? kCaeInterProb[inter_context(b, m, x, y)]
                                              : kCaeIntraProb[intra_context(b, x, y)];
            b.at(x, y) = static_cast<uint8_t>(dec.decode(c0));
        }
        close_row(b, size, y);
    }
    const int32_t end = dec.finish();
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const uint8_t v = b.at(x, y) ? 255 : 0;
            if (transposed)
                dst[x * step + y] = v;
            else
                dst[y * step + x] = v;
        }
    set_position(pp, off, end);
}

void encode_bab(const uint8_t* src, int32_t step, const uint8_t* mc, int32_t mc_step, int size,
                bool transposed, Kpl8u** pp, Kpl32s* off) {
    BorderedBab b, m;
    load_border(b, src, step, size, transposed);
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x)
            b.at(x, y) = (transposed ? src[x * step + y] : src[y * step + x]) != 0 ? 1 : 0;
        close_row(b, size, y);
    }
    if (mc != nullptr) load_mc(m, mc, mc_step, size, transposed);
    CaeEncoder enc(*pp, *off);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const uint32_t c0 = mc != nullptr ? kCaeInterProb[inter_context(b, m, x, y)]
                                              : kCaeIntraProb[intra_context(b, x, y)];
            enc.encode(b.at(x, y), c0);
        }
    enc.finish(pp, off);
}

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliDecodeBABTypeIntra_MPEG4_1u32s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                       const Kpl32s* pNeighbours, Kpl32s* pBabType) {
    if (bad_stream(ppBitStream, pBitOffset) || pNeighbours == nullptr || pBabType == nullptr)
        return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    int ctx = 0;
    for (int i = 0; i < 4; ++i) {
        if (pNeighbours[i] < 2 || pNeighbours[i] > 4) return kplStsBadArgErr;
        ctx = 3 * ctx + pNeighbours[i] - 2;
    }
    int len = 0;
    const int i = match_code(*ppBitStream, *pBitOffset, kBabTypeIntraCodes[ctx], 3, &len);
    if (i < 0) return kplStsVLCErr;
    *pBabType = i + 2;
    set_position(ppBitStream, pBitOffset, *pBitOffset + len);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBABTypeInter_MPEG4_1u32s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                       Kpl32s prevType, Kpl32s* pBabType) {
    if (bad_stream(ppBitStream, pBitOffset) || pBabType == nullptr) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (prevType < 0 || prevType > 6) return kplStsBadArgErr;
    int len = 0;
    const int i = match_code(*ppBitStream, *pBitOffset, kBabTypeInterCodes[prevType], 7, &len);
    if (i < 0) return kplStsVLCErr;
    *pBabType = i;
    set_position(ppBitStream, pBitOffset, *pBitOffset + len);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeShapeMVD_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                   KplMotionVector* pMVD) {
    if (bad_stream(ppBitStream, pBitOffset) || pMVD == nullptr) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    const uint8_t* p = *ppBitStream;
    int32_t pos = *pBitOffset;
    // A magnitude is a run of ones closed by a zero: v ones for v (table of
    // the horizontal component, and of the vertical one after a non-zero
    // horizontal), v - 1 ones for v when the horizontal component is 0 (the
    // vertical one cannot be 0 then). A non-zero value is followed by its
    // sign, 1 for positive.
    int16_t comp[2];
    for (int c = 0; c < 2; ++c) {
        const bool after_zero = c == 1 && comp[0] == 0;
        const int max_ones = after_zero ? 15 : 16;
        int ones = 0;
        while (ones <= max_ones && stream_bit(p, pos + ones) != 0) ++ones;
        if (ones > max_ones) return kplStsErr;  // the unused all-ones pattern
        pos += ones + 1;
        int v = after_zero ? ones + 1 : ones;
        if (v != 0) {
            if (stream_bit(p, pos) == 0) v = -v;
            ++pos;
        }
        comp[c] = static_cast<int16_t>(v);
    }
    pMVD->dx = comp[0];
    pMVD->dy = comp[1];
    set_position(ppBitStream, pBitOffset, pos);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBABIntra_MPEG4_1u8u(Kpl8u** ppBitStream, Kpl32s* pBitOffset, Kpl8u* pBAB,
                                                  Kpl32s step, Kpl32s size, Kpl32s scanType) {
    if (bad_stream(ppBitStream, pBitOffset) || pBAB == nullptr) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (const KplStatus st = check_bab(size, step, nullptr, 0, scanType); st != kplStsNoErr) return st;
    decode_bab(ppBitStream, pBitOffset, pBAB, step, nullptr, 0, size, scanType == 0);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDecodeBABInter_MPEG4_1u8u(Kpl8u** ppBitStream, Kpl32s* pBitOffset, Kpl8u* pBAB,
                                                  Kpl32s step, const Kpl8u* pMC, Kpl32s mcStep, Kpl32s size,
                                                  Kpl32s scanType) {
    if (bad_stream(ppBitStream, pBitOffset) || pBAB == nullptr || pMC == nullptr) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (const KplStatus st = check_bab(size, step, pMC, mcStep, scanType); st != kplStsNoErr) return st;
    decode_bab(ppBitStream, pBitOffset, pBAB, step, pMC, mcStep, size, scanType == 0);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliEncodeBABIntra_MPEG4_8u1u(const Kpl8u* pBAB, Kpl32s step, Kpl32s size,
                                                  Kpl32s scanType, Kpl8u** ppBitStream, Kpl32s* pBitOffset) {
    if (pBAB == nullptr || bad_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (const KplStatus st = check_bab(size, step, nullptr, 0, scanType); st != kplStsNoErr) return st;
    encode_bab(pBAB, step, nullptr, 0, size, scanType == 0, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliEncodeBABInter_MPEG4_8u1u(const Kpl8u* pBAB, Kpl32s step, const Kpl8u* pMC,
                                                  Kpl32s mcStep, Kpl32s size, Kpl32s scanType,
                                                  Kpl8u** ppBitStream, Kpl32s* pBitOffset) {
    if (pBAB == nullptr || pMC == nullptr || bad_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (const KplStatus st = check_bab(size, step, pMC, mcStep, scanType); st != kplStsNoErr) return st;
    encode_bab(pBAB, step, pMC, mcStep, size, scanType == 0, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

}  // extern "C"
