// Fuzzes the DV segment decoder: the first 400 bytes of the input (shorter
// inputs padded with their own bytes repeated) as a segment, decoded with the
// standard or the tolerant table. The segment sits in a heap block of exactly
// 400 bytes and the table is cut to words 0..960, so ASan reports any read
// outside the segment or beyond the words the builder writes. On an error
// nothing may be written; on success the result must match the plain model.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dv/segment_model.h"
#include "dv/tables.h"
#include "kplvc.h"

namespace {

std::vector<uint32_t> cut_table(bool tolerant) {
    Kpl32u* t = kplvc::codecs::dv::build_table(tolerant);
    if (t == nullptr) abort();
    std::vector<uint32_t> words(t, t + 961);
    kpliFreeHuffmanTable_DV_32u(t);
    return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const std::vector<uint32_t> standard = cut_table(false), tolerant = cut_table(true);
    const std::vector<uint32_t>& table = (data[size - 1] & 1) ? tolerant : standard;
    std::vector<uint8_t> seg(KPLVC_DV_SEGMENT_BYTES);
    for (size_t i = 0; i < seg.size(); ++i) seg[i] = data[i % size];
    const int32_t* scans = kplvc::codecs::dv::kScans;

    std::vector<Kpl16s> out(1920, 0x5A5A);
    std::vector<Kpl32u> info(30, 0xC3C3C3C3u);
    const KplStatus st =
        kpliHuffmanDecodeSegment_DV_8u16s(seg.data(), table.data(), scans, out.data(), info.data());
    const kplvc::dvtest::ModelResult want = kplvc::dvtest::model_decode(seg.data(), table.data(), scans);
    if (st != want.status) abort();
    if (st != kplStsNoErr) {
        for (Kpl16s v : out)
            if (v != 0x5A5A) abort();
        for (Kpl32u v : info)
            if (v != 0xC3C3C3C3u) abort();
        return 0;
    }
    if (std::memcmp(out.data(), want.out, sizeof want.out) != 0) abort();
    if (std::memcmp(info.data(), want.info, sizeof want.info) != 0) abort();
    return 0;
}
