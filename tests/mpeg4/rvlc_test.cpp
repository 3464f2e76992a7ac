// Reversible VLC texture coding: every word of the table in both directions
// and through the writer, the escape's fields and faults, partitions of many
// blocks read forward and then backward block by block, and the argument
// checks.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kplvc.h"
#include "mpeg4/texture.h"
#include "support/args.h"
#include "support/code_lists.h"
#include "support/support.h"

using kplvc::test::Rng;

namespace {

struct Row {
    std::string code;
    int ev[2][3];  // [intra, inter] LAST, RUN, |LEVEL|
};

std::vector<Row> read_rows() {
    std::vector<Row> rows;
    for (const auto& f : kplvc::codelists::read_rows("mpeg4_rvlc_tcoef.txt")) {
        if (f[0] == "ESCAPE" || f.size() != 8) continue;
        Row r;
        r.code = f[1];
        for (int t = 0; t < 2; ++t)
            for (int k = 0; k < 3; ++k) r.ev[t][k] = std::stoi(f[2 + 3 * t + k]);
        rows.push_back(r);
    }
    return rows;
}

std::string bits_of(const uint8_t* begin, const uint8_t* end, int32_t off) {
    std::string s;
    for (const uint8_t* p = begin; p < end || (p == end && off > 0); ++p)
        for (int b = 0; b < (p == end ? off : 8); ++b) s += ((*p >> (7 - b)) & 1) ? '1' : '0';
    return s;
}

std::string esc(int last, int run, int mag, int sign) {
    std::string s = "00001" + std::to_string(last);
    for (int b = 5; b >= 0; --b) s += ((run >> b) & 1) ? '1' : '0';
    s += '1';
    for (int b = 10; b >= 0; --b) s += ((mag >> b) & 1) ? '1' : '0';
    return s + "1" + "0000" + std::to_string(sign);
}

// One block decoded forward from bit 0 and backward from bit n; the
// forward decoder of the table (0 intra with dcVlc 0, 1 inter), zigzag;
// backward down to the bit `bound`.
struct Both {
    KplStatus fwd, bwd;
    int16_t f[64], b[64];
    int32_t used_fwd, start_bwd;  // bits consumed forward; where backward stopped
};
Both decode_both(const std::string& s, int inter, int32_t bound = 0) {
    std::vector<uint8_t> in = kplvc::test::bit_bytes(s, kplvc::mpeg4::kLookAheadBytes);
    Both r;
    std::memset(r.f, 0x77, sizeof r.f);
    std::memset(r.b, 0x77, sizeof r.b);
    Kpl8u* p = in.data();
    Kpl32s off = 0, last;
    r.fwd = inter ? kpliDecodeCoeffsInterRVLC_MPEG4_1u16s(&p, &off, r.f, &last, KPLVC_SCAN_ZIGZAG)
                  : kpliDecodeCoeffsIntraRVLC_MPEG4_1u16s(&p, &off, r.f, &last, 0, KPLVC_SCAN_ZIGZAG);
    r.used_fwd = static_cast<int32_t>((p - in.data()) * 8 + off);
    p = in.data() + s.size() / 8;
    off = static_cast<Kpl32s>(s.size() % 8);
    const Kpl8u* b = in.data() + bound / 8;
    r.bwd = inter ? kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s(&p, &off, b, bound % 8, r.b, &last,
                                                              KPLVC_SCAN_ZIGZAG)
                  : kpliDecodeCoeffsIntraRVLCBack_MPEG4_1u16s(&p, &off, b, bound % 8, r.b, &last, 0,
                                                              KPLVC_SCAN_ZIGZAG);
    r.start_bwd = static_cast<int32_t>((p - in.data()) * 8 + off);
    return r;
}

const uint8_t* zz() { return kplvc::mpeg4::scan_table(KPLVC_SCAN_ZIGZAG); }

}  // namespace

