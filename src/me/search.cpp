// Integer searches over a whole window: the exhaustive search, the
// successive-elimination search that must return exactly its result, and the
// block-sum planes that feed the elimination; with their entry points.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "core/arith.h"
#include "me/checks.h"
#include "me/me.h"
#include "me/price.h"

namespace kplvc::me {

namespace {

// Zeros to subtract while the first rows of column sums are added.
constexpr uint8_t kZeros[kMaxWindow + 15] = {};

// Bits of each window column's and row's vector component.
struct BitsTable {
    uint8_t x[kMaxWindow], y[kMaxWindow];
    explicit BitsTable(const Setup& s) {
        for (int32_t i = 0; i < s.w; ++i)
            x[i] = static_cast<uint8_t>(mv_bits(((s.x0 + i) << s.shift) - s.px, s.fcode));
        for (int32_t j = 0; j < s.h; ++j)
            y[j] = static_cast<uint8_t>(mv_bits(((s.y0 + j) << s.shift) - s.py, s.fcode));
    }
};

int32_t block_sum(const uint8_t* p, int32_t step, int n) {
    int32_t sum = 0;
    for (int y = 0; y < n; ++y) {
        const uint8_t* r = row_at(p, step, y);
        for (int x = 0; x < n; ++x) sum += r[x];
    }
    return sum;
}

// Block sums of consecutive rows of block positions: N-row column sums over
// cols columns moved down one row at a time, then summed N at a time.
class RollingSums {
public:
    // Column sums of the first rows, over cols columns from top.
    void start(const MeKernels& k, Size n, const uint8_t* top, int32_t step, int32_t cols) {
        k_ = &k;
        n_ = n;
        side_ = block_side(n);
        top_ = top;
        step_ = step;
        cols_ = cols;
        std::memset(col_, 0, sizeof(uint16_t) * static_cast<size_t>(cols));
        for (int y = 0; y < side_; ++y) k.col_update(col_, row_at(top_, step_, y), kZeros, cols_);
    }
    // The sums of the first n block positions of row j (called for j = 0, 1,
    // 2, ... in turn).
    void row(int32_t j, uint16_t* dst, int32_t n) {
        if (j > 0)
            k_->col_update(col_, row_at(top_, step_, j + side_ - 1), row_at(top_, step_, j - 1), cols_);
        k_->row_sums[n_](col_, dst, n);
    }

private:
    const MeKernels* k_ = nullptr;
    Size n_ = k16;
    int side_ = 16;
    const uint8_t* top_ = nullptr;
    int32_t step_ = 0, cols_ = 0;
    alignas(32) uint16_t col_[kMaxWindow + 15];
};

}  // namespace

void search_full(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs,
                 const Setup& s, Result* out, Stats* stats) {
    const BitsTable bits(s);
    const int32_t unit = 1 << s.shift;
    Best best;
    for (int32_t j = 0; j < s.h; ++j) {
        const uint8_t* row = row_at(ref, rs, s.y0 + j) + s.x0;
        const int32_t vy = (s.y0 + j) * unit, base = s.lambda * bits.y[j];
        for (int32_t i = 0; i < s.w; i += 4) {
            const int32_t cnt = s.w - i < 4 ? s.w - i : 4;
            const uint8_t* r[4];
            for (int q = 0; q < 4; ++q) r[q] = row + i + (q < cnt ? q : 0);
            int32_t sad[4];
            k.sad_x4[n](src, ss, r, rs, sad);
            for (int q = 0; q < cnt; ++q)
                best.offer(s, (s.x0 + i + q) * unit, vy, 16 * sad[q] + base + s.lambda * bits.x[i + q],
                           sad[q]);
        }
    }
    if (stats != nullptr) stats->sads += int64_t{s.w} * s.h;
    *out = Result{best.vx, best.vy, best.sad};
}

void search_sea(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs,
                const uint16_t* sum, int32_t sum_step, const Setup& s, Result* out, Stats* stats,
                const uint16_t* sum8, int32_t sum8_step, const KplMotionVector* start) {
    const int side = block_side(n);
    const BitsTable bits(s);
    const int32_t unit = 1 << s.shift;
    const int32_t sc = block_sum(src, ss, side);
    const auto price = [&](int32_t i, int32_t j, int32_t sad) {
        return 16 * sad + s.lambda * (bits.x[i] + bits.y[j]);
    };
    const auto at = [&](int32_t i, int32_t j) { return row_at(ref, rs, s.y0 + j) + s.x0 + i; };
    Best best;
    int64_t sads = 0;

    // The predictor, the zero vector and the caller's start (when given)
    // first: a good early J makes the bound bite from the first row on.
    const int32_t ip = clamp_to(to_full(s.px, s.shift), s.x0, s.x0 + s.w - 1) - s.x0;
    const int32_t jp = clamp_to(to_full(s.py, s.shift), s.y0, s.y0 + s.h - 1) - s.y0;
    const int32_t iz = clamp_to(0, s.x0, s.x0 + s.w - 1) - s.x0;
    const int32_t jz = clamp_to(0, s.y0, s.y0 + s.h - 1) - s.y0;
    const int32_t is = start ? clamp_to(to_full(start->dx, s.shift), s.x0, s.x0 + s.w - 1) - s.x0 : iz;
    const int32_t js = start ? clamp_to(to_full(start->dy, s.shift), s.y0, s.y0 + s.h - 1) - s.y0 : jz;
    const auto first = [&](int32_t i, int32_t j) {
        return (i == ip && j == jp) || (i == iz && j == jz) || (i == is && j == js);
    };
    {
        const uint8_t* r[4] = {at(ip, jp), at(iz, jz), at(is, js), at(iz, jz)};
        int32_t sad[4];
        k.sad_x4[n](src, ss, r, rs, sad);
        best.offer(s, (s.x0 + ip) * unit, (s.y0 + jp) * unit, price(ip, jp, sad[0]), sad[0]);
        best.offer(s, (s.x0 + iz) * unit, (s.y0 + jz) * unit, price(iz, jz, sad[1]), sad[1]);
        best.offer(s, (s.x0 + is) * unit, (s.y0 + js) * unit, price(is, js, sad[2]), sad[2]);
        sads += 1 + !(ip == iz && jp == jz) + !((is == ip && js == jp) || (is == iz && js == jz));
    }

    // Candidates that survive the bound wait in fours for one SAD call; the
    // bound is tested against the best J known when the candidate is met,
    // which is never below the final one, so nothing that could win is lost.
    int32_t pi[4], pj[4], np = 0;
    const auto flush = [&] {
        const uint8_t* r[4];
        for (int q = 0; q < 4; ++q) r[q] = at(pi[q < np ? q : 0], pj[q < np ? q : 0]);
        int32_t sad[4];
        k.sad_x4[n](src, ss, r, rs, sad);
        for (int q = 0; q < np; ++q)
            best.offer(s, (s.x0 + pi[q]) * unit, (s.y0 + pj[q]) * unit, price(pi[q], pj[q], sad[q]), sad[q]);
        sads += np;
        np = 0;
    };

    // The price of each column's horizontal component, for the filter.
    alignas(32) int32_t xprice[kMaxWindow];
    for (int32_t i = 0; i < s.w; ++i) xprice[i] = s.lambda * bits.x[i];
    alignas(32) uint16_t sums[kMaxWindow], idx[kMaxWindow];
    // A 16x16 block's four 8x8 quarters bound its SAD more tightly: the sum
    // of |Sc(q) - S(v, q)| over the quarters is still at most SAD(v), and at
    // least the whole block's |Sc - S(v)|. Texture, where the block sums of
    // nearby displacements hardly differ, is where this pays. The quarters
    // are used when their sums come from a plane, or when the call computes
    // its own sums anyway (in place of the 16x16 ones, which they make
    // redundant); with only a 16x16 plane, computing them here would cost
    // what they save.
    const bool quarters = n == k16 && (sum == nullptr || sum8 != nullptr);
    int32_t sq[4] = {};
    RollingSums rolling;
    // The quarter sums of window rows j and j + 8 are needed together: when
    // computed here, a ring of nine rows of them rolls down with the window.
    alignas(32) uint16_t ring[9][kMaxWindow + 8];
    if (quarters) {
        for (int q = 0; q < 4; ++q) sq[q] = block_sum(row_at(src, ss, 8 * (q >> 1)) + 8 * (q & 1), ss, 8);
        if (sum8 == nullptr) {
            rolling.start(k, k8, at(0, 0), rs, s.w + 15);
            for (int32_t r = 0; r < 8; ++r) rolling.row(r, ring[r], s.w + 8);
        }
    } else if (sum == nullptr) {
        rolling.start(k, n, at(0, 0), rs, s.w + side - 1);
    }
    // Plane rows are read through bytes: an odd step leaves every other
    // row's cells unaligned, and those are copied.
    const auto plane_row = [&](const uint16_t* plane, int32_t step, int32_t j, int32_t cells,
                               uint16_t* copy) {
        const uint8_t* p = row_at(reinterpret_cast<const uint8_t*>(plane), step, s.y0 + j) + 2 * s.x0;
        if (reinterpret_cast<uintptr_t>(p) % alignof(uint16_t) == 0)
            return reinterpret_cast<const uint16_t*>(p);
        std::memcpy(copy, p, sizeof(uint16_t) * static_cast<size_t>(cells));
        return static_cast<const uint16_t*>(copy);
    };
    for (int32_t j = 0; j < s.h; ++j) {
        const uint16_t* row = sums;
        const uint16_t *qa = nullptr, *qb = nullptr;
        if (quarters) {
            if (sum8 != nullptr) {
                qa = plane_row(sum8, sum8_step, j, s.w + 8, ring[0]);
                qb = plane_row(sum8, sum8_step, j + 8, s.w + 8, ring[1]);
            } else {
                rolling.row(j + 8, ring[(j + 8) % 9], s.w + 8);
                qa = ring[j % 9];
                qb = ring[(j + 8) % 9];
            }
        } else if (sum == nullptr) {
            rolling.row(j, sums, s.w);
        } else {
            row = plane_row(sum, sum_step, j, s.w, sums);
        }
        const int32_t base = s.lambda * bits.y[j];
        const int32_t vy = (s.y0 + j) * unit;
        // The filter passes every displacement whose bound is at most the
        // best J at the row's start; the best only falls along the row, so
        // each survivor is tested again against the best of the moment.
        const int32_t m = quarters ? k.sea_filter_quarters(qa, qb, sq, xprice, s.w, best.j - base, idx)
                                   : k.sea_filter(row, xprice, s.w, sc, best.j - base, idx);
        for (int32_t t = 0; t < m; ++t) {
            const int32_t i = idx[t];
            const int32_t gap = quarters ? std::abs(sq[0] - qa[i]) + std::abs(sq[1] - qa[i + 8]) +
                                               std::abs(sq[2] - qb[i]) + std::abs(sq[3] - qb[i + 8])
                                         : std::abs(sc - row[i]);
            const int32_t bound = 16 * gap + base + xprice[i];
            if (bound > best.j) continue;
            if (bound == best.j && tie_key(s, (s.x0 + i) * unit, vy) >= best.key) continue;
            if (first(i, j)) continue;
            pi[np] = i;
            pj[np] = j;
            if (++np == 4) flush();
        }
    }
    if (np > 0) flush();
    if (stats != nullptr) stats->sads += sads;
    *out = Result{best.vx, best.vy, best.sad};
}

// The sums of roi.width x roi.height block positions, in strips of at most
// kMaxWindow columns so that the column sums fit the stack.
void block_sums(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, uint16_t* dst, int32_t ds,
                int32_t width, int32_t height) {
    const int side = block_side(n);
    alignas(32) uint16_t row[kMaxWindow];
    uint8_t* out = reinterpret_cast<uint8_t*>(dst);  // rows may be unaligned (odd steps)
    RollingSums sums;
    for (int32_t x = 0; x < width; x += kMaxWindow) {
        const int32_t w = width - x < kMaxWindow ? width - x : kMaxWindow;
        sums.start(k, n, src + x, ss, w + side - 1);
        for (int32_t y = 0; y < height; ++y) {
            sums.row(y, row, w);
            std::memcpy(row_at(out, ds, y) + 2 * x, row, sizeof(uint16_t) * static_cast<size_t>(w));
        }
    }
}

}  // namespace kplvc::me

