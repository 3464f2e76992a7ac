// The in-loop deblocking filter: boundary strengths, thresholds and the
// library's per-macroblock edge filters, macroblock by macroblock in raster
// order (each macroblock filters its left and top edges and its inner ones).
#include <array>
#include <cstdlib>
#include <cstring>

#include "decoder.h"
#include "kplvc.h"

namespace kplvc::codecs::h264 {

namespace {

// ITU-T H.264 Table 8-16 (alpha', beta') and Table 8-17 (tC0' for bS 1..3),
// 8-bit samples, by indexA / indexB 0..51.
constexpr uint8_t kAlpha[52] = {0,  0,  0,  0,   0,   0,   0,   0,   0,   0,   0,   0,   0,
                                0,  0,  0,  4,   4,   5,   6,   7,   8,   9,   10,  12,  13,
                                15, 17, 20, 22,  25,  28,  32,  36,  40,  45,  50,  56,  63,
                                71, 80, 90, 101, 113, 127, 144, 162, 182, 203, 226, 255, 255};
constexpr uint8_t kBeta[52] = {0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0,  0, 2,  2,
                               2,  3,  3,  3,  3,  4,  4,  4,  6,  6,  7,  7,  8,  8,  9,  9, 10, 10,
                               11, 11, 12, 12, 13, 13, 14, 14, 15, 15, 16, 16, 17, 17, 18, 18};
constexpr uint8_t kTc0[52][3] = {
    {0, 0, 0},   {0, 0, 0},    {0, 0, 0},    {0, 0, 0},    {0, 0, 0},  {0, 0, 0},  {0, 0, 0},   {0, 0, 0},
    {0, 0, 0},   {0, 0, 0},    {0, 0, 0},    {0, 0, 0},    {0, 0, 0},  {0, 0, 0},  {0, 0, 0},   {0, 0, 0},
    {0, 0, 0},   {0, 0, 1},    {0, 0, 1},    {0, 0, 1},    {0, 0, 1},  {0, 1, 1},  {0, 1, 1},   {1, 1, 1},
    {1, 1, 1},   {1, 1, 1},    {1, 1, 1},    {1, 1, 2},    {1, 1, 2},  {1, 1, 2},  {1, 1, 2},   {1, 2, 3},
    {1, 2, 3},   {2, 2, 3},    {2, 2, 4},    {2, 3, 4},    {2, 3, 4},  {3, 3, 5},  {3, 4, 6},   {3, 4, 6},
    {4, 5, 7},   {4, 5, 8},    {4, 6, 9},    {5, 7, 10},   {6, 8, 11}, {6, 8, 13}, {7, 10, 14}, {8, 11, 16},
    {9, 12, 18}, {10, 13, 20}, {11, 15, 23}, {13, 17, 25},
};

// tC0 by indexA and bS 0..4 (0 where no clipping value applies).
constexpr auto kTc0ByBs = [] {
    std::array<std::array<uint8_t, 5>, 52> t{};
    for (int i = 0; i < 52; ++i) t[i] = {0, kTc0[i][0], kTc0[i][1], kTc0[i][2], 0};
    return t;
}();

// The four strengths of one edge from its coefficient bits (bS 2) and motion
// bits (bS 1), segment k from bit k.
constexpr auto kEdgeBs = [] {
    std::array<std::array<std::array<uint8_t, 4>, 16>, 16> t{};
    for (int nz = 0; nz < 16; ++nz)
        for (int mv = 0; mv < 16; ++mv)
            for (int k = 0; k < 4; ++k)
                t[nz][mv][k] = static_cast<uint8_t>((nz >> k) & 1 ? 2 : (mv >> k) & 1);
    return t;
}();

inline int clip51(int v) { return v < 0 ? 0 : (v > 51 ? 51 : v); }

struct Thresholds {
    uint8_t alpha[2], beta[2];  // external edge, internal edges
    int index_a[2];
};

}  // namespace

struct Deblocker {
    Decoder264& d;
    Pic* p;
    int mbw;

