// H.263 encoder built on the library: I and P pictures with one vector per
// macroblock, QCIF / CIF / 4CIF (and the other standard sizes) with the
// H.263 header, any other size (a multiple of 4, up to 2048x1152) with the
// PLUSPTYPE header of H.263+. Optional Annex J deblocking and Annex I
// advanced intra coding (both through the H.263+ header).
//
// Per macroblock: a motion search at whole samples (predictors, then a
// small diamond) and at half samples around the best, measured with the
// library's SAD; the intra / inter / skip decision; differences, forward
// DCT and quantisation by the library; the codes of the macroblock layer
// from the tables in h263.cpp and of the blocks from the library's writers.
// The reconstruction goes through the library's inverse path: inter
// residuals by its inverse quantiser and inverse DCT, intra blocks by
// decoding the codes just written with the same library functions the
// decoder calls (they carry the Annex I prediction), so the encoder's
// picture is exactly what its decoder shows.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/bitwriter.h"
#include "common/encoder.h"
#include "h263.h"
#include "kplvc.h"
#include "loopfilter.h"
#include "mbgrid.h"

namespace kplvc::codecs::h263 {

namespace {

constexpr int kPad = 32;

alignas(32) const Kpl16s kZero[64] = {};

inline int mc_type(int dx, int dy) {
    return ((dx & 1) ? KPLVC_MC_APX_HF : 0) | ((dy & 1) ? KPLVC_MC_APX_FH : 0);
}

// Annex I predictors of the six blocks of a macroblock: the row above and
// the column left of each block (pointers into the encoder's arrays, or
// into a scratch copy for a trial).
struct AicPredictors {
    Kpl16s* row[6];
    Kpl16s* col[6];
};

class H263Encoder final : public Encoder {
public:
    explicit H263Encoder(const EncodeOptions& opt);
    bool encode(const Picture& in, std::vector<uint8_t>* out, Picture* recon) override;
    void finish(std::vector<uint8_t>* out) override;
    const EncodeStats& stats() const override { return stats_; }

private:
    void load(const Picture& in);
    void write_header(bool intra);
    void encode_mb(int mx, int my, bool intra_picture);
    void code_intra(int mx, int my, bool intra_picture);
    bool motion_search(int mx, int my, int* best_x, int* best_y, int* best_sad);
    int sad_at(int mx, int my, int vx, int vy) const;
    bool intra_block(int mx, int my, int b, int mode, bool write, const AicPredictors& pr, uint8_t* rec,
                     int rec_step, Kpl16s* level);
    int aic_mode(int mx, int my) const;
    void rate_control(size_t bits, bool intra);

