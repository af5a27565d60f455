#pragma once

#include "tarn/foundation/Export.h"
#include "tarn/foundation/platform/Configuration.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace connector::tarn {

/// The configuration key of the service's base URL, for example "https://files.example.org".
inline constexpr const char* endpointKey = "connector.tarnEndpoint";

/// What keeps a subscription alive; dropping the elements ends it.
using Cancellers = std::vector<std::shared_ptr<reactive_streams::Canceller>>;

/// Declares `endpoint` as the default of `endpointKey` and follows the key from then on.
///
/// @param configuration  null: the endpoint never changes, and the result is empty
/// @param onValue  called with the current value and with each later one, on threads of the configuration's choice;
///                 a store that delivers at once calls it before this returns. It reads the value's std::string
///                 alternative and throws boost::bad_get otherwise. Once the result is dropped, it is not called
///                 again and not running, unless it is itself what drops it
/// @throws whatever the configuration throws
TARN_API Cancellers trackEndpoint(const std::shared_ptr<configuration::Configuration>& configuration,
                                  const std::string& endpoint,
                                  std::function<void(configuration::ConfigValue&&)> onValue);

} // namespace connector::tarn
