// Fuzzes the DV decoder on frames whose DIF block IDs are intact but whose
// contents (header bytes, STA/QNO, block areas) come from the input, and on
// the input itself as a stream. Byte 0 picks 525/60 or 625/50 and where the
// stream is cut. The decoder must return normally and read nothing outside
// the buffer (ASan), whatever it conceals.
#include <cstdint>
#include <cstring>
#include <vector>

#include "common/codec.h"

namespace {

bool sink(const kplvc::codecs::Picture&, void*) { return true; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const kplvc::codecs::Decoder* dec = kplvc::codecs::find_decoder("dv");
    if (dec == nullptr) __builtin_trap();
    kplvc::codecs::DecodeStats stats;
    dec->decode(data, size, {}, sink, nullptr, &stats);

    // One frame: every DIF block with its right ID, payload from the input.
    const bool is625 = data[0] & 1;
    const int seqs = is625 ? 12 : 10;
    std::vector<uint8_t> f(static_cast<size_t>(seqs) * 150 * 80);
    size_t k = 1;
    for (int s = 0; s < seqs; ++s)
        for (int i = 0; i < 150; ++i) {
            uint8_t* b = f.data() + (static_cast<size_t>(s) * 150 + i) * 80;
            int section, number;
            if (i == 0) {
                section = 0, number = 0;
            } else if (i < 3) {
                section = 1, number = i - 1;
            } else if (i < 6) {
                section = 2, number = i - 3;
            } else if ((i - 6) % 16 == 0) {
                section = 3, number = (i - 6) / 16;
            } else {
                section = 4, number = i - 7 - (i - 6) / 16;
            }
            b[0] = static_cast<uint8_t>(section << 5 | 0x10);
            b[1] = static_cast<uint8_t>(s << 4 | 0x07);
            b[2] = static_cast<uint8_t>(number);
            for (int j = 3; j < 80; ++j, ++k) b[j] = data[k % size];
        }
    f[3] = static_cast<uint8_t>(is625 ? 0xBF : 0x3F);
    f[4] = static_cast<uint8_t>(0xF8 | (data[0] >> 1 & 1));
    const size_t cut = f.size() - (data[0] >> 2) * 997 % f.size();
    stats = {};
    dec->decode(f.data(), cut, {}, sink, nullptr, &stats);
    return 0;
}
