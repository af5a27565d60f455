#pragma once

#include "tarn/foundation/CallOptions.h"
#include "tarn/foundation/Composition.h"
#include "tarn/foundation/platform/Connector.h"
#include "tarn/protocol/ErrorText.h"
#include "tarn/protocol/ReplyTo.h"
#include "tarn/protocol/SessionRequest.h"
#include "tarn/protocol/TarnError.h"

#include <memory>
#include <string>
#include <utility>

namespace connector::tarn {

/// The future that the caller gets: settled by the executor of the call, where there is one.
template <class T>
Future<T> settledAs(const SharedCallOptions& options, Future<T>&& future)
{
    if (!options || !options->executor) return std::move(future);
    return std::move(future) | via(options->executor);
}

/// The course that every operation of a service client takes: check, complete with the session's data, send.
///
/// Holds nothing per request and takes no lock: may be used on any thread, any number of requests in flight.
/// @tparam Session  the session interface, a parameter so that this layer does not depend on the session area
template <class Session>
class ServiceClient {
public:
    /// @param connector  asked for its context once and not kept; null: every request fails
    ServiceClient(std::shared_ptr<Session> sharedSession, const std::shared_ptr<Connector>& connector,
                  const Address& address)
        : session(std::move(sharedSession))
        , context(connector ? connector->getContext() : nullptr)
        , target(address)
    {
    }

    /// Whether a request can be sent at all. When it cannot, `send` says why and leaves the request alone.
    template <class Request>
    bool canSend(const std::unique_ptr<Request>& request) const
    {
        return request && session && context;
    }

    /// The session's user, which is also the name of that user's bucket.
    /// @pre canSend
    std::u16string user() const { return session->getUser(); }

    /// Fills empty buckets with the session's user, stamps session id, client string and client type over
    /// what the caller put there, and sends the request.
    ///
    /// @param buckets  the members of the request that hold a bucket, in the order they are filled
    /// @return a future resolved on the host's delivery thread, or by the executor of the call; already failed with
    ///         "Null request, session, or context" when something is missing, and the request then stays with the caller
    template <class Request, class... Buckets>
    ReplyTo<Request> send(std::unique_ptr<Request>&& request, Buckets... buckets) const
    {
        using Response = typename Request::Response;
        if (!canSend(request)) {
            return makeExceptionalFuture<std::unique_ptr<Response>>(
                TarnError(ErrorKind::invalidRequest, ErrorText::nullArgument));
        }
        (fillIfEmpty((*request).*buckets), ...);
        request->sessionId = session->getSessionId();
        request->clientString = session->getClientString();
        request->clientType = session->getClientType();
        const auto options = optionsOf(*request);
        auto reply = context->template handle<Response, Request>(std::move(request), Address(target));
        return settledAs(options, std::move(reply));
    }

private:
    void fillIfEmpty(std::u16string& bucket) const
    {
        if (bucket.empty()) bucket = user();
    }

    std::shared_ptr<Session> session;
    std::shared_ptr<Context> context;
    Address target;
};

} // namespace connector::tarn
