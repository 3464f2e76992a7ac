// The argument checks shared by the search entry points (see the
// KplMESearch comment of the public header for their order).
#pragma once

#include <cstdint>

#include "kplvc.h"
#include "me/me.h"

namespace kplvc::me {

// After the null pointers: window size, the steps (current block, reference
// rows of the window's blocks plus `extra` columns, and the sum plane when
// `sum` is not null, window width plus `sum_extra` cells), then the
// record's values. Sums in int64: a width near INT32_MAX must fail, not
// overflow.
inline KplStatus check_search(const KplMESearch& s, int32_t side, int32_t src_step, int32_t ref_step,
                              const void* sum, int32_t sum_step, int32_t extra = 0, int32_t sum_extra = 0) {
    const KpliRect& w = s.window;
    if (w.width < 1 || w.height < 1) return kplStsSizeErr;
    if (src_step < side || ref_step < int64_t{w.width} + side - 1 + extra) return kplStsStepErr;
    if (sum != nullptr && sum_step < 2 * (int64_t{w.width} + sum_extra)) return kplStsStepErr;
    if (s.fcode < 1 || s.fcode > 7) return kplStsFcodeErr;
    if (s.quarterSample != 0 && s.quarterSample != 1) return kplStsModeErr;
    if (s.tieRule < KPLVC_ME_TIE_RASTER || s.tieRule > KPLVC_ME_TIE_PRED) return kplStsBadArgErr;
    if (s.lambda < 0 || s.lambda > 65535) return kplStsBadArgErr;
    const int64_t f = int64_t{1} << (s.fcode - 1), lo = -32 * f, hi = 32 * f - 1;
    const int64_t unit = s.quarterSample ? 4 : 2;
    const auto inside = [&](int64_t v) { return v >= lo && v <= hi; };
    if (!inside(w.x * unit) || !inside(w.y * unit) || !inside((int64_t{w.x} + w.width - 1) * unit) ||
        !inside((int64_t{w.y} + w.height - 1) * unit))
        return kplStsBadArgErr;
    if (!inside(s.pred.dx) || !inside(s.pred.dy)) return kplStsBadArgErr;
    return kplStsNoErr;
}

inline void write_result(const Result& r, KplMotionVector* mv, Kpl32s* sad) {
    mv->dx = static_cast<Kpl16s>(r.vx);
    mv->dy = static_cast<Kpl16s>(r.vy);
    *sad = r.sad;
}

}  // namespace kplvc::me
