// A growing bit-stream buffer that the encoder writes with its own code
// words and the library's writers (which take the byte pointer / bit
// offset position), most significant bit first.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kplvc.h"

namespace kplvc::codecs {

class BitWriter {
public:
    // Makes room for at least `bytes` more bytes past the position, all zero
    // (the library's writers and put() rely on zeros after the position).
    void reserve(size_t bytes) {
        if (pos_ + bytes + 16 > buf_.size()) buf_.resize((pos_ + bytes + 16) * 2, 0);
    }
    void put(uint32_t code, int n) {  // 1..32 bits
        const uint64_t v = (static_cast<uint64_t>(code) << (64 - n)) >> off_;
        for (int i = 0; 8 * i < off_ + n; ++i)
            buf_[pos_ + static_cast<size_t>(i)] |= static_cast<uint8_t>(v >> (56 - 8 * i));
        pos_ += static_cast<size_t>((off_ + n) >> 3);
        off_ = (off_ + n) & 7;
    }
    void align() {  // zero bits up to the next byte boundary
        if (off_) {
            ++pos_;
            off_ = 0;
        }
    }
    size_t bits() const { return pos_ * 8 + static_cast<size_t>(off_); }
    // Drops what was written after bit position `bit` (a trial coding that
    // the encoder does not keep), leaving zeros behind the position again.
    void rewind(size_t bit) {
        const size_t p = bit >> 3, end = pos_ + 16 < buf_.size() ? pos_ + 16 : buf_.size();
        const int o = static_cast<int>(bit & 7);
        std::fill(buf_.begin() + static_cast<ptrdiff_t>(p + (o ? 1 : 0)),
                  buf_.begin() + static_cast<ptrdiff_t>(end), 0);
        if (o) buf_[p] &= static_cast<uint8_t>(0xFF00 >> o);
        pos_ = p;
        off_ = o;
    }
    // Copies what was written after bit position `bit` (with the bits of
    // its byte before it) / puts such a copy back at the same position,
    // ending at bit position `end`.
    void save(size_t bit, std::vector<uint8_t>* keep) const {
        keep->assign(buf_.begin() + static_cast<ptrdiff_t>(bit >> 3),
                     buf_.begin() + static_cast<ptrdiff_t>(pos_ + 1));
    }
    void restore(size_t bit, const std::vector<uint8_t>& keep, size_t end) {
        rewind(bit);
        reserve(keep.size());
        std::copy(keep.begin(), keep.end(), buf_.begin() + static_cast<ptrdiff_t>(bit >> 3));
        pos_ = end >> 3;
        off_ = static_cast<int>(end & 7);
    }

    // The library's position form; call done() after the library wrote.
    struct Position {
        Kpl8u* p;
        int off;
    };
    Position position() { return Position{buf_.data() + pos_, off_}; }
    void done(const Position& at) {
        pos_ = static_cast<size_t>(at.p - buf_.data());
        off_ = at.off;
    }

    // Moves the whole bytes written so far (the last partial byte too, when
    // aligned() was called) to out and starts again.
    void flush_to(std::vector<uint8_t>* out) {
        align();
        out->insert(out->end(), buf_.begin(), buf_.begin() + static_cast<ptrdiff_t>(pos_));
        std::fill(buf_.begin(),
                  buf_.begin() + static_cast<ptrdiff_t>(pos_ + 16 < buf_.size() ? pos_ + 16 : buf_.size()),
                  0);
        pos_ = 0;
    }

private:
    std::vector<uint8_t> buf_ = std::vector<uint8_t>(1 << 16, 0);
    size_t pos_ = 0;
    int off_ = 0;
};

}  // namespace kplvc::codecs
