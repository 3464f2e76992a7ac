// AVX-512 (VL, BW) H.264 luma deblocking: the AVX2 code compiled with 32
// vector registers, so the 20 lines of a macroblock and the parameters of
// all four edges stay in registers. As in the AVX2 file, the luma strong
// filter takes a whole 16-sample line in one register of 16-bit lanes.
#include <immintrin.h>

#include "core/arith.h"
#include "h264/deblock.h"

namespace kplvc::h264::x86::avx512 {
namespace {

// Chroma gains nothing from the extra registers here (it measured slower
// than the AVX2 build): the luma kernels only.
#define KPLVC_DEBLOCK_LUMA_ONLY
#include "h264/x86/deblock_avx2_body.inc"
#undef KPLVC_DEBLOCK_LUMA_ONLY

}  // namespace

void upgrade_deblock(DeblockKernels& k) {
    k.luma_ver = luma_ver;
    k.luma_hor = luma_hor;
}

}  // namespace kplvc::h264::x86::avx512
