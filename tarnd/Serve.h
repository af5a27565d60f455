#pragma once

#include "tarnd/http/Exchange.h"
#include "tarnd/store/Store.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>

namespace tarnd {

/// What `tarnd serve` was told.
struct ServeOptions {
    StoreOptions store;
    std::string listen = "127.0.0.1:7070"; ///< HOST:PORT; port 0 takes a free one
    std::string tlsCertificateFile;        ///< PEM; with the key: serve HTTPS
    std::string tlsKeyFile;
    std::string configFile; ///< what `--config` named; empty: none
    std::string publicUrl;  ///< what public links begin with; empty: the address listened on
    bool insecure = false;  ///< allow plain HTTP beyond this machine
    bool verbose = false;   ///< tell what the start found; a line per request unless the log says otherwise
    std::optional<LogFormat> log;
    std::string logFile;      ///< empty: standard error
    std::string auditLogFile; ///< empty: none is kept
    bool noWeb = false;       ///< without the application for browsers
    NumbersFor metrics = NumbersFor::loopback;
    std::string faultScriptFile; ///< what is to go wrong, for tests of programs; empty: nothing
    std::chrono::seconds idleTimeout{60};
    std::chrono::seconds drainTimeout{5}; ///< for requests under way when the end is asked for
    unsigned requestRate =
        0; ///< requests that an address may make in a second; 0, here and below: any number
    unsigned userRequestRate = 0;  ///< the same for a user
    unsigned addressTransfers = 0; ///< uploads and downloads of an address at a time
    unsigned userTransfers = 0;    ///< the same for a user
    SessionLimits sessions;
    std::uint64_t maxFileSize = std::numeric_limits<std::int64_t>::max(); ///< bytes of one upload
};

/// Serves until SIGTERM or SIGINT, then answers the requests under way and returns, with a second such signal at once.
/// SIGHUP opens the logs anew; it and a change of the certificate, the key or the configuration file, seen within some
/// seconds, take over what `readAgain` says of limits and certificate. What that throws is told, and all stays as it is.
///
/// Once connections are accepted one line goes to standard output: `{"url":"http://127.0.0.1:7070"}`.
/// Call it before any other thread exists: it blocks those signals for all of them.
/// @throws std::exception with a sentence for the person at the terminal
void serve(const ServeOptions& options, const std::function<ServeOptions()>& readAgain);

} // namespace tarnd
