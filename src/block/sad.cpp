// Sums of absolute and squared differences: scalar reference kernels and the
// exported entry points.
//
// Ranges: a 16x16 SAD is at most 256 * 255 = 65280; a 16x16 sum of squares
// at most 256 * 255^2 = 16 646 400; both fit in int32 with room to spare.
// The per-sub-block SADs are at most 64 * 255 = 16320 (8x8) and
// 16 * 255 = 4080 (4x4), so their 16-bit cells never wrap.
#include <cstdlib>
#include <utility>

#include "block/metrics_table.h"
#include "core/arith.h"
#include "kplvc.h"

namespace kplvc::block {

namespace {

// The prediction of sample x of the row that starts at r, for a fixed
// position. No rounding control: half positions round up.
template <int P>
inline int32_t pred_at(const uint8_t* r, int32_t rs, int x) {
    if constexpr (P == kFF) {
        return r[x];
    } else if constexpr (P == kFH) {
        return (r[x] + row_at(r, rs, 1)[x] + 1) >> 1;
    } else if constexpr (P == kHF) {
        return (r[x] + r[x + 1] + 1) >> 1;
    } else {
        const uint8_t* r1 = row_at(r, rs, 1);
        return (r[x] + r[x + 1] + r1[x] + r1[x + 1] + 2) >> 2;
    }
}

template <int W, int H, int P>
int32_t sad_c(const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs) {
    int32_t sum = 0;
    for (int y = 0; y < H; ++y) {
        const uint8_t* s = row_at(src, ss, y);
        const uint8_t* r = row_at(ref, rs, y);
        for (int x = 0; x < W; ++x) sum += std::abs(s[x] - pred_at<P>(r, rs, x));
    }
    return sum;
}

template <int W, int H, int P>
int32_t sqr_c(const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs) {
    int32_t sum = 0;
    for (int y = 0; y < H; ++y) {
        const uint8_t* s = row_at(src, ss, y);
        const uint8_t* r = row_at(ref, rs, y);
        for (int x = 0; x < W; ++x) {
            const int32_t d = s[x] - pred_at<P>(r, rs, x);
            sum += d * d;
        }
    }
    return sum;
}

// One reference of the bidirectional prediction, written as the four-sample
// form: (r(x,y) + r(x+h,y) + r(x,y+v) + r(x+h,y+v) + k) >> 2 with h, v the
// half flags of the position and k = 2 for any half position (a full
// position then gives 4r >> 2 = r exactly).
template <int P>
inline int32_t bi_pred(const uint8_t* r, int32_t rs, int x) {
    constexpr int h = (P >> 1) & 1, v = P & 1, k = P != kFF ? 2 : 0;
    const uint8_t* rv = row_at(r, rs, v);
    return (r[x] + r[x + h] + rv[x] + rv[x + h] + k) >> 2;
}

template <int PF, int PB>
int32_t sqr_bi_c(const uint8_t* src, int32_t ss, const uint8_t* rf, int32_t fs, const uint8_t* rb,
                 int32_t bs) {
    int32_t sum = 0;
    for (int y = 0; y < 16; ++y) {
        const uint8_t* s = row_at(src, ss, y);
        const uint8_t* f = row_at(rf, fs, y);
        const uint8_t* b = row_at(rb, bs, y);
        for (int x = 0; x < 16; ++x) {
            const int32_t pred = (bi_pred<PF>(f, fs, x) + bi_pred<PB>(b, bs, x) + 1) >> 1;
            const int32_t d = pred - s[x];
            sum += d * d;
        }
    }
    return sum;
}

// Zeroed first, then every |cur - ref| added to its sub-block's cell.
template <int N>
void sub_sad_c(const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs, uint16_t* sads) {
    constexpr int per_row = 16 / N;
    for (int i = 0; i < per_row * per_row; ++i) sads[i] = 0;
    for (int y = 0; y < 16; ++y) {
        const uint8_t* s = row_at(src, ss, y);
        const uint8_t* r = row_at(ref, rs, y);
        for (int x = 0; x < 16; ++x) {
            uint16_t& cell = sads[(y / N) * per_row + x / N];
            cell = static_cast<uint16_t>(cell + std::abs(s[x] - r[x]));
        }
    }
}

template <int PF, int... PB>
constexpr void fill_bi_row(BiMetricFn* t, std::integer_sequence<int, PB...>) {
    ((t[PF | (PB << 2)] = sqr_bi_c<PF, PB>), ...);
}

}  // namespace

void scalar_sad_kernels(MetricsKernels& k) {
    k.sad16x16[kFF] = sad_c<16, 16, kFF>;
    k.sad16x16[kFH] = sad_c<16, 16, kFH>;
    k.sad16x16[kHF] = sad_c<16, 16, kHF>;
    k.sad16x16[kHH] = sad_c<16, 16, kHH>;
    k.sad8x8[kFF] = sad_c<8, 8, kFF>;
    k.sad8x8[kFH] = sad_c<8, 8, kFH>;
    k.sad8x8[kHF] = sad_c<8, 8, kHF>;
    k.sad8x8[kHH] = sad_c<8, 8, kHH>;
    k.sad4x4 = sad_c<4, 4, kFF>;
    k.sad16x16_blocks8x8 = sub_sad_c<8>;
    k.sad16x16_blocks4x4 = sub_sad_c<4>;
    k.sqr16x16[kFF] = sqr_c<16, 16, kFF>;
    k.sqr16x16[kFH] = sqr_c<16, 16, kFH>;
    k.sqr16x16[kHF] = sqr_c<16, 16, kHF>;
    k.sqr16x16[kHH] = sqr_c<16, 16, kHH>;
    constexpr std::integer_sequence<int, 0, 1, 2, 3> all{};
    fill_bi_row<kFF>(k.sqr16x16_bi, all);
    fill_bi_row<kFH>(k.sqr16x16_bi, all);
    fill_bi_row<kHF>(k.sqr16x16_bi, all);
    fill_bi_row<kHH>(k.sqr16x16_bi, all);
}

}  // namespace kplvc::block

