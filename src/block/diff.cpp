// Block differences: scalar reference kernels and the exported functions.
//
// Ranges: predictions are 0..255, so cur - p lies in -255..255 and
// 2*cur - f - b in -510..510; every value fits Kpl16s without saturation.
#include <array>
#include <cstddef>
#include <utility>

#include "block/copy.h"
#include "core/arith.h"
#include "kplvc.h"

namespace kplvc::block {

namespace {

enum Pos : int { ff = 0, fh = 1, hf = 2, hh = 3 };

KPLVC_INLINE int32_t at(const uint8_t* p, int32_t step, int x, int y) { return row_at(p, step, y)[x]; }

template <Pos P>
KPLVC_INLINE int32_t predict(const uint8_t* r, int32_t step, int x, int y, int32_t rc) {
    const int32_t a = at(r, step, x, y);
    if constexpr (P == ff) {
        return a;
    } else if constexpr (P == fh) {
        return (a + at(r, step, x, y + 1) + 1 - rc) >> 1;
    } else if constexpr (P == hf) {
        return (a + at(r, step, x + 1, y) + 1 - rc) >> 1;
    } else {
        return (a + at(r, step, x + 1, y) + at(r, step, x, y + 1) + at(r, step, x + 1, y + 1) + 2 - rc) >> 2;
    }
}

KPLVC_INLINE void put16(int16_t* base, int32_t step, int x, int y, int32_t v) {
    store16(row_at(base, step, y) + x, static_cast<int16_t>(v));
}

template <int W, int H, Pos P>
void diff_c(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step, int16_t* diff,
            int32_t diff_step, int16_t* pred, int32_t pred_step, int32_t rc) {
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const int32_t p = predict<P>(ref, ref_step, x, y, rc);
            put16(diff, diff_step, x, y, at(cur, cur_step, x, y) - p);
            if (pred != nullptr) put16(pred, pred_step, x, y, p);
        }
}

template <int W, int H, Pos PF, Pos PB>
void diff_b_c(const uint8_t* cur, int32_t cur_step, const uint8_t* ref_f, int32_t step_f,
              const uint8_t* ref_b, int32_t step_b, int16_t* diff, int32_t diff_step, int32_t rc) {
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const int32_t f = predict<PF>(ref_f, step_f, x, y, rc);
            const int32_t b = predict<PB>(ref_b, step_b, x, y, rc);
            // Arithmetic shift of a possibly negative int32 (defined in C++20).
            put16(diff, diff_step, x, y, (2 * at(cur, cur_step, x, y) - f - b) >> 1);
        }
}

void diff4x4_c(const uint8_t* cur, int32_t cur_step, const uint8_t* ref, int32_t ref_step, int16_t* diff,
               int32_t diff_step) {
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            put16(diff, diff_step, x, y, at(cur, cur_step, x, y) - at(ref, ref_step, x, y));
}

struct Size {
    int w, h;
};
constexpr Size kSizes[kDiffShapeCount] = {{16, 16}, {16, 8}, {8, 16}, {8, 8}, {8, 4}};

template <int S>
constexpr std::array<DiffFn, 4> diff_row() {
    constexpr Size s = kSizes[S];
    return {diff_c<s.w, s.h, ff>, diff_c<s.w, s.h, fh>, diff_c<s.w, s.h, hf>, diff_c<s.w, s.h, hh>};
}

// Entry i: forward position i & 3, backward position i >> 2.
template <int S, std::size_t... I>
constexpr std::array<DiffBFn, 16> diff_b_row(std::index_sequence<I...>) {
    constexpr Size s = kSizes[S];
    return {diff_b_c<s.w, s.h, Pos(I & 3), Pos(I >> 2)>...};
}

