// MPEG-4 binary shape: the context-based arithmetic coder of ISO/IEC
// 14496-2 7.5.3 (decoder and the matching encoder, with their exact 32-bit
// register arithmetic), the intra and inter BAB contexts, and the tables.
#pragma once

#include <cstdint>

#include "kplvc.h"

namespace kplvc::mpeg4 {

extern const uint16_t kCaeIntraProb[1024];  // P(0) of each intra context, /65536
extern const uint16_t kCaeInterProb[512];   // P(0) of each inter context, /65536
extern const char* const kBabTypeIntraCodes[81][3];
extern const char* const kBabTypeInterCodes[7][7];

// The registers are 32 bits wide. The code interval [L, L + R) lives in
// [0, 2^32); R starts at HALF - 1 and is doubled back to at least QUARTER
// after every symbol, so R >> 16 is at least 2^14 and a symbol of probability
// c/65536 takes (R >> 16) * c of it (at most 2^15 * 2^15: no overflow).
// L + R never exceeds 2^32 and is formed in 64 bits where it is compared.
//
// Bit stuffing: the coder never sends a long run of zeros (a start-code
// emulation). After the first 3 zeros of a code (kMaxHeading) and after any
// later run of 10 zeros (kMaxMiddle) it inserts a 1, which the decoder skips;
// at the end one more 1 is sent when the code ends in a run of at least
// kMaxMiddle - kMaxTrailing zeros, or contains no 1 at all.
constexpr uint32_t kCaeHalf = 0x80000000u;
constexpr uint32_t kCaeQuarter = 0x40000000u;
constexpr int kMaxHeading = 3;
constexpr int kMaxMiddle = 10;
constexpr int kMaxTrailing = 2;

// Reads bits at absolute positions from a byte pointer (position 0 is the
// most significant bit of byte 0).
class CaeDecoder {
public:
    CaeDecoder(const uint8_t* base, int32_t bit_offset) : p_(base), pos_(bit_offset) {
        // V is the 31 bits after the position, stuffed 1s skipped.
        for (int i = 0; i < 31; ++i) {
            const uint32_t b = bit(pos_ + i + extra_);
            v_ = (v_ << 1) | b;
            count_lookahead(b);
        }
        pipe_ = v_;
    }

    // One symbol whose probability of being 0 is c0/65536 (1..65535).
    int decode(uint32_t c0) {
        const uint32_t c1 = 65536u - c0;
        const int lps = c0 > c1 ? 1 : 0;  // the less probable symbol
        const uint32_t r_lps = (r_ >> 16) * (lps ? c1 : c0);
        int sym;
        if (v_ - l_ >= r_ - r_lps) {
            sym = lps;
            l_ += r_ - r_lps;
            r_ = r_lps;
        } else {
            sym = 1 - lps;
            r_ -= r_lps;
        }
        while (r_ < kCaeQuarter) {
            if (l_ >= kCaeHalf) {
                v_ -= kCaeHalf;
                l_ -= kCaeHalf;
            } else if (uint64_t{l_} + r_ > kCaeHalf) {
                v_ -= kCaeQuarter;
                l_ -= kCaeQuarter;
            }
            l_ <<= 1;
            r_ <<= 1;
            next_bit();
        }
        return sym;
    }

    // The code's last two or three bits, then the trailing stuffed 1 if the
    // encoder sent one; returns the position after the code.
    int32_t finish() {
        const uint32_t a = l_ >> 29;
        const uint32_t b = static_cast<uint32_t>((uint64_t{l_} + r_) >> 29);  // 8 when L + R = 2^32
        const int nbits = (b - a >= 4 || (b - a == 3 && (a & 1))) ? 2 : 3;
        // The decoder is one bit ahead of the encoder: the top bit of V is
        // already consumed, and it is the first of the tail's bits.
        for (int i = 1; i < nbits; ++i) next_bit();
        if (zeros_ < kMaxMiddle - kMaxTrailing || !nonzero_) ++pos_;
        return pos_;
    }

private:
    uint32_t bit(int32_t k) const { return (p_[k >> 3] >> (7 - (k & 7))) & 1u; }

    // Zero-run bookkeeping of the bits entering V: a stuffed 1 follows the
    // run, so later look-ahead positions skip one more bit.
    void count_lookahead(uint32_t b) {
        if (b != 0) {
            zeros_ahead_ = kMaxMiddle;
        } else if (--zeros_ahead_ == 0) {
            ++extra_;
            zeros_ahead_ = kMaxMiddle;
        }
    }

    // Consumes the bit at the top of the pipe (and the stuffed 1 after a
    // completed zero run) and shifts the next look-ahead bit into V.
    void next_bit() {
        if (((pipe_ >> 30) & 1u) == 0) {
            if (--zeros_ == 0) {
                ++pos_;
                --extra_;
                zeros_ = kMaxMiddle;
                nonzero_ = true;
            }
        } else {
            zeros_ = kMaxMiddle;
            nonzero_ = true;
        }
        ++pos_;
        const uint32_t b = bit(pos_ + 30 + extra_);
        v_ = (v_ << 1) | b;
        pipe_ = (pipe_ << 1) | b;
        count_lookahead(b);
    }

