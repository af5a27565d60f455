#pragma once

#include "tarn/foundation/Export.h"

namespace connector {

/// The base of everything that travels through the message framework: requests and responses.
struct TARN_API Message {
    Message() = default;
    Message(Message&&) = default;
    Message(const Message&) = default;
    Message& operator=(Message&&) = default;
    Message& operator=(const Message&) = default;
    virtual ~Message() = default;
};

} // namespace connector
