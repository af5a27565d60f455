#pragma once

#include "tarn/foundation/Export.h"

#include <stdexcept>

namespace connector::tarn {

/// What the service has sent is not the part of the file that was asked for, or the file ends before that.
class TARN_API PartMismatch : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace connector::tarn
