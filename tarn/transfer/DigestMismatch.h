#pragma once

#include "tarn/foundation/Export.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace connector::tarn {

/// What was moved is not what the other side has: the two SHA-256 differ. what() tells both.
class TARN_API DigestMismatch : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The service has stored something else than was sent to it.
class TARN_API StoredMismatch : public DigestMismatch {
public:
    /// @param tag  as FileUploadResponse::tag
    StoredMismatch(const std::string& what, std::string tag) : DigestMismatch(what), stored(std::move(tag)) {}

    /// Of what it has stored, for FileUpload::ifVersion and FileDelete::ifVersion; empty: not told.
    const std::string& tag() const { return stored; }

private:
    std::string stored;
};

} // namespace connector::tarn
