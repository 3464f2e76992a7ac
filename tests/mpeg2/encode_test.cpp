// Run-level encode table and the MPEG-1/MPEG-2 block encoders: table words,
// exact stream bits (escapes of both versions, the first-coefficient code,
// word boundaries with earlier bits in the word), the level checks that
// must leave the stream alone, and argument order.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "block_lists.h"
#include "kplvc.h"
#include "support/args.h"

namespace kplvc::test::mpeg2b {
namespace {

TEST(Mpeg2Encode, TableWords) {
    const Tables& t = tables();
    struct W {
        int at;
        Kpl32s word;
    } b14[] = {{0, 0x202},     {1, 0x106},   {2, 0x302}, {66, 0x303},
               {1986, 0x1B10}, {41, 0x100F}, {42, 0},    {2050, 0}};
    for (const W& w : b14) EXPECT_EQ(t.enc14[w.at], w.word) << "word " << w.at;
    int nonzero = 0;
    for (Kpl32s v : t.enc14) nonzero += v != 0;
    EXPECT_EQ(nonzero, 113);
    EXPECT_EQ(t.enc15[0], 0x604);
    EXPECT_EQ(t.enc15[2], 0x202);
}

TEST(Mpeg2Encode, TableFromCallerLists) {
    const struct {
        const char* name;
        std::vector<Code> codes;
        KplStatus st;
        std::vector<std::pair<int, Kpl32s>> words;  // checked on success
    } cases[] = {
        {"no escape", {{"10", 64, 0}, {"11", 0, 1}}, kplStsBadArgErr, {}},
        {"no eob", {{"000001", 65, 0}, {"11", 0, 1}}, kplStsBadArgErr, {}},
        {"eob longer than 24 bits",
         {{"0000000000000000000000001", 64, 0}, {"01", 65, 0}},
         kplStsBadArgErr,
         {}},
        {"reduced values, later record wins, out-of-range pairs left out",
         {{"10", 64, 0},
          {"01", 65, 0},
          {"110", 256 + 3, 65536 + 2},  // run 3, level 2
          {"1110", 3, 2},               // replaces it
          {"11110", 64, 1},             // run 64: no word
          {"111110", 0, 65},            // level 65: no word
          {"1111110", 0, 64},
          {"11111110", 66, 0}},  // another marker: no word
         kplStsNoErr,
         {{0, 0x202}, {1, 0x102}, {2 + 64 * 3 + 1, 0xE04}, {2 + 63, 0x7E07}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<Kpl32s> list = make_list(c.codes, true, {8, 8});
        std::vector<Kpl32s> out(KPLVC_RL_ENCODE_TABLE_SIZE, 0x1234);
        EXPECT_EQ(kpliCreateRLEncodeTable(list.data(), out.data()), c.st);
        if (c.st != kplStsNoErr) {
            for (Kpl32s v : out) ASSERT_EQ(v, 0x1234);
            continue;
        }
        int nonzero = 0;
        for (Kpl32s v : out) nonzero += v != 0;
        EXPECT_EQ(nonzero, static_cast<int>(c.words.size()));
        for (const auto& [at, w] : c.words) EXPECT_EQ(out[at], w) << "word " << at;
    }
    ArgPool p(1 << 15);
    CHECK_ARGS(p, kpliCreateRLEncodeTable,
               {tables().b14_list.data(), p.take<Kpl32s>(KPLVC_RL_ENCODE_TABLE_SIZE)}, {null(0), null(1)});
}

// The stream bits in order: whole words from bit 31, then the low 32 - f
// bits of the final word.
std::string bits_of(const std::vector<Kpl32u>& w, const Kpl32u* end, Kpl32s f) {
    std::string s;
    const size_t whole = static_cast<size_t>(end - w.data());
    for (size_t k = 0; k < whole; ++k)
        for (int b = 31; b >= 0; --b) s += (w[k] >> b) & 1 ? '1' : '0';
    for (int b = 31 - f; b >= 0; --b) s += (w[whole] >> b) & 1 ? '1' : '0';
    return s;
}

std::string strip(const std::string& s) {
    std::string r;
    for (char c : s)
        if (c == '0' || c == '1') r += c;
    return r;
}

struct Enc {
    const char* name;
    bool intra;
    int version;
    std::vector<std::pair<int, int>> levels;  // raster position, level
    const char* prefix;                       // bits already in the first word
    const char* bits;                         // expected bits written
    KplStatus st;
    Kpl16s pred = 0;
    bool chroma = false;
    bool alternate = false;
    bool b15 = false;
};

TEST(Mpeg2Encode, Streams) {
    const KplStatus ok = kplStsNoErr, range = kplStsLevelRangeErr;
    const char* v1_forms =
        "000001 000001 0111 1111  000001 000000 0000 0000 1000 0000  000001 000000 1000 0000 1000 0000"
        "  000001 000000 0000 0000 1111 1111  000001 000000 1000 0000 0000 0001  10";
    const char* esc41 = "0000 0000 0010 000 0  000001 000000 0000 0010 1001  10";
    const char* earlier = "1010 1100 0011 0101 1110 0001 1001";
    const Enc cases[] = {
        {"first -1", false, 2, {{0, -1}}, "", "1 1 10", ok},
        {"first +1, esc -300", false, 2, {{0, 1}, {3, -300}}, "", "1 0 000001 000101 1110 1101 0100 10", ok},
        {"16-bit -200", false, 1, {{0, 1}, {3, -200}}, "", "1 0 000001 000101 1000 0000 0011 1000 10", ok},
        {"v1 forms", false, 1, {{1, 127}, {8, 128}, {16, -128}, {9, 255}, {2, -255}}, "", v1_forms, ok},
        {"first coded with a run is not 1s", false, 2, {{1, 1}}, "", "011 0 10", ok},
        {"first coded level 2", false, 2, {{0, -2}}, "", "0100 1 10", ok},
        {"41 escapes", false, 2, {{0, 40}, {1, 41}}, "", esc41, ok},
        {"keeps earlier bits", false, 2, {{0, 100}}, earlier, "000001 000000 0000 0110 0100 10", ok},
        {"alternate scan", false, 2, {{8, 1}, {1, -1}}, "", "011 0  0101 1  10", ok, 0, false, true},
        {"intra v1 chroma", true, 1, {{0, 100}}, "", "11110 00011 10", ok, 128, true},
        {"intra v2 dc -256 size 9", true, 2, {{0, 0}}, "", "1111 1110 0 1111 1111 10", ok, 256},
        {"intra v2 B15 (0,1)", true, 2, {{0, 5}, {1, 1}}, "", "100 10 0 0110", ok, 5, false, false, true},
        {"intra v2 dc 2047", true, 2, {{0, 2047}}, "1", "111111111 111 1111 1111 10", ok, 0},
        {"empty non-intra", false, 2, {}, "0110", "", ok},
        // Level checks: nothing is written.
        {"v2 level -2048", false, 2, {{0, 1}, {63, -2048}}, "", "", range},
        {"v1 level 256", false, 1, {{5, 256}}, "", "", range},
        {"v1 intra dc diff -256", true, 1, {{0, 0}}, "", "", range, 256},
        {"v2 intra dc diff 2048", true, 2, {{0, 2048}}, "", "", range, 0},
        {"v1 intra AC 256", true, 1, {{0, 9}, {63, -256}}, "", "", range, 9},
    };
    const Tables& t = tables();
    const std::vector<Kpl32s> zz = scan32(kZigzag), alt = scan32(kAlternate);
    for (const Enc& c : cases) {
        SCOPED_TRACE(c.name);
        Kpl16s blk[64] = {};
        for (const auto& [pos, v] : c.levels) blk[pos] = static_cast<Kpl16s>(v);
        // Earlier content: garbage above the prefix bits, canaries after.
        std::vector<Kpl32u> w(8, 0xC3C3C3C3u);
        const std::string pre = strip(c.prefix);
        Kpl32u first = 0xF0F0F0F0u;
        for (char ch : pre) first = (first << 1) | (ch == '1' ? 1u : 0u);
        w[0] = first;
        const std::vector<Kpl32u> before = w;
        Kpl32u* p = w.data();
        Kpl32s f = 32 - static_cast<Kpl32s>(pre.size());
        Kpl16s pred = c.pred;
        const Kpl32s* enc = c.b15 ? t.enc15.data() : t.enc14.data();
        const Kpl32s* scan = c.alternate ? alt.data() : zz.data();
        const KplStatus st =
            encode_block(c.version, c.intra, blk, &p, &f, &pred, c.chroma ? t.dc13 : t.dc12, enc, scan);
        ASSERT_EQ(st, c.st);
        if (st != kplStsNoErr || strip(c.bits).empty()) {
            EXPECT_EQ(p, w.data());
            EXPECT_EQ(f, 32 - static_cast<Kpl32s>(pre.size()));
            EXPECT_EQ(pred, c.pred);
            EXPECT_EQ(w, before);
            continue;
        }
        const std::string want = pre + strip(c.bits);
        EXPECT_EQ(bits_of(w, p, f), want);
        EXPECT_EQ(p - w.data(), static_cast<ptrdiff_t>(want.size() / 32));
        EXPECT_EQ(f, 32 - static_cast<Kpl32s>(want.size() % 32));
        // No word after the one holding the last bit is written.
        const size_t last = (want.size() - 1) / 32;
        for (size_t k = last + 1; k < w.size(); ++k) EXPECT_EQ(w[k], before[k]) << "word " << k;
        EXPECT_EQ(pred, c.intra ? blk[0] : c.pred);
    }
}

// Pointers (the stream's word included), then the bit offset (1..32), the
// version (1 or 2), then a level beyond the escape range.
TEST(Mpeg2Encode, ArgumentOrder) {
    const Tables& t = tables();
    const std::vector<Kpl32s> zz = scan32(kZigzag);
    ArgPool p;
    Kpl16s *blk = p.take<Kpl16s>(64), *bad = p.take<Kpl16s>(64);
    std::memset(blk, 0, 128);
    blk[0] = 3;
    blk[1] = 1;
    std::memcpy(bad, blk, 128);
    bad[8] = 4000;
    const Arg word{1, p.take<Kpl32u*>({nullptr}), kplStsNullPtrErr},
        off0{2, p.take<Kpl32s>({0}), kplStsBadArgErr}, off33{2, p.take<Kpl32s>({33}), kplStsBadArgErr},
        level{0, bad, kplStsLevelRangeErr};
    auto stream = [&p] { return p.take<Kpl32u*>({p.take<Kpl32u>(8)}); };
    CHECK_ARGS(
        p, kpliPutIntraBlock,
        {blk, stream(), p.take<Kpl32s>({32}), p.take<Kpl16s>({3}), t.dc12, t.enc14.data(), zz.data(), 2},
        {null(0), null(1), word, null(2), null(3), null(4), null(5), null(6), off0, off33,
         fails(7, 0, kplStsBadArgErr), fails(7, 3, kplStsBadArgErr), level});
    CHECK_ARGS(p, kpliPutNonIntraBlock, {blk, stream(), p.take<Kpl32s>({32}), t.enc14.data(), zz.data(), 1},
               {null(0), null(1), word, null(2), null(3), null(4), off0, off33, fails(5, 0, kplStsBadArgErr),
                fails(5, 3, kplStsBadArgErr), level});
}

}  // namespace
}  // namespace kplvc::test::mpeg2b
