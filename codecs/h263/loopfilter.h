// The Annex J deblocking filter over a whole picture, shared by the decoder
// and the encoder's reconstruction.
#pragma once

#include <cstdint>

#include "mbgrid.h"

namespace kplvc::codecs::h263 {

// Filters every 8x8 block edge inside the picture whose macroblocks say so
// (see loopfilter.cpp). planes / strides: Y, Cb, Cr of the macroblock-
// aligned picture that `grid` describes; mq: modified quantisation (the
// chroma quantiser of Annex T).
void deblock_picture(const MbGrid& grid, uint8_t* const planes[3], const int strides[3], bool mq);

}  // namespace kplvc::codecs::h263