// The scalar tables under their usual names.
template <int S>
constexpr std::array<DiffFn, 16> diff_table() {
    const std::array<DiffFn, 4> r = diff_row<S>();
    std::array<DiffFn, 16> t{};
    for (int i = 0; i < 16; ++i) t[i] = r[i >> 2];
    return t;
}
constexpr std::array<DiffFn, 16> GetDiff16x16FnTbl = diff_table<d16x16>();
constexpr std::array<DiffFn, 16> GetDiff16x8FnTbl = diff_table<d16x8>();
constexpr std::array<DiffFn, 16> GetDiff8x16FnTbl = diff_table<d8x16>();
constexpr std::array<DiffFn, 16> GetDiff8x8FnTbl = diff_table<d8x8>();
constexpr std::array<DiffFn, 16> GetDiff8x4FnTbl = diff_table<d8x4>();
constexpr std::array<DiffBFn, 16> GetDiff16x16BFnTbl = diff_b_row<d16x16>(std::make_index_sequence<16>());
constexpr std::array<DiffBFn, 16> GetDiff16x8BFnTbl = diff_b_row<d16x8>(std::make_index_sequence<16>());
constexpr std::array<DiffBFn, 16> GetDiff8x16BFnTbl = diff_b_row<d8x16>(std::make_index_sequence<16>());
constexpr std::array<DiffBFn, 16> GetDiff8x8BFnTbl = diff_b_row<d8x8>(std::make_index_sequence<16>());
constexpr std::array<DiffBFn, 16> GetDiff8x4BFnTbl = diff_b_row<d8x4>(std::make_index_sequence<16>());

constexpr const std::array<DiffFn, 16>* kDiffTables[kDiffShapeCount] = {
    &GetDiff16x16FnTbl, &GetDiff16x8FnTbl, &GetDiff8x16FnTbl, &GetDiff8x8FnTbl, &GetDiff8x4FnTbl};
constexpr const std::array<DiffBFn, 16>* kDiffBTables[kDiffShapeCount] = {
    &GetDiff16x16BFnTbl, &GetDiff16x8BFnTbl, &GetDiff8x16BFnTbl, &GetDiff8x8BFnTbl, &GetDiff8x4BFnTbl};

// Only the pointers are checked. The kernels see rc as 0 or 1 (any non-zero
// roundControl acts as 1).
KPLVC_INLINE KplStatus run_diff(DiffShape s, const Kpl8u* cur, Kpl32s cur_step, const Kpl8u* ref,
                                Kpl32s ref_step, Kpl16s* diff, Kpl32s diff_step, Kpl16s* pred,
                                Kpl32s pred_step, Kpl32s mc_type, Kpl32s rc) {
    if (cur == nullptr || ref == nullptr || diff == nullptr) return kplStsNullPtrErr;
    const int idx = (mc_type & 12) + (pred != nullptr ? 1 : 0);
    blockcopy_kernels().diff[s][idx](cur, cur_step, ref, ref_step, diff, diff_step, pred, pred_step,
                                     rc != 0 ? 1 : 0);
    return kplStsNoErr;
}

KPLVC_INLINE KplStatus run_diff_b(DiffShape s, const Kpl8u* cur, Kpl32s cur_step, const Kpl8u* ref_f,
                                  Kpl32s step_f, Kpl32s type_f, const Kpl8u* ref_b, Kpl32s step_b,
                                  Kpl32s type_b, Kpl16s* diff, Kpl32s diff_step, Kpl32s rc) {
    if (cur == nullptr || ref_f == nullptr || ref_b == nullptr || diff == nullptr) return kplStsNullPtrErr;
    blockcopy_kernels().diff_b[s][((type_f & 12) >> 2) | (type_b & 12)](
        cur, cur_step, ref_f, step_f, ref_b, step_b, diff, diff_step, rc != 0 ? 1 : 0);
    return kplStsNoErr;
}

}  // namespace

void install_scalar_diff(BlockCopyKernels& k) {
    for (int s = 0; s < kDiffShapeCount; ++s)
        for (int i = 0; i < 16; ++i) {
            k.diff[s][i] = (*kDiffTables[s])[i];
            k.diff_b[s][i] = (*kDiffBTables[s])[i];
        }
    k.diff4x4 = diff4x4_c;
}

}  // namespace kplvc::block

using namespace kplvc::block;

