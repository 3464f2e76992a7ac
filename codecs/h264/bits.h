// Bit reader over one NAL unit's payload (emulation-prevention bytes already
// removed), most significant bit first.
//
// The payload sits in a buffer with at least kTailPad zero bytes after it, so
// every read loads one unaligned 64-bit big-endian word and shifts: no
// per-bit loop and no end test on the hot path. A damaged unit may make the
// parser read past its end; the load position is then clamped into the zero
// tail (the reads return zeros) and overrun() reports it, which the slice
// parser checks once per macroblock.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kplvc::codecs::h264 {

constexpr size_t kTailPad = 16;

class BitReader {
public:
    BitReader() = default;
    // data[size .. size + kTailPad) must be readable zeros. `bits` is the
    // number of payload bits (the stop bit and what follows excluded).
    BitReader(const uint8_t* data, size_t size, size_t bits) : data_(data), bits_(bits), last_(size + 8) {}

    // The next 64 bits, first bit in bit 63. Only the top 57 are guaranteed
    // to be stream bits (the shift drops up to 7 of the loaded word).
    uint64_t peek64() const { return load64(data_, last_, pos_); }
    static uint64_t load64(const uint8_t* data, size_t last, size_t pos) {
        const size_t byte = std::min(pos >> 3, last);
        uint64_t w;
        std::memcpy(&w, data + byte, 8);
        if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
        return w << (pos & 7);
    }
    // n in 1..32
    uint32_t peek(int n) const { return static_cast<uint32_t>(peek64() >> (64 - n)); }
    void skip(int n) { pos_ += static_cast<size_t>(n); }
    uint32_t u(int n) {
        if (n == 0) return 0;
        const uint32_t v = peek(n);
        pos_ += static_cast<size_t>(n);
        return v;
    }
    bool u1() {
        const bool b = (peek64() >> 63) != 0;
        ++pos_;
        return b;
    }

    // Exp-Golomb ue(v): up to 31 leading zeros (values up to 2^32 - 2);
    // more sets the error flag and returns 0.
    uint32_t ue() {
        const uint64_t w = peek64();
        const int lz = std::countl_zero(w | 1);
        if (lz <= 28) {  // 2 * lz + 1 <= 57 bits are in w
            const int len = 2 * lz + 1;
            pos_ += static_cast<size_t>(len);
            return static_cast<uint32_t>((w >> (64 - len)) - 1);
        }
        if (lz > 31) {
            error_ = true;
            pos_ += 32;
            return 0;
        }
        pos_ += static_cast<size_t>(lz) + 1;
        const uint64_t rest = u(lz);
        return static_cast<uint32_t>((uint64_t{1} << lz) - 1 + rest);
    }
    // se(v): codeNum k maps to (-1)^(k+1) * ceil(k / 2).
    int32_t se() {
        const uint32_t k = ue();
        const int32_t m = static_cast<int32_t>((k >> 1) + (k & 1));
        return (k & 1) ? m : -m;
    }
    // te(v) with range 1 is one inverted bit; larger ranges are ue(v).
    uint32_t te(int range) {
        if (range == 1) return u1() ? 0 : 1;
        return ue();
    }

    size_t pos() const { return pos_; }
    void seek(size_t pos) { pos_ = pos; }
    const uint8_t* data() const { return data_; }
    size_t last() const { return last_; }
    size_t size_bits() const { return bits_; }
    // The standard's more_rbsp_data(): payload bits remain before the stop bit.
    bool more_data() const { return pos_ < bits_; }
    size_t left() const { return pos_ < bits_ ? bits_ - pos_ : 0; }
    bool overrun() const { return pos_ > bits_; }
    bool error() const { return error_ || pos_ > bits_; }
    void set_error() { error_ = true; }
    bool byte_aligned() const { return (pos_ & 7) == 0; }
    void align() { pos_ = (pos_ + 7) & ~size_t{7}; }
    const uint8_t* byte_ptr() const { return data_ + std::min(pos_ >> 3, last_); }

private:
    const uint8_t* data_ = nullptr;
    size_t bits_ = 0, last_ = 0, pos_ = 0;
    bool error_ = false;
};

}  // namespace kplvc::codecs::h264
