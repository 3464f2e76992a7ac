// H.263 symbol decoders against the standard's code lists (read from the
// repository's tests/data), plus the prediction, wrap and error-handling rules.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "kplvc.h"
#include "support/args.h"
#include "support/code_lists.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

namespace {

using kplvc::test::Rng;
using Decoder = KplStatus (*)(Kpl8u**, int*, Kpl8u*);

struct CodeWord {
    std::string bits;
    int value;  // expected output (-1: must be rejected)
};

std::vector<std::vector<std::string>> rows(const char* file) {
    auto r = kplvc::codelists::read_rows(file);
    EXPECT_FALSE(r.empty()) << file;
    return r;
}

std::vector<CodeWord> mcbpc(const char* file) {
    std::vector<CodeWord> out;
    for (const auto& r : rows(file)) {
        if (r[2] == "stuffing")
            out.push_back({r[1], 255});
        else if (r[2] == "5")
            out.push_back({r[1], -1});  // INTER4V+Q: rejected
        else
            out.push_back({r[1], std::stoi(r[2]) | (std::stoi(r[3], nullptr, 2) << 4)});
    }
    return out;
}

// A stream holding `bits` at bit offset `off` of its first byte, random bits
// around it.
std::vector<uint8_t> stream(const std::string& bits, int off, Rng& rng) {
    std::vector<uint8_t> s(8);
    rng.fill(s.data(), s.size());
    for (size_t i = 0; i < bits.size(); ++i) {
        const size_t pos = static_cast<size_t>(off) + i;
        const uint8_t m = static_cast<uint8_t>(0x80 >> (pos & 7));
        s[pos >> 3] = static_cast<uint8_t>(bits[i] == '1' ? (s[pos >> 3] | m) : (s[pos >> 3] & ~m));
    }
    return s;
}

// The code word of `codes` that is a prefix of `bits`, if any.
const CodeWord* match(const std::vector<CodeWord>& codes, const std::string& bits) {
    for (const auto& c : codes)
        if (bits.compare(0, c.bits.size(), c.bits) == 0) return &c;
    return nullptr;
}

std::string to_bits(uint32_t v, int n) {
    std::string s;
    for (int i = n - 1; i >= 0; --i) s += ((v >> i) & 1) ? '1' : '0';
    return s;
}

// Every n-bit pattern at every offset: a pattern that starts with a code
// word decodes to its value and consumes exactly its length; any other
// pattern fails with `err` and leaves position and output alone.
void exhaustive(Decoder dec, const std::vector<CodeWord>& codes, int n, KplStatus err) {
    Rng rng(5);
    for (uint32_t v = 0; v < (1u << n); ++v) {
        const std::string bits = to_bits(v, n);
        const CodeWord* c = match(codes, bits);
        for (int off = 0; off < 8; ++off) {
            auto s = stream(bits, off, rng);
            Kpl8u* p = s.data();
            int o = off;
            Kpl8u out = 0x5A;
            const KplStatus st = dec(&p, &o, &out);
            if (c != nullptr && c->value >= 0) {
                ASSERT_EQ(st, kplStsNoErr) << bits << " off " << off;
                ASSERT_EQ(out, c->value) << bits;
                const int consumed = static_cast<int>(p - s.data()) * 8 + o - off;
                ASSERT_EQ(consumed, static_cast<int>(c->bits.size())) << bits;
            } else {
                ASSERT_EQ(st, err) << bits << " off " << off;
                ASSERT_EQ(out, 0x5A);
                ASSERT_EQ(p, s.data());
                ASSERT_EQ(o, off);
            }
        }
    }
}

}  // namespace

TEST(H263Symbols, McbpcIntraMatchesTheCodeList) {
    exhaustive(kpliDecodeMCBPCIntra_H263, mcbpc("h263_mcbpc_intra.txt"), 9, kplStsMCBPCIntraErr);
}

