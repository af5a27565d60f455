#pragma once

#include <exception>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace connector::host::detail {

class IncomingStream;

/// Owns the bodies that have been handed to the application and have not ended: a subscriber that asks for
/// nothing for an hour still finds its stream, and a host that is shut down finds all of them.
class LiveStreams {
public:
    void add(std::shared_ptr<IncomingStream> stream);
    /// Of a stream that is not there (any more) it does nothing.
    void remove(const IncomingStream* stream);
    /// Ends all streams with `error`.
    void failAll(const std::exception_ptr& error);

private:
    std::mutex mutex; ///< guards the map; streams are called and released without it
    std::unordered_map<const IncomingStream*, std::shared_ptr<IncomingStream>> streams;
};

} // namespace connector::host::detail
