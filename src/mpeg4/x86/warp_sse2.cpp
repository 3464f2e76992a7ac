#include "mpeg4/gmc.h"

namespace kplvc::mpeg4::x86::sse2 {
void upgrade_warp(WarpKernels&) {}
}  // namespace kplvc::mpeg4::x86::sse2
