// H.263 / H.263+ decoder built on the library.
//
// Baseline H.263 and the H.263+ options of PLUSPTYPE: custom picture
// formats and clocks, Annexes D (unrestricted vectors), F (advanced
// prediction: four vectors and OBMC), I (advanced intra coding), J
// (deblocking filter), K (slices, any order, not rectangular), S
// (alternative inter VLC) and T (modified quantisation). PB-frames and the
// other annexes are rejected by name.
//
// The decoder parses the headers and owns the frames and the macroblock
// loop; the library decodes every symbol and block, forms predictions
// (motion compensation with the rounding type, OBMC), reconstructs, filters
// edges and extends frame borders. Damage is met by resynchronising at the
// next start code and concealing the lost macroblocks with the co-located
// ones of the reference.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bits.h"
#include "common/codec.h"
#include "h263.h"
#include "headers.h"
#include "kplvc.h"
#include "loopfilter.h"
#include "mbgrid.h"

namespace kplvc::codecs::h263 {

namespace {

constexpr int kPad = 48;  // luma border of the frames (chroma 24)

// A start code prefix here, possibly after zero stuffing up to the next
// byte boundary? If so the position moves onto it.
bool at_start_code(Bits& b) {
    if (b.peek(17) == 1) return true;
    const size_t here = b.tell();
    const int stuff = static_cast<int>((8 - (here & 7)) & 7);
    if (stuff == 0 || b.peek(stuff) != 0) return false;
    Bits t = b;
    t.skip(stuff);
    if (t.peek(17) != 1) return false;
    b = t;
    return true;
}

class H263Decoder {
public:
    H263Decoder(PictureSink sink, void* user, DecodeStats* stats) : sink_(sink), user_(user), stats_(stats) {}

    int run(const uint8_t* data, size_t size);

private:
    bool setup(const PictureHeader& h);
    bool decode_picture(Bits& b);
    bool read_slice_or_gob(Bits& b, int* mb, int* qp);
    bool decode_mb(Bits& b, int mb, int* qp);
    bool read_mcbpc(Bits& b, int* type, int* cbpc, bool* skipped);
    void conceal(int mb);
    void reconstruct_inter(int mb);
    void predict_luma(int mb, int blk, uint8_t* dst, int step);
    const uint8_t* fetch(int plane, int x, int y, int w, int h, int* step, uint8_t* temp);
    void loop_filter();
    void output();

    PictureSink sink_;
    void* user_;
    DecodeStats* stats_;