    EncodeOptions opt_;
    EncodeStats stats_;
    int cw_, ch_, mbw_, mbh_;
    int format_;
    bool plus_;
    int clock_div_ = 0;  // custom picture clock divisor (H.263+), 0: the standard clock
    Frame src_, cur_, ref_;
    MbGrid grid_;
    BitWriter bw_, scratch_;
    std::vector<uint8_t> trash_;
    int qp_;
    long index_ = 0;
    // Annex I predictors, as in the decoder: the first row of the latest
    // intra block of each block column, the first column of each block row.
    std::vector<Kpl16s> aic_row_[3], aic_col_[3];
};

H263Encoder::H263Encoder(const EncodeOptions& opt) : opt_(opt) {
    cw_ = (opt.width + 15) & ~15;
    ch_ = (opt.height + 15) & ~15;
    mbw_ = cw_ / 16;
    mbh_ = ch_ / 16;
    format_ = format_of(opt.width, opt.height);
    const bool standard_clock = static_cast<long long>(opt.fps_num) * 1001 == 30000LL * opt.fps_den;
    plus_ = opt.extended_header || opt.deblock || opt.advanced_intra || format_ == kCustom;
    if (plus_ && !standard_clock) {
        // A custom clock of 1.8 MHz / (1000 * divisor), the closest to the
        // picture rate: 72 gives 25 Hz, 60 gives 30 Hz.
        const double d = 1800.0 * opt.fps_den / opt.fps_num;
        clock_div_ = std::clamp(static_cast<int>(std::lround(d)), 1, 127);
    }
    src_ = Frame(cw_, ch_, Chroma::c420, kPad);
    cur_ = Frame(cw_, ch_, Chroma::c420, kPad);
    ref_ = Frame(cw_, ch_, Chroma::c420, kPad);
    grid_.resize(mbw_, mbh_);
    for (int p = 0; p < 3; ++p) {
        aic_row_[p].assign(static_cast<size_t>(p ? mbw_ : 2 * mbw_) * 8, 0);
        aic_col_[p].assign(static_cast<size_t>(p ? mbh_ : 2 * mbh_) * 8, 0);
    }
    qp_ = opt.qscale > 0 ? opt.qscale : 10;
}

// The input, extended to whole macroblocks by repeating its last column and
// row.
void H263Encoder::load(const Picture& in) {
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

void H263Encoder::write_header(bool intra) {
    bw_.reserve(64);
    bw_.put(0x20, 22);  // PSC: 0000 0000 0000 0000 1 00000
    int tr;
    if (clock_div_) {
        const double clock = 1800000.0 / (1000.0 * clock_div_);
        tr = static_cast<int>(std::lround(index_ * clock * opt_.fps_den / opt_.fps_num)) & 1023;
    } else {
        tr = static_cast<int>(std::lround(index_ * 30000.0 * opt_.fps_den / (1001.0 * opt_.fps_num))) & 255;
    }
    bw_.put(static_cast<uint32_t>(tr & 255), 8);
    bw_.put(2, 2);  // PTYPE: '1', '0'
    bw_.put(0, 3);  // no split screen, document camera, freeze release
    if (!plus_) {
        bw_.put(static_cast<uint32_t>(format_), 3);
        bw_.put(intra ? 0 : 1, 1);
        bw_.put(0, 4);  // no Annexes D, E, F, G
        bw_.put(static_cast<uint32_t>(qp_), 5);
        bw_.put(0, 2);  // CPM, PEI
        return;
    }
    bw_.put(7, 3);  // extended PTYPE
    bw_.put(1, 3);  // UFEP: OPPTYPE follows
    // OPPTYPE: format, custom clock, D E F I J K N R S T, then 1000.
    const uint32_t op = static_cast<uint32_t>(format_) << 15 | (clock_div_ ? 1u : 0u) << 14 |
                        (opt_.advanced_intra ? 1u : 0u) << 10 | (opt_.deblock ? 1u : 0u) << 9 | 8u;
    bw_.put(op, 18);
    // MPPTYPE: picture type, no RPR / RRU, rounding type 0, then 001.
    bw_.put((intra ? 0u : 1u << 6) | 1u, 9);
    bw_.put(0, 1);  // CPM
    if (format_ == kCustom) {
        // CPFMT: square samples (PAR 0001), width / 4 - 1, '1', height / 4.
        bw_.put(1, 4);
        bw_.put(static_cast<uint32_t>(opt_.width / 4 - 1), 9);
        bw_.put(1, 1);
        bw_.put(static_cast<uint32_t>(opt_.height / 4), 9);
    }
    if (clock_div_) {
        bw_.put(static_cast<uint32_t>(clock_div_), 8);  // conversion code 0 (1000), divisor
        bw_.put(static_cast<uint32_t>(tr >> 8), 2);     // ETR
    }
    bw_.put(static_cast<uint32_t>(qp_), 5);
    bw_.put(0, 1);  // PEI
}

bool H263Encoder::encode(const Picture& in, std::vector<uint8_t>* out, Picture* recon) {
    if (in.width != opt_.width || in.height != opt_.height) return false;
    load(in);
    const bool intra = index_ == 0 || (opt_.gop > 0 && index_ % opt_.gop == 0);
    const size_t start = bw_.bits();
    write_header(intra);
    grid_.reset();
    for (int my = 0; my < mbh_; ++my)
        for (int mx = 0; mx < mbw_; ++mx) encode_mb(mx, my, intra);
    if (opt_.deblock) {
        uint8_t* planes[3] = {cur_.data(0), cur_.data(1), cur_.data(2)};
        const int strides[3] = {cur_.stride(0), cur_.stride(1), cur_.stride(2)};
        deblock_picture(grid_, planes, strides, false);
    }
    const size_t bits = bw_.bits() - start;
    bw_.flush_to(out);
    stats_.frames++;
    stats_.intra_frames += intra;
    stats_.bytes += (bits + 7) / 8;
    stats_.last_qp = qp_;
    rate_control(bits, intra);
    ++index_;
    std::swap(cur_, ref_);
    for (int p = 0; p < 3; ++p)
        kpliExpandFrame_H263_8u(
            ref_.data(p) - ref_.pad(p) - static_cast<intptr_t>(ref_.pad(p)) * ref_.stride(p),
            ref_.plane_width(p), ref_.plane_height(p), ref_.pad(p), ref_.stride(p));
    if (recon) {
        *recon = ref_.picture();
        recon->width = opt_.width;
        recon->height = opt_.height;
    }
    return true;
}

void H263Encoder::finish(std::vector<uint8_t>* out) {
    bw_.reserve(8);
    bw_.put(0x1F, 22);  // EOS: 0000 0000 0000 0000 1 11111
    bw_.flush_to(out);
}

// A simple frame-level rate control: the quantiser moves by the ratio of
// the bits spent to the picture's share of the bit rate. An intra picture's
// share is three times a predicted picture's, and the shares of one intra
// period add up to the period's bits.
void H263Encoder::rate_control(size_t bits, bool intra) {
    if (opt_.qscale > 0 || opt_.bitrate <= 0) return;
    const double per_picture = static_cast<double>(opt_.bitrate) * opt_.fps_den / opt_.fps_num;
    const double period = opt_.gop > 0 ? opt_.gop : 1e9;
    const double p_share = per_picture * period / (period + 2);
    const double target = intra ? 3 * p_share : p_share;
    const double ratio = static_cast<double>(bits) / target;
    int q = qp_;
    if (ratio > 1.1)
        q += std::max(1, static_cast<int>(std::lround(qp_ * (std::min(ratio, 3.0) - 1.0) * 0.5)));
    else if (ratio < 0.8)
        q -= std::max(1, static_cast<int>(std::lround(qp_ * (1.0 - ratio) * 0.3)));
    qp_ = std::clamp(q, 2, 31);
}

// ---- Motion search -----------------------------------------------------------------

// SAD of the macroblock against the reference at vector (vx, vy) in half
// samples.
int H263Encoder::sad_at(int mx, int my, int vx, int vy) const {
    const uint8_t* cur = src_.data(0) + static_cast<intptr_t>(my) * 16 * src_.stride(0) + mx * 16;
    const uint8_t* ref =
        ref_.data(0) + static_cast<intptr_t>(my * 16 + (vy >> 1)) * ref_.stride(0) + mx * 16 + (vx >> 1);
    Kpl32s sad = 0;
    kpliSAD16x16_8u32s(cur, src_.stride(0), ref, ref_.stride(0), &sad, mc_type(vx, vy));
    return sad;
}

// The best vector within the default range (-16..15.5) whose prediction
// stays inside the picture, as baseline H.263 requires.
bool H263Encoder::motion_search(int mx, int my, int* best_x, int* best_y, int* best_sad) {
    const int range = std::clamp(opt_.search_range, 1, 15) * 2;
    // Allowed vectors (half samples): the block and the extra sample of a
    // half position inside the picture, and within the range.
    const int lo_x = std::max(-32, std::max(-range, -32 * mx)),
              hi_x = std::min(31, std::min(range, 2 * (cw_ - 16 - 16 * mx)));
    const int lo_y = std::max(-32, std::max(-range, -32 * my)),
              hi_y = std::min(31, std::min(range, 2 * (ch_ - 16 - 16 * my)));
    auto ok = [&](int x, int y) { return x >= lo_x && x <= hi_x && y >= lo_y && y <= hi_y; };
    Kpl16s pred[2];
    grid_.predictor(mx, my, -1, pred);
    const int lambda = qp_;  // bias towards short vector codes
    auto cost = [&](int x, int y, int sad) {
        return sad + lambda * ((x != pred[0] ? 2 : 0) + (y != pred[1] ? 2 : 0) +
                               (std::abs(x - pred[0]) + std::abs(y - pred[1])) / 8);
    };
    int bx = 0, by = 0, bsad = sad_at(mx, my, 0, 0), bcost = cost(0, 0, bsad);
    auto consider = [&](int x, int y) {
        if (!ok(x, y)) return false;
        const int s = sad_at(mx, my, x, y), c = cost(x, y, s);
        if (c < bcost) {
            bx = x, by = y, bsad = s, bcost = c;
            return true;
        }
        return false;
    };
    // Whole-sample candidates: the predictor and the neighbours' vectors.
    consider(pred[0] & ~1, pred[1] & ~1);
    if (mx > 0) consider(grid_.vector(2 * mx - 1, 2 * my)[0] & ~1, grid_.vector(2 * mx - 1, 2 * my)[1] & ~1);
    if (my > 0) consider(grid_.vector(2 * mx, 2 * my - 1)[0] & ~1, grid_.vector(2 * mx, 2 * my - 1)[1] & ~1);
    if (my > 0 && mx + 1 < mbw_)
        consider(grid_.vector(2 * mx + 2, 2 * my - 1)[0] & ~1, grid_.vector(2 * mx + 2, 2 * my - 1)[1] & ~1);
    // Diamond refinement at whole samples, then the eight half positions.
    for (int step = 0; step < 32; ++step) {
        const int cx = bx, cy = by;
        bool moved = false;
        for (auto [dx, dy] : {std::pair{2, 0}, {-2, 0}, {0, 2}, {0, -2}}) moved |= consider(cx + dx, cy + dy);
        if (!moved) break;
    }
    const int cx = bx, cy = by;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
            if (dx || dy) consider(cx + dx, cy + dy);
    *best_x = bx;
    *best_y = by;
    *best_sad = bsad;
    return true;
}

// ---- Macroblocks -------------------------------------------------------------------

// Annex I: the prediction mode whose predicted coefficients (DC, first row
// or first column) come closest to the four luma blocks' own.
int H263Encoder::aic_mode(int mx, int my) const {
    int best = KPLVC_H263_AIC_DC, best_cost = 1 << 30;
    const bool up = my > 0 && grid_.mb(mx, my - 1).state == MbState::intra;
    const bool left = mx > 0 && grid_.mb(mx - 1, my).state == MbState::intra;
    for (int mode = 0; mode < 3; ++mode) {
        int cost = 0;
        for (int b = 0; b < 4; ++b) {
            const int bx = 2 * mx + (b & 1), by = 2 * my + (b >> 1);
            alignas(16) Kpl16s c[64];
            kpliDCT8x8Fwd_8u16s_C1R(src_.data(0) + static_cast<intptr_t>(by) * 8 * src_.stride(0) + bx * 8,
                                    src_.stride(0), c);
            const bool a = (b >> 1) || up, l = (b & 1) || left;
            const Kpl16s* row = aic_row_[0].data() + bx * 8;
            const Kpl16s* col = aic_col_[0].data() + by * 8;
            if (mode == KPLVC_H263_AIC_DC) {
                const int p = a && l ? (row[0] + col[0]) / 2 : a ? row[0] : l ? col[0] : 1024;
                cost += std::abs(c[0] - p);
                for (int k = 1; k < 8; ++k) cost += std::abs(c[k]) + std::abs(c[8 * k]);
            } else {
                const bool vertical = mode == KPLVC_H263_AIC_VERTICAL;
                const bool have = vertical ? a : l;
                for (int k = 0; k < 8; ++k) {
                    const int own = vertical ? c[k] : c[8 * k], other = vertical ? c[8 * k] : c[k];
                    const int p = have ? (vertical ? row[k] : col[k]) : (k == 0 ? 1024 : 0);
                    cost += std::abs(own - p) + (k ? std::abs(other) : 0);
                }
            }
        }
        if (cost < best_cost) best = mode, best_cost = cost;
    }
    return best;
}

// Quantises, writes and reconstructs (by decoding what was written) one
// intra block. Returns whether the block has coefficients (for AIC: any
// level; otherwise any AC level). With `write` false the codes go to a
// scratch writer: a trial that only updates the predictors and pixels it
// was given.
bool H263Encoder::intra_block(int mx, int my, int b, int mode, bool write, const AicPredictors& pr,
                              uint8_t* rec, int rec_step, Kpl16s* level) {
    const int p = b < 4 ? 0 : b - 3;
    const int bx = b < 4 ? 2 * mx + (b & 1) : mx, by = b < 4 ? 2 * my + (b >> 1) : my;
    alignas(16) Kpl16s c[64];
    kpliDCT8x8Fwd_8u16s_C1R(src_.data(p) + static_cast<intptr_t>(by) * 8 * src_.stride(p) + bx * 8,
                            src_.stride(p), c);
    bool coded = false;
    int flags = 0;
    if (!opt_.advanced_intra) {
        // INTRADC: the DC over 8, 1..254; AC by the library's quantiser.
        const int dc = std::clamp((c[0] + 4) >> 3, 1, 254);
        int last;
        kpliQuantIntra_H263_C1I(c, qp_, &last);
        for (int i = 0; i < 64; ++i) level[i] = static_cast<Kpl16s>(std::clamp<int>(c[i], -127, 127));
        level[0] = static_cast<Kpl16s>(dc);
        coded = last >= 1;
    } else {
        // Annex I: the difference from the prediction, rounded to the
        // nearest multiple of 2 QP (the reconstruction has no offset).
        const bool up = (b < 4 && (b >> 1)) || (my > 0 && grid_.mb(mx, my - 1).state == MbState::intra);
        const bool left = (b < 4 && (b & 1)) || (mx > 0 && grid_.mb(mx - 1, my).state == MbState::intra);
        const Kpl16s *row = pr.row[b], *col = pr.col[b];
        int pred[64] = {};
        if (mode == KPLVC_H263_AIC_DC)
            pred[0] = up && left ? (row[0] + col[0]) / 2 : up ? row[0] : left ? col[0] : 1024;
        else if (mode == KPLVC_H263_AIC_VERTICAL && up)
            for (int j = 0; j < 8; ++j) pred[j] = row[j];
        else if (mode == KPLVC_H263_AIC_HORIZONTAL && left)
            for (int j = 0; j < 8; ++j) pred[8 * j] = col[j];
        else
            pred[0] = 1024;
        for (int i = 0; i < 64; ++i) {
            const int d = c[i] - pred[i], m = (std::abs(d) + qp_) / (2 * qp_);
            level[i] = static_cast<Kpl16s>(std::clamp(d < 0 ? -m : m, -127, 127));
            coded |= level[i] != 0;
        }
        flags = (coded ? KPLVC_H263_AIC_CODED : 0) | (up ? KPLVC_H263_AIC_ABOVE : 0) |
                (left ? KPLVC_H263_AIC_LEFT : 0);
    }
    BitWriter& w = write ? bw_ : scratch_;
    w.reserve(1024);
    BitWriter::Position at = w.position();
    BitWriter::Position begin = at;
    int count;
    if (!opt_.advanced_intra) {
        kpliEncode_IntraDCVLC_H263_16s1u(level[0], &at.p, &at.off);
        if (coded) kpliEncode_TCOEFEx_H263_16s1u(level, &at.p, &at.off, 0, 1, 0, 0, &count);
        kpliDecodeBlockCoefEx_Intra_H263_1u8u(&begin.p, &begin.off, rec, rec_step, qp_,
                                              coded ? 0 : KPLVC_H263_INTRA_DC_ONLY);
    } else {
        if (coded) kpliEncode_TCOEFEx_H263_16s1u(level, &at.p, &at.off, mode, 0, 1, 0, &count);
        kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(&begin.p, &begin.off, rec, rec_step, pr.row[b], pr.col[b],
                                                 qp_, mode, flags);
    }
    if (write)
        w.done(at);
    else
        w.flush_to(&trash_), trash_.clear();
    return coded;
}

void H263Encoder::code_intra(int mx, int my, bool intra_picture) {
    const int mode = opt_.advanced_intra ? aic_mode(mx, my) : 0;
    AicPredictors real;
    for (int b = 0; b < 6; ++b) {
        const int p = b < 4 ? 0 : b - 3;
        const int bx = b < 4 ? 2 * mx + (b & 1) : mx, by = b < 4 ? 2 * my + (b >> 1) : my;
        real.row[b] = aic_row_[p].data() + bx * 8;
        real.col[b] = aic_col_[p].data() + by * 8;
    }
    // The coded-block pattern comes before the blocks, but with Annex I a
    // block's levels depend on the reconstruction of the blocks before it:
    // a trial on copies of the predictors finds the pattern first.
    alignas(16) Kpl16s level[64];
    int cbp = 0;
    {
        Kpl16s rows[6][8], cols[6][8];
        AicPredictors trial;
        for (int b = 0; b < 6; ++b) {
            std::memcpy(rows[b], real.row[b], sizeof rows[b]);
            std::memcpy(cols[b], real.col[b], sizeof cols[b]);
            trial.row[b] = rows[b];
            trial.col[b] = cols[b];
        }
        // Inside the macroblock the blocks share predictors: block 1's left
        // column is block 0's, block 2's row above is block 0's, ...
        trial.col[1] = trial.col[0], trial.row[2] = trial.row[0];
        trial.col[3] = trial.col[2], trial.row[3] = trial.row[1];
        alignas(16) uint8_t scratch[64];
        for (int b = 0; b < 6; ++b)
            if (intra_block(mx, my, b, mode, false, trial, scratch, 8, level)) cbp |= 32 >> b;
    }
    const int cbpy = cbp >> 2, cbpc = cbp & 3;
    bw_.reserve(64);
    if (!intra_picture) bw_.put(0, 1);  // COD
    const Vlc m = intra_picture ? kMcbpcIntra[0][cbpc] : kMcbpcInter[3][cbpc];
    bw_.put(m.code, m.len);
    if (opt_.advanced_intra) bw_.put(mode == 0 ? 0u : (mode == 1 ? 2u : 3u), mode == 0 ? 1 : 2);
    bw_.put(kCbpy[15 - cbpy].code, kCbpy[15 - cbpy].len);
    for (int b = 0; b < 6; ++b) {
        const int p = b < 4 ? 0 : b - 3;
        const int bx = b < 4 ? 2 * mx + (b & 1) : mx, by = b < 4 ? 2 * my + (b >> 1) : my;
        intra_block(mx, my, b, mode, true, real,
                    cur_.data(p) + static_cast<intptr_t>(by) * 8 * cur_.stride(p) + bx * 8, cur_.stride(p),
                    level);
    }
    MbInfo& info = grid_.mb(my * mbw_ + mx);
    info.state = MbState::intra;
    info.coded = 1;
    info.qp = static_cast<uint8_t>(qp_);
    grid_.set_mb_vector(mx, my, 0, 0);
}

void H263Encoder::encode_mb(int mx, int my, bool intra_picture) {
    MbInfo& info = grid_.mb(my * mbw_ + mx);
    info.segment = 0;
    if (intra_picture) {
        code_intra(mx, my, true);
        return;
    }
    int vx, vy, sad;
    motion_search(mx, my, &vx, &vy, &sad);
    Kpl32s dev = 0;
    kpliMeanAbsDev16x16_8u32s_C1R(src_.data(0) + static_cast<intptr_t>(my) * 16 * src_.stride(0) + mx * 16,
                                  src_.stride(0), &dev);
    if (dev < sad - 500) {
        code_intra(mx, my, false);
        return;
    }
    // Residual blocks: difference from the prediction, forward DCT,
    // quantisation.
    KplMotionVector cv;
    const KplMotionVector lv{static_cast<Kpl16s>(vx), static_cast<Kpl16s>(vy)};
    kpliComputeChromaMV_MPEG4(&lv, &cv);
    alignas(16) Kpl16s level[6][64];
    int cbp = 0;
    for (int b = 0; b < 6; ++b) {
        const int p = b < 4 ? 0 : b - 3;
        const int x = b < 4 ? mx * 16 + (b & 1) * 8 : mx * 8, y = b < 4 ? my * 16 + (b >> 1) * 8 : my * 8;
        const int dx = p ? cv.dx : vx, dy = p ? cv.dy : vy;
        const uint8_t* cur = src_.data(p) + static_cast<intptr_t>(y) * src_.stride(p) + x;
        const uint8_t* ref =
            ref_.data(p) + static_cast<intptr_t>(y + (dy >> 1)) * ref_.stride(p) + x + (dx >> 1);
        alignas(16) Kpl16s diff[64];
        kpliGetDiff8x8_8u16s_C1(cur, src_.stride(p), ref, ref_.stride(p), diff, 16, nullptr, 0,
                                mc_type(dx, dy), 0);
        kpliDCT8x8Fwd_16s_C1(diff, level[b]);
        int last;
        kpliQuant_H263_C1I(level[b], qp_, &last);
        for (int i = 0; i < 64; ++i)
            level[b][i] = static_cast<Kpl16s>(std::clamp<int>(level[b][i], -127, 127));
        if (last >= 0) cbp |= 32 >> b;
    }
    bw_.reserve(8192);
    info.qp = static_cast<uint8_t>(qp_);
    if (vx == 0 && vy == 0 && cbp == 0) {
        bw_.put(1, 1);  // COD: skipped
        info.state = MbState::skipped;
        info.coded = 0;
        grid_.set_mb_vector(mx, my, 0, 0);
    } else {
        Kpl16s pred[2];
        grid_.predictor(mx, my, -1, pred);
        const int cbpy = cbp >> 2, cbpc = cbp & 3;
        bw_.put(0, 1);  // COD
        bw_.put(kMcbpcInter[0][cbpc].code, kMcbpcInter[0][cbpc].len);
        bw_.put(kCbpy[cbpy].code, kCbpy[cbpy].len);
        for (int c = 0; c < 2; ++c) {
            int d = (c ? vy : vx) - pred[c];
            d = d > 31 ? d - 64 : (d < -32 ? d + 64 : d);
            bw_.put(kMvd[d + 32].code, kMvd[d + 32].len);
        }
        info.state = MbState::inter;
        info.coded = 1;
        grid_.set_mb_vector(mx, my, static_cast<Kpl16s>(vx), static_cast<Kpl16s>(vy));
    }
    // Each coded block is written and its residual read back; prediction
    // plus residual is the reconstruction.
    for (int b = 0; b < 6; ++b) {
        const int p = b < 4 ? 0 : b - 3;
        const int x = b < 4 ? mx * 16 + (b & 1) * 8 : mx * 8, y = b < 4 ? my * 16 + (b >> 1) * 8 : my * 8;
        const int dx = p ? cv.dx : vx, dy = p ? cv.dy : vy;
        alignas(16) Kpl16s res[64];
        const Kpl16s* r = kZero;
        if (cbp & (32 >> b)) {
            BitWriter::Position at = bw_.position();
            int count;
            kpliEncode_TCOEFEx_H263_16s1u(level[b], &at.p, &at.off, 0, 0, 0, 0, &count);
            bw_.done(at);
            // The decoder's residual: the library's inverse quantiser and
            // inverse DCT, which its inter block decoder matches exactly.
            std::memcpy(res, level[b], sizeof res);
            kpliQuantInv_H263_C1I(res, qp_);
            kpliDCT8x8Inv_16s_C1I(res);
            r = res;
        }
        const uint8_t* ref =
            ref_.data(p) + static_cast<intptr_t>(y + (dy >> 1)) * ref_.stride(p) + x + (dx >> 1);
        kpliMC8x8_8u_C1(ref, ref_.stride(p), r, 16,
                        cur_.data(p) + static_cast<intptr_t>(y) * cur_.stride(p) + x, cur_.stride(p),
                        mc_type(dx, dy), 0);
    }
}

}  // namespace

std::unique_ptr<Encoder> create(const EncodeOptions& opt, char* why, size_t n) {
    if (opt.width < 16 || opt.height < 16 || opt.width > 2048 || opt.height > 1152 || opt.width % 4 ||
        opt.height % 4) {
        std::snprintf(why, n, "H.263 codes sizes that are multiples of 4 from 16x16 to 2048x1152");
        return nullptr;
    }
    if (opt.fps_num <= 0 || opt.fps_den <= 0) {
        std::snprintf(why, n, "picture rate must be positive");
        return nullptr;
    }
    if (opt.qscale < 0 || opt.qscale > 31 || (opt.qscale == 0 && opt.bitrate <= 0)) {
        std::snprintf(why, n, "give a quantiser 1..31 or a bit rate");
        return nullptr;
    }
    if (opt.mpeg_quant || opt.four_mv || opt.qpel) {
        std::snprintf(
            why, n, "the MPEG quantisation method, four vectors and quarter samples are MPEG-4 options here");
        return nullptr;
    }
    return std::make_unique<H263Encoder>(opt);
}

extern const EncoderInfo kH263Encoder = {"h263", ".h263", create};

}  // namespace kplvc::codecs::h263
