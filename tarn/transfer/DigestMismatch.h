#pragma once

#include "tarn/foundation/Export.h"

#include <stdexcept>

namespace connector::tarn {

/// What was moved is not what the other side has: the two SHA-256 differ. what() tells both.
class TARN_API DigestMismatch : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The service has stored something else than was sent to it.
class TARN_API StoredMismatch : public DigestMismatch {
public:
    using DigestMismatch::DigestMismatch;
};

} // namespace connector::tarn
