// The MPEG-4 encoder without ffmpeg: its streams decoded by the library's
// decoder exactly into the encoder's reconstruction, and its rate control
// holding the bit rate. ffmpeg's view of the same streams is in the interop
// table (mpeg4.cases).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "common/bitwriter.h"
#include "common/codec.h"
#include "common/encoder.h"

namespace kplvc::codecs {
namespace {

// A moving picture: a drifting gradient, a textured square that travels
// faster than the default search range reaches in a few steps, and
// hash noise that changes in part from picture to picture (so that every
// quantiser has residual to code).
void draw(int t, int w, int h, std::vector<uint8_t>* f) {
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    f->assign(static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch, 0);
    auto hash = [](uint32_t x) {
        x ^= x >> 16;
        x *= 0x7feb352d;
        x ^= x >> 15;
        return x;
    };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int v = 40 + ((x + 2 * t) * 3 + y * 2) % 160 +
                    static_cast<int>(hash(x * 977 + y * 131 + (t / 3)) & 15);
            if (x > 10 + 5 * t % w && x < 60 + 5 * t % w && y > 8 + t && y < 50 + t)
                v = 220 - static_cast<int>(hash(static_cast<uint32_t>((x - 5 * t) * 7919 + y * 104729)) & 63);
            (*f)[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(v);
        }
    for (int p = 0; p < 2; ++p)
        for (int y = 0; y < ch; ++y)
            for (int x = 0; x < cw; ++x)
                (*f)[static_cast<size_t>(w) * h + static_cast<size_t>(p * ch + y) * cw + x] =
                    static_cast<uint8_t>(90 + p * 40 + ((x + y + t) % 40));
}

Picture picture_of(const std::vector<uint8_t>& f, int w, int h) {
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    Picture in;
    in.width = w;
    in.height = h;
    in.plane[0] = f.data();
    in.plane[1] = f.data() + static_cast<size_t>(w) * h;
    in.plane[2] = in.plane[1] + static_cast<size_t>(cw) * ch;
    in.stride[0] = w;
    in.stride[1] = in.stride[2] = cw;
    return in;
}

// Visible samples of a picture, plane after plane.
std::vector<uint8_t> samples(const Picture& pic) {
    std::vector<uint8_t> f;
    for (int p = 0; p < 3; ++p) {
        const int w = p ? (pic.width + 1) / 2 : pic.width, h = p ? (pic.height + 1) / 2 : pic.height;
        for (int y = 0; y < h; ++y)
            f.insert(f.end(), pic.plane[p] + static_cast<size_t>(y) * pic.stride[p],
                     pic.plane[p] + static_cast<size_t>(y) * pic.stride[p] + w);
    }
    return f;
}

bool collect(const Picture& pic, void* user) {
    static_cast<std::vector<std::vector<uint8_t>>*>(user)->push_back(samples(pic));
    return true;
}

struct Coded {
    std::vector<uint8_t> stream;
    std::vector<std::vector<uint8_t>> recon;
    EncodeStats stats;
};

Coded encode(const EncodeOptions& opt, int frames) {
    Coded r;
    char why[160] = {0};
    auto enc = find_encoder("mpeg4")->create(opt, why, sizeof why);
    EXPECT_TRUE(enc) << why;
    if (!enc) return r;
    std::vector<uint8_t> frame;
    for (int t = 0; t < frames; ++t) {
        draw(t, opt.width, opt.height, &frame);
        Picture rec;
        EXPECT_TRUE(enc->encode(picture_of(frame, opt.width, opt.height), &r.stream, &rec));
        r.recon.push_back(samples(rec));
    }
    enc->finish(&r.stream);
    r.stats = enc->stats();
    return r;
}

TEST(Mpeg4Encoder, DecoderReproducesTheReconstruction) {
    struct Case {
        const char* what;
        int w, h, qscale;
        long bitrate;
        bool mpeg_quant, four_mv, qpel;
        int range;
    };
    const Case cases[] = {
        {"QCIF", 176, 144, 4, 0, false, false, false, 15},
        {"finest quantiser: escapes, large levels", 176, 144, 1, 0, false, false, false, 15},
        {"coarsest quantiser", 176, 144, 31, 0, false, false, false, 15},
        {"size not a multiple of 16", 200, 122, 6, 0, false, false, false, 15},
        {"first quantisation method", 176, 144, 3, 0, true, false, false, 15},
        {"long vectors: f_code 3", 176, 144, 5, 0, false, false, false, 40},
        {"rate control", 160, 128, 0, 150000, false, false, false, 15},
        {"four vectors", 176, 144, 3, 0, false, true, false, 15},
        {"quarter samples", 176, 144, 4, 0, false, false, true, 15},
        {"quarter samples, four vectors, odd size", 200, 122, 2, 0, true, true, true, 20},
    };
    const Decoder* dec = find_decoder("mpeg4");
    ASSERT_TRUE(dec);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EncodeOptions opt;
        opt.width = c.w;
        opt.height = c.h;
        opt.qscale = c.qscale;
        opt.bitrate = c.bitrate;
        opt.mpeg_quant = c.mpeg_quant;
        opt.four_mv = c.four_mv;
        opt.qpel = c.qpel;
        opt.search_range = c.range;
        opt.gop = 5;
        const int frames = 8;
        const Coded r = encode(opt, frames);
        EXPECT_EQ(r.stats.frames, frames);
        EXPECT_EQ(r.stats.intra_frames, 2);
        std::vector<std::vector<uint8_t>> out;
        DecodeStats stats;
        ASSERT_EQ(dec->decode(r.stream.data(), r.stream.size(), DecodeOptions{}, collect, &out, &stats), 0)
            << stats.message;
        EXPECT_EQ(stats.errors, 0);
        ASSERT_EQ(out.size(), r.recon.size());
        for (size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out[i], r.recon[i]) << "picture " << i;
    }
}

// Over a clip the bits spent come within 5% of the bit rate's share.
TEST(Mpeg4Encoder, RateControlHoldsTheBitRate) {
    struct Case {
        int w, h;
        long bitrate;
        int gop;
    };
    const Case cases[] = {
        {176, 144, 150000, 12},
        {176, 144, 400000, 12},
        {176, 144, 1000000, 25},
        {352, 288, 700000, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.w << "x" << c.h << " at " << c.bitrate << " bit/s, gop " << c.gop);
        EncodeOptions opt;
        opt.width = c.w;
        opt.height = c.h;
        opt.bitrate = c.bitrate;
        opt.gop = c.gop;
        const int frames = 100;
        opt.frames = frames;
        const Coded r = encode(opt, frames);
        const double achieved = static_cast<double>(r.stream.size()) * 8 * 25 / frames;
        EXPECT_NEAR(achieved / static_cast<double>(c.bitrate), 1.0, 0.05)
            << achieved << " bit/s, last quantiser " << r.stats.last_qp;
    }
}

// The encoder's trial codings: whatever a trial wrote is gone after a
// rewind, and a kept trial put back reads as if it had been written there,
// from every bit offset and across byte boundaries.
TEST(Mpeg4Encoder, BitWriterTrials) {
    struct Case {
        int lead;           // bits before the mark
        int kept, dropped;  // bits of the trial kept, and of the one dropped after it
    };
    const Case cases[] = {{0, 5, 9}, {3, 1, 40}, {7, 17, 2}, {8, 33, 33}, {13, 64, 1}, {29, 200, 150}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.lead << " " << c.kept << " " << c.dropped);
        auto bit = [](int i) { return static_cast<uint32_t>((i * 7 + i / 3) % 5 < 2); };
        BitWriter want;
        want.reserve(64);
        for (int i = 0; i < c.lead; ++i) want.put(bit(i), 1);
        for (int i = 0; i < c.kept; ++i) want.put(bit(1000 + i), 1);
        want.put(0x2B, 7);  // what follows the macroblock
        std::vector<uint8_t> a;
        want.flush_to(&a);
        // The kept trial coded first and put back after the dropped one, or
        // coded last over the dropped one.
        for (const bool first : {true, false}) {
            BitWriter got;
            got.reserve(64);
            for (int i = 0; i < c.lead; ++i) got.put(bit(i), 1);
            const size_t mark = got.bits();
            std::vector<uint8_t> keep;
            size_t end = 0;
            if (first) {
                for (int i = 0; i < c.kept; ++i) got.put(bit(1000 + i), 1);
                got.save(mark, &keep);
                end = got.bits();
                got.rewind(mark);
            }
            for (int i = 0; i < c.dropped; ++i) got.put(1, 1);  // the losing trial, all ones
            got.rewind(mark);
            EXPECT_EQ(got.bits(), mark);
            if (first)
                got.restore(mark, keep, end);
            else
                for (int i = 0; i < c.kept; ++i) got.put(bit(1000 + i), 1);
            got.put(0x2B, 7);
            std::vector<uint8_t> b;
            got.flush_to(&b);
            EXPECT_EQ(a, b) << (first ? "put back" : "coded last");
        }
    }
}

TEST(Mpeg4Encoder, RejectsWhatItCannotCode) {
    struct Case {
        const char* what;
        int w, h, qscale, fps_num;
        bool deblock;
    };
    const Case cases[] = {
        {"odd width", 175, 144, 5, 25, false},
        {"too small", 8, 144, 5, 25, false},
        {"quantiser 32", 176, 144, 32, 25, false},
        {"neither quantiser nor bit rate", 176, 144, 0, 25, false},
        {"time resolution above 16 bits", 176, 144, 5, 70000, false},
        {"an H.263 option", 176, 144, 5, 25, true},
    };
    for (const Case& c : cases) {
        EncodeOptions opt;
        opt.width = c.w;
        opt.height = c.h;
        opt.qscale = c.qscale;
        opt.fps_num = c.fps_num;
        opt.deblock = c.deblock;
        char why[160] = {0};
        EXPECT_FALSE(find_encoder("mpeg4")->create(opt, why, sizeof why)) << c.what;
        EXPECT_NE(why[0], 0) << c.what;
    }
}

}  // namespace
}  // namespace kplvc::codecs
