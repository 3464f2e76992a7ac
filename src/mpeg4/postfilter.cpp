// MPEG-4 display post-filters: the scalar kernels and the exported plane
// functions (deblocking of horizontal and vertical block edges, deringing).
#include "mpeg4/postfilter.h"

#include <cstring>

#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::mpeg4 {

namespace {

constexpr int kThr1 = 2;  // a neighbour difference this small counts as flat
constexpr int kThr2 = 6;  // this many flat differences make a smooth region

inline int iabs(int x) { return x < 0 ? -x : x; }

// x // d: to nearest, halves away from zero (d > 0).
inline int div_round(int x, int d) { return x >= 0 ? (x + d / 2) / d : -((-x + d / 2) / d); }

// The [2 -5 5 -2] component of four samples, // 8. The weighted sum lies
// within +-7 * 255, the result within +-223.
inline int a3(int p0, int p1, int p2, int p3) { return div_round(2 * p0 - 5 * p1 + 5 * p2 - 2 * p3, 8); }

// One line of ten samples v[0], v[s], ..., v[9 s] across an edge.
void deblock_line(uint8_t* v, intptr_t s, int qp) {
    int p[10];
    for (int i = 0; i < 10; ++i) p[i] = v[i * s];
    int flat = 0;
    for (int i = 0; i < 9; ++i) flat += iabs(p[i] - p[i + 1]) <= kThr1 ? 1 : 0;
    if (flat >= kThr2) {
        // DC offset mode: a smooth region whose inner eight samples span
        // less than 2 QP is low-passed.
        int mn = p[1], mx = p[1];
        for (int i = 2; i <= 8; ++i) {
            mn = p[i] < mn ? p[i] : mn;
            mx = p[i] > mx ? p[i] : mx;
        }
        if (mx - mn >= 2 * qp) return;
        static constexpr int kTaps[9] = {1, 1, 2, 2, 4, 2, 2, 1, 1};
        const int left = iabs(p[1] - p[0]) < qp ? p[0] : p[1];
        const int right = iabs(p[8] - p[9]) < qp ? p[9] : p[8];
        int ext[16];  // the line at positions -3..12, padded at both ends
        for (int m = -3; m <= 12; ++m) ext[m + 3] = m < 1 ? left : (m > 8 ? right : p[m]);
        for (int n = 1; n <= 8; ++n) {
            int sum = 0;  // at most 16 * 255
            for (int k = -4; k <= 4; ++k) sum += kTaps[k + 4] * ext[n + k + 3];
            v[n * s] = static_cast<uint8_t>(div_round(sum, 16));
        }
        return;
    }
    // Default mode: the two samples next to the edge move towards each
    // other when the edge's own frequency component is below QP.
    const int a30 = a3(p[3], p[4], p[5], p[6]);
    if (iabs(a30) >= qp) return;
    const int a31 = a3(p[1], p[2], p[3], p[4]);
    const int a32 = a3(p[5], p[6], p[7], p[8]);
    int m = iabs(a30);
    m = iabs(a31) < m ? iabs(a31) : m;
    m = iabs(a32) < m ? iabs(a32) : m;
    const int a30p = a30 < 0 ? -m : m;
    int d = div_round(5 * (a30p - a30), 8);  // 5 * (a30p - a30) within +-1115
    const int half = (p[4] - p[5]) / 2;      // truncates toward zero
    // Clipped into the interval between 0 and half, whichever way it lies.
    if (half >= 0)
        d = d < 0 ? 0 : (d > half ? half : d);
    else
        d = d > 0 ? 0 : (d < half ? half : d);
    // |d| <= |v4 - v5| / 2: both stay between v4 and v5.
    v[4 * s] = static_cast<uint8_t>(p[4] - d);
    v[5 * s] = static_cast<uint8_t>(p[5] + d);
}

void deblock_hor_c(uint8_t* p, int32_t step, int32_t qp) {
    for (int i = 0; i < 8; ++i) deblock_line(p + i - 5 * static_cast<intptr_t>(step), step, qp);
}

void deblock_hor16_c(uint8_t* p, int32_t step, int32_t qp0, int32_t qp1) {
    deblock_hor_c(p, step, qp0);
    deblock_hor_c(p + 8, step, qp1);
}

void deblock_ver_c(uint8_t* p, int32_t step, int32_t qp) {
    for (int i = 0; i < 8; ++i) deblock_line(p + static_cast<intptr_t>(i) * step - 5, 1, qp);
}

void minmax_c(const uint8_t* p, int32_t step, int32_t* mn, int32_t* mx) {
    int lo = 255, hi = 0;
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const int v = p[static_cast<intptr_t>(y) * step + x];
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
        }
    *mn = lo;
    *mx = hi;
}

