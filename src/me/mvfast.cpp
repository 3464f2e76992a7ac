// MVFAST: the motion vector field adaptive search (Hosur and Ma), as the
// public header describes it step by step. The neighbours' vectors classify
// the block's motion activity; small and medium activity search around the
// zero vector (small or large diamond), large activity around the best of
// the neighbours' vectors.
#include <cstdlib>

#include "core/arith.h"
#include "me/checks.h"
#include "me/me.h"
#include "me/price.h"

namespace kplvc::me {

namespace {

struct Point {
    int32_t x, y;  // integer displacement
    int32_t j, sad;
    uint64_t key;
};

// J of integer displacements. Diamonds around neighbouring centres overlap,
// so the prices already known are kept in a small direct-mapped cache: a
// point is priced once unless its slot was taken since, and the result never
// depends on the cache (a price is the same whenever it is computed).
class Pricer {
public:
    Pricer(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs,
           const Setup& s)
        : n_(n), k_(k), src_(src), ss_(ss), ref_(ref), rs_(rs), s_(s), unit_(1 << s.shift) {
        for (Slot& e : cache_) e.valid = false;
    }

    bool inside(int32_t x, int32_t y) const {
        return x >= s_.x0 && x < s_.x0 + s_.w && y >= s_.y0 && y < s_.y0 + s_.h;
    }

    // Prices pts[0..cnt) (all inside the window), four SADs per kernel call;
    // a point listed twice is priced once.
    void price(Point* pts, int cnt) {
        int todo[8], nt = 0, dup[8][2], nd = 0;
        for (int i = 0; i < cnt; ++i) {
            const Slot& e = cache_[slot(pts[i].x, pts[i].y)];
            if (e.valid && e.x == pts[i].x && e.y == pts[i].y) {
                fill(pts[i], e.sad);
                continue;
            }
            int t = 0;
            while (t < nt && (pts[todo[t]].x != pts[i].x || pts[todo[t]].y != pts[i].y)) ++t;
            if (t < nt) {
                dup[nd][0] = i;
                dup[nd++][1] = todo[t];
            } else {
                todo[nt++] = i;
            }
        }
        for (int b = 0; b < nt; b += 4) {
            const int m = nt - b < 4 ? nt - b : 4;
            const uint8_t* r[4];
            for (int q = 0; q < 4; ++q) {
                const Point& p = pts[todo[b + (q < m ? q : 0)]];
                r[q] = row_at(ref_, rs_, p.y) + p.x;
            }
            int32_t sad[4];
            k_.sad_x4[n_](src_, ss_, r, rs_, sad);
            for (int q = 0; q < m; ++q) {
                Point& p = pts[todo[b + q]];
                fill(p, sad[q]);
                cache_[slot(p.x, p.y)] = Slot{p.x, p.y, sad[q], true};
            }
            sads_ += m;
        }
        for (int d = 0; d < nd; ++d) fill(pts[dup[d][0]], pts[dup[d][1]].sad);
    }
    int64_t sads() const { return sads_; }

private:
    struct Slot {
        int32_t x, y, sad;
        bool valid;
    };
    static unsigned slot(int32_t x, int32_t y) {
        return (static_cast<uint32_t>(x) * 0x9E3779B1u ^ static_cast<uint32_t>(y) * 0x85EBCA77u) >> 24;
    }
    void fill(Point& p, int32_t sad) const {
        const int32_t vx = p.x * unit_, vy = p.y * unit_;
        p.sad = sad;
        p.j = 16 * sad + s_.lambda * vector_bits(s_, vx, vy);
        p.key = tie_key(s_, vx, vy);
    }

