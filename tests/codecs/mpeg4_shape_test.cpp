// MPEG-4 VOPs with binary shape: a small encoder of its own writes an
// object (an ellipse whose texture is flat on 8x8 blocks of its own
// coordinates) moving right by two samples per VOP, as I-VOPs and P-VOPs:
// every BAB type, conversion ratios 1, 2 and 4, both scan orders, shape
// vectors against the predictor, boundary macroblocks with 1..3 blocks
// inside the shape. The decoder's alpha must be the encoder's reconstructed
// shape, and its texture what was encoded wherever it is known: every
// sample inside the I-VOP's shape, and in a P-VOP those whose source, two
// samples to the left in the reference, was known.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "common/bitwriter.h"
#include "common/mbcodes.h"
#include "mpeg4/decoder.h"
#include "mpeg4/shape.h"

namespace kplvc::codecs::test {
namespace {

constexpr int kMbW = 5, kMbH = 4, kW = 16 * kMbW, kH = 16 * kMbH;
constexpr int kMargin = 24;  // around the alpha planes (zeros)
constexpr int kQp = 8;       // dc_scaler 16 (luma) and 10 (chroma)
constexpr int kMotion = 2;   // samples to the right per VOP

// An alpha plane with a margin of zeros.
struct Alpha {
    static constexpr int kStride = kW + 2 * kMargin;
    std::vector<uint8_t> px = std::vector<uint8_t>(kStride * (kH + 2 * kMargin), 0);
    uint8_t* at(int x, int y) { return px.data() + (y + kMargin) * kStride + x + kMargin; }
    bool on(int x, int y) const {
        if (x < -kMargin || y < -kMargin || x >= kW + kMargin || y >= kH + kMargin) return false;
        return px[(y + kMargin) * kStride + x + kMargin] != 0;
    }
    bool chroma_on(int cx, int cy) const {
        return on(2 * cx, 2 * cy) || on(2 * cx + 1, 2 * cy) || on(2 * cx, 2 * cy + 1) ||
               on(2 * cx + 1, 2 * cy + 1);
    }
};

// The source: the ellipse at VOP t, and its texture in object coordinates.
bool in_object(int x, int y, int t) {
    const int u = x - kMotion * t - 30, v = y - 30;
    return 16 * u * u + 49 * v * v <= 49 * 22 * 22;  // radii 38.5 and 22
}
// Even luma values and chroma multiples of 5: a flat block's DC is then
// exact at this quantiser.
int wrap(int a, int n) { return ((a % n) + n) % n; }
uint8_t luma_of(int u, int v) {
    return static_cast<uint8_t>(16 + 2 * wrap((u >> 3) * 37 + (v >> 3) * 11 + 5, 100));
}
uint8_t chroma_of(int u, int v, int c) {
    return static_cast<uint8_t>(20 + 5 * wrap((u >> 4) * 7 + (v >> 4) * 3 + 4 * c, 40));
}

// VOPs 0 and 8 are I-VOPs (the object has moved by 16 samples: its blocks
// are the macroblocks' again), the others P-VOPs.
bool intra_vop(int t) { return t == 0 || t == 8; }

void put_code(BitWriter& w, const char* bits) {
    for (const char* b = bits; *b; ++b) w.put(*b == '1', 1);
}

// cbpy for 1..3 blocks inside the shape, by the inter meaning.
const char* const kCbpyShape[3][8] = {
    {"1", "01"},
    {"1", "01", "001", "0001"},
    {"1", "001", "00011", "00010", "010", "00001", "000001", "011"},
};

struct Options {
    bool conv_ratio_disable;
    int vops;
    // The bounding box moves with the object (its position in the VOP
    // header), so the object stands still inside it; else the box stays.
    bool follow;
    int box(int t) const { return follow ? kMotion * t : 0; }
    int motion() const { return follow ? 0 : kMotion; }
};

struct Encoded {
    std::vector<uint8_t> stream;
    std::vector<Alpha> alpha;  // reconstructed shape of each VOP
    int bab_counts[7] = {};
    int cr_counts[3] = {}, scan_counts[2] = {}, cbpy_counts[5] = {};
};

class ShapeEncoder {
public:
    explicit ShapeEncoder(const Options& o) : opt_(o) {}

