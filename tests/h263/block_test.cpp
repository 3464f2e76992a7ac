// H.263 block decoders and encoders: round trips through the library's own
// encoder, the direct reconstruction as oracle, the table contents against
// the standard's code lists, and the error paths.
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "block/scan.h"
#include "core/bitstream.h"
#include "h263/coef_tables.h"
#include "kplvc.h"
#include "support/args.h"
#include "support/code_lists.h"

using kplvc::test::fails, kplvc::test::null, kplvc::test::passes;

namespace {

using kplvc::test::Rng;

// A random sparse block of levels: mostly small, some needing the escape.
void random_levels(Rng& rng, int16_t* blk, int density, bool big) {
    std::memset(blk, 0, 64 * sizeof(int16_t));
    for (int i = 0; i < 64; ++i) {
        if (rng.range(0, 99) >= density) continue;
        int v = big && rng.range(0, 4) == 0 ? rng.range(1, 127) : rng.range(1, 3);
        blk[i] = static_cast<int16_t>(rng.coin() ? -v : v);
    }
}

struct Stream {
    std::vector<uint8_t> buf = std::vector<uint8_t>(1024, 0);
    Kpl8u* p = buf.data();
    int off = 0;
};

}  // namespace

// Random blocks through the library's encoders and back through the
// decoders, which must end where the encoders ended and give the direct
// reconstruction: dequantise all 64, then the full inverse DCT (for inter
// blocks with only the first coefficient coded, the flat DC rule).
TEST(H263Block, RoundTripMatchesDirectReconstruction) {
    Rng rng(101);
    for (int iter = 0; iter < 5000; ++iter) {
        const bool intra = iter % 5 >= 3;
        int16_t lv[64];
        random_levels(rng, lv,
                      intra           ? rng.range(2, 40)
                      : iter % 4 == 0 ? 60
                                      : rng.range(1, 15),
                      iter % 3 == 0);
        const int16_t dc = static_cast<int16_t>(rng.range(1, 254));
        if (intra) {
            lv[0] = dc == 128 ? 255 : dc;  // 255 stands for 128
            bool any_ac = false;
            for (int i = 1; i < 64; ++i) any_ac = any_ac || lv[i] != 0;
            if (!any_ac) lv[1] = 1;
        }
        const int qp = rng.range(1, 31);
        Stream s;
        s.off = rng.range(0, 7);
        const int off0 = s.off;
        if (intra) {
            ASSERT_EQ(kpliEncode_IntraDCVLC_H263_16s1u(lv[0], &s.p, &s.off), kplStsNoErr);
        }
        ASSERT_EQ(kpliEncode_ACVLC_H263_16s1u(lv, &s.p, &s.off, intra), kplStsNoErr);
        bool any = false;
        for (int16_t v : lv) any = any || v != 0;
        if (!any) {
            EXPECT_EQ(s.p, s.buf.data());
            continue;
        }
        Kpl8u* rp = s.buf.data();
        int roff = off0;
        int16_t want[64];
        std::memcpy(want, lv, sizeof lv);
        if (intra) {
            uint8_t got[8 * 12], want_px[8 * 12];
            std::memset(got, 0xCC, sizeof got);
            std::memset(want_px, 0xCC, sizeof want_px);
            ASSERT_EQ(kpliDecodeBlockCoef_Intra_H263_1u8u(&rp, &roff, got, 12, qp), kplStsNoErr) << iter;
            kpliQuantInvIntra_H263_C1I(want, qp);
            want[0] = static_cast<int16_t>(lv[0] == 255 ? 1024 : 8 * lv[0]);
            ASSERT_EQ(kpliDCT8x8Inv_16s8u_C1R(want, want_px, 12), kplStsNoErr);
            ASSERT_EQ(std::memcmp(got, want_px, sizeof got), 0) << "iter " << iter;
        } else {
            int16_t got[64];
            ASSERT_EQ(kpliDecodeBlockCoef_Inter_H263_1u16s(&rp, &roff, got, qp), kplStsNoErr) << iter;
            ASSERT_EQ(kpliQuantInv_H263_C1I(want, qp), kplStsNoErr);
            bool dc_only = true;
            for (int i = 1; i < 64; ++i) dc_only = dc_only && lv[i] == 0;
            if (dc_only) {
                for (int i = 1; i < 64; ++i) want[i] = static_cast<int16_t>((want[0] + 4) >> 3);
                want[0] = want[1];
            } else {
                ASSERT_EQ(kpliDCT8x8Inv_16s_C1I(want), kplStsNoErr);
            }
            ASSERT_EQ(std::memcmp(got, want, sizeof want), 0) << "iter " << iter << " qp " << qp;
        }
        EXPECT_EQ(rp, s.p);
        EXPECT_EQ(roff, s.off);
    }
}

