// H.264 inter prediction kernels, SSE2: every luma size and position,
// chroma, copies and weighting in 128-bit registers, six-tap by shifts and
// adds. (<tmmintrin.h> only declares the SSSE3 paths of inter-inl.h, which
// this level never instantiates.)
#include <tmmintrin.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "h264/inter.h"

namespace kplvc::h264::x86::sse2 {
namespace {

#include "h264/x86/inter-inl.h"

// The first SIMD level installs every entry.
struct Level {
    static constexpr bool kSsse3 = false, kAvx2 = false;
    static constexpr bool luma(int, int) { return true; }
    static constexpr bool chroma(int) { return true; }
    static constexpr bool copy(int) { return true; }
    static constexpr bool weight(int) { return true; }
    static constexpr bool weight_small(int) { return true; }
    static constexpr bool average(int) { return true; }
};

}  // namespace

void upgrade_inter(InterKernels& k) { install<Level>(k); }

}  // namespace kplvc::h264::x86::sse2
