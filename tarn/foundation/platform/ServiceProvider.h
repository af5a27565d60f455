#pragma once

#include "tarn/foundation/platform/Context.h"
#include "tarn/foundation/platform/Lifecycle.h"

namespace connector {

/// What a host registers under an address: takes messages and answers each through a future.
///
/// The host calls `start` before it delivers the first message, and `stop` before it lets the provider go.
class TARN_API ServiceProvider : public common::Lifecycle {
public:
    /// Takes one message. Called on the host's delivery threads, any number at a time.
    ///
    /// @param to       where the provider sends what it has to send on, such as an HTTP request
    /// @param context  the way there; kept until the reply is there, and no longer
    /// @return a valid future of the reply; refusals arrive through it
    /// @throws anything; the host fails the sender's future with it, as it stands
    virtual Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&& to,
                                                     std::shared_ptr<Context>&& context) = 0;
};

} // namespace connector
