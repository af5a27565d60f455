#pragma once

#include "tarnd/http/Request.h"
#include "tarnd/store/Condition.h"

namespace tarnd {

/// What the headers If-Match and If-None-Match demand of a file that is to be changed.
/// @throws ServiceError badRequest when they cannot be read
Condition conditionOf(const Request& request);

} // namespace tarnd
