// Generic VLC tables: building a multi-level lookup table from a caller's
// description of a prefix code, decoding one code word, freeing the table.
//
// Description (Kpl32s words): [0] unused, [1] L = number of levels,
// [2 .. L+1] bits per level, then for code lengths 1, 2, 3, ...: a count n
// (0 allowed) and n records (code, value) or (code, value1, value2) with the
// code right-aligned; a negative count ends the list.
#include "core/vlc.h"

#include <cstddef>

#include "core/arith.h"
#include "kplvc.h"

namespace kplvc {

namespace {

// The largest level bit count whose sub-table (count word + 2^b entries) can
// ever fit a block of nwords words.
int32_t max_level_bits(int32_t nwords) {
    int32_t b = 0;
    while (b < 30 && (int64_t{1} << (b + 1)) + 1 <= nwords) ++b;
    return b;
}

struct Builder {
    int32_t* t;
    int32_t nwords;
    int32_t next_free;  // word index of the next sub-table
    int32_t levels;
    const int32_t* level_bits;  // description entries 2 .. L+1
    int32_t bit_limit;

    // Bit count of level i, or -1 when the level does not exist or its
    // sub-tables could never fit the block.
    int32_t bits_of(int32_t i) const {
        if (i >= levels) return -1;
        const int32_t b = level_bits[i];
        return (b < 0 || b > bit_limit) ? -1 : b;
    }

    // Places one code of length len with its leaf word. A code that runs out
    // of levels or of block space is left out; so is every word that would
    // land outside the block.
    void place(uint32_t code, int32_t len, uint32_t leaf) {
        int32_t sub = 0;  // word index of the current sub-table
        int32_t level = 0;
        int32_t b = t[0];
        int32_t consumed = b;  // bits consumed up to and including this level
        while (consumed < len) {
            // The part of the code this level looks up.
            const int32_t drop = len - consumed;  // >= 1
            const uint32_t idx = (drop >= 32 ? 0u : code >> drop) & _kplGetBitsMask[b];
            int32_t* entry = &t[sub + 1 + static_cast<int32_t>(idx)];
            const uint32_t e = static_cast<uint32_t>(*entry);
            if ((e & kVlcLinkFlag) != 0) {
                sub = static_cast<int32_t>(e >> 8);
            } else {
                // An unused pattern (or, for a description that is not
                // prefix-free, the leaf of a shorter code) gets a new
                // sub-table for the next level.
                const int32_t nb = bits_of(level + 1);
                if (nb < 0) return;
                const int64_t end = int64_t{next_free} + 1 + (int64_t{1} << nb);
                if (end > nwords) return;
                sub = next_free;
                t[sub] = nb;
                next_free = static_cast<int32_t>(end);
                *entry = static_cast<int32_t>((static_cast<uint32_t>(sub) << 8) | kVlcLinkFlag);
            }
            ++level;
            b = t[sub];
            consumed += b;
        }
        // The code ends in this level: u bits of the look-up are not part of
        // it. b - u >= 1 because the previous levels consumed fewer than len.
        const int32_t u = consumed - len;
        const uint32_t first = (code & _kplGetBitsMask[b - u]) << u;
        const uint32_t word = leaf | static_cast<uint32_t>(u);
        for (uint32_t i = 0; i < (uint32_t{1} << u); ++i)
            t[sub + 1 + static_cast<int32_t>(first + i)] = static_cast<int32_t>(word);
    }
};

}  // namespace

void vlc_build(const int32_t* desc, int32_t* table, int32_t nwords, bool rl) {
    for (int32_t i = 0; i < nwords; ++i) table[i] = static_cast<int32_t>(kVlcInvalid);
    table[0] = 0;
    const int32_t levels = desc[1];
    if (levels < 1) return;  // no level: a table that matches nothing
    Builder bld{table, nwords, 0, levels, desc + 2, max_level_bits(nwords)};
    const int32_t b1 = bld.bits_of(0);
    if (b1 < 0) return;  // a first level larger than the block: matches nothing
    table[0] = b1;
    bld.next_free = (1 << b1) + 1;

    const int32_t rec = rl ? 3 : 2;
    const int32_t* p = desc + 2 + levels;
    for (int32_t len = 1;; ++len) {
        const int32_t n = *p++;
        if (n < 0) break;
        for (int32_t r = 0; r < n; ++r, p += rec) {
            const uint32_t code = static_cast<uint32_t>(p[0]);
            uint32_t leaf;
            if (rl) {
                // value2 << 16 | (value1 & 0xFF) << 8, in 32-bit unsigned arithmetic.
                leaf = (static_cast<uint32_t>(p[2]) << 16) | ((static_cast<uint32_t>(p[1]) & 0xFFu) << 8);
            } else {
                leaf = static_cast<uint32_t>(p[1]) << 8;
            }
            bld.place(code, len, leaf);
        }
    }
}

}  // namespace kplvc

namespace {

KplStatus init_alloc(const Kpl32s* pInputTable, Kpl32s** ppDstSpec, bool rl) {
    if (pInputTable == nullptr || ppDstSpec == nullptr) return kplStsNullPtrErr;
    const int32_t nwords = rl ? kplvc::kVlcWordsRL : kplvc::kVlcWords;
    Kpl8u* block = kplsMalloc_8u(nwords * static_cast<int32_t>(sizeof(Kpl32s)));
    if (block == nullptr) return kplStsMemAllocErr;
    Kpl32s* table = reinterpret_cast<Kpl32s*>(block);
    kplvc::vlc_build(pInputTable, table, nwords, rl);
    *ppDstSpec = table;
    return kplStsNoErr;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliVCHuffmanInitAlloc_32s(const Kpl32s* pInputTable, Kpl32s** ppDstSpec) {
    return init_alloc(pInputTable, ppDstSpec, false);
}

KPLVC_API KplStatus kpliVCHuffmanInitAllocRL_32s(const Kpl32s* pInputTable, Kpl32s** ppDstSpec) {
    return init_alloc(pInputTable, ppDstSpec, true);
}

KPLVC_API KplStatus kpliVCHuffmanDecodeOne_1u32s(Kpl32u** ppBitStream, Kpl32s* pOffset, Kpl32s* pDst,
                                                 const Kpl32s* pDecodeTable) {
    if (ppBitStream == nullptr || *ppBitStream == nullptr || pDecodeTable == nullptr) return kplStsNullPtrErr;
    const uint32_t* p = *ppBitStream;
    int32_t off = *pOffset;
    const int32_t st = kplvc::vlc_decode_one(p, off, pDecodeTable, pDst);
    // The position moves on an invalid code too (by the looked-up bits).
    *ppBitStream = const_cast<Kpl32u*>(p);
    *pOffset = off;
    return st;
}

KPLVC_API KplStatus kpliVCHuffmanFree_32s(Kpl32s** ppSpec) {
    if (ppSpec == nullptr) return kplStsNullPtrErr;
    if (*ppSpec == nullptr) return kplStsNoErr;
    kplsFree(*ppSpec);
    *ppSpec = nullptr;
    return kplStsNoErr;
}

}  // extern "C"