using namespace kplvc::me;

namespace {

KplStatus sums_entry(Size n, const Kpl8u* pSrc, Kpl32s srcStep, Kpl16u* pDst, Kpl32s dstStep, KpliSize roi) {
    if (pSrc == nullptr || pDst == nullptr) return kplStsNullPtrErr;
    if (roi.width < 1 || roi.height < 1) return kplStsSizeErr;
    if (srcStep < int64_t{roi.width} + block_side(n) - 1 || dstStep < 2 * int64_t{roi.width})
        return kplStsStepErr;
    block_sums(n, me_kernels(), pSrc, srcStep, pDst, dstStep, roi.width, roi.height);
    return kplStsNoErr;
}

KplStatus full_entry(Size n, const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                     const KplMESearch* pSearch, KplMotionVector* pMV, Kpl32s* pSAD) {
    if (pSrc == nullptr || pRef == nullptr || pSearch == nullptr || pMV == nullptr || pSAD == nullptr)
        return kplStsNullPtrErr;
    if (const KplStatus st = check_search(*pSearch, block_side(n), srcStep, refStep, nullptr, 0);
        st != kplStsNoErr)
        return st;
    Result r;
    search_full(n, me_kernels(), pSrc, srcStep, pRef, refStep, make_setup(*pSearch), &r, nullptr);
    write_result(r, pMV, pSAD);
    return kplStsNoErr;
}

KplStatus sea_entry(Size n, const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                    const Kpl16u* pRefSum, Kpl32s refSumStep, const KplMESearch* pSearch,
                    KplMotionVector* pMV, Kpl32s* pSAD) {
    if (pSrc == nullptr || pRef == nullptr || pSearch == nullptr || pMV == nullptr || pSAD == nullptr)
        return kplStsNullPtrErr;
    if (const KplStatus st = check_search(*pSearch, block_side(n), srcStep, refStep, pRefSum, refSumStep);
        st != kplStsNoErr)
        return st;
    Result r;
    search_sea(n, me_kernels(), pSrc, srcStep, pRef, refStep, pRefSum, refSumStep, make_setup(*pSearch), &r,
               nullptr);
    write_result(r, pMV, pSAD);
    return kplStsNoErr;
}

// The 16x16 search with a plane of the reference's 8x8 sums, which must
// reach eight positions right of and below the window.
KplStatus sea_quarters_entry(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef, Kpl32s refStep,
                             const Kpl16u* pRefSum8, Kpl32s refSum8Step, const KplMESearch* pSearch,
                             const KplMotionVector* pStart, KplMotionVector* pMV, Kpl32s* pSAD) {
    if (pSrc == nullptr || pRef == nullptr || pSearch == nullptr || pMV == nullptr || pSAD == nullptr)
        return kplStsNullPtrErr;
    if (const KplStatus st = check_search(*pSearch, 16, srcStep, refStep, pRefSum8, refSum8Step, 0, 8);
        st != kplStsNoErr)
        return st;
    Result r;
    search_sea(k16, me_kernels(), pSrc, srcStep, pRef, refStep, nullptr, 0, make_setup(*pSearch), &r, nullptr,
               pRefSum8, refSum8Step, pStart);
    write_result(r, pMV, pSAD);
    return kplStsNoErr;
}

}  // namespace

