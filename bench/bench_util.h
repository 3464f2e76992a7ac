// Helpers for kplvc-bench: one benchmark per kernel and ISA level, named
// "<family>/<case>/<isa>", so a run shows every variant side by side.
#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/cpu.h"

namespace kplvc::bench {

// The levels this CPU supports, c first.
inline std::vector<cpu::Isa> levels() {
    std::vector<cpu::Isa> out;
    for (int i = 0; i < cpu::kIsaCount; ++i)
        if (cpu::supports(static_cast<cpu::Isa>(i))) out.push_back(static_cast<cpu::Isa>(i));
    return out;
}

// Registers body(state, isa) once per level where the kernel table changes
// the entry chosen by `pick` (so an unchanged entry is not timed twice).
template <class Table, class Pick>
void per_level(const std::string& name, Table (*for_isa)(cpu::Isa), Pick pick,
               std::function<void(benchmark::State&, const Table&)> body) {
    const void* prev = nullptr;
    for (cpu::Isa isa : levels()) {
        auto table = std::make_shared<Table>(for_isa(isa));
        const void* cur = reinterpret_cast<const void*>(pick(*table));
        if (cur == prev) continue;
        prev = cur;
        benchmark::RegisterBenchmark((name + "/" + cpu::isa_name(isa)).c_str(),
                                     [table, body](benchmark::State& st) { body(st, *table); });
    }
}

// Every benchmark picture starts on a 4 KiB page. With the heap's 16-byte
// alignment, whether a block's rows straddle a cache line or a page depended
// on where malloc put the buffer, and a 16x16 predictor's figure could move by
// 3x between two runs of the same binary (even adding an output file shifted
// the heap enough). A page-aligned base makes the layout part of the case: a
// case that wants unaligned rows says so with an explicit offset.
inline constexpr std::size_t kPage = 4096;

template <class T>
struct PageAllocator {
    using value_type = T;
    PageAllocator() = default;
    template <class U>
    PageAllocator(const PageAllocator<U>&) {}
    T* allocate(std::size_t n) {
        const std::size_t bytes = (n * sizeof(T) + kPage - 1) / kPage * kPage;
        void* p = std::aligned_alloc(kPage, bytes == 0 ? kPage : bytes);
        if (p == nullptr) std::abort();  // a benchmark cannot go on without its picture
        return static_cast<T*>(p);
    }
    void deallocate(T* p, std::size_t) { std::free(p); }
    template <class U>
    bool operator==(const PageAllocator<U>&) const {
        return true;
    }
};

// A benchmark picture or coefficient buffer: a vector on its own pages.
template <class T>
using Buffer = std::vector<T, PageAllocator<T>>;

// Cycles from the time-stamp counter, for a per-call figure next to ns.
inline uint64_t rdtsc() {
#if defined(__i386__) || defined(__x86_64__)
    return __builtin_ia32_rdtsc();
#else
    return 0;
#endif
}

// Registers at static-initialisation time of kplvc-bench.
#define KPLVC_BENCH_REGISTER(fn) static const bool fn##_registered = (fn(), true)

}  // namespace kplvc::bench
