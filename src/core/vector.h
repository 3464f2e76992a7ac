// Kernels behind the one-dimensional vector functions (fills, copies,
// scaling, thresholds).
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/cpu.h"

namespace kplvc {

// Lengths at which the entry points switch to cache-bypassing kernels.
constexpr int32_t kSet8StreamLen = 20480;    // bytes
constexpr int32_t kSet16StreamLen = 10240;   // elements (20480 bytes)
constexpr int32_t kCopyStreamLen = 8192;     // bytes: streaming stores
constexpr int32_t kCopyPrefetchLen = 16384;  // bytes: + non-temporal prefetch

struct VectorKernels {
    void (*set8)(uint8_t* dst, uint8_t val, size_t len);
    void (*set8_stream)(uint8_t* dst, uint8_t val, size_t len);
    void (*set16)(int16_t* dst, int16_t val, size_t len);
    void (*set16_stream)(int16_t* dst, int16_t val, size_t len);
    void (*copy8)(const uint8_t* src, uint8_t* dst, size_t len);
    void (*copy8_stream)(const uint8_t* src, uint8_t* dst, size_t len);
    void (*copy8_stream_prefetch)(const uint8_t* src, uint8_t* dst, size_t len);
    // x = sat(x * val)                                   (scale factor 0)
    void (*mulc_sat)(int16_t* p, size_t len, int16_t val);
    // x = sat(sat(x * val) << n), n in 1..15            (scale factor -n)
    void (*mulc_up)(int16_t* p, size_t len, int16_t val, int n);
    // x = sat(round_half_even((x * val) / 2^s)), s in 1..30
    void (*mulc_down)(int16_t* p, size_t len, int16_t val, int s);
    // x = 0, 32767 or -32768 by the sign of x * val     (scale factor < -15)
    void (*mulc_sign)(int16_t* p, size_t len, int16_t val);
    // x = min(x, level) / x = max(x, level)
    void (*threshold_gt)(int16_t* p, size_t len, int16_t level);
    void (*threshold_lt)(int16_t* p, size_t len, int16_t level);
};

VectorKernels vector_kernels_for(cpu::Isa isa);
const VectorKernels& vector_kernels();

namespace vector::x86::sse2 {
void upgrade_vector(VectorKernels& k);
}
namespace vector::x86::avx2 {
void upgrade_vector(VectorKernels& k);
}

}  // namespace kplvc