using kplvc::block::metrics_table;

namespace {

// kpliSAD8x8_8u32s_C1R tests the exact values 0, 8 and 4; every other value
// is the centre of four.
inline int sad8x8_pos(Kpl32s mcType) {
    return mcType == 0   ? kplvc::block::kFF
           : mcType == 8 ? kplvc::block::kHF
           : mcType == 4 ? kplvc::block::kFH
                         : kplvc::block::kHH;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliSAD16x16_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                                       Kpl32s* pSAD, Kpl32s mcType) {
    if (pSrc == nullptr || pRef == nullptr) return kplStsNullPtrErr;
    if (pSAD == nullptr) return kplStsNoErr;  // not checked: nothing to write to
    // The table is indexed by mcType >> 2; the mask keeps values outside
    // 0..15 (which callers must not pass) inside the four entries.
    *pSAD = metrics_table().sad16x16[(mcType >> 2) & 3](pSrc, srcStep, pRef, refStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSAD8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                                         Kpl32s* pSAD, Kpl32s mcType) {
    if (pSrc == nullptr || pRef == nullptr) return kplStsNullPtrErr;
    if (pSAD == nullptr) return kplStsNoErr;  // not checked: nothing to write to
    *pSAD = metrics_table().sad8x8[sad8x8_pos(mcType)](pSrc, srcStep, pRef, refStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSAD4x4_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                                     Kpl32s* pSAD) {
    if (pSrc == nullptr || pRef == nullptr || pSAD == nullptr) return kplStsNullPtrErr;
    *pSAD = metrics_table().sad4x4(pSrc, srcStep, pRef, refStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSAD16x16Blocks8x8_8u16u(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, Kpl16u* pDstSAD) {
    if (pSrc == nullptr || pRef == nullptr || pDstSAD == nullptr) return kplStsNullPtrErr;
    metrics_table().sad16x16_blocks8x8(pSrc, srcStep, pRef, refStep, pDstSAD);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSAD16x16Blocks4x4_8u16u(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, Kpl16u* pDstSAD) {
    if (pSrc == nullptr || pRef == nullptr || pDstSAD == nullptr) return kplStsNullPtrErr;
    metrics_table().sad16x16_blocks4x4(pSrc, srcStep, pRef, refStep, pDstSAD);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSqrDiff16x16_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                           Kpl32s refStep, Kpl32s mcType, Kpl32s* pSqrDiff) {
    if (pSrc == nullptr || pRef == nullptr || pSqrDiff == nullptr) return kplStsNullPtrErr;
    *pSqrDiff = metrics_table().sqr16x16[(mcType & 12) >> 2](pSrc, srcStep, pRef, refStep);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliSqrDiff16x16B_8u32s(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRefF,
                                            Kpl32s refFStep, Kpl32s mcTypeF, const Kpl8u* pRefB,
                                            Kpl32s refBStep, Kpl32s mcTypeB, Kpl32s* pSqrDiff) {
    if (pSrc == nullptr || pRefF == nullptr || pRefB == nullptr || pSqrDiff == nullptr)
        return kplStsNullPtrErr;
    const int idx = ((mcTypeF & 12) >> 2) | (mcTypeB & 12);
    *pSqrDiff = metrics_table().sqr16x16_bi[idx](pSrc, srcStep, pRefF, refFStep, pRefB, refBStep);
    return kplStsNoErr;
}

}  // extern "C"