    // Motion part of bS (0 or 1) between block bp of macroblock pa and block
    // bq of macroblock qa, neither intra: 1 when the two sides use different
    // reference pictures, a different number of vectors, or vectors a whole
    // sample or more apart.
    int motion_strength(size_t pa, int bp, size_t qa, int bq) const {
        const size_t qp_ = 4 * pa + 2 * (bp >> 3) + ((bp & 3) >> 1);
        const size_t qq = 4 * qa + 2 * (bq >> 3) + ((bq & 3) >> 1);
        const int32_t p0 = p->ref_id[0][qp_], p1 = p->ref_id[1][qp_];
        const int32_t q0 = p->ref_id[0][qq], q1 = p->ref_id[1][qq];
        const Mv mp0 = p->mv[0][16 * pa + static_cast<size_t>(bp)],
                 mq0 = p->mv[0][16 * qa + static_cast<size_t>(bq)];
        auto far = [](Mv a, Mv b) { return std::abs(a.x - b.x) >= 4 || std::abs(a.y - b.y) >= 4; };
        if (p1 < 0 && q1 < 0) return (p0 != q0 || far(mp0, mq0)) ? 1 : 0;  // the common single-list case
        const Mv mp1 = p->mv[1][16 * pa + static_cast<size_t>(bp)],
                 mq1 = p->mv[1][16 * qa + static_cast<size_t>(bq)];
        const int np = (p0 >= 0) + (p1 >= 0), nq = (q0 >= 0) + (q1 >= 0);
        if (np != nq) return 1;
        if (np == 1) {
            const int32_t rp = p0 >= 0 ? p0 : p1, rq = q0 >= 0 ? q0 : q1;
            const Mv vp = p0 >= 0 ? mp0 : mp1, vq = q0 >= 0 ? mq0 : mq1;
            return (rp != rq || far(vp, vq)) ? 1 : 0;
        }
        if (np == 0) return 0;
        if (!((p0 == q0 && p1 == q1) || (p0 == q1 && p1 == q0))) return 1;
        if (p0 != p1) {
            if (p0 == q0) return (far(mp0, mq0) || far(mp1, mq1)) ? 1 : 0;
            return (far(mp0, mq1) || far(mp1, mq0)) ? 1 : 0;
        }
        return ((far(mp0, mq0) || far(mp1, mq1)) && (far(mp0, mq1) || far(mp1, mq0))) ? 1 : 0;
    }

    // Strengths of the four vertical (dir 0) or horizontal (dir 1) edges of
    // macroblock a, index 4 * edge + segment; edge 0 only when `outer`.
    // Returns false when every strength is 0.
    bool strengths(size_t a, int dir, bool outer, uint8_t bs[16]) const {
        const MbInfo& q = p->mb[a];
        const size_t n = dir == 0 ? a - 1 : a - static_cast<size_t>(mbw);
        if (is_intra(q.kind)) {
            const uint32_t e0 = outer ? 0x04040404u : 0;
            std::memcpy(bs, &e0, 4);
            std::memset(bs + 4, 3, 12);
            return true;
        }
        // Both masks are edge-major (bit 4 * edge + segment). bS 2 where either
        // side has coefficients, else 1 where the motion differs.
        const uint32_t nzq = q.nz_edges[dir];
        const uint32_t motion = q.motion_bits[dir];
        uint32_t nz = (nzq | nzq << 4) & 0xFFF0;
        uint32_t mv = motion & 0xFFF0;
        if (!outer) {
            // edge 0 stays 0
        } else if (is_intra(p->mb[n].kind)) {
            nz |= 0xF;  // overwritten with 4 below
        } else {
            const uint32_t nzp = p->mb[n].nz_edges[dir];
            nz |= (nzq | nzp >> 12) & 0xF;
            if ((q.edge0_known >> dir) & 1) {
                mv |= motion & 0xF;
            } else {
                for (int k = 0; k < 4; ++k) {
                    const int bq = dir == 0 ? 4 * k : k, bp = dir == 0 ? bq + 3 : bq + 12;
                    if (!((nz >> k) & 1)) mv |= static_cast<uint32_t>(motion_strength(n, bp, a, bq)) << k;
                }
            }
        }
        mv &= ~nz;
        const bool intra_outer = outer && is_intra(p->mb[n].kind);
        if (!intra_outer && (nz | mv) == 0) return false;
        for (int e = 0; e < 4; ++e)
            std::memcpy(bs + 4 * e, kEdgeBs[(nz >> (4 * e)) & 15][(mv >> (4 * e)) & 15].data(), 4);
        if (intra_outer) std::memset(bs, 4, 4);
        return true;
    }

    static Thresholds thresholds(int qp_outer, int qp_inner, const SliceFilter& f) {
        Thresholds t;
        const int qps[2] = {qp_outer, qp_inner};
        for (int i = 0; i < 2; ++i) {
            t.index_a[i] = clip51(qps[i] + f.alpha);
            t.alpha[i] = kAlpha[t.index_a[i]];
            t.beta[i] = kBeta[clip51(qps[i] + f.beta)];
        }
        return t;
    }

