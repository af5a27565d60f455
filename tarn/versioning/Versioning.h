#pragma once

#include "tarn/protocol/ReplyTo.h"
#include "tarn/versioning/VersionMessages.h"

namespace connector::tarn {

/// The versions of the session user's files.
///
/// Each operation takes the request over, sends it, and returns at once. Its future is resolved on one of the
/// host's delivery threads with the response, or with the failure that the request's own comment tells. Bad
/// arguments come back as a future that has failed already, and the request then stays with the caller.
class TARN_API Versioning {
public:
    virtual ~Versioning() = default;

    virtual ReplyTo<VersionList> listVersions(std::unique_ptr<VersionList>&& request) = 0;
    virtual ReplyTo<VersionRestore> restoreVersion(std::unique_ptr<VersionRestore>&& request) = 0;

    /// @throws std::bad_weak_ptr when no shared_ptr owns the object
    virtual std::shared_ptr<Versioning> getPtr() = 0;
};

} // namespace connector::tarn
