// A small PNG writer for looking at decoded pictures: 8-bit RGB, no
// compression (stored deflate blocks), so that it needs no library.
#pragma once

#include "common/picture.h"

namespace kplvc_tool {

// Writes pic as an RGB PNG (ITU-R BT.601 studio-range YCbCr to RGB);
// false when the file cannot be written.
bool write_png(const char* path, const kplvc::codecs::Picture& pic);

}  // namespace kplvc_tool
