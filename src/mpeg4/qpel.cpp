// MPEG-4 quarter-sample interpolation: the scalar reference kernels, the
// kernel table and the exported functions.
#include "mpeg4/qpel.h"

#include <utility>

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::mpeg4 {

namespace ref {

// Mirror of index i into 0..n (the block's n+1 samples).
constexpr int mirror(int i, int n) { return i < 0 ? -1 - i : (i > n ? 2 * n + 1 - i : i); }

// The half-sample filter at position x + 1/2 of a line of n + 1 samples
// read through get(index).
template <class Get>
inline uint8_t half(Get get, int x, int n, int rc) {
    auto at = [&](int i) { return int32_t{get(mirror(i, n))}; };
    const int32_t s = 20 * (at(x) + at(x + 1)) - 6 * (at(x - 1) + at(x + 2)) + 3 * (at(x - 2) + at(x + 3)) -
                      (at(x - 3) + at(x + 4));
    return clip_u8((s + 16 - rc) >> 5);
}

inline uint8_t avg(int32_t a, int32_t b, int32_t rc) { return static_cast<uint8_t>((a + b + 1 - rc) >> 1); }

// The value at x + f/4 of a line.
template <class Get>
inline uint8_t quarter(Get get, int x, int n, int f, int rc) {
    switch (f) {
        case 0:
            return get(x);
        case 1:
            return avg(get(x), half(get, x, n, rc), rc);
        case 2:
            return half(get, x, n, rc);
        default:
            return avg(half(get, x, n, rc), get(x + 1), rc);
    }
}

template <int W, int H, int Pos>
void put(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    constexpr int fx = Pos & 3, fy = Pos >> 2;
    // Horizontal pass over the rows the vertical pass reads.
    constexpr int rows = fy == 0 ? H : H + 1;
    uint8_t t[(H + 1) * W];
    for (int r = 0; r < rows; ++r) {
        const uint8_t* s = src + static_cast<intptr_t>(r) * src_step;
        auto get = [s](int i) { return s[i]; };
        for (int x = 0; x < W; ++x) t[r * W + x] = quarter(get, x, W, fx, rc);
    }
    for (int x = 0; x < W; ++x) {
        auto get = [&t, x](int i) { return t[i * W + x]; };
        for (int y = 0; y < H; ++y) dst[static_cast<intptr_t>(y) * dst_step + x] = quarter(get, y, H, fy, rc);
    }
}

template <int W, int H>
void average(const uint8_t* a, int32_t a_step, const uint8_t* b, int32_t b_step, uint8_t* dst,
             int32_t dst_step) {
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            dst[static_cast<intptr_t>(y) * dst_step + x] = static_cast<uint8_t>(
                (a[static_cast<intptr_t>(y) * a_step + x] + b[static_cast<intptr_t>(y) * b_step + x] + 1) >>
                1);
}

template <int W, int H, int... P>
constexpr void fill(QpelFn (&row)[16], std::integer_sequence<int, P...>) {
    ((row[P] = put<W, H, P>), ...);
}

}  // namespace ref

namespace {

constexpr QpelKernels make_scalar() {
    QpelKernels k{};
    ref::fill<16, 16>(k.put[q16x16], std::make_integer_sequence<int, 16>{});
    ref::fill<16, 8>(k.put[q16x8], std::make_integer_sequence<int, 16>{});
    ref::fill<8, 8>(k.put[q8x8], std::make_integer_sequence<int, 16>{});
    k.avg[q16x16] = ref::average<16, 16>;
    k.avg[q16x8] = ref::average<16, 8>;
    k.avg[q8x8] = ref::average<8, 8>;
    return k;
}

constexpr QpelKernels kScalar = make_scalar();

}  // namespace

namespace {
constexpr Upgrade<QpelKernels> kCascade[] = {{cpu::Isa::c, [](QpelKernels& k) { k = kScalar; }},
                                             KPLVC_X86_UPGRADES({cpu::Isa::ssse3, x86::ssse3::upgrade_qpel},
                                                                {cpu::Isa::avx2, x86::avx2::upgrade_qpel})};
}  // namespace

QpelKernels qpel_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const QpelKernels& qpel_kernels() { return active_table<QpelKernels, qpel_kernels_for>(); }

}  // namespace kplvc::mpeg4

using namespace kplvc;
using namespace kplvc::mpeg4;

namespace {

// The block shape of a size, or kQpelSizes when it is not one.
QpelSize shape_of(KpliSize s) {
    if (s.width == 16 && s.height == 16) return q16x16;
    if (s.width == 16 && s.height == 8) return q16x8;
    if (s.width == 8 && s.height == 8) return q8x8;
    return kQpelSizes;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliInterpolateQPel_MPEG4_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                     Kpl32s dstStep, KpliSize blockSize, Kpl32s qpelPos,
                                                     Kpl32s roundControl) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    const QpelSize sh = shape_of(blockSize);
    if (sh == kQpelSizes) return kplStsBlockSizeErr;
    if (srcStep < blockSize.width || dstStep < blockSize.width) return kplStsStepErr;
    if (qpelPos < 0 || qpelPos > 15) return kplStsBadArgErr;
    if (roundControl != 0 && roundControl != 1) return kplStsModeErr;
    qpel_kernels().put[sh][qpelPos](pSrc, srcStep, pDst, dstStep, roundControl);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliInterpolateQPelBi_MPEG4_8u_C1R(const Kpl8u* pSrcF, Kpl32s srcStepF, Kpl32s qpelPosF,
                                                       const Kpl8u* pSrcB, Kpl32s srcStepB, Kpl32s qpelPosB,
                                                       Kpl8u* pDst, Kpl32s dstStep, KpliSize blockSize,
                                                       Kpl32s roundControl) {
    if (pSrcF == nullptr || pSrcB == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    const QpelSize sh = shape_of(blockSize);
    if (sh == kQpelSizes) return kplStsBlockSizeErr;
    if (srcStepF < blockSize.width || srcStepB < blockSize.width || dstStep < blockSize.width)
        return kplStsStepErr;
    if (qpelPosF < 0 || qpelPosF > 15 || qpelPosB < 0 || qpelPosB > 15) return kplStsBadArgErr;
    if (roundControl != 0 && roundControl != 1) return kplStsModeErr;
    const QpelKernels& k = qpel_kernels();
    alignas(32) uint8_t f[16 * 16], b[16 * 16];
    k.put[sh][qpelPosF](pSrcF, srcStepF, f, 16, roundControl);
    k.put[sh][qpelPosB](pSrcB, srcStepB, b, 16, roundControl);
    k.avg[sh](f, 16, b, 16, pDst, dstStep);
    return kplStsNoErr;
}

}  // extern "C"
