// SSE2 block copies: one unaligned load and store per row.
#include <emmintrin.h>

#include "block/copy.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

// Row pointers advance by their steps (no per-row multiply); two rows per
// iteration so the loads of a pair issue together.
void copy8x8(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    const intptr_t ss = src_step, ds = dst_step;
    for (int y = 0; y < 8; y += 2, src += 2 * ss, dst += 2 * ds) {
        const __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src));
        const __m128i b = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + ss));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), a);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + ds), b);
    }
}

void copy16x16(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    const intptr_t ss = src_step, ds = dst_step;
    for (int y = 0; y < 16; y += 2, src += 2 * ss, dst += 2 * ds) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + ss));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), a);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + ds), b);
    }
}

}  // namespace

void upgrade_blockcopy(BlockCopyKernels& k) {
    k.copy8x8 = copy8x8;
    k.copy16x16 = copy16x16;
    upgrade_diff(k);
}

}  // namespace kplvc::block::x86::sse2
