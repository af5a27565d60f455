#pragma once

#include "tarn/foundation/platform/ServiceProvider.h"
#include "tarnhost/HttpOptions.h"

#include <cstdint>
#include <memory>

namespace connector::host {

class DeliveryThreads;

/// Body bytes of all exchanges so far: what a progress display polls.
struct TransferredBytes {
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
};

/// Takes http::HttpClientRequest, answers http::HttpClientResponse; of http::HttpStreamedRequest it keeps all that is
/// told there, and what follows is about the others.
///
/// A reply is there once its whole body has arrived, its head to the empty line and its body to its length or
/// last chunk; a reply that does not say where it ends is none. The body is then a publisher of one item that
/// fills its storage exactly (none when empty), so folding it neither waits nor copies.
///
/// The method goes on the wire in upper case; "put" always carries a Content-Length. A "put", a "delete" and
/// whatever asks for it is sent at most once, even when a kept-alive connection turns out dead; any other "get"
/// may be repeated, at once on a fresh connection. After a pause, what is safe to repeat is tried again as often as
/// RetryPolicy or the request says. HttpOptions says how long and how large an exchange may become.
///
/// Between start and stop all exchanges are driven by one thread at a time: the one that sends, or a delivery thread
/// that waits for the sockets. That runs no foreign code: request bodies are gathered on the thread of their publisher
/// unless their headers frame them, publishers are subscribed to on a delivery thread, and every future is resolved on
/// one. A request that gets no complete reply fails with TransportError; one whose body publisher fails, with that
/// error. Stopping fails all exchanges under way.
class TARN_API HttpClient : public ServiceProvider {
public:
    /// @throws std::invalid_argument for a proxy that cannot work
    HttpClient(std::shared_ptr<DeliveryThreads> deliveryThreads, HttpOptions options);
    ~HttpClient() override;

    /// @return a failed future at once for a message that is not an HttpClientRequest (std::invalid_argument),
    ///   a request that cannot be sent as it is (TransportError, phase prepare: URL, method, or a header with
    ///   CR, LF or NUL), or a stopped client (std::runtime_error "Service exists but is not running.")
    Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&& to,
                                             std::shared_ptr<Context>&& context) override;

    /// May be called on any thread at any rate.
    TransferredBytes transferred() const;

protected:
    void onStart() override;
    void onStop() override;

private:
    class Exchanges;
    std::shared_ptr<Exchanges> exchanges;
};

} // namespace connector::host
