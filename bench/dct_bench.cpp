// 8x8 transform family: each kernel at each ISA level where it changes
// ("dct/<function>/<isa>", doing the same work as the exported function with
// that level's table), and the exported functions themselves
// ("dct/api/<function>", best table plus argument checks).
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "block/dct.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::block::DctKernels;

// Coefficients of a typical intra block: large DC, decaying AC.
struct Data {
    alignas(64) int16_t coef[64];
    alignas(64) int16_t out[64];
    alignas(64) int16_t tmp[64];
    alignas(64) int16_t tmp2[64];
    alignas(64) uint8_t px[8 * 32];
    Data() {
        uint32_t s = 12345;
        for (int i = 0; i < 64; ++i) {
            s = s * 1103515245u + 12345u;
            const int r = i / 8, c = i % 8;
            const int mag = 400 / (1 + r + c);
            coef[i] = static_cast<int16_t>(static_cast<int>((s >> 16) % (2 * mag + 1)) - mag);
        }
        coef[0] = 900;
        for (int i = 0; i < 8 * 32; ++i) px[i] = static_cast<uint8_t>(i * 37 + 11);
    }
};

// The work is a lambda inlined into the timing loop (no indirect call per
// iteration besides the kernel's own).
template <class Pick, class Work>
void reg(const char* name, Pick pick, Work work) {
    per_level<DctKernels>(std::string("dct/") + name, kplvc::block::dct_kernels_for, pick,
                          [work](benchmark::State& st, const DctKernels& k) {
                              Data d;
                              for (auto _ : st) {
                                  work(d, k);
                                  benchmark::ClobberMemory();
                              }
                          });
}

template <class Work>
void api(const char* name, Work work) {
    benchmark::RegisterBenchmark((std::string("dct/api/") + name).c_str(), [work](benchmark::State& st) {
        Data d;
        for (auto _ : st) {
            work(d);
            benchmark::ClobberMemory();
        }
    });
}

