// MPEG-4 quarter-sample interpolation, AVX2: the SSSE3 shuffles build the
// taps, the filter runs on all 16 lanes of a row at once in 16-bit lanes of
// one 256-bit register. Only the 16-wide kernels change at this level.
#include <immintrin.h>

#include <cstring>
#include <utility>

#include "mpeg4/qpel.h"

namespace kplvc::mpeg4::x86::avx2 {

namespace {

// clip((20 (v3 + v4) - 6 (v2 + v5) + 3 (v1 + v6) - (v0 + v7) + bias) >> 5):
// sums within -3570..11730 (16 bits).
inline __m128i filter_bytes(const __m128i* v, __m128i bias) {
    auto w = [&](int k) { return _mm256_cvtepu8_epi16(v[k]); };
    const __m256i s01 = _mm256_add_epi16(w(3), w(4)), s12 = _mm256_add_epi16(w(2), w(5));
    const __m256i s23 = _mm256_add_epi16(w(1), w(6)), s34 = _mm256_add_epi16(w(0), w(7));
    const __m256i t = _mm256_add_epi16(_mm256_sub_epi16(_mm256_mullo_epi16(s01, _mm256_set1_epi16(20)),
                                                        _mm256_mullo_epi16(s12, _mm256_set1_epi16(6))),
                                       _mm256_sub_epi16(_mm256_mullo_epi16(s23, _mm256_set1_epi16(3)), s34));
    const __m256i r = _mm256_srai_epi16(_mm256_add_epi16(t, _mm256_broadcastsi128_si256(bias)), 5);
    return _mm_packus_epi16(_mm256_castsi256_si128(r), _mm256_extracti128_si256(r, 1));
}

#include "mpeg4/x86/qpel-inl.h"

}  // namespace

void upgrade_qpel(QpelKernels& k) {
    fill<16, 16>(k.put[q16x16], std::make_integer_sequence<int, 16>{});
    fill<16, 8>(k.put[q16x8], std::make_integer_sequence<int, 16>{});
}

}  // namespace kplvc::mpeg4::x86::avx2
