// MPEG-4 intra DC/AC prediction, the second-method and forward quantisers,
// and motion vectors: worked examples of the rules that can break, and the
// argument checks.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kplvc.h"
#include "support/args.h"
#include "support/support.h"

namespace {

const KplMPEG4IntraPred kAbsent = KPLVC_MPEG4_INTRA_PRED_ABSENT;

using kplvc::test::bit_bytes;  // a stream of 0/1 bits, zero-padded

}  // namespace

// ---- DC and AC prediction -------------------------------------------------------------

TEST(Mpeg4Intra, DcScalerAndDcRounding) {
    // A differential of 1 on a zero prediction gives the scaler itself.
    const struct {
        int qp, block, scaler;
    } scalers[] = {{1, 0, 8},   {4, 0, 8},   {5, 0, 10},  {8, 0, 16}, {9, 0, 17},  {24, 0, 32},
                   {25, 0, 34}, {31, 0, 46}, {4, 4, 8},   {5, 5, 9},  {24, 4, 18}, {25, 4, 19},
                   {31, 5, 25}, {12, 6, 20}, {12, 9, 20}, {13, 4, 13}};
    for (const auto& c : scalers) {
        KplMPEG4IntraPred pred = kAbsent, cur;
        pred.dc = 0;
        int16_t blk[64] = {1};
        ASSERT_EQ(kpliPredictReconIntra_MPEG4_16s(blk, &pred, &cur, KPLVC_PRED_LEFT, 0, c.qp, c.block),
                  kplStsNoErr);
        EXPECT_EQ(blk[0], c.scaler) << "QP " << c.qp << " block " << c.block;
        EXPECT_EQ(cur.dc, c.scaler);
        EXPECT_EQ(cur.qp, c.qp);
    }
    // The predictor is divided by this block's scaler with "//": halves away
    // from zero; the result is clamped to 0..2047.
    const struct {
        int16_t pred_dc, diff;
        int want;
    } dcs[] = {{12, 0, 16}, {11, 0, 8}, {20, 0, 24}, {1024, 0, 1024}, {1024, -200, 0}, {1024, 200, 2047}};
    for (const auto& c : dcs) {
        KplMPEG4IntraPred pred = kAbsent, cur;
        pred.dc = c.pred_dc;
        int16_t blk[64] = {c.diff};
        ASSERT_EQ(kpliPredictReconIntra_MPEG4_16s(blk, &pred, &cur, KPLVC_PRED_TOP, 0, 2, 0), kplStsNoErr);
        EXPECT_EQ(blk[0], c.want) << c.pred_dc << " " << c.diff;
    }
}

// The first column (from the left) or row (from above) of the neighbour,
// rescaled by its quantiser to this block's: (ac * qpA) // QP.
TEST(Mpeg4Intra, AcRescalingRoundsHalfAwayFromZeroAndSaturates) {
    const struct {
        int16_t ac, qp_a;
        int qp;
        int16_t level, want;
    } cases[] = {
        {3, 5, 2, 0, 8},           // 7.5 -> 8
        {-3, 5, 2, 0, -8},         // -7.5 -> -8
        {1, 3, 2, 0, 2},           // 1.5 -> 2
        {-1, 3, 2, 0, -2},         // -1.5 -> -2
        {5, 2, 4, 0, 3},           // 2.5 -> 3
        {7, 1, 3, 0, 2},           // 2.33 -> 2
        {-7, 2, 3, 0, -5},         // -4.67 -> -5
        {9, 9, 9, 1, 10},          // same quantiser: exact
        {100, 31, 1, 0, 2047},     // 3100 saturates
        {-100, 31, 1, -5, -2048},  // -3105 saturates
        {2047, 1, 1, 2047, 2047},
    };
    for (int dir : {KPLVC_PRED_LEFT, KPLVC_PRED_TOP}) {
        for (const auto& c : cases) {
            KplMPEG4IntraPred pred = kAbsent, cur;
            pred.qp = c.qp_a;
            (dir == KPLVC_PRED_LEFT ? pred.col : pred.row)[2] = c.ac;  // third AC of the line
            int16_t blk[64] = {};
            const int pos = dir == KPLVC_PRED_LEFT ? 24 : 3;
            blk[pos] = c.level;
            blk[dir == KPLVC_PRED_LEFT ? 3 : 24] = 77;  // the other line is left alone
            ASSERT_EQ(kpliPredictReconIntra_MPEG4_16s(blk, &pred, &cur, dir, 1, c.qp, 0), kplStsNoErr);
            EXPECT_EQ(blk[pos], c.want) << c.ac << "*" << c.qp_a << "//" << c.qp << " dir " << dir;
            EXPECT_EQ(blk[dir == KPLVC_PRED_LEFT ? 3 : 24], 77);
            // The record keeps the levels after prediction.
            EXPECT_EQ(cur.row[2], blk[3]);
            EXPECT_EQ(cur.col[2], blk[24]);
            // Without AC prediction the levels stay.
            int16_t plain[64] = {};
            plain[pos] = c.level;
            ASSERT_EQ(kpliPredictReconIntra_MPEG4_16s(plain, &pred, &cur, dir, 0, c.qp, 0), kplStsNoErr);
            EXPECT_EQ(plain[pos], c.level);
        }
    }
}

