// Fuzzes the whole MPEG-4 decoder: any input must decode or fail cleanly
// (ASan and UBSan watch), and every picture handed out must have sane
// geometry with every sample readable. The input is tried as it is and
// after a valid stream header, so that the fuzzer reaches the VOP layer
// quickly: a VOL of 64x48 with B-VOPs, quarter sample, GMC, interlacing and
// video packets switched by the first byte.
#include <cstdint>
#include <cstring>
#include <vector>

#include "common/codec.h"

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

// A VOL header, version 2, with the features of `flags`: bit 0 interlaced,
// bit 1 GMC (3 points, 1/16 accuracy), bit 2 quarter sample, bit 3 first
// quantisation method, bit 4 resync markers.
std::vector<uint8_t> vol(uint8_t flags) {
    std::vector<uint8_t> out = {0, 0, 1, 0x20};
    uint32_t acc = 0;
    int n = 0;
    auto put = [&](uint32_t v, int bits) {
        for (int b = bits - 1; b >= 0; --b) {
            acc = (acc << 1) | ((v >> b) & 1);
            if (++n == 8) out.push_back(static_cast<uint8_t>(acc)), acc = 0, n = 0;
        }
    };
    put(0, 1);                  // random_accessible_vol
    put(17, 8);                 // video_object_type_indication (ASP)
    put(1, 1);                  // is_object_layer_identifier
    put(2, 4);                  // verid 2
    put(1, 3);                  // priority
    put(1, 4);                  // aspect ratio
    put(0, 1);                  // vol_control_parameters
    put(0, 2);                  // rectangular
    put(1, 1);                  // marker
    put(25, 16);                // time resolution
    put(1, 1);                  // marker
    put(0, 1);                  // fixed_vop_rate
    put(1, 1);                  // marker
    put(64, 13);                // width
    put(1, 1);                  // marker
    put(48, 13);                // height
    put(1, 1);                  // marker
    put(flags & 1, 1);          // interlaced
    put(1, 1);                  // obmc_disable
    put(flags & 2 ? 2 : 0, 2);  // sprite_enable
    if (flags & 2) {
        put(3, 6);  // warping points
        put(3, 2);  // accuracy
        put(0, 1);  // brightness change
    }
    put(0, 1);                   // not_8_bit
    put((flags >> 3) & 1, 1);    // quant_type
    if (flags & 8) put(0, 2);    // default matrices
    put((flags >> 2) & 1, 1);    // quarter_sample
    put(1, 1);                   // complexity_estimation_disable
    put(flags & 16 ? 0 : 1, 1);  // resync_marker_disable
    put(0, 1);                   // data_partitioned
    put(0, 1);                   // newpred
    put(0, 1);                   // reduced resolution
    put(0, 1);                   // scalability
    while (n != 0) put(0, 1);    // to the byte
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const kplvc::codecs::Decoder* d = kplvc::codecs::find_decoder("mpeg4");
    if (d == nullptr || size == 0) return 0;
    uint64_t sum = 0;
    kplvc::codecs::DecodeStats stats;
    d->decode(data, size, kplvc::codecs::DecodeOptions{}, sink, &sum, &stats);
    std::vector<uint8_t> s = vol(data[0]);
    s.insert(s.end(), {0, 0, 1, 0xB6});  // a VOP start code, then the input
    s.insert(s.end(), data + 1, data + size);
    kplvc::codecs::DecodeStats stats2;
    d->decode(s.data(), s.size(), kplvc::codecs::DecodeOptions{}, sink, &sum, &stats2);
    return 0;
}
