#pragma once

#include <cstdint>
#include <string>

namespace connector::tarn {

/// Names one version of a file.
struct VersionInfo {
    std::string versionId;         ///< the service's id, UTF-8; in a request, empty asks for no version
    std::int64_t versionLabel = 0; ///< version number
};

} // namespace connector::tarn
