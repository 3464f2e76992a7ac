#include "core/cpu.h"

#include <pthread.h>

#include <cstring>

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#define KPLVC_HAVE_CPUID 1
#endif

namespace kplvc::cpu {

namespace {

enum Reg { eax, ebx, ecx, edx };
enum State { none, ymm, zmm };

// The rows of core/isa_features.def. A level name that is not an Isa
// enumerator fails to compile here.
struct Row {
    Isa level;
    uint32_t leaf;
    Reg reg;
    int bit;
    State state;
    bool Features::*field;
};
constexpr Row kRows[] = {
#define KPLVC_FEATURE(level, name, flag, leaf, reg, bit, state) \
    {Isa::level, leaf, reg, bit, state, &Features::name},
#include "core/isa_features.def"
#undef KPLVC_FEATURE
};

#if KPLVC_HAVE_CPUID
void cpuid(uint32_t leaf, uint32_t sub, uint32_t r[4]) { __cpuid_count(leaf, sub, r[0], r[1], r[2], r[3]); }

uint64_t xgetbv0() {
    uint32_t lo, hi;
    __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
    return (static_cast<uint64_t>(hi) << 32) | lo;
}
#endif

Features probe() {
    Features f{};
    std::strcpy(f.vendor, "unknown");
    std::strcpy(f.brand, "unknown");
#if KPLVC_HAVE_CPUID
    uint32_t r[4];
    const uint32_t max_leaf = static_cast<uint32_t>(__get_cpuid_max(0, nullptr));
    if (max_leaf == 0) return f;
    cpuid(0, 0, r);
    std::memcpy(f.vendor + 0, &r[1], 4);
    std::memcpy(f.vendor + 4, &r[3], 4);
    std::memcpy(f.vendor + 8, &r[2], 4);
    f.vendor[12] = 0;
    const uint32_t max_ext = static_cast<uint32_t>(__get_cpuid_max(0x80000000u, nullptr));

    cpuid(1, 0, r);
    const bool osxsave = r[2] & (1u << 27);
    if (osxsave) {
        const uint64_t xcr0 = xgetbv0();
        f.os_ymm = (xcr0 & 0x6) == 0x6;                // XMM and YMM state
        f.os_zmm = f.os_ymm && (xcr0 & 0xE0) == 0xE0;  // opmask, ZMM_Hi256, Hi16_ZMM
    }
    for (const Row& row : kRows) {
        const uint32_t max = row.leaf >= 0x80000000u ? max_ext : max_leaf;
        if (row.leaf > max) continue;
        cpuid(row.leaf, 0, r);
        const bool os = row.state == none || (row.state == ymm ? f.os_ymm : f.os_zmm);
        f.*row.field = os && ((r[row.reg] >> row.bit) & 1u) != 0;
    }

    if (max_ext >= 0x80000004u) {
        for (uint32_t i = 0; i < 3; ++i) {
            cpuid(0x80000002u + i, 0, r);
            std::memcpy(f.brand + 16 * i, r, 16);
        }
        f.brand[48] = 0;
        // Trim leading blanks that some CPUs report.
        char* b = f.brand;
        while (*b == ' ') ++b;
        std::memmove(f.brand, b, std::strlen(b) + 1);
    }
#endif
    return f;
}

// The highest level all of whose features (and those of the levels before
// it) are present.
Isa level_of(const Features& f) {
    Isa level = Isa::avx512;
    for (const Row& row : kRows)
        if (!(f.*row.field) && static_cast<int>(row.level) <= static_cast<int>(level))
            level = static_cast<Isa>(static_cast<int>(row.level) - 1);
    return level;
}

// Found once, through the C library's once-only call (no C++ runtime).
Features g_features;
Isa g_level = Isa::c;
pthread_once_t g_once = PTHREAD_ONCE_INIT;

void init() {
    g_features = probe();
    g_level = level_of(g_features);
}

}  // namespace

const Features& features() {
    pthread_once(&g_once, init);
    return g_features;
}

Isa detected() {
    pthread_once(&g_once, init);
    return g_level;
}

void feature_flags(const Features& f, FeatureFlag (&out)[kFeatureCount]) {
    int i = 0;
#define KPLVC_FEATURE(level, name, flag, leaf, reg, bit, state) out[i++] = {#name, f.name};
#include "core/isa_features.def"
#undef KPLVC_FEATURE
}

const char* isa_name(Isa isa) {
    switch (isa) {
        case Isa::c:
            return "c";
        case Isa::sse2:
            return "sse2";
        case Isa::ssse3:
            return "ssse3";
        case Isa::sse41:
            return "sse41";
        case Isa::avx2:
            return "avx2";
        case Isa::avx512:
            return "avx512";
        default:
            return "?";
    }
}

}  // namespace kplvc::cpu
