// H.264 forward quantisers: the residual kernel's scalar reference and the
// three encoder-side entry points.
//
// Value ranges: a magnitude is at most 32768 and a multiplier at most 13107,
// so |c| * mf < 2^29 and adding a rounding offset below 2^23 stays in int32.
// The largest possible level, (32768 * 13107 + round) >> 15, is about 13107,
// so the 16-bit saturation is written down for fidelity but never bites; the
// 2063 limit is the one that matters.
#include <array>
#include <climits>
#include <cstddef>

#include "core/arith.h"
#include "core/dispatch.h"
#include "h264/transform.h"
#include "h264/transform_tables.h"
#include "kplvc.h"

namespace kplvc::h264 {

namespace {

constexpr int32_t kMaxLevel = 2063;

// What the residual quantiser needs for one QP, looked up once instead of a
// division by 6 and one by 3 or 6 per call: the multiplier row of QP mod 6,
// the rounding floor(2^shift / 6) (inter) and floor(2^shift / 3) (intra), and
// shift = QP div 6 + 15.
struct ResidualQuant {
    const int16_t* mf;
    Rounding rs[2];
};

constexpr auto kResidualQuant = [] {
    std::array<ResidualQuant, 52> t{};
    for (int qp = 0; qp < 52; ++qp) {
        const int32_t shift = qp / 6 + 15;
        t[static_cast<std::size_t>(qp)] = {
            kQuant16[static_cast<std::size_t>(qp % 6)].data(),
            {Rounding{(int32_t{1} << shift) / 6, shift}, Rounding{(int32_t{1} << shift) / 3, shift}}};
    }
    return t;
}();

// L = sat16((|c| * mf + round) >> shift).
inline int32_t level_mag(int16_t c, int32_t mf, int32_t round, int32_t shift) {
    const int32_t mag = c < 0 ? -int32_t{c} : int32_t{c};
    return sat16((mag * mf + round) >> shift);
}

inline int16_t with_sign(int16_t c, int32_t L) { return static_cast<int16_t>(c < 0 ? -L : L); }

// Level count (negated when level 0 is non-zero, stored as a two's-complement
// byte) and the largest scan index among the non-zero levels, 7 bits.
void count_and_last(const int16_t* lv, const int16_t* scan, uint8_t* count, uint8_t* last) {
    int32_t n = 0, mx = INT32_MIN;
    for (int p = 0; p < 16; ++p) {
        if (lv[p] == 0) continue;
        ++n;
        if (scan[p] > mx) mx = scan[p];
    }
    if (lv[0] != 0) n = -n;
    *count = static_cast<uint8_t>(n);
    if (last != nullptr) *last = static_cast<uint8_t>(n == 0 ? 0 : (mx & 0x7F));
}

// The kernel table. The same object as xform_kernels() returns, reached
// here without a call: only its first-use check is inlined.
inline const XformKernels& kernels() { return active_table<XformKernels, xform_kernels_for>(); }

}  // namespace

namespace ref {

int32_t transform_quant_residual(int16_t* blk, const int16_t* mf, Rounding rs, const int16_t* scan,
                                 uint8_t* count, uint8_t* last) {
    forward4x4(blk);
    for (int r = 0; r < 4; ++r) {
        int16_t lv[4];
        bool over = false;
        for (int c = 0; c < 4; ++c) {
            const int p = 4 * r + c;
            const int32_t L = level_mag(blk[p], mf[p], rs.round, rs.shift);
            over |= L > kMaxLevel;
            lv[c] = with_sign(blk[p], L);
        }
        if (over) return kplStsLevelRangeErr;
        for (int c = 0; c < 4; ++c) blk[4 * r + c] = lv[c];
    }
    count_and_last(blk, scan, count, last);
    return kplStsNoErr;
}

int32_t transform_quant_luma_dc(int16_t* src, int16_t* tblock, bool transform, int32_t mf, int32_t round,
                                int32_t shift, const int16_t* scan, uint8_t* count, uint8_t* last) {
    if (transform) {
        int16_t t[16];
        for (int i = 0; i < 16; ++i) t[i] = src[i];
        hadamard4x4(t);
        for (int i = 0; i < 16; ++i) tblock[i] = static_cast<int16_t>(t[i] >> 1);
    }
    for (int r = 0; r < 4; ++r) {
        int16_t lv[4];
        bool over = false;
        for (int c = 0; c < 4; ++c) {
            const int16_t t = tblock[4 * r + c];
            const int32_t L = level_mag(t, mf, round, shift);
            over |= L > kMaxLevel;
            lv[c] = with_sign(t, L);
        }
        if (over) return kplStsLevelRangeErr;
        for (int c = 0; c < 4; ++c) src[4 * r + c] = lv[c];
    }
    count_and_last(src, scan, count, last);
    return kplStsNoErr;
}

int32_t transform_quant_chroma_dc(int16_t* src, int16_t* tblock, bool transform, int32_t mf, int32_t round,
                                  int32_t shift, uint8_t* count) {
    if (transform) {
        int16_t t[4] = {src[0], src[1], src[2], src[3]};
        hadamard2(t);
        for (int k = 0; k < 4; ++k) tblock[k] = t[k];
    }
    bool over = false;
    int32_t n = 0;
    for (int k = 0; k < 4; ++k) {
        const int16_t t = tblock[k];
        const int32_t L = level_mag(t, mf, round, shift);
        over |= L > kMaxLevel;
        n += L != 0;
        src[k] = with_sign(t, L);
    }
    *count = static_cast<uint8_t>(src[0] != 0 ? -n : n);
    return over ? kplStsLevelRangeErr : kplStsNoErr;
}

}  // namespace ref

}  // namespace kplvc::h264