TEST(H263Symbols, McbpcInterMatchesTheCodeListAndRejectsInter4vQ) {
    const auto codes = mcbpc("h263_mcbpc_inter.txt");
    ASSERT_EQ(std::count_if(codes.begin(), codes.end(), [](const CodeWord& c) { return c.value < 0; }), 4);
    exhaustive(kpliDecodeMCBPCInter_H263, codes, 13, kplStsMCBPCInterErr);
}

TEST(H263Symbols, CbpyAndModbMatchTheCodeLists) {
    std::vector<CodeWord> cbpy, modb;
    for (const auto& r : rows("h263_cbpy.txt")) cbpy.push_back({r[1], std::stoi(r[3], nullptr, 2)});
    for (const auto& r : rows("h263_modb.txt"))
        modb.push_back({r[1], std::stoi(r[2]) | (std::stoi(r[3]) << 1)});
    ASSERT_EQ(cbpy.size(), 16u);
    exhaustive(kpliDecodeCBPY_H263, cbpy, 6, kplStsCBPYErr);
    exhaustive(kpliDecodeMODB_H263, modb, 2, kplStsNoErr);
}

// Motion vectors: every 13-bit pattern as the horizontal code (followed by
// the one-bit zero difference for the vertical one), decoded with the
// top-border form from a zero left candidate.
TEST(H263Symbols, MvdMatchesTheCodeList) {
    std::vector<CodeWord> mvd;
    for (const auto& r : rows("h263_mvd.txt")) mvd.push_back({r[1], std::stoi(r[2])});
    ASSERT_EQ(mvd.size(), 64u);
    Rng rng(8);
    for (uint32_t v = 0; v < (1u << 13); ++v) {
        const std::string bits = to_bits(v, 13);
        const CodeWord* c = match(mvd, bits);
        const int off = static_cast<int>(v & 7);
        const std::string both = c ? c->bits + "1" : bits;
        auto s = stream(both, off, rng);
        Kpl8u* p = s.data();
        int o = off;
        Kpl16s mv[6] = {0, 0, 111, 222, 7, 7};
        const KplStatus st = kpliDecodeMV_TopBorder_H263(&p, &o, mv);
        if (c) {
            ASSERT_EQ(st, kplStsNoErr) << bits;
            EXPECT_EQ(mv[2], c->value) << bits;
            EXPECT_EQ(mv[3], 0);
            EXPECT_EQ(static_cast<int>(p - s.data()) * 8 + o - off, static_cast<int>(c->bits.size()) + 1);
        } else {
            ASSERT_EQ(st, kplStsH263MVCodeErr) << bits;
            EXPECT_EQ(p, s.data());
            EXPECT_EQ(o, off);
            EXPECT_EQ(mv[2], 111);
            EXPECT_EQ(mv[3], 222);
        }
        EXPECT_EQ(mv[0], 0);
        EXPECT_EQ(mv[4], 7);
    }
}

