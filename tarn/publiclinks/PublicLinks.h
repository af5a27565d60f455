#pragma once

#include "tarn/protocol/ReplyTo.h"
#include "tarn/publiclinks/PublicLinkMessages.h"

namespace connector::tarn {

/// Links that open items of the session's user for everybody who has them: with an end, all of them, and no longer.
///
/// Not every service has these operations; the error then says so (ErrorKind::notSupported).
///
/// Each operation takes the request over, sends it, and returns at once. Its future is resolved on one of the
/// host's delivery threads with the response, or with the failure that the request's own comment tells. Bad
/// arguments come back as a future that has failed already, and the request then stays with the caller.
class TARN_API PublicLinks {
public:
    virtual ~PublicLinks() = default;

    virtual ReplyTo<PublicLinkCreate> createLink(std::unique_ptr<PublicLinkCreate>&& request) = 0;
    virtual ReplyTo<PublicLinkList> listLinks(std::unique_ptr<PublicLinkList>&& request) = 0;
    virtual ReplyTo<PublicLinkRevoke> revokeLink(std::unique_ptr<PublicLinkRevoke>&& request) = 0;

    /// @throws std::bad_weak_ptr when no shared_ptr owns the object
    virtual std::shared_ptr<PublicLinks> getPtr() = 0;
};

} // namespace connector::tarn
