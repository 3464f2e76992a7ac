// H.263 motion vector codes with the ranges of the three ways a stream can
// code them: the default range, Annex D's extended range around the
// predictor (Table 14 codes), and Annex D's universal code of H.263+
// pictures.
#include "core/bitstream.h"
#include "h263/symbols.h"
#include "kplvc.h"

namespace kplvc::h263 {

namespace {

// One Table 14 code: the difference in -32..31, or false on an illegal code.
bool table14(BitCache64& bc, int32_t* d) {
    const uint32_t v = bc.peek(13);
    if (v & 0x1000) {  // "1": no difference
        bc.skip(1);
        *d = 0;
        return true;
    }
    const uint32_t c12 = v & 0xFFF;  // the 12 bits after the leading 0
    const VlcEntry* e = c12 >= 512   ? &MVtab0[(c12 >> 8) - 2]
                        : c12 >= 128 ? &MVtab1[(c12 >> 2) - 32]
                        : c12 >= 5   ? &MVtab2[c12 - 5]
                                     : nullptr;
    if (e == nullptr || e->len == 0) return false;
    bc.skip(1 + e->len);
    *d = e->value;
    return true;
}

// The universal code: "1" is 0; otherwise "0" then data bits, each followed
// by 1 (more follow) or 0 (the last one): the bits after the leading one of
// the magnitude, most significant first, then the sign (1 negative).
bool uvlc(BitCache64& bc, int32_t* d) {
    if (bc.peek(1)) {
        bc.skip(1);
        *d = 0;
        return true;
    }
    bc.skip(1);
    uint32_t code = 1;
    for (;;) {
        const uint32_t pair = bc.peek(2);
        bc.skip(2);
        code = (code << 1) | (pair >> 1);
        if ((pair & 1) == 0) break;
        if (code > 8191) return false;  // magnitude past 4095: not a vector of any picture
    }
    const int32_t mag = static_cast<int32_t>(code >> 1);
    *d = (code & 1) ? -mag : mag;
    return true;
}

// Annex D without PLUSPTYPE: of d and its alternative d -+ 64 the one that
// keeps the vector within -31..32 around a predictor in -31..32 (which is
// d, except -32 that becomes 32), within -63..0 for a predictor below -31
// and within 0..63 for one above 32.
int32_t umv_range(int32_t pred, int32_t d) {
    const int32_t alt = d < 0 ? d + 64 : d - 64;
    if (d == 0) return pred;
    if (pred >= -31 && pred <= 32) return pred + (d == -32 ? 32 : d);
    const int32_t lo = pred < 0 ? -63 : 0, hi = pred < 0 ? 0 : 63;
    const int32_t v = pred + d;
    return v >= lo && v <= hi ? v : pred + alt;
}

int32_t wrap(int32_t v) { return v > 31 ? v - 64 : (v < -32 ? v + 64 : v); }

}  // namespace

}  // namespace kplvc::h263

using namespace kplvc;
using namespace kplvc::h263;

extern "C" {

KPLVC_API KplStatus kpliDecodeMVEx_H263(Kpl8u** ppBitStream, int* pBitOffset, const Kpl16s* pPred,
                                        Kpl16s* pMV, int mode) {
    if (ppBitStream == nullptr || pBitOffset == nullptr || *ppBitStream == nullptr || pPred == nullptr ||
        pMV == nullptr)
        return kplStsNullPtrErr;
    if (mode < KPLVC_H263_MVD_DEFAULT || mode > KPLVC_H263_MVD_UVLC) return kplStsBadArgErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    int32_t d[2];
    int32_t out[2];
    for (int c = 0; c < 2; ++c) {
        const bool ok = mode == KPLVC_H263_MVD_UVLC ? uvlc(bc, &d[c]) : table14(bc, &d[c]);
        if (!ok) return kplStsH263MVCodeErr;
        const int32_t p = pPred[c];
        out[c] = mode == KPLVC_H263_MVD_DEFAULT ? wrap(p + d[c])
                 : mode == KPLVC_H263_MVD_UMV   ? umv_range(p, d[c])
                                                : p + d[c];
    }
    // Two differences of +1 code as six zeros; a '1' follows them so that no
    // start code can form.
    if (mode == KPLVC_H263_MVD_UVLC && d[0] == 1 && d[1] == 1) {
        if (bc.peek(1) != 1) return kplStsH263MVCodeErr;
        bc.skip(1);
    }
    pMV[0] = static_cast<Kpl16s>(out[0]);
    pMV[1] = static_cast<Kpl16s>(out[1]);
    *ppBitStream = const_cast<Kpl8u*>(bc.byte());
    *pBitOffset = bc.offset();
    return kplStsNoErr;
}

}  // extern "C"
