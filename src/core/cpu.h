// Processor feature detection and the ISA levels that kernel tables cascade
// through.
#pragma once

#include <cstdint>

namespace kplvc::cpu {

// Levels in increasing order. Each implies the ones before it. The features
// each level needs (and the compiler flags of its files) are listed once, in
// core/isa_features.def.
enum class Isa : int { c = 0, sse2, ssse3, sse41, avx2, avx512, count };

constexpr int kIsaCount = static_cast<int>(Isa::count);

// "c", "sse2", "ssse3", "sse41", "avx2", "avx512".
const char* isa_name(Isa isa);

// The highest level this CPU and OS support, found once (cpuid, xgetbv).
Isa detected();

// True when the CPU supports isa (and every level below it).
static inline bool supports(Isa isa) { return static_cast<int>(isa) <= static_cast<int>(detected()); }

// The features of core/isa_features.def as reported by cpuid (each one also
// needs the register state it names to be saved by the OS), for `kplvc info`.
struct Features {
#define KPLVC_FEATURE(level, name, flag, leaf, reg, bit, state) bool name;
#include "core/isa_features.def"
#undef KPLVC_FEATURE
    bool os_ymm, os_zmm;  // the OS saves the YMM / ZMM state (XCR0)
    char vendor[13];
    char brand[49];
};
const Features& features();

// The names of the features, in the order of the list, with their values in f.
struct FeatureFlag {
    const char* name;
    bool on;
};
constexpr int kFeatureCount = 0
#define KPLVC_FEATURE(level, name, flag, leaf, reg, bit, state) +1
#include "core/isa_features.def"
#undef KPLVC_FEATURE
    ;
void feature_flags(const Features& f, FeatureFlag (&out)[kFeatureCount]);

}  // namespace kplvc::cpu
