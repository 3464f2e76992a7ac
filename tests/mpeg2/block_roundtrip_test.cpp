// Round trips: random blocks of levels written one after another with the
// encoders, then read back with the decoders of the same version, must give
// the dequantised levels, the count, the predictors and exactly the
// encoders' positions; fed to the AANTransposed inverse DCT with their count
// they give the pixels of the full transform.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "block_lists.h"
#include "kplvc.h"
#include "support/support.h"

namespace kplvc::test::mpeg2b {
namespace {

struct Block {
    bool intra;
    bool luma;  // DC size table B-12, else B-13
    Kpl16s lv[64];
    Kpl16s pred_in;
    Kpl32u* enc_end;  // encoder position after the block
    Kpl32s enc_free;
};

// Levels that reach every escape form: near 0 mostly, the extremes now
// and then, long runs in some blocks.
int16_t random_level(Rng& rng, int32_t limit) {
    static const int32_t edge[] = {1, 2, 40, 41, 64, 65, 127, 128, 255, 256, 2047};
    int32_t v;
    const int k = rng.range(0, 9);
    if (k < 6)
        v = rng.range(1, 3);
    else if (k < 8)
        v = edge[rng.range(0, 10)];
    else
        v = rng.range(1, limit);
    if (v > limit) v = limit;
    return static_cast<int16_t>(rng.coin() ? -v : v);
}

void fill_block(Rng& rng, Block& b, int version, Kpl16s pred) {
    const int32_t limit = version == 1 ? 255 : 2047;
    std::memset(b.lv, 0, sizeof b.lv);
    // 0, 1: one coefficient early in the scan (the transform's short
    // paths) .. 5: dense.
    const int density = rng.range(0, 5);
    if (density <= 1) b.lv[kZigzag[rng.range(0, 9)]] = random_level(rng, limit);
    for (int k = density <= 1 ? 0 : rng.range(1, (density - 1) * 16); k > 0; --k)
        b.lv[rng.range(0, 63)] = random_level(rng, limit);
    if (!b.intra) return;
    // DC: the predictor plus a difference in range, kept where the DC of
    // the version lives (0..255 for version 1, 0..2047 for version 2).
    const int32_t top = version == 1 ? 255 : 2047;
    int32_t dc;
    const int k = rng.range(0, 3);
    if (k == 0)
        dc = 0;
    else if (k == 1)
        dc = top;
    else
        dc = pred + rng.range(-limit, limit);
    if (dc < 0) dc = 0;
    if (dc > top) dc = top;
    if (dc - pred > limit || dc - pred < -limit) dc = pred;
    b.lv[0] = static_cast<Kpl16s>(dc);
}

// The decoded block the model expects, transposed, and its count.
void model(const Block& b, int version, int prec, int qp, const Kpl16s* w, const std::vector<Kpl32s>& scan,
           Kpl16s out[64], Kpl32s* count) {
    int32_t r[64] = {};
    const int first = b.intra ? 1 : 0;
    for (int i = first; i < 64; ++i) {
        const int p = scan[i] & 63;
        r[p] = model_dequant(version, b.intra, b.lv[p], qp, w ? w[p] : 16);
    }
    if (b.intra) {
        const int32_t m = version == 1 ? 8 : (8 >> prec);
        int32_t dc = b.lv[0] * m;
        r[0] = dc < -2048 ? -2048 : (dc > 2047 ? 2047 : dc);
    }
    if (version == 2) {
        int32_t s = 0;
        for (int p = 0; p < 64; ++p) s += r[p];
        if ((s & 1) == 0) r[63] += (r[63] & 1) ? -1 : 1;
    }
    *count = 0;
    for (int i = 0; i < 64; ++i) {
        const int p = (b.intra && i == 0) ? 0 : (scan[i] & 63);
        if (r[p] != 0) *count = i + 1;
    }
    for (int p = 0; p < 64; ++p) out[8 * (p & 7) + (p >> 3)] = static_cast<Kpl16s>(r[p]);
}

struct Config {
    int version;
    bool alternate;
    bool b15;  // intra blocks of version 2 with Table B-15
};

TEST(Mpeg2BlockRoundTrip, StreamsOfBlocks) {
    const Tables& t = tables();
    const std::vector<Kpl32s> zz = scan32(kZigzag), alt = scan32(kAlternate);
    const Config configs[] = {{1, false, false}, {1, true, false}, {2, false, false},
                              {2, true, false},  {2, false, true}, {2, true, true}};
    Rng rng("mpeg2 block round trip");
    int blocks_checked = 0, short_paths = 0, dc_only = 0;
    for (const Config& cfg : configs) {
        const std::vector<Kpl32s>& scan = cfg.alternate ? alt : zz;
        for (Kpl32s start_free = 1; start_free <= 32; ++start_free) {
            SCOPED_TRACE("version " + std::to_string(cfg.version) + " alt " + std::to_string(cfg.alternate) +
                         " b15 " + std::to_string(cfg.b15) + " start free " + std::to_string(start_free));
            const int nblocks = 12;
            std::vector<Block> blocks(nblocks);
            std::vector<Kpl32u> words(nblocks * 64 + 8, 0xA5A5A5A5u);
            // Earlier bits: 32 - start_free random bits already in word 0.
            words[0] = rng.u32();
            Kpl32u* p = words.data();
            Kpl32s f = start_free;
            Kpl16s pred[2] = {static_cast<Kpl16s>(rng.range(0, cfg.version == 1 ? 255 : 2047)),
                              static_cast<Kpl16s>(cfg.version == 1 ? 128 : 1024)};
            for (Block& b : blocks) {
                b.intra = rng.coin();
                b.luma = rng.coin();
                Kpl16s& pr = pred[b.luma ? 0 : 1];
                fill_block(rng, b, cfg.version, pr);
                b.pred_in = pr;
                const Kpl32s* enc = (b.intra && cfg.b15) ? t.enc15.data() : t.enc14.data();
                const KplStatus st = encode_block(cfg.version, b.intra, b.lv, &p, &f, &pr,
                                                  b.luma ? t.dc12 : t.dc13, enc, scan.data());
                ASSERT_EQ(st, kplStsNoErr);
                if (b.intra) {
                    ASSERT_EQ(pr, b.lv[0]);
                }
                b.enc_end = p;
                b.enc_free = f;
            }
            // The caller's final shift, then two words of look-ahead are there.
            if (f != 32) *p <<= f;

            // Decode from the encoder's first position.
            Kpl32u* rp = words.data();
            Kpl32s off = start_free - 1;
            Kpl16s dpred[2] = {blocks[0].pred_in, 0};
            for (const Block& b : blocks)
                if (b.intra && !b.luma) {
                    dpred[1] = b.pred_in;
                    break;
                }
            for (const Block& b : blocks)
                if (b.intra && b.luma) {
                    dpred[0] = b.pred_in;
                    break;
                }
            for (size_t k = 0; k < blocks.size(); ++k) {
                const Block& b = blocks[k];
                SCOPED_TRACE("block " + std::to_string(k));
                bool empty = !b.intra;
                for (int i = 0; i < 64 && empty; ++i) empty = b.lv[i] == 0;
                if (empty) {
                    // Nothing was written for it: the position is unchanged.
                    continue;
                }
                const int qp = rng.range(1, cfg.version == 1 ? 31 : 112);
                const int prec = rng.range(0, 3);
                std::vector<Kpl16s> w(64);
                rng.fill(w.data(), 64, 1, 255);
                const bool null_w = !b.intra && rng.coin();
                const Kpl16s* wp = null_w ? nullptr : w.data();
                const Kpl32s* coef = (b.intra && cfg.b15) ? t.b15.get() : t.b14.get();
                Kpl16s got[64];
                Kpl32s count = -1;
                Kpl16s& pr = dpred[b.luma ? 0 : 1];
                if (b.intra) {
                    ASSERT_EQ(pr, b.pred_in);
                }
                const KplStatus st =
                    decode_block(cfg.version, b.intra, &rp, &off, got, &count, &pr,
                                 b.luma ? t.b12.get() : t.b13.get(), coef, scan.data(), qp, wp, prec);
                ASSERT_EQ(st, kplStsNoErr);
                Kpl16s want[64];
                Kpl32s want_count;
                model(b, cfg.version, prec, qp, wp, scan, want, &want_count);
                for (int i = 0; i < 64; ++i) ASSERT_EQ(got[i], want[i]) << "index " << i;
                ASSERT_EQ(count, want_count);
                if (b.intra) {
                    ASSERT_EQ(pr, b.lv[0]);
                }
                // The decoder ends where the encoder ended.
                ASSERT_EQ(rp, b.enc_end);
                ASSERT_EQ(off, b.enc_free - 1);
                ++blocks_checked;
                // The count selects the transform's path. A count of 1
                // promises a DC-only block, whose path divides by 8 with
                // truncation where the full one rounds; other counts give the
                // full transform's pixels.
                Kpl8u px[64], full[64];
                ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(got, px, 8, count), kplStsNoErr);
                ASSERT_EQ(kpliDCT8x8Inv_AANTransposed_16s8u_C1R(got, full, 8, 64), kplStsNoErr);
                short_paths += count <= 8;
                dc_only += count == 1;
                if (count == 1)
                    for (int i = 1; i < 64; ++i) ASSERT_EQ(got[i], 0);
                else
                    ASSERT_EQ(0, std::memcmp(px, full, 64)) << "count " << count;
            }
        }
    }
    EXPECT_GT(blocks_checked, 1500);
    EXPECT_GT(short_paths, 300);
    EXPECT_GT(dc_only, 25);
    std::printf("blocks %d: %d through a short transform path, %d DC only\n", blocks_checked, short_paths,
                dc_only);
}

}  // namespace
}  // namespace kplvc::test::mpeg2b
