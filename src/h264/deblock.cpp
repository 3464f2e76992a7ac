// H.264 deblocking: entry points and the scalar reference kernels.
//
// A line is eight samples p3 p2 p1 p0 | q0 q1 q2 q3 across the edge, reached
// from q0 by a stride: 1 for a vertical edge (the line is a row), the row step
// for a horizontal edge (the line is a column).
//
// Ranges (samples 0..255, tc0 a byte): the step term 4 (q0 - p0) + (p1 - q1)
// + 4 lies in -1271..1279, so the step d = term >> 3 in -159..159, and the
// clip bound tc = tc0 + ap + aq is at most 257; p0 + d and q0 - d lie in
// -159..414 before clip_u8. The p1 (q1) correction (p2 + avg - 2 p1) >> 1 lies
// in -255..255, and p1 plus it clipped to +-tc0 lies between p1 and
// floor((p2 + avg) / 2), so in 0..255 without a clip. The strong filters'
// weighted sums are at most 8 * 255 + 4 = 2044, their means 0..255. All in
// int32, far from overflow; the SIMD twin (x86/deblock-inl.h) keeps the same
// quantities in bytes and 16-bit lanes.
#include "h264/deblock.h"

#include <cstdlib>

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::h264 {

namespace {

// One line through q0 at q, neighbours at multiples of `d` bytes.
struct Line {
    uint8_t* q;
    intptr_t d;
    uint8_t& operator[](int i) const { return q[i * d]; }  // i = -4..3, p0 at -1
};

inline bool active(const Line& l, int alpha, int beta) {
    const int p1 = l[-2], p0 = l[-1], q0 = l[0], q1 = l[1];
    return std::abs(p0 - q0) < alpha && std::abs(p1 - p0) < beta && std::abs(q1 - q0) < beta;
}

// The filter for strengths below 4 (and every internal luma edge).
void luma_normal(const Line& l, int alpha, int beta, int tc0) {
    if (!active(l, alpha, beta)) return;
    const int p2 = l[-3], p1 = l[-2], p0 = l[-1], q0 = l[0], q1 = l[1], q2 = l[2];
    const bool ap = std::abs(p2 - p0) < beta, aq = std::abs(q2 - q0) < beta;
    const int tc = tc0 + ap + aq;
    const int delta = clip3(-tc, tc, ((q0 - p0) * 4 + (p1 - q1) + 4) >> 3);
    l[-1] = clip_u8(p0 + delta);
    l[0] = clip_u8(q0 - delta);
    const int avg = (p0 + q0 + 1) >> 1;
    if (ap) l[-2] = static_cast<uint8_t>(p1 + clip3(-tc0, tc0, (p2 + avg - 2 * p1) >> 1));
    if (aq) l[1] = static_cast<uint8_t>(q1 + clip3(-tc0, tc0, (q2 + avg - 2 * q1) >> 1));
}

// The intra-edge filter; every result is a weighted mean of samples, 0..255.
void luma_strong(const Line& l, int alpha, int beta) {
    if (!active(l, alpha, beta)) return;
    const int p3 = l[-4], p2 = l[-3], p1 = l[-2], p0 = l[-1];
    const int q0 = l[0], q1 = l[1], q2 = l[2], q3 = l[3];
    const bool near = std::abs(p0 - q0) < (alpha >> 2) + 2;
    if (std::abs(p2 - p0) < beta && near) {
        l[-1] = static_cast<uint8_t>((p2 + 2 * p1 + 2 * p0 + 2 * q0 + q1 + 4) >> 3);
        l[-2] = static_cast<uint8_t>((p2 + p1 + p0 + q0 + 2) >> 2);
        l[-3] = static_cast<uint8_t>((2 * p3 + 3 * p2 + p1 + p0 + q0 + 4) >> 3);
    } else {
        l[-1] = static_cast<uint8_t>((2 * p1 + p0 + q1 + 2) >> 2);
    }
    if (std::abs(q2 - q0) < beta && near) {
        l[0] = static_cast<uint8_t>((p1 + 2 * p0 + 2 * q0 + 2 * q1 + q2 + 4) >> 3);
        l[1] = static_cast<uint8_t>((p0 + q0 + q1 + q2 + 2) >> 2);
        l[2] = static_cast<uint8_t>((2 * q3 + 3 * q2 + q1 + q0 + p0 + 4) >> 3);
    } else {
        l[0] = static_cast<uint8_t>((2 * q1 + q0 + p1 + 2) >> 2);
    }
}

void chroma_normal(const Line& l, int alpha, int beta, int tc0) {
    if (!active(l, alpha, beta)) return;
    const int p1 = l[-2], p0 = l[-1], q0 = l[0], q1 = l[1];
    const int tc = tc0 + 1;
    const int delta = clip3(-tc, tc, ((q0 - p0) * 4 + (p1 - q1) + 4) >> 3);
    l[-1] = clip_u8(p0 + delta);
    l[0] = clip_u8(q0 - delta);
}

void chroma_strong(const Line& l, int alpha, int beta) {
    if (!active(l, alpha, beta)) return;
    const int p1 = l[-2], p0 = l[-1], q0 = l[0], q1 = l[1];
    l[-1] = static_cast<uint8_t>((2 * p1 + p0 + q1 + 2) >> 2);
    l[0] = static_cast<uint8_t>((2 * q1 + q0 + p1 + 2) >> 2);
}

// Luma: edge e lies `e * 4 * across` bytes from p, line j of the edge is
// `j * along` bytes further. Vertical edges: across = 1, along = step;
// horizontal edges the other way round.
void luma_c(uint8_t* p, intptr_t across, intptr_t along, const uint8_t* alpha, const uint8_t* beta,
            const uint8_t* tc0, const uint8_t* bs) {
    const bool strong0 = bs[0] == 4;  // the first entry alone picks edge 0's filter
    for (int e = 0; e < 4; ++e) {
        const int a = alpha[e == 0 ? 0 : 1], b = beta[e == 0 ? 0 : 1];
        for (int k = 0; k < 4; ++k) {
            const int s = bs[4 * e + k];
            if (s == 0) continue;
            for (int j = 4 * k; j < 4 * k + 4; ++j) {
                const Line l{p + 4 * e * across + j * along, across};
                if (e == 0 && strong0)
                    luma_strong(l, a, b);
                else
                    luma_normal(l, a, b, tc0[4 * e + k]);
            }
        }
    }
}

// Chroma: edge 0 takes strengths 0..3, edge 1 those of luma edge 2 (8..11);
// each entry covers two lines.
void chroma_c(uint8_t* p, intptr_t across, intptr_t along, const uint8_t* alpha, const uint8_t* beta,
              const uint8_t* tc0, const uint8_t* bs) {
    const bool strong0 = bs[0] == 4;
    for (int e = 0; e < 2; ++e) {
        const int a = alpha[e], b = beta[e];
        for (int k = 0; k < 4; ++k) {
            const int s = bs[8 * e + k];
            if (s == 0) continue;
            for (int j = 2 * k; j < 2 * k + 2; ++j) {
                const Line l{p + 4 * e * across + j * along, across};
                if (e == 0 && strong0)
                    chroma_strong(l, a, b);
                else
                    chroma_normal(l, a, b, tc0[4 * e + k]);
            }
        }
    }
}

void luma_ver_c(uint8_t* p, int32_t step, const uint8_t* a, const uint8_t* b, const uint8_t* t,
                const uint8_t* bs) {
    luma_c(p, 1, step, a, b, t, bs);
}
void luma_hor_c(uint8_t* p, int32_t step, const uint8_t* a, const uint8_t* b, const uint8_t* t,
                const uint8_t* bs) {
    luma_c(p, step, 1, a, b, t, bs);
}
void chroma_ver_c(uint8_t* p, int32_t step, const uint8_t* a, const uint8_t* b, const uint8_t* t,
                  const uint8_t* bs) {
    chroma_c(p, 1, step, a, b, t, bs);
}
void chroma_hor_c(uint8_t* p, int32_t step, const uint8_t* a, const uint8_t* b, const uint8_t* t,
                  const uint8_t* bs) {
    chroma_c(p, step, 1, a, b, t, bs);
}

constexpr DeblockKernels kScalar = {luma_ver_c, luma_hor_c, chroma_ver_c, chroma_hor_c};

constexpr Upgrade<DeblockKernels> kCascade[] = {
    {cpu::Isa::c, [](DeblockKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_deblock},
                       {cpu::Isa::avx2, x86::avx2::upgrade_deblock},
                       {cpu::Isa::avx512, x86::avx512::upgrade_deblock})};

inline KplStatus run(DeblockFn DeblockKernels::*which, Kpl8u* p, Kpl32s step, const Kpl8u* alpha,
                     const Kpl8u* beta, const Kpl8u* tc0, const Kpl8u* bs) {
    if (p == nullptr || alpha == nullptr || beta == nullptr || tc0 == nullptr || bs == nullptr)
        return kplStsNullPtrErr;
    (deblock_kernels().*which)(p, step, alpha, beta, tc0, bs);
    return kplStsNoErr;
}

}  // namespace

DeblockKernels deblock_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const DeblockKernels& deblock_kernels() { return active_table<DeblockKernels, deblock_kernels_for>(); }

}  // namespace kplvc::h264

