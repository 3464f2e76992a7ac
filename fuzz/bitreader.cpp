// The byte-oriented readers and writer and the word-oriented writers on
// fuzzed positions and codes, checked against a bit-by-bit model. The stream
// buffer is exactly as long as the reader may touch (the last bit read plus
// four bytes of look-ahead), so ASan reports any read beyond that.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/bitstream.h"
#include "kplvc.h"

namespace {

uint32_t model(const uint8_t* p, int64_t pos, int n) {
    uint32_t v = 0;
    for (int k = 0; k < n; ++k) {
        const int64_t i = pos + k;
        v = (v << 1) | static_cast<uint32_t>((p[i >> 3] >> (7 - (i & 7))) & 1);
    }
    return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    // Reads: the whole input is the stream; the control bytes come from its
    // start, and every read stays within what the buffer allows.
    std::vector<uint8_t> s(data, data + size);
    const uint8_t* base = s.data();
    const uint8_t* p = base;
    int32_t off = data[0] & 7;
    const int64_t bits = static_cast<int64_t>(size) * 8;
    for (size_t k = 1; k < size; ++k) {
        const int n = 1 + data[k] % 31;
        const int64_t at = (p - base) * 8 + off;
        // Five bytes from the current one must exist.
        if ((at >> 3) + 5 > static_cast<int64_t>(size)) break;
        if (at + n > bits) break;
        const uint32_t got = kplvc::ownGetBits(&p, &off, n);
        if (got != model(base, at, n)) abort();
        if ((p - base) * 8 + off != at + n) abort();
        if ((data[k] & 0x80) != 0 && at > 0) {  // occasionally step back
            const int32_t back = -static_cast<int32_t>(1 + data[k] % (at < 40 ? at : 40));
            kplvc::ownFlushBits(&p, &off, back);
            if ((p - base) * 8 + off != at + n + back) abort();
        }
    }

    // Writes: codes and lengths from the input through PutBits and both
    // word writers, read back bit by bit.
    std::vector<uint8_t> out(size * 4 + 8, 0xCC);
    std::vector<Kpl32u> wl(size + 2, 0), wr(size + 2, 0);
    uint8_t* q = out.data();
    int32_t qo = data[0] & 7;
    const int32_t start = qo;
    Kpl32u* pl = wl.data();
    Kpl32u* pr = wr.data();
    Kpl32s fl = 32, fr = 32;
    std::vector<uint32_t> codes;
    std::vector<int> lens;
    for (size_t k = 1; k + 1 < size; k += 2) {
        const int n = 1 + data[k] % 32;
        const uint32_t code = static_cast<uint32_t>(data[k + 1]) * 0x01010101u ^ static_cast<uint32_t>(k);
        kplvc::PutBits(&q, &qo, code, n);
        kpliPutBitsLeftMost(&pl, &fl, code, n);
        kpliPutBitsRightMost(&pr, &fr, code, n);
        codes.push_back(n == 32 ? code : code & ((1u << n) - 1));
        lens.push_back(n);
    }
    int64_t at = start;
    int64_t wbit = 0;
    for (size_t i = 0; i < codes.size(); ++i) {
        const int n = lens[i];
        uint32_t v = 0;
        for (int b = 0; b < n; ++b, ++at)
            v = (v << 1) | static_cast<uint32_t>((out[static_cast<size_t>(at >> 3)] >> (7 - (at & 7))) & 1);
        if (v != codes[i]) abort();
        // The completed words of both word writers hold the same bits MSB first.
        for (int b = 0; b < n; ++b, ++wbit) {
            const size_t w = static_cast<size_t>(wbit >> 5);
            if (static_cast<int64_t>(w) >= pl - wl.data()) continue;
            const int bit = static_cast<int>((codes[i] >> (n - 1 - b)) & 1);
            if (static_cast<int>((wl[w] >> (31 - (wbit & 31))) & 1) != bit) abort();
            if (static_cast<int>((wr[w] >> (31 - (wbit & 31))) & 1) != bit) abort();
        }
    }
    if ((q - out.data()) * 8 + qo != at) abort();
    if (fl != fr || pl - wl.data() != pr - wr.data()) abort();
    return 0;
}