#define KPLVC_DIFF_ARGS                                                                                 \
    const Kpl8u *pSrcCur, Kpl32s srcCurStep, const Kpl8u *pSrcRef, Kpl32s srcRefStep, Kpl16s *pDstDiff, \
        Kpl32s dstDiffStep, Kpl16s *pDstPredictor, Kpl32s dstPredictorStep, Kpl32s mcType,              \
        Kpl32s roundControl
#define KPLVC_DIFF_PASS                                                                               \
    pSrcCur, srcCurStep, pSrcRef, srcRefStep, pDstDiff, dstDiffStep, pDstPredictor, dstPredictorStep, \
        mcType, roundControl
#define KPLVC_DIFFB_ARGS                                                                                 \
    const Kpl8u *pSrcCur, Kpl32s srcCurStep, const Kpl8u *pSrcRefF, Kpl32s srcRefFStep, Kpl32s mcTypeF,  \
        const Kpl8u *pSrcRefB, Kpl32s srcRefBStep, Kpl32s mcTypeB, Kpl16s *pDstDiff, Kpl32s dstDiffStep, \
        Kpl32s roundControl
#define KPLVC_DIFFB_PASS                                                                           \
    pSrcCur, srcCurStep, pSrcRefF, srcRefFStep, mcTypeF, pSrcRefB, srcRefBStep, mcTypeB, pDstDiff, \
        dstDiffStep, roundControl

extern "C" {

KPLVC_API KplStatus kpliGetDiff16x16_8u16s_C1(KPLVC_DIFF_ARGS) { return run_diff(d16x16, KPLVC_DIFF_PASS); }
KPLVC_API KplStatus kpliGetDiff16x8_8u16s_C1(KPLVC_DIFF_ARGS) { return run_diff(d16x8, KPLVC_DIFF_PASS); }
KPLVC_API KplStatus kpliGetDiff8x16_8u16s_C1(KPLVC_DIFF_ARGS) { return run_diff(d8x16, KPLVC_DIFF_PASS); }
KPLVC_API KplStatus kpliGetDiff8x8_8u16s_C1(KPLVC_DIFF_ARGS) { return run_diff(d8x8, KPLVC_DIFF_PASS); }
KPLVC_API KplStatus kpliGetDiff8x4_8u16s_C1(KPLVC_DIFF_ARGS) { return run_diff(d8x4, KPLVC_DIFF_PASS); }

KPLVC_API KplStatus kpliGetDiff16x16B_8u16s_C1(KPLVC_DIFFB_ARGS) {
    return run_diff_b(d16x16, KPLVC_DIFFB_PASS);
}
KPLVC_API KplStatus kpliGetDiff16x8B_8u16s_C1(KPLVC_DIFFB_ARGS) {
    return run_diff_b(d16x8, KPLVC_DIFFB_PASS);
}
KPLVC_API KplStatus kpliGetDiff8x16B_8u16s_C1(KPLVC_DIFFB_ARGS) {
    return run_diff_b(d8x16, KPLVC_DIFFB_PASS);
}
KPLVC_API KplStatus kpliGetDiff8x8B_8u16s_C1(KPLVC_DIFFB_ARGS) { return run_diff_b(d8x8, KPLVC_DIFFB_PASS); }
KPLVC_API KplStatus kpliGetDiff8x4B_8u16s_C1(KPLVC_DIFFB_ARGS) { return run_diff_b(d8x4, KPLVC_DIFFB_PASS); }

KPLVC_API KplStatus kpliGetDiff4x4_8u16s_C1(const Kpl8u* pSrcCur, Kpl32s srcCurStep, const Kpl8u* pSrcRef,
                                            Kpl32s srcRefStep, Kpl16s* pDstDiff, Kpl32s dstDiffStep) {
    if (pSrcCur == nullptr || pSrcRef == nullptr || pDstDiff == nullptr) return kplStsNullPtrErr;
    blockcopy_kernels().diff4x4(pSrcCur, srcCurStep, pSrcRef, srcRefStep, pDstDiff, dstDiffStep);
    return kplStsNoErr;
}

}  // extern "C"
