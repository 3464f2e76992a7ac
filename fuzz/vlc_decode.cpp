// Builds a generic VLC table from a fuzzed description and decodes a fuzzed
// stream with it.
//
// Input: byte 0 picks the form (bit 0: RL) and the number of levels (1..3);
// the next bytes give the level bits (1..8 each); then records of
// (length, code bits); the rest is the stream. The description lists the
// codes by length as callers do. Codes need not be prefix-free, and many
// 8-bit sub-tables can need more room than the block has: the builder must
// then leave codes out without writing outside the block. The decoder must
// stay inside the table and inside the stream plus one word of look-ahead,
// consume 1..(sum of level bits) bits per call, and on an invalid code
// report 0xF0F1.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kplvc.h"

namespace {

struct Rec {
    uint32_t code;
    int32_t len, v1, v2;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const bool rl = (data[0] & 1) != 0;
    const int levels = 1 + (data[0] >> 1) % 3;
    size_t pos = 1;
    std::vector<int32_t> bits;
    int32_t total = 0;
    for (int i = 0; i < levels; ++i) {
        const int32_t b = 1 + data[pos++] % 8;
        bits.push_back(b);
        total += b;
    }
    // Up to 40 records of 4 bytes: length (1..total), code (16 bits), value.
    std::vector<Rec> recs;
    const size_t nrec = data[pos++] % 41;
    for (size_t r = 0; r < nrec && pos + 4 <= size; ++r, pos += 4) {
        Rec rec;
        rec.len = 1 + data[pos] % total;
        rec.code = ((uint32_t{data[pos + 1]} << 8) | data[pos + 2]) & ((1u << rec.len) - 1);
        rec.v1 = static_cast<int8_t>(data[pos + 3]) * 1000;
        rec.v2 = data[pos + 3];
        recs.push_back(rec);
    }
    std::vector<Kpl32s> desc = {0, levels};
    desc.insert(desc.end(), bits.begin(), bits.end());
    for (int32_t len = 1; len <= total; ++len) {
        size_t count_at = desc.size();
        desc.push_back(0);
        for (const Rec& r : recs) {
            if (r.len != len) continue;
            ++desc[count_at];
            desc.push_back(static_cast<Kpl32s>(r.code));
            desc.push_back(r.v1);
            if (rl) desc.push_back(r.v2);
        }
    }
    desc.push_back(-1);

    Kpl32s* table = nullptr;
    const KplStatus st = rl ? kpliVCHuffmanInitAllocRL_32s(desc.data(), &table)
                            : kpliVCHuffmanInitAlloc_32s(desc.data(), &table);
    if (st != kplStsNoErr) abort();

    // The stream: the remaining bytes as whole words, then one zero word of
    // look-ahead; decode while a whole code's worth of bits is left.
    const size_t nwords = (size - pos) / 4;
    std::vector<Kpl32u> words(nwords + 1, 0);
    if (nwords != 0) std::memcpy(words.data(), data + pos, nwords * 4);
    Kpl32u* p = words.data();
    Kpl32s off = 31;
    const int64_t limit = static_cast<int64_t>(nwords) * 32;
    for (int k = 0; k < 4096; ++k) {
        const int64_t at = (p - words.data()) * int64_t{32} + (31 - off);
        if (at + total > limit) break;
        Kpl32s v = 0;
        const KplStatus d = kpliVCHuffmanDecodeOne_1u32s(&p, &off, &v, table);
        if (off < 0 || off > 31) abort();
        const int64_t now = (p - words.data()) * int64_t{32} + (31 - off);
        if (now <= at || now > at + total) abort();  // every call consumes 1..total bits
        if (d == kplStsVLCErr) {
            if (v != 0xF0F1) abort();
        } else if (d != kplStsNoErr) {
            abort();
        }
    }
    kpliVCHuffmanFree_32s(&table);
    if (table != nullptr) abort();
    return 0;
}
