// The fast MPEG-1/MPEG-2 block decoders on the x86 baseline: 16-byte clears
// and copies, and the count found from the top of the scan down, eight
// entries at a time with scalar bit tests.
#include <emmintrin.h>

#include <bit>
#include <cstdint>
#include <cstring>

#include "core/arith.h"
#include "mpeg2/block.h"

namespace kplvc::mpeg2::x86::sse2 {
namespace {

using mpeg2::BlockArgs;
using mpeg2::decode_ref;
using mpeg2::kIntraWeightAtDc;

// Scan entries 8g + k for k = lo..7, bit k set when the entry's position
// holds a non-zero value (nzt indexed by the transposed position).
KPLVC_INLINE uint32_t group_bits(uint64_t nzt, const int32_t* scan, int g, int lo) {
    uint32_t m = 0;
    for (int k = lo; k < 8; ++k) {
        const uint32_t p = static_cast<uint32_t>(scan[8 * g + k]);
        const uint32_t t = ((p & 7u) << 3) | ((p >> 3) & 7u);
        m |= static_cast<uint32_t>((nzt >> t) & 1u) << k;
    }
    return m;
}

int32_t count_top(uint64_t nzt, const int32_t* scan, int from) {
    for (int g = 7; g > 0; --g) {
        const uint32_t m = group_bits(nzt, scan, g, 0);
        if (m != 0) return 8 * g + std::bit_width(m);
    }
    return static_cast<int32_t>(std::bit_width(group_bits(nzt, scan, 0, from)));
}

KPLVC_INLINE void clear_block(int16_t* blk) {
    const __m128i z = _mm_setzero_si128();
    for (int k = 0; k < 8; ++k) _mm_storeu_si128(reinterpret_cast<__m128i*>(blk + 8 * k), z);
}

KPLVC_INLINE __m128i row8(const int16_t* blk, int k) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(blk + 8 * k));
}

// Bit k set where blk[k] != 0: eight values per compare, two compares per
// 16-bit movemask after a saturating pack (zero stays zero).
KPLVC_INLINE uint64_t nonzero_mask(const int16_t* blk) {
    const __m128i z = _mm_setzero_si128();
    uint64_t m = 0;
    for (int k = 0; k < 4; ++k) {
        const __m128i e =
            _mm_packs_epi16(_mm_cmpeq_epi16(row8(blk, 2 * k), z), _mm_cmpeq_epi16(row8(blk, 2 * k + 1), z));
        m |= uint64_t{static_cast<uint16_t>(_mm_movemask_epi8(e))} << (16 * k);
    }
    return ~m;
}

// The low bit of a sum is the exclusive or of the low bits.
KPLVC_INLINE uint32_t sum_parity(const int16_t* blk) {
    __m128i x = row8(blk, 0);
    for (int k = 1; k < 8; ++k) x = _mm_xor_si128(x, row8(blk, k));
    const uint32_t m = static_cast<uint32_t>(_mm_movemask_epi8(_mm_slli_epi16(x, 15))) & 0xAAAAu;
    return static_cast<uint32_t>(std::popcount(m)) & 1u;
}

#include "mpeg2/x86/block_fast-inl.h"

}  // namespace

void upgrade_block(mpeg2::BlockKernels& k) { upgrade_fast(k); }

}  // namespace kplvc::mpeg2::x86::sse2
