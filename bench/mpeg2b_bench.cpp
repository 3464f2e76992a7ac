// MPEG-1/MPEG-2 block decoders and encoders, per block: a sparse inter block
// (about 8 coefficients) and a dense intra block (about 30), decoded from
// streams that the encoders wrote, with each ISA level of the kernel table;
// the encoders on the same blocks; the scan-mask kernel alone.
//
// The code lists come from the standards' tables in tests/data (as for the
// tests); without them nothing is registered.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench/bench_util.h"
#include "kplvc.h"
#include "mpeg2/block.h"
#include "support/code_lists.h"

namespace {

using kplvc::bench::per_level;
using kplvc::mpeg2::block_kernels_for;
using kplvc::mpeg2::BlockKernels;

using kplvc::codelists::Code;

struct Tables {
    std::vector<Kpl32s> rl_list, enc;
    Kpl32s* rl = nullptr;
    Kpl32s* dc = nullptr;
    Kpl32s dc_codes[12] = {};
    std::vector<Kpl32s> zigzag;
    ~Tables() {
        kpliVCHuffmanFree_32s(&rl);
        kpliVCHuffmanFree_32s(&dc);
    }
};

std::shared_ptr<Tables> load() {
    const std::vector<Code> rl = kplvc::codelists::read_rl("mpeg2_dct_coef_b14.txt");
    const std::vector<Code> dc = kplvc::codelists::read_dc("B12");
    if (rl.empty() || dc.empty()) return nullptr;
    auto t = std::make_shared<Tables>();
    t->rl_list = kplvc::codelists::make_list(rl, true, {8, 8});
    t->enc.resize(KPLVC_RL_ENCODE_TABLE_SIZE);
    if (kpliVCHuffmanInitAllocRL_32s(t->rl_list.data(), &t->rl) != kplStsNoErr) return nullptr;
    const std::vector<Kpl32s> dl = kplvc::codelists::make_list(dc, false, {8, 8});
    if (kpliVCHuffmanInitAlloc_32s(dl.data(), &t->dc) != kplStsNoErr) return nullptr;
    if (kpliCreateRLEncodeTable(t->rl_list.data(), t->enc.data()) != kplStsNoErr) return nullptr;
    kplvc::codelists::dc_codes(dc, t->dc_codes);
    static const uint8_t zz[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                   12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                   35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                   58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};
    t->zigzag.assign(zz, zz + 64);
    return t;
}

// 64 blocks of levels: `n` non-zero levels on the first scan positions,
// most of magnitude 1..3, a few larger (some escaped), as real blocks have.
struct Blocks {
    std::vector<std::vector<Kpl16s>> lv;
};

Blocks make_blocks(const Tables& t, int n, bool intra, int version) {
    std::mt19937 g(1234 + n);
    Blocks b;
    for (int k = 0; k < 64; ++k) {
        std::vector<Kpl16s> blk(64, 0);
        int placed = 0;
        // Spread the levels over about 1.6 n scan positions from the start.
        const int span = std::min(63, n + n * 3 / 5);
        while (placed < n) {
            const int i = (intra ? 1 : 0) + static_cast<int>(g() % static_cast<unsigned>(span));
            const int p = t.zigzag[i];
            if (blk[p] != 0) continue;
            const unsigned r = g() % 16;
            int v = r < 8 ? 1 : (r < 12 ? 2 : (r < 14 ? 3 : (r < 15 ? 6 : 40)));
            if (g() & 1) v = -v;
            blk[p] = static_cast<Kpl16s>(v);
            ++placed;
        }
        if (intra) blk[0] = static_cast<Kpl16s>(version == 1 ? 100 + k : 800 + k);
        b.lv.push_back(blk);
    }
    return b;
}

// The blocks written one after another; returns the words (with two words
// of look-ahead) after the final shift.
std::vector<Kpl32u> encode_all(const Tables& t, const Blocks& b, bool intra, int version) {
    std::vector<Kpl32u> w(64 * 64 + 4, 0);
    Kpl32u* p = w.data();
    Kpl32s f = 32;
    Kpl16s pred = version == 1 ? 100 : 800;
    for (const auto& blk : b.lv) {
        if (intra)
            kpliPutIntraBlock(blk.data(), &p, &f, &pred, t.dc_codes, t.enc.data(), t.zigzag.data(), version);
        else
            kpliPutNonIntraBlock(blk.data(), &p, &f, t.enc.data(), t.zigzag.data(), version);
    }
    if (f != 32) *p <<= f;
    return w;
}

void decoders(const std::shared_ptr<Tables>& t) {
    struct Case {
        const char* name;
        int version;
        bool intra;
        int n;
    } cases[] = {{"mpeg1_inter8", 1, false, 8},
                 {"mpeg1_intra30", 1, true, 30},
                 {"mpeg2_inter8", 2, false, 8},
                 {"mpeg2_intra30", 2, true, 30}};
    static const Kpl16s kIntraW[64] = {8,  16, 19, 22, 26, 27, 29, 34, 16, 16, 22, 24, 27, 29, 34, 37,
                                       19, 22, 26, 27, 29, 34, 34, 38, 22, 22, 26, 27, 29, 34, 37, 40,
                                       22, 26, 27, 29, 32, 35, 40, 48, 26, 27, 29, 32, 35, 40, 48, 58,
                                       26, 27, 29, 34, 38, 46, 56, 69, 27, 29, 35, 38, 46, 56, 69, 83};
    for (const Case& c : cases) {
        const Blocks b = make_blocks(*t, c.n, c.intra, c.version);
        auto words = std::make_shared<std::vector<Kpl32u>>(encode_all(*t, b, c.intra, c.version));
        const int version = c.version;
        const bool intra = c.intra;
        per_level<BlockKernels>(
            std::string("mpeg2block/decode_") + c.name, block_kernels_for,
            [](const BlockKernels& k) { return k.scan_mask; },
            [t, words, version, intra](benchmark::State& st, const BlockKernels& k) {
                alignas(32) Kpl16s blk[64];
                Kpl32s count = 0;
                Kpl32u* p = words->data();
                Kpl32s off = 31;
                Kpl16s pred = version == 1 ? 100 : 800;
                int left = 64;
                for (auto _ : st) {
                    if (left == 0) {  // back to the first block
                        p = words->data();
                        off = 31;
                        pred = version == 1 ? 100 : 800;
                        left = 64;
                    }
                    const int32_t s = kplvc::mpeg2::reconstruct_with(k, version, intra, &p, &off, blk, &count,
                                                                     &pred, t->dc, t->rl, t->zigzag.data(), 8,
                                                                     intra ? kIntraW : nullptr, 0);
                    benchmark::DoNotOptimize(s);
                    benchmark::DoNotOptimize(blk);
                    --left;
                }
            });
    }
}

void encoders(const std::shared_ptr<Tables>& t) {
    struct Case {
        const char* name;
        bool intra;
        int n;
    } cases[] = {{"put_inter8", false, 8}, {"put_intra30", true, 30}};
    for (const Case& c : cases) {
        auto b = std::make_shared<Blocks>(make_blocks(*t, c.n, c.intra, 2));
        const bool intra = c.intra;
        benchmark::RegisterBenchmark(
            (std::string("mpeg2block/") + c.name).c_str(), [t, b, intra](benchmark::State& st) {
                std::vector<Kpl32u> w(64 * 64 + 4, 0);
                Kpl32u* p = w.data();
                Kpl32s f = 32;
                Kpl16s pred = 800;
                size_t k = 0;
                for (auto _ : st) {
                    if (k == 64) {
                        p = w.data();
                        f = 32;
                        pred = 800;
                        k = 0;
                    }
                    const Kpl16s* blk = b->lv[k++].data();
                    const KplStatus s =
                        intra ? kpliPutIntraBlock(blk, &p, &f, &pred, t->dc_codes, t->enc.data(),
                                                  t->zigzag.data(), 2)
                              : kpliPutNonIntraBlock(blk, &p, &f, t->enc.data(), t->zigzag.data(), 2);
                    benchmark::DoNotOptimize(s);
                }
                benchmark::DoNotOptimize(w.data());
            });
    }
}

void scan_mask() {
    per_level<BlockKernels>(
        "mpeg2block/scan_mask", block_kernels_for, [](const BlockKernels& k) { return k.scan_mask; },
        [](benchmark::State& st, const BlockKernels& k) {
            Kpl32s scan[64];
            for (int i = 0; i < 64; ++i) scan[i] = (i * 29) & 63;
            uint64_t nz = 0x0000000000C0FFEEull;
            for (auto _ : st) {
                benchmark::DoNotOptimize(nz);
                benchmark::DoNotOptimize(k.scan_mask(nz, scan));
            }
        });
}

void register_all() {
    const std::shared_ptr<Tables> t = load();
    scan_mask();
    if (t == nullptr) {
        std::fprintf(stderr, "mpeg2block: code tables not found under %s\n",
                     kplvc::codelists::table_path("").c_str());
        return;
    }
    decoders(t);
    encoders(t);
}

KPLVC_BENCH_REGISTER(register_all);

}  // namespace
