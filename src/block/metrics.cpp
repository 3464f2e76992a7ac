// Block-matching metrics: the kernel table, and the scalar reference kernels
// and entry points of the edge detector, the sums of differences, the zero
// count and the texture-error blocks. (SADs and squared differences live in
// sad.cpp, variances and means in var.cpp.)
#include <algorithm>
#include <cstdlib>

#include "block/metrics_table.h"
#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::block {

namespace {

// Rows 0..14 in order, columns 0..14: an edge sample has a horizontal or
// vertical neighbour difference, clamped to 127, above the threshold when
// both are read as signed bytes (a threshold of 128..255 is negative and so
// counts every sample). After each row the running count n is compared as
// unsigned bytes: (255 n) mod 256 < (-count) mod 256 decides 1 at once. For
// n = 0 that is 0 < (-count) mod 256, true for any non-zero count: a first
// row without edges already answers 1. n <= 225, so 255 n never overflows.
uint8_t edges16x16_c(const uint8_t* src, int32_t ss, uint8_t pel_diff, uint8_t pel_count) {
    const int8_t thr = static_cast<int8_t>(pel_diff);
    const uint8_t c = static_cast<uint8_t>(0u - pel_count);
    uint32_t n = 0;
    for (int y = 0; y < 15; ++y) {
        const uint8_t* p = row_at(src, ss, y);
        const uint8_t* q = row_at(src, ss, y + 1);
        for (int x = 0; x < 15; ++x) {
            const int h = std::min(std::abs(p[x] - p[x + 1]), 127);
            const int v = std::min(std::abs(p[x] - q[x]), 127);
            if (static_cast<int8_t>(h) > thr || static_cast<int8_t>(v) > thr) ++n;
        }
        const uint8_t a = static_cast<uint8_t>(255u * n);
        if (a < c) return 1;
    }
    return 0;
}

// Each 4x4 sum of src - pred lies within +-16 * 255 = +-4080, so Kpl16s
// holds it. Sub-block k's differences go to diff[16k .. 16k + 15], row by row.
template <int N>
void sumsdiff_c(const uint8_t* src, int32_t ss, const uint8_t* pred, int32_t ps, int16_t* sums,
                int16_t* diff) {
    constexpr int per_row = N / 4;
    for (int k = 0; k < per_row * per_row; ++k) {
        const int x0 = 4 * (k % per_row), y0 = 4 * (k / per_row);
        int32_t sum = 0;
        for (int y = 0; y < 4; ++y) {
            const uint8_t* s = row_at(src, ss, y0 + y);
            const uint8_t* p = row_at(pred, ps, y0 + y);
            for (int x = 0; x < 4; ++x) {
                const int32_t d = s[x0 + x] - p[x0 + x];
                sum += d;
                if (diff != nullptr) diff[16 * k + 4 * y + x] = static_cast<int16_t>(d);
            }
        }
        sums[k] = static_cast<int16_t>(sum);
    }
}

int32_t countzeros8x8_c(const int16_t* coefs) {
    int32_t n = 0;
    for (int i = 0; i < 64; ++i) n += coefs[i] == 0;
    return n;
}

// dst[8y + x] = src(x, y) - ref[8y + x], ref packed 8 bytes per row; the
// return value is the sum of |dst| (at most 64 * 255).
int32_t texture_error8x8_c(const uint8_t* src, int32_t ss, const uint8_t* ref, int16_t* dst) {
    int32_t sad = 0;
    for (int y = 0; y < 8; ++y) {
        const uint8_t* s = row_at(src, ss, y);
        for (int x = 0; x < 8; ++x) {
            const int32_t d = s[x] - ref[8 * y + x];
            dst[8 * y + x] = static_cast<int16_t>(d);
            sad += std::abs(d);
        }
    }
    return sad;
}

}  // namespace

void scalar_misc_kernels(MetricsKernels& k) {
    k.edges16x16 = edges16x16_c;
    k.sumsdiff16x16 = sumsdiff_c<16>;
    k.sumsdiff8x8 = sumsdiff_c<8>;
    k.countzeros8x8 = countzeros8x8_c;
    k.texture_error8x8 = texture_error8x8_c;
}

namespace {

void install_scalar(MetricsKernels& k) {
    scalar_sad_kernels(k);
    scalar_var_kernels(k);
    scalar_misc_kernels(k);
}

constexpr Upgrade<MetricsKernels> kCascade[] = {
    {cpu::Isa::c, install_scalar},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_sad}, {cpu::Isa::sse2, x86::sse2::upgrade_var},
                       {cpu::Isa::sse2, x86::sse2::upgrade_metrics}, {cpu::Isa::avx2, x86::avx2::upgrade_sad},
                       {cpu::Isa::avx2, x86::avx2::upgrade_var})};

}  // namespace

MetricsKernels metrics_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const MetricsKernels& metrics_kernels() { return metrics_table(); }

}  // namespace kplvc::block

using kplvc::block::metrics_table;

extern "C" {

KPLVC_API KplStatus kpliEdgesDetect16x16_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u EdgePelDifference,
                                                Kpl8u EdgePelCount, Kpl8u* pRes) {
    if (pSrc == nullptr || pRes == nullptr) return kplStsNullPtrErr;
    *pRes = metrics_table().edges16x16(pSrc, srcStep, EdgePelDifference, EdgePelCount);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSumsDiff16x16Blocks4x4_8u16s_C1(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pPred,
                                                        Kpl32s predStep, Kpl16s* pSums, Kpl16s* pDiff) {
    if (pSrc == nullptr || pPred == nullptr || pSums == nullptr) return kplStsNullPtrErr;
    metrics_table().sumsdiff16x16(pSrc, srcStep, pPred, predStep, pSums, pDiff);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSumsDiff8x8Blocks4x4_8u16s_C1(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pPred,
                                                      Kpl32s predStep, Kpl16s* pSums, Kpl16s* pDiff) {
    if (pSrc == nullptr || pPred == nullptr || pSums == nullptr) return kplStsNullPtrErr;
    metrics_table().sumsdiff8x8(pSrc, srcStep, pPred, predStep, pSums, pDiff);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliCountZeros8x8_16s_C1(const Kpl16s* pSrc, Kpl32s* pCount) {
    if (pSrc == nullptr || pCount == nullptr) return kplStsNullPtrErr;
    *pCount = metrics_table().countzeros8x8(pSrc);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliComputeTextureErrorBlock_SAD_8u16s(const Kpl8u* pSrc, Kpl32s srcStep,
                                                           const Kpl8u* pRef, Kpl16s* pDst, Kpl32s* pDstSAD) {
    if (pSrc == nullptr || pRef == nullptr || pDst == nullptr || pDstSAD == nullptr) return kplStsBadArgErr;
    *pDstSAD = metrics_table().texture_error8x8(pSrc, srcStep, pRef, pDst);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliComputeTextureErrorBlock_8u16s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                       Kpl16s* pDst) {
    if (pSrc == nullptr || pRef == nullptr || pDst == nullptr) return kplStsBadArgErr;
    metrics_table().texture_error8x8(pSrc, srcStep, pRef, pDst);
    return kplStsNoErr;
}

}  // extern "C"
