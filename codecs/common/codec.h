// The shape every codec in codecs/ shares, so that the `kplvc` tool, the
// tests and the fuzz targets drive them all the same way.
//
// A decoder takes a whole elementary stream (or file) in memory and hands
// out pictures in display order. It never fails on damaged data: it
// resynchronises, conceals what it lost and counts it in DecodeStats. It
// returns an error only when the stream is not one it can decode at all
// (not its format, or a feature it does not implement, named in `message`).
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/picture.h"

namespace kplvc::codecs {

struct DecodeOptions {
    bool postfilter = false;  // apply display post-filters where the format has them
};

struct DecodeStats {
    long frames = 0;                             // pictures handed to the sink
    long concealed = 0;                          // units concealed after errors
    const char* concealed_unit = "macroblocks";  // what `concealed` counts
    long errors = 0;                             // damaged places found (each resynchronisation)
    char message[160] = {0};                     // why decode() failed, or a note
};

// Receives each output picture; returns false to stop decoding.
using PictureSink = bool (*)(const Picture& pic, void* user);

struct Decoder {
    const char* name;        // "dv", "mpeg2", "h263", "mpeg4", "h264"
    const char* extensions;  // space-separated, with dots: ".m2v .mpv .m1v"
    // How sure the decoder is that data is its format: 0 (not) to 100.
    int (*probe)(const uint8_t* data, size_t size);
    // 0 on success (concealment included), negative when the stream cannot
    // be decoded at all (stats->message says why).
    int (*decode)(const uint8_t* data, size_t size, const DecodeOptions& opt, PictureSink sink, void* user,
                  DecodeStats* stats);
};

// Every decoder, in probe order.
const Decoder* const* decoders(int* count);
const Decoder* find_decoder(const char* name);
// The decoder whose probe scores highest (ties: the file extension decides),
// or null.
const Decoder* detect_decoder(const uint8_t* data, size_t size, const char* path);

}  // namespace kplvc::codecs