    const uint8_t* p_;
    int32_t pos_;
    int32_t extra_ = 0;  // stuffed bits inside the look-ahead window
    int zeros_ahead_ = kMaxHeading;
    int zeros_ = kMaxHeading;
    bool nonzero_ = false;
    uint32_t v_ = 0, pipe_ = 0;
    uint32_t l_ = 0, r_ = kCaeHalf - 1;
};

// The encoder, writing with the library's byte-oriented convention (the
// first byte keeps its bits before the offset; bytes are written whole).
class CaeEncoder {
public:
    CaeEncoder(uint8_t* p, int32_t bit_offset) : p_(p), off_(bit_offset) {
        p_[0] = static_cast<uint8_t>(p_[0] & (0xFF00u >> off_));
    }

    void encode(int sym, uint32_t c0) {
        const uint32_t c1 = 65536u - c0;
        const int lps = c0 > c1 ? 1 : 0;
        const uint32_t r_lps = (r_ >> 16) * (lps ? c1 : c0);
        if (sym == lps) {
            l_ += r_ - r_lps;
            r_ = r_lps;
        } else {
            r_ -= r_lps;
        }
        while (r_ < kCaeQuarter) {
            if (l_ >= kCaeHalf) {
                bit_plus_follow(1);
                l_ -= kCaeHalf;
            } else if (uint64_t{l_} + r_ <= kCaeHalf) {
                bit_plus_follow(0);
            } else {
                // The interval straddles the middle: the next bit is not
                // known yet; it is sent later, followed by its opposite.
                ++follow_;
                if (follow_ > max_follow) max_follow = follow_;
                l_ -= kCaeQuarter;
            }
            l_ <<= 1;
            r_ <<= 1;
        }
    }

    // Sends the shortest tail that identifies a value inside the interval;
    // returns the pointer and offset after the code.
    void finish(uint8_t** pp, int32_t* off) {
        const uint32_t a = l_ >> 29;
        const uint32_t b = static_cast<uint32_t>((uint64_t{l_} + r_) >> 29);
        int nbits;
        uint32_t bits;
        if (b - a >= 4 || (b - a == 3 && (a & 1))) {
            nbits = 2;
            bits = (a + 2) >> 1;
        } else {
            nbits = 3;
            bits = a + 1;
        }
        for (int i = nbits - 1; i >= 0; --i) bit_plus_follow(static_cast<int>((bits >> i) & 1u));
        if (zeros_ < kMaxMiddle - kMaxTrailing || !nonzero_) bit_plus_follow(1);
        *pp = p_;
        *off = off_;
    }

    // For the tests: how often the rarer paths ran.
    int stuffed = 0;     // stuffed 1s sent
    int max_follow = 0;  // longest run of undecided bits

private:
    void put(int b) {
        if (off_ == 0) p_[0] = 0;
        p_[0] = static_cast<uint8_t>(p_[0] | (b << (7 - off_)));
        if (++off_ == 8) {
            off_ = 0;
            ++p_;
        }
    }
    void bit_by_itself(int b) {
        put(b);
        if (b != 0) {
            nonzero_ = true;
            zeros_ = kMaxMiddle;
        } else if (--zeros_ == 0) {
            put(1);
            ++stuffed;
            nonzero_ = true;
            zeros_ = kMaxMiddle;
        }
    }
    // The first bit of every code is 0 (the interval starts below HALF) and
    // is not sent.
    void bit_plus_follow(int b) {
        if (first_)
            first_ = false;
        else
            bit_by_itself(b);
        for (; follow_ > 0; --follow_) bit_by_itself(1 - b);
    }

    uint8_t* p_;
    int32_t off_;
    bool first_ = true;
    int follow_ = 0;
    int zeros_ = kMaxHeading;
    bool nonzero_ = false;
    uint32_t l_ = 0, r_ = kCaeHalf - 1;
};

// A BAB with its border, as 0/1 bytes, in coding order (transposed when the
// scan is vertical). Pixel (x, y) of the BAB, -2 <= x, y < size + 2, is at
// px[(y + 2) * kBabStride + x + 2].
constexpr int kBabStride = 20;
struct BorderedBab {
    uint8_t px[20 * kBabStride];
    uint8_t& at(int x, int y) { return px[(y + 2) * kBabStride + x + 2]; }
    uint8_t at(int x, int y) const { return px[(y + 2) * kBabStride + x + 2]; }
};

// The 10-pixel intra context of pixel (x, y):
//           c9 c8 c7
//        c6 c5 c4 c3 c2
//        c1 c0  X
inline uint32_t intra_context(const BorderedBab& b, int x, int y) {
    return b.at(x - 1, y) | b.at(x - 2, y) << 1 | b.at(x + 2, y - 1) << 2 | b.at(x + 1, y - 1) << 3 |
           b.at(x, y - 1) << 4 | b.at(x - 1, y - 1) << 5 | b.at(x - 2, y - 1) << 6 | b.at(x + 1, y - 2) << 7 |
           b.at(x, y - 2) << 8 | b.at(x - 1, y - 2) << 9;
}

// The 9-pixel inter context: four pixels of the BAB being coded and five of
// the motion-compensated one (m), centred on the co-located pixel:
//     c3 c2 c1           c8
//     c0  X           c7 c6 c5
//                        c4
inline uint32_t inter_context(const BorderedBab& b, const BorderedBab& m, int x, int y) {
    return b.at(x - 1, y) | b.at(x + 1, y - 1) << 1 | b.at(x, y - 1) << 2 | b.at(x - 1, y - 1) << 3 |
           m.at(x, y + 1) << 4 | m.at(x + 1, y) << 5 | m.at(x, y) << 6 | m.at(x - 1, y) << 7 |
           m.at(x, y - 1) << 8;
}

}  // namespace kplvc::mpeg4