TEST(Mpeg4Intra, DirectionFromDcGradients) {
    const struct {
        int16_t a, b, c;
        int want;
    } cases[] = {
        {100, 100, 200, KPLVC_PRED_TOP},   // no change A-B: the block above continues
        {100, 200, 200, KPLVC_PRED_LEFT},  // no change B-C: the left one does
        {100, 100, 100, KPLVC_PRED_LEFT},  // a tie goes left
        {300, 200, 101, KPLVC_PRED_LEFT},  // 100 < 99 is false
        {300, 200, 99, KPLVC_PRED_TOP},
    };
    for (const auto& c : cases) {
        KplMPEG4IntraPred a = kAbsent, b = kAbsent, cc = kAbsent;
        a.dc = c.a;
        b.dc = c.b;
        cc.dc = c.c;
        Kpl32s dir = 0;
        ASSERT_EQ(kpliPredictDirIntra_MPEG4(&a, &b, &cc, &dir), kplStsNoErr);
        EXPECT_EQ(dir, c.want) << c.a << " " << c.b << " " << c.c;
    }
}

// ---- Quantisers --------------------------------------------------------------------------

TEST(Mpeg4Quant, SecondMethodAndForwardQuantisers) {
    // Inverse: QP (2|L| + 1), minus 1 for even QP, clamped; the intra form
    // keeps element 0.
    const struct {
        int16_t level;
        int qp;
        int16_t want;
    } inv[] = {{1, 2, 5},        {1, 3, 9},          {-2, 4, -19}, {-1, 1, -3},
               {2047, 31, 2047}, {-2047, 31, -2048}, {0, 9, 0}};
    for (const auto& c : inv) {
        int16_t blk[64] = {};
        blk[0] = c.level;
        blk[17] = c.level;
        ASSERT_EQ(kpliQuantInvInterH263_MPEG4_16s_C1I(blk, c.qp), kplStsNoErr);
        EXPECT_EQ(blk[0], c.want);
        EXPECT_EQ(blk[17], c.want);
        blk[0] = c.level;
        blk[17] = c.level;
        ASSERT_EQ(kpliQuantInvIntraH263_MPEG4_16s_C1I(blk, c.qp), kplStsNoErr);
        EXPECT_EQ(blk[0], c.level);
        EXPECT_EQ(blk[17], c.want);
    }
    // Forward, one coefficient at raster 9 (weight 20 there) and the DC.
    int16_t m[64];
    for (auto& w : m) w = 16;
    m[9] = 20;
    const struct {
        const char* what;
        int form;  // 0 second intra, 1 second inter, 2 first intra, 3 first inter
        int16_t f;
        int qp;
        int16_t want;
    } fwd[] = {
        {"second intra: 39 / 20 -> 1", 0, 39, 10, 1},
        {"second intra: 40 / 20 -> 2", 0, -40, 10, -2},
        {"second inter: (29 - 5) / 20 -> 1", 1, 29, 10, 1},
        {"second inter: (24 - 5) / 20 -> 0", 1, -24, 10, 0},
        {"second inter: below QP / 2", 1, 4, 10, 0},
        {"first intra: (16*50 + 200) / 400 -> 2 (2.5 rounds up)", 2, 50, 10, 2},
        {"first intra: (16*49 + 200) / 400 -> 2", 2, -49, 10, -2},
        {"first intra: (16*37 + 200) / 400 -> 1", 2, 37, 10, 1},
        {"first inter: 16*49 / 400 -> 1", 3, 49, 10, 1},
        {"first inter: 16*50 / 400 -> 2", 3, -50, 10, -2},
        {"second intra clamps to 2047", 0, 32767, 1, 2047},
        {"first inter clamps to -2047", 3, -32768, 1, -2047},
    };
    for (const auto& c : fwd) {
        int16_t blk[64] = {};
        blk[0] = 100;  // luma DC: 100 // 8 (QP <= 4) or 100 // 20 (QP 10 -> scaler 18)
        blk[9] = c.f;
        Kpl32s n = -1;
        KplStatus st;
        switch (c.form) {
            case 0:
                st = kpliQuantIntraH263_MPEG4_16s_C1I(blk, c.qp, 0, &n);
                break;
            case 1:
                st = kpliQuantInterH263_MPEG4_16s_C1I(blk, c.qp, &n);
                break;
            case 2:
                st = kpliQuantIntra_MPEG4_16s_C1I(blk, c.qp, m, 0, &n);
                break;
            default:
                st = kpliQuantInter_MPEG4_16s_C1I(blk, c.qp, m, &n);
                break;
        }
        ASSERT_EQ(st, kplStsNoErr) << c.what;
        EXPECT_EQ(blk[9], c.want) << c.what;
        const bool intra = c.form == 0 || c.form == 2;
        if (intra) {
            EXPECT_EQ(blk[0], c.qp <= 4 ? 13 : 6) << c.what;  // 12.5 -> 13; 100 // 18 = 5.6 -> 6
        }
        EXPECT_EQ(n, (c.want != 0) + (intra ? 0 : (blk[0] != 0))) << c.what;
    }
}

