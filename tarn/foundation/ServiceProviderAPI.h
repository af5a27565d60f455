#pragma once

#include "tarn/foundation/ServiceMessage.h"
#include "tarn/foundation/platform/ServiceProvider.h"

namespace connector {

/// The base of a provider interface P: takes any message and passes those addressed to P on to its handlers.
template <class P>
class TARN_API ServiceProviderAPI : public ServiceProvider, public std::enable_shared_from_this<P> {
public:
    using Reply = Future<std::unique_ptr<Message>>;
    using ContextPtr = std::shared_ptr<Context>;

    /// @return the handler's future, or a failed one: std::runtime_error "Service exists but is not running."
    ///   (the message then stays with the caller), std::invalid_argument "Incorrect message type. ..."
    /// @throws std::bad_typeid on a null message, std::bad_weak_ptr when no shared_ptr owns this provider
    Reply deliver(std::unique_ptr<Message>&& msg, Address&& to, ContextPtr&& ctx) override
    {
        if (!this->isRunning()) {
            return makeExceptionalFuture<std::unique_ptr<Message>>(
                std::runtime_error("Service exists but is not running."));
        }
        Message* message = msg.get();
        const std::type_info& found = typeid(*message);
        auto* addressed = dynamic_cast<ServiceMessage<P>*>(message);
        if (!addressed) {
            return makeExceptionalFuture<std::unique_ptr<Message>>(std::invalid_argument(
                std::string("Incorrect message type. Expected: ") + typeid(ServiceMessage<P>).name() +
                " but found " + detail::mangledName(found)));
        }
        return addressed->dispatch(this->shared_from_this(), std::move(msg), std::move(to), std::move(ctx));
    }
};

} // namespace connector
