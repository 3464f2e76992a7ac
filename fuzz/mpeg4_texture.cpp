// Fuzzes the MPEG-4 stream readers (intra DC, intra and inter coefficients,
// the inverse-quantising inter decoder, motion vectors) on arbitrary streams
// that end, after the readers' eight bytes of look-ahead, at the end of a
// heap block: ASan reports any read past it. On an error the position and
// every output must be unchanged; on success the position must have moved.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kplvc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const uint8_t sel = data[0], arg = data[1];
    const int qp = arg % 33;          // 0 and 32 exercise the range check
    const int scan = (arg >> 5) % 4;  // 3 exercises it too
    std::vector<uint8_t> buf(data + 2, data + size);
    buf.resize(buf.size() + 8, 0);  // the look-ahead allowance, then the end
    const Kpl8u* end = buf.data() + (size - 2);
    Kpl8u* p = buf.data();
    Kpl32s off = sel & 7;
    static const int16_t kMatrix[64] = {8, 17, 18, 19, 21, 23, 25, 27, 200, 255, 1, 16, 16, 16, 16, 16};
    KplMotionVector pred = {static_cast<int16_t>(sel), static_cast<int16_t>(-sel)};
    for (int i = 0; i < 512 && p < end; ++i) {
        Kpl8u* p0 = p;
        const Kpl32s off0 = off;
        int16_t c[64];
        std::memset(c, 0x5A, sizeof c);
        Kpl32s last = -7;
        Kpl16s dc = 0x5A5A;
        KplMotionVector mv = {0x5A5, 0x5A5};
        KplStatus st;
        const int which = ((sel >> 3) + i) % 5;
        switch (which) {
            case 0:
                st = kpliDecodeDCIntra_MPEG4_1u16s(&p, &off, &dc, i % 10);
                break;
            case 1:
                st = kpliDecodeCoeffsIntra_MPEG4_1u16s(&p, &off, c, &last, i & 1, scan);
                break;
            case 2:
                st = kpliDecodeCoeffsInter_MPEG4_1u16s(&p, &off, c, &last, scan);
                break;
            case 3:
                st = kpliReconstructCoeffsInter_MPEG4_1u16s(&p, &off, c, &last, scan, qp,
                                                            (i & 2) ? kMatrix : nullptr);
                break;
            default:
                st = kpliDecodeMV_MPEG4_1u16s(&p, &off, &pred, &mv, 1 + i % 7);
                break;
        }
        if (st != kplStsNoErr) {
            if (p != p0 || off != off0 || last != -7 || dc != 0x5A5A || mv.dx != 0x5A5) std::abort();
            for (int16_t v : c)
                if (v != 0x5A5A) std::abort();
            break;
        }
        if (p == p0 && off == off0) std::abort();
        if (which >= 1 && which <= 3) {
            if (last < 0 || last > 63) std::abort();
            if (which == 3)
                for (int16_t v : c)
                    if (v < -2048 || v > 2047) std::abort();
        }
        if (which == 4) pred = mv;
    }
    return 0;
}
