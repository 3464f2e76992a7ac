// The four MPEG-1/MPEG-2 block decoders on fuzzed streams, with decoding
// tables built from the standards' code lists (tests/data).
//
// Input: byte 0 picks the decoder (version, intra), the run-level table
// (B-14 or B-15), the DC table (B-12 or B-13), the scan and whether the
// non-intra matrix is null; byte 1 the quantiser scale, byte 2 the start
// offset, byte 3 the DC precision and predictor; the rest is the stream.
// The stream sits at the very end of its own heap block followed by four
// zero words. A decoder may read up to the second word after the word of
// the last bit it consumed, and a zero tail can still be consumed: an intra
// block's DC takes "00" (luminance size 1) and its differential bit before
// the AC code that no run of zeros completes, so the last bit a decoder
// looks at can lie in the second tail word, and its look-ahead two words
// further. A read past the fourth word is past what any decoder may read.
//
// Checked: on error every output is as it was; on success the offset is in
// 0..31, the position moved forward, every value is in -2048..2047, the
// count is the one the block and scan define, an MPEG-2 block has an odd
// sum (mismatch control) and an MPEG-1 AC value is odd, 0 or -2048.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "kplvc.h"
#include "support/code_lists.h"

namespace {

using kplvc::codelists::Code;
using kplvc::codelists::read_dc;
using kplvc::codelists::read_rl;

Kpl32s* build(const std::vector<Code>& recs, bool rl, const std::vector<Kpl32s>& levels) {
    if (recs.empty()) abort();  // tables missing: nothing to fuzz
    const std::vector<Kpl32s> d = kplvc::codelists::make_list(recs, rl, levels);
    Kpl32s* t = nullptr;
    const KplStatus st =
        rl ? kpliVCHuffmanInitAllocRL_32s(d.data(), &t) : kpliVCHuffmanInitAlloc_32s(d.data(), &t);
    if (st != kplStsNoErr) abort();
    return t;
}

struct Tables {
    Kpl32s* rl[2];
    Kpl32s* dc[2];
    Kpl32s scan[2][64];
    Kpl16s w[64];
};

const Tables& tables() {
    static const Tables t = [] {
        Tables x;
        // Different level layouts: the results must not depend on them.
        x.rl[0] = build(read_rl("mpeg2_dct_coef_b14.txt"), true, {8, 8});
        x.rl[1] = build(read_rl("mpeg2_dct_coef_b15.txt"), true, {5, 6, 6});
        x.dc[0] = build(read_dc("B12"), false, {9});
        x.dc[1] = build(read_dc("B13"), false, {2, 4, 4});
        static const uint8_t zz[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                       12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                       35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                       58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};
        static const uint8_t alt[64] = {0,  8,  16, 24, 1, 9,  2,  10, 17, 25, 32, 40, 48, 56, 57, 49,
                                        41, 33, 26, 18, 3, 11, 4,  12, 19, 27, 34, 42, 50, 58, 35, 43,
                                        51, 59, 20, 28, 5, 13, 6,  14, 21, 29, 36, 44, 52, 60, 37, 45,
                                        53, 61, 22, 30, 7, 15, 23, 31, 38, 46, 54, 62, 39, 47, 55, 63};
        for (int i = 0; i < 64; ++i) {
            x.scan[0][i] = zz[i];
            x.scan[1][i] = alt[i];
            x.w[i] = static_cast<Kpl16s>(1 + (i * 37) % 255);
        }
        return x;
    }();
    return t;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const Tables& t = tables();
    const uint8_t sel = data[0];
    const int version = 1 + (sel & 1);
    const bool intra = (sel & 2) != 0;
    const Kpl32s* coef = t.rl[(sel >> 2) & 1];
    const Kpl32s* dct = t.dc[(sel >> 3) & 1];
    const Kpl32s* scan = t.scan[(sel >> 4) & 1];
    const Kpl16s* w = (!intra && (sel & 0x20)) ? nullptr : t.w;
    const int32_t qp = 1 + data[1] % (version == 1 ? 31 : 112);
    const Kpl32s start_off = data[2] & 31;
    const int32_t prec = data[3] & 3;
    Kpl16s pred = static_cast<Kpl16s>((data[3] >> 2) * 33);

    // The stream words, then the four words of tail described above, at
    // the end of a block of their own.
    const size_t nbytes = size - 4;
    const size_t nwords = (nbytes + 3) / 4;
    Kpl32u* buf = static_cast<Kpl32u*>(std::malloc((nwords + 4) * sizeof(Kpl32u)));
    if (buf == nullptr) return 0;
    std::memset(buf, 0, (nwords + 4) * sizeof(Kpl32u));
    if (nbytes != 0) std::memcpy(buf, data + 4, nbytes);

    Kpl16s blk[64];
    for (auto& v : blk) v = 0x7777;
    Kpl32s count = -99;
    const Kpl16s pred_in = pred;
    Kpl32u* p = buf;
    Kpl32s off = start_off;
    KplStatus st;
    if (version == 1)
        st = intra ? kpliReconstructDCTBlockIntra_MPEG1_32s(&p, &off, blk, &count, &pred, dct, coef, scan, qp,
                                                            w)
                   : kpliReconstructDCTBlock_MPEG1_32s(&p, &off, blk, &count, coef, scan, qp, w);
    else
        st = intra ? kpliReconstructDCTBlockIntra_MPEG2_32s(&p, &off, blk, &count, &pred, dct, coef, scan, qp,
                                                            w, prec)
                   : kpliReconstructDCTBlock_MPEG2_32s(&p, &off, blk, &count, coef, scan, qp, w);

    if (st != kplStsNoErr) {
        if (st != kplStsVLCErr && st != kplStsCoefCountErr) abort();
        if (p != buf || off != start_off || count != -99 || pred != pred_in) abort();
        for (Kpl16s v : blk)
            if (v != 0x7777) abort();
        std::free(buf);
        return 0;
    }
    if (off < 0 || off > 31) abort();
    const int64_t consumed = (p - buf) * int64_t{32} + (start_off - off);
    if (consumed <= 0 || p > buf + nwords + 1) abort();
    int32_t sum = 0;
    for (int i = 0; i < 64; ++i) {
        if (blk[i] < -2048 || blk[i] > 2047) abort();
        sum += blk[i];
        // Transposed index i holds raster position 8 * (i & 7) + (i >> 3).
        if (version == 1 && i != 0 && blk[i] != 0 && blk[i] != -2048 && (blk[i] & 1) == 0) abort();
    }
    if (version == 2 && (sum & 1) == 0) abort();
    int32_t want = 0;
    for (int i = 0; i < 64; ++i) {
        const int pos = (intra && i == 0) ? 0 : (scan[i] & 63);
        if (blk[8 * (pos & 7) + (pos >> 3)] != 0) want = i + 1;
    }
    if (count != want) abort();
    std::free(buf);
    return 0;
}
