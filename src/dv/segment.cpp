// DV video segment decoding: five macroblocks of six DCT blocks, whose AC
// codes are read in the three passes of IEC 61834-2 (a block's own area, then
// the bits its macroblock's finished blocks left over, then the bits left
// over in the whole segment).
//
// Bits are read through a 64-bit window per block: the window holds the
// block's pending bits first (the start of a code word that did not fit where
// the block last read) and then bits of the current source, top-aligned, with
// zeros below. A source is a bit range of one buffer; the window never takes
// bits beyond the range's end, so a lookup near the end sees zeros there, as
// the decoding rule asks. The two pools (a macroblock's spare bits, then the
// segment's) are gathered into small zero-padded buffers, so every pass reads
// one contiguous range.
//
// Nothing is written until the whole segment has decoded: the values wait in
// a local copy of the 30 blocks.
#include <cstdint>
#include <cstring>

#include "kplvc.h"

namespace kplvc::dv {
namespace {

constexpr int kBlocks = KPLVC_DV_SEGMENT_BLOCKS;
constexpr int kSegmentBytes = KPLVC_DV_SEGMENT_BYTES;
constexpr uint32_t kFirst = 1;     // word of the first-level entry for 9 bits 0
constexpr uint32_t kSecond = 513;  // word of the second-level entry for index 0
constexpr int kMaxCode = 16;       // no code word is longer; pending bits stay below this

// Block j of a DIF block: the byte where its area starts and its space (the
// area less the 12 header bits).
constexpr int kAreaByte[6] = {4, 18, 32, 46, 60, 70};
constexpr int kSpaceBits[6] = {100, 100, 100, 100, 68, 68};

// Eight bytes at p as a big-endian number: the first bit of the stream is the
// top bit.
inline uint64_t load_be64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return __builtin_bswap64(v);
}
inline void store_be64(uint8_t* p, uint64_t v) {
    v = __builtin_bswap64(v);
    std::memcpy(p, &v, sizeof v);
}

// The top `take` (1..56) bits of the stream from bit `at` of buf, top-aligned.
// One 8-byte load holds at least 57 bits from any bit position.
inline uint64_t peek_bits(const uint8_t* buf, uint32_t at, int take) {
    return (load_be64(buf + (at >> 3)) << (at & 7)) & ~(~uint64_t{0} >> take);
}

// Gathers bit ranges into one buffer through a 64-bit accumulator that is
// stored a whole word at a time (read-modify-write of overlapping words would
// stall on store forwarding). The buffer needs room for the last word.
struct BitWriter {
    uint8_t* out;
    uint64_t acc = 0;
    int fill = 0;       // bits in acc, top-aligned
    uint32_t bits = 0;  // bits written in all

