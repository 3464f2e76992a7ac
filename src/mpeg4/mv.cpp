// MPEG-4 motion vectors: the motion-code VLC with f_code residuals and the
// range wrap, the median predictor with the candidate rules of ISO/IEC
// 14496-2 7.6.5, and the direct-mode vectors of B-VOPs (7.6.9.5).
#include <array>

#include "core/arith.h"
#include "mpeg4/texture.h"

namespace kplvc::mpeg4 {

namespace {

// motion_code magnitudes 0..32 (Table B-12): the code word before the sign
// bit (magnitude 0 has none). These are the H.263 MVD code words, whose last
// bit is the sign, plus 000000000010 for 32, the pattern H.263 leaves free.
constexpr const char* kMotionCodes[33] = {
    "1",           "01",          "001",         "0001",         "000011",       "0000101",     "0000100",
    "0000011",     "000001011",   "000001010",   "000001001",    "0000010001",   "0000010000",  "0000001111",
    "0000001110",  "0000001101",  "0000001100",  "0000001011",   "0000001010",   "0000001001",  "0000001000",
    "0000000111",  "0000000110",  "0000000101",  "0000000100",   "00000000111",  "00000000110", "00000000101",
    "00000000100", "00000000011", "00000000010", "000000000011", "000000000010",
};

// Indexed by the 12 bits at the position: magnitude | length << 8, 0 where no
// code word starts.
constexpr std::array<uint16_t, 4096> build_motion_table() {
    std::array<uint16_t, 4096> t{};
    for (int m = 0; m <= 32; ++m) {
        const char* s = kMotionCodes[m];
        int len = 0;
        uint32_t v = 0;
        while (s[len] != 0) v = (v << 1) | static_cast<uint32_t>(s[len++] - '0');
        const uint32_t first = v << (12 - len), end = first + (1u << (12 - len));
        for (uint32_t c = first; c < end; ++c) t[c] = static_cast<uint16_t>(m | len << 8);
    }
    return t;
}

constexpr std::array<uint16_t, 4096> kMotionTable = build_motion_table();

// One component: motion_code, its sign and (f > 1, code != 0) r_size
// residual bits, giving the difference
//   sign * ((|code| - 1) * f + residual + 1).
bool read_component(BitCache64& bc, int32_t r_size, int32_t* diff) {
    const uint32_t e = kMotionTable[bc.peek(12)];
    if (e == 0) return false;
    const int32_t mag = static_cast<int32_t>(e & 0xFF);
    bc.skip(static_cast<int>(e >> 8));
    if (mag == 0) {
        *diff = 0;
        return true;
    }
    const bool neg = bc.peek(1) != 0;
    bc.skip(1);
    int32_t d = mag;
    if (r_size > 0) {
        const int32_t res = static_cast<int32_t>(bc.peek(r_size));
        bc.skip(r_size);
        d = ((mag - 1) << r_size) + res + 1;
    }
    *diff = neg ? -d : d;
    return true;
}

// pred + diff brought back into [-32 f, 32 f - 1].
int16_t wrap(int32_t pred, int32_t diff, int32_t f) {
    int32_t v = pred + diff;
    if (v < -32 * f)
        v += 64 * f;
    else if (v > 32 * f - 1)
        v -= 64 * f;
    return static_cast<int16_t>(v);
}

int32_t median3(int32_t a, int32_t b, int32_t c) {
    const int32_t hi = a > b ? a : b, lo = a > b ? b : a;
    return c > hi ? hi : (c < lo ? lo : c);
}

}  // namespace

}  // namespace kplvc::mpeg4

using namespace kplvc;
using namespace kplvc::mpeg4;

