#pragma once

#include "cli/sync/Plan.h"

namespace tarncli {

class Output;

struct PlanOptions {
    bool removes = false;    ///< what the target has beyond the source
    bool overwrites = false; ///< also what has changed on both sides
};

/// What is to be done so that the target becomes like the source.
///
/// A file of the target is replaced or deleted only when it is as an earlier run has left it, or found it equal, which
/// the journal and then the digests tell; otherwise it is a conflict. Exception: what the target has beyond the source
/// and no run knows of is deleted when `removes` says so.
///
/// Asks the service for digests where states do not tell enough, and changes nothing.
/// @param base  the plan as yet without steps: pair, direction, rules
Plan makePlan(Connection& connection, Output& out, Plan base, const Side& local, const Side& remote,
              const Journal& journal, const PlanOptions& options);

} // namespace tarncli
