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
                const uint16_t* sum, int32_t sum_step, const Setup& s, Result* out, Stats* stats) {
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

    // The predictor and the zero vector first: a good early J makes the
    // bound bite from the first row on.
    const int32_t ip = clamp_to(to_full(s.px, s.shift), s.x0, s.x0 + s.w - 1) - s.x0;
    const int32_t jp = clamp_to(to_full(s.py, s.shift), s.y0, s.y0 + s.h - 1) - s.y0;
    const int32_t iz = clamp_to(0, s.x0, s.x0 + s.w - 1) - s.x0;
    const int32_t jz = clamp_to(0, s.y0, s.y0 + s.h - 1) - s.y0;
    {
        const uint8_t* r[4] = {at(ip, jp), at(iz, jz), at(iz, jz), at(iz, jz)};
        int32_t sad[4];
        k.sad_x4[n](src, ss, r, rs, sad);
        best.offer(s, (s.x0 + ip) * unit, (s.y0 + jp) * unit, price(ip, jp, sad[0]), sad[0]);
        best.offer(s, (s.x0 + iz) * unit, (s.y0 + jz) * unit, price(iz, jz, sad[1]), sad[1]);
        sads += (ip == iz && jp == jz) ? 1 : 2;
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
    RollingSums rolling;
    if (sum == nullptr) rolling.start(k, n, at(0, 0), rs, s.w + side - 1);
    // Plane rows are read through bytes: an odd step leaves them unaligned.
    const uint8_t* plane = reinterpret_cast<const uint8_t*>(sum);
    for (int32_t j = 0; j < s.h; ++j) {
        // A plane row whose cells are aligned is read in place; an odd step
        // leaves every other row's cells unaligned, and those are copied.
        const uint16_t* row = sums;
        if (sum == nullptr) {
            rolling.row(j, sums, s.w);
        } else {
            const uint8_t* at_row = row_at(plane, sum_step, s.y0 + j) + 2 * s.x0;
            if (reinterpret_cast<uintptr_t>(at_row) % alignof(uint16_t) == 0)
                row = reinterpret_cast<const uint16_t*>(at_row);
            else
                std::memcpy(sums, at_row, sizeof(uint16_t) * static_cast<size_t>(s.w));
        }
        const int32_t base = s.lambda * bits.y[j];
        const int32_t vy = (s.y0 + j) * unit;
        // The filter passes every displacement whose bound is at most the
        // best J at the row's start; the best only falls along the row, so
        // each survivor is tested again against the best of the moment.
        const int32_t m = k.sea_filter(row, xprice, s.w, sc, best.j - base, idx);
        for (int32_t t = 0; t < m; ++t) {
            const int32_t i = idx[t];
            const int32_t bound = 16 * std::abs(sc - row[i]) + base + xprice[i];
            if (bound > best.j) continue;
            if (bound == best.j && tie_key(s, (s.x0 + i) * unit, vy) >= best.key) continue;
            if ((i == ip && j == jp) || (i == iz && j == jz)) continue;
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

KPLVC_API KplStatus kpliSearchSEA8x8_8u32s_C1R(const Kpl8u* pSrc, Kpl32s srcStep, const Kpl8u* pRef,
                                               Kpl32s refStep, const Kpl16u* pRefSum, Kpl32s refSumStep,
                                               const KplMESearch* pSearch, KplMotionVector* pMV,
                                               Kpl32s* pSAD) {
    return sea_entry(k8, pSrc, srcStep, pRef, refStep, pRefSum, refSumStep, pSearch, pMV, pSAD);
}

}  // extern "C"