    Encoded run() {
        w_.reserve(1 << 16);
        // Visual object, VOL: binary shape, time resolution 30 (5 bits),
        // everything else off.
        w_.put(0x000001, 24), w_.put(0x00, 8);
        w_.put(0x000001, 24), w_.put(0x20, 8);
        w_.put(0, 1), w_.put(1, 8), w_.put(0, 1), w_.put(1, 4), w_.put(0, 1);
        w_.put(1, 2);  // video_object_layer_shape: binary
        w_.put(1, 1), w_.put(30, 16), w_.put(1, 1), w_.put(0, 1);
        w_.put(0, 1), w_.put(1, 1), w_.put(0, 1);  // interlaced, obmc_disable, sprite
        w_.put(0, 1), w_.put(0, 1);                // not_8_bit, quant_type
        w_.put(1, 1), w_.put(1, 1), w_.put(0, 1);  // complexity off, resync off, no partitions
        w_.put(0, 1);                              // scalability
        stuff();
        for (int t = 0; t < opt_.vops; ++t) vop(t);
        w_.flush_to(&out_.stream);
        return out_;
    }

private:
    void stuff() {  // a zero, then ones to the byte
        w_.put(0, 1);
        while (w_.bits() % 8) w_.put(1, 1);
    }

    void vop(int t) {
        const bool p = !intra_vop(t);
        w_.reserve(1 << 14);
        w_.put(0x000001, 24), w_.put(0xB6, 8);
        w_.put(p ? 1 : 0, 2), w_.put(0, 1), w_.put(1, 1), w_.put(static_cast<uint32_t>(t), 5), w_.put(1, 1);
        w_.put(1, 1);  // vop_coded
        if (p) w_.put(0, 1);
        w_.put(kW, 13), w_.put(1, 1), w_.put(kH, 13), w_.put(1, 1);
        w_.put(static_cast<uint32_t>(opt_.box(t)), 13), w_.put(1, 1), w_.put(0, 13), w_.put(1, 1);
        w_.put(opt_.conv_ratio_disable ? 1 : 0, 1), w_.put(0, 1);
        w_.put(0, 3);                       // intra_dc_vlc_thr: DC codes always
        w_.put(kQp, 5);                     // vop_quant
        if (p) w_.put(1, 3), w_.put(1, 1);  // f_code 1, inter shape coding
        ref_ = cur_;
        std::memcpy(ref_types_, types_, sizeof types_);
        cur_ = Alpha{};
        for (auto& r : pred_) r = KPLVC_MPEG4_INTRA_PRED_ABSENT;
        for (int mby = 0; mby < kMbH; ++mby)
            for (int mbx = 0; mbx < kMbW; ++mbx) macroblock(t, mbx, mby);
        stuff();
        out_.alpha.push_back(cur_);
    }

    // ---- Shape ---------------------------------------------------------------------

    int blocks_of(int mbx, int mby) {
        int m = 0;
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x)
                if (*cur_.at(16 * mbx + x, 16 * mby + y)) m |= 1 << ((y >> 3) * 2 + (x >> 3));
        return m;
    }

