// H.264 inter prediction: argument checks, kernel tables and the scalar
// reference kernels.
//
// Luma. With R(x, y) the reference sample at column x, row y of the block
// (the window reaches columns -2..W+2 and rows -2..H+2):
//   tap6(E..J) = E - 5F + 20G + 20H - 5I + J
//   b1 = tap6 along the row, h1 = tap6 along the column    (-2550..10710)
//   b = clip((b1 + 16) >> 5), h = clip((h1 + 16) >> 5)
//   j1 = tap6 of six b1 values down a column                (-214200..475320)
//   j = clip((j1 + 512) >> 10): one rounding of the 20-bit sum, never of b1
// and the quarter positions are rounded averages of two of G, H, M, b, h, j,
// s (b one row down) and m (h one column right).
//
// Chroma. ((8-xf)(8-yf)A + xf(8-yf)B + (8-xf)yf C + xf yf D + 32) >> 6: the
// weights sum to 64, so the result is in 0..255 without a clip.
//
// Weighted averaging. clip(((p0 w0 + p1 w1 + 2^logWD) >> (logWD + 1))
//                          + ((o0 + o1 + 1) >> 1)).
// p0 w0 + p1 w1 + 2^logWD is in -65279..65408 (17 bits); after the shift it
// is in -32640..32640 and with the offset in -32768..32767.
#include "h264/inter.h"

