#include "tarn/foundation/ContentReduction.h"

#include "tarn/foundation/ReducingSubscriber.h"

#include <cstring>
#include <limits>

namespace connector::reactive_streams {

using common::DataBuffer;

DataBuffer appendContent(DataBuffer&& item, DataBuffer&& accumulator)
{
    if (&item == &accumulator || item.size == 0) return std::move(accumulator);
    if (!accumulator.data && item.capacity == item.size) return std::move(item);
    if (item.size > std::numeric_limits<std::uint64_t>::max() - accumulator.size) {
        throw std::runtime_error("Out of memory!");
    }
    const std::uint64_t needed = accumulator.size + item.size;
    accumulator.reserve(needed);
    std::memcpy(static_cast<char*>(accumulator.data) + accumulator.size, item.data, item.size);
    accumulator.size = needed;
    return std::move(accumulator);
}

Future<DataBuffer> reduceContentToDataBuffer(std::shared_ptr<PublisherAPI<DataBuffer>>& publisher)
{
    auto subscriber =
        std::make_shared<ReducingSubscriber<DataBuffer, DataBuffer>>(DataBuffer(), appendContent);
    auto content = subscriber->getFuture();
    publisher->subscribe(subscriber);
    return content;
}

} // namespace connector::reactive_streams
