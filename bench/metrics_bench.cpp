// Block-matching metrics: every kernel at every ISA level where it changes,
// and the exported entry points (with their argument checks) at the cases the
// speed targets name.
#include <cstdint>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "block/metrics.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::block::MetricsKernels;

// A source and a reference area inside one picture-like buffer, 64 bytes a
// row, with the reference one row and a few columns off.
struct Data {
    static constexpr int32_t kStep = 64;
    kplvc::bench::Buffer<uint8_t> pic = kplvc::bench::Buffer<uint8_t>(kStep * 40);
    kplvc::bench::Buffer<int16_t> coefs = kplvc::bench::Buffer<int16_t>(64 * 8);
    Data() {
        uint32_t x = 12345;
        for (auto& v : pic) {
            x = x * 1103515245u + 12345u;
            v = static_cast<uint8_t>(x >> 23);
        }
        for (size_t i = 0; i < coefs.size(); ++i) coefs[i] = static_cast<int16_t>((i * 7919) % 61 - 30);
    }
    const uint8_t* src() const { return pic.data() + 3; }
    const uint8_t* ref() const { return pic.data() + kStep * 18 + 5; }
};

const Data& data() {
    static const Data d;
    return d;
}

const char* const kPos[4] = {"ff", "fh", "hf", "hh"};

