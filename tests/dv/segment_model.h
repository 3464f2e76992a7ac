// A plain model of DV segment decoding for the tests and the fuzz target:
// bit strings held one bit per element, pools copied bit by bit, every
// lookup made on the string padded with zeros, the three passes run one
// after the other. Slow and obvious; the library's decoder must agree with it
// on every input, valid or not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"

namespace kplvc::dvtest {

struct ModelResult {
    KplStatus status = kplStsNoErr;
    int16_t out[30][64] = {};
    uint32_t info[30] = {};
};

inline ModelResult model_decode(const uint8_t* seg, const uint32_t* table, const int32_t* scans) {
    using Bits = std::vector<uint8_t>;
    struct Blk {
        int dc, m, c, pos = 0, pass = 0;
        int v[64] = {};
        Bits pending;
    };
    struct Pool {
        Bits bits;
        size_t at = 0;
    };
    auto bit = [&](int i) { return static_cast<uint8_t>((seg[i >> 3] >> (7 - (i & 7))) & 1); };
    auto value = [](const Bits& a, size_t from, int n) {
        uint32_t x = 0;
        for (int i = 0; i < n; ++i) x = (x << 1) | (from + i < a.size() ? a[from + i] : 0u);
        return x;
    };

    // One block from a pool until EOB, error or no bits; returns the status.
    auto run = [&](Blk& b, Pool& pool, int pass) -> KplStatus {
        for (;;) {
            Bits a = b.pending;
            a.insert(a.end(), pool.bits.begin() + static_cast<std::ptrdiff_t>(pool.at), pool.bits.end());
            const size_t n = a.size();
            if (n == 0) return kplStsNoErr;
            uint32_t e = table[1 + value(a, 0, 9)];
            const uint32_t first = e;
            uint32_t v1 = (e >> 8) & 0x3FFF;
            size_t len = e & 0xFF;
            enum { pair, eob, escape, invalid } kind;
            if (v1 == KPLVC_DV_LINK) {
                const uint32_t x = value(a, 0, 13) & 511;
                if (x == 511) {
                    kind = invalid;
                    len = 13;
                } else {
                    e = table[513 + x];
                    v1 = (e >> 8) & 0x3FFF;
                    len = e & 0xFF;
                    kind = v1 < 64 ? pair : v1 == KPLVC_DV_EOB ? eob : invalid;
                }
            } else {
                kind = v1 < 64 ? pair : v1 == KPLVC_DV_EOB ? eob : v1 == KPLVC_DV_ESCAPE ? escape : invalid;
                if (kind == escape) len += 9;
            }
            if (len > 16) kind = invalid, len = 16;
            if (len > n) {
                b.pending = a;
                pool.at = pool.bits.size();
                return kplStsNoErr;
            }
            const size_t from_p = len < b.pending.size() ? len : b.pending.size();
            b.pending.erase(b.pending.begin(), b.pending.begin() + static_cast<std::ptrdiff_t>(from_p));
            pool.at += len - from_p;
            int r = 0, v = 0;
            if (kind == invalid) return kplStsVLCErr;
            if (kind == eob) {
                b.pass = pass;
                return kplStsNoErr;
            }
            if (kind == escape) {
                const int prefix = static_cast<int>(len) - 9;
                const int amp = static_cast<int>(value(a, prefix, 8));
                if (amp < static_cast<int32_t>(first) >> 22) return kplStsVLCErr;
                v = a[len - 1] ? -amp : amp;
            } else {
                r = static_cast<int>(v1);
                v = static_cast<int32_t>(e) >> 22;
            }
            b.pos += r + 1;
            if (b.pos > 63) return kplStsCoefCountErr;
            b.v[b.pos] = v;
        }
    };

    ModelResult res;
    static const int kArea[6] = {4, 18, 32, 46, 60, 70}, kSpace[6] = {100, 100, 100, 100, 68, 68};
    Blk blk[30];
    Pool spare[30];
    for (int n = 0; n < 30; ++n) {
        const int k = n / 6, j = n % 6, at = (80 * k + kArea[j]) * 8;
        int dc = 0;
        for (int i = 0; i < 9; ++i) dc = (dc << 1) | bit(at + i);
        blk[n].dc = dc >= 256 ? dc - 512 : dc;
        blk[n].m = bit(at + 9);
        blk[n].c = (bit(at + 10) << 1) | bit(at + 11);
        blk[n].v[0] = blk[n].dc;
        Pool own;
        for (int i = 12; i < 12 + kSpace[j]; ++i) own.bits.push_back(bit(at + i));
        if ((res.status = run(blk[n], own, 1)) != kplStsNoErr) return res;
        if (blk[n].pass)
            spare[n].bits.assign(own.bits.begin() + static_cast<std::ptrdiff_t>(own.at), own.bits.end());
    }
    Pool whole;
    for (int k = 0; k < 5; ++k) {
        Pool r;
        for (int j = 0; j < 6; ++j)
            r.bits.insert(r.bits.end(), spare[6 * k + j].bits.begin(), spare[6 * k + j].bits.end());
        for (int j = 0; j < 6; ++j)
            if (!blk[6 * k + j].pass && (res.status = run(blk[6 * k + j], r, 2)) != kplStsNoErr) return res;
        whole.bits.insert(whole.bits.end(), r.bits.begin() + static_cast<std::ptrdiff_t>(r.at), r.bits.end());
    }
    for (int n = 0; n < 30; ++n)
        if (!blk[n].pass && (res.status = run(blk[n], whole, 3)) != kplStsNoErr) return res;

    for (int n = 0; n < 30; ++n) {
        const Blk& b = blk[n];
        uint32_t count = 0;
        for (int i = 0; i < 64; ++i)
            if (b.v[i] != 0) {
                res.out[n][scans[64 * b.m + i] & 63] = static_cast<int16_t>(64 * b.v[i]);
                count = static_cast<uint32_t>(i) + 1;
            }
        const uint32_t staqno = seg[80 * (n / 6) + 3];
        res.info[n] = count | (b.pass ? 0x80u : 0u) | (static_cast<uint32_t>(b.m) << 8) |
                      (static_cast<uint32_t>(b.c) << 9) | ((staqno & 15) << 12) | ((staqno >> 4) << 16) |
                      (static_cast<uint32_t>(b.pass) << 20);
    }
    return res;
}

}  // namespace kplvc::dvtest