// Every code word of the TCOEF lists decodes to its event through the three
// lookup tables, with its length; every 12-bit look below 8 begins no code.
TEST(H263Block, TcoefTablesMatchTheCodeLists) {
    for (auto [file, adv] :
         {std::pair<const char*, bool>{"h263_tcoef.txt", false}, {"h263_advintra_tcoef.txt", true}}) {
        int n = 0;
        for (const auto& r : kplvc::codelists::read_rows(file)) {
            const std::string &idx = r[0], &code = r[1];
            const bool esc = idx == "ESCAPE";
            const int last = esc ? 0 : std::stoi(r[2]), run = esc ? 0 : std::stoi(r[3]),
                      level = esc ? 0 : std::stoi(r[4]);
            uint32_t c12 = 0;
            for (char ch : code) c12 = (c12 << 1) | static_cast<uint32_t>(ch - '0');
            c12 <<= 12 - code.size();
            using namespace kplvc::h263;
            const uint32_t e = c12 >= 512   ? (adv ? advDCTtab0 : DCTtab0)[(c12 >> 5) - 16]
                               : c12 >= 128 ? (adv ? advDCTtab1 : DCTtab1)[(c12 >> 2) - 32]
                                            : (adv ? advDCTtab2 : DCTtab2)[c12 - 8];
            EXPECT_EQ(tcoef_len(e), code.size()) << file << " " << code;
            EXPECT_EQ(tcoef_level(e), static_cast<uint32_t>(level)) << code;
            EXPECT_EQ(tcoef_run(e), static_cast<uint32_t>(run)) << code;
            EXPECT_EQ(tcoef_last(e), static_cast<uint32_t>(last)) << code;
            if (!adv && idx != "ESCAPE") {
                const auto c = mVLC_TB17.code[last][run][level];
                EXPECT_EQ(c.len, code.size());
                EXPECT_EQ(c.code, c12 >> (12 - code.size()));
            }
            ++n;
        }
        EXPECT_EQ(n, 103) << file;
    }
    EXPECT_EQ(kplvc::h263::mVLC_TB17.max_run[0], 26);
    EXPECT_EQ(kplvc::h263::mVLC_TB17.max_run[1], 40);
    EXPECT_EQ(kplvc::h263::mVLC_TB17.max_level[0][0], 12);
    EXPECT_EQ(kplvc::h263::mVLC_TB17.max_level[1][0], 3);
}

TEST(H263Block, EscapeFieldsAndForbiddenLevels) {
    // ESCAPE, LAST 1, RUN 5, LEVEL 0x80: stored as -128 at scan index 5.
    struct Case {
        uint32_t level_byte;
        int16_t want_level;
    };
    for (Case c : {Case{0x80, -128}, Case{0x00, 0}, Case{0xFF, -1}, Case{0x7F, 127}}) {
        uint8_t buf[16] = {};
        Kpl8u* p = buf;
        int off = 3;
        // 0000011 1 000101 <level>, via the library's own writer.
        kplvc::PutBits(&p, &off, (3u << 15) | (1u << 14) | (5u << 8) | c.level_byte, 22);
        Kpl8u* rp = buf;
        int roff = 3;
        int16_t res[64];
        ASSERT_EQ(kpliDecodeBlockCoef_Inter_H263_1u16s(&rp, &roff, res, 1), kplStsNoErr);
        EXPECT_EQ(rp, p);
        EXPECT_EQ(roff, off);
        int16_t want[64] = {};
        want[kplvc::block::ZigzagC[5]] = c.want_level;
        kpliQuantInv_H263_C1I(want, 1);
        kpliDCT8x8Inv_16s_C1I(want);
        EXPECT_EQ(std::memcmp(res, want, sizeof want), 0) << c.level_byte;
    }
}

