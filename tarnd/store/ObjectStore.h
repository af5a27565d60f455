#pragma once

#include "tarnd/store/Contents.h"
#include "tarnd/store/ObjectExchange.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnd {

/// The operations of an S3-compatible object store that contents need. Keys are what follows the prefix, of characters
/// that need no encoding; each is written once. All calls may run on any thread and fail with ServiceError: objectsGone
/// when the store is away, internal when it refuses. What is safe to repeat is tried three times.
class ObjectStore {
public:
    explicit ObjectStore(ObjectStoreAddress address) : connections(std::move(address)) {}

    const ObjectStoreAddress& address() const { return connections.address; }

    /// All of an object; nothing if it is not there.
    std::optional<std::string> text(const std::string& key);

    /// @param sha256 of the text, 64 hex digits
    void putText(const std::string& key, const std::string& text, const std::string& sha256);

    /// Nothing if the object is not there.
    std::unique_ptr<ContentStream> open(const std::string& key);

    /// How long an object has been there, by the store's own clock; nothing if it is not there. Tried once.
    std::optional<std::chrono::seconds> age(const std::string& key);

    /// Removes an object, or ends an upload in parts; one that is not there is no error.
    void remove(const std::string& key, const std::string& uploadId = {});

    /// All keys that begin so, sorted. May be a little behind what was put and removed.
    std::vector<std::string> keys(const std::string& beginning);

    /// An upload that goes on as long as its exchange; its reply is 200 when the object, or the part, is durable.
    std::unique_ptr<ObjectExchange> put(const std::string& key, std::uint64_t size);
    std::unique_ptr<ObjectExchange> putPart(const std::string& key, const std::string& uploadId,
                                            std::size_t number, std::uint64_t size);

    /// Begins an object of parts; returns the id of the upload.
    std::string beginParts(const std::string& key);

    /// @param tags of the parts, in their order
    void completeParts(const std::string& key, const std::string& uploadId,
                       const std::vector<std::string>& tags);

    struct Unfinished {
        std::string key, uploadId;
        std::chrono::seconds age;
    };

    /// Uploads in parts that were begun and not completed; a thousand at most.
    std::vector<Unfinished> unfinished();

    /// Fails what waits at the moment.
    void interruptWaits() { connections.interruptWaits(); }

private:
    ObjectConnections connections;
};

} // namespace tarnd
