// MPEG-4 Visual encoder built on the library: Simple Profile I- and P-VOPs
// (rectangular, progressive, one video packet per VOP), either quantisation
// method, one vector per macroblock or four, and quarter-sample vectors
// (Advanced Simple Profile) on request.
//
// Per P-VOP, a first pass searches every macroblock's vector (MVFAST at
// whole samples, the exact successive-elimination search of the window where
// MVFAST's result leaves a large SAD, then the half positions, and the
// quarter positions with quarter samples, priced with the vector's code
// length; with four vectors, each 8x8 block around the macroblock's vector),
// which also measures the VOP's complexity for the rate control; the
// quantiser follows from the library's rate model. The second pass codes each
// macroblock in the candidate modes (one vector, four, not coded, intra) and
// keeps the one of least squared error plus lambda times its bits, with the
// library's forward DCT, quantisers, DC/AC prediction and texture writers.
// The reconstruction is the decoder's: intra blocks go through the library's
// DC/AC prediction, inverse quantiser and inverse DCT, inter blocks are read
// back from the bits just written with the decoder's own reconstructing
// reader, so the encoder's picture is exactly what a decoder of the library
// shows.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/bitwriter.h"
#include "common/encoder.h"
#include "common/mbcodes.h"
#include "headers.h"
#include "kplvc.h"

namespace kplvc::codecs::mpeg4 {

namespace {

constexpr int kPad = 32;
alignas(32) const Kpl16s kZero[16 * 16] = {};  // a zero residual, 16x16 or 8x8
const KplMPEG4IntraPred kAbsent = KPLVC_MPEG4_INTRA_PRED_ABSENT;

inline int mc_type(int dx, int dy) {
    return ((dx & 1) ? KPLVC_MC_APX_HF : 0) | ((dy & 1) ? KPLVC_MC_APX_FH : 0);
}

// The DC quantiser of a quantiser (ISO/IEC 14496-2 Table 7-1).
int dc_scaler(int qp, bool chroma) {
    if (qp <= 4) return 8;
    if (!chroma) return qp <= 8 ? 2 * qp : (qp <= 24 ? qp + 8 : 2 * qp - 16);
    return qp <= 24 ? (qp + 13) / 2 : qp - 6;
}

// a // b for b > 0: the quotient rounded to the nearest, halves away from
// zero.
int div_round(int a, int b) { return a >= 0 ? (a + b / 2) / b : -((-a + b / 2) / b); }

int bits_for(int n) {
    int b = 1;
    while ((1 << b) < n) ++b;
    return b;
}

// One component of a vector difference: motion_code (the MVD table, its
// sign last) and, for f_code above 1, the residual bits.
void put_mvd(BitWriter& bw, int d, int fcode) {
    const int f = 1 << (fcode - 1);
    if (d < -32 * f) d += 64 * f;
    if (d > 32 * f - 1) d -= 64 * f;
    if (d == 0) {
        bw.put(1, 1);
        return;
    }
    const int a = std::abs(d) - 1, m = (a >> (fcode - 1)) + 1;
    const Vlc c = kMvd[32 - m];  // -m: the code of m with sign bit 1
    bw.put(d < 0 ? c.code : c.code & ~1u, c.len);
    if (fcode > 1) bw.put(static_cast<uint32_t>(a & (f - 1)), fcode - 1);
}

// Zero, then ones up to the byte boundary (at least one bit).
void next_start_code(BitWriter& bw) {
    bw.put(0, 1);
    const int n = static_cast<int>((8 - bw.bits() % 8) % 8);
    if (n) bw.put((1u << n) - 1, n);
}

// Whether an inter block's levels are worth their bits: a block whose
// levels are all +-1 and few, late in the scan, costs a code word each for
// little distortion, and is better left uncoded. Each +-1 scores by the
// zeros before it (3 right after the previous level, down to 0 after six
// or more); any larger level keeps the block.
bool worth_coding(const Kpl16s* level) {
    static constexpr int kScore[7] = {3, 2, 2, 1, 1, 1, 0};
    int score = 0, run = 0;
    for (int i = 0; i < 64; ++i) {
        const int l = level[kZigzag[i]];
        if (l == 0) {
            ++run;
            continue;
        }
        if (l > 1 || l < -1) return true;
        score += kScore[std::min(run, 6)];
        run = 0;
    }
    return score >= 3;
}

class Mpeg4Encoder final : public Encoder {
public:
    explicit Mpeg4Encoder(const EncodeOptions& opt);
    bool encode(const Picture& in, std::vector<uint8_t>* out, Picture* recon) override;
    void finish(std::vector<uint8_t>* out) override;
    const EncodeStats& stats() const override { return stats_; }

private:
    void load(const Picture& in);
    void write_sequence_header();
    void write_vop_header(bool intra, bool coded);
    double search_vop();
    double intra_complexity() const;
    void code_intra(int mx, int my, bool p_vop);
    void code_inter(int mx, int my, const KplMotionVector* v, bool four);
    void code_p(int mx, int my);
    long mb_sse(int mx, int my) const;
    int neighbours(int mx, int my) const;
    const uint8_t* src_at(int p, int x, int y) const {
        return src_.data(p) + static_cast<intptr_t>(y) * src_.stride(p) + x;
    }