    explicit BitWriter(uint8_t* dst) : out(dst) {}
    void append(const uint8_t* src, uint32_t from, uint32_t to) {
        while (from < to) {
            const int take = to - from < 56 ? static_cast<int>(to - from) : 56;
            const uint64_t chunk = peek_bits(src, from, take);
            acc |= chunk >> fill;
            fill += take;
            if (fill >= 64) {
                store_be64(out, acc);
                out += 8;
                fill -= 64;
                acc = fill ? chunk << (take - fill) : 0;
            }
            bits += static_cast<uint32_t>(take);
            from += static_cast<uint32_t>(take);
        }
    }
    void flush() { store_be64(out, acc); }
};

struct BlockState {
    int16_t* coef;        // the block's 64 values (local copy)
    const int32_t* scan;  // its half of the scan tables
    int32_t pos;          // scan position of the last value decoded
    int32_t count;        // 1 + last position with a non-zero value
    uint32_t pending;     // pending bits, top-aligned in 32 bits, zeros below
    int32_t npending;     // 0..15
    int32_t pass;         // pass that read the EOB, 0 while unfinished
};

// A contiguous source: bits [at, end) of buf, which is readable for 8 bytes
// beyond the byte that holds bit end - 1.
struct Source {
    const uint8_t* buf;
    uint32_t at, end;
};

// Continues one block from a source until its EOB, an error, or the end of
// the bits available to it (then its unread bits become its pending bits).
// Returns the status; on success src->at is where the source stands (the
// block's spare bits start there if it finished).
[[gnu::always_inline]] inline KplStatus continue_block(BlockState& b, Source* src, const uint32_t* table,
                                                       int32_t pass) {
    const uint8_t* const buf = src->buf;
    const uint32_t end = src->end, start = src->at;
    int16_t* const coef = b.coef;
    const int32_t* const scan = b.scan;
    int32_t pos = b.pos, count = b.count;
    uint32_t at = start;
    uint64_t w = uint64_t{b.pending} << 32;
    int have = b.npending;  // bits in w
    KplStatus status = kplStsNoErr;

    for (;;) {
        if (have < kMaxCode && at < end) {
            // Room for at least 49 bits: afterwards w holds 16 bits or more,
            // or every bit the block can still read.
            const uint32_t left = end - at;
            const int room = 64 - have < 56 ? 64 - have : 56;
            const int take = left < static_cast<uint32_t>(room) ? static_cast<int>(left) : room;
            w |= peek_bits(buf, at, take) >> have;
            have += take;
            at += static_cast<uint32_t>(take);
        }
        if (have == 0) break;

        // From here on `have` < 16 only when w holds every bit still available,
        // so a code word of L <= 16 bits fits exactly when L <= have.
        uint32_t e = table[kFirst + static_cast<uint32_t>(w >> 55)];
        uint32_t v1 = (e >> 8) & 0x3FFF;
        int len = static_cast<int>(e & 0xFF);
        int32_t run, value;
        const int fits = have < kMaxCode ? have : kMaxCode;
        if (v1 < 64 && len <= fits) [[likely]] {
            // A pair that fits.
            run = static_cast<int32_t>(v1);
            value = static_cast<int32_t>(e) >> 22;
        } else {
            bool invalid = false;
            if (v1 == KPLVC_DV_LINK) {
                // Second level: the 9 bits that follow the first four of 13.
                const uint32_t x = static_cast<uint32_t>(w >> 51) & 511;
                if (x == 511) {
                    invalid = true;
                    len = 13;
                } else {
                    e = table[kSecond + x];
                    v1 = (e >> 8) & 0x3FFF;
                    len = static_cast<int>(e & 0xFF);
                    invalid = v1 > KPLVC_DV_EOB;
                }
            } else if (v1 == KPLVC_DV_ESCAPE) {
                len += 9;  // the prefix, then 8 bits of amplitude and the sign
            } else {
                invalid = v1 > KPLVC_DV_EOB;
            }
            if (len > kMaxCode) {
                invalid = true;
                len = kMaxCode;
            }
            if (len > have) {
                // The code word needs more bits than remain (have < 16 here):
                // they wait as pending bits; this source is read to its end.
                b.pending = static_cast<uint32_t>(w >> 32);
                b.npending = have;
                b.pos = pos;
                b.count = count;
                src->at = end;
                return kplStsNoErr;
            }
            if (invalid) return kplStsVLCErr;
            if (v1 == KPLVC_DV_EOB) {
                w <<= len;
                have -= len;
                b.pass = pass;
                break;
            }
            if (v1 == KPLVC_DV_ESCAPE) {
                const int prefix = len - 9;
                const int32_t amp = static_cast<int32_t>((w << prefix) >> 56);
                const bool negative = ((w >> (63 - prefix - 8)) & 1) != 0;
                if (amp < (static_cast<int32_t>(e) >> 22)) return kplStsVLCErr;
                run = 0;
                value = negative ? -amp : amp;
            } else {
                run = static_cast<int32_t>(v1);
                value = static_cast<int32_t>(e) >> 22;
            }
        }
        w <<= len;
        have -= len;
        pos += run + 1;
        if (pos > 63) [[unlikely]] {
            status = kplStsCoefCountErr;
            break;
        }
        if (value != 0) {
            // |value| <= 512, so 64 * value fits 16 bits.
            coef[scan[pos] & 63] = static_cast<int16_t>(value * 64);
            count = pos + 1;
        }
    }
    // Finished, or no bits left. The window's unconsumed bits go back to the
    // source, unless some of them are pending bits from an earlier source
    // (then this source was not read at all).
    b.pos = pos;
    b.count = count;
    b.pending = 0;
    b.npending = 0;
    src->at = static_cast<uint32_t>(have) >= at - start ? start : at - static_cast<uint32_t>(have);
    return status;
}

}  // namespace
}  // namespace kplvc::dv

