// H.264 4x4 transforms and dequantisation: the scalar reference kernels, the
// kernel table and the decoder-side and SP/SI entry points.
//
// Value ranges. The decoder side takes arbitrary 16-bit levels: a level times
// its scale (at most 5888) fits in int32 and is then cut to 16 bits, and
// every butterfly stage of the transforms is cut to 16 bits as well, so any
// input gives the results a 16-bit SIMD machine produces. The SP/SI
// requantisation is evaluated exactly in 64 bits (a level times scale times
// norm reaches 2^32) and only the stored coefficients are cut to 16 bits.
#include "h264/transform.h"

#include <cstdlib>

#include "core/arith.h"
#include "core/dispatch.h"
#include "h264/transform_tables.h"
#include "kplvc.h"

namespace kplvc::h264 {

namespace {

// One line of the inverse core transform, 16-bit wrap at every stage.
inline void inv_line(int16_t& x0, int16_t& x1, int16_t& x2, int16_t& x3) {
    const int16_t e = addw16(x0, x2), f = subw16(x0, x2);
    const int16_t g = subw16(static_cast<int16_t>(x1 >> 1), x3);
    const int16_t h = addw16(x1, static_cast<int16_t>(x3 >> 1));
    x0 = addw16(e, h);
    x1 = addw16(f, g);
    x2 = subw16(f, g);
    x3 = subw16(e, h);
}

// One line of the forward core transform, 16-bit wrap at every stage.
inline void fwd_line(int16_t& x0, int16_t& x1, int16_t& x2, int16_t& x3) {
    const int16_t s = addw16(x0, x3), t = addw16(x1, x2);
    const int16_t d = subw16(x0, x3), u = subw16(x1, x2);
    x0 = addw16(s, t);
    x1 = addw16(addw16(d, d), u);
    x2 = subw16(s, t);
    x3 = subw16(d, addw16(u, u));
}

// (v + 32) >> 6 with the addition in 16 bits.
inline int16_t round6(int16_t v) { return static_cast<int16_t>(addw16(v, 32) >> 6); }

// Rows first, then columns.
template <class Line>
void rows_then_columns(int16_t* b, Line line) {
    for (int r = 0; r < 4; ++r) line(b[4 * r], b[4 * r + 1], b[4 * r + 2], b[4 * r + 3]);
    for (int c = 0; c < 4; ++c) line(b[c], b[4 + c], b[8 + c], b[12 + c]);
}

// 2x2 Hadamard on (c0, c1 / c2, c3), 16-bit wrap.
inline void hadamard2x2(int16_t c[4]) {
    const int16_t a = addw16(c[0], c[1]), b = subw16(c[0], c[1]);
    const int16_t d = addw16(c[2], c[3]), e = subw16(c[2], c[3]);
    c[0] = addw16(a, d);
    c[1] = addw16(b, e);
    c[2] = subw16(a, d);
    c[3] = subw16(b, e);
}

}  // namespace

// 4x4 Hadamard line: rows 1,1,1,1 / 1,1,-1,-1 / 1,-1,-1,1 / 1,-1,1,-1.
void hadamard_line(int16_t& x0, int16_t& x1, int16_t& x2, int16_t& x3) {
    const int16_t a = addw16(x0, x1), b = subw16(x0, x1);
    const int16_t c = addw16(x2, x3), d = subw16(x2, x3);
    x0 = addw16(a, c);
    x1 = subw16(a, c);
    x2 = subw16(b, d);
    x3 = addw16(b, d);
}

// Columns first, then rows.
void hadamard4x4(int16_t* b) {
    for (int c = 0; c < 4; ++c) hadamard_line(b[c], b[4 + c], b[8 + c], b[12 + c]);
    for (int r = 0; r < 4; ++r) hadamard_line(b[4 * r], b[4 * r + 1], b[4 * r + 2], b[4 * r + 3]);
}

void hadamard2(int16_t* c) { hadamard2x2(c); }

namespace ref {

void inverse4x4(int16_t* b) {
    rows_then_columns(b, inv_line);
    for (int i = 0; i < 16; ++i) b[i] = round6(b[i]);
}

void forward4x4(int16_t* b) { rows_then_columns(b, fwd_line); }

// Gathers the strided block, dequantises it and transforms it.
void dequant_residual(int16_t* coef, int32_t step, const int16_t* dc, const int16_t* scale) {
    int16_t b[16];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) b[4 * r + c] = load16(row_at(coef, step, r) + c);
    for (int i = 0; i < 16; ++i) b[i] = mullo16(b[i], scale[i]);
    if (dc != nullptr) b[0] = *dc;
    inverse4x4(b);
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) store16(row_at(coef, step, r) + c, b[4 * r + c]);
}

