// SSE2 block copies: one unaligned load and store per row.
#include <emmintrin.h>

#include "block/copy.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

// Four rows from one base pointer each, [b], [b + s], [b + 2s], [b + 3s],
// with the bases a multiply away from the block's origin: advancing a pointer
// row by row makes every address wait for the previous add, a chain longer
// than the loads and stores themselves.
template <int W>
inline void copy_rows(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    const intptr_t ss = src_step, ds = dst_step, ss3 = 3 * ss, ds3 = 3 * ds;
    auto load = [](const uint8_t* p) {
        if constexpr (W == 16)
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        else
            return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
    };
    auto store = [](uint8_t* p, __m128i v) {
        if constexpr (W == 16)
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
        else
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
    };
#pragma GCC unroll 1
    for (int y = 0; y < W; y += 4) {
        const uint8_t* s = src + y * ss;
        uint8_t* d = dst + y * ds;
        const __m128i a = load(s), b = load(s + ss), c = load(s + 2 * ss), e = load(s + ss3);
        store(d, a);
        store(d + ds, b);
        store(d + 2 * ds, c);
        store(d + ds3, e);
    }
}

void copy8x8(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    copy_rows<8>(src, src_step, dst, dst_step);
}

void copy16x16(const uint8_t* src, int32_t src_step, uint8_t* dst, int32_t dst_step) {
    copy_rows<16>(src, src_step, dst, dst_step);
}

}  // namespace

void upgrade_blockcopy(BlockCopyKernels& k) {
    k.copy8x8 = copy8x8;
    k.copy16x16 = copy16x16;
    upgrade_diff(k);
}

}  // namespace kplvc::block::x86::sse2
