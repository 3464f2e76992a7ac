// Generic VLC tables: layout of built tables, decoding, argument checks and a
// round trip of random prefix codes written with kpliPutBitsLeftMost.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/vlc.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/code_lists.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

using kplvc::test::Rng;

namespace {

constexpr Kpl32s kInv = 0x00F0F101;

struct Code {
    uint32_t code;
    int len;
    int32_t v1, v2;
};

// The description of `codes` in the generic format (codelists::make_list).
std::vector<Kpl32s> describe(const std::vector<int>& level_bits, const std::vector<Code>& codes, bool rl) {
    std::vector<kplvc::codelists::Code> list;
    for (const Code& c : codes) {
        std::string bits;
        for (int k = c.len - 1; k >= 0; --k) bits += (c.code >> k) & 1 ? '1' : '0';
        list.push_back({bits, c.v1, c.v2});
    }
    return kplvc::codelists::make_list(list, rl, {level_bits.begin(), level_bits.end()});
}

struct Table {
    Kpl32s* t = nullptr;
    explicit Table(const std::vector<Kpl32s>& d, bool rl = false) {
        const KplStatus st =
            rl ? kpliVCHuffmanInitAllocRL_32s(d.data(), &t) : kpliVCHuffmanInitAlloc_32s(d.data(), &t);
        EXPECT_EQ(st, kplStsNoErr);
    }
    ~Table() { kpliVCHuffmanFree_32s(&t); }
};

// Writes (code, len) pairs MSB-first into words with the first exported
// writer, then pads with zero words for the decoder's look-ahead.
std::vector<Kpl32u> encode(const std::vector<std::pair<uint32_t, int>>& syms) {
    std::vector<Kpl32u> w(syms.size() + 4, 0);
    Kpl32u* p = w.data();
    Kpl32s f = 32;
    for (const auto& [code, len] : syms) kpliPutBitsLeftMost(&p, &f, code, len);
    if (f != 32) kpliPutBitsLeftMost(&p, &f, 0, f);
    return w;
}

// Random prefix code: random lengths that keep the Kraft sum <= 1, then
// canonical code words; the order within a length is shuffled.
std::vector<Code> random_code(Rng& rng, int maxlen, bool complete) {
    std::vector<int> lens;
    uint64_t used = 0;
    const uint64_t total = uint64_t{1} << maxlen;
    for (int tries = 0; tries < 400 && used < total; ++tries) {
        const int l = rng.range(1, maxlen);
        const uint64_t share = uint64_t{1} << (maxlen - l);
        if (used + share <= total) {
            lens.push_back(l);
            used += share;
        }
    }
    if (complete)
        while (used < total) {
            lens.push_back(maxlen);
            used += 1;
        }
    std::sort(lens.begin(), lens.end());
    std::vector<Code> out;
    uint32_t code = 0;
    int prev = lens.empty() ? 0 : lens[0];
    for (int l : lens) {
        code <<= (l - prev);
        prev = l;
        out.push_back({code, l, rng.range(-100000, 100000), rng.range(-32768, 32767)});
        ++code;
    }
    for (size_t i = out.size(); i > 1; --i)
        std::swap(out[i - 1], out[static_cast<size_t>(rng.range(0, static_cast<int32_t>(i - 1)))]);
    return out;
}

}  // namespace

// ---- Behaviour ------------------------------------------------------------------

TEST(VlcBuild, OneLevelLayout) {
    Table tb(describe({4}, {{1, 1, 7, 0}, {1, 2, 9, 0}}, false));
    const Kpl32s* t = tb.t;
    EXPECT_EQ(t[0], 4);
    for (int i = 0; i < 16; ++i) {
        const Kpl32s want = i >= 8 ? (7 << 8) | 3 : i >= 4 ? (9 << 8) | 2 : kInv;
        EXPECT_EQ(t[1 + i], want) << i;
    }
    for (int i = 17; i < kplvc::kVlcWords; ++i) ASSERT_EQ(t[i], kInv) << i;
}

TEST(VlcBuild, SubTablesInFirstNeedOrder) {
    // Level bits (1, 2). "11" comes first in the list, so the sub-table of
    // prefix 1 is allocated before that of prefix 0.
    Table tb(describe({1, 2}, {{3, 2, 10, 0}, {1, 2, 11, 0}, {4, 3, 12, 0}, {5, 3, 13, 0}}, false));
    const Kpl32s* t = tb.t;
    struct W {
        int idx;
        Kpl32s want;
    };
    const W words[] = {
        {0, 1},
        {1, (8 << 8) | 0x80},  // prefix 0 -> sub-table at word 8
        {2, (3 << 8) | 0x80},  // prefix 1 -> sub-table at word 3
        {3, 2},
        {4, (12 << 8) | 0},
        {5, (13 << 8) | 0},
        {6, (10 << 8) | 1},
        {7, (10 << 8) | 1},
        {8, 2},
        {9, kInv},
        {10, kInv},
        {11, (11 << 8) | 1},
        {12, (11 << 8) | 1},
        {13, kInv},
    };
    for (const auto& w : words) EXPECT_EQ(t[w.idx], w.want) << w.idx;
}

