// H.264 intra prediction and deblocking, per kernel and ISA level, plus the
// public entry points (with their argument checks). Deblocking runs on smooth
// frames with small steps at the edges, where the filters really fire; the
// frame is restored from a copy every 64 calls so that repeated filtering
// does not flatten it.
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "h264/deblock.h"
#include "h264/pred.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::h264::DeblockKernels;
using kplvc::h264::PredKernels;

constexpr int32_t kStep = 64;

kplvc::bench::Buffer<uint8_t> textured(int seed) {
    kplvc::bench::Buffer<uint8_t> f(static_cast<size_t>(kStep) * 64);
    uint32_t s = static_cast<uint32_t>(seed) * 2654435761u + 1;
    for (size_t i = 0; i < f.size(); ++i) {
        s = s * 1103515245u + 12345u;
        f[i] = static_cast<uint8_t>(60 + (i % kStep) * 2 + ((s >> 16) & 15));
    }
    return f;
}

// Smooth content, an offset step of +-10 every 4 samples in both directions,
// noise 0..3: every edge passes alpha/beta at QP 36 (alpha 63, beta 11).
kplvc::bench::Buffer<uint8_t> smooth_frame() {
    kplvc::bench::Buffer<uint8_t> f(static_cast<size_t>(kStep) * 64);
    uint32_t s = 12345;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < kStep; ++x) {
            s = s * 1103515245u + 12345u;
            const int v =
                128 + (((x / 4) & 1) ? 10 : -10) + (((y / 4) & 1) ? 8 : -8) + static_cast<int>((s >> 16) & 3);
            f[static_cast<size_t>(y * kStep + x)] = static_cast<uint8_t>(v);
        }
    return f;
}

// The 4x4 kernels gather their neighbours from the frame themselves, so the
// per-kernel figures include that gathering; the entry point adds the checks.
void register_pred() {
    static const char* const k4[9] = {"v", "h", "dc", "ddl", "ddr", "vr", "hd", "vl", "hu"};
    for (int m = 0; m < 9; ++m) {
        per_level<PredKernels>(
            std::string("h264pred/4x4_") + k4[m], kplvc::h264::pred_kernels_for,
            [m](const PredKernels& k) { return k.pred4x4[m]; },
            [m](benchmark::State& st, const PredKernels& k) {
                auto f = textured(m);
                for (auto _ : st) {
                    k.pred4x4[m](f.data() + 8 * kStep + 8, kStep, 1 | 2 | 32 | 64);
                    benchmark::ClobberMemory();
                }
            });
        benchmark::RegisterBenchmark(
            (std::string("h264pred/kpliPredictIntra_4x4/") + k4[m]).c_str(), [m](benchmark::State& st) {
                auto f = textured(m);
                for (auto _ : st) {
                    kpliPredictIntra_4x4_H264_8u_C1IR(f.data() + 8 * kStep + 8, kStep, m, 1 | 2 | 32 | 64);
                    benchmark::ClobberMemory();
                }
            });
    }
    static const char* const k16[4] = {"v", "h", "dc", "plane"};
    static const char* const kc[4] = {"dc", "h", "v", "plane"};
    for (int m = 0; m < 4; ++m) {
        per_level<PredKernels>(
            std::string("h264pred/16x16_") + k16[m], kplvc::h264::pred_kernels_for,
            [m](const PredKernels& k) { return k.pred16x16[m]; },
            [m](benchmark::State& st, const PredKernels& k) {
                auto f = textured(m);
                for (auto _ : st) {
                    k.pred16x16[m](f.data() + 8 * kStep + 8, kStep, 3);
                    benchmark::ClobberMemory();
                }
            });
        per_level<PredKernels>(
            std::string("h264pred/chroma_") + kc[m], kplvc::h264::pred_kernels_for,
            [m](const PredKernels& k) { return k.pred_chroma[m]; },
            [m](benchmark::State& st, const PredKernels& k) {
                auto f = textured(m);
                for (auto _ : st) {
                    k.pred_chroma[m](f.data() + 8 * kStep + 8, kStep, 3);
                    benchmark::ClobberMemory();
                }
            });
        benchmark::RegisterBenchmark(
            (std::string("h264pred/kpliPredictIntra_16x16/") + k16[m]).c_str(), [m](benchmark::State& st) {
                auto f = textured(m);
                for (auto _ : st) {
                    kpliPredictIntra_16x16_H264_8u_C1IR(f.data() + 8 * kStep + 8, kStep, m, 1 | 2 | 32);
                    benchmark::ClobberMemory();
                }
            });
        benchmark::RegisterBenchmark(
            (std::string("h264pred/kpliPredictIntraChroma8x8/") + kc[m]).c_str(), [m](benchmark::State& st) {
                auto f = textured(m);
                for (auto _ : st) {
                    kpliPredictIntraChroma8x8_H264_8u_C1IR(f.data() + 8 * kStep + 8, kStep, m, 1 | 2 | 32);
                    benchmark::ClobberMemory();
                }
            });
    }
}