#include <utility>

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::h264 {

int luma_size_index(int32_t w, int32_t h) {
    for (int i = 0; i < kLumaSizes; ++i)
        if (kLumaW[i] == w && kLumaH[i] == h) return i;
    return -1;
}

int chroma_size_index(int32_t w, int32_t h) {
    for (int i = 0; i < kChromaSizes; ++i)
        if (kChromaW[i] == w && kChromaH[i] == h) return i;
    return -1;
}

namespace {

// ---- Luma reference --------------------------------------------------------------

struct Ref {
    const uint8_t* p;
    int32_t step;
    int32_t R(int x, int y) const { return p[static_cast<intptr_t>(y) * step + x]; }
    static int32_t tap6(int32_t e, int32_t f, int32_t g, int32_t h, int32_t i, int32_t j) {
        return e - 5 * f + 20 * g + 20 * h - 5 * i + j;
    }
    int32_t b1(int x, int y) const {
        return tap6(R(x - 2, y), R(x - 1, y), R(x, y), R(x + 1, y), R(x + 2, y), R(x + 3, y));
    }
    int32_t h1(int x, int y) const {
        return tap6(R(x, y - 2), R(x, y - 1), R(x, y), R(x, y + 1), R(x, y + 2), R(x, y + 3));
    }
    // 6 x 6 taps: |j1| < 2^19, no overflow in int32.
    int32_t j1(int x, int y) const {
        return tap6(b1(x, y - 2), b1(x, y - 1), b1(x, y), b1(x, y + 1), b1(x, y + 2), b1(x, y + 3));
    }
    int32_t b(int x, int y) const { return clip_u8((b1(x, y) + 16) >> 5); }
    int32_t h(int x, int y) const { return clip_u8((h1(x, y) + 16) >> 5); }
    int32_t j(int x, int y) const { return clip_u8((j1(x, y) + 512) >> 10); }
};

inline int32_t avg(int32_t u, int32_t v) { return (u + v + 1) >> 1; }

// The value at quarter position (XF, YF) for the sample at (x, y), named as
// in the usual figure: G a b c / d e f g / h i j k / n p q r.
template <int XF, int YF>
int32_t luma_value(const Ref& r, int x, int y) {
    constexpr int pos = 4 * YF + XF;
    const int32_t G = r.R(x, y);
    if constexpr (pos == 0) return G;
    if constexpr (pos == 1) return avg(G, r.b(x, y));                   // a
    if constexpr (pos == 2) return r.b(x, y);                           // b
    if constexpr (pos == 3) return avg(r.R(x + 1, y), r.b(x, y));       // c
    if constexpr (pos == 4) return avg(G, r.h(x, y));                   // d
    if constexpr (pos == 5) return avg(r.b(x, y), r.h(x, y));           // e
    if constexpr (pos == 6) return avg(r.b(x, y), r.j(x, y));           // f
    if constexpr (pos == 7) return avg(r.b(x, y), r.h(x + 1, y));       // g (m)
    if constexpr (pos == 8) return r.h(x, y);                           // h
    if constexpr (pos == 9) return avg(r.h(x, y), r.j(x, y));           // i
    if constexpr (pos == 10) return r.j(x, y);                          // j
    if constexpr (pos == 11) return avg(r.j(x, y), r.h(x + 1, y));      // k (m)
    if constexpr (pos == 12) return avg(r.R(x, y + 1), r.h(x, y));      // n (M)
    if constexpr (pos == 13) return avg(r.h(x, y), r.b(x, y + 1));      // p (s)
    if constexpr (pos == 14) return avg(r.j(x, y), r.b(x, y + 1));      // q (s)
    if constexpr (pos == 15) return avg(r.h(x + 1, y), r.b(x, y + 1));  // r (m, s)
}

template <int W, int H, int XF, int YF>
void luma_c(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    const Ref r{src, src_step};
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            dst[static_cast<intptr_t>(y) * dst_step + x] = static_cast<uint8_t>(luma_value<XF, YF>(r, x, y));
}

template <int W, int H, int... P>
constexpr void fill_luma_row(LumaFn (&row)[16], std::integer_sequence<int, P...>) {
    ((row[P] = luma_c<W, H, P % 4, P / 4>), ...);
}

// ---- Chroma reference ---------------------------------------------------------------

template <int W, int H>
void chroma_c(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step, int32_t wa, int32_t wb,
              int32_t wc, int32_t wd) {
    for (int y = 0; y < H; ++y) {
        const uint8_t* r0 = src + static_cast<intptr_t>(y) * src_step;
        const uint8_t* r1 = r0 + src_step;
        for (int x = 0; x < W; ++x)
            dst[static_cast<intptr_t>(y) * dst_step + x] =
                static_cast<uint8_t>((wa * r0[x] + wb * r0[x + 1] + wc * r1[x] + wd * r1[x + 1] + 32) >> 6);
    }
}

template <int W, int H>
void copy_c(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            dst[static_cast<intptr_t>(y) * dst_step + x] = src[static_cast<intptr_t>(y) * src_step + x];
}

// ---- Weighted averaging reference ------------------------------------------------------

template <int W>
void weight_c(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows, int32_t w0,
              int32_t w1, int32_t log_wd, int32_t offset) {
    const int32_t round = int32_t{1} << log_wd;
    for (int32_t y = 0; y < rows; ++y) {
        uint8_t* d = sd + static_cast<intptr_t>(y) * sd_step;
        const uint8_t* p = s + static_cast<intptr_t>(y) * s_step;
        for (int x = 0; x < W; ++x)
            d[x] = clip_u8(((d[x] * w0 + p[x] * w1 + round) >> (log_wd + 1)) + offset);
    }
}

template <int W>
void average_c(uint8_t* sd, int32_t sd_step, const uint8_t* s, int32_t s_step, int32_t rows) {
    for (int32_t y = 0; y < rows; ++y) {
        uint8_t* d = sd + static_cast<intptr_t>(y) * sd_step;
        const uint8_t* p = s + static_cast<intptr_t>(y) * s_step;
        for (int x = 0; x < W; ++x) d[x] = static_cast<uint8_t>((d[x] + p[x] + 1) >> 1);
    }
}

constexpr InterKernels make_scalar() {
    InterKernels k{};
    using Seq = std::make_integer_sequence<int, 16>;
    fill_luma_row<16, 16>(k.luma[0], Seq{});
    fill_luma_row<16, 8>(k.luma[1], Seq{});
    fill_luma_row<8, 16>(k.luma[2], Seq{});
    fill_luma_row<8, 8>(k.luma[3], Seq{});
    fill_luma_row<8, 4>(k.luma[4], Seq{});
    fill_luma_row<4, 8>(k.luma[5], Seq{});
    fill_luma_row<4, 4>(k.luma[6], Seq{});
    k.chroma[0] = chroma_c<8, 8>, k.chroma[1] = chroma_c<8, 4>, k.chroma[2] = chroma_c<4, 8>;
    k.chroma[3] = chroma_c<4, 4>, k.chroma[4] = chroma_c<4, 2>, k.chroma[5] = chroma_c<2, 4>;
    k.chroma[6] = chroma_c<2, 2>;
    k.chroma_copy[0] = copy_c<8, 8>, k.chroma_copy[1] = copy_c<8, 4>, k.chroma_copy[2] = copy_c<4, 8>;
    k.chroma_copy[3] = copy_c<4, 4>, k.chroma_copy[4] = copy_c<4, 2>, k.chroma_copy[5] = copy_c<2, 4>;
    k.chroma_copy[6] = copy_c<2, 2>;
    k.weight[0] = weight_c<16>, k.weight[1] = weight_c<8>, k.weight[2] = weight_c<4>;
    k.weight[3] = weight_c<2>;
    for (int i = 0; i < kAvgWidths; ++i) k.weight_small[i] = k.weight[i];
    k.average[0] = average_c<16>, k.average[1] = average_c<8>, k.average[2] = average_c<4>;
    k.average[3] = average_c<2>;
    return k;
}

constexpr InterKernels kScalar = make_scalar();

constexpr Upgrade<InterKernels> kCascade[] = {{cpu::Isa::c, [](InterKernels& k) { k = kScalar; }},
                                              KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_inter},
                                                                 {cpu::Isa::ssse3, x86::ssse3::upgrade_inter},
                                                                 {cpu::Isa::avx2, x86::avx2::upgrade_inter})};

}  // namespace