TEST(VlcBuild, RunLevelLeaves) {
    // value1 keeps its low 8 bits; value2 goes to bits 16 and up unmasked.
    Table tb(describe({2}, {{1, 1, 0x1FF, -3}, {0, 2, 5, 0x7FFF}}, true), true);
    const Kpl32s* t = tb.t;
    const Kpl32s a = static_cast<Kpl32s>((static_cast<uint32_t>(-3) << 16) | (0xFFu << 8) | 1u);
    EXPECT_EQ(t[3], a);
    EXPECT_EQ(t[4], a);
    EXPECT_EQ(t[1], static_cast<Kpl32s>((0x7FFFu << 16) | (5u << 8)));
    EXPECT_EQ(t[2], kInv);
    EXPECT_EQ(t[kplvc::kVlcWordsRL - 1], kInv);  // the whole RL block is filled
}

TEST(VlcDecode, ValidInvalidAndPosition) {
    Table one(describe({4}, {{1, 1, 7, 0}, {1, 2, 9, 0}}, false));
    // Codes 1, 01 and 001 in two levels leave 000 unused.
    Table two(describe({2, 2}, {{1, 1, 1, 0}, {1, 2, 2, 0}, {1, 3, 3, 0}}, false));
    struct Case {
        const Table* tb;
        uint32_t word;
        int32_t off;
        KplStatus st;
        Kpl32s value;
        int32_t off_after;
    };
    const Case cases[] = {
        {&one, 0x40000000u, 31, kplStsNoErr, 9, 29},  // "01": exactly two bits
        {&one, 0x80000000u, 31, kplStsNoErr, 7, 30},
        {&one, 0x00000001u, 0, kplStsNoErr, 7, 31},         // "1" at the last bit, looks into the next word
        {&one, 0x00000000u, 31, kplStsVLCErr, 0xF0F1, 27},  // four bits taken, none given back
        {&two, 0x0FFFFFFFu, 31, kplStsVLCErr, 0xF0F1, 27},  // the look-up of both levels is consumed
        {&two, 0x2FFFFFFFu, 31, kplStsNoErr, 3, 28},
    };
    for (const auto& c : cases) {
        Kpl32u w[2] = {c.word, 0};
        Kpl32u* p = w;
        Kpl32s off = c.off, v = 0;
        EXPECT_EQ(kpliVCHuffmanDecodeOne_1u32s(&p, &off, &v, c.tb->t), c.st);
        EXPECT_EQ(v, c.value);
        EXPECT_EQ(off, c.off_after);
        EXPECT_EQ(p, w + (c.off == 0 ? 1 : 0));
    }
}

TEST(VlcFree, TwiceAndNull) {
    Kpl32s* t = nullptr;
    const Kpl32s d[] = {0, 1, 2, 1, 0, 5, -1};
    ASSERT_EQ(kpliVCHuffmanInitAlloc_32s(d, &t), kplStsNoErr);
    EXPECT_EQ(kpliVCHuffmanFree_32s(&t), kplStsNoErr);
    EXPECT_EQ(t, nullptr);
    EXPECT_EQ(kpliVCHuffmanFree_32s(&t), kplStsNoErr);
    EXPECT_EQ(kpliVCHuffmanFree_32s(nullptr), kplStsNullPtrErr);
}

TEST(VlcBuild, DescriptionsBeyondTheBlockStayInside) {
    // A first level of 14 bits cannot fit 16384 words: the table matches nothing.
    {
        Table tb(describe({14}, {{1, 1, 7, 0}}, false));
        EXPECT_EQ(tb.t[0], 0);
        Kpl32u w[2] = {0xFFFFFFFF, 0};
        Kpl32u* p = w;
        Kpl32s off = 31, v = 0;
        EXPECT_EQ(kpliVCHuffmanDecodeOne_1u32s(&p, &off, &v, tb.t), kplStsVLCErr);
    }
    // Two sub-tables of 2^13 + 1 words: only the first fits after the
    // three-word first level.
    {
        Table tb(describe({1, 13}, {{0, 14, 1, 0}, {1u << 13, 14, 2, 0}}, false));
        Kpl32u w[2] = {0, 0};
        Kpl32u* p = w;
        Kpl32s off = 31, v = 0;
        EXPECT_EQ(kpliVCHuffmanDecodeOne_1u32s(&p, &off, &v, tb.t), kplStsNoErr);
        EXPECT_EQ(v, 1);
        w[0] = 0x80000000u;
        p = w;
        off = 31;
        EXPECT_EQ(kpliVCHuffmanDecodeOne_1u32s(&p, &off, &v, tb.t), kplStsVLCErr);
    }
    // A code longer than the levels reach is left out.
    {
        Table tb(describe({2}, {{1, 1, 3, 0}, {0, 3, 4, 0}}, false));
        EXPECT_EQ(tb.t[1], kInv);
        EXPECT_EQ(tb.t[3], (3 << 8) | 1);
    }
}

