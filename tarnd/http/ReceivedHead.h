#pragma once

#include "tarnd/http/Request.h"

struct MHD_Connection;

namespace tarnd {

/// The head of a request as it came, from the server library's hands.
///
/// The library cuts every text at a NUL, so that "a\0b" would pass as "a" here and as something else elsewhere.
/// What stands between two of its texts tells: a value that hides more is given back with its NUL.
/// @param url, method, version as the access handler got them
RequestHead receivedHead(MHD_Connection* connection, const char* url, const char* method,
                         const char* version);

/// The fields behind a chunked body, likewise when it has come.
Headers receivedTrailers(MHD_Connection* connection);

} // namespace tarnd
