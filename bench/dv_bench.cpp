// DV segment decoding on real segments: sixteen segments cut from DV files
// that ffmpeg's encoder made at its default quality (625/50 and 525/60),
// decoded in turn; the time is per segment.
#include <cstdint>
#include <fstream>
#include <iterator>
#include <vector>

#include "bench/bench_util.h"
#include "dv/tables.h"
#include "kplvc.h"

namespace {

std::vector<uint8_t> segments() {
    std::ifstream in(std::string(KPLVC_TEST_DATA_DIR) + "/dv_segments.bin", std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

void decode_segments(benchmark::State& st) {
    const std::vector<uint8_t> segs = segments();
    const size_t n = segs.size() / KPLVC_DV_SEGMENT_BYTES;
    Kpl32u* table = kplvc::codecs::dv::build_table();
    if (n == 0 || table == nullptr) {
        st.SkipWithError("tests/data/dv_segments.bin or the table is missing");
        kpliFreeHuffmanTable_DV_32u(table);
        return;
    }
    alignas(64) Kpl16s out[1920];
    Kpl32u info[30];
    size_t i = 0;
    for (auto _ : st) {
        const KplStatus s = kpliHuffmanDecodeSegment_DV_8u16s(segs.data() + i * KPLVC_DV_SEGMENT_BYTES, table,
                                                              kplvc::codecs::dv::kScans, out, info);
        benchmark::DoNotOptimize(s);
        benchmark::ClobberMemory();
        i = i + 1 == n ? 0 : i + 1;
    }
    kpliFreeHuffmanTable_DV_32u(table);
}

void register_all() { benchmark::RegisterBenchmark("dv/kpliHuffmanDecodeSegment_DV_8u16s", decode_segments); }
KPLVC_BENCH_REGISTER(register_all);

}  // namespace
