#include "tarn/transfer/detail/MeasuredContent.h"

#include <stdexcept>

namespace connector::tarn::detail {
namespace {

using common::DataBuffer;

/// Between the publisher and the host. Kept by the publisher, keeps nothing of it.
class MeasuringSubscriber : public reactive_streams::SubscriberAPI<DataBuffer> {
public:
    MeasuringSubscriber(ContentSubscriber next, std::shared_ptr<Measure> measure,
                        std::optional<std::uint64_t> expected)
        : receiver(std::move(next)), measured(std::move(measure)), size(expected)
    {
    }

    void onSubscribe(std::weak_ptr<reactive_streams::Subscription> subscription) override
    {
        receiver->onSubscribe(std::move(subscription));
    }

    void onNext(DataBuffer&& item) override
    {
        if (ended) return; // the host drops it, too
        measured->add(item.bytes());
        // Not only at the end: the service may answer once it has these bytes, before the publisher tells that there
        // are no more.
        if (measured->bytes() == size) measured->finish();
        receiver->onNext(std::move(item));
    }

    void onComplete() override
    {
        ended = true;
        if (const auto bytes = measured->bytes(); size && bytes != *size) {
            receiver->onError(std::make_exception_ptr(std::runtime_error("The content ended after " +
                                                                         std::to_string(bytes) + " of " +
                                                                         std::to_string(*size) + " bytes.")));
            return;
        }
        measured->finish();
        receiver->onComplete();
    }

    void onError(std::exception_ptr error) override { receiver->onError(std::move(error)); }

    void cancel() override { receiver->cancel(); }

    Future<bool> completion() override { return receiver->completion(); }

private:
    const ContentSubscriber receiver;
    const std::shared_ptr<Measure> measured;
    const std::optional<std::uint64_t> size;
    bool ended = false;
};

} // namespace

void Measure::add(std::string_view bytes)
{
    std::lock_guard lock(mutex);
    hash.add(bytes);
}

void Measure::finish()
{
    std::lock_guard lock(mutex);
    finished = true;
}

std::uint64_t Measure::bytes() const
{
    std::lock_guard lock(mutex);
    return hash.bytes();
}

std::string Measure::sha256() const
{
    std::lock_guard lock(mutex);
    if (!finished) throw std::runtime_error("The service answered before it had the whole content.");
    return hash.hex();
}

MeasuredContent::MeasuredContent(ContentPublisher content, std::optional<std::uint64_t> expected)
    : source(std::move(content)), size(expected), measured(std::make_shared<Measure>())
{
    if (size == 0u) measured->finish();
}

void MeasuredContent::subscribe(ContentSubscriber subscriber)
{
    source->subscribe(std::make_shared<MeasuringSubscriber>(std::move(subscriber), measured, size));
}

} // namespace connector::tarn::detail
