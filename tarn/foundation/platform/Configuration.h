#pragma once

#include "tarn/foundation/platform/ConfigValue.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <memory>
#include <string>

namespace connector::configuration {

/// The host's configuration store, as far as the library needs it.
class TARN_API Configuration {
public:
    virtual ~Configuration() = default;

    /// Declares the value that `key` has until one is set. The same key may be declared several times.
    /// @param layer  the configuration layer that the default belongs to; this library always passes "default"
    /// @return true once the default is known to the store. Nobody waits for it
    virtual Future<bool> registerDefault(const std::string& key, const ConfigValue& value,
                                         const std::string& layer) = 0;

    /// A publisher that delivers the current value of `key` and then every later one, on threads of its choice. Whoever
    /// observes keeps the subscription and not the publisher, which has to last as long as it has subscribers.
    ///
    /// Of the library's one key, the endpoint, a value is a base URL as std::string, without "/" at its end.
    virtual std::shared_ptr<reactive_streams::PublisherAPI<ConfigValue>> observe(const std::string& key) = 0;
};

} // namespace connector::configuration