    void filter_mb(int mx, int my) {
        const size_t a = static_cast<size_t>(my) * static_cast<size_t>(mbw) + static_cast<size_t>(mx);
        const MbInfo& q = p->mb[a];
        if (q.slice < 0) return;
        const SliceFilter& f = d.slice_filters_[static_cast<size_t>(q.slice)];
        if (f.disable == 1) return;
        const bool left = mx > 0 && (f.disable != 2 || p->mb[a - 1].slice == q.slice);
        const bool top = my > 0 && (f.disable != 2 || p->mb[a - static_cast<size_t>(mbw)].slice == q.slice);

        for (int dir = 0; dir < 2; ++dir) {
            const bool outer = dir == 0 ? left : top;
            uint8_t bs[16];
            if (!strengths(a, dir, outer, bs)) continue;
            const MbInfo& n =
                p->mb[dir == 0 ? (outer ? a - 1 : a) : (outer ? a - static_cast<size_t>(mbw) : a)];

            // Luma
            {
                const Thresholds t = thresholds((n.qp + q.qp + 1) >> 1, q.qp, f);
                uint8_t tc0[16];
                const uint8_t* outer_tc = kTc0ByBs[static_cast<size_t>(t.index_a[0])].data();
                const uint8_t* inner_tc = kTc0ByBs[static_cast<size_t>(t.index_a[1])].data();
                for (int i = 0; i < 4; ++i) tc0[i] = outer_tc[bs[i]];
                for (int i = 4; i < 16; ++i) tc0[i] = inner_tc[bs[i]];
                const int s = p->frame.stride(0);
                uint8_t* y = p->frame.data(0) + static_cast<ptrdiff_t>(16 * my) * s + 16 * mx;
                if (dir == 0)
                    kpliFilterDeblockingLuma_VerEdge_H264_8u_C1IR(y, s, t.alpha, t.beta, tc0, bs);
                else
                    kpliFilterDeblockingLuma_HorEdge_H264_8u_C1IR(y, s, t.alpha, t.beta, tc0, bs);
            }
            // Chroma: edges 0 and 2 of luma, with the chroma quantisers.
            if (!(bs[0] | bs[1] | bs[2] | bs[3] | bs[8] | bs[9] | bs[10] | bs[11])) continue;
            const int* off = d.pps_->chroma_qp_index_offset;
            Thresholds t;
            uint8_t tc0[8];
            for (int c = 0; c < 2; ++c) {
                // Cb and Cr share their thresholds when their offsets agree.
                if (c == 0 || off[1] != off[0]) {
                    const int qq = chroma_qp(q.qp, off[c]), qn = chroma_qp(n.qp, off[c]);
                    t = thresholds((qn + qq + 1) >> 1, qq, f);
                    const uint8_t* outer_tc = kTc0ByBs[static_cast<size_t>(t.index_a[0])].data();
                    const uint8_t* inner_tc = kTc0ByBs[static_cast<size_t>(t.index_a[1])].data();
                    for (int k = 0; k < 4; ++k) {
                        tc0[k] = outer_tc[bs[k]];
                        tc0[4 + k] = inner_tc[bs[8 + k]];
                    }
                }
                const int s = p->frame.stride(1 + c);
                uint8_t* u = p->frame.data(1 + c) + static_cast<ptrdiff_t>(8 * my) * s + 8 * mx;
                if (dir == 0)
                    kpliFilterDeblockingChroma_VerEdge_H264_8u_C1IR(u, s, t.alpha, t.beta, tc0, bs);
                else
                    kpliFilterDeblockingChroma_HorEdge_H264_8u_C1IR(u, s, t.alpha, t.beta, tc0, bs);
            }
        }
    }
};

void deblock_table_row(int index, int out[5]) {
    out[0] = kAlpha[index];
    out[1] = kBeta[index];
    for (int i = 0; i < 3; ++i) out[2 + i] = kTc0[index][i];
}

void Decoder264::deblock_rows(int until_row) {
    if (until_row > mbh_) until_row = mbh_;
    Deblocker db{*this, cur_, mbw_};
    for (; deblocked_rows_ < until_row; ++deblocked_rows_)
        for (int x = 0; x < mbw_; ++x) db.filter_mb(x, deblocked_rows_);
}

}  // namespace kplvc::codecs::h264