    // Writes the BAB of macroblock (mbx, mby) and reconstructs it in cur_.
    void shape(int t, int mbx, int mby) {
        const int mb = mby * kMbW + mbx, bx = 16 * mbx, by = 16 * mby;
        uint8_t src[256];
        int n = 0;
        for (int y = 0; y < 16; ++y)
            for (int x = 0; x < 16; ++x)
                n += src[y * 16 + x] = in_object(bx + x + opt_.box(t), by + y, t) ? 255 : 0;
        n /= 255;
        const int k = mb + 3 * t;  // cycles the coding choices
        int type;
        KplMotionVector mvd = {0, 0};
        uint8_t mc[24 * 24];  // the compensated BAB with 4 samples around
        if (n == 0 || n == 256) {
            type = n ? 3 : 2;
        } else if (intra_vop(t) || k % 5 == 0) {
            type = 4;
        } else {
            const KplMotionVector pv = shape_predictor(mbx, mby);
            // The object's motion, or now and then a vector one sample off.
            // Vectors count in the VOPs' common coordinates; the box moved by
            // `moved` between the two.
            const int moved = opt_.box(t) - opt_.box(t - 1);
            const KplMotionVector sv = {static_cast<int16_t>(k % 4 == 2 ? -kMotion - 1 : -kMotion), 0};
            mvd = {static_cast<int16_t>(sv.dx - pv.dx), static_cast<int16_t>(sv.dy - pv.dy)};
            for (int y = -4; y < 20; ++y)
                for (int x = -4; x < 20; ++x) {
                    const int rx = bx + x + sv.dx + moved, ry = by + y + sv.dy;
                    mc[(y + 4) * 24 + x + 4] =
                        rx >= 0 && ry >= 0 && rx < kW && ry < kH ? *ref_.at(rx, ry) : 0;
                }
            bool same = true;
            for (int y = 0; y < 16; ++y) same &= std::memcmp(src + 16 * y, mc + (y + 4) * 24 + 4, 16) == 0;
            const bool zero = mvd.dx == 0 && mvd.dy == 0;
            type = same ? (zero ? 0 : 1) : (zero ? 5 : 6);
            smv_[mb] = sv;
        }
        types_[mb] = static_cast<uint8_t>(type);
        ++out_.bab_counts[type];
        if (intra_vop(t)) {
            auto nb = [&](int x, int y) { return x < 0 || y < 0 || x >= kMbW ? 2 : types_[y * kMbW + x]; };
            const int ctx = 27 * (nb(mbx - 1, mby - 1) - 2) + 9 * (nb(mbx, mby - 1) - 2) +
                            3 * (nb(mbx + 1, mby - 1) - 2) + nb(mbx - 1, mby) - 2;
            put_code(w_, kplvc::mpeg4::kBabTypeIntraCodes[ctx][type - 2]);
        } else {
            put_code(w_, kplvc::mpeg4::kBabTypeInterCodes[ref_types_[mb]][type]);
        }
        if (type == 1 || type == 6) {
            // Shape vector difference: |v| ones and a zero, then the sign
            // (1 positive); y after a zero x with |v| - 1 ones.
            for (int c = 0; c < 2; ++c) {
                const int v = c ? mvd.dy : mvd.dx, a = v < 0 ? -v : v;
                const int ones = c == 1 && mvd.dx == 0 ? a - 1 : a;
                for (int i = 0; i < ones; ++i) w_.put(1, 1);
                w_.put(0, 1);
                if (v != 0) w_.put(v > 0, 1);
            }
        }
        uint8_t* dst = cur_.at(bx, by);
        const int st = Alpha::kStride;
        if (type <= 3) {
            for (int y = 0; y < 16; ++y)
                std::memcpy(dst + y * st, type <= 1 ? mc + (y + 4) * 24 + 4 : src + 16 * y, 16);
            return;
        }
        const int cr = opt_.conv_ratio_disable ? 1 : (k % 3 == 0 ? 1 : (k % 3 == 1 ? 2 : 4));
        const int scan = (k / 3) % 2;
        ++out_.cr_counts[cr / 2];
        ++out_.scan_counts[scan];
        if (!opt_.conv_ratio_disable) put_code(w_, cr == 1 ? "0" : (cr == 2 ? "10" : "11"));
        w_.put(static_cast<uint32_t>(scan), 1);
        const bool inter = type != 4;
        BitWriter::Position pos = w_.position();
        if (cr == 1) {
            for (int y = 0; y < 16; ++y) std::memcpy(dst + y * st, src + 16 * y, 16);
            ASSERT_EQ(inter ? kpliEncodeBABInter_MPEG4_8u1u(dst, st, mc + 4 * 24 + 4, 24, 16, scan, &pos.p,
                                                            &pos.off)
                            : kpliEncodeBABIntra_MPEG4_8u1u(dst, st, 16, scan, &pos.p, &pos.off),
                      kplStsNoErr);
        } else {
            const int s = 16 / cr;
            uint8_t small[24 * 24] = {}, mcs[24 * 24] = {};
            uint8_t* sp = small + 2 * 24 + 2;
            kpliDownsampleBABBorder_MPEG4_8u_C1R(dst, st, sp, 24, cr);
            kpliDownsampleAlpha_MPEG4_8u_C1R(src, 16, sp, 24, KpliSize{s, s}, cr);
            if (inter)
                kpliDownsampleAlpha_MPEG4_8u_C1R(mc + (4 - cr) * 24 + 4 - cr, 24, mcs, 24,
                                                 KpliSize{s + 2, s + 2}, cr);
            ASSERT_EQ(inter ? kpliEncodeBABInter_MPEG4_8u1u(sp, 24, mcs + 25, 24, s, scan, &pos.p, &pos.off)
                            : kpliEncodeBABIntra_MPEG4_8u1u(sp, 24, s, scan, &pos.p, &pos.off),
                      kplStsNoErr);
            kpliUpsampleBAB_MPEG4_8u_C1R(sp, 24, dst, st, cr);
        }
        w_.done(pos);
    }

