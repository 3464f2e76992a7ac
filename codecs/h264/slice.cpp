// The macroblock loop of one slice: parsing (mb_type, prediction modes,
// motion vectors, coded_block_pattern, CAVLC residual) and reconstruction
// through the library (intra prediction, interpolation, weighting, inverse
// transforms), one macroblock at a time.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "cavlc.h"
#include "decoder.h"
#include "kplvc.h"

namespace kplvc::codecs::h264 {

namespace {

// Scan order of a 4x4 block (frame macroblocks): scan index -> raster index.
constexpr uint8_t kZigzag[16] = {0, 1, 4, 8, 5, 2, 3, 6, 9, 12, 13, 10, 7, 11, 14, 15};
constexpr uint8_t kChromaDcScan[4] = {0, 1, 2, 3};
// luma4x4BlkIdx (decoding order, 8x8 quarters in turn) -> raster index.
constexpr uint8_t kBlkRaster[16] = {0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15};

// coded_block_pattern from its codeNum (ITU-T H.264 Table 9-4, 4:2:0):
// Intra_4x4 macroblocks, then inter macroblocks. Bits 0..3 luma 8x8
// quarters, bits 4..5 chroma.
constexpr uint8_t kCbpIntra[48] = {47, 31, 15, 0,  23, 27, 29, 30, 7,  11, 13, 14, 39, 43, 45, 46,
                                   16, 3,  5,  10, 12, 19, 21, 26, 28, 35, 37, 42, 44, 1,  2,  4,
                                   8,  17, 18, 20, 24, 6,  9,  22, 25, 32, 33, 34, 36, 40, 38, 41};
constexpr uint8_t kCbpInter[48] = {0,  16, 1,  2,  4,  8,  32, 3,  5,  10, 12, 15, 47, 7,  11, 13,
                                   14, 6,  9,  31, 35, 37, 42, 44, 33, 34, 36, 40, 39, 43, 45, 46,
                                   17, 18, 20, 24, 19, 21, 26, 28, 23, 27, 29, 30, 22, 25, 38, 41};

// Caches around the current macroblock, in 4x4 block units: column -1 is the
// left neighbour, row -1 the one above, (4, -1) the above-right one.
constexpr int C(int x, int y) { return (y + 1) * 8 + (x + 1); }
constexpr int8_t kNotAvail = -2;  // ref cache: no such partition (yet); -1 is "not this list"
constexpr uint8_t kNoBlock = 0xFF;

enum Shape : uint8_t { k16x16, k16x8, k8x16, k8x8 };
struct MbTypeInfo {
    uint8_t shape;
    uint8_t pred[2];  // per partition: bit 0 list 0, bit 1 list 1
};
constexpr MbTypeInfo kPTypes[5] = {
    {k16x16, {1, 0}}, {k16x8, {1, 1}}, {k8x16, {1, 1}}, {k8x8, {0, 0}}, {k8x8, {0, 0}},
};
constexpr MbTypeInfo kBTypes[23] = {
    {k16x16, {0, 0}}, {k16x16, {1, 0}}, {k16x16, {2, 0}}, {k16x16, {3, 0}}, {k16x8, {1, 1}}, {k8x16, {1, 1}},
    {k16x8, {2, 2}},  {k8x16, {2, 2}},  {k16x8, {1, 2}},  {k8x16, {1, 2}},  {k16x8, {2, 1}}, {k8x16, {2, 1}},
    {k16x8, {1, 3}},  {k8x16, {1, 3}},  {k16x8, {2, 3}},  {k8x16, {2, 3}},  {k16x8, {3, 1}}, {k8x16, {3, 1}},
    {k16x8, {3, 2}},  {k8x16, {3, 2}},  {k16x8, {3, 3}},  {k8x16, {3, 3}},  {k8x8, {0, 0}},
};
struct SubTypeInfo {
    uint8_t parts, w, h;  // number of sub-partitions and their size in 4x4 blocks
    uint8_t pred;         // bit 0 list 0, bit 1 list 1; 0 for direct
};
constexpr SubTypeInfo kPSub[4] = {{1, 2, 2, 1}, {2, 2, 1, 1}, {2, 1, 2, 1}, {4, 1, 1, 1}};
constexpr SubTypeInfo kBSub[13] = {
    {4, 1, 1, 0}, {1, 2, 2, 1}, {1, 2, 2, 2}, {1, 2, 2, 3}, {2, 2, 1, 1}, {2, 1, 2, 1}, {2, 2, 1, 2},
    {2, 1, 2, 2}, {2, 2, 1, 3}, {2, 1, 2, 3}, {4, 1, 1, 1}, {4, 1, 1, 2}, {4, 1, 1, 3},
};

inline int clip3(int lo, int hi, int v) { return v < lo ? lo : (v > hi ? hi : v); }
inline int median(int a, int b, int c) { return std::max(std::min(a, b), std::min(std::max(a, b), c)); }
inline int min_positive(int a, int b) { return (a >= 0 && b >= 0) ? std::min(a, b) : std::max(a, b); }

// The chroma quantiser for qPI 30..51 (below 30 it equals qPI).
constexpr uint8_t kChromaQp[22] = {29, 30, 31, 32, 32, 33, 34, 34, 35, 35, 36,
                                   36, 37, 37, 37, 38, 38, 38, 39, 39, 39, 39};

}  // namespace

int chroma_qp(int qp, int offset) {
    const int q = clip3(0, 51, qp + offset);
    return q < 30 ? q : kChromaQp[q - 30];
}

struct SliceDecoder {
    Decoder264& d;
    const SliceHeader& sh;
    const Sps& sps;
    const Pps& pps;
    Pic* cur;
    BitReader& br;
    int mbw, mbh, slice_num;
    int qp = 0, qpc[2] = {0, 0};
    uint8_t* plane[3];
    int stride[3];
    Pic* const* list[2];
    int nref[2];
    Pic* col = nullptr;   // RefPicList1[0] of a B slice
    int weight_mode = 0;  // 0 none, 1 explicit, 2 implicit
    bool col_zero_allowed = false;

    // The current macroblock
    int mb_x = 0, mb_y = 0, mb_addr = -2;
    bool avail_a = false, avail_b = false, avail_c = false, avail_d = false;
    // neighbours usable for intra prediction (constrained_intra_pred)
    bool intra_a = false, intra_b = false, intra_c = false, intra_d = false;

    alignas(16) int8_t ref_cache[2][40];
    alignas(16) Mv mv_cache[2][40];
    uint8_t nz_cache[40];
    uint8_t nzc_cache[2][24];
    int8_t i4_cache[40];

    alignas(32) int16_t coef[16][16];
    alignas(32) int16_t dc[16];
    alignas(32) int16_t cdc[2][4];
    alignas(32) int16_t cac[2][4][16];
    uint32_t nz_mask = 0, ac_mask = 0;  // luma blocks (raster bits) with coefficients, with AC ones
    uint32_t cac_mask = 0;              // chroma AC blocks with coefficients (bit 4 * c + b)
    bool dc_coded = false, cdc_coded[2] = {false, false};

    // Prediction buffers for the second list of a bi-predicted block
    alignas(32) uint8_t tmp_y[16 * 16];
    alignas(32) uint8_t tmp_c[2][8 * 8];

    // Per slice tables
    int16_t implicit_w[32][32];  // w1 of implicit weighting (w0 = 64 - w1)
    int16_t temporal_dsf[32];    // DistScaleFactor per refIdxL0, or 9999 for "copy mvCol"

    // Spatial direct, derived once per macroblock
    bool direct_done = false;
    bool direct_col_test = false;  // the co-located motion can zero a direct vector
    int8_t direct_ref[2];
    Mv direct_mv[2];

