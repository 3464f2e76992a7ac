// MPEG-4 texture coding: the code tables against the standard's lists, the
// escape boundaries, encoder/decoder round trips, the inverse quantisers
// folded into the inter decoder, and the argument checks of every texture
// function.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "block/scan.h"
#include "kplvc.h"
#include "mpeg4/texture.h"
#include "support/args.h"
#include "support/code_lists.h"
#include "support/support.h"

using kplvc::test::Rng;

namespace {

using kplvc::codelists::read_rows;

using kplvc::test::bit_bytes;  // a stream of 0/1 bits, zero-padded

// The bits a writer produced, as a string of 0/1.
std::string bits_of(const uint8_t* begin, const uint8_t* end, int32_t off) {
    std::string s;
    for (const uint8_t* p = begin; p < end || (p == end && off > 0); ++p)
        for (int b = 0; b < (p == end ? off : 8); ++b) s += ((*p >> (7 - b)) & 1) ? '1' : '0';
    return s;
}

constexpr int kScans = 3;

}  // namespace

// ---- Tables ---------------------------------------------------------------------

// Every code word of Table B-16 with its sign bit decodes to its event (a
// LAST = 1 event ends the block at once), and the escape limits of both
// tables are the standard's.
TEST(Mpeg4Texture, IntraTableAndEscapeLimitsMatchTheStandard) {
    const auto rows = read_rows("mpeg4_intra_tcoef_b16.txt");
    ASSERT_GT(rows.size(), 250u) << "tests/data/mpeg4_intra_tcoef_b16.txt missing";
    int events = 0;
    for (const auto& f : rows) {
        if (f[0] == "LMAX") {
            const auto& t = f[1] == "intra" ? kplvc::mpeg4::kIntraTcoef : kplvc::mpeg4::kInterTcoef;
            EXPECT_EQ(t.lmax[std::stoi(f[2])][std::stoi(f[3])], std::stoi(f[4]))
                << f[1] << " LMAX " << f[2] << " " << f[3];
            continue;
        }
        if (f[0] == "RMAX") {
            const auto& t = f[1] == "intra" ? kplvc::mpeg4::kIntraTcoef : kplvc::mpeg4::kInterTcoef;
            EXPECT_EQ(t.rmax[std::stoi(f[2])][std::stoi(f[3])], std::stoi(f[4]))
                << f[1] << " RMAX " << f[2] << " " << f[3];
            continue;
        }
        if (f[0] == "ESCAPE") continue;
        const int last = std::stoi(f[2]), run = std::stoi(f[3]), level = std::stoi(f[4]);
        for (int sign = 0; sign < 2; ++sign) {
            // The event, then (if not last) a LAST event "0111 0" closing the block.
            auto s = bit_bytes(f[1] + (sign ? "1" : "0") + (last ? "" : "01110"));
            Kpl8u* p = s.data();
            Kpl32s off = 0, idx = -1;
            int16_t c[64];
            ASSERT_EQ(kpliDecodeCoeffsIntra_MPEG4_1u16s(&p, &off, c, &idx, 0, KPLVC_SCAN_ZIGZAG), kplStsNoErr)
                << f[1];
            EXPECT_EQ(c[kplvc::block::ZigzagC[run]], sign ? -level : level) << f[1];
            EXPECT_EQ(idx, last ? run : run + 1) << f[1];
            ++events;
        }
    }
    EXPECT_EQ(events, 2 * 102);
}

