// The MPEG-4 decoder's VOP and macroblock layers (ISO/IEC 14496-2 6.2.6 to
// 6.2.8, 7.4 to 7.8). Each block goes through the library: texture and DC
// decoding, DC/AC prediction, inverse quantisation, inverse DCT, vector
// decoding and prediction, half- and quarter-sample and global motion
// compensation.
#include "decoder.h"

#include <cstdio>
#include <cstring>

namespace kplvc::codecs::mpeg4 {

namespace {

constexpr int kPad = 32;  // luma border of reference frames (chroma 16)
alignas(32) const int16_t kZeroRes[16 * 16] = {};
constexpr int kDquant[4] = {-1, -2, 1, 2};
const KplMPEG4IntraPred kAbsent = KPLVC_MPEG4_INTRA_PRED_ABSENT;

int clip_qp(int q) { return q < 1 ? 1 : (q > 31 ? 31 : q); }

// The (w x h) area at (x, y) of a plane of pw x ph samples, each coordinate
// clamped into the plane (its unlimited padding), copied to buf.
void emulate(uint8_t* buf, int step, const uint8_t* plane, int stride, int pw, int ph, int x, int y, int w,
             int h) {
    for (int j = 0; j < h; ++j) {
        int yy = y + j;
        yy = yy < 0 ? 0 : (yy >= ph ? ph - 1 : yy);
        const uint8_t* row = plane + static_cast<intptr_t>(yy) * stride;
        for (int i = 0; i < w; ++i) {
            int xx = x + i;
            xx = xx < 0 ? 0 : (xx >= pw ? pw - 1 : xx);
            buf[j * step + i] = row[xx];
        }
    }
}

// A chroma vector from a luma vector (half samples; quarter-sample luma
// vectors are halved first, truncating toward zero).
KplMotionVector chroma_mv(KplMotionVector v, bool qpel) {
    if (qpel) v = {static_cast<int16_t>(v.dx / 2), static_cast<int16_t>(v.dy / 2)};
    KplMotionVector c;
    kpliComputeChromaMV_MPEG4(&v, &c);
    return c;
}

KplMotionVector chroma_mv4(const KplMotionVector* v, bool qpel) {
    KplMotionVector h[4];
    for (int k = 0; k < 4; ++k)
        h[k] = qpel ? KplMotionVector{static_cast<int16_t>(v[k].dx / 2), static_cast<int16_t>(v[k].dy / 2)}
                    : v[k];
    static const uint8_t kAll[4] = {1, 1, 1, 1};
    KplMotionVector c;
    kpliComputeChroma4MV_MPEG4(h, &c, kAll);
    return c;
}

// Inverse DCT of a residual in place, the smallest transform that covers
// the coefficients the scan can have reached.
void idct_residual(int16_t* c, int last, int scan) {
    if (scan == KPLVC_SCAN_ZIGZAG && last < 3)
        kpliDCT8x8Inv_2x2_16s_C1I(c);
    else if (scan == KPLVC_SCAN_ZIGZAG && last < 10)
        kpliDCT8x8Inv_4x4_16s_C1I(c);
    else
        kpliDCT8x8Inv_16s_C1I(c);
}

}  // namespace

// ---- Frames --------------------------------------------------------------------

bool Mpeg4Decoder::allocate() {
    mb_w_ = (vol_.width + 15) / 16;
    mb_h_ = (vol_.height + 15) / 16;
    mb_count_ = mb_w_ * mb_h_;
    mb_bits_ = 1;
    while ((1 << mb_bits_) < mb_count_) ++mb_bits_;
    pool_.clear();
    for (int i = 0; i < 3; ++i) pool_.emplace_back(vol_.width, vol_.height, Chroma::c420, kPad);
    for (int i = 0; i < 3; ++i)
        for (int p = 0; p < 3; ++p)
            for (int f = -1; f < 2; ++f) planes_[i][p][f + 1] = make_plane(pool_[i], p, f);
    cur_ = fwd_ = bwd_ = -1;
    held_ = false;
    mv_.assign(static_cast<size_t>(mb_count_) * 4, KplMotionVector{0, 0});
    ref_mv_ = mv_;
    field_mv_.assign(static_cast<size_t>(mb_count_) * 2, KplMotionVector{0, 0});
    ref_field_mv_ = field_mv_;
    info_.assign(static_cast<size_t>(mb_count_), MbInfo{});
    ref_info_ = info_;
    pred_.assign(static_cast<size_t>(mb_count_) * 6, kAbsent);
    packet_.assign(static_cast<size_t>(mb_count_), -1);
    for (auto& m : qp_map_) m.assign(static_cast<size_t>(mb_count_), 1);
    if (vol_.shape != 0) {
        alpha_stride_ = 16 * mb_w_ + 2 * kAlphaMargin;
        for (int i = 0; i < 3; ++i) {
            alpha_[i].assign(static_cast<size_t>(alpha_stride_) * (16 * mb_h_ + 2 * kAlphaMargin), 0);
            bab_[i].assign(static_cast<size_t>(mb_count_), 2);
        }
        smv_.assign(static_cast<size_t>(mb_count_), KplMotionVector{0, 0});
        blk_.assign(static_cast<size_t>(mb_count_), 0);
    }
    return true;
}

void Mpeg4Decoder::output(const Frame& f) {
    if (stop_) return;
    ++stats_->frames;
    if (alpha_sink_ != nullptr && vol_.shape != 0) {
        const int i = static_cast<int>(&f - pool_.data());
        if (i >= 0 && i < 3)
            alpha_sink_(alpha_at(i, 0, 0), alpha_stride_, f.width(), f.height(), alpha_user_);
    }
    if (!sink_((postfilter_ ? postfiltered(f) : f).picture(), user_)) stop_ = true;
}

Mpeg4Decoder::Plane Mpeg4Decoder::make_plane(Frame& f, int p, int field) {
    Plane pl;
    pl.width = f.plane_width(p);
    pl.height = f.plane_height(p);
    if (field < 0) {
        pl.data = f.data(p);
        pl.stride = f.stride(p);
        pl.pad = f.pad(p);
    } else {
        pl.data = f.data(p) + field * f.stride(p);
        pl.stride = 2 * f.stride(p);
        pl.height = (pl.height + 1 - field) / 2;
        pl.pad = 0;
    }
    return pl;
}

// A new VOP: its frame is the pool's one that is neither reference.
void Mpeg4Decoder::start_vop() {
    for (int i = 0; i < 3; ++i)
        if (i != fwd_ && i != bwd_) {
            cur_ = i;
            break;
        }
    std::fill(packet_.begin(), packet_.end(), -1);
    packet_id_ = 0;
    packet_start_ = 0;
    first_in_packet_ = true;
    qp_ = running_qp_ = vop_.quant;
    std::memset(pmv_, 0, sizeof pmv_);
    std::fill(qp_map_[cur_].begin(), qp_map_[cur_].end(), static_cast<uint8_t>(clip_qp(vop_.quant)));
    if (vol_.shape != 0) {
        std::fill(alpha_[cur_].begin(), alpha_[cur_].end(), 0);
        std::fill(bab_[cur_].begin(), bab_[cur_].end(), 2);
        std::fill(blk_.begin(), blk_.end(), 0);
        vop_pos_[cur_][0] = vop_.hor_ref;
        vop_pos_[cur_][1] = vop_.ver_ref;
        ref_dx_ = bwd_ >= 0 ? vop_.hor_ref - vop_pos_[bwd_][0] : 0;
        ref_dy_ = bwd_ >= 0 ? vop_.ver_ref - vop_pos_[bwd_][1] : 0;
    }
}

// A decoded I-, P- or S-VOP becomes the future reference; the previous one
// (now the past reference) is output, display order being decoding order
// for references once the B-VOPs between them are out.
void Mpeg4Decoder::finish_reference() {
    Frame& f = pool_[cur_];
    if (vol_.shape != 0) pad_shape_vop();
    for (int p = 0; p < 3; ++p) {
        const int pad = f.pad(p), stride = f.stride(p);
        kpliExpandFrame_H263_8u(f.data(p) - pad * stride - pad, f.plane_width(p), f.plane_height(p), pad,
                                stride);
    }
    if (held_ && bwd_ >= 0) output(pool_[bwd_]);
    fwd_ = bwd_;
    bwd_ = cur_;
    held_ = true;
    ref_mv_.swap(mv_);
    ref_field_mv_.swap(field_mv_);
    ref_info_.swap(info_);
}

// ---- Prediction ----------------------------------------------------------------

void Mpeg4Decoder::predict(uint8_t* dst, int dst_step, const Plane& ref, int x, int y, int w, int h, int mvx,
                           int mvy, bool qpel, int rc) {
    const int ix = x + (qpel ? mvx >> 2 : mvx >> 1), iy = y + (qpel ? mvy >> 2 : mvy >> 1);
    const uint8_t* src = ref.data + static_cast<intptr_t>(iy) * ref.stride + ix;
    int step = ref.stride;
    alignas(32) uint8_t buf[17 * 32];
    if (ix < -ref.pad || iy < -ref.pad || ix + w + 1 > ref.width + ref.pad ||
        iy + h + 1 > ref.height + ref.pad) {
        emulate(buf, 32, ref.data, ref.stride, ref.width, ref.height, ix, iy, w + 1, h + 1);
        src = buf;
        step = 32;
    }
    if (qpel) {
        kpliInterpolateQPel_MPEG4_8u_C1R(src, step, dst, dst_step, KpliSize{w, h}, (mvx & 3) | (mvy & 3) << 2,
                                         rc);
        return;
    }
    const int type = ((mvx & 1) << 3) | ((mvy & 1) << 2);
    if (type == 0 && w == h) {
        (w == 16 ? kpliCopyBlock_16x16_8u : kpliCopyBlock_8x8_8u)(src, step, dst, dst_step);
        return;
    }
    if (w == 16 && h == 16)
        kpliMC16x16_8u_C1(src, step, kZeroRes, 32, dst, dst_step, type, rc);
    else if (w == 16)
        kpliMC16x8_8u_C1(src, step, kZeroRes, 32, dst, dst_step, type, rc);
    else if (h == 8)
        kpliMC8x8_8u_C1(src, step, kZeroRes, 16, dst, dst_step, type, rc);
    else
        kpliMC8x4_8u_C1(src, step, kZeroRes, 16, dst, dst_step, type, rc);
}

Mpeg4Decoder::Dest Mpeg4Decoder::frame_dest(int mbx, int mby) {
    Frame& f = pool_[cur_];
    const int ys = f.stride(0), cs = f.stride(1);
    return Dest{f.data(0) + static_cast<intptr_t>(16 * mby) * ys + 16 * mbx,
                f.data(1) + static_cast<intptr_t>(8 * mby) * cs + 8 * mbx,
                f.data(2) + static_cast<intptr_t>(8 * mby) * cs + 8 * mbx, ys, cs};
}

// Luma 16x16 and chroma 8x8 of macroblock (mbx, mby) from a frame reference,
// one vector or four.
void Mpeg4Decoder::predict_mb(const Dest& d, int ref, int mbx, int mby, const KplMotionVector* mv, bool four,
                              int rc) {
    const bool q = vol_.quarter_sample;
    const Plane &py = plane(ref, 0), &pcb = plane(ref, 1), &pcr = plane(ref, 2);
    // A VOP with shape sits at its own position: the reference is read where
    // this VOP's samples are (ref_dx_ / ref_dy_ are 0 for rectangular VOPs;
    // chroma takes half the offset, rounded down).
    const int lx = 16 * mbx + ref_dx_, ly = 16 * mby + ref_dy_;
    const int cx = 8 * mbx + (ref_dx_ >> 1), cy = 8 * mby + (ref_dy_ >> 1);
    KplMotionVector c;
    if (!four) {
        predict(d.y, d.ys, py, lx, ly, 16, 16, mv[0].dx, mv[0].dy, q, rc);
        c = chroma_mv(mv[0], q);
    } else {
        for (int b = 0; b < 4; ++b)
            predict(d.y + (b >> 1) * 8 * d.ys + (b & 1) * 8, d.ys, py, lx + (b & 1) * 8, ly + (b >> 1) * 8, 8,
                    8, mv[b].dx, mv[b].dy, q, rc);
        c = chroma_mv4(mv, q);
    }
    predict(d.cb, d.cs, pcb, cx, cy, 8, 8, c.dx, c.dy, false, rc);
    predict(d.cr, d.cs, pcr, cx, cy, 8, 8, c.dx, c.dy, false, rc);
}

// Field prediction: the top field rows (0, 2, ...) from the reference field
// sel[0] with mv[0], the bottom ones from sel[1] with mv[1]; vertical
// components in field units.
void Mpeg4Decoder::predict_field_mb(const Dest& d, int ref, int mbx, int mby, const KplMotionVector* mv,
                                    const uint8_t* sel, int rc) {
    const bool q = vol_.quarter_sample;
    for (int f = 0; f < 2; ++f) {
        const Plane &py = plane(ref, 0, sel[f]), &pcb = plane(ref, 1, sel[f]), &pcr = plane(ref, 2, sel[f]);
        uint8_t* y = d.y + f * d.ys;
        if (q) {
            // Quarter-sample field prediction works on 8x8 halves (each
            // mirrors at its own edges), as the reference decoders do.
            predict(y, 2 * d.ys, py, 16 * mbx, 8 * mby, 8, 8, mv[f].dx, mv[f].dy, q, rc);
            predict(y + 8, 2 * d.ys, py, 16 * mbx + 8, 8 * mby, 8, 8, mv[f].dx, mv[f].dy, q, rc);
        } else {
            predict(y, 2 * d.ys, py, 16 * mbx, 8 * mby, 16, 8, mv[f].dx, mv[f].dy, q, rc);
        }
        KplMotionVector c = chroma_mv(mv[f], false);
        if (q) {
            // Quarter-sample field vectors: x halved toward zero, y by an
            // arithmetic shift, then the chroma rule.
            const KplMotionVector h = {static_cast<int16_t>(mv[f].dx / 2),
                                       static_cast<int16_t>(mv[f].dy >> 1)};
            c = chroma_mv(h, false);
        }
        predict(d.cb + f * d.cs, 2 * d.cs, pcb, 8 * mbx, 4 * mby, 8, 4, c.dx, c.dy, false, rc);
        predict(d.cr + f * d.cs, 2 * d.cs, pcr, 8 * mbx, 4 * mby, 8, 4, c.dx, c.dy, false, rc);
    }
}

void Mpeg4Decoder::predict_gmc(const Dest& d, int mbx, int mby) {
    Frame& ref = pool_[bwd_];
    const int rc = vop_.rounding;
    kpliWarpLuma_MPEG4_8u_C1R(ref.data(0), ref.stride(0), d.y, d.ys, 16 * mbx, 16 * mby, &warp_, rc);
    kpliWarpChroma_MPEG4_8u_C1R(ref.data(1), ref.stride(1), d.cb, d.cs, 8 * mbx, 8 * mby, &warp_, rc);
    kpliWarpChroma_MPEG4_8u_C1R(ref.data(2), ref.stride(2), d.cr, d.cs, 8 * mbx, 8 * mby, &warp_, rc);
}

// The residual of the coded blocks added to the prediction in the frame.
// Luma blocks of a field-DCT macroblock hold field rows: block b starts at
// row b >> 1 and steps two rows.
void Mpeg4Decoder::add_residual(int mbx, int mby, int16_t (*res)[64], const bool* coded, bool field_dct) {
    const Dest d = frame_dest(mbx, mby);
    for (int b = 0; b < 4; ++b) {
        if (!coded[b]) continue;
        const int row = field_dct ? (b >> 1) : 8 * (b >> 1), m = field_dct ? 2 : 1;
        kpliReconBlock_H263_I(d.y + static_cast<intptr_t>(row) * d.ys + (b & 1) * 8, res[b], d.ys * m);
    }
    if (coded[4]) kpliReconBlock_H263_I(d.cb, res[4], d.cs);
    if (coded[5]) kpliReconBlock_H263_I(d.cr, res[5], d.cs);
}

// ---- Texture ---------------------------------------------------------------------

bool Mpeg4Decoder::intra_blocks(BitReader& br, int mbx, int mby, int cbp, bool ac_pred, bool dc_vlc,
                                bool field_dct, int blocks) {
    const int mb = mby * mb_w_ + mbx;
    // A neighbour's record, or the absent one outside the VOP, in another
    // packet or when not intra.
    auto rec = [&](int x, int y, int b) -> const KplMPEG4IntraPred* {
        if (x < 0 || y < 0 || x >= mb_w_) return &kAbsent;
        const int n = y * mb_w_ + x;
        if (packet_[n] != packet_id_ || !info_[n].intra) return &kAbsent;
        return &pred_[static_cast<size_t>(n) * 6 + b];
    };
    Frame& f = pool_[cur_];
    // A block outside the shape has no texture and is no predictor.
    for (int b = 0; b < 4; ++b)
        if (((blocks >> b) & 1) == 0) pred_[static_cast<size_t>(mb) * 6 + b] = kAbsent;
    for (int b = 0; b < 6; ++b) {
        if (b < 4 && ((blocks >> b) & 1) == 0) continue;
        const KplMPEG4IntraPred *A, *B, *C;
        if (b < 4) {
            // Left, above-left and above 8x8 blocks, inside or outside this
            // macroblock.
            static constexpr int8_t kN[4][3][3] = {
                {{-1, 0, 1}, {-1, -1, 3}, {0, -1, 2}},
                {{0, 0, 0}, {0, -1, 2}, {0, -1, 3}},
                {{-1, 0, 3}, {-1, 0, 1}, {0, 0, 0}},
                {{0, 0, 2}, {0, 0, 0}, {0, 0, 1}},
            };
            const KplMPEG4IntraPred* n[3];
            for (int k = 0; k < 3; ++k) {
                const int8_t* e = kN[b][k];
                n[k] = (e[0] == 0 && e[1] == 0) ? &pred_[static_cast<size_t>(mb) * 6 + e[2]]
                                                : rec(mbx + e[0], mby + e[1], e[2]);
            }
            A = n[0];
            B = n[1];
            C = n[2];
        } else {
            A = rec(mbx - 1, mby, b);
            B = rec(mbx - 1, mby - 1, b);
            C = rec(mbx, mby - 1, b);
        }
        alignas(16) int16_t coef[64] = {};
        if (dc_vlc && kpliDecodeDCIntra_MPEG4_1u16s(br.pp(), br.po(), &coef[0], b) != kplStsNoErr)
            return false;
        Kpl32s dir;
        kpliPredictDirIntra_MPEG4(A, B, C, &dir);
        const int scan = ac_pred ? (dir == KPLVC_PRED_TOP ? KPLVC_SCAN_HORIZONTAL : KPLVC_SCAN_VERTICAL)
                                 : (vop_.alt_scan ? KPLVC_SCAN_VERTICAL : KPLVC_SCAN_ZIGZAG);
        if ((cbp >> (5 - b)) & 1) {
            Kpl32s last;
            if (kpliDecodeCoeffsIntra_MPEG4_1u16s(br.pp(), br.po(), coef, &last, dc_vlc ? 1 : 0, scan) !=
                kplStsNoErr)
                return false;
        }
        if (!br.check()) return false;
        kpliPredictReconIntra_MPEG4_16s(coef, dir == KPLVC_PRED_LEFT ? A : C,
                                        &pred_[static_cast<size_t>(mb) * 6 + b], dir, ac_pred ? 1 : 0, qp_,
                                        b);
        if (vol_.quant_type)
            kpliQuantInvIntra_MPEG4_16s_C1I(coef, qp_, vol_.intra_matrix);
        else
            kpliQuantInvIntraH263_MPEG4_16s_C1I(coef, qp_);
        uint8_t* dst;
        int step;
        if (b < 4) {
            step = f.stride(0);
            const int row = field_dct ? (b >> 1) : 8 * (b >> 1);
            dst = f.data(0) + static_cast<intptr_t>(16 * mby + row) * step + 16 * mbx + (b & 1) * 8;
            if (field_dct) step *= 2;
        } else {
            step = f.stride(b - 3);
            dst = f.data(b - 3) + static_cast<intptr_t>(8 * mby) * step + 8 * mbx;
        }
        kpliDCT8x8Inv_16s8u_C1R(coef, dst, step);
    }
    return true;
}

bool Mpeg4Decoder::inter_residual(BitReader& br, int cbp, int16_t (*res)[64], bool* coded) {
    const int scan = vop_.alt_scan ? KPLVC_SCAN_VERTICAL : KPLVC_SCAN_ZIGZAG;
    const int16_t* m = vol_.quant_type ? vol_.inter_matrix : nullptr;
    for (int b = 0; b < 6; ++b) {
        coded[b] = ((cbp >> (5 - b)) & 1) != 0;
        if (!coded[b]) continue;
        Kpl32s last;
        if (kpliReconstructCoeffsInter_MPEG4_1u16s(br.pp(), br.po(), res[b], &last, scan, qp_, m) !=
            kplStsNoErr)
            return false;
        idct_residual(res[b], last, scan);
    }
    return br.check();
}

// ---- Macroblocks of I-, P- and S-VOPs --------------------------------------------

bool Mpeg4Decoder::decode_mb_ip(BitReader& br, int mbx, int mby) {
    const int mb = mby * mb_w_ + mbx;
    packet_[mb] = packet_id_;
    MbInfo& inf = info_[mb];
    inf = MbInfo{};
    KplMotionVector* mv = &mv_[static_cast<size_t>(mb) * 4];
    const bool s_vop = vop_.type == kS;
    const Dest dst = frame_dest(mbx, mby);
    int blocks = 15;
    if (vol_.shape != 0) {
        if (!decode_shape(br, mbx, mby, &blocks)) return false;
        blk_[mb] = static_cast<uint8_t>(blocks);
        if (blocks == 0) {
            // Transparent: no texture (padding fills it in).
            for (int b = 0; b < 4; ++b) mv[b] = {0, 0};
            for (int b = 0; b < 6; ++b) pred_[static_cast<size_t>(mb) * 6 + b] = kAbsent;
            return true;
        }
    }

    if (vop_.type != kI && br.bit()) {
        // not_coded: a copy of the reference (the warped one in an S-VOP,
        // which B-VOPs do not count as skipped: it was predicted, not copied).
        inf.skipped = s_vop ? 0 : 1;
        KplMotionVector v = {0, 0};
        if (s_vop) {
            kpliWarpMV_MPEG4(&warp_, mbx, mby, vop_.fcode_f, vol_.quarter_sample, &v);
            predict_gmc(dst, mbx, mby);
        } else {
            predict_mb(dst, bwd_, mbx, mby, &v, false, vop_.rounding);
        }
        for (int b = 0; b < 4; ++b) mv[b] = v;
        return true;
    }
    Kpl8u mcbpc = 255;
    while (mcbpc == 255) {
        const KplStatus st = vop_.type == kI ? kpliDecodeMCBPCIntra_H263(br.pp(), br.po(), &mcbpc)
                                             : kpliDecodeMCBPCInter_H263(br.pp(), br.po(), &mcbpc);
        if (st != kplStsNoErr || !br.check()) return false;
    }
    const int type = mcbpc & 15;
    const bool intra = type >= 3;
    if (type > 4) return false;
    const bool mcsel = s_vop && type < 2 && br.bit();
    const bool ac_pred = intra && br.bit();
    int cbp;
    const int inside = __builtin_popcount(static_cast<unsigned>(blocks));
    if (inside == 4) {
        Kpl8u cbpy;
        if (kpliDecodeCBPY_H263(br.pp(), br.po(), &cbpy) != kplStsNoErr) return false;
        cbp = ((intra ? 15 - cbpy : cbpy) << 2) | ((mcbpc >> 4) & 3);
    } else {
        // One bit per block inside the shape, in block order.
        int v;
        if (!read_cbpy_shape(br, inside, &v)) return false;
        if (intra) v = ((1 << inside) - 1) - v;
        int cbpy = 0;
        for (int b = 0, k = inside - 1; b < 4; ++b)
            if ((blocks >> b) & 1) cbpy |= ((v >> k--) & 1) << (3 - b);
        cbp = (cbpy << 2) | ((mcbpc >> 4) & 3);
    }
    if (type == 1 || type == 4) qp_ = clip_qp(qp_ + kDquant[br.get(2)]);
    // intra_dc_vlc_thr compares the quantiser of the previous coded
    // macroblock of the packet (this one's for the first).
    const int rq = first_in_packet_ ? qp_ : running_qp_;
    running_qp_ = qp_;
    first_in_packet_ = false;
    const bool dc_vlc = vop_.dc_thr == 0 || (vop_.dc_thr < 7 && rq < 11 + 2 * vop_.dc_thr);
    bool field_dct = false, field_pred = false;
    uint8_t sel[2] = {0, 0};
    if (vol_.interlaced) {
        if (intra || cbp) field_dct = br.bit();
        if (!intra && type < 2 && !mcsel) {
            field_pred = br.bit();
            if (field_pred) {
                sel[0] = static_cast<uint8_t>(br.bit());
                sel[1] = static_cast<uint8_t>(br.bit());
            }
        }
    }
    if (intra) {
        inf.intra = 1;
        for (int b = 0; b < 4; ++b) mv[b] = {0, 0};
        return intra_blocks(br, mbx, mby, cbp, ac_pred, dc_vlc, field_dct, blocks);
    }
    // Neighbours outside the shape (transparent macroblocks) predict nothing.
    auto shaped = [&](int n) { return vol_.shape == 0 || blk_[n] != 0; };
    const int avail =
        (mbx > 0 && mb - 1 >= packet_start_ && shaped(mb - 1) ? 1 : 0) |
        (mby > 0 && mb - mb_w_ >= packet_start_ && shaped(mb - mb_w_) ? 2 : 0) |
        (mby > 0 && mbx < mb_w_ - 1 && mb - mb_w_ + 1 >= packet_start_ && shaped(mb - mb_w_ + 1) ? 4 : 0);
    const int step = 4 * mb_w_;
    KplMotionVector fmv[2];
    if (mcsel) {
        KplMotionVector v;
        kpliWarpMV_MPEG4(&warp_, mbx, mby, vop_.fcode_f, vol_.quarter_sample, &v);
        for (int b = 0; b < 4; ++b) mv[b] = v;
    } else if (type == 2) {
        // A block outside the shape sends no vector; it takes the one of the
        // block before it (the first inside for block 0).
        for (int b = 0; b < 4; ++b) {
            if (((blocks >> b) & 1) == 0) {
                mv[b] = b > 0 ? mv[b - 1] : KplMotionVector{0, 0};
                continue;
            }
            KplMotionVector p;
            kpliPredictMV_MPEG4(mv, step, b, avail, &p);
            if (kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &p, &mv[b], vop_.fcode_f) != kplStsNoErr)
                return false;
        }
        if ((blocks & 1) == 0) {
            int first = 1;
            while (((blocks >> first) & 1) == 0) ++first;
            for (int b = 0; b < first; ++b) mv[b] = mv[first];
        }
    } else if (field_pred) {
        KplMotionVector p;
        kpliPredictMV_MPEG4(mv, step, 0, avail, &p);
        p.dy = static_cast<int16_t>(p.dy / 2);
        for (int k = 0; k < 2; ++k)
            if (kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &p, &fmv[k], vop_.fcode_f) != kplStsNoErr)
                return false;
        // For its neighbours' prediction the macroblock stands for the
        // mean of its field vectors: x rounded to the odd neighbour, y in
        // frame units (the sum of the two field components).
        const int sx = fmv[0].dx + fmv[1].dx;
        const KplMotionVector v = {static_cast<int16_t>((sx >> 1) | (sx & 1)),
                                   static_cast<int16_t>(fmv[0].dy + fmv[1].dy)};
        for (int b = 0; b < 4; ++b) mv[b] = v;
        inf.field = 1;
        inf.field_sel[0] = sel[0];
        inf.field_sel[1] = sel[1];
        field_mv_[static_cast<size_t>(mb) * 2] = fmv[0];
        field_mv_[static_cast<size_t>(mb) * 2 + 1] = fmv[1];
    } else {
        KplMotionVector p;
        kpliPredictMV_MPEG4(mv, step, 0, avail, &p);
        if (kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &p, &mv[0], vop_.fcode_f) != kplStsNoErr) return false;
        mv[1] = mv[2] = mv[3] = mv[0];
    }
    if (!br.check()) return false;
    alignas(16) int16_t res[6][64];
    bool coded[6];
    if (!inter_residual(br, cbp, res, coded)) return false;
    if (mcsel)
        predict_gmc(dst, mbx, mby);
    else if (field_pred)
        predict_field_mb(dst, bwd_, mbx, mby, fmv, sel, vop_.rounding);
    else
        predict_mb(dst, bwd_, mbx, mby, mv, type == 2, vop_.rounding);
    add_residual(mbx, mby, res, coded, field_dct);
    return true;
}

