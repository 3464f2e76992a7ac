// Motion compensation: argument checks, the kernel tables and the scalar
// reference kernels.
//
// Value ranges: samples are 0..255, so a two-sample sum is at most 510 and a
// four-sample sum at most 1020. The residual is any Kpl16s; p + r lies in
// -32768..33022 and 2*r + pF + pB + 1 in -65536..66045, both far inside int32,
// so the sums are formed exactly in int32 and only then clipped to 0..255.
#include "mc/mc.h"

#include <array>
#include <cstddef>
#include <utility>

#include "core/arith.h"
#include "core/dispatch.h"
#include "kplvc.h"

namespace kplvc::mc {

namespace {

// Sample (x, y) of a block addressed by a byte step.
KPLVC_INLINE int32_t at(const uint8_t* p, int32_t step, int x, int y) { return row_at(p, step, y)[x]; }

// The interpolated prediction of sample (x, y): a = R(x, y), b = R(x+DX, y),
// c = R(x, y+1), d = R(x+DX, y+1); DX is 2 for interleaved chroma.
template <int DX, Pos P>
KPLVC_INLINE int32_t predict(const uint8_t* r, int32_t step, int x, int y, int32_t rc) {
    const int32_t a = at(r, step, x, y);
    if constexpr (P == ff) {
        return a;
    } else if constexpr (P == fh) {
        return (a + at(r, step, x, y + 1) + 1 - rc) >> 1;
    } else if constexpr (P == hf) {
        return (a + at(r, step, x + DX, y) + 1 - rc) >> 1;
    } else {
        return (a + at(r, step, x + DX, y) + at(r, step, x, y + 1) + at(r, step, x + DX, y + 1) + 2 - rc) >>
               2;
    }
}

// Byte-average construction used by the 16x16, 8x16, 8x8 and 8x4
// two-reference functions. avg rounds half up, dec never goes below zero.
// Only the two-dimensional case differs from the exact interpolation, and the
// forward and backward references place the decrement differently:
//   rc 0: forward avg(top, dec(bottom)),      backward avg(dec(top), bottom)
//   rc 1: forward avg(dec(bottom), dec(top)), backward avg(top, dec(bottom))
// with top = avg(a, b) and bottom = avg(c, d). A one-dimensional half-sample
// prediction is the exact interpolation for both rounding controls (at rc 0
// that is avg(a, b) or avg(a, c) itself; at rc 1 it is (a + b) >> 1).
KPLVC_INLINE int32_t bavg(int32_t x, int32_t y) { return (x + y + 1) >> 1; }
KPLVC_INLINE int32_t bdec(int32_t x) { return x > 0 ? x - 1 : 0; }

template <int DX, Pos P, bool Forward>
KPLVC_INLINE int32_t predict_bytes(const uint8_t* r, int32_t step, int x, int y, int32_t rc) {
    if constexpr (P != hh) {
        return predict<DX, P>(r, step, x, y, rc);
    } else {
        const int32_t top = bavg(at(r, step, x, y), at(r, step, x + DX, y));
        const int32_t bottom = bavg(at(r, step, x, y + 1), at(r, step, x + DX, y + 1));
        if (Forward) return rc == 0 ? bavg(top, bdec(bottom)) : bavg(bdec(bottom), bdec(top));
        return rc == 0 ? bavg(bdec(top), bottom) : bavg(top, bdec(bottom));
    }
}

KPLVC_INLINE int32_t residual(const int16_t* res, int32_t step, int x, int y) {
    return load16(row_at(res, step, y) + x);
}

template <int W, int H, int DX, Pos P>
void mc_c(const uint8_t* ref, int32_t ref_step, const int16_t* res, int32_t res_step, uint8_t* dst,
          int32_t dst_step, int32_t rc) {
    for (int y = 0; y < H; ++y) {
        uint8_t* out = row_at(dst, dst_step, y);
        for (int x = 0; x < W; ++x)
            out[x] = clip_u8(predict<DX, P>(ref, ref_step, x, y, rc) + residual(res, res_step, x, y));
    }
}

template <int W, int H, int DX, Pos PF, Pos PB, bool Bytes>
void mcb_c(const uint8_t* ref_f, int32_t step_f, const uint8_t* ref_b, int32_t step_b, const int16_t* res,
           int32_t res_step, uint8_t* dst, int32_t dst_step, int32_t rc) {
    for (int y = 0; y < H; ++y) {
        uint8_t* out = row_at(dst, dst_step, y);
        for (int x = 0; x < W; ++x) {
            int32_t pf, pb;
            if constexpr (Bytes) {
                pf = predict_bytes<DX, PF, true>(ref_f, step_f, x, y, rc);
                pb = predict_bytes<DX, PB, false>(ref_b, step_b, x, y, rc);
            } else {
                pf = predict<DX, PF>(ref_f, step_f, x, y, rc);
                pb = predict<DX, PB>(ref_b, step_b, x, y, rc);
            }
            // Arithmetic shift of a possibly negative int32 (defined in C++20).
            out[x] = clip_u8((2 * residual(res, res_step, x, y) + pf + pb + 1) >> 1);
        }
    }
}

struct Geometry {
    int w, h, dx;
};
constexpr Geometry kGeometry[kShapeCount] = {
    {16, 16, 1}, {16, 8, 1}, {16, 8, 2}, {16, 4, 2}, {8, 16, 1}, {8, 8, 1},
    {8, 4, 1},   {4, 8, 1},  {4, 4, 1},  {4, 2, 1},  {2, 4, 1},  {2, 2, 1},
};

template <Shape S>
constexpr std::array<McFn, 4> single_row() {
    constexpr Geometry g = kGeometry[S];
    return {mc_c<g.w, g.h, g.dx, ff>, mc_c<g.w, g.h, g.dx, fh>, mc_c<g.w, g.h, g.dx, hf>,
            mc_c<g.w, g.h, g.dx, hh>};
}

// Entry i: forward position i & 3, backward position i >> 2.
template <Shape S, std::size_t... I>
constexpr std::array<McBFn, 16> bidir_row(std::index_sequence<I...>) {
    constexpr Geometry g = kGeometry[S];
    return {mcb_c<g.w, g.h, g.dx, Pos(I & 3), Pos(I >> 2), uses_byte_average(S)>...};
}

template <int W, Pos P>
void copy_c(const uint8_t* ref, int32_t ref_step, uint8_t* dst, int32_t dst_step) {
    for (int y = 0; y < W; ++y)
        for (int x = 0; x < W; ++x)
            row_at(dst, dst_step, y)[x] = static_cast<uint8_t>(predict<1, P>(ref, ref_step, x, y, 0));
}

template <std::size_t... S>
constexpr McKernels scalar_table(std::index_sequence<S...>) {
    McKernels k{};
    k.copy[c16x16][ff] = copy_c<16, ff>;
    k.copy[c16x16][fh] = copy_c<16, fh>;
    k.copy[c16x16][hf] = copy_c<16, hf>;
    k.copy[c16x16][hh] = copy_c<16, hh>;
    k.copy[c8x8][ff] = copy_c<8, ff>;
    k.copy[c8x8][fh] = copy_c<8, fh>;
    k.copy[c8x8][hf] = copy_c<8, hf>;
    k.copy[c8x8][hh] = copy_c<8, hh>;
    const std::array<McFn, 4> singles[] = {single_row<Shape(S)>()...};
    const std::array<McBFn, 16> bidirs[] = {bidir_row<Shape(S)>(std::make_index_sequence<16>())...};
    for (int s = 0; s < kShapeCount; ++s) {
        for (int i = 0; i < 4; ++i) k.single[s][i] = singles[s][i];
        for (int i = 0; i < 16; ++i) k.bidir[s][i] = bidirs[s][i];
    }
    return k;
}

constexpr McKernels kScalar = scalar_table(std::make_index_sequence<kShapeCount>());

constexpr Upgrade<McKernels> kCascade[] = {
    {cpu::Isa::c, [](McKernels& k) { k = kScalar; }},
    KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_mc}, {cpu::Isa::avx2, x86::avx2::upgrade_mc})};