    EncodeOptions opt_;
    EncodeStats stats_;
    int cw_, ch_, mbw_, mbh_;
    int time_bits_;
    Frame src_, cur_, ref_;
    BitWriter bw_;
    int qp_;
    int p_qp_ = 0;       // the quantiser of the last predicted VOP
    long i_bits_ = 0;    // bits of the last intra VOP
    double p_bits_ = 0;  // bits of the predicted VOPs, a running mean
    double miss_ = 1;    // their bits over the model's targets, a running mean
    Kpl32s target_ = 0;
    int fcode_ = 1;
    int rounding_ = 0;
    int lambda_ = 0;
    int zero_block_ = 0;  // a residual block below this sum of |d| has no level
    long index_ = 0;
    long seconds_ = 0;  // whole seconds of the last VOP's time
    int skip_ = 0;      // VOPs the rate control asked to drop
    long texture_bits_ = 0;
    bool rc_on_;
    KplRateControl_MPEG4 rc_{};
    // Per macroblock: the vectors (four each, as the decoder keeps them),
    // the first pass's vector and SAD, intra flags and intra predictors.
    std::vector<KplMotionVector> mv_, search_mv_, search_mv4_;
    std::vector<int> search_sad_, search_sad4_;
    std::vector<uint8_t> search_four_;
    std::vector<uint8_t> intra_;
    std::vector<KplMPEG4IntraPred> pred_;
    std::vector<Kpl16u> sums_;  // 8x8 block sums of the reference
    // What a trial coding of a macroblock left: its bits, reconstruction and
    // the records later macroblocks predict from.
    struct Trial {
        std::vector<uint8_t> bytes;
        size_t end = 0;
        long texture_bits = 0;
        alignas(16) uint8_t y[16 * 16], c[2][8 * 8];
        KplMotionVector mv[4];
        KplMPEG4IntraPred pred[6];
        uint8_t intra = 0;
    };
    Trial kept_;
    void keep(int mx, int my, size_t mark, Trial* t);
    void restore(int mx, int my, size_t mark, const Trial& t);
    void code_skip(int mx, int my);
};

Mpeg4Encoder::Mpeg4Encoder(const EncodeOptions& opt) : opt_(opt) {
    cw_ = (opt.width + 15) & ~15;
    ch_ = (opt.height + 15) & ~15;
    mbw_ = cw_ / 16;
    mbh_ = ch_ / 16;
    time_bits_ = bits_for(opt.fps_num);
    src_ = Frame(cw_, ch_, Chroma::c420, kPad);
    cur_ = Frame(cw_, ch_, Chroma::c420, kPad);
    ref_ = Frame(cw_, ch_, Chroma::c420, kPad);
    const size_t mbs = static_cast<size_t>(mbw_) * mbh_;
    mv_.assign(mbs * 4, KplMotionVector{0, 0});
    search_mv_.assign(mbs * 4, KplMotionVector{0, 0});
    search_mv4_.assign(mbs * 4, KplMotionVector{0, 0});
    search_sad_.assign(mbs, 0);
    search_sad4_.assign(mbs, 0);
    search_four_.assign(mbs, 0);
    intra_.assign(mbs, 0);
    pred_.assign(mbs * 6, kAbsent);
    // The vector range: the smallest f_code whose range holds the search.
    const int unit = opt.qpel ? 4 : 2;
    while (fcode_ < 7 && (32 * (1 << (fcode_ - 1)) - 1) / unit < opt.search_range) ++fcode_;
    rc_on_ = opt.qscale == 0;
    if (rc_on_) {
        // The first quantiser from the bits per sample; the model takes over
        // once it has seen a VOP.
        const double bpp =
            static_cast<double>(opt.bitrate) * opt.fps_den / opt.fps_num / (opt.width * opt.height);
        qp_ = bpp > 0.4 ? 3 : bpp > 0.2 ? 5 : bpp > 0.1 ? 8 : bpp > 0.05 ? 12 : 18;
        const long total = opt.frames > 0 ? opt.frames : 3600L * opt.fps_num / opt.fps_den + 1;
        // A buffer of one second: room for an intra VOP at every bit rate.
        kpliRateControlInit_MPEG4(&rc_, static_cast<Kpl32s>(opt.bitrate), opt.fps_num, opt.fps_den,
                                  static_cast<Kpl32s>(std::min(total, 1L << 30)),
                                  static_cast<Kpl32s>(std::min(opt.bitrate, 1L << 30)), qp_);
    } else {
        qp_ = opt.qscale;
    }
}

// The input, extended to whole macroblocks by repeating its last column and
// row.
void Mpeg4Encoder::load(const Picture& in) {
    for (int p = 0; p < 3; ++p) {
        const int w = p ? (in.width + 1) / 2 : in.width, h = p ? (in.height + 1) / 2 : in.height;
        const int fw = src_.plane_width(p), fh = src_.plane_height(p);
        for (int y = 0; y < fh; ++y) {
            const uint8_t* s = in.plane[p] + static_cast<intptr_t>(std::min(y, h - 1)) * in.stride[p];
            uint8_t* d = src_.data(p) + static_cast<intptr_t>(y) * src_.stride(p);
            std::memcpy(d, s, static_cast<size_t>(w));
            std::memset(d + w, s[w - 1], static_cast<size_t>(fw - w));
        }
    }
}

// Visual object sequence, visual object and video object layer headers.
void Mpeg4Encoder::write_sequence_header() {
    bw_.reserve(64);
    const int mbs = mbw_ * mbh_;
    // Simple Profile levels by size: L1 (QCIF), L3 (CIF), L4a, L5, L6;
    // Advanced Simple Profile (quarter samples): L1, L3, L4, L5.
    const int level = opt_.qpel ? (mbs <= 99    ? 0xF1
                                   : mbs <= 396 ? 0xF3
                                   : mbs <= 792 ? 0xF4
                                                : 0xF5)
                                : (mbs <= 99     ? 1
                                   : mbs <= 396  ? 3
                                   : mbs <= 1200 ? 4
                                   : mbs <= 1620 ? 5
                                                 : 6);
    bw_.put(0x1B0, 32);  // visual_object_sequence_start_code
    bw_.put(static_cast<uint32_t>(level), 8);
    bw_.put(0x1B5, 32);  // visual_object_start_code
    bw_.put(0, 1);       // no visual object identifier
    bw_.put(1, 4);       // video
    bw_.put(0, 1);       // no video signal type
    next_start_code(bw_);
    bw_.put(0x100, 32);  // video_object_start_code
    bw_.put(0x120, 32);  // video_object_layer_start_code
    bw_.put(0, 1);       // random_accessible_vol
    if (opt_.qpel) {
        bw_.put(17, 8);  // Advanced Simple object type
        bw_.put(1, 1);   // object layer identifier:
        bw_.put(2, 4);   //   version 2 (it has quarter_sample)
        bw_.put(1, 3);   //   priority 1
    } else {
        bw_.put(1, 8);  // Simple object type
        bw_.put(0, 1);  // no object layer identifier (version 1)
    }
    bw_.put(1, 4);  // square samples
    bw_.put(1, 1);  // vol_control_parameters:
    bw_.put(1, 2);  //   4:2:0
    bw_.put(1, 1);  //   low delay (no B-VOPs)
    bw_.put(0, 1);  //   no VBV parameters
    bw_.put(0, 2);  // rectangular
    bw_.put(1, 1);
    bw_.put(static_cast<uint32_t>(opt_.fps_num), 16);  // vop_time_increment_resolution
    bw_.put(1, 1);
    bw_.put(0, 1);  // no fixed_vop_rate: each VOP says its time
    bw_.put(1, 1);
    bw_.put(static_cast<uint32_t>(opt_.width), 13);
    bw_.put(1, 1);
    bw_.put(static_cast<uint32_t>(opt_.height), 13);
    bw_.put(1, 1);
    bw_.put(0, 1);                  // progressive
    bw_.put(1, 1);                  // obmc_disable
    bw_.put(0, opt_.qpel ? 2 : 1);  // no sprite
    bw_.put(0, 1);                  // 8-bit samples
    bw_.put(opt_.mpeg_quant ? 1 : 0, 1);
    if (opt_.mpeg_quant) bw_.put(0, 2);  // the default intra and inter matrices
    if (opt_.qpel) bw_.put(1, 1);        // quarter_sample
    bw_.put(1, 1);                       // complexity_estimation_disable
    bw_.put(1, 1);                       // resync_marker_disable: one packet per VOP
    bw_.put(0, 1);                       // not data partitioned
    if (opt_.qpel) bw_.put(0, 2);        // no NEWPRED, no reduced resolution
    bw_.put(0, 1);                       // not scalable
    next_start_code(bw_);
}

void Mpeg4Encoder::write_vop_header(bool intra, bool coded) {
    bw_.reserve(64);
    bw_.put(0x1B6, 32);
    bw_.put(intra ? 0 : 1, 2);
    // Time in ticks of 1 / fps_num s: modulo_time_base counts the seconds
    // since the last VOP's, the increment is the rest.
    const long t = index_ * opt_.fps_den, secs = t / opt_.fps_num;
    for (long s = seconds_; s < secs; ++s) bw_.put(1, 1);
    seconds_ = secs;
    bw_.put(0, 1);
    bw_.put(1, 1);
    bw_.put(static_cast<uint32_t>(t % opt_.fps_num), time_bits_);
    bw_.put(1, 1);
    bw_.put(coded ? 1 : 0, 1);
    if (!coded) return;
    if (!intra) bw_.put(static_cast<uint32_t>(rounding_), 1);
    bw_.put(0, 3);  // intra_dc_vlc_thr 0: DC codes always
    bw_.put(static_cast<uint32_t>(qp_), 5);
    if (!intra) bw_.put(static_cast<uint32_t>(fcode_), 3);
}

// Bits of `available` for kpliPredictMV_MPEG4: left, above, above right.
int Mpeg4Encoder::neighbours(int mx, int my) const {
    return (mx > 0 ? 1 : 0) | (my > 0 ? 2 : 0) | (my > 0 && mx + 1 < mbw_ ? 4 : 0);
}

// Mean absolute deviation of the luma samples: an intra VOP's complexity.
double Mpeg4Encoder::intra_complexity() const {
    double sum = 0;
    for (int my = 0; my < mbh_; ++my)
        for (int mx = 0; mx < mbw_; ++mx) {
            Kpl32s dev = 0;
            kpliMeanAbsDev16x16_8u32s_C1R(src_at(0, 16 * mx, 16 * my), src_.stride(0), &dev);
            sum += dev;
        }
    return sum / (static_cast<double>(cw_) * ch_);
}

// First pass of a P-VOP: every macroblock's vector and SAD; returns the
// mean absolute residual per luma sample.
double Mpeg4Encoder::search_vop() {
    const int f = 1 << (fcode_ - 1), unit = opt_.qpel ? 4 : 2;
    const int range = std::min(opt_.search_range, (32 * f - 1) / unit);
    // Displacements within the range that keep a block inside the
    // reference's borders, which repeat the edges of the picture (not of
    // its whole macroblocks), less two samples: the chroma vector rounds
    // half a sample outward and its interpolation reads one more.
    const int edge = kPad - 2;
    auto window = [&](int bx, int by, int side) {
        const int x0 = std::max(-range, -edge - bx), x1 = std::min(range, opt_.width + edge - side - bx);
        const int y0 = std::max(-range, -edge - by), y1 = std::min(range, opt_.height + edge - side - by);
        return KpliRect{x0, y0, x1 - x0 + 1, y1 - y0 + 1};
    };
    // The 8x8 block sums of the whole reference, borders included, for the
    // successive-elimination searches: one plane serves every macroblock's
    // window, and its sums bound each 16x16 block by its four quarters.
    const int sw = cw_ + 2 * kPad - 7, sh = ch_ + 2 * kPad - 7;
    sums_.resize(static_cast<size_t>(sw) * sh);
    kpliBlockSums8x8_8u16u_C1R(ref_.data(0) - kPad - static_cast<intptr_t>(kPad) * ref_.stride(0),
                               ref_.stride(0), sums_.data(), 2 * sw, KpliSize{sw, sh});
    double sum = 0;
    for (int my = 0; my < mbh_; ++my)
        for (int mx = 0; mx < mbw_; ++mx) {
            const int mb = my * mbw_ + mx;
            KplMotionVector* sv = &search_mv_[static_cast<size_t>(mb) * 4];
            KplMESearch s{};
            s.window = window(16 * mx, 16 * my, 16);
            kpliPredictMV_MPEG4(sv, 4 * mbw_, 0, neighbours(mx, my), &s.pred);
            s.lambda = lambda_;
            s.fcode = fcode_;
            s.quarterSample = opt_.qpel ? 1 : 0;
            s.tieRule = KPLVC_ME_TIE_ZERO;
            KplMVFAST m{};
            m.available = neighbours(mx, my);
            if (mx > 0) m.neighbour[0] = sv[-4 + 1];
            if (my > 0) m.neighbour[1] = sv[-4 * mbw_ + 2];
            if (m.available & 4) m.neighbour[2] = sv[-4 * mbw_ + 4 + 2];
            m.activityLow = 1;
            m.activityHigh = 2;
            m.stopSAD = 512;
            const uint8_t* cur = src_at(0, 16 * mx, 16 * my);
            const int rs = ref_.stride(0), ss = src_.stride(0);
            const uint8_t* ref = ref_.data(0) + static_cast<intptr_t>(16 * my) * rs + 16 * mx;
            KplMotionVector v;
            Kpl32s sad;
            kpliSearchMVFAST16x16_8u32s_C1R(cur, ss, ref, rs, &s, &m, &v, &sad);
            if (sad > 256) {
                // MVFAST walks downhill from a few candidates; on texture, and
                // where objects move across flat areas, the SAD surface has no
                // slope toward the true vector. Then the exact search of the
                // window, pruned by the block sums.
                // MVFAST's vector goes first: its J starts the pruning.
                const KplMotionVector start = v;
                kpliSearchSEAQuarters16x16_8u32s_C1R(
                    cur, ss, ref, rs,
                    sums_.data() + static_cast<intptr_t>(16 * my + kPad) * sw + 16 * mx + kPad, 2 * sw, &s,
                    &start, &v, &sad);
            }
            if (opt_.qpel) {
                kpliRefineQPel16x16_8u32s_C1R(cur, ss, ref, rs, &s, rounding_, 2, &v, &sad);
                kpliRefineQPel16x16_8u32s_C1R(cur, ss, ref, rs, &s, rounding_, 1, &v, &sad);
            } else {
                kpliRefineHalf16x16_8u32s_C1R(cur, ss, ref, rs, &s, rounding_, &v, &sad);
            }
            for (int b = 0; b < 4; ++b) sv[b] = v;
            search_four_[static_cast<size_t>(mb)] = 0;
            search_sad4_[static_cast<size_t>(mb)] = INT32_MAX;
            search_sad_[static_cast<size_t>(mb)] = sad;
            if (opt_.four_mv && sad > 64 * qp_) {
                // Four vectors, where the one leaves enough residual: each
                // 8x8 block searched two samples around the macroblock's
                // vector, then refined. They replace it
                // when their SADs save more than three more vector codes
                // cost (about 4 qp each).
                const int cx = v.dx >> (unit / 2), cy = v.dy >> (unit / 2);
                KplMotionVector v4[4];
                int sum4 = 0;
                for (int b = 0; b < 4; ++b) {
                    const int bx = 16 * mx + 8 * (b & 1), by = 16 * my + 8 * (b >> 1);
                    KplMESearch s8 = s;
                    const KpliRect w = window(bx, by, 8);
                    const int x0 = std::max(w.x, cx - 2), x1 = std::min(w.x + w.width - 1, cx + 2);
                    const int y0 = std::max(w.y, cy - 2), y1 = std::min(w.y + w.height - 1, cy + 2);
                    s8.window = KpliRect{x0, y0, x1 - x0 + 1, y1 - y0 + 1};
                    kpliPredictMV_MPEG4(sv, 4 * mbw_, b, neighbours(mx, my), &s8.pred);
                    const uint8_t* c8 = src_at(0, bx, by);
                    const uint8_t* r8 = ref_.data(0) + static_cast<intptr_t>(by) * rs + bx;
                    Kpl32s sad8;
                    kpliSearchFull8x8_8u32s_C1R(c8, ss, r8, rs, &s8, &v4[b], &sad8);
                    if (opt_.qpel) {
                        kpliRefineQPel8x8_8u32s_C1R(c8, ss, r8, rs, &s8, rounding_, 2, &v4[b], &sad8);
                        kpliRefineQPel8x8_8u32s_C1R(c8, ss, r8, rs, &s8, rounding_, 1, &v4[b], &sad8);
                    } else {
                        kpliRefineHalf8x8_8u32s_C1R(c8, ss, r8, rs, &s8, rounding_, &v4[b], &sad8);
                    }
                    sv[b] = v4[b];  // the next block's predictor sees it
                    sum4 += sad8;
                }
                search_sad4_[static_cast<size_t>(mb)] = sum4;
                for (int b = 0; b < 4; ++b) search_mv4_[static_cast<size_t>(mb) * 4 + b] = v4[b];
                if (sum4 + 12 * qp_ < sad) {
                    search_four_[static_cast<size_t>(mb)] = 1;
                    sad = sum4;
                } else {
                    for (int b = 0; b < 4; ++b) sv[b] = v;
                }
            }
            sum += sad;
        }
    return sum / (static_cast<double>(cw_) * ch_);
}

bool Mpeg4Encoder::encode(const Picture& in, std::vector<uint8_t>* out, Picture* recon) {
    if (in.width != opt_.width || in.height != opt_.height) return false;
    load(in);
    const bool intra = index_ == 0 || (opt_.gop > 0 && index_ % opt_.gop == 0);
    const size_t start = bw_.bits();
    if (index_ == 0) write_sequence_header();
    std::fill(intra_.begin(), intra_.end(), 0);
    std::fill(mv_.begin(), mv_.end(), KplMotionVector{0, 0});
    if (skip_ > 0 && !intra) {
        // Dropped by the rate control: a VOP of macroblocks that are not
        // coded, so that every input picture has its output picture.
        --skip_;
        rounding_ ^= 1;
        write_vop_header(false, true);
        for (int i = 0; i < mbw_ * mbh_; ++i) {
            bw_.reserve(8);
            bw_.put(1, 1);
        }
        next_start_code(bw_);
        const size_t bits = bw_.bits() - start;
        bw_.flush_to(out);
        stats_.frames++;
        stats_.bytes += (bits + 7) / 8;
        ++index_;
        if (recon) {
            *recon = ref_.picture();
            recon->width = opt_.width;
            recon->height = opt_.height;
        }
        return true;
    }
    if (!intra) rounding_ ^= 1;  // alternating rounding keeps half-sample drift away
    lambda_ = 16 * qp_;          // a bit of vector code is worth qp SAD units
    const double mad = intra ? intra_complexity() : search_vop();
    if (rc_on_ && index_ == 0) {
        // The first VOP, before the model has seen any: intra bits are
        // about half the mean absolute deviation per sample over the
        // quantiser (0.4 to 0.6 on natural and synthetic pictures), and
        // the first intra VOP may take five VOPs' share of the rate.
        const double samples = static_cast<double>(opt_.width) * opt_.height;
        qp_ = std::clamp(static_cast<int>(std::lround(0.5 * mad * samples / (5 * rc_.bitsPerVOP))), 2, 31);
        p_qp_ = qp_;
    } else if (rc_on_ && !intra) {
        // The buffer takes an intra VOP's excess over a predicted one at
        // once, and the predicted VOPs after it are squeezed to drain it,
        // while those before the next intra VOP spend freely: the model
        // plans with the excess of the next intra VOP (as the last one took
        // it) owed in the buffer in proportion to the part of its group
        // already coded. So each group pays for its own intra VOP, and the
        // clip's last one is paid before the clip ends. And the model's
        // misses on predicted VOPs (a running ratio of bits to target)
        // scale its prices.
        KplRateControl_MPEG4 plan = rc_;
        if (opt_.gop > 0 && i_bits_ > 0 && rc_.vopsLeft > opt_.gop - index_ % opt_.gop) {
            const double excess = std::max(0.0, static_cast<double>(i_bits_) - p_bits_);
            plan.bufferLevel =
                std::min(rc_.bufferLevel + excess * (index_ % opt_.gop) / opt_.gop, rc_.bufferSize);
        }
        plan.x1 *= miss_;
        plan.x2 *= miss_;
        kpliRateControlQP_MPEG4(&plan, mad, &qp_, &target_);
        p_qp_ = qp_;
    } else if (rc_on_) {
        // An intra VOP a step finer than the predicted ones around it: they
        // all predict from it. (The model's history holds predicted VOPs
        // only, and would price it coarser.)
        qp_ = std::max(p_qp_ - 1, 1);
    }
    zero_block_ = 4 * ((opt_.mpeg_quant ? 2 * qp_ : 2 * qp_ + qp_ / 2) - 1);
    const size_t vop_start = bw_.bits();
    write_vop_header(intra, true);
    texture_bits_ = 0;
    for (int my = 0; my < mbh_; ++my)
        for (int mx = 0; mx < mbw_; ++mx) {
            if (intra) {
                code_intra(mx, my, false);
                continue;
            }
            code_p(mx, my);
        }
    bw_.reserve(8);
    next_start_code(bw_);
    const size_t bits = bw_.bits() - start;
    const long vop_bits = static_cast<long>(bw_.bits() - vop_start);
    bw_.flush_to(out);
    stats_.frames++;
    stats_.intra_frames += intra;
    stats_.bytes += (bits + 7) / 8;
    stats_.last_qp = qp_;
    if (rc_on_) {
        // An intra VOP after the first is booked against the budget and the
        // buffer but kept out of the model (all its bits counted as
        // header): its bits per unit of complexity are not those of the
        // predicted VOPs the model prices, and one of them in the window
        // misleads the next predicted VOPs' quantisers.
        Kpl32s skip = 0;
        const bool model = !intra || index_ == 0;
        const long header = model ? std::clamp(vop_bits - texture_bits_, 0L, static_cast<long>(bits))
                                  : static_cast<long>(bits);
        kpliRateControlUpdate_MPEG4(&rc_, qp_, static_cast<Kpl32s>(bits), static_cast<Kpl32s>(header), mad,
                                    &skip);
        skip_ = skip;
        if (intra)
            i_bits_ = static_cast<long>(bits);
        else
            p_bits_ =
                p_bits_ > 0 ? 0.9 * p_bits_ + 0.1 * static_cast<double>(bits) : static_cast<double>(bits);
        if (!intra && target_ > 0)
            miss_ = std::clamp(0.9 * miss_ + 0.1 * static_cast<double>(bits) / target_, 0.8, 1.25);
    }
    ++index_;
    std::swap(cur_, ref_);
    // The borders repeat the picture's edges, as a decoder's do: beyond
    // its last column and row, not the macroblocks'.
    for (int p = 0; p < 3; ++p)
        kpliExpandFrame_H263_8u(
            ref_.data(p) - ref_.pad(p) - static_cast<intptr_t>(ref_.pad(p)) * ref_.stride(p),
            p ? (opt_.width + 1) / 2 : opt_.width, p ? (opt_.height + 1) / 2 : opt_.height, ref_.pad(p),
            ref_.stride(p));
    if (recon) {
        *recon = ref_.picture();
        recon->width = opt_.width;
        recon->height = opt_.height;
    }
    return true;
}

// No end code: decoders take the stream's end for it, and some report a
// lone visual_object_sequence_end_code as a damaged VOP.
void Mpeg4Encoder::finish(std::vector<uint8_t>*) {}

// Sum of squared differences between the macroblock's reconstruction and
// its source, luma and chroma.
long Mpeg4Encoder::mb_sse(int mx, int my) const {
    Kpl32s y = 0;
    kpliSqrDiff16x16_8u32s(src_at(0, 16 * mx, 16 * my), src_.stride(0),
                           cur_.data(0) + static_cast<intptr_t>(16 * my) * cur_.stride(0) + 16 * mx,
                           cur_.stride(0), 0, &y);
    long sse = y;
    for (int p = 1; p < 3; ++p) {
        const uint8_t* a = src_at(p, 8 * mx, 8 * my);
        const uint8_t* b = cur_.data(p) + static_cast<intptr_t>(8 * my) * cur_.stride(p) + 8 * mx;
        for (int r = 0; r < 8; ++r)
            for (int c = 0; c < 8; ++c) {
                const int d = a[r * src_.stride(p) + c] - b[r * cur_.stride(p) + c];
                sse += d * d;
            }
    }
    return sse;
}

// Saves a trial's bits (from bit `mark`), reconstruction and records /
// puts them back.
void Mpeg4Encoder::keep(int mx, int my, size_t mark, Trial* t) {
    const size_t mb = static_cast<size_t>(my * mbw_ + mx);
    bw_.save(mark, &t->bytes);
    t->end = bw_.bits();
    t->texture_bits = texture_bits_;
    kpliCopyBlock_16x16_8u(cur_.data(0) + static_cast<intptr_t>(16 * my) * cur_.stride(0) + 16 * mx,
                           cur_.stride(0), t->y, 16);
    for (int p = 1; p < 3; ++p)
        kpliCopyBlock_8x8_8u(cur_.data(p) + static_cast<intptr_t>(8 * my) * cur_.stride(p) + 8 * mx,
                             cur_.stride(p), t->c[p - 1], 8);
    std::memcpy(t->mv, &mv_[mb * 4], sizeof t->mv);
    std::memcpy(t->pred, &pred_[mb * 6], sizeof t->pred);
    t->intra = intra_[mb];
}

void Mpeg4Encoder::restore(int mx, int my, size_t mark, const Trial& t) {
    const size_t mb = static_cast<size_t>(my * mbw_ + mx);
    bw_.restore(mark, t.bytes, t.end);
    texture_bits_ = t.texture_bits;
    kpliCopyBlock_16x16_8u(t.y, 16, cur_.data(0) + static_cast<intptr_t>(16 * my) * cur_.stride(0) + 16 * mx,
                           cur_.stride(0));
    for (int p = 1; p < 3; ++p)
        kpliCopyBlock_8x8_8u(t.c[p - 1], 8,
                             cur_.data(p) + static_cast<intptr_t>(8 * my) * cur_.stride(p) + 8 * mx,
                             cur_.stride(p));
    std::memcpy(&mv_[mb * 4], t.mv, sizeof t.mv);
    std::memcpy(&pred_[mb * 6], t.pred, sizeof t.pred);
    intra_[mb] = t.intra;
}

// A macroblock of a P-VOP, its mode chosen by rate and distortion: each
// candidate is coded (bits and reconstruction exactly as they will be), and
// the one of least SSE + lambda * bits is kept, lambda = 0.85 QP^2 (the
// usual choice for H.263-style quantisers: their step is 2 QP). The
// candidates: one vector, not coded (when the vector is not zero: with a
// zero vector the one-vector coding is already "not coded" when nothing
// survives quantisation), four vectors when their search found
// clearly less residual, and intra when the best so far costs more than
// 300 bits' worth (below that intra hardly ever wins, and trying it costs
// as much as coding the other modes together).
void Mpeg4Encoder::code_p(int mx, int my) {
    const size_t mb = static_cast<size_t>(my * mbw_ + mx);
    const size_t mark = bw_.bits();
    const long tex0 = texture_bits_;
    const long lambda = (85 * qp_ * qp_ + 50) / 100;
    enum Mode { kOne, kSkip, kFour, kIntra };
    long best_cost = 0;
    int best = -1;
    bool saved = false;
    auto trial = [&](Mode mode) {
        if (best >= 0 && !saved) {
            keep(mx, my, mark, &kept_);  // the best so far is the last one coded
            saved = true;
        }
        if (best >= 0) {
            bw_.rewind(mark);
            texture_bits_ = tex0;
            intra_[mb] = 0;
            for (int b = 0; b < 4; ++b) mv_[mb * 4 + b] = KplMotionVector{0, 0};
        }
        switch (mode) {
            case kOne:
                code_inter(mx, my, &search_mv_[mb * 4], false);
                break;
            case kSkip:
                code_skip(mx, my);
                break;
            case kFour:
                code_inter(mx, my, &search_mv4_[mb * 4], true);
                break;
            case kIntra:
                code_intra(mx, my, true);
                break;
        }
        const long cost = mb_sse(mx, my) + lambda * static_cast<long>(bw_.bits() - mark);
        if (best < 0 || cost < best_cost) {
            best = mode;
            best_cost = cost;
            saved = false;
        }
    };
    trial(kOne);
    const KplMotionVector v = search_mv_[mb * 4];
    if (v.dx != 0 || v.dy != 0) trial(kSkip);
    if (search_sad4_[mb] != INT32_MAX && search_sad_[mb] - search_sad4_[mb] > 8 * qp_) trial(kFour);
    if (best_cost > 300 * lambda) trial(kIntra);
    if (saved) restore(mx, my, mark, kept_);
}

// A macroblock that is not coded: the reference's co-located one.
void Mpeg4Encoder::code_skip(int mx, int my) {
    bw_.reserve(8);
    bw_.put(1, 1);
    kpliCopyBlock_16x16_8u(
        ref_.data(0) + static_cast<intptr_t>(16 * my) * ref_.stride(0) + 16 * mx, ref_.stride(0),
        cur_.data(0) + static_cast<intptr_t>(16 * my) * cur_.stride(0) + 16 * mx, cur_.stride(0));
    for (int p = 1; p < 3; ++p)
        kpliCopyBlock_8x8_8u(
            ref_.data(p) + static_cast<intptr_t>(8 * my) * ref_.stride(p) + 8 * mx, ref_.stride(p),
            cur_.data(p) + static_cast<intptr_t>(8 * my) * cur_.stride(p) + 8 * mx, cur_.stride(p));
}

// ---- Macroblocks -------------------------------------------------------------------

// An intra macroblock: DC and (when it saves) AC prediction from the
// neighbours' records, then the blocks' codes. The records and the
// reconstruction come from the library's prediction and inverse path, as
// in the decoder.
void Mpeg4Encoder::code_intra(int mx, int my, bool p_vop) {
    const int mb = my * mbw_ + mx;
    intra_[static_cast<size_t>(mb)] = 1;
    KplMPEG4IntraPred* rec = &pred_[static_cast<size_t>(mb) * 6];
    auto other = [&](int x, int y, int b) -> const KplMPEG4IntraPred* {
        if (x < 0 || y < 0 || x >= mbw_) return &kAbsent;
        const int n = y * mbw_ + x;
        return intra_[static_cast<size_t>(n)] ? &pred_[static_cast<size_t>(n) * 6 + b] : &kAbsent;
    };
    // Levels without (lev) and with (acl) AC prediction.
    alignas(16) Kpl16s lev[6][64], acl[6][64];
    int dir[6];
    long gain = 0;
    bool ac_ok = true;
    for (int b = 0; b < 6; ++b) {
        const int p = b < 4 ? 0 : b - 3;
        const int x = b < 4 ? 16 * mx + (b & 1) * 8 : 8 * mx, y = b < 4 ? 16 * my + (b >> 1) * 8 : 8 * my;
        const KplMPEG4IntraPred *A, *B, *C;
        if (b < 4) {
            // Left, above-left and above 8x8 blocks, inside or outside
            // this macroblock.
            static constexpr int8_t kN[4][3][3] = {
                {{-1, 0, 1}, {-1, -1, 3}, {0, -1, 2}},
                {{0, 0, 0}, {0, -1, 2}, {0, -1, 3}},
                {{-1, 0, 3}, {-1, 0, 1}, {0, 0, 0}},
                {{0, 0, 2}, {0, 0, 0}, {0, 0, 1}},
            };
            const KplMPEG4IntraPred* n[3];
            for (int k = 0; k < 3; ++k) {
                const int8_t* e = kN[b][k];
                n[k] = (e[0] == 0 && e[1] == 0) ? &rec[e[2]] : other(mx + e[0], my + e[1], e[2]);
            }
            A = n[0], B = n[1], C = n[2];
        } else {
            A = other(mx - 1, my, b);
            B = other(mx - 1, my - 1, b);
            C = other(mx, my - 1, b);
        }
        alignas(16) Kpl16s c[64];
        kpliDCT8x8Fwd_8u16s_C1R(src_at(p, x, y), src_.stride(p), c);
        Kpl32s nz;
        if (opt_.mpeg_quant)
            kpliQuantIntra_MPEG4_16s_C1I(c, qp_, kDefaultIntraMatrix, b, &nz);
        else
            kpliQuantIntraH263_MPEG4_16s_C1I(c, qp_, b, &nz);
        Kpl32s d;
        kpliPredictDirIntra_MPEG4(A, B, C, &d);
        dir[b] = d;
        const KplMPEG4IntraPred* P = d == KPLVC_PRED_LEFT ? A : C;
        std::memcpy(lev[b], c, sizeof c);
        lev[b][0] = static_cast<Kpl16s>(c[0] - div_round(P->dc, dc_scaler(qp_, b >= 4)));
        std::memcpy(acl[b], lev[b], sizeof c);
        // The decoder adds (predicted * its quantiser) // QP to the first
        // row (from above) or column (from the left).
        for (int k = 1; k < 8; ++k) {
            const int pos = d == KPLVC_PRED_TOP ? k : 8 * k;
            const int pv = d == KPLVC_PRED_TOP ? P->row[k - 1] : P->col[k - 1];
            const int r = lev[b][pos] - (P->qp ? div_round(pv * P->qp, qp_) : 0);
            if (r < -2047 || r > 2047) ac_ok = false;
            acl[b][pos] = static_cast<Kpl16s>(std::clamp(r, -2047, 2047));
            gain += std::abs(lev[b][pos]) - std::abs(r);
        }
        // The record and the reconstruction do not depend on the AC
        // prediction flag: the decoder's levels are the same either way.
        alignas(16) Kpl16s r[64];
        std::memcpy(r, lev[b], sizeof r);
        kpliPredictReconIntra_MPEG4_16s(r, P, &rec[b], d, 0, qp_, b);
        if (opt_.mpeg_quant)
            kpliQuantInvIntra_MPEG4_16s_C1I(r, qp_, kDefaultIntraMatrix);
        else
            kpliQuantInvIntraH263_MPEG4_16s_C1I(r, qp_);
        kpliDCT8x8Inv_16s8u_C1R(r, cur_.data(p) + static_cast<intptr_t>(y) * cur_.stride(p) + x,
                                cur_.stride(p));
    }
    const bool ac = ac_ok && gain > 0;
    int cbp = 0;
    for (int b = 0; b < 6; ++b) {
        const Kpl16s* l = ac ? acl[b] : lev[b];
        for (int i = 1; i < 64; ++i)
            if (l[i]) {
                cbp |= 32 >> b;
                break;
            }
    }
    const int cbpy = cbp >> 2, cbpc = cbp & 3;
    bw_.reserve(4096);
    if (p_vop) bw_.put(0, 1);  // coded
    const Vlc m = p_vop ? kMcbpcInter[3][cbpc] : kMcbpcIntra[0][cbpc];
    bw_.put(m.code, m.len);
    bw_.put(ac ? 1 : 0, 1);
    bw_.put(kCbpy[15 - cbpy].code, kCbpy[15 - cbpy].len);
    const size_t t0 = bw_.bits();
    for (int b = 0; b < 6; ++b) {
        BitWriter::Position at = bw_.position();
        const Kpl16s* l = ac ? acl[b] : lev[b];
        kpliEncodeDCIntra_MPEG4_16s1u(l[0], &at.p, &at.off, b);
        if (cbp & (32 >> b)) {
            const int scan = !ac ? KPLVC_SCAN_ZIGZAG
                                 : (dir[b] == KPLVC_PRED_TOP ? KPLVC_SCAN_HORIZONTAL : KPLVC_SCAN_VERTICAL);
            kpliEncodeCoeffsIntra_MPEG4_16s1u(l, &at.p, &at.off, 1, scan);
        }
        bw_.done(at);
    }
    texture_bits_ += static_cast<long>(bw_.bits() - t0);
    for (int b = 0; b < 4; ++b) mv_[static_cast<size_t>(mb) * 4 + b] = KplMotionVector{0, 0};
}

// An inter macroblock with one vector or four (vector units), or a
// macroblock that is not coded when its one vector is zero and nothing
// survives quantisation. The prediction is made first, as the decoder
// makes it (a 16x16 quarter-sample prediction mirrors its taps at the
// macroblock's edges, four 8x8 ones at each block's).
void Mpeg4Encoder::code_inter(int mx, int my, const KplMotionVector* v, bool four) {
    const int mb = my * mbw_ + mx;
    const int shift = opt_.qpel ? 2 : 1;
    const int rs = ref_.stride(0);
    alignas(32) uint8_t py[16 * 16], pc[2][8 * 8];
    auto luma = [&](int x, int y, const KplMotionVector& u, int side, uint8_t* dst) {
        const uint8_t* r = ref_.data(0) + static_cast<intptr_t>(16 * my + y + (u.dy >> shift)) * rs +
                           16 * mx + x + (u.dx >> shift);
        if (opt_.qpel)
            kpliInterpolateQPel_MPEG4_8u_C1R(r, rs, dst, 16, KpliSize{side, side},
                                             (u.dx & 3) | (u.dy & 3) << 2, rounding_);
        else if (side == 16)
            kpliMC16x16_8u_C1(r, rs, kZero, 32, dst, 16, mc_type(u.dx, u.dy), rounding_);
        else
            kpliMC8x8_8u_C1(r, rs, kZero, 16, dst, 16, mc_type(u.dx, u.dy), rounding_);
    };
    // Chroma vectors from half-sample luma vectors (quarter-sample ones are
    // halved toward zero first).
    KplMotionVector h[4], cv;
    for (int b = 0; b < 4; ++b)
        h[b] = opt_.qpel ? KplMotionVector{static_cast<Kpl16s>(v[b].dx / 2), static_cast<Kpl16s>(v[b].dy / 2)}
                         : v[b];
    if (four) {
        static const uint8_t kAll[4] = {1, 1, 1, 1};
        for (int b = 0; b < 4; ++b)
            luma(8 * (b & 1), 8 * (b >> 1), v[b], 8, py + 8 * 16 * (b >> 1) + 8 * (b & 1));
        kpliComputeChroma4MV_MPEG4(h, &cv, kAll);
    } else {
        luma(0, 0, v[0], 16, py);
        kpliComputeChromaMV_MPEG4(&h[0], &cv);
    }
    for (int c = 0; c < 2; ++c) {
        const int cs = ref_.stride(1 + c);
        const uint8_t* r =
            ref_.data(1 + c) + static_cast<intptr_t>(8 * my + (cv.dy >> 1)) * cs + 8 * mx + (cv.dx >> 1);
        kpliMC8x8_8u_C1(r, cs, kZero, 16, pc[c], 8, mc_type(cv.dx, cv.dy), rounding_);
    }
    auto pred_at = [&](int b, int* step) -> const uint8_t* {
        *step = b < 4 ? 16 : 8;
        return b < 4 ? py + 8 * 16 * (b >> 1) + 8 * (b & 1) : pc[b - 4];
    };
    auto dst_at = [&](int b) {
        const int p = b < 4 ? 0 : b - 3;
        const int x = b < 4 ? 16 * mx + (b & 1) * 8 : 8 * mx, y = b < 4 ? 16 * my + (b >> 1) * 8 : 8 * my;
        return cur_.data(p) + static_cast<intptr_t>(y) * cur_.stride(p) + x;
    };
    alignas(16) Kpl16s level[6][64];
    int cbp = 0;
    for (int b = 0; b < 6; ++b) {
        const int p = b < 4 ? 0 : b - 3;
        const int x = b < 4 ? 16 * mx + (b & 1) * 8 : 8 * mx, y = b < 4 ? 16 * my + (b >> 1) * 8 : 8 * my;
        int step;
        const uint8_t* pred = pred_at(b, &step);
        alignas(16) Kpl16s diff[64];
        kpliGetDiff8x8_8u16s_C1(src_at(p, x, y), src_.stride(p), pred, step, diff, 16, nullptr, 0,
                                KPLVC_MC_APX_FF, 0);
        // A residual too small for any level: every coefficient of the
        // DCT is at most sum |d| / 4 (plus its rounding), and a level needs
        // |F| >= 2 QP + QP / 2 (the second method) or 2 QP (the first,
        // whose inter weights are all 16 or more).
        int sum = 0;
        for (int i = 0; i < 64; ++i) sum += std::abs(diff[i]);
        if (sum < zero_block_) {
            std::memset(level[b], 0, sizeof level[b]);
            continue;
        }
        kpliDCT8x8Fwd_16s_C1(diff, level[b]);
        Kpl32s nz;
        if (opt_.mpeg_quant)
            kpliQuantInter_MPEG4_16s_C1I(level[b], qp_, kDefaultInterMatrix, &nz);
        else
            kpliQuantInterH263_MPEG4_16s_C1I(level[b], qp_, &nz);
        if (nz && !worth_coding(level[b])) {
            std::memset(level[b], 0, sizeof level[b]);
            nz = 0;
        }
        if (nz) cbp |= 32 >> b;
    }
    bw_.reserve(8192);
    KplMotionVector* mv = &mv_[static_cast<size_t>(mb) * 4];
    if (cbp == 0 && !four && v[0].dx == 0 && v[0].dy == 0) {
        bw_.put(1, 1);  // not coded: the reference's macroblock
        for (int b = 0; b < 6; ++b) {
            int step;
            const uint8_t* pred = pred_at(b, &step);
            kpliCopyBlock_8x8_8u(pred, step, dst_at(b), cur_.stride(b < 4 ? 0 : b - 3));
        }
        return;
    }
    bw_.put(0, 1);
    const int cbpy = cbp >> 2, cbpc = cbp & 3;
    const Vlc m = kMcbpcInter[four ? 2 : 0][cbpc];
    bw_.put(m.code, m.len);
    bw_.put(kCbpy[cbpy].code, kCbpy[cbpy].len);
    // Each vector after its predictor, which may be an earlier block of
    // this macroblock.
    for (int b = 0; b < 4; ++b) mv[b] = v[four ? b : 0];
    for (int b = 0; b < (four ? 4 : 1); ++b) {
        KplMotionVector pred;
        kpliPredictMV_MPEG4(mv, 4 * mbw_, b, neighbours(mx, my), &pred);
        put_mvd(bw_, v[b].dx - pred.dx, fcode_);
        put_mvd(bw_, v[b].dy - pred.dy, fcode_);
    }
    const size_t t0 = bw_.bits();
    for (int b = 0; b < 6; ++b) {
        int step;
        const uint8_t* pred = pred_at(b, &step);
        alignas(16) Kpl16s res[64];
        const Kpl16s* r = kZero;
        if (cbp & (32 >> b)) {
            BitWriter::Position at = bw_.position(), begin = at;
            kpliEncodeCoeffsInter_MPEG4_16s1u(level[b], &at.p, &at.off, KPLVC_SCAN_ZIGZAG);
            bw_.done(at);
            // The decoder's residual: its reader with inverse
            // quantisation, then the inverse DCT.
            Kpl32s last;
            kpliReconstructCoeffsInter_MPEG4_1u16s(&begin.p, &begin.off, res, &last, KPLVC_SCAN_ZIGZAG, qp_,
                                                   opt_.mpeg_quant ? kDefaultInterMatrix : nullptr);
            kpliDCT8x8Inv_16s_C1I(res);
            r = res;
        }
        kpliMC8x8_8u_C1(pred, step, r, 16, dst_at(b), cur_.stride(b < 4 ? 0 : b - 3), KPLVC_MC_APX_FF, 0);
    }
    texture_bits_ += static_cast<long>(bw_.bits() - t0);
}

}  // namespace

std::unique_ptr<Encoder> create(const EncodeOptions& opt, char* why, size_t n) {
    if (opt.width < 16 || opt.height < 16 || opt.width > 4096 || opt.height > 4096 || opt.width % 2 ||
        opt.height % 2) {
        std::snprintf(why, n, "MPEG-4 codes even sizes from 16x16 to 4096x4096");
        return nullptr;
    }
    if (opt.fps_num <= 0 || opt.fps_den <= 0 || opt.fps_num > 65535) {
        std::snprintf(why, n, "picture rate must be N/D, N in 1..65535, D positive");
        return nullptr;
    }
    if (opt.qscale < 0 || opt.qscale > 31 || (opt.qscale == 0 && opt.bitrate <= 0)) {
        std::snprintf(why, n, "give a quantiser 1..31 or a bit rate");
        return nullptr;
    }
    if (opt.deblock || opt.advanced_intra || opt.extended_header) {
        std::snprintf(why, n, "deblocking, advanced intra and extended headers are H.263 options");
        return nullptr;
    }
    return std::make_unique<Mpeg4Encoder>(opt);
}

extern const EncoderInfo kMpeg4Encoder = {"mpeg4", ".m4v", create};

}  // namespace kplvc::codecs::mpeg4
