// Data-partitioned video packets of I-, P- and S-VOPs (ISO/IEC 14496-2
// 6.2.7, Annex E.1). A packet carries, after its header:
//   I-VOP: per macroblock mcbpc, dquant and the six intra DCs; dc_marker;
//          per macroblock ac_pred_flag and cbpy; then the texture.
//   P-VOP: per macroblock not_coded, mcbpc, mcsel and the vectors;
//          motion_marker; per coded macroblock ac_pred_flag (intra), cbpy,
//          dquant and the intra DCs; then the texture.
// The texture partition runs up to the stuffing before the next resync
// marker or start code. With reversible VLCs, a texture partition that the
// forward pass cannot finish is read again from its end: the macroblocks
// after the one where the forward pass stopped are taken from the backward
// pass as far as it gets. The forward pass reads the damaged macroblock's
// bits before it notices, so the damage lies at or before the end of that
// macroblock's true texture: later macroblocks read backward without fault
// are intact. The rest of the texture is lost: inter macroblocks keep their
// vectors and are predicted without residual, intra ones keep their DCs
// (with DCs in the first partitions) or are copied from the reference; they
// count as concealed.
#include <algorithm>
#include <cstring>

#include "decoder.h"

namespace kplvc::codecs::mpeg4 {

namespace {

constexpr uint32_t kDcMarker = 0x6B001;  // 110 1011 0000 0000 0001
constexpr int kDcMarkerLen = 19;
constexpr uint32_t kMotionMarker = 0x1F001;  // 1 1111 0000 0000 0001
constexpr int kMotionMarkerLen = 17;
constexpr int kDquant[4] = {-1, -2, 1, 2};
const KplMPEG4IntraPred kAbsent = KPLVC_MPEG4_INTRA_PRED_ABSENT;

int clip_qp(int q) { return q < 1 ? 1 : (q > 31 ? 31 : q); }

int64_t bit_pos(const BitReader& br) { return static_cast<int64_t>(br.byte_pos()) * 8 + br.bit_off(); }
void seek_bit(BitReader& br, int64_t b) { br.seek(static_cast<size_t>(b >> 3), static_cast<int32_t>(b & 7)); }

int bit_at(const uint8_t* p, int64_t b) { return (p[b >> 3] >> (7 - (b & 7))) & 1; }

}  // namespace

// ---- Packet boundaries -------------------------------------------------------------

// The next resync marker or start code at a byte boundary after the packet's
// first byte; the texture ends where the stuffing before it (a zero, then
// ones up to the boundary) begins.
Mpeg4Decoder::PacketEnd Mpeg4Decoder::find_packet_end(const BitReader& br) const {
    const uint8_t* b = br.begin();
    const size_t size = static_cast<size_t>(br.end() - br.begin());
    const int z = resync_zeros(vop_);
    PacketEnd e{size, static_cast<int64_t>(size) * 8, false};
    for (size_t pos = br.byte_pos() + 1; pos + 2 < size; ++pos) {
        if (b[pos] != 0 || b[pos + 1] != 0) continue;
        if (b[pos + 2] == 1) {
            e.marker = pos;
            break;
        }
        BitReader t = br;
        t.seek(pos, 0);
        if (t.peek(z > 24 ? 24 : z) == 0 && t.get_long(z + 1) == 1u) {
            e.marker = pos;
            e.resync = true;
            break;
        }
    }
    const int64_t end = static_cast<int64_t>(e.marker) * 8;
    int ones = 0;
    while (ones < 8 && end - 1 - ones >= 0 && bit_at(b, end - 1 - ones)) ++ones;
    e.texture_end = ones < 8 && end - 1 - ones >= bit_pos(br) ? end - 1 - ones : end;
    return e;
}

// ---- The VOP -----------------------------------------------------------------------

void Mpeg4Decoder::decode_dp_vop(BitReader& br) {
    int mb = 0;
    while (mb < mb_count_) {
        const PacketEnd e = find_packet_end(br);
        mb += dp_packet(br, mb, e);
        if (!e.resync) break;
        // The next packet: its header (read_packet_header skips the
        // stuffing byte first), or after damage the next good one.
        BitReader h = br;
        h.seek(e.marker - 1, 0);
        int next;
        if (!read_packet_header(h, &next)) {
            ++stats_->errors;
            h.seek(e.marker + 1, 0);
            if (!find_resync(h, &next)) break;
        }
        if (next != mb) ++stats_->errors;
        if (next > mb) conceal(mb, next);
        mb = next;
        br = h;
    }
    if (mb < mb_count_) {
        ++stats_->errors;
        conceal(mb, mb_count_);
    }
}

// One packet from its first macroblock `first`; returns the number of
// macroblocks it held (0 when its first partitions are damaged: the caller
// conceals up to the next packet).
int Mpeg4Decoder::dp_packet(BitReader& br, int first, const PacketEnd& end) {
    packet_start_ = first;
    if (!dp_partitions(br, first, end)) {
        ++stats_->errors;
        if (rewrite_out_) rewrite_ok_ = false;
        return 0;
    }
    const int count = static_cast<int>(dp_.size());
    const int64_t tex_start = bit_pos(br), tex_end = end.texture_end;
    BitReader t = br;
    rw_bits_.clear();
    int f = count;           // the first macroblock the forward pass could not read
    int64_t fail_block = 0;  // where its failing block starts
    for (int k = 0; k < count; ++k) {
        if (!dp_texture(first, k, &t) || bit_pos(t) > tex_end) {
            f = k;
            fail_block = std::min(bit_pos(t), tex_end);
            break;
        }
    }
    if (f == count) {
        if (rewrite_out_) rw_.push_back({{tex_start, static_cast<int64_t>(end.marker) * 8}, rw_bits_});
        return count;
    }
    ++stats_->errors;
    if (rewrite_out_) rewrite_ok_ = false;
    std::vector<int64_t> start(static_cast<size_t>(count), -1);
    int kept = count;  // macroblocks kept..count-1 come from the backward pass
    if (vol_.rvlc && backward_) kept = dp_backward(t.begin(), f, fail_block, tex_start, tex_end, &start);
    for (int k = f; k < count; ++k) {
        const DpMb& m = dp_[static_cast<size_t>(k)];
        if (k >= kept) {
            seek_bit(t, start[static_cast<size_t>(k)]);
            if (dp_texture(first, k, &t)) continue;
        }
        // Lost texture: what the first partitions say, without residual.
        if (!dp_texture(first, k, nullptr)) {
            conceal(first + k, first + k + 1);
        } else if (!m.not_coded && m.cbp != 0) {
            ++stats_->concealed;
        }
    }
    return count;
}

// The first two partitions into dp_, and the vectors into mv_.
bool Mpeg4Decoder::dp_partitions(BitReader& br, int first, const PacketEnd& end) {
    dp_.clear();
    const bool i_vop = vop_.type == kI, s_vop = vop_.type == kS;
    const uint32_t marker = i_vop ? kDcMarker : kMotionMarker;
    const int marker_len = i_vop ? kDcMarkerLen : kMotionMarkerLen;
    const int step = 4 * mb_w_;
    // intra_dc_vlc_thr compares the quantiser of the previous coded
    // macroblock of the packet (this one's for the first).
    auto use_dc_vlc = [this]() {
        const int rq = first_in_packet_ ? qp_ : running_qp_;
        running_qp_ = qp_;
        first_in_packet_ = false;
        return vop_.dc_thr == 0 || (vop_.dc_thr < 7 && rq < 11 + 2 * vop_.dc_thr);
    };
    auto read_dcs = [&br](DpMb& m) {
        for (int b = 0; b < 6; ++b)
            if (kpliDecodeDCIntra_MPEG4_1u16s(br.pp(), br.po(), &m.dc[b], b) != kplStsNoErr) return false;
        return br.check();
    };
    // First partition: up to the marker.
    int mb = first;
    for (;;) {
        if (br.peek(marker_len) == marker) {
            br.skip(marker_len);
            break;
        }
        if (mb >= mb_count_ || br.overrun() || br.byte_pos() >= end.marker) return false;
        const int mbx = mb % mb_w_, mby = mb / mb_w_;
        DpMb m{};
        KplMotionVector* mv = &mv_[static_cast<size_t>(mb) * 4];
        if (!i_vop && br.bit()) {
            m.not_coded = 1;
            KplMotionVector v = {0, 0};
            if (s_vop) kpliWarpMV_MPEG4(&warp_, mbx, mby, vop_.fcode_f, vol_.quarter_sample, &v);
            for (int b = 0; b < 4; ++b) mv[b] = v;
            dp_.push_back(m);
            ++mb;
            continue;
        }
        Kpl8u mcbpc;
        const KplStatus st = i_vop ? kpliDecodeMCBPCIntra_H263(br.pp(), br.po(), &mcbpc)
                                   : kpliDecodeMCBPCInter_H263(br.pp(), br.po(), &mcbpc);
        if (st != kplStsNoErr || !br.check()) return false;
        if (mcbpc == 255) continue;  // stuffing
        m.type = static_cast<uint8_t>(mcbpc & 15);
        if (m.type > 4) return false;
        m.intra = m.type >= 3;
        m.cbp = static_cast<uint8_t>((mcbpc >> 4) & 3);
        if (s_vop && m.type < 2) m.mcsel = static_cast<uint8_t>(br.bit());
        if (i_vop) {
            for (int b = 0; b < 4; ++b) mv[b] = {0, 0};  // what a B-VOP's direct mode reads
            if (m.type == 4) qp_ = clip_qp(qp_ + kDquant[br.get(2)]);
            m.qp = static_cast<uint8_t>(qp_);
            m.dc_vlc = use_dc_vlc();
            if (m.dc_vlc && !read_dcs(m)) return false;
        } else if (m.intra) {
            for (int b = 0; b < 4; ++b) mv[b] = {0, 0};
        } else if (m.mcsel) {
            KplMotionVector v;
            kpliWarpMV_MPEG4(&warp_, mbx, mby, vop_.fcode_f, vol_.quarter_sample, &v);
            for (int b = 0; b < 4; ++b) mv[b] = v;
        } else {
            const int avail = (mbx > 0 && mb - 1 >= packet_start_ ? 1 : 0) |
                              (mby > 0 && mb - mb_w_ >= packet_start_ ? 2 : 0) |
                              (mby > 0 && mbx < mb_w_ - 1 && mb - mb_w_ + 1 >= packet_start_ ? 4 : 0);
            for (int b = 0; b < (m.type == 2 ? 4 : 1); ++b) {
                KplMotionVector p;
                kpliPredictMV_MPEG4(mv, step, b, avail, &p);
                if (kpliDecodeMV_MPEG4_1u16s(br.pp(), br.po(), &p, &mv[b], vop_.fcode_f) != kplStsNoErr)
                    return false;
            }
            if (m.type != 2) mv[1] = mv[2] = mv[3] = mv[0];
            if (!br.check()) return false;
        }
        dp_.push_back(m);
        ++mb;
    }
    // Second partition.
    for (DpMb& m : dp_) {
        if (m.not_coded) continue;
        if (m.intra) m.ac_pred = static_cast<uint8_t>(br.bit());
        Kpl8u cbpy;
        if (kpliDecodeCBPY_H263(br.pp(), br.po(), &cbpy) != kplStsNoErr) return false;
        m.cbp = static_cast<uint8_t>(((m.intra ? 15 - cbpy : cbpy) << 2) | m.cbp);
        if (!i_vop) {
            if (m.type == 1 || m.type == 4) qp_ = clip_qp(qp_ + kDquant[br.get(2)]);
            m.qp = static_cast<uint8_t>(qp_);
            const bool dc = use_dc_vlc();
            m.dc_vlc = m.intra && dc;
            if (m.dc_vlc && !read_dcs(m)) return false;
        }
        if (!br.check()) return false;
    }
    return !br.overrun();
}

// ---- Macroblocks -------------------------------------------------------------------

// Macroblock first + k from its partitions and its texture (tex null: the
// texture is lost). False on damage, or when a lost intra macroblock has
// nothing to show.
bool Mpeg4Decoder::dp_texture(int first, int k, BitReader* tex) {
    const DpMb& m = dp_[static_cast<size_t>(k)];
    const int mb = first + k, mbx = mb % mb_w_, mby = mb / mb_w_;
    packet_[mb] = packet_id_;
    MbInfo& inf = info_[mb];
    inf = MbInfo{};
    const KplMotionVector* mv = &mv_[static_cast<size_t>(mb) * 4];
    const Dest dst = frame_dest(mbx, mby);
    const bool s_vop = vop_.type == kS;
    if (m.not_coded) {
        inf.skipped = s_vop ? 0 : 1;
        if (s_vop)
            predict_gmc(dst, mbx, mby);
        else
            predict_mb(dst, bwd_, mbx, mby, mv, false, vop_.rounding);
        return true;
    }
    qp_ = m.qp;
    qp_map_[cur_][mb] = m.qp;
    if (m.intra) {
        if (tex == nullptr && !m.dc_vlc && m.cbp != 0) return false;
        inf.intra = 1;
        return dp_intra(mb, m, tex);
    }
    alignas(16) int16_t res[6][64];
    bool coded[6];
    if (!dp_inter_residual(m, tex, res, coded)) return false;
    if (m.mcsel)
        predict_gmc(dst, mbx, mby);
    else
        predict_mb(dst, bwd_, mbx, mby, mv, m.type == 2, vop_.rounding);
    add_residual(mbx, mby, res, coded, false);
    return true;
}

bool Mpeg4Decoder::dp_intra(int mb, const DpMb& m, BitReader* tex) {
    const int mbx = mb % mb_w_, mby = mb / mb_w_;
    auto rec = [&](int x, int y, int b) -> const KplMPEG4IntraPred* {
        if (x < 0 || y < 0 || x >= mb_w_) return &kAbsent;
        const int n = y * mb_w_ + x;
        if (packet_[n] != packet_id_ || !info_[n].intra) return &kAbsent;
        return &pred_[static_cast<size_t>(n) * 6 + b];
    };
    // Left, above-left and above 8x8 blocks of each luma block, as
    // (macroblock dx, dy, block); (0, 0) is this macroblock.
    static constexpr int8_t kN[4][3][3] = {
        {{-1, 0, 1}, {-1, -1, 3}, {0, -1, 2}},
        {{0, 0, 0}, {0, -1, 2}, {0, -1, 3}},
        {{-1, 0, 3}, {-1, 0, 1}, {0, 0, 0}},
        {{0, 0, 2}, {0, 0, 0}, {0, 0, 1}},
    };
    Frame& f = pool_[cur_];
    for (int b = 0; b < 6; ++b) {
        const KplMPEG4IntraPred* n[3];
        for (int j = 0; j < 3; ++j) {
            if (b < 4) {
                const int8_t* e = kN[b][j];
                n[j] = (e[0] == 0 && e[1] == 0) ? &pred_[static_cast<size_t>(mb) * 6 + e[2]]
                                                : rec(mbx + e[0], mby + e[1], e[2]);
            } else {
                static constexpr int8_t kC[3][2] = {{-1, 0}, {-1, -1}, {0, -1}};
                n[j] = rec(mbx + kC[j][0], mby + kC[j][1], b);
            }
        }
        alignas(16) int16_t coef[64] = {};
        if (m.dc_vlc) coef[0] = m.dc[b];
        Kpl32s dir;
        kpliPredictDirIntra_MPEG4(n[0], n[1], n[2], &dir);
        const int scan = m.ac_pred ? (dir == KPLVC_PRED_TOP ? KPLVC_SCAN_HORIZONTAL : KPLVC_SCAN_VERTICAL)
                                   : (vop_.alt_scan ? KPLVC_SCAN_VERTICAL : KPLVC_SCAN_ZIGZAG);
        if (tex != nullptr && ((m.cbp >> (5 - b)) & 1)) {
            Kpl32s last;
            const KplStatus st =
                vol_.rvlc
                    ? kpliDecodeCoeffsIntraRVLC_MPEG4_1u16s(tex->pp(), tex->po(), coef, &last, m.dc_vlc, scan)
                    : kpliDecodeCoeffsIntra_MPEG4_1u16s(tex->pp(), tex->po(), coef, &last, m.dc_vlc, scan);
            if (st != kplStsNoErr || !tex->check()) return false;
            if (rewrite_out_) dp_rewrite_block(coef, true, m.dc_vlc, scan);
        }
        kpliPredictReconIntra_MPEG4_16s(coef, dir == KPLVC_PRED_LEFT ? n[0] : n[2],
                                        &pred_[static_cast<size_t>(mb) * 6 + b], dir, m.ac_pred, m.qp, b);
        if (vol_.quant_type)
            kpliQuantInvIntra_MPEG4_16s_C1I(coef, m.qp, vol_.intra_matrix);
        else
            kpliQuantInvIntraH263_MPEG4_16s_C1I(coef, m.qp);
        uint8_t* dst;
        int step;
        if (b < 4) {
            step = f.stride(0);
            dst = f.data(0) + static_cast<intptr_t>(16 * mby + 8 * (b >> 1)) * step + 16 * mbx + (b & 1) * 8;
        } else {
            step = f.stride(b - 3);
            dst = f.data(b - 3) + static_cast<intptr_t>(8 * mby) * step + 8 * mbx;
        }
        kpliDCT8x8Inv_16s8u_C1R(coef, dst, step);
    }
    return true;
}

bool Mpeg4Decoder::dp_inter_residual(const DpMb& m, BitReader* tex, int16_t (*res)[64], bool* coded) {
    const int scan = vop_.alt_scan ? KPLVC_SCAN_VERTICAL : KPLVC_SCAN_ZIGZAG;
    const int16_t* w = vol_.quant_type ? vol_.inter_matrix : nullptr;
    for (int b = 0; b < 6; ++b) {
        coded[b] = tex != nullptr && ((m.cbp >> (5 - b)) & 1) != 0;
        if (!coded[b]) continue;
        Kpl32s last;
        if (rewrite_out_) {
            // The levels as they are, for the rewrite, from a copy of the position.
            BitReader c = *tex;
            if (kpliDecodeCoeffsInter_MPEG4_1u16s(c.pp(), c.po(), res[b], &last, scan) != kplStsNoErr)
                return false;
            dp_rewrite_block(res[b], false, 0, scan);
        }
        const KplStatus st = vol_.rvlc ? kpliReconstructCoeffsInterRVLC_MPEG4_1u16s(
                                             tex->pp(), tex->po(), res[b], &last, scan, m.qp, w)
                                       : kpliReconstructCoeffsInter_MPEG4_1u16s(tex->pp(), tex->po(), res[b],
                                                                                &last, scan, m.qp, w);
        if (st != kplStsNoErr || !tex->check()) return false;
        if (scan == KPLVC_SCAN_ZIGZAG && last < 3)
            kpliDCT8x8Inv_2x2_16s_C1I(res[b]);
        else if (scan == KPLVC_SCAN_ZIGZAG && last < 10)
            kpliDCT8x8Inv_4x4_16s_C1I(res[b]);
        else
            kpliDCT8x8Inv_16s_C1I(res[b]);
    }
    return true;
}

// ---- The backward pass ---------------------------------------------------------------

// Reads the texture of data from its end back toward macroblock f + 1; start[k]
// gets where each macroblock read backward begins. Returns the first
// macroblock of the run read without fault (count when the last one fails).
int Mpeg4Decoder::dp_backward(const uint8_t* data, int f, int64_t fail_block, int64_t tex_start,
                              int64_t tex_end, std::vector<int64_t>* start) {
    const int count = static_cast<int>(dp_.size());
    int64_t pos = tex_end;
    Kpl8u* base = const_cast<Kpl8u*>(data);
    const Kpl8u* s = base + (tex_start >> 3);
    const Kpl32s s_off = static_cast<Kpl32s>(tex_start & 7);
    int kept = count;
    for (int k = count - 1; k > f; --k) {
        const DpMb& m = dp_[static_cast<size_t>(k)];
        if (!m.not_coded) {
            for (int b = 5; b >= 0; --b) {
                if (!((m.cbp >> (5 - b)) & 1)) continue;
                Kpl8u* p = base + (pos >> 3);
                Kpl32s off = static_cast<Kpl32s>(pos & 7), last;
                alignas(16) int16_t c[64];
                const KplStatus st = m.intra ? kpliDecodeCoeffsIntraRVLCBack_MPEG4_1u16s(
                                                   &p, &off, s, s_off, c, &last, m.dc_vlc, KPLVC_SCAN_ZIGZAG)
                                             : kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s(
                                                   &p, &off, s, s_off, c, &last, KPLVC_SCAN_ZIGZAG);
                if (st != kplStsNoErr) return kept;
                pos = (p - base) * 8 + off;
            }
        }
        // Read backward, this macroblock cannot begin before the block where
        // the forward pass failed.
        if (pos < fail_block) return kept;
        (*start)[static_cast<size_t>(k)] = pos;
        kept = k;
    }
    return kept;
}

// ---- Rewriting the texture in reversible VLCs ---------------------------------------

void Mpeg4Decoder::dp_rewrite_block(const int16_t* levels, bool intra, int dc_vlc, int scan) {
    uint8_t buf[64 * 4 + 16] = {};
    Kpl8u* p = buf;
    Kpl32s off = 0;
    const KplStatus st = intra ? kpliEncodeCoeffsIntraRVLC_MPEG4_16s1u(levels, &p, &off, dc_vlc, scan)
                               : kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(levels, &p, &off, scan);
    if (st != kplStsNoErr) {
        rewrite_ok_ = false;
        return;
    }
    for (int64_t b = 0; b < (p - buf) * 8 + off; ++b)
        rw_bits_.push_back(static_cast<uint8_t>(bit_at(buf, b)));
}

// The input with each replacement: a one-bit flag in place, or a texture
// partition followed by fresh stuffing up to the next byte boundary.
std::vector<uint8_t> Mpeg4Decoder::assemble_rewrite(const uint8_t* data, size_t size) const {
    std::vector<uint8_t> out;
    int64_t n = 0;
    auto put = [&](int bit) {
        if ((n & 7) == 0) out.push_back(0);
        if (bit) out.back() |= static_cast<uint8_t>(0x80 >> (n & 7));
        ++n;
    };
    auto r = rw_;
    std::sort(r.begin(), r.end());
    int64_t at = 0;
    for (const auto& [range, bits] : r) {
        for (; at < range.first; ++at) put(bit_at(data, at));
        for (uint8_t b : bits) put(b);
        if (range.second - range.first > 1) {
            put(0);
            while (n & 7) put(1);
        }
        at = range.second;
    }
    for (; at < static_cast<int64_t>(size) * 8; ++at) put(bit_at(data, at));
    return out;
}

}  // namespace kplvc::codecs::mpeg4
