// MPEG-4 quarter-sample interpolation, SSSE3: the mirrored filter taps of a
// row come from byte shuffles of the row's W+1 samples, the filter runs on
// 16-bit lanes (its sums stay within -3570..11730), results pack back with
// unsigned saturation. Rows first into a small buffer, then columns.
#include <tmmintrin.h>

#include <cstring>
#include <utility>

#include "mpeg4/qpel.h"

namespace kplvc::mpeg4::x86::ssse3 {

namespace {

// The 8-tap filter on eight 16-bit lanes of each pair sum.
inline __m128i filter16(__m128i s01, __m128i s_12, __m128i s_23, __m128i s_34, __m128i bias) {
    const __m128i t = _mm_add_epi16(
        _mm_sub_epi16(_mm_mullo_epi16(s01, _mm_set1_epi16(20)), _mm_mullo_epi16(s_12, _mm_set1_epi16(6))),
        _mm_sub_epi16(_mm_mullo_epi16(s_23, _mm_set1_epi16(3)), s_34));
    return _mm_srai_epi16(_mm_add_epi16(t, bias), 5);
}

// Filter of 16 byte lanes given the eight tap vectors v[k] (k = -3..4).
inline __m128i filter_bytes(const __m128i* v, __m128i bias) {
    const __m128i z = _mm_setzero_si128();
    auto pair = [&](int a, int b, bool high) {
        const __m128i x = high ? _mm_unpackhi_epi8(v[a], z) : _mm_unpacklo_epi8(v[a], z);
        const __m128i y = high ? _mm_unpackhi_epi8(v[b], z) : _mm_unpacklo_epi8(v[b], z);
        return _mm_add_epi16(x, y);
    };
    const __m128i lo =
        filter16(pair(3, 4, false), pair(2, 5, false), pair(1, 6, false), pair(0, 7, false), bias);
    const __m128i hi = filter16(pair(3, 4, true), pair(2, 5, true), pair(1, 6, true), pair(0, 7, true), bias);
    return _mm_packus_epi16(lo, hi);
}

#include "mpeg4/x86/qpel-inl.h"

}  // namespace

void upgrade_qpel(QpelKernels& k) {
    fill<16, 16>(k.put[q16x16], std::make_integer_sequence<int, 16>{});
    fill<16, 8>(k.put[q16x8], std::make_integer_sequence<int, 16>{});
    fill<8, 8>(k.put[q8x8], std::make_integer_sequence<int, 16>{});
}

}  // namespace kplvc::mpeg4::x86::ssse3