// ---- Motion vectors --------------------------------------------------------------------

TEST(Mpeg4Vectors, DecodeWithFcodeResidualAndWrap) {
    const struct {
        const char* what;
        const char* bits;  // horizontal then vertical
        int fcode;
        KplMotionVector pred, want;
    } cases[] = {
        {"zero",
         "1"
         "1",
         1,
         {5, -6},
         {5, -6}},
        {"+1 from 31 wraps to -32",
         "010"
         "1",
         1,
         {31, 0},
         {-32, 0}},
        {"-1 from -32 wraps to 31",
         "011"
         "1",
         1,
         {-32, 0},
         {31, 0}},
        {"+32, the code H.263 leaves free, wraps to -32",
         "0000000000100"
         "1",
         1,
         {0, 0},
         {-32, 0}},
        {"-32 stays",
         "0000000000101"
         "1",
         1,
         {0, 0},
         {-32, 0}},
        {"f 2: code 1 residual 0 is 1, residual 1 is 2",
         "0100"
         "0101",
         2,
         {0, 0},
         {1, 2}},
        {"f 2: code -2 residual 1 is -4",
         "00111"
         "1",
         2,
         {0, 0},
         {-4, 0}},
        {"f 2: 62 + 3 wraps to -63",
         "00100"
         "1",
         2,
         {62, 0},
         {-63, 0}},
        {"f 7: code 32 residual 63 is 2048 -> wraps",
         "0000000000100111111"
         "1",
         7,
         {0, 0},
         {-2048, 0}},
        {"f 7: code -1 residual 5 is -6",
         "011000101"
         "1",
         7,
         {10, 0},
         {4, 0}},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> s = bit_bytes(c.bits);
        Kpl8u* p = s.data();
        Kpl32s off = 0;
        KplMotionVector mv = {99, 99};
        ASSERT_EQ(kpliDecodeMV_MPEG4_1u16s(&p, &off, &c.pred, &mv, c.fcode), kplStsNoErr) << c.what;
        EXPECT_EQ(mv.dx, c.want.dx) << c.what;
        EXPECT_EQ(mv.dy, c.want.dy) << c.what;
        EXPECT_EQ((p - s.data()) * 8 + off, static_cast<long>(std::strlen(c.bits))) << c.what;
    }
    // No code word starts with twelve zeros; the vertical code failing
    // leaves everything as it was too.
    for (const char* b : {"000000000000",
                          "1"
                          "000000000000"}) {
        std::vector<uint8_t> s = bit_bytes(b);
        Kpl8u* p = s.data();
        Kpl32s off = 0;
        const KplMotionVector pred = {1, 2};
        KplMotionVector mv = {99, 99};
        EXPECT_EQ(kpliDecodeMV_MPEG4_1u16s(&p, &off, &pred, &mv, 1), kplStsMVCodeErr);
        EXPECT_EQ(p, s.data());
        EXPECT_EQ(mv.dx, 99);
    }
}

