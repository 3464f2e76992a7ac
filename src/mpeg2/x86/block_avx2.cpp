// The fast MPEG-1/MPEG-2 block decoders with AVX2 and BMI2: 32-byte clears
// and copies, shifts that need no count register, and the count found from
// the top of the scan down, eight entries per step with per-lane variable
// shifts of the non-zero mask.
#include <immintrin.h>

#include <bit>
#include <cstdint>
#include <cstring>

#include "core/arith.h"
#include "mpeg2/block.h"

namespace kplvc::mpeg2::x86::avx2 {
namespace {

using mpeg2::BlockArgs;
using mpeg2::decode_ref;
using mpeg2::kIntraWeightAtDc;

// Bit k of the result is bit t of nzt, with p = s[k] & 63 and t its
// transposed index ((p & 7) << 3) | (p >> 3), k = 0..7. The mask is split
// into its 32-bit halves; a lane shifts the low half by t and the high half
// by t - 32. vpsrlvd gives 0 for counts of 32 or more, and t - 32 is a huge
// unsigned count for t < 32, so exactly one of the two shifts is live.
KPLVC_INLINE uint32_t group_bits(__m256i lo, __m256i hi, const int32_t* s) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
    const __m256i seven = _mm256_set1_epi32(7);
    const __m256i t = _mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(v, seven), 3),
                                      _mm256_and_si256(_mm256_srli_epi32(v, 3), seven));
    const __m256i a = _mm256_srlv_epi32(lo, t);
    const __m256i b = _mm256_srlv_epi32(hi, _mm256_sub_epi32(t, _mm256_set1_epi32(32)));
    // Bit 0 of each lane to its sign bit, then one bit per lane.
    const __m256i bit = _mm256_slli_epi32(_mm256_or_si256(a, b), 31);
    return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(bit)));
}

int32_t count_top(uint64_t nzt, const int32_t* scan, int from) {
    const __m256i lo = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(nzt)));
    const __m256i hi = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(nzt >> 32)));
    for (int g = 7; g > 0; --g) {
        const uint32_t m = group_bits(lo, hi, scan + 8 * g);
        if (m != 0) return 8 * g + std::bit_width(m);
    }
    // Entries 1..8 when entry 0 must not be read (entry 8 has no hit, or
    // the loop would have returned): bit k stands for index k + 1.
    if (from != 0) {
        const uint32_t m = group_bits(lo, hi, scan + 1);
        return m != 0 ? 1 + std::bit_width(m) : 0;
    }
    return static_cast<int32_t>(std::bit_width(group_bits(lo, hi, scan)));
}

KPLVC_INLINE void clear_block(int16_t* blk) {
    const __m256i z = _mm256_setzero_si256();
    for (int k = 0; k < 4; ++k) _mm256_storeu_si256(reinterpret_cast<__m256i*>(blk + 16 * k), z);
}

KPLVC_INLINE __m256i row16(const int16_t* blk, int k) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(blk + 16 * k));
}

// 32 bits, one per value of blk[32h .. 32h + 31]: set where the value is 0.
// vpacksswb works within 128-bit halves; the 64-bit permute puts the four
// groups of eight back in order.
KPLVC_INLINE uint32_t zero_bits(const int16_t* blk, int h) {
    const __m256i z = _mm256_setzero_si256();
    const __m256i a = _mm256_cmpeq_epi16(row16(blk, 2 * h), z);
    const __m256i b = _mm256_cmpeq_epi16(row16(blk, 2 * h + 1), z);
    const __m256i ab = _mm256_permute4x64_epi64(_mm256_packs_epi16(a, b), 0xD8);
    return static_cast<uint32_t>(_mm256_movemask_epi8(ab));
}

KPLVC_INLINE uint64_t nonzero_mask(const int16_t* blk) {
    return ~((uint64_t{zero_bits(blk, 1)} << 32) | zero_bits(blk, 0));
}

// The low bit of a sum is the exclusive or of the low bits.
KPLVC_INLINE uint32_t sum_parity(const int16_t* blk) {
    const __m256i x = _mm256_xor_si256(_mm256_xor_si256(row16(blk, 0), row16(blk, 1)),
                                       _mm256_xor_si256(row16(blk, 2), row16(blk, 3)));
    // Bit 0 of each value to the top of its high byte; one bit per value.
    const uint32_t m = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_slli_epi16(x, 15))) & 0xAAAAAAAAu;
    return static_cast<uint32_t>(std::popcount(m)) & 1u;
}

#include "mpeg2/x86/block_fast-inl.h"

}  // namespace

void upgrade_block(mpeg2::BlockKernels& k) { upgrade_fast(k); }

}  // namespace kplvc::mpeg2::x86::avx2
