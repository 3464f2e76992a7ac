// The whole MPEG-1/MPEG-2 video decoder on arbitrary input: it must return
// (whatever it decided about the stream) without reading or writing outside
// its buffers, and every picture it hands out must be readable in full.
// Seeds: any .m1v/.m2v stream (ffmpeg -f lavfi -i testsrc2 -c:v mpeg2video).
#include <cstddef>
#include <cstdint>

#include "common/codec.h"

namespace {

bool touch(const kplvc::codecs::Picture& pic, void* user) {
    uint32_t* sum = static_cast<uint32_t*>(user);
    for (int p = 0; p < 3; ++p) {
        const int w = p ? kplvc::codecs::chroma_width(pic.chroma, pic.width) : pic.width;
        const int h = p ? kplvc::codecs::chroma_height(pic.chroma, pic.height) : pic.height;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) *sum += pic.plane[p][static_cast<size_t>(y) * pic.stride[p] + x];
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const kplvc::codecs::Decoder* dec = kplvc::codecs::find_decoder("mpeg2");
    uint32_t sum = 0;
    kplvc::codecs::DecodeStats stats;
    dec->decode(data, size, kplvc::codecs::DecodeOptions{}, touch, &sum, &stats);
    return 0;
}