// ---- Macroblocks of B-VOPs --------------------------------------------------------

bool Mpeg4Decoder::decode_mb_b(BitReader& br, int mbx, int mby) {
    const int mb = mby * mb_w_ + mbx;
    packet_[mb] = packet_id_;
    if (mbx == 0) std::memset(pmv_, 0, sizeof pmv_);
    const int past = fwd_, future = bwd_;
    alignas(32) uint8_t fy[16 * 16], fcb[64], fcr[64], by[16 * 16], bcb[64], bcr[64];
    alignas(16) int16_t res[6][64];
    bool coded[6] = {false, false, false, false, false, false};

    if (ref_info_[mb].skipped) {
        // The co-located macroblock was not coded: nothing is sent, the
        // prediction is the past reference unmoved.
        const KplMotionVector z = {0, 0};
        predict_mb(frame_dest(mbx, mby), past, mbx, mby, &z, false, 0);
        return true;
    }
    int modb;  // 0: "1" (direct, nothing else), 1: "01" (type only), 2: "00" (type and cbp)
    if (br.bit())
        modb = 0;
    else
        modb = br.bit() ? 1 : 2;
    enum { kDirect = 0, kInterp = 1, kBackward = 2, kForward = 3 };
    int type = kDirect, cbp = 0;
    if (modb > 0) {
        type = 0;
        while (type < 4 && !br.bit()) ++type;
        if (type == 4) return false;
        if (modb == 2) cbp = static_cast<int>(br.get(6));
        if (type != kDirect && cbp != 0 && br.bit()) qp_ = clip_qp(qp_ + (br.bit() ? 2 : -2));
    }
    bool field_dct = false, field_pred = false;
    uint8_t fsel[2] = {0, 0}, bsel[2] = {0, 0};
    if (vol_.interlaced) {
        if (cbp) field_dct = br.bit();
        if (type != kDirect) {
            field_pred = br.bit();
            if (field_pred) {
                if (type != kBackward)
                    fsel[0] = static_cast<uint8_t>(br.bit()), fsel[1] = static_cast<uint8_t>(br.bit());
                if (type != kForward)
                    bsel[0] = static_cast<uint8_t>(br.bit()), bsel[1] = static_cast<uint8_t>(br.bit());
            }
        }
    }
    KplMotionVector fw[4], bw[4];
    bool four = false;
    const bool use_f = type != kBackward, use_b = type != kForward;
    // One direction predicts straight into the frame, two into scratch.
    const Dest tf = use_b ? Dest{fy, fcb, fcr, 16, 8} : frame_dest(mbx, mby);
    const Dest tb = use_f ? Dest{by, bcb, bcr, 16, 8} : frame_dest(mbx, mby);
    if (type == kDirect) {
        KplMotionVector delta = {0, 0}, zero = {0, 0};
        if (modb > 0 && kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &zero, &delta, 1) != kplStsNoErr)
            return false;
        if (ref_info_[mb].field) {
            // Field direct mode: each field of the co-located macroblock
            // scales its own vector by the distances between fields (in
            // field periods, each field one apart in the order of
            // top_field_first). The backward fields are this VOP's own.
            KplMotionVector fm[2][2];
            for (int i = 0; i < 2; ++i) {
                const int fs = ref_info_[mb].field_sel[i];
                const int64_t d = vop_.top_field_first ? i - fs : fs - i;
                const int64_t pp = pp_field_ + d, pb = pb_field_ + d;
                KplMotionVector c4[4], f4[4], b4[4];
                for (auto& c : c4) c = ref_field_mv_[static_cast<size_t>(mb) * 2 + i];
                if (pp > 0 && pb >= 0 && pb <= pp)
                    kpliDirectMV_MPEG4(c4, &delta, static_cast<Kpl32s>(pb), static_cast<Kpl32s>(pp), f4, b4);
                else
                    f4[0] = b4[0] = {0, 0};
                fm[0][i] = f4[0];
                fm[1][i] = b4[0];
                fsel[i] = static_cast<uint8_t>(fs);
                bsel[i] = static_cast<uint8_t>(i);
            }
            if (!br.check() || !inter_residual(br, cbp, res, coded)) return false;
            predict_field_mb(Dest{fy, fcb, fcr, 16, 8}, past, mbx, mby, fm[0], fsel, 0);
            predict_field_mb(Dest{by, bcb, bcr, 16, 8}, future, mbx, mby, fm[1], bsel, 0);
            goto combine;
        }
        const KplMotionVector* col = &ref_mv_[static_cast<size_t>(mb) * 4];
        const int64_t trd = ref_distance_, trb = b_time_;
        if (trd > 0 && trb >= 0 && trb <= trd)
            kpliDirectMV_MPEG4(col, &delta, static_cast<Kpl32s>(trb), static_cast<Kpl32s>(trd), fw, bw);
        else
            for (int b = 0; b < 4; ++b) fw[b] = bw[b] = {0, 0};
        four = !(col[0].dx == col[1].dx && col[0].dy == col[1].dy && col[0].dx == col[2].dx &&
                 col[0].dy == col[2].dy && col[0].dx == col[3].dx && col[0].dy == col[3].dy);
    } else {
        KplMotionVector fm[2][2];
        for (int d = 0; d < 2; ++d) {
            if ((d == 0 && !use_f) || (d == 1 && !use_b)) continue;
            const int fc = d == 0 ? vop_.fcode_f : vop_.fcode_b;
            if (field_pred) {
                for (int k = 0; k < 2; ++k) {
                    KplMotionVector p = pmv_[d][k];
                    p.dy = static_cast<int16_t>(p.dy / 2);
                    if (kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &p, &fm[d][k], fc) != kplStsNoErr)
                        return false;
                    pmv_[d][k] = {fm[d][k].dx, static_cast<int16_t>(2 * fm[d][k].dy)};
                }
            } else {
                KplMotionVector v;
                if (kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &pmv_[d][0], &v, fc) != kplStsNoErr)
                    return false;
                pmv_[d][0] = pmv_[d][1] = v;
                for (int b = 0; b < 4; ++b) (d == 0 ? fw : bw)[b] = v;
            }
        }
        if (field_pred) {
            if (!br.check() || !inter_residual(br, cbp, res, coded)) return false;
            if (use_f) predict_field_mb(tf, past, mbx, mby, fm[0], fsel, 0);
            if (use_b) predict_field_mb(tb, future, mbx, mby, fm[1], bsel, 0);
            goto combine;
        }
    }
    if (!br.check() || !inter_residual(br, cbp, res, coded)) return false;
    if (use_f) predict_mb(tf, past, mbx, mby, fw, four, 0);
    if (use_b) predict_mb(tb, future, mbx, mby, bw, four, 0);
