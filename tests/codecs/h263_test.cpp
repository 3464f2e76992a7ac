// The H.263 codec without ffmpeg: its own macroblock-layer code words read
// back by the library's symbol decoders, and the encoder's streams decoded
// by the decoder exactly into the encoder's reconstruction, for every option
// and picture size class.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "common/codec.h"
#include "common/encoder.h"
#include "h263/h263.h"
#include "kplvc.h"

namespace kplvc::codecs::h263 {
namespace {

// One code word at a random bit offset, then the decoder's look-ahead of
// zeros.
struct Coded {
    uint8_t buf[16] = {};
    Kpl8u* p = buf;
    int off;
    explicit Coded(Vlc v, int offset) : off(offset) {
        for (int i = 0; i < v.len; ++i)
            if ((v.code >> (v.len - 1 - i)) & 1)
                buf[(offset + i) / 8] |= static_cast<uint8_t>(0x80 >> ((offset + i) % 8));
    }
    int consumed() const { return static_cast<int>(p - buf) * 8 + off; }
};

TEST(H263Codes, WritersMatchTheLibrarysDecoders) {
    for (int off = 0; off < 8; off += 3) {
        for (int t = 0; t < 2; ++t)
            for (int cbpc = 0; cbpc < 4; ++cbpc) {
                Coded c(kMcbpcIntra[t][cbpc], off);
                Kpl8u v = 0;
                ASSERT_EQ(kpliDecodeMCBPCIntra_H263(&c.p, &c.off, &v), kplStsNoErr);
                EXPECT_EQ(v, (3 + t) | cbpc << 4);
                EXPECT_EQ(c.consumed(), off + kMcbpcIntra[t][cbpc].len);
            }
        for (int t = 0; t < 5; ++t)
            for (int cbpc = 0; cbpc < 4; ++cbpc) {
                Coded c(kMcbpcInter[t][cbpc], off);
                Kpl8u v = 0;
                ASSERT_EQ(kpliDecodeMCBPCInter_H263(&c.p, &c.off, &v), kplStsNoErr);
                EXPECT_EQ(v, t | cbpc << 4);
                EXPECT_EQ(c.consumed(), off + kMcbpcInter[t][cbpc].len);
            }
        for (int cbpy = 0; cbpy < 16; ++cbpy) {
            Coded c(kCbpy[cbpy], off);
            Kpl8u v = 0;
            ASSERT_EQ(kpliDecodeCBPY_H263(&c.p, &c.off, &v), kplStsNoErr);
            EXPECT_EQ(v, cbpy);
            EXPECT_EQ(c.consumed(), off + kCbpy[cbpy].len);
        }
        for (int d = -32; d < 32; ++d) {
            // Both components with the same code, from a zero predictor.
            const Vlc v = kMvd[d + 32];
            Coded c(Vlc{static_cast<uint16_t>(v.code), v.len}, off);
            Coded two(Vlc{0, 0}, off);
            for (int k = 0; k < 2; ++k)
                for (int i = 0; i < v.len; ++i)
                    if ((v.code >> (v.len - 1 - i)) & 1) {
                        const int b = off + k * v.len + i;
                        two.buf[b / 8] |= static_cast<uint8_t>(0x80 >> (b % 8));
                    }
            const Kpl16s pred[2] = {0, 0};
            Kpl16s mv[2];
            ASSERT_EQ(kpliDecodeMVEx_H263(&two.p, &two.off, pred, mv, KPLVC_H263_MVD_DEFAULT), kplStsNoErr);
            EXPECT_EQ(mv[0], d);
            EXPECT_EQ(mv[1], d);
            EXPECT_EQ(two.consumed(), off + 2 * v.len);
        }
    }
}

// A moving picture: a gradient, a square that travels, noise-like texture.
void draw(int t, int w, int h, std::vector<uint8_t>* f) {
    const int cw = w / 2, ch = h / 2;
    f->assign(static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int v = (x * 3 + y * 2 + t * 4) & 255;
            if (x > 10 + 3 * t && x < 40 + 3 * t && y > 8 + t && y < 30 + t)
                v = 240 - ((x * 7919 + y * 104729) & 31);
            (*f)[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(v);
        }
    for (size_t i = 0; i < 2 * static_cast<size_t>(cw) * ch; ++i)
        (*f)[static_cast<size_t>(w) * h + i] =
            static_cast<uint8_t>(100 + ((i + static_cast<size_t>(t)) % 57));
}

struct Collect {
    std::vector<std::vector<uint8_t>> pics;
};
bool collect(const Picture& pic, void* user) {
    std::vector<uint8_t> f;
    for (int p = 0; p < 3; ++p) {
        const int w = p ? (pic.width + 1) / 2 : pic.width, h = p ? (pic.height + 1) / 2 : pic.height;
        for (int y = 0; y < h; ++y)
            f.insert(f.end(), pic.plane[p] + static_cast<size_t>(y) * pic.stride[p],
                     pic.plane[p] + static_cast<size_t>(y) * pic.stride[p] + w);
    }
    static_cast<Collect*>(user)->pics.push_back(std::move(f));
    return true;
}

TEST(H263Codec, DecoderReproducesTheEncodersReconstruction) {
    struct Case {
        const char* what;
        int w, h, qscale;
        long bitrate;
        bool deblock, aic;
    };
    const Case cases[] = {
        {"QCIF, H.263 header", 176, 144, 4, 0, false, false},
        {"sub-QCIF, coarse", 128, 96, 31, 0, false, false},
        {"custom size, H.263+ header", 200, 120, 6, 0, false, false},
        {"deblocking", 176, 144, 12, 0, true, false},
        {"advanced intra", 176, 144, 2, 0, false, true},
        {"both, rate control", 96, 64, 0, 100000, true, true},
    };
    const Decoder* dec = find_decoder("h263");
    const EncoderInfo* info = find_encoder("h263");
    ASSERT_TRUE(dec && info);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EncodeOptions opt;
        opt.width = c.w;
        opt.height = c.h;
        opt.qscale = c.qscale;
        opt.bitrate = c.bitrate;
        opt.deblock = c.deblock;
        opt.advanced_intra = c.aic;
        opt.gop = 5;
        char why[160];
        auto enc = info->create(opt, why, sizeof why);
        ASSERT_TRUE(enc) << why;
        std::vector<uint8_t> stream, frame;
        std::vector<std::vector<uint8_t>> recon;
        const int frames = 7;
        for (int t = 0; t < frames; ++t) {
            draw(t, c.w, c.h, &frame);
            Picture in;
            in.width = c.w;
            in.height = c.h;
            in.plane[0] = frame.data();
            in.plane[1] = frame.data() + c.w * c.h;
            in.plane[2] = in.plane[1] + c.w * c.h / 4;
            in.stride[0] = c.w;
            in.stride[1] = in.stride[2] = c.w / 2;
            Picture rec;
            ASSERT_TRUE(enc->encode(in, &stream, &rec));
            Collect one;
            collect(rec, &one);
            recon.push_back(one.pics[0]);
        }
        enc->finish(&stream);
        EXPECT_EQ(enc->stats().frames, frames);
        Collect out;
        DecodeStats stats;
        ASSERT_EQ(dec->decode(stream.data(), stream.size(), DecodeOptions{}, collect, &out, &stats), 0)
            << stats.message;
        EXPECT_EQ(stats.errors, 0);
        ASSERT_EQ(out.pics.size(), recon.size());
        for (size_t i = 0; i < recon.size(); ++i) EXPECT_EQ(out.pics[i], recon[i]) << "picture " << i;
    }
}

// Pictures using what the decoder does not implement are refused by name.
TEST(H263Codec, DecoderRefusesUnsupportedOptions) {
    struct Case {
        const char* what;
        const char* header;  // after PSC and TR, as 0/1
        const char* message;
    };
    const Case cases[] = {
        // PTYPE 1 0 000 010 (QCIF), P, then D E F G; PQUANT, CPM, TRB, DBQUANT, PEI.
        {"PB-frames", "10 000 010 1 0001 00101 0 000 00 0", "PB-frames"},
        {"arithmetic coding", "10 000 010 1 0100 00101 0 0", "arithmetic coding"},
        // PLUSPTYPE: format 111, UFEP 001, OPPTYPE (QCIF, RPS), MPPTYPE.
        {"reference picture selection", "10 000 111 001 010 0000000 1 000 1000 001 000 001 0 00101 0",
         "reference picture"},
        {"improved PB-frames", "10 000 111 001 010 0000000 0 000 1000 010 000 001 0 00101 0", "improved PB"},
        {"B pictures", "10 000 111 001 010 0000000 0 000 1000 011 000 001 0 00101 0", "B, EI and EP"},
    };
    const Decoder* dec = find_decoder("h263");
    for (const Case& c : cases) {
        std::vector<uint8_t> s = {0x00, 0x00, 0x80,
                                  0x02};  // PSC and TR 0, then the header's bits from bit 30
        size_t bit = 30;
        s.resize(64, 0);
        for (const char* b = c.header; *b; ++b) {
            if (*b == ' ') continue;
            if (*b == '1') s[bit / 8] |= static_cast<uint8_t>(0x80 >> (bit % 8));
            ++bit;
        }
        DecodeStats stats;
        Collect out;
        EXPECT_LT(dec->decode(s.data(), s.size(), DecodeOptions{}, collect, &out, &stats), 0) << c.what;
        EXPECT_NE(std::string(stats.message).find(c.message), std::string::npos)
            << c.what << ": " << stats.message;
    }
}

TEST(H263Codec, EncoderRejectsWhatH263CannotCode) {
    const EncoderInfo* info = find_encoder("h263");
    for (auto [w, h] : {std::pair{350, 288}, {2052, 1152}, {8, 8}}) {
        EncodeOptions opt;
        opt.width = w;
        opt.height = h;
        opt.qscale = 5;
        char why[160] = {0};
        EXPECT_FALSE(info->create(opt, why, sizeof why)) << w << "x" << h;
        EXPECT_NE(why[0], 0);
    }
}

}  // namespace
}  // namespace kplvc::codecs::h263
