// MPEG-4 intra DC and AC prediction (ISO/IEC 14496-2 7.4.3): the direction
// from the neighbours' DC gradients, and the reconstruction of the DC and
// of the predicted first row or column, with the record each block leaves
// for its neighbours.
#include "core/arith.h"
#include "mpeg4/texture.h"

using namespace kplvc;
using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliPredictDirIntra_MPEG4(const KplMPEG4IntraPred* pA, const KplMPEG4IntraPred* pB,
                                              const KplMPEG4IntraPred* pC, Kpl32s* pDir) {
    if (pA == nullptr || pB == nullptr || pC == nullptr || pDir == nullptr) return kplStsNullPtrErr;
    // A small vertical gradient (A to B) means the block above continues
    // downwards: predict from it.
    const int32_t ab = pA->dc - pB->dc, bc = pB->dc - pC->dc;
    *pDir = (ab < 0 ? -ab : ab) < (bc < 0 ? -bc : bc) ? KPLVC_PRED_TOP : KPLVC_PRED_LEFT;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPredictReconIntra_MPEG4_16s(Kpl16s* pCoeffs, const KplMPEG4IntraPred* pPred,
                                                    KplMPEG4IntraPred* pCur, Kpl32s predDir,
                                                    Kpl32s acPredFlag, Kpl32s QP, Kpl32s blockIndex) {
    if (pCoeffs == nullptr || pPred == nullptr || pCur == nullptr) return kplStsNullPtrErr;
    if (predDir != KPLVC_PRED_LEFT && predDir != KPLVC_PRED_TOP) return kplStsPredDirErr;
    if (acPredFlag != 0 && acPredFlag != 1) return kplStsModeErr;
    if (QP < 1 || QP > 31) return kplStsMPEG4QPErr;
    if (blockIndex < 0 || blockIndex > 9) return kplStsBlockIndexErr;
    const KplMPEG4IntraPred pred = *pPred;  // pCur may alias it
    const int32_t scaler = dc_scaler(QP, is_luma_block(blockIndex));

    // DC: the differential plus the neighbour's reconstructed DC divided by
    // this block's scaler (dc and scaler are positive: plain rounding).
    const int32_t qdc = pCoeffs[0] + div_round(pred.dc, scaler);
    const int32_t dc = clip3(0, 2047, qdc * scaler);

    // AC: the neighbour's first column (LEFT) or row (TOP), rescaled from its
    // quantiser to this one: |ac * qpA| <= 2048 * 31 fits easily.
    const bool left = predDir == KPLVC_PRED_LEFT;
    const int16_t* src = left ? pred.col : pred.row;
    const int stride = left ? 8 : 1;
    if (acPredFlag) {
        for (int k = 1; k < 8; ++k) {
            const int32_t p = div_round(src[k - 1] * pred.qp, QP);
            pCoeffs[k * stride] = static_cast<int16_t>(clip3(-2048, 2047, pCoeffs[k * stride] + p));
        }
    }
    pCoeffs[0] = static_cast<int16_t>(dc);
    pCur->dc = static_cast<int16_t>(dc);
    pCur->qp = static_cast<int16_t>(QP);
    for (int k = 1; k < 8; ++k) {
        pCur->row[k - 1] = pCoeffs[k];
        pCur->col[k - 1] = pCoeffs[8 * k];
    }
    return kplStsNoErr;
}

}  // extern "C"
