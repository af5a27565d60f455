#include "tarnhost/detail/LiveStreams.h"

#include "tarnhost/detail/IncomingStream.h"

#include <utility>

namespace connector::host::detail {

void LiveStreams::add(std::shared_ptr<IncomingStream> stream)
{
    const IncomingStream* key = stream.get();
    std::lock_guard lock(mutex);
    streams.emplace(key, std::move(stream));
}

void LiveStreams::remove(const IncomingStream* stream)
{
    std::unique_lock lock(mutex);
    const auto taken = streams.extract(stream);
    lock.unlock();
}

void LiveStreams::failAll(const std::exception_ptr& error)
{
    decltype(streams) taken;
    {
        std::lock_guard lock(mutex);
        taken.swap(streams);
    }
    for (const auto& [key, stream] : taken)
        stream->abandon(error);
}

} // namespace connector::host::detail
