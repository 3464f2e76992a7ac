// Streams the MPEG-2 decoder refuses, each with the reason it gives: ffmpeg
// streams edited in one header field.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "codecs/codec_test.h"

namespace kplvc::codecs::test {
namespace {

// The offset of the first start code 00 00 01 `code`, or npos.
size_t find_code(const std::vector<uint8_t>& s, uint8_t code) {
    for (size_t i = 0; i + 3 < s.size(); ++i)
        if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1 && s[i + 3] == code) return i;
    return std::string::npos;
}

TEST(Mpeg2Stream, RefusedStreamsSayWhy) {
    if (!have_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
    const std::vector<uint8_t> m1 = make_stream("testsrc2=size=64x48:rate=25", 3, "-c:v mpeg1video", "m1v");
    const std::vector<uint8_t> m2 = make_stream("testsrc2=size=64x48:rate=25", 3, "-c:v mpeg2video", "m2v");
    ASSERT_FALSE(m1.empty());
    ASSERT_FALSE(m2.empty());
    struct Case {
        const char* name;
        std::vector<uint8_t> stream;
        const char* reason;  // part of the message
    } cases[] = {
        {"MPEG-1 D-picture", m1, "D-pictures"},
        {"4:4:4", m2, "4:4:4"},
        {"no sequence header", {0, 0, 1, 0, 1, 2, 3, 4}, "no sequence header"},
    };
    // The first picture of the MPEG-1 stream becomes a D-picture
    // (picture_coding_type 4, after the 10-bit temporal reference).
    const size_t pic = find_code(cases[0].stream, 0x00);
    ASSERT_NE(pic, std::string::npos);
    cases[0].stream[pic + 5] = static_cast<uint8_t>((cases[0].stream[pic + 5] & ~0x38) | (4 << 3));
    // chroma_format 3 in the sequence extension (after the extension
    // identifier, profile and level and progressive_sequence).
    const size_t ext = find_code(cases[1].stream, 0xB5);
    ASSERT_NE(ext, std::string::npos);
    cases[1].stream[ext + 5] |= 0x06;
    for (const Case& c : cases) {
        const DecodeRun run = decode("mpeg2", c.stream);
        EXPECT_LT(run.status, 0) << c.name;
        EXPECT_NE(std::strstr(run.stats.message, c.reason), nullptr) << c.name << ": " << run.stats.message;
    }
}

}  // namespace
}  // namespace kplvc::codecs::test