extern "C" {

KPLVC_API KplStatus kpliBlockSums16x16_8u16u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl16u* pDst,
                                                 Kpl32s dstStep, KpliSize roiSize) {
    return sums_entry(k16, pSrc, srcStep, pDst, dstStep, roiSize);
}

KPLVC_API KplStatus kpliBlockSums8x8_8u16u_C1R(const Kpl8u* pSrc, Kpl32s srcStep, Kpl16u* pDst,
                                               Kpl32s dstStep, KpliSize roiSize) {
    return sums_entry(k8, pSrc, srcStep, pDst, dstStep, roiSize);
}

KPLVC_API KplStatus kpliSearchFull16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                  Kpl32s refStep, const KplMESearch* pSearch,
                                                  KplMotionVector* pMV, Kpl32s* pSAD) {
    return full_entry(k16, pSrc, srcStep, pRef, refStep, pSearch, pMV, pSAD);
}

KPLVC_API KplStatus kpliSearchFull8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                Kpl32s refStep, const KplMESearch* pSearch,
                                                KplMotionVector* pMV, Kpl32s* pSAD) {
    return full_entry(k8, pSrc, srcStep, pRef, refStep, pSearch, pMV, pSAD);
}

KPLVC_API KplStatus kpliSearchSEA16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                 Kpl32s refStep, const Kpl16u* pRefSum, Kpl32s refSumStep,
                                                 const KplMESearch* pSearch, KplMotionVector* pMV,
                                                 Kpl32s* pSAD) {
    return sea_entry(k16, pSrc, srcStep, pRef, refStep, pRefSum, refSumStep, pSearch, pMV, pSAD);
}

KPLVC_API KplStatus kpliSearchSEAQuarters16x16_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                                         Kpl32s refStep, const Kpl16u* pRefSum8,
                                                         Kpl32s refSum8Step, const KplMESearch* pSearch,
                                                         const KplMotionVector* pStart, KplMotionVector* pMV,
                                                         Kpl32s* pSAD) {
    return sea_quarters_entry(pSrc, srcStep, pRef, refStep, pRefSum8, refSum8Step, pSearch, pStart, pMV,
                              pSAD);
}

KPLVC_API KplStatus kpliSearchSEA8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                               Kpl32s refStep, const Kpl16u* pRefSum, Kpl32s refSumStep,
                                               const KplMESearch* pSearch, KplMotionVector* pMV,
                                               Kpl32s* pSAD) {
    return sea_entry(k8, pSrc, srcStep, pRef, refStep, pRefSum, refSumStep, pSearch, pMV, pSAD);
}

}  // extern "C"
