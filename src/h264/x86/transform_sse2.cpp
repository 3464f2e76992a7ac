// SSE2 kernels of the H.264 4x4 transforms and quantisers (the shared
// 128-bit code in transform-inl.h, legacy SSE encoding).
#include <emmintrin.h>

#include <cstring>

#include "h264/transform.h"
#include "kplvc.h"

namespace kplvc::h264::x86::sse2 {
namespace {

#include "h264/x86/transform-inl.h"

}  // namespace

void upgrade_xform(XformKernels& k) {
    k.dequant_residual = dequant_residual;
    k.dequant_residual_add = dequant_residual_add;
    k.add_dc = add_dc;
    k.dequant_luma_dc = dequant_luma_dc;
    k.forward4x4 = forward4x4;
    k.transform_quant_residual = transform_quant_residual;
    k.transform_quant_luma_dc = transform_quant_luma_dc;
    k.transform_quant_chroma_dc = transform_quant_chroma_dc;
}

}  // namespace kplvc::h264::x86::sse2
