// The MPEG-4 decoder's bit reader: a byte pointer and a bit offset, the form
// the library's stream functions take, over a copy of the stream followed by
// zero padding (the library may look a few bytes ahead).
#pragma once

#include <cstddef>
#include <cstdint>

#include "kplvc.h"

namespace kplvc::codecs::mpeg4 {

class BitReader {
public:
    // [data, data + size) followed by at least kPadding readable zero bytes.
    static constexpr size_t kPadding = 32;

    BitReader() = default;
    BitReader(uint8_t* data, size_t size) : p_(data), begin_(data), end_(data + size) {}

    // The next n bits (0..25) without moving.
    uint32_t peek(int n) const {
        if (n == 0) return 0;
        const uint64_t v = (uint64_t{p_[0]} << 32) | (uint64_t{p_[1]} << 24) | (uint64_t{p_[2]} << 16) |
                           (uint64_t{p_[3]} << 8) | uint64_t{p_[4]};
        return static_cast<uint32_t>(v >> (40 - off_ - n)) & ((1u << n) - 1);
    }
    void skip(int n) {
        const int32_t q = off_ + n;
        p_ += q >> 3;
        off_ = q & 7;
        if (p_ > end_) p_ = end_, off_ = 0, over_ = true;
    }
    uint32_t get(int n) {
        const uint32_t v = peek(n);
        skip(n);
        return v;
    }
    uint32_t get_long(int n) {  // up to 32 bits
        if (n <= 16) return get(n);
        const uint32_t hi = get(n - 16);
        return (hi << 16) | get(16);
    }
    bool bit() { return get(1) != 0; }
    // A marker bit; a missing one only counts as damage.
    void marker() {
        if (!bit()) bad_marker_ = true;
    }

    void align() {
        if (off_) skip(8 - off_);
    }
    bool aligned() const { return off_ == 0; }
    // Bits left before the end of the data.
    int64_t left() const { return (end_ - p_) * 8 - off_; }
    bool overrun() const { return over_ || p_ > end_; }
    bool bad_marker() const { return bad_marker_; }
    void clear_marker() { bad_marker_ = false; }

    size_t byte_pos() const { return static_cast<size_t>(p_ - begin_); }
    int32_t bit_off() const { return off_; }
    void seek(size_t byte, int32_t bit = 0) {
        p_ = begin_ + (byte > static_cast<size_t>(end_ - begin_) ? static_cast<size_t>(end_ - begin_) : byte);
        off_ = bit;
    }

    // For the library's stream functions: they advance these on success.
    Kpl8u** pp() { return &p_; }
    Kpl32s* po() { return &off_; }
    // After a library call: an advance past the data is damage.
    bool check() {
        if (p_ > end_ || (p_ == end_ && off_ > 0)) {
            p_ = end_;
            off_ = 0;
            over_ = true;
            return false;
        }
        return true;
    }

    const uint8_t* begin() const { return begin_; }
    const uint8_t* end() const { return end_; }

private:
    uint8_t* p_ = nullptr;
    uint8_t* begin_ = nullptr;
    uint8_t* end_ = nullptr;
    int32_t off_ = 0;
    bool over_ = false;
    bool bad_marker_ = false;
};

}  // namespace kplvc::codecs::mpeg4