combine:
    if (use_f && use_b) {
        // Average of the two predictions (rounding up) plus the residual.
        Frame& f = pool_[cur_];
        const int ys = f.stride(0), cs = f.stride(1);
        uint8_t* y = f.data(0) + static_cast<intptr_t>(16 * mby) * ys + 16 * mbx;
        if (!coded[0] && !coded[1] && !coded[2] && !coded[3]) {
            kpliMC16x16B_8u_C1(fy, 16, 0, by, 16, 0, kZeroRes, 32, y, ys, 0);
        } else {
            for (int b = 0; b < 4; ++b) {
                const int row = field_dct ? (b >> 1) : 8 * (b >> 1), m = field_dct ? 2 : 1;
                const int o = row * 16 + (b & 1) * 8;
                kpliMC8x8B_8u_C1(fy + o, 16 * m, 0, by + o, 16 * m, 0, coded[b] ? res[b] : kZeroRes, 16,
                                 y + static_cast<intptr_t>(row) * ys + (b & 1) * 8, ys * m, 0);
            }
        }
        for (int c = 0; c < 2; ++c) {
            uint8_t* d = f.data(1 + c) + static_cast<intptr_t>(8 * mby) * cs + 8 * mbx;
            kpliMC8x8B_8u_C1(c ? fcr : fcb, 8, 0, c ? bcr : bcb, 8, 0, coded[4 + c] ? res[4 + c] : kZeroRes,
                             16, d, cs, 0);
        }
    } else {
        add_residual(mbx, mby, res, coded, field_dct);
    }
    return true;
}

