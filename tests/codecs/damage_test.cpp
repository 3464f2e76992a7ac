// Damaged streams: every decoder, fed ffmpeg's stream with bits flipped,
// bytes overwritten, pieces cut out and the end cut off, must return
// normally (sanitizers watch the reads) and say what it concealed.
#include <gtest/gtest.h>

#include <random>

#include "codecs/codec_test.h"

namespace kplvc::codecs::test {
namespace {

struct DamageCase {
    const char* decoder;
    const char* source;
    int frames;
    const char* encode;
    const char* ext;
};

// One row per decoder (two for MPEG-4: data-partitioned packets have their own path).
const std::vector<DamageCase> kCases = {
    {"mpeg2", "testsrc2=size=352x288:rate=25", 10, "-c:v mpeg2video -g 5 -bf 2 -b:v 1M", "m2v"},
    {"dv", "testsrc2=size=720x480:rate=30000/1001", 4, "-c:v dvvideo -pix_fmt yuv411p", "dv"},
    {"h264", "testsrc2=size=352x288:rate=25", 10,
     "-c:v libx264 -pix_fmt yuv420p -coder 0 -x264-params no-8x8dct=1 -bf 2 -slices 2 -refs 2", "264"},
    {"mpeg4", "testsrc2=size=352x288:rate=25", 8,
     "-c:v mpeg4 -qscale:v 4 -bf 2 -flags +mv4+qpel -ps 600 -f m4v", "m4v"},
    {"mpeg4", "testsrc2=size=352x288:rate=25", 8,
     "-c:v mpeg4 -qscale:v 4 -flags +mv4 -data_partitioning 1 -ps 500 -f m4v", "m4v"},
    {"h263", "testsrc2=size=352x288:rate=25,scroll=h=0.02", 8,
     "-c:v h263p -q:v 6 -umv 1 -aiv 1 -obmc 1 -flags +aic+loop+mv4 -structured_slices 1 -ps 800", "h263"},
};

enum class Damage { flip_bits, overwrite_bytes, cut_piece, truncate };

std::vector<uint8_t> damage(std::vector<uint8_t> s, Damage how, std::mt19937& rng) {
    auto at = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    switch (how) {
        case Damage::flip_bits:
            for (int i = 0; i < 1 + static_cast<int>(s.size() / 4000); ++i)
                s[at(s.size())] ^= uint8_t(1u << at(8));
            break;
        case Damage::overwrite_bytes:
            for (int i = 0; i < 8; ++i) {
                const size_t p = at(s.size()), n = std::min<size_t>(1 + at(64), s.size() - p);
                for (size_t k = 0; k < n; ++k) s[p + k] = static_cast<uint8_t>(rng());
            }
            break;
        case Damage::cut_piece: {
            const size_t p = at(s.size()), n = std::min<size_t>(1 + at(4096), s.size() - p);
            s.erase(s.begin() + static_cast<ptrdiff_t>(p), s.begin() + static_cast<ptrdiff_t>(p + n));
            break;
        }
        case Damage::truncate:
            s.resize(at(s.size()));
            break;
    }
    return s;
}

TEST(Damage, DecodersSurviveAndConceal) {
    if (!have_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed: damaged-stream tests skipped";
    if (kCases.empty()) GTEST_SKIP() << "no decoder registered yet";
    for (const DamageCase& c : kCases) {
        const std::vector<uint8_t> clean = make_stream(c.source, c.frames, c.encode, c.ext);
        ASSERT_FALSE(clean.empty()) << c.decoder << ": ffmpeg made no stream";
        const DecodeRun ref = decode(c.decoder, clean);
        ASSERT_EQ(ref.status, 0) << c.decoder << ": " << ref.stats.message;
        EXPECT_EQ(ref.pictures, c.frames) << c.decoder;
        EXPECT_EQ(ref.stats.concealed, 0) << c.decoder;
        long concealed = 0;
        for (uint32_t seed = 1; seed <= 24; ++seed) {
            std::mt19937 rng(seed);
            const Damage how = static_cast<Damage>(seed % 4);
            const DecodeRun run = decode(c.decoder, damage(clean, how, rng));
            // A decoder may refuse a stream it no longer recognises (status < 0);
            // what matters is that it returns, and reads nothing it should not.
            concealed += run.stats.concealed;
        }
        EXPECT_GT(concealed, 0) << c.decoder << " never reported concealing anything";
    }
}

}  // namespace
}  // namespace kplvc::codecs::test
