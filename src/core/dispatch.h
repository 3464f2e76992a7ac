// The kernel-table pattern every family follows.
//
//   struct FooKernels { ... function pointers ... };
//   FooKernels foo_kernels_for(cpu::Isa isa);   // pure: scalar table, then
//                                               // each SIMD level up to isa
//                                               // overwrites what it improves
//   const FooKernels& foo_kernels();            // the table for this CPU
//
// foo_kernels() returns active_table<>(): built once on first use
// (thread-safe), const afterwards. Tests and benchmarks call
// foo_kernels_for() for every level the CPU has.
#pragma once

#include <atomic>

#include "core/cpu.h"

namespace kplvc {

// The table for the running CPU, built once on first use.
//
// The table itself lives in a function-local static inside a cold,
// out-of-line builder, so entry points do not carry its guard and
// construction code (with the register saves they bring) on every call; the
// fast path is one load of a pointer that the builder publishes once. The
// pointer only ever goes from null to the one table, and any thread that
// finds it null just takes the builder's thread-safe path.
template <class Table, Table (*For)(cpu::Isa)>
struct ActiveTable {
    static inline std::atomic<const Table*> current{nullptr};

    [[gnu::noinline, gnu::cold]] static const Table& build() {
        static const Table table = For(cpu::detected());
        current.store(&table, std::memory_order_release);
        return table;
    }
};

template <class Table, Table (*For)(cpu::Isa)>
inline const Table& active_table() {
    const Table* t = ActiveTable<Table, For>::current.load(std::memory_order_acquire);
    if (__builtin_expect(t != nullptr, 1)) return *t;
    return ActiveTable<Table, For>::build();
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
