// AVX2 variance of a 16x16 block.
#include <immintrin.h>

#include "block/metrics.h"
#include "core/arith.h"

namespace kplvc::block::x86::avx2 {
namespace {

#include "core/x86/halfpel-inl.h"

#include "block/x86/metrics-inl.h"

inline int32_t hsum32(__m256i v) {
    __m128i x = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    x = _mm_add_epi32(x, _mm_unpackhi_epi64(x, x));
    x = _mm_add_epi32(x, _mm_shuffle_epi32(x, 0x55));
    return _mm_cvtsi128_si32(x);
}

// One row widened to sixteen 16-bit lanes: S accumulates in those lanes
// (16 rows of at most 255: 4080), Q through pmaddwd in eight 32-bit lanes
// (at most 16 * 2 * 255^2 = 2 080 800 each). Two Q accumulators keep the
// dependency chains short.
int32_t variance16x16(const uint8_t* p, int32_t ps) {
    __m256i s = _mm256_setzero_si256(), q0 = s, q1 = s;
    for (int y = 0; y < 16; y += 2) {
        const __m256i a = _mm256_cvtepu8_epi16(ld16(row_at(p, ps, y)));
        const __m256i b = _mm256_cvtepu8_epi16(ld16(row_at(p, ps, y + 1)));
        s = _mm256_add_epi16(s, _mm256_add_epi16(a, b));
        q0 = _mm256_add_epi32(q0, _mm256_madd_epi16(a, a));
        q1 = _mm256_add_epi32(q1, _mm256_madd_epi16(b, b));
    }
    const int32_t S = hsum32(_mm256_madd_epi16(s, _mm256_set1_epi16(1)));
    const int32_t Q = hsum32(_mm256_add_epi32(q0, q1));
    return Q - mul32w(S, S) / 256;
}

}  // namespace

void upgrade_var(MetricsKernels& k) { k.variance16x16 = variance16x16; }

}  // namespace kplvc::block::x86::avx2
