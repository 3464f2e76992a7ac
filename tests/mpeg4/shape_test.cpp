// MPEG-4 binary shape: the arithmetic coder's renormalisation, carries and
// bit stuffing; BAB round trips at every size, scan order and coding type,
// with the code lengths checked against a separate model of the contexts
// (written from the table files' descriptions), every context exercised;
// bab_type and shape-vector codes against the table files; argument checks.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kplvc.h"
#include "mpeg4/shape.h"
#include "support/args.h"
#include "support/code_lists.h"
#include "support/support.h"

namespace {

using kplvc::test::Rng;

std::vector<uint16_t> probs(const std::string& name) {
    std::vector<uint16_t> v;
    for (const auto& f : kplvc::codelists::read_rows(name)) {
        EXPECT_EQ(std::stoi(f[0]), static_cast<int>(v.size()));
        v.push_back(static_cast<uint16_t>(std::stoi(f[1])));
    }
    return v;
}

// The bits of s followed by 32 random bits (a code must not depend on what
// follows it), padded for the look-ahead.
std::vector<uint8_t> bits(const std::string& s, Rng& rng) {
    std::string t = s;
    for (int i = 0; i < 32; ++i) t += rng.coin() ? '1' : '0';
    return kplvc::test::bit_bytes(t);
}

int bit_at(const uint8_t* p, int64_t k) { return (p[k >> 3] >> (7 - (k & 7))) & 1; }

// The code between two positions with the stuffed 1s taken out (after the
// first 3 zeros and after every later run of 10, and the one that may end
// the code), as the tests count it; fails if a stuffed bit is not 1.
int64_t unstuffed_length(const uint8_t* p, int64_t from, int64_t to) {
    int zeros = 3;
    int64_t n = 0;
    for (int64_t k = from; k < to; ++k) {
        ++n;
        if (bit_at(p, k) != 0) {
            zeros = 10;
        } else if (--zeros == 0) {
            ++k;
            EXPECT_TRUE(k >= to || bit_at(p, k) == 1) << "stuffed bit at " << k;
            zeros = 10;
        }
    }
    return n;
}

}  // namespace

// The compiled tables are the table files.
TEST(Mpeg4Shape, TablesMatchTheTableFiles) {
    const std::vector<uint16_t> intra = probs("mpeg4_cae_intra_prob.txt"),
                                inter = probs("mpeg4_cae_inter_prob.txt");
    ASSERT_EQ(intra.size(), 1024u);
    ASSERT_EQ(inter.size(), 512u);
    EXPECT_TRUE(std::equal(intra.begin(), intra.end(), kplvc::mpeg4::kCaeIntraProb));
    EXPECT_TRUE(std::equal(inter.begin(), inter.end(), kplvc::mpeg4::kCaeInterProb));
}

// ---- The arithmetic coder -----------------------------------------------------------

