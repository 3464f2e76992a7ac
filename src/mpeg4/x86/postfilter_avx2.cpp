// AVX2 MPEG-4 deblocking of a horizontal edge across two blocks: sixteen
// columns in the 16-bit lanes of one register.
#include <immintrin.h>

#include "mpeg4/postfilter.h"

namespace kplvc::mpeg4::x86::avx2 {
namespace {

#include "core/x86/lanes256-inl.h"
#include "mpeg4/x86/postfilter-inl.h"

void deblock_hor16(uint8_t* p, int32_t step, int32_t qp0, int32_t qp1) {
    uint8_t* top = p - 5 * static_cast<intptr_t>(step);
    __m256i v[10];
    for (int i = 0; i < 10; ++i)
        v[i] = _mm256_cvtepu8_epi16(
            _mm_loadu_si128(reinterpret_cast<const __m128i*>(top + i * static_cast<intptr_t>(step))));
    const __m256i q = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_set1_epi16(static_cast<short>(qp0))),
                                              _mm_set1_epi16(static_cast<short>(qp1)), 1);
    DeblockLanes<Lanes256>::filter(v, q);
    for (int i = 1; i <= 8; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(top + i * static_cast<intptr_t>(step)),
                         _mm_packus_epi16(_mm256_castsi256_si128(v[i]), _mm256_extracti128_si256(v[i], 1)));
}

}  // namespace

void upgrade_post(PostKernels& k) { k.deblock_hor16 = deblock_hor16; }

}  // namespace kplvc::mpeg4::x86::avx2
