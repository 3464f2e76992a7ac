// The kernel-table pattern every family follows.
//
//   struct FooKernels { ... function pointers ... };
//
//   constexpr Upgrade<FooKernels> kFooCascade[] = {
//       {cpu::Isa::c, install_scalar},                      // fills every entry
//       KPLVC_X86_UPGRADES({cpu::Isa::sse2, x86::sse2::upgrade_foo},
//                          {cpu::Isa::avx2, x86::avx2::upgrade_foo})};
//   FooKernels foo_kernels_for(cpu::Isa isa) { return build_table(kFooCascade, isa); }
//   const FooKernels& foo_kernels() { return active_table<FooKernels, foo_kernels_for>(); }
//
// foo_kernels_for() is pure: the scalar table, then every upgrade of the list
// up to isa, in order, each overwriting only the entries its level improves.
// foo_kernels() is the table for this CPU, built once on first use and const
// afterwards. Tests and benchmarks call foo_kernels_for() for every level the
// CPU has; `kplvc info` derives the level in use from the tables themselves
// (table_level below).
//
// Nothing here needs the C++ runtime: the one-time build goes through the C
// library's pthread_once and the published pointer through the compiler's
// atomic built-ins, so the shared library links no libstdc++.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <type_traits>

#include "core/cpu.h"

// The upgrades of a cascade list that come from x86/ files: present when the
// build compiles those files (KPLVC_X86_SIMD, set by CMake), absent in the
// portable build, where only the scalar entry remains.
#if defined(KPLVC_X86_SIMD) && KPLVC_X86_SIMD
#define KPLVC_X86_UPGRADES(...) __VA_ARGS__
#else
#define KPLVC_X86_UPGRADES(...)
#endif

namespace kplvc {

// One step of a family's cascade: at `isa` and above, `apply` overwrites the
// entries of the table that this level improves.
template <class Table>
struct Upgrade {
    cpu::Isa isa;
    void (*apply)(Table& t);
};

// The table at `isa`: every step of the list whose level is at most `isa`,
// in the order listed (the list starts with the scalar step at Isa::c).
template <class Table, std::size_t N>
Table build_table(const Upgrade<Table> (&cascade)[N], cpu::Isa isa) {
    Table t{};
    for (const Upgrade<Table>& u : cascade)
        if (u.isa <= isa) u.apply(t);
    return t;
}

// The table for the running CPU, built once on first use.
//
// The table lives in constant-initialised static storage (no guard variable)
// and is written once by the cold, out-of-line builder under pthread_once;
// the fast path of an entry point is one acquire load of the pointer that the
// builder publishes last. The pointer only ever goes from null to the table,
// and a thread that finds it null takes the pthread_once path, which waits
// for the one build and makes its writes visible.
template <class Table, Table (*For)(cpu::Isa)>
struct ActiveTable {
    static inline Table table{};
    static inline const Table* current = nullptr;
    static inline pthread_once_t once = PTHREAD_ONCE_INIT;

    static void init() {
        table = For(cpu::detected());
        __atomic_store_n(&current, &table, __ATOMIC_RELEASE);
    }
    [[gnu::noinline, gnu::cold]] static const Table& build() {
        pthread_once(&once, init);
        return table;
    }
};

template <class Table, Table (*For)(cpu::Isa)>
inline const Table& active_table() {
    const Table* t = __atomic_load_n(&ActiveTable<Table, For>::current, __ATOMIC_ACQUIRE);
    if (__builtin_expect(t != nullptr, 1)) return *t;
    return ActiveTable<Table, For>::build();
}

// ---- The level in use, derived from the tables ------------------------------------

// `tables` holds the tables of levels 0..top, each `size` bytes of function
// pointers; `active` is the table in use. An entry's level is the lowest one
// whose table holds the same pointer as `active`; the result is the highest
// entry level among the bytes [first, last).
cpu::Isa entry_level(const void* active, const void* tables, std::size_t size, int top, std::size_t first,
                     std::size_t last);

// The level whose kernels the entries [first, last) (byte offsets) of the
// table in use come from: Isa::c when they are all scalar, never above the
// CPU's level, never a level at which none of them changed.
template <class Table>
cpu::Isa table_level(Table (*table_for)(cpu::Isa), const Table& active, std::size_t first = 0,
                     std::size_t last = sizeof(Table)) {
    // Tables are plain arrays of function pointers, compared entry by entry.
    static_assert(std::is_trivially_copyable_v<Table> && sizeof(Table) % sizeof(void (*)()) == 0);
    static_assert(std::has_unique_object_representations_v<Table>, "a table has no padding");
    const int top = static_cast<int>(cpu::detected());
    Table by_level[cpu::kIsaCount];
    for (int l = 0; l <= top; ++l) by_level[l] = table_for(static_cast<cpu::Isa>(l));
    return entry_level(&active, by_level, sizeof(Table), top, first, last);
}

}  // namespace kplvc