    // The first of: the shape vectors left, above, above-right, then their
    // texture vectors (block 1 of the left one, block 2 of the others).
    KplMotionVector shape_predictor(int mbx, int mby) {
        KplMotionVector s[3] = {}, tex[3] = {};
        int valid = 0;
        static constexpr int kNb[3][2] = {{-1, 0}, {0, -1}, {1, -1}};
        for (int k = 0; k < 3; ++k) {
            const int x = mbx + kNb[k][0], y = mby + kNb[k][1];
            if (x < 0 || y < 0 || x >= kMbW) continue;
            const int n = y * kMbW + x, tp = types_[n];
            if (tp <= 1 || tp >= 5) s[k] = smv_[n], valid |= 1 << k;
            if (blocks_[n] != 0) tex[k] = mv_[n], valid |= 8 << k;
        }
        KplMotionVector p;
        kpliPredictShapeMV_MPEG4(s, tex, valid, &p);
        return p;
    }

    // ---- Texture -------------------------------------------------------------------

    void macroblock(int t, int mbx, int mby) {
        const int mb = mby * kMbW + mbx;
        smv_[mb] = {0, 0};
        mv_[mb] = {0, 0};
        shape(t, mbx, mby);
        if (::testing::Test::HasFatalFailure()) return;
        const int blocks = blocks_of(mbx, mby);
        blocks_[mb] = static_cast<uint8_t>(blocks);
        if (blocks == 0) return;
        const int inside = __builtin_popcount(static_cast<unsigned>(blocks));
        ++out_.cbpy_counts[inside];
        auto cbpy = [&](int inter_meaning) {
            if (inside == 4)
                w_.put(kCbpy[inter_meaning].code, kCbpy[inter_meaning].len);
            else
                put_code(w_, kCbpyShape[inside - 1][inter_meaning]);
        };
        if (!intra_vop(t)) {
            // Inter, no residual: the vector the object moved by.
            w_.put(0, 1);  // coded
            w_.put(kMcbpcInter[0][0].code, kMcbpcInter[0][0].len);
            cbpy(0);
            const int avail = (mbx > 0 && blocks_[mb - 1] ? 1 : 0) | (mby > 0 && blocks_[mb - kMbW] ? 2 : 0) |
                              (mby > 0 && mbx < kMbW - 1 && blocks_[mb - kMbW + 1] ? 4 : 0);
            KplMotionVector p;
            kpliPredictMV_MPEG4(&mvs4_[static_cast<size_t>(mb) * 4], 4 * kMbW, 0, avail, &p);
            const KplMotionVector v = {static_cast<int16_t>(-2 * kMotion), 0};
            w_.put(kMvd[v.dx - p.dx + 32].code, kMvd[v.dx - p.dx + 32].len);
            w_.put(kMvd[v.dy - p.dy + 32].code, kMvd[v.dy - p.dy + 32].len);
            mv_[mb] = v;
            for (int b = 0; b < 4; ++b) mvs4_[static_cast<size_t>(mb) * 4 + b] = v;
            return;
        }
        for (int b = 0; b < 4; ++b) mvs4_[static_cast<size_t>(mb) * 4 + b] = {0, 0};
        w_.put(kMcbpcIntra[0][0].code, kMcbpcIntra[0][0].len);
        w_.put(0, 1);             // ac_pred_flag
        cbpy((1 << inside) - 1);  // no coefficients: intra 0
        for (int b = 0; b < 6; ++b) {
            if (b < 4 && !((blocks >> b) & 1)) continue;
            const int x0 = b < 4 ? 16 * mbx + 8 * (b & 1) : 16 * mbx,
                      y0 = b < 4 ? 16 * mby + 8 * (b >> 1) : 16 * mby;
            const int u = x0 + opt_.box(t) - kMotion * t;
            const int value = b < 4 ? luma_of(u, y0) : chroma_of(u, y0, b - 4);
            const int level = 8 * value / (b < 4 ? 16 : 10);
            intra_dc(mbx, mby, b, level);
        }
    }

