// Sub-sample refinement: the prices of the positions around a vector, each
// predicted exactly as a decoder will predict it.
#include "core/arith.h"
#include "me/checks.h"
#include "me/me.h"
#include "me/price.h"
#include "mpeg4/qpel.h"

namespace kplvc::me {

namespace {

// A zero residual for the motion-compensation kernels, rows 32 bytes apart.
constexpr int16_t kZeroResidual[16 * 16] = {};

// Up to nine predictions of the positions around a vector, with their
// vectors in the units the search's cost counts.
struct Candidates {
    alignas(32) uint8_t pred[9][16 * 16];
    int32_t vx[9], vy[9], cnt = 0;
};

// Prices every candidate (16 x SAD + lambda x the vector's bits, SADs four
// at a time) and leaves the cheapest in *out, ties to the earlier one.
void price(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const Setup& s, const Candidates& c,
           Result* out, Stats* stats) {
    Best best;
    for (int b = 0; b < c.cnt; b += 4) {
        const int m = c.cnt - b < 4 ? c.cnt - b : 4;
        const uint8_t* r[4];
        for (int q = 0; q < 4; ++q) r[q] = c.pred[b + (q < m ? q : 0)];
        int32_t sad[4];
        k.sad_x4[n](src, ss, r, block_side(n), sad);
        for (int q = 0; q < m; ++q) {
            const int i = b + q;
            best.offer(s, c.vx[i], c.vy[i], 16 * sad[q] + s.lambda * vector_bits(s, c.vx[i], c.vy[i]),
                       sad[q]);
        }
    }
    if (stats != nullptr) stats->sads += c.cnt;
    *out = Result{best.vx, best.vy, best.sad};
}

}  // namespace

// Positions x .. with floor(x / 2) the integer part and x & 1 the half flag;
// a half position inside [2 x0, 2 xmax] reads only columns of the window's
// blocks (its integer part is at most xmax - 1), likewise for rows.
void refine_half(Size n, const MeKernels& k, const mc::McKernels& mc, const uint8_t* src, int32_t ss,
                 const uint8_t* ref, int32_t rs, const Setup& s, int32_t rc, Result* out, Stats* stats) {
    const int side = block_side(n);
    const int32_t cx = out->vx, cy = out->vy;
    const int32_t xlo = 2 * s.x0, xhi = 2 * (s.x0 + s.w - 1), ylo = 2 * s.y0, yhi = 2 * (s.y0 + s.h - 1);
    Candidates c;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const int32_t x = cx + dx, y = cy + dy;
            if (x < xlo || x > xhi || y < ylo || y > yhi) continue;
            const int pos = (y & 1) | (x & 1) << 1;  // fh vertical, hf horizontal
            mc.single[n == k16 ? mc::s16x16 : mc::s8x8][pos](row_at(ref, rs, y >> 1) + (x >> 1), rs,
                                                             kZeroResidual, 32, c.pred[c.cnt], side, rc);
            c.vx[c.cnt] = x;
            c.vy[c.cnt] = y;
            ++c.cnt;
        }
    }
    price(n, k, src, ss, s, c, out, stats);
}

// As refine_half with the quarter-sample filter: positions centre +
// step * (dx, dy) in quarter samples. A position inside [4 x0, 4 xmax] with
// a fractional part reads columns up to its integer part + N, at most
// xmax - 1 + N; one without reads N columns from at most xmax. So every
// read stays in the window's blocks; likewise for rows.
void refine_qpel(Size n, const MeKernels& k, const mpeg4::QpelKernels& q, const uint8_t* src, int32_t ss,
                 const uint8_t* ref, int32_t rs, const Setup& s, int32_t rc, int32_t step, Result* out,
                 Stats* stats) {
    const int side = block_side(n);
    const mpeg4::QpelSize qs = n == k16 ? mpeg4::q16x16 : mpeg4::q8x8;
    const int32_t cx = out->vx, cy = out->vy;
    const int32_t xlo = 4 * s.x0, xhi = 4 * (s.x0 + s.w - 1), ylo = 4 * s.y0, yhi = 4 * (s.y0 + s.h - 1);
    Candidates c;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const int32_t x = cx + step * dx, y = cy + step * dy;
            if (x < xlo || x > xhi || y < ylo || y > yhi) continue;
            q.put[qs][(x & 3) | (y & 3) << 2](row_at(ref, rs, y >> 2) + (x >> 2), rs, c.pred[c.cnt], side,
                                              rc);
            c.vx[c.cnt] = x;
            c.vy[c.cnt] = y;
            ++c.cnt;
        }
    }
    price(n, k, src, ss, s, c, out, stats);
}

}  // namespace kplvc::me

