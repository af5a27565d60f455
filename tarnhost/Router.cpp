#include "tarnhost/Router.h"

#include "tarn/foundation/Promise.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"

#include <mutex>
#include <stdexcept>

namespace connector::host {
namespace {

using Reply = std::unique_ptr<Message>;

Future<Reply> refused(const std::string& text)
{
    return makeExceptionalFuture<Reply>(std::runtime_error(text));
}

/// Resolves `promise` with the outcome of `reply`, once there is one.
void passOn(Future<Reply> reply, Promise<Reply> promise)
{
    reply.then([to = std::move(promise)](Future<Reply>&& ready) mutable {
        Reply value;
        std::exception_ptr failure;
        try {
            value = ready.get();
        } catch (...) {
            failure = std::current_exception();
        }
        failure ? to.setException(std::move(failure)) : to.setValue(std::move(value));
        return true;
    });
}

// Exceptions are handed over after their catch has ended: the thread that receives one is then the last to
// release it.

/// One message on its way to its provider.
struct Delivery {
    std::shared_ptr<ServiceProvider> provider;
    std::unique_ptr<Message> message;
    Address onward;
    std::shared_ptr<Context> context;
    Promise<Reply> promise;

    void operator()()
    {
        Future<Reply> reply;
        std::exception_ptr failure;
        try {
            reply = provider->deliver(std::move(message), std::move(onward), std::move(context));
            if (!reply.isValid()) throw std::runtime_error(errors::noFuture);
        } catch (...) {
            failure = std::current_exception();
        }
        if (failure) {
            promise.setException(std::move(failure));
        } else {
            passOn(std::move(reply), std::move(promise));
        }
    }
};

void stopQuietly(ServiceProvider& provider) noexcept
{
    try {
        provider.stop();
    } catch (...) { // the provider counts as stopped before its hook runs; the others have to stop as well
    }
}

} // namespace

Router::Router(std::shared_ptr<DeliveryThreads> deliveryThreads) : threads(std::move(deliveryThreads)) {}

void Router::requireFree(const Address& address) const
{
    if (!threads) throw std::runtime_error(errors::hostStopped);
    if (entries.contains(address.getName())) {
        throw std::invalid_argument(errors::addressTaken(address.getName()));
    }
}

void Router::registerProvider(const Address& address, std::shared_ptr<ServiceProvider> provider,
                              const Address& onward)
{
    if (!provider) throw std::invalid_argument(errors::nullProvider);
    {
        std::shared_lock lock(mutex);
        requireFree(address);
    }
    provider->start();
    try {
        std::unique_lock lock(mutex);
        requireFree(address);
        entries.emplace(address.getName(), Entry{provider, onward});
    } catch (...) {
        stopQuietly(*provider);
        throw;
    }
}

bool Router::unregisterProvider(const Address& address)
{
    std::unique_lock lock(mutex);
    auto taken = entries.extract(address.getName());
    lock.unlock();
    if (taken.empty()) return false;
    taken.mapped().provider->stop();
    return true;
}

void Router::close() noexcept
{
    std::map<std::string, Entry> taken;
    std::shared_ptr<DeliveryThreads> released;
    {
        std::unique_lock lock(mutex);
        taken.swap(entries);
        released.swap(threads);
    }
    for (auto& [name, entry] : taken)
        stopQuietly(*entry.provider);
}

Future<Reply> Router::send(std::unique_ptr<Message>&& message, Address&& to)
{
    Entry found;
    std::shared_ptr<DeliveryThreads> pool;
    {
        std::shared_lock lock(mutex);
        if (!threads) return refused(errors::hostStopped);
        auto entry = entries.find(to.getName());
        if (entry == entries.end()) return refused(errors::noService(to.getName()));
        found = entry->second;
        pool = threads;
    }
    Promise<Reply> promise;
    auto future = promise.getFuture();
    pool->post(Delivery{std::move(found.provider), std::move(message), std::move(found.onward),
                        shared_from_this(), std::move(promise)});
    return future;
}

} // namespace connector::host