// ---- Video packets -----------------------------------------------------------------

// The resync marker's zeros: 16 in I-VOPs, 15 + f_code in P- and S-VOPs,
// 15 + the larger f_code (at least 2) in B-VOPs; then a one.
int resync_zeros(const Vop& v) {
    if (v.type == kI) return 16;
    if (v.type == kB)
        return 15 +
               (v.fcode_f > v.fcode_b ? (v.fcode_f > 2 ? v.fcode_f : 2) : (v.fcode_b > 2 ? v.fcode_b : 2));
    return 15 + v.fcode_f;
}

// Stuffing (a zero, then ones up to the byte boundary: 1..8 bits) followed
// by a resync marker.
bool Mpeg4Decoder::at_resync(BitReader& br) const {
    const int n = 8 - br.bit_off();
    if (br.peek(n) != (1u << (n - 1)) - 1) return false;
    BitReader t = br;
    t.skip(n);
    const int z = resync_zeros(vop_);
    return t.peek(z > 24 ? 24 : z) == 0 && t.get_long(z + 1) == 1u;
}

int Mpeg4Decoder::packet_number(const BitReader& br) const {
    BitReader t = br;
    t.skip(8 - t.bit_off());
    t.skip(resync_zeros(vop_) + 1);
    return static_cast<int>(t.get(mb_bits_));
}

