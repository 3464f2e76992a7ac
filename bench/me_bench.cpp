// Motion searches on real content: every macroblock (or 8x8 block) of a
// 352x288 frame searched in the previous frame over +-16 samples, with the
// median of the neighbours' vectors as predictor and a price of 4 SAD units
// per bit. Each search runs on the kernels of every level where the SAD
// kernel changes. Counters: SADs per block (the blocks compared, whatever
// the kernel) and time per block. mvfast_half adds the half-sample
// refinement to MVFAST; mvfast_qpel searches in quarter samples and adds
// the quarter-sample refinement (half positions, then quarter positions,
// with the MPEG-4 quarter-sample filter).
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "me/me.h"

namespace {

using namespace kplvc::me;
using kplvc::bench::per_level;

constexpr int kW = 352, kH = 288, kPad = 32, kRange = 16;

// The two frames, the reference padded by edge replication so that every
// block's window lies inside it.
struct Frames {
    std::vector<uint8_t> cur, ref;
    int32_t ref_step = kW + 2 * kPad;
    bool ok = false;
    Frames() {
        std::ifstream in(std::string(KPLVC_TEST_DATA_DIR) + "/me_frames_352x288.gray", std::ios::binary);
        const std::vector<uint8_t> f((std::istreambuf_iterator<char>(in)), {});
        if (f.size() != 2u * kW * kH) return;
        cur.assign(f.begin() + kW * kH, f.end());
        ref.resize(static_cast<size_t>(ref_step) * (kH + 2 * kPad));
        for (int y = 0; y < kH + 2 * kPad; ++y)
            for (int x = 0; x < ref_step; ++x) {
                const int sy = std::min(std::max(y - kPad, 0), kH - 1),
                          sx = std::min(std::max(x - kPad, 0), kW - 1);
                ref[static_cast<size_t>(y) * ref_step + x] = f[static_cast<size_t>(sy) * kW + sx];
            }
        ok = true;
    }
    const uint8_t* ref_at(int x, int y) const {
        return ref.data() + static_cast<ptrdiff_t>(y + kPad) * ref_step + x + kPad;
    }
};

const Frames& frames() {
    static const Frames f;
    return f;
}

int16_t median3(int a, int b, int c) {
    return static_cast<int16_t>(std::max(std::min(a, b), std::min(std::max(a, b), c)));
}

enum class Kind { full, sea, sea_plane, sea_quarters, mvfast, mvfast_half, mvfast_qpel };

// One pass over the frame: every block searched in raster order, the
// neighbours' results feeding the predictor (and MVFAST's candidates).
template <Kind K>
int64_t search_frame(Size n, const MeKernels& k, std::vector<KplMotionVector>& mv,
                     std::vector<uint16_t>& plane) {
    const Frames& f = frames();
    const int side = block_side(n), bw = kW / side, bh = kH / side;
    const int32_t plane_w = kW + 2 * kRange, plane_step = 2 * plane_w;
    if (K == Kind::sea_plane || K == Kind::sea_quarters)  // the reference's sums: once per frame
        block_sums(K == Kind::sea_quarters ? k8 : n, k, f.ref_at(-kRange, -kRange), f.ref_step, plane.data(),
                   plane_step, plane_w, kH + 2 * kRange);
    Stats stats;
    for (int by = 0; by < bh; ++by)
        for (int bx = 0; bx < bw; ++bx) {
            const int i = by * bw + bx;
            const KplMotionVector zero{0, 0};
            const KplMotionVector a = bx > 0 ? mv[i - 1] : zero, b = by > 0 ? mv[i - bw] : zero,
                                  c = by > 0 && bx + 1 < bw ? mv[i - bw + 1] : zero;
            const KplMESearch s{{-kRange, -kRange, 2 * kRange, 2 * kRange},
                                {median3(a.dx, b.dx, c.dx), median3(a.dy, b.dy, c.dy)},
                                64,
                                K == Kind::mvfast_qpel ? 2 : 1,
                                K == Kind::mvfast_qpel ? 1 : 0,
                                KPLVC_ME_TIE_ZERO};
            const Setup setup = make_setup(s);
            const uint8_t* src = f.cur.data() + static_cast<ptrdiff_t>(by * side) * kW + bx * side;
            const uint8_t* ref = f.ref_at(bx * side, by * side);
            Result r;
            if constexpr (K == Kind::full) {
                search_full(n, k, src, kW, ref, f.ref_step, setup, &r, &stats);
            } else if constexpr (K == Kind::sea) {
                search_sea(n, k, src, kW, ref, f.ref_step, nullptr, 0, setup, &r, &stats);
            } else if constexpr (K == Kind::sea_quarters) {
                const uint16_t* sums =
                    plane.data() + static_cast<ptrdiff_t>(by * side + kRange) * plane_w + bx * side + kRange;
                search_sea(n, k, src, kW, ref, f.ref_step, nullptr, 0, setup, &r, &stats, sums, plane_step);
            } else if constexpr (K == Kind::sea_plane) {
                const uint16_t* sums =
                    plane.data() + static_cast<ptrdiff_t>(by * side + kRange) * plane_w + bx * side + kRange;
                search_sea(n, k, src, kW, ref, f.ref_step, sums, plane_step, setup, &r, &stats);
            } else {
                const KplMVFAST p{{a, b, c},
                                  (bx > 0) | (by > 0) << 1 | (by > 0 && bx + 1 < bw) << 2,
                                  1,
                                  2,
                                  n == k16 ? 512 : 128};
                search_mvfast(n, k, src, kW, ref, f.ref_step, setup, p, &r, &stats);
                // Then the eight half-sample positions around the result,
                // predicted as a decoder would (rounding control 0).
                if constexpr (K == Kind::mvfast_half)
                    refine_half(n, k, kplvc::mc::mc_kernels(), src, kW, ref, f.ref_step, setup, 0, &r,
                                &stats);
                if constexpr (K == Kind::mvfast_qpel)
                    for (int step = 2; step >= 1; --step)
                        refine_qpel(n, k, kplvc::mpeg4::qpel_kernels(), src, kW, ref, f.ref_step, setup, 0,
                                    step, &r, &stats);
            }
            mv[i] = KplMotionVector{static_cast<int16_t>(r.vx), static_cast<int16_t>(r.vy)};
        }
    return stats.sads;
}

template <Kind K>
void run(benchmark::State& st, Size n, const MeKernels& k) {
    if (!frames().ok) {
        st.SkipWithError("tests/data/me_frames_352x288.gray is missing");
        return;
    }
    const int side = block_side(n), blocks = (kW / side) * (kH / side);
    std::vector<KplMotionVector> mv(static_cast<size_t>(blocks));
    std::vector<uint16_t> plane(static_cast<size_t>(kW + 2 * kRange) * (kH + 2 * kRange));
    int64_t sads = 0, passes = 0;
    for (auto _ : st) {
        sads += search_frame<K>(n, k, mv, plane);
        ++passes;
        benchmark::ClobberMemory();
    }
    st.counters["SADs/block"] = static_cast<double>(sads) / static_cast<double>(passes * blocks);
    st.counters["ns/block"] =
        benchmark::Counter(static_cast<double>(blocks) * 1e-9,
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void register_all() {
    struct Search {
        const char* name;
        void (*fn)(benchmark::State&, Size, const MeKernels&);
    };
    const Search searches[] = {{"full", run<Kind::full>},
                               {"sea", run<Kind::sea>},
                               {"sea_plane", run<Kind::sea_plane>},
                               {"sea_quarters", run<Kind::sea_quarters>},
                               {"mvfast", run<Kind::mvfast>},
                               {"mvfast_half", run<Kind::mvfast_half>},
                               {"mvfast_qpel", run<Kind::mvfast_qpel>}};
    for (Size n : {k16, k8})
        for (const Search& s : searches) {
            const std::string name = std::string("me/") + s.name + (n == k16 ? "16x16" : "8x8");
            // The eliminating searches change with their filter (a level
            // above the 8x8 SAD's), the others with the SAD kernel.
            // (Without a plane the 16x16 search bounds by quarters too.)
            if (s.fn == run<Kind::sea_quarters> && n != k16) continue;
            const bool quarters = n == k16 && (s.fn == run<Kind::sea> || s.fn == run<Kind::sea_quarters>);
            const bool sea = quarters || s.fn == run<Kind::sea> || s.fn == run<Kind::sea_plane>;
            per_level<MeKernels>(
                name, me_kernels_for,
                [n, sea, quarters](const MeKernels& k) {
                    return quarters ? reinterpret_cast<const void*>(k.sea_filter_quarters)
                           : sea    ? reinterpret_cast<const void*>(k.sea_filter)
                                    : reinterpret_cast<const void*>(k.sad_x4[n]);
                },
                [n, fn = s.fn](benchmark::State& st, const MeKernels& k) { fn(st, n, k); });
        }
}
KPLVC_BENCH_REGISTER(register_all);

}  // namespace
