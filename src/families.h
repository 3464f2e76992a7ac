// The registry of kernel families, for `kplvc info`: the core knows no
// family, so the list of them lives here, above every family.
#pragma once

#include "core/cpu.h"

namespace kplvc {

// One line of `kplvc info`: a family, or a group of its entries where the
// family's kernels come from different levels by design.
struct FamilyInfo {
    const char* name;
    cpu::Isa (*level)();  // the level of the kernels in use, derived from the table
};

// Every kernel family of the library, in the order `kplvc info` prints them.
const FamilyInfo* families(int* count);

}  // namespace kplvc