using kplvc::h264::DeblockKernels;

extern "C" {

KPLVC_API KplStatus kpliFilterDeblockingLuma_VerEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                  const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                  const Kpl8u* pThresholds,
                                                                  const Kpl8u* pBS) {
    return kplvc::h264::run(&DeblockKernels::luma_ver, pSrcDst, srcdstStep, pAlpha, pBeta, pThresholds, pBS);
}

KPLVC_API KplStatus kpliFilterDeblockingLuma_HorEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                  const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                  const Kpl8u* pThresholds,
                                                                  const Kpl8u* pBS) {
    return kplvc::h264::run(&DeblockKernels::luma_hor, pSrcDst, srcdstStep, pAlpha, pBeta, pThresholds, pBS);
}

KPLVC_API KplStatus kpliFilterDeblockingChroma_VerEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                    const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                    const Kpl8u* pThresholds,
                                                                    const Kpl8u* pBS) {
    return kplvc::h264::run(&DeblockKernels::chroma_ver, pSrcDst, srcdstStep, pAlpha, pBeta, pThresholds,
                            pBS);
}

KPLVC_API KplStatus kpliFilterDeblockingChroma_HorEdge_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcdstStep,
                                                                    const Kpl8u* pAlpha, const Kpl8u* pBeta,
                                                                    const Kpl8u* pThresholds,
                                                                    const Kpl8u* pBS) {
    return kplvc::h264::run(&DeblockKernels::chroma_hor, pSrcDst, srcdstStep, pAlpha, pBeta, pThresholds,
                            pBS);
}

}  // extern "C"
