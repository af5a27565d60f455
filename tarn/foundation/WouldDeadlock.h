#pragma once

#include "tarn/foundation/Export.h"

#include <stdexcept>

namespace connector {

/// Thrown by Future::get where it would block a thread that delivers: see DeliveryScope.
///
/// what() names the type of the result that is waited for and what the thread is busy with. The future stays as
/// it was, so that `then` may still be used.
class TARN_API WouldDeadlock : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

} // namespace connector
