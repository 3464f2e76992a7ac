#include "core/cpu.h"

#include <cstring>

#if defined(__i386__) || defined(__x86_64__)
#include <cpuid.h>
#define KPLVC_HAVE_CPUID 1
#endif

namespace kplvc::cpu {

namespace {

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
    uint32_t max_leaf = static_cast<uint32_t>(__get_cpuid_max(0, nullptr));
    if (max_leaf == 0) return f;
    cpuid(0, 0, r);
    std::memcpy(f.vendor + 0, &r[1], 4);
    std::memcpy(f.vendor + 4, &r[3], 4);
    std::memcpy(f.vendor + 8, &r[2], 4);
    f.vendor[12] = 0;

    cpuid(1, 0, r);
    const uint32_t ecx1 = r[2], edx1 = r[3];
    f.sse2 = edx1 & (1u << 26);
    f.sse3 = ecx1 & (1u << 0);
    f.ssse3 = ecx1 & (1u << 9);
    f.fma = ecx1 & (1u << 12);
    f.sse41 = ecx1 & (1u << 19);
    f.sse42 = ecx1 & (1u << 20);
    f.popcnt = ecx1 & (1u << 23);
    const bool osxsave = ecx1 & (1u << 27);
    f.avx = ecx1 & (1u << 28);
    if (osxsave) {
        const uint64_t xcr0 = xgetbv0();
        f.os_ymm = (xcr0 & 0x6) == 0x6;                // XMM and YMM state
        f.os_zmm = f.os_ymm && (xcr0 & 0xE0) == 0xE0;  // opmask, ZMM_Hi256, Hi16_ZMM
    }
    f.avx = f.avx && f.os_ymm;
    if (max_leaf >= 7) {
        cpuid(7, 0, r);
        const uint32_t ebx7 = r[1];
        f.bmi1 = ebx7 & (1u << 3);
        f.avx2 = f.avx && (ebx7 & (1u << 5));
        f.bmi2 = ebx7 & (1u << 8);
        f.avx512f = f.os_zmm && (ebx7 & (1u << 16));
        f.avx512dq = f.avx512f && (ebx7 & (1u << 17));
        f.avx512bw = f.avx512f && (ebx7 & (1u << 30));
        f.avx512vl = f.avx512f && (ebx7 & (1u << 31));
    }
    uint32_t max_ext = static_cast<uint32_t>(__get_cpuid_max(0x80000000u, nullptr));
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

Isa level_of(const Features& f) {
    if (!f.sse2) return Isa::c;
    if (!f.ssse3) return Isa::sse2;
    if (!f.sse41) return Isa::ssse3;
    if (!(f.avx2 && f.bmi1 && f.bmi2 && f.popcnt)) return Isa::sse41;
    if (!(f.avx512f && f.avx512bw && f.avx512vl && f.avx512dq)) return Isa::avx2;
    return Isa::avx512;
}

}  // namespace

const Features& features() {
    static const Features f = probe();
    return f;
}

Isa detected() {
    static const Isa level = level_of(features());
    return level;
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
