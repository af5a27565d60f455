#pragma once

#include "tarn/foundation/platform/Connector.h"
#include "tarn/foundation/platform/ServiceProvider.h"

#include <map>
#include <memory>
#include <shared_mutex>
#include <string>

namespace connector::host {

class DeliveryThreads;

/// When a provider takes a message.
enum class Delivery {
    queued, ///< as a job of its own, whoever sends it
    direct, ///< within `send`, where that is called on a delivery thread; otherwise queued. For a provider that
            ///< neither waits nor calls what its sender may hold a lock against
    atOnce, ///< within `send`, whichever thread calls that. For a provider that, besides, never calls what is not
            ///< its own, such as a subscriber, before its future is settled
};

/// Carries messages to the providers registered under their addresses.
///
/// Usable from any thread. Always owned by a shared_ptr: clients keep it as their context and may outlive the
/// host; after `close` it answers every message with an error. No lock is held while a provider runs.
class TARN_API Router : public Context, public Connector, public std::enable_shared_from_this<Router> {
public:
    explicit Router(std::shared_ptr<DeliveryThreads> deliveryThreads);

    /// Starts `provider` and hands it every message sent to `address` from then on.
    /// @param onward  given to the provider with each message: where it sends what it has to send on, such as
    ///   the address of the HTTP client
    /// @param delivery  saves the change of threads, which costs more than most providers do
    /// @throws std::invalid_argument for a null provider or an address that is taken; std::runtime_error
    ///   after `close`; whatever the provider's start throws. Nothing is registered then
    void registerProvider(const Address& address, std::shared_ptr<ServiceProvider> provider,
                          const Address& onward = Address(), Delivery delivery = Delivery::queued);

    /// Takes the provider at `address` out and stops it. Messages under way to it find it stopped.
    /// @return whether there was one
    bool unregisterProvider(const Address& address);

    /// Stops all providers; every later message, and every earlier one that no provider has begun to handle,
    /// fails as `send` says. The second call does nothing.
    void close() noexcept;

    /// Delivers `message` on a delivery thread, or as its provider was registered, and passes the provider's reply on.
    ///
    /// The future is resolved on the thread that resolves the provider's. What is answered within this call
    /// is passed on by a job, so that whoever sends again on every outcome does not fill its stack. It fails with
    /// what the provider threw or replied; before `send` returns with std::runtime_error `No service is
    /// registered at "<address>".`; with TransportError, phase shutdown, "The host has been shut down." once
    /// closed.
    Future<std::unique_ptr<Message>> send(std::unique_ptr<Message>&& message, Address&& to) override;

    bool isClosed() const;

    /// This router.
    std::shared_ptr<Context> getContext() override { return shared_from_this(); }

private:
    struct Entry {
        std::shared_ptr<ServiceProvider> provider;
        Address onward;
        Delivery delivery = Delivery::queued;
    };

    void requireFree(const Address& address) const;

    mutable std::shared_mutex mutex; ///< guards both members below
    std::map<std::string, Entry> entries;
    std::shared_ptr<DeliveryThreads> threads; ///< null once closed
};

} // namespace connector::host
