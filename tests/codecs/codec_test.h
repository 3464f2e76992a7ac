// Helpers for the codec tests: streams made by ffmpeg at test time, and the
// codecs driven directly (no tool, no files) so that sanitizers see them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/codec.h"

namespace kplvc::codecs::test {

// True when ffmpeg is on the PATH; tests that need it GTEST_SKIP otherwise.
bool have_ffmpeg();

// Runs `ffmpeg -f lavfi -i SOURCE -frames:v FRAMES ENCODE out.EXT` in a
// scratch folder and returns the stream's bytes (empty if ffmpeg failed).
std::vector<uint8_t> make_stream(const std::string& source, int frames, const std::string& encode,
                                 const std::string& ext);

// Decodes a buffer with the named decoder; pictures are checked for sane
// geometry and every sample is read (so a sanitizer sees uninitialised or
// out-of-bounds planes).
struct DecodeRun {
    int status = 0;
    DecodeStats stats;
    long pictures = 0;
    uint64_t checksum = 0;
};
DecodeRun decode(const char* decoder, const std::vector<uint8_t>& data);

}  // namespace kplvc::codecs::test
