#include "tarn/foundation/EndpointTracking.h"

#include "tarn/foundation/CallbackSubscriber.h"
#include "tarn/foundation/TypedCanceller.h"

namespace connector::tarn {

using configuration::ConfigValue;
using ValueSubscriber = reactive_streams::CallbackSubscriber<ConfigValue>;
using SubscriberCanceller = reactive_streams::TypedCanceller<std::shared_ptr<ValueSubscriber>>;

Cancellers trackEndpoint(const std::shared_ptr<configuration::Configuration>& configuration,
                         const std::string& endpoint, std::function<void(ConfigValue&&)> onValue)
{
    if (!configuration) return {};
    // The default comes first, so that the first value delivered is the host's or this one, never none.
    // Nobody waits for it: a store that cannot take a default still has the values that the host set.
    static_cast<void>(configuration->registerDefault(endpointKey, ConfigValue(endpoint), "default"));
    auto values = configuration->observe(endpointKey);
    auto subscriber = std::make_shared<ValueSubscriber>(std::move(onValue));
    // The canceller comes before the first value: should that throw, the publisher must not keep a subscriber
    // whose provider was never finished.
    Cancellers cancellers{std::shared_ptr<reactive_streams::Canceller>(new SubscriberCanceller(subscriber))};
    values->subscribe(subscriber);
    return cancellers;
}

} // namespace connector::tarn
