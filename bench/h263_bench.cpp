// H.263 reconstruction, deblocking and symbol decoding.
#include <vector>

#include <cstring>

#include "bench/bench_util.h"
#include "h263/recon.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::h263::ReconKernels;

// A 64x64 plane of smooth content with a small step at x = 32 and y = 32,
// where the Annex J filter really changes samples.
kplvc::bench::Buffer<uint8_t> smooth_plane() {
    kplvc::bench::Buffer<uint8_t> p(64 * 64);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            p[static_cast<size_t>(y * 64 + x)] =
                static_cast<uint8_t>(100 + (x >= 32 ? 6 : 0) + (y >= 32 ? 5 : 0) + ((x * 7 + y * 3) & 3));
    return p;
}

void register_all() {
    per_level<ReconKernels>(
        "h263/recon_mb", kplvc::h263::recon_kernels_for, [](const ReconKernels& k) { return k.recon16; },
        [](benchmark::State& st, const ReconKernels& k) {
            kplvc::bench::Buffer<uint8_t> pred(32 * 16, 120), dst(32 * 16);
            kplvc::bench::Buffer<int16_t> res(256);
            for (size_t i = 0; i < res.size(); ++i) res[i] = static_cast<int16_t>(int(i % 41) - 20);
            for (auto _ : st) {
                k.recon16(pred.data(), res.data(), dst.data(), 32);
                benchmark::ClobberMemory();
            }
        });
    for (bool vertical : {false, true}) {
        auto pick = [vertical](const ReconKernels& k) { return vertical ? k.deblock_ver : k.deblock_hor; };
        per_level<ReconKernels>(vertical ? "h263/deblock_ver" : "h263/deblock_hor",
                                kplvc::h263::recon_kernels_for, pick,
                                [pick, vertical](benchmark::State& st, const ReconKernels& k) {
                                    kplvc::bench::Buffer<uint8_t> plane = smooth_plane();
                                    uint8_t* edge = plane.data() + (vertical ? 16 * 64 + 32 : 32 * 64 + 16);
                                    const auto fn = pick(k);
                                    for (auto _ : st) {
                                        fn(edge, 64, 6);
                                        benchmark::ClobberMemory();
                                    }
                                });
    }
    per_level<ReconKernels>(
        "h263/obmc", kplvc::h263::recon_kernels_for, [](const ReconKernels& k) { return k.obmc; },
        [](benchmark::State& st, const ReconKernels& k) {
            kplvc::bench::Buffer<uint8_t> ref = smooth_plane(), dst(64 * 8);
            const Kpl16s c[2] = {1, 1}, l[2] = {-3, 2}, r[2] = {4, 0}, a[2] = {0, -5}, b[2] = {2, 3};
            const kplvc::h263::ObmcVectors mv{c, l, r, a, b};
            for (auto _ : st) {
                k.obmc(ref.data() + 24 * 64 + 24, dst.data(), 64, mv);
                benchmark::ClobberMemory();
            }
        });
    // Public entry points (checks + the kernel in use).
    benchmark::RegisterBenchmark("h263/kpliReconMB_H263", [](benchmark::State& st) {
        kplvc::bench::Buffer<uint8_t> pred(32 * 16, 120), dst(32 * 16);
        kplvc::bench::Buffer<int16_t> res(256, 3);
        for (auto _ : st) {
            kpliReconMB_H263(pred.data(), res.data(), dst.data(), 32);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("h263/kpliFilterDeblocking_HorEdge_H263_8u_I", [](benchmark::State& st) {
        kplvc::bench::Buffer<uint8_t> plane = smooth_plane();
        for (auto _ : st) {
            kpliFilterDeblocking_HorEdge_H263_8u_I(plane.data() + 32 * 64 + 16, 64, 12);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("h263/kpliFilterDeblocking_VerEdge_H263_8u_I", [](benchmark::State& st) {
        kplvc::bench::Buffer<uint8_t> plane = smooth_plane();
        for (auto _ : st) {
            kpliFilterDeblocking_VerEdge_H263_8u_I(plane.data() + 16 * 64 + 32, 64, 12);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("h263/kpliPredictBlock_OBMC_8u", [](benchmark::State& st) {
        kplvc::bench::Buffer<uint8_t> ref = smooth_plane(), dst(64 * 8);
        const Kpl16s c[2] = {1, 1}, l[2] = {-3, 2}, r[2] = {4, 0}, a[2] = {0, -5}, b[2] = {2, 3};
        for (auto _ : st) {
            kpliPredictBlock_OBMC_8u(ref.data() + 24 * 64 + 24, dst.data(), 64, c, l, r, a, b);
            benchmark::ClobberMemory();
        }
    });
    for (auto [name, fn] : {std::pair<const char*, KplStatus (*)(const Kpl8u*, Kpl8u*, int)>{
                                "kpliCopyMB_H263_8u", kpliCopyMB_H263_8u},
                            {"kpliCopyApproxHMB_H263_8u", kpliCopyApproxHMB_H263_8u},
                            {"kpliCopyApproxVMB_H263_8u", kpliCopyApproxVMB_H263_8u},
                            {"kpliCopyApproxHVMB_H263_8u", kpliCopyApproxHVMB_H263_8u},
                            {"kpliCopyApproxHVBlock_H263_8u", kpliCopyApproxHVBlock_H263_8u}}) {
        benchmark::RegisterBenchmark((std::string("h263/") + name).c_str(), [fn = fn](benchmark::State& st) {
            kplvc::bench::Buffer<uint8_t> src = smooth_plane(), dst(64 * 16);
            for (auto _ : st) {
                fn(src.data() + 8 * 64 + 8, dst.data(), 64);
                benchmark::ClobberMemory();
            }
        });
    }
    for (int E : {8, 16, 32}) {
        benchmark::RegisterBenchmark(("h263/kpliExpandFrame_H263_8u/176x144/E" + std::to_string(E)).c_str(),
                                     [E](benchmark::State& st) {
                                         const int S = 176 + 2 * E;
                                         kplvc::bench::Buffer<uint8_t> buf(
                                             static_cast<size_t>(S * (144 + 2 * E)), 9);
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

// A stream of one block coded by the library's own encoder.
kplvc::bench::Buffer<uint8_t> coded_block(const int16_t* levels, bool intra) {
    kplvc::bench::Buffer<uint8_t> buf(256, 0);
    Kpl8u* p = buf.data();
    int off = 0;
    if (intra) kpliEncode_IntraDCVLC_H263_16s1u(levels[0], &p, &off);
    kpliEncode_ACVLC_H263_16s1u(levels, &p, &off, intra ? 1 : 0);
    return buf;
}

void register_blocks() {
    // Inter: ten codes spread over the low frequencies (the full inverse DCT
    // runs, since scan position 10 is coded).
    static int16_t inter10[64] = {};
    const int pos[10] = {0, 1, 8, 2, 9, 16, 3, 17, 24, 32};
    for (int i = 0; i < 10; ++i) inter10[pos[i]] = static_cast<int16_t>((i & 1) ? -(i + 1) : i + 2);
    // Intra: DC and about 30 AC levels.
    static int16_t intra30[64] = {};
    intra30[0] = 100;
    for (int i = 1; i < 31; ++i)
        intra30[i * 2 % 64] = static_cast<int16_t>((i % 5) - 2 == 0 ? 1 : (i % 5) - 2);
    benchmark::RegisterBenchmark("h263/kpliDecodeBlockCoef_Inter_H263_1u16s/10codes",
                                 [](benchmark::State& st) {
                                     const auto s = coded_block(inter10, false);
                                     int16_t res[64];
                                     for (auto _ : st) {
                                         Kpl8u* p = const_cast<Kpl8u*>(s.data());
                                         int off = 0;
                                         kpliDecodeBlockCoef_Inter_H263_1u16s(&p, &off, res, 7);
                                         benchmark::DoNotOptimize(res);
                                     }
                                 });
    benchmark::RegisterBenchmark("h263/kpliDecodeBlockCoef_Intra_H263_1u8u/30codes",
                                 [](benchmark::State& st) {
                                     const auto s = coded_block(intra30, true);
                                     uint8_t px[64];
                                     for (auto _ : st) {
                                         Kpl8u* p = const_cast<Kpl8u*>(s.data());
                                         int off = 0;
                                         kpliDecodeBlockCoef_Intra_H263_1u8u(&p, &off, px, 8, 7);
                                         benchmark::DoNotOptimize(px);
                                     }
                                 });
    benchmark::RegisterBenchmark(
        "h263/kpliDecodeBlockCoef_AdvIntra_H263_1u8u/30codes", [](benchmark::State& st) {
            const auto s = coded_block(intra30, true);
            uint8_t px[64];
            Kpl16s row[8] = {-1}, col[8] = {-1};
            for (auto _ : st) {
                Kpl8u* p = const_cast<Kpl8u*>(s.data());
                int off = 0;
                row[0] = col[0] = -1;
                kpliDecodeBlockCoef_AdvIntra_H263_1u8u(&p, &off, px, 8, row, col, 7, 3);
                benchmark::DoNotOptimize(px);
            }
        });
    benchmark::RegisterBenchmark("h263/kpliEncode_ACVLC_H263_16s1u/30codes", [](benchmark::State& st) {
        kplvc::bench::Buffer<uint8_t> buf(256);
        for (auto _ : st) {
            Kpl8u* p = buf.data();
            int off = 0;
            kpliEncode_ACVLC_H263_16s1u(intra30, &p, &off, 1);
            benchmark::DoNotOptimize(buf.data());
        }
    });
    benchmark::RegisterBenchmark("h263/kpliQuantInv_H263_C1I", [](benchmark::State& st) {
        int16_t blk[64];
        for (int i = 0; i < 64; ++i) blk[i] = static_cast<int16_t>(i % 7 - 3);
        for (auto _ : st) {
            int16_t b[64];
            std::memcpy(b, blk, sizeof b);
            kpliQuantInv_H263_C1I(b, 9);
            benchmark::DoNotOptimize(b);
        }
    });
}

KPLVC_BENCH_REGISTER(register_all);
KPLVC_BENCH_REGISTER(register_blocks);

}  // namespace
