#include "core/dispatch.h"
#include "core/vector.h"
#include "h264/deblock.h"
#include "h264/pred.h"

namespace kplvc {

// One line per kernel family; a new family adds its own line here.
static const FamilyInfo kFamilies[] = {
    {"vector", vector_level},
    {"h264pred", h264::pred_level},
    {"h264deblock", h264::deblock_level},
};

const FamilyInfo* families(int* count) {
    *count = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
    return kFamilies;
}

}  // namespace kplvc
