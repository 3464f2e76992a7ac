#include "core/dispatch.h"
#include "core/vector.h"
#include "h264/transform.h"

namespace kplvc {

// One line per kernel family; a new family adds its own line here.
static const FamilyInfo kFamilies[] = {
    {"vector", vector_level},
    {"h264xform", h264::xform_level},
};

const FamilyInfo* families(int* count) {
    *count = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
    return kFamilies;
}

}  // namespace kplvc
