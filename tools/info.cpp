// kplvc info: the version record, the CPU's features and the ISA level that
// each kernel family uses on this machine.
#include <cstdio>

#include "core/cpu.h"
#include "families.h"
#include "kplvc.h"
#include "tools/commands.h"

int kplvc_tool::info(int, char**) {
    const KplLibraryVersion* v = kplvcGetLibVersion();
    std::printf("library      %s %s (%s), target \"%.4s\"\n", v->Name, v->Version, v->BuildDate,
                v->targetCpu);
    std::printf("version      %d.%d.%d.%d\n", v->major, v->minor, v->majorBuild, v->build);

    const auto& f = kplvc::cpu::features();
    std::printf("cpu          %s (%s)\n", f.brand, f.vendor);
    std::printf("features    ");
    kplvc::cpu::FeatureFlag flags[kplvc::cpu::kFeatureCount];
    kplvc::cpu::feature_flags(f, flags);
    for (const auto& fl : flags)
        if (fl.on) std::printf(" %s", fl.name);
    std::printf("\n");
    std::printf("os state     ymm %s, zmm %s\n", f.os_ymm ? "saved" : "not saved",
                f.os_zmm ? "saved" : "not saved");
    std::printf("isa level    %s\n", kplvc::cpu::isa_name(kplvc::cpu::detected()));
    std::printf("kernels\n");
    int n = 0;
    const kplvc::FamilyInfo* fam = kplvc::families(&n);
    for (int i = 0; i < n; ++i)
        std::printf("  %-19s %s\n", fam[i].name, kplvc::cpu::isa_name(fam[i].level()));
    return 0;
}
