// H.263 reconstruction, deblocking and symbol decoding.
#include <vector>

#include "bench/bench_util.h"
#include "h263/recon.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::h263::ReconKernels;

// A 64x64 plane of smooth content with a small step at x = 32 and y = 32,
// where the Annex J filter really changes samples.
std::vector<uint8_t> smooth_plane() {
    std::vector<uint8_t> p(64 * 64);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) p[static_cast<size_t>(y * 64 + x)] = static_cast<uint8_t>(100 + (x >= 32 ? 6 : 0) + (y >= 32 ? 5 : 0) + ((x * 7 + y * 3) & 3));
    return p;
}

void register_all() {
    per_level<ReconKernels>("h263/recon_mb", kplvc::h263::recon_kernels_for, [](const ReconKernels& k) { return k.recon16; },
                            [](benchmark::State& st, const ReconKernels& k) {
                                std::vector<uint8_t> pred(32 * 16, 120), dst(32 * 16);
                                std::vector<int16_t> res(256);
                                for (size_t i = 0; i < res.size(); ++i) res[i] = static_cast<int16_t>(int(i % 41) - 20);
                                for (auto _ : st) {
                                    k.recon16(pred.data(), res.data(), dst.data(), 32);
                                    benchmark::ClobberMemory();
                                }
                            });
    for (bool vertical : {false, true}) {
        auto pick = [vertical](const ReconKernels& k) { return vertical ? k.deblock_ver : k.deblock_hor; };
        per_level<ReconKernels>(vertical ? "h263/deblock_ver" : "h263/deblock_hor", kplvc::h263::recon_kernels_for, pick,
                                [pick, vertical](benchmark::State& st, const ReconKernels& k) {
                                    std::vector<uint8_t> plane = smooth_plane();
                                    uint8_t* edge = plane.data() + (vertical ? 16 * 64 + 32 : 32 * 64 + 16);
                                    const auto fn = pick(k);
                                    for (auto _ : st) {
                                        fn(edge, 64, 6);
                                        benchmark::ClobberMemory();
                                    }
                                });
    }
    // Public entry points (checks + the kernel in use).
    benchmark::RegisterBenchmark("h263/kpliReconMB_H263", [](benchmark::State& st) {
        std::vector<uint8_t> pred(32 * 16, 120), dst(32 * 16);
        std::vector<int16_t> res(256, 3);
        for (auto _ : st) {
            kpliReconMB_H263(pred.data(), res.data(), dst.data(), 32);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("h263/kpliFilterDeblocking_HorEdge_H263_8u_I", [](benchmark::State& st) {
        std::vector<uint8_t> plane = smooth_plane();
        for (auto _ : st) {
            kpliFilterDeblocking_HorEdge_H263_8u_I(plane.data() + 32 * 64 + 16, 64, 12);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("h263/kpliFilterDeblocking_VerEdge_H263_8u_I", [](benchmark::State& st) {
        std::vector<uint8_t> plane = smooth_plane();
        for (auto _ : st) {
            kpliFilterDeblocking_VerEdge_H263_8u_I(plane.data() + 16 * 64 + 32, 64, 12);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("h263/kpliPredictBlock_OBMC_8u", [](benchmark::State& st) {
        std::vector<uint8_t> ref = smooth_plane(), dst(64 * 8);
        const Kpl16s c[2] = {1, 1}, l[2] = {-3, 2}, r[2] = {4, 0}, a[2] = {0, -5}, b[2] = {2, 3};
        for (auto _ : st) {
            kpliPredictBlock_OBMC_8u(ref.data() + 24 * 64 + 24, dst.data(), 64, c, l, r, a, b);
            benchmark::ClobberMemory();
        }
    });
    for (int E : {8, 16, 32}) {
        benchmark::RegisterBenchmark(("h263/kpliExpandFrame_H263_8u/176x144/E" + std::to_string(E)).c_str(), [E](benchmark::State& st) {
            const int S = 176 + 2 * E;
            std::vector<uint8_t> buf(static_cast<size_t>(S * (144 + 2 * E)), 9);
            for (auto _ : st) {
                kpliExpandFrame_H263_8u(buf.data(), 176, 144, E, S);
                benchmark::ClobberMemory();
            }
        });
    }
    benchmark::RegisterBenchmark("h263/kpliDecodeMV_H263", [](benchmark::State& st) {
        // "0000110" (+4) then "0010" (+2), repeated.
        uint8_t stream[8] = {0x0C, 0x80, 0, 0, 0, 0, 0, 0};
        Kpl16s mv[6] = {1, 2, 3, 4, 5, 6};
        for (auto _ : st) {
            Kpl8u* p = stream;
            int off = 0;
            kpliDecodeMV_H263(&p, &off, mv);
            benchmark::DoNotOptimize(mv);
        }
    });
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
