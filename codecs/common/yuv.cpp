#include "common/yuv.h"

#include <cmath>
#include <cstdlib>
#include <limits>

namespace kplvc::codecs {

namespace {
// One chroma plane resampled from (sw x sh) to (dw x dh): each output sample
// is the mean of the source samples it covers, or the nearest source sample
// when the source is coarser.
void resample(const uint8_t* src, int sstride, int sw, int sh, uint8_t* dst, int dw, int dh) {
    const int fx = sw > dw ? sw / dw : 1, fy = sh > dh ? sh / dh : 1;
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < dw; ++x) {
            const int x0 = static_cast<int>(static_cast<long>(x) * sw / dw);
            const int y0 = static_cast<int>(static_cast<long>(y) * sh / dh);
            int sum = 0, n = 0;
            for (int j = y0; j < y0 + fy && j < sh; ++j)
                for (int i = x0; i < x0 + fx && i < sw; ++i, ++n) sum += src[j * sstride + i];
            dst[y * dw + x] = static_cast<uint8_t>((sum + n / 2) / n);
        }
}
}  // namespace

bool write_yuv(std::FILE* f, const Picture& pic, Chroma to) {
    for (int y = 0; y < pic.height; ++y)
        if (std::fwrite(pic.plane[0] + static_cast<size_t>(y) * pic.stride[0], 1, pic.width, f) !=
            static_cast<size_t>(pic.width))
            return false;
    const int sw = chroma_width(pic.chroma, pic.width), sh = chroma_height(pic.chroma, pic.height);
    const int dw = chroma_width(to, pic.width), dh = chroma_height(to, pic.height);
    std::vector<uint8_t> tmp;
    for (int p = 1; p < 3; ++p) {
        if (to == pic.chroma) {
            for (int y = 0; y < sh; ++y)
                if (std::fwrite(pic.plane[p] + static_cast<size_t>(y) * pic.stride[p], 1, sw, f) !=
                    static_cast<size_t>(sw))
                    return false;
            continue;
        }
        tmp.resize(static_cast<size_t>(dw) * dh);
        resample(pic.plane[p], pic.stride[p], sw, sh, tmp.data(), dw, dh);
        if (std::fwrite(tmp.data(), 1, tmp.size(), f) != tmp.size()) return false;
    }
    return true;
}

PlaneDiff compare_plane(const uint8_t* a, const uint8_t* b, size_t n) {
    double sse = 0;
    int max_abs = 0;
    for (size_t i = 0; i < n; ++i) {
        const int d = std::abs(int{a[i]} - int{b[i]});
        sse += static_cast<double>(d) * d;
        if (d > max_abs) max_abs = d;
    }
    if (sse == 0) return {std::numeric_limits<double>::infinity(), 0};
    return {10.0 * std::log10(255.0 * 255.0 * static_cast<double>(n) / sse), max_abs};
}

}  // namespace kplvc::codecs
