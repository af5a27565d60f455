#include "tarnhost/Router.h"

#include "tarn/foundation/DeliveryScope.h"
#include "tarn/foundation/Promise.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/TransportError.h"

#include <mutex>
#include <stdexcept>
#include <string_view>

namespace connector::host {
namespace {

using Reply = std::unique_ptr<Message>;

bool isRefusal(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const std::runtime_error& error) {
        return std::string_view(error.what()) == errors::notRunning;
    } catch (...) {
        return false;
    }
}

// Exceptions are handed over after their catch has ended: the thread that receives one is then the last to
// release it.

/// One message on its way to its provider.
struct Errand {
    std::shared_ptr<Router> router;
    std::shared_ptr<ServiceProvider> provider;
    std::unique_ptr<Message> message;
    Address to;
    Address onward;

    /// @return what the provider does, or the failure that keeps it from that
    Future<Reply> run()
    {
        const DeliveryScope scope("a message to ", &to.getName());
        std::exception_ptr failure;
        try {
            if (router->isClosed()) throw errors::hostStoppedError();
            auto reply = provider->deliver(std::move(message), std::move(onward), router);
            if (!reply.isValid()) throw std::runtime_error(errors::noFuture);
            return reply;
        } catch (...) {
            failure = std::current_exception();
        }
        return makeFailedFuture<Reply>(std::move(failure));
    }
};

/// The promise of a reply. Whatever becomes of the job that holds it, it is kept.
struct Pledge {
    explicit Pledge(std::shared_ptr<Router> from) : router(std::move(from)) {}

    Pledge(Pledge&&) = default;
    Pledge& operator=(Pledge&&) = delete;

    /// Jobs that come when the threads have ended go without having run.
    ~Pledge()
    {
        if (router) promise.setException(std::make_exception_ptr(errors::hostStoppedError()));
    }

    /// Resolves the promise with the outcome of `reply`, once there is one.
    void passOn(Future<Reply> reply)
    {
        static_cast<void>(
            reply.then([to = std::move(promise), from = std::move(router)](Future<Reply>&& ready) mutable {
                Reply value;
                std::exception_ptr failure;
                try {
                    value = ready.get();
                } catch (...) {
                    failure = std::current_exception();
                }
                // A provider that closing stopped just before the message came speaks of itself; the sender has
                // to hear of the host.
                if (failure && from->isClosed() && isRefusal(failure)) {
                    failure = std::make_exception_ptr(errors::hostStoppedError());
                }
                failure ? to.setException(std::move(failure)) : to.setValue(std::move(value));
            }));
    }

    std::shared_ptr<Router> router; ///< null once passed on
    Promise<Reply> promise;
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
                              const Address& onward, Delivery delivery)
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
        entries.emplace(address.getName(), Entry{provider, onward, delivery});
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

bool Router::isClosed() const
{
    std::shared_lock lock(mutex);
    return !threads;
}

Future<Reply> Router::send(std::unique_ptr<Message>&& message, Address&& to)
{
    Entry found;
    std::shared_ptr<DeliveryThreads> pool;
    {
        std::shared_lock lock(mutex);
        if (!threads) return makeExceptionalFuture<Reply>(errors::hostStoppedError());
        auto entry = entries.find(to.getName());
        if (entry == entries.end()) {
            return makeExceptionalFuture<Reply>(std::runtime_error(errors::noService(to.getName())));
        }
        found = entry->second;
        pool = threads;
    }
    auto self = shared_from_this();
    Errand errand{self, std::move(found.provider), std::move(message), std::move(to),
                  std::move(found.onward)};
    Future<Reply> answer;
    if (found.delivery == Delivery::atOnce || (found.delivery == Delivery::direct && pool->isCurrent())) {
        answer = errand.run();
        if (!answer.isReady()) return answer;
    }
    Pledge pledge(std::move(self));
    auto future = pledge.promise.getFuture();
    if (answer.isValid()) {
        pool->post([held = std::move(pledge), ready = std::move(answer)]() mutable {
            held.passOn(std::move(ready));
        });
    } else {
        pool->post([held = std::move(pledge), job = std::move(errand)]() mutable { held.passOn(job.run()); });
    }
    return future;
}

} // namespace connector::host
