// MPEG-2 and MPEG-4 quantisers: each kernel per ISA level, and the exported
// entry points (checks and dispatch included) on the table in use.
#include <cstdint>
#include <vector>

#include "bench/bench_util.h"
#include "kplvc.h"
#include "mpeg2/quant.h"
#include "mpeg4/quant.h"

namespace {

using kplvc::bench::per_level;

// A block of typical decoded levels and its weights; each iteration starts
// from the same input so the work does not drift to all-clamped values.
struct Data {
    alignas(64) int16_t src[64];
    alignas(64) int16_t w[64];
    alignas(64) float m[64];
    Data() {
        for (int i = 0; i < 64; ++i) {
            src[i] = static_cast<int16_t>(((i * 37) % 61) - 30);
            w[i] = kplvc::mpeg2::kDefaultIntraMatrix[i];
            m[i] = kplvc::mpeg2::kDefaultIntraRecip.v[i];
        }
    }
};

template <class Fn>
void run_dequant(benchmark::State& st, Fn fn, bool weights) {
    Data d;
    alignas(64) int16_t blk[64];
    for (auto _ : st) {
        __builtin_memcpy(blk, d.src, sizeof blk);
        fn(blk, 12, weights ? d.w : nullptr);
        benchmark::DoNotOptimize(blk);
        benchmark::ClobberMemory();
    }
}

template <class Fn>
void run_quant(benchmark::State& st, Fn fn, bool matrix) {
    Data d;
    alignas(64) int16_t blk[64];
    for (int i = 0; i < 64; ++i) d.src[i] = static_cast<int16_t>(d.src[i] * 40);
    for (auto _ : st) {
        __builtin_memcpy(blk, d.src, sizeof blk);
        benchmark::DoNotOptimize(fn(blk, 12, matrix ? d.m : nullptr));
        benchmark::ClobberMemory();
    }
}

// The copy of the input block alone, to read the figures above against.
void copy_only(benchmark::State& st) {
    Data d;
    alignas(64) int16_t blk[64];
    for (auto _ : st) {
        __builtin_memcpy(blk, d.src, sizeof blk);
        benchmark::DoNotOptimize(blk);
        benchmark::ClobberMemory();
    }
}

void register_all() {
    using K2 = kplvc::mpeg2::QuantKernels;
    using K4 = kplvc::mpeg4::QuantKernels;
    struct Inv2 {
        const char* name;
        kplvc::mpeg2::DequantFn K2::*m;
        bool w;
    };
    for (Inv2 c : {Inv2{"inv_intra", &K2::dequant_intra, true}, Inv2{"inv_inter", &K2::dequant_inter, true},
                   Inv2{"inv_flat", &K2::dequant_flat, false}}) {
        per_level<K2>(
            std::string("mpeg2quant/") + c.name, kplvc::mpeg2::quant_kernels_for,
            [c](const K2& k) { return k.*(c.m); },
            [c](benchmark::State& st, const K2& k) { run_dequant(st, k.*(c.m), c.w); });
    }
    struct Fwd2 {
        const char* name;
        kplvc::mpeg2::QuantFn K2::*m;
        bool mx;
    };
    for (Fwd2 c : {Fwd2{"quant_intra", &K2::quant_intra, true}, Fwd2{"quant_inter", &K2::quant_inter, true},
                   Fwd2{"quant_flat", &K2::quant_flat, false}}) {
        per_level<K2>(
            std::string("mpeg2quant/") + c.name, kplvc::mpeg2::quant_kernels_for,
            [c](const K2& k) { return k.*(c.m); },
            [c](benchmark::State& st, const K2& k) { run_quant(st, k.*(c.m), c.mx); });
    }
    struct Inv4 {
        const char* name;
        kplvc::mpeg4::DequantFn K4::*m;
        bool w;
    };
    for (Inv4 c : {Inv4{"inv_intra", &K4::dequant_intra, true}, Inv4{"inv_inter", &K4::dequant_inter, true},
                   Inv4{"inv_flat", &K4::dequant_flat, false}}) {
        per_level<K4>(
            std::string("mpeg4quant/") + c.name, kplvc::mpeg4::quant_kernels_for,
            [c](const K4& k) { return k.*(c.m); },
            [c](benchmark::State& st, const K4& k) { run_dequant(st, k.*(c.m), c.w); });
    }

    // Exported functions on this CPU's table.
    benchmark::RegisterBenchmark("mpeg2quant/copy_only", copy_only);
    benchmark::RegisterBenchmark("mpeg2quant/kpliQuantInvIntra_MPEG2_16s_C1I", [](benchmark::State& st) {
        run_dequant(st, kpliQuantInvIntra_MPEG2_16s_C1I, true);
    });
    benchmark::RegisterBenchmark("mpeg2quant/kpliQuantInv_MPEG2_16s_C1I/weights", [](benchmark::State& st) {
        run_dequant(st, kpliQuantInv_MPEG2_16s_C1I, true);
    });
    benchmark::RegisterBenchmark("mpeg2quant/kpliQuantInv_MPEG2_16s_C1I/flat", [](benchmark::State& st) {
        run_dequant(st, kpliQuantInv_MPEG2_16s_C1I, false);
    });
    benchmark::RegisterBenchmark("mpeg2quant/kpliQuantIntra_MPEG2_16s_C1I", [](benchmark::State& st) {
        Kpl32s n;
        run_quant(
            st,
            [&n](int16_t* b, int32_t qp, const float* m) {
                return kpliQuantIntra_MPEG2_16s_C1I(b, qp, m, &n);
            },
            true);
    });
    benchmark::RegisterBenchmark("mpeg2quant/kpliQuant_MPEG2_16s_C1I/matrix", [](benchmark::State& st) {
        Kpl32s n;
        run_quant(
            st,
            [&n](int16_t* b, int32_t qp, const float* m) { return kpliQuant_MPEG2_16s_C1I(b, qp, m, &n); },
            true);
    });
    benchmark::RegisterBenchmark("mpeg2quant/kpliQuant_MPEG2_16s_C1I/flat", [](benchmark::State& st) {
        Kpl32s n;
        run_quant(
            st,
            [&n](int16_t* b, int32_t qp, const float* m) { return kpliQuant_MPEG2_16s_C1I(b, qp, m, &n); },
            false);
    });
    benchmark::RegisterBenchmark("mpeg4quant/kpliQuantInvIntra_MPEG4_16s_C1I", [](benchmark::State& st) {
        run_dequant(st, kpliQuantInvIntra_MPEG4_16s_C1I, true);
    });
    benchmark::RegisterBenchmark("mpeg4quant/kpliQuantInv_MPEG4_16s_C1I/weights", [](benchmark::State& st) {
        run_dequant(st, kpliQuantInv_MPEG4_16s_C1I, true);
    });
    benchmark::RegisterBenchmark("mpeg4quant/kpliQuantInv_MPEG4_16s_C1I/flat", [](benchmark::State& st) {
        run_dequant(st, kpliQuantInv_MPEG4_16s_C1I, false);
    });

    // Chroma vectors and limiting (scalar).
    benchmark::RegisterBenchmark("mpeg4mv/kpliComputeChroma4MV_MPEG4", [](benchmark::State& st) {
        KplMotionVector mv[4] = {{5, -7}, {9, 3}, {-2, 11}, {4, 4}}, out;
        const Kpl8u flags[4] = {1, 1, 0, 1};
        for (auto _ : st) {
            kpliComputeChroma4MV_MPEG4(mv, &out, flags);
            benchmark::DoNotOptimize(out);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("mpeg4mv/kpliLimitMVToRect_MPEG4", [](benchmark::State& st) {
        const KplMotionVector in = {300, -40};
        const KpliRect r = {0, 0, 176, 144};
        KplMotionVector out;
        for (auto _ : st) {
            kpliLimitMVToRect_MPEG4(&in, &out, &r, 128, 16, 16);
            benchmark::DoNotOptimize(out);
            benchmark::ClobberMemory();
        }
    });
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
