#pragma once

#include "tarn/foundation/Future.h"
#include "tarn/foundation/platform/Address.h"
#include "tarn/foundation/platform/Message.h"

#include <memory>

namespace connector {

/// The way into the message framework: carries a message to the provider registered under an address.
class TARN_API Context {
public:
    virtual ~Context() = default;

    /// Routes `message` to the provider at `to`.
    ///
    /// May be called on any thread. The returned future is resolved on a thread of the host's choice,
    /// possibly before `send` returns, with the provider's reply or with the exception that kept it from
    /// replying.
    virtual Future<std::unique_ptr<Message>> send(std::unique_ptr<Message>&& message, Address&& to) = 0;

    /// Sends `request` and gives the reply its type.
    ///
    /// The future is resolved on the thread that resolves the untyped reply: with the reply as Resp, with
    /// null when the provider replied with null, with the provider's or transport's exception unchanged, or
    /// with a std::runtime_error "Unable to cast response message type: <reply> to <Resp>" for a reply of
    /// another class.
    template <class Resp, class Req>
    Future<std::unique_ptr<Resp>> handle(std::unique_ptr<Req>&& request, Address&& to);
};

} // namespace connector

#include "tarn/foundation/detail/ContextHandle.h"
