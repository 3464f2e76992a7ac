// MPEG-1/MPEG-2 block encoding: the run-level encode table built from a
// caller's code list, and the intra and non-intra block writers.
//
// The writers append fields in the convention of kpliPutBitsLeftMost: the
// current word holds the bits written so far in its low 32 - f bits (f =
// free bits), and a completed word holds 32 stream bits, the first at bit
// 31. Fields are gathered in a 64-bit accumulator and whole words stored.
#include <bit>
#include <cstdint>
#include <cstring>

#include "core/arith.h"
#include "core/bitstream.h"
#include "kplvc.h"

namespace kplvc::mpeg2 {

namespace {

constexpr int32_t kMaxCodeLen = 24;

// Appends fields of 0..32 bits. `n` bits (0..31) are pending in the low end
// of `acc`; a field of up to 32 bits makes at most 63, so one word at most
// completes per field.
struct WordWriter {
    uint32_t* p;
    uint64_t acc;
    int32_t n;

    [[gnu::always_inline]] void put(uint32_t v, int32_t len) {
        acc = (acc << len) | (v & _kplGetBitsMask[len]);
        n += len;
        if (n >= 32) {
            n -= 32;
            store32u(p, static_cast<uint32_t>(acc >> n));
            ++p;
            acc &= (uint64_t{1} << n) - 1u;
        }
    }
    // A word of an encode or DC size table: (code << 8) | length. Lengths are
    // the caller's (1..24); taking them modulo 32 keeps any word well defined.
    [[gnu::always_inline]] void put_code(int32_t word) {
        const uint32_t w = static_cast<uint32_t>(word);
        put(w >> 8, static_cast<int32_t>(w & 31u));
    }
};

// Checks every level on scan indices first..63 against the version's range
// and notes the non-zero ones. Returns false on a level out of range.
bool check_levels(const int16_t* src, const int32_t* scan, int first, int32_t limit, uint64_t* coded) {
    uint64_t m = 0;
    bool ok = true;
    for (int i = first; i < 64; ++i) {
        const int32_t c = src[static_cast<uint32_t>(scan[i]) & 63u];
        ok &= c >= -limit && c <= limit;
        m |= uint64_t{c != 0} << i;
    }
    *coded = m;
    return ok;
}

// Writes the coded levels of `coded` (scan indices of non-zero levels) and
// the EOB. `prev` is the scan index before the first one that may be coded.
void write_levels(WordWriter& w, const int16_t* src, const int32_t* scan, uint64_t coded, int prev,
                  bool non_intra, const int32_t* table, int32_t version) {
    bool first = non_intra;
    while (coded != 0) {
        const int i = std::countr_zero(coded);
        coded &= coded - 1;
        const int32_t run = i - prev - 1;
        prev = i;
        const int32_t c = src[static_cast<uint32_t>(scan[i]) & 63u];
        const int32_t mag = c < 0 ? -c : c;
        const uint32_t s = c < 0 ? 1u : 0u;
        if (first && run == 0 && mag == 1) {
            w.put(2u + s, 2);  // the first-coefficient code word 1s
        } else {
            const int32_t code = mag <= 64 ? table[2 + 64 * run + (mag - 1)] : 0;
            if (code != 0) {
                const uint32_t cw = static_cast<uint32_t>(code);
                w.put(((cw >> 8) << 1) | s, static_cast<int32_t>(cw & 31u) + 1);
            } else {
                w.put_code(table[1]);
                w.put(static_cast<uint32_t>(run), 6);
                if (version == 2) {
                    w.put(static_cast<uint32_t>(c) & 0xFFFu, 12);
                } else if (mag <= 127) {
                    w.put(static_cast<uint32_t>(c) & 0xFFu, 8);
                } else if (c > 0) {
                    w.put(static_cast<uint32_t>(c), 16);  // 0000 0000, then c
                } else {
                    w.put(static_cast<uint32_t>(0x8000 + c + 256), 16);  // 1000 0000, then c + 256
                }
            }
        }
        first = false;
    }
    w.put_code(table[0]);
}

WordWriter start_writer(Kpl32u** ppBitStream, const Kpl32s* pBitOffset) {
    const int32_t f = *pBitOffset;
    // The low 32 - f bits of the current word are the stream bits already
    // written into it; the bits above them are not part of the stream.
    return WordWriter{*ppBitStream, uint64_t{**ppBitStream} & _kplGetBitsMask[32 - f], 32 - f};
}

void finish_writer(const WordWriter& w, Kpl32u** ppBitStream, Kpl32s* pBitOffset) {
    // The word after the last completed one is written only when it holds
    // bits of this block.
    if (w.n != 0) store32u(w.p, static_cast<uint32_t>(w.acc));
    *ppBitStream = w.p;
    *pBitOffset = 32 - w.n;
}

}  // namespace

}  // namespace kplvc::mpeg2

using kplvc::_kplGetBitsMask;
using kplvc::mpeg2::WordWriter;

