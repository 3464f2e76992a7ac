// Fuzzes the whole H.263 decoder of codecs/h263 on arbitrary data (a picture
// start code is put in front now and then so that the picture layer is
// reached): it must return, read every sample of every picture it hands out
// without a sanitizer report, and keep its counts sane.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "common/codec.h"

namespace {

bool touch(const kplvc::codecs::Picture& pic, void* user) {
    uint32_t* sum = static_cast<uint32_t*>(user);
    for (int p = 0; p < 3; ++p) {
        const int w = p ? (pic.width + 1) / 2 : pic.width, h = p ? (pic.height + 1) / 2 : pic.height;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) *sum += pic.plane[p][static_cast<size_t>(y) * pic.stride[p] + x];
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const kplvc::codecs::Decoder* dec = kplvc::codecs::find_decoder("h263");
    if (!dec || size > (1 << 20)) return 0;
    std::vector<uint8_t> s;
    if (size > 0 && (data[0] & 1)) {
        // A picture start code and TR; the fuzzer's bytes continue at PTYPE.
        s = {0x00, 0x00, 0x80, 0x02};
    }
    s.insert(s.end(), data, data + size);
    kplvc::codecs::DecodeStats stats;
    uint32_t sum = 0;
    const int rc = dec->decode(s.data(), s.size(), kplvc::codecs::DecodeOptions{}, touch, &sum, &stats);
    if (rc == 0 && (stats.frames < 0 || stats.concealed < 0 || stats.errors < 0)) std::abort();
    return 0;
}
