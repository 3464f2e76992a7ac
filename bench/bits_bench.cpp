// Bit streams, VLC decoding, inverse scans and DV inverse quantisation.
#include <cstdint>
#include <cstring>
#include <vector>

#include "bench/bench_util.h"
#include "core/bitstream.h"
#include "dv/dv.h"
#include "kplvc.h"

namespace {

using kplvc::bench::per_level;
using kplvc::dv::DvKernels;

void dv_quant_inv() {
    per_level<DvKernels>(
        "dv/quant_inv", kplvc::dv::dv_kernels_for, [](const DvKernels& k) { return k.quant_inv; },
        [](benchmark::State& st, const DvKernels& k) {
            alignas(32) int16_t blk[64], q[64];
            for (int i = 0; i < 64; ++i) {
                blk[i] = static_cast<int16_t>(i * 37 - 1000);
                q[i] = static_cast<int16_t>(16384 + i * 100);
            }
            for (auto _ : st) {
                k.quant_inv(blk, q);
                benchmark::DoNotOptimize(blk);
                benchmark::ClobberMemory();
            }
        });
}

// MPEG-2-like code with lengths 2..16 in three levels (5, 5, 6): 1000 code
// words decoded per iteration from a stream written with the exported writer.
void vlc_decode() {
    benchmark::RegisterBenchmark("vlc/decode_one/1000_codes", [](benchmark::State& st) {
        // A complete canonical code: 2 of length 2, then halving counts down.
        std::vector<Kpl32s> desc = {0, 3, 5, 5, 6};
        std::vector<std::pair<uint32_t, int>> codes;
        uint32_t code = 0;
        int prev = 2;
        const int per_len[17] = {0, 0, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2};
        for (int len = 1; len <= 16; ++len) {
            code <<= (len - prev > 0 ? len - prev : 0);
            prev = len < 2 ? 2 : len;
            desc.push_back(per_len[len]);
            for (int i = 0; i < per_len[len]; ++i, ++code) {
                desc.push_back(static_cast<Kpl32s>(code));
                desc.push_back(len * 100 + i);
                codes.emplace_back(code, len);
            }
        }
        desc.push_back(-1);
        Kpl32s* table = nullptr;
        kpliVCHuffmanInitAlloc_32s(desc.data(), &table);
        std::vector<Kpl32u> words(1000, 0);
        Kpl32u* p = words.data();
        Kpl32s f = 32;
        uint32_t r = 1;
        for (int i = 0; i < 1000; ++i) {
            r = r * 1103515245u + 12345u;
            // Short codes much more often than long ones, as in real streams.
            const size_t pick = ((r >> 16) % 4 == 0) ? (r >> 8) % codes.size() : (r >> 8) % 6;
            kpliPutBitsLeftMost(&p, &f, codes[pick].first, codes[pick].second);
        }
        for (auto _ : st) {
            Kpl32u* s = words.data();
            Kpl32s off = 31, v = 0, sum = 0;
            for (int i = 0; i < 1000; ++i) {
                kpliVCHuffmanDecodeOne_1u32s(&s, &off, &v, table);
                sum += v;
            }
            benchmark::DoNotOptimize(sum);
        }
        kpliVCHuffmanFree_32s(&table);
    });
}

void byte_reader() {
    benchmark::RegisterBenchmark("bits/get_bits/1000_reads", [](benchmark::State& st) {
        std::vector<uint8_t> s(4096 + 8);
        for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<uint8_t>(i * 131 + 7);
        for (auto _ : st) {
            const uint8_t* p = s.data();
            int32_t off = 0;
            uint32_t acc = 0;
            for (int i = 0; i < 1000; ++i) acc += kplvc::ownGetBits(&p, &off, 1 + (i & 15));
            benchmark::DoNotOptimize(acc);
        }
    });
}

void inverse_scan() {
    benchmark::RegisterBenchmark("scan/zigzag_inv_vertical", [](benchmark::State& st) {
        int16_t src[64], dst[64];
        for (int i = 0; i < 64; ++i) src[i] = static_cast<int16_t>(i);
        for (auto _ : st) {
            kpliZigzagInv_Vertical_16s(src, dst);
            benchmark::DoNotOptimize(dst);
            benchmark::ClobberMemory();
        }
    });
}

void register_all() {
    dv_quant_inv();
    vlc_decode();
    byte_reader();
    inverse_scan();
}

}  // namespace

KPLVC_BENCH_REGISTER(register_all);
