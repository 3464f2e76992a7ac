// Test helpers for the MPEG-1/MPEG-2 block coders: the callers' code lists
// read from the standards' tables in tests/data, the tables built
// from them, bit strings turned into words, and a plain model of the
// reconstruction arithmetic written independently of the library.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kplvc.h"
#include "support/code_lists.h"

namespace kplvc::test::mpeg2b {

using codelists::Code;
using codelists::make_list;
using codelists::read_dc;
using codelists::read_rl;

struct TableFree {
    void operator()(Kpl32s* t) const {
        Kpl32s* p = t;
        kpliVCHuffmanFree_32s(&p);
    }
};
using Table = std::unique_ptr<Kpl32s, TableFree>;

inline Table build(const std::vector<Kpl32s>& list, bool rl) {
    Kpl32s* t = nullptr;
    const KplStatus st =
        rl ? kpliVCHuffmanInitAllocRL_32s(list.data(), &t) : kpliVCHuffmanInitAlloc_32s(list.data(), &t);
    EXPECT_EQ(st, kplStsNoErr);
    return Table(t);
}

// Everything a test needs for one pair of run-level table and DC table.
struct Tables {
    std::vector<Kpl32s> b14_list, b15_list;
    Table b14, b15, b12, b13;
    std::vector<Kpl32s> enc14, enc15;
    Kpl32s dc12[12], dc13[12];
};

using codelists::dc_codes;

// Built once per test executable; read-only afterwards.
inline const Tables& tables() {
    static const Tables* t = [] {
        auto* x = new Tables;
        x->b14_list = make_list(read_rl("mpeg2_dct_coef_b14.txt"), true, {8, 8});
        x->b15_list = make_list(read_rl("mpeg2_dct_coef_b15.txt"), true, {8, 8});
        x->b14 = build(x->b14_list, true);
        x->b15 = build(x->b15_list, true);
        // Any layout serves the DC tables: three levels of 3 bits here.
        x->b12 = build(make_list(read_dc("B12"), false, {3, 3, 3, 3}), false);
        x->b13 = build(make_list(read_dc("B13"), false, {3, 3, 3, 3}), false);
        x->enc14.assign(KPLVC_RL_ENCODE_TABLE_SIZE, -1);
        x->enc15.assign(KPLVC_RL_ENCODE_TABLE_SIZE, -1);
        EXPECT_EQ(kpliCreateRLEncodeTable(x->b14_list.data(), x->enc14.data()), kplStsNoErr);
        EXPECT_EQ(kpliCreateRLEncodeTable(x->b15_list.data(), x->enc15.data()), kplStsNoErr);
        dc_codes(read_dc("B12"), x->dc12);
        dc_codes(read_dc("B13"), x->dc13);
        return x;
    }();
    return *t;
}

// A bit string ("01 10 10", spaces ignored) as words read from bit 31, with
// two zero words of look-ahead after it.
inline std::vector<Kpl32u> words_of(const std::string& bits) {
    std::vector<Kpl32u> w;
    int n = 0;
    for (char ch : bits) {
        if (ch != '0' && ch != '1') continue;
        if (n % 32 == 0) w.push_back(0);
        if (ch == '1') w.back() |= 1u << (31 - n % 32);
        ++n;
    }
    w.push_back(0);
    w.push_back(0);
    return w;
}

inline std::vector<Kpl32s> scan32(const uint8_t (&s)[64]) { return {s, s + 64}; }

inline constexpr uint8_t kZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                        12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                        35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                        58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};
inline constexpr uint8_t kAlternate[64] = {0,  8,  16, 24, 1, 9,  2,  10, 17, 25, 32, 40, 48, 56, 57, 49,
                                           41, 33, 26, 18, 3, 11, 4,  12, 19, 27, 34, 42, 50, 58, 35, 43,
                                           51, 59, 20, 28, 5, 13, 6,  14, 21, 29, 36, 44, 52, 60, 37, 45,
                                           53, 61, 22, 30, 7, 15, 23, 31, 38, 46, 54, 62, 39, 47, 55, 63};

// Reconstruction of one level, straight from the rules (exact 64-bit
// products, C++ division truncating toward zero).
inline int32_t model_dequant(int version, bool intra, int64_t level, int64_t q, int64_t w) {
    if (level == 0) return 0;
    const int64_t sgn = level > 0 ? 1 : -1;
    int64_t r;
    if (version == 1) {
        r = (intra ? 2 * level * q * w : (2 * level + sgn) * q * w) / 16;
        if (r % 2 == 0 && r != 0) r -= r > 0 ? 1 : -1;
    } else {
        r = (intra ? 2 * level * w * q : (2 * level + sgn) * w * q) / 32;
    }
    return static_cast<int32_t>(r < -2048 ? -2048 : (r > 2047 ? 2047 : r));
}

// One block through the decoder or encoder of `version` (1 or 2), the intra
// form with its DC predictor and table (and precision) or the non-intra one.
inline KplStatus decode_block(int version, bool intra, Kpl32u** p, Kpl32s* off, Kpl16s* blk, Kpl32s* count,
                              Kpl16s* pred, const Kpl32s* dct, const Kpl32s* coef, const Kpl32s* scan, int qp,
                              const Kpl16s* w, int prec) {
    if (version == 1)
        return intra
                   ? kpliReconstructDCTBlockIntra_MPEG1_32s(p, off, blk, count, pred, dct, coef, scan, qp, w)
                   : kpliReconstructDCTBlock_MPEG1_32s(p, off, blk, count, coef, scan, qp, w);
    return intra ? kpliReconstructDCTBlockIntra_MPEG2_32s(p, off, blk, count, pred, dct, coef, scan, qp, w,
                                                          prec)
                 : kpliReconstructDCTBlock_MPEG2_32s(p, off, blk, count, coef, scan, qp, w);
}
inline KplStatus encode_block(int version, bool intra, const Kpl16s* blk, Kpl32u** p, Kpl32s* f, Kpl16s* pred,
                              const Kpl32s* dc, const Kpl32s* rl, const Kpl32s* scan) {
    return intra ? kpliPutIntraBlock(blk, p, f, pred, dc, rl, scan, version)
                 : kpliPutNonIntraBlock(blk, p, f, rl, scan, version);
}

}  // namespace kplvc::test::mpeg2b
