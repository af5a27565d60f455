#include "cli/transfer/ContentRelay.h"

#include "cli/remote/Requests.h"

#include <mutex>
#include <optional>
#include <utility>

namespace tarncli {

namespace {

using namespace connector::tarn;
using connector::Future;
using connector::common::DataBuffer;
using connector::reactive_streams::PublisherAPI;
using connector::reactive_streams::SubscriberAPI;
using connector::reactive_streams::Subscription;

/// What the download tells before the upload listens is kept; its items wait to be asked for.
class Relay : public SubscriberAPI<DataBuffer> {
public:
    explicit Relay(MovedBytes counter) : moved(std::move(counter)) {}

    /// What was not sent to its end is sent again, or not at all.
    ~Relay() override
    {
        if (!complete) *moved -= seen;
    }

    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    void sendTo(ContentSubscriber subscriber)
    {
        const std::lock_guard lock(mutex);
        receiver = std::move(subscriber);
        tell();
    }

    void onSubscribe(std::weak_ptr<Subscription> offered) override
    {
        const std::lock_guard lock(mutex);
        subscription = offered;
        subscribed = true;
        tell();
    }

    /// Known with the head; nothing: the network layer knows where the content ends.
    void limitTo(std::optional<std::uint64_t> bytes) { limit = bytes; }

    void onNext(DataBuffer&& item) override
    {
        if (limit && seen + item.size > *limit)
            throw Failure(ExitCode::failure, "The service sends more than the file has.");
        seen += item.size;
        *moved += item.size;
        receiver->onNext(std::move(item)); // is there: without it nothing is asked for
    }

    void onComplete() override
    {
        const std::lock_guard lock(mutex);
        complete = true;
        tell();
    }

    void onError(std::exception_ptr error) override
    {
        const std::lock_guard lock(mutex);
        if (!failure) failure = std::move(error);
        tell();
    }

    void cancel() override
    {
        std::weak_ptr<Subscription> held;
        {
            const std::lock_guard lock(mutex);
            held = subscription;
        }
        if (const auto running = held.lock()) running->cancel();
    }

    Future<bool> completion() override { return connector::makeReadyFuture(true); }

private:
    /// Under the lock, so that it comes in order: the receiver takes note of it and asks on a task of its own.
    void tell()
    {
        if (!receiver) return;
        if (std::exchange(subscribed, false)) receiver->onSubscribe(subscription);
        if (ended || !(complete || failure)) return;
        ended = true;
        complete ? receiver->onComplete() : receiver->onError(failure);
    }

    MovedBytes moved;
    std::uint64_t seen = 0;
    std::optional<std::uint64_t> limit;
    std::mutex mutex; ///< guards what follows
    ContentSubscriber receiver;
    std::weak_ptr<Subscription> subscription;
    std::exception_ptr failure;
    bool subscribed = false; ///< and the receiver does not know
    bool complete = false;
    bool ended = false; ///< and the receiver knows
};

class Relayed : public PublisherAPI<DataBuffer> {
public:
    explicit Relayed(std::shared_ptr<Relay> content) : relay(std::move(content)) {}

    /// Nobody takes any more.
    ~Relayed() override { relay->cancel(); }

    Relayed(const Relayed&) = delete;
    Relayed& operator=(const Relayed&) = delete;

    void subscribe(ContentSubscriber subscriber) override { relay->sendTo(std::move(subscriber)); }

    Future<bool> completion() override { return connector::makeReadyFuture(true); }

private:
    std::shared_ptr<Relay> relay;
};

} // namespace

ContentPublisher contentOf(Connection& connection, const RemotePath& file, std::uint64_t size,
                           const MovedBytes& moved)
{
    auto relay = std::make_shared<Relay>(moved);
    auto request = requestFor<FileDownload>(file);
    request->content = relay;
    request->onHead = [relay, size](const FileDownloadHead& head) {
        relay->limitTo(head.totalSize ? std::nullopt : std::optional(size));
    };
    static_cast<void>(connection.contents()
                          .downloadFile(std::move(request))
                          .then([relay](Future<std::unique_ptr<FileDownloadResponse>>&& reply) {
                              try {
                                  reply.get();
                              } catch (...) {
                                  relay->onError(std::current_exception());
                              }
                          }));
    return std::make_shared<Relayed>(std::move(relay));
}

} // namespace tarncli
