// Fuzzes the H.263 macroblock-symbol decoders on arbitrary streams. The
// stream sits at the very end of a heap block, and a decoder is called only
// while its documented look-ahead (two bytes from the current byte, three per
// vector code) stays inside: ASan reports any read beyond it. On an error the
// position and outputs must be unchanged.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kplvc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint8_t selector = data[0];
    std::vector<uint8_t> buf(data + 1, data + size);
    Kpl8u* const end = buf.data() + buf.size();
    Kpl8u* p = buf.data();
    int off = selector & 7;
    // Candidates inside -32..31, as a decoder keeps them.
    Kpl16s mv[6] = {static_cast<Kpl16s>((selector & 63) - 32), -5, 31, -32, 0, 7};
    Kpl32s q = selector & 31;
    for (int i = 0; i < 4096; ++i) {
        const int which = (selector >> 3) == 31 ? i % 7 : (selector >> 3) % 7;
        const int need = which >= 4 && which <= 5 ? 5 : 2;  // two vector codes: 2 + 3 bytes at most
        if (end - p < need) break;
        Kpl8u* p0 = p;
        const int off0 = off;
        Kpl8u out = 0xA5;
        Kpl16s before[6];
        std::memcpy(before, mv, sizeof mv);
        KplStatus st;
        switch (which) {
            case 0:
                st = kpliDecodeMCBPCIntra_H263(&p, &off, &out);
                break;
            case 1:
                st = kpliDecodeMCBPCInter_H263(&p, &off, &out);
                break;
            case 2:
                st = kpliDecodeMODB_H263(&p, &off, &out);
                break;
            case 3:
                st = kpliDecodeCBPY_H263(&p, &off, &out);
                break;
            case 4:
                st = kpliDecodeMV_H263(&p, &off, mv);
                break;
            case 5:
                st = kpliDecodeMV_TopBorder_H263(&p, &off, mv);
                break;
            default:
                q &= 31;
                st = kpliUpdateQuant_MQ_H263_1u32s_I(&p, &off, &q);
                break;
        }
        if (st != kplStsNoErr) {
            if (p != p0 || off != off0 || out != 0xA5 || std::memcmp(before, mv, sizeof mv) != 0)
                std::abort();
            break;
        }
        if (off < 0 || off > 7 || p < p0) std::abort();
        if (mv[2] < -32 || mv[2] > 31 || mv[3] < -32 || mv[3] > 31) {
            if (which == 4 || which == 5) std::abort();
        }
    }
    return 0;
}
