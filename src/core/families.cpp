#include "block/dct.h"
#include "core/dispatch.h"
#include "core/vector.h"
#include "h263/quant.h"
#include "h263/recon.h"
#include "dv/dv.h"

namespace kplvc {

// One line per kernel family; a new family adds its own line here.
static const FamilyInfo kFamilies[] = {
    {"vector", vector_level},
    {"h263recon", h263::recon_level},
    {"h263quant", h263::quant_level},
    {"dv", dv::dv_level},
    {"dct", block::dct_level},
};

const FamilyInfo* families(int* count) {
    *count = static_cast<int>(sizeof kFamilies / sizeof kFamilies[0]);
    return kFamilies;
}

}  // namespace kplvc