bool Mpeg4Decoder::read_packet_header(BitReader& br, int* mb_number) {
    br.skip(8 - br.bit_off());
    br.skip(resync_zeros(vop_) + 1);
    // With shape, header_extension_code comes first and repeats the
    // bounding box here.
    bool hec = false;
    if (vol_.shape != 0) {
        hec = br.bit();
        if (hec)
            for (int k = 0; k < 4; ++k) {
                br.skip(13);
                br.marker();
            }
    }
    *mb_number = static_cast<int>(br.get(mb_bits_));
    const int q = static_cast<int>(br.get(vol_.quant_precision));
    if (vol_.shape == 0) hec = br.bit();
    if (hec) {  // header_extension_code: a copy of the VOP header's fields
        while (br.bit())
            if (br.overrun()) return false;
        br.marker();
        br.skip(vol_.time_bits);
        br.marker();
        const int type = static_cast<int>(br.get(2));
        if (vol_.shape != 0) br.skip(type != kI ? 2 : 1);  // change_conv_ratio_disable, vop_shape_coding_type
        br.skip(3);                                        // intra_dc_vlc_thr
        if (type == kS && vol_.warp_points > 0) return false;  // trajectory repeated: not expected here
        if (type != kI) br.skip(3);
        if (type == kB) br.skip(3);
    }
    if (q < 1 || q > 31 || *mb_number >= mb_count_ || br.overrun()) return false;
    qp_ = running_qp_ = q;
    first_in_packet_ = true;
    ++packet_id_;
    packet_start_ = *mb_number;
    std::memset(pmv_, 0, sizeof pmv_);
    return true;
}

