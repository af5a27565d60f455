#pragma once

#include "tarn/foundation/platform/Context.h"

namespace connector {

/// What an application gets from its host in order to reach the message framework.
class TARN_API Connector {
public:
    virtual ~Connector() = default;

    /// The context through which clients send. May be called on any thread; never null on a working host. Clients
    /// keep it, not the connector, and may outlive the host: from its end on `send` fails, at once.
    virtual std::shared_ptr<Context> getContext() = 0;
};

} // namespace connector
