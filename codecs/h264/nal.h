// Annex B byte streams: finding NAL units between start codes and turning a
// NAL unit's bytes into its payload (RBSP) for the bit reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bits.h"

namespace kplvc::codecs::h264 {

enum NalType : int {
    kNalSlice = 1,
    kNalPartitionA = 2,
    kNalPartitionB = 3,
    kNalPartitionC = 4,
    kNalIdr = 5,
    kNalSei = 6,
    kNalSps = 7,
    kNalPps = 8,
    kNalAud = 9,
    kNalEndSeq = 10,
    kNalEndStream = 11,
    kNalFiller = 12,
};

// The next NAL unit at or after *pos: its bytes (header byte first, without
// the start code and without trailing zero bytes) in [*nal, *nal + *len).
// Advances *pos past it; false when no NAL unit is left.
bool next_nal(const uint8_t* data, size_t size, size_t* pos, const uint8_t** nal, size_t* len);

// The payload of a NAL unit without its header byte, emulation-prevention
// bytes (the 03 of 00 00 03) removed, into `out` followed by kTailPad zero
// bytes. Returns a reader positioned at the first payload bit whose size
// ends before the stop bit (rbsp_stop_one_bit).
BitReader unescape(const uint8_t* nal, size_t len, std::vector<uint8_t>& out);

}  // namespace kplvc::codecs::h264
