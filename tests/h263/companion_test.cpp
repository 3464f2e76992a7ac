// The H.263 companions for standard H.263+ streams: Annex I advanced intra
// blocks, the Annex T extended escape, the Annex S alternative inter table,
// the TCOEF writer, Annex D vector codes, OBMC with a rounding type and the
// SIMD forward quantiser. Worked cases from the standard's rules, round trips
// between the writer and the decoders, argument order, and every SIMD
// variant against its scalar reference.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "block/scan.h"
#include "h263/obmc.h"
#include "h263/quant.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/support.h"
#include "support/variants.h"

namespace {

using kplvc::test::Arena;
using kplvc::test::Rng;

// A stream from a string of 0/1 (spaces ignored), zero-padded past the
// decoders' look-ahead.
std::vector<uint8_t> stream(const std::string& s) { return kplvc::test::bit_bytes(s, 64); }

// The H.263 inverse quantiser in 32 bits, clamped to -2048..2047.
int16_t dequant(int level, int qp) {
    if (level == 0) return 0;
    const int mag = 2 * qp * std::abs(level) + ((qp & 1) ? qp : qp - 1);
    return static_cast<int16_t>(std::clamp(level < 0 ? -mag : mag, -2048, 2047));
}

// Inter residual of row-major levels, the way the standard defines it.
void inter_reference(const int16_t* levels, int qp, int16_t* out) {
    for (int i = 0; i < 64; ++i) out[i] = dequant(levels[i], qp);
    kpliDCT8x8Inv_16s_C1I(out);
}

// ---- Annex I ----------------------------------------------------------------------

TEST(H263Companion, AdvancedIntraFollowsAnnexI) {
    constexpr int kDc = KPLVC_H263_AIC_DC, kVer = KPLVC_H263_AIC_VERTICAL, kHor = KPLVC_H263_AIC_HORIZONTAL,
                  kCoded = KPLVC_H263_AIC_CODED, kAbove = KPLVC_H263_AIC_ABOVE, kLeft = KPLVC_H263_AIC_LEFT;
    struct Case {
        const char* what;
        const char* bits;  // "" for a block without coefficients
        int mode, flags;
        int above[2], left[2];  // predictors (elements 0 and 1; the rest 0)
        int consumed;
        int want[9];  // expected reconstructed coefficients, row-major (zeros elsewhere)
    };
    // QP 4. "10" + sign 0: the DC (LAST 0, RUN 0, LEVEL 1 in the Annex I
    // table); "0111" + sign 0: LAST 1, RUN 0, LEVEL 1 at scan position 1.
    const char* b = "100 01110";
    const Case cases[] = {
        {"DC 1033", b, kDc, kCoded, {}, {}, 8, {1033, 8}},
        {"both neighbours", b, kDc, kCoded | kAbove | kLeft, {101, 50}, {201, 60}, 8, {159, 8}},
        {"left only, made odd", b, kDc, kCoded | kLeft, {999}, {300, 60}, 8, {309, 8}},
        // First row from above, alternate-horizontal scan.
        {"vertical", b, kVer, kCoded | kAbove, {101, 40}, {7, 7}, 8, {109, 48}},
        // No left: 1024 to the DC; alternate-vertical scan.
        {"horizontal", b, kHor, kCoded | kAbove, {101, 40}, {7, 7}, 8, {1033, 0, 0, 0, 0, 0, 0, 0, 8}},
        {"not coded: prediction only", "", kDc, kAbove | kLeft, {101, 50}, {201, 60}, 0, {151}},
        {"vertical sums clamp", b, kVer, kCoded | kAbove, {2045, 2045}, {}, 8, {2047, 2047}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        auto s = stream(c.bits);
        Kpl8u* p = s.data();
        int off = 0;
        Kpl16s row[8] = {static_cast<Kpl16s>(c.above[0]), static_cast<Kpl16s>(c.above[1])};
        Kpl16s col[8] = {static_cast<Kpl16s>(c.left[0]), static_cast<Kpl16s>(c.left[1])};
        uint8_t px[8 * 10];
        std::memset(px, 0xEE, sizeof px);
        ASSERT_EQ(kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(&p, &off, px, 10, row, col, 4, c.mode, c.flags),
                  kplStsNoErr);
        EXPECT_EQ(static_cast<int>((p - s.data()) * 8 + off), c.consumed);
        for (int k = 0; k < 8; ++k) {
            EXPECT_EQ(row[k], c.want[k]) << "row " << k;
            EXPECT_EQ(col[k], k < 2 ? c.want[8 * k] : 0) << "column " << k;
        }
        int16_t coef[64];
        for (int i = 0; i < 64; ++i) coef[i] = static_cast<int16_t>(i < 9 ? c.want[i] : 0);
        uint8_t want_px[8 * 10];
        std::memset(want_px, 0xEE, sizeof want_px);
        kpliDCT8x8Inv_16s8u_C1R(coef, want_px, 10);
        EXPECT_EQ(std::memcmp(px, want_px, sizeof px), 0);
    }
}

// ---- Escapes, tables, writer -------------------------------------------------------

TEST(H263Companion, ExtendedEscapeNeedsModifiedQuantisation) {
    // ESCAPE 0000011, LAST 1, RUN 000000, LEVEL 10000000, then the 11-bit
    // extension: the level's low five bits, then its upper six.
    for (int level : {128, -128, -129, 200, 1023, -1024, 5}) {
        const unsigned u = static_cast<unsigned>(level) & 0x7FF;
        std::string ext;
        for (int b = 4; b >= 0; --b) ext += ((u >> b) & 1) ? '1' : '0';
        for (int b = 10; b >= 5; --b) ext += ((u >> b) & 1) ? '1' : '0';
        auto s = stream("0000011 1 000000 10000000 " + ext);
        for (int qp : {1, 2, 31}) {
            Kpl8u* p = s.data();
            int off = 0;
            int16_t got[64], want[64] = {};
            int16_t levels[64] = {};
            levels[0] = static_cast<int16_t>(level);
            inter_reference(levels, qp, want);
            ASSERT_EQ(kpliDecodeBlockCoefEx_Inter_H263_1u16s(&p, &off, got, qp, KPLVC_H263_EXT_ESCAPE),
                      kplStsNoErr);
            EXPECT_EQ(p - s.data(), 4);
            EXPECT_EQ(off, 1);  // 33 bits
            EXPECT_EQ(std::memcmp(got, want, sizeof want), 0) << level << " qp " << qp;
            // Without the flag the byte 10000000 is no level: -74, nothing moves.
            std::memset(got, 0x5A, sizeof got);
            p = s.data();
            off = 0;
            EXPECT_EQ(kpliDecodeBlockCoefEx_Inter_H263_1u16s(&p, &off, got, qp, 0), kplStsVLCErr);
            EXPECT_EQ(p, s.data());
            EXPECT_EQ(got[7], 0x5A5A);
        }
    }
}

// Random blocks through the writer and back through the decoders, for both
// tables, every scan, with and without the extension.
TEST(H263Companion, WriterAndDecodersRoundTrip) {
    Rng rng("h263 tcoef round trip");
    int alt_inter_hits = 0;
    for (int iter = 0; iter < 6000; ++iter) {
        SCOPED_TRACE(kplvc::test::seed_text() + " iter " + std::to_string(iter));
        const bool ext = rng.coin();
        const int table = iter % 2, scan = table ? rng.range(0, 2) : 0, qp = rng.range(1, 31);
        int16_t lv[64] = {};
        const int density = rng.range(1, 40);
        for (int i = 0; i < 64; ++i)
            if (rng.range(0, 99) < density) {
                const int big = rng.range(0, 9) == 0 ? rng.range(1, ext ? 1024 : 127) : rng.range(1, 4);
                lv[i] = static_cast<int16_t>(rng.coin() ? -big : big);
            }
        lv[rng.range(0, 63)] = 1;  // never empty
        std::vector<uint8_t> buf(1024, 0);
        Kpl8u* w = buf.data();
        int woff = rng.range(0, 7), count = 0;
        const int off0 = woff;
        ASSERT_EQ(kpliEncode_TCOEFEx_H263_16s1u(lv, &w, &woff, scan, 0, table,
                                                ext ? KPLVC_H263_EXT_ESCAPE : 0, &count),
                  kplStsNoErr);
        const long written = (w - buf.data()) * 8 + woff - off0;
        Kpl8u* r = buf.data();
        int roff = off0;
        if (table == 0) {
            int16_t got[64], want[64];
            inter_reference(lv, qp, want);
            ASSERT_EQ(
                kpliDecodeBlockCoefEx_Inter_H263_1u16s(&r, &roff, got, qp, ext ? KPLVC_H263_EXT_ESCAPE : 0),
                kplStsNoErr);
            ASSERT_EQ(std::memcmp(got, want, sizeof want), 0);
        } else {
            // Annex I codes: RECq = 2 QP LEVEL, 1024 added to the DC (no
            // neighbours), the DC made odd.
            Kpl16s row[8] = {}, col[8] = {};
            uint8_t px[64];
            const int mode = scan;  // each mode has its scan
            ASSERT_EQ(kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u(
                          &r, &roff, px, 8, row, col, qp, mode,
                          KPLVC_H263_AIC_CODED | (ext ? KPLVC_H263_EXT_ESCAPE : 0)),
                      kplStsNoErr);
            int16_t want[64];
            for (int i = 0; i < 64; ++i)
                want[i] = static_cast<int16_t>(std::clamp(2 * qp * lv[i], -2048, 2047));
            want[0] = static_cast<int16_t>(std::clamp(want[0] + 1024, -2048, 2047) | 1);
            for (int k = 0; k < 8; ++k) {
                ASSERT_EQ(row[k], want[k]);
                ASSERT_EQ(col[k], want[8 * k]);
            }
            // Annex S: the same codes in an inter block. Read with the TCOEF
            // table they may run past coefficient 63; then, and only then,
            // the alternative table gives the levels back.
            if (scan == 0) {
                Kpl8u* r2 = buf.data();
                int roff2 = off0;
                int16_t got[64], ref[64];
                const int flags = ext ? KPLVC_H263_EXT_ESCAPE : 0;
                const KplStatus plain = kpliDecodeBlockCoefEx_Inter_H263_1u16s(&r2, &roff2, got, qp, flags);
                r2 = buf.data();
                roff2 = off0;
                const KplStatus alt = kpliDecodeBlockCoefEx_Inter_H263_1u16s(
                    &r2, &roff2, got, qp, flags | KPLVC_H263_ALT_INTER_VLC);
                ASSERT_EQ(alt, kplStsNoErr);
                if (plain == kplStsCoefCountErr) {
                    ++alt_inter_hits;
                    inter_reference(lv, qp, ref);
                    ASSERT_EQ(std::memcmp(got, ref, sizeof ref), 0);
                    ASSERT_EQ((r2 - buf.data()) * 8 + roff2 - off0, written);
                }
            }
        }
        ASSERT_EQ((r - buf.data()) * 8 + roff - off0, written) << "bits read and written differ";
        int nonzero = 0;
        for (int16_t v : lv) nonzero += v != 0;
        ASSERT_EQ(count, nonzero);
    }
    EXPECT_GT(alt_inter_hits, 50) << "too few blocks exercised the alternative inter table";
}

TEST(H263Companion, WriterClampsAndKeepsTheCurrentByte) {
    int16_t lv[64] = {};
    lv[0] = 300;  // beyond -127..127 without the extension: clamped to 127
    uint8_t buf[16];
    std::memset(buf, 0xFF, sizeof buf);
    Kpl8u* p = buf;
    int off = 3, count = 0;
    ASSERT_EQ(kpliEncode_TCOEFEx_H263_16s1u(lv, &p, &off, 0, 0, 0, 0, &count), kplStsNoErr);
    // 111 (kept) + 0000011 1 000000 01111111: 25 bits.
    EXPECT_EQ(buf[0], 0xE0);
    EXPECT_EQ(buf[1], 0xE0);
    EXPECT_EQ(buf[2], 0x3F);
    EXPECT_EQ(buf[3], 0x80);  // the rest of the last byte is zero
    EXPECT_EQ(buf[4], 0xFF);  // nothing past it
    EXPECT_EQ(p, buf + 3);
    EXPECT_EQ(off, 1);
    // Nothing to write: nothing written.
    int16_t zero[64] = {};
    zero[0] = 5;
    p = buf + 8;
    off = 2;
    ASSERT_EQ(kpliEncode_TCOEFEx_H263_16s1u(zero, &p, &off, 0, 1, 0, 0, &count), kplStsNoErr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(p, buf + 8);
    EXPECT_EQ(buf[8], 0xFF);
}

// ---- Annex D -----------------------------------------------------------------------

TEST(H263Companion, VectorCodesAndRanges) {
    struct Case {
        int mode;
        const char* bits;
        int px, py;  // predictor
        KplStatus st;
        int x, y, consumed;
    };
    // Table 14: 1 = 0, 010 = 1, 011 = -1, 0010 = 2, 00000010001 = -20,
    // 00000010000 = 20, 0000000000110 = 31, 0000000000101 = -32.
    const Case cases[] = {
        {KPLVC_H263_MVD_DEFAULT, "010 011", 31, -32, kplStsNoErr, -32, 31, 6},  // wrapped into -32..31
        {KPLVC_H263_MVD_DEFAULT, "0000000000101 1", 0, 5, kplStsNoErr, -32, 5, 14},
        {KPLVC_H263_MVD_UMV, "00000010001 1", 40, 0, kplStsNoErr, 20, 0, 12},   // within 0..63
        {KPLVC_H263_MVD_UMV, "0000000000110 1", 40, 0, kplStsNoErr, 7, 0, 14},  // 71 -> 7
        {KPLVC_H263_MVD_UMV, "0000000000101 1", 0, 0, kplStsNoErr, 32, 0, 14},  // -32 -> 32 in the middle
        {KPLVC_H263_MVD_UMV, "00000010000 0010", -40, -40, kplStsNoErr, -20, -38, 15},  // within -63..0
        {KPLVC_H263_MVD_UMV, "011 1", 32, -31, kplStsNoErr, 31, -31, 4},
        {KPLVC_H263_MVD_UVLC, "1 1", 100, -100, kplStsNoErr, 100, -100, 2},
        {KPLVC_H263_MVD_UVLC, "000 000 1", 0, 0, kplStsNoErr, 1, 1, 7},  // the '1' after (+1, +1)
        {KPLVC_H263_MVD_UVLC, "000 000 0", 0, 0, kplStsH263MVCodeErr, 0, 0, 0},
        {KPLVC_H263_MVD_UVLC, "010 01100", 0, 0, kplStsNoErr, -1, 3, 8},
        {KPLVC_H263_MVD_UVLC, "01110 0011100", 70, 0, kplStsNoErr, 67, 5, 12},
        {KPLVC_H263_MVD_UVLC, "00110 00100", 0, 0, kplStsNoErr, -2, 2, 10},
        // A magnitude of 2^13: more data bits than any picture needs.
        {KPLVC_H263_MVD_UVLC, "0 01 01 01 01 01 01 01 01 01 01 01 01 01 00 1", 0, 0, kplStsH263MVCodeErr, 0,
         0, 0},
        {KPLVC_H263_MVD_DEFAULT, "000000000000 1", 0, 0, kplStsH263MVCodeErr, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.bits);
        auto s = stream(c.bits);
        Kpl8u* p = s.data();
        int off = 0;
        const Kpl16s pred[2] = {static_cast<Kpl16s>(c.px), static_cast<Kpl16s>(c.py)};
        Kpl16s mv[2] = {777, 777};
        ASSERT_EQ(kpliDecodeMVEx_H263(&p, &off, pred, mv, c.mode), c.st);
        if (c.st != kplStsNoErr) {
            EXPECT_EQ(p, s.data());
            EXPECT_EQ(mv[0], 777);
            continue;
        }
        EXPECT_EQ(mv[0], c.x);
        EXPECT_EQ(mv[1], c.y);
        EXPECT_EQ(static_cast<int>((p - s.data()) * 8 + off), c.consumed);
    }
}

// ---- OBMC with a rounding type -------------------------------------------------------

// Annex F written out: three half-sample predictions with rounding type rt,
// weighted per sample.
void obmc_reference(const uint8_t* ref, uint8_t* dst, int step, const Kpl16s* const mv[5], int rt) {
    static const int H0[8][8] = {{4, 5, 5, 5, 5, 5, 5, 4}, {5, 5, 5, 5, 5, 5, 5, 5}, {5, 5, 6, 6, 6, 6, 5, 5},
                                 {5, 5, 6, 6, 6, 6, 5, 5}, {5, 5, 6, 6, 6, 6, 5, 5}, {5, 5, 6, 6, 6, 6, 5, 5},
                                 {5, 5, 5, 5, 5, 5, 5, 5}, {4, 5, 5, 5, 5, 5, 5, 4}};
    static const int H2[8][8] = {{2, 1, 1, 1, 1, 1, 1, 2}, {2, 2, 1, 1, 1, 1, 2, 2}, {2, 2, 1, 1, 1, 1, 2, 2},
                                 {2, 2, 1, 1, 1, 1, 2, 2}, {2, 2, 1, 1, 1, 1, 2, 2}, {2, 2, 1, 1, 1, 1, 2, 2},
                                 {2, 2, 1, 1, 1, 1, 2, 2}, {2, 1, 1, 1, 1, 1, 1, 2}};
    auto at = [&](const Kpl16s* v, int x, int y) {
        const uint8_t* s = ref + (y + (v[1] >> 1)) * step + x + (v[0] >> 1);
        const int hx = v[0] & 1, hy = v[1] & 1;
        if (hx && hy) return (s[0] + s[1] + s[step] + s[step + 1] + 2 - rt) >> 2;
        if (hx) return (s[0] + s[1] + 1 - rt) >> 1;
        if (hy) return (s[0] + s[step] + 1 - rt) >> 1;
        return static_cast<int>(s[0]);
    };
    // mv: own, left, right, above, below
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const int q = at(mv[0], x, y), r = at(y < 4 ? mv[3] : mv[4], x, y),
                      s = at(x < 4 ? mv[1] : mv[2], x, y);
            dst[y * step + x] =
                static_cast<uint8_t>((q * H0[y][x] + r * (8 - H0[y][x] - H2[y][x]) + s * H2[y][x] + 4) >> 3);
        }
}

// Random and extreme references, vectors in every direction and half-sample
// phase; with rounding type 0 the plain OBMC entry point must give the same.
TEST(H263Companion, ObmcWithRoundingType) {
    Rng rng("h263 obmc rounding type");
    const int step = 48;
    for (int iter = 0; iter < 3000; ++iter) {
        std::vector<uint8_t> ref(static_cast<size_t>(step) * 48);
        if (iter % 3)
            rng.fill(ref.data(), ref.size());
        else
            rng.fill_extreme(ref.data(), ref.size());
        Kpl16s v[5][2];
        for (auto& m : v)
            m[0] = static_cast<Kpl16s>(rng.range(-30, 30)), m[1] = static_cast<Kpl16s>(rng.range(-30, 30));
        const Kpl16s* mv[5] = {v[0], v[1], v[2], v[3], v[4]};
        const uint8_t* at = ref.data() + 20 * step + 20;
        for (int rt = 0; rt < 2; ++rt) {
            std::vector<uint8_t> got(ref), want(ref);
            obmc_reference(at, want.data() + (at - ref.data()), step, mv, rt);
            ASSERT_EQ(kpliPredictBlockEx_OBMC_8u(at, got.data() + (at - ref.data()), step, v[0], v[1], v[2],
                                                 v[3], v[4], rt),
                      kplStsNoErr);
            ASSERT_EQ(got, want) << "iter " << iter << " rt " << rt;
            if (rt == 0) {  // rounding type 0 is the library's own OBMC
                std::vector<uint8_t> old(ref);
                kpliPredictBlock_OBMC_8u(at, old.data() + (at - ref.data()), step, v[0], v[1], v[2], v[3],
                                         v[4]);
                ASSERT_EQ(old, got);
            }
        }
    }
}

TEST(H263Companion, ObmcVariantsMatchReference) {
    using kplvc::h263::ObmcKernels;
    kplvc::test::check_variants(kplvc::h263::obmc_kernels_for, &ObmcKernels::obmc, "h263 obmc rounding type",
                                20000, [](Arena& a, Rng& rng, int i) {
                                    const int32_t step = 40 + rng.range(0, 9);
                                    auto ref = a.in<uint8_t>(static_cast<size_t>(step * 44), 1);
                                    if (i % 3 == 0) rng.fill_extreme(a[ref], static_cast<size_t>(step * 44));
                                    auto mv = a.in<int16_t>(10);
                                    rng.fill(a[mv], 10, -34, 34);
                                    auto dst = a.out<uint8_t>(static_cast<size_t>(8 * step), 1);
                                    const int rt = i & 1;
                                    return [=](auto f, Arena& x) {
                                        const int16_t* v = x[mv];
                                        f(x[ref] + 19 * step + 18, x[dst], step,
                                          kplvc::h263::ObmcVectors{v, v + 2, v + 4, v + 6, v + 8}, rt);
                                    };
                                });
}

// ---- Forward quantiser ------------------------------------------------------------

// Every 16-bit value at many quantisers, both rules, both first positions,
// sparse and dense blocks, against the scalar reference (results and the
// last index).
TEST(H263Companion, ForwardQuantiserVariantsMatchReference) {
    using kplvc::h263::QuantKernels;
    kplvc::test::check_variants(
        kplvc::h263::quant_kernels_for, &QuantKernels::quant_fwd, "h263 quant_fwd", 8192,
        [](Arena& a, Rng& rng, int i) {
            static const int qps[] = {1, 2, 3, 7, 8, 13, 30, 31, 32, 200};
            const int qp = qps[rng.range(0, 9)], first = i & 1, dz = (i >> 1) & 1, sparse = (i >> 2) & 1;
            auto blk = a.out<int16_t>(64);
            for (int k = 0; k < 64; ++k)
                a[blk][k] =
                    static_cast<int16_t>(sparse && k % 5 ? 0 : ((i >> 3) * 64 - 32768 + ((k * 37) & 63)));
            return [=](auto f, Arena& x) { return f(x[blk], static_cast<float>(0.5 / qp), first, dz); };
        });
}

// ---- Argument checks ----------------------------------------------------------------

// Stream pointers, outputs, step, QP, mode and flags in their order, for the
// block coders and their companions; the good calls read a stream of zeros,
// which holds no code (-74) or a forbidden INTRADC (-73) once the arguments
// have passed.
TEST(H263Coders, ChecksInOrder) {
    using kplvc::test::Arg;
    using kplvc::test::fails;
    using kplvc::test::null;
    kplvc::test::ArgPool p;
    Kpl8u* zeros = p.take<Kpl8u>({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    Kpl8u** pp = p.take<Kpl8u*>({zeros});
    int* off = p.take<int>({0});
    int* count = p.take<int>({0});
    // The writers have a stream of their own: their good calls write.
    Kpl8u** wp = p.take<Kpl8u*>({p.take<Kpl8u>(1024)});
    int* woff = p.take<int>({0});
    Kpl8u* px = p.take<Kpl8u>(64);
    Kpl16s *res = p.take<Kpl16s>(64), *row = p.take<Kpl16s>(8), *col = p.take<Kpl16s>(8);
    Kpl16s *pred = p.take<Kpl16s>({1, 2}), *mv = p.take<Kpl16s>(2);
    const Arg s0{0, nullptr, kplStsNullPtrErr}, s1{0, p.take<Kpl8u*>({nullptr}), kplStsNullPtrErr},
        s2{1, nullptr, kplStsNullPtrErr}, out{2, nullptr, kplStsNullPtrErr}, step{3, 7, kplStsBlockStepErr},
        off8{2, p.take<int>({8}), kplStsShapeArgErr}, off_neg{2, p.take<int>({-1}), kplStsShapeArgErr};
    CHECK_ARGS(p, kpliDecodeBlockCoef_Intra_H263_1u8u, {pp, off, px, 8, 5},
               {s0, s1, s2, out, step, fails(4, 32, kplStsH263QPErr), fails(4, 0, kplStsH263QPErr)},
               kplStsIntraDCErr);
    CHECK_ARGS(p, kpliDecodeBlockCoef_Inter_H263_1u16s, {pp, off, res, 31},
               {s0, s1, s2, null(2), fails(3, 0, kplStsH263QPErr)}, kplStsVLCErr);
    CHECK_ARGS(p, kpliDecodeBlockCoef_IntraDCOnly_H263_1u8u, {pp, off, px, 8}, {s0, s1, s2, out, step},
               kplStsIntraDCErr);
    CHECK_ARGS(p, kpliDecodeBlockCoef_AdvIntra_H263_1u8u, {pp, off, px, 8, row, col, 1, 3},
               {s0, s1, s2, out, step, null(4), null(5), fails(6, 32, kplStsH263QPErr),
                fails(7, 0, kplStsAdvIntraModeErr), fails(7, 4, kplStsAdvIntraModeErr)},
               kplStsIntraDCErr);
    CHECK_ARGS(p, kpliDecodeBlockCoefEx_Intra_H263_1u8u, {pp, off, px, 8, 5, 0},
               {s0, s1, s2, out, step, fails(4, 32, kplStsH263QPErr), fails(5, 64, kplStsBadArgErr)},
               kplStsIntraDCErr);
    CHECK_ARGS(
        p, kpliDecodeBlockCoefEx_Inter_H263_1u16s, {pp, off, res, 31, KPLVC_H263_ALT_INTER_VLC},
        {s0, s1, s2, null(2), fails(3, 0, kplStsH263QPErr), fails(4, KPLVC_H263_AIC_CODED, kplStsBadArgErr)},
        kplStsVLCErr);
    CHECK_ARGS(p, kpliDecodeBlockCoefEx_AdvIntra_H263_1u8u,
               {pp, off, px, 8, row, col, 1, 0, KPLVC_H263_AIC_CODED},
               {s0, s1, s2, out, null(4), null(5), step, fails(6, 32, kplStsH263QPErr),
                fails(7, 3, kplStsAdvIntraModeErr), fails(7, -1, kplStsAdvIntraModeErr),
                fails(8, 64, kplStsBadArgErr)},
               kplStsVLCErr);
    CHECK_ARGS(p, kpliEncode_TCOEFEx_H263_16s1u, {res, wp, woff, 0, 0, 0, 0, count},
               {null(0), null(1), null(2), null(7), off8, fails(3, 3, kplStsBadArgErr),
                fails(4, 2, kplStsBadArgErr), fails(5, 2, kplStsBadArgErr), fails(6, 2, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliDecodeMVEx_H263, {pp, off, pred, mv, KPLVC_H263_MVD_UVLC},
               {s0, s1, s2, null(2), null(3), fails(4, 3, kplStsBadArgErr)}, kplStsH263MVCodeErr);
    CHECK_ARGS(p, kpliPredictBlockEx_OBMC_8u, {px + 24, px, 8, pred, pred, pred, pred, pred, 1},
               {null(0), null(1), null(3), null(5), null(4), null(7), null(6),
                fails(2, 7, kplStsBlockStepErr), fails(8, 2, kplStsModeErr), fails(8, -1, kplStsModeErr)});
    CHECK_ARGS(p, kpliEncode_IntraDCVLC_H263_16s1u, {1, wp, woff}, {null(1), null(2), off8, off_neg});
    CHECK_ARGS(p, kpliEncode_ACVLC_H263_16s1u, {res, wp, woff, 0}, {s0, null(1), null(2), off8, off_neg});
}

}  // namespace
