// The metrics table for the running CPU, for the entry points' own
// translation units: the first-use check and the table load inline into each
// entry point instead of costing a call. Include only from files compiled
// without ISA flags (never from an x86/ file), so that no copy of the table's
// construction can be built with wider instructions.
#pragma once

#include "block/metrics.h"
#include "core/dispatch.h"

namespace kplvc::block {

inline const MetricsKernels& metrics_table() { return active_table<MetricsKernels, metrics_kernels_for>(); }

}  // namespace kplvc::block
