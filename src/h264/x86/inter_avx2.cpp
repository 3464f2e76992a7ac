// H.264 inter prediction kernels, AVX2: 16-wide luma blocks in one 256-bit
// register per row, 8-wide luma and chroma two rows per register, and the
// 16-wide weighting. Only those are compiled and installed; narrower kernels
// keep the SSSE3 ones.
#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "h264/inter.h"

namespace kplvc::h264::x86::avx2 {
namespace {

#include "h264/x86/inter-inl.h"

#include "h264/x86/inter256-inl.h"

struct Level : Wide256 {
    static constexpr bool kSsse3 = true;
    static constexpr bool luma(int size, int pos) {
        return kLumaW[size] == 16 || (kLumaW[size] == 8 && pos != 0);
    }
    static constexpr bool chroma(int size) { return kChromaW[size] == 8; }
    static constexpr bool copy(int) { return false; }
    static constexpr bool weight(int width) { return width == 0; }
    static constexpr bool weight_small(int width) { return width == 0; }
    static constexpr bool average(int) { return false; }
};

}  // namespace

void upgrade_inter(InterKernels& k) { install<Level>(k); }

}  // namespace kplvc::h264::x86::avx2
