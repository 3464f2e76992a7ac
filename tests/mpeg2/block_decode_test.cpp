// MPEG-1/MPEG-2 block decoders: worked streams, stream errors that must
// leave every output alone, argument checks, exact reconstruction with
// extreme levels and weights, and the SIMD scan mask against its reference.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "block_lists.h"
#include "kplvc.h"
#include "mpeg2/block.h"
#include "support/args.h"
#include "support/variants.h"

namespace kplvc::test::mpeg2b {
namespace {

enum Tab { B14, B15 };
enum Dc { B12, B13 };
enum Mat { Null, Flat16, Flat8, Flat4, Flat255, Default };

// Flat matrices, or the default intra matrix (raster order, from the data
// table).
const Kpl16s* matrix(Mat m) {
    static const std::vector<std::vector<Kpl16s>> all = [] {
        std::vector<std::vector<Kpl16s>> v = {{},
                                              std::vector<Kpl16s>(64, 16),
                                              std::vector<Kpl16s>(64, 8),
                                              std::vector<Kpl16s>(64, 4),
                                              std::vector<Kpl16s>(64, 255),
                                              {}};
        for (const auto& f : codelists::read_rows("mpeg2_default_matrices.txt"))
            if (f[0] == "intra")
                for (size_t u = 2; u < f.size(); ++u)
                    v[Default].push_back(static_cast<Kpl16s>(std::stoi(f[u])));
        EXPECT_EQ(v[Default].size(), 64u);
        return v;
    }();
    return m == Null ? nullptr : all[m].data();
}

struct Dec {
    int version;
    bool intra;
    Tab tab = B14;
    Dc dc = B12;
    Kpl16s pred = 0;
    int prec = 0;
    int qp = 1;
    Mat mat = Null;
    bool alternate = false;
    const Kpl32s* coef_override = nullptr;
    const Kpl32s* scan_override = nullptr;
};

struct Outcome {
    KplStatus st;
    Kpl16s block[64];
    Kpl32s count;
    Kpl16s pred;
    int64_t consumed;  // bits from offset 31 of the first word
};

constexpr Kpl16s kFill = 0x5A5A;
constexpr Kpl32s kCountFill = -77;

Outcome decode(const Dec& s, std::vector<Kpl32u>& words) {
    const Tables& t = tables();
    static const std::vector<Kpl32s> zz = scan32(kZigzag), alt = scan32(kAlternate);
    const Kpl32s* coef = s.coef_override ? s.coef_override : (s.tab == B14 ? t.b14.get() : t.b15.get());
    const Kpl32s* dct = s.dc == B12 ? t.b12.get() : t.b13.get();
    const Kpl32s* scan = s.scan_override ? s.scan_override : (s.alternate ? alt.data() : zz.data());
    const Kpl16s* w = matrix(s.intra && s.mat == Null ? Default : s.mat);
    Outcome o;
    for (auto& v : o.block) v = kFill;
    o.count = kCountFill;
    o.pred = s.pred;
    Kpl32u* p = words.data();
    Kpl32s off = 31;
    o.st = decode_block(s.version, s.intra, &p, &off, o.block, &o.count, &o.pred, dct, coef, scan, s.qp, w,
                        s.prec);
    o.consumed = (p - words.data()) * int64_t{32} + (31 - off);
    return o;
}

struct Case {
    const char* name;
    Dec setup;
    const char* bits;
    KplStatus st;
    std::map<int, int> values;  // index -> value, all others 0
    int count;
    int consumed;
    int pred_out;  // intra only
};

void expect_untouched(const Outcome& o, const Dec& s) {
    for (int i = 0; i < 64; ++i) ASSERT_EQ(o.block[i], kFill) << "index " << i;
    EXPECT_EQ(o.count, kCountFill);
    EXPECT_EQ(o.pred, s.pred);
    EXPECT_EQ(o.consumed, 0);
}

std::string repeat(const char* s, int n) {
    std::string r;
    for (int i = 0; i < n; ++i) r += s;
    return r;
}

TEST(Mpeg2BlockDecode, WorkedStreams) {
    const std::string run63 = "1 0" + repeat("11 0", 63) + "10";
    const std::string run64 = "1 0" + repeat("11 0", 64) + "10";
    const char* esc300 = "1 0 000001 000101 1110 1101 0100 10";
    std::map<int, int> all3, all1;
    for (int i = 0; i < 64; ++i) all3[i] = 3;
    for (int i = 0; i < 63; ++i) all1[i] = 1;  // the even sum 64 clears (7, 7)
    const KplStatus ok = kplStsNoErr, vlc = kplStsVLCErr, past63 = kplStsCoefCountErr;
    const Dec dc9{2, true, B14, B12, 0, 1}, dc2000{2, true, B14, B12, 2000, 0},
        q2{2, false, B14, B12, 0, 0, 2}, q2alt{2, false, B14, B12, 0, 0, 2, Null, true},
        q30{1, false, B14, B12, 0, 0, 30, Flat16}, q112{2, false, B14, B12, 0, 0, 112, Flat255},
        intra16{2, true, B14, B12, 0, 0, 1, Flat16}, intra16b15{2, true, B15, B12, 0, 0, 1, Flat16};
    const Case cases[] = {
        {"m2 dc +2, mismatch", {2, true, B14, B12, 128}, "01 10 10", ok, {{0, 1040}, {63, 1}}, 64, 6, 130},
        {"m2 intra B15 eob", {2, true, B15, B12, 128}, "01 10 0110", ok, {{0, 1040}, {63, 1}}, 64, 8, 130},
        {"m2 intra precision 3", {2, true, B14, B12, 1024, 3}, "00 1 10", ok, {{0, 1025}}, 1, 5, 1025},
        {"m1 intra no mismatch", {1, true, B14, B12, 128}, "01 10 10", ok, {{0, 1040}}, 1, 6, 130},
        {"m1 chroma -diff", {1, true, B14, B13, 128}, "11110 00011 10", ok, {{0, 800}}, 1, 12, 100},
        {"m1 intra dc to zero", {1, true, B14, B12, 1}, "00 0 10", ok, {}, 0, 5, 0},
        {"m1 intra size 9 refused", {1, true, B14, B12, 128}, "1111 1110 0 0000 0000 10", vlc, {}, 0, 0, 0},
        {"m2 dc size 9", dc9, "1111 1110 1 0000 0000 10", ok, {{0, 1024}, {63, 1}}, 64, 19, 256},
        {"m2 dc clamps", dc2000, "1111 1111 1 111 1111 1111 10", ok, {{0, 2047}}, 1, 22, 4047},
        {"m2 esc -300", q2, esc300, ok, {{0, 3}, {24, -601}, {63, 1}}, 64, 28, 0},
        {"m2 esc -300 alt", q2alt, esc300, ok, {{0, 3}, {16, -601}, {63, 1}}, 64, 28, 0},
        {"m1 escape -200", {1, false}, "000001 000000 1000 0000 0011 1000 10", ok, {{0, -401}}, 1, 30, 0},
        {"m1 escape +200", {1, false}, "000001 000000 0000 0000 1100 1000 10", ok, {{0, 401}}, 1, 30, 0},
        {"m1 escape 127", {1, false}, "000001 000000 0111 1111 10", ok, {{0, 255}}, 1, 22, 0},
        {"m1 escape -127", {1, false}, "000001 000000 1000 0001 10", ok, {{0, -255}}, 1, 22, 0},
        {"m1 long form of 5", {1, false}, "000001 000000 0000 0000 0000 0101 10", ok, {{0, 11}}, 1, 30, 0},
        {"m1 long form of -5", {1, false}, "000001 000000 1000 0000 1111 1011 10", ok, {{0, -11}}, 1, 30, 0},
        {"m1 oddify non-intra 2", {1, false}, "0100 0 10", ok, {{0, 5}}, 1, 7, 0},
        {"m1 non-intra 1 weight 8", {1, false, B14, B12, 0, 0, 1, Flat8}, "1 0 10", ok, {{0, 1}}, 1, 4, 0},
        {"m1 oddify intra 2", {1, true, B14, B12, 0, 0, 1, Flat16}, "100 0100 0 10", ok, {{8, 3}}, 2, 10, 0},
        {"m1 intra -1", {1, true, B14, B12, 0, 0, 1, Flat16}, "100 11 1 10", ok, {{8, -1}}, 2, 8, 0},
        // (-511 * 30 * 16) / 16 = -15330 is even: -15329, then the clamp.
        {"m1 odd, clamp", q30, "000001 000000 1000 0000 0000 0001 10", ok, {{0, -2048}}, 1, 30, 0},
        {"first 1s negative", {2, false}, "1 1 10", ok, {{0, -1}}, 1, 4, 0},
        {"m1 first then 11", {1, false}, "1 0 11 0 10", ok, {{0, 3}, {8, 3}}, 2, 7, 0},
        {"m2 first then 11", {2, false}, "1 0 11 0 10", ok, {{0, 1}, {8, 1}, {63, 1}}, 64, 7, 0},
        {"intra 11 is (0,1)", intra16, "100 11 0 10", ok, {{8, 1}}, 2, 8, 0},
        {"m2 level to zero", {2, false, B14, B12, 0, 0, 1, Flat8}, "1 0 10", ok, {{63, 1}}, 64, 4, 0},
        {"m1 level to zero", {1, false, B14, B12, 0, 0, 1, Flat4}, "1 0 10", ok, {}, 0, 4, 0},
        {"m2 sat 2047", q112, "000001 000000 0111 1111 1111 10", ok, {{0, 2047}}, 1, 26, 0},
        {"m2 sat -2047", q112, "000001 000000 1000 0000 0001 10", ok, {{0, -2048}, {63, 1}}, 64, 26, 0},
        {"mismatch clears (7,7)", {2, false}, "1 0 000001 111110 0000 0000 0001 10", ok, {{0, 1}}, 1, 28, 0},
        {"64 coefficients", {1, false}, run63.c_str(), ok, all3, 64, 2 + 63 * 3 + 2, 0},
        {"64 coefficients, mismatch", {2, false}, run63.c_str(), ok, all1, 63, 2 + 63 * 3 + 2, 0},
        {"B14 0000 0001 0000", intra16, "100 0000 0001 0000 0 10", ok, {{8, 11}}, 2, 18, 0},
        // Errors: nothing written.
        {"twelve zeros", {2, false}, "0000 0000 0000 0000", vlc, {}, 0, 0, 0},
        {"twelve zeros after dc", {2, true, B14, B12, 5}, "100 0000 0000 0000", vlc, {}, 0, 0, 0},
        {"m2 escape 0", {2, false}, "000001 000000 0000 0000 0000 10", vlc, {}, 0, 0, 0},
        {"m2 escape -2048", {2, false}, "000001 000000 1000 0000 0000 10", vlc, {}, 0, 0, 0},
        {"m1 escape 0", {1, false}, "000001 000000 0000 0000 0000 0000 10", vlc, {}, 0, 0, 0},
        {"m1 escape -256", {1, false}, "000001 000000 1000 0000 0000 0000 10", vlc, {}, 0, 0, 0},
        {"escape run past 63", {2, false}, "1 0 000001 111111 0000 0000 0001 10", past63, {}, 0, 0, 0},
        {"level before run", {2, false}, "1 0 000001 111111 0000 0000 0000 10", vlc, {}, 0, 0, 0},
        {"65th coefficient", {2, false}, run64.c_str(), past63, {}, 0, 0, 0},
        {"B15 lacks B14 code", intra16b15, "100 0000 0001 0000 0 0110", vlc, {}, 0, 0, 0},
        {"EOB first in non-intra", {2, false, B15}, "0110", vlc, {}, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<Kpl32u> w = words_of(c.bits);
        const Outcome o = decode(c.setup, w);
        ASSERT_EQ(o.st, c.st);
        if (c.st != kplStsNoErr) {
            expect_untouched(o, c.setup);
            continue;
        }
        for (int i = 0; i < 64; ++i) {
            const auto it = c.values.find(i);
            EXPECT_EQ(o.block[i], it == c.values.end() ? 0 : it->second) << "index " << i;
        }
        EXPECT_EQ(o.count, c.count);
        EXPECT_EQ(o.consumed, c.consumed);
        if (c.setup.intra) {
            EXPECT_EQ(o.pred, c.pred_out);
        }
    }
}

// A caller's table whose leaves are not the standard ones: a level of 32767,
// a marker of no known form and a negative level.
TEST(Mpeg2BlockDecode, CallerTableLeaves) {
    const std::vector<Code> codes = {{"1", 0, 32767}, {"01", 64, 0},    {"001", 65, 0},
                                     {"0001", 7, 0},  {"00001", 3, -5}, {"000001", 241, 240}};
    const std::vector<Kpl32s> list = make_list(codes, true, {4, 4});
    Table t = build(list, true);
    struct L {
        const char* bits;
        KplStatus st;
    } cases[] = {{"0001", kplStsVLCErr},
                 {"00001 0", kplStsVLCErr},
                 // value2 240 with run 241 is the invalid marker's own bit
                 // pattern (e >> 8 == 0xF0F1): no code word, not a run.
                 {"000001 0", kplStsVLCErr},
                 {"0000001", kplStsVLCErr},
                 {"001 000000 0000 0000 0001 01", kplStsNoErr}};
    for (const L& c : cases) {
        SCOPED_TRACE(c.bits);
        std::vector<Kpl32u> w = words_of(c.bits);
        Dec s{2, false};
        s.coef_override = t.get();
        const Outcome o = decode(s, w);
        EXPECT_EQ(o.st, c.st);
        if (c.st != kplStsNoErr) expect_untouched(o, s);
    }
}

// Levels and weights far beyond the standards' ranges: the products need
// more than 32 bits and the result must still be the exact quotient.
TEST(Mpeg2BlockDecode, ExactReconstructionAtExtremes) {
    const std::vector<Code> codes = {{"1", 0, 32767}, {"01", 64, 0}, {"001", 65, 0}, {"0001", 0, 1}};
    const std::vector<Kpl32s> list = make_list(codes, true, {8});
    Table t = build(list, true);
    Rng rng("mpeg2 block extremes");
    const std::vector<Kpl32s> zz = scan32(kZigzag);
    for (int n = 0; n < 3000; ++n) {
        const int version = rng.coin() ? 1 : 2;
        const bool intra = rng.coin();
        const int qp = rng.range(1, version == 1 ? 31 : 112);
        std::vector<Kpl16s> w(64);
        rng.fill_extreme(w.data(), 64);
        const bool neg = rng.coin();
        const bool big = rng.coin();
        // Intra: DC size 0 (B-12 "100"); non-intra: (0, 1) "0001 0" at scan
        // index 0. Then the level under test at scan index 1 (raster 1,
        // index 8 of the transposed block), then EOB "01".
        std::string bits = intra ? "100" : "0001 0";
        bits += big ? (neg ? "1 1" : "1 0") : (neg ? "0001 1" : "0001 0");
        bits += "01";
        std::vector<Kpl32u> words = words_of(bits);
        Kpl16s blk[64];
        Kpl32s count = -1, off = 31;
        Kpl16s pred = 0;
        Kpl32u* p = words.data();
        const Kpl16s* wp = w.data();
        KplStatus st;
        if (version == 1)
            st = intra ? kpliReconstructDCTBlockIntra_MPEG1_32s(
                             &p, &off, blk, &count, &pred, tables().b12.get(), t.get(), zz.data(), qp, wp)
                       : kpliReconstructDCTBlock_MPEG1_32s(&p, &off, blk, &count, t.get(), zz.data(), qp, wp);
        else
            st = intra ? kpliReconstructDCTBlockIntra_MPEG2_32s(
                             &p, &off, blk, &count, &pred, tables().b12.get(), t.get(), zz.data(), qp, wp, 0)
                       : kpliReconstructDCTBlock_MPEG2_32s(&p, &off, blk, &count, t.get(), zz.data(), qp, wp);
        ASSERT_EQ(st, kplStsNoErr);
        const int level = (big ? 32767 : 1) * (neg ? -1 : 1);
        const int32_t r0 = intra ? 0 : model_dequant(version, false, 1, qp, w[0]);
        const int32_t r1 = model_dequant(version, intra, level, qp, w[1]);
        const int32_t m63 = version == 2 && ((r0 + r1) & 1) == 0 ? 1 : 0;
        ASSERT_EQ(blk[0], r0) << "v" << version << " qp " << qp << " w " << w[0];
        ASSERT_EQ(blk[8], r1) << "v" << version << " intra " << intra << " qp " << qp << " w " << w[1]
                              << " level " << level;
        ASSERT_EQ(blk[63], m63);
        const int expect_count = m63 != 0 ? 64 : (r1 != 0 ? 2 : (r0 != 0 ? 1 : 0));
        ASSERT_EQ(count, expect_count);
    }
}

TEST(Mpeg2BlockDecode, CountFollowsScanEntries) {
    // Every scan entry names raster position 5 (or 5 + 64: only the low six
    // bits count): the one coefficient is seen at every scan index.
    std::vector<Kpl32s> all5(64, 5);
    all5[63] = 5 + 64 * 3;
    Dec s{1, false};
    s.scan_override = all5.data();
    std::vector<Kpl32u> w = words_of("1 0 10");
    Outcome o = decode(s, w);
    ASSERT_EQ(o.st, kplStsNoErr);
    EXPECT_EQ(o.block[40], 3);
    EXPECT_EQ(o.count, 64);

    // A later coefficient that reconstructs to 0 on the same position
    // replaces the earlier one: the count sees the final block.
    std::vector<Kpl32s> rep = scan32(kZigzag);
    rep[1] = 0;
    s = Dec{1, false, B14, B12, 0, 0, 1, Flat4};
    s.scan_override = rep.data();
    w = words_of("0100 0 11 0 10");  // (0,2) at index 0, then (0,1) at index 1 -> 0
    o = decode(s, w);
    ASSERT_EQ(o.st, kplStsNoErr);
    EXPECT_EQ(o.block[0], 0);
    EXPECT_EQ(o.count, 0);
}

// ---- Argument checks ------------------------------------------------------------

// Pointers (the stream's word included) first, then the bit offset, the
// quantiser scale and the intra DC precision; the non-intra decoders take a
// null matrix as flat 16. Each function decodes a fresh valid stream.
TEST(Mpeg2BlockDecode, ArgumentOrder) {
    const Tables& t = tables();
    const std::vector<Kpl32s> zz = scan32(kZigzag);
    const Kpl16s* W = matrix(Default);
    ArgPool p;
    auto stream = [&p](const char* bits) {
        const std::vector<Kpl32u> w = words_of(bits);
        Kpl32u* s = p.take<Kpl32u>(w.size());
        std::memcpy(s, w.data(), 4 * w.size());
        return p.take<Kpl32u*>({s});
    };
    Kpl16s* blk = p.take<Kpl16s>(64);
    Kpl32s* cnt = p.take<Kpl32s>(1);
    const Arg word{0, p.take<Kpl32u*>({nullptr}), kplStsNullPtrErr},
        off32{1, p.take<Kpl32s>({32}), kplStsBadArgErr}, off_neg{1, p.take<Kpl32s>({-1}), kplStsBadArgErr};
    CHECK_ARGS(p, kpliReconstructDCTBlockIntra_MPEG1_32s,
               {stream("100 11 0 10"), p.take<Kpl32s>({31}), blk, cnt, p.take<Kpl16s>({0}), t.b12.get(),
                t.b14.get(), zz.data(), 1, W},
               {null(0), word, null(1), null(2), null(3), null(4), null(5), null(6), null(7), null(9), off32,
                off_neg, fails(8, 0, kplStsBadArgErr), fails(8, -1, kplStsBadArgErr),
                fails(8, 32, kplStsBadArgErr), passes(8, 31)});
    CHECK_ARGS(p, kpliReconstructDCTBlockIntra_MPEG2_32s,
               {stream("100 11 0 10"), p.take<Kpl32s>({31}), blk, cnt, p.take<Kpl16s>({0}), t.b12.get(),
                t.b14.get(), zz.data(), 1, W, 0},
               {null(0), word, null(1), null(2), null(3), null(4), null(5), null(6), null(7), null(9), off32,
                off_neg, fails(8, 0, kplStsBadArgErr), fails(8, 113, kplStsBadArgErr), passes(8, 112),
                fails(10, 4, kplStsBadArgErr), fails(10, -1, kplStsBadArgErr)});
    for (auto [f, qmax] :
         {std::pair{&kpliReconstructDCTBlock_MPEG1_32s, 31}, {&kpliReconstructDCTBlock_MPEG2_32s, 112}})
        CHECK_ARGS(p, f, {stream("1 0 10"), p.take<Kpl32s>({31}), blk, cnt, t.b14.get(), zz.data(), 1, W},
                   {null(0), word, null(1), null(2), null(3), null(4), null(5), off32, off_neg,
                    fails(6, 0, kplStsBadArgErr), fails(6, -1, kplStsBadArgErr),
                    fails(6, qmax + 1, kplStsBadArgErr), passes(6, qmax), passes(7, nullptr)});
}

TEST(Mpeg2BlockDecode, NullMatrixIsFlat16) {
    // The non-intra decoders take a null matrix as flat 16.
    std::vector<Kpl32u> w = words_of("0100 0 10");
    for (int v = 1; v <= 2; ++v) {
        const Outcome a = decode(Dec{v, false, B14, B12, 0, 0, 3, Null}, w);
        const Outcome b = decode(Dec{v, false, B14, B12, 0, 0, 3, Flat16}, w);
        ASSERT_EQ(a.st, kplStsNoErr);
        EXPECT_EQ(0, std::memcmp(a.block, b.block, sizeof a.block));
        EXPECT_EQ(a.block[0], v == 1 ? 15 : 7);
    }
}

// ---- The fast decoders against the reference ------------------------------------

// One decoder call on its own copies of every output, so two decoders can
// be compared field by field.
struct Result {
    KplStatus st;
    Kpl16s block[64];
    Kpl32s count;
    Kpl16s pred;
    ptrdiff_t word;
    Kpl32s off;
};

Result run_kernel(mpeg2::BlockDecodeFn fn, const std::vector<Kpl32u>& words, Kpl32s off, mpeg2::BlockArgs a) {
    Result r;
    for (auto& v : r.block) v = kFill;
    r.count = kCountFill;
    r.pred = a.pDCPred ? *a.pDCPred : 0;
    Kpl32u* p = const_cast<Kpl32u*>(words.data());
    r.off = off;
    a.ppBitStream = &p;
    a.pOffset = &r.off;
    a.pDstBlock = r.block;
    a.pDstCount = &r.count;
    if (a.pDCPred) a.pDCPred = &r.pred;
    r.st = fn(a);
    r.word = p - words.data();
    return r;
}

void expect_same(const Result& x, const Result& y) {
    ASSERT_EQ(x.st, y.st);
    ASSERT_EQ(0, std::memcmp(x.block, y.block, sizeof x.block));
    ASSERT_EQ(x.count, y.count);
    ASSERT_EQ(x.pred, y.pred);
    ASSERT_EQ(x.word, y.word);
    ASSERT_EQ(x.off, y.off);
}

// Every level whose decoders differ from the reference, on streams of
// encoded blocks (some with bits flipped) and of random bits, with tables of
// several level layouts, scans with repeated and out-of-range entries,
// weights over the whole 16-bit range, every quantiser scale and start bit.
TEST(Mpeg2BlockDecode, FastDecodersMatchReference) {
    const Tables& t = tables();
    struct Layout {
        std::vector<Kpl32s> rl, dc;
    };
    const Layout layouts[] = {{{8, 8}, {9}},
                              {{5, 6, 6}, {2, 4, 4}},
                              {{16}, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1}},
                              {{3, 3, 3, 3, 4}, {3, 3, 3, 3}}};
    std::vector<Table> rl[2], dc[2];
    for (const Layout& l : layouts) {
        rl[0].push_back(build(make_list(read_rl("mpeg2_dct_coef_b14.txt"), true, l.rl), true));
        rl[1].push_back(build(make_list(read_rl("mpeg2_dct_coef_b15.txt"), true, l.rl), true));
        dc[0].push_back(build(make_list(read_dc("B12"), false, l.dc), false));
        dc[1].push_back(build(make_list(read_dc("B13"), false, l.dc), false));
    }
    const std::vector<Kpl32s> zz = scan32(kZigzag);
    for (int v = 0; v < 2; ++v)
        for (int intra = 0; intra < 2; ++intra)
            check_variants(
                mpeg2::block_kernels_for,
                [v, intra](const mpeg2::BlockKernels& k) { return k.decode[v][intra]; },
                "mpeg2 block decode v" + std::to_string(v + 1) + (intra ? " intra" : " inter"), 6000,
                [&, v, intra](Arena& a, Rng& rng, int) {
                    const int lay = rng.range(0, 3), tab = (v == 1 && intra) ? rng.range(0, 1) : 0;
                    const int luma = rng.range(0, 1), sk = rng.range(0, 5), wk = rng.range(0, 3);
                    auto scan = a.in<Kpl32s>(64);
                    for (int i = 0; i < 64; ++i)
                        a[scan][i] = sk <= 1   ? kZigzag[i]
                                     : sk == 2 ? kAlternate[i]
                                     : sk == 3 ? rng.range(0, 63)
                                     : sk == 4 ? static_cast<Kpl32s>(rng.u32())
                                               : (rng.coin() ? kZigzag[i] : rng.range(60, 63));
                    auto w = a.in<Kpl16s>(64);
                    for (int i = 0; i < 64; ++i)
                        a[w][i] =
                            wk == 0 ? 16 : (wk == 1 ? static_cast<Kpl16s>(rng.range(1, 255)) : rng.s16());
                    const bool null_w = !intra && (wk == 3 || (wk == 0 && rng.coin()));
                    const int qmax = v == 0 ? 31 : 112;
                    const int qp = rng.coin() ? rng.range(1, qmax) : (rng.coin() ? 1 : qmax);
                    const int prec = intra ? rng.range(0, 3) * (v == 1) : 0;
                    // The stream: an encoded block, perhaps damaged, or random bits.
                    auto words = a.in<Kpl32u>(80);
                    auto blk = a.out<Kpl16s>(64);
                    auto state = a.out<Kpl32s>(4);  // offset, DC predictor, count, words consumed
                    const Kpl16s pred = static_cast<Kpl16s>(rng.coin() ? rng.range(0, 2047) : rng.s16());
                    const int form = rng.range(0, 3);
                    const Kpl32s off = rng.range(0, 31);
                    a[state][0] = off;
                    a[state][1] = pred;
                    if (form != 3) {
                        Kpl16s lv[64] = {};
                        for (int c = rng.range(1, form == 0 ? 6 : 64); c > 0; --c) {
                            int32_t l = rng.range(1, 3);
                            if (rng.range(0, 7) == 0) l = rng.range(1, v == 0 ? 255 : 2047);
                            lv[kZigzag[rng.range(intra, 63)]] = static_cast<Kpl16s>(rng.coin() ? -l : l);
                        }
                        lv[0] = static_cast<Kpl16s>(pred + rng.range(-255, 255));
                        // Earlier bits fill the first word down to the start.
                        std::fill(a[words] + 1, a[words] + 80, 0u);
                        Kpl32u* p = a[words];
                        Kpl32s f = off + 1;
                        Kpl16s epred = pred;
                        const Kpl32s* enc = tab ? t.enc15.data() : t.enc14.data();
                        const KplStatus est = encode_block(v + 1, intra, lv, &p, &f, &epred,
                                                           luma ? t.dc12 : t.dc13, enc, zz.data());
                        if (est == kplStsNoErr && f != 32) *p <<= f;
                        if (form == 2) a[words][rng.range(0, 3)] ^= 1u << rng.range(0, 31);
                    }
                    const Kpl32s* dct = intra ? dc[luma ? 0 : 1][lay].get() : nullptr;
                    const Kpl32s* coef = rl[tab][lay].get();
                    return [=](mpeg2::BlockDecodeFn fn, Arena& x) {
                        Kpl32u* p = x[words];
                        Kpl32s* st = x[state];
                        Kpl16s dcpred = static_cast<Kpl16s>(st[1]);
                        const KplStatus r = fn({&p, &st[0], x[blk], &st[2], intra ? &dcpred : nullptr, dct,
                                                coef, x[scan], qp, null_w ? nullptr : x[w], prec});
                        st[1] = dcpred;
                        st[3] = static_cast<Kpl32s>(p - x[words]);
                        return r;
                    };
                });
}

// A table that the fast reader hands to the reference: a leaf that gives
// back more bits than its level looked up (no table builder makes one). The
// results are the reference's, whatever they are.
TEST(Mpeg2BlockDecode, UnexpectedTableFallsBack) {
    // One level of 2 bits: 00 and 01 a leaf (run 0, level 1, u = 3), 1x EOB.
    const Kpl32s odd[5] = {2, (1 << 16) | 3, (1 << 16) | 3, (KPLVC_RL_EOB << 8) | 1, (KPLVC_RL_EOB << 8) | 1};
    const mpeg2::BlockKernels ref = mpeg2::block_kernels_for(cpu::Isa::c);
    const std::vector<Kpl32s> zz = scan32(kZigzag);
    std::vector<Kpl32u> words = words_of("0 0 0 1 0 0 1 0 1 0 1 0 1 1 1 1 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
    for (cpu::Isa isa : cpu_levels()) {
        const mpeg2::BlockKernels k = mpeg2::block_kernels_for(isa);
        const mpeg2::BlockArgs a{nullptr, nullptr,   nullptr, nullptr, nullptr, nullptr,
                                 odd,     zz.data(), 3,       nullptr, 0};
        expect_same(run_kernel(ref.decode[1][0], words, 20, a), run_kernel(k.decode[1][0], words, 20, a));
    }
}

// The intra decoders never read entry 0 of the scan or of the matrix: in
// both tables entry 0 lies on an unmapped page.
TEST(Mpeg2BlockDecode, IntraNeverReadsEntryZero) {
    const Tables& t = tables();
    GuardPages scan_page(64 * sizeof(Kpl32s)), w_page(64 * sizeof(Kpl16s));
    // Entries 1..63 sit at the start of the window; entry 0 is the last
    // element of the unmapped page before it.
    Kpl32s* scan = reinterpret_cast<Kpl32s*>(scan_page.flush_start()) - 1;
    Kpl16s* w = reinterpret_cast<Kpl16s*>(w_page.flush_start()) - 1;
    for (int i = 1; i < 64; ++i) {
        scan[i] = kZigzag[i];
        w[i] = static_cast<Kpl16s>(16 + i);
    }
    // (0, 1) at scan index 1, EOB; then the same with entry 1 pointing at
    // raster 0 (weighted 8 there, the DC overwritten).
    std::vector<Kpl32u> words = words_of("100 11 0 10");
    for (int version = 1; version <= 2; ++version) {
        for (int at_dc = 0; at_dc < 2; ++at_dc) {
            scan[1] = at_dc ? 0 : kZigzag[1];
            for (cpu::Isa isa : cpu_levels()) {
                SCOPED_TRACE(std::string(cpu::isa_name(isa)) + " v" + std::to_string(version) + " at dc " +
                             std::to_string(at_dc));
                const mpeg2::BlockKernels k = mpeg2::block_kernels_for(isa);
                Kpl16s pred = 0;
                const mpeg2::BlockArgs a{nullptr,     nullptr, nullptr, nullptr, &pred, t.b12.get(),
                                         t.b14.get(), scan,    2,       w,       0};
                const Result r = run_kernel(k.decode[version - 1][1], words, 31, a);
                ASSERT_EQ(r.st, kplStsNoErr);
                // Level 1, q 2: (2 * 1 * w * 2) / 32 or / 16.
                const int weight = at_dc ? 8 : w[1];
                const int expect = model_dequant(version, true, 1, 2, weight);
                EXPECT_EQ(r.block[at_dc ? 0 : 8], expect);
                // Version 2 without the move to raster 0 has an even sum:
                // mismatch control sets (7, 7).
                EXPECT_EQ(r.count, version == 2 && !at_dc ? 64 : 2);
            }
        }
    }
}

}  // namespace
}  // namespace kplvc::test::mpeg2b
