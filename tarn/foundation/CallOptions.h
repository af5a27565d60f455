#pragma once

#include "tarn/foundation/Executor.h"
#include "tarn/foundation/Export.h"
#include "tarn/foundation/RetryPolicy.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace connector {

/// How far the bodies of an exchange have come, in bytes of the present try.
struct TransferProgress {
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
    std::optional<std::uint64_t> toSend;    ///< of the whole request; nothing: not known
    std::optional<std::uint64_t> toReceive; ///< of the whole reply; nothing: not known, or not yet

    friend bool operator==(const TransferProgress&, const TransferProgress&) = default;
};

/// What the caller of one request wants of it, beyond what its message says to the service.
///
///     files.readFile(with({.deadline = CallOptions::in(5s), .tag = "preview"}, std::move(request)));
///
/// Options travel as a part of the message object: `with` gives an object of a class derived from the request's, which
/// every router and provider takes for what it is, whatever threads it passes on its way. The library's providers hand
/// the options on with the HTTP request, and the host heeds them. Nothing is kept per thread, so that a coroutine may
/// change threads between two requests; and a request without options costs nothing.
struct CallOptions {
    using Time = std::chrono::steady_clock::time_point;

    /// Asked to stop, it closes the connection within 250 ms, wherever the exchange is, in a pause before another try
    /// as well, and fails the future with the host's error of a request that was stopped. What has arrived as a whole
    /// is still handed on.
    std::stop_token stop = {};
    /// For everything together, tries and pauses included; ends the exchange as `stop` does, with an error of its own.
    std::optional<Time> deadline = {};
    /// In the place of the host's.
    std::optional<RetryPolicy> retries = {};
    /// Called while bodies move, ten times a second at most, and once when the exchange has ended: on the host's delivery
    /// threads, one call after the other. All have returned before the future is settled, unless it is a subscriber that
    /// breaks a download off, HttpOptions::replyCheck that refuses it, or a host that goes meanwhile. What it throws is
    /// dropped. Empty: nobody asks.
    std::function<void(const TransferProgress&)> progress = {};
    /// Settles the future that the client returns, so that continuations run on its thread; empty: the host's delivery
    /// threads do.
    Executor executor = {};
    /// Names the request in the host's logs. Not sent.
    std::string tag = {};

    /// The point of time after `duration`, a century or more being never.
    template <class Rep, class Period>
    static std::optional<Time> in(const std::chrono::duration<Rep, Period>& duration)
    {
        constexpr std::chrono::duration<double> century = std::chrono::hours(24 * 36'525);
        if (std::chrono::duration<double>(duration) >= century) return std::nullopt;
        return Time::clock::now() + std::chrono::ceil<Time::duration>(duration);
    }
};

/// Null: there are none.
using SharedCallOptions = std::shared_ptr<const CallOptions>;

namespace detail {

struct TARN_API OptionsCarrier {
    explicit OptionsCarrier(SharedCallOptions given) : options(std::move(given)) {}

    OptionsCarrier(const OptionsCarrier&) = default;
    OptionsCarrier& operator=(const OptionsCarrier&) = default;
    virtual ~OptionsCarrier() = default;

    SharedCallOptions options;
};

template <class Request>
struct WithOptions : Request, OptionsCarrier {
    WithOptions(Request&& request, SharedCallOptions given)
        : Request(std::move(request)), OptionsCarrier(std::move(given))
    {
    }
};

} // namespace detail

/// The request with these options, in the place of any that it had; null stays null.
template <class Request>
std::unique_ptr<Request> with(SharedCallOptions options, std::unique_ptr<Request> request)
{
    if (!request) return nullptr;
    return std::make_unique<detail::WithOptions<Request>>(std::move(*request), std::move(options));
}

template <class Request>
std::unique_ptr<Request> with(CallOptions options, std::unique_ptr<Request> request)
{
    return with(std::make_shared<const CallOptions>(std::move(options)), std::move(request));
}

/// The options that `request` was given.
template <class Request>
SharedCallOptions optionsOf(const Request& request)
{
    if (typeid(request) == typeid(Request)) return nullptr; // far cheaper than to look for another base
    const auto* carrier = dynamic_cast<const detail::OptionsCarrier*>(&request);
    return carrier ? carrier->options : nullptr;
}

} // namespace connector
