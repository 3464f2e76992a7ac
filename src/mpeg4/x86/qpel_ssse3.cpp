#include "mpeg4/qpel.h"

namespace kplvc::mpeg4::x86::ssse3 {
void upgrade_qpel(QpelKernels&) {}
}  // namespace kplvc::mpeg4::x86::ssse3
