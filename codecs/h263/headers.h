// Picture header parsing (H.263 and the PLUSPTYPE header of H.263+).
#pragma once

#include <cstddef>

#include "bits.h"
#include "h263.h"

namespace kplvc::codecs::h263 {

// What later H.263+ headers inherit from the last one with UFEP = 001.
struct HeaderState {
    bool have_opptype = false;
    Modes modes;
    int format = 0;
    int width = 0, height = 0, par = 2;  // the custom format
    int clock_code = 0, clock_div = 0;
};

enum class HeaderStatus { ok, damaged, unsupported };

// Parses the picture header after its 22-bit start code. On anything but ok
// `why` says what was wrong.
HeaderStatus parse_picture_header(Bits& b, HeaderState& state, PictureHeader* h, char* why, size_t why_size);

}  // namespace kplvc::codecs::h263