    SliceDecoder(Decoder264& dec, const SliceHeader& s, const Sps& sp, const Pps& pp, BitReader& b)
        : d(dec), sh(s), sps(sp), pps(pp), cur(dec.cur_), br(b), mbw(dec.mbw_), mbh(dec.mbh_) {
        slice_num = static_cast<int>(d.slice_filters_.size()) - 1;
        for (int p = 0; p < 3; ++p) {
            plane[p] = cur->frame.data(p);
            stride[p] = cur->frame.stride(p);
        }
        for (int l = 0; l < 2; ++l) {
            list[l] = d.ref_list_[l];
            nref[l] = d.num_ref_[l];
        }
        std::memset(coef, 0, sizeof coef);
        std::memset(dc, 0, sizeof dc);
        std::memset(cdc, 0, sizeof cdc);
        std::memset(cac, 0, sizeof cac);
        if (sh.type == kSliceP) weight_mode = pps.weighted_pred ? 1 : 0;
        if (sh.type == kSliceB) {
            weight_mode = pps.weighted_bipred_idc;
            col = list[1][0];
            if (col && col->mb.size() != cur->mb.size()) col = nullptr;
            col_zero_allowed = col && col->mark == kShortTerm;
            if (weight_mode == 2) init_implicit();
            if (!sh.direct_spatial) init_temporal();
        }
        set_qp(sh.qp);
        for (int l = 0; l < 2; ++l) {
            ids[l][0] = -1;
            stored_ids[l][0] = -1;
            for (int i = 0; i < 32; ++i) {
                const bool known = i < nref[l] && list[l][i];
                ids[l][i + 1] = known ? list[l][i]->id : -2 - i;
                stored_ids[l][i + 1] = known ? list[l][i]->id : -1;
            }
        }
    }

    void set_qp(int q) {
        qp = q;
        qpc[0] = chroma_qp(q, pps.chroma_qp_index_offset[0]);
        qpc[1] = chroma_qp(q, pps.chroma_qp_index_offset[1]);
    }

    // DiffPicOrderCnt-based scaling shared by temporal direct and implicit
    // weights: tb = POC(cur) - POC(pic0), td = POC(pic1) - POC(pic0), both
    // clipped to -128..127; DistScaleFactor = (tb * tx + 32) >> 6 clipped,
    // tx = (16384 + |td / 2|) / td. Returns false when td is 0.
    bool dist_scale(const Pic* p0, const Pic* p1, int* dsf) const {
        const int tb = clip3(-128, 127, cur->poc - p0->poc);
        const int td = clip3(-128, 127, p1->poc - p0->poc);
        if (td == 0) return false;
        const int tx = (16384 + std::abs(td / 2)) / td;
        *dsf = clip3(-1024, 1023, (tb * tx + 32) >> 6);
        return true;
    }

    void init_implicit() {
        for (int i = 0; i < nref[0]; ++i)
            for (int j = 0; j < nref[1]; ++j) {
                const Pic* p0 = list[0][i];
                const Pic* p1 = list[1][j];
                int w1 = 32, dsf = 0;
                if (p0 && p1 && p0->mark != kLongTerm && p1->mark != kLongTerm && dist_scale(p0, p1, &dsf) &&
                    (dsf >> 2) >= -64 && (dsf >> 2) <= 128)
                    w1 = dsf >> 2;
                implicit_w[i][j] = static_cast<int16_t>(w1);
            }
    }
    int implicit_w1(int r0, int r1) const { return implicit_w[r0][r1]; }

    void init_temporal() {
        const Pic* p1 = list[1][0];
        for (int i = 0; i < nref[0]; ++i) {
            const Pic* p0 = list[0][i];
            int dsf = 0;
            if (!p0 || !p1 || p0->mark == kLongTerm || !dist_scale(p0, p1, &dsf))
                temporal_dsf[i] = 9999;
            else
                temporal_dsf[i] = static_cast<int16_t>(dsf);
        }
    }

    // ------------------------------------------------------------------
    // Neighbours

    bool same_slice(int addr) const { return cur->mb[static_cast<size_t>(addr)].slice == slice_num; }

    void find_neighbours() {
        avail_a = mb_x > 0 && same_slice(mb_addr - 1);
        avail_b = mb_y > 0 && same_slice(mb_addr - mbw);
        avail_c = mb_y > 0 && mb_x + 1 < mbw && same_slice(mb_addr - mbw + 1);
        avail_d = mb_x > 0 && mb_y > 0 && same_slice(mb_addr - mbw - 1);
        if (pps.constrained_intra_pred) {
            auto ok = [&](bool avail, int addr) {
                return avail && is_intra(cur->mb[static_cast<size_t>(addr)].kind);
            };
            intra_a = ok(avail_a, mb_addr - 1);
            intra_b = ok(avail_b, mb_addr - mbw);
            intra_c = ok(avail_c, mb_addr - mbw + 1);
            intra_d = ok(avail_d, mb_addr - mbw - 1);
        } else {
            intra_a = avail_a;
            intra_b = avail_b;
            intra_c = avail_c;
            intra_d = avail_d;
        }
    }

    const MbInfo& left() const { return cur->mb[static_cast<size_t>(mb_addr - 1)]; }
    const MbInfo& above() const { return cur->mb[static_cast<size_t>(mb_addr - mbw)]; }

    void load_nz_cache() {
        for (int i = 0; i < 4; ++i) {
            nz_cache[C(-1, i)] = avail_a ? left().nz[4 * i + 3] : kNoBlock;
            nz_cache[C(i, -1)] = avail_b ? above().nz[12 + i] : kNoBlock;
        }
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < 2; ++i) {
                nzc_cache[c][C(-1, i)] = avail_a ? left().nzc[c][2 * i + 1] : kNoBlock;
                nzc_cache[c][C(i, -1)] = avail_b ? above().nzc[c][2 + i] : kNoBlock;
            }
    }

    static int predict_nc(const uint8_t* cache, int x, int y) {
        const int a = cache[C(x - 1, y)], b = cache[C(x, y - 1)];
        if (a != kNoBlock && b != kNoBlock) return (a + b + 1) >> 1;
        if (a != kNoBlock) return a;
        if (b != kNoBlock) return b;
        return 0;
    }

    // Motion of the neighbours: the left column, the row above, above-right
    // and above-left, from the picture's stored motion.
    void load_motion_cache(int lists) {
        for (int l = 0; l < lists; ++l) {
            int8_t* rc = ref_cache[l];
            Mv* mc = mv_cache[l];
            std::memset(rc, kNotAvail, 40);
            // Unavailable neighbours count as vector 0. The macroblock's own
            // entries are written before anything reads them (a partition not
            // yet decoded is only ever tested for availability).
            const Mv* mv = cur->mv[l].data();
            const int8_t* ref = cur->ref[l].data();
            const Mv zero{0, 0};
            const size_t a = static_cast<size_t>(mb_addr - 1);
            for (int y = 0; y < 4; ++y) {
                rc[C(-1, y)] = avail_a ? ref[4 * a + 2 * (y >> 1) + 1] : kNotAvail;
                mc[C(-1, y)] = avail_a ? mv[16 * a + 4 * y + 3] : zero;
            }
            const size_t b = static_cast<size_t>(mb_addr - mbw);
            for (int x = 0; x < 4; ++x) {
                rc[C(x, -1)] = avail_b ? ref[4 * b + 2 + (x >> 1)] : kNotAvail;
                mc[C(x, -1)] = avail_b ? mv[16 * b + 12 + x] : zero;
            }
            const size_t c = static_cast<size_t>(mb_addr - mbw + 1);
            rc[C(4, -1)] = avail_c ? ref[4 * c + 2] : kNotAvail;
            mc[C(4, -1)] = avail_c ? mv[16 * c + 12] : zero;
            const size_t dd = static_cast<size_t>(mb_addr - mbw - 1);
            rc[C(-1, -1)] = avail_d ? ref[4 * dd + 3] : kNotAvail;
            mc[C(-1, -1)] = avail_d ? mv[16 * dd + 15] : zero;
        }
    }

    template <int W>
    void fill_rows(int l, int x, int y, int h, int ref, Mv mv) {
        for (int j = y; j < y + h; ++j)
            for (int i = x; i < x + W; ++i) {
                ref_cache[l][C(i, j)] = static_cast<int8_t>(ref);
                mv_cache[l][C(i, j)] = mv;
            }
    }
    void fill_ref(int l, int x, int y, int w, int h, int ref, Mv mv) {
        if (w == 4)
            fill_rows<4>(l, x, y, h, ref, mv);
        else if (w == 2)
            fill_rows<2>(l, x, y, h, ref, mv);
        else
            fill_rows<1>(l, x, y, h, ref, mv);
    }

