// Planar 8-bit pictures as the codecs hand them out, and the frame buffers
// they decode into.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kplvc::codecs {

enum class Chroma { c420, c422, c411, c444 };

// "yuv420p", "yuv422p", "yuv411p", "yuv444p": the names ffmpeg uses for the
// same planar layouts, so a test can ask ffmpeg for the same format.
const char* chroma_name(Chroma c);
bool chroma_from_name(const char* name, Chroma* c);

// Chroma plane size for a luma size (rounded up, as the standards do).
int chroma_width(Chroma c, int width);
int chroma_height(Chroma c, int height);

// A decoded picture: three planes, each with its own row step in bytes.
struct Picture {
    int width = 0, height = 0;  // luma
    Chroma chroma = Chroma::c420;
    const uint8_t* plane[3] = {nullptr, nullptr, nullptr};
    int stride[3] = {0, 0, 0};
};

// A frame buffer that owns its planes, with a border of `pad` samples on every
// side of each plane (luma; chroma gets pad scaled by its subsampling), so
// that motion compensation may read outside the picture once the borders are
// expanded. Rows start 32-byte aligned.
class Frame {
public:
    Frame() = default;
    Frame(int width, int height, Chroma chroma, int pad);

    int width() const { return width_; }
    int height() const { return height_; }
    Chroma chroma() const { return chroma_; }
    int pad(int p) const { return pad_[p]; }
    int stride(int p) const { return stride_[p]; }
    int plane_width(int p) const;
    int plane_height(int p) const;
    uint8_t* data(int p) { return origin_[p]; }  // the picture's top-left sample
    const uint8_t* data(int p) const { return origin_[p]; }
    bool empty() const { return width_ == 0; }

    Picture picture() const;

private:
    int width_ = 0, height_ = 0;
    Chroma chroma_ = Chroma::c420;
    int pad_[3] = {0, 0, 0}, stride_[3] = {0, 0, 0};
    uint8_t* origin_[3] = {nullptr, nullptr, nullptr};
    std::vector<uint8_t> store_;
};

}  // namespace kplvc::codecs