extern "C" {

KPLVC_API KplStatus kpliHuffmanDecodeSegment_DV_8u16s(const Kpl8u* pStream, const Kpl32u* pHuffTable,
                                                      const Kpl32s* pScanTables, Kpl16s* pDstBlocks,
                                                      Kpl32u* pBlockInfo) {
    using namespace kplvc::dv;
    if (pStream == nullptr || pHuffTable == nullptr || pScanTables == nullptr || pDstBlocks == nullptr ||
        pBlockInfo == nullptr)
        return kplStsNullPtrErr;

    // The segment with 8 bytes of padding, so that every 8-byte read of a
    // block's bits stays inside this copy.
    alignas(32) uint8_t seg[kSegmentBytes + 8];
    std::memcpy(seg, pStream, kSegmentBytes);
    std::memset(seg + kSegmentBytes, 0, 8);

    alignas(64) int16_t coef[kBlocks][64];
    std::memset(coef, 0, sizeof coef);
    BlockState blk[kBlocks];
    uint32_t head[kBlocks];      // m, c, QNO, STA in their information-word places
    uint32_t spare[kBlocks][2];  // a finished block's spare bits [from, to) in seg
    int unfinished = 0;

    // Pass 1: headers, then each block from its own space.
    for (int k = 0; k < 5; ++k) {
        const uint32_t staqno = seg[80 * k + 3];
        for (int j = 0; j < 6; ++j) {
            const int n = 6 * k + j;
            const int area = 80 * k + kAreaByte[j];
            const uint32_t h = (uint32_t{seg[area]} << 8) | seg[area + 1];
            const int32_t dc = static_cast<int32_t>(h >> 7) - ((h & 0x8000) ? 512 : 0);
            const uint32_t m = (h >> 6) & 1, c = (h >> 4) & 3;
            head[n] = (m << 8) | (c << KPLVC_DV_INFO_CLASS_SHIFT) |
                      ((staqno & 15) << KPLVC_DV_INFO_QNO_SHIFT) | ((staqno >> 4) << KPLVC_DV_INFO_STA_SHIFT);
            BlockState& b = blk[n];
            b.coef = coef[n];
            b.scan = pScanTables + 64 * m;
            b.pos = 0;
            b.count = dc != 0 ? 1 : 0;
            b.pending = 0;
            b.npending = 0;
            b.pass = 0;
            if (dc != 0) b.coef[b.scan[0] & 63] = static_cast<int16_t>(dc * 64);
            const uint32_t from = static_cast<uint32_t>(area) * 8 + 12;
            Source s = {seg, from, from + static_cast<uint32_t>(kSpaceBits[j])};
            const KplStatus st = continue_block(b, &s, pHuffTable, 1);
            if (st != kplStsNoErr) return st;
            if (b.pass != 0) {
                spare[n][0] = s.at;
                spare[n][1] = s.end;
            } else {
                spare[n][0] = spare[n][1] = 0;
                ++unfinished;
            }
        }
    }

    // Pass 2, per macroblock: its unfinished blocks from the spare bits of its
    // finished ones. What is left of each pool goes on to pass 3.
    alignas(16) uint8_t pool[5][64 + 8];  // at most 4 * 96 + 2 * 64 = 512 bits each
    uint32_t pool_at[5], pool_end[5];
    bool pooled[5] = {false, false, false, false, false};
    if (unfinished != 0) {
        for (int k = 0; k < 5; ++k) {
            bool any = false;
            for (int j = 0; j < 6; ++j) any |= blk[6 * k + j].pass == 0;
            if (!any) continue;
            pooled[k] = true;
            std::memset(pool[k], 0, sizeof pool[k]);
            BitWriter w(pool[k]);
            for (int j = 0; j < 6; ++j) w.append(seg, spare[6 * k + j][0], spare[6 * k + j][1]);
            w.flush();
            Source s = {pool[k], 0, w.bits};
            for (int j = 0; j < 6; ++j) {
                BlockState& b = blk[6 * k + j];
                if (b.pass != 0) continue;
                const KplStatus st = continue_block(b, &s, pHuffTable, 2);
                if (st != kplStsNoErr) return st;
                if (b.pass != 0) --unfinished;
            }
            pool_at[k] = s.at;
            pool_end[k] = s.end;
        }
    }

    // Pass 3: the blocks still unfinished, in segment order, from what every
    // macroblock left (at most 5 * 512 bits).
    if (unfinished != 0) {
        alignas(16) uint8_t all[320 + 8];
        std::memset(all, 0, sizeof all);
        BitWriter w(all);
        for (int k = 0; k < 5; ++k) {
            if (pooled[k]) {
                w.append(pool[k], pool_at[k], pool_end[k]);
            } else {
                for (int j = 0; j < 6; ++j) w.append(seg, spare[6 * k + j][0], spare[6 * k + j][1]);
            }
        }
        w.flush();
        Source s = {all, 0, w.bits};
        for (int n = 0; n < kBlocks; ++n) {
            BlockState& b = blk[n];
            if (b.pass != 0) continue;
            const KplStatus st = continue_block(b, &s, pHuffTable, 3);
            if (st != kplStsNoErr) return st;
        }
    }

    std::memcpy(pDstBlocks, coef, sizeof coef);
    for (int n = 0; n < kBlocks; ++n) {
        const BlockState& b = blk[n];
        pBlockInfo[n] = head[n] | static_cast<uint32_t>(b.count) |
                        (b.pass != 0 ? uint32_t{KPLVC_DV_INFO_EOB} : 0u) |
                        (static_cast<uint32_t>(b.pass) << KPLVC_DV_INFO_PASS_SHIFT);
    }
    return kplStsNoErr;
}

}  // extern "C"