TEST(Mpeg4Texture, DcSizeCodesAndDifferentials) {
    const auto rows = read_rows("mpeg4_dc_size.txt");
    ASSERT_EQ(rows.size(), 26u);
    for (const auto& f : rows) {
        const int size = std::stoi(f[2]);
        const int block = f[0] == "LUM" ? 0 : 4;
        // Largest magnitude, both signs (a negative value is the one's
        // complement), and the marker after sizes above 8.
        for (int neg = 0; neg < (size ? 2 : 1); ++neg) {
            const int mag = size ? (1 << size) - 1 : 0;
            std::string bits = f[1];
            for (int b = size - 1; b >= 0; --b) bits += (((neg ? 0 : mag) >> b) & 1) ? '1' : '0';
            if (size > 8) bits += '1';
            auto s = bit_bytes(bits);
            Kpl8u* p = s.data();
            Kpl32s off = 0;
            Kpl16s dc = 99;
            ASSERT_EQ(kpliDecodeDCIntra_MPEG4_1u16s(&p, &off, &dc, block), kplStsNoErr) << f[1];
            EXPECT_EQ(dc, neg ? -mag : mag) << f[1];
            EXPECT_EQ((p - s.data()) * 8 + off, static_cast<long>(bits.size())) << f[1];
        }
    }
    // A missing marker, and the patterns no code word starts.
    const struct {
        const char* bits;
        int block;
        KplStatus want;
    } bad[] = {
        {"0000000001"
         "111111111"
         "0",
         0, kplStsMarkerErr},
        {"00000000000", 0, kplStsTextureVLCErr},
        {"000000000000", 4, kplStsTextureVLCErr},
    };
    for (const auto& b : bad) {
        auto s = bit_bytes(b.bits);
        Kpl8u* p = s.data();
        Kpl32s off = 0;
        Kpl16s dc = 99;
        EXPECT_EQ(kpliDecodeDCIntra_MPEG4_1u16s(&p, &off, &dc, b.block), b.want) << b.bits;
        EXPECT_EQ(p, s.data());
        EXPECT_EQ(dc, 99);
    }
}

// ---- Escapes ----------------------------------------------------------------------

// One event written alone (LAST = 1 at scan position 0 of an inter block, or
// 1 of an intra block with a separate DC): the form the encoder chose, its
// length, and the event read back.
TEST(Mpeg4Texture, EscapeBoundaries) {
    struct Case {
        const char* what;
        bool intra;
        int run, level;
        const char* prefix;  // the bits the event must start with
        int bits;
    };
    const Case cases[] = {
        // Intra LAST 1: LMAX(1, 0) = 8, RMAX(1, 1) = 20.
        {"intra last run 0 level 8: code word", true, 0, 8, "", 0},
        {"intra level 9 = 8 + 1: type 1 with 0111", true, 0, 9, "000001100111", 7 + 1 + 4 + 1},
        {"intra level 16 = 8 + 8: type 1", true, 0, 16, "00000110", 0},
        {"intra level 17: past 2 LMAX, type 3", true, 0, 17, "000001111", 30},
        {"intra run 21 level 1: type 2 with run 0", true, 21, 1, "000001110", 0},
        {"intra run 42 level 1: type 2 with run 21? no, run 20 max: type 3", true, 42, 1, "000001111", 30},
        // Inter LAST 1: LMAX(1, 0) = 3, RMAX(1, 1) = 40, RMAX(1, 2) = 1.
        {"inter last level 3: code word", false, 0, 3, "", 0},
        {"inter level 4 = 3 + 1: type 1", false, 0, 4, "00000110", 0},
        {"inter run 41 level 1: type 2", false, 41, 1, "000001110", 0},
        {"inter run 2 level 2: both escapes legal, type 1 the shorter", false, 2, 2, "00000110", 15},
        {"inter level 2047: type 3", false, 5, 2047, "000001111", 30},
        {"inter level -2047: type 3", false, 5, -2047, "000001111", 30},
    };
    for (const Case& c : cases) {
        int16_t blk[64] = {};
        const uint8_t* scan = kplvc::block::ZigzagC;
        const int pos = (c.intra ? 1 : 0) + c.run;
        blk[scan[pos]] = static_cast<int16_t>(c.level);
        std::vector<uint8_t> buf(64, 0);
        Kpl8u* p = buf.data();
        Kpl32s off = 3;  // not byte-aligned
        const KplStatus st = c.intra ? kpliEncodeCoeffsIntra_MPEG4_16s1u(blk, &p, &off, 1, KPLVC_SCAN_ZIGZAG)
                                     : kpliEncodeCoeffsInter_MPEG4_16s1u(blk, &p, &off, KPLVC_SCAN_ZIGZAG);
        ASSERT_EQ(st, kplStsNoErr) << c.what;
        const std::string written = bits_of(buf.data(), p, off).substr(3);
        EXPECT_EQ(written.rfind(c.prefix, 0), 0u) << c.what << ": " << written;
        if (c.bits) {
            EXPECT_EQ(static_cast<int>(written.size()), c.bits) << c.what;
        }
        Kpl8u* q = buf.data();
        Kpl32s qoff = 3, last = -1;
        int16_t out[64];
        ASSERT_EQ(c.intra ? kpliDecodeCoeffsIntra_MPEG4_1u16s(&q, &qoff, out, &last, 1, KPLVC_SCAN_ZIGZAG)
                          : kpliDecodeCoeffsInter_MPEG4_1u16s(&q, &qoff, out, &last, KPLVC_SCAN_ZIGZAG),
                  kplStsNoErr)
            << c.what;
        EXPECT_EQ(q, p);
        EXPECT_EQ(qoff, off);
        EXPECT_EQ(last, pos) << c.what;
        for (int i = c.intra ? 1 : 0; i < 64; ++i) EXPECT_EQ(out[i], blk[i]) << c.what << " at " << i;
    }
}