int32_t dequant_residual_add(const uint8_t* pred, int16_t* coef, const int16_t* dc, uint8_t* dst, Steps steps,
                             const int16_t* scale) {
    dequant_residual(coef, 8, dc, scale);
    for (int r = 0; r < 4; ++r) {
        const uint8_t* p = pred + static_cast<intptr_t>(steps.pred) * r;
        uint8_t* d = dst + static_cast<intptr_t>(steps.dst) * r;
        for (int c = 0; c < 4; ++c) {
            const int32_t res = clip3(-256, 256, coef[4 * r + c]);
            d[c] = ClampTbl[static_cast<std::size_t>(256 + p[c] + res)];
        }
    }
    return kplStsNoErr;
}

void add_dc(const uint8_t* pred, int32_t pred_step, uint8_t* dst, int32_t dst_step, int16_t r) {
    const int32_t lim = clip3(-256, 256, r);
    for (int y = 0; y < 4; ++y) {
        const uint8_t* p = pred + static_cast<intptr_t>(pred_step) * y;
        uint8_t* d = dst + static_cast<intptr_t>(dst_step) * y;
        for (int x = 0; x < 4; ++x) d[x] = ClampTbl[static_cast<std::size_t>(256 + p[x] + lim)];
    }
}

// |y| <= 32768 and m <= 896: the product and the rounding fit in int32.
void dequant_luma_dc(int16_t* b, int32_t m, int32_t r, int32_t s) {
    hadamard4x4(b);
    for (int i = 0; i < 16; ++i) b[i] = wrap16((b[i] * m + r) >> s);
}

}  // namespace ref

namespace {

constexpr XformKernels kScalar = {ref::dequant_residual,
                                  ref::dequant_residual_add,
                                  ref::add_dc,
                                  ref::dequant_luma_dc,
                                  ref::forward4x4,
                                  ref::transform_quant_residual,
                                  ref::transform_quant_luma_dc,
                                  ref::transform_quant_chroma_dc};

constexpr Upgrade<XformKernels> kCascade[] = {{cpu::Isa::c, [](XformKernels& k) { k = kScalar; }},
                                              KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_xform},
                                                                 {cpu::Isa::avx2, x86::avx2::upgrade_xform})};

}  // namespace

// Kept out of line: the entry points inline xform_kernels(), and the one-time
// build of the table must not bring its setup into their fast path.
[[gnu::noinline, gnu::cold]] XformKernels xform_kernels_for(cpu::Isa isa) {
    return build_table(kCascade, isa);
}

const XformKernels& xform_kernels() { return active_table<XformKernels, xform_kernels_for>(); }

// Fills 16 residual outputs (rows `step` bytes apart) with one value.
static void fill_strided(int16_t* coef, int32_t step, int16_t v) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) store16(row_at(coef, step, r) + c, v);
}

// The AC-free path of kpliDequantTransformResidualAndAdd_H264_16s_C1I: one DC
// residual for the whole block. Out of line, so that the AC path of the entry
// point needs no stack frame and hands over to its kernel with a jump.
[[gnu::noinline]] static KplStatus add_dc_only(const uint8_t* pred, int16_t* coef, const int16_t* dc,
                                               uint8_t* dst, Steps steps, const int16_t* scale) {
    const int16_t res = round6(dc != nullptr ? *dc : mullo16(coef[0], scale[0]));
    if (coef != nullptr)
        for (int i = 0; i < 16; ++i) coef[i] = res;
    xform_kernels().add_dc(pred, steps.pred, dst, steps.dst, res);
    return kplStsNoErr;
}

// SP/SI requantisation of one transform-domain value c at a position of class
// `cls`: L = (|c| * mf + f) >> qbits, then the level rescaled for QS, negative
// unless c > 0. |c| < 2^34 and mf < 2^14, so the product fits in int64.
static int16_t requant(int64_t c, int32_t mf, int32_t qbits, int32_t qs, int32_t cls) {
    const int64_t mag = c < 0 ? -c : c;
    const int64_t L = (mag * mf + (int64_t{1} << (qbits - 1))) >> qbits;
    const int64_t v = L * inv_quant_at(qs, cls);
    return static_cast<int16_t>(c > 0 ? v : -v);  // modular: the low 16 bits
}

}  // namespace kplvc::h264

using namespace kplvc;
using namespace kplvc::h264;

