// Matrix-engine inverse (transposed input) and its stores with SSE2.
#include <emmintrin.h>

#include <cstdint>

#include "block/dct.h"
#include "block/dct_consts.h"
#include "block/dct_ref.h"
#include "core/arith.h"

namespace kplvc::block::x86::sse2 {
namespace {

#include "block/x86/dct_aan_x86.inc"

}  // namespace

void upgrade_dct_aan(block::DctKernels& k) {
    k.aan = aan;
    k.aan_corner = aan_corner;
    k.put_16s = put_16s;
    k.put_u8 = put_u8;
    k.put_16s_p2 = put_16s_p2;
    k.put_u8_p2 = put_u8_p2;
}

}  // namespace kplvc::block::x86::sse2
