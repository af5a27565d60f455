#pragma once

#include <cstdint>
#include <string>

namespace connector::tarn {

/// One version of a file. Wire: the element names stand beside the fields.
struct VersionSummary {
    std::string versionId;         ///< "VersionId", UTF-8
    std::uint64_t created = 0;     ///< "Created": milliseconds since 1970 UTC, as the service sent it
    std::int64_t versionLabel = 0; ///< "VersionLabel": the version's number
};

} // namespace connector::tarn
