// The decoder's reader over the stream held as 32-bit words, most
// significant bit first: the form the library's block decoders read, so
// that a position passes between the two without copying.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kplvc::codecs::mpeg2 {

struct Bits {
    const uint32_t* words;  // the stream; at least two readable words after `end`
    size_t pos;             // next bit, counted from bit 31 of words[0]
    size_t end;             // the bit after the data this reader may use

    // The next n bits, 1 <= n <= 32, without moving.
    uint32_t peek(int n) const {
        const size_t w = pos >> 5;
        const uint64_t v = ((uint64_t{words[w]} << 32) | words[w + 1]) << (pos & 31);
        return static_cast<uint32_t>(v >> (64 - n));
    }
    void skip(int n) { pos += static_cast<size_t>(n); }
    uint32_t get(int n) {
        const uint32_t v = peek(n);
        pos += static_cast<size_t>(n);
        return v;
    }
    bool overrun() const { return pos > end; }
    size_t left() const { return pos < end ? end - pos : 0; }
};

}  // namespace kplvc::codecs::mpeg2
