// block_fast-inl.h: the fast MPEG-1/MPEG-2 block decoder.
//
// Per-ISA body: include it only inside the anonymous namespace of an x86/
// file's own namespace (kplvc::mpeg2::x86::<isa>), after core/arith.h and
// mpeg2/block.h, so that every file gets its own internal copy compiled
// with its own flags. The including file
// defines, before the #include (blocks of any alignment):
//   void clear_block(int16_t* dst);             64 zeros
//   uint64_t nonzero_mask(const int16_t* blk);  bit k: blk[k] != 0
//   uint32_t sum_parity(const int16_t* blk);    low bit of the sum
//   int32_t count_top(uint64_t nzt, const int32_t* scan, int from);
//     1 + the largest scan index i in from..63 whose raster position
//     p = scan[i] & 63 holds a non-zero value, with nzt indexed by the
//     transposed index 8 * (p & 7) + (p >> 3); 0 if there is none. It reads
//     scan entries from..63 only.
//
// Results are those of the reference decoder in block_decode.cpp, status,
// block, count, predictor and position alike; the tests compare the two.
//
// The coefficients are kept as a list of (index, value) while the block is
// read; the non-zero mask and the parity of the sum come from the list
// afterwards, and the caller's block is cleared and the list scattered into
// it only once the block has decoded. Nothing reads back the scattered values: a
// wide load of data just written by narrow stores waits until the stores
// have left the core, which would cost more than the whole of a sparse
// block. A caller's scan that repeats a position (a later coefficient
// replaces an earlier one) shows as fewer positions written than
// coefficients listed; such a block takes its mask and parity from the
// block itself.
//
// The reader: `win` holds the next bits of the stream from its most
// significant bit down, `avail` of them valid (the bits below are zero),
// and `next` is the word after them. A refill adds that word when fewer than
// 32 bits are left, so there are always 32 bits to look at and at most 63 in
// the window. Only then is a word read, which keeps every read within two
// words after the word of the last bit consumed: the look-ahead the decoders
// are allowed. No code word of a table level is longer than 24 bits here, so
// one refill per code word covers the code word and its sign bit, and one
// more covers an escape's fields (at most 22 bits). The refill is a branch:
// a branch-free one puts the word's shift and merge on the chain from one
// code word to the next, which costs more than the branch's misses.

#pragma once

#define KPLVC_MEMBER inline __attribute__((always_inline))
#define KPLVC_LAMBDA_INLINE __attribute__((always_inline))

enum class Step { coef, eob, error, other };

struct Window {
    uint64_t win;
    int32_t avail;
    const uint32_t* next;

    KPLVC_MEMBER void refill() {
        if (avail < 32) {
            win |= uint64_t{load32u(next)} << (32 - avail);
            ++next;
            avail += 32;
        }
    }
    // The top n bits, 1 <= n <= 32 (n <= avail).
    KPLVC_MEMBER uint32_t peek(uint32_t n) const { return static_cast<uint32_t>(win >> (64 - n)); }
    KPLVC_MEMBER void skip(uint32_t n) {
        win <<= n;
        avail -= static_cast<int32_t>(n);
    }
    KPLVC_MEMBER uint32_t take(uint32_t n) {
        const uint32_t v = peek(n);
        skip(n);
        return v;
    }
};

// A level of a caller's table that the fast reader handles: 1..24 bits.
KPLVC_INLINE bool level_ok(uint32_t b) { return b - 1u < 24u; }

// Walks a caller's table (first level already looked up as entry e with b
// bits) to its leaf, consuming the bits of every link level. Returns false
// for a level the fast reader does not handle (the caller falls back).
KPLVC_INLINE bool follow_links(Window& r, const int32_t* table, uint32_t& e, uint32_t& b) {
    while ((e & 0x80u) != 0) {
        r.skip(b);
        r.refill();
        const int32_t* sub = table + (e >> 8);
        b = static_cast<uint32_t>(sub[0]);
        if (!level_ok(b)) return false;
        e = static_cast<uint32_t>(sub[1 + r.peek(b)]);
    }
    return true;
}