using namespace kplvc;
using namespace kplvc::h264;

extern "C" {

KPLVC_API KplStatus kpliTransformQuantChromaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl16s* pTBlock, Kpl32s QP,
                                                            Kpl8u* pNumLevels, Kpl8u intra,
                                                            Kpl8u needTransform) {
    if (pSrcDst == nullptr || pTBlock == nullptr || pNumLevels == nullptr) return kplStsNullPtrErr;
    if (QP < 0 || QP > 39) return kplStsOutOfRangeErr;
    const int32_t per = dc_q[static_cast<std::size_t>(QP)];
    const int32_t mf = FwdQuantTable[static_cast<std::size_t>(3 * dc_rems[static_cast<std::size_t>(QP)])];
    const int32_t round = dc_rounds[static_cast<std::size_t>((intra != 0 ? 9 : 0) + per)];
    return kernels().transform_quant_chroma_dc(pSrcDst, pTBlock, needTransform != 0, mf, round, per + 16,
                                               pNumLevels);
}

KPLVC_API KplStatus kpliTransformQuantLumaDC_H264_16s_C1I(Kpl16s* pSrcDst, Kpl16s* pTBlock, Kpl32s QP,
                                                          Kpl8u* pNumLevels, Kpl8u needTransform,
                                                          const Kpl16s* pScanMatrix, Kpl8u* pLastCoeff) {
    if (pSrcDst == nullptr || pTBlock == nullptr || pNumLevels == nullptr || pScanMatrix == nullptr ||
        pLastCoeff == nullptr)
        return kplStsNullPtrErr;
    if (QP < 0 || QP > 51) return kplStsOutOfRangeErr;
    const int32_t per = QP / 6;
    const int32_t mf = FwdQuantTable[static_cast<std::size_t>(3 * (QP % 6))];
    const int32_t round = dc_rounds[static_cast<std::size_t>(9 + per)];  // always the intra rounding
    return kernels().transform_quant_luma_dc(pSrcDst, pTBlock, needTransform != 0, mf, round, per + 16,
                                             pScanMatrix, pNumLevels, pLastCoeff);
}

KPLVC_API KplStatus kpliTransformQuantResidual_H264_16s_C1I(Kpl16s* pSrcDst, Kpl32s QP, Kpl8u* pNumLevels,
                                                            Kpl8u intra, const Kpl16s* pScanMatrix,
                                                            Kpl8u* pLastCoeff) {
    if (pSrcDst == nullptr || pNumLevels == nullptr || pScanMatrix == nullptr || pLastCoeff == nullptr)
        return kplStsNullPtrErr;
    if (QP < 0 || QP > 51) return kplStsOutOfRangeErr;
    const ResidualQuant& q = kResidualQuant[static_cast<std::size_t>(QP)];
    return kernels().transform_quant_residual(pSrcDst, q.mf, q.rs[intra != 0 ? 1 : 0], pScanMatrix,
                                              pNumLevels, pLastCoeff);
}

}  // extern "C"
