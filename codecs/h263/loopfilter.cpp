#include "loopfilter.h"

#include "h263.h"
#include "kplvc.h"

namespace kplvc::codecs::h263 {

// An edge between two 8x8 blocks is filtered when the macroblock of either
// is coded (COD = 0; intra macroblocks always are), with the quantiser of
// the block below / right of the edge when its macroblock is coded, else of
// the other one; chroma takes the chroma quantiser of modified
// quantisation. All horizontal edges of a plane are filtered first, then
// the vertical ones, which is the order that agrees with other decoders
// where the two filters overlap at block corners.
void deblock_picture(const MbGrid& grid, uint8_t* const planes[3], const int strides[3], bool mq) {
    const int mbw = grid.mbw, mbh = grid.mbh;
    auto info = [&](int p, int bx, int by) -> const MbInfo& {
        return p ? grid.mb(bx, by) : grid.mb(bx >> 1, by >> 1);
    };
    auto qp = [&](int p, const MbInfo& m) { return p && mq ? kChromaQp[m.qp] : m.qp; };
    for (int p = 0; p < 3; ++p) {
        const int s = strides[p], bw = p ? mbw : 2 * mbw, bh = p ? mbh : 2 * mbh;
        for (int by = 1; by < bh; ++by)
            for (int bx = 0; bx < bw; ++bx) {
                const MbInfo &c = info(p, bx, by), &a = info(p, bx, by - 1);
                if (!c.coded && !a.coded) continue;
                kpliFilterDeblocking_HorEdge_H263_8u_I(planes[p] + static_cast<intptr_t>(by) * 8 * s + bx * 8,
                                                       s, qp(p, c.coded ? c : a));
            }
    }
    for (int p = 0; p < 3; ++p) {
        const int s = strides[p], bw = p ? mbw : 2 * mbw, bh = p ? mbh : 2 * mbh;
        for (int by = 0; by < bh; ++by)
            for (int bx = 1; bx < bw; ++bx) {
                const MbInfo &c = info(p, bx, by), &a = info(p, bx - 1, by);
                if (!c.coded && !a.coded) continue;
                kpliFilterDeblocking_VerEdge_H263_8u_I(planes[p] + static_cast<intptr_t>(by) * 8 * s + bx * 8,
                                                       s, qp(p, c.coded ? c : a));
            }
    }
}

}  // namespace kplvc::codecs::h263