    // Motion vector prediction (median, or directional for 16x8 and 8x16).
    Mv predict_mv(int l, int x, int y, int w, int ref, int shape) const {
        const int8_t* rc = ref_cache[l];
        const Mv* mc = mv_cache[l];
        const int a = C(x - 1, y), b = C(x, y - 1);
        int c = C(x + w, y - 1);
        if (rc[c] == kNotAvail) c = C(x - 1, y - 1);
        const int ra = rc[a], rb = rc[b], rcc = rc[c];
        if (shape == k16x8) {
            if (y == 0 && rb == ref) return mc[b];
            if (y != 0 && ra == ref) return mc[a];
        } else if (shape == k8x16) {
            if (x == 0 && ra == ref) return mc[a];
            if (x != 0 && rcc == ref) return mc[c];
        }
        if (rb == kNotAvail && rcc == kNotAvail && ra != kNotAvail) return mc[a];
        const int match = (ra == ref) + (rb == ref) + (rcc == ref);
        if (match == 1) {
            if (ra == ref) return mc[a];
            if (rb == ref) return mc[b];
            return mc[c];
        }
        return Mv{static_cast<int16_t>(median(mc[a].x, mc[b].x, mc[c].x)),
                  static_cast<int16_t>(median(mc[a].y, mc[b].y, mc[c].y))};
    }

    // ------------------------------------------------------------------
    // Macroblock storage

    // The motion granularity of the macroblock in the caches. `bound` is what
    // the macroblock type allows (the motion is uniform at least that far),
    // which spares most comparisons.
    MotionShape motion_shape(MotionShape bound) const {
        if (bound == kMotion16x16) return kMotion16x16;
        if (bound == kMotion16x8) return same_motion(C(0, 0), C(0, 2)) ? kMotion16x16 : kMotion16x8;
        if (bound == kMotion8x16) return same_motion(C(0, 0), C(2, 0)) ? kMotion16x16 : kMotion8x16;
        if (bound == kMotion4x4) {
            for (int q = 0; q < 4; ++q) {
                const int b = C(2 * (q & 1), 2 * (q >> 1));
                if (!same_motion(b, b + 1) || !same_motion(b, b + 8) || !same_motion(b, b + 9))
                    return kMotion4x4;
            }
        }
        const bool h = same_motion(C(0, 0), C(2, 0)), v = same_motion(C(0, 0), C(0, 2));
        const bool h2 = same_motion(C(0, 2), C(2, 2)), v2 = same_motion(C(2, 0), C(2, 2));
        if (h && v && h2) return kMotion16x16;
        if (h && h2) return kMotion16x8;
        if (v && v2) return kMotion8x16;
        return kMotion8x8;
    }

    // A whole sample or more apart in either component: |d| >= 4 as one
    // unsigned compare each.
    static bool far(Mv u, Mv v) {
        return static_cast<unsigned>(u.x - v.x + 3) > 6u || static_cast<unsigned>(u.y - v.y + 3) > 6u;
    }

    // 1 when the blocks at cache indices a and b (both inter) differ in
    // reference pictures, number of vectors, or by a whole sample or more.
    int motion_differs(int a, int b) const {
        const int ra0 = ref_cache[0][a], rb0 = ref_cache[0][b];
        const Mv mp0 = mv_cache[0][a], mq0 = mv_cache[0][b];
        const int32_t p0 = ids[0][ra0 + 1], q0 = ids[0][rb0 + 1];
        // One list: equal indices name the same picture, and different
        // indices may too (a picture can be listed twice).
        if (sh.type != kSliceB) return (p0 != q0 || far(mp0, mq0)) ? 1 : 0;
        const int ra1 = ref_cache[1][a], rb1 = ref_cache[1][b];
        const Mv mp1 = mv_cache[1][a], mq1 = mv_cache[1][b];
        if (ra0 == rb0 && ra1 == rb1 && mp0 == mq0 && mp1 == mq1) return 0;
        const int32_t p1 = ids[1][ra1 + 1], q1 = ids[1][rb1 + 1];
        const int np = (p0 >= 0) + (p1 >= 0), nq = (q0 >= 0) + (q1 >= 0);
        if (np != nq) return 1;
        if (np == 1) {
            const int32_t rp = p0 >= 0 ? p0 : p1, rq = q0 >= 0 ? q0 : q1;
            return (rp != rq || far(p0 >= 0 ? mp0 : mp1, q0 >= 0 ? mq0 : mq1)) ? 1 : 0;
        }
        if (np == 0) return 0;
        if (!((p0 == q0 && p1 == q1) || (p0 == q1 && p1 == q0))) return 1;
        if (p0 != p1) {
            if (p0 == q0) return (far(mp0, mq0) || far(mp1, mq1)) ? 1 : 0;
            return (far(mp0, mq1) || far(mp1, mq0)) ? 1 : 0;
        }
        return ((far(mp0, mq0) || far(mp1, mq1)) && (far(mp0, mq1) || far(mp1, mq0))) ? 1 : 0;
    }

    // Motion bits of the four segments of edge e (0..3) in direction dir,
    // comparing only segments 0 and 2 when step is 2 (both sides uniform per
    // 8x8 quarter along the edge).
    uint32_t edge_motion(int dir, int e, int step) const {
        uint32_t bits = 0;
        for (int k = 0; k < 4; k += step) {
            const int a = dir == 0 ? C(e - 1, k) : C(k, e - 1), b = dir == 0 ? C(e, k) : C(k, e);
            bits |= static_cast<uint32_t>(motion_differs(a, b)) << k;
        }
        if (step == 2) bits |= bits << 1;
        return bits << (4 * e);
    }

    // The deblocking filter's motion comparisons, made while the motion of
    // this macroblock and its neighbours is at hand. Inner edges are compared
    // only where the macroblock's motion can change across them.
    void store_edge_motion(MbInfo& m, MotionShape shape) {
        uint32_t bits[2] = {0, 0};
        uint8_t known = 0;
        const bool fine = shape == kMotion4x4;
        for (int dir = 0; dir < 2; ++dir) {
            const bool avail = dir == 0 ? avail_a : avail_b;
            if (avail) {
                const MbInfo& n = dir == 0 ? left() : above();
                if (!is_intra(n.kind)) {
                    bits[dir] = edge_motion(dir, 0, fine || n.shape == kMotion4x4 ? 1 : 2);
                    known |= static_cast<uint8_t>(1 << dir);
                }
            }
            const bool split2 = dir == 0 ? (shape != kMotion16x16 && shape != kMotion16x8)
                                         : (shape != kMotion16x16 && shape != kMotion8x16);
            if (split2) bits[dir] |= edge_motion(dir, 2, fine ? 1 : 2);
            if (fine) bits[dir] |= edge_motion(dir, 1, 1) | edge_motion(dir, 3, 1);
        }
        m.motion_bits[0] = static_cast<uint16_t>(bits[0]);
        m.motion_bits[1] = static_cast<uint16_t>(bits[1]);
        m.edge0_known = known;
    }

    void store_motion(int lists, MotionShape shape) {
        MbInfo& info = cur->mb[static_cast<size_t>(mb_addr)];
        info.shape = shape;
        store_edge_motion(info, shape);
        const size_t a = static_cast<size_t>(mb_addr);
        for (int l = 0; l < 2; ++l) {
            Mv* mv = cur->mv[l].data() + 16 * a;
            int8_t* ref = cur->ref[l].data() + 4 * a;
            int32_t* id = cur->ref_id[l].data() + 4 * a;
            if (l >= lists) {
                std::memset(static_cast<void*>(mv), 0, 16 * sizeof(Mv));
                std::memset(ref, -1, 4);
                for (int i = 0; i < 4; ++i) id[i] = -1;
                continue;
            }
            for (int y = 0; y < 4; ++y)
                for (int x = 0; x < 4; ++x) mv[4 * y + x] = mv_cache[l][C(x, y)];
            for (int i = 0; i < 4; ++i) {
                const int r = ref_cache[l][C(2 * (i & 1), 2 * (i >> 1))];
                ref[i] = static_cast<int8_t>(r < 0 ? -1 : r);
                id[i] = stored_ids[l][r < 0 ? 0 : r + 1];
            }
        }
    }

    void store_intra_motion() {
        const size_t a = static_cast<size_t>(mb_addr);
        for (int l = 0; l < 2; ++l) {
            std::memset(static_cast<void*>(cur->mv[l].data() + 16 * a), 0, 16 * sizeof(Mv));
            std::memset(cur->ref[l].data() + 4 * a, -1, 4);
            int32_t* id = cur->ref_id[l].data() + 4 * a;
            for (int i = 0; i < 4; ++i) id[i] = -1;
        }
    }

    void finish_mb(uint8_t kind, int deblock_qp) {
        MbInfo& m = cur->mb[static_cast<size_t>(mb_addr)];
        m.kind = kind;
        m.qp = static_cast<uint8_t>(deblock_qp);
        m.slice = static_cast<int16_t>(slice_num);
        d.decoded_mbs_++;
        if (++d.row_count_[static_cast<size_t>(mb_y)] == mbw) d.deblock_ready();
    }