using namespace kplvc::me;

namespace {

KplStatus half_entry(Size n, const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                     const KplMESearch* pSearch, Kpl32s roundControl, KplMotionVector* pMV, Kpl32s* pSAD) {
    if (pSrc == nullptr || pRef == nullptr || pSearch == nullptr || pMV == nullptr || pSAD == nullptr)
        return kplStsNullPtrErr;
    if (const KplStatus st = check_search(*pSearch, block_side(n), srcStep, refStep, nullptr, 0);
        st != kplStsNoErr)
        return st;
    const KpliRect& w = pSearch->window;
    if (pSearch->quarterSample != 0) return kplStsBadArgErr;
    if (pMV->dx < 2 * w.x || pMV->dx > 2 * (w.x + w.width - 1) || pMV->dy < 2 * w.y ||
        pMV->dy > 2 * (w.y + w.height - 1))
        return kplStsBadArgErr;
    if (roundControl != 0 && roundControl != 1) return kplStsMode2Err;
    Result r{pMV->dx, pMV->dy, 0};
    refine_half(n, me_kernels(), kplvc::mc::mc_kernels(), pSrc, srcStep, pRef, refStep, make_setup(*pSearch),
                roundControl, &r, nullptr);
    write_result(r, pMV, pSAD);
    return kplStsNoErr;
}

KplStatus qpel_entry(Size n, const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                     const KplMESearch* pSearch, Kpl32s roundControl, Kpl32s step, KplMotionVector* pMV,
                     Kpl32s* pSAD) {
    if (pSrc == nullptr || pRef == nullptr || pSearch == nullptr || pMV == nullptr || pSAD == nullptr)
        return kplStsNullPtrErr;
    if (const KplStatus st = check_search(*pSearch, block_side(n), srcStep, refStep, nullptr, 0);
        st != kplStsNoErr)
        return st;
    const KpliRect& w = pSearch->window;
    if (pSearch->quarterSample != 1) return kplStsBadArgErr;
    if (pMV->dx < 4 * w.x || pMV->dx > 4 * (w.x + w.width - 1) || pMV->dy < 4 * w.y ||
        pMV->dy > 4 * (w.y + w.height - 1))
        return kplStsBadArgErr;
    if (roundControl != 0 && roundControl != 1) return kplStsMode2Err;
    if (step != 1 && step != 2) return kplStsBadArgErr;
    Result r{pMV->dx, pMV->dy, 0};
    refine_qpel(n, me_kernels(), kplvc::mpeg4::qpel_kernels(), pSrc, srcStep, pRef, refStep,
                make_setup(*pSearch), roundControl, step, &r, nullptr);
    write_result(r, pMV, pSAD);
    return kplStsNoErr;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliRefineHalf16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  Kpl32s roundControl, KplMotionVector* pMV, Kpl32s* pSAD) {
    return half_entry(k16, pSrc, srcStep, pRef, refStep, pSearch, roundControl, pMV, pSAD);
}

KPLVC_API KplStatus kpliRefineHalf8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, const KplMESearch* pSearch,
                                                Kpl32s roundControl, KplMotionVector* pMV, Kpl32s* pSAD) {
    return half_entry(k8, pSrc, srcStep, pRef, refStep, pSearch, roundControl, pMV, pSAD);
}

KPLVC_API KplStatus kpliRefineQPel16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  Kpl32s roundControl, Kpl32s step, KplMotionVector* pMV,
                                                  Kpl32s* pSAD) {
    return qpel_entry(k16, pSrc, srcStep, pRef, refStep, pSearch, roundControl, step, pMV, pSAD);
}

KPLVC_API KplStatus kpliRefineQPel8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, const KplMESearch* pSearch,
                                                Kpl32s roundControl, Kpl32s step, KplMotionVector* pMV,
                                                Kpl32s* pSAD) {
    return qpel_entry(k8, pSrc, srcStep, pRef, refStep, pSearch, roundControl, step, pMV, pSAD);
}

}  // extern "C"
