#pragma once

#include "tarnd/http/Reply.h"

namespace tarnd {

/// What somebody who followed a public link sees when it does not work: a plain page, 404 for everything that
/// is the link's fault, so that it tells nothing about what exists.
Reply publicErrorPage(const ServiceError& error);

} // namespace tarnd
