#pragma once

#include "tarn/foundation/platform/Context.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

namespace connector {

/// A message addressed to providers of the interface P.
template <class P>
class TARN_API ServiceMessage : public Message {
public:
    /// Calls the overload of `provider->handle` that takes this message.
    /// @param msg  owns this very object; ownership passes to the handler
    virtual Future<std::unique_ptr<Message>> dispatch(std::shared_ptr<P> provider,
                                                      std::unique_ptr<Message>&& msg, Address&& to,
                                                      std::shared_ptr<Context>&& ctx) = 0;
};

/// The base by which a request `struct Msg : ..., MessageAPI<Msg, P>` finds its handler in the interface P.
template <class Msg, class P>
class TARN_API MessageAPI : public ServiceMessage<P> {
public:
    /// @return the handler's future; a failed one holding std::invalid_argument when `msg` is another object
    /// @throws std::bad_typeid when `msg` is null
    Future<std::unique_ptr<Message>> dispatch(std::shared_ptr<P> provider, std::unique_ptr<Message>&& msg,
                                              Address&& to, std::shared_ptr<Context>&& ctx) override
    {
        Message* found = msg.get();
        if (found != this) {
            return makeExceptionalFuture<std::unique_ptr<Message>>(std::invalid_argument(
                std::string("Unable to deliver to service. Incorrect message type. Expected: ") +
                detail::mangledName(typeid(*this)) + " but found " + detail::mangledName(typeid(*found))));
        }
        msg.release();
        std::unique_ptr<Msg> typed(static_cast<Msg*>(this));
        return provider->handle(std::move(typed), std::move(to), std::move(ctx));
    }
};

} // namespace connector
