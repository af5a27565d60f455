#pragma once

#include "tarn/foundation/Export.h"

#include <stdexcept>

namespace connector::tarn {

/// What was moved is not what the other side has: the two SHA-256 differ. what() tells both.
class TARN_API DigestMismatch : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace connector::tarn
