// The MPEG-4 Visual decoder as the codecs see it: probing and the entry
// point (decoder.cpp does the work).
#include <cstring>

#include "common/codec.h"
#include "decoder.h"

namespace kplvc::codecs {

namespace {

// A video object layer start code (00 00 01 2x), or a short video header at
// the very start.
int probe(const uint8_t* data, size_t size) {
    const size_t n = size < 4096 ? size : 4096;
    for (size_t i = 0; i + 4 <= n; ++i)
        if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1 && (data[i + 3] & 0xF0) == 0x20) return 90;
    if (size >= 3 && data[0] == 0 && data[1] == 0 && (data[2] & 0xFC) == 0x80) return 30;
    return 0;
}

int decode(const uint8_t* data, size_t size, const DecodeOptions& opt, PictureSink sink, void* user,
           DecodeStats* stats) {
    mpeg4::Mpeg4Decoder d(sink, user, stats);
    d.set_postfilter(opt.postfilter);
    return d.run(data, size) ? 0 : -1;
}

}  // namespace

extern const Decoder kMpeg4Decoder;
const Decoder kMpeg4Decoder = {"mpeg4", ".m4v .cmp .mp4v", probe, decode};

}  // namespace kplvc::codecs
