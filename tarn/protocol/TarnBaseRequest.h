#pragma once

#include "tarn/foundation/Export.h"

#include <string>

namespace connector::tarn {

/// What every request tells about the calling program. The clients fill it in, overwriting what a caller puts there.
struct TARN_API TarnBaseRequest {
    TarnBaseRequest() = default;
    TarnBaseRequest(TarnBaseRequest&&) = default;
    TarnBaseRequest(const TarnBaseRequest&) = default;
    TarnBaseRequest& operator=(TarnBaseRequest&&) = default;
    TarnBaseRequest& operator=(const TarnBaseRequest&) = default;
    virtual ~TarnBaseRequest() = default;

    std::string clientString; ///< application and version, UTF-8; parameter "clientString" when not empty
    std::string clientType;   ///< kind of client, UTF-8; parameter "clientType" when not empty
};

} // namespace connector::tarn