// Reconstruction of a level of magnitude mag (1..32767) and sign neg (0 or
// -1) with weight w and scale q (1..112), as the reference computes it.
// Weights of 0..255 (the standards' range) take 32-bit magnitudes:
// (2 * 32767 + 1) * 112 * 255 < 2^31, and truncation toward zero is a shift
// of the magnitude. Other weights (any 16-bit value, negative ones flipping
// the sign) take the signed 64-bit path.
template <int V, bool Intra>
KPLVC_INLINE int32_t dequant_fast(int32_t mag, int32_t neg, int32_t q, int32_t w) {
    if (__builtin_expect(static_cast<uint32_t>(w) <= 255u, 1)) {
        const uint32_t twice = Intra ? 2u * static_cast<uint32_t>(mag) : 2u * static_cast<uint32_t>(mag) + 1u;
        uint32_t m = twice * static_cast<uint32_t>(q) * static_cast<uint32_t>(w);
        if constexpr (V == 1) {
            m >>= 4;
            m = m != 0 ? ((m - 1) | 1u) : 0u;  // oddification: an even magnitude moves toward zero
        } else {
            m >>= 5;
        }
        // The clamp to -2048..2047: magnitudes up to 2047, or 2048 below zero.
        const uint32_t top = 2047u - static_cast<uint32_t>(neg);
        m = m < top ? m : top;
        return (static_cast<int32_t>(m) ^ neg) - neg;
    }
    const int64_t level = (mag ^ neg) - neg;
    const int64_t twice = Intra ? 2 * level : 2 * level + (neg | 1);
    const int64_t prod = twice * q * w;
    int64_t r;
    if constexpr (V == 1) {
        r = prod / 16;
        const int64_t sr = (r > 0) - (r < 0);
        r -= (~r & 1) * sr;
    } else {
        r = prod / 32;
    }
    return static_cast<int32_t>(r < -2048 ? -2048 : (r > 2047 ? 2047 : r));
}

// The first-level entry e of a code word is the common case when it is a
// leaf of a run-level pair with a level of 1 or more and a run below 64 (so
// not the invalid marker, whose run would be 241) that gives back fewer bits
// than it looked up: then the code word and the sign bit after it are taken
// in one step. Bits 14 and 15 are the top bits of the run, bit 7 marks a
// link.
KPLVC_INLINE bool plain_pair(uint32_t e, uint32_t b1) {
    return static_cast<int32_t>(e) >= 0x10000 && (e & 0xC080u) == 0 && (e & 0xFFu) < b1;
}

// Every other entry: links to longer code words, EOB, escapes and errors.
// The window holds at least 32 bits; e is the first-level entry (b1 bits).
template <int V>
KPLVC_INLINE Step other_code(Window& r, const int32_t* table, uint32_t b1, uint32_t e, int32_t& run,
                             int32_t& level) {
    uint32_t b = b1;
    if ((e & 0x80u) != 0 && !follow_links(r, table, e, b)) return Step::other;
    if ((static_cast<int32_t>(e) >> 8) == 0xF0F1) return Step::error;
    const uint32_t u = e & 0xFFu;
    if (u >= b) return Step::other;  // not a leaf the table builder makes
    const uint32_t len = b - u;      // bits of the code word at this level
    const int32_t mag = static_cast<int32_t>(e) >> 16;
    const int32_t sym = static_cast<int32_t>((e >> 8) & 0xFFu);
    if (mag >= 1) {
        const uint32_t sign = static_cast<uint32_t>((r.win << len) >> 63);
        r.skip(len + 1);
        run = sym;
        level = sign != 0 ? -mag : mag;
        return Step::coef;
    }
    r.skip(len);
    if (mag == 0 && sym == KPLVC_RL_EOB) return Step::eob;
    if (mag != 0 || sym != KPLVC_RL_ESCAPE) return Step::error;
    r.refill();
    run = static_cast<int32_t>(r.take(6));
    if constexpr (V == 2) {
        const int32_t f = static_cast<int32_t>(r.take(12));
        level = f >= 2048 ? f - 4096 : f;
        if (level == 0 || level == -2048) return Step::error;
    } else {
        const int32_t f = static_cast<int32_t>(r.take(8));
        if (f == 0)
            level = static_cast<int32_t>(r.take(8));
        else if (f == 128)
            level = static_cast<int32_t>(r.take(8)) - 256;
        else
            level = f >= 128 ? f - 256 : f;
        if (level == 0 || level == -256) return Step::error;
    }
    return Step::coef;
}

// Raster position p to its index in the transposed block.
constexpr struct Transposed {
    uint8_t t[64];
    constexpr Transposed() : t() {
        for (int p = 0; p < 64; ++p) t[p] = static_cast<uint8_t>(((p & 7) << 3) | (p >> 3));
    }
} kTransposed;