// ---- Argument checks --------------------------------------------------------------

TEST(VlcArgs, NullChecksInOrderAndNothingWritten) {
    kplvc::test::ArgPool p;
    // One 1-bit code "1" (value 5; run-level form: 5, 0).
    const Kpl32s *d = p.take<Kpl32s>({0, 1, 1, 1, 1, 5, -1}),
                 *drl = p.take<Kpl32s>({0, 1, 1, 1, 1, 5, 0, -1});
    Kpl32s** out = p.take<Kpl32s*>({nullptr});
    for (auto [f, desc] : {std::pair{&kpliVCHuffmanInitAlloc_32s, d}, {&kpliVCHuffmanInitAllocRL_32s, drl}}) {
        CHECK_ARGS(p, f, {desc, out}, {null(0), null(1)});
        EXPECT_EQ(kpliVCHuffmanFree_32s(out), kplStsNoErr);
    }
    Table tb(std::vector<Kpl32s>(d, d + 7));
    Kpl32u* w = p.take<Kpl32u>({0xFFFFFFFF, 0});
    Kpl32u** pp = p.take<Kpl32u*>({w});
    Kpl32u** pnull = p.take<Kpl32u*>({nullptr});
    CHECK_ARGS(p, kpliVCHuffmanDecodeOne_1u32s, {pp, p.take<Kpl32s>({31}), p.take<Kpl32s>({1234}), tb.t},
               {null(0), fails(0, pnull, kplStsNullPtrErr), null(3)});
}

// ---- Round trips ------------------------------------------------------------------

namespace {

// n code words drawn from `codes`, written one after another, must decode to
// their values (run-level form: value2 << 8 | low byte of value1), each
// consuming exactly its length.
void round_trip(Rng& rng, const std::vector<Code>& codes, const Table& tb, bool rl, int n) {
    std::vector<std::pair<uint32_t, int>> syms;
    std::vector<size_t> which;
    for (int k = 0; k < n; ++k) {
        which.push_back(static_cast<size_t>(rng.range(0, static_cast<int32_t>(codes.size()) - 1)));
        syms.emplace_back(codes[which.back()].code, codes[which.back()].len);
    }
    auto words = encode(syms);
    Kpl32u* p = words.data();
    Kpl32s off = 31;
    int64_t pos = 0;
    for (size_t k = 0; k < which.size(); ++k) {
        const Code& c = codes[which[k]];
        Kpl32s v = 0;
        ASSERT_EQ(kpliVCHuffmanDecodeOne_1u32s(&p, &off, &v, tb.t), kplStsNoErr) << k;
        const Kpl32s want = rl ? static_cast<Kpl32s>((static_cast<uint32_t>(c.v2) << 8) |
                                                     (static_cast<uint32_t>(c.v1) & 0xFFu))
                               : c.v1;
        ASSERT_EQ(v, want) << k;
        pos += c.len;
        ASSERT_EQ((p - words.data()) * 32 + (31 - off), pos) << k;
    }
}

}  // namespace

TEST(VlcRoundTrip, RandomPrefixCodesOneToThreeLevels) {
    Rng rng("vlc random codes");
    for (int rep = 0; rep < 120; ++rep) {
        SCOPED_TRACE("rep " + std::to_string(rep));
        const bool rl = rep % 3 == 2;
        const int levels = 1 + rep % 3;
        const int maxlen = rng.range(levels, 11);
        // Level bits summing to maxlen or maxlen + 1 (a look-ahead past the
        // longest code), each at least 1.
        std::vector<int> lb(static_cast<size_t>(levels), 1);
        int left = maxlen + rng.range(0, 1) - levels;
        while (left-- > 0) ++lb[static_cast<size_t>(rng.range(0, levels - 1))];
        const auto codes = random_code(rng, maxlen, rep % 2 == 0);
        round_trip(rng, codes, Table(describe(lb, codes, rl), rl), rl, 300);
    }
}

// A real code: the MPEG-2 coefficient table zero (run, level) with the value
// run * 64 + level, EOB and ESCAPE, in three levels of 5, 5 and 6 bits (codes
// up to 16 bits).
TEST(VlcRoundTrip, Mpeg2CoefficientTable) {
    std::vector<Code> codes;
    for (const auto& k : kplvc::codelists::read_rl("mpeg2_dct_coef_b14.txt")) {
        const int32_t value = k.v1 == KPLVC_RL_EOB ? -1 : k.v1 == KPLVC_RL_ESCAPE ? -2 : k.v1 * 64 + k.v2;
        codes.push_back({static_cast<uint32_t>(std::stoul(k.bits, nullptr, 2)),
                         static_cast<int>(k.bits.size()), value, 0});
    }
    ASSERT_EQ(codes.size(), 113u);  // 111 rows, EOB, ESCAPE
    Rng rng("vlc mpeg2 table");
    round_trip(rng, codes, Table(describe({5, 5, 6}, codes, false)), false, 2000);
}
