#include "common/picture.h"

#include <cstring>

namespace kplvc::codecs {

namespace {
struct Layout {
    Chroma c;
    const char* name;
    int sx, sy;  // log2 subsampling
};
constexpr Layout kLayouts[] = {
    {Chroma::c420, "yuv420p", 1, 1},
    {Chroma::c422, "yuv422p", 1, 0},
    {Chroma::c411, "yuv411p", 2, 0},
    {Chroma::c444, "yuv444p", 0, 0},
};
const Layout& layout(Chroma c) { return kLayouts[static_cast<int>(c)]; }
}  // namespace

const char* chroma_name(Chroma c) { return layout(c).name; }

bool chroma_from_name(const char* name, Chroma* c) {
    for (const Layout& l : kLayouts)
        if (std::strcmp(l.name, name) == 0) {
            *c = l.c;
            return true;
        }
    return false;
}

int chroma_width(Chroma c, int width) {
    const int s = layout(c).sx;
    return (width + (1 << s) - 1) >> s;
}
int chroma_height(Chroma c, int height) {
    const int s = layout(c).sy;
    return (height + (1 << s) - 1) >> s;
}

Frame::Frame(int width, int height, Chroma chroma, int pad)
    : width_(width), height_(height), chroma_(chroma) {
    size_t offset[3];
    size_t total = 0;
    for (int p = 0; p < 3; ++p) {
        const int sx = p ? layout(chroma).sx : 0, sy = p ? layout(chroma).sy : 0;
        const int px = pad >> sx, py = pad >> sy;
        pad_[p] = px < py ? px : py;
        stride_[p] = (plane_width(p) + 2 * px + 31) & ~31;
        offset[p] = total + static_cast<size_t>(py) * stride_[p] + px;
        total += static_cast<size_t>(stride_[p]) * (plane_height(p) + 2 * py);
        total = (total + 31) & ~size_t{31};
    }
    store_.assign(total + 32, 0);
    const uintptr_t base = reinterpret_cast<uintptr_t>(store_.data());
    const size_t align = (32 - (base & 31)) & 31;
    for (int p = 0; p < 3; ++p) origin_[p] = store_.data() + align + offset[p];
}

int Frame::plane_width(int p) const { return p ? chroma_width(chroma_, width_) : width_; }
int Frame::plane_height(int p) const { return p ? chroma_height(chroma_, height_) : height_; }

Picture Frame::picture() const {
    Picture pic;
    pic.width = width_;
    pic.height = height_;
    pic.chroma = chroma_;
    for (int p = 0; p < 3; ++p) {
        pic.plane[p] = origin_[p];
        pic.stride[p] = stride_[p];
    }
    return pic;
}

}  // namespace kplvc::codecs
