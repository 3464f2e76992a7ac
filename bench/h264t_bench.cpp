// H.264 4x4 transforms, quantisers and CAVLC analysis. The kernels are timed
// per ISA level ("h264xform/<kernel>/<isa>"); the public functions once each
// ("h264xform/api/<function>"), with the kernels this CPU selects. In-place
// functions get their input block copied back before every call (a 32-byte
// copy, included in the time) so that every call sees the same realistic
// data.
#include <cstring>

#include "bench/bench_util.h"
#include "h264/transform.h"
#include "h264/transform_tables.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::h264::XformKernels;

// Realistic levels of an AC block (a few small values, mostly zero) and a
// residual of moderate amplitude.
const int16_t kLevels[16] = {12, -5, 3, 0, 4, 2, 0, 0, -1, 0, 1, 0, 0, 0, 0, 0};
const int16_t kResidual[16] = {23, -17, 8, 4, -30, 12, 5, -2, 14, 9, -11, 3, 0, -6, 7, 19};
const int16_t kZigzagIndex[16] = {0, 1, 5, 6, 2, 4, 7, 12, 3, 8, 11, 13, 9, 10, 14, 15};
const Kpl32s kZigzag[16] = {0, 1, 4, 8, 5, 2, 3, 6, 9, 12, 13, 10, 7, 11, 14, 15};
constexpr int kQp = 28;
// The DC quantisers' multiplier, intra rounding and shift at kQp.
constexpr int32_t kDcMf = kplvc::h264::FwdQuantTable[3 * (kQp % 6)];
constexpr int32_t kDcRound = kplvc::h264::dc_rounds[9 + kQp / 6];
constexpr int32_t kDcShift = kQp / 6 + 16;

template <class F>
void api(const char* name, F body) {
    benchmark::RegisterBenchmark((std::string("h264xform/api/") + name).c_str(), body);
}

