// Fuzzes the H.263 block decoders on arbitrary streams followed by eight
// zero bytes (the decoders' look-ahead allowance) at the very end of a heap
// block: ASan reports any read past it. On an error the position must be
// unchanged (the DC-only decoder excepted: it moves one byte first) and no
// pixels may have been written.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kplvc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const uint8_t selector = data[0];
    const int qp = data[1] % 33;  // 0 and 32 exercise the range check
    std::vector<uint8_t> buf(data + 2, data + size);
    // Eight bytes of allowance after the data, plus three: a last code may
    // run up to 22 bits into the zeros, and the look-ahead counts from the
    // byte where the next code starts.
    buf.resize(buf.size() + 11, 0);
    Kpl8u* p = buf.data();
    const Kpl8u* data_end = buf.data() + (size - 2);
    int off = selector & 7;
    Kpl16s row[8], col[8];
    for (int k = 0; k < 8; ++k)
        row[k] = static_cast<Kpl16s>(k * 100 - 50), col[k] = static_cast<Kpl16s>(400 - k * 37);
    for (int i = 0; i < 256 && p < data_end; ++i) {
        const int which = ((selector >> 3) + i) & 3;
        Kpl8u* p0 = p;
        const int off0 = off;
        uint8_t px[8 * 9];
        std::memset(px, 0xEE, sizeof px);
        int16_t res[64];
        KplStatus st;
        switch (which) {
            case 0:
                st = kpliDecodeBlockCoef_Intra_H263_1u8u(&p, &off, px, 9, qp);
                break;
            case 1:
                st = kpliDecodeBlockCoef_Inter_H263_1u16s(&p, &off, res, qp);
                break;
            case 2:
                st = kpliDecodeBlockCoef_IntraDCOnly_H263_1u8u(&p, &off, px, 9);
                break;
            default:
                st = kpliDecodeBlockCoef_AdvIntra_H263_1u8u(&p, &off, px, 9, row, col, qp, 1 + (i % 3));
                break;
        }
        if (st != kplStsNoErr) {
            const bool dc_only_moved = which == 2 && st == kplStsIntraDCErr && p == p0 + 1 && off == off0;
            if (!dc_only_moved && (p != p0 || off != off0)) std::abort();
            for (uint8_t v : px)
                if (v != 0xEE) std::abort();
            if (!dc_only_moved) break;
            continue;
        }
        if (p <= p0 && off <= off0) std::abort();  // every block consumes bits
        for (int r = 0; r < 8; ++r)
            if (px[9 * r + 8] != 0xEE) std::abort();  // the column past the block stays
    }
    return 0;
}
