// Field pictures, dual prime and concealment motion vectors, which ffmpeg's
// encoder never makes: the tests' own writer produces an interlaced 4:2:0
// stream that uses them (I/P and P/P field pairs, a bottom-first B field
// pair, a frame picture with field and dual-prime prediction and field DCT),
// choosing every
// macroblock's type, vectors, field selections and dmvectors at random
// within the picture. Only the syntax has to be right: the writer
// reconstructs nothing, it is the two decoders (kplvc and ffmpeg with its
// integer IDCT) that must agree, frame by frame, within 50 dB.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "codecs/codec_test.h"
#include "common/yuv.h"
#include "kplvc.h"
#include "mpeg2/tables.h"

namespace kplvc::codecs::mpeg2 {
namespace {

constexpr int kW = 352, kH = 288, kMbw = kW / 16;

// The word-oriented writer of the library (kpliPutBitsLeftMost), which the
// block encoders share, turned into bytes at the end.
class Writer {
public:
    Writer() : w_(1 << 20, 0), p_(w_.data()) {}
    void put(uint32_t v, int n) { kpliPutBitsLeftMost(&p_, &f_, v, n); }
    void align() {
        if (const int used = (32 - f_) & 7) put(0, 8 - used);
    }
    void start(int code) {
        align();
        put(1, 24);
        put(static_cast<uint32_t>(code), 8);
    }
    template <size_t N>
    void vlc(const VlcCode (&t)[N], int value) {
        for (const VlcCode& c : t)
            if (c.value == value) return put(c.code, c.len);
        ADD_FAILURE() << "no code word for " << value;
    }
    Kpl32u** pp() { return &p_; }
    Kpl32s* pf() { return &f_; }
    std::vector<uint8_t> bytes() {
        align();
        std::vector<uint8_t> out;
        for (Kpl32u* q = w_.data(); q < p_; ++q)
            for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(*q >> s));
        const uint32_t last = f_ == 32 ? 0 : *p_ << f_;
        for (int k = 0; k < (32 - f_) / 8; ++k) out.push_back(static_cast<uint8_t>(last >> (24 - 8 * k)));
        return out;
    }

private:
    std::vector<Kpl32u> w_;
    Kpl32u* p_;
    Kpl32s f_ = 32;
};

// Dual prime's opposite-parity vector (ISO/IEC 13818-2 7.6.3.6).
int dual(int v, int m, int dmv, int e) { return ((v * m + (v > 0 ? 1 : 0)) >> 1) + dmv + e; }

enum Mode { kSkip, kIntraMb, kNoMc, kField, k16x8, kFrame, kDual };

struct Picture {
    int type;        // 1 I, 2 P, 3 B
    int structure;   // 1 top field, 2 bottom field, 3 frame
    int temporal;    // temporal_reference
    bool own_field;  // the second field of a frame whose first field is the only field to refer to
    bool conceal;    // intra macroblocks carry concealment motion vectors
};

class StreamWriter {
public:
    explicit StreamWriter(uint32_t seed) : rng_(seed) {
        Kpl32s list[1024];
        run_level_list(kDctCoefZero, 113, list, 1024);
        enc_.resize(KPLVC_RL_ENCODE_TABLE_SIZE);
        EXPECT_EQ(kpliCreateRLEncodeTable(list, enc_.data()), kplStsNoErr);
        for (const VlcCode& c : kDcSizeLuma)
            dc_codes_[0][c.value] = static_cast<Kpl32s>((c.code << 8) | c.len);
        for (const VlcCode& c : kDcSizeChroma)
            dc_codes_[1][c.value] = static_cast<Kpl32s>((c.code << 8) | c.len);
        // Content for intra macroblocks: smooth gradients and rings.
        for (int p = 0; p < 3; ++p) {
            const int w = p ? kW / 2 : kW, h = p ? kH / 2 : kH;
            src_[p].resize(static_cast<size_t>(w) * h);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    src_[p][static_cast<size_t>(y) * w + x] =
                        static_cast<uint8_t>(128 + 60 * std::sin((x * (p + 1) + 2 * y) * 0.07) +
                                             40 * std::cos(std::hypot(x - w / 3, y - h / 2) * 0.2));
        }
    }