// ---- Round trips -------------------------------------------------------------------

// Random blocks through the writers and readers, every scan and DC mode,
// sparse and dense, small levels (code words, escape types 1 and 2) and large
// ones (type 3), at every bit offset; the DC differential over its range.
TEST(Mpeg4Texture, RandomBlocksRoundTrip) {
    Rng rng("mpeg4 texture round trip");
    SCOPED_TRACE(kplvc::test::seed_text());
    std::vector<uint8_t> buf(2048);
    for (int iter = 0; iter < 6000; ++iter) {
        const bool intra = rng.coin();
        const int scan = rng.range(0, kScans - 1), dc_vlc = rng.range(0, 1);
        const int density = rng.range(1, 64), big = rng.range(0, 3);
        int16_t blk[64] = {};
        for (int i = 0; i < 64; ++i)
            if (rng.range(1, 64) <= density) {
                const int mag = big == 0 ? rng.range(1, 2047) : rng.range(1, big == 1 ? 3 : 30);
                blk[i] = static_cast<int16_t>(rng.coin() ? mag : -mag);
            }
        std::fill(buf.begin(), buf.end(), 0);
        Kpl8u* p = buf.data();
        Kpl32s off = rng.range(0, 7);
        const Kpl32s off0 = off;
        Kpl16s dc = static_cast<Kpl16s>(rng.range(-4095, 4095));
        const int block = rng.range(0, 9);
        if (intra) {
            ASSERT_EQ(kpliEncodeDCIntra_MPEG4_16s1u(dc, &p, &off, block), kplStsNoErr);
            ASSERT_EQ(kpliEncodeCoeffsIntra_MPEG4_16s1u(blk, &p, &off, dc_vlc, scan), kplStsNoErr);
        } else {
            ASSERT_EQ(kpliEncodeCoeffsInter_MPEG4_16s1u(blk, &p, &off, scan), kplStsNoErr);
        }
        const uint8_t* scan_t = kplvc::mpeg4::scan_table(scan);
        const int first = intra ? dc_vlc : 0;
        bool any = false;
        for (int i = first; i < 64; ++i) any |= blk[scan_t[i]] != 0;
        Kpl8u* q = buf.data();
        Kpl32s qoff = off0, last;
        int16_t out[64];
        std::memset(out, 0x5A, sizeof out);
        if (intra) {
            Kpl16s d;
            ASSERT_EQ(kpliDecodeDCIntra_MPEG4_1u16s(&q, &qoff, &d, block), kplStsNoErr);
            ASSERT_EQ(d, dc);
            if (any) {
                ASSERT_EQ(kpliDecodeCoeffsIntra_MPEG4_1u16s(&q, &qoff, out, &last, dc_vlc, scan),
                          kplStsNoErr);
            }
        } else if (any) {
            ASSERT_EQ(kpliDecodeCoeffsInter_MPEG4_1u16s(&q, &qoff, out, &last, scan), kplStsNoErr);
        }
        ASSERT_EQ(q, p) << iter;
        ASSERT_EQ(qoff, off) << iter;
        if (!any) continue;
        for (int i = first; i < 64; ++i)
            ASSERT_EQ(out[scan_t[i]], blk[scan_t[i]]) << iter << " scan index " << i;
        if (intra && dc_vlc) {
            ASSERT_EQ(out[0], 0x5A5A) << "element 0 written";
        }
    }
}