// After damage: the next resync marker of this VOP (its macroblock number in
// *mb_number), or false at the next start code or the end.
bool Mpeg4Decoder::find_resync(BitReader& br, int* mb_number) {
    br.align();
    const int z = resync_zeros(vop_);
    while (br.left() > 32) {
        const uint8_t* p = br.begin() + br.byte_pos();
        if (p[0] == 0 && p[1] == 0 && p[2] == 1) return false;  // a start code: the VOP ends
        if (p[0] == 0 && p[1] == 0) {
            BitReader t = br;
            if (t.peek(z > 24 ? 24 : z) == 0 && t.get_long(z + 1) == 1u) {
                // read_packet_header expects the stuffing byte before.
                t = br;
                t.skip(z + 1);
                BitReader h = br;
                h.seek(br.byte_pos() - 1, 0);
                int n;
                if (read_packet_header(h, &n)) {
                    br = h;
                    *mb_number = n;
                    return true;
                }
            }
        }
        br.skip(8);
    }
    return false;
}

void Mpeg4Decoder::conceal(int from, int to) {
    Frame& f = pool_[cur_];
    const int src = vop_.type == kB ? fwd_ : bwd_;
    for (int mb = from; mb < to; ++mb) {
        const int mbx = mb % mb_w_, mby = mb / mb_w_;
        info_[mb] = MbInfo{};
        for (int b = 0; b < 4; ++b) mv_[static_cast<size_t>(mb) * 4 + b] = {0, 0};
        for (int p = 0; p < 3; ++p) {
            const int n = p ? 8 : 16, s = f.stride(p);
            uint8_t* d = f.data(p) + static_cast<intptr_t>(n * mby) * s + n * mbx;
            if (src >= 0 && src != cur_) {
                const uint8_t* r = pool_[src].data(p) + static_cast<intptr_t>(n * mby) * s + n * mbx;
                for (int j = 0; j < n; ++j) std::memcpy(d + j * s, r + j * s, static_cast<size_t>(n));
            } else {
                for (int j = 0; j < n; ++j) std::memset(d + j * s, 128, static_cast<size_t>(n));
            }
        }
        ++stats_->concealed;
    }
}

