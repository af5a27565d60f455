#pragma once

#include "tarn/foundation/ServiceMessage.h"
#include "tarn/protocol/SessionRequest.h"
#include "tarn/publiclinks/PublicLink.h"
#include "tarn/publiclinks/PublicLinksServiceProvider.h"

#include <cstdint>
#include <string>
#include <vector>

/// Operations on public links beyond PublicAccessUrlGet, whose link does not end.
///
/// `path` is UTF-16, '/'-separated and begins with '/'; '?' and '#' in it reach another item. `bucket` is the name of
/// the user whose storage is meant. Left empty, PublicLinksClient fills in the session's user.
///
/// Every operation fails with "The service makes no links that end, and lists and revokes none." (kind notSupported)
/// where the service does not have it, and otherwise as those on permissions do, malformed UTF-16 included.
namespace connector::tarn {

/// Makes a link to a file, or to a folder and all below it. For the same item and the same end it is always the same
/// one, so that the request may be repeated.
///
/// Wire   PUT /service/v1/public/links{path}; "bucket", "expires" unless 0
/// Fails  with "File not found." (404), for an item of somebody else's, and for an end that has passed by the clock of
///        the service
struct TARN_API PublicLinkCreate : SessionRequest, MessageAPI<PublicLinkCreate, PublicLinksServiceProvider> {
    using Response = struct PublicLinkCreateResponse;

    std::u16string path;
    std::u16string bucket;
    std::uint64_t expires = 0; ///< milliseconds since 1970, UTC; 0: the link that does not end
};

struct TARN_API PublicLinkCreateResponse : Message {
    std::string linkId;        ///< "PublicLinkId"
    std::u16string url;        ///< "PublicAccessUrl"
    std::uint64_t expires = 0; ///< "Expires"; 0 without one
};

/// Lists the links to the user's items that have not ended.
///
/// Wire   GET /service/v1/public/links
struct TARN_API PublicLinkList : SessionRequest, MessageAPI<PublicLinkList, PublicLinksServiceProvider> {
    using Response = struct PublicLinkListResponse;
};

struct TARN_API PublicLinkListResponse : Message {
    std::vector<PublicLink> links; ///< every element "PublicLink", in document order
};

/// Ends a link at once. It answers from then on as one that never was.
///
/// Wire   DELETE /service/v1/public/links/{linkId}; an empty id adds nothing to the path
/// Fails  for a link that is not there, or somebody else's (reason "unknownLink", kind notFound); with '/', '?' or '#'
///        in the id, which none has, without sending
struct TARN_API PublicLinkRevoke : SessionRequest, MessageAPI<PublicLinkRevoke, PublicLinksServiceProvider> {
    using Response = struct PublicLinkRevokeResponse;

    std::string linkId; ///< from the making or a list
};

struct TARN_API PublicLinkRevokeResponse : Message {};

} // namespace connector::tarn