    void store_nz(MbInfo& m) {
        uint32_t by_col = 0, by_row = 0;
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) {
                m.nz[4 * y + x] = nz_cache[C(x, y)];
                if (nz_cache[C(x, y)]) {
                    by_col |= 1u << (4 * x + y);
                    by_row |= 1u << (4 * y + x);
                }
            }
        m.nz_edges[0] = static_cast<uint16_t>(by_col);
        m.nz_edges[1] = static_cast<uint16_t>(by_row);
        for (int c = 0; c < 2; ++c)
            for (int y = 0; y < 2; ++y)
                for (int x = 0; x < 2; ++x) m.nzc[c][2 * y + x] = nzc_cache[c][C(x, y)];
    }

    // ------------------------------------------------------------------
    // Residual

    bool read_residual(bool i16, int cbp) {
        nz_mask = ac_mask = cac_mask = 0;
        dc_coded = cdc_coded[0] = cdc_coded[1] = false;
        int top = 0;
        if (i16) {
            const int n = read_residual_block(br, predict_nc(nz_cache, 0, 0), 16, kZigzag, dc, &top);
            if (n < 0) return false;
            dc_coded = n > 0;
        }
        for (int b8 = 0; b8 < 4; ++b8) {
            for (int b = 0; b < 4; ++b) {
                const int r = kBlkRaster[4 * b8 + b];
                const int x = r & 3, y = r >> 2;
                int n = 0;
                if (cbp & (1 << b8)) {
                    const int nc = predict_nc(nz_cache, x, y);
                    if (i16) {
                        n = read_residual_block(br, nc, 15, kZigzag + 1, coef[r], &top);
                        if (n > 0) ac_mask |= 1u << r;
                    } else {
                        n = read_residual_block(br, nc, 16, kZigzag, coef[r], &top);
                        if (n > 0 && top > 0) ac_mask |= 1u << r;
                    }
                    if (n < 0) return false;
                    if (n > 0) nz_mask |= 1u << r;
                }
                nz_cache[C(x, y)] = static_cast<uint8_t>(n);
            }
        }
        const int cbp_c = cbp >> 4;
        if (cbp_c) {
            for (int c = 0; c < 2; ++c) {
                const int n = read_residual_block(br, -1, 4, kChromaDcScan, cdc[c], &top);
                if (n < 0) return false;
                cdc_coded[c] = n > 0;
            }
        }
        for (int c = 0; c < 2; ++c)
            for (int b = 0; b < 4; ++b) {
                const int x = b & 1, y = b >> 1;
                int n = 0;
                if (cbp_c & 2) {
                    n = read_residual_block(br, predict_nc(nzc_cache[c], x, y), 15, kZigzag + 1, cac[c][b],
                                            &top);
                    if (n < 0) return false;
                    if (n > 0) cac_mask |= 1u << (4 * c + b);
                }
                nzc_cache[c][C(x, y)] = static_cast<uint8_t>(n);
            }
        return true;
    }

    uint8_t* luma_at(int x4, int y4) const {
        return plane[0] + static_cast<ptrdiff_t>(16 * mb_y + 4 * y4) * stride[0] + 16 * mb_x + 4 * x4;
    }
    uint8_t* chroma_at(int c, int x4, int y4) const {
        return plane[1 + c] + static_cast<ptrdiff_t>(8 * mb_y + 4 * y4) * stride[1 + c] + 8 * mb_x + 4 * x4;
    }

    // Adds the residual of every coded luma 4x4 block (inter and Intra16x16
    // macroblocks without a DC block).
    void add_luma_residual() {
        uint32_t m = nz_mask;
        const int s = stride[0];
        while (m) {
            const int r = __builtin_ctz(m);
            m &= m - 1;
            uint8_t* p = luma_at(r & 3, r >> 2);
            kpliDequantTransformResidualAndAdd_H264_16s_C1I(p, coef[r], nullptr, p, s, s, qp,
                                                            (ac_mask >> r) & 1);
            std::memset(coef[r], 0, sizeof coef[r]);
        }
    }

    void add_chroma_residual() {
        for (int c = 0; c < 2; ++c) {
            if (!cdc_coded[c] && !(cac_mask & (15u << (4 * c)))) continue;
            if (cdc_coded[c]) kpliTransformDequantChromaDC_H264_16s_C1I(cdc[c], qpc[c]);
            const int s = stride[1 + c];
            for (int b = 0; b < 4; ++b) {
                uint8_t* p = chroma_at(c, b & 1, b >> 1);
                if (cac_mask & (1u << (4 * c + b))) {
                    kpliDequantTransformResidualAndAdd_H264_16s_C1I(p, cac[c][b], &cdc[c][b], p, s, s, qpc[c],
                                                                    1);
                    std::memset(cac[c][b], 0, sizeof cac[c][b]);
                } else if (cdc[c][b] != 0) {
                    kpliDequantTransformResidualAndAdd_H264_16s_C1I(p, nullptr, &cdc[c][b], p, s, s, qpc[c],
                                                                    0);
                }
            }
            std::memset(cdc[c], 0, sizeof cdc[c]);
        }
    }

    // Clears what a damaged macroblock left in the coefficient buffers.
    void clear_coefficients() {
        std::memset(coef, 0, sizeof coef);
        std::memset(dc, 0, sizeof dc);
        std::memset(cdc, 0, sizeof cdc);
        std::memset(cac, 0, sizeof cac);
    }

    bool read_qp_delta() {
        const int delta = br.se();
        if (delta < -26 || delta > 25) return false;
        set_qp((qp + delta + 52) % 52);
        return true;
    }

    // ------------------------------------------------------------------
    // Intra macroblocks

    bool decode_intra(uint32_t type) {
        MbInfo& m = cur->mb[static_cast<size_t>(mb_addr)];
        if (type == 25) return decode_pcm(m);
        int cbp, mode16 = 0;
        const bool i4 = type == 0;
        if (i4) {
            int8_t* ic = i4_cache;
            for (int i = 0; i < 4; ++i) {
                ic[C(-1, i)] = neighbour_i4(avail_a, mb_addr - 1, 4 * i + 3);
                ic[C(i, -1)] = neighbour_i4(avail_b, mb_addr - mbw, 12 + i);
            }
            for (int blk = 0; blk < 16; ++blk) {
                const int r = kBlkRaster[blk];
                const int x = r & 3, y = r >> 2;
                const int a = ic[C(x - 1, y)], b = ic[C(x, y - 1)];
                const int pred = (a < 0 || b < 0) ? 2 : std::min(a, b);
                int mode = pred;
                if (!br.u1()) {
                    const int rem = static_cast<int>(br.u(3));
                    mode = rem < pred ? rem : rem + 1;
                }
                ic[C(x, y)] = static_cast<int8_t>(mode);
                m.i4[r] = static_cast<int8_t>(mode);
            }
        } else {
            mode16 = static_cast<int>((type - 1) & 3);
        }
        const uint32_t chroma_mode = br.ue();
        if (chroma_mode > 3) return false;
        if (i4) {
            const uint32_t code = br.ue();
            if (code > 47) return false;
            cbp = kCbpIntra[code];
        } else {
            cbp = static_cast<int>(((type - 1) >> 2) % 3) << 4 | (type >= 13 ? 15 : 0);
        }
        if (cbp || !i4) {
            if (!read_qp_delta()) return false;
        }
        if (!read_residual(!i4, cbp) || br.overrun()) return false;

        // Reconstruction
        const int s = stride[0];
        if (i4) {
            for (int blk = 0; blk < 16; ++blk) {
                const int r = kBlkRaster[blk];
                const int x = r & 3, y = r >> 2;
                int flags = 0;
                if (y > 0 || intra_b) flags |= 1;
                if (x > 0 || intra_a) flags |= 2;
                if (x > 0 && y > 0 ? true : (y > 0 ? intra_a : (x > 0 ? intra_b : intra_d))) flags |= 32;
                if (y == 0 ? (x < 3 ? intra_b : intra_c) : (x < 3 && r != 5 && r != 13)) flags |= 64;
                uint8_t* p = luma_at(x, y);
                kpliPredictIntra_4x4_H264_8u_C1IR(p, s, m.i4[r], flags);
                if (nz_mask & (1u << r)) {
                    kpliDequantTransformResidualAndAdd_H264_16s_C1I(p, coef[r], nullptr, p, s, s, qp,
                                                                    (ac_mask >> r) & 1);
                    std::memset(coef[r], 0, sizeof coef[r]);
                }
            }
        } else {
            const int flags = (intra_b ? 1 : 0) | (intra_a ? 2 : 0) | (intra_d ? 32 : 0);
            uint8_t* p = luma_at(0, 0);
            if (kpliPredictIntra_16x16_H264_8u_C1IR(p, s, mode16, flags) < 0) {
                kpliPredictIntra_16x16_H264_8u_C1IR(p, s, 2, flags);  // a damaged mode: DC instead
                d.stats_->errors++;
            }
            if (dc_coded) {
                kpliTransformDequantLumaDC_H264_16s_C1I(dc, qp);
                for (int r = 0; r < 16; ++r) {
                    uint8_t* q = luma_at(r & 3, r >> 2);
                    if (nz_mask & (1u << r)) {
                        kpliDequantTransformResidualAndAdd_H264_16s_C1I(q, coef[r], &dc[r], q, s, s, qp, 1);
                        std::memset(coef[r], 0, sizeof coef[r]);
                    } else if (dc[r] != 0) {
                        kpliDequantTransformResidualAndAdd_H264_16s_C1I(q, nullptr, &dc[r], q, s, s, qp, 0);
                    }
                }
                std::memset(dc, 0, sizeof dc);
            } else {
                add_luma_residual();
            }
        }
        const int cflags = (intra_b ? 1 : 0) | (intra_a ? 2 : 0) | (intra_d ? 32 : 0);
        for (int c = 0; c < 2; ++c) {
            uint8_t* p = chroma_at(c, 0, 0);
            if (kpliPredictIntraChroma8x8_H264_8u_C1IR(p, stride[1 + c], static_cast<int>(chroma_mode),
                                                       cflags) < 0) {
                kpliPredictIntraChroma8x8_H264_8u_C1IR(p, stride[1 + c], 0, cflags);
                if (c == 0) d.stats_->errors++;
            }
        }
        add_chroma_residual();
        store_nz(m);
        store_intra_motion();
        finish_mb(i4 ? kMbI4x4 : kMbI16x16, qp);
        return true;
    }

    int8_t neighbour_i4(bool avail, int addr, int blk) const {
        if (!avail) return -1;
        const MbInfo& n = cur->mb[static_cast<size_t>(addr)];
        if (n.kind == kMbI4x4) return n.i4[blk];
        if (!is_intra(n.kind) && pps.constrained_intra_pred) return -1;
        return 2;
    }

    bool decode_pcm(MbInfo& m) {
        br.align();
        if (br.left() < 384 * 8) return false;
        const uint8_t* src = br.byte_ptr();
        for (int y = 0; y < 16; ++y)
            std::memcpy(luma_at(0, 0) + static_cast<ptrdiff_t>(y) * stride[0], src + 16 * y, 16);
        src += 256;
        for (int c = 0; c < 2; ++c)
            for (int y = 0; y < 8; ++y) {
                std::memcpy(chroma_at(c, 0, 0) + static_cast<ptrdiff_t>(y) * stride[1 + c], src, 8);
                src += 8;
            }
        br.skip(384 * 8);
        std::memset(m.nz, 16, sizeof m.nz);
        std::memset(m.nzc, 16, sizeof m.nzc);
        m.nz_edges[0] = m.nz_edges[1] = 0xFFFF;
        store_intra_motion();
        finish_mb(kMbPcm, 0);
        return true;
    }

    // ------------------------------------------------------------------
    // Motion compensation

    Pic* ref_pic(int l, int r) const {
        Pic* p = r >= 0 && r < nref[l] ? list[l][r] : nullptr;
        return p ? p : d.missing_ref();
    }

    // Predicts a w x h block (4x4 units) at (x4, y4) of the macroblock from
    // one list into dst (per plane, with the given steps).
    void predict_one(int l, int r, Mv mv, int x4, int y4, int w4, int h4, uint8_t* const dst[3],
                     const int dst_step[3]) const {
        const Pic* p = ref_pic(l, r);
        const int pw = 16 * mbw, ph = 16 * mbh, pad = p->frame.pad(0);
        const int bw = 4 * w4, bh = 4 * h4;
        int x = 16 * mb_x + 4 * x4 + (mv.x >> 2), y = 16 * mb_y + 4 * y4 + (mv.y >> 2);
        // Keep the filter window inside the replicated border: further out, every
        // sample read is the same edge sample anyway.
        x = clip3(2 - pad, pw + pad - bw - 3, x);
        y = clip3(2 - pad, ph + pad - bh - 3, y);
        const int s0 = p->frame.stride(0);
        kpliInterpolateLuma_H264_8u_C1R(p->frame.data(0) + static_cast<ptrdiff_t>(y) * s0 + x, s0, dst[0],
                                        dst_step[0], mv.x & 3, mv.y & 3, KpliSize{bw, bh});
        const int cpad = p->frame.pad(1), cw = bw >> 1, ch = bh >> 1;
        int cx = 8 * mb_x + 2 * x4 + (mv.x >> 3), cy = 8 * mb_y + 2 * y4 + (mv.y >> 3);
        cx = clip3(-cpad, pw / 2 - 1 + cpad - cw, cx);
        cy = clip3(-cpad, ph / 2 - 1 + cpad - ch, cy);
        for (int c = 1; c < 3; ++c) {
            const int sc = p->frame.stride(c);
            kpliInterpolateChroma_H264_8u_C1R(p->frame.data(c) + static_cast<ptrdiff_t>(cy) * sc + cx, sc,
                                              dst[c], dst_step[c], mv.x & 7, mv.y & 7, KpliSize{cw, ch});
        }
    }

    // Motion-compensated prediction of one partition into the picture, with
    // the weighting the slice asks for.
    void predict_part(int x4, int y4, int w4, int h4) {
        const int i = C(x4, y4);
        const int r0 = ref_cache[0][i], r1 = sh.type == kSliceB ? ref_cache[1][i] : -1;
        uint8_t* dst[3] = {
            luma_at(x4, y4),
            plane[1] + static_cast<ptrdiff_t>(8 * mb_y + 2 * y4) * stride[1] + 8 * mb_x + 2 * x4,
            plane[2] + static_cast<ptrdiff_t>(8 * mb_y + 2 * y4) * stride[2] + 8 * mb_x + 2 * x4};
        const KpliSize ls{4 * w4, 4 * h4}, cs{2 * w4, 2 * h4};
        if (r0 >= 0 && r1 >= 0) {
            predict_one(0, r0, mv_cache[0][i], x4, y4, w4, h4, dst, stride);
            uint8_t* tmp[3] = {tmp_y, tmp_c[0], tmp_c[1]};
            const int tstep[3] = {16, 8, 8};
            predict_one(1, r1, mv_cache[1][i], x4, y4, w4, h4, tmp, tstep);
            if (weight_mode == 1) {
                const WeightEntry a = sh.luma_weight[0][r0], b = sh.luma_weight[1][r1];
                kpliWeightedAverage_H264_8u_C1IR(dst[0], stride[0], tmp_y, 16, sh.luma_log2_denom, a.w, b.w,
                                                 a.o, b.o, ls);
                for (int c = 0; c < 2; ++c) {
                    const WeightEntry ca = sh.chroma_weight[0][r0][c], cb = sh.chroma_weight[1][r1][c];
                    kpliWeightedAverage_H264_8u_C1IR(dst[1 + c], stride[1 + c], tmp_c[c], 8,
                                                     sh.chroma_log2_denom, ca.w, cb.w, ca.o, cb.o, cs);
                }
            } else if (weight_mode == 2 && implicit_w1(r0, r1) != 32) {
                // (equal weights of 32 give (p0 + p1 + 1) >> 1: the default average below)
                const int w1 = implicit_w1(r0, r1), w0 = 64 - w1;
                kpliWeightedAverage_H264_8u_C1IR(dst[0], stride[0], tmp_y, 16, 5, w0, w1, 0, 0, ls);
                for (int c = 0; c < 2; ++c)
                    kpliWeightedAverage_H264_8u_C1IR(dst[1 + c], stride[1 + c], tmp_c[c], 8, 5, w0, w1, 0, 0,
                                                     cs);
            } else {
                kpliWeightedAverage_H264_8u_C1IR(dst[0], stride[0], tmp_y, 16, 0, 1, 1, 0, 0, ls);
                for (int c = 0; c < 2; ++c)
                    kpliWeightedAverage_H264_8u_C1IR(dst[1 + c], stride[1 + c], tmp_c[c], 8, 0, 1, 1, 0, 0,
                                                     cs);
            }
            return;
        }
        const int l = r0 >= 0 ? 0 : 1;
        const int r = r0 >= 0 ? r0 : r1;
        predict_one(l, r, mv_cache[l][i], x4, y4, w4, h4, dst, stride);
        if (weight_mode == 1 && r >= 0) {
            const WeightEntry a = sh.luma_weight[l][r];
            if (a.w != (1 << sh.luma_log2_denom) || a.o != 0)
                kpliWeightedAverage_H264_8u_C1IR(dst[0], stride[0], dst[0], stride[0], sh.luma_log2_denom,
                                                 a.w, a.w, a.o, a.o, ls);
            for (int c = 0; c < 2; ++c) {
                const WeightEntry ca = sh.chroma_weight[l][r][c];
                if (ca.w != (1 << sh.chroma_log2_denom) || ca.o != 0)
                    kpliWeightedAverage_H264_8u_C1IR(dst[1 + c], stride[1 + c], dst[1 + c], stride[1 + c],
                                                     sh.chroma_log2_denom, ca.w, ca.w, ca.o, ca.o, cs);
            }
        }
    }

    bool same_motion(int a, int b) const {
        if (ref_cache[0][a] != ref_cache[0][b] || !(mv_cache[0][a] == mv_cache[0][b])) return false;
        if (sh.type != kSliceB) return true;
        return ref_cache[1][a] == ref_cache[1][b] && mv_cache[1][a] == mv_cache[1][b];
    }

    // Prediction of an 8x8 quarter whose 4x4 blocks may move apart (direct).
    void predict_quarter(int q) {
        const int x = 2 * (q & 1), y = 2 * (q >> 1);
        const int b = C(x, y);
        if (same_motion(b, C(x + 1, y)) && same_motion(b, C(x, y + 1)) && same_motion(b, C(x + 1, y + 1))) {
            predict_part(x, y, 2, 2);
            return;
        }
        for (int j = 0; j < 4; ++j) predict_part(x + (j & 1), y + (j >> 1), 1, 1);
    }

    // ------------------------------------------------------------------
    // Direct prediction (B slices)

    // The co-located 4x4 block's motion for block (x, y): mvCol, refIdxCol and
    // the picture it refers to; false when the co-located macroblock is intra.
    bool colocated(int x, int y, Mv* mv, int* ref, int32_t* id) const {
        if (!col || is_intra(col->mb[static_cast<size_t>(mb_addr)].kind)) return false;
        if (sps.direct_8x8_inference) {
            x = (x >> 1) * 3;
            y = (y >> 1) * 3;
        }
        const size_t q = 4 * static_cast<size_t>(mb_addr) + 2 * (y >> 1) + (x >> 1);
        const size_t b = 16 * static_cast<size_t>(mb_addr) + 4 * y + x;
        const int l = col->ref[0][q] >= 0 ? 0 : 1;
        *ref = col->ref[l][q];
        *mv = col->mv[l][b];
        *id = col->ref_id[l][q];
        return *ref >= 0;
    }

    void spatial_direct_refs() {
        if (direct_done) return;
        direct_done = true;
        for (int l = 0; l < 2; ++l) {
            const int8_t* rc = ref_cache[l];
            int c = C(4, -1);
            if (rc[c] == kNotAvail) c = C(-1, -1);
            direct_ref[l] =
                static_cast<int8_t>(min_positive(rc[C(-1, 0)], min_positive(rc[C(0, -1)], rc[c])));
            if (direct_ref[l] < -1) direct_ref[l] = -1;
        }
        if (direct_ref[0] < 0 && direct_ref[1] < 0) {
            direct_ref[0] = direct_ref[1] = 0;
            direct_mv[0] = direct_mv[1] = Mv{0, 0};
            direct_col_test = false;
            return;
        }
        for (int l = 0; l < 2; ++l)
            direct_mv[l] = direct_ref[l] >= 0 ? predict_mv(l, 0, 0, 4, direct_ref[l], k16x16) : Mv{0, 0};
        // A still co-located block zeroes a list's vectors only when that list
        // predicts from index 0 and the prediction is not already zero.
        const bool zero_pred =
            direct_ref[0] == 0 && direct_ref[1] == 0 && direct_mv[0] == Mv{0, 0} && direct_mv[1] == Mv{0, 0};
        direct_col_test = !zero_pred && col_zero_allowed && (direct_ref[0] == 0 || direct_ref[1] == 0) &&
                          !is_intra(col->mb[static_cast<size_t>(mb_addr)].kind);
    }

    // Direct motion for the 4x4 blocks of quarter q (written to the caches).
    void direct_quarter(int q) {
        const int x0 = 2 * (q & 1), y0 = 2 * (q >> 1);
        if (sh.direct_spatial) {
            spatial_direct_refs();
            // With direct_8x8_inference the four blocks share one co-located block.
            const int n = sps.direct_8x8_inference ? 1 : 4;
            for (int j = 0; j < n; ++j) {
                const int x = x0 + (j & 1), y = y0 + (j >> 1);
                Mv m[2] = {direct_mv[0], direct_mv[1]};
                if (direct_col_test) {
                    Mv cm;
                    int cr;
                    int32_t cid;
                    if (colocated(x, y, &cm, &cr, &cid) && cr == 0 && cm.x >= -1 && cm.x <= 1 && cm.y >= -1 &&
                        cm.y <= 1) {
                        if (direct_ref[0] == 0) m[0] = Mv{0, 0};
                        if (direct_ref[1] == 0) m[1] = Mv{0, 0};
                    }
                }
                for (int l = 0; l < 2; ++l) {
                    const Mv v = direct_ref[l] >= 0 ? m[l] : Mv{0, 0};
                    if (n == 1) {
                        fill_rows<2>(l, x0, y0, 2, direct_ref[l], v);
                    } else {
                        ref_cache[l][C(x, y)] = direct_ref[l];
                        mv_cache[l][C(x, y)] = v;
                    }
                }
            }
            return;
        }
        for (int j = 0; j < 4; ++j) {
            const int x = x0 + (j & 1), y = y0 + (j >> 1);
            Mv cm{0, 0};
            int cr = -1;
            int32_t cid = -1;
            int r0 = 0;
            if (colocated(x, y, &cm, &cr, &cid)) {
                for (int i = 0; i < nref[0]; ++i)
                    if (list[0][i] && list[0][i]->id == cid) {
                        r0 = i;
                        break;
                    }
            } else {
                cm = Mv{0, 0};
            }
            Mv m0 = cm, m1{0, 0};
            const int dsf = r0 < nref[0] ? temporal_dsf[r0] : 9999;
            if (dsf != 9999) {
                m0.x = static_cast<int16_t>((dsf * cm.x + 128) >> 8);
                m0.y = static_cast<int16_t>((dsf * cm.y + 128) >> 8);
                m1.x = static_cast<int16_t>(m0.x - cm.x);
                m1.y = static_cast<int16_t>(m0.y - cm.y);
            }
            ref_cache[0][C(x, y)] = static_cast<int8_t>(r0);
            ref_cache[1][C(x, y)] = 0;
            mv_cache[0][C(x, y)] = m0;
            mv_cache[1][C(x, y)] = m1;
        }
    }

    // ------------------------------------------------------------------
    // Inter macroblocks

    bool read_ref(int l, int* r) {
        if (nref[l] <= 1) {
            *r = 0;
            return true;
        }
        const uint32_t v = br.te(nref[l] - 1);
        if (v >= static_cast<uint32_t>(nref[l])) return false;
        *r = static_cast<int>(v);
        return true;
    }

    bool read_mvd(Mv pred, Mv* out) {
        const int dx = br.se(), dy = br.se();
        // Vectors of a valid stream fit 16 bits; a damaged one wraps (the sum
        // is taken modulo 2^32: a difference near the 32-bit limits would
        // overflow int).
        out->x = static_cast<int16_t>(static_cast<uint32_t>(pred.x) + static_cast<uint32_t>(dx));
        out->y = static_cast<int16_t>(static_cast<uint32_t>(pred.y) + static_cast<uint32_t>(dy));
        return true;
    }

    void decode_p_skip() {
        load_motion_cache(1);
        const int8_t* rc = ref_cache[0];
        const Mv* mc = mv_cache[0];
        Mv mv{0, 0};
        const int a = C(-1, 0), b = C(0, -1);
        if (!(rc[a] == kNotAvail || rc[b] == kNotAvail || (rc[a] == 0 && mc[a] == Mv{0, 0}) ||
              (rc[b] == 0 && mc[b] == Mv{0, 0})))
            mv = predict_mv(0, 0, 0, 4, 0, k16x16);
        fill_ref(0, 0, 0, 4, 4, 0, mv);
        predict_part(0, 0, 4, 4);
        MbInfo& m = cur->mb[static_cast<size_t>(mb_addr)];
        std::memset(m.nz, 0, sizeof m.nz);
        std::memset(m.nzc, 0, sizeof m.nzc);
        m.nz_edges[0] = m.nz_edges[1] = 0;
        store_motion(1, kMotion16x16);
        finish_mb(kMbPSkip, qp);
    }

    // Direct motion for the whole macroblock (B_Skip, B_Direct_16x16), and
    // its shape. Spatial direct motion that no co-located block can zero is
    // one motion for all 16 blocks.
    MotionShape direct_mb() {
        if (sh.direct_spatial) {
            spatial_direct_refs();
            if (!direct_col_test) {
                for (int l = 0; l < 2; ++l) fill_rows<4>(l, 0, 0, 4, direct_ref[l], direct_mv[l]);
                return kMotion16x16;
            }
        }
        for (int q = 0; q < 4; ++q) direct_quarter(q);
        return motion_shape(direct_bound());
    }

    void decode_b_skip() {
        load_motion_cache(2);
        direct_done = false;
        const MotionShape shape = direct_mb();
        predict_direct_mb(shape);
        MbInfo& m = cur->mb[static_cast<size_t>(mb_addr)];
        std::memset(m.nz, 0, sizeof m.nz);
        std::memset(m.nzc, 0, sizeof m.nzc);
        m.nz_edges[0] = m.nz_edges[1] = 0;
        store_motion(2, shape);
        finish_mb(kMbBSkip, qp);
    }

    // Direct motion is uniform per 8x8 quarter when the co-located motion is
    // inferred per quarter.
    MotionShape direct_bound() const { return sps.direct_8x8_inference ? kMotion8x8 : kMotion4x4; }

    void predict_direct_mb(MotionShape shape) {
        if (shape == kMotion16x16) {
            predict_part(0, 0, 4, 4);
            return;
        }
        for (int q = 0; q < 4; ++q) predict_quarter(q);
    }

    bool decode_inter(uint32_t type) {
        const bool b_slice = sh.type == kSliceB;
        const int lists = b_slice ? 2 : 1;
        load_motion_cache(lists);
        direct_done = false;
        const MbTypeInfo& t = b_slice ? kBTypes[type] : kPTypes[type];
        bool direct16 = b_slice && type == 0;
        uint8_t sub[4] = {0, 0, 0, 0};
        MotionShape direct_shape = kMotion4x4;
        if (direct16) {
            direct_shape = direct_mb();
        } else if (t.shape == k8x8) {
            const uint32_t max_sub = b_slice ? 12 : 3;
            for (int q = 0; q < 4; ++q) {
                const uint32_t s = br.ue();
                if (s > max_sub) return false;
                sub[q] = static_cast<uint8_t>(s);
            }
            int refs[2][4] = {{0, 0, 0, 0}, {0, 0, 0, 0}};
            const bool ref0 = !b_slice && type == 4;  // P_8x8ref0
            for (int l = 0; l < lists; ++l)
                for (int q = 0; q < 4; ++q) {
                    const SubTypeInfo& st = b_slice ? kBSub[sub[q]] : kPSub[sub[q]];
                    if ((st.pred >> l) & 1) {
                        if (!ref0 && !read_ref(l, &refs[l][q])) return false;
                    } else {
                        refs[l][q] = -1;
                    }
                }
            for (int l = 0; l < lists; ++l) {
                for (int q = 0; q < 4; ++q) {
                    const SubTypeInfo& st = b_slice ? kBSub[sub[q]] : kPSub[sub[q]];
                    const int x0 = 2 * (q & 1), y0 = 2 * (q >> 1);
                    if (b_slice && sub[q] == 0) {
                        if (l == 0) {
                            // Both lists at once; list 1's entries are kept aside
                            // so that list 1 predictions see them only in turn.
                            direct_quarter(q);
                            for (int j = 0; j < 4; ++j) {
                                const int c = C(x0 + (j & 1), y0 + (j >> 1));
                                direct_l1_ref[q][j] = ref_cache[1][c];
                                direct_l1_mv[q][j] = mv_cache[1][c];
                                ref_cache[1][c] = kNotAvail;
                                mv_cache[1][c] = Mv{0, 0};
                            }
                        } else {
                            for (int j = 0; j < 4; ++j) {
                                const int c = C(x0 + (j & 1), y0 + (j >> 1));
                                ref_cache[1][c] = direct_l1_ref[q][j];
                                mv_cache[1][c] = direct_l1_mv[q][j];
                            }
                        }
                        continue;
                    }
                    if (refs[l][q] < 0) {
                        fill_ref(l, x0, y0, 2, 2, -1, Mv{0, 0});
                        continue;
                    }
                    for (int k = 0; k < st.parts; ++k) {
                        const int x = x0 + (st.w == 1 ? (k & 1) : 0);
                        const int y = y0 + (st.parts == 4 ? (k >> 1) : (st.h == 1 ? k : 0));
                        Mv mv;
                        read_mvd(predict_mv(l, x, y, st.w, refs[l][q], k8x8), &mv);
                        fill_ref(l, x, y, st.w, st.h, refs[l][q], mv);
                    }
                }
            }
        } else {
            const int parts = t.shape == k16x16 ? 1 : 2;
            int refs[2][2] = {{-1, -1}, {-1, -1}};
            for (int l = 0; l < lists; ++l)
                for (int p = 0; p < parts; ++p)
                    if ((t.pred[p] >> l) & 1) {
                        if (!read_ref(l, &refs[l][p])) return false;
                    }
            for (int l = 0; l < lists; ++l)
                for (int p = 0; p < parts; ++p) {
                    const int x = t.shape == k8x16 ? 2 * p : 0, y = t.shape == k16x8 ? 2 * p : 0;
                    const int w = t.shape == k8x16 ? 2 : 4, h = t.shape == k16x8 ? 2 : 4;
                    if (refs[l][p] < 0) {
                        fill_ref(l, x, y, w, h, -1, Mv{0, 0});
                        continue;
                    }
                    Mv mv;
                    read_mvd(predict_mv(l, x, y, w, refs[l][p], t.shape), &mv);
                    fill_ref(l, x, y, w, h, refs[l][p], mv);
                }
        }
        prefetch_motion();
        int cbp = 0;
        {
            const uint32_t code = br.ue();
            if (code > 47) return false;
            cbp = kCbpInter[code];
        }
        if (cbp && !read_qp_delta()) return false;
        if (!read_residual(false, cbp) || br.overrun()) return false;

        // Prediction
        MotionShape shape = kMotion4x4;
        if (direct16) {
            shape = direct_shape;
        } else if (t.shape == k8x8) {
            MotionShape bound = kMotion8x8;
            for (int q = 0; q < 4; ++q) {
                const bool whole = b_slice
                                       ? (sub[q] == 0 ? sps.direct_8x8_inference : kBSub[sub[q]].parts == 1)
                                       : kPSub[sub[q]].parts == 1;
                if (!whole) bound = kMotion4x4;
            }
            shape = motion_shape(bound);
        } else {
            shape = motion_shape(t.shape == k16x16  ? kMotion16x16
                                 : t.shape == k16x8 ? kMotion16x8
                                                    : kMotion8x16);
        }
        if (direct16) {
            predict_direct_mb(shape);
        } else if (t.shape == k8x8) {
            for (int q = 0; q < 4; ++q) {
                const int x0 = 2 * (q & 1), y0 = 2 * (q >> 1);
                if (b_slice && sub[q] == 0) {
                    predict_quarter(q);
                    continue;
                }
                const SubTypeInfo& st = b_slice ? kBSub[sub[q]] : kPSub[sub[q]];
                for (int k = 0; k < st.parts; ++k) {
                    const int x = x0 + (st.w == 1 ? (k & 1) : 0);
                    const int y = y0 + (st.parts == 4 ? (k >> 1) : (st.h == 1 ? k : 0));
                    predict_part(x, y, st.w, st.h);
                }
            }
        } else if (t.shape == k16x16) {
            predict_part(0, 0, 4, 4);
        } else if (t.shape == k16x8) {
            predict_part(0, 0, 4, 2);
            predict_part(0, 2, 4, 2);
        } else {
            predict_part(0, 0, 2, 4);
            predict_part(2, 0, 2, 4);
        }
        add_luma_residual();
        add_chroma_residual();
        MbInfo& m = cur->mb[static_cast<size_t>(mb_addr)];
        store_nz(m);
        store_motion(lists, shape);
        finish_mb(direct16 ? kMbBSkip : kMbInter, qp);
        return true;
    }
    int32_t ids[2][33];         // picture id by refIdx + 1 (index 0: no reference)
    int32_t stored_ids[2][33];  // the same with -1 for every missing picture, as stored per picture
    int8_t direct_l1_ref[4][4];
    Mv direct_l1_mv[4][4];

    // ------------------------------------------------------------------

    bool decode_mb() {
        find_neighbours();
        load_nz_cache();
        uint32_t type = br.ue();
        if (sh.type == kSliceP) {
            if (type < 5) return decode_inter(type);
            type -= 5;
        } else if (sh.type == kSliceB) {
            if (type < 23) return decode_inter(type);
            type -= 23;
        }
        if (type > 25) return false;
        return decode_intra(type);
    }

    void set_position(int addr) {
        if (addr == mb_addr + 1 && mb_x + 1 < mbw) {
            ++mb_x;
        } else {
            mb_x = addr % mbw;
            mb_y = addr / mbw;
        }
        mb_addr = addr;
        prefetch_next();
    }

    // Asks the cache for the reference samples of the decoded motion, so that
    // they arrive while the residual is parsed.
    void prefetch_region(int l, int i, int x4, int y4, int w) const {
        const int r = ref_cache[l][i];
        if (r < 0 || r >= nref[l] || !list[l][r]) return;
        const Pic* p = list[l][r];
        const Mv mv = mv_cache[l][i];
        const int pad = p->frame.pad(0);
        const int x = clip3(-pad, 16 * mbw + pad - w - 8, 16 * mb_x + 4 * x4 + (mv.x >> 2) - 2);
        const int y = clip3(-pad, 16 * mbh + pad - w - 6, 16 * mb_y + 4 * y4 + (mv.y >> 2) - 2);
        const int s0 = p->frame.stride(0);
        const uint8_t* src = p->frame.data(0) + static_cast<ptrdiff_t>(y) * s0 + x;
        for (int j = 0; j < w + 5; ++j) {
            __builtin_prefetch(src + static_cast<ptrdiff_t>(j) * s0);
            __builtin_prefetch(src + static_cast<ptrdiff_t>(j) * s0 + w + 4);
        }
        const int cpad = p->frame.pad(1), cw = w / 2;
        const int cx = clip3(-cpad, 8 * mbw + cpad - cw - 1, 8 * mb_x + 2 * x4 + (mv.x >> 3));
        const int cy = clip3(-cpad, 8 * mbh + cpad - cw - 1, 8 * mb_y + 2 * y4 + (mv.y >> 3));
        for (int c = 1; c < 3; ++c) {
            const int sc = p->frame.stride(c);
            const uint8_t* cs = p->frame.data(c) + static_cast<ptrdiff_t>(cy) * sc + cx;
            for (int j = 0; j <= cw; ++j) __builtin_prefetch(cs + static_cast<ptrdiff_t>(j) * sc);
        }
    }

    void prefetch_motion() const {
        const int lists = sh.type == kSliceB ? 2 : 1;
        const bool whole =
            same_motion(C(0, 0), C(2, 0)) && same_motion(C(0, 0), C(0, 2)) && same_motion(C(0, 0), C(2, 2));
        for (int l = 0; l < lists; ++l) {
            if (whole) {
                prefetch_region(l, C(0, 0), 0, 0, 16);
                continue;
            }
            for (int q = 0; q < 4; ++q)
                prefetch_region(l, C(2 * (q & 1), 2 * (q >> 1)), 2 * (q & 1), 2 * (q >> 1), 8);
        }
    }

    // Asks the cache for what the next macroblock will touch while this one
    // is decoded: its place in the picture, and the reference samples it
    // would read if it moved like the macroblock before it.
    void prefetch_next() const {
        if (mb_x + 1 >= mbw) return;
        const uint8_t* dy = luma_at(4, 0);
        for (int y = 0; y < 16; ++y) __builtin_prefetch(dy + static_cast<ptrdiff_t>(y) * stride[0], 1);
        for (int c = 0; c < 2; ++c) {
            const uint8_t* dc_ = chroma_at(c, 2, 0);
            for (int y = 0; y < 8; ++y)
                __builtin_prefetch(dc_ + static_cast<ptrdiff_t>(y) * stride[1 + c], 1);
        }
        if (sh.type == kSliceI || nref[0] == 0) return;
        if (col) {  // the co-located motion that direct prediction reads
            const size_t n = static_cast<size_t>(mb_addr) + 1;
            __builtin_prefetch(&col->mb[n]);
            for (int l = 0; l < 2; ++l) {
                __builtin_prefetch(&col->mv[l][16 * n]);
                __builtin_prefetch(&col->ref[l][4 * n]);
            }
        }
        Mv mv{0, 0};
        int r = 0;
        if (mb_x > 0 && cur->mb[static_cast<size_t>(mb_addr - 1)].slice >= 0) {
            r = cur->ref[0][4 * static_cast<size_t>(mb_addr - 1) + 1];
            mv = cur->mv[0][16 * static_cast<size_t>(mb_addr - 1) + 3];
            if (r < 0 || r >= nref[0]) {
                r = 0;
                mv = Mv{0, 0};
            }
        }
        const Pic* p = list[0][r];
        if (!p) return;
        const int pad = p->frame.pad(0);
        const int x = clip3(-pad, 16 * mbw + pad - 24, 16 * (mb_x + 1) + (mv.x >> 2) - 2);
        const int y = clip3(-pad, 16 * mbh + pad - 22, 16 * mb_y + (mv.y >> 2) - 2);
        const int s0 = p->frame.stride(0);
        const uint8_t* src = p->frame.data(0) + static_cast<ptrdiff_t>(y) * s0 + x;
        for (int j = 0; j < 21; ++j) {
            __builtin_prefetch(src + static_cast<ptrdiff_t>(j) * s0);
            __builtin_prefetch(src + static_cast<ptrdiff_t>(j) * s0 + 20);
        }
        const int cpad = p->frame.pad(1);
        const int cx = clip3(-cpad, 8 * mbw + cpad - 9, 8 * (mb_x + 1) + (mv.x >> 3));
        const int cy = clip3(-cpad, 8 * mbh + cpad - 9, 8 * mb_y + (mv.y >> 3));
        for (int c = 1; c < 3; ++c) {
            const int sc = p->frame.stride(c);
            const uint8_t* cs = p->frame.data(c) + static_cast<ptrdiff_t>(cy) * sc + cx;
            for (int j = 0; j < 9; ++j) __builtin_prefetch(cs + static_cast<ptrdiff_t>(j) * sc);
        }
    }

    // Decodes macroblocks from first_mb until the slice data ends; false when
    // the slice turned out damaged (what was decoded stays).
    bool run() {
        const int total = mbw * mbh;
        int addr = sh.first_mb;
        for (;;) {
            if (sh.type != kSliceI) {
                const uint32_t run = br.ue();
                if (br.error() || run > static_cast<uint32_t>(total - addr)) return false;
                for (uint32_t i = 0; i < run; ++i) {
                    set_position(addr++);
                    if (cur->mb[static_cast<size_t>(mb_addr)].slice >= 0) return false;
                    find_neighbours();
                    if (sh.type == kSliceP)
                        decode_p_skip();
                    else
                        decode_b_skip();
                }
                if (run > 0 && !br.more_data()) return true;
            }
            if (addr >= total) return false;
            set_position(addr++);
            if (cur->mb[static_cast<size_t>(mb_addr)].slice >= 0) return false;
            if (!decode_mb() || br.error()) {
                clear_coefficients();
                return false;
            }
            if (!br.more_data()) return true;
        }
    }
};

void Decoder264::decode_slice(BitReader& br, const SliceHeader& sh) {
    SliceFilter f;
    f.disable = static_cast<int8_t>(sh.disable_deblocking);
    f.alpha = static_cast<int8_t>(sh.alpha_offset);
    f.beta = static_cast<int8_t>(sh.beta_offset);
    slice_filters_.push_back(f);
    SliceDecoder sd(*this, sh, *sps_, *pps_, br);
    if (!sd.run()) stats_->errors++;
}

}  // namespace kplvc::codecs::h264