// ---- VOPs ---------------------------------------------------------------------------

bool Mpeg4Decoder::decode_vop(BitReader& br) {
    const char* why = "";
    if (!parse_vop(br, vol_, &vop_, &why)) {
        ++stats_->errors;
        return true;
    }
    // Time: references count whole seconds from the previous reference; a
    // B-VOP from the reference before it (the past one).
    const int64_t res = vol_.time_res;
    if (vop_.type != kB) {
        last_time_base_ = time_base_;
        time_base_ += vop_.modulo;
        const int64_t t = time_base_ * res + vop_.increment;
        ref_distance_ = t - last_ref_time_;
        last_ref_time_ = t;
    } else {
        const int64_t t = (last_time_base_ + vop_.modulo) * res + vop_.increment;
        b_time_ = ref_distance_ - (last_ref_time_ - t);
        // Field distances count frames of the first B-VOP's distance, two
        // fields each.
        if (frame_time_ <= 0 && b_time_ > 0) frame_time_ = b_time_;
        if (frame_time_ > 0) {
            auto frames = [this](int64_t x) { return (x + frame_time_ / 2) / frame_time_; };
            const int64_t past = last_ref_time_ - ref_distance_;
            pp_field_ = 2 * (frames(last_ref_time_) - frames(past));
            pb_field_ = 2 * (frames(t) - frames(past));
        }
    }
    if (!vop_.coded) return true;  // nothing to show (the reference stays)
    if (vol_.shape != 0) {
        if (vop_.type == kB || vop_.type == kS) {
            // Not decoded with shape yet: skipped, counted, named.
            ++stats_->errors;
            std::snprintf(stats_->message, sizeof stats_->message, "B-VOPs with binary shape are skipped");
            return true;
        }
        if (pool_.empty() || vop_.vop_width != vol_.width || vop_.vop_height != vol_.height) {
            // A new bounding-box size: new buffers, and prediction restarts.
            if (held_ && bwd_ >= 0) output(pool_[bwd_]);
            vol_.width = vop_.vop_width;
            vol_.height = vop_.vop_height;
            allocate();
        }
    }
    if (vop_.type == kB && (fwd_ < 0 || bwd_ < 0)) return true;  // no past reference yet
    if (vop_.type != kI && bwd_ < 0) {
        // A P-VOP without a reference (the stream starts damaged): predict
        // from grey.
        bwd_ = 0;
        vop_pos_[0][0] = vop_.hor_ref;
        vop_pos_[0][1] = vop_.ver_ref;
        for (int p = 0; p < 3; ++p) {
            Frame& g = pool_[0];
            const int pad = g.pad(p), s = g.stride(p);
            for (int j = -pad; j < g.plane_height(p) + pad; ++j)
                std::memset(g.data(p) + static_cast<intptr_t>(j) * s - pad, 128,
                            static_cast<size_t>(g.plane_width(p) + 2 * pad));
        }
        ++stats_->errors;
    }
    start_vop();
    if (vop_.type == kS) {
        const KpliSize size = {vol_.width, vol_.height};
        kpliWarpInit_MPEG4(&warp_, vop_.warp_du, vop_.warp_dv, vol_.warp_points, vol_.warp_accuracy, size);
    }
    if (vol_.data_partitioned && vop_.type != kB) {
        decode_dp_vop(br);
        finish_reference();
        return true;
    }
    int mb = 0;
    while (mb < mb_count_) {
        // A B-VOP macroblock whose co-located one was not coded takes no
        // bits, so the next packet's marker may already be in sight.
        const bool silent = vop_.type == kB && ref_info_[mb].skipped;
        if (mb > 0 && !vol_.resync_disable && at_resync(br) && !(silent && packet_number(br) > mb)) {
            int n;
            if (!read_packet_header(br, &n) || n < mb) {
                ++stats_->errors;
                conceal(mb, mb_count_);
                break;
            }
            if (n > mb) {
                ++stats_->errors;
                conceal(mb, n);
                mb = n;
            }
        }
        const int mbx = mb % mb_w_, mby = mb / mb_w_;
        const bool ok = vop_.type == kB ? decode_mb_b(br, mbx, mby) : decode_mb_ip(br, mbx, mby);
        if (!ok || br.overrun()) {
            ++stats_->errors;
            int n;
            if (!vol_.resync_disable && find_resync(br, &n) && n > mb) {
                conceal(mb, n);
                mb = n;
                continue;
            }
            conceal(mb, mb_count_);
            break;
        }
        qp_map_[cur_][mb] = static_cast<uint8_t>(qp_);
        ++mb;
    }
    if (vop_.type == kB)
        output(pool_[cur_]);
    else
        finish_reference();
    return true;
}

// ---- Short video header --------------------------------------------------------------

