// H.264 inter prediction kernels, SSE2: every luma size and position,
// chroma, copies and weighting in 128-bit registers, six-tap by shifts and adds.
#include <emmintrin.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "h264/inter.h"

namespace kplvc::h264::x86::sse2 {

#include "h264/x86/inter_kernels.inc"

void upgrade_inter(InterKernels& k) {
    InterKernels t{};
    fill_table(t);
    k = t;
}

}  // namespace kplvc::h264::x86::sse2
