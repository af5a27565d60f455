#pragma once

#include "tarnhost/HttpOptions.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace connector::host::detail {

/// Decides when an exchange whose connection stands has taken too long. It is told the time and how far the
/// exchange has come, and asks for neither.
class ExchangeClock {
public:
    using Time = std::chrono::steady_clock::time_point;

    struct Progress {
        bool sent;     ///< all of the request
        bool replying; ///< the reply has begun
        bool document; ///< the reply is bounded in time
        std::uint64_t bytesOut;
        std::uint64_t bytesIn;
        bool held =
            false; ///< stood still on this side since it was last asked, for a slow publisher or subscriber
    };

    explicit ExchangeClock(const HttpOptions& httpOptions) : options(httpOptions) {}

    /// Why the exchange has to end now; empty while it may go on. Called again and again, with times and
    /// progress that do not go back.
    std::string overdue(Time now, const Progress& progress);

    /// How often `overdue` is worth asking.
    static std::chrono::milliseconds tick(const HttpOptions& options);

private:
    enum class Stage { none, sending, waiting, receiving };

    void enter(Stage next, Time now, std::uint64_t bytes);
    void beginWindow(Time now, std::uint64_t bytes);
    bool stalled(Time now, std::uint64_t bytes);

    const HttpOptions& options;
    Stage stage = Stage::none;
    Time answerDue{};         ///< since when the service has the whole request, or already answers
    Time windowBegin{};       ///< of the present measurement
    std::uint64_t before = 0; ///< bytes moved when it began
};

} // namespace connector::host::detail
