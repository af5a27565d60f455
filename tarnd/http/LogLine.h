#pragma once

#include "tarnd/http/Routes.h"

#include <string>
#include <string_view>

namespace tarnd {

/// "2026-11-22T01:37:24.123Z".
std::string utcNow();

/// What of a target may stand in a log: its path, where no part of it can be a secret. A link is one, and what
/// leads nowhere may be a link that was mistyped.
/// @param route  null: none takes the request
std::string loggedPath(const Route* route, std::string_view target);

} // namespace tarnd