// ---- The inter decoder's inverse quantisation -------------------------------------

// Each level read back inverse-quantised: the second method against
// kpliQuantInvInterH263_MPEG4_16s_C1I, the first against its formula with the
// mismatch control (including a level whose product needs more than 16 bits).
TEST(Mpeg4Texture, ReconstructInterMatchesSeparateInverseQuantisation) {
    Rng rng("mpeg4 inter reconstruction");
    SCOPED_TRACE(kplvc::test::seed_text());
    int16_t m[64];
    for (int i = 0; i < 64; ++i) m[i] = static_cast<int16_t>(rng.range(1, 255));
    std::vector<uint8_t> buf(1024);
    for (int iter = 0; iter < 3000; ++iter) {
        int16_t blk[64] = {};
        const int n = rng.range(1, 12);
        for (int k = 0; k < n; ++k) blk[rng.range(0, 63)] = static_cast<int16_t>(rng.range(-2047, 2047));
        blk[rng.range(0, 63)] = static_cast<int16_t>(rng.coin() ? 1 : -1);
        const int qp = rng.range(1, 31), scan = rng.range(0, 2);
        const bool matrix = rng.coin();
        std::fill(buf.begin(), buf.end(), 0);
        Kpl8u* p = buf.data();
        Kpl32s off = 0, last;
        ASSERT_EQ(kpliEncodeCoeffsInter_MPEG4_16s1u(blk, &p, &off, scan), kplStsNoErr);
        Kpl8u* q = buf.data();
        Kpl32s qoff = 0;
        int16_t got[64], want[64];
        ASSERT_EQ(
            kpliReconstructCoeffsInter_MPEG4_1u16s(&q, &qoff, got, &last, scan, qp, matrix ? m : nullptr),
            kplStsNoErr);
        std::memcpy(want, blk, sizeof want);
        if (!matrix) {
            ASSERT_EQ(kpliQuantInvInterH263_MPEG4_16s_C1I(want, qp), kplStsNoErr);
        } else {
            int32_t sum = 0;
            for (int i = 0; i < 64; ++i) {
                const int64_t c = blk[i];
                const int64_t v = c == 0 ? 0 : (2 * c + (c > 0 ? 1 : -1)) * m[i] * qp / 16;
                want[i] = static_cast<int16_t>(v < -2048 ? -2048 : (v > 2047 ? 2047 : v));
                sum += want[i];
            }
            if ((sum & 1) == 0) want[63] = static_cast<int16_t>(want[63] + ((want[63] & 1) ? -1 : 1));
        }
        for (int i = 0; i < 64; ++i) ASSERT_EQ(got[i], want[i]) << iter << " at " << i;
    }
}

// ---- Argument checks ---------------------------------------------------------------