// The only checks: the three (or four) pointers. Steps, mcType and
// roundControl are trusted; the kernels see rc as 0 or 1 (any non-zero
// roundControl acts as 1), which also keeps 1 - rc and 2 - rc from
// overflowing whatever the caller passes.
KPLVC_INLINE KplStatus run_single(Shape s, const Kpl8u* ref, Kpl32s ref_step, const Kpl16s* res,
                                  Kpl32s res_step, Kpl8u* dst, Kpl32s dst_step, Kpl32s mc_type, Kpl32s rc) {
    if (ref == nullptr || res == nullptr || dst == nullptr) return kplStsNullPtrErr;
    mc_kernels().single[s][(mc_type & 12) >> 2](ref, ref_step, res, res_step, dst, dst_step, rc != 0 ? 1 : 0);
    return kplStsNoErr;
}

KPLVC_INLINE KplStatus run_bidir(Shape s, const Kpl8u* ref_f, Kpl32s step_f, Kpl32s type_f,
                                 const Kpl8u* ref_b, Kpl32s step_b, Kpl32s type_b, const Kpl16s* res,
                                 Kpl32s res_step, Kpl8u* dst, Kpl32s dst_step, Kpl32s rc) {
    if (ref_f == nullptr || ref_b == nullptr || res == nullptr || dst == nullptr) return kplStsNullPtrErr;
    mc_kernels().bidir[s][((type_f & 12) >> 2) | (type_b & 12)](ref_f, step_f, ref_b, step_b, res, res_step,
                                                                dst, dst_step, rc != 0 ? 1 : 0);
    return kplStsNoErr;
}

}  // namespace

