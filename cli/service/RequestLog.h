#pragma once

#include "tarnhost/HttpOptions.h"

#include <memory>
#include <string>
#include <vector>

namespace tarncli {

class Output;

/// Where requests are told of; empty: not there.
struct RequestLogOptions {
    std::string logFile;    ///< each request, try by try
    std::string recordFile; ///< the last requests, when something fails
};

/// The observers that write what is asked for, and the requests with their durations to `output` with -v. No secret
/// comes to any of them. @param output  outlives them
/// @throws Failure when the log cannot be opened, or the recording not be written
std::vector<std::shared_ptr<connector::host::RequestObserver>>
requestObservers(const RequestLogOptions& options, Output& output);

} // namespace tarncli
