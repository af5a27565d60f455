#pragma once

#include "cli/sync/Execution.h"

namespace tarncli {

/// Tells what a plan comes to, without anything being done. With --json writes the plan.
/// @throws Failure (conflict) when there are conflicts
void showPlan(Output& out, const Plan& plan);

/// Tells what came of a plan, and what was left out of it, and with --json writes it.
/// @throws Failure when not everything could be done
void showOutcome(Output& out, const Plan& plan, SyncReport report);

} // namespace tarncli
