// `--postfilter` in the MPEG-4 decoder: on streams at one fixed QP, every
// picture handed out equals the unfiltered picture run through the library's
// deblocking (horizontal, then vertical edges) and deringing with that QP,
// luminance by 16x16 macroblocks and chrominance by 8x8 ones.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "codecs/codec_test.h"
#include "kplvc.h"

namespace kplvc::codecs::test {
namespace {

struct Planes {
    int width = 0, height = 0;
    std::vector<uint8_t> p[3];
};

bool keep(const Picture& pic, void* user) {
    auto* out = static_cast<std::vector<Planes>*>(user);
    Planes c;
    c.width = pic.width;
    c.height = pic.height;
    for (int i = 0; i < 3; ++i) {
        const int w = i ? pic.width / 2 : pic.width, h = i ? pic.height / 2 : pic.height;
        for (int y = 0; y < h; ++y)
            c.p[i].insert(c.p[i].end(), pic.plane[i] + static_cast<size_t>(y) * pic.stride[i],
                          pic.plane[i] + static_cast<size_t>(y) * pic.stride[i] + w);
    }
    out->push_back(std::move(c));
    return true;
}

std::vector<Planes> decode_all(const std::vector<uint8_t>& s, bool postfilter) {
    std::vector<Planes> out;
    DecodeOptions opt;
    opt.postfilter = postfilter;
    DecodeStats stats;
    EXPECT_EQ(find_decoder("mpeg4")->decode(s.data(), s.size(), opt, keep, &out, &stats), 0) << stats.message;
    return out;
}

TEST(Mpeg4Postfilter, DecoderAppliesTheLibraryFilters) {
    if (!have_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed";
    const int qp = 25;
    const char* encodes[] = {"-c:v mpeg4 -qscale:v 25 -bf 0 -f m4v", "-c:v h263 -qscale:v 25 -f h263"};
    for (const char* enc : encodes) {
        const std::vector<uint8_t> s = make_stream("testsrc2=size=176x144:rate=25", 4, enc, "m4v");
        ASSERT_FALSE(s.empty()) << enc;
        const std::vector<Planes> plain = decode_all(s, false), post = decode_all(s, true);
        ASSERT_EQ(plain.size(), 4u) << enc;
        ASSERT_EQ(post.size(), plain.size()) << enc;
        const std::vector<Kpl8u> qps(11 * 9, qp);
        for (size_t f = 0; f < plain.size(); ++f)
            for (int i = 0; i < 3; ++i) {
                const int w = i ? 88 : 176, h = i ? 72 : 144, mb = i ? 8 : 16;
                std::vector<uint8_t> a = plain[f].p[i], b(a.size());
                const KpliSize roi = {w, h};
                ASSERT_EQ(kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR(a.data(), w, roi, qps.data(), 11, mb),
                          0);
                ASSERT_EQ(kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR(a.data(), w, roi, qps.data(), 11, mb),
                          0);
                ASSERT_EQ(kpliFilterDeringing_MPEG4_8u_C1R(a.data(), w, b.data(), w, roi, qps.data(), 11, mb),
                          0);
                EXPECT_NE(b, plain[f].p[i]) << enc << ", picture " << f << " plane " << i << " unfiltered";
                EXPECT_TRUE(b == post[f].p[i]) << enc << ", picture " << f << " plane " << i;
            }
    }
}

}  // namespace
}  // namespace kplvc::codecs::test
