// H.264 inter prediction kernels, SSSE3: the horizontal six-tap and the
// chroma weights through pmaddubsw. Only the kernels that change are taken:
// luma positions that use b, and chroma.
#include <tmmintrin.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "h264/inter.h"

#define KPLVC_INTER_SSSE3 1

namespace kplvc::h264::x86::ssse3 {

#include "h264/x86/inter_kernels.inc"

void upgrade_inter(InterKernels& k) {
    InterKernels t{};
    fill_table(t);
    for (int s = 0; s < kLumaSizes; ++s)
        for (int p = 0; p < 16; ++p)
            if (p % 4 != 0) k.luma[s][p] = t.luma[s][p];  // every position with a horizontal tap
    for (int s = 0; s < kChromaSizes; ++s) k.chroma[s] = t.chroma[s];
    for (int i = 0; i < kAvgWidths; ++i) k.weight_small[i] = t.weight_small[i];
}

}  // namespace kplvc::h264::x86::ssse3
