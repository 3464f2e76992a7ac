// H.264 intra prediction: entry points (checks, neighbour gathering and
// substitution) and the scalar reference kernels.
//
// Value ranges: every neighbour is 0..255, so the largest sum is the 16x16 DC
// sum of 32 samples (8160 + 16) and the plane terms stay below 2^15 (see
// plane16_c); all arithmetic is plain int32 without overflow.
#include "h264/pred.h"

#include <cstring>

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::h264 {

namespace {

// ---- 4x4 ---------------------------------------------------------------------
// Sample p(x, y) of the neighbourhood with the usual convention: y = -1 is the
// row above (x = -1 the corner), x = -1 the column to the left.
struct Edge4 {
    const uint8_t* e;
    int top(int x) const { return e[kEdge4C + 1 + x]; }   // p(x, -1), x = -1..7
    int left(int y) const { return e[kEdge4C - 1 - y]; }  // p(-1, y), y = -1..3
};

inline int f3(int a, int b, int c) { return (a + 2 * b + c + 2) >> 2; }
inline int f2(int a, int b) { return (a + b + 1) >> 1; }

using Edge4Fn = void (*)(uint8_t* dst, int32_t step, const uint8_t* edge, int32_t avail);

template <class F>
inline void fill4(uint8_t* dst, int32_t step, F f) {
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) row_at(dst, step, y)[x] = static_cast<uint8_t>(f(x, y));
}

void p4_vertical_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int x, int) { return n.top(x); });
}

void p4_horizontal_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int, int y) { return n.left(y); });
}

void p4_dc_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t avail) {
    const Edge4 n{e};
    int st = 0, sl = 0;
    for (int i = 0; i < 4; ++i) {
        st += n.top(i);
        sl += n.left(i);
    }
    const bool t = (avail & kAvailTop) != 0, l = (avail & kAvailLeft) != 0;
    const int dc = t && l ? (st + sl + 4) >> 3 : t ? (st + 2) >> 2 : l ? (sl + 2) >> 2 : 128;
    fill4(d, s, [&](int, int) { return dc; });
}

void p4_diag_down_left_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int x, int y) {
        if (x == 3 && y == 3) return f3(n.top(6), n.top(7), n.top(7));
        return f3(n.top(x + y), n.top(x + y + 1), n.top(x + y + 2));
    });
}

void p4_diag_down_right_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int x, int y) {
        if (x > y) return f3(n.top(x - y - 2), n.top(x - y - 1), n.top(x - y));
        if (x < y) return f3(n.left(y - x - 2), n.left(y - x - 1), n.left(y - x));
        return f3(n.top(0), n.top(-1), n.left(0));
    });
}

void p4_vertical_right_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int x, int y) {
        const int z = 2 * x - y, xo = x - (y >> 1);
        if (z >= 0 && (z & 1) == 0) return f2(n.top(xo - 1), n.top(xo));
        if (z > 0) return f3(n.top(xo - 2), n.top(xo - 1), n.top(xo));
        if (z == -1) return f3(n.left(0), n.left(-1), n.top(0));
        return f3(n.left(y - 1), n.left(y - 2), n.left(y - 3));
    });
}

void p4_horizontal_down_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int x, int y) {
        const int z = 2 * y - x, yo = y - (x >> 1);
        if (z >= 0 && (z & 1) == 0) return f2(n.left(yo - 1), n.left(yo));
        if (z > 0) return f3(n.left(yo - 2), n.left(yo - 1), n.left(yo));
        if (z == -1) return f3(n.left(0), n.left(-1), n.top(0));
        return f3(n.top(x - 1), n.top(x - 2), n.top(x - 3));
    });
}

void p4_vertical_left_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int x, int y) {
        const int i = x + (y >> 1);
        if ((y & 1) == 0) return f2(n.top(i), n.top(i + 1));
        return f3(n.top(i), n.top(i + 1), n.top(i + 2));
    });
}

void p4_horizontal_up_c(uint8_t* d, int32_t s, const uint8_t* e, int32_t) {
    const Edge4 n{e};
    fill4(d, s, [&](int x, int y) {
        const int z = x + 2 * y, i = y + (x >> 1);
        if (z > 5) return n.left(3);
        if (z == 5) return (n.left(2) + 3 * n.left(3) + 2) >> 2;
        if ((z & 1) == 0) return f2(n.left(i), n.left(i + 1));
        return f3(n.left(i), n.left(i + 1), n.left(i + 2));
    });
}

// ---- 16x16 and chroma 8x8 ------------------------------------------------------

template <int N>
void fill_block(uint8_t* p, int32_t step, int v) {
    for (int y = 0; y < N; ++y) std::memset(row_at(p, step, y), v, N);
}

template <int N>
void vertical_c(uint8_t* p, int32_t step, int32_t) {
    const uint8_t* above = row_at(p, step, -1);
    for (int y = 0; y < N; ++y) std::memcpy(row_at(p, step, y), above, N);
}

