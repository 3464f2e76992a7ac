// AVX2 H.264 deblocking: the byte-lane filters of the SSE2 file (with a
// one-instruction blend), but the luma strong filter takes a whole 16-sample
// line in one register of 16-bit lanes.
#include <immintrin.h>

#include "core/arith.h"
#include "h264/deblock.h"

namespace kplvc::h264::x86::avx2 {
namespace {

#include "core/x86/transpose-inl.h"

#include "h264/x86/deblock-inl.h"

#include "h264/x86/deblock256-inl.h"

}  // namespace

void upgrade_deblock(DeblockKernels& k) {
    k.luma_ver = luma_ver<Hooks>;
    k.luma_hor = luma_hor<Hooks>;
    k.chroma_ver = chroma_ver<Hooks>;
    k.chroma_hor = chroma_hor<Hooks>;
}

}  // namespace kplvc::h264::x86::avx2
