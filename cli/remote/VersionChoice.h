#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"
#include "tarn/protocol/VersionInfo.h"
#include "tarn/versioning/VersionMessages.h"

#include <memory>
#include <string>

namespace tarncli {

/// The versions of a file. @throws Failure (usage) for the bucket of another user, as requireOwnBucket
std::unique_ptr<connector::tarn::VersionListResponse> versionsOf(Connection& connection,
                                                                 const RemotePath& file);

/// Whether `version`, as currentOf() tells it, is the one of this id, replaced in place or not.
bool isVersion(const std::string& version, const std::string& id);

/// The version that the user means by `text`: a number is the label of a version in the file's list, anything
/// else its id. @throws Failure (notFound) for a label that is not in the list; (usage) for a label in the
/// bucket of another user, whose list of versions the service does not give
connector::tarn::VersionInfo chooseVersion(Connection& connection, const RemotePath& file,
                                           const std::string& text);

/// @throws Failure (usage) for the bucket of another user: the service looks for versions in one's own only
void requireOwnBucket(const Connection& connection, const RemotePath& file);

} // namespace tarncli