void register_all() {
    // ---- Kernels, every level ----------------------------------------------------
    per_level<XformKernels>(
        "h264xform/dequant_residual_add", kplvc::h264::xform_kernels_for,
        [](const XformKernels& k) { return k.dequant_residual_add; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) int16_t c[16];
            alignas(64) uint8_t pred[16 * 4], dst[16 * 4];
            std::memset(pred, 120, sizeof pred);
            const int16_t* scale = kplvc::h264::kDequant16[kQp].data();
            for (auto _ : st) {
                std::memcpy(c, kLevels, sizeof c);
                benchmark::DoNotOptimize(k.dequant_residual_add(pred, c, nullptr, dst, {16, 16}, scale));
                benchmark::ClobberMemory();
            }
        });
    per_level<XformKernels>(
        "h264xform/add_dc", kplvc::h264::xform_kernels_for, [](const XformKernels& k) { return k.add_dc; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) uint8_t pred[16 * 4], dst[16 * 4];
            std::memset(pred, 120, sizeof pred);
            for (auto _ : st) {
                k.add_dc(pred, 16, dst, 16, 11);
                benchmark::ClobberMemory();
            }
        });
    per_level<XformKernels>(
        "h264xform/dequant_luma_dc", kplvc::h264::xform_kernels_for,
        [](const XformKernels& k) { return k.dequant_luma_dc; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) int16_t c[16];
            for (auto _ : st) {
                std::memcpy(c, kLevels, sizeof c);
                k.dequant_luma_dc(c, kplvc::h264::InvQuantLuma16x16DCTable[kQp], 0, 0);
                benchmark::ClobberMemory();
            }
        });
    per_level<XformKernels>(
        "h264xform/dequant_residual", kplvc::h264::xform_kernels_for,
        [](const XformKernels& k) { return k.dequant_residual; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) int16_t c[16];
            const int16_t* scale = kplvc::h264::kDequant16[kQp].data();
            for (auto _ : st) {
                std::memcpy(c, kLevels, sizeof c);
                k.dequant_residual(c, 8, nullptr, scale);
                benchmark::ClobberMemory();
            }
        });
    per_level<XformKernels>(
        "h264xform/forward4x4", kplvc::h264::xform_kernels_for,
        [](const XformKernels& k) { return k.forward4x4; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) int16_t c[16];
            for (auto _ : st) {
                std::memcpy(c, kResidual, sizeof c);
                k.forward4x4(c);
                benchmark::ClobberMemory();
            }
        });
    per_level<XformKernels>(
        "h264xform/transform_quant_residual", kplvc::h264::xform_kernels_for,
        [](const XformKernels& k) { return k.transform_quant_residual; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) int16_t c[16];
            uint8_t count, last;
            const int32_t shift = kQp / 6 + 15, round = (1 << shift) / 3;
            const int16_t* mf = kplvc::h264::kQuant16[kQp % 6].data();
            for (auto _ : st) {
                std::memcpy(c, kResidual, sizeof c);
                benchmark::DoNotOptimize(
                    k.transform_quant_residual(c, mf, {round, shift}, kZigzagIndex, &count, &last));
                benchmark::ClobberMemory();
            }
        });
    per_level<XformKernels>(
        "h264xform/transform_quant_luma_dc", kplvc::h264::xform_kernels_for,
        [](const XformKernels& k) { return k.transform_quant_luma_dc; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) int16_t c[16], t[16];
            uint8_t count, last;
            for (auto _ : st) {
                std::memcpy(c, kResidual, sizeof c);
                benchmark::DoNotOptimize(k.transform_quant_luma_dc(c, t, true, kDcMf, kDcRound, kDcShift,
                                                                   kZigzagIndex, &count, &last));
                benchmark::ClobberMemory();
            }
        });
    per_level<XformKernels>(
        "h264xform/transform_quant_chroma_dc", kplvc::h264::xform_kernels_for,
        [](const XformKernels& k) { return k.transform_quant_chroma_dc; },
        [](benchmark::State& st, const XformKernels& k) {
            alignas(64) int16_t c[4], t[4];
            uint8_t count;
            for (auto _ : st) {
                std::memcpy(c, kResidual, sizeof c);
                benchmark::DoNotOptimize(
                    k.transform_quant_chroma_dc(c, t, true, kDcMf, kDcRound, kDcShift, &count));
                benchmark::ClobberMemory();
            }
        });

    // ---- Public functions (the selected kernels) ----------------------------------
    api("DequantTransformResidualAndAdd/ac", [](benchmark::State& st) {
        alignas(64) int16_t c[16];
        alignas(64) uint8_t pred[16 * 4], dst[16 * 4];
        std::memset(pred, 120, sizeof pred);
        for (auto _ : st) {
            std::memcpy(c, kLevels, sizeof c);
            kpliDequantTransformResidualAndAdd_H264_16s_C1I(pred, c, nullptr, dst, 16, 16, kQp, 1);
            benchmark::ClobberMemory();
        }
    });
    api("DequantTransformResidualAndAdd/dc_only", [](benchmark::State& st) {
        alignas(64) uint8_t pred[16 * 4], dst[16 * 4];
        std::memset(pred, 120, sizeof pred);
        const int16_t dc = 700;
        for (auto _ : st) {
            kpliDequantTransformResidualAndAdd_H264_16s_C1I(pred, nullptr, &dc, dst, 16, 16, kQp, 0);
            benchmark::ClobberMemory();
        }
    });
    api("DequantTransformResidual/ac", [](benchmark::State& st) {
        alignas(64) int16_t c[16];
        for (auto _ : st) {
            std::memcpy(c, kLevels, sizeof c);
            kpliDequantTransformResidual_H264_16s_C1I(c, 8, nullptr, 1, kQp);
            benchmark::ClobberMemory();
        }
    });
    api("TransformQuantResidual", [](benchmark::State& st) {
        alignas(64) int16_t c[16];
        Kpl8u count, last;
        for (auto _ : st) {
            std::memcpy(c, kResidual, sizeof c);
            benchmark::DoNotOptimize(
                kpliTransformQuantResidual_H264_16s_C1I(c, kQp, &count, 1, kZigzagIndex, &last));
            benchmark::ClobberMemory();
        }
    });
    api("TransformPrediction", [](benchmark::State& st) {
        alignas(64) uint8_t pred[16 * 4];
        for (int i = 0; i < 64; ++i) pred[i] = static_cast<uint8_t>(i * 7);
        alignas(64) int16_t out[16];
        for (auto _ : st) {
            kpliTransformPrediction_H264_8u16s_C1(pred, 16, out);
            benchmark::ClobberMemory();
        }
    });
    api("TransformDequantLumaDC", [](benchmark::State& st) {
        alignas(64) int16_t c[16];
        for (auto _ : st) {
            std::memcpy(c, kLevels, sizeof c);
            kpliTransformDequantLumaDC_H264_16s_C1I(c, kQp);
            benchmark::ClobberMemory();
        }
    });
    api("TransformDequantChromaDC", [](benchmark::State& st) {
        alignas(64) int16_t c[4];
        for (auto _ : st) {
            std::memcpy(c, kLevels, sizeof c);
            kpliTransformDequantChromaDC_H264_16s_C1I(c, kQp);
            benchmark::ClobberMemory();
        }
    });
    api("DequantTransformResidual_SISP", [](benchmark::State& st) {
        alignas(64) int16_t c[16];
        for (auto _ : st) {
            std::memcpy(c, kLevels, sizeof c);
            kpliDequantTransformResidual_SISP_H264_16s_C1I(c, kResidual, nullptr, 1, kQp, kQp + 2, 0);
            benchmark::ClobberMemory();
        }
    });
    api("TransformDequantChromaDC_SISP", [](benchmark::State& st) {
        alignas(64) int16_t c[4];
        for (auto _ : st) {
            std::memcpy(c, kLevels, sizeof c);
            kpliTransformDequantChromaDC_SISP_H264_16s_C1I(c, kResidual, kQp, kQp + 2, 0);
            benchmark::ClobberMemory();
        }
    });
    api("TransformQuantChromaDC", [](benchmark::State& st) {
        alignas(64) int16_t c[4], t[4];
        Kpl8u count;
        for (auto _ : st) {
            std::memcpy(c, kResidual, sizeof c);
            benchmark::DoNotOptimize(kpliTransformQuantChromaDC_H264_16s_C1I(c, t, kQp, &count, 1, 1));
            benchmark::ClobberMemory();
        }
    });
    api("TransformQuantLumaDC", [](benchmark::State& st) {
        alignas(64) int16_t c[16], t[16];
        Kpl8u count, last;
        for (auto _ : st) {
            std::memcpy(c, kResidual, sizeof c);
            benchmark::DoNotOptimize(
                kpliTransformQuantLumaDC_H264_16s_C1I(c, t, kQp, &count, 1, kZigzagIndex, &last));
            benchmark::ClobberMemory();
        }
    });
    api("EncodeCoeffsCAVLC", [](benchmark::State& st) {
        Kpl8u t1, signs, n, total, runs[16];
        Kpl16s levels[16];
        for (auto _ : st) {
            kpliEncodeCoeffsCAVLC_H264_16s(kLevels, 0, kZigzag, 15, &t1, &signs, &n, &total, levels, runs);
            benchmark::ClobberMemory();
        }
    });
    api("EncodeChromaDcCoeffsCAVLC", [](benchmark::State& st) {
        Kpl8u t1, signs, n, total, runs[4];
        Kpl16s levels[4];
        for (auto _ : st) {
            kpliEncodeChromaDcCoeffsCAVLC_H264_16s(kLevels, &t1, &signs, &n, &total, levels, runs);
            benchmark::ClobberMemory();
        }
    });
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