void register_all() {
    using K = DctKernels;
    reg(
        "Inv_16s_C1I", [](const K& k) { return k.inv; }, [](Data& d, const K& k) { k.inv(d.out, d.out); });
    reg(
        "Inv_16s_C1", [](const K& k) { return k.inv; }, [](Data& d, const K& k) { k.inv(d.coef, d.out); });
    reg(
        "Inv_4x4_16s_C1I", [](const K& k) { return k.inv_4x4; },
        [](Data& d, const K& k) { k.inv_4x4(d.out); });
    reg(
        "Inv_2x2_16s_C1I", [](const K& k) { return k.inv_2x2; },
        [](Data& d, const K& k) { k.inv_2x2(d.out); });
    reg(
        "Inv_16s8u_C1R", [](const K& k) { return k.inv_u8; },
        [](Data& d, const K& k) { k.inv_u8(d.coef, d.px, 32); });
    reg(
        "Fwd_16s_C1", [](const K& k) { return k.fwd; }, [](Data& d, const K& k) { k.fwd(d.coef, d.out); });
    reg(
        "Fwd_8u16s_C1R", [](const K& k) { return k.fwd_u8; },
        [](Data& d, const K& k) { k.fwd_u8(d.px, 32, d.out); });
    reg(
        "Inv_AANTransposed_16s8u_C1R/count64", [](const K& k) { return k.aan; },
        [](Data& d, const K& k) {
            k.aan(d.coef, d.tmp);
            k.put_u8(d.tmp, d.px, 32);
        });
    reg(
        "Inv_AANTransposed_16s8u_C1R/count8", [](const K& k) { return k.aan_corner; },
        [](Data& d, const K& k) {
            k.aan_corner(d.coef, d.tmp);
            k.put_u8(d.tmp, d.px, 32);
        });
    reg(
        "Inv_AANTransposed_16s_C1R/count64", [](const K& k) { return k.aan; },
        [](Data& d, const K& k) {
            k.aan(d.coef, d.tmp);
            k.put_16s(d.tmp, d.out, 16);
        });
    reg(
        "Inv_AANTransposed_16s8u_P2C2R/count64", [](const K& k) { return k.aan; },
        [](Data& d, const K& k) {
            k.aan(d.coef, d.tmp);
            k.aan(d.coef, d.tmp2);
            k.put_u8_p2(d.tmp, d.tmp2, d.px, 32);
        });
    reg(
        "Inv_AANTransposed_16s_P2C2R/count64", [](const K& k) { return k.aan; },
        [](Data& d, const K& k) {
            k.aan(d.coef, d.tmp);
            k.aan(d.coef, d.tmp2);
            alignas(64) int16_t wide[8 * 16];
            k.put_16s_p2(d.tmp, d.tmp2, wide, 32);
            benchmark::DoNotOptimize(wide);
        });
    reg(
        "2x4x8Frw_16s_C1I", [](const K& k) { return k.field_fwd; },
        [](Data& d, const K& k) { k.field_fwd(d.out); });
    reg(
        "2x4x8Inv_16s_C1I", [](const K& k) { return k.field_inv; },
        [](Data& d, const K& k) { k.field_inv(d.out); });

    api("kpliDCT8x8Inv_16s_C1I", [](Data& d) { kpliDCT8x8Inv_16s_C1I(d.out); });
    api("kpliDCT8x8Inv_16s_C1", [](Data& d) { kpliDCT8x8Inv_16s_C1(d.coef, d.out); });
    api("kpliDCT8x8Inv_4x4_16s_C1I", [](Data& d) { kpliDCT8x8Inv_4x4_16s_C1I(d.out); });
    api("kpliDCT8x8Inv_2x2_16s_C1I", [](Data& d) { kpliDCT8x8Inv_2x2_16s_C1I(d.out); });
    api("kpliDCT8x8Inv_16s8u_C1R", [](Data& d) { kpliDCT8x8Inv_16s8u_C1R(d.coef, d.px, 32); });
    api("kpliDCTInv_8x8_16s8u", [](Data& d) { kpliDCTInv_8x8_16s8u(d.coef, d.px, 32); });
    api("kpliDCT8x8Fwd_16s_C1", [](Data& d) { kpliDCT8x8Fwd_16s_C1(d.coef, d.out); });
    api("kpliDCT8x8Fwd_8u16s_C1R", [](Data& d) { kpliDCT8x8Fwd_8u16s_C1R(d.px, 32, d.out); });
    for (int count : {64, 8, 1, 0}) {
        const std::string c = "/count" + std::to_string(count);
        api(("kpliDCT8x8Inv_AANTransposed_16s8u_C1R" + c).c_str(),
            [count](Data& d) { kpliDCT8x8Inv_AANTransposed_16s8u_C1R(d.coef, d.px, 32, count); });
        api(("kpliDCT8x8Inv_AANTransposed_16s_C1R" + c).c_str(),
            [count](Data& d) { kpliDCT8x8Inv_AANTransposed_16s_C1R(d.coef, d.out, 16, count); });
    }
    api("kpliDCT8x8Inv_AANTransposed_16s8u_P2C2R/count64",
        [](Data& d) { kpliDCT8x8Inv_AANTransposed_16s8u_P2C2R(d.coef, d.coef, d.px, 32, 64, 64); });
    api("kpliDCT8x8Inv_AANTransposed_16s_P2C2R/count64", [](Data& d) {
        alignas(64) int16_t wide[8 * 16];
        kpliDCT8x8Inv_AANTransposed_16s_P2C2R(d.coef, d.coef, wide, 32, 64, 64);
        benchmark::DoNotOptimize(wide);
    });
    api("kpliDCT2x4x8Frw_16s_C1I", [](Data& d) { kpliDCT2x4x8Frw_16s_C1I(d.out); });
    api("kpliDCT2x4x8Inv_16s_C1I", [](Data& d) { kpliDCT2x4x8Inv_16s_C1I(d.out); });
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
