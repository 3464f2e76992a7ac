#include <benchmark/benchmark.h>

#include <cstdio>

#include "core/cpu.h"

int main(int argc, char** argv) {
    const auto& f = kplvc::cpu::features();
    benchmark::AddCustomContext("cpu_brand", f.brand);
    benchmark::AddCustomContext("isa_level", kplvc::cpu::isa_name(kplvc::cpu::detected()));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
