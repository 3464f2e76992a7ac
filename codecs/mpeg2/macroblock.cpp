// The slice and macroblock layers: macroblock addresses, types and motion
// vectors (this decoder's own code), the blocks (the library's block
// decoders and inverse transforms) and the prediction (the library's motion
// compensation).
//
// Inverse transform: the decoder uses the table-driven inverse DCT, which
// meets the IEEE 1180 accuracy that ISO/IEC 13818-2 Annex A asks of a
// decoder. The block decoders write the transposed layout of the matrix-
// engine transform, whose second pass rounds with 0.625 of an output unit
// and fails that accuracy; since they use each scan entry as (entry & 63),
// a scan table whose entries are transposed positions (with a matrix
// transposed to match) makes them write the block in raster order, which
// the table-driven transform reads.
//
// Bidirectional and dual-prime predictions are averaged as ISO/IEC 13818-2
// 7.6.7 says, (a + b + 1) >> 1 of two predictions each formed with the
// exact half-sample interpolation: the 16-wide two-reference function of
// the library whose arithmetic is exactly that, and for 8-wide blocks two
// one-reference predictions and the library's rounding average (the 8-wide
// two-reference functions build half/half predictions from byte averages,
// which differ from that rule).
#include <cstring>

#include "decoder.h"

namespace kplvc::codecs::mpeg2 {

namespace {

alignas(32) const Kpl16s kZeros[16] = {};

// ---- Code words of the macroblock layer -------------------------------------------

// Looks up a code word of at most l.bits bits; -1 (nothing consumed) when no
// code word begins here.
inline int read_vlc(Bits& b, const Lookup& l, int* value) {
    const uint32_t k = b.peek(l.bits);
    const int len = l.length[k];
    if (len == 0) return -1;
    *value = l.value[k];
    b.skip(len);
    return len;
}

// One motion vector component (ISO/IEC 13818-2 7.6.3.1; ISO/IEC 11172-2
// reconstructs its vectors the same way): motion_code and motion_residual
// give a difference to the prediction, and the result wraps into the range
// that f_code allows. `halve`: a field vector's vertical component in a
// frame picture, whose predictor is kept in frame units.
inline bool read_component(Bits& b, const Lookup& motion, int f_code, int& pmv, bool halve, int* out) {
    int code;
    if (read_vlc(b, motion, &code) < 0) return false;
    if (f_code < 1 || f_code > 9) return false;
    const int r_size = f_code - 1, f = 1 << r_size;
    int delta = code;
    if (f != 1 && code != 0) {
        const int residual = static_cast<int>(b.get(r_size));
        delta = (((code < 0 ? -code : code) - 1) << r_size) + residual + 1;
        if (code < 0) delta = -delta;
    }
    const int pred = halve ? (pmv >> 1) : pmv;
    int v = pred + delta;
    const int low = -16 * f, high = 16 * f - 1, range = 32 * f;
    if (v < low) v += range;
    if (v > high) v -= range;
    pmv = halve ? v * 2 : v;
    *out = v;
    return true;
}

// ---- Prediction ------------------------------------------------------------------

using McFn = KplStatus (*)(const Kpl8u*, Kpl32s, const Kpl16s*, Kpl32s, Kpl8u*, Kpl32s, Kpl32s, Kpl32s);

McFn mc_for(int w, int h) {
    if (w == 16) return h == 16 ? kpliMC16x16_8u_C1 : kpliMC16x8_8u_C1;
    if (h == 16) return kpliMC8x16_8u_C1;
    return h == 8 ? kpliMC8x8_8u_C1 : kpliMC8x4_8u_C1;
}

// One prediction: the reference block's top-left sample and the
// half-sample position (KPLVC_MC_APX_* code).
struct Source {
    const uint8_t* at;
    int step;
    int type;
};

// The block at (x, y) of view v moved by (vx, vy) half samples. The integer
// position is kept where the block and the sample after it stay inside the
// view and its border: a valid stream never points further out, and a
// damaged one then reads the border instead of memory around it.
inline Source source(const PlaneView& v, int x, int y, int vx, int vy, int w, int h) {
    int ix = x + (vx >> 1), iy = y + (vy >> 1);
    const int xmin = -v.pad_x, xmax = v.width + v.pad_x - w - 1;
    const int ymin = -v.pad_y, ymax = v.height + v.pad_y - h - 1;
    ix = ix < xmin ? xmin : (ix > xmax ? xmax : ix);
    iy = iy < ymin ? ymin : (iy > ymax ? ymax : iy);
    return {v.base + static_cast<ptrdiff_t>(iy) * v.step + ix, v.step, ((vx & 1) << 3) | ((vy & 1) << 2)};
}

// Writes the prediction of a w x h block from one or two sources (two are
// averaged, rounding up). A whole-sample 16x16 or 8x8 block is a copy.
void predict(const Source* s, int n, int w, int h, uint8_t* dst, int dst_step) {
    if (n == 1) {
        if (s[0].type == 0 && w == h) {
            if (w == 16)
                kpliCopyBlock_16x16_8u(s[0].at, s[0].step, dst, dst_step);
            else
                kpliCopyBlock_8x8_8u(s[0].at, s[0].step, dst, dst_step);
            return;
        }
        mc_for(w, h)(s[0].at, s[0].step, kZeros, 0, dst, dst_step, s[0].type, 0);
        return;
    }
    if (w == 16) {
        // (2 * 0 + pF + pB + 1) >> 1 with exact interpolations, 8 rows a call.
        for (int r = 0; r < h; r += 8)
            kpliMC16x8B_8u_C1(s[0].at + static_cast<ptrdiff_t>(r) * s[0].step, s[0].step, s[0].type,
                              s[1].at + static_cast<ptrdiff_t>(r) * s[1].step, s[1].step, s[1].type, kZeros,
                              0, dst + static_cast<ptrdiff_t>(r) * dst_step, dst_step, 0);
        return;
    }
    alignas(32) uint8_t tmp[8 * 16];
    mc_for(w, h)(s[0].at, s[0].step, kZeros, 0, dst, dst_step, s[0].type, 0);
    mc_for(w, h)(s[1].at, s[1].step, kZeros, 0, tmp, 8, s[1].type, 0);
    kpliWeightedAverage_H264_8u_C1IR(dst, dst_step, tmp, 8, 0, 1, 1, 0, 0, KpliSize{w, h});
}

// ---- The slice decoder -----------------------------------------------------------

// frame_motion_type (frame pictures) and field_motion_type (field
// pictures): 1 field, 2 frame or 16x8, 3 dual prime.
constexpr int kMotionField = 1, kMotionFrame = 2, kMotion16x8 = 2, kMotionDualPrime = 3;

class Slice {
public:
    Slice(const PictureContext& c, const uint32_t* words, size_t pos, size_t end)
        : c_(c), seq_(*c.seq), pic_(*c.pic), t_(tables()), b_{words, pos, end} {
        frame_pic_ = pic_.structure == kFramePicture;
        chroma422_ = seq_.chroma == Chroma::c422;
        nblocks_ = chroma422_ ? 8 : 6;
        mpeg1_ = !seq_.mpeg2;
        type_table_ = pic_.type - 1;
    }