// A null non-intra matrix stands for 16 everywhere.
alignas(64) constexpr int16_t kFlat16[64] = {16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                                             16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                                             16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
                                             16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16};

template <int V, bool Intra>
KplStatus decode_fast(const BlockArgs& a) {
    const int32_t* const table = a.pCoefTable;
    const uint32_t b1 = static_cast<uint32_t>(table[0]);
    if (!level_ok(b1)) return decode_ref(V, Intra, a);

    const uint32_t* const start = *a.ppBitStream;
    const int32_t off0 = *a.pOffset;  // 0..31: bit 31 - off0 of word 0 is next
    Window r;
    r.win = ((uint64_t{load32u(start)} << 32) | load32u(start + 1)) << (31 - off0);
    r.avail = 33 + off0;
    r.next = start + 2;

    // The coefficients in the order read: transposed index and value.
    uint8_t list_t[64];
    int16_t list_v[64];
    int32_t n = 0;
    int32_t qf = 0, dc = 0;
    int32_t i = Intra ? 0 : -1;

    if constexpr (Intra) {
        const int32_t* dct = a.pDCSizeTable;
        uint32_t b = static_cast<uint32_t>(dct[0]);
        if (!level_ok(b)) return decode_ref(V, Intra, a);
        uint32_t e = static_cast<uint32_t>(dct[1 + r.peek(b)]);
        if ((e & 0x80u) != 0 && !follow_links(r, dct, e, b)) return decode_ref(V, Intra, a);
        const int32_t size = static_cast<int32_t>(e) >> 8;
        if (size == 0xF0F1) return kplStsVLCErr;
        const uint32_t u = e & 0xFFu;
        if (u >= b) return decode_ref(V, Intra, a);
        r.skip(b - u);
        if (size < 0 || size > (V == 1 ? 8 : 11)) return kplStsVLCErr;
        int32_t diff = 0;
        if (size > 0) {
            r.refill();
            const int32_t v = static_cast<int32_t>(r.take(static_cast<uint32_t>(size)));
            diff = v >= (1 << (size - 1)) ? v : v - ((1 << size) - 1);
        }
        // The predictor plus the difference, kept to 16 bits.
        qf = wrap16(int32_t{*a.pDCPred} + diff);
        dc = clip3(-2048, 2047, qf * (8 >> a.dc_shift));
    }

    const int32_t* const scan = a.pScanTable;
    // An intra matrix is read from a copy whose entry 0 (never read from the
    // caller's matrix) weighs a coefficient that a caller's scan puts on
    // raster position 0.
    alignas(32) int16_t intra_w[64];
    const int16_t* wm = a.pQMatrix != nullptr ? a.pQMatrix : kFlat16;
    if constexpr (Intra) {
        intra_w[0] = kIntraWeightAtDc;
        std::memcpy(intra_w + 1, a.pQMatrix + 1, 63 * sizeof(int16_t));
        wm = intra_w;
    }
    const int32_t q = a.qp;
    const uint32_t sh1 = 64 - b1, b1p1 = b1 + 1;
    // Places a coefficient at scan index i + run + 1, dequantised. False
    // when the index passes 63.
    auto place = [&](int32_t run, int32_t mag, int32_t neg) KPLVC_LAMBDA_INLINE {
        i += run + 1;
        if (i > 63) return false;
        const uint32_t pos = static_cast<uint32_t>(scan[i]) & 63u;
        const int32_t v = dequant_fast<V, Intra>(mag, neg, q, wm[pos]);
        list_t[n] = kTransposed.t[pos];
        list_v[n] = static_cast<int16_t>(v);
        ++n;
        return true;
    };
    if constexpr (!Intra) {
        // The first-coefficient code word 1s: run 0, level +1 or -1.
        if (static_cast<int64_t>(r.win) < 0) {
            const int32_t neg = static_cast<int32_t>(static_cast<int64_t>(r.win << 1) >> 63);
            r.skip(2);
            place(0, 1, neg);
        }
    }
    for (;;) {
        r.refill();
        const uint32_t e = static_cast<uint32_t>(table[1 + (r.win >> sh1)]);
        int32_t run, mag, sign;
        if (__builtin_expect(plain_pair(e, b1), 1)) {
            const uint32_t len1 = b1p1 - (e & 0xFFu);  // the code word and its sign bit
            const int32_t neg =
                static_cast<int32_t>(static_cast<int64_t>(r.win << (len1 - 1)) >> 63);  // 0 or -1
            r.skip(len1);
            run = static_cast<int32_t>((e >> 8) & 0xFFu);
            mag = static_cast<int32_t>(e) >> 16;
            sign = neg;
        } else if ((e & 0xFFFFFF80u) == (KPLVC_RL_EOB << 8) && (e & 0xFFu) < b1 && (Intra || i >= 0)) {
            // End of block as a first-level leaf.
            r.skip(b1 - (e & 0xFFu));
            break;
        } else {
            int32_t level;
            const Step s = other_code<V>(r, table, b1, e, run, level);
            if (s == Step::eob) {
                if (!Intra && i < 0) return kplStsVLCErr;  // EOB first in a non-intra block
                break;
            }
            if (s == Step::error) return kplStsVLCErr;
            if (s == Step::other) return decode_ref(V, Intra, a);
            sign = level >> 31;
            mag = (level ^ sign) - sign;
        }
        if (!place(run, mag, sign)) return kplStsCoefCountErr;
    }

    // The block: cleared, then the list scattered into it, with the
    // positions written, those that hold 0 and the parity of the sum.
    int16_t* const dst = a.pDstBlock;
    clear_block(dst);
    uint64_t written = 0, zero = 0;
    uint32_t parity = 0;
    if constexpr (Intra) {
        dst[0] = static_cast<int16_t>(dc);
        written = 1;
        zero = dc == 0 ? 1u : 0u;
        parity = static_cast<uint32_t>(dc);
    }
    for (int32_t k = 0; k < n; ++k) {
        const uint32_t t = list_t[k];
        const int16_t v = list_v[k];
        dst[t] = v;
        written |= uint64_t{1} << t;
        if (v == 0) zero |= uint64_t{1} << t;
        parity ^= static_cast<uint32_t>(v);
    }
    uint64_t nzt;  // transposed indices holding a non-zero value
    if (__builtin_expect(std::popcount(written) == n + (Intra ? 1 : 0), 1)) {
        // Every position was written once: the list tells all.
        if constexpr (V == 2) {
            // Mismatch control: an even sum toggles the low bit of (7, 7).
            const uint32_t even = ~parity & 1u;
            const int16_t v63 = static_cast<int16_t>(dst[63] ^ static_cast<int16_t>(even));
            dst[63] = v63;
            written |= uint64_t{even} << 63;
            zero = (zero & ~(uint64_t{1} << 63)) | (uint64_t{v63 == 0} << 63);
        }
        nzt = written & ~zero;
    } else {
        // A caller's scan repeated a position: the block itself tells.
        if constexpr (V == 2) dst[63] = static_cast<int16_t>(dst[63] ^ (sum_parity(dst) ^ 1u));
        nzt = nonzero_mask(dst);
    }
    const int32_t count0 = count_top(nzt, scan, Intra ? 1 : 0);
    const int32_t count =
        Intra && count0 == 0 ? static_cast<int32_t>(nzt & 1u) : count0;  // index 0 is the DC

    // The bit after the block, counted from bit 31 of the first word.
    const int64_t at = (r.next - start) * int64_t{32} - r.avail;
    *a.pDstCount = count;
    if constexpr (Intra) *a.pDCPred = static_cast<int16_t>(qf);
    *a.ppBitStream = const_cast<Kpl32u*>(start + (at >> 5));
    *a.pOffset = 31 - static_cast<int32_t>(at & 31);
    return kplStsNoErr;
}

KplStatus fast_m1_inter(const BlockArgs& a) { return decode_fast<1, false>(a); }
KplStatus fast_m1_intra(const BlockArgs& a) { return decode_fast<1, true>(a); }
KplStatus fast_m2_inter(const BlockArgs& a) { return decode_fast<2, false>(a); }
KplStatus fast_m2_intra(const BlockArgs& a) { return decode_fast<2, true>(a); }

void upgrade_fast(mpeg2::BlockKernels& k) {
    k.decode[0][0] = fast_m1_inter;
    k.decode[0][1] = fast_m1_intra;
    k.decode[1][0] = fast_m2_inter;
    k.decode[1][1] = fast_m2_intra;
}

#undef KPLVC_MEMBER
#undef KPLVC_LAMBDA_INLINE
