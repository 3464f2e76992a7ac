// The MPEG-2 decoder keeps the standard's code tables as code; each must be
// the table of the shared tables folder, code word for code word. The scans
// are checked against the library's inverse scans.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kplvc.h"
#include "mpeg2/tables.h"
#include "support/code_lists.h"

namespace kplvc::codecs::mpeg2 {
namespace {

// A code word as its string of 0/1 and what it stands for.
using Row = std::pair<std::string, std::string>;

std::string bits_of(uint32_t code, int len) {
    std::string s;
    for (int i = len - 1; i >= 0; --i) s += ((code >> i) & 1) ? '1' : '0';
    return s;
}

template <size_t N>
std::vector<Row> rows_of(const VlcCode (&t)[N], std::string (*name)(int)) {
    std::vector<Row> r;
    for (const VlcCode& c : t) r.emplace_back(bits_of(c.code, c.len), name(c.value));
    std::sort(r.begin(), r.end());
    return r;
}

std::string number(int v) { return std::to_string(v); }
std::string increment(int v) {
    return v == kMbaEscape ? "escape" : (v == kMbaStuffing ? "stuffing" : std::to_string(v));
}
std::string flags(int v) {
    std::string s;
    for (int f : {kQuant, kForward, kBackward, kPattern, kIntra}) s += (v & f) ? "1 " : "0 ";
    return s;
}

// Rows "NAME code fields..." of mpeg2_mb_tables.txt, fields joined as the
// codec's names print them.
std::vector<Row> file_rows(const std::string& table, int fields) {
    std::ifstream in(codelists::table_path("mpeg2_mb_tables.txt"));
    std::vector<Row> r;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream s(line);
        std::string t, code;
        if (!(s >> t >> code) || t != table) continue;
        std::string v, f;
        for (int k = 0; k < fields && s >> f; ++k) v += fields == 1 ? f : f + " ";
        r.emplace_back(code, v);
    }
    std::sort(r.begin(), r.end());
    return r;
}

TEST(Mpeg2Tables, MacroblockLayerTablesAreTheStandards) {
    struct Case {
        const char* table;
        int fields;
        std::vector<Row> ours;
    } cases[] = {
        {"B1", 1, rows_of(kMbAddressIncrement, increment)},
        {"B2", 5, rows_of(kMbTypeI, flags)},
        {"B3", 5, rows_of(kMbTypeP, flags)},
        {"B4", 5, rows_of(kMbTypeB, flags)},
        {"B9", 1, rows_of(kCodedBlockPattern, number)},
        {"B10", 1, rows_of(kMotionCode, number)},
        {"B11", 1, rows_of(kDmVector, number)},
    };
    for (const Case& c : cases) {
        const std::vector<Row> file = file_rows(c.table, c.fields);
        ASSERT_FALSE(file.empty()) << "table " << c.table << " not found under " << codelists::table_path("");
        EXPECT_EQ(c.ours, file) << c.table;
    }
}

TEST(Mpeg2Tables, BlockTablesAreTheStandards) {
    auto ours_dc = [](const VlcCode* t, int n) {
        std::vector<Row> r;
        for (int i = 0; i < n; ++i) r.emplace_back(bits_of(t[i].code, t[i].len), std::to_string(t[i].value));
        std::sort(r.begin(), r.end());
        return r;
    };
    auto file_dc = [](const char* which) {
        std::vector<Row> r;
        for (const codelists::Code& c : codelists::read_dc(which))
            r.emplace_back(c.bits, std::to_string(c.v1));
        std::sort(r.begin(), r.end());
        return r;
    };
    auto ours_rl = [](const RunLevelCode* t) {
        std::vector<Row> r;
        for (int i = 0; i < 113; ++i)
            r.emplace_back(bits_of(t[i].code, t[i].len),
                           std::to_string(t[i].run) + " " + std::to_string(t[i].level));
        std::sort(r.begin(), r.end());
        return r;
    };
    auto file_rl = [](const char* name) {
        std::vector<Row> r;
        for (const codelists::Code& c : codelists::read_rl(name))
            r.emplace_back(c.bits, std::to_string(c.v1) + " " + std::to_string(c.v2));
        std::sort(r.begin(), r.end());
        return r;
    };
    EXPECT_EQ(ours_dc(kDcSizeLuma, 12), file_dc("B12"));
    EXPECT_EQ(ours_dc(kDcSizeChroma, 12), file_dc("B13"));
    EXPECT_EQ(ours_rl(kDctCoefZero), file_rl("mpeg2_dct_coef_b14.txt"));
    EXPECT_EQ(ours_rl(kDctCoefOne), file_rl("mpeg2_dct_coef_b15.txt"));

    std::ifstream in(codelists::table_path("mpeg2_default_matrices.txt"));
    std::vector<int> intra;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream s(line);
        std::string t;
        int row, v;
        if (!(s >> t >> row) || t != "intra") continue;
        while (s >> v) intra.push_back(v);
    }
    EXPECT_EQ(intra, std::vector<int>(kDefaultIntraMatrix, kDefaultIntraMatrix + 64));
}

TEST(Mpeg2Tables, ScansAreTheLibrarys) {
    Kpl16s in[64], zz[64], alt[64];
    for (int i = 0; i < 64; ++i) in[i] = static_cast<Kpl16s>(i);
    ASSERT_EQ(kpliZigzagInvClassical_Compact_16s(in, 64, zz), kplStsNoErr);
    ASSERT_EQ(kpliZigzagInv_Vertical_16s(in, alt), kplStsNoErr);
    for (int i = 0; i < 64; ++i) {
        EXPECT_EQ(zz[kZigzagScan[i]], i);
        EXPECT_EQ(alt[kAlternateScan[i]], i);
    }
}

}  // namespace
}  // namespace kplvc::codecs::mpeg2
