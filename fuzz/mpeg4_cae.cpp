// Fuzzes the MPEG-4 shape readers: one BAB (intra or inter, 16/8/4, either
// scan) decoded from arbitrary bits in a heap block of exactly the 512 bytes
// the decoder may read (ASan reports any read past it), then bab_type and
// shape-vector codes from what follows. The BAB must come out as 0/255
// samples with the plane around it unchanged; failing readers must leave
// their position and outputs alone.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kplvc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const uint8_t sel = data[0];
    const int bab = 16 >> (sel % 3), scan = (sel >> 2) & 1, inter = (sel >> 3) & 1;
    // A 24x24 shape plane and a compensated one from the next bytes' bits.
    constexpr int kStep = 24;
    uint8_t plane[kStep * kStep], mc[kStep * kStep];
    for (int i = 0; i < kStep * kStep; ++i) {
        plane[i] = ((data[1 + (i >> 3) % 6] >> (i & 7)) & 1) ? 255 : 0;
        mc[i] = ((data[2 + (i >> 4) % 5] >> (i & 7)) & 1) ? 255 : 0;
    }
    uint8_t before[kStep * kStep];
    std::memcpy(before, plane, sizeof plane);
    std::vector<uint8_t> buf(512, 0);
    std::memcpy(buf.data(), data + 7, size - 7 < 512 ? size - 7 : 512);
    Kpl8u* p = buf.data();
    Kpl32s off = sel >> 5;
    uint8_t* b = plane + 3 * kStep + 3;
    const KplStatus st =
        inter ? kpliDecodeBABInter_MPEG4_1u8u(&p, &off, b, kStep, mc + 3 * kStep + 3, kStep, bab, scan)
              : kpliDecodeBABIntra_MPEG4_1u8u(&p, &off, b, kStep, bab, scan);
    if (st != kplStsNoErr || p < buf.data() || (p - buf.data()) * 8 + off > 512 * 8) std::abort();
    for (int y = 0; y < kStep; ++y)
        for (int x = 0; x < kStep; ++x) {
            const int i = y * kStep + x;
            const bool in_bab = y >= 3 && y < 3 + bab && x >= 3 && x < 3 + bab;
            if (in_bab ? (plane[i] != 0 && plane[i] != 255) : plane[i] != before[i]) std::abort();
        }
    // Codes after the BAB, while 8 bytes of look-ahead remain.
    for (int i = 0; i < 64 && p + 8 <= buf.data() + buf.size(); ++i) {
        Kpl8u* p0 = p;
        const Kpl32s off0 = off;
        Kpl32s type = -1;
        KplMotionVector mv = {99, 99};
        const Kpl32s nb[4] = {2 + i % 3, 2 + (i / 3) % 3, 2 + (i / 9) % 3, 2 + sel % 3};
        KplStatus s;
        switch (i % 3) {
            case 0:
                s = kpliDecodeBABTypeIntra_MPEG4_1u32s(&p, &off, nb, &type);
                break;
            case 1:
                s = kpliDecodeBABTypeInter_MPEG4_1u32s(&p, &off, i % 7, &type);
                break;
            default:
                s = kpliDecodeShapeMVD_MPEG4_1u16s(&p, &off, &mv);
        }
        if (s != kplStsNoErr) {
            if (p != p0 || off != off0 || type != -1 || mv.dx != 99 || mv.dy != 99) std::abort();
            break;
        }
        if (p == p0 && off == off0) std::abort();
    }
    return 0;
}
