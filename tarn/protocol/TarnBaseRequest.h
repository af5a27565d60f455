#pragma once

#include "tarn/foundation/Export.h"

#include <optional>
#include <string>

namespace connector::tarn {

/// What every request tells about the calling program, which the clients fill in, overwriting what a caller puts
/// there; and how it is to be sent, which is the caller's.
struct TARN_API TarnBaseRequest {
    TarnBaseRequest() = default;
    TarnBaseRequest(TarnBaseRequest&&) = default;
    TarnBaseRequest(const TarnBaseRequest&) = default;
    TarnBaseRequest& operator=(TarnBaseRequest&&) = default;
    TarnBaseRequest& operator=(const TarnBaseRequest&) = default;
    virtual ~TarnBaseRequest() = default;

    std::string clientString; ///< application and version, UTF-8; parameter "clientString" when not empty
    std::string clientType;   ///< kind of client, UTF-8; parameter "clientType" when not empty

    /// How often the host may try again what was interrupted and is safe to repeat, such as a reading; nothing: as
    /// often as the host does by itself. Not sent.
    std::optional<unsigned> retries;
};

} // namespace connector::tarn