// Symbol sequences through the encoder and back: the symbols, the end
// position and the bits before the start must survive; the code has no run
// of more than 10 zeros; the rare paths (long undecided runs whose bit is
// settled later, stuffing) must have run.
TEST(Mpeg4Shape, ArithmeticCoderRoundTrip) {
    using kplvc::mpeg4::CaeDecoder;
    using kplvc::mpeg4::CaeEncoder;
    struct Case {
        const char* name;
        int n;
        int prob_lo, prob_hi;  // P(0) drawn in this range, /65536
        int ones_percent;      // how often the symbol is 1
        int min_follow, min_stuffed;
    } cases[] = {
        {"random symbols, random probabilities", 20000, 1, 65535, 50, 4, 1},
        {"mostly 0 at the tables' high P(0): long runs of the likely symbol", 20000, 60000, 65532, 3, 1, 1},
        {"probability 1/2, every symbol 1: a code of zeros", 3000, 32768, 32768, 100, 0, 200},
        {"probability 1/2, coin tosses", 100000, 32768, 32768, 50, 3, 1},
    };
    Rng rng("cae-roundtrip");
    for (const Case& c : cases) {
        for (int rep = 0; rep < 4; ++rep) {
            std::vector<uint16_t> pr(c.n);
            std::vector<uint8_t> sym(c.n);
            for (int i = 0; i < c.n; ++i) {
                pr[i] = static_cast<uint16_t>(rng.range(c.prob_lo, c.prob_hi));
                sym[i] = rng.range(0, 99) < c.ones_percent;
            }
            std::vector<uint8_t> buf(static_cast<size_t>(c.n) * 3 + 64);
            rng.fill(buf.data(), buf.size());
            const uint8_t first = buf[0];
            const int32_t off0 = rng.range(0, 7);
            CaeEncoder enc(buf.data(), off0);
            for (int i = 0; i < c.n; ++i) enc.encode(sym[i], pr[i]);
            uint8_t* end = nullptr;
            int32_t end_off = 0;
            enc.finish(&end, &end_off);
            const int64_t end_pos = (end - buf.data()) * 8 + end_off;
            EXPECT_EQ(buf[0] >> (8 - off0), first >> (8 - off0)) << c.name;
            EXPECT_GE(enc.max_follow, c.min_follow) << c.name;
            EXPECT_GE(enc.stuffed, c.min_stuffed) << c.name;
            int run = 0, longest = 0;
            for (int64_t k = off0; k < end_pos; ++k) {
                run = bit_at(buf.data(), k) ? 0 : run + 1;
                longest = std::max(longest, run);
            }
            EXPECT_LE(longest, 10) << c.name;
            CaeDecoder dec(buf.data(), off0);
            int bad = -1;
            for (int i = 0; i < c.n && bad < 0; ++i)
                if (dec.decode(pr[i]) != sym[i]) bad = i;
            EXPECT_EQ(bad, -1) << c.name << ": first wrong symbol";
            EXPECT_EQ(dec.finish(), end_pos) << c.name;
        }
    }
}

// ---- BABs --------------------------------------------------------------------------