TEST(H263Symbols, VerticalCodeFailureWritesNothing) {
    Rng rng(3);
    // Horizontal "010" (+1), then eleven zeros and "1": no vertical code.
    auto s = stream(
        "010"
        "000000000001",
        5, rng);
    Kpl8u* p = s.data();
    int o = 5;
    Kpl16s mv[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(kpliDecodeMV_H263(&p, &o, mv), kplStsH263MVCodeErr);
    EXPECT_EQ(p, s.data());
    EXPECT_EQ(o, 5);
    const Kpl16s want[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_TRUE(std::equal(mv, mv + 6, want));
}

TEST(H263Symbols, MedianPredictionAndWrap) {
    Rng rng(21);
    // Random candidates and differences against a sort-based median.
    const std::map<int, std::string> diffs = {{0, "1"},
                                              {1, "010"},
                                              {-1, "011"},
                                              {2, "0010"},
                                              {-2, "0011"},
                                              {-32, "0000000000101"},
                                              {31, "0000000000110"}};
    for (int iter = 0; iter < 3000; ++iter) {
        Kpl16s mv[6];
        for (auto& m : mv) m = static_cast<Kpl16s>(rng.range(-32, 31));
        auto dx = std::next(diffs.begin(), rng.range(0, 6)), dy = std::next(diffs.begin(), rng.range(0, 6));
        const int off = rng.range(0, 7);
        auto s = stream(dx->second + dy->second, off, rng);
        Kpl8u* p = s.data();
        int o = off;
        const Kpl16s in[6] = {mv[0], mv[1], mv[2], mv[3], mv[4], mv[5]};
        ASSERT_EQ(kpliDecodeMV_H263(&p, &o, mv), kplStsNoErr);
        for (int comp = 0; comp < 2; ++comp) {
            int c3[3] = {in[comp], in[2 + comp], in[4 + comp]};
            std::sort(c3, c3 + 3);
            int want = c3[1] + (comp == 0 ? dx->first : dy->first);
            if (want > 31) want -= 64;
            if (want < -32) want += 64;
            ASSERT_EQ(mv[2 + comp], want) << iter;
            ASSERT_EQ(mv[comp], in[comp]);
            ASSERT_EQ(mv[4 + comp], in[4 + comp]);
        }
    }
    // 31 + 1 wraps to -32 and -32 - 1 to 31.
    Kpl16s mv[6] = {31, -32, 0, 0, 0, 0};
    Rng r2(1);
    auto s = stream(
        "010"
        "011",
        0, r2);
    Kpl8u* p = s.data();
    int o = 0;
    ASSERT_EQ(kpliDecodeMV_TopBorder_H263(&p, &o, mv), kplStsNoErr);
    EXPECT_EQ(mv[2], -32);
    EXPECT_EQ(mv[3], 31);
}

TEST(H263Symbols, ModifiedQuantisation) {
    struct Case {
        const char* bits;
        int32_t q_in, q_out, consumed;
    };
    const Case cases[] = {
        {"11", 31, 26, 2},    {"10", 1, 3, 2},     {"11", 1, 2, 2},       {"10", 10, 9, 2},
        {"11", 20, 22, 2},    {"10", 29, 26, 2},   {"11", 29, 31, 2},     {"11", 30, 31, 2},
        {"011111", 5, 31, 6}, {"000000", 5, 0, 6}, {"010101", 31, 21, 6},
    };
    Rng rng(2);
    for (const auto& c : cases)
        for (int off = 0; off < 8; ++off) {
            auto s = stream(c.bits, off, rng);
            Kpl8u* p = s.data();
            int o = off;
            Kpl32s q = c.q_in;
            ASSERT_EQ(kpliUpdateQuant_MQ_H263_1u32s_I(&p, &o, &q), kplStsNoErr);
            EXPECT_EQ(q, c.q_out) << c.bits << " q " << c.q_in;
            EXPECT_EQ(static_cast<int>(p - s.data()) * 8 + o - off, c.consumed);
        }
}

// Each good call reads a fresh stream "11...": a valid code for every one of them.
TEST(H263Symbols, NullPointersInOrder) {
    using kplvc::test::Arg;
    kplvc::test::ArgPool p;
    auto stream = [&p] { return p.take<Kpl8u*>({p.take<Kpl8u>({0xC0, 0, 0, 0})}); };
    const Arg s0{0, nullptr, kplStsNullPtrErr}, s1{0, p.take<Kpl8u*>({nullptr}), kplStsNullPtrErr},
        s2{1, nullptr, kplStsNullPtrErr}, out{2, nullptr, kplStsNullPtrErr};
    for (Decoder d :
         {kpliDecodeMCBPCIntra_H263, kpliDecodeMCBPCInter_H263, kpliDecodeMODB_H263, kpliDecodeCBPY_H263})
        CHECK_ARGS(p, d, {stream(), p.take<int>({0}), p.take<Kpl8u>(1)}, {s0, s1, s2, out});
    for (auto d : {kpliDecodeMV_H263, kpliDecodeMV_TopBorder_H263})
        CHECK_ARGS(p, d, {stream(), p.take<int>({0}), p.take<Kpl16s>(6)}, {s0, s1, s2, out});
    CHECK_ARGS(p, kpliUpdateQuant_MQ_H263_1u32s_I, {stream(), p.take<int>({0}), p.take<Kpl32s>({5})},
               {s0, s1, s2, out});
}
