// The kernel-table pattern every family follows.
//
//   struct FooKernels { ... function pointers ... };
//   FooKernels foo_kernels_for(cpu::Isa isa);   // pure: scalar table, then
//                                               // each SIMD level up to isa
//                                               // overwrites what it improves
//   const FooKernels& foo_kernels();            // the table for this CPU
//
// foo_kernels() keeps its table in a function-local static: built once on
// first use (thread-safe), const afterwards. Tests and benchmarks call
// foo_kernels_for() for every level the CPU has.
#pragma once

#include "core/cpu.h"

namespace kplvc {

// The table for the running CPU, built once.
template <class Table, Table (*For)(cpu::Isa)>
const Table& active_table() {
    static const Table table = For(cpu::detected());
    return table;
}

// The highest level a family actually has variants for, capped by the CPU:
// what `kplvc info` reports for that family.
inline cpu::Isa level_in_use(cpu::Isa family_top) {
    const cpu::Isa d = cpu::detected();
    return static_cast<int>(family_top) < static_cast<int>(d) ? family_top : d;
}

// A family's report line for `kplvc info`.
struct FamilyInfo {
    const char* name;
    cpu::Isa (*level)();  // the ISA level whose kernels the family uses here
};

// Every kernel family of the library, in the order `kplvc info` prints them.
// Defined in core/families.cpp.
const FamilyInfo* families(int* count);

}  // namespace kplvc