template <int N>
void horizontal_c(uint8_t* p, int32_t step, int32_t) {
    for (int y = 0; y < N; ++y) {
        uint8_t* r = row_at(p, step, y);
        std::memset(r, r[-1], N);
    }
}

// Sums of T[from..from+n-1] and L[from..from+n-1].
inline int sum_top(const uint8_t* p, int32_t step, int from, int n) {
    const uint8_t* a = row_at(p, step, -1);
    int s = 0;
    for (int i = from; i < from + n; ++i) s += a[i];
    return s;
}
inline int sum_left(const uint8_t* p, int32_t step, int from, int n) {
    int s = 0;
    for (int i = from; i < from + n; ++i) s += row_at(p, step, i)[-1];
    return s;
}

void dc16_c(uint8_t* p, int32_t step, int32_t avail) {
    const bool t = (avail & kAvailTop) != 0, l = (avail & kAvailLeft) != 0;
    int dc = 128;
    if (t && l)
        dc = (sum_top(p, step, 0, 16) + sum_left(p, step, 0, 16) + 16) >> 5;
    else if (t)
        dc = (sum_top(p, step, 0, 16) + 8) >> 4;
    else if (l)
        dc = (sum_left(p, step, 0, 16) + 8) >> 4;
    fill_block<16>(p, step, dc);
}

// Plane: H and V are at most 36 * 255 = 9180 in magnitude, so |b|, |c| <= 718,
// a <= 8160, and a + b(x - 7) + c(y - 7) + 16 lies in -11472..19648.
void plane16_c(uint8_t* p, int32_t step, int32_t) {
    const uint8_t* above = row_at(p, step, -1);
    auto T = [&](int x) { return int{above[x]}; };  // T(-1) is the corner
    auto L = [&](int y) { return int{row_at(p, step, y)[-1]}; };
    int h = 0, v = 0;
    for (int i = 0; i < 8; ++i) {
        h += (i + 1) * (T(8 + i) - T(6 - i));
        v += (i + 1) * (L(8 + i) - L(6 - i));
    }
    const int a = 16 * (L(15) + T(15));
    const int b = (5 * h + 32) >> 6, c = (5 * v + 32) >> 6;
    for (int y = 0; y < 16; ++y) {
        uint8_t* r = row_at(p, step, y);
        for (int x = 0; x < 16; ++x) r[x] = clip_u8((a + b * (x - 7) + c * (y - 7) + 16) >> 5);
    }
}

// Chroma DC per 4x4 quarter; each quarter prefers its own neighbours.
void dc_chroma_c(uint8_t* p, int32_t step, int32_t avail) {
    const bool t = (avail & kAvailTop) != 0, l = (avail & kAvailLeft) != 0;
    const int t0 = t ? sum_top(p, step, 0, 4) : 0, t1 = t ? sum_top(p, step, 4, 4) : 0;
    const int l0 = l ? sum_left(p, step, 0, 4) : 0, l1 = l ? sum_left(p, step, 4, 4) : 0;
    int q[4];  // top-left, top-right, bottom-left, bottom-right
    if (t && l) {
        q[0] = (t0 + l0 + 4) >> 3;
        q[1] = (t1 + 2) >> 2;
        q[2] = (l1 + 2) >> 2;
        q[3] = (t1 + l1 + 4) >> 3;
    } else if (t) {
        q[0] = (t0 + 2) >> 2;
        q[1] = (t1 + 2) >> 2;
        q[2] = (t0 + 2) >> 2;
        q[3] = (t1 + 2) >> 2;
    } else if (l) {
        q[0] = (l0 + 2) >> 2;
        q[1] = (l0 + 2) >> 2;
        q[2] = (l1 + 2) >> 2;
        q[3] = (l1 + 2) >> 2;
    } else {
        q[0] = q[1] = q[2] = q[3] = 128;
    }
    for (int y = 0; y < 8; ++y) {
        uint8_t* r = row_at(p, step, y);
        for (int x = 0; x < 8; ++x) r[x] = static_cast<uint8_t>(q[(y >> 2) * 2 + (x >> 2)]);
    }
}

// Chroma plane: |H|, |V| <= 10 * 255 = 2550, |b|, |c| <= 1355, and the
// unshifted value lies in -10824..19016.
void plane_chroma_c(uint8_t* p, int32_t step, int32_t) {
    const uint8_t* above = row_at(p, step, -1);
    auto T = [&](int x) { return int{above[x]}; };
    auto L = [&](int y) { return int{row_at(p, step, y)[-1]}; };
    int h = 0, v = 0;
    for (int i = 0; i < 4; ++i) {
        h += (i + 1) * (T(4 + i) - T(2 - i));
        v += (i + 1) * (L(4 + i) - L(2 - i));
    }
    const int a = 16 * (L(7) + T(7));
    const int b = (17 * h + 16) >> 5, c = (17 * v + 16) >> 5;
    for (int y = 0; y < 8; ++y) {
        uint8_t* r = row_at(p, step, y);
        for (int x = 0; x < 8; ++x) r[x] = clip_u8((a + b * (x - 3) + c * (y - 3) + 16) >> 5);
    }
}