    HeaderState hstate_;
    PictureHeader ph_;
    MbGrid grid_;
    Frame cur_, ref_;
    bool stop_ = false;
    int segment_ = 0;
    int flags_inter_ = 0, flags_intra_ = 0;
    // Annex I predictors: the first row of the latest intra block of each
    // block column, the first column of the latest intra block of each
    // block row (luma, Cb, Cr).
    std::vector<Kpl16s> aic_row_[3], aic_col_[3];
    // Residuals of inter macroblocks: one slot, or one per macroblock when
    // OBMC needs the right neighbour's vectors before reconstruction.
    std::vector<Kpl16s> residual_;
    bool deferred_ = false;
};

// ---- Geometry --------------------------------------------------------------------

bool H263Decoder::setup(const PictureHeader& h) {
    const int cw = (h.width + 15) & ~15, ch = (h.height + 15) & ~15;
    if (cur_.empty() || cur_.width() != cw || cur_.height() != ch || ph_.width != h.width ||
        ph_.height != h.height) {
        if (static_cast<long long>(cw) * ch > 2048LL * 1152)
            return false;  // beyond the largest H.263 picture
        cur_ = Frame(cw, ch, Chroma::c420, kPad);
        ref_ = Frame(cw, ch, Chroma::c420, kPad);
        // Until a picture has been decoded, predictions come from mid-grey.
        for (int p = 0; p < 3; ++p)
            std::memset(ref_.data(p) - ref_.pad(p) - static_cast<intptr_t>(ref_.pad(p)) * ref_.stride(p), 128,
                        static_cast<size_t>(ref_.stride(p)) * (ref_.plane_height(p) + 2 * ref_.pad(p)));
        grid_.resize(cw / 16, ch / 16);
    }
    ph_ = h;
    const int mbw = cw / 16, mbh = ch / 16;
    for (int p = 0; p < 3; ++p) {
        const int bw = p ? mbw : 2 * mbw, bh = p ? mbh : 2 * mbh;
        aic_row_[p].assign(static_cast<size_t>(bw) * 8, 0);
        aic_col_[p].assign(static_cast<size_t>(bh) * 8, 0);
    }
    deferred_ = h.modes.ap;
    residual_.assign(static_cast<size_t>(deferred_ ? mbw * mbh : 1) * 6 * 64, 0);
    flags_inter_ = (h.modes.mq ? KPLVC_H263_EXT_ESCAPE : 0) | (h.modes.aiv ? KPLVC_H263_ALT_INTER_VLC : 0);
    flags_intra_ = h.modes.mq ? KPLVC_H263_EXT_ESCAPE : 0;
    return true;
}

// ---- Stream and pictures -----------------------------------------------------------

int H263Decoder::run(const uint8_t* data, size_t size) {
    std::vector<Kpl8u> buf = padded_copy(data, size);
    Bits b(buf.data(), size);
    bool any = false;
    while (!stop_) {
        const size_t at = b.next_start_code();
        if (at >= b.size_bits()) break;
        b.seek(at + 17);
        if (b.peek(5) != 0) {  // a GOB or slice header outside any picture
            b.skip(1);
            continue;
        }
        b.skip(5);
        PictureHeader h;
        char why[128];
        const HeaderStatus hs = parse_picture_header(b, hstate_, &h, why, sizeof why);
        if (hs == HeaderStatus::unsupported) {
            std::snprintf(stats_->message, sizeof stats_->message, "%s", why);
            return -1;
        }
        if (hs == HeaderStatus::damaged || b.overrun()) {
            ++stats_->errors;
            continue;
        }
        if (!setup(h)) {
            std::snprintf(stats_->message, sizeof stats_->message,
                          "picture of %dx%d is larger than H.263 allows", h.width, h.height);
            return -1;
        }
        any = true;
        decode_picture(b);
    }
    if (!any) {
        std::snprintf(stats_->message, sizeof stats_->message, "no H.263 picture start code found");
        return -1;
    }
    return 0;
}

// Reads a GOB or slice header at a start code (the position is on its
// prefix). Returns false when the start code ends the picture (a picture
// start code or end of sequence), leaving the position on it.
bool H263Decoder::read_slice_or_gob(Bits& b, int* mb, int* qp) {
    Bits t = b;
    t.skip(17);
    const int nmb = grid_.mbw * grid_.mbh;
    if (t.peek(5) == 0) return false;  // next picture
    if (ph_.modes.ss) {
        // SSC, SEPB1 '1', [SSBI], MBA, [SEPB2 '1' after an MBA of more than
        // nine bits], SQUANT, SEPB3 '1', GFID.
        if (!t.bit()) return false;
        if (ph_.cpm) t.skip(4);
        const int bits = mba_bits(nmb);
        const int mba = static_cast<int>(t.get(bits));
        if (bits > 9 && !t.bit()) return false;
        const int q = static_cast<int>(t.get(5));
        if (!t.bit()) return false;
        t.skip(2);
        if (mba >= nmb || q < 1) return false;
        *mb = mba;
        *qp = q;
    } else {
        const int gn = static_cast<int>(t.get(5));
        const int rows = gob_rows(ph_.height);
        const int gobs = (grid_.mbh + rows - 1) / rows;
        if (gn >= gobs) return false;  // end of sequence, or damage
        if (ph_.cpm) t.skip(2);        // GSBI
        t.skip(2);                     // GFID
        const int q = static_cast<int>(t.get(5));
        if (q < 1) return false;
        *mb = gn * rows * grid_.mbw;
        *qp = q;
    }
    b = t;
    return true;
}

bool H263Decoder::decode_picture(Bits& b) {
    const int nmb = grid_.mbw * grid_.mbh;
    grid_.reset();
    segment_ = 0;
    int qp = ph_.quant;
    int mb = 0;
    const int gob_mbs = gob_rows(ph_.height) * grid_.mbw;
    if (ph_.modes.ss) {
        // Slice-structured pictures carry, right after the picture header,
        // the first slice's macroblock address between two '1' bits: 1, MBA
        // (0), 1.
        const int bits = mba_bits(nmb);
        if (b.peek(bits + 2) == ((1u << (bits + 1)) | 1u)) b.skip(bits + 2);
    }
    bool header_here = false;
    while (mb < nmb || header_here) {
        // Slices may start at any macroblock, GOB headers at GOB starts.
        if ((ph_.modes.ss || (mb > 0 && mb % gob_mbs == 0) || mb >= nmb) && at_start_code(b)) {
            int nmb_pos, nqp;
            if (!read_slice_or_gob(b, &nmb_pos, &nqp)) break;
            ++segment_;
            mb = nmb_pos;
            qp = nqp;
            header_here = false;
        }
        if (mb >= nmb) break;
        if (grid_.mb(mb).state != MbState::lost) {  // decoded twice: damage
            ++stats_->errors;
        }
        const size_t start = b.tell();
        if (!decode_mb(b, mb, &qp) || b.overrun()) {
            ++stats_->errors;
            grid_.mb(mb).state = MbState::lost;
            // Resynchronise at the next start code; everything up to it is lost.
            b.seek(start);
            const size_t next = b.next_start_code();
            b.seek(next);
            if (next >= b.size_bits()) break;
            header_here = true;
            mb = nmb;  // only a header can say where decoding resumes
            continue;
        }
        ++mb;
        if (mb == nmb) header_here = false;
    }
    // Lost macroblocks take the co-located ones of the reference (and count
    // as skipped, vector 0, for their neighbours' overlapped prediction).
    std::vector<uint8_t> lost(static_cast<size_t>(nmb), 0);
    for (int i = 0; i < nmb; ++i)
        if (grid_.mb(i).state == MbState::lost) {
            conceal(i);
            lost[static_cast<size_t>(i)] = 1;
            ++stats_->concealed;
        }
    if (deferred_)
        for (int i = 0; i < nmb; ++i)
            if (!lost[static_cast<size_t>(i)] &&
                (grid_.mb(i).state == MbState::inter || grid_.mb(i).state == MbState::skipped))
                reconstruct_inter(i);
    if (ph_.modes.df) loop_filter();
    output();
    // The decoded picture becomes the reference, borders extended.
    std::swap(cur_, ref_);
    for (int p = 0; p < 3; ++p)
        kpliExpandFrame_H263_8u(
            ref_.data(p) - ref_.pad(p) - static_cast<intptr_t>(ref_.pad(p)) * ref_.stride(p),
            ref_.plane_width(p), ref_.plane_height(p), ref_.pad(p), ref_.stride(p));
    return true;
}

void H263Decoder::output() {
    Picture pic;
    pic.width = ph_.width;
    pic.height = ph_.height;
    pic.chroma = Chroma::c420;
    for (int p = 0; p < 3; ++p) {
        pic.plane[p] = cur_.data(p);
        pic.stride[p] = cur_.stride(p);
    }
    ++stats_->frames;
    if (!sink_(pic, user_)) stop_ = true;
}

// ---- Macroblock layer ----------------------------------------------------------------

// MCBPC of the picture type; the INTER4V+Q words (type 5, nine zeros then
// 1 and three more bits), which the library's decoder rejects, are read
// here. Stuffing repeats the COD / MCBPC pair.
bool H263Decoder::read_mcbpc(Bits& b, int* type, int* cbpc, bool* skipped) {
    for (int n = 0; n < 64; ++n) {
        if (ph_.type == 1 && b.bit()) {
            *skipped = true;
            return true;
        }
        Kpl8u v = 0;
        const KplStatus st = ph_.type == 0 ? kpliDecodeMCBPCIntra_H263(b.pos(), b.off(), &v)
                                           : kpliDecodeMCBPCInter_H263(b.pos(), b.off(), &v);
        if (st == kplStsMCBPCInterErr && b.peek(11) == 2) {
            b.skip(11);  // 0000 0000 010: INTER4V+Q, no chroma coded
            v = 5;
        } else if (st == kplStsMCBPCInterErr && (b.peek(13) >> 2) == 3) {
            // 0000 0000 011xx: 01100 Cr, 01110 Cb, 01111 both.
            const uint32_t c = b.get(13) & 3;
            if (c == 1) return false;
            v = static_cast<Kpl8u>(5 | (c == 0 ? 1 : (c == 2 ? 2 : 3)) << 4);
        } else if (st != kplStsNoErr) {
            return false;
        }
        if (v == 255) continue;  // stuffing
        *type = v & 15;
        *cbpc = (v >> 4) & 3;
        *skipped = false;
        return true;
    }
    return false;
}

bool H263Decoder::decode_mb(Bits& b, int mb, int* qp) {
    const int mbw = grid_.mbw, mx = mb % mbw, my = mb / mbw;
    MbInfo& info = grid_.mb(mb);
    info.segment = static_cast<int16_t>(segment_);
    int type = 0, cbpc = 0;
    bool skipped = false;
    if (!read_mcbpc(b, &type, &cbpc, &skipped)) return false;
    if (skipped) {
        info.state = MbState::skipped;
        info.coded = 0;
        info.qp = static_cast<uint8_t>(*qp);
        grid_.set_mb_vector(mx, my, 0, 0);
        if (!deferred_) reconstruct_inter(mb);
        return true;
    }
    const bool intra = type == 3 || type == 4;
    if (ph_.type == 0 && !intra) return false;
    int aic_mode = 0;
    if (intra && ph_.modes.aic)
        aic_mode =
            b.bit() ? (b.bit() ? KPLVC_H263_AIC_HORIZONTAL : KPLVC_H263_AIC_VERTICAL) : KPLVC_H263_AIC_DC;
    Kpl8u cbpy = 0;
    if (kpliDecodeCBPY_H263(b.pos(), b.off(), &cbpy) != kplStsNoErr) return false;
    // Annex S also lets inter macroblocks with both chroma blocks coded use
    // the intra meaning of CBPY.
    if (intra || (ph_.modes.aiv && cbpc == 3)) cbpy = static_cast<Kpl8u>(15 - cbpy);
    if (type == 1 || type == 4 || type == 5) {
        if (ph_.modes.mq) {
            Kpl32s q = *qp;
            if (kpliUpdateQuant_MQ_H263_1u32s_I(b.pos(), b.off(), &q) != kplStsNoErr) return false;
            if (q < 1 || q > 31) return false;
            *qp = q;
        } else {
            static const int kDquant[4] = {-1, -2, 1, 2};
            *qp = std::clamp(*qp + kDquant[b.get(2)], 1, 31);
        }
    }
    info.qp = static_cast<uint8_t>(*qp);
    info.coded = 1;
    info.intra_mode = static_cast<uint8_t>(aic_mode);
    const bool four = type == 2 || type == 5;
    info.four = four;
    if (intra) {
        info.state = MbState::intra;
        grid_.set_mb_vector(mx, my, 0, 0);
    } else {
        info.state = MbState::inter;
        const int mode = !ph_.modes.umv ? KPLVC_H263_MVD_DEFAULT
                                        : (ph_.modes.plus ? KPLVC_H263_MVD_UVLC : KPLVC_H263_MVD_UMV);
        for (int blk = 0; blk < (four ? 4 : 1); ++blk) {
            Kpl16s pred[2], mv[2];
            grid_.predictor(mx, my, four ? blk : -1, pred);
            if (kpliDecodeMVEx_H263(b.pos(), b.off(), pred, mv, mode) != kplStsNoErr) return false;
            if (four)
                grid_.set_block_vector(mx, my, blk, mv[0], mv[1]);
            else
                grid_.set_mb_vector(mx, my, mv[0], mv[1]);
        }
    }
    // Blocks: four luma, then Cb and Cr.
    const int cqp = ph_.modes.mq ? kChromaQp[*qp] : *qp;
    Kpl16s* res = residual_.data() + (deferred_ ? static_cast<size_t>(mb) * 6 * 64 : 0);
    uint8_t cbp = 0;
    for (int blk = 0; blk < 6; ++blk) {
        const bool coded = blk < 4 ? ((cbpy >> (3 - blk)) & 1) : ((cbpc >> (5 - blk)) & 1);
        const int bq = blk < 4 ? *qp : cqp;
        const int p = blk < 4 ? 0 : blk - 3;
        const int bx = blk < 4 ? 2 * mx + (blk & 1) : mx, by = blk < 4 ? 2 * my + (blk >> 1) : my;
        uint8_t* dst = cur_.data(p) + static_cast<intptr_t>(by) * 8 * cur_.stride(p) + bx * 8;
        if (!intra) {
            if (coded) {
                if (kpliDecodeBlockCoefEx_Inter_H263_1u16s(b.pos(), b.off(), res + blk * 64, bq,
                                                           flags_inter_) != kplStsNoErr)
                    return false;
                cbp |= static_cast<uint8_t>(1 << blk);
            }
            continue;
        }
        if (!ph_.modes.aic) {
            if (kpliDecodeBlockCoefEx_Intra_H263_1u8u(
                    b.pos(), b.off(), dst, cur_.stride(p), bq,
                    flags_intra_ | (coded ? 0 : KPLVC_H263_INTRA_DC_ONLY)) != kplStsNoErr)
                return false;
            continue;
        }
        // Annex I: the neighbour above / left must be intra and decoded in
        // this segment; inside the macroblock it always is.
        int avail = coded ? KPLVC_H263_AIC_CODED : 0;
        const bool inner_above = blk == 2 || blk == 3, inner_left = blk == 1 || blk == 3;
        if (inner_above || grid_.intra_neighbour(mx, my - 1, info.segment)) avail |= KPLVC_H263_AIC_ABOVE;
        if (inner_left || grid_.intra_neighbour(mx - 1, my, info.segment)) avail |= KPLVC_H263_AIC_LEFT;
        Kpl16s* row = aic_row_[p].data() + static_cast<size_t>(bx) * 8;
        Kpl16s* col = aic_col_[p].data() + static_cast<size_t>(by) * 8;
        if (kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(b.pos(), b.off(), dst, cur_.stride(p), row, col, bq,
                                                     aic_mode, avail | flags_intra_) != kplStsNoErr)
            return false;
    }
    info.cbp = cbp;
    if (!intra && !deferred_) reconstruct_inter(mb);
    return true;
}

// ---- Reconstruction ----------------------------------------------------------------

// A reference block of w x h samples at (x, y) of a plane (plus the row and
// column that half-sample positions read): a pointer into the reference
// when that lies inside its borders, otherwise a copy in `temp` whose
// samples outside the picture repeat the nearest edge sample, which is what
// the extended borders hold.
const uint8_t* H263Decoder::fetch(int p, int x, int y, int w, int h, int* step, uint8_t* temp) {
    const int pad = ref_.pad(p), pw = ref_.plane_width(p), phh = ref_.plane_height(p);
    *step = ref_.stride(p);
    if (x >= -pad && y >= -pad && x + w + 1 <= pw + pad && y + h + 1 <= phh + pad)
        return ref_.data(p) + static_cast<intptr_t>(y) * ref_.stride(p) + x;
    const int tw = w + 1, th = h + 1;
    for (int r = 0; r < th; ++r) {
        const int sy = std::clamp(y + r, 0, phh - 1);
        const uint8_t* row = ref_.data(p) + static_cast<intptr_t>(sy) * ref_.stride(p);
        for (int c = 0; c < tw; ++c) temp[r * 32 + c] = row[std::clamp(x + c, 0, pw - 1)];
    }
    *step = 32;
    return temp;
}

void H263Decoder::conceal(int mb) {
    const int mx = mb % grid_.mbw, my = mb / grid_.mbw;
    MbInfo& info = grid_.mb(mb);
    info.state = MbState::skipped;
    info.coded = 0;
    grid_.set_mb_vector(mx, my, 0, 0);
    for (int p = 0; p < 3; ++p) {
        const int s = p ? 8 : 16;
        uint8_t* dst = cur_.data(p) + static_cast<intptr_t>(my) * s * cur_.stride(p) + mx * s;
        const uint8_t* src = ref_.data(p) + static_cast<intptr_t>(my) * s * ref_.stride(p) + mx * s;
        for (int r = 0; r < s; ++r)
            std::memcpy(dst + static_cast<intptr_t>(r) * cur_.stride(p),
                        src + static_cast<intptr_t>(r) * ref_.stride(p), static_cast<size_t>(s));
    }
}

inline int mc_type(const Kpl16s* v) {
    return ((v[0] & 1) ? KPLVC_MC_APX_HF : 0) | ((v[1] & 1) ? KPLVC_MC_APX_FH : 0);
}

alignas(32) const Kpl16s kZeroResidual[64] = {};

// A prediction without residual: the H.263 block copies where they apply
// (rounding type 0, one step for source and destination), else motion
// compensation with a zero residual.
void predict_only(const uint8_t* src, int s, uint8_t* dst, int ds, int size, const Kpl16s* v, int rtype) {
    const int t = mc_type(v);
    if (rtype == 0 && s == ds) {
        using Copy = KplStatus (*)(const Kpl8u*, Kpl8u*, int);
        static const Copy mb[4] = {kpliCopyMB_H263_8u, kpliCopyApproxVMB_H263_8u, kpliCopyApproxHMB_H263_8u,
                                   kpliCopyApproxHVMB_H263_8u};
        static const Copy block[4] = {kpliCopyBlock_H263_8u, kpliCopyApproxVBlock_H263_8u,
                                      kpliCopyApproxHBlock_H263_8u, kpliCopyApproxHVBlock_H263_8u};
        (size == 16 ? mb : block)[t >> 2](src, dst, s);
        return;
    }
    (size == 16 ? kpliMC16x16_8u_C1 : kpliMC8x8_8u_C1)(src, s, kZeroResidual, 0, dst, ds, t, rtype);
}

// One 8x8 luma block (blk 0..3) of an inter or skipped macroblock into dst:
// the prediction of its vector, or Annex F's overlapped prediction, plus
// the block's residual when it has one.
void H263Decoder::predict_luma(int mb, int blk, uint8_t* dst, int step) {
    const int mx = mb % grid_.mbw, my = mb / grid_.mbw;
    const int bx = 2 * mx + (blk & 1), by = 2 * my + (blk >> 1);
    const Kpl16s* own = grid_.vector(bx, by);
    const MbInfo& info = grid_.mb(mb);
    const Kpl16s* res = (info.cbp >> blk) & 1
                            ? residual_.data() + (deferred_ ? static_cast<size_t>(mb) * 384 : 0) + blk * 64
                            : kZeroResidual;
    alignas(16) uint8_t temp[64 * 32];
    int s;
    if (!ph_.modes.ap) {
        const uint8_t* src = fetch(0, bx * 8 + (own[0] >> 1), by * 8 + (own[1] >> 1), 8, 8, &s, temp);
        if (res == kZeroResidual)
            predict_only(src, s, dst, step, 8, own, ph_.rtype);
        else
            kpliMC8x8_8u_C1(src, s, res, 16, dst, step, mc_type(own), ph_.rtype);
        return;
    }
    Kpl16s nb[4][2];  // above, below, left, right
    grid_.obmc_neighbours(mx, my, blk, nb);
    // The reads of all five vectors lie in one window around the block.
    int lo_x = own[0] >> 1, hi_x = lo_x, lo_y = own[1] >> 1, hi_y = lo_y;
    for (const auto& v : nb) {
        lo_x = std::min(lo_x, v[0] >> 1), hi_x = std::max(hi_x, v[0] >> 1);
        lo_y = std::min(lo_y, v[1] >> 1), hi_y = std::max(hi_y, v[1] >> 1);
    }
    const int w = 8 + hi_x - lo_x, h = 8 + hi_y - lo_y;
    const uint8_t* win;
    std::vector<uint8_t> big;
    if (w < 32 && h < 64) {
        win = fetch(0, bx * 8 + lo_x, by * 8 + lo_y, w, h, &s, temp);
    } else {
        // Vectors far apart (damage, unlimited vectors): a window of its own.
        s = w + 1;
        big.resize(static_cast<size_t>(s) * (h + 1));
        const int pw = ref_.plane_width(0), phh = ref_.plane_height(0);
        for (int r = 0; r <= h; ++r)
            for (int c = 0; c <= w; ++c)
                big[static_cast<size_t>(r) * s + c] = ref_.data(
                    0)[static_cast<intptr_t>(std::clamp(by * 8 + lo_y + r, 0, phh - 1)) * ref_.stride(0) +
                       std::clamp(bx * 8 + lo_x + c, 0, pw - 1)];
        win = big.data();
    }
    // Where the block itself sits in the window.
    const uint8_t* at = win + static_cast<intptr_t>(-lo_y) * s - lo_x;
    if (s == step) {
        kpliPredictBlockEx_OBMC_8u(at, dst, step, own, nb[2], nb[3], nb[0], nb[1], ph_.rtype);
    } else {
        // The library's OBMC uses one step for reference and output.
        std::vector<uint8_t> tmp(static_cast<size_t>(s) * 8);
        kpliPredictBlockEx_OBMC_8u(at, tmp.data(), s, own, nb[2], nb[3], nb[0], nb[1], ph_.rtype);
        for (int r = 0; r < 8; ++r) std::memcpy(dst + static_cast<intptr_t>(r) * step, tmp.data() + r * s, 8);
    }
    if (res != kZeroResidual) kpliReconBlock_H263_I(dst, res, step);
}

void H263Decoder::reconstruct_inter(int mb) {
    const int mx = mb % grid_.mbw, my = mb / grid_.mbw;
    const MbInfo& info = grid_.mb(mb);
    const int ys = cur_.stride(0);
    uint8_t* y0 = cur_.data(0) + static_cast<intptr_t>(my) * 16 * ys + mx * 16;
    const Kpl16s* v0 = grid_.vector(2 * mx, 2 * my);
    alignas(16) uint8_t temp[64 * 32];
    if (!ph_.modes.ap && !info.four && (info.cbp & 15) == 0) {
        int s;
        const uint8_t* src = fetch(0, mx * 16 + (v0[0] >> 1), my * 16 + (v0[1] >> 1), 16, 16, &s, temp);
        predict_only(src, s, y0, ys, 16, v0, ph_.rtype);
    } else {
        for (int blk = 0; blk < 4; ++blk)
            predict_luma(mb, blk, y0 + static_cast<intptr_t>(blk >> 1) * 8 * ys + (blk & 1) * 8, ys);
    }
    // Chroma: one vector derived from the luma vector(s).
    KplMotionVector cv;
    if (info.four) {
        KplMotionVector lv[4];
        for (int b = 0; b < 4; ++b) {
            const Kpl16s* v = grid_.vector(2 * mx + (b & 1), 2 * my + (b >> 1));
            lv[b] = KplMotionVector{v[0], v[1]};
        }
        const Kpl8u all[4] = {1, 1, 1, 1};
        kpliComputeChroma4MV_MPEG4(lv, &cv, all);
    } else {
        const KplMotionVector lv{v0[0], v0[1]};
        kpliComputeChromaMV_MPEG4(&lv, &cv);
    }
    const Kpl16s c[2] = {cv.dx, cv.dy};
    for (int p = 1; p < 3; ++p) {
        const int cs = cur_.stride(p);
        uint8_t* dst = cur_.data(p) + static_cast<intptr_t>(my) * 8 * cs + mx * 8;
        const Kpl16s* res =
            (info.cbp >> (p + 3)) & 1
                ? residual_.data() + (deferred_ ? static_cast<size_t>(mb) * 384 : 0) + (p + 3) * 64
                : kZeroResidual;
        int s;
        const uint8_t* src = fetch(p, mx * 8 + (c[0] >> 1), my * 8 + (c[1] >> 1), 8, 8, &s, temp);
        if (res == kZeroResidual)
            predict_only(src, s, dst, cs, 8, c, ph_.rtype);
        else
            kpliMC8x8_8u_C1(src, s, res, 16, dst, cs, mc_type(c), ph_.rtype);
    }
}

void H263Decoder::loop_filter() {
    uint8_t* planes[3] = {cur_.data(0), cur_.data(1), cur_.data(2)};
    const int strides[3] = {cur_.stride(0), cur_.stride(1), cur_.stride(2)};
    deblock_picture(grid_, planes, strides, ph_.modes.mq);
}

}  // namespace

namespace {

int probe(const uint8_t* data, size_t size) {
    // A picture start code at the very start: 0000 0000 0000 0000 1000 00,
    // then TR and PTYPE's fixed '1', '0'.
    if (size < 5) return 0;
    if (data[0] != 0 || data[1] != 0 || (data[2] & 0xFC) != 0x80) return 0;
    // TR takes the low two bits of byte 2 and the high six of byte 3, so
    // PTYPE's first two bits are byte 3's last two.
    return (data[3] & 3) == 2 ? 80 : 20;
}

int decode(const uint8_t* data, size_t size, const DecodeOptions& opt, PictureSink sink, void* user,
           DecodeStats* stats) {
    (void)opt;  // H.263 has no display post-filter of its own
    H263Decoder d(sink, user, stats);
    return d.run(data, size);
}

}  // namespace

extern const Decoder kH263Decoder = {"h263", ".h263 .263 .h263p", probe, decode};

}  // namespace kplvc::codecs::h263
