// H.264 inter prediction: every luma position at 16x16 and 8x8, chroma 8x8
// and 4x4, weighted averaging 16x16 (the default average and explicit
// weights, byte-sized and wide). Hot caches: one reference window and one
// destination reused.
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "h264/inter.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::h264::InterKernels;

constexpr int32_t kStep = 64;
constexpr const char* kPosName[16] = {"G", "a", "b", "c", "d", "e", "f", "g",
                                      "h", "i", "j", "k", "n", "p", "q", "r"};

kplvc::bench::Buffer<uint8_t> reference_plane() {
    kplvc::bench::Buffer<uint8_t> v(kStep * 40);
    uint32_t x = 12345;
    for (auto& b : v) {
        x = x * 1103515245u + 12345u;
        b = static_cast<uint8_t>(x >> 24);
    }
    return v;
}

void register_all() {
    for (int s : {0, 3}) {  // 16x16, 8x8
        const int w = kplvc::h264::kLumaW[s], h = kplvc::h264::kLumaH[s];
        for (int pos = 0; pos < 16; ++pos) {
            const std::string name = "h264inter/luma" + std::to_string(w) + "x" + std::to_string(h) + "_" +
                                     kPosName[pos] + "(" + std::to_string(pos % 4) + "," +
                                     std::to_string(pos / 4) + ")";
            per_level<InterKernels>(
                name, kplvc::h264::inter_kernels_for,
                [s, pos](const InterKernels& k) { return k.luma[s][pos]; },
                [s, pos](benchmark::State& st, const InterKernels& k) {
                    kplvc::bench::Buffer<uint8_t> src = reference_plane(), dst(16 * 16);
                    const auto fn = k.luma[s][pos];
                    for (auto _ : st) {
                        fn(src.data() + 3 * kStep + 3, kStep, dst.data(), 16);
                        benchmark::ClobberMemory();
                    }
                });
        }
    }
    for (int s : {0, 3}) {  // chroma 8x8, 4x4
        const int w = kplvc::h264::kChromaW[s], h = kplvc::h264::kChromaH[s];
        per_level<InterKernels>(
            "h264inter/chroma" + std::to_string(w) + "x" + std::to_string(h) + "_(3,5)",
            kplvc::h264::inter_kernels_for, [s](const InterKernels& k) { return k.chroma[s]; },
            [s](benchmark::State& st, const InterKernels& k) {
                kplvc::bench::Buffer<uint8_t> src = reference_plane(), dst(8 * 8);
                const auto fn = k.chroma[s];
                for (auto _ : st) {
                    fn(src.data(), kStep, dst.data(), 8, 15, 9, 25, 15);
                    benchmark::ClobberMemory();
                }
            });
    }
    per_level<InterKernels>(
        "h264inter/weight16x16_default", kplvc::h264::inter_kernels_for,
        [](const InterKernels& k) { return k.average[0]; },
        [](benchmark::State& st, const InterKernels& k) {
            kplvc::bench::Buffer<uint8_t> a = reference_plane(), b = reference_plane();
            const auto fn = k.average[0];
            for (auto _ : st) {
                fn(a.data(), kStep, b.data() + 1, kStep, 16);
                benchmark::ClobberMemory();
            }
        });
    // Explicit weights 40 and 24 (logWD 5): the byte-weight kernel, which the
    // entry point takes whenever |w0| + |w1| <= 128; weights 128 and -64 need
    // the general one.
    struct Explicit {
        const char* name;
        bool small;
        int w0, w1;
    };
    for (Explicit e : {Explicit{"explicit", true, 40, 24}, Explicit{"explicit_wide", false, 128, -64}}) {
        auto pick = [e](const InterKernels& k) { return e.small ? k.weight_small[0] : k.weight[0]; };
        per_level<InterKernels>(
            std::string("h264inter/weight16x16_") + e.name, kplvc::h264::inter_kernels_for, pick,
            [e, pick](benchmark::State& st, const InterKernels& k) {
                kplvc::bench::Buffer<uint8_t> a = reference_plane(), b = reference_plane();
                const auto fn = pick(k);
                for (auto _ : st) {
                    fn(a.data(), kStep, b.data() + 1, kStep, 16, e.w0, e.w1, 5, 1);
                    benchmark::ClobberMemory();
                }
            });
    }
    // The entry point with weights beyond bytes: an even pair (the implicit
    // 128 and -64) goes to the byte kernel halved, an odd one to the general
    // kernel.
    for (Explicit e : {Explicit{"wide_even", false, 128, -64}, Explicit{"wide_odd", false, 127, -65}})
        benchmark::RegisterBenchmark(
            (std::string("h264inter/kpliWeightedAverage_16x16/") + e.name).c_str(),
            [e](benchmark::State& st) {
                kplvc::bench::Buffer<uint8_t> a = reference_plane(), b = reference_plane();
                for (auto _ : st) {
                    kpliWeightedAverage_H264_8u_C1IR(a.data(), kStep, b.data() + 1, kStep, 5, e.w0, e.w1, 1,
                                                     1, {16, 16});
                    benchmark::ClobberMemory();
                }
            });
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
