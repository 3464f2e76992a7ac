// AVX-512 (VL, BW) H.264 luma deblocking: the AVX2 code compiled with 32
// vector registers, so the 20 lines of a macroblock and the parameters of
// all four edges stay in registers. Chroma gains nothing from the extra
// registers (it measured slower than the AVX2 build): luma only.
#include <immintrin.h>

#include "core/arith.h"
#include "h264/deblock.h"

namespace kplvc::h264::x86::avx512 {
namespace {

#include "core/x86/transpose-inl.h"

#include "h264/x86/deblock-inl.h"

#include "h264/x86/deblock256-inl.h"

}  // namespace

void upgrade_deblock(DeblockKernels& k) {
    k.luma_ver = luma_ver<Hooks>;
    k.luma_hor = luma_hor<Hooks>;
}

}  // namespace kplvc::h264::x86::avx512
