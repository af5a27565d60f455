#pragma once

#include "tarn/foundation/platform/Configuration.h"

#include <memory>
#include <string>
#include <vector>

namespace tarntest {

using connector::configuration::ConfigValue;

class CountingSubscription : public connector::reactive_streams::Subscription {
public:
    void request(std::uint64_t n) override { requested.push_back(n); }

    void cancel() override { ++cancels; }

    std::vector<std::uint64_t> requested;
    int cancels = 0;
};

/// A configuration store that records what is asked of it and delivers when the test says so.
class FakeConfiguration : public connector::configuration::Configuration,
                          public connector::reactive_streams::PublisherAPI<ConfigValue>,
                          public std::enable_shared_from_this<FakeConfiguration> {
public:
    connector::Future<bool> registerDefault(const std::string& key, const ConfigValue& value,
                                            const std::string& layer) override
    {
        calls.push_back("default " + key + " " + boost::get<std::string>(value) + " " + layer);
        return connector::makeReadyFuture(true);
    }

    std::shared_ptr<PublisherAPI<ConfigValue>> observe(const std::string& key) override
    {
        calls.push_back("observe " + key);
        return shared_from_this();
    }

    connector::Future<bool> completion() override { return connector::makeReadyFuture(true); }

    void subscribe(std::shared_ptr<connector::reactive_streams::SubscriberAPI<ConfigValue>> added) override
    {
        subscriber = added;
        subscriber->onSubscribe(subscription);
    }

    std::vector<std::string> calls;
    std::shared_ptr<connector::reactive_streams::SubscriberAPI<ConfigValue>> subscriber;
    std::shared_ptr<CountingSubscription> subscription = std::make_shared<CountingSubscription>();
};

} // namespace tarntest