TEST(H263Block, StreamErrorsLeaveThePositionAlone) {
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
        KplStatus want;
    };
    // Illegal code: twelve bits below 8. Run past 63: escape RUN 63 after a
    // first coefficient. INTRADC 0 and 128.
    const Case inter[] = {
        {"illegal code", {0x00, 0x0F, 0, 0, 0, 0, 0, 0, 0, 0}, kplStsVLCErr},
        // "10"+sign (LAST 0, RUN 0: index 0), then escape LAST 1, RUN 63.
        {"run past 63", {0x80, 0xFF, 0x80, 0x80, 0, 0, 0, 0, 0, 0}, kplStsCoefCountErr},
    };
    for (const auto& c : inter) {
        std::vector<uint8_t> b = c.bytes;
        Kpl8u* p = b.data();
        int off = 0;
        int16_t res[64];
        std::memset(res, 0x55, sizeof res);
        EXPECT_EQ(kpliDecodeBlockCoef_Inter_H263_1u16s(&p, &off, res, 5), c.want) << c.what;
        EXPECT_EQ(p, b.data());
        EXPECT_EQ(off, 0);
        for (int16_t v : res) ASSERT_EQ(v, 0);  // cleared before decoding
    }
    // A run that lands exactly on 63 after RUN 62 from the DC is fine; one
    // more is -72 (escape LAST=1 RUN=63 at intra start 0 gives index 64).
    for (auto [dc, want] : {std::pair<uint8_t, KplStatus>{0, kplStsIntraDCErr},
                            {128, kplStsIntraDCErr},
                            {1, kplStsCoefCountErr}}) {
        uint8_t buf[16] = {};
        Kpl8u* w = buf;
        int woff = 0;
        kplvc::PutBits(&w, &woff, dc, 8);
        kplvc::PutBits(&w, &woff, (3u << 15) | (1u << 14) | (63u << 8) | 1u, 22);
        Kpl8u* p = buf;
        int off = 0;
        uint8_t px[64];
        std::memset(px, 0x77, sizeof px);
        EXPECT_EQ(kpliDecodeBlockCoef_Intra_H263_1u8u(&p, &off, px, 8, 4), want) << int(dc);
        EXPECT_EQ(p, buf);
        for (uint8_t v : px) ASSERT_EQ(v, 0x77);
        Kpl16s row[8] = {-1}, col[8] = {-1};
        p = buf;
        EXPECT_EQ(kpliDecodeBlockCoef_AdvIntra_H263_1u8u(&p, &off, px, 8, row, col, 4, 3), want);
        EXPECT_EQ(p, buf);
        EXPECT_EQ(row[0], -1);
    }
}

TEST(H263Block, IntraDcOnly) {
    for (auto [code, want, st] : {std::tuple<uint8_t, uint8_t, KplStatus>{255, 128, kplStsNoErr},
                                  {1, 1, kplStsNoErr},
                                  {254, 254, kplStsNoErr},
                                  {0, 0x33, kplStsIntraDCErr},
                                  {128, 0x33, kplStsIntraDCErr}}) {
        uint8_t buf[8] = {static_cast<uint8_t>(code >> 5), static_cast<uint8_t>(code << 3), 0, 0, 0, 0, 0, 0};
        Kpl8u* p = buf;
        int off = 5;
        uint8_t px[10 * 8];
        std::memset(px, 0x33, sizeof px);
        EXPECT_EQ(kpliDecodeBlockCoef_IntraDCOnly_H263_1u8u(&p, &off, px, 10), st);
        EXPECT_EQ(p, buf + 1);  // advanced even on error
        EXPECT_EQ(off, 5);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 10; ++x) ASSERT_EQ(px[y * 10 + x], x < 8 ? want : 0x33);
    }
}