TEST(Mpeg4Vectors, MedianCandidatesAndAvailability) {
    // Three macroblocks per row, two rows; the current one is (1, 1). Each
    // block's vector encodes where it is: (10 * mb + block, -(10 * mb + block)).
    KplMotionVector field[2 * 3 * 4];
    for (int mb = 0; mb < 6; ++mb)
        for (int b = 0; b < 4; ++b)
            field[mb * 4 + b] = {static_cast<int16_t>(10 * mb + b), static_cast<int16_t>(-(10 * mb + b))};
    const KplMotionVector* cur = &field[4 * 4];  // mb 4
    const struct {
        int block, avail;
        int16_t want;  // x (y is its negation)
    } cases[] = {
        // Block 0: left mb 3 block 1 (31), above mb 1 block 2 (12), above
        // right mb 2 block 2 (22): median 22.
        {0, 7, 22},
        {0, 6, 12},  // left absent: median(0, 12, 22)
        {0, 1, 31},  // only the left: it alone
        {0, 2, 12},  // only the above
        {0, 0, 0},   // none
        // Block 1: left is block 0 of this mb (40), above mb 1 block 3 (13),
        // above right mb 2 block 2 (22).
        {1, 7, 22},
        {1, 3, 13},  // above right absent: median(40, 13, 0)
        {1, 0, 40},  // only the one inside the macroblock
        // Block 2: left mb 3 block 3 (33), above block 0 (40), above right block 1 (41).
        {2, 7, 40},
        {2, 0, 40},  // left absent: median(0, 40, 41)
        // Block 3: all inside: 42, 40, 41.
        {3, 0, 41},
    };
    for (const auto& c : cases) {
        KplMotionVector p = {99, 99};
        ASSERT_EQ(kpliPredictMV_MPEG4(cur, 12, c.block, c.avail, &p), kplStsNoErr);
        EXPECT_EQ(p.dx, c.want) << "block " << c.block << " avail " << c.avail;
        EXPECT_EQ(p.dy, -c.want) << "block " << c.block << " avail " << c.avail;
    }
}

// forward = TRB col / TRD + delta, backward = delta ? forward - col :
// (TRB - TRD) col / TRD, "/" truncating toward zero (not flooring).
TEST(Mpeg4Vectors, DirectModeRounding) {
    const struct {
        KplMotionVector col, delta;
        int trb, trd;
        KplMotionVector fw, bw;
    } cases[] = {
        {{-5, 7}, {0, 0}, 1, 3, {-1, 2}, {3, -4}},
        {{-5, 7}, {2, 0}, 1, 3, {1, 2}, {6, -4}},
        {{5, -7}, {0, -1}, 2, 3, {3, -5}, {-1, 2}},
        {{-1, 1}, {0, 0}, 1, 2, {0, 0}, {0, 0}},
        {{32767, -32768}, {0, 0}, 65535, 65535, {32767, -32768}, {0, 0}},
        {{9, 9}, {0, 0}, 0, 4, {0, 0}, {-9, -9}},
    };
    for (const auto& c : cases) {
        KplMotionVector col[4] = {c.col, {1, 1}, {-3, 2}, c.col}, fw[4], bw[4];
        ASSERT_EQ(kpliDirectMV_MPEG4(col, &c.delta, c.trb, c.trd, fw, bw), kplStsNoErr);
        for (int b : {0, 3}) {
            EXPECT_EQ(fw[b].dx, c.fw.dx) << c.col.dx << " " << c.trb << "/" << c.trd;
            EXPECT_EQ(fw[b].dy, c.fw.dy);
            EXPECT_EQ(bw[b].dx, c.bw.dx) << c.col.dx << " " << c.trb << "/" << c.trd;
            EXPECT_EQ(bw[b].dy, c.bw.dy);
        }
    }
}

// ---- Argument checks ----------------------------------------------------------------------

