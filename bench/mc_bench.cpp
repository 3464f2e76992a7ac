// Motion compensation, block copies and block differences: every kernel at
// every ISA level where it changes, plus the public entry points of the
// cases quoted in closing notes (they include the argument checks).
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "block/copy.h"
#include "kplvc.h"
#include "mc/mc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::block::BlockCopyKernels;
using kplvc::mc::McKernels;

constexpr int kStep = 64;  // row step of every buffer: rows start on cache lines
const char* const kPos[4] = {"ff", "fh", "hf", "hh"};

struct Data {
    kplvc::bench::Buffer<uint8_t> ref, ref_b, cur, dst;
    kplvc::bench::Buffer<int16_t> res, diff, pred;
    Data()
        : ref(kStep * 20),
          ref_b(kStep * 20),
          cur(kStep * 20),
          dst(kStep * 20),
          res(kStep * 20),
          diff(kStep * 20),
          pred(kStep * 20) {
        for (size_t i = 0; i < ref.size(); ++i) {
            ref[i] = static_cast<uint8_t>(i * 37 + 11);
            ref_b[i] = static_cast<uint8_t>(i * 53 + 7);
            cur[i] = static_cast<uint8_t>(i * 91 + 3);
        }
        for (size_t i = 0; i < res.size(); ++i) res[i] = static_cast<int16_t>(int(i * 29 % 601) - 300);
    }
};

struct ShapeName {
    kplvc::mc::Shape shape;
    const char* name;
};
const ShapeName kMcShapes[] = {
    {kplvc::mc::s16x16, "16x16"},   {kplvc::mc::s16x8, "16x8"}, {kplvc::mc::s16x8uv, "16x8UV"},
    {kplvc::mc::s16x4uv, "16x4UV"}, {kplvc::mc::s8x16, "8x16"}, {kplvc::mc::s8x8, "8x8"},
    {kplvc::mc::s8x4, "8x4"},       {kplvc::mc::s4x8, "4x8"},   {kplvc::mc::s4x4, "4x4"},
    {kplvc::mc::s4x2, "4x2"},       {kplvc::mc::s2x4, "2x4"},   {kplvc::mc::s2x2, "2x2"},
};

struct DiffName {
    kplvc::block::DiffShape shape;
    const char* name;
};
const DiffName kDiffShapes[] = {{kplvc::block::d16x16, "16x16"},
                                {kplvc::block::d16x8, "16x8"},
                                {kplvc::block::d8x16, "8x16"},
                                {kplvc::block::d8x8, "8x8"},
                                {kplvc::block::d8x4, "8x4"}};

void register_mc() {
    for (const ShapeName& s : kMcShapes) {
        for (int pos = 0; pos < 4; ++pos)
            per_level<McKernels>(
                std::string("mc/") + s.name + "_" + kPos[pos], kplvc::mc::mc_kernels_for,
                [s, pos](const McKernels& k) { return k.single[s.shape][pos]; },
                [s, pos](benchmark::State& st, const McKernels& k) {
                    Data d;
                    const auto fn = k.single[s.shape][pos];
                    for (auto _ : st) {
                        fn(d.ref.data(), kStep, d.res.data(), 2 * kStep, d.dst.data(), kStep, 0);
                        benchmark::ClobberMemory();
                    }
                });
        for (int idx = 0; idx < 16; ++idx)
            per_level<McKernels>(
                std::string("mc/") + s.name + "B_" + kPos[idx & 3] + "_" + kPos[idx >> 2],
                kplvc::mc::mc_kernels_for, [s, idx](const McKernels& k) { return k.bidir[s.shape][idx]; },
                [s, idx](benchmark::State& st, const McKernels& k) {
                    Data d;
                    const auto fn = k.bidir[s.shape][idx];
                    for (auto _ : st) {
                        fn(d.ref.data(), kStep, d.ref_b.data(), kStep, d.res.data(), 2 * kStep, d.dst.data(),
                           kStep, 0);
                        benchmark::ClobberMemory();
                    }
                });
    }
}

