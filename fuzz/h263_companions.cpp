// Fuzzes the H.263 companions that read streams: the Ex block decoders
// (extended escape, alternative inter table, Annex I) and the Annex D vector
// decoder, on arbitrary data followed by zero bytes at the very end of a heap
// block: their look-ahead of eight bytes from the byte where a code starts,
// plus five for a last code (33 bits with the extended escape) that runs
// into the zeros. ASan reports any read past them.
// On an error the position and every output must be unchanged; on success
// the position must have moved forward (Annex I blocks without coefficients
// excepted) and never past the padding.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kplvc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    const uint8_t selector = data[0], param = data[1];
    std::vector<uint8_t> buf(data + 2, data + size);
    const size_t real = buf.size();
    buf.resize(real + 13, 0);
    Kpl8u* p = buf.data();
    const Kpl8u* data_end = buf.data() + real;
    int off = selector & 7;
    const int qp = 1 + param % 31;
    Kpl16s row[8], col[8], mv[2] = {0, 0};
    for (int k = 0; k < 8; ++k)
        row[k] = static_cast<Kpl16s>(k * 97 - 300), col[k] = static_cast<Kpl16s>(1500 - k * 211);
    for (int i = 0; i < 512 && p < data_end; ++i) {
        const int which = ((selector >> 3) + i) % 5;
        Kpl8u* p0 = p;
        const int off0 = off;
        uint8_t px[8 * 9];
        std::memset(px, 0xEE, sizeof px);
        int16_t res[64];
        std::memset(res, 0x5A, sizeof res);
        Kpl16s row0[8], col0[8], mv0[2] = {mv[0], mv[1]};
        std::memcpy(row0, row, sizeof row);
        std::memcpy(col0, col, sizeof col);
        const int flags = (param >> 5) & 3;  // EXT_ESCAPE, ALT_INTER_VLC
        KplStatus st;
        switch (which) {
            case 0:
                st = kpliDecodeBlockCoefEx_Inter_H263_1u16s(&p, &off, res, qp, flags);
                break;
            case 1:
                st =
                    kpliDecodeBlockCoefEx_Intra_H263_1u8u(&p, &off, px, 9, qp, flags & KPLVC_H263_EXT_ESCAPE);
                break;
            case 2: {
                const int aic = KPLVC_H263_AIC_CODED | ((i & 1) ? KPLVC_H263_AIC_ABOVE : 0) |
                                ((i & 2) ? KPLVC_H263_AIC_LEFT : 0) | (flags & KPLVC_H263_EXT_ESCAPE);
                st = kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(&p, &off, px, 9, row, col, qp, i % 3, aic);
                break;
            }
            default:
                st = kpliDecodeMVEx_H263(&p, &off, mv, mv, (param + i) % 3);
                break;
        }
        if (p > buf.data() + buf.size()) std::abort();
        if (st != kplStsNoErr) {
            if (p != p0 || off != off0) std::abort();
            for (uint8_t v : px)
                if (v != 0xEE) std::abort();
            for (int16_t v : res)
                if (v != 0x5A5A) std::abort();
            if (std::memcmp(row, row0, sizeof row) || std::memcmp(col, col0, sizeof col)) std::abort();
            if (mv[0] != mv0[0] || mv[1] != mv0[1]) std::abort();
            break;
        }
        if (p < p0 || (p == p0 && off <= off0)) std::abort();  // every decode consumes bits
        for (int y = 0; y < 8; ++y)
            if (px[y * 9 + 8] != 0xEE) std::abort();  // the column past the block stays
        // Keep vectors and predictors in the range a decoder keeps them.
        mv[0] = static_cast<Kpl16s>(mv[0] % 1024), mv[1] = static_cast<Kpl16s>(mv[1] % 1024);
    }
    return 0;
}
