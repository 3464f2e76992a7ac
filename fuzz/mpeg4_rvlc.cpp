// Fuzzes the reversible-VLC texture decoders on arbitrary partitions that
// start at the beginning of a heap block and end, after the look-ahead
// allowance, at its end: ASan reports a read before the partition or past
// it. Each block read one way is read again the other way and must give the
// same levels and boundaries (the code is prefix- and suffix-free, the
// escape begins and ends with the same word). On an error the position and
// every output must be unchanged.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kplvc.h"

namespace {

// kind 0: intra with the DC apart (dcVlc 1), 1: intra with it, 2: inter.
KplStatus forward(int kind, Kpl8u** p, Kpl32s* off, int16_t* c, Kpl32s* last, int scan) {
    if (kind == 2) return kpliDecodeCoeffsInterRVLC_MPEG4_1u16s(p, off, c, last, scan);
    return kpliDecodeCoeffsIntraRVLC_MPEG4_1u16s(p, off, c, last, kind == 0 ? 1 : 0, scan);
}

KplStatus backward(int kind, Kpl8u** p, Kpl32s* off, const Kpl8u* s, Kpl32s soff, int16_t* c, Kpl32s* last,
                   int scan) {
    if (kind == 2) return kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s(p, off, s, soff, c, last, scan);
    return kpliDecodeCoeffsIntraRVLCBack_MPEG4_1u16s(p, off, s, soff, c, last, kind == 0 ? 1 : 0, scan);
}

void check_unchanged(KplStatus st, const Kpl8u* p, const Kpl8u* p0, Kpl32s off, Kpl32s off0, const int16_t* c,
                     Kpl32s last) {
    if (st == kplStsNoErr) return;
    if (p != p0 || off != off0 || last != -7) std::abort();
    for (int k = 0; k < 64; ++k)
        if (c[k] != 0x5A5A) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const uint8_t sel = data[0];
    const int scan = sel % 3;
    const Kpl32s start_off = (sel >> 2) & 7;
    const size_t n = size - 1;
    std::vector<uint8_t> buf(data + 1, data + size);
    buf.resize(n + 8, 0);  // the look-ahead allowance, then the end
    Kpl8u* const begin = buf.data();
    Kpl8u* const end = begin + n;

    // Forward block after block; each one read back from its end.
    Kpl8u* p = begin;
    Kpl32s off = start_off;
    for (int i = 0; i < 256 && p < end; ++i) {
        const int kind = (sel >> 5) % 3 == 0 ? i % 3 : (sel >> 5) % 3;
        int16_t c[64], b[64];
        std::memset(c, 0x5A, sizeof c);
        Kpl32s last = -7;
        Kpl8u* const p0 = p;
        const Kpl32s off0 = off;
        const KplStatus st = forward(kind, &p, &off, c, &last, scan);
        check_unchanged(st, p, p0, off, off0, c, last);
        if (st != kplStsNoErr) break;
        if (last < 0 || last > 63 || (p == p0 && off == off0)) std::abort();
        Kpl8u* q = p;
        Kpl32s qoff = off, blast;
        std::memset(b, 0x5A, sizeof b);
        if (backward(kind, &q, &qoff, p0, off0, b, &blast, scan) != kplStsNoErr) std::abort();
        if (q != p0 || qoff != off0 || blast != last) std::abort();
        if (std::memcmp(b + (kind == 0), c + (kind == 0), sizeof(int16_t) * (64 - (kind == 0))) != 0)
            std::abort();
    }

    // Backward from the end of the data down to its first bit; each block
    // read forward again from where the backward pass left it.
    p = end;
    off = 0;
    for (int i = 0; i < 256; ++i) {
        const int kind = (sel >> 5) % 3 == 0 ? i % 3 : (sel >> 5) % 3;
        int16_t c[64], f[64];
        std::memset(c, 0x5A, sizeof c);
        Kpl32s last = -7;
        Kpl8u* const p0 = p;
        const Kpl32s off0 = off;
        const KplStatus st = backward(kind, &p, &off, begin, start_off, c, &last, scan);
        check_unchanged(st, p, p0, off, off0, c, last);
        if (st != kplStsNoErr) break;
        if (last < 0 || last > 63 || (p == p0 && off == off0)) std::abort();
        Kpl8u* q = p;
        Kpl32s qoff = off, flast;
        std::memset(f, 0x5A, sizeof f);
        if (forward(kind, &q, &qoff, f, &flast, scan) != kplStsNoErr) std::abort();
        if (q != p0 || qoff != off0 || flast != last) std::abort();
        if (std::memcmp(f + (kind == 0), c + (kind == 0), sizeof(int16_t) * (64 - (kind == 0))) != 0)
            std::abort();
        if (p == begin && off == start_off) break;
    }
    return 0;
}