    Size n_;
    const MeKernels& k_;
    const uint8_t* src_;
    int32_t ss_;
    const uint8_t* ref_;
    int32_t rs_;
    const Setup& s_;
    int32_t unit_;
    int64_t sads_ = 0;
    Slot cache_[256];
};

bool better(const Point& a, const Point& b) { return a.j < b.j || (a.j == b.j && a.key < b.key); }

struct Offset {
    int8_t dx, dy;
};
constexpr Offset kSmallDiamond[4] = {{0, -1}, {-1, 0}, {1, 0}, {0, 1}};
constexpr Offset kLargeDiamond[8] = {{0, -2}, {-1, -1}, {1, -1}, {-2, 0}, {2, 0}, {-1, 1}, {1, 1}, {0, 2}};

// One diamond step: the pattern's points inside the window are priced and
// the centre moves to the best of it and them. Returns whether it moved.
template <int M>
bool step(Pricer& pr, const Offset (&pattern)[M], Point& centre) {
    Point pts[M];
    int cnt = 0;
    for (const Offset& o : pattern) {
        const int32_t x = centre.x + o.dx, y = centre.y + o.dy;
        if (pr.inside(x, y)) pts[cnt++] = Point{x, y, 0, 0, 0};
    }
    pr.price(pts, cnt);
    const Point before = centre;
    for (int i = 0; i < cnt; ++i)
        if (better(pts[i], centre)) centre = pts[i];
    return centre.x != before.x || centre.y != before.y;
}

}  // namespace

void search_mvfast(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs,
                   const Setup& s, const KplMVFAST& p, Result* out, Stats* stats) {
    Pricer pr(n, k, src, ss, ref, rs, s);
    const int32_t xmax = s.x0 + s.w - 1, ymax = s.y0 + s.h - 1;

    // Steps 1 and 2: the neighbours' candidates and the activity.
    Point cand[3];
    int nc = 0;
    int32_t activity = 0;
    for (int i = 0; i < 3; ++i) {
        if ((p.available >> i & 1) == 0) continue;
        const int32_t cx = to_full(p.neighbour[i].dx, s.shift), cy = to_full(p.neighbour[i].dy, s.shift);
        const int32_t len = std::abs(cx) + std::abs(cy);
        if (len > activity) activity = len;
        cand[nc++] = Point{clamp_to(cx, s.x0, xmax), clamp_to(cy, s.y0, ymax), 0, 0, 0};
    }

    // Step 3: the zero vector, and the early stop.
    Point centre{clamp_to(0, s.x0, xmax), clamp_to(0, s.y0, ymax), 0, 0, 0};
    pr.price(&centre, 1);
    if (centre.sad >= p.stopSAD) {
        // Steps 4 and 5.
        if (activity > p.activityHigh) {
            pr.price(cand, nc);
            for (int i = 0; i < nc; ++i)
                if (better(cand[i], centre)) centre = cand[i];
            while (step(pr, kSmallDiamond, centre)) {
            }
        } else if (activity > p.activityLow) {
            while (step(pr, kLargeDiamond, centre)) {
            }
            step(pr, kSmallDiamond, centre);
        } else {
            while (step(pr, kSmallDiamond, centre)) {
            }
        }
    }
    if (stats != nullptr) stats->sads += pr.sads();
    *out = Result{centre.x * (1 << s.shift), centre.y * (1 << s.shift), centre.sad};
}

}  // namespace kplvc::me

using namespace kplvc::me;

namespace {

KplStatus mvfast_entry(Size n, const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                       const KplMESearch* pSearch, const KplMVFAST* pParams, KplMotionVector* pMV,
                       Kpl32s* pSAD) {
    if (pSrc == nullptr || pRef == nullptr || pSearch == nullptr || pParams == nullptr || pMV == nullptr ||
        pSAD == nullptr)
        return kplStsNullPtrErr;
    if (const KplStatus st = check_search(*pSearch, block_side(n), srcStep, refStep, nullptr, 0);
        st != kplStsNoErr)
        return st;
    const KplMVFAST& p = *pParams;
    if (p.available < 0 || p.available > 7 || p.activityLow < 0 || p.activityHigh < p.activityLow ||
        p.stopSAD < 0)
        return kplStsBadArgErr;
    Result r;
    search_mvfast(n, me_kernels(), pSrc, srcStep, pRef, refStep, make_setup(*pSearch), p, &r, nullptr);
    write_result(r, pMV, pSAD);
    return kplStsNoErr;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliSearchMVFAST16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                    Kpl32s refStep, const KplMESearch* pSearch,
                                                    const KplMVFAST* pParams, KplMotionVector* pMV,
                                                    Kpl32s* pSAD) {
    return mvfast_entry(k16, pSrc, srcStep, pRef, refStep, pSearch, pParams, pMV, pSAD);
}

KPLVC_API KplStatus kpliSearchMVFAST8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  const KplMVFAST* pParams, KplMotionVector* pMV,
                                                  Kpl32s* pSAD) {
    return mvfast_entry(k8, pSrc, srcStep, pRef, refStep, pSearch, pParams, pMV, pSAD);
}

}  // extern "C"