// Every word with either sign means its event in both tables, read forward
// and backward (a LAST = 0 event is followed by a LAST = 1 word of the same
// table), and the writer emits exactly that word for the event.
TEST(Mpeg4Rvlc, EveryWordBothWaysAndWritten) {
    const auto rows = read_rows();
    ASSERT_EQ(rows.size(), 169u) << "tests/data/mpeg4_rvlc_tcoef.txt missing or changed";
    for (int inter = 0; inter < 2; ++inter) {
        // A LAST = 1, RUN = 0, LEVEL = 1 word to end a block.
        std::string end;
        for (const Row& r : rows)
            if (r.ev[inter][0] == 1 && r.ev[inter][1] == 0 && r.ev[inter][2] == 1) end = r.code + "0";
        ASSERT_FALSE(end.empty());
        for (const Row& r : rows)
            for (int sign = 0; sign < 2; ++sign) {
                const int last = r.ev[inter][0], run = r.ev[inter][1], mag = r.ev[inter][2];
                const std::string word = r.code + (sign ? "1" : "0");
                const std::string s = last ? word : word + end;
                SCOPED_TRACE((inter ? "inter " : "intra ") + word);
                const Both d = decode_both(s, inter);
                ASSERT_EQ(d.fwd, kplStsNoErr);
                ASSERT_EQ(d.bwd, kplStsNoErr);
                EXPECT_EQ(d.used_fwd, static_cast<int32_t>(s.size()));
                EXPECT_EQ(d.start_bwd, 0);
                int16_t want[64] = {};
                want[zz()[run]] = static_cast<int16_t>(sign ? -mag : mag);
                if (!last && run + 1 < 64) want[zz()[run + 1]] = 1;
                EXPECT_EQ(0, std::memcmp(d.f, want, sizeof want));
                EXPECT_EQ(0, std::memcmp(d.b, want, sizeof want));
                // The writer, for the event alone (LAST set by the block's end).
                if (!last) continue;
                int16_t blk[64] = {};
                blk[zz()[run]] = static_cast<int16_t>(sign ? -mag : mag);
                std::vector<uint8_t> out(16, 0xFF);
                Kpl8u* p = out.data();
                Kpl32s off = 0;
                ASSERT_EQ(inter ? kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(blk, &p, &off, KPLVC_SCAN_ZIGZAG)
                                : kpliEncodeCoeffsIntraRVLC_MPEG4_16s1u(blk, &p, &off, 0, KPLVC_SCAN_ZIGZAG),
                          kplStsNoErr);
                EXPECT_EQ(bits_of(out.data(), p, off), word);
            }
    }
}

// Single blocks with a known outcome both ways: escapes (their fields, and
// each way to break one), a run past coefficient 63, a block whose last event
// lacks LAST, a backward read cut short by the partition's start, and an
// illegal word (no word begins 00000 outside an escape).
TEST(Mpeg4Rvlc, EscapesAndFaults) {
    constexpr KplStatus kUnknown = 1;  // backward, the broken bits read as other words
    const std::string e = esc(1, 5, 300, 1);
    auto broken = [&e](size_t at, char to) {
        std::string s = e;
        s[at] = to;
        return s;
    };
    struct Case {
        const char* what;
        std::string bits;
        KplStatus fwd, bwd;
        int pos, level;  // the one coefficient (zigzag index) when valid
        int32_t bound = 0;
    };
    const Case cases[] = {
        {"negative level, run 5", e, kplStsNoErr, kplStsNoErr, 5, -300},
        {"largest level and run", esc(1, 63, 2047, 0), kplStsNoErr, kplStsNoErr, 63, 2047},
        {"level 1 at run 0 (has a word, still legal)", esc(1, 0, 1, 0), kplStsNoErr, kplStsNoErr, 0, 1},
        {"level 0", esc(1, 5, 0, 0), kplStsTextureVLCErr, kplStsTextureVLCErr, 0, 0},
        {"first marker 0", broken(12, '0'), kplStsMarkerErr, kplStsMarkerErr, 0, 0},
        {"second marker 0", broken(24, '0'), kplStsMarkerErr, kplStsMarkerErr, 0, 0},
        {"closing word not 0000", broken(27, '1'), kplStsTextureVLCErr, kUnknown, 0, 0},
        {"opening 00000", broken(4, '0'), kplStsTextureVLCErr, kplStsTextureVLCErr, 0, 0},
        {"start 10 bits into the escape", e, kplStsNoErr, kplStsTextureVLCErr, 5, -300, 10},
        // Inter LAST = 0 run 40, then LAST = 1 run 40: 41 + 41 > 64.
        {"run past 63", esc(0, 40, 1, 0) + esc(1, 40, 1, 0), kplStsCoefCountErr, kplStsCoefCountErr, 0, 0},
        // Forward runs off into the zero padding; backward refuses at once.
        {"last event without LAST", esc(0, 3, 9, 0), kplStsTextureVLCErr, kplStsTextureVLCErr, 0, 0},
        {"illegal word", "000001110", kplStsTextureVLCErr, kplStsTextureVLCErr, 0, 0},
    };
    for (const Case& c : cases)
        for (int inter = 0; inter < 2; ++inter) {
            SCOPED_TRACE(std::string(c.what) + (inter ? " inter" : " intra"));
            const Both d = decode_both(c.bits, inter, c.bound);
            EXPECT_EQ(d.fwd, c.fwd);
            if (d.fwd == kplStsNoErr) {
                EXPECT_EQ(d.f[zz()[c.pos]], c.level);
            } else {
                EXPECT_EQ(d.f[0], 0x7777) << "written on failure";
            }
            if (c.bwd == kUnknown) continue;
            EXPECT_EQ(d.bwd, c.bwd);
            if (d.bwd == kplStsNoErr) {
                EXPECT_EQ(d.b[zz()[c.pos]], c.level);
                EXPECT_EQ(d.start_bwd, 0);
            } else {
                EXPECT_EQ(d.b[0], 0x7777) << "written on failure";
                EXPECT_EQ(d.start_bwd, static_cast<int32_t>(c.bits.size())) << "moved on failure";
            }
        }
    // The writer escapes exactly the events without a word: intra level 28
    // at run 0 (LAST = 1), inter run 39 with LAST = 0 (no word beyond run
    // 38), followed by a LAST = 1 event at position 63 (only the escape that
    // begins the block is checked).
    struct W {
        int inter, pos, level;
        std::string bits;
    };
    const W writes[] = {{0, 0, -28, esc(1, 0, 28, 1)}, {1, 39, 1, esc(0, 39, 1, 0)}};
    for (const W& w : writes) {
        int16_t blk[64] = {};
        blk[zz()[w.pos]] = static_cast<int16_t>(w.level);
        if (w.inter) blk[zz()[63]] = 1;
        std::vector<uint8_t> out(16, 0);
        Kpl8u* p = out.data();
        Kpl32s off = 0;
        ASSERT_EQ(w.inter ? kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(blk, &p, &off, KPLVC_SCAN_ZIGZAG)
                          : kpliEncodeCoeffsIntraRVLC_MPEG4_16s1u(blk, &p, &off, 0, KPLVC_SCAN_ZIGZAG),
                  kplStsNoErr);
        EXPECT_EQ(bits_of(out.data(), p, off).substr(0, 30), w.bits);
    }
}

