// The H.263 codec's view of a bit stream: the library's position form (byte
// pointer + bit offset, most significant bit first) over a copy of the
// stream followed by zero padding, so that every reader, the library's
// block decoders included, may look ahead without leaving the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kplvc.h"

namespace kplvc::codecs::h263 {

// Zero bytes after the stream: more than any reader's look-ahead (the
// library's block decoders read up to eight bytes past the current byte).
constexpr size_t kStreamPadding = 64;

class Bits {
public:
    Bits() = default;
    Bits(Kpl8u* begin, size_t size) : base_(begin), p_(begin), end_(begin + size) {}

    // The library's position: pass pos() and off() to its stream functions.
    Kpl8u** pos() { return &p_; }
    int* off() { return &off_; }

    uint32_t peek(int n) const {  // 1..32 bits
        uint64_t v;
        std::memcpy(&v, p_, 8);
        v = __builtin_bswap64(v) << off_;
        return static_cast<uint32_t>(v >> (64 - n));
    }
    void skip(int n) {
        const int t = off_ + n;
        p_ += t >> 3;
        off_ = t & 7;
    }
    uint32_t get(int n) {
        const uint32_t v = peek(n);
        skip(n);
        return v;
    }
    bool bit() { return get(1) != 0; }

    // Bits consumed from the start, and whether the position has run past
    // the end of the real data (into the padding).
    size_t tell() const { return static_cast<size_t>(p_ - base_) * 8 + static_cast<size_t>(off_); }
    size_t size_bits() const { return static_cast<size_t>(end_ - base_) * 8; }
    bool overrun() const { return p_ > end_ || (p_ == end_ && off_ > 0); }
    bool at_end() const { return tell() >= size_bits(); }
    void seek(size_t bit) {
        p_ = base_ + (bit >> 3);
        off_ = static_cast<int>(bit & 7);
    }
    void align() {
        if (off_) {
            ++p_;
            off_ = 0;
        }
    }

    // The bit position of the next start-code prefix (sixteen zeros and a
    // one: 0000 0000 0000 0000 1) at or after the current position, or
    // size_bits() when there is none. Sixteen zero bits always include a
    // whole zero byte, so only bytes next to a zero byte are examined.
    size_t next_start_code() const {
        const size_t total = size_bits();
        for (size_t bit = tell(); bit + 17 <= total;) {
            const size_t byte = bit >> 3;
            const Kpl8u* z = static_cast<const Kpl8u*>(
                std::memchr(base_ + byte, 0, static_cast<size_t>(end_ - (base_ + byte))));
            if (z == nullptr) return total;
            // A prefix containing zero byte z starts in byte z-1 or z.
            const size_t zb = static_cast<size_t>(z - base_);
            const size_t from = (zb > 0 ? zb - 1 : 0) * 8;
            for (size_t b = from > bit ? from : bit; b < (zb + 1) * 8 && b + 17 <= total; ++b) {
                uint64_t v;
                std::memcpy(&v, base_ + (b >> 3), 8);
                v = __builtin_bswap64(v) << (b & 7);
                if ((v >> 47) == 1) return b;
            }
            bit = (zb + 1) * 8;
        }
        return total;
    }

private:
    Kpl8u* base_ = nullptr;
    Kpl8u* p_ = nullptr;
    Kpl8u* end_ = nullptr;
    int off_ = 0;
};

// A private, padded copy of a stream.
inline std::vector<Kpl8u> padded_copy(const uint8_t* data, size_t size) {
    std::vector<Kpl8u> buf(size + kStreamPadding, 0);
    if (size) std::memcpy(buf.data(), data, size);
    return buf;
}

}  // namespace kplvc::codecs::h263
