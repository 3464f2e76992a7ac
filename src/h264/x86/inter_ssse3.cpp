// H.264 inter prediction kernels, SSSE3: the horizontal six-tap and the
// chroma and byte weights through pmaddubsw. Only the kernels that change
// are compiled and installed: luma positions that use b (a horizontal tap),
// chroma and the byte-weight averages.
#include <tmmintrin.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "h264/inter.h"

namespace kplvc::h264::x86::ssse3 {
namespace {

#include "h264/x86/inter-inl.h"

struct Level {
    static constexpr bool kSsse3 = true, kAvx2 = false;
    static constexpr bool luma(int, int pos) { return pos % 4 != 0; }
    static constexpr bool chroma(int) { return true; }
    static constexpr bool copy(int) { return false; }
    static constexpr bool weight(int) { return false; }
    static constexpr bool weight_small(int) { return true; }
    static constexpr bool average(int) { return false; }
};

}  // namespace

void upgrade_inter(InterKernels& k) { install<Level>(k); }

}  // namespace kplvc::h264::x86::ssse3
