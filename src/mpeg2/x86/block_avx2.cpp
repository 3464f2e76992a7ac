// AVX2 scan mask for the MPEG-1/MPEG-2 block decoders: eight scan entries
// per step, each looking up its bit of the 64-bit non-zero mask with
// per-lane variable shifts.
#include <immintrin.h>

#include <cstdint>

#include "mpeg2/block.h"

namespace kplvc::mpeg2::x86::avx2 {
namespace {

// Bit i of the result is bit (scan[i] & 63) of nz. The mask is split into
// its 32-bit halves; a lane shifts the low half by p and the high half by
// p - 32. vpsrlvd gives 0 for counts of 32 or more, and p - 32 is a huge
// unsigned count for p < 32, so exactly one of the two shifts is live.
uint64_t scan_mask_avx2(uint64_t nz, const int32_t* scan) {
    const __m256i lo = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(nz)));
    const __m256i hi = _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(nz >> 32)));
    const __m256i m63 = _mm256_set1_epi32(63);
    const __m256i c32 = _mm256_set1_epi32(32);
    uint64_t out = 0;
    for (int k = 0; k < 8; ++k) {
        const __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(scan + 8 * k));
        const __m256i p = _mm256_and_si256(s, m63);
        const __m256i a = _mm256_srlv_epi32(lo, p);
        const __m256i b = _mm256_srlv_epi32(hi, _mm256_sub_epi32(p, c32));
        // Bit 0 of each lane to its sign bit, then one bit per lane.
        const __m256i bit = _mm256_slli_epi32(_mm256_or_si256(a, b), 31);
        const uint32_t m8 = static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(bit)));
        out |= uint64_t{m8} << (8 * k);
    }
    return out;
}

}  // namespace

void upgrade_block(BlockKernels& k) { k.scan_mask = scan_mask_avx2; }

}  // namespace kplvc::mpeg2::x86::avx2
