// Per-picture macroblock state of the H.263 decoder: what each macroblock
// was, its quantiser, and the motion vector of every 8x8 luma block, with
// the neighbour rules of vector prediction (H.263 6.1.1 and Annex F) and of
// overlapped motion compensation (Annex F).
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kplvc.h"

namespace kplvc::codecs::h263 {

enum class MbState : uint8_t { lost, skipped, inter, intra };

struct MbInfo {
    MbState state = MbState::lost;
    uint8_t qp = 0;
    uint8_t coded = 0;  // COD = 0 (the deblocking filter's notion of coded)
    uint8_t four = 0;   // four vectors
    uint8_t cbp = 0;    // coded blocks of an inter macroblock, bit b = block b
    uint8_t intra_mode = 0;
    int16_t segment = 0;  // GOB or slice counter: prediction stays inside one
};

struct MbGrid {
    int mbw = 0, mbh = 0;
    std::vector<MbInfo> info;
    std::vector<Kpl16s> mv;  // (dx, dy) per 8x8 luma block, 2*mbw x 2*mbh

    void resize(int w, int h) {
        mbw = w;
        mbh = h;
        info.assign(static_cast<size_t>(w) * h, MbInfo{});
        mv.assign(static_cast<size_t>(w) * h * 8, 0);
    }
    void reset() {
        std::fill(info.begin(), info.end(), MbInfo{});
        std::fill(mv.begin(), mv.end(), 0);
    }

    MbInfo& mb(int i) { return info[static_cast<size_t>(i)]; }
    const MbInfo& mb(int x, int y) const { return info[static_cast<size_t>(y) * mbw + x]; }
    bool inside(int x, int y) const { return x >= 0 && y >= 0 && x < mbw && y < mbh; }

    Kpl16s* vector(int bx, int by) { return &mv[(static_cast<size_t>(by) * 2 * mbw + bx) * 2]; }
    void set_block_vector(int mx, int my, int blk, Kpl16s dx, Kpl16s dy) {
        Kpl16s* v = vector(2 * mx + (blk & 1), 2 * my + (blk >> 1));
        v[0] = dx;
        v[1] = dy;
    }
    void set_mb_vector(int mx, int my, Kpl16s dx, Kpl16s dy) {
        for (int b = 0; b < 4; ++b) set_block_vector(mx, my, b, dx, dy);
    }

    // A macroblock of the current segment that has been decoded.
    bool available(int x, int y, int segment) const {
        return inside(x, y) && mb(x, y).state != MbState::lost && mb(x, y).segment == segment;
    }
    bool intra_neighbour(int x, int y, int segment) const {
        return available(x, y, segment) && mb(x, y).state == MbState::intra;
    }

    // Median prediction of the vector of block blk (0..3, or -1 for the
    // whole macroblock) of macroblock (mx, my). Candidates: MV1 left, MV2
    // above, MV3 above right (inside the macroblock where the block has
    // neighbours there; block 3's above-right is block 0). MV1 outside the
    // segment is 0; MV2 and MV3 outside at the top are MV1, so the median
    // is MV1; MV3 outside at the right is 0.
    void predictor(int mx, int my, int blk, Kpl16s* out) {
        const int b = blk < 0 ? 0 : blk;
        const int bx = 2 * mx + (b & 1), by = 2 * my + (b >> 1);
        const int seg = mb(mx, my).segment;
        Kpl16s mv1[2] = {0, 0};
        if ((b & 1) || available(mx - 1, my, seg)) std::copy_n(vector(bx - 1, by), 2, mv1);
        if (b < 2 && !available(mx, my - 1, seg)) {
            out[0] = mv1[0];
            out[1] = mv1[1];
            return;
        }
        const Kpl16s* mv2 = vector(bx, by - 1);
        Kpl16s mv3[2] = {0, 0};
        if (b == 2)
            std::copy_n(vector(bx + 1, by - 1), 2, mv3);
        else if (b == 3)
            std::copy_n(vector(bx - 1, by - 1), 2, mv3);
        else if (available(mx + 1, my - 1, seg))
            std::copy_n(vector(2 * mx + 2, by - 1), 2, mv3);
        for (int c = 0; c < 2; ++c) out[c] = median(mv1[c], mv2[c], mv3[c]);
    }

    // Annex F remote vectors of block blk: above, below, left, right. A
    // neighbour outside the picture or intra gives the block's own vector;
    // below the lower blocks the own vector is used too (the macroblock
    // below is not decoded yet); a skipped neighbour has the vector 0.
    void obmc_neighbours(int mx, int my, int blk, Kpl16s (*out)[2]) {
        const int bx = 2 * mx + (blk & 1), by = 2 * my + (blk >> 1);
        const Kpl16s* own = vector(bx, by);
        auto pick = [&](int nx, int ny, int vx, int vy, Kpl16s* o) {
            const bool same = nx == mx && ny == my;
            const Kpl16s* v =
                (!same && (!inside(nx, ny) || mb(nx, ny).state == MbState::intra)) ? own : vector(vx, vy);
            o[0] = v[0];
            o[1] = v[1];
        };
        pick(mx, blk < 2 ? my - 1 : my, bx, by - 1, out[0]);
        if (blk < 2)
            pick(mx, my, bx, by + 1, out[1]);
        else
            out[1][0] = own[0], out[1][1] = own[1];
        pick((blk & 1) ? mx : mx - 1, my, bx - 1, by, out[2]);
        pick((blk & 1) ? mx + 1 : mx, my, bx + 1, by, out[3]);
    }

    static Kpl16s median(Kpl16s a, Kpl16s b, Kpl16s c) {
        return static_cast<Kpl16s>(std::max(std::min(a, b), std::min(std::max(a, b), c)));
    }
};

}  // namespace kplvc::codecs::h263
