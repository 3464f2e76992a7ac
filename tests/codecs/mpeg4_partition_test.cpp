// Data-partitioned MPEG-4 streams with reversible VLCs. ffmpeg writes data
// partitioning but not reversible VLCs, so its streams are rewritten (the
// texture partitions re-coded with the library's RVLC writer) and the
// rewritten stream must decode exactly as the original, and match ffmpeg's
// own decoding of it. With bits flipped in the packets, reading damaged
// texture partitions backward must never lose more macroblocks than the
// forward pass alone.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "codecs/codec_test.h"
#include "common/yuv.h"
#include "mpeg4/decoder.h"

namespace kplvc::codecs::test {
namespace {

using Frames = std::vector<std::vector<uint8_t>>;

bool keep(const Picture& pic, void* user) {
    auto* out = static_cast<Frames*>(user);
    std::vector<uint8_t> f;
    for (int p = 0; p < 3; ++p) {
        const int w = p ? (pic.width + 1) / 2 : pic.width, h = p ? (pic.height + 1) / 2 : pic.height;
        for (int y = 0; y < h; ++y)
            f.insert(f.end(), pic.plane[p] + static_cast<ptrdiff_t>(y) * pic.stride[p],
                     pic.plane[p] + static_cast<ptrdiff_t>(y) * pic.stride[p] + w);
    }
    out->push_back(std::move(f));
    return true;
}

struct Decoded {
    Frames frames;
    DecodeStats stats;
    std::vector<uint8_t> rewritten;
};

Decoded run(const std::vector<uint8_t>& s, bool backward = true, bool rewrite = false) {
    Decoded r;
    mpeg4::Mpeg4Decoder d(keep, &r.frames, &r.stats);
    d.set_backward(backward);
    if (rewrite) d.rewrite_rvlc(&r.rewritten);
    d.run(s.data(), s.size());
    return r;
}

// ffmpeg's decoding of a stream, frames of w x h (I420).
Frames ffmpeg_decode(const std::vector<uint8_t>& s, int w, int h) {
    const auto dir =
        std::filesystem::temp_directory_path() / ("kplvc-rvlc-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directories(dir);
    const auto in = dir / "in.m4v", out = dir / "out.yuv";
    std::ofstream(in, std::ios::binary)
        .write(reinterpret_cast<const char*>(s.data()), static_cast<std::streamsize>(s.size()));
    const std::string cmd = "ffmpeg -nostdin -v error -y -threads 1 -i " + in.string() +
                            " -fps_mode passthrough -f rawvideo -pix_fmt yuv420p " + out.string();
    Frames frames;
    if (std::system(cmd.c_str()) == 0) {
        std::ifstream f(out, std::ios::binary);
        const size_t n = static_cast<size_t>(w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2));
        std::vector<uint8_t> buf(n);
        while (f.read(reinterpret_cast<char*>(buf.data()), static_cast<std::streamsize>(n)))
            frames.push_back(buf);
    }
    std::filesystem::remove_all(dir);
    return frames;
}

struct Case {
    const char* name;
    const char* encode;
};
// I- and P-VOPs in packets of 300 to 700 bytes; the second method with
// dquant and four vectors, the first method (matrices, mismatch control), a
// coarse quantiser, and B-VOPs (never partitioned: their texture keeps the
// ordinary tables) between quarter-sample P-VOPs, some before an I-VOP.
const Case kCases[] = {
    {"q5", "-c:v mpeg4 -qscale:v 5 -data_partitioning 1 -ps 600 -g 8 -f m4v"},
    {"rate-mv4", "-c:v mpeg4 -b:v 500k -flags +mv4 -data_partitioning 1 -ps 500 -f m4v"},
    {"mpeg-quant-q2", "-c:v mpeg4 -qscale:v 2 -mpeg_quant 1 -data_partitioning 1 -ps 700 -f m4v"},
    {"q24", "-c:v mpeg4 -qscale:v 24 -data_partitioning 1 -ps 300 -f m4v"},
    {"b-qpel", "-c:v mpeg4 -qscale:v 4 -bf 1 -g 5 -flags +qpel+mv4 -data_partitioning 1 -ps 600 -f m4v"},
};
constexpr int kW = 352, kH = 288, kFrames = 10;
const char* kSource = "testsrc2=size=352x288:rate=25";

TEST(Mpeg4Partition, RvlcRewriteDecodesAsTheOriginalAndAsFfmpeg) {
    if (!have_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::vector<uint8_t> dp = make_stream(kSource, kFrames, c.encode, "m4v");
        ASSERT_FALSE(dp.empty());
        const Decoded plain = run(dp, true, true);
        ASSERT_EQ(plain.frames.size(), static_cast<size_t>(kFrames)) << plain.stats.message;
        EXPECT_EQ(plain.stats.errors, 0);
        ASSERT_FALSE(plain.rewritten.empty()) << "no rewrite";
        ASSERT_NE(plain.rewritten, dp);
        const Decoded rvlc = run(plain.rewritten);
        EXPECT_EQ(rvlc.stats.errors, 0);
        EXPECT_EQ(rvlc.stats.concealed, 0);
        ASSERT_EQ(rvlc.frames, plain.frames) << "the RVLC stream decodes differently";
        const Frames ref = ffmpeg_decode(plain.rewritten, kW, kH);
        ASSERT_EQ(ref.size(), rvlc.frames.size()) << "ffmpeg's decoding of the RVLC stream";
        double lowest = INFINITY;
        for (size_t i = 0; i < ref.size(); ++i) {
            const PlaneDiff d = compare_plane(ref[i].data(), rvlc.frames[i].data(), ref[i].size());
            lowest = std::min(lowest, d.psnr);
        }
        EXPECT_GE(lowest, 50.0);
        std::printf("[ rvlc     ] %-14s %zu -> %zu bytes, lowest PSNR against ffmpeg %.2f dB\n", c.name,
                    dp.size(), plain.rewritten.size(), lowest);
    }
}

// Bits flipped after the VOL header (one per 2000 bytes, at least two): the
// decoder returns, and with the backward pass conceals no more macroblocks
// than the forward pass alone, and fewer over all the streams.
TEST(Mpeg4Partition, BackwardPassRecoversAtLeastTheForwardPass) {
    if (!have_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
    long total_fwd = 0, total_both = 0;
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        const std::vector<uint8_t> dp = make_stream(kSource, kFrames, c.encode, "m4v");
        const std::vector<uint8_t> rvlc = run(dp, true, true).rewritten;
        ASSERT_FALSE(rvlc.empty());
        size_t vop = 0;  // the first VOP start code
        while (vop + 3 < rvlc.size() &&
               !(rvlc[vop] == 0 && rvlc[vop + 1] == 0 && rvlc[vop + 2] == 1 && rvlc[vop + 3] == 0xB6))
            ++vop;
        for (uint32_t seed = 1; seed <= 30; ++seed) {
            std::mt19937 rng(seed);
            std::vector<uint8_t> s = rvlc;
            std::uniform_int_distribution<size_t> at(vop + 8, s.size() - 1);
            const int flips = std::max<int>(2, static_cast<int>(s.size() / 2000));
            for (int i = 0; i < flips; ++i) s[at(rng)] ^= static_cast<uint8_t>(1u << (rng() % 8));
            const Decoded fwd = run(s, false), both = run(s, true);
            EXPECT_LE(both.stats.concealed, fwd.stats.concealed) << "seed " << seed;
            EXPECT_EQ(both.frames.size(), fwd.frames.size()) << "seed " << seed;
            total_fwd += fwd.stats.concealed;
            total_both += both.stats.concealed;
        }
    }
    std::printf(
        "[ rvlc     ] concealed macroblocks over all damaged streams: forward only %ld, with the "
        "backward pass %ld\n",
        total_fwd, total_both);
    EXPECT_LT(total_both, total_fwd);
}

}  // namespace
}  // namespace kplvc::codecs::test
