// Motion estimation and rate control: the kernel table and the searches
// behind the exported functions.
//
// The searches take their kernels as an argument, so that tests and
// benchmarks can run a whole search on the table of any ISA level and count
// the SADs it computes; the entry points pass the table of this CPU.
#pragma once

#include <cstdint>

#include "core/cpu.h"
#include "kplvc.h"
#include "mc/mc.h"
#include "mpeg4/qpel.h"

namespace kplvc::me {

// Block sizes of the searches: 16x16 and 8x8.
enum Size : int { k16 = 0, k8 = 1, kSizes };
constexpr int block_side(Size s) { return s == k16 ? 16 : 8; }

// sad[i] = sum of |src - ref[i]| over the N x N block, i = 0..3, every
// reference at a full-sample position with the same step. At most
// 256 * 255 = 65280.
using SadX4Fn = void (*)(const uint8_t* src, int32_t src_step, const uint8_t* const* ref, int32_t ref_step,
                         int32_t* sad);
// col[i] += add[i] - sub[i] for i < n, modulo 2^16: moves a window of column
// sums down one row. Exact while every sum is that of at most 257 samples.
using ColUpdateFn = void (*)(uint16_t* col, const uint8_t* add, const uint8_t* sub, int32_t n);
// dst[i] = col[i] + col[i + 1] + ... + col[i + N - 1], i < n, modulo 2^16:
// one row of N x N block sums from N-row column sums (at most 65280).
using RowSumsFn = void (*)(const uint16_t* col, uint16_t* dst, int32_t n);

// The successive-elimination filter of one row of displacements: writes to
// idx, in increasing order, every i < n (n <= 2048) with
// 16 |sc - sums[i]| + price[i] <= limit and returns how many there are.
// price[i] is at most 65535 * 19 and sc at most 65280, so every term fits
// int32.
using SeaFilterFn = int32_t (*)(const uint16_t* sums, const int32_t* price, int32_t n, int32_t sc,
                                int32_t limit, uint16_t* idx);

// The filter with the bound of a 16x16 block's four 8x8 quarters: every
// i < n (n <= 2048) with 16 (|sq[0] - a[i]| + |sq[1] - a[i + 8]| +
// |sq[2] - b[i]| + |sq[3] - b[i + 8]|) + price[i] <= limit, a and b rows of
// n + 8 quarter sums (window rows j and j + 8), sq[] in 0..65535; every term
// fits int32.
using SeaFilterQuartersFn = int32_t (*)(const uint16_t* a, const uint16_t* b, const int32_t* sq,
                                        const int32_t* price, int32_t n, int32_t limit, uint16_t* idx);

struct MeKernels {
    SadX4Fn sad_x4[kSizes];
    RowSumsFn row_sums[kSizes];
    ColUpdateFn col_update;
    SeaFilterFn sea_filter;
    SeaFilterQuartersFn sea_filter_quarters;
};

MeKernels me_kernels_for(cpu::Isa isa);
const MeKernels& me_kernels();

// ---- The searches ---------------------------------------------------------------

// The largest window side a search accepts: fcode 7 in half samples spans
// 64 * 64 / 2 = 2048 integer displacements.
constexpr int kMaxWindow = 2048;

// A search record that passed the checks, with the derived values.
struct Setup {
    int32_t x0, y0, w, h;  // window, integer displacements
    int32_t shift;         // 1 half samples, 2 quarter samples
    int32_t px, py;        // predictor, vector units
    int32_t lambda, fcode, tie;
};
Setup make_setup(const KplMESearch& s);

struct Result {
    int32_t vx, vy;  // vector units
    int32_t sad;
};

// Counts of one search's work, for benchmarks and tests.
struct Stats {
    int64_t sads = 0;  // SADs computed (blocks compared, whatever the kernel)
};

void search_full(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs,
                 const Setup& s, Result* out, Stats* stats);
// sum/sum_step: a sum plane at the co-located block, or null; sum8/sum8_step
// (16x16 blocks only): a plane of 8x8 sums there, or null; start: a vector
// to try first with the predictor and zero, or null.
void search_sea(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs,
                const uint16_t* sum, int32_t sum_step, const Setup& s, Result* out, Stats* stats,
                const uint16_t* sum8 = nullptr, int32_t sum8_step = 0,
                const KplMotionVector* start = nullptr);
void search_mvfast(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, const uint8_t* ref, int32_t rs,
                   const Setup& s, const KplMVFAST& p, Result* out, Stats* stats);
// out holds the centre on entry and the result on return. The positions are
// predicted with the motion-compensation kernels `mc` (those a decoder
// uses), so a refinement prices exactly what will be predicted.
void refine_half(Size n, const MeKernels& k, const mc::McKernels& mc, const uint8_t* src, int32_t ss,
                 const uint8_t* ref, int32_t rs, const Setup& s, int32_t rc, Result* out, Stats* stats);

// As refine_half in quarter samples (the record's quarterSample is 1):
// centre + step * (dx, dy), step 2 (the half positions around a whole-sample
// vector) or 1 (the quarter positions around a half-sample one), predicted
// with the MPEG-4 quarter-sample kernels `q`.
void refine_qpel(Size n, const MeKernels& k, const mpeg4::QpelKernels& q, const uint8_t* src, int32_t ss,
                 const uint8_t* ref, int32_t rs, const Setup& s, int32_t rc, int32_t step, Result* out,
                 Stats* stats);

// dst (byte step ds) = the sums of width x height block positions from src.
void block_sums(Size n, const MeKernels& k, const uint8_t* src, int32_t ss, uint16_t* dst, int32_t ds,
                int32_t width, int32_t height);

// Length in bits of the code of a vector difference component d (vector
// units, inside [-64f + 1, 64f - 1]) with fcode 1..7.
int32_t mv_bits(int32_t d, int32_t fcode);

}  // namespace kplvc::me

namespace kplvc::me::x86::sse2 {
void upgrade_me(MeKernels& k);
}
namespace kplvc::me::x86::avx2 {
void upgrade_me(MeKernels& k);
}
