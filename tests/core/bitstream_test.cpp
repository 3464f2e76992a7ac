// Byte-oriented readers and writer, and the exported word-oriented writers,
// against a bit-by-bit model of the stream.
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/bitstream.h"
#include "kplvc.h"
#include "support/support.h"

using kplvc::test::Guarded;
using kplvc::test::Rng;

namespace {

// Bit i of a byte stream, first bit = bit 7 of byte 0.
int bit_at(const uint8_t* p, int64_t i) { return (p[i >> 3] >> (7 - (i & 7))) & 1; }

uint32_t model_bits(const uint8_t* p, int64_t pos, int n) {
    uint32_t v = 0;
    for (int k = 0; k < n; ++k) v = (v << 1) | static_cast<uint32_t>(bit_at(p, pos + k));
    return v;
}

}  // namespace

TEST(MaskTable, PowersOfTwoMinusOneThenZeros) {
    for (int n = 0; n < 64; ++n) {
        const uint32_t want = n <= 32 ? static_cast<uint32_t>((uint64_t{1} << n) - 1) : 0u;
        EXPECT_EQ(kplvc::_kplGetBitsMask[n], want) << n;
    }
}

TEST(ByteReader, WorkedPositions) {
    struct Case {
        uint8_t bytes[8];
        int32_t off, n;
        uint32_t want;
        int32_t adv, off_after;
    };
    const Case cases[] = {
        {{0x01, 0x80}, 6, 3, 3, 1, 1},                              // straddles a byte
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 7, 31, 0x7FFFFFFF, 4, 6},  // widest read, fifth byte
        {{0x80, 0, 0, 0, 0x04}, 7, 31, 1, 4, 6},                    // bit 37: the last one read
        {{0x80, 0, 0, 0, 0}, 0, 1, 1, 0, 1},
        {{0xA5, 0x5A, 0xC3}, 4, 12, 0x55A, 2, 0},          // ends on a byte edge
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0, 32, 0, 4, 0},  // mask (1 << 32) - 1 is 0
    };
    for (const auto& c : cases) {
        const uint8_t* p = c.bytes;
        int32_t off = c.off;
        EXPECT_EQ(kplvc::ownShowBits(p, off, c.n), c.want) << c.off << "/" << c.n;
        EXPECT_EQ(kplvc::ownGetBits(&p, &off, c.n), c.want);
        EXPECT_EQ(p - c.bytes, c.adv);
        EXPECT_EQ(off, c.off_after);
    }
}

TEST(ByteReader, FlushForwardAndBackward) {
    struct Case {
        int32_t off, n, adv, off_after;
    };
    const Case cases[] = {
        {7, 9, 2, 0},    {0, 0, 0, 0},  {3, 5, 1, 0},   {0, -1, -1, 7},  {3, -11, -1, 0},
        {3, -12, -2, 7}, {7, -7, 0, 0}, {0, -8, -1, 0}, {5, 100, 13, 1},
    };
    uint8_t buf[64] = {};
    for (const auto& c : cases) {
        uint8_t* p = buf + 32;
        int32_t off = c.off;
        kplvc::ownFlushBits(&p, &off, c.n);
        EXPECT_EQ(p - (buf + 32), c.adv) << c.off << "+" << c.n;
        EXPECT_EQ(off, c.off_after) << c.off << "+" << c.n;
    }
}

TEST(ByteReader, RandomReadsMatchBitModel) {
    Rng rng(501);
    std::vector<uint8_t> s(4096 + 8);
    rng.fill(s.data(), s.size());
    for (int it = 0; it < 20000; ++it) {
        const int64_t pos = rng.range(0, 4096 * 8 - 40);
        const int n = rng.range(1, 31);
        const uint8_t* p = s.data() + (pos >> 3);
        int32_t off = static_cast<int32_t>(pos & 7);
        ASSERT_EQ(kplvc::ownGetBits(&p, &off, n), model_bits(s.data(), pos, n)) << pos << "/" << n;
        ASSERT_EQ((p - s.data()) * 8 + off, pos + n);
    }
}

TEST(ByteWriter, RewritesWholeBytes) {
    uint8_t buf[8] = {0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA, 0x99, 0x88};
    uint8_t* p = buf;
    int32_t off = 0;
    kplvc::PutBits(&p, &off, 0x5, 3);
    EXPECT_EQ(buf[0], 0xA0);
    EXPECT_EQ(off, 3);
    kplvc::PutBits(&p, &off, 0xFFFFFFFF, 1);  // bits above n are dropped
    EXPECT_EQ(buf[0], 0xB0);
    EXPECT_EQ(off, 4);
    EXPECT_EQ(buf[1], 0xEE);
    // 32 bits at offset 4 touch five bytes; the fifth keeps nothing after
    // the last bit written.
    kplvc::PutBits(&p, &off, 0x12345678, 32);
    const uint8_t want[8] = {0xB1, 0x23, 0x45, 0x67, 0x80, 0xAA, 0x99, 0x88};
    EXPECT_EQ(std::memcmp(buf, want, 8), 0);
    EXPECT_EQ(p - buf, 4);
    EXPECT_EQ(off, 4);
}