void register_all() {
    const int32_t st = Data::kStep;
    for (int p = 0; p < 4; ++p) {
        per_level<MetricsKernels>(
            std::string("metrics/sad16x16_") + kPos[p], kplvc::block::metrics_kernels_for,
            [p](const MetricsKernels& k) { return k.sad16x16[p]; },
            [p, st](benchmark::State& s, const MetricsKernels& k) {
                const Data& d = data();
                for (auto _ : s) benchmark::DoNotOptimize(k.sad16x16[p](d.src(), st, d.ref(), st));
            });
        per_level<MetricsKernels>(
            std::string("metrics/sad8x8_") + kPos[p], kplvc::block::metrics_kernels_for,
            [p](const MetricsKernels& k) { return k.sad8x8[p]; },
            [p, st](benchmark::State& s, const MetricsKernels& k) {
                const Data& d = data();
                for (auto _ : s) benchmark::DoNotOptimize(k.sad8x8[p](d.src(), st, d.ref(), st));
            });
        per_level<MetricsKernels>(
            std::string("metrics/sqrdiff16x16_") + kPos[p], kplvc::block::metrics_kernels_for,
            [p](const MetricsKernels& k) { return k.sqr16x16[p]; },
            [p, st](benchmark::State& s, const MetricsKernels& k) {
                const Data& d = data();
                for (auto _ : s) benchmark::DoNotOptimize(k.sqr16x16[p](d.src(), st, d.ref(), st));
            });
        per_level<MetricsKernels>(
            std::string("metrics/varmeandiff16x16_") + kPos[p], kplvc::block::metrics_kernels_for,
            [p](const MetricsKernels& k) { return k.varmeandiff16x16[p]; },
            [p, st](benchmark::State& s, const MetricsKernels& k) {
                const Data& d = data();
                const int32_t sums[4] = {8000, 8100, 8200, 8300};
                int32_t var[4], mean[4];
                for (auto _ : s) {
                    k.varmeandiff16x16[p](d.src(), st, d.ref(), st, sums, var, mean);
                    benchmark::DoNotOptimize(var);
                    benchmark::DoNotOptimize(mean);
                }
            });
    }
    for (int idx : {0, 5, 15}) {
        per_level<MetricsKernels>(
            std::string("metrics/sqrdiff16x16B_") + kPos[idx & 3] + "_" + kPos[idx >> 2],
            kplvc::block::metrics_kernels_for, [idx](const MetricsKernels& k) { return k.sqr16x16_bi[idx]; },
            [idx, st](benchmark::State& s, const MetricsKernels& k) {
                const Data& d = data();
                for (auto _ : s)
                    benchmark::DoNotOptimize(k.sqr16x16_bi[idx](d.src(), st, d.ref(), st, d.ref() + 7, st));
            });
    }
    per_level<MetricsKernels>(
        "metrics/sad4x4", kplvc::block::metrics_kernels_for, [](const MetricsKernels& k) { return k.sad4x4; },
        [st](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            for (auto _ : s) benchmark::DoNotOptimize(k.sad4x4(d.src(), st, d.ref(), st));
        });
    for (int n : {8, 4}) {
        per_level<MetricsKernels>(
            "metrics/sad16x16blocks" + std::to_string(n) + "x" + std::to_string(n),
            kplvc::block::metrics_kernels_for,
            [n](const MetricsKernels& k) { return n == 8 ? k.sad16x16_blocks8x8 : k.sad16x16_blocks4x4; },
            [n, st](benchmark::State& s, const MetricsKernels& k) {
                const Data& d = data();
                uint16_t out[16];
                const auto f = n == 8 ? k.sad16x16_blocks8x8 : k.sad16x16_blocks4x4;
                for (auto _ : s) {
                    f(d.src(), st, d.ref(), st, out);
                    benchmark::DoNotOptimize(out);
                }
            });
    }
    per_level<MetricsKernels>(
        "metrics/variance16x16", kplvc::block::metrics_kernels_for,
        [](const MetricsKernels& k) { return k.variance16x16; },
        [st](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            for (auto _ : s) benchmark::DoNotOptimize(k.variance16x16(d.src(), st));
        });
    per_level<MetricsKernels>(
        "metrics/meanabsdev16x16", kplvc::block::metrics_kernels_for,
        [](const MetricsKernels& k) { return k.meanabsdev16x16; },
        [st](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            for (auto _ : s) benchmark::DoNotOptimize(k.meanabsdev16x16(d.src(), st));
        });
    per_level<MetricsKernels>(
        "metrics/varmean8x8_8u", kplvc::block::metrics_kernels_for,
        [](const MetricsKernels& k) { return k.varmean8x8_8u; },
        [st](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            int32_t v, m;
            for (auto _ : s) {
                k.varmean8x8_8u(d.src(), st, &v, &m);
                benchmark::DoNotOptimize(v);
                benchmark::DoNotOptimize(m);
            }
        });
    per_level<MetricsKernels>(
        "metrics/varmean8x8_16s", kplvc::block::metrics_kernels_for,
        [](const MetricsKernels& k) { return k.varmean8x8_16s; },
        [](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            int32_t v, m;
            for (auto _ : s) {
                k.varmean8x8_16s(d.coefs.data(), 32, &v, &m);
                benchmark::DoNotOptimize(v);
                benchmark::DoNotOptimize(m);
            }
        });
    per_level<MetricsKernels>(
        "metrics/edges16x16", kplvc::block::metrics_kernels_for,
        [](const MetricsKernels& k) { return k.edges16x16; },
        [st](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            // A high count: the whole block is scanned.
            for (auto _ : s) benchmark::DoNotOptimize(k.edges16x16(d.src(), st, 40, 250));
        });
    for (int n : {16, 8}) {
        per_level<MetricsKernels>(
            "metrics/sumsdiff" + std::to_string(n) + "x" + std::to_string(n),
            kplvc::block::metrics_kernels_for,
            [n](const MetricsKernels& k) { return n == 16 ? k.sumsdiff16x16 : k.sumsdiff8x8; },
            [n, st](benchmark::State& s, const MetricsKernels& k) {
                const Data& d = data();
                int16_t sums[16], diff[256];
                const auto f = n == 16 ? k.sumsdiff16x16 : k.sumsdiff8x8;
                for (auto _ : s) {
                    f(d.src(), st, d.ref(), st, sums, diff);
                    benchmark::DoNotOptimize(sums);
                    benchmark::DoNotOptimize(diff);
                }
            });
    }
    per_level<MetricsKernels>(
        "metrics/countzeros8x8", kplvc::block::metrics_kernels_for,
        [](const MetricsKernels& k) { return k.countzeros8x8; },
        [](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            for (auto _ : s) benchmark::DoNotOptimize(k.countzeros8x8(d.coefs.data()));
        });
    per_level<MetricsKernels>(
        "metrics/texture_error8x8", kplvc::block::metrics_kernels_for,
        [](const MetricsKernels& k) { return k.texture_error8x8; },
        [st](benchmark::State& s, const MetricsKernels& k) {
            const Data& d = data();
            int16_t out[64];
            for (auto _ : s) {
                benchmark::DoNotOptimize(k.texture_error8x8(d.src(), st, d.ref(), out));
                benchmark::DoNotOptimize(out);
            }
        });

    // Exported entry points with the table for this CPU: the figures a caller sees.
    auto api = [](const char* name, auto call) {
        benchmark::RegisterBenchmark((std::string("metrics/api/") + name).c_str(),
                                     [call](benchmark::State& s) {
                                         const Data& d = data();
                                         Kpl32s r = 0;
                                         for (auto _ : s) {
                                             call(d, &r);
                                             benchmark::DoNotOptimize(r);
                                         }
                                     });
    };
    api("kpliSAD16x16_8u32s/0", [](const Data& d, Kpl32s* r) {
        kpliSAD16x16_8u32s(d.src(), Data::kStep, d.ref(), Data::kStep, r, 0);
    });
    api("kpliSAD16x16_8u32s/12", [](const Data& d, Kpl32s* r) {
        kpliSAD16x16_8u32s(d.src(), Data::kStep, d.ref(), Data::kStep, r, 12);
    });
    api("kpliSAD8x8_8u32s_C1R/0", [](const Data& d, Kpl32s* r) {
        kpliSAD8x8_8u32s_C1R(d.src(), Data::kStep, d.ref(), Data::kStep, r, 0);
    });
    api("kpliSqrDiff16x16_8u32s/0", [](const Data& d, Kpl32s* r) {
        kpliSqrDiff16x16_8u32s(d.src(), Data::kStep, d.ref(), Data::kStep, 0, r);
    });
    api("kpliVariance16x16_8u32s",
        [](const Data& d, Kpl32s* r) { kpliVariance16x16_8u32s(d.src(), Data::kStep, r); });
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
