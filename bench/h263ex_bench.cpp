// The H.263 companions: block decoders with the extended escape and the
// advanced intra rules, the TCOEF writer, Annex D vector codes, OBMC with a
// rounding type and the forward quantiser per ISA level.
#include <cstring>
#include <vector>

#include "bench/bench_util.h"
#include "h263/obmc.h"
#include "h263/quant.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;

// Levels of a busy inter block: 14 codes over the low frequencies, one of
// them an escape.
const int16_t* busy_levels() {
    static int16_t lv[64] = {};
    const int pos[14] = {0, 1, 8, 2, 9, 16, 3, 10, 17, 24, 32, 25, 11, 4};
    for (int i = 0; i < 14; ++i) lv[pos[i]] = static_cast<int16_t>((i & 1) ? -(i % 4 + 1) : i % 3 + 1);
    lv[18] = 40;
    return lv;
}

std::vector<uint8_t> written(const int16_t* lv, int scan, int table, int flags) {
    std::vector<uint8_t> buf(256, 0);
    Kpl8u* p = buf.data();
    int off = 0, count;
    kpliEncode_TCOEFEx_H263_16s1u(lv, &p, &off, scan, 0, table, flags, &count);
    return buf;
}

void register_ex() {
    benchmark::RegisterBenchmark(
        "h263/kpliDecodeBlockCoefEx_Inter_H263_1u16s/15codes", [](benchmark::State& st) {
            const auto s = written(busy_levels(), 0, 0, 0);
            int16_t res[64];
            for (auto _ : st) {
                Kpl8u* p = const_cast<Kpl8u*>(s.data());
                int off = 0;
                kpliDecodeBlockCoefEx_Inter_H263_1u16s(&p, &off, res, 7, KPLVC_H263_EXT_ESCAPE);
                benchmark::DoNotOptimize(res);
            }
        });
    benchmark::RegisterBenchmark(
        "h263/kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u/15codes", [](benchmark::State& st) {
            const auto s = written(busy_levels(), 1, 1, 0);
            uint8_t px[64];
            Kpl16s row[8] = {1001, 30}, col[8] = {999, -20};
            for (auto _ : st) {
                Kpl8u* p = const_cast<Kpl8u*>(s.data());
                int off = 0;
                kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(&p, &off, px, 8, row, col, 7,
                                                         KPLVC_H263_AIC_VERTICAL,
                                                         KPLVC_H263_AIC_CODED | KPLVC_H263_AIC_ABOVE);
                benchmark::DoNotOptimize(px);
            }
        });
    benchmark::RegisterBenchmark("h263/kpliEncode_TCOEFEx_H263_16s1u/15codes", [](benchmark::State& st) {
        std::vector<uint8_t> buf(256);
        const int16_t* lv = busy_levels();
        for (auto _ : st) {
            Kpl8u* p = buf.data();
            int off = 0, count;
            kpliEncode_TCOEFEx_H263_16s1u(lv, &p, &off, 0, 0, 0, 0, &count);
            benchmark::DoNotOptimize(buf.data());
        }
    });
    benchmark::RegisterBenchmark("h263/kpliDecodeMVEx_H263/uvlc", [](benchmark::State& st) {
        // 0011100 (+5), 01110 (-3).
        uint8_t s[16] = {0x39, 0xC0};
        const Kpl16s pred[2] = {4, -2};
        Kpl16s mv[2];
        for (auto _ : st) {
            Kpl8u* p = s;
            int off = 0;
            kpliDecodeMVEx_H263(&p, &off, pred, mv, KPLVC_H263_MVD_UVLC);
            benchmark::DoNotOptimize(mv);
        }
    });
    using kplvc::h263::ObmcKernels;
    per_level<ObmcKernels>(
        "h263/obmc_round", kplvc::h263::obmc_kernels_for, [](const ObmcKernels& k) { return k.obmc; },
        [](benchmark::State& st, const ObmcKernels& k) {
            std::vector<uint8_t> ref(64 * 64), dst(64 * 8);
            for (size_t i = 0; i < ref.size(); ++i) ref[i] = static_cast<uint8_t>(i * 7 + (i >> 6) * 3);
            const Kpl16s c[2] = {1, 1}, l[2] = {-3, 2}, r[2] = {4, 0}, a[2] = {0, -5}, b[2] = {2, 3};
            const kplvc::h263::ObmcVectors mv{c, l, r, a, b};
            for (auto _ : st) {
                k.obmc(ref.data() + 24 * 64 + 24, dst.data(), 64, mv, 1);
                benchmark::ClobberMemory();
            }
        });
    using kplvc::h263::QuantKernels;
    per_level<QuantKernels>(
        "h263/quant_fwd", kplvc::h263::quant_kernels_for, [](const QuantKernels& k) { return k.quant_fwd; },
        [](benchmark::State& st, const QuantKernels& k) {
            int16_t blk[64];
            for (int i = 0; i < 64; ++i) blk[i] = static_cast<int16_t>((i * 37) % 151 - 75);
            for (auto _ : st) {
                int16_t b[64];
                std::memcpy(b, blk, sizeof b);
                benchmark::DoNotOptimize(k.quant_fwd(b, 0.5f / 7, 0, 1));
            }
        });
}

KPLVC_BENCH_REGISTER(register_ex);

}  // namespace
