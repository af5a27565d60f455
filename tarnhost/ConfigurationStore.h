#pragma once

#include "tarn/foundation/platform/Configuration.h"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace connector::host {

/// Configuration values in memory, by key: a default below, a set value above it.
///
/// Usable from any thread. Values reach each subscriber in the order they were set, one at a time, on the
/// thread that sets them (or that subscribes, or requests); when another thread is just delivering to that
/// subscriber, that thread delivers the new value too. No lock is held meanwhile.
///
/// Cancelling a subscription ends further deliveries; one that runs on another thread may still be under way. The
/// library's own subscribers wait for it in their cancel.
class TARN_API ConfigurationStore : public configuration::Configuration {
public:
    /// The first default of a key stays. All defaults form one layer, whatever `layer` says.
    /// @return true, resolved already
    Future<bool> registerDefault(const std::string& key, const configuration::ConfigValue& value,
                                 const std::string& layer) override;

    /// Each subscriber gets the current value, if there is one, and every later change, as its demand allows.
    /// An exception out of the first delivery leaves `subscribe` and ends the subscription.
    std::shared_ptr<reactive_streams::PublisherAPI<configuration::ConfigValue>>
    observe(const std::string& key) override;

    /// Sets the value of `key`; an equal one changes nothing.
    ///
    /// When a subscriber throws, the value stays, all others are told, and the first exception is rethrown:
    /// whoever sets the endpoint to a number hears boost::bad_get.
    void set(const std::string& key, const configuration::ConfigValue& value);

    /// Sets text, narrow or UTF-16, given as a literal, which would otherwise turn into a bool.
    template <class Character>
    void set(const std::string& key, const Character* text)
    {
        set(key, configuration::ConfigValue(std::basic_string<Character>(text)));
    }

    /// The value set, else the default, else nothing.
    std::optional<configuration::ConfigValue> get(const std::string& key) const;

private:
    class Entry;
    class ValueSubscription;
    class ValuePublisher;

    std::shared_ptr<Entry> entry(const std::string& key);

    mutable std::mutex mutex; ///< guards `entries`, not what they point to
    std::map<std::string, std::shared_ptr<Entry>> entries;
};

} // namespace connector::host
