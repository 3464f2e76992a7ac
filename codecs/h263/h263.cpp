#include "h263.h"

namespace kplvc::codecs::h263 {

namespace {
struct Size {
    int w, h;
};
constexpr Size kSizes[] = {{0, 0}, {128, 96}, {176, 144}, {352, 288}, {704, 576}, {1408, 1152}};
}  // namespace

bool format_size(int format, int* width, int* height) {
    if (format < kSubQcif || format > k16Cif) return false;
    *width = kSizes[format].w;
    *height = kSizes[format].h;
    return true;
}

int format_of(int width, int height) {
    for (int f = kSubQcif; f <= k16Cif; ++f)
        if (kSizes[f].w == width && kSizes[f].h == height) return f;
    return kCustom;
}

int mba_bits(int mbs) {
    if (mbs <= 48) return 6;
    if (mbs <= 99) return 7;
    if (mbs <= 396) return 9;
    if (mbs <= 1584) return 11;
    if (mbs <= 6336) return 13;
    return 14;
}

// Annex T: the chroma quantiser falls behind the luma one as it grows.
const uint8_t kChromaQp[32] = {0,  1,  2,  3,  4,  5,  6,  6,  7,  8,  9,  9,  10, 10, 11, 11,
                               12, 12, 12, 13, 13, 13, 14, 14, 14, 14, 14, 15, 15, 15, 15, 15};

}  // namespace kplvc::codecs::h263