// Each failing argument in turn, then two at once (the earlier wins); the
// position and the outputs stay untouched.
TEST(Mpeg4Texture, ArgumentChecksInOrder) {
    using kplvc::test::Arg, kplvc::test::fails, kplvc::test::null;
    kplvc::test::ArgPool p;
    // Each call its own stream at offset 0, zero-padded: "10" "0111" "0" (which
    // the DC reader takes and the intra reader rejects with -100) or, for the
    // inter readers, "100" "01110", two coefficients, the second the last.
    const auto pp = [&p](Kpl8u b = 0x9C) {
        return p.take<Kpl8u*>({p.take<Kpl8u>({b, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})});
    };
    const auto off = [&p] { return p.take<Kpl32s>({0}); };
    const Arg pp_null{0, p.take<Kpl8u*>({nullptr}), kplStsNullPtrErr},
        off8{1, p.take<Kpl32s>({8}), kplStsShapeArgErr}, enc_off8{2, p.take<Kpl32s>({8}), kplStsShapeArgErr};
    Kpl16s *c = p.take<Kpl16s>(64), *dc = p.take<Kpl16s>(1), *levels = p.take<Kpl16s>(64);
    std::fill(levels, levels + 64, Kpl16s{0});
    levels[1] = 3;
    Kpl32s* last = p.take<Kpl32s>(1);
    CHECK_ARGS(p, kpliDecodeDCIntra_MPEG4_1u16s, {pp(), off(), dc, 0},
               {null(0), pp_null, null(2), off8, fails(3, 10, kplStsBlockIndexErr),
                fails(3, -1, kplStsBlockIndexErr)});
    CHECK_ARGS(p, kpliDecodeCoeffsIntra_MPEG4_1u16s, {pp(), off(), c, last, 1, 0},
               {null(2), null(3), off8, fails(4, 2, kplStsModeErr), fails(5, 3, kplStsBadArgErr)},
               kplStsTextureVLCErr);
    CHECK_ARGS(p, kpliDecodeCoeffsInter_MPEG4_1u16s, {pp(0x8E), off(), c, last, 0},
               {fails(4, -1, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliReconstructCoeffsInter_MPEG4_1u16s, {pp(0x8E), off(), c, last, 0, 5, nullptr},
               {fails(4, 3, kplStsBadArgErr), fails(5, 0, kplStsMPEG4QPErr), fails(5, 32, kplStsMPEG4QPErr)});
    CHECK_ARGS(p, kpliEncodeDCIntra_MPEG4_16s1u, {0, pp(), off(), 0},
               {fails(0, 4096, kplStsBadArgErr), fails(3, 10, kplStsBlockIndexErr)});
    CHECK_ARGS(p, kpliEncodeCoeffsIntra_MPEG4_16s1u, {levels, pp(), off(), 1, 0},
               {null(0), enc_off8, fails(3, -1, kplStsModeErr), fails(4, 9, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliEncodeCoeffsInter_MPEG4_16s1u, {levels, pp(), off(), 0},
               {fails(3, 9, kplStsBadArgErr)});

    auto s = bit_bytes("0");
    Kpl8u* const start = s.data();
    Kpl8u* p0 = start;
    Kpl32s off0 = 0, lst = 77;
    // A level beyond the escape's range: -5 before a byte is written.
    int16_t big[64] = {0, 2048};
    EXPECT_EQ(kpliEncodeCoeffsInter_MPEG4_16s1u(big, &p0, &off0, 0), kplStsBadArgErr);
    EXPECT_TRUE(p0 == start && off0 == 0 && s[0] == 0);
    // A run past 63 from the stream: -72 with the position kept.
    // A type-3 escape of run 63 (scan index 63), then one more coefficient.
    auto overrun = bit_bytes(
        "0000011"
        "11"
        "0"
        "111111"
        "1"
        "000000000001"
        "1"
        "100"
        "01110");
    Kpl8u* o = overrun.data();
    Kpl32s ooff = 0;
    EXPECT_EQ(kpliDecodeCoeffsInter_MPEG4_1u16s(&o, &ooff, c, &lst, 0), kplStsCoefCountErr);
    EXPECT_EQ(o, overrun.data());
}
