// MPEG-4 Visual: quarter-sample and warp kernels per ISA level, and the
// exported texture, prediction, quantiser and vector functions.
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "kplvc.h"
#include "mpeg4/gmc.h"
#include "mpeg4/qpel.h"

namespace {

using kplvc::bench::per_level;
using kplvc::mpeg4::QpelKernels;
using kplvc::mpeg4::WarpBlock;
using kplvc::mpeg4::WarpKernels;

// A 64x64 plane of textured content.
std::vector<uint8_t> plane64() {
    std::vector<uint8_t> p(64 * 64);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            p[static_cast<size_t>(y * 64 + x)] =
                static_cast<uint8_t>((x * 37 + y * 11 + ((x * y) >> 3)) & 255);
    return p;
}

void register_kernels() {
    static const char* kSize[3] = {"16x16", "16x8", "8x8"};
    for (int s = 0; s < 3; ++s)
        for (int pos : {0, 2, 5, 10, 15}) {
            const std::string name = std::string("mpeg4/qpel_") + kSize[s] + "/" + std::to_string(pos & 3) +
                                     std::to_string(pos >> 2);
            per_level<QpelKernels>(
                name, kplvc::mpeg4::qpel_kernels_for,
                [s, pos](const QpelKernels& k) { return k.put[s][pos]; },
                [s, pos](benchmark::State& st, const QpelKernels& k) {
                    const std::vector<uint8_t> ref = plane64();
                    uint8_t dst[16 * 16];
                    for (auto _ : st) {
                        k.put[s][pos](ref.data() + 8 * 64 + 8, 64, dst, 16, 0);
                        benchmark::DoNotOptimize(dst);
                    }
                });
        }
    // Warps: a translation at 1/16 sample, and an affine map (rotation and
    // zoom) as a three-point S-VOP makes.
    for (int affine = 0; affine < 2; ++affine)
        for (int n : {16, 8}) {
            auto pick = [affine, n](const WarpKernels& k) {
                return affine ? (n == 16 ? k.affine16 : k.affine8) : (n == 16 ? k.shift16 : k.shift8);
            };
            const std::string name =
                std::string("mpeg4/warp_") + (affine ? "affine" : "shift") + std::to_string(n);
            per_level<WarpKernels>(name, kplvc::mpeg4::warp_kernels_for, pick,
                                   [pick, affine](benchmark::State& st, const WarpKernels& k) {
                                       const std::vector<uint8_t> ref = plane64();
                                       uint8_t dst[16 * 16];
                                       WarpBlock b{};
                                       b.qx = 8 * 16 + 5;
                                       b.qy = 8 * 16 + 11;
                                       b.shift = affine ? 13 : 0;
                                       b.dxx = affine ? (16 << 13) + 37 : 16;
                                       b.dxy = affine ? -211 : 0;
                                       b.dyx = affine ? 211 : 0;
                                       b.dyy = b.dxx;
                                       b.log2s = 4;
                                       b.width = b.height = 64;
                                       const auto fn = pick(k);
                                       for (auto _ : st) {
                                           fn(ref.data(), 64, dst, 16, b, 0);
                                           benchmark::DoNotOptimize(dst);
                                       }
                                   });
        }
}

// A stream holding one block written by the library's own encoder, with
// about `n` non-zero levels, then padding.
std::vector<uint8_t> coded(int n, bool intra, int16_t* levels) {
    std::memset(levels, 0, 64 * sizeof(int16_t));
    for (int i = 0; i < n; ++i)
        levels[(i * 3 + 1) % 64] = static_cast<int16_t>((i % 3) ? 1 + i % 4 : -(2 + i % 9));
    std::vector<uint8_t> buf(512, 0);
    Kpl8u* p = buf.data();
    Kpl32s off = 0;
    if (intra) {
        kpliEncodeDCIntra_MPEG4_16s1u(-37, &p, &off, 0);
        kpliEncodeCoeffsIntra_MPEG4_16s1u(levels, &p, &off, 1, KPLVC_SCAN_ZIGZAG);
    } else {
        kpliEncodeCoeffsInter_MPEG4_16s1u(levels, &p, &off, KPLVC_SCAN_ZIGZAG);
    }
    return buf;
}

void register_functions() {
    for (int n : {4, 16, 40}) {
        benchmark::RegisterBenchmark(
            ("mpeg4/kpliReconstructCoeffsInter_MPEG4_1u16s/" + std::to_string(n) + "levels").c_str(),
            [n](benchmark::State& st) {
                int16_t lv[64];
                const auto s = coded(n, false, lv);
                int16_t out[64];
                Kpl32s last;
                for (auto _ : st) {
                    Kpl8u* p = const_cast<Kpl8u*>(s.data());
                    Kpl32s off = 0;
                    kpliReconstructCoeffsInter_MPEG4_1u16s(&p, &off, out, &last, KPLVC_SCAN_ZIGZAG, 7,
                                                           nullptr);
                    benchmark::DoNotOptimize(out);
                }
            });
        benchmark::RegisterBenchmark(
            ("mpeg4/kpliDecodeCoeffsIntra_MPEG4_1u16s/" + std::to_string(n) + "levels").c_str(),
            [n](benchmark::State& st) {
                int16_t lv[64];
                const auto s = coded(n, true, lv);
                int16_t out[64];
                Kpl32s last;
                Kpl16s dc;
                for (auto _ : st) {
                    Kpl8u* p = const_cast<Kpl8u*>(s.data());
                    Kpl32s off = 0;
                    kpliDecodeDCIntra_MPEG4_1u16s(&p, &off, &dc, 0);
                    kpliDecodeCoeffsIntra_MPEG4_1u16s(&p, &off, out, &last, 1, KPLVC_SCAN_ZIGZAG);
                    benchmark::DoNotOptimize(out);
                }
            });
        benchmark::RegisterBenchmark(
            ("mpeg4/kpliEncodeCoeffsInter_MPEG4_16s1u/" + std::to_string(n) + "levels").c_str(),
            [n](benchmark::State& st) {
                int16_t lv[64];
                coded(n, false, lv);
                std::vector<uint8_t> buf(512);
                for (auto _ : st) {
                    Kpl8u* p = buf.data();
                    Kpl32s off = 0;
                    kpliEncodeCoeffsInter_MPEG4_16s1u(lv, &p, &off, KPLVC_SCAN_ZIGZAG);
                    benchmark::DoNotOptimize(buf.data());
                }
            });
    }
    benchmark::RegisterBenchmark("mpeg4/kpliPredictReconIntra_MPEG4_16s", [](benchmark::State& st) {
        KplMPEG4IntraPred a = {800, 9, {3, -2, 1, 0, 0, 1, 0}, {-4, 2, 0, 1, 0, 0, 0}}, cur;
        int16_t blk[64];
        for (auto _ : st) {
            std::memset(blk, 0, sizeof blk);
            blk[0] = 5;
            blk[1] = 3;
            kpliPredictReconIntra_MPEG4_16s(blk, &a, &cur, KPLVC_PRED_LEFT, 1, 11, 0);
            benchmark::DoNotOptimize(blk);
        }
    });
    benchmark::RegisterBenchmark("mpeg4/kpliQuantInvIntraH263_MPEG4_16s_C1I", [](benchmark::State& st) {
        int16_t blk[64];
        for (auto _ : st) {
            for (int i = 0; i < 64; ++i) blk[i] = static_cast<int16_t>(i % 5 - 2);
            kpliQuantInvIntraH263_MPEG4_16s_C1I(blk, 9);
            benchmark::DoNotOptimize(blk);
        }
    });
    benchmark::RegisterBenchmark("mpeg4/kpliQuantInter_MPEG4_16s_C1I", [](benchmark::State& st) {
        int16_t blk[64], m[64];
        for (int i = 0; i < 64; ++i) m[i] = static_cast<int16_t>(16 + i / 4);
        Kpl32s n;
        for (auto _ : st) {
            for (int i = 0; i < 64; ++i) blk[i] = static_cast<int16_t>((i * 97) % 600 - 300);
            kpliQuantInter_MPEG4_16s_C1I(blk, 7, m, &n);
            benchmark::DoNotOptimize(blk);
        }
    });
    benchmark::RegisterBenchmark("mpeg4/kpliDecodeMV_MPEG4_1u16s/fcode3", [](benchmark::State& st) {
        // Two motion codes with residual bits, repeated.
        const uint8_t stream[16] = {0x0B, 0x5A, 0xC3, 0x81, 0x22, 0x6D, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
        const KplMotionVector pred = {3, -2};
        KplMotionVector mv;
        for (auto _ : st) {
            Kpl8u* p = const_cast<Kpl8u*>(stream);
            Kpl32s off = 0;
            kpliDecodeMV_MPEG4_1u16s(&p, &off, &pred, &mv, 3);
            benchmark::DoNotOptimize(mv);
        }
    });
    benchmark::RegisterBenchmark("mpeg4/kpliPredictMV_MPEG4", [](benchmark::State& st) {
        std::vector<KplMotionVector> field(4 * 3 * 2);
        for (size_t i = 0; i < field.size(); ++i)
            field[i] = {static_cast<int16_t>(i * 3 % 7), static_cast<int16_t>(i % 5)};
        KplMotionVector p;
        for (auto _ : st) {
            kpliPredictMV_MPEG4(&field[4 * 3 + 4], 12, 0, 7, &p);
            benchmark::DoNotOptimize(p);
        }
    });
    benchmark::RegisterBenchmark("mpeg4/kpliWarpMV_MPEG4", [](benchmark::State& st) {
        KplMPEG4Warp w;
        const Kpl32s du[3] = {3, -5, 2}, dv[3] = {-4, 6, 1};
        kpliWarpInit_MPEG4(&w, du, dv, 3, 3, KpliSize{720, 576});
        KplMotionVector mv;
        for (auto _ : st) {
            kpliWarpMV_MPEG4(&w, 11, 7, 2, 0, &mv);
            benchmark::DoNotOptimize(mv);
        }
    });
}

// Inter blocks of n levels: the ordinary table read forward, and the
// reversible one read forward and backward (ns per block, RVLC against VLC).
void register_rvlc() {
    for (int n : {4, 16, 40}) {
        int16_t lv[64];
        coded(n, false, lv);
        for (int way = 0; way < 3; ++way) {
            static const char* kName[3] = {"kpliDecodeCoeffsInter_MPEG4_1u16s",
                                           "kpliDecodeCoeffsInterRVLC_MPEG4_1u16s",
                                           "kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s"};
            benchmark::RegisterBenchmark(
                ("mpeg4/" + std::string(kName[way]) + "/" + std::to_string(n) + "levels").c_str(),
                [way, lv_copy = std::vector<int16_t>(lv, lv + 64)](benchmark::State& st) {
                    std::vector<uint8_t> s(512, 0);
                    Kpl8u* e = s.data();
                    Kpl32s eoff = 0;
                    if (way == 0)
                        kpliEncodeCoeffsInter_MPEG4_16s1u(lv_copy.data(), &e, &eoff, KPLVC_SCAN_ZIGZAG);
                    else
                        kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(lv_copy.data(), &e, &eoff, KPLVC_SCAN_ZIGZAG);
                    int16_t out[64];
                    Kpl32s last;
                    for (auto _ : st) {
                        Kpl8u* p = way == 2 ? e : s.data();
                        Kpl32s off = way == 2 ? eoff : 0;
                        if (way == 0)
                            kpliDecodeCoeffsInter_MPEG4_1u16s(&p, &off, out, &last, KPLVC_SCAN_ZIGZAG);
                        else if (way == 1)
                            kpliDecodeCoeffsInterRVLC_MPEG4_1u16s(&p, &off, out, &last, KPLVC_SCAN_ZIGZAG);
                        else
                            kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s(&p, &off, s.data(), 0, out, &last,
                                                                      KPLVC_SCAN_ZIGZAG);
                        benchmark::DoNotOptimize(out);
                    }
                });
        }
    }
}

void register_all() {
    register_kernels();
    register_functions();
    register_rvlc();
}
KPLVC_BENCH_REGISTER(register_all);

}  // namespace