McKernels mc_kernels_for(cpu::Isa isa) { return build_table(kCascade, isa); }

}  // namespace kplvc::mc

using namespace kplvc::mc;

#define KPLVC_MC_ARGS                                                                                \
    const Kpl8u *pSrcRef, Kpl32s srcStep, const Kpl16s *pSrcYData, Kpl32s srcYDataStep, Kpl8u *pDst, \
        Kpl32s dstStep, Kpl32s mcType, Kpl32s roundControl
#define KPLVC_MCB_ARGS                                                                              \
    const Kpl8u *pSrcRefF, Kpl32s srcStepF, Kpl32s mcTypeF, const Kpl8u *pSrcRefB, Kpl32s srcStepB, \
        Kpl32s mcTypeB, const Kpl16s *pSrcYData, Kpl32s srcYDataStep, Kpl8u *pDst, Kpl32s dstStep,  \
        Kpl32s roundControl

namespace {
KPLVC_INLINE KplStatus single(Shape s, KPLVC_MC_ARGS) {
    return run_single(s, pSrcRef, srcStep, pSrcYData, srcYDataStep, pDst, dstStep, mcType, roundControl);
}
KPLVC_INLINE KplStatus bidir(Shape s, KPLVC_MCB_ARGS) {
    return run_bidir(s, pSrcRefF, srcStepF, mcTypeF, pSrcRefB, srcStepB, mcTypeB, pSrcYData, srcYDataStep,
                     pDst, dstStep, roundControl);
}
}  // namespace

#define KPLVC_MC_PASS pSrcRef, srcStep, pSrcYData, srcYDataStep, pDst, dstStep, mcType, roundControl
#define KPLVC_MCB_PASS                                                                                \
    pSrcRefF, srcStepF, mcTypeF, pSrcRefB, srcStepB, mcTypeB, pSrcYData, srcYDataStep, pDst, dstStep, \
        roundControl

extern "C" {

KPLVC_API KplStatus kpliMC16x16_8u_C1(KPLVC_MC_ARGS) { return single(s16x16, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC16x8_8u_C1(KPLVC_MC_ARGS) { return single(s16x8, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC16x8UV_8u_C1(KPLVC_MC_ARGS) { return single(s16x8uv, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC16x4_8u_C1(KPLVC_MC_ARGS) { return single(s16x4uv, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC8x16_8u_C1(KPLVC_MC_ARGS) { return single(s8x16, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC8x8_8u_C1(KPLVC_MC_ARGS) { return single(s8x8, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC8x4_8u_C1(KPLVC_MC_ARGS) { return single(s8x4, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC4x8_8u_C1(KPLVC_MC_ARGS) { return single(s4x8, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC4x4_8u_C1(KPLVC_MC_ARGS) { return single(s4x4, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC4x2_8u_C1(KPLVC_MC_ARGS) { return single(s4x2, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC2x4_8u_C1(KPLVC_MC_ARGS) { return single(s2x4, KPLVC_MC_PASS); }
KPLVC_API KplStatus kpliMC2x2_8u_C1(KPLVC_MC_ARGS) { return single(s2x2, KPLVC_MC_PASS); }

KPLVC_API KplStatus kpliMC16x16B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s16x16, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC16x8B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s16x8, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC16x8BUV_8u_C1(KPLVC_MCB_ARGS) { return bidir(s16x8uv, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC16x4B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s16x4uv, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC8x16B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s8x16, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC8x8B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s8x8, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC8x4B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s8x4, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC4x8B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s4x8, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC4x4B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s4x4, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC4x2B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s4x2, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC2x4B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s2x4, KPLVC_MCB_PASS); }
KPLVC_API KplStatus kpliMC2x2B_8u_C1(KPLVC_MCB_ARGS) { return bidir(s2x2, KPLVC_MCB_PASS); }

}  // extern "C"