extern "C" {

KPLVC_API KplStatus kpliCreateRLEncodeTable(const Kpl32s* pSrcTable, Kpl32s* pDstTable) {
    if (pSrcTable == nullptr || pDstTable == nullptr) return kplStsNullPtrErr;
    const int32_t levels = pSrcTable[1];
    if (levels < 1) return kplStsBadArgErr;  // the builders read no record from such a list
    // Two walks over the list: the first only looks for EOB and ESCAPE, so
    // that nothing is written when one is missing.
    for (int pass = 0; pass < 2; ++pass) {
        bool eob = false, esc = false;
        if (pass == 1) std::memset(pDstTable, 0, KPLVC_RL_ENCODE_TABLE_SIZE * sizeof(Kpl32s));
        const Kpl32s* p = pSrcTable + 2 + levels;
        for (int32_t len = 1;; ++len) {
            const int32_t n = *p++;
            if (n < 0) break;
            for (int32_t r = 0; r < n; ++r, p += 3) {
                if (len > kplvc::mpeg2::kMaxCodeLen) continue;
                const uint32_t code = static_cast<uint32_t>(p[0]) & _kplGetBitsMask[len];
                const int32_t v1 = p[1] & 0xFF;
                const int32_t v2 = kplvc::wrap16(p[2]);
                const Kpl32s word = static_cast<Kpl32s>((code << 8) | static_cast<uint32_t>(len));
                int32_t at = -1;
                if (v2 == 0 && v1 == KPLVC_RL_EOB) {
                    eob = true;
                    at = 0;
                } else if (v2 == 0 && v1 == KPLVC_RL_ESCAPE) {
                    esc = true;
                    at = 1;
                } else if (v1 <= 63 && v2 >= 1 && v2 <= 64) {
                    at = 2 + 64 * v1 + (v2 - 1);
                }
                if (pass == 1 && at >= 0) pDstTable[at] = word;
            }
        }
        if (!eob || !esc) return kplStsBadArgErr;
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPutIntraBlock(const Kpl16s* pSrcBlock, Kpl32u** ppBitStream, Kpl32s* pBitOffset,
                                      Kpl16s* pDCPred, const Kpl32s* pDCSizeCodes,
                                      const Kpl32s* pRLEncodeTable, const Kpl32s* pScanTable,
                                      Kpl32s mpegVersion) {
    if (pSrcBlock == nullptr || ppBitStream == nullptr || pBitOffset == nullptr || *ppBitStream == nullptr)
        return kplStsNullPtrErr;
    if (pDCPred == nullptr || pDCSizeCodes == nullptr || pRLEncodeTable == nullptr || pScanTable == nullptr)
        return kplStsNullPtrErr;
    if (*pBitOffset < 1 || *pBitOffset > 32) return kplStsBadArgErr;
    if (mpegVersion != 1 && mpegVersion != 2) return kplStsBadArgErr;
    const int32_t limit = mpegVersion == 1 ? 255 : 2047;
    uint64_t coded;
    const bool ok = kplvc::mpeg2::check_levels(pSrcBlock, pScanTable, 1, limit, &coded);
    const int32_t diff = int32_t{pSrcBlock[0]} - *pDCPred;  // exact: -65535..65535
    if (!ok || diff < -limit || diff > limit) return kplStsLevelRangeErr;

    WordWriter w = kplvc::mpeg2::start_writer(ppBitStream, pBitOffset);
    const int32_t mag = diff < 0 ? -diff : diff;
    const int32_t size = static_cast<int32_t>(std::bit_width(static_cast<uint32_t>(mag)));  // 0..11
    w.put_code(pDCSizeCodes[size]);
    if (size > 0) {
        const int32_t field = diff > 0 ? diff : diff + (1 << size) - 1;
        w.put(static_cast<uint32_t>(field), size);
    }
    kplvc::mpeg2::write_levels(w, pSrcBlock, pScanTable, coded, 0, false, pRLEncodeTable, mpegVersion);
    kplvc::mpeg2::finish_writer(w, ppBitStream, pBitOffset);
    *pDCPred = pSrcBlock[0];
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPutNonIntraBlock(const Kpl16s* pSrcBlock, Kpl32u** ppBitStream, Kpl32s* pBitOffset,
                                         const Kpl32s* pRLEncodeTable, const Kpl32s* pScanTable,
                                         Kpl32s mpegVersion) {
    if (pSrcBlock == nullptr || ppBitStream == nullptr || pBitOffset == nullptr || *ppBitStream == nullptr)
        return kplStsNullPtrErr;
    if (pRLEncodeTable == nullptr || pScanTable == nullptr) return kplStsNullPtrErr;
    if (*pBitOffset < 1 || *pBitOffset > 32) return kplStsBadArgErr;
    if (mpegVersion != 1 && mpegVersion != 2) return kplStsBadArgErr;
    const int32_t limit = mpegVersion == 1 ? 255 : 2047;
    uint64_t coded;
    if (!kplvc::mpeg2::check_levels(pSrcBlock, pScanTable, 0, limit, &coded)) return kplStsLevelRangeErr;
    // A coded non-intra block holds at least one coefficient: the caller
    // marks an empty one not coded, and nothing is written.
    if (coded == 0) return kplStsNoErr;
    WordWriter w = kplvc::mpeg2::start_writer(ppBitStream, pBitOffset);
    kplvc::mpeg2::write_levels(w, pSrcBlock, pScanTable, coded, -1, true, pRLEncodeTable, mpegVersion);
    kplvc::mpeg2::finish_writer(w, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

}  // extern "C"
