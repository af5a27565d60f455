#pragma once

#include "cli/service/Profile.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace tarncli {

/// How one request came to a service, step by step, for those who look for what is wrong. It carries neither token nor
/// session.
struct Probe {
    using Milliseconds = std::chrono::duration<double, std::milli>;

    /// The steps of a request, in order.
    enum class Step { lookup, connect, secure, answer, done };

    struct Certificate {
        std::string issuer; ///< as the certificate spells it: "O = Example, CN = Example Root"
        std::optional<std::chrono::system_clock::time_point> ends;
    };

    Step reached = Step::lookup; ///< the step that failed, or `done`
    std::string why;             ///< it failed

    std::string address; ///< of the service, or of the proxy; empty: not found
    Milliseconds lookup{}, connect{}, secure{}, answer{};
    /// Of the service; also where it was refused, if it could be had.
    std::optional<Certificate> certificate;

    std::uint16_t status = 0;
    std::string contentType;
    std::string body;
    /// The service's clock at the answer: header "Date", to the second.
    std::optional<std::chrono::system_clock::time_point> time;
};

/// Asks the service at `endpoint` for GET /service/v1/ping, the way that `service` says.
/// @param limit  for each of connecting and answering
Probe probe(const Service& service, const std::string& endpoint, std::chrono::seconds limit);

} // namespace tarncli
