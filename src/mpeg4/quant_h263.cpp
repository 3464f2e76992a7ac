// MPEG-4 quantisers beside the weighting-matrix inverse of quant.cpp: the
// second (H.263) method's inverse, and the forward quantisers of both
// methods that an encoder uses. All exact integer arithmetic on 32 bits.
#include <cstdint>
#include <cstdlib>

#include "core/arith.h"
#include "mpeg4/texture.h"

namespace kplvc::mpeg4 {

namespace {

// Second method: |F| = QP (2|L| + 1) - (QP even); |L| <= 32768 keeps the
// product below 2^22.
void dequant_h263(int16_t* c, int32_t qp, int first) {
    const int32_t qmul = 2 * qp, qadd = (qp & 1) ? qp : qp - 1;
    // Branch-free per coefficient, so that the compiler can vectorise it:
    // (l > 0) - (l < 0) is the sign, zero for a zero level.
    for (int i = first; i < 64; ++i) {
        const int32_t l = c[i];
        const int32_t f = qmul * l + ((l > 0) - (l < 0)) * qadd;
        c[i] = static_cast<int16_t>(f < -2048 ? -2048 : (f > 2047 ? 2047 : f));
    }
}

inline int16_t with_sign(int32_t mag, int32_t f) {
    if (mag > 2047) mag = 2047;
    return static_cast<int16_t>(f < 0 ? -mag : mag);
}

// Quantises coefficients first..63 with mag(|F|, raster index); returns the
// number of non-zero levels.
template <class Mag>
int32_t quantise(int16_t* c, int first, Mag mag) {
    int32_t n = 0;
    for (int i = first; i < 64; ++i) {
        const int32_t f = c[i];
        const int16_t l = with_sign(mag(std::abs(f), i), f);
        c[i] = l;
        n += l != 0;
    }
    return n;
}

// t / (2 QP) for 0 <= t <= 32768 without a division: t * m >> 22 with
// m = ceil(2^22 / d) is exact for every t below 2^16 when m d - 2^22 <= 2^6,
// and m d - 2^22 < d <= 62. The product stays below 2^38.
struct Halve {
    uint64_t m;
    explicit Halve(int32_t qp) : m(((uint64_t{1} << 22) + 2 * qp - 1) / (2 * qp)) {}
    int32_t operator()(int32_t t) const { return static_cast<int32_t>((static_cast<uint64_t>(t) * m) >> 22); }
};

void quantise_dc(int16_t* c, int32_t qp, int32_t block_index) {
    const int32_t q = div_round(c[0], dc_scaler(qp, is_luma_block(block_index)));
    c[0] = static_cast<int16_t>(clip3(-2047, 2047, q));
}

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc;
using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliQuantInvIntraH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP) {
    if (pCoeffs == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    dequant_h263(pCoeffs, QP, 1);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInvInterH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP) {
    if (pCoeffs == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    dequant_h263(pCoeffs, QP, 0);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantIntraH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, Kpl32s blockIndex,
                                                     Kpl32s* pCountNonZero) {
    if (pCoeffs == nullptr || pCountNonZero == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    if (blockIndex < 0 || blockIndex > 9) return kplStsBlockIndexErr;
    quantise_dc(pCoeffs, QP, blockIndex);
    const Halve div(QP);
    *pCountNonZero = quantise(pCoeffs, 1, [div](int32_t a, int) { return div(a); });
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInterH263_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, Kpl32s* pCountNonZero) {
    if (pCoeffs == nullptr || pCountNonZero == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    const Halve div(QP);
    *pCountNonZero = quantise(pCoeffs, 0, [QP, div](int32_t a, int) {
        const int32_t t = a - QP / 2;
        return t > 0 ? div(t) : 0;
    });
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantIntra_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix,
                                                 Kpl32s blockIndex, Kpl32s* pCountNonZero) {
    if (pCoeffs == nullptr || pQMatrix == nullptr || pCountNonZero == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    if (blockIndex < 0 || blockIndex > 9) return kplStsBlockIndexErr;
    quantise_dc(pCoeffs, QP, blockIndex);
    // 16 |F| <= 2^19 and W QP <= 255 * 31: all within 32 bits. Weights below 1
    // count as 1.
    *pCountNonZero = quantise(pCoeffs, 1, [QP, pQMatrix](int32_t a, int i) {
        const int32_t wq = (pQMatrix[i] < 1 ? 1 : pQMatrix[i]) * QP;
        return (16 * a + wq) / (2 * wq);
    });
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliQuantInter_MPEG4_16s_C1I(Kpl16s* pCoeffs, Kpl32s QP, const Kpl16s* pQMatrix,
                                                 Kpl32s* pCountNonZero) {
    if (pCoeffs == nullptr || pQMatrix == nullptr || pCountNonZero == nullptr) return kplStsNullPtrErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    *pCountNonZero = quantise(pCoeffs, 0, [QP, pQMatrix](int32_t a, int i) {
        const int32_t wq = (pQMatrix[i] < 1 ? 1 : pQMatrix[i]) * QP;
        return 16 * a / (2 * wq);
    });
    return kplStsNoErr;
}

}  // extern "C"