TEST(ByteWriter, RoundTripThroughReader) {
    Rng rng(502);
    for (int rep = 0; rep < 50; ++rep) {
        SCOPED_TRACE(rep);
        Guarded g(1200);
        std::memset(g.data(), rng.u8(), g.size());
        const int32_t start = rng.range(0, 7);
        uint8_t* p = g.data();
        int32_t off = start;
        const uint8_t keep = g.data()[0];
        std::vector<std::pair<uint32_t, int>> codes;
        for (int k = 0; k < 200; ++k) {
            const int n = rng.range(1, 32);
            const uint32_t code = rng.u32();
            kplvc::PutBits(&p, &off, code, n);
            codes.emplace_back(n == 32 ? code : code & ((1u << n) - 1), n);
        }
        const int64_t end = (p - g.data()) * 8 + off;
        // The first `start` bits of the first byte are kept.
        EXPECT_EQ(g.data()[0] >> (8 - start), keep >> (8 - start));
        // The bits after the last one written, up to the byte's end, are 0.
        if (off != 0) {
            EXPECT_EQ(*p & (0xFF >> off), 0);
        }
        const uint8_t* r = g.data();
        int32_t roff = start;
        for (const auto& [code, n] : codes) {
            if (n == 32) {
                const uint32_t hi = kplvc::ownGetBits(&r, &roff, 16);
                ASSERT_EQ((hi << 16) | kplvc::ownGetBits(&r, &roff, 16), code);
            } else {
                ASSERT_EQ(kplvc::ownGetBits(&r, &roff, n), code);
            }
        }
        EXPECT_EQ((r - g.data()) * 8 + roff, end);
        EXPECT_TRUE(g.intact());
    }
}

// ---- Exported word-oriented writers ---------------------------------------------

// What the random test below cannot see: earlier contents of the words.
TEST(WordWriters, ExistingContentsAndNextWord) {
    const struct {
        const char* what;
        bool left;
        Kpl32u w0, w1;
        Kpl32s f;
        Kpl32u code;
        Kpl32s n;
        Kpl32u want0, want1;
        Kpl32s want_f;
    } cases[] = {
        // The shift by 32 keeps the old contents, which are ORed with the
        // code; the next word is not touched when the code ends on the word's end.
        {"32 bits into an empty word", true, 0x0000FFFF, 0x5555, 32, 0x12340000, 32, 0x1234FFFF, 0x5555, 32},
        // A code crossing the word end overwrites the next word with its rest.
        {"4 bits close the word, 2 start the next", true, 0, 0xDEADBEEF, 4, 0x3F, 6, 0xF, 0x3, 30},
        {"1011 | 01 from the top", false, 0, 0xDEADBEEF, 4, 0x2D, 6, 0xB, 0x40000000, 30},
    };
    for (const auto& c : cases) {
        Kpl32u w[2] = {c.w0, c.w1};
        Kpl32u* p = w;
        Kpl32s f = c.f;
        const KplStatus st =
            c.left ? kpliPutBitsLeftMost(&p, &f, c.code, c.n) : kpliPutBitsRightMost(&p, &f, c.code, c.n);
        EXPECT_EQ(st, kplStsNoErr) << c.what;
        EXPECT_EQ(w[0], c.want0) << c.what;
        EXPECT_EQ(w[1], c.want1) << c.what;
        EXPECT_EQ(p, w + 1) << c.what;
        EXPECT_EQ(f, c.want_f) << c.what;
    }
}

TEST(WordWriters, RandomSequencesMatchBitModel) {
    Rng rng(503);
    for (int rep = 0; rep < 200; ++rep) {
        SCOPED_TRACE(rep);
        std::vector<int> bits;
        std::vector<Kpl32u> left(80, 0), right(80, 0);
        Kpl32u* pl = left.data();
        Kpl32u* pr = right.data();
        Kpl32s fl = 32, fr = 32;
        for (int k = 0; k < 60; ++k) {
            const int n = rng.range(1, 32);
            const uint32_t code = rng.u32();
            for (int b = n - 1; b >= 0; --b) bits.push_back(static_cast<int>((code >> b) & 1));
            kpliPutBitsLeftMost(&pl, &fl, code, n);
            kpliPutBitsRightMost(&pr, &fr, code, n);
        }
        ASSERT_EQ(pl - left.data(), pr - right.data());
        ASSERT_EQ(fl, fr);
        const size_t full = static_cast<size_t>(pl - left.data());
        ASSERT_EQ(full, bits.size() / 32);
        ASSERT_EQ(fl, 32 - static_cast<int>(bits.size() % 32));
        for (size_t wi = 0; wi < full; ++wi) {
            uint32_t want = 0;
            for (int b = 0; b < 32; ++b)
                want = (want << 1) | static_cast<uint32_t>(bits[wi * 32 + static_cast<size_t>(b)]);
            ASSERT_EQ(left[wi], want) << wi;
            ASSERT_EQ(right[wi], want) << wi;
        }
        // The partial word: at the low end for the first writer, from bit 31
        // down for the second.
        const size_t used = bits.size() % 32;
        uint32_t tail = 0;
        for (size_t b = 0; b < used; ++b) tail = (tail << 1) | static_cast<uint32_t>(bits[full * 32 + b]);
        EXPECT_EQ(left[full], tail);
        EXPECT_EQ(right[full], used == 0 ? 0u : tail << (32 - used));
    }
}
