// SSE2 block copies: one unaligned load and store per row.
#include <emmintrin.h>

#include "block/copy.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

void copy8x8(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    for (int y = 0; y < 8; ++y)
        _mm_storel_epi64(reinterpret_cast<__m128i*>(row_at(dst, dst_step, y)),
                         _mm_loadl_epi64(reinterpret_cast<const __m128i*>(row_at(src, src_step, y))));
}

void copy16x16(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    for (int y = 0; y < 16; ++y)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row_at(dst, dst_step, y)),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(row_at(src, src_step, y))));
}

}  // namespace

void upgrade_blockcopy(BlockCopyKernels& k) {
    k.copy8x8 = copy8x8;
    k.copy16x16 = copy16x16;
    upgrade_diff(k);
}

}  // namespace kplvc::block::x86::sse2