void dering_c(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t thr,
              int32_t max_diff) {
    auto at = [&](int y, int x) { return int{src[static_cast<intptr_t>(y) * src_step + x]}; };
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const int rec = at(y, x);
            int above = 0, sum = 0;  // sum at most 16 * 255
            for (int j = -1; j <= 1; ++j)
                for (int i = -1; i <= 1; ++i) {
                    const int v = at(y + j, x + i);
                    above += v >= thr ? 1 : 0;
                    sum += (2 - iabs(j)) * (2 - iabs(i)) * v;
                }
            int out = rec;
            if (above == 0 || above == 9) {
                const int flt = (8 + sum) / 16;
                out = flt - rec > max_diff ? rec + max_diff : (flt - rec < -max_diff ? rec - max_diff : flt);
            }
            dst[static_cast<intptr_t>(y) * dst_step + x] = static_cast<uint8_t>(out);
        }
}

constexpr PostKernels kScalar = {deblock_hor_c, deblock_hor16_c, deblock_ver_c, minmax_c, dering_c};

constexpr Upgrade<PostKernels> kCascade[] = {
    {cpu::Isa::c, [](PostKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_post}, {cpu::Isa::avx2, x86::avx2::upgrade_post})};

// The checks the three plane functions share, after their pointers: the
// region (whole blocks), the macroblock size, the steps, then every QP of
// the macroblocks the region covers.
KplStatus check_plane(KpliSize roi, int32_t step, int32_t step2, int32_t qp_step, const Kpl8u* qp,
                      int32_t mb) {
    if (roi.width < 8 || roi.height < 8 || roi.width % 8 != 0 || roi.height % 8 != 0) return kplStsSizeErr;
    if (mb != 8 && mb != 16) return kplStsBlockSizeErr;
    const int mbw = (roi.width + mb - 1) / mb, mbh = (roi.height + mb - 1) / mb;
    if (step < roi.width || step2 < roi.width || qp_step < mbw) return kplStsStepErr;
    for (int y = 0; y < mbh; ++y)
        for (int x = 0; x < mbw; ++x) {
            const int q = qp[static_cast<intptr_t>(y) * qp_step + x];
            if (q < 1 || q > 31) return kplStsMPEG4QPErr;
        }
    return kplStsNoErr;
}

// One 8x8 block on the region's border: the kernel runs on a copy whose
// missing neighbours repeat the nearest sample of the region, then the
// samples on the border itself (whose window leaves the region) are put
// back unfiltered.
void dering_border(const PostKernels& k, const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step,
                   KpliSize roi, int bx, int by, int thr, int max_diff) {
    uint8_t win[10 * 10];
    for (int j = 0; j < 10; ++j) {
        int y = by + j - 1;
        y = y < 0 ? 0 : (y >= roi.height ? roi.height - 1 : y);
        for (int i = 0; i < 10; ++i) {
            int x = bx + i - 1;
            x = x < 0 ? 0 : (x >= roi.width ? roi.width - 1 : x);
            win[j * 10 + i] = src[static_cast<intptr_t>(y) * src_step + x];
        }
    }
    uint8_t* d = dst + static_cast<intptr_t>(by) * dst_step + bx;
    k.dering(win + 11, 10, d, dst_step, thr, max_diff);
    for (int j = 0; j < 8; ++j)
        for (int i = 0; i < 8; ++i) {
            const int x = bx + i, y = by + j;
            if (x == 0 || y == 0 || x == roi.width - 1 || y == roi.height - 1)
                d[static_cast<intptr_t>(j) * dst_step + i] = src[static_cast<intptr_t>(y) * src_step + x];
        }
}

}  // namespace

PostKernels post_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const PostKernels& post_kernels() { return active_table<PostKernels, post_kernels_for>(); }

}  // namespace kplvc::mpeg4

using kplvc::mpeg4::post_kernels;