    std::vector<uint8_t> write(const std::vector<Picture>& pictures) {
        sequence();
        for (const Picture& pic : pictures) picture(pic);
        w_.start(0xB7);  // sequence end
        return w_.bytes();
    }

private:
    int rnd(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

    void sequence() {
        w_.start(0xB3);
        w_.put(kW, 12), w_.put(kH, 12), w_.put(2, 4), w_.put(3, 4);  // 4:3, 25 Hz
        w_.put(0x3FFFF, 18), w_.put(1, 1), w_.put(112, 10), w_.put(0, 1), w_.put(0, 1), w_.put(0, 1);
        w_.start(0xB5);  // sequence extension: main profile at main level, interlaced, 4:2:0
        w_.put(1, 4), w_.put(0x48, 8), w_.put(0, 1), w_.put(1, 2), w_.put(0, 2), w_.put(0, 2);
        w_.put(0, 12), w_.put(1, 1), w_.put(0, 8), w_.put(0, 1), w_.put(0, 2), w_.put(0, 5);
        w_.start(0xB8);  // a closed GOP
        w_.put(1 << 12, 25), w_.put(1, 1), w_.put(0, 1);
    }

    // f_code 3 for the directions the picture has vectors for (concealment
    // vectors are forward ones), 15 (unused) for the others.
    static bool used(const Picture& pic, int s) {
        return s == 0 ? pic.type != 1 || pic.conceal : pic.type == 3;
    }

    void picture(const Picture& pic) {
        pic_ = pic;
        w_.start(0x00);
        w_.put(static_cast<uint32_t>(pic.temporal), 10), w_.put(static_cast<uint32_t>(pic.type), 3),
            w_.put(0xFFFF, 16);
        if (pic.type >= 2) w_.put(0, 1), w_.put(7, 3);
        if (pic.type == 3) w_.put(0, 1), w_.put(7, 3);
        w_.put(0, 1);
        w_.start(0xB5);  // picture coding extension
        w_.put(8, 4);
        for (int s = 0; s < 2; ++s)
            for (int t = 0; t < 2; ++t) w_.put(used(pic, s) ? 3 : 15, 4);
        const bool frame = pic.structure == 3;
        w_.put(0, 2), w_.put(static_cast<uint32_t>(pic.structure), 2);
        w_.put(frame ? 1 : 0, 1), w_.put(0, 1);  // top_field_first, frame_pred_frame_dct 0
        w_.put(pic.conceal ? 1 : 0, 1);          // concealment_motion_vectors
        w_.put(0, 7);                            // linear scale, table B-14, zigzag, no repeat, interlaced
        const int rows = frame ? kH / 16 : kH / 32;
        for (int row = 0; row < rows; ++row) slice(row);
    }

    void slice(int row) {
        w_.start(row + 1);
        w_.put(6, 5), w_.put(0, 1);  // quantiser_scale_code 6 (scale 12), no extra information
        for (auto& a : pmv_)
            for (auto& b : a)
                for (int& c : b) c = 0;
        dc_[0] = dc_[1] = dc_[2] = 128;
        int skipped = 0;
        prev_ = -1;
        for (int mx = 0; mx < kMbw; ++mx) {
            if (macroblock(mx, row, skipped, mx == 0 || mx == kMbw - 1))
                skipped = 0;
            else
                ++skipped;
        }
    }

    // The luma and chroma blocks of a prediction stay inside the reference.
    bool inside(int x, int y, int w, int h, int vx, int vy, int pw, int ph) const {
        const int ix = x + (vx >> 1), iy = y + (vy >> 1);
        return ix >= 0 && iy >= 0 && ix + w + (vx & 1) <= pw && iy + h + (vy & 1) <= ph;
    }
    bool fits(int mx, int my, int part, int h16, int vx, int vy, bool field_rows) const {
        // field_rows: the prediction addresses a field (half the rows).
        const int ph = field_rows ? kH / 2 : kH, y = my * 16 / (field_rows && pic_.structure == 3 ? 2 : 1);
        const int ly = y + part * h16, cy = ly / 2;
        return inside(mx * 16, ly, 16, h16, vx, vy, kW, ph) &&
               inside(mx * 8, cy, 8, h16 / 2, vx / 2, vy / 2, kW / 2, ph / 2);
    }

    // Writes one macroblock; false: it is skipped (only where allowed).
    bool macroblock(int mx, int my, int skipped, bool must_code) {
        const bool frame = pic_.structure == 3, b = pic_.type == 3;
        Mode mode = kIntraMb;
        int dirs = 0;  // 1 forward, 2 backward
        if (pic_.type != 1) {
            static const Mode p_field[] = {kSkip, kIntraMb, kNoMc, kField, k16x8, kDual, kField, kDual};
            static const Mode p_frame[] = {kSkip, kIntraMb, kNoMc, kField, kFrame, kDual, kField, kDual};
            static const Mode b_field[] = {kSkip, kIntraMb, kField, k16x8, kField, k16x8};
            mode = b ? b_field[rnd(0, 5)] : (frame ? p_frame[rnd(0, 7)] : p_field[rnd(0, 7)]);
            dirs = b ? rnd(1, 3) : 1;
            if (pic_.own_field && (mode == kDual || mode == kSkip || mode == kNoMc)) mode = kField;
        }
        if (mode == kSkip) {
            // P: a zero vector from the same parity; B: the previous
            // macroblock's prediction (only after a field prediction from the
            // same parity, so that it is the same prediction in any reading),
            // which must still fit here.
            bool ok = !must_code;
            if (b) ok = ok && prev_ == kField && prev_same_parity_ && fits_prev(mx, my);
            if (ok) {
                if (!b) reset_pmv();
                dc_[0] = dc_[1] = dc_[2] = 128;
                return false;
            }
            mode = kField;
        }
        // Vectors until every prediction of the mode fits.
        int v[2][2][2] = {}, sel[2][2] = {}, dmv[2] = {};
        for (int attempt = 0;; ++attempt) {
            bool ok = true;
            for (int s = 0; s < 2; ++s)
                for (int r = 0; r < 2; ++r) {
                    v[r][s][0] = attempt < 20 ? rnd(-14, 14) : 0;
                    v[r][s][1] = attempt < 20 ? rnd(-10, 10) : 0;
                    sel[r][s] = pic_.own_field ? 0 : rnd(0, 1);
                }
            dmv[0] = rnd(-1, 1), dmv[1] = rnd(-1, 1);
            for (int s = 0; s < 2 && ok; ++s) {
                if (mode == kIntraMb || mode == kNoMc || !(dirs & (1 << s))) continue;
                if (mode == kFrame) ok = fits(mx, my, 0, 16, v[0][s][0], v[0][s][1], false);
                if (mode == kField && frame)
                    ok = fits(mx, my, 0, 8, v[0][s][0], v[0][s][1], true) &&
                         fits(mx, my, 0, 8, v[1][s][0], v[1][s][1], true);
                if (mode == kField && !frame) ok = fits(mx, my, 0, 16, v[0][s][0], v[0][s][1], true);
                if (mode == k16x8)
                    ok = fits(mx, my, 0, 8, v[0][s][0], v[0][s][1], true) &&
                         fits(mx, my, 1, 8, v[1][s][0], v[1][s][1], true);
                if (mode == kDual) {
                    const int h = frame ? 8 : 16;
                    ok = fits(mx, my, 0, h, v[0][s][0], v[0][s][1], true);
                    for (int m : {1, 3})
                        for (int e : {-1, 1})
                            ok = ok && fits(mx, my, 0, h, dual(v[0][s][0], frame ? m : 1, dmv[0], 0),
                                            dual(v[0][s][1], frame ? m : 1, dmv[1], e), true);
                }
            }
            if (ok) break;
        }
        const bool coded = mode == kIntraMb || mode == kNoMc || rnd(0, 2) != 0;
        // macroblock_address_increment and macroblock_type.
        w_.vlc(kMbAddressIncrement, skipped + 1);
        int flags = mode == kIntraMb ? kIntra : (coded ? kPattern : 0);
        if (mode != kIntraMb && mode != kNoMc)
            flags |= (dirs & 1 ? kForward : 0) | (dirs & 2 ? kBackward : 0);
        if (pic_.type == 1)
            w_.vlc(kMbTypeI, kIntra);
        else if (pic_.type == 2)
            w_.vlc(kMbTypeP, flags);
        else
            w_.vlc(kMbTypeB, flags);
        if (flags & (kForward | kBackward)) {
            const int mt = mode == kField ? 1 : (mode == kDual ? 3 : 2);  // 16x8 and frame are both 2
            w_.put(static_cast<uint32_t>(mt), 2);
        }
        if (frame && (flags & (kIntra | kPattern))) w_.put(static_cast<uint32_t>(rnd(0, 1)), 1);  // dct_type
        for (int s = 0; s < 2; ++s)
            if (flags & (s ? kBackward : kForward)) vectors(s, mode, v, sel, dmv);
        if (mode == kIntraMb && pic_.conceal) {
            // A forward vector as a frame (frame pictures) or field vector,
            // not used for prediction; it updates the predictors.
            vectors(0, frame ? kFrame : kField, v, sel, dmv);
            w_.put(1, 1);  // marker
        }
        int cbp = 63;
        if (mode != kIntraMb) {
            if (mode == kNoMc || flags & (kForward | kBackward)) {
                if (!(flags & (kForward | kBackward))) reset_pmv();  // P without motion
            }
            if (coded) {
                cbp = rnd(1, 63);
                w_.vlc(kCodedBlockPattern, cbp);
            }
            dc_[0] = dc_[1] = dc_[2] = 128;
        } else if (!pic_.conceal) {
            reset_pmv();
        }
        if (coded) blocks(mx, my, cbp, mode == kIntraMb);
        prev_ = mode == kIntraMb ? -1 : mode;
        prev_dirs_ = flags & (kForward | kBackward);
        const int parity = pic_.structure == 2 ? 1 : 0;
        prev_same_parity_ = (!(prev_dirs_ & kForward) || sel[0][0] == parity) &&
                            (!(prev_dirs_ & kBackward) || sel[0][1] == parity);
        return true;
    }

    bool fits_prev(int mx, int my) const {
        // A skipped B macroblock: field prediction from the same parity (field
        // pictures) with the predictors as vectors.
        for (int s = 0; s < 2; ++s)
            if ((prev_dirs_ & (s ? kBackward : kForward)) &&
                !fits(mx, my, 0, 16, pmv_[0][s][0], pmv_[0][s][1], true))
                return false;
        return pic_.structure != 3;
    }

    void reset_pmv() {
        for (auto& a : pmv_)
            for (auto& b : a)
                for (int& c : b) c = 0;
    }

    // motion_vectors(s) with the predictor rules of ISO/IEC 13818-2 7.6.3.
    void vectors(int s, Mode mode, int v[2][2][2], int sel[2][2], const int dmv[2]) {
        const bool frame = pic_.structure == 3;
        const int count = (mode == k16x8 || (mode == kField && frame)) ? 2 : 1;
        const bool field_format = !frame || mode != kFrame, is_dual = mode == kDual;
        for (int r = 0; r < count; ++r) {
            if (count == 2 || (field_format && !is_dual)) w_.put(static_cast<uint32_t>(sel[r][s]), 1);
            component(pmv_[r][s][0], false, v[r][s][0]);
            if (is_dual) w_.vlc(kDmVector, dmv[0]);
            component(pmv_[r][s][1], field_format && frame, v[r][s][1]);
            if (is_dual) w_.vlc(kDmVector, dmv[1]);
        }
        if (count == 1) pmv_[1][s][0] = pmv_[0][s][0], pmv_[1][s][1] = pmv_[0][s][1];
    }

    // motion_code and motion_residual for f_code 3.
    void component(int& pmv, bool halve, int value) {
        const int r = 2, f = 1 << r;
        int delta = value - (halve ? pmv >> 1 : pmv);
        if (delta < -16 * f) delta += 32 * f;
        if (delta > 16 * f - 1) delta -= 32 * f;
        if (delta == 0) {
            w_.vlc(kMotionCode, 0);
        } else {
            const int a = (delta < 0 ? -delta : delta) - 1;
            w_.vlc(kMotionCode, delta < 0 ? -((a >> r) + 1) : (a >> r) + 1);
            w_.put(static_cast<uint32_t>(a & (f - 1)), r);
        }
        pmv = halve ? value * 2 : value;
    }

    void blocks(int mx, int my, int cbp, bool intra) {
        static const std::vector<Kpl32s> zigzag(kZigzagScan, kZigzagScan + 64);
        for (int k = 0; k < 6; ++k) {
            if (!((cbp >> (5 - k)) & 1)) continue;
            Kpl16s lv[64] = {};
            if (intra) {
                // The source block (frame rows of this picture's field or
                // frame), forward transformed and quantised (scale 12).
                const int p = k < 4 ? 0 : k - 3, w = p ? kW / 2 : kW;
                const int rows = pic_.structure == 3 ? 1 : 2, parity = pic_.structure == 2 ? 1 : 0;
                const int bx = p ? mx * 8 : mx * 16 + (k & 1) * 8, by = p ? my * 8 : my * 16 + (k >> 1) * 8;
                const uint8_t* at = src_[p].data() + static_cast<size_t>(by * rows + parity) * w + bx;
                kpliDCT8x8Fwd_8u16s_C1R(at, w * rows, lv);
                const Kpl16s dc = static_cast<Kpl16s>((lv[0] + 4) / 8);
                Kpl32s n;
                kpliQuantIntra_MPEG2_16s_C1I(lv, 12, nullptr, &n);
                lv[0] = dc;
                Kpl16s* pred = &dc_[p];
                kpliPutIntraBlock(lv, w_.pp(), w_.pf(), pred, dc_codes_[p ? 1 : 0], enc_.data(),
                                  zigzag.data(), 2);
            } else {
                const int n = rnd(1, 4);
                for (int c = 0; c < n; ++c)
                    lv[kZigzagScan[rnd(0, 9)]] = static_cast<Kpl16s>(rnd(0, 1) ? rnd(1, 3) : -rnd(1, 3));
                kpliPutNonIntraBlock(lv, w_.pp(), w_.pf(), enc_.data(), zigzag.data(), 2);
            }
        }
    }

    std::mt19937 rng_;
    Writer w_;
    std::vector<Kpl32s> enc_;
    Kpl32s dc_codes_[2][12] = {};
    std::vector<uint8_t> src_[3];
    Picture pic_{};
    int pmv_[2][2][2] = {};
    Kpl16s dc_[3] = {128, 128, 128};
    int prev_ = -1, prev_dirs_ = 0;
    bool prev_same_parity_ = false;
};

struct Decoded {
    std::vector<std::vector<uint8_t>> frames;
};

bool keep(const codecs::Picture& pic, void* user) {
    auto* d = static_cast<Decoded*>(user);
    std::vector<uint8_t> f;
    for (int p = 0; p < 3; ++p) {
        const int w = p ? pic.width / 2 : pic.width, h = p ? pic.height / 2 : pic.height;
        for (int y = 0; y < h; ++y)
            f.insert(f.end(), pic.plane[p] + static_cast<size_t>(y) * pic.stride[p],
                     pic.plane[p] + static_cast<size_t>(y) * pic.stride[p] + w);
    }
    d->frames.push_back(std::move(f));
    return true;
}

TEST(Mpeg2Fields, FieldPicturesAndDualPrimeMatchFfmpeg) {
    if (!test::have_ffmpeg()) GTEST_SKIP() << "ffmpeg is not installed: field-picture interop skipped";
    // Coded order; display order I0 P1 B2 P3.
    const std::vector<Picture> order = {
        {1, 1, 0, false, true},  {2, 2, 0, true, true},    // I top field, P bottom field predicted from it
        {2, 1, 1, false, true},  {2, 2, 1, false, false},  // P field pair
        {2, 3, 3, false, true},                            // P frame picture: frame, field and dual prime
        {3, 2, 2, false, false}, {3, 1, 2, false, true},   // B field pair, bottom field first
    };
    double lowest = 1e9;
    int largest = 0;
    for (uint32_t seed : {1u, 2u, 3u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        StreamWriter sw(seed);
        const std::vector<uint8_t> stream = sw.write(order);
        char dir[] = "/tmp/kplvc-fields-XXXXXX";
        ASSERT_TRUE(mkdtemp(dir));
        const std::string in = std::string(dir) + "/s.m2v", out = std::string(dir) + "/s.yuv";
        std::FILE* f = std::fopen(in.c_str(), "wb");
        ASSERT_TRUE(f);
        std::fwrite(stream.data(), 1, stream.size(), f);
        std::fclose(f);
        const std::string cmd = "ffmpeg -nostdin -v error -y -threads 1 -idct int -i " + in +
                                " -fps_mode passthrough -f rawvideo -pix_fmt yuv420p " + out;
        ASSERT_EQ(std::system(cmd.c_str()), 0);
        std::vector<uint8_t> ref;
        if (std::FILE* r = std::fopen(out.c_str(), "rb")) {
            uint8_t buf[65536];
            size_t n;
            while ((n = std::fread(buf, 1, sizeof buf, r)) > 0) ref.insert(ref.end(), buf, buf + n);
            std::fclose(r);
        }
        std::remove(in.c_str());
        std::remove(out.c_str());
        rmdir(dir);

        Decoded ours;
        DecodeStats stats;
        ASSERT_EQ(
            find_decoder("mpeg2")->decode(stream.data(), stream.size(), DecodeOptions{}, keep, &ours, &stats),
            0)
            << stats.message;
        EXPECT_EQ(stats.concealed, 0);
        EXPECT_EQ(stats.errors, 0);
        const size_t frame_bytes = kW * kH * 3 / 2;
        ASSERT_EQ(ours.frames.size(), 4u);
        ASSERT_EQ(ref.size(), 4 * frame_bytes);
        for (size_t k = 0; k < 4; ++k) {
            const uint8_t* r = ref.data() + k * frame_bytes;
            const size_t planes[3][2] = {
                {0, kW * kH}, {kW * kH, kW * kH / 4}, {kW * kH * 5 / 4, kW * kH / 4}};
            for (const auto& pl : planes) {
                const PlaneDiff d = compare_plane(ours.frames[k].data() + pl[0], r + pl[0], pl[1]);
                EXPECT_GE(d.psnr, 50.0) << "frame " << k << " largest difference " << d.max_abs;
                lowest = std::min(lowest, d.psnr);
                largest = std::max(largest, d.max_abs);
            }
        }
    }
    std::printf("field pictures and dual prime against ffmpeg: lowest PSNR %.2f dB, largest difference %d\n",
                lowest, largest);
}

}  // namespace
}  // namespace kplvc::codecs::mpeg2
