#pragma once

#include "cli/sync/Plan.h"

namespace tarncli {

class Output;

/// Tells that nothing of the plan was done, when it cannot be done exactly.
/// @throws Failure (conflict) that names what is different on either side now from what the plan was made for
void requireAsPlanned(Output& out, const Plan& plan, const Side& local, const Side& remote);

} // namespace tarncli