    // The DC differential against the library's prediction, with records
    // kept as the decoder keeps them (absent outside the shape).
    void intra_dc(int mbx, int mby, int b, int level) {
        const KplMPEG4IntraPred absent = KPLVC_MPEG4_INTRA_PRED_ABSENT;
        auto rec = [&](int x, int y, int blk) -> const KplMPEG4IntraPred* {
            if (x < 0 || y < 0 || x >= kMbW) return &absent;
            return &pred_[(y * kMbW + x) * 6 + blk];
        };
        const KplMPEG4IntraPred *A, *B, *C;
        if (b >= 4) {
            A = rec(mbx - 1, mby, b), B = rec(mbx - 1, mby - 1, b), C = rec(mbx, mby - 1, b);
        } else {
            static constexpr int kN[4][3][3] = {{{-1, 0, 1}, {-1, -1, 3}, {0, -1, 2}},
                                                {{0, 0, 0}, {0, -1, 2}, {0, -1, 3}},
                                                {{-1, 0, 3}, {-1, 0, 1}, {0, 0, 0}},
                                                {{0, 0, 2}, {0, 0, 0}, {0, 0, 1}}};
            const KplMPEG4IntraPred* n[3];
            for (int k = 0; k < 3; ++k) n[k] = rec(mbx + kN[b][k][0], mby + kN[b][k][1], kN[b][k][2]);
            A = n[0], B = n[1], C = n[2];
        }
        const KplMPEG4IntraPred a = *A, bb = *B, c = *C;
        Kpl32s dir;
        kpliPredictDirIntra_MPEG4(&a, &bb, &c, &dir);
        const KplMPEG4IntraPred& from = dir == KPLVC_PRED_LEFT ? a : c;
        int16_t coef[64] = {};
        KplMPEG4IntraPred scratch;
        kpliPredictReconIntra_MPEG4_16s(coef, &from, &scratch, dir, 0, kQp, b);
        const int scaler = b < 4 ? 16 : 10;
        const int diff = level - coef[0] / scaler;
        BitWriter::Position pos = w_.position();
        ASSERT_EQ(kpliEncodeDCIntra_MPEG4_16s1u(static_cast<int16_t>(diff), &pos.p, &pos.off, b),
                  kplStsNoErr);
        w_.done(pos);
        std::memset(coef, 0, sizeof coef);
        coef[0] = static_cast<int16_t>(diff);
        kpliPredictReconIntra_MPEG4_16s(coef, &from, &pred_[(mby * kMbW + mbx) * 6 + b], dir, 0, kQp, b);
    }