void register_blockcopy() {
    for (int n : {8, 16})
        per_level<BlockCopyKernels>(
            "blockcopy/copy" + std::to_string(n) + "x" + std::to_string(n),
            kplvc::block::blockcopy_kernels_for,
            [n](const BlockCopyKernels& k) { return n == 8 ? k.copy8x8 : k.copy16x16; },
            [n](benchmark::State& st, const BlockCopyKernels& k) {
                Data d;
                const auto fn = n == 8 ? k.copy8x8 : k.copy16x16;
                for (auto _ : st) {
                    fn(d.ref.data(), kStep, d.dst.data(), kStep);
                    benchmark::ClobberMemory();
                }
            });
    for (const DiffName& s : kDiffShapes) {
        for (int pos = 0; pos < 4; ++pos)
            for (bool with_pred : {false, true})
                per_level<BlockCopyKernels>(
                    std::string("blockcopy/diff") + s.name + "_" + kPos[pos] + (with_pred ? "_pred" : ""),
                    kplvc::block::blockcopy_kernels_for,
                    [s, pos](const BlockCopyKernels& k) { return k.diff[s.shape][4 * pos]; },
                    [s, pos, with_pred](benchmark::State& st, const BlockCopyKernels& k) {
                        Data d;
                        const auto fn = k.diff[s.shape][4 * pos];
                        for (auto _ : st) {
                            fn(d.cur.data(), kStep, d.ref.data(), kStep, d.diff.data(), 2 * kStep,
                               with_pred ? d.pred.data() : nullptr, 2 * kStep, 0);
                            benchmark::ClobberMemory();
                        }
                    });
        for (int idx = 0; idx < 16; ++idx)
            per_level<BlockCopyKernels>(
                std::string("blockcopy/diff") + s.name + "B_" + kPos[idx & 3] + "_" + kPos[idx >> 2],
                kplvc::block::blockcopy_kernels_for,
                [s, idx](const BlockCopyKernels& k) { return k.diff_b[s.shape][idx]; },
                [s, idx](benchmark::State& st, const BlockCopyKernels& k) {
                    Data d;
                    const auto fn = k.diff_b[s.shape][idx];
                    for (auto _ : st) {
                        fn(d.cur.data(), kStep, d.ref.data(), kStep, d.ref_b.data(), kStep, d.diff.data(),
                           2 * kStep, 0);
                        benchmark::ClobberMemory();
                    }
                });
    }
    per_level<BlockCopyKernels>(
        "blockcopy/diff4x4", kplvc::block::blockcopy_kernels_for,
        [](const BlockCopyKernels& k) { return k.diff4x4; },
        [](benchmark::State& st, const BlockCopyKernels& k) {
            Data d;
            for (auto _ : st) {
                k.diff4x4(d.cur.data(), kStep, d.ref.data(), kStep, d.diff.data(), 2 * kStep);
                benchmark::ClobberMemory();
            }
        });
}

// Public entry points (best variant for this CPU, checks included).
void register_public() {
    struct McCase {
        const char* name;
        int type;
    };
    for (McCase c : {McCase{"ff", 0}, McCase{"hh", 12}}) {
        benchmark::RegisterBenchmark((std::string("mc/api/kpliMC16x16_8u_C1/") + c.name).c_str(),
                                     [c](benchmark::State& st) {
                                         Data d;
                                         for (auto _ : st) {
                                             kpliMC16x16_8u_C1(d.ref.data(), kStep, d.res.data(), 2 * kStep,
                                                               d.dst.data(), kStep, c.type, 0);
                                             benchmark::ClobberMemory();
                                         }
                                     });
    }
    benchmark::RegisterBenchmark("mc/api/kpliMC16x16B_8u_C1/hh_hh", [](benchmark::State& st) {
        Data d;
        for (auto _ : st) {
            kpliMC16x16B_8u_C1(d.ref.data(), kStep, 12, d.ref_b.data(), kStep, 12, d.res.data(), 2 * kStep,
                               d.dst.data(), kStep, 0);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("mc/api/kpliMC8x8_8u_C1/hh", [](benchmark::State& st) {
        Data d;
        for (auto _ : st) {
            kpliMC8x8_8u_C1(d.ref.data(), kStep, d.res.data(), 2 * kStep, d.dst.data(), kStep, 12, 0);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("blockcopy/api/kpliGetDiff16x16_8u16s_C1/hh_pred", [](benchmark::State& st) {
        Data d;
        for (auto _ : st) {
            kpliGetDiff16x16_8u16s_C1(d.cur.data(), kStep, d.ref.data(), kStep, d.diff.data(), 2 * kStep,
                                      d.pred.data(), 2 * kStep, 12, 0);
            benchmark::ClobberMemory();
        }
    });
    benchmark::RegisterBenchmark("blockcopy/api/kpliCopyBlock_16x16_8u", [](benchmark::State& st) {
        Data d;
        for (auto _ : st) {
            kpliCopyBlock_16x16_8u(d.ref.data(), kStep, d.dst.data(), kStep);
            benchmark::ClobberMemory();
        }
    });
}

void register_all() {
    register_mc();
    register_blockcopy();
    register_public();
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
