// The H.264 decoder's own bit-level pieces: its CAVLC and deblocking tables
// against the standard's code lists in tests/data, its exp-Golomb reader,
// and the Annex B framing (start codes, emulation prevention, stop bit).
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "h264/bits.h"
#include "h264/cavlc.h"
#include "h264/decoder.h"
#include "h264/nal.h"

namespace kplvc::codecs::h264 {
namespace {

// Bits given as a string of '0'/'1' (other characters ignored), packed with
// the reader's zero tail after them.
std::vector<uint8_t> pack(const std::string& bits, size_t* count = nullptr) {
    std::vector<uint8_t> v;
    size_t n = 0;
    for (char c : bits) {
        if (c != '0' && c != '1') continue;
        if (n % 8 == 0) v.push_back(0);
        if (c == '1') v.back() |= static_cast<uint8_t>(0x80 >> (n % 8));
        ++n;
    }
    if (count) *count = n;
    v.resize(v.size() + kTailPad, 0);
    return v;
}

std::ifstream data_file(const char* name) {
    return std::ifstream(std::string(KPLVC_TEST_DATA_DIR) + "/" + name);
}

// The list name of a line of h264_cavlc_tables.txt ("coeff_token 0..1",
// "total_zeros 4x4 3", "run_before 7+"), its code and its value as the
// decoder encodes it (coeff_token: 4 * TotalCoeff + TrailingOnes).
bool parse_line(const std::string& line, std::string* list, std::string* code, int* value) {
    std::istringstream in(line);
    std::string kind;
    in >> kind;
    if (kind == "coeff_token") {
        std::string nc;
        int t1, tc;
        in >> nc >> *code >> t1 >> tc;
        if (nc == "-2") return false;  // 4:2:2 chroma DC: not a format this decoder takes
        *list = kind + " " + nc;
        *value = 4 * tc + t1;
    } else if (kind == "total_zeros") {
        std::string block, index;
        in >> block >> index >> *code >> *value;
        if (block == "2x4") return false;
        *list = kind + " " + block + " " + index;
    } else {
        std::string zeros;
        in >> zeros >> *code >> *value;
        *list = kind + " " + zeros;
    }
    return static_cast<bool>(in);
}

TEST(H264Tables, CavlcListsAreTheStandards) {
    std::ifstream f = data_file("h264_cavlc_tables.txt");
    ASSERT_TRUE(f.good()) << "tests/data/h264_cavlc_tables.txt is missing";
    std::map<std::string, std::map<std::string, int>> want;
    std::string line, list, code;
    int value;
    while (std::getline(f, line))
        if (!line.empty() && line[0] != '#' && parse_line(line, &list, &code, &value))
            want[list][code] = value;
    int n = 0;
    const CodeList* lists = code_lists(&n);
    ASSERT_EQ(static_cast<size_t>(n), want.size());
    for (int i = 0; i < n; ++i) {
        std::map<std::string, int> have;
        for (int j = 0; j < lists[i].count; ++j) have[lists[i].codes[j].bits] = lists[i].codes[j].value;
        EXPECT_EQ(have, want[lists[i].name]) << lists[i].name;
    }
}

// Every 16-bit pattern through the lookup tables, against a decode by prefix
// search over the code list: the code that starts the pattern, or none.
TEST(H264Tables, LookupsDecodeEveryPatternAsTheListSays) {
    int n = 0;
    const CodeList* lists = code_lists(&n);
    for (int i = 0; i < n; ++i) {
        std::vector<std::pair<uint32_t, int>> codes;  // (code word, length)
        for (int j = 0; j < lists[i].count; ++j) {
            uint32_t w = 0;
            int len = 0;
            for (const char* c = lists[i].codes[j].bits; *c; ++c, ++len)
                w = 2 * w + static_cast<uint32_t>(*c - '0');
            codes.emplace_back(w, len);
        }
        for (uint32_t pattern = 0; pattern < 65536; ++pattern) {
            int expect = -1, expect_len = 0;
            for (size_t j = 0; j < codes.size(); ++j)
                if (pattern >> (16 - codes[j].second) == codes[j].first) {
                    expect = lists[i].codes[j].value;
                    expect_len = codes[j].second;
                }
            uint8_t buf[2 + kTailPad] = {static_cast<uint8_t>(pattern >> 8), static_cast<uint8_t>(pattern)};
            int len = -1;
            const int got = decode_with_table(i, buf, 2, &len);
            ASSERT_EQ(got, expect) << lists[i].name << " pattern " << pattern;
            if (expect >= 0) {
                ASSERT_EQ(len, expect_len) << lists[i].name << " pattern " << pattern;
            }
        }
    }
}

TEST(H264Tables, DeblockingTableIsTheStandards) {
    std::ifstream f = data_file("h264_deblock_tables.txt");
    ASSERT_TRUE(f.good()) << "tests/data/h264_deblock_tables.txt is missing";
    std::string line;
    int rows = 0;
    while (std::getline(f, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        int index, want[5], have[5];
        in >> index >> want[0] >> want[1] >> want[2] >> want[3] >> want[4];
        deblock_table_row(index, have);
        for (int k = 0; k < 5; ++k) EXPECT_EQ(have[k], want[k]) << "index " << index << " column " << k;
        ++rows;
    }
    EXPECT_EQ(rows, 52);
}

TEST(H264Bits, ExpGolomb) {
    struct Case {
        const char* bits;
        char kind;  // 'u' ue(v), 's' se(v), 't' te(v) with range 1, 'T' te(v) with range 3
        int64_t value;
        int length;  // bits consumed
        bool error;
    };
    const Case cases[] = {
        {"1", 'u', 0, 1, false},
        {"010", 'u', 1, 3, false},
        {"011", 'u', 2, 3, false},
        {"00111", 'u', 6, 5, false},
        {"0001000", 'u', 7, 7, false},
        // 28 leading zeros: the longest code the fast path reads in one word
        {"0000000000000000000000000000 1 1111111111111111111111111111", 'u', (1LL << 29) - 2, 57, false},
        // 31 leading zeros: the largest value, 2^32 - 2
        {"0000000000000000000000000000000 1 1111111111111111111111111111111", 'u', 4294967294LL, 63, false},
        // 32 leading zeros: no code
        {"00000000000000000000000000000000 1", 'u', 0, -1, true},
        {"1", 's', 0, 1, false},
        {"010", 's', 1, 3, false},
        {"011", 's', -1, 3, false},
        {"00100", 's', 2, 5, false},
        {"00101", 's', -2, 5, false},
        {"0000000000000000 1 0000000000000001", 's', -32768, 33, false},
        {"1", 't', 0, 1, false},
        {"0", 't', 1, 1, false},
        {"011", 'T', 2, 3, false},
    };
    for (const Case& c : cases) {
        size_t count = 0;
        const std::vector<uint8_t> buf = pack(c.bits, &count);
        BitReader br(buf.data(), buf.size() - kTailPad, count);
        int64_t v = 0;
        if (c.kind == 'u') v = br.ue();
        if (c.kind == 's') v = br.se();
        if (c.kind == 't') v = br.te(1);
        if (c.kind == 'T') v = br.te(3);
        EXPECT_EQ(br.error(), c.error) << c.bits;
        if (c.error) continue;
        EXPECT_EQ(v, c.value) << c.bits;
        EXPECT_EQ(static_cast<int>(br.pos()), c.length) << c.bits;
    }
}

TEST(H264Bits, ReadsPastTheEndGiveZerosAndAreSeen) {
    const std::vector<uint8_t> buf = pack("10110011 1");
    BitReader br(buf.data(), 2, 9);
    EXPECT_EQ(br.u(8), 0xB3u);
    EXPECT_TRUE(br.more_data());
    EXPECT_TRUE(br.u1());
    EXPECT_FALSE(br.more_data());
    EXPECT_FALSE(br.overrun());
    for (int i = 0; i < 100; ++i) EXPECT_EQ(br.u(32), 0u);  // far beyond the buffer: clamped, zeros
    EXPECT_TRUE(br.overrun());
    EXPECT_TRUE(br.error());
}

TEST(H264Nal, StartCodesAndEmulationPrevention) {
    // Two NAL units with 4- and 3-byte start codes, trailing zero bytes and
    // an emulation-prevention byte in the second.
    const std::vector<uint8_t> stream = {0x00, 0x00, 0x00, 0x01, 0x67, 0xAB, 0x80, 0x00, 0x00, 0x00, 0x00,
                                         0x01, 0x68, 0x00, 0x00, 0x03, 0x01, 0x00, 0x00, 0x03, 0x00, 0xC0};
    size_t pos = 0, len = 0;
    const uint8_t* nal = nullptr;
    ASSERT_TRUE(next_nal(stream.data(), stream.size(), &pos, &nal, &len));
    EXPECT_EQ(nal - stream.data(), 4);
    EXPECT_EQ(len, 3u);  // 67 AB 80: the zeros before the next start code are not part of it
    std::vector<uint8_t> rbsp;
    BitReader a = unescape(nal, len, rbsp);
    EXPECT_EQ(a.size_bits(), 8u);  // AB, then the stop bit of 80
    EXPECT_EQ(a.u(8), 0xABu);
    ASSERT_TRUE(next_nal(stream.data(), stream.size(), &pos, &nal, &len));
    EXPECT_EQ(nal[0], 0x68);
    BitReader b = unescape(nal, len, rbsp);
    // 00 00 03 01 00 00 03 00 C0 -> 00 00 01 00 00 00 C0; stop bit in C0's bit 6
    EXPECT_EQ(b.size_bits(), 6 * 8 + 1u);
    EXPECT_EQ(b.u(24), 0x000001u);
    EXPECT_EQ(b.u(24), 0x000000u);
    EXPECT_TRUE(b.u1());
    EXPECT_FALSE(b.more_data());
    EXPECT_FALSE(next_nal(stream.data(), stream.size(), &pos, &nal, &len));
}

}  // namespace
}  // namespace kplvc::codecs::h264