extern "C" {

KPLVC_API KplStatus kpliDecodeMV_MPEG4_1u16s(Kpl8u** ppBitStream, Kpl32s* pBitOffset,
                                             const KplMotionVector* pPred, KplMotionVector* pMV,
                                             Kpl32s fcode) {
    if (null_stream(ppBitStream, pBitOffset) || pPred == nullptr || pMV == nullptr) return kplStsNullPtrErr;
    if (*pBitOffset < 0 || *pBitOffset > 7) return kplStsShapeArgErr;
    if (fcode < 1 || fcode > 7) return kplStsFcodeErr;
    BitCache64 bc(*ppBitStream, *pBitOffset);
    int32_t dx, dy;
    if (!read_component(bc, fcode - 1, &dx) || !read_component(bc, fcode - 1, &dy)) return kplStsMVCodeErr;
    const int32_t f = 1 << (fcode - 1);
    const KplMotionVector out = {wrap(pPred->dx, dx, f), wrap(pPred->dy, dy, f)};
    *pMV = out;
    write_back(bc, ppBitStream, pBitOffset);
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliPredictMV_MPEG4(const KplMotionVector* pMVCur, Kpl32s mvStep, Kpl32s blockIndex,
                                        Kpl32s available, KplMotionVector* pPred) {
    if (pMVCur == nullptr || pPred == nullptr) return kplStsNullPtrErr;
    if (mvStep < 4) return kplStsStepErr;
    if (blockIndex < 0 || blockIndex > 3) return kplStsBlockIndexErr;
    if (available < 0 || available > 7) return kplStsBadArgErr;
    // Candidates MV1 (left), MV2 (above), MV3 (above right) of each block:
    // the neighbour macroblock (-1 left, -step above, -step + 4 above right;
    // 0 the current one) and the block in it.
    struct Cand {
        int32_t mb;  // 0 this, 1 left, 2 above, 3 above right
        int32_t block;
    };
    static constexpr Cand kCand[4][3] = {
        {{1, 1}, {2, 2}, {3, 2}},
        {{0, 0}, {2, 3}, {3, 2}},
        {{1, 3}, {0, 0}, {0, 1}},
        {{0, 2}, {0, 0}, {0, 1}},
    };
    const KplMotionVector* c[3];
    int valid = 0;
    for (int k = 0; k < 3; ++k) {
        const Cand& cd = kCand[blockIndex][k];
        const intptr_t base =
            cd.mb == 0 ? 0 : (cd.mb == 1 ? -4 : (cd.mb == 2 ? -intptr_t{mvStep} : 4 - intptr_t{mvStep}));
        const bool ok = cd.mb == 0 || ((available >> (cd.mb - 1)) & 1) != 0;
        c[k] = ok ? pMVCur + base + cd.block : nullptr;
        valid += ok;
    }
    KplMotionVector p = {0, 0};
    if (valid == 1) {
        // Two candidates missing: the third one is the prediction.
        for (const KplMotionVector* v : c)
            if (v != nullptr) p = *v;
    } else if (valid >= 2) {
        // One missing counts as the zero vector.
        const KplMotionVector z = {0, 0};
        const KplMotionVector& a = c[0] ? *c[0] : z;
        const KplMotionVector& b = c[1] ? *c[1] : z;
        const KplMotionVector& d = c[2] ? *c[2] : z;
        p.dx = static_cast<int16_t>(median3(a.dx, b.dx, d.dx));
        p.dy = static_cast<int16_t>(median3(a.dy, b.dy, d.dy));
    }
    *pPred = p;
    return kplStsNoErr;
}

KPLVC_API KplStatus kpliDirectMV_MPEG4(const KplMotionVector* pColocated, const KplMotionVector* pDelta,
                                       Kpl32s TRB, Kpl32s TRD, KplMotionVector* pForward,
                                       KplMotionVector* pBackward) {
    if (pColocated == nullptr || pDelta == nullptr || pForward == nullptr || pBackward == nullptr)
        return kplStsNullPtrErr;
    if (TRD < 1 || TRB < 0 || TRB > TRD) return kplStsTimeDistErr;
    const KplMotionVector d = *pDelta;
    KplMotionVector f[4], b[4];
    // Per component, "/" truncating toward zero:
    //   forward  = TRB * col / TRD + delta
    //   backward = delta == 0 ? (TRB - TRD) * col / TRD : forward - col.
    // Products in 64 bits: TRD may be as large as the time base.
    auto one = [&](int32_t col, int32_t dl, int16_t* fw, int16_t* bw) {
        const int64_t fv = int64_t{TRB} * col / TRD + dl;
        *fw = static_cast<int16_t>(fv);
        *bw = static_cast<int16_t>(dl == 0 ? int64_t{TRB - TRD} * col / TRD : fv - col);
    };
    for (int k = 0; k < 4; ++k) {
        one(pColocated[k].dx, d.dx, &f[k].dx, &b[k].dx);
        one(pColocated[k].dy, d.dy, &f[k].dy, &b[k].dy);
    }
    for (int k = 0; k < 4; ++k) {
        pForward[k] = f[k];
        pBackward[k] = b[k];
    }
    return kplStsNoErr;
}

}  // extern "C"