extern "C" {

KPLVC_API KplStatus kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep,
                                                               KpliSize roiSize, const Kpl8u* pQP,
                                                               Kpl32s qpStep, Kpl32s mbSize) {
    if (pSrcDst == nullptr || pQP == nullptr) return kplStsNullPtrErr;
    const KplStatus st = kplvc::mpeg4::check_plane(roiSize, srcDstStep, srcDstStep, qpStep, pQP, mbSize);
    if (st != kplStsNoErr) return st;
    const auto& k = post_kernels();
    // Top to bottom: an edge's v0 row is the one the edge above wrote last.
    for (int y = 8; y < roiSize.height; y += 8) {
        const Kpl8u* q = pQP + static_cast<intptr_t>(y / mbSize) * qpStep;
        Kpl8u* row = pSrcDst + static_cast<intptr_t>(y) * srcDstStep;
        int x = 0;
        for (; x + 16 <= roiSize.width; x += 16)
            k.deblock_hor16(row + x, srcDstStep, q[x / mbSize], q[(x + 8) / mbSize]);
        if (x < roiSize.width) k.deblock_hor(row + x, srcDstStep, q[x / mbSize]);
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep,
                                                               KpliSize roiSize, const Kpl8u* pQP,
                                                               Kpl32s qpStep, Kpl32s mbSize) {
    if (pSrcDst == nullptr || pQP == nullptr) return kplStsNullPtrErr;
    const KplStatus st = kplvc::mpeg4::check_plane(roiSize, srcDstStep, srcDstStep, qpStep, pQP, mbSize);
    if (st != kplStsNoErr) return st;
    const auto& k = post_kernels();
    // Left to right within each band of eight rows, for the same reason.
    for (int y = 0; y < roiSize.height; y += 8) {
        const Kpl8u* q = pQP + static_cast<intptr_t>(y / mbSize) * qpStep;
        Kpl8u* row = pSrcDst + static_cast<intptr_t>(y) * srcDstStep;
        for (int x = 8; x < roiSize.width; x += 8) k.deblock_ver(row + x, srcDstStep, q[x / mbSize]);
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliFilterDeringing_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                     Kpl32s dstStep, KpliSize roiSize, const Kpl8u* pQP,
                                                     Kpl32s qpStep, Kpl32s mbSize) {
    if (pSrc == nullptr || pDst == nullptr || pQP == nullptr) return kplStsNullPtrErr;
    const KplStatus st = kplvc::mpeg4::check_plane(roiSize, srcStep, dstStep, qpStep, pQP, mbSize);
    if (st != kplStsNoErr) return st;
    const auto& k = post_kernels();
    const int W = roiSize.width, H = roiSize.height, n = mbSize / 8;
    for (int my = 0; my * mbSize < H; ++my)
        for (int mx = 0; mx * mbSize < W; ++mx) {
            // The blocks of this macroblock that lie in the region.
            int bx[4], by[4], thr[4], range[4], count = 0;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i) {
                    const int x = mx * mbSize + 8 * i, y = my * mbSize + 8 * j;
                    if (x >= W || y >= H) continue;
                    int lo, hi;
                    k.minmax(pSrc + static_cast<intptr_t>(y) * srcStep + x, srcStep, &lo, &hi);
                    bx[count] = x;
                    by[count] = y;
                    thr[count] = (hi + lo + 1) / 2;
                    range[count] = hi - lo;
                    ++count;
                }
            if (mbSize == 16) {
                // Luminance: a flat block beside a high-contrast one takes
                // that block's threshold (the first of the largest range);
                // a macroblock without contrast smooths all its samples.
                int kmax = 0;
                for (int b = 1; b < count; ++b) kmax = range[b] > range[kmax] ? b : kmax;
                const int max_range = range[kmax], thr_max = thr[kmax];
                for (int b = 0; b < count; ++b) {
                    if (range[b] < 32 && max_range >= 64) thr[b] = thr_max;
                    if (max_range < 64) thr[b] = 0;
                }
            }
            const int max_diff = pQP[static_cast<intptr_t>(my) * qpStep + mx] / 2;
            for (int b = 0; b < count; ++b) {
                if (bx[b] > 0 && by[b] > 0 && bx[b] + 8 < W && by[b] + 8 < H)
                    k.dering(pSrc + static_cast<intptr_t>(by[b]) * srcStep + bx[b], srcStep,
                             pDst + static_cast<intptr_t>(by[b]) * dstStep + bx[b], dstStep, thr[b],
                             max_diff);
                else
                    kplvc::mpeg4::dering_border(k, pSrc, srcStep, pDst, dstStep, roiSize, bx[b], by[b],
                                                thr[b], max_diff);
            }
        }
    return kplStsNoErr;
}

}  // extern "C"