    Options opt_;
    BitWriter w_;
    Encoded out_;
    Alpha cur_, ref_;
    uint8_t types_[kMbW * kMbH] = {}, ref_types_[kMbW * kMbH] = {}, blocks_[kMbW * kMbH] = {};
    KplMotionVector smv_[kMbW * kMbH] = {}, mv_[kMbW * kMbH] = {}, mvs4_[kMbW * kMbH * 4] = {};
    KplMPEG4IntraPred pred_[kMbW * kMbH * 6];
};

struct Decoded {
    std::vector<std::vector<uint8_t>> y, cb, cr, alpha;
    int width = 0, height = 0;
};

bool keep_picture(const Picture& pic, void* user) {
    auto* d = static_cast<Decoded*>(user);
    d->width = pic.width;
    d->height = pic.height;
    for (int p = 0; p < 3; ++p) {
        const int w = p ? pic.width / 2 : pic.width, h = p ? pic.height / 2 : pic.height;
        std::vector<uint8_t> plane(static_cast<size_t>(w * h));
        for (int y = 0; y < h; ++y)
            std::memcpy(&plane[static_cast<size_t>(y * w)], pic.plane[p] + y * pic.stride[p], w);
        (p == 0 ? d->y : (p == 1 ? d->cb : d->cr)).push_back(plane);
    }
    return true;
}

void keep_alpha(const uint8_t* alpha, int stride, int width, int height, void* user) {
    auto* d = static_cast<Decoded*>(user);
    std::vector<uint8_t> a(static_cast<size_t>(width * height));
    for (int y = 0; y < height; ++y)
        std::memcpy(&a[static_cast<size_t>(y * width)], alpha + y * stride, width);
    d->alpha.push_back(a);
}

TEST(Mpeg4Shape, MovingObjectDecodesAsEncoded) {
    for (int variant = 0; variant < 3; ++variant) {
        const bool disable = variant == 0, follow = variant == 2;
        SCOPED_TRACE(disable ? "conv_ratio 1 only"
                             : (follow ? "moving box, conv_ratio 1, 2, 4" : "conv_ratio 1, 2, 4"));
        const Options opt = {disable, 10, follow};
        const int m = opt.motion();
        const Encoded enc = ShapeEncoder(opt).run();
        ASSERT_FALSE(::testing::Test::HasFatalFailure());
        // Every path was taken.
        for (int t = 0; t < 7; ++t) EXPECT_TRUE(follow || enc.bab_counts[t] > 0) << "bab_type " << t;
        for (int n = 1; n <= 4; ++n) EXPECT_TRUE(follow || enc.cbpy_counts[n] > 0) << n << " blocks inside";
        EXPECT_GT(enc.scan_counts[0], 0);
        EXPECT_GT(enc.scan_counts[1], 0);
        EXPECT_TRUE(disable || (enc.cr_counts[1] > 0 && enc.cr_counts[2] > 0));

        Decoded dec;
        DecodeStats stats;
        mpeg4::Mpeg4Decoder d(keep_picture, &dec, &stats);
        d.set_alpha_sink(keep_alpha, &dec);
        ASSERT_TRUE(d.run(enc.stream.data(), enc.stream.size())) << stats.message;
        EXPECT_EQ(stats.errors, 0);
        ASSERT_EQ(dec.alpha.size(), static_cast<size_t>(opt.vops));
        ASSERT_EQ(dec.y.size(), static_cast<size_t>(opt.vops));
        ASSERT_EQ(dec.width, kW);
        ASSERT_EQ(dec.height, kH);
        Alpha known_prev;
        std::vector<uint8_t> chroma_known(kW / 2 * kH / 2, 0), chroma_next = chroma_known;
        for (int t = 0; t < opt.vops; ++t) {
            Alpha rec = enc.alpha[t], known;
            int bad_alpha = 0, bad_shape = 0, checked = 0, bad_y = 0, bad_c = 0;
            for (int y = 0; y < kH; ++y)
                for (int x = 0; x < kW; ++x) {
                    const bool on = rec.on(x, y);
                    bad_alpha += (dec.alpha[t][y * kW + x] != 0) != on;
                    bad_shape += on != in_object(x + opt.box(t), y, t);
                    const bool k = on && (intra_vop(t) || known_prev.on(x - m, y));
                    *known.at(x, y) = k ? 255 : 0;
                    if (!k) continue;
                    ++checked;
                    bad_y += dec.y[t][y * kW + x] != luma_of(x + opt.box(t) - kMotion * t, y);
                }
            // Chroma: inside by the 2x2 rule, from a known chroma sample.
            for (int y = 0; y < kH / 2; ++y)
                for (int x = 0; x < kW / 2; ++x) {
                    const int sx = x - m / 2;
                    const bool k =
                        rec.chroma_on(x, y) && (intra_vop(t) || (sx >= 0 && chroma_known[sx + kW / 2 * y]));
                    chroma_next[x + kW / 2 * y] = k;
                    if (!k) continue;
                    const int u = 2 * x + opt.box(t) - kMotion * t, v = 2 * y;
                    bad_c += dec.cb[t][y * kW / 2 + x] != chroma_of(u, v, 0);
                    bad_c += dec.cr[t][y * kW / 2 + x] != chroma_of(u, v, 1);
                }
            chroma_known = chroma_next;
            EXPECT_EQ(bad_alpha, 0) << "VOP " << t;
            EXPECT_TRUE(!disable || bad_shape == 0)
                << "VOP " << t << ": lossless shape differs from the source";
            EXPECT_GT(checked, 500) << "VOP " << t;
            EXPECT_EQ(bad_y, 0) << "VOP " << t;
            EXPECT_EQ(bad_c, 0) << "VOP " << t;
            known_prev = known;
        }
    }
}

// Damaged shape streams: bits flipped anywhere after the VOL. The decoder
// must come through (the sanitizers watch), count what it found, and hand
// out only 0 / 255 alpha samples.
TEST(Mpeg4Shape, DamagedStreamsDecodeSafely) {
    const Encoded enc = ShapeEncoder(Options{false, 10, true}).run();
    ASSERT_FALSE(::testing::Test::HasFatalFailure());
    std::mt19937 rng(7);
    long errors = 0;
    for (int rep = 0; rep < 60; ++rep) {
        std::vector<uint8_t> s = enc.stream;
        const int flips = 1 + rep % 8;
        for (int i = 0; i < flips; ++i) {
            const size_t byte = 16 + rng() % (s.size() - 16);
            s[byte] = static_cast<uint8_t>(s[byte] ^ (1u << (rng() % 8)));
        }
        Decoded dec;
        DecodeStats stats;
        mpeg4::Mpeg4Decoder d(keep_picture, &dec, &stats);
        d.set_alpha_sink(keep_alpha, &dec);
        d.run(s.data(), s.size());
        errors += stats.errors;
        for (const auto& a : dec.alpha)
            for (uint8_t v : a) ASSERT_TRUE(v == 0 || v == 255);
    }
    EXPECT_GT(errors, 0);
}

}  // namespace
}  // namespace kplvc::codecs::test