TEST(Mpeg4PredictionArgs, FirstFailingCheckWinsAndNothingIsWritten) {
    using kplvc::test::Arg, kplvc::test::fails, kplvc::test::null;
    kplvc::test::ArgPool p;
    KplMPEG4IntraPred* a = p.take<KplMPEG4IntraPred>({kAbsent});
    KplMPEG4IntraPred* cur = p.take<KplMPEG4IntraPred>({kAbsent});
    Kpl16s *blk = p.take<Kpl16s>(64), *m = p.take<Kpl16s>(64);
    std::fill(blk, blk + 64, Kpl16s{3});
    std::fill(m, m + 64, Kpl16s{16});
    Kpl32s* n = p.take<Kpl32s>(1);
    KplMotionVector *mv = p.take<KplMotionVector>(4), *out = p.take<KplMotionVector>(4);
    std::fill(mv, mv + 4, KplMotionVector{7, 7});
    Kpl8u* s = p.take<Kpl8u>({0xC0, 0, 0, 0});  // "11": a zero vector
    CHECK_ARGS(p, kpliPredictDirIntra_MPEG4, {a, a, a, n}, {null(2), null(3)});
    CHECK_ARGS(p, kpliPredictReconIntra_MPEG4_16s, {blk, a, cur, 1, 0, 5, 0},
               {null(0), null(1), fails(3, 0, kplStsPredDirErr), fails(3, 3, kplStsPredDirErr),
                fails(4, 2, kplStsModeErr), fails(5, 0, kplStsMPEG4QPErr), fails(5, 32, kplStsMPEG4QPErr),
                fails(6, 10, kplStsBlockIndexErr)});
    CHECK_ARGS(p, kpliQuantInvIntraH263_MPEG4_16s_C1I, {blk, 5}, {null(0)});
    CHECK_ARGS(p, kpliQuantInvInterH263_MPEG4_16s_C1I, {blk, 5}, {fails(1, 0, kplStsMPEG4QPErr)});
    CHECK_ARGS(p, kpliQuantIntraH263_MPEG4_16s_C1I, {blk, 1, 0, n},
               {null(3), fails(1, 0, kplStsMPEG4QPErr), fails(2, 10, kplStsBlockIndexErr)});
    CHECK_ARGS(p, kpliQuantInterH263_MPEG4_16s_C1I, {blk, 5, n}, {fails(1, 32, kplStsMPEG4QPErr)});
    CHECK_ARGS(p, kpliQuantIntra_MPEG4_16s_C1I, {blk, 1, m, 0, n},
               {null(2), fails(3, -1, kplStsBlockIndexErr)});
    CHECK_ARGS(p, kpliQuantInter_MPEG4_16s_C1I, {blk, 1, m, n}, {fails(1, 0, kplStsMPEG4QPErr)});
    CHECK_ARGS(p, kpliDecodeMV_MPEG4_1u16s, {p.take<Kpl8u*>({s}), p.take<Kpl32s>({0}), mv, out, 1},
               {Arg{0, p.take<Kpl8u*>({nullptr}), kplStsNullPtrErr}, null(2),
                Arg{1, p.take<Kpl32s>({-1}), kplStsShapeArgErr}, fails(4, 0, kplStsFcodeErr),
                fails(4, 8, kplStsFcodeErr)});
    CHECK_ARGS(p, kpliPredictMV_MPEG4, {mv, 4, 0, 0, out},
               {null(4), fails(1, 3, kplStsStepErr), fails(2, 4, kplStsBlockIndexErr),
                fails(3, 8, kplStsBadArgErr)});
    CHECK_ARGS(p, kpliDirectMV_MPEG4, {mv, mv, 1, 2, out, out + 2},
               {null(5), fails(3, 0, kplStsTimeDistErr), fails(2, 3, kplStsTimeDistErr),
                fails(2, -1, kplStsTimeDistErr)});
}

// The second method's forward quantisers against their formulas for every
// 16-bit coefficient and quantiser (they divide without a division).
TEST(Mpeg4Quant, SecondMethodForwardEveryValue) {
    for (int qp = 1; qp <= 31; ++qp) {
        for (int32_t base = -32768; base < 32768; base += 64) {
            int16_t intra[64], inter[64];
            for (int i = 0; i < 64; ++i) intra[i] = inter[i] = static_cast<int16_t>(base + i);
            Kpl32s n;
            ASSERT_EQ(kpliQuantIntraH263_MPEG4_16s_C1I(intra, qp, 0, &n), kplStsNoErr);
            ASSERT_EQ(kpliQuantInterH263_MPEG4_16s_C1I(inter, qp, &n), kplStsNoErr);
            for (int i = 1; i < 64; ++i) {
                const int32_t f = base + i, a = f < 0 ? -f : f;
                const int32_t li = std::min(a / (2 * qp), 2047),
                              le = std::min(std::max(a - qp / 2, 0) / (2 * qp), 2047);
                ASSERT_EQ(intra[i], f < 0 ? -li : li) << "intra F " << f << " QP " << qp;
                ASSERT_EQ(inter[i], f < 0 ? -le : le) << "inter F " << f << " QP " << qp;
            }
        }
    }
}
