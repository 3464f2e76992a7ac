#include "kplvc.h"

namespace {
constexpr KplLibraryVersion kVersion = {
    4, 1, 10, 38, {'a', '6', 0, 0}, "libkplvca6.so", "v4.1", "Jul 22 2004",
};
}  // namespace

extern "C" KPLVC_API const KplLibraryVersion* kplvcGetLibVersion(void) { return &kVersion; }
