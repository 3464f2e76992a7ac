// Fuzzes the whole H.264 decoder: any byte string is a stream. The decoder
// must return (refusing a stream is fine), and every sample of every picture
// it hands out must be readable (ASan watches the planes). Streams whose
// sequence parameter sets ask for pictures above 1920x1088 are skipped, to
// keep the fuzzer's memory bounded; the decoder's own limit is far larger.
#include <cstdint>
#include <vector>

#include "common/codec.h"
#include "h264/nal.h"
#include "h264/params.h"

namespace {

using namespace kplvc::codecs;

bool too_large(const uint8_t* data, size_t size) {
    size_t pos = 0;
    const uint8_t* nal = nullptr;
    size_t len = 0;
    std::vector<uint8_t> rbsp;
    while (h264::next_nal(data, size, &pos, &nal, &len)) {
        if ((nal[0] & 31) != h264::kNalSps) continue;
        h264::BitReader br = h264::unescape(nal, len, rbsp);
        h264::Sps sps;
        int id = 0;
        if (h264::parse_sps(br, &sps, &id) != h264::Parse::kError && sps.mb_width * sps.mb_height > 120 * 68)
            return true;
    }
    return false;
}

bool touch(const Picture& pic, void* user) {
    uint32_t& sum = *static_cast<uint32_t*>(user);
    for (int p = 0; p < 3; ++p) {
        const int w = p ? chroma_width(pic.chroma, pic.width) : pic.width;
        const int h = p ? chroma_height(pic.chroma, pic.height) : pic.height;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) sum += pic.plane[p][static_cast<size_t>(y) * pic.stride[p] + x];
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (too_large(data, size)) return 0;
    const Decoder* d = find_decoder("h264");
    uint32_t sum = 0;
    DecodeStats stats;
    d->decode(data, size, DecodeOptions{}, touch, &sum, &stats);
    return 0;
}