extern "C" {

KPLVC_API KplStatus kpliTransformDequantLumaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (QP < 0 || QP > 51) return kplStsOutOfRangeErr;
    // Low QPs divide with rounding, QP 12 and up multiply only (the table
    // already holds the left shift).
    const int32_t s = QP < 6 ? 2 : (QP < 12 ? 1 : 0);
    const int32_t r = s == 0 ? 0 : 1 << (s - 1);
    xform_kernels().dequant_luma_dc(pSrcDst, InvQuantLuma16x16DCTable[static_cast<std::size_t>(QP)], r, s);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliTransformDequantChromaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (QP < 0 || QP > 51) return kplStsOutOfRangeErr;
    int16_t c[4] = {pSrcDst[0], pSrcDst[1], pSrcDst[2], pSrcDst[3]};
    hadamard2(c);
    const int32_t m = InvQuantTable[static_cast<std::size_t>(3 * QP)];
    for (int i = 0; i < 4; ++i) pSrcDst[i] = wrap16((c[i] * m) >> 1);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDequantTransformResidual_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s step, const Kpl16s* pDC,
                                                              Kpl32s AC, Kpl32s QP) {
    if (pSrcDst == nullptr) return kplStsNullPtrErr;
    if (QP < 0 || QP > 51) return kplStsOutOfRangeErr;
    if (step < 8) return kplStsStepErr;
    const int16_t* scale = kDequant16[static_cast<std::size_t>(QP)].data();
    if (AC == 0) {
        const int16_t dc = pDC != nullptr ? *pDC : mullo16(pSrcDst[0], scale[0]);
        fill_strided(pSrcDst, step, round6(dc));
        return kplStsNoErr;
    }
    xform_kernels().dequant_residual(pSrcDst, step, pDC, scale);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDequantTransformResidualAndAdd_H264_16s_C1I(const Kpl8u* pPred, Kpl16s* pSrcDst,
                                                                    const Kpl16s* pDC, Kpl8u* pDst,
                                                                    Kpl32s PredStep, Kpl32s DstStep,
                                                                    Kpl32s QP, Kpl32s AC) {
    if (pPred == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (QP < 0 || QP > 51) return kplStsOutOfRangeErr;
    if (pSrcDst == nullptr && pDC == nullptr) return kplStsNullPtrErr;
    const int16_t* scale = kDequant16[static_cast<std::size_t>(QP)].data();
    if (AC == 0 || pSrcDst == nullptr)
        return add_dc_only(pPred, pSrcDst, pDC, pDst, Steps{PredStep, DstStep}, scale);
    return xform_kernels().dequant_residual_add(pPred, pSrcDst, pDC, pDst, Steps{PredStep, DstStep}, scale);
}

KPLVC_API KplStatus kpliTransformPrediction_H264_8u16s_C1(const Kpl8u* pSrc, Kpl32s step, Kpl16s* pDst) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    int16_t b[16];
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) b[4 * r + c] = pSrc[static_cast<intptr_t>(step) * r + c];
    xform_kernels().forward4x4(b);
    for (int i = 0; i < 16; ++i) pDst[i] = b[i];
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDequantTransformResidual_SISP_H264_16s_C1I(Kpl16s* pSrcDst,
                                                                   const Kpl16s* pPredictBlock,
                                                                   const Kpl16s* pDC, Kpl32s AC, Kpl32s qp,
                                                                   Kpl32s qs, Kpl32s Switch) {
    if (pSrcDst == nullptr || pPredictBlock == nullptr) return kplStsNullPtrErr;
    const int32_t qpx = Switch != 0 ? qs : qp;
    const int32_t qbits = qp_div6(qs) + 15;  // 15..23 whatever qs is
    const int32_t rem = qp_mod6(qs);
    int16_t b[16];
    if (pDC != nullptr) {
        b[0] = *pDC;
    } else {
        const int64_t c = ((int64_t{inv_quant_at(qpx, 0)} * 16 * pSrcDst[0]) >> 6) + pPredictBlock[0];
        b[0] = requant(c, QuantCoef[static_cast<std::size_t>(16 * rem)], qbits, qs, 0);
    }
    for (int p = 1; p < 16; ++p) {
        const int32_t cls = QuantIndex[p];
        int64_t c = pPredictBlock[p];
        if (AC != 0) c += (int64_t{pSrcDst[p]} * inv_quant_at(qpx, cls) * MATR[p]) >> 6;
        b[p] = requant(c, QuantCoef[static_cast<std::size_t>(16 * rem + p)], qbits, qs, cls);
    }
    ref::inverse4x4(b);
    for (int i = 0; i < 16; ++i) pSrcDst[i] = clip_u8(b[i]);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliTransformDequantChromaDC_SISP_H264_16s_C1I(Kpl16s* pSrcDst, const Kpl16s* pDCPredict,
                                                                   Kpl32s qp, Kpl32s qs, Kpl32s Switch) {
    if (pSrcDst == nullptr || pDCPredict == nullptr) return kplStsNullPtrErr;
    const int32_t qpx = Switch != 0 ? qs : qp;
    int16_t P[4] = {pDCPredict[0], pDCPredict[1], pDCPredict[2], pDCPredict[3]};
    hadamard2(P);
    const int64_t M = int64_t{inv_quant_at(qpx, 0)} * 16;
    const int32_t per = qp_div6(qs);
    const int32_t mf = QuantCoef[static_cast<std::size_t>(16 * qp_mod6(qs))];
    int16_t d[4];
    for (int k = 0; k < 4; ++k) {
        const int64_t c = ((pSrcDst[k] * M) >> 5) + P[k];
        const int64_t mag = c < 0 ? -c : c;
        const int64_t L = (mag * mf + (int64_t{1} << (per + 15))) >> (per + 16);
        const int64_t v = L * inv_quant_at(qs, 0);
        d[k] = static_cast<int16_t>(c > 0 ? v : -v);  // modular: the low 16 bits
    }
    hadamard2(d);
    for (int k = 0; k < 4; ++k) pSrcDst[k] = static_cast<int16_t>(d[k] >> 1);
    return kplStsNoErr;
}

}  // extern "C"
