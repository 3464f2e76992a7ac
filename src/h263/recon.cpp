// H.263 reconstruction (prediction + residual), overlapped block motion
// compensation (Annex F), frame expansion and the Annex J deblocking filter.
#include "h263/recon.h"

#include <cstring>

#include "core/arith.h"
#include "core/dispatch.h"
#include "core/vector.h"
#include "kplvc.h"

namespace kplvc::h263 {

const uint8_t _h263Deblock_QPStrength[32] = {
    0, 1, 1, 2, 2, 3, 3, 4, 4, 4, 5, 5, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10, 10, 11, 11, 11, 12, 12, 12,
};

namespace {

// The sum is a 16-bit wrapping add (a residual near the 16-bit limits wraps
// before the saturation), as the packed-word kernels compute it.
template <int W>
void recon_c(const uint8_t* pred, const int16_t* res, uint8_t* dst, int32_t step) {
    for (int y = 0; y < W; ++y)
        for (int x = 0; x < W; ++x) {
            const intptr_t o = static_cast<intptr_t>(y) * step + x;
            dst[o] = clip_u8(addw16(pred[o], res[y * W + x]));
        }
}

// One set of four samples A, B | C, D across the edge (B and C adjacent).
// d lies within +-255 (|A - 4B + 4C - D| <= 8 * 255), so every step fits.
void h263PerformPixels(uint8_t& a, uint8_t& b, uint8_t& c, uint8_t& d, int strength) {
    const int A = a, B = b, C = c, D = d;
    const int dd = (A - 4 * B + 4 * C - D) / 8;  // truncates toward zero
    const int ad = dd < 0 ? -dd : dd;
    const int ramp = 2 * (ad - strength) > 0 ? 2 * (ad - strength) : 0;
    const int mag = ad - ramp > 0 ? ad - ramp : 0;
    const int d1 = dd < 0 ? -mag : mag;
    b = clip_u8(B + d1);
    c = clip_u8(C - d1);
    const int lim = (d1 / 2) < 0 ? -(d1 / 2) : d1 / 2;
    const int d2 = clip3(-lim, lim, (A - D) / 4);
    a = static_cast<uint8_t>(A - d2);  // stays between A and D: no clamp needed
    d = static_cast<uint8_t>(D + d2);
}

void deblock_hor_c(uint8_t* p, int32_t step, int strength) {
    for (int i = 0; i < 8; ++i) h263PerformPixels(p[i - 2 * step], p[i - step], p[i], p[i + step], strength);
}

void deblock_ver_c(uint8_t* p, int32_t step, int strength) {
    for (int i = 0; i < 8; ++i) {
        uint8_t* r = p + static_cast<intptr_t>(i) * step;
        h263PerformPixels(r[-2], r[-1], r[0], r[1], strength);
    }
}

// Annex F weighting rows (the distinct rows of H0, H1 and H2).
constexpr uint8_t OBMC_tab0_[8] = {4, 5, 5, 5, 5, 5, 5, 4};  // H0 row 0 (and 7)
constexpr uint8_t OBMC_tab1_[8] = {5, 5, 5, 5, 5, 5, 5, 5};  // H0 rows 1, 6
constexpr uint8_t OBMC_tab2_[8] = {5, 5, 6, 6, 6, 6, 5, 5};  // H0 rows 2..5
constexpr uint8_t OBMC_tab3_[8] = {2, 1, 1, 1, 1, 1, 1, 2};  // H2 row 0 (and 7)
constexpr uint8_t OBMC_tab4_[8] = {2, 2, 1, 1, 1, 1, 2, 2};  // H2 rows 1..6
constexpr uint8_t OBMC_tab5_[8] = {1, 1, 2, 2, 2, 2, 1, 1};  // H1 rows 1, 6

// H0 (own vector), H2 (left/right), H1 (above/below = 8 - H0 - H2).
constexpr ObmcWeights make_weights() {
    ObmcWeights w{};
    const uint8_t* h0rows[8] = {OBMC_tab0_, OBMC_tab1_, OBMC_tab2_, OBMC_tab2_,
                                OBMC_tab2_, OBMC_tab2_, OBMC_tab1_, OBMC_tab0_};
    const uint8_t* h2rows[8] = {OBMC_tab3_, OBMC_tab4_, OBMC_tab4_, OBMC_tab4_,
                                OBMC_tab4_, OBMC_tab4_, OBMC_tab4_, OBMC_tab3_};
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            w.h0[y][x] = h0rows[y][x];
            w.h2[y][x] = h2rows[y][x];
            w.h1[y][x] = static_cast<uint8_t>(8 - h0rows[y][x] - h2rows[y][x]);
        }
    return w;
}

constexpr ObmcWeights kObmc = make_weights();
static_assert(kObmc.h1[1][0] == OBMC_tab5_[0] && kObmc.h1[1][2] == OBMC_tab5_[2] &&
                  kObmc.h1[6][3] == OBMC_tab5_[3] && kObmc.h1[0][0] == 2 && kObmc.h1[3][3] == 1,
              "H1 is the complement of H0 and H2");

// One sample of the half-sample prediction at (x, y) of the block for vector
// mv, H.263 rounding type 0. The integer part is mv >> 1 (arithmetic), the
// half flag the lowest bit.
inline int predict_at(const uint8_t* ref, int32_t step, const Kpl16s* mv, int x, int y) {
    const int ix = mv[0] >> 1, iy = mv[1] >> 1, hx = mv[0] & 1, hy = mv[1] & 1;
    const uint8_t* s = ref + static_cast<intptr_t>(y + iy) * step + (x + ix);
    if (hx && hy) return (s[0] + s[1] + s[step] + s[step + 1] + 2) >> 2;
    if (hx) return (s[0] + s[1] + 1) >> 1;
    if (hy) return (s[0] + s[step] + 1) >> 1;
    return s[0];
}

// Weights sum to 8 everywhere and predictions are 0..255, so the weighted
// sum + 4 is at most 2044 and the result needs no clamp.
void obmc_c(const uint8_t* ref, uint8_t* dst, int32_t step, const ObmcVectors& mv) {
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const int q = predict_at(ref, step, mv.cur, x, y);
            const int r = predict_at(ref, step, y < 4 ? mv.above : mv.below, x, y);
            const int s = predict_at(ref, step, x < 4 ? mv.left : mv.right, x, y);
            dst[static_cast<intptr_t>(y) * step + x] =
                static_cast<uint8_t>((q * kObmc.h0[y][x] + r * kObmc.h1[y][x] + s * kObmc.h2[y][x] + 4) >> 3);
        }
}

