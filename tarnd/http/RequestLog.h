#pragma once

#include "tarnd/store/ServiceError.h"

#include <chrono>
#include <string>
#include <string_view>

namespace tarnd {

/// One line per event on standard error. Holds no token, no session id and no public link: of a request only
/// method and path are told, and of a path below /public only that. Callable from any thread.
class RequestLog {
public:
    /// @param everyRequest false: only what failed through a fault of the service
    explicit RequestLog(bool everyRequest) : everyRequest(everyRequest) {}

    void failed(std::string_view method, std::string_view target, const ServiceError& error) const;

    void answered(std::string_view method, std::string_view target, unsigned status,
                  std::chrono::steady_clock::duration took) const;

private:
    bool everyRequest;
};

} // namespace tarnd
