#pragma once

#include "tarnd/http/LogFile.h"
#include "tarnd/http/Routes.h"
#include "tarnd/store/ServiceError.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarnd {

enum class LogFormat { off, text, json };

/// A request that has ended.
struct LoggedRequest {
    std::string id;
    std::string_view method;
    const Route* route; ///< null: none takes it
    std::string_view target;
    std::string_view user;        ///< empty: nobody
    unsigned status;              ///< 0: its client left before the reply
    std::uint64_t received, sent; ///< bytes of the bodies
    std::chrono::steady_clock::duration took;
    bool complete; ///< the whole reply went out
};

/// One line per request, and one for each that failed through a fault of the service. Holds no token, no session id
/// and no public link. Callable from any thread.
class RequestLog {
public:
    /// @param format  off: failures only, as text
    /// @param path  empty: standard error
    RequestLog(LogFormat format, std::string path) : format(format), file(std::move(path)) {}

    bool isOn() const { return format != LogFormat::off; }

    void failed(const LoggedRequest& request, const ServiceError& error);

    void ended(const LoggedRequest& request);

    void reopen() { file.reopen(); }

private:
    LogFormat format;
    LogFile file;
};

} // namespace tarnd