// Partitions of random blocks (intra with and without a separate DC, inter;
// every scan; small levels with words and large ones escaped), written at a
// random bit offset, read forward block after block, then backward from the
// partition's end down to its first bit. Both passes give the blocks written
// and agree on every block boundary.
TEST(Mpeg4Rvlc, PartitionsReadForwardAndBackward) {
    Rng rng("mpeg4 rvlc partitions");
    SCOPED_TRACE(kplvc::test::seed_text());
    for (int iter = 0; iter < kplvc::test::iters(400); ++iter) {
        const int n = rng.range(1, 24);
        struct Blk {
            int kind, scan;  // kind 0 intra dcVlc 0, 1 intra dcVlc 1, 2 inter
            int16_t c[64];
        };
        std::vector<Blk> blocks(static_cast<size_t>(n));
        std::vector<uint8_t> buf(static_cast<size_t>(n) * 64 * 4 + 16, 0);
        const Kpl32s off0 = rng.range(0, 7);
        Kpl8u* p = buf.data();
        Kpl32s off = off0;
        std::vector<std::pair<Kpl8u*, Kpl32s>> starts;
        for (Blk& b : blocks) {
            b.kind = rng.range(0, 2);
            b.scan = rng.range(0, 2);
            const int density = rng.range(1, 64), big = rng.range(0, 3);
            std::memset(b.c, 0, sizeof b.c);
            const uint8_t* s = kplvc::mpeg4::scan_table(b.scan);
            const int first = b.kind == 1 ? 1 : 0;
            for (int i = first; i < 64; ++i)
                if (rng.range(1, 64) <= density) {
                    const int mag = big == 0 ? rng.range(1, 2047) : rng.range(1, big == 1 ? 3 : 30);
                    b.c[s[i]] = static_cast<int16_t>(rng.coin() ? mag : -mag);
                }
            if (b.c[s[63]] == 0) b.c[s[63]] = 1;  // a coded block has a coefficient
            starts.emplace_back(p, off);
            ASSERT_EQ(b.kind == 2 ? kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(b.c, &p, &off, b.scan)
                                  : kpliEncodeCoeffsIntraRVLC_MPEG4_16s1u(b.c, &p, &off, b.kind, b.scan),
                      kplStsNoErr);
        }
        // The partition's buffer ends with the look-ahead padding after its
        // last byte: a copy of exactly that size.
        const size_t bytes = static_cast<size_t>(p - buf.data()) + (off ? 1 : 0);
        std::vector<uint8_t> part(buf.begin(), buf.begin() + static_cast<ptrdiff_t>(bytes));
        part.resize(bytes + kplvc::mpeg4::kLookAheadBytes, 0);
        auto rebase = [&](const std::pair<Kpl8u*, Kpl32s>& at) {
            return std::make_pair(part.data() + (at.first - buf.data()), at.second);
        };
        const auto end = rebase({p, off});
        Kpl8u* q = part.data();
        Kpl32s qoff = off0, last;
        for (int k = 0; k < n; ++k) {
            const Blk& b = blocks[static_cast<size_t>(k)];
            ASSERT_EQ(std::make_pair(q, qoff), rebase(starts[static_cast<size_t>(k)])) << "block " << k;
            int16_t out[64];
            std::memset(out, 0, sizeof out);
            ASSERT_EQ(b.kind == 2
                          ? kpliDecodeCoeffsInterRVLC_MPEG4_1u16s(&q, &qoff, out, &last, b.scan)
                          : kpliDecodeCoeffsIntraRVLC_MPEG4_1u16s(&q, &qoff, out, &last, b.kind, b.scan),
                      kplStsNoErr);
            ASSERT_EQ(0, std::memcmp(out, b.c, sizeof out)) << "forward block " << k;
            EXPECT_EQ(last, 63);
        }
        ASSERT_EQ(std::make_pair(q, qoff), end);
        for (int k = n - 1; k >= 0; --k) {
            const Blk& b = blocks[static_cast<size_t>(k)];
            int16_t out[64];
            std::memset(out, 0, sizeof out);
            ASSERT_EQ(b.kind == 2 ? kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s(&q, &qoff, part.data(), off0,
                                                                              out, &last, b.scan)
                                  : kpliDecodeCoeffsIntraRVLCBack_MPEG4_1u16s(&q, &qoff, part.data(), off0,
                                                                              out, &last, b.kind, b.scan),
                      kplStsNoErr)
                << "backward block " << k;
            ASSERT_EQ(0, std::memcmp(out, b.c, sizeof out)) << "backward block " << k;
            ASSERT_EQ(std::make_pair(q, qoff), rebase(starts[static_cast<size_t>(k)])) << "block " << k;
        }
    }
}

