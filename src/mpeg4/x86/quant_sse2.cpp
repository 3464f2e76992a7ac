// SSE2 MPEG-4 inverse quantisers: the shared lane kernel with the MPEG-4
// divisors (8 intra, 16 inter) and the flat inter path without a shift.
#include "mpeg2/x86/dequant_sse2.h"
#include "mpeg4/quant.h"

namespace kplvc::mpeg4::x86::sse2 {

using mpeg2::x86::sse2::dequant_block;

void upgrade_quant(QuantKernels& k) {
    k.dequant_intra = dequant_block<true, true, 3>;
    k.dequant_inter = dequant_block<false, true, 4>;
    k.dequant_flat = [](int16_t* b, int32_t qp, const int16_t*) {
        dequant_block<false, false, 0>(b, qp, nullptr);
    };
}

}  // namespace kplvc::mpeg4::x86::sse2