    bool run(int slice_code);

private:
    bool slice_header(int slice_code, int* row);
    bool macroblock(int addr);
    bool skipped(int addr);
    bool skipped_run(int addr, int n);
    bool motion_vectors(int s, int motion_type);
    void reset_dc() {
        const Kpl16s v = static_cast<Kpl16s>(mpeg1_ ? 128 : (128 << pic_.dc_precision));
        dc_[0] = dc_[1] = dc_[2] = v;
    }
    void reset_pmv() { std::memset(pmv_, 0, sizeof pmv_); }
    bool set_quantiser(int code) {
        if (code == 0) return false;
        qscale_ = mpeg1_ ? code : (pic_.q_scale_type ? kNonLinearScale[code] : 2 * code);
        return true;
    }
    bool blocks(int cbp, bool intra);
    void form_prediction(int addr, int flags, int motion_type);
    void frame_prediction(int mx, int my, int flags);
    void reconstruct(int addr, int cbp, bool intra, bool field_dct);

    const PictureContext& c_;
    const Sequence& seq_;
    const PictureHeader& pic_;
    const Tables& t_;
    Bits b_;
    bool frame_pic_, chroma422_, mpeg1_;
    int nblocks_, type_table_;
    int qscale_ = 0;
    Kpl16s dc_[3];
    int pmv_[2][2][2];                 // [first/second vector][forward/backward][horizontal/vertical]
    int vec_[2][2][2];                 // the vectors of this macroblock, same indices
    int select_[2][2];                 // motion_vertical_field_select [r][s]
    int dmv_[2];                       // dmvector
    int prev_flags_ = 0;               // the previous macroblock's directions (B skipped macroblocks)
    alignas(32) Kpl16s coef_[12][64];  // decoded blocks, raster order
    Kpl32s count_[12];
};

bool Slice::slice_header(int slice_code, int* row) {
    int r = slice_code - 1;
    if (!mpeg1_ && seq_.height > 2800) r += static_cast<int>(b_.get(3)) << 7;
    *row = r;
    if (!set_quantiser(static_cast<int>(b_.get(5)))) return false;
    if (!mpeg1_ && b_.peek(1) == 1) b_.skip(1 + 1 + 7);  // intra_slice_flag, intra_slice, reserved bits
    // extra_bit_slice and extra_information_slice
    while (b_.get(1) == 1) {
        b_.skip(8);
        if (b_.overrun()) return false;
    }
    return !b_.overrun();
}

bool Slice::run(int slice_code) {
    int row;
    if (!slice_header(slice_code, &row)) return false;
    if (row >= c_.mb_rows) return false;
    reset_dc();
    reset_pmv();
    prev_flags_ = 0;
    const int mbw = seq_.mb_width, total = mbw * c_.mb_rows;
    int addr = row * mbw - 1;
    bool first = true;
    for (;;) {
        // macroblock_address_increment, with escapes (and stuffing in
        // ISO/IEC 11172-2 streams).
        int inc = 0, v;
        for (;;) {
            if (read_vlc(b_, t_.mba, &v) < 0) return false;
            if (v == kMbaStuffing) {
                if (!mpeg1_) return false;
                continue;
            }
            if (v == kMbaEscape) {
                inc += 33;
                if (inc > total) return false;
                continue;
            }
            inc += v;
            break;
        }
        if (first) {
            addr += inc;
            first = false;
        } else {
            // Skipped macroblocks (never in I-pictures).
            if (inc > 1 && pic_.type == kPicI) return false;
            if (inc - 1 > total - 1 - addr) return false;
            if (inc > 1 && !skipped_run(addr + 1, inc - 1)) return false;
            addr += inc;
        }
        if (addr >= total) return false;
        if (!macroblock(addr)) return false;
        (*c_.done)[addr] = 1;
        // The slice ends where 23 zero bits begin (the next start code).
        if (b_.overrun()) {
            (*c_.done)[addr] = 0;
            return false;
        }
        const size_t left = b_.left();
        const int n = left >= 23 ? 23 : static_cast<int>(left);
        if (n == 0 || b_.peek(n) == 0) return true;
    }
}

// A run of skipped macroblocks. In P-pictures they are copies of the
// reference at the same place (the same field for field pictures), done a
// row of the run at a time.
bool Slice::skipped_run(int addr, int n) {
    if (pic_.type != kPicP) {
        for (int k = 0; k < n; ++k)
            if (!skipped(addr + k)) return false;
        return true;
    }
    reset_dc();
    reset_pmv();
    std::memset(vec_, 0, sizeof vec_);
    const int mbw = seq_.mb_width, ch = chroma422_ ? 16 : 8;
    const PlaneView* from = c_.frame_ref[0];
    PlaneView field[3];
    if (!frame_pic_) {
        for (int p = 0; p < 3; ++p) field[p] = c_.field_ref[0][p][c_.parity];
        from = field;
    }
    while (n > 0) {
        const int mx = addr % mbw, my = addr / mbw;
        const int k = n < mbw - mx ? n : mbw - mx;  // the part of the run on this row
        for (int p = 0; p < 3; ++p) {
            const int w = p == 0 ? 16 : 8, h = p == 0 ? 16 : ch;
            const PlaneView& o = c_.out[p];
            for (int y = my * h; y < (my + 1) * h; ++y)
                std::memcpy(o.base + static_cast<ptrdiff_t>(y) * o.step + mx * w,
                            from[p].base + static_cast<ptrdiff_t>(y) * from[p].step + mx * w,
                            static_cast<size_t>(k * w));
        }
        for (int j = 0; j < k; ++j) (*c_.done)[addr + j] = 1;
        addr += k;
        n -= k;
    }
    return true;
}

bool Slice::skipped(int addr) {
    reset_dc();
    int flags;
    if (pic_.type == kPicP) {
        reset_pmv();
        std::memset(vec_, 0, sizeof vec_);
        flags = kForward;
    } else {
        // B: the previous macroblock's directions (none after an intra
        // macroblock, where a valid stream skips nothing), the predictors as
        // vectors.
        flags = prev_flags_ & (kForward | kBackward);
        if (flags == 0) return false;
        for (int s = 0; s < 2; ++s) {
            const int scale = mpeg1_ && pic_.full_pel[s] ? 2 : 1;
            for (int t = 0; t < 2; ++t) vec_[0][s][t] = pmv_[0][s][t] * scale;
        }
    }
    // Frame pictures predict the whole macroblock from the frame, field
    // pictures from the field of the same parity.
    select_[0][0] = select_[0][1] = c_.parity;
    form_prediction(addr, flags, frame_pic_ ? kMotionFrame : kMotionField);
    (*c_.done)[addr] = 1;
    return true;
}

bool Slice::motion_vectors(int s, int motion_type) {
    const int* f = pic_.f_code[s];
    if (mpeg1_) {
        // One frame vector; a full-sample vector counts in whole samples.
        int v[2];
        const int fc = pic_.f_code[s][0];
        if (!read_component(b_, t_.motion, fc, pmv_[0][s][0], false, &v[0])) return false;
        if (!read_component(b_, t_.motion, fc, pmv_[0][s][1], false, &v[1])) return false;
        const int scale = pic_.full_pel[s] ? 2 : 1;
        vec_[0][s][0] = v[0] * scale;
        vec_[0][s][1] = v[1] * scale;
        return true;
    }
    int count = 1;
    bool field_format = !frame_pic_, dual = false;
    if (frame_pic_) {
        if (motion_type == kMotionField) {
            count = 2;
            field_format = true;
        } else if (motion_type == kMotionDualPrime) {
            field_format = dual = true;
        }
    } else {
        if (motion_type == kMotion16x8) count = 2;
        if (motion_type == kMotionDualPrime) dual = true;
    }
    const bool halve = field_format && frame_pic_;
    for (int r = 0; r < count; ++r) {
        if (count == 2 || (field_format && !dual)) select_[r][s] = static_cast<int>(b_.get(1));
        if (!read_component(b_, t_.motion, f[0], pmv_[r][s][0], false, &vec_[r][s][0])) return false;
        if (dual) {
            int d;
            if (read_vlc(b_, t_.dmv, &d) < 0) return false;
            dmv_[0] = d;
        }
        if (!read_component(b_, t_.motion, f[1], pmv_[r][s][1], halve, &vec_[r][s][1])) return false;
        if (dual) {
            int d;
            if (read_vlc(b_, t_.dmv, &d) < 0) return false;
            dmv_[1] = d;
        }
    }
    if (count == 1) {
        pmv_[1][s][0] = pmv_[0][s][0];
        pmv_[1][s][1] = pmv_[0][s][1];
    }
    return !b_.overrun();
}

bool Slice::macroblock(int addr) {
    int flags;
    if (read_vlc(b_, t_.mb_type[type_table_], &flags) < 0) return false;
    const bool intra = (flags & kIntra) != 0;
    int motion_type = frame_pic_ ? kMotionFrame : kMotionField;
    if (!mpeg1_ && (flags & (kForward | kBackward)) != 0 && !(frame_pic_ && pic_.frame_pred_frame_dct)) {
        motion_type = static_cast<int>(b_.get(2));
        // 0 is reserved; dual prime exists in P-pictures only.
        if (motion_type == 0 || (motion_type == kMotionDualPrime && pic_.type != kPicP)) return false;
    }
    bool field_dct = false;
    if (!mpeg1_ && frame_pic_ && !pic_.frame_pred_frame_dct && (flags & (kIntra | kPattern)) != 0)
        field_dct = b_.get(1) != 0;
    if ((flags & kQuant) != 0 && !set_quantiser(static_cast<int>(b_.get(5)))) return false;

    const bool conceal_mv = intra && !mpeg1_ && pic_.concealment_mv;
    if ((flags & kForward) != 0 || conceal_mv) {
        // Concealment vectors are read like frame (frame pictures) or field
        // (field pictures) vectors, and only update the predictors.
        if (!motion_vectors(0, conceal_mv ? (frame_pic_ ? kMotionFrame : kMotionField) : motion_type))
            return false;
    }
    if ((flags & kBackward) != 0 && !motion_vectors(1, motion_type)) return false;
    if (conceal_mv) b_.skip(1);  // marker bit

    int cbp = 0;
    if ((flags & kPattern) != 0) {
        int v;
        if (read_vlc(b_, t_.cbp, &v) < 0) return false;
        cbp = v << (nblocks_ - 6);
        if (chroma422_) cbp |= static_cast<int>(b_.get(2));
    } else if (intra) {
        cbp = (1 << nblocks_) - 1;
    }
    if (b_.overrun()) return false;

    if (intra) {
        if (!conceal_mv) reset_pmv();
    } else {
        reset_dc();
        if (pic_.type == kPicP && (flags & kForward) == 0) {
            // P without motion: a zero vector from the frame, or from the
            // field of the same parity.
            reset_pmv();
            std::memset(vec_, 0, sizeof vec_);
            flags |= kForward;
            motion_type = frame_pic_ ? kMotionFrame : kMotionField;
            select_[0][0] = c_.parity;
        }
    }
    if (!blocks(cbp, intra)) return false;
    if (!intra) form_prediction(addr, flags, motion_type);
    reconstruct(addr, cbp, intra, field_dct);
    prev_flags_ = flags;
    if (mpeg1_ && pic_.type == kPicD) b_.skip(1);
    return true;
}

bool Slice::blocks(int cbp, bool intra) {
    const Tables& t = t_;
    Kpl32u* p = const_cast<Kpl32u*>(b_.words) + (b_.pos >> 5);
    Kpl32s off = 31 - static_cast<Kpl32s>(b_.pos & 31);
    for (int k = 0; k < nblocks_; ++k) {
        if (((cbp >> (nblocks_ - 1 - k)) & 1) == 0) continue;
        const int cc = k < 4 ? 0 : 1;  // luminance, chrominance
        KplStatus st;
        if (intra) {
            Kpl16s* pred = &dc_[k < 4 ? 0 : 1 + (k & 1)];
            const Kpl32s* coef = t.coef[pic_.intra_vlc ? 1 : 0];
            if (mpeg1_)
                st = kpliReconstructDCTBlockIntra_MPEG1_32s(&p, &off, coef_[k], &count_[k], pred,
                                                            t.dc_size[cc], coef, c_.scan, qscale_,
                                                            c_.intra_matrix[cc]);
            else
                st = kpliReconstructDCTBlockIntra_MPEG2_32s(&p, &off, coef_[k], &count_[k], pred,
                                                            t.dc_size[cc], coef, c_.scan, qscale_,
                                                            c_.intra_matrix[cc], pic_.dc_precision);
        } else {
            if (mpeg1_)
                st = kpliReconstructDCTBlock_MPEG1_32s(&p, &off, coef_[k], &count_[k], t.coef[0], c_.scan,
                                                       qscale_, c_.non_intra_matrix[cc]);
            else
                st = kpliReconstructDCTBlock_MPEG2_32s(&p, &off, coef_[k], &count_[k], t.coef[0], c_.scan,
                                                       qscale_, c_.non_intra_matrix[cc]);
        }
        if (st != kplStsNoErr) return false;
    }
    b_.pos = static_cast<size_t>(p - b_.words) * 32 + static_cast<size_t>(31 - off);
    return !b_.overrun();
}

// The vectors of the opposite-parity predictions of dual prime (ISO/IEC
// 13818-2 7.6.3.6): the transmitted field vector scaled by the ratio of
// the field distances, m / 2, rounded away from zero, plus dmvector, and a
// half field line up (top field predicted from a bottom field) or down.
inline int dual_prime_component(int v, int m, int dmv, int e) {
    return ((v * m + (v > 0 ? 1 : 0)) >> 1) + dmv + e;
}

// Frame prediction in a frame picture (every MPEG-1 macroblock): the whole
// macroblock from each reference frame with one vector.
void Slice::frame_prediction(int mx, int my, int flags) {
    const int ch = chroma422_ ? 16 : 8;
    Source src[3][2];
    int n = 0;
    for (int s = 0; s < 2; ++s) {
        if ((flags & (s == 0 ? kForward : kBackward)) == 0) continue;
        const int vx = vec_[0][s][0], vy = vec_[0][s][1];
        const int cvx = vx / 2, cvy = chroma422_ ? vy : vy / 2;
        src[0][n] = source(c_.frame_ref[s][0], mx * 16, my * 16, vx, vy, 16, 16);
        src[1][n] = source(c_.frame_ref[s][1], mx * 8, my * ch, cvx, cvy, 8, ch);
        src[2][n] = source(c_.frame_ref[s][2], mx * 8, my * ch, cvx, cvy, 8, ch);
        ++n;
    }
    if (n == 0) return;
    const PlaneView* o = c_.out;
    predict(src[0], n, 16, 16, o[0].base + static_cast<ptrdiff_t>(my * 16) * o[0].step + mx * 16, o[0].step);
    for (int p = 1; p < 3; ++p)
        predict(src[p], n, 8, ch, o[p].base + static_cast<ptrdiff_t>(my * ch) * o[p].step + mx * 8,
                o[p].step);
}

void Slice::form_prediction(int addr, int flags, int motion_type) {
    const int mbw = seq_.mb_width;
    const int mx = addr % mbw, my = addr / mbw;
    if (frame_pic_ && motion_type == kMotionFrame) {
        frame_prediction(mx, my, flags);
        return;
    }
    const int cw = 8, ch = chroma422_ ? 16 : 8;  // chroma macroblock size
    // Chroma vectors: halved toward zero horizontally, and vertically for 4:2:0.
    auto chroma_v = [&](int vx, int vy, int* cx, int* cy) {
        *cx = vx / 2;
        *cy = chroma422_ ? vy : vy / 2;
    };
    for (int part = 0; part < 2; ++part) {
        // part: the whole macroblock (part 0 only), or for field prediction
        // in frame pictures the top and bottom field, for 16x8 prediction
        // in field pictures the upper and lower half.
        const bool frame_mc = frame_pic_ && motion_type == kMotionFrame;
        const bool field_in_frame = frame_pic_ && motion_type != kMotionFrame;
        const bool half16x8 = !frame_pic_ && motion_type == kMotion16x8;
        if (part == 1 && !field_in_frame && !half16x8) break;
        int n = 0;
        int lw = 16, lh = 16, ly = my * 16, cy0 = my * ch, chh = ch;
        const PlaneView* views[2][3] = {};  // per source: plane views
        int vx[2], vy[2];
        auto add = [&](const PlaneView* planes, int x, int y) {
            for (int p = 0; p < 3; ++p) views[n][p] = &planes[p];
            vx[n] = x;
            vy[n] = y;
            ++n;
        };
        PlaneView field_views[2][3];  // views built for sources of this part
        for (int s = 0; s < 2; ++s) {
            if ((flags & (s == 0 ? kForward : kBackward)) == 0) continue;
            if (frame_mc) {
                add(c_.frame_ref[s], vec_[0][s][0], vec_[0][s][1]);
            } else if (field_in_frame) {
                // Each field of the macroblock from a reference field; the
                // rows of this field of the target frame.
                lh = 8;
                ly = my * 8;
                chh = ch / 2;
                cy0 = my * chh;
                if (motion_type == kMotionField) {
                    const int sel = select_[part][s];
                    for (int p = 0; p < 3; ++p) field_views[n][p] = c_.field_ref[s][p][sel];
                    add(field_views[n], vec_[part][s][0], vec_[part][s][1]);
                } else {
                    // Dual prime: the same parity with the vector, the
                    // other parity with the derived one.
                    const int v0 = vec_[0][s][0], v1 = vec_[0][s][1];
                    const int m = (part == 0) == pic_.top_field_first ? 1 : 3;
                    const int e = part == 0 ? -1 : 1;
                    for (int p = 0; p < 3; ++p) field_views[0][p] = c_.field_ref[s][p][part];
                    add(field_views[0], v0, v1);
                    for (int p = 0; p < 3; ++p) field_views[1][p] = c_.field_ref[s][p][1 - part];
                    add(field_views[1], dual_prime_component(v0, m, dmv_[0], 0),
                        dual_prime_component(v1, m, dmv_[1], e));
                }
            } else {
                // Field pictures.
                if (half16x8) {
                    lh = 8;
                    ly = my * 16 + part * 8;
                    chh = ch / 2;
                    cy0 = my * ch + part * chh;
                }
                if (motion_type == kMotionDualPrime) {
                    const int v0 = vec_[0][s][0], v1 = vec_[0][s][1];
                    const int e = c_.parity == 0 ? -1 : 1;
                    for (int p = 0; p < 3; ++p) field_views[0][p] = c_.field_ref[s][p][c_.parity];
                    add(field_views[0], v0, v1);
                    for (int p = 0; p < 3; ++p) field_views[1][p] = c_.field_ref[s][p][1 - c_.parity];
                    add(field_views[1], dual_prime_component(v0, 1, dmv_[0], 0),
                        dual_prime_component(v1, 1, dmv_[1], e));
                } else {
                    const int r = half16x8 ? part : 0;
                    const int sel = select_[r][s];
                    for (int p = 0; p < 3; ++p) field_views[n][p] = c_.field_ref[s][p][sel];
                    add(field_views[n], vec_[r][s][0], vec_[r][s][1]);
                }
            }
        }
        if (n == 0) continue;
        // Destination: the frame rows of this field (field prediction in a
        // frame picture), or the picture's own view.
        for (int p = 0; p < 3; ++p) {
            const PlaneView& o = c_.out[p];
            uint8_t* dst;
            int dst_step = o.step;
            int x, y, w, h;
            if (p == 0) {
                x = mx * 16, y = ly, w = lw, h = lh;
            } else {
                x = mx * cw, y = cy0, w = cw, h = chh;
            }
            if (field_in_frame) {
                dst = o.base + static_cast<ptrdiff_t>(part) * o.step +
                      static_cast<ptrdiff_t>(y) * 2 * o.step + x;
                dst_step = 2 * o.step;
            } else {
                dst = o.base + static_cast<ptrdiff_t>(y) * o.step + x;
            }
            Source ss[2];
            for (int k = 0; k < n; ++k) {
                int svx = vx[k], svy = vy[k];
                if (p != 0) chroma_v(vx[k], vy[k], &svx, &svy);
                ss[k] = source(*views[k][p], x, y, svx, svy, w, h);
            }
            predict(ss, n, w, h, dst, dst_step);
        }
    }
}

void Slice::reconstruct(int addr, int cbp, bool intra, bool field_dct) {
    const int mbw = seq_.mb_width;
    const int mx = addr % mbw, my = addr / mbw;
    const int ch = chroma422_ ? 16 : 8;
    for (int k = 0; k < nblocks_; ++k) {
        if (((cbp >> (nblocks_ - 1 - k)) & 1) == 0) continue;
        const PlaneView& o = c_.out[k < 4 ? 0 : 1 + (k & 1)];
        uint8_t* dst;
        int step = o.step;
        if (k < 4) {
            const int bx = mx * 16 + (k & 1) * 8;
            if (field_dct) {
                dst = o.base + static_cast<ptrdiff_t>(my * 16 + (k >> 1)) * o.step + bx;
                step = 2 * o.step;
            } else {
                dst = o.base + static_cast<ptrdiff_t>(my * 16 + (k >> 1) * 8) * o.step + bx;
            }
        } else {
            const int lower = k >= 6 ? 1 : 0;  // 4:2:2: blocks 6 and 7 are the lower chroma blocks
            const int bx = mx * 8;
            if (field_dct && chroma422_) {
                dst = o.base + static_cast<ptrdiff_t>(my * ch + lower) * o.step + bx;
                step = 2 * o.step;
            } else {
                dst = o.base + static_cast<ptrdiff_t>(my * ch + lower * 8) * o.step + bx;
            }
        }
        if (intra) {
            kpliDCT8x8Inv_16s8u_C1R(coef_[k], dst, step);
        } else if (count_[k] != 0) {
            alignas(32) Kpl16s residual[64];
            kpliDCT8x8Inv_16s_C1(coef_[k], residual);
            kpliReconBlock_H263_I(dst, residual, step);
        }
    }
}

}  // namespace

bool decode_slice(const PictureContext& ctx, int slice_code, const uint32_t* words, size_t pos, size_t end) {
    Slice s(ctx, words, pos, end);
    return s.run(slice_code);
}

}  // namespace kplvc::codecs::mpeg2