// The inverse-quantising RVLC reader gives exactly what the ordinary one
// gives for the same levels: both methods, every QP, a matrix with weights
// up to 255 (products beyond 16 bits), levels up to 2047 (clamping), and
// the mismatch control on either parity of the sum.
TEST(Mpeg4Rvlc, ReconstructInterMatchesTheOrdinaryReader) {
    Rng rng("mpeg4 rvlc reconstruct");
    SCOPED_TRACE(kplvc::test::seed_text());
    int16_t w[64];
    for (int i = 0; i < 64; ++i) w[i] = static_cast<int16_t>(i == 0 ? 255 : 1 + (i * 37) % 255);
    for (int iter = 0; iter < kplvc::test::iters(3000); ++iter) {
        int16_t blk[64] = {};
        const int density = rng.range(1, 64), big = rng.range(0, 2);
        for (int i = 0; i < 64; ++i)
            if (rng.range(1, 64) <= density) {
                const int mag = big ? rng.range(1, 2047) : rng.range(1, 8);
                blk[i] = static_cast<int16_t>(rng.coin() ? mag : -mag);
            }
        blk[rng.range(0, 63)] = 1;  // a coded block
        const int scan = rng.range(0, 2), qp = rng.range(1, 31);
        const int16_t* m = rng.coin() ? w : nullptr;
        std::vector<uint8_t> a(600, 0), b(600, 0);
        Kpl8u* p = a.data();
        Kpl32s off = 0;
        ASSERT_EQ(kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(blk, &p, &off, scan), kplStsNoErr);
        Kpl8u* q = b.data();
        Kpl32s qoff = 0;
        ASSERT_EQ(kpliEncodeCoeffsInter_MPEG4_16s1u(blk, &q, &qoff, scan), kplStsNoErr);
        int16_t ra[64], rb[64];
        Kpl32s la, lb;
        p = a.data();
        off = 0;
        q = b.data();
        qoff = 0;
        ASSERT_EQ(kpliReconstructCoeffsInterRVLC_MPEG4_1u16s(&p, &off, ra, &la, scan, qp, m), kplStsNoErr);
        ASSERT_EQ(kpliReconstructCoeffsInter_MPEG4_1u16s(&q, &qoff, rb, &lb, scan, qp, m), kplStsNoErr);
        ASSERT_EQ(0, std::memcmp(ra, rb, sizeof ra)) << iter;
        ASSERT_EQ(la, lb) << iter;
    }
    Kpl8u z[16] = {0xC0};
    Kpl8u* p = z;
    Kpl32s off = 0, last = -7;
    int16_t c[64];
    EXPECT_EQ(kpliReconstructCoeffsInterRVLC_MPEG4_1u16s(&p, &off, c, &last, 0, 32, nullptr),
              kplStsMPEG4QPErr);
    EXPECT_EQ(kpliReconstructCoeffsInterRVLC_MPEG4_1u16s(&p, &off, c, &last, 3, 0, nullptr), kplStsBadArgErr);
    EXPECT_EQ(last, -7);
    EXPECT_EQ(p, z);
}

