#include "core/dispatch.h"
#include "core/vector.h"
#include "h264/inter.h"

namespace kplvc {

// One line per kernel family; a new family adds its own line here.
static const FamilyInfo kFamilies[] = {
    {"vector", vector_level},
    {"h264inter", h264::inter_level},
};

const FamilyInfo* families(int* count) {
    *count = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
    return kFamilies;
}

}  // namespace kplvc
