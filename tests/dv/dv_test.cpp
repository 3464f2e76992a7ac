// DV table construction and inverse quantisation.
#include <cstdint>
#include <cstring>
#include <vector>

#include "dv/dv.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/variants.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::dv::DvKernels;
using kplvc::test::Arena;
using kplvc::test::Rng;

namespace {

// value2 << 22 | value1 << 8 | length, unmasked 32-bit arithmetic.
Kpl32u entry(uint32_t v1, uint32_t v2, uint32_t len) { return (v2 << 22) | (v1 << 8) | len; }

struct DvTable {
    Kpl32u* t = nullptr;
    DvTable(const std::vector<Kpl32s>& a, const std::vector<Kpl32s>& b) {
        EXPECT_EQ(kpliInitAllocHuffmanTable_DV_32u(a.data(), b.data(), &t), kplStsNoErr);
    }
    ~DvTable() { kpliFreeHuffmanTable_DV_32u(t); }
};

const std::vector<Kpl32s> kEmpty = {0, 0, 0};

}  // namespace

// ---- Tables -------------------------------------------------------------------------

// Each case builds a table from two code lists and checks ranges of words.
// The first list fills words 1..2^M, the second starts at word 513 with its
// lengths stored + 4; entries are not masked to their fields.
TEST(DvTable, Construction) {
    struct Range {
        int lo, hi;
        Kpl32u want;
    };
    const struct {
        const char* what;
        std::vector<Kpl32s> a, b;
        std::vector<Range> words;
    } cases[] = {
        {"M 9, one 1-bit code \"1\" fills the upper half",
         {9, 0, 0, 1, 1, 3, 5, 0, 0, 0, 0, 0, 0, 0, 0},
         kEmpty,
         {{257, 512, entry(3, 5, 1)}}},
        // 0 | 10 | 110 | 1110 | 1111 with M = 4; second table M = 2, "01" and "1".
        {"complete 4-bit code covers every word",
         {4, 0, 0, 1, 0, 10, 1, 1, 2, 20, 2, 1, 6, 30, 3, 2, 14, 40, 4, 15, 50, 5},
         {2, 0, 0, 1, 1, 7, 8, 1, 1, 9, 10},
         {{1, 8, entry(10, 1, 1)},
          {9, 12, entry(20, 2, 2)},
          {13, 14, entry(30, 3, 3)},
          {15, 15, entry(40, 4, 4)},  // a code of length M fills one word
          {16, 16, entry(50, 5, 4)},
          {513 + 2, 513 + 3, entry(7, 8, 5)},
          {513 + 1, 513 + 1, entry(9, 10, 6)}}},
        // value1 wider than 14 bits and value2 wider than 10 bits overlap the
        // neighbouring fields; a negative value1 sets every bit above bit 7.
        {"entries are not masked",
         {1, 0, 0, 2, 0, 0x7FFFF, 0x7FF, 1, -1, 3},
         kEmpty,
         {{1, 1, entry(0x7FFFF, 0x7FF, 1)}, {2, 2, 0xFFFFFF01u}}},
        // With M = 10 the second table's "0" spans words 513..1024 and "11"
        // starts at word 1281: only words below 1024 are written (the block
        // holds 1024 words and one byte; ASan catches a write past it).
        {"codes beyond the block are not written",
         kEmpty,
         {10, 0, 0, 1, 0, 6, 6, 1, 3, 7, 7, 0, 0, 0, 0, 0, 0, 0, 0},
         {{513, 1023, entry(6, 6, 5)}}},
    };
    for (const auto& c : cases) {
        DvTable tb(c.a, c.b);
        for (const Range& r : c.words)
            for (int w = r.lo; w <= r.hi; ++w) ASSERT_EQ(tb.t[w], r.want) << c.what << " word " << w;
    }
}

TEST(DvArgs, NullChecksAndUntouchedOutput) {
    kplvc::test::ArgPool p;
    const Kpl32s* a = p.take<Kpl32s>({1, 0, 0, 1, 1, 1, 1});
    Kpl32u** out = p.take<Kpl32u*>({nullptr});
    CHECK_ARGS(p, kpliInitAllocHuffmanTable_DV_32u, {a, a, out}, {null(0), null(1), null(2)});
    EXPECT_EQ(kpliFreeHuffmanTable_DV_32u(*out), kplStsNoErr);
    EXPECT_EQ(kpliFreeHuffmanTable_DV_32u(nullptr), kplStsNullPtrErr);
    CHECK_ARGS(p, kpliQuantInv_DV_16s_C1I, {p.take<Kpl16s>(64), p.take<Kpl16s>(64)}, {null(0), null(1)});
}

// ---- Inverse quantisation -------------------------------------------------------------

TEST(DvQuantInv, WorkedValues) {
    struct Case {
        int16_t x, q, want;
    };
    const Case cases[] = {
        {100, 16384, 100},                          // q = 1.0
        {3, 16384, 0},                              // the two low bits are cleared
        {-5, 16384, -8},                            // ... also for negatives (towards minus infinity)
        {-4, 16384, -4},      {-1, 1, -4},          // arithmetic shift: -1 >> 14 = -1
        {1, 16383, 0},        {-32768, -32768, 0},  // 2^30 >> 14 = 65536 wraps to 0
        {32767, 32767, -4},                         // 65532 wraps to -4
        {-32768, 32767, 0},                         // -65534 wraps to 2, cleared to 0
        {8191, 32767, 16380}, {12345, -16384, -12348},
    };
    constexpr size_t n = sizeof cases / sizeof cases[0];
    // The entry point, then the reference kernel.
    for (int pass = 0; pass < 2; ++pass) {
        int16_t blk[64], q[64];
        for (size_t i = 0; i < 64; ++i) blk[i] = cases[i % n].x, q[i] = cases[i % n].q;
        if (pass == 0)
            ASSERT_EQ(kpliQuantInv_DV_16s_C1I(blk, q), kplStsNoErr);
        else
            kplvc::dv::dv_kernels_for(kplvc::cpu::Isa::c).quant_inv(blk, q);
        for (size_t i = 0; i < 64; ++i)
            EXPECT_EQ(blk[i], cases[i % n].want)
                << "pass " << pass << " x=" << cases[i % n].x << " q=" << cases[i % n].q;
    }
}

TEST(DvQuantInv, VariantsMatchReference) {
    kplvc::test::check_variants(kplvc::dv::dv_kernels_for, &DvKernels::quant_inv, "dv quant_inv", 3000,
                                [](Arena& a, Rng& rng, int i) {
                                    auto blk = a.out<int16_t>(64);
                                    auto q = a.in<int16_t>(64);
                                    if (i % 3 == 1) {
                                        rng.fill_extreme(a[blk], 64);
                                        rng.fill_extreme(a[q], 64);
                                    } else if (i % 3 == 2) {  // real-looking: multipliers of at most 2.0
                                        kplvc::test::dct_coefficients(rng, a[blk], true);
                                        rng.fill(a[q], 64, 0, 32767);
                                    }
                                    return [=](auto f, Arena& x) { f(x[blk], x[q]); };
                                });
}
