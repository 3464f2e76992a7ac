#include "kplvc.h"

namespace {

#define KPLVC_STRING(x) #x
#define KPLVC_NUMBER(x) KPLVC_STRING(x)

// Everything comes from the KPLVC_VERSION_* lines of the public header.
constexpr KplLibraryVersion kVersion = {
    KPLVC_VERSION_MAJOR,
    KPLVC_VERSION_MINOR,
    KPLVC_VERSION_MAJOR_BUILD,
    KPLVC_VERSION_BUILD,
    KPLVC_VERSION_TARGET,
    "libkplvc" KPLVC_VERSION_TARGET ".so",
    "v" KPLVC_NUMBER(KPLVC_VERSION_MAJOR) "." KPLVC_NUMBER(KPLVC_VERSION_MINOR),
    KPLVC_VERSION_DATE,
};
static_assert(sizeof(KPLVC_VERSION_TARGET) <= sizeof kVersion.targetCpu,
              "the target name fills at most four bytes");

}  // namespace

extern "C" KPLVC_API const KplLibraryVersion* kplvcGetLibVersion(void) { return &kVersion; }
