// Raw planar YUV: writing pictures, converting chroma layouts, comparing.
#pragma once

#include <cstdio>
#include <vector>

#include "common/picture.h"

namespace kplvc::codecs {

// Appends the picture to f as planar Y, U, V; converts the chroma to `to`
// when it differs (nearest-sample up-conversion, averaging down-conversion).
bool write_yuv(std::FILE* f, const Picture& pic, Chroma to);

// Per-plane comparison of two frames.
struct PlaneDiff {
    double psnr;  // dB; +infinity when identical
    int max_abs;  // largest sample difference
};
PlaneDiff compare_plane(const uint8_t* a, const uint8_t* b, size_t n);

}  // namespace kplvc::codecs
