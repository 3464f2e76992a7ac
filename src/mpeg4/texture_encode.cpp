// MPEG-4 texture encoding: the intra DC differential and the run-level
// events of intra and inter blocks, each in its shortest legal form.
#include <cstdlib>

#include "mpeg4/texture.h"

namespace kplvc::mpeg4 {

namespace {

// Code word (without sign) of an event the table has, or len 0.
inline h263::RunLevelCode code_of(const TcoefTable& t, int32_t last, int32_t run, int32_t mag) {
    if (run > 63 || t.lmax[last][run] < mag) return {0, 0};
    return t.code(last, run, mag);
}

// Appends one event. The candidates, in bits: the code word (len + 1);
// escape type 1, level reduced by LMAX (7 + 1 + len + 1); escape type 2, run
// reduced by RMAX + 1 (7 + 2 + len + 1); escape type 3 (30).
void put_event(uint8_t** pp, int32_t* off, const TcoefTable& t, int32_t last, int32_t run, int32_t level) {
    const int32_t mag = std::abs(level);
    const uint32_t sign = level < 0 ? 1u : 0u;
    const h263::RunLevelCode direct = code_of(t, last, run, mag);
    if (direct.len != 0) {
        PutBits(pp, off, (uint32_t{direct.code} << 1) | sign, direct.len + 1);
        return;
    }
    h263::RunLevelCode c1{0, 0}, c2{0, 0};
    const int32_t lmax = run <= 63 ? t.lmax[last][run] : 0;
    if (lmax > 0 && mag - lmax >= 1) c1 = code_of(t, last, run, mag - lmax);
    const int32_t rmax = mag < 32 ? t.rmax[last][mag] : -1;
    if (rmax >= 0 && run - rmax - 1 >= 0) c2 = code_of(t, last, run - rmax - 1, mag);
    const int n1 = c1.len ? 7 + 1 + c1.len + 1 : 99, n2 = c2.len ? 7 + 2 + c2.len + 1 : 99;
    if (n1 <= n2 && n1 < 30) {
        // 0000011 0 code s
        PutBits(pp, off, (0x03u << (c1.len + 2)) | (uint32_t{c1.code} << 1) | sign, n1);
    } else if (n2 < 30) {
        // 0000011 10 code s
        PutBits(pp, off, (0x0Eu << (c2.len + 1)) | (uint32_t{c2.code} << 1) | sign, n2);
    } else {
        // 0000011 11 LAST RUN 1 LEVEL(12) 1
        const uint32_t v = (0x0Fu << 21) | (static_cast<uint32_t>(last) << 20) |
                           (static_cast<uint32_t>(run) << 14) | (1u << 13) |
                           ((static_cast<uint32_t>(level) & 0xFFFu) << 1) | 1u;
        PutBits(pp, off, v, 30);
    }
}

KplStatus encode_block(const int16_t* c, uint8_t** pp, int32_t* off, const TcoefTable& t, int first,
                       const uint8_t* scan) {
    // The range check first over the whole block in raster order (a loop
    // the compiler vectorises); only when something is outside it are the
    // scan positions from `first` on checked one by one (an intra DC coded
    // apart may be larger). Then the last level, from the end of the scan.
    bool bad = false;
    for (int i = 0; i < 64; ++i) bad |= (c[i] < -2047) | (c[i] > 2047);
    if (bad) {
        for (int i = first; i < 64; ++i)
            if (c[scan[i]] < -2047 || c[scan[i]] > 2047) return kplStsBadArgErr;
    }
    int last = 63;
    while (last >= first && c[scan[last]] == 0) --last;
    int run = 0;
    for (int i = first; i <= last; ++i) {
        const int32_t v = c[scan[i]];
        if (v == 0) {
            ++run;
            continue;
        }
        put_event(pp, off, t, i == last ? 1 : 0, run, v);
        run = 0;
    }
    return kplStsNoErr;
}

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc;
using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliEncodeDCIntra_MPEG4_16s1u(Kpl16s dcDiff, Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                                  Kpl32s blockIndex) {
    if (null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (dcDiff < -4095 || dcDiff > 4095) return kplStsBadArgErr;
    if (blockIndex < 0 || blockIndex > 9) return kplStsBlockIndexErr;
    const int32_t mag = std::abs(int32_t{dcDiff});
    const int size = 32 - std::countl_zero(static_cast<uint32_t>(mag));
    // The dct_dc_size code words (see the decoder): luminance sizes 0..4 have
    // 011, 11, 10, 010, 001; from 5 on, size - 2 zeros and a one. Chrominance
    // sizes 0..2 have 11, 10, 01; from 3 on, size - 1 zeros and a one.
    static constexpr uint8_t kLumCode[5] = {3, 3, 2, 2, 1}, kLumLen[5] = {3, 2, 2, 3, 3};
    static constexpr uint8_t kChrCode[3] = {3, 2, 1}, kChrLen[3] = {2, 2, 2};
    uint32_t code;
    int len;
    if (is_luma_block(blockIndex)) {
        code = size < 5 ? kLumCode[size] : 1u;
        len = size < 5 ? kLumLen[size] : size - 1;
    } else {
        code = size < 3 ? kChrCode[size] : 1u;
        len = size < 3 ? kChrLen[size] : size;
    }
    PutBits(ppBitStream, pBitOffset, code, len);
    if (size > 0) {
        // Negative values are sent as the one's complement of the magnitude.
        const uint32_t v =
            dcDiff > 0 ? static_cast<uint32_t>(mag) : static_cast<uint32_t>((1 << size) - 1 - mag);
        PutBits(ppBitStream, pBitOffset, v, size);
        if (size > 8) PutBits(ppBitStream, pBitOffset, 1u, 1);
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliEncodeCoeffsIntra_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                      Kpl32s* pBitOffset, Kpl32s dcVlc, Kpl32s scan) {
    if (pCoeffs == nullptr || null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (dcVlc != 0 && dcVlc != 1) return kplStsModeErr;
    if (scan < 0 || scan > 2) return kplStsBadArgErr;
    return encode_block(pCoeffs, ppBitStream, pBitOffset, kIntraTcoef, dcVlc, scan_table(scan));
}

KPLVC_API KplStatus kpliEncodeCoeffsInter_MPEG4_16s1u(const Kpl16s* pCoeffs, Kpl8u** ppBitStream,
                                                      Kpl32s* pBitOffset, Kpl32s scan) {
    if (pCoeffs == nullptr || null_stream(ppBitStream, pBitOffset)) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (scan < 0 || scan > 2) return kplStsBadArgErr;
    return encode_block(pCoeffs, ppBitStream, pBitOffset, kInterTcoef, 0, scan_table(scan));
}

}  // extern "C"
