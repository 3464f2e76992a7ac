// H.264 inter prediction kernels, AVX2: 16-wide luma blocks in one 256-bit
// register per row, 8-wide luma and chroma two rows per register, and the
// 16-wide weighting. Narrower kernels keep the SSSE3 ones.
#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "h264/inter.h"

#define KPLVC_INTER_SSSE3 1
#define KPLVC_INTER_AVX2 1

namespace kplvc::h264::x86::avx2 {

#include "h264/x86/inter_kernels.inc"

void upgrade_inter(InterKernels& k) {
    InterKernels t{};
    fill_table(t);
    for (int s = 0; s < kLumaSizes; ++s)
        for (int p = 0; p < 16; ++p)
            if (kLumaW[s] == 16 || (kLumaW[s] == 8 && p != 0)) k.luma[s][p] = t.luma[s][p];
    for (int s = 0; s < kChromaSizes; ++s)
        if (kChromaW[s] == 8) k.chroma[s] = t.chroma[s];
    k.weight[0] = t.weight[0];
    k.weight_small[0] = t.weight_small[0];
}

}  // namespace kplvc::h264::x86::avx2
