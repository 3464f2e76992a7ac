// Annex F prediction with a rounding type, scalar reference and entry point.
#include "h263/obmc.h"

#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::h263 {

namespace {

// One sample of the half-sample prediction at (x, y) of the block for vector
// mv: the integer part is mv >> 1 (arithmetic), the half flag the lowest
// bit; rt is subtracted from the rounding term of each average.
inline int predict_at(const uint8_t* ref, int32_t step, const int16_t* mv, int x, int y, int rt) {
    const int ix = mv[0] >> 1, iy = mv[1] >> 1, hx = mv[0] & 1, hy = mv[1] & 1;
    const uint8_t* s = ref + static_cast<intptr_t>(y + iy) * step + (x + ix);
    if (hx && hy) return (s[0] + s[1] + s[step] + s[step + 1] + 2 - rt) >> 2;
    if (hx) return (s[0] + s[1] + 1 - rt) >> 1;
    if (hy) return (s[0] + s[step] + 1 - rt) >> 1;
    return s[0];
}

// The weights sum to 8 at every position and each prediction is 0..255, so
// the weighted sum plus 4 is at most 2044 and the result needs no clamp.
void obmc_c(const uint8_t* ref, uint8_t* dst, int32_t step, const ObmcVectors& mv, int rt) {
    const ObmcWeights& w = kObmcWeights;
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const int q = predict_at(ref, step, mv.cur, x, y, rt);
            const int r = predict_at(ref, step, y < 4 ? mv.above : mv.below, x, y, rt);
            const int s = predict_at(ref, step, x < 4 ? mv.left : mv.right, x, y, rt);
            dst[static_cast<intptr_t>(y) * step + x] =
                static_cast<uint8_t>((q * w.h0[y][x] + r * w.h1[y][x] + s * w.h2[y][x] + 4) >> 3);
        }
}

constexpr Upgrade<ObmcKernels> kCascade[] = {{cpu::Isa::c, [](ObmcKernels& k) { k.obmc = obmc_c; }},
                                             KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_obmc})};

}  // namespace

ObmcKernels obmc_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const ObmcKernels& obmc_kernels() { return active_table<ObmcKernels, obmc_kernels_for>(); }

}  // namespace kplvc::h263

extern "C" {

KPLVC_API KplStatus kpliPredictBlockEx_OBMC_8u(const Kpl8u* pSrc, Kpl8u* pDst, int step, const Kpl16s* pMVCur,
                                               const Kpl16s* pMVLeft, const Kpl16s* pMVRight,
                                               const Kpl16s* pMVAbove, const Kpl16s* pMVBelow,
                                               int roundType) {
    using namespace kplvc::h263;
    if (pSrc == nullptr || pDst == nullptr || pMVCur == nullptr) return kplStsNullPtrErr;
    if (pMVRight == nullptr || pMVLeft == nullptr) return kplStsNullPtrErr;
    if (pMVBelow == nullptr || pMVAbove == nullptr) return kplStsNullPtrErr;
    if (step < 8) return kplStsBlockStepErr;
    if (roundType != 0 && roundType != 1) return kplStsModeErr;
    obmc_kernels().obmc(pSrc, pDst, step, ObmcVectors{pMVCur, pMVLeft, pMVRight, pMVAbove, pMVBelow},
                        roundType);
    return kplStsNoErr;
}

}  // extern "C"
