// MPEG-4 display post-filters: one 8x8 block edge (deblocking) and one 8x8
// block (deringing) per ISA level, and the plane functions on a CIF
// luminance plane.
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "kplvc.h"
#include "mpeg4/postfilter.h"

namespace {

using kplvc::bench::per_level;
using kplvc::mpeg4::PostKernels;

// Content like a coarsely quantised picture: steps of a few levels between
// 8x8 blocks with a little noise (smooth lines, the DC offset mode), or
// strong texture (the default mode). Deblocking works in place, so the
// smooth lines settle after the first call; the mode each line takes stays.
kplvc::bench::Buffer<uint8_t> plane(int w, int h, bool texture) {
    kplvc::bench::Buffer<uint8_t> p(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int block = ((x >> 3) * 5 + (y >> 3) * 3) & 7;
            const int v = texture ? 60 + ((x * 37 + y * 91 + ((x * y) >> 2)) & 127)
                                  : 90 + 3 * block + ((x * 7 + y * 3) & 1);
            p[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(v);
        }
    return p;
}

void register_all() {
    for (int texture = 0; texture < 2; ++texture)
        for (bool vertical : {false, true}) {
            auto pick = [vertical](const PostKernels& k) { return vertical ? k.deblock_ver : k.deblock_hor; };
            const std::string name = std::string("mpeg4/post_deblock_") + (vertical ? "ver" : "hor") +
                                     (texture ? "_texture" : "_smooth");
            per_level<PostKernels>(name, kplvc::mpeg4::post_kernels_for, pick,
                                   [pick, vertical, texture](benchmark::State& st, const PostKernels& k) {
                                       auto p = plane(64, 64, texture != 0);
                                       uint8_t* edge = p.data() + (vertical ? 16 * 64 + 32 : 32 * 64 + 16);
                                       const auto fn = pick(k);
                                       for (auto _ : st) {
                                           fn(edge, 64, 8);
                                           benchmark::ClobberMemory();
                                       }
                                   });
        }
    // Two blocks' edge at once (the plane function's step along a row).
    per_level<PostKernels>(
        "mpeg4/post_deblock_hor16_smooth", kplvc::mpeg4::post_kernels_for,
        [](const PostKernels& k) { return k.deblock_hor16; },
        [](benchmark::State& st, const PostKernels& k) {
            auto p = plane(64, 64, false);
            for (auto _ : st) {
                k.deblock_hor16(p.data() + 32 * 64 + 16, 64, 8, 8);
                benchmark::ClobberMemory();
            }
        });
    per_level<PostKernels>(
        "mpeg4/post_dering", kplvc::mpeg4::post_kernels_for, [](const PostKernels& k) { return k.dering; },
        [](benchmark::State& st, const PostKernels& k) {
            auto p = plane(64, 64, true);
            uint8_t dst[8 * 8];
            for (auto _ : st) {
                k.dering(p.data() + 16 * 64 + 16, 64, dst, 8, 120, 4);
                benchmark::DoNotOptimize(dst);
            }
        });
    per_level<PostKernels>(
        "mpeg4/post_minmax", kplvc::mpeg4::post_kernels_for, [](const PostKernels& k) { return k.minmax; },
        [](benchmark::State& st, const PostKernels& k) {
            auto p = plane(64, 64, true);
            int32_t lo, hi;
            for (auto _ : st) {
                k.minmax(p.data() + 16 * 64 + 16, 64, &lo, &hi);
                benchmark::DoNotOptimize(lo);
                benchmark::DoNotOptimize(hi);
            }
        });
    // Whole CIF luminance planes through the exported functions (the
    // kernels of this CPU): 1584 horizontal and 1548 vertical edges, 1584
    // blocks.
    for (int f = 0; f < 3; ++f) {
        static const char* kName[3] = {"kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR",
                                       "kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR",
                                       "kpliFilterDeringing_MPEG4_8u_C1R"};
        benchmark::RegisterBenchmark(
            (std::string("mpeg4/") + kName[f] + "/352x288").c_str(), [f](benchmark::State& st) {
                auto src = plane(352, 288, false), dst = plane(352, 288, false);
                std::vector<Kpl8u> qp(22 * 18, 12);
                const KpliSize roi = {352, 288};
                for (auto _ : st) {
                    if (f == 0)
                        kpliFilterDeblocking_HorEdge_MPEG4_8u_C1IR(src.data(), 352, roi, qp.data(), 22, 16);
                    else if (f == 1)
                        kpliFilterDeblocking_VerEdge_MPEG4_8u_C1IR(src.data(), 352, roi, qp.data(), 22, 16);
                    else
                        kpliFilterDeringing_MPEG4_8u_C1R(src.data(), 352, dst.data(), 352, roi, qp.data(), 22,
                                                         16);
                    benchmark::ClobberMemory();
                }
            });
    }
}
KPLVC_BENCH_REGISTER(register_all);

}  // namespace