// Gathers the neighbours mode m reads into the edge run (layout in pred.h),
// substituting the missing ones; nothing else around the block is read.
void gather4x4(const uint8_t* p, int32_t step, int m, int32_t avail, uint8_t* e) {
    const uint8_t* above = row_at(p, step, -1);
    const bool dc = m == 2;
    const bool top = (avail & kAvailTop) != 0, left = (avail & kAvailLeft) != 0;
    if (kUsesTop[m] || (dc && top)) {
        if (top)
            std::memcpy(e + kEdge4C + 1, above, 4);
        else
            std::memset(e + kEdge4C + 1, 128, 4);
    }
    if (kUsesTopRight[m]) {
        if (avail & kAvailTopRight)
            std::memcpy(e + kEdge4C + 5, above + 4, 4);
        else
            std::memset(e + kEdge4C + 5, e[kEdge4C + 4], 4);
    }
    if (kUsesLeft[m] || (dc && left)) {
        if (left)
            for (int y = 0; y < 4; ++y) e[kEdge4C - 1 - y] = row_at(p, step, y)[-1];
        else
            std::memset(e + 1, 128, 4);
    }
    if (kUsesCorner[m]) e[kEdge4C] = (avail & kAvailCorner) ? above[-1] : 128;
    e[0] = e[1];
    e[14] = e[13];
}

constexpr Edge4Fn kModes4x4[9] = {p4_vertical_c,        p4_horizontal_c,      p4_dc_c,
                                  p4_diag_down_left_c,  p4_diag_down_right_c, p4_vertical_right_c,
                                  p4_horizontal_down_c, p4_vertical_left_c,   p4_horizontal_up_c};

template <int M>
int32_t pred4x4_c(uint8_t* d, int32_t step, int32_t avail) {
    alignas(16) uint8_t e[kEdge4Size] = {};
    gather4x4(d, step, M, avail, e);
    kModes4x4[M](d, step, e, avail);
    return status4x4(M, avail);
}

constexpr PredKernels kScalar = {
    {pred4x4_c<0>, pred4x4_c<1>, pred4x4_c<2>, pred4x4_c<3>, pred4x4_c<4>, pred4x4_c<5>, pred4x4_c<6>,
     pred4x4_c<7>, pred4x4_c<8>},
    {vertical_c<16>, horizontal_c<16>, dc16_c, plane16_c},
    {dc_chroma_c, horizontal_c<8>, vertical_c<8>, plane_chroma_c},
};

constexpr Upgrade<PredKernels> kCascade[] = {
    {cpu::Isa::c, [](PredKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_pred}, {cpu::Isa::ssse3, x86::ssse3::upgrade_pred},
                       {cpu::Isa::avx2, x86::avx2::upgrade_pred})};

}  // namespace

PredKernels pred_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const PredKernels& pred_kernels() { return active_table<PredKernels, pred_kernels_for>(); }

}  // namespace kplvc::h264

using namespace kplvc::h264;

extern "C" {

KPLVC_API KplStatus kpliPredictIntra_4x4_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, Kpl32s predMode,
                                                      Kpl32s availability) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (srcDstStep < 4) return kplStsStepErr;
    if (static_cast<uint32_t>(predMode) > 8) return kplStsOutOfRangeErr;

    static_assert(kNoNeighbourWarning == kplStsNoNeighbourWrn && kplStsNoErr == 0);
    return pred_kernels().pred4x4[predMode](pSrcDst, srcDstStep, availability);
}

KPLVC_API KplStatus kpliPredictIntra_16x16_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, Kpl32s predMode,
                                                        Kpl32s availability) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (srcDstStep < 16) return kplStsMBStepErr;
    const bool top = (availability & kAvailTop) != 0, left = (availability & kAvailLeft) != 0,
               corner = (availability & kAvailCorner) != 0;
    if ((predMode == 0 && !top) || (predMode == 1 && !left) || (predMode == 3 && !(top && left && corner)))
        return kplStsNeighbourErr;
    if (predMode < 0 || predMode > 3) return kplStsOutOfRangeErr;
    pred_kernels().pred16x16[predMode](pSrcDst, srcDstStep, availability);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPredictIntraChroma8x8_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, Kpl32s predMode,
                                                           Kpl32s availability) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (srcDstStep < 8) return kplStsMBStepErr;
    const bool top = (availability & kAvailTop) != 0, left = (availability & kAvailLeft) != 0,
               corner = (availability & kAvailCorner) != 0;
    if ((predMode == 2 && !top) || (predMode == 1 && !left) || (predMode == 3 && !(top && left && corner)))
        return kplStsNeighbourErr;
    if (predMode < 0 || predMode > 3) return kplStsOutOfRangeErr;
    pred_kernels().pred_chroma[predMode](pSrcDst, srcDstStep, availability);
    return kplStsNoErr;
}

}  // extern "C"