InterKernels inter_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

const InterKernels& inter_kernels() { return active_table<InterKernels, inter_kernels_for>(); }

}  // namespace kplvc::h264

using kplvc::h264::inter_kernels;

extern "C" {

KPLVC_API KplStatus kpliInterpolateLuma_H264_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                    Kpl32s dstStep, Kpl32s xFrac, Kpl32s yFrac,
                                                    KpliSize roiSize) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1) return kplStsSizeErr;
    const int size = kplvc::h264::luma_size_index(roiSize.width, roiSize.height);
    if (size < 0) return kplStsBlockSizeErr;
    if (srcStep < roiSize.width || dstStep < roiSize.width) return kplStsStepErr;
    if (xFrac < 0 || xFrac > 3 || yFrac < 0 || yFrac > 3) return kplStsBadArgErr;
    inter_kernels().luma[size][4 * yFrac + xFrac](pSrc, srcStep, pDst, dstStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliInterpolateChroma_H264_8u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl8u* pDst,
                                                      Kpl32s dstStep, Kpl32s xFrac, Kpl32s yFrac,
                                                      KpliSize roiSize) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1) return kplStsSizeErr;
    const int size = kplvc::h264::chroma_size_index(roiSize.width, roiSize.height);
    if (size < 0) return kplStsBlockSizeErr;
    if (srcStep < roiSize.width || dstStep < roiSize.width) return kplStsStepErr;
    if (xFrac < 0 || xFrac > 7 || yFrac < 0 || yFrac > 7) return kplStsBadArgErr;
    const auto& k = inter_kernels();
    if (xFrac == 0 && yFrac == 0) {
        // Only the block itself may be read here.
        k.chroma_copy[size](pSrc, srcStep, pDst, dstStep);
    } else {
        k.chroma[size](pSrc, srcStep, pDst, dstStep, (8 - xFrac) * (8 - yFrac), xFrac * (8 - yFrac),
                       (8 - xFrac) * yFrac, xFrac * yFrac);
    }
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliWeightedAverage_H264_8u_C1IR(Kpl8u* pSrcDst, Kpl32s srcDstStep, const Kpl8u* pSrc,
                                                     Kpl32s srcStep, Kpl32s logWD, Kpl32s w0, Kpl32s w1,
                                                     Kpl32s o0, Kpl32s o1, KpliSize roiSize) {
    if (pSrcDst == nullptr || pSrc == nullptr) return kplStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1) return kplStsSizeErr;
    const int wi = kplvc::h264::avg_width_index(roiSize.width, roiSize.height);
    if (wi < 0) return kplStsBlockSizeErr;
    if (srcDstStep < roiSize.width || srcStep < roiSize.width) return kplStsStepErr;
    if (logWD < 0 || logWD > 7 || w0 < -128 || w0 > 128 || w1 < -128 || w1 > 128 || o0 < -128 || o0 > 127 ||
        o1 < -128 || o1 > 127)
        return kplStsOutOfRangeErr;
    const auto& k = inter_kernels();
    if (logWD == 0 && w0 == 1 && w1 == 1 && o0 == 0 && o1 == 0)
        k.average[wi](pSrcDst, srcDstStep, pSrc, srcStep, roiSize.height);
    else if (kplvc::h264::weights_fit_bytes(w0, w1))
        k.weight_small[wi](pSrcDst, srcDstStep, pSrc, srcStep, roiSize.height, w0, w1, logWD,
                           (o0 + o1 + 1) >> 1);
    else if (((w0 | w1) & 1) == 0 && logWD > 0)
        // Even weights beyond the byte kernel's range (the implicit pair 128 and
        // -64, for one): with X = p0 w0/2 + p1 w1/2, (2X + 2^k) >> (k + 1) is
        // (X + 2^(k-1)) >> k, and the halved weights always fit it.
        k.weight_small[wi](pSrcDst, srcDstStep, pSrc, srcStep, roiSize.height, w0 / 2, w1 / 2, logWD - 1,
                           (o0 + o1 + 1) >> 1);
    else
        k.weight[wi](pSrcDst, srcDstStep, pSrc, srcStep, roiSize.height, w0, w1, logWD, (o0 + o1 + 1) >> 1);
    return kplStsNoErr;
}

}  // extern "C"
