// Fuzzes the MPEG-4 decoder on VOPs with binary shape: the input supplies
// the macroblock data of an I-VOP and of the P-VOP after it, under a valid
// VOL with binary shape and valid VOP headers whose bounding box, position,
// conversion-ratio switch, quantiser, f_code and shape coding type come from
// its first bytes, so that the fuzzer spends its time in the BAB, shape
// vector and texture paths. ASan and UBSan watch; every picture handed out
// must have sane geometry with every sample readable, and the alpha plane
// must hold only 0 and 255.
#include <cstdint>
#include <cstring>
#include <vector>

#include "common/codec.h"
#include "mpeg4/decoder.h"

namespace {

bool sink(const kplvc::codecs::Picture& pic, void* user) {
    uint64_t* sum = static_cast<uint64_t*>(user);
    if (pic.width <= 0 || pic.height <= 0) __builtin_trap();
    for (int p = 0; p < 3; ++p) {
        const int w = p ? (pic.width + 1) / 2 : pic.width, h = p ? (pic.height + 1) / 2 : pic.height;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) *sum += pic.plane[p][static_cast<ptrdiff_t>(y) * pic.stride[p] + x];
    }
    return true;
}

void alpha_sink(const uint8_t* alpha, int stride, int width, int height, void*) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const uint8_t a = alpha[static_cast<ptrdiff_t>(y) * stride + x];
            if (a != 0 && a != 255) __builtin_trap();
        }
}

struct Writer {
    std::vector<uint8_t> out;
    uint32_t acc = 0;
    int n = 0;
    void put(uint32_t v, int bits) {
        for (int b = bits - 1; b >= 0; --b) {
            acc = (acc << 1) | ((v >> b) & 1);
            if (++n == 8) out.push_back(static_cast<uint8_t>(acc)), acc = 0, n = 0;
        }
    }
    void stuff() {
        put(0, 1);
        while (n != 0) put(1, 1);
    }
    void bytes(const uint8_t* p, size_t k) {
        for (size_t i = 0; i < k; ++i) put(p[i], 8);
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    const uint8_t flags = data[0];
    Writer w;
    // VOL, version 1: binary shape, time resolution 30, resync markers when
    // flag bit 0 is set.
    w.put(0x000001, 24), w.put(0x20, 8);
    w.put(0, 1), w.put(1, 8), w.put(0, 1), w.put(1, 4), w.put(0, 1);
    w.put(1, 2);
    w.put(1, 1), w.put(30, 16), w.put(1, 1), w.put(0, 1);
    w.put(0, 1), w.put(1, 1), w.put(0, 1), w.put(0, 1), w.put(0, 1);
    w.put(1, 1), w.put(flags & 1 ? 0 : 1, 1), w.put(0, 1), w.put(0, 1);
    w.stuff();
    // Bounding box up to 96x80, position -8..7.
    const int width = 1 + data[1] % 96, height = 1 + data[2] % 80;
    const int hor = static_cast<int>(data[3] & 15) - 8, ver = static_cast<int>(data[3] >> 4) - 8;
    const int quant = 1 + data[4] % 31, fcode = 1 + data[5] % 7;
    const size_t body = size - 6, half = body / 2;
    for (int t = 0; t < 2; ++t) {
        const bool p = t == 1;
        w.put(0x000001, 24), w.put(0xB6, 8);
        w.put(p ? 1 : 0, 2), w.put(0, 1), w.put(1, 1), w.put(static_cast<uint32_t>(t), 5), w.put(1, 1);
        w.put(1, 1);
        if (p) w.put((flags >> 1) & 1, 1);  // rounding
        w.put(static_cast<uint32_t>(width), 13), w.put(1, 1), w.put(static_cast<uint32_t>(height), 13),
            w.put(1, 1);
        w.put(static_cast<uint32_t>(hor + (p ? 2 : 0)) & 0x1FFF, 13), w.put(1, 1);
        w.put(static_cast<uint32_t>(ver) & 0x1FFF, 13), w.put(1, 1);
        w.put((flags >> 2) & 1, 1), w.put(0, 1);  // change_conv_ratio_disable, constant alpha
        w.put((flags >> 3) & 7, 3);               // intra_dc_vlc_thr
        w.put(static_cast<uint32_t>(quant), 5);
        if (p) w.put(static_cast<uint32_t>(fcode), 3), w.put((flags >> 6) & 1, 1);
        w.bytes(data + 6 + (p ? half : 0), p ? body - half : half);
        w.stuff();
    }
    uint64_t sum = 0;
    kplvc::codecs::DecodeStats stats;
    kplvc::codecs::mpeg4::Mpeg4Decoder d(sink, &sum, &stats);
    d.set_alpha_sink(alpha_sink, nullptr);
    d.run(w.out.data(), w.out.size());
    return 0;
}
