#pragma once

#include "tarn/foundation/platform/HttpClientRequest.h"

#include <stop_token>

namespace connector::http {

/// One HTTP request whose reply is wanted while it arrives, headers included.
///
/// **The reply.** A host that knows this class answers with HttpStreamedResponse. Where `replyBody` is content
/// and the status is 200, or 206 on a request with a "Range" header, it resolves the future as soon as the head
/// has arrived: the response's body is then a live publisher, which ends with `onComplete` once the whole body
/// has come, and with `onError` when it ends early. Every other reply is a document and is answered when it is
/// complete, as that of an HttpClientRequest. A host that does not know the class answers with the whole body in
/// an HttpClientResponse, and everything still works, with more memory and without headers.
///
/// **The body of the request**, of this class and of its base alike, is sent as it arrives when `headers` carry a
/// "Content-Length", which then has to be the sum of the publisher's items, or "Transfer-Encoding: chunked" when
/// nobody knows it. Without either it is gathered first. A publisher that fails breaks the exchange off, and the
/// future fails with the publisher's error.
///
/// **Threads.** Items, ends and errors arrive on the host's delivery threads, in order and one at a time per
/// stream, and never on the thread that drives the sockets; so do the calls of `request` and `cancel` on the
/// publisher of a request's body. A publisher may call its subscriber on any thread.
///
/// **Demand.** The host asks the publisher for an item only when the socket has taken those before, and reads the
/// socket only while the subscriber's demand leaves room. Beyond what one item of a foreign publisher holds, at
/// most 1 MiB per transfer waits in either direction. Time in which a transfer stands still for want of demand or
/// of items is not held against the service.
///
/// **Cancelling.** `Subscription::cancel` of the reply's body, an error of the request's, and `stop`, before the
/// head as well as after it, close the connection within 250 ms. Dropping a response whose body nobody has
/// subscribed to cancels it.
///
/// **No deadlock.** A delivery thread that waited for a body could wait for the very thread that is to bring it.
/// Hosts exclude that by never waiting themselves, each item being a task of its own, and by DeliveryScope, with
/// which a wait for what is not there fails at once with WouldDeadlock.
struct TARN_API HttpStreamedRequest : HttpClientRequest {
    using HttpClientRequest::HttpClientRequest;

    /// Breaks the exchange off, when it is asked to stop, as CallOptions::stop does. A body that is under way then
    /// fails.
    std::stop_token stop;
};

} // namespace connector::http
