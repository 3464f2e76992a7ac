#include "core/dispatch.h"
#include "core/vector.h"
#include "mpeg2/quant.h"
#include "mpeg4/quant.h"

namespace kplvc {

// One line per kernel family; a new family adds its own line here.
static const FamilyInfo kFamilies[] = {
    {"vector", vector_level},
    {"mpeg2quant", mpeg2::quant_level},
    {"mpeg4quant", mpeg4::quant_level},
};

const FamilyInfo* families(int* count) {
    *count = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
    return kFamilies;
}

}  // namespace kplvc