namespace {

// A shape plane around one BAB: the BAB's (0, 0) at (4, 4), 4 samples of
// margin beyond the widest border on every side.
constexpr int kStep = 28;
struct ShapePlane {
    std::vector<uint8_t> px = std::vector<uint8_t>(kStep * kStep);
    uint8_t* at(int x, int y) { return px.data() + (y + 4) * kStep + x + 4; }
    uint8_t get(int x, int y) const { return px[(y + 4) * kStep + x + 4] != 0 ? 1 : 0; }
};

// Inside the border that the BAB functions document for this scan.
bool in_border(int x, int y, int size, bool transposed) {
    if (transposed) std::swap(x, y);
    return (y >= -2 && y < 0 && x >= -2 && x < size + 2 && !(transposed && x >= size)) ||
           (y >= 0 && y < size && x >= -2 && x < 0);
}

// The model: pixel (x, y) of the BAB in coding order as a context sees it.
int model_pixel(const ShapePlane& s, int size, bool tr, int x, int y) {
    if (y >= 0 && x >= size) x = size - 1;   // right of a row: its last pixel
    if (tr && y < 0 && x >= size) return 0;  // below-left, not decoded yet
    return tr ? s.get(y, x) : s.get(x, y);
}

uint32_t model_intra(const ShapePlane& s, int size, bool tr, int x, int y) {
    // c0 (x-1,y) c1 (x-2,y) c2 (x+2,y-1) c3 (x+1,y-1) c4 (x,y-1) c5 (x-1,y-1)
    // c6 (x-2,y-1) c7 (x+1,y-2) c8 (x,y-2) c9 (x-1,y-2)
    static const int kPos[10][2] = {{-1, 0},  {-2, 0},  {2, -1}, {1, -1}, {0, -1},
                                    {-1, -1}, {-2, -1}, {1, -2}, {0, -2}, {-1, -2}};
    uint32_t c = 0;
    for (int k = 0; k < 10; ++k)
        c |= static_cast<uint32_t>(model_pixel(s, size, tr, x + kPos[k][0], y + kPos[k][1])) << k;
    return c;
}

uint32_t model_inter(const ShapePlane& s, const ShapePlane& mc, int size, bool tr, int x, int y) {
    // current c0 (x-1,y) c1 (x+1,y-1) c2 (x,y-1) c3 (x-1,y-1);
    // compensated c4 (x,y+1) c5 (x+1,y) c6 (x,y) c7 (x-1,y) c8 (x,y-1)
    static const int kCur[4][2] = {{-1, 0}, {1, -1}, {0, -1}, {-1, -1}};
    static const int kMc[5][2] = {{0, 1}, {1, 0}, {0, 0}, {-1, 0}, {0, -1}};
    uint32_t c = 0;
    for (int k = 0; k < 4; ++k)
        c |= static_cast<uint32_t>(model_pixel(s, size, tr, x + kCur[k][0], y + kCur[k][1])) << k;
    for (int k = 0; k < 5; ++k) {
        const int mx = x + kMc[k][0], my = y + kMc[k][1];
        c |= static_cast<uint32_t>(tr ? mc.get(my, mx) : mc.get(mx, my)) << (k + 4);
    }
    return c;
}

enum Content { kNoise, kBlob, kEmpty, kFull };

// Fills the plane: a blob (a disc of random centre and radius), noise, or a
// constant, over the BAB and its surroundings alike.
void fill_shape(ShapePlane& s, Content c, Rng& rng) {
    const int cx = rng.range(-6, 22), cy = rng.range(-6, 22), r = rng.range(3, 14);
    for (int y = -4; y < kStep - 4; ++y)
        for (int x = -4; x < kStep - 4; ++x) {
            uint8_t v;
            switch (c) {
                case kNoise:
                    v = rng.coin();
                    break;
                case kBlob:
                    v = (x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r;
                    break;
                case kEmpty:
                    v = 0;
                    break;
                default:
                    v = 1;
            }
            *s.at(x, y) = v ? 255 : 0;
        }
}

}  // namespace

// Every size, scan and coding type on noise, blobs, and the empty and full
// BAB (the corner of a VOP: an all-transparent border); the decoder sees
// only the documented border (the rest of its plane is different garbage)
// and must give back the BAB and end where the encoder ended. The code
// length must match the ideal length of the model's contexts, and over the
// noise BABs every intra and inter context must have occurred.
TEST(Mpeg4Shape, BabRoundTripsMatchTheContextModel) {
    Rng rng("bab-roundtrip");
    std::vector<bool> seen_intra(1024), seen_inter(512);
    for (int size : {16, 8, 4})
        for (int scan : {1, 0})
            for (int inter : {0, 1})
                for (Content content : {kNoise, kBlob, kEmpty, kFull})
                    for (int rep = 0; rep < (content == kNoise ? 60 : 20); ++rep) {
                        const bool tr = scan == 0;
                        ShapePlane src, mc;
                        fill_shape(src, content, rng);
                        // Border and BAB of different kinds now and then (a BAB at
                        // the VOP's corner, a full BAB beside a transparent one).
                        if (rng.range(0, 3) == 0) {
                            ShapePlane other;
                            fill_shape(other, static_cast<Content>(rng.range(0, 3)), rng);
                            for (int y = 0; y < size; ++y)
                                for (int x = 0; x < size; ++x) *other.at(x, y) = *src.at(x, y);
                            src = other;
                        }
                        fill_shape(mc, content == kNoise ? kNoise : kBlob, rng);
                        // Near-copies of the BAB as the compensated BAB, sometimes.
                        if (inter && rng.coin())
                            for (int y = -1; y <= size; ++y)
                                for (int x = -1; x <= size; ++x)
                                    *mc.at(x, y) =
                                        rng.range(0, 15) == 0 ? 255 - *src.at(x, y) : *src.at(x, y);

                        std::vector<uint8_t> buf(600);
                        rng.fill(buf.data(), buf.size());
                        Kpl8u* p = buf.data() + 1;
                        Kpl32s off = rng.range(0, 7);
                        const int64_t start = 8 + off;
                        const KplStatus st =
                            inter ? kpliEncodeBABInter_MPEG4_8u1u(src.at(0, 0), kStep, mc.at(0, 0), kStep,
                                                                  size, scan, &p, &off)
                                  : kpliEncodeBABIntra_MPEG4_8u1u(src.at(0, 0), kStep, size, scan, &p, &off);
                        ASSERT_EQ(st, kplStsNoErr);
                        const int64_t end = (p - buf.data()) * 8 + off;

                        // The model's ideal length and contexts.
                        double ideal = 0;
                        for (int y = 0; y < size; ++y)
                            for (int x = 0; x < size; ++x) {
                                const int v = model_pixel(src, size, tr, x, y);
                                uint32_t prob;
                                if (inter) {
                                    const uint32_t c = model_inter(src, mc, size, tr, x, y);
                                    prob = kplvc::mpeg4::kCaeInterProb[c];
                                    if (content == kNoise) seen_inter[c] = true;
                                } else {
                                    const uint32_t c = model_intra(src, size, tr, x, y);
                                    prob = kplvc::mpeg4::kCaeIntraProb[c];
                                    if (content == kNoise) seen_intra[c] = true;
                                }
                                ideal -= std::log2((v ? 65536.0 - prob : prob) / 65536.0);
                            }
                        const double len = static_cast<double>(unstuffed_length(buf.data(), start, end));
                        const std::string what = "size " + std::to_string(size) + " scan " +
                                                 std::to_string(scan) + (inter ? " inter" : " intra") +
                                                 " content " + std::to_string(content) + " rep " +
                                                 std::to_string(rep);
                        EXPECT_GE(len, ideal - 2) << what;
                        EXPECT_LE(len, ideal * 1.002 + 5) << what;

                        ShapePlane dst;
                        rng.fill(dst.px.data(), dst.px.size());
                        for (int y = -4; y < kStep - 4; ++y)
                            for (int x = -4; x < kStep - 4; ++x)
                                if (in_border(x, y, size, tr)) *dst.at(x, y) = *src.at(x, y);
                        // The compensated BAB's unread surroundings changed too.
                        ShapePlane mc2 = mc;
                        for (int y = -4; y < kStep - 4; ++y)
                            for (int x = -4; x < kStep - 4; ++x)
                                if (x < -1 || y < -1 || x > size || y > size) *mc2.at(x, y) = rng.u8();
                        Kpl8u* q = buf.data() + 1;
                        Kpl32s qoff = static_cast<Kpl32s>(start - 8);
                        const KplStatus ds =
                            inter ? kpliDecodeBABInter_MPEG4_1u8u(&q, &qoff, dst.at(0, 0), kStep,
                                                                  mc2.at(0, 0), kStep, size, scan)
                                  : kpliDecodeBABIntra_MPEG4_1u8u(&q, &qoff, dst.at(0, 0), kStep, size, scan);
                        ASSERT_EQ(ds, kplStsNoErr);
                        EXPECT_EQ((q - buf.data()) * 8 + qoff, end) << what;
                        int wrong = 0;
                        for (int y = 0; y < size; ++y)
                            for (int x = 0; x < size; ++x)
                                wrong += *dst.at(x, y) != (*src.at(x, y) ? 255 : 0);
                        ASSERT_EQ(wrong, 0) << what;
                    }
    int missing_intra = 0, missing_inter = 0;
    for (bool b : seen_intra) missing_intra += !b;
    for (bool b : seen_inter) missing_inter += !b;
    EXPECT_EQ(missing_intra, 0);
    EXPECT_EQ(missing_inter, 0);
}

// ---- bab_type and shape vector differences ----------------------------------------------

// Every code word of the table file, followed by random bits, decodes to its
// value and length; the unused patterns are rejected without moving.
TEST(Mpeg4Shape, BabTypeCodesFromTheTableFile) {
    Rng rng("bab-type");
    int rows = 0;
    for (const auto& f : kplvc::codelists::read_rows("mpeg4_bab_type.txt")) {
        const bool intra = f[0] == "I";
        const int key = std::stoi(f[1]);
        const int first_type = intra ? 2 : 0;
        for (size_t k = 2; k < f.size(); ++k) {
            std::vector<uint8_t> b = bits(f[k], rng);
            Kpl8u* p = b.data();
            Kpl32s off = 0, type = -1;
            const Kpl32s nb[4] = {2 + key / 27, 2 + key / 9 % 3, 2 + key / 3 % 3, 2 + key % 3};
            const KplStatus st = intra ? kpliDecodeBABTypeIntra_MPEG4_1u32s(&p, &off, nb, &type)
                                       : kpliDecodeBABTypeInter_MPEG4_1u32s(&p, &off, key, &type);
            ASSERT_EQ(st, kplStsNoErr) << f[0] << " " << key << " " << f[k];
            EXPECT_EQ(type, first_type + static_cast<int>(k) - 2) << f[0] << " " << key;
            EXPECT_EQ((p - b.data()) * 8 + off, static_cast<long>(f[k].size())) << f[0] << " " << key;
        }
        // The pattern no code word starts: 000 (I), 000000 or 0000000 (P).
        const size_t longest = intra ? 3 : 7;
        std::string unused(longest, '0');
        if (!intra) {
            bool has7 = false;
            for (size_t k = 2; k < f.size(); ++k) has7 = has7 || f[k].size() == 7;
            if (!has7) unused.resize(6);
        }
        std::vector<uint8_t> b = bits(unused, rng);
        Kpl8u* p = b.data();
        Kpl32s off = 0, type = -1;
        const Kpl32s nb[4] = {2 + key / 27, 2 + key / 9 % 3, 2 + key / 3 % 3, 2 + key % 3};
        const KplStatus st = intra ? kpliDecodeBABTypeIntra_MPEG4_1u32s(&p, &off, nb, &type)
                                   : kpliDecodeBABTypeInter_MPEG4_1u32s(&p, &off, key, &type);
        EXPECT_EQ(st, kplStsVLCErr) << f[0] << " " << key << " " << unused;
        EXPECT_EQ(p, b.data());
        EXPECT_EQ(type, -1);
        ++rows;
    }
    EXPECT_EQ(rows, 81 + 7);
}

TEST(Mpeg4Shape, ShapeVectorDifferencesFromTheTableFile) {
    Rng rng("shape-mvd");
    std::string x_code[17], y0_code[17];
    for (const auto& f : kplvc::codelists::read_rows("mpeg4_shape_mvd.txt")) {
        std::string* table = f[0] == "X" ? x_code : y0_code;
        table[std::stoi(f[1])] = f[2];
    }
    auto code = [](const std::string& c, int v) { return v == 0 ? c : c + (v > 0 ? "1" : "0"); };
    for (int dx = -16; dx <= 16; ++dx)
        for (int dy = -16; dy <= 16; ++dy) {
            if (dx == 0 && dy == 0) continue;
            const std::string s = code(x_code[std::abs(dx)], dx) +
                                  code(dx == 0 ? y0_code[std::abs(dy)] : x_code[std::abs(dy)], dy);
            std::vector<uint8_t> b = bits(s, rng);
            Kpl8u* p = b.data();
            Kpl32s off = 0;
            KplMotionVector mv = {99, 99};
            ASSERT_EQ(kpliDecodeShapeMVD_MPEG4_1u16s(&p, &off, &mv), kplStsNoErr) << s;
            EXPECT_EQ(mv.dx, dx);
            EXPECT_EQ(mv.dy, dy);
            EXPECT_EQ((p - b.data()) * 8 + off, static_cast<long>(s.size())) << s;
        }
    // The patterns no code word starts: 17 ones, and 16 ones after a zero
    // horizontal component; nothing moves.
    for (const std::string& s :
         {std::string(17, '1'), std::string("0").append(16, '1'), std::string("101").append(17, '1')}) {
        std::vector<uint8_t> b = bits(s + "0", rng);
        Kpl8u* p = b.data();
        Kpl32s off = 0;
        KplMotionVector mv = {99, 99};
        EXPECT_EQ(kpliDecodeShapeMVD_MPEG4_1u16s(&p, &off, &mv), kplStsErr) << s;
        EXPECT_EQ(p, b.data());
        EXPECT_EQ(mv.dx, 99);
    }
}

// ---- Argument checks ----------------------------------------------------------------------

TEST(Mpeg4Shape, ArgumentChecks) {
    using namespace kplvc::test;
    ArgPool p(8192);
    Kpl8u* zeros = p.take<Kpl8u>(1200);
    std::memset(zeros, 0, 1200);
    Kpl8u** pp = p.take<Kpl8u*>({zeros});
    Kpl32s* off = p.take<Kpl32s>({0});
    Kpl32s* type = p.take<Kpl32s>(1);
    const Kpl32s* nb = p.take<Kpl32s>({2, 3, 4, 2});
    KplMotionVector* mv = p.take<KplMotionVector>(1);
    Kpl8u* plane = p.take<Kpl8u>(20 * 20);
    std::memset(plane, 0, 400);
    Kpl8u* bab = plane + 2 * 20 + 2;
    const Kpl8u* mc = plane + 20 + 1;
    const Arg s0{0, nullptr, kplStsNullPtrErr}, s1{0, p.take<Kpl8u*>({nullptr}), kplStsNullPtrErr},
        s2{1, nullptr, kplStsNullPtrErr}, off8{1, p.take<Kpl32s>({8}), kplStsShapeArgErr},
        offm{1, p.take<Kpl32s>({-1}), kplStsShapeArgErr};
    CHECK_ARGS(
        p, kpliDecodeBABTypeIntra_MPEG4_1u32s, {pp, off, nb, type},
        {s0, s1, s2, null(2), null(3), off8, offm, fails(2, p.take<Kpl32s>({2, 3, 5, 2}), kplStsBadArgErr),
         fails(2, p.take<Kpl32s>({1, 3, 4, 2}), kplStsBadArgErr)},
        kplStsVLCErr);
    CHECK_ARGS(p, kpliDecodeBABTypeInter_MPEG4_1u32s, {pp, off, 0, type},
               {s0, s1, s2, null(3), off8, fails(2, 7, kplStsBadArgErr), fails(2, -1, kplStsBadArgErr)},
               kplStsVLCErr);
    CHECK_ARGS(p, kpliDecodeShapeMVD_MPEG4_1u16s, {pp, off, mv}, {s0, s1, s2, null(2), off8});
    const Arg size{4, 12, kplStsBlockSizeErr};
    CHECK_ARGS(p, kpliDecodeBABIntra_MPEG4_1u8u, {pp, off, bab, 20, 16, 1},
               {s0, s1, s2, null(2), off8, size, fails(4, 2, kplStsBlockSizeErr), fails(3, 15, kplStsStepErr),
                passes(3, 16), fails(5, 2, kplStsModeErr), passes(5, 0)});
    CHECK_ARGS(
        p, kpliDecodeBABInter_MPEG4_1u8u, {pp, off, bab, 20, mc, 20, 16, 1},
        {s0, s1, s2, null(2), null(4), off8, fails(6, 0, kplStsBlockSizeErr), fails(3, 3, kplStsStepErr),
         fails(5, 3, kplStsStepErr), passes(6, 4), fails(7, -1, kplStsModeErr)});
    Kpl8u* out = p.take<Kpl8u>(600);
    Kpl8u** wp = p.take<Kpl8u*>({out});
    const Arg w0{4, nullptr, kplStsNullPtrErr}, w1{4, p.take<Kpl8u*>({nullptr}), kplStsNullPtrErr},
        w2{5, nullptr, kplStsNullPtrErr}, woff{5, p.take<Kpl32s>({8}), kplStsShapeArgErr};
    CHECK_ARGS(p, kpliEncodeBABIntra_MPEG4_8u1u, {bab, 20, 16, 1, wp, off},
               {null(0), w0, w1, w2, woff, fails(2, 32, kplStsBlockSizeErr), fails(1, 7, kplStsStepErr),
                fails(3, 3, kplStsModeErr)});
    const Arg v0{6, nullptr, kplStsNullPtrErr}, v2{7, nullptr, kplStsNullPtrErr},
        voff{7, p.take<Kpl32s>({9}), kplStsShapeArgErr};
    CHECK_ARGS(p, kpliEncodeBABInter_MPEG4_8u1u, {bab, 20, mc, 20, 8, 0, wp, off},
               {null(0), null(2), v0, v2, voff, fails(4, 0, kplStsBlockSizeErr), fails(3, 7, kplStsStepErr),
                fails(5, 2, kplStsModeErr)});
}