// Each failing argument in turn, then two at once (the earlier wins); the
// position and the outputs stay untouched.
TEST(Mpeg4Rvlc, ArgumentChecksInOrder) {
    using kplvc::test::Arg, kplvc::test::fails, kplvc::test::null;
    kplvc::test::ArgPool p;
    // Every stream holds "1011" "0": intra and inter (LAST 1, RUN 0, LEVEL 1).
    const auto stream = [&p] { return p.take<Kpl8u>({0xB0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}); };
    const auto pp = [&](Kpl8u* s) { return p.take<Kpl8u*>({s}); };
    const auto off = [&p](Kpl32s o) { return p.take<Kpl32s>({o}); };
    const Arg pp_null{0, p.take<Kpl8u*>({nullptr}), kplStsNullPtrErr}, off8{1, off(8), kplStsShapeArgErr},
        enc_off8{2, off(8), kplStsShapeArgErr};
    Kpl16s *c = p.take<Kpl16s>(64), *levels = p.take<Kpl16s>(64);
    std::fill(levels, levels + 64, Kpl16s{0});
    levels[0] = 1;
    Kpl32s* last = p.take<Kpl32s>(1);
    CHECK_ARGS(p, kpliDecodeCoeffsIntraRVLC_MPEG4_1u16s, {pp(stream()), off(0), c, last, 0, 0},
               {null(0), pp_null, null(1), null(2), null(3), off8, fails(4, 2, kplStsModeErr),
                fails(5, 3, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliDecodeCoeffsInterRVLC_MPEG4_1u16s, {pp(stream()), off(0), c, last, 0},
               {null(2), fails(4, -1, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliReconstructCoeffsInterRVLC_MPEG4_1u16s, {pp(stream()), off(0), c, last, 0, 5, nullptr},
               {null(3), fails(4, 3, kplStsBadArgErr), fails(5, 0, kplStsMPEG4QPErr),
                fails(5, 32, kplStsMPEG4QPErr)});
    // Backward from bit 5 to the stream's first bit.
    Kpl8u* const s1 = stream();
    CHECK_ARGS(p, kpliDecodeCoeffsIntraRVLCBack_MPEG4_1u16s, {pp(s1), off(5), s1, 0, c, last, 0, 2},
               {null(0), pp_null, null(1), null(2), null(4), null(5), off8, fails(3, 8, kplStsShapeArgErr),
                fails(6, 2, kplStsModeErr), fails(7, 3, kplStsBadArgErr), fails(3, 6, kplStsBadArgErr)});
    Kpl8u* const s2 = stream();
    CHECK_ARGS(p, kpliDecodeCoeffsInterRVLCBack_MPEG4_1u16s, {pp(s2), off(5), s2, 0, c, last, 1},
               {null(2), fails(3, -1, kplStsShapeArgErr), fails(6, 3, kplStsBadArgErr),
                fails(2, static_cast<const void*>(s2 + 1), kplStsBadArgErr)});
    CHECK_ARGS(p, kpliEncodeCoeffsIntraRVLC_MPEG4_16s1u, {levels, pp(stream()), off(0), 0, 0},
               {null(0), null(1), enc_off8, fails(3, 2, kplStsModeErr), fails(4, 3, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliEncodeCoeffsInterRVLC_MPEG4_16s1u, {levels, pp(stream()), off(0), 1},
               {fails(3, 3, kplStsBadArgErr)});
    // A level beyond the escape's range: -5 before a byte is written.
    auto s = kplvc::test::bit_bytes("1");
    Kpl8u* q = s.data();
    Kpl32s qoff = 1;
    int16_t big[64] = {0, 0, 5, -2048};
    EXPECT_EQ(kpliEncodeCoeffsInterRVLC_MPEG4_16s1u(big, &q, &qoff, 0), kplStsBadArgErr);
    EXPECT_TRUE(q == s.data() && qoff == 1 && s[0] == 0x80 && s[1] == 0);
}
