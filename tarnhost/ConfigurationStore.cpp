#include "tarnhost/ConfigurationStore.h"

#include <algorithm>
#include <deque>
#include <exception>
#include <utility>
#include <vector>

namespace connector::host {

using configuration::ConfigValue;
using reactive_streams::PublisherAPI;
using reactive_streams::SubscriberAPI;
using reactive_streams::Subscription;

/// One subscriber's queue. Whoever finds values, demand and no other thread at work delivers.
class ConfigurationStore::ValueSubscription : public Subscription {
public:
    ValueSubscription(std::shared_ptr<SubscriberAPI<ConfigValue>> receiver, std::weak_ptr<Entry> source)
        : subscriber(std::move(receiver)), entry(std::move(source))
    {
    }

    void enqueue(const ConfigValue& value)
    {
        std::lock_guard lock(mutex);
        if (!cancelled) waiting.push_back(value);
    }

    /// Delivers what is due. @return the first exception that the subscriber threw
    std::exception_ptr deliver();

    void request(std::uint64_t n) override
    {
        {
            std::lock_guard lock(mutex);
            demand = n > reactive_streams::unboundedDemand - demand ? reactive_streams::unboundedDemand
                                                                    : demand + n;
        }
        if (auto error = deliver()) std::rethrow_exception(error);
    }

    void cancel() override;

private:
    bool isDue() const { return !cancelled && demand > 0 && !waiting.empty(); }

    const std::shared_ptr<SubscriberAPI<ConfigValue>> subscriber;
    const std::weak_ptr<Entry> entry;
    std::mutex mutex; ///< guards everything below
    std::deque<ConfigValue> waiting;
    std::uint64_t demand = 0;
    bool cancelled = false;
    bool delivering = false; ///< some thread delivers, and takes what comes meanwhile along
};

/// What is known of one key.
class ConfigurationStore::Entry : public std::enable_shared_from_this<Entry> {
public:
    using Subscriptions = std::vector<std::shared_ptr<ValueSubscription>>;

    std::optional<ConfigValue> current()
    {
        std::lock_guard lock(mutex);
        return chosen ? chosen : fallback;
    }

    void setDefault(const ConfigValue& value)
    {
        std::unique_lock lock(mutex);
        if (fallback) return;
        fallback = value;
        if (!chosen) announce(value, std::move(lock));
    }

    void set(const ConfigValue& value)
    {
        std::unique_lock lock(mutex);
        const bool changed = !(chosen ? chosen == value : fallback == value);
        chosen = value;
        if (changed) announce(value, std::move(lock));
    }

    std::shared_ptr<ValueSubscription> add(std::shared_ptr<SubscriberAPI<ConfigValue>> subscriber)
    {
        auto added = std::make_shared<ValueSubscription>(std::move(subscriber), weak_from_this());
        std::lock_guard lock(mutex);
        if (const auto& value = chosen ? chosen : fallback) added->enqueue(*value);
        subscriptions.push_back(added);
        return added;
    }

    void remove(const ValueSubscription* gone)
    {
        std::shared_ptr<ValueSubscription> released; // destroyed after the lock: it may own the subscriber
        std::lock_guard lock(mutex);
        auto at = std::find_if(subscriptions.begin(), subscriptions.end(),
                               [gone](const auto& each) { return each.get() == gone; });
        if (at == subscriptions.end()) return;
        released = std::move(*at);
        subscriptions.erase(at);
    }

private:
    /// Queues under the lock, which puts concurrent values in one order for all; delivers without it.
    void announce(const ConfigValue& value, std::unique_lock<std::mutex> lock)
    {
        const Subscriptions told = subscriptions;
        for (const auto& each : told)
            each->enqueue(value);
        lock.unlock();
        std::exception_ptr first;
        for (const auto& each : told) {
            auto error = each->deliver();
            if (!first) first = error;
        }
        if (first) std::rethrow_exception(first);
    }

    std::mutex mutex; ///< guards everything below; taken before that of a subscription
    std::optional<ConfigValue> fallback;
    std::optional<ConfigValue> chosen;
    Subscriptions subscriptions;
};

std::exception_ptr ConfigurationStore::ValueSubscription::deliver()
{
    std::exception_ptr first;
    std::unique_lock lock(mutex);
    if (std::exchange(delivering, true)) return first;
    while (isDue()) {
        ConfigValue value = std::move(waiting.front());
        waiting.pop_front();
        if (demand != reactive_streams::unboundedDemand) --demand;
        lock.unlock();
        try {
            subscriber->onNext(std::move(value));
        } catch (...) {
            if (!first) first = std::current_exception();
        }
        lock.lock();
    }
    delivering = false;
    return first;
}

void ConfigurationStore::ValueSubscription::cancel()
{
    if (auto source = entry.lock()) source->remove(this);
    std::lock_guard lock(mutex);
    cancelled = true;
    waiting.clear();
}

/// Hands out subscriptions to one key; the key's entry keeps them, so the publisher may be dropped.
class ConfigurationStore::ValuePublisher : public PublisherAPI<ConfigValue> {
public:
    explicit ValuePublisher(std::shared_ptr<Entry> source) : entry(std::move(source)) {}

    Future<bool> completion() override { return makeReadyFuture(true); }

    void subscribe(std::shared_ptr<SubscriberAPI<ConfigValue>> subscriber) override
    {
        auto subscription = entry->add(subscriber);
        try {
            subscriber->onSubscribe(subscription);
        } catch (...) {
            subscription->cancel(); // the caller gives up what the subscriber refers to
            throw;
        }
    }

private:
    std::shared_ptr<Entry> entry;
};

std::shared_ptr<ConfigurationStore::Entry> ConfigurationStore::entry(const std::string& key)
{
    std::lock_guard lock(mutex);
    auto& found = entries[key];
    if (!found) found = std::make_shared<Entry>();
    return found;
}

Future<bool> ConfigurationStore::registerDefault(const std::string& key, const ConfigValue& value,
                                                 const std::string&)
{
    entry(key)->setDefault(value);
    return makeReadyFuture(true);
}

std::shared_ptr<PublisherAPI<ConfigValue>> ConfigurationStore::observe(const std::string& key)
{
    return std::make_shared<ValuePublisher>(entry(key));
}

void ConfigurationStore::set(const std::string& key, const ConfigValue& value)
{
    entry(key)->set(value);
}

std::optional<ConfigValue> ConfigurationStore::get(const std::string& key) const
{
    std::shared_ptr<Entry> known;
    {
        std::lock_guard lock(mutex);
        if (auto found = entries.find(key); found != entries.end()) known = found->second;
    }
    return known ? known->current() : std::nullopt;
}

} // namespace connector::host