bool Mpeg4Decoder::decode_mb_short(BitReader& br, int mbx, int mby) {
    const int mb = mby * mb_w_ + mbx;
    packet_[mb] = packet_id_;
    MbInfo& inf = info_[mb];
    inf = MbInfo{};
    KplMotionVector* mv = &mv_[static_cast<size_t>(mb) * 4];
    Frame& f = pool_[cur_];
    alignas(16) int16_t res[6][64];
    bool coded[6] = {false, false, false, false, false, false};
    if (vop_.type == kP && br.bit()) {  // COD: not coded
        inf.skipped = 1;
        const KplMotionVector z = {0, 0};
        for (int b = 0; b < 4; ++b) mv[b] = z;
        predict_mb(frame_dest(mbx, mby), bwd_, mbx, mby, &z, false, 0);
        return true;
    }
    Kpl8u mcbpc = 255;
    while (mcbpc == 255) {
        const KplStatus st = vop_.type == kI ? kpliDecodeMCBPCIntra_H263(br.pp(), br.po(), &mcbpc)
                                             : kpliDecodeMCBPCInter_H263(br.pp(), br.po(), &mcbpc);
        if (st != kplStsNoErr || !br.check()) return false;
    }
    const int type = mcbpc & 15;
    if (type == 2 || type > 4) return false;  // no four-vector macroblocks here
    const bool intra = type >= 3;
    Kpl8u cbpy;
    if (kpliDecodeCBPY_H263(br.pp(), br.po(), &cbpy) != kplStsNoErr) return false;
    const int cbp = ((intra ? 15 - cbpy : cbpy) << 2) | ((mcbpc >> 4) & 3);
    if (type == 1 || type == 4) qp_ = clip_qp(qp_ + kDquant[br.get(2)]);
    if (intra) {
        for (int b = 0; b < 4; ++b) mv[b] = {0, 0};
        for (int b = 0; b < 6; ++b) {
            uint8_t* dst;
            int step;
            if (b < 4) {
                step = f.stride(0);
                dst = f.data(0) + static_cast<intptr_t>(16 * mby + 8 * (b >> 1)) * step + 16 * mbx +
                      (b & 1) * 8;
            } else {
                step = f.stride(b - 3);
                dst = f.data(b - 3) + static_cast<intptr_t>(8 * mby) * step + 8 * mbx;
            }
            const KplStatus st = ((cbp >> (5 - b)) & 1)
                                     ? kpliDecodeBlockCoef_Intra_H263_1u8u(br.pp(), br.po(), dst, step, qp_)
                                     : kpliDecodeBlockCoef_IntraDCOnly_H263_1u8u(br.pp(), br.po(), dst, step);
            if (st != kplStsNoErr || !br.check()) return false;
        }
        inf.intra = 1;
        return true;
    }
    const int avail = (mbx > 0 && mb - 1 >= packet_start_ ? 1 : 0) |
                      (mby > 0 && mb - mb_w_ >= packet_start_ ? 2 : 0) |
                      (mby > 0 && mbx < mb_w_ - 1 && mb - mb_w_ + 1 >= packet_start_ ? 4 : 0);
    KplMotionVector p;
    kpliPredictMV_MPEG4(mv, 4 * mb_w_, 0, avail, &p);
    if (kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &p, &mv[0], 1) != kplStsNoErr) return false;
    mv[1] = mv[2] = mv[3] = mv[0];
    for (int b = 0; b < 6; ++b) {
        coded[b] = ((cbp >> (5 - b)) & 1) != 0;
        if (coded[b] && kpliDecodeBlockCoef_Inter_H263_1u16s(br.pp(), br.po(), res[b], qp_) != kplStsNoErr)
            return false;
    }
    if (!br.check()) return false;
    predict_mb(frame_dest(mbx, mby), bwd_, mbx, mby, mv, false, 0);
    add_residual(mbx, mby, res, coded, false);
    return true;
}

bool Mpeg4Decoder::decode_short_vop(BitReader& br) {
    const char* why = "";
    const Vol before = vol_;
    if (!parse_short_header(br, &vol_, &vop_, &why)) {
        ++stats_->errors;
        return true;
    }
    if (!before.valid || before.width != vol_.width || before.height != vol_.height || !before.short_header)
        allocate();
    if (vop_.type == kP && bwd_ < 0) {
        ++stats_->errors;
        return true;
    }
    start_vop();
    // One macroblock row per GOB up to CIF, two for 4CIF, four for 16CIF.
    const int rows_per_gob = mb_h_ / vop_.gob_count;
    int mb = 0;
    while (mb < mb_count_) {
        const int mbx = mb % mb_w_, mby = mb / mb_w_;
        if (mbx == 0 && mby > 0 && mby % rows_per_gob == 0) {
            // An optional GOB header, possibly after stuffing to a byte.
            BitReader t = br;
            if (t.peek(17) != 1) t.align();
            if (t.peek(17) == 1) {
                t.skip(17);
                t.skip(5 + 2);
                qp_ = clip_qp(static_cast<int>(t.get(5)));
                br = t;
                ++packet_id_;
                packet_start_ = mb;
            }
        }
        if (!decode_mb_short(br, mbx, mby) || br.overrun()) {
            ++stats_->errors;
            conceal(mb, mb_count_);
            break;
        }
        qp_map_[cur_][mb] = static_cast<uint8_t>(qp_);
        ++mb;
    }
    finish_reference();
    return true;
}

// ---- The stream ------------------------------------------------------------------------

bool Mpeg4Decoder::run(const uint8_t* data, size_t size) {
    std::vector<uint8_t> buf(data, data + size);
    // The shape decoder's arithmetic code looks up to 512 bytes ahead.
    buf.resize(size + BitReader::kPadding + 512, 0);
    BitReader br(buf.data(), size);
    size_t pos = 0;
    bool any_vol = false;
    while (pos + 3 < size && !stop_) {
        const uint8_t* p = buf.data() + pos;
        if (p[0] != 0 || p[1] != 0) {
            ++pos;
            continue;
        }
        if (p[2] == 1) {
            const uint8_t code = p[3];
            br.seek(pos + 4);
            if (code >= 0x20 && code <= 0x2F) {
                const char* why = "";
                Vol v;
                if (!parse_vol(br, &v, &why)) {
                    if (std::strncmp(why, "damaged", 7) == 0) {
                        ++stats_->errors;
                    } else {
                        std::snprintf(stats_->message, sizeof stats_->message, "%s", why);
                        return false;
                    }
                } else {
                    const bool same = vol_.valid && vol_.shape == v.shape && vol_.width == v.width &&
                                      vol_.height == v.height;
                    const bool same_shaped = vol_.valid && vol_.shape != 0 && v.shape != 0;
                    if (same_shaped) v.width = vol_.width, v.height = vol_.height;  // the VOPs' size
                    vol_ = v;
                    if (rewrite_out_ && v.data_partitioned && !v.rvlc)
                        rw_.push_back(
                            {{static_cast<int64_t>(v.rvlc_bit), static_cast<int64_t>(v.rvlc_bit) + 1},
                             std::vector<uint8_t>{1}});
                    if (!same && !same_shaped) {
                        if (held_ && bwd_ >= 0) output(pool_[bwd_]);
                        held_ = false;
                        if (v.shape == 0) {
                            allocate();
                        } else {
                            // Sized by the first VOP's bounding box.
                            pool_.clear();
                            cur_ = fwd_ = bwd_ = -1;
                        }
                    }
                    any_vol = true;
                }
            } else if (code == 0xB6 && vol_.valid && !vol_.short_header) {
                decode_vop(br);
            }
            // Continue after the data just read (or the start code).
            const size_t next = br.byte_pos() > pos + 4 ? br.byte_pos() : pos + 4;
            pos = next;
            continue;
        }
        if ((p[2] & 0xFC) == 0x80 && !any_vol) {
            br.seek(pos + 2, 6);
            decode_short_vop(br);
            const size_t next = br.byte_pos() > pos + 3 ? br.byte_pos() : pos + 3;
            pos = next;
            continue;
        }
        ++pos;
    }
    if (held_ && bwd_ >= 0) output(pool_[bwd_]);
    held_ = false;
    if (rewrite_out_) {
        rewrite_out_->clear();
        if (rewrite_ok_ && !rw_.empty()) *rewrite_out_ = assemble_rewrite(data, size);
    }
    if (stats_->frames == 0 && stats_->message[0] == 0)
        std::snprintf(stats_->message, sizeof stats_->message, "no decodable VOP found");
    return stats_->frames > 0 || size == 0;
}

}  // namespace kplvc::codecs::mpeg4
