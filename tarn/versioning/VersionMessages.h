#pragma once

#include "tarn/foundation/ServiceMessage.h"
#include "tarn/protocol/SessionRequest.h"
#include "tarn/protocol/VersionInfo.h"
#include "tarn/versioning/VersionSummary.h"
#include "tarn/versioning/VersioningServiceProvider.h"

#include <string>
#include <vector>

/// Operations on the versions of a file.
///
/// `path` is UTF-16, '/'-separated and begins with '/'; it becomes the tail of the URL, where '?' and '#' are
/// not escaped, so a path that holds them reaches another object. `bucket` is filled in by VersioningClient
/// and never sent: the service looks in the storage of the session's user.
///
/// Every operation fails with "File not found." (404), with the service's own sentence, with "Unknown error."
/// when the service gives none, with "TARN error: " and the body when a reply is not XML, with
/// std::invalid_argument or std::out_of_range ("stoull", "stoll") when a number in a reply is malformed, or with
/// the transport's failure. Malformed UTF-16 fails it with
/// std::invalid_argument "The text is not well-formed UTF-16.", an endpoint that is not a URL with
/// Poco::SyntaxException.
namespace connector::tarn {

/// Makes an earlier version the current one.
///
/// Wire   PUT /service/v1/versions/files{path}; "versionId", also when empty, "versionLabel", "createNewVersion"
struct TARN_API VersionRestore : SessionRequest, MessageAPI<VersionRestore, VersioningServiceProvider> {
    using Response = struct VersionRestoreResponse;

    std::u16string path;
    std::u16string bucket; ///< not sent
    std::string versionId;
    std::int64_t versionLabel = 0;
    bool createNewVersion = false; ///< true: add a copy of it as the newest version
    /// As FileUpload::ifVersion: only in the place of this content, and a file that is gone is ErrorKind::notFound.
    /// Header "If-Match"; empty: of any.
    std::string ifVersion;
};

/// The version now current; what the reply does not tell is taken from the request.
struct TARN_API VersionRestoreResponse : Message {
    std::string versionId; ///< "VersionId"
    /// "VersionLabel", read as an unsigned number; one from 2^63 up wraps to a negative one.
    std::int64_t versionLabel = 0;
};

/// Lists the versions of a file.
///
/// Wire   GET /service/v1/versions/files{path}
struct TARN_API VersionList : SessionRequest, MessageAPI<VersionList, VersioningServiceProvider> {
    using Response = struct VersionListResponse;

    std::u16string path;
    std::u16string bucket; ///< not sent
};

struct TARN_API VersionListResponse : Message {
    std::u16string name;                  ///< "Name": the file's; empty when the reply has not exactly one
    std::vector<VersionSummary> versions; ///< every element "VersionSummary", in document order
};

} // namespace connector::tarn
