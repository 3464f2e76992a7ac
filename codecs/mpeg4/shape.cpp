// Binary shape in the MPEG-4 decoder (ISO/IEC 14496-2 6.2.6.1, 7.5): each
// macroblock's BAB before its texture, the cbpy of macroblocks partly
// outside the shape, and the padding of a decoded VOP for prediction.
#include <cstring>

#include "decoder.h"

namespace kplvc::codecs::mpeg4 {

namespace {

// cbpy for 1, 2 and 3 blocks inside the shape, inter meaning (an intra
// macroblock's is the complement): code, length, value.
struct Code {
    uint8_t code, len, value;
};
constexpr Code kCbpy1[2] = {{0x1, 1, 0}, {0x1, 2, 1}};
constexpr Code kCbpy2[4] = {{0x1, 1, 0}, {0x1, 2, 1}, {0x1, 3, 2}, {0x1, 4, 3}};
constexpr Code kCbpy3[8] = {{0x1, 1, 0}, {0x1, 3, 1}, {0x3, 5, 2}, {0x2, 5, 3},
                            {0x2, 3, 4}, {0x1, 5, 5}, {0x1, 6, 6}, {0x3, 3, 7}};

// A BAB with room for its border: (x, y) at px[(y + 4) * 24 + x + 4].
constexpr int kBs = 24;
struct Bab {
    uint8_t px[kBs * kBs] = {};
    uint8_t* at(int x, int y) { return px + (y + 4) * kBs + x + 4; }
};

}  // namespace

bool Mpeg4Decoder::read_cbpy_shape(BitReader& br, int n, int* cbpy) {
    const Code* t = n == 1 ? kCbpy1 : (n == 2 ? kCbpy2 : kCbpy3);
    const int count = 1 << n;
    for (int i = 0; i < count; ++i)
        if (br.peek(t[i].len) == t[i].code) {
            br.skip(t[i].len);
            *cbpy = t[i].value;
            return true;
        }
    return false;
}

bool Mpeg4Decoder::decode_shape(BitReader& br, int mbx, int mby, int* blocks) {
    const int mb = mby * mb_w_ + mbx;
    auto in_packet = [&](int x, int y) {
        return x >= 0 && y >= 0 && x < mb_w_ && y < mb_h_ && packet_[y * mb_w_ + x] == packet_id_;
    };
    std::vector<uint8_t>& types = bab_[cur_];
    // Types of intra-coded shape are 2..4; anything else cannot be a
    // neighbour there and counts as transparent.
    auto intra_type = [&](int x, int y) -> Kpl32s {
        const int t = in_packet(x, y) ? types[y * mb_w_ + x] : 2;
        return t >= 2 && t <= 4 ? t : 2;
    };
    Kpl32s type;
    if (vop_.type == kI || !vop_.inter_shape) {
        const Kpl32s n[4] = {intra_type(mbx - 1, mby - 1), intra_type(mbx, mby - 1),
                             intra_type(mbx + 1, mby - 1), intra_type(mbx - 1, mby)};
        if (kpliDecodeBABTypeIntra_MPEG4_1u32s(br.pp(), br.po(), n, &type) != kplStsNoErr) return false;
    } else {
        if (kpliDecodeBABTypeInter_MPEG4_1u32s(br.pp(), br.po(), bab_[bwd_][mb], &type) != kplStsNoErr)
            return false;
    }
    types[mb] = static_cast<uint8_t>(type);

    // The motion-compensated BAB (types 0, 1, 5, 6) with four samples
    // around it: the reference shape at the vector, 0 outside its VOP.
    Bab mc;
    KplMotionVector& sv = smv_[mb];
    sv = {0, 0};
    if (type <= 1 || type >= 5) {
        KplMotionVector cand_s[3] = {}, cand_t[3] = {};
        int valid = 0;
        static constexpr int kNb[3][2] = {{-1, 0}, {0, -1}, {1, -1}};
        for (int k = 0; k < 3; ++k) {
            const int x = mbx + kNb[k][0], y = mby + kNb[k][1];
            if (!in_packet(x, y)) continue;
            const int n = y * mb_w_ + x, t = types[n];
            if (t <= 1 || t >= 5) {
                cand_s[k] = smv_[n];
                valid |= 1 << k;
            }
            if (blk_[n] != 0 && !info_[n].intra) {
                cand_t[k] = mv_[static_cast<size_t>(n) * 4 + (k == 0 ? 1 : 2)];
                valid |= 8 << k;
            }
        }
        kpliPredictShapeMV_MPEG4(cand_s, cand_t, valid, &sv);
        if (type == 1 || type == 6) {
            KplMotionVector d;
            if (kpliDecodeShapeMVD_MPEG4_1u16s(br.pp(), br.po(), &d) != kplStsNoErr) return false;
            sv.dx = static_cast<int16_t>(sv.dx + d.dx);
            sv.dy = static_cast<int16_t>(sv.dy + d.dy);
        }
        const int rw = 16 * mb_w_, rh = 16 * mb_h_;
        const int x0 = 16 * mbx + sv.dx + ref_dx_, y0 = 16 * mby + sv.dy + ref_dy_;
        for (int y = -4; y < 20; ++y)
            for (int x = -4; x < 20; ++x) {
                const int rx = x0 + x, ry = y0 + y;
                *mc.at(x, y) = rx >= 0 && ry >= 0 && rx < rw && ry < rh ? *alpha_at(bwd_, rx, ry) : 0;
            }
    }

    // The BAB and the border its contexts read: samples of macroblocks in
    // this video packet, 0 elsewhere.
    Bab cur;
    const int bx = 16 * mbx, by = 16 * mby;
    auto border = [&](int x, int y) -> uint8_t {
        const int ax = bx + x, ay = by + y;
        if (ax < 0 || ay < 0 || ax >= 16 * mb_w_ || !in_packet(ax >> 4, ay >> 4)) return 0;
        return *alpha_at(cur_, ax, ay);
    };
    for (int y = -2; y < 0; ++y)
        for (int x = -2; x < 18; ++x) *cur.at(x, y) = border(x, y);
    for (int y = 0; y < 16; ++y)
        for (int x = -2; x < 0; ++x) *cur.at(x, y) = border(x, y);

    if (type == 2 || type == 3) {
        for (int y = 0; y < 16; ++y) std::memset(cur.at(0, y), type == 3 ? 255 : 0, 16);
    } else if (type <= 1) {
        for (int y = 0; y < 16; ++y) std::memcpy(cur.at(0, y), mc.at(0, y), 16);
    } else {
        int cr = 1;
        if (!vop_.conv_ratio_disable && br.bit()) cr = br.bit() ? 4 : 2;
        const Kpl32s scan = br.bit() ? 1 : 0;
        const bool inter = type != 4;
        if (cr == 1) {
            const KplStatus st =
                inter ? kpliDecodeBABInter_MPEG4_1u8u(br.pp(), br.po(), cur.at(0, 0), kBs, mc.at(0, 0), kBs,
                                                      16, scan)
                      : kpliDecodeBABIntra_MPEG4_1u8u(br.pp(), br.po(), cur.at(0, 0), kBs, 16, scan);
            if (st != kplStsNoErr) return false;
        } else {
            // The small block with the down-sampled border, and the
            // compensated BAB down-sampled with its one-sample border.
            const int s = 16 / cr;
            Bab small, mcs;
            kpliDownsampleBABBorder_MPEG4_8u_C1R(cur.at(0, 0), kBs, small.at(0, 0), kBs, cr);
            KplStatus st;
            if (inter) {
                kpliDownsampleAlpha_MPEG4_8u_C1R(mc.at(-cr, -cr), kBs, mcs.at(-1, -1), kBs,
                                                 KpliSize{s + 2, s + 2}, cr);
                st = kpliDecodeBABInter_MPEG4_1u8u(br.pp(), br.po(), small.at(0, 0), kBs, mcs.at(0, 0), kBs,
                                                   s, scan);
            } else {
                st = kpliDecodeBABIntra_MPEG4_1u8u(br.pp(), br.po(), small.at(0, 0), kBs, s, scan);
            }
            if (st != kplStsNoErr) return false;
            kpliUpsampleBAB_MPEG4_8u_C1R(small.at(0, 0), kBs, cur.at(0, 0), kBs, cr);
        }
    }
    if (br.overrun()) return false;
    int mask = 0;
    for (int y = 0; y < 16; ++y) {
        std::memcpy(alpha_at(cur_, bx, by + y), cur.at(0, y), 16);
        for (int x = 0; x < 16; ++x)
            if (*cur.at(x, y) != 0) mask |= 1 << ((y >> 3) * 2 + (x >> 3));
    }
    *blocks = mask;
    return true;
}

void Mpeg4Decoder::pad_shape_vop() {
    Frame& f = pool_[cur_];
    const uint8_t* a = alpha_at(cur_, 0, 0);
    kpliPadVOP_MPEG4_8u_C1IR(f.data(0), f.stride(0), a, alpha_stride_, KpliSize{16 * mb_w_, 16 * mb_h_}, 0);
    for (int p = 1; p < 3; ++p)
        kpliPadVOP_MPEG4_8u_C1IR(f.data(p), f.stride(p), a, alpha_stride_, KpliSize{8 * mb_w_, 8 * mb_h_}, 1);
}

}  // namespace kplvc::codecs::mpeg4
