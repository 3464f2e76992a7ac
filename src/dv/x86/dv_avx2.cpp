// AVX2 DV inverse quantisation, sixteen coefficients per step (same
// arithmetic as the SSE2 kernel: the high half of the product times 4).
#include <immintrin.h>

#include "dv/dv.h"

namespace kplvc::dv::x86::avx2 {
namespace {

void quant_inv(int16_t* block, const int16_t* q) {
    for (int i = 0; i < 64; i += 16) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(block + i));
        const __m256i m = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(block + i),
                            _mm256_slli_epi16(_mm256_mulhi_epi16(x, m), 2));
    }
}

}  // namespace

void upgrade_dv(DvKernels& k) { k.quant_inv = quant_inv; }

}  // namespace kplvc::dv::x86::avx2
