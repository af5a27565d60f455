#pragma once

#include "cli/service/Connection.h"
#include "cli/sync/Journal.h"

#include <map>
#include <string>

namespace tarncli {

class Output;

/// Notes what was stored with its watermark in the journal.
///
/// The replies of uploads tell no watermarks, listings do: what was stored is still there when the digest, asked for
/// behind the listing, is that of what was sent. Where that is not to be had, nothing is noted, and the next run asks.
/// @param uploaded  by their places; without watermarks
void confirmUploads(Connection& connection, Output& out, const Pair& pair,
                    const std::map<std::string, Journal::Entry>& uploaded, Journal& journal);

} // namespace tarncli