constexpr ReconKernels kScalar = {recon_c<16>, recon_c<8>, deblock_hor_c, deblock_ver_c, obmc_c};

constexpr Upgrade<ReconKernels> kCascade[] = {{cpu::Isa::c, [](ReconKernels& k) { k = kScalar; }},
                                              KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_recon})};

}  // namespace

ReconKernels recon_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const ReconKernels& recon_kernels() { return active_table<ReconKernels, recon_kernels_for>(); }

const ObmcWeights kObmcWeights = kObmc;

}  // namespace kplvc::h263

using kplvc::h263::recon_kernels;

extern "C" {

KPLVC_API KplStatus kpliReconMB_H263(const Kpl8u* pSrc, const Kpl16s* pResidual, Kpl8u* pDst, int step) {
    if (pSrc == nullptr || pResidual == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (step < 16) return kplStsMBStepErr;
    recon_kernels().recon16(pSrc, pResidual, pDst, step);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliReconMB_H263_I(Kpl8u* pSrcDst, const Kpl16s* pResidual, int step) {
    if (pSrcDst == nullptr || pResidual == nullptr) return kplStsNullPtrErr;
    if (step < 16) return kplStsMBStepErr;
    recon_kernels().recon16(pSrcDst, pResidual, pSrcDst, step);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliReconBlock_H263(const Kpl8u* pSrc, const Kpl16s* pResidual, Kpl8u* pDst, int step) {
    if (pSrc == nullptr || pResidual == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    recon_kernels().recon8(pSrc, pResidual, pDst, step);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliReconBlock_H263_I(Kpl8u* pSrcDst, const Kpl16s* pResidual, int step) {
    if (pSrcDst == nullptr || pResidual == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    recon_kernels().recon8(pSrcDst, pResidual, pSrcDst, step);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPredictBlock_OBMC_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step, const Kpl16s* pMVCur,
                                             const Kpl16s* pMVLeft, const Kpl16s* pMVRight,
                                             const Kpl16s* pMVAbove, const Kpl16s* pMVBelow) {
    using namespace kplvc::h263;
    if (pSrc == nullptr || pDst == nullptr || pMVCur == nullptr) return kplStsNullPtrErr;
    if (pMVRight == nullptr || pMVLeft == nullptr) return kplStsNullPtrErr;
    if (pMVBelow == nullptr || pMVAbove == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    recon_kernels().obmc(pSrc, pDst, step, ObmcVectors{pMVCur, pMVLeft, pMVRight, pMVAbove, pMVBelow});
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliExpandFrame_H263_8u(Kpl8u* pSrcDstPlane, int frameWidth, int frameHeight,
                                            int expandPels, int step) {
    if (pSrcDstPlane == nullptr) return kplStsNullPtrErr;
    if (frameWidth < 8) return kplStsFrameWidthErr;
    if (frameHeight < 1) return kplStsFrameHeightErr;
    if (expandPels < 8) return kplStsFrameExpandErr;
    if (step < 8) return kplStsBlockStepErr;
    // W + 2E in 64 bits: a huge expansion must fail the check, not overflow.
    const int64_t full = int64_t{frameWidth} + 2 * int64_t{expandPels};
    if (step < full) return kplStsFrameStepErr;
    const int E = expandPels, W = frameWidth, H = frameHeight;
    const auto& k = kplvc::vector_kernels();
    // Left and right borders of every picture row (the fill kernel covers
    // the common E = 8 and E = 16 with one or two overlapping stores).
    for (int y = 0; y < H; ++y) {
        uint8_t* row = pSrcDstPlane + static_cast<intptr_t>(E + y) * step;
        k.set8(row, row[E], static_cast<size_t>(E));
        k.set8(row + E + W, row[E + W - 1], static_cast<size_t>(E));
    }
    // Rows above and below: copies of the first and last extended rows.
    const uint8_t* first = pSrcDstPlane + static_cast<intptr_t>(E) * step;
    const uint8_t* last = pSrcDstPlane + static_cast<intptr_t>(E + H - 1) * step;
    for (int y = 0; y < E; ++y) {
        k.copy8(first, pSrcDstPlane + static_cast<intptr_t>(y) * step, static_cast<size_t>(full));
        k.copy8(last, pSrcDstPlane + static_cast<intptr_t>(E + H + y) * step, static_cast<size_t>(full));
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliFilterDeblocking_HorEdge_H263_8u_I(Kpl8u* pSrcDst, int step, int QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    recon_kernels().deblock_hor(pSrcDst, step, kplvc::h263::_h263Deblock_QPStrength[QP]);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliFilterDeblocking_VerEdge_H263_8u_I(Kpl8u* pSrcDst, int step, int QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    if (QP < 1 || QP > 31) return kplStsH263QPErr;
    recon_kernels().deblock_ver(pSrcDst, step, kplvc::h263::_h263Deblock_QPStrength[QP]);
    return kplStsNoErr;
}

}  // extern "C"