using kplvc::h264::DeblockFn;

// Times one deblocking kernel on the smooth frame at QP 36. Every 64 calls
// the window the filters touch (rows and columns -4..15 around the block) is
// copied back from the original inside the timed loop: a few hundred bytes,
// well under a nanosecond per call, where pausing the timers would cost more
// than the kernel itself.
void time_deblock(benchmark::State& st, DeblockFn fn, const uint8_t* bs) {
    const auto orig = smooth_frame();
    auto f = orig;
    const uint8_t alpha[2] = {63, 63}, beta[2] = {11, 11};
    uint8_t tc0[16];
    for (int i = 0; i < 16; ++i) tc0[i] = bs[i] == 1 ? 2 : 3;
    const size_t at = 16 * kStep + 16;
    uint8_t* p = f.data() + at;
    int n = 0;
    for (auto _ : st) {
        fn(p, kStep, alpha, beta, tc0, bs);
        benchmark::ClobberMemory();
        if (++n == 64) {
            for (int y = -4; y < 16; ++y)
                std::memcpy(p + y * kStep - 4, orig.data() + at + static_cast<size_t>(y * kStep) - 4, 20);
            n = 0;
        }
    }
}

void register_deblock() {
    struct Strength {
        const char* name;
        uint8_t bs[16];
    };
    static const Strength kStrengths[] = {
        {"bs2", {2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2}},
        {"bs4", {4, 4, 4, 4, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2}},
    };
    struct Entry {
        const char* name;
        DeblockFn DeblockKernels::*m;
    };
    static const Entry kEntries[] = {
        {"luma_ver", &DeblockKernels::luma_ver},
        {"luma_hor", &DeblockKernels::luma_hor},
        {"chroma_ver", &DeblockKernels::chroma_ver},
        {"chroma_hor", &DeblockKernels::chroma_hor},
    };
    for (const auto& e : kEntries)
        for (const auto& s : kStrengths) {
            const auto m = e.m;
            const uint8_t* bs = s.bs;
            per_level<DeblockKernels>(
                std::string("h264deblock/") + e.name + "/" + s.name, kplvc::h264::deblock_kernels_for,
                [m](const DeblockKernels& k) { return k.*m; },
                [m, bs](benchmark::State& st, const DeblockKernels& k) { time_deblock(st, k.*m, bs); });
        }
    // Public entry points (kernel for this CPU + checks).
    static const DeblockFn kApi[4] = {
        [](uint8_t* p, int32_t s, const uint8_t* a, const uint8_t* b, const uint8_t* t, const uint8_t* bs) {
            kpliFilterDeblockingLuma_VerEdge_H264_8u_C1IR(p, s, a, b, t, bs);
        },
        [](uint8_t* p, int32_t s, const uint8_t* a, const uint8_t* b, const uint8_t* t, const uint8_t* bs) {
            kpliFilterDeblockingLuma_HorEdge_H264_8u_C1IR(p, s, a, b, t, bs);
        },
        [](uint8_t* p, int32_t s, const uint8_t* a, const uint8_t* b, const uint8_t* t, const uint8_t* bs) {
            kpliFilterDeblockingChroma_VerEdge_H264_8u_C1IR(p, s, a, b, t, bs);
        },
        [](uint8_t* p, int32_t s, const uint8_t* a, const uint8_t* b, const uint8_t* t, const uint8_t* bs) {
            kpliFilterDeblockingChroma_HorEdge_H264_8u_C1IR(p, s, a, b, t, bs);
        },
    };
    static const char* const kApiNames[4] = {
        "kpliFilterDeblockingLuma_VerEdge", "kpliFilterDeblockingLuma_HorEdge",
        "kpliFilterDeblockingChroma_VerEdge", "kpliFilterDeblockingChroma_HorEdge"};
    for (int i = 0; i < 4; ++i)
        for (const auto& s : kStrengths) {
            const DeblockFn fn = kApi[i];
            const uint8_t* bs = s.bs;
            benchmark::RegisterBenchmark((std::string("h264deblock/") + kApiNames[i] + "/" + s.name).c_str(),
                                         [fn, bs](benchmark::State& st) { time_deblock(st, fn, bs); });
        }
}

void register_all() {
    register_pred();
    register_deblock();
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