// Advanced intra: a DC-only block in each mode against the prediction rules
// worked out by hand, and the predictors handed on to the next block.
TEST(H263Block, AdvancedIntraPrediction) {
    struct Case {
        int mode;
        Kpl16s row0, col0;
        int want_dc;  // after prediction and the odd fix-up
    };
    // INTRADC code 20 is stored raw; AC: one level +1 at scan position 1.
    const Case cases[] = {
        {3, 100, 51, 95},    // 20 + (100 + 51) / 2 = 95, odd: kept
        {3, -1, 40, 61},     // only the column: 60, even: 61
        {3, -1, -1, 1045},   // none available: 20 + 1024 = 1044 -> 1045
        {1, 7, -1, 1045},    // mode 1 needs the column predictor
        {1, -1, 300, 321},   // 320 -> 321
        {2, 9, 300, 29},     // 29, odd
        {2, 3000, 0, 2047},  // 3020 clamped to 2047
    };
    for (const auto& c : cases) {
        uint8_t buf[16] = {};
        Kpl8u* w = buf;
        int woff = 0;
        kplvc::PutBits(&w, &woff, 20, 8);
        // Escape: LAST 1, RUN 0, LEVEL +1, landing at scan position 1.
        kplvc::PutBits(&w, &woff, (3u << 15) | (1u << 14) | (0u << 8) | 1u, 22);
        Kpl8u* p = buf;
        int off = 0;
        Kpl16s row[8], col[8];
        for (int k = 0; k < 8; ++k)
            row[k] = static_cast<Kpl16s>(k == 0 ? c.row0 : 10 * k),
            col[k] = static_cast<Kpl16s>(k == 0 ? c.col0 : -5 * k);
        uint8_t px[64];
        ASSERT_EQ(kpliDecodeBlockCoef_AdvIntra_H263_1u8u(&p, &off, px, 8, row, col, 3, c.mode), kplStsNoErr);
        const int want_dc = c.want_dc;
        EXPECT_EQ(row[0], want_dc) << "mode " << c.mode;
        EXPECT_EQ(col[0], want_dc);
        // Scan position 1 is raster 1 (classical, alternate-horizontal) or
        // raster 8 (alternate-vertical); the level is 1 * 2QP = 6, plus the
        // predictor where the mode adds one along that edge.
        const int at = c.mode == 2 ? 8 : 1;
        int16_t want[64] = {};
        want[0] = static_cast<int16_t>(want_dc);
        want[at] = 6;
        if (c.mode == 1 && c.col0 >= 0)
            for (int k = 1; k < 8; ++k) want[8 * k] = static_cast<int16_t>(want[8 * k] - 5 * k);
        if (c.mode == 2 && c.row0 >= 0)
            for (int k = 1; k < 8; ++k) want[k] = static_cast<int16_t>(want[k] + 10 * k);
        for (int k = 0; k < 8; ++k) {
            EXPECT_EQ(row[k], want[k]) << "mode " << c.mode << " k " << k;
            EXPECT_EQ(col[k], want[8 * k]) << "mode " << c.mode << " k " << k;
        }
        uint8_t px_want[64];
        kpliDCT8x8Inv_16s8u_C1R(want, px_want, 8);
        EXPECT_EQ(std::memcmp(px, px_want, 64), 0) << "mode " << c.mode;
    }
}

TEST(H263Block, EncoderWritesNothingForZeros) {
    int16_t zeros[64] = {};
    zeros[0] = 9;  // the DC does not count for intra blocks
    uint8_t buf[8] = {0xFF};
    Kpl8u* p = buf;
    int off = 3;
    EXPECT_EQ(kpliEncode_ACVLC_H263_16s1u(zeros, &p, &off, 1), kplStsNoErr);
    EXPECT_TRUE(p == buf && off == 3 && buf[0] == 0xFF);
    // 128 is written as 255; the bits before the offset stay.
    off = 4;
    buf[0] = 0xA0;
    EXPECT_EQ(kpliEncode_IntraDCVLC_H263_16s1u(128, &p, &off), kplStsNoErr);
    EXPECT_TRUE(buf[0] == 0xAF && buf[1] == 0xF0 && p == buf + 1 && off == 4);
}
