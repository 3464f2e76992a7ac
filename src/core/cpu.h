// Processor feature detection and the ISA levels that kernel tables cascade
// through.
#pragma once

#include <cstdint>

namespace kplvc::cpu {

// Levels in increasing order. Each implies the ones before it.
enum class Isa : int { c = 0, sse2, ssse3, sse41, avx2, avx512, count };

constexpr int kIsaCount = static_cast<int>(Isa::count);

// "c", "sse2", "ssse3", "sse41", "avx2", "avx512".
const char* isa_name(Isa isa);

// The highest level this CPU and OS support, found once (cpuid, xgetbv).
Isa detected();

// True when the CPU supports isa (and every level below it).
inline bool supports(Isa isa) { return static_cast<int>(isa) <= static_cast<int>(detected()); }

// Individual features, for `kplvc info`.
struct Features {
    bool sse2, sse3, ssse3, sse41, sse42, popcnt, avx, avx2, bmi1, bmi2, fma;
    bool avx512f, avx512bw, avx512vl, avx512dq;
    bool os_ymm, os_zmm;  // the OS saves the YMM / ZMM state (XCR0)
    char vendor[13];
    char brand[49];
};
const Features& features();

}  // namespace kplvc::cpu
