#pragma once

#include "tarnd/store/ObjectStoreAddress.h"
#include "tarnd/store/ServiceError.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnd {

/// Connections to an object store, kept for the next who needs one. All calls may run on any thread.
class ObjectConnections {
public:
    explicit ObjectConnections(ObjectStoreAddress address);
    ~ObjectConnections();

    const ObjectStoreAddress address;

    /// Fails the exchanges that wait at the moment.
    void interruptWaits() { ++interruptions; }

private:
    friend class ObjectExchange;

    /// libcurl's handles: what it keeps open belongs to the second.
    struct Connection;

    std::unique_ptr<Connection> take();
    void giveBack(std::unique_ptr<Connection> connection);

    const ObjectStoreKey key;
    std::atomic<unsigned> interruptions = 0;
    std::mutex mutex; ///< guards the member below
    std::vector<std::unique_ptr<Connection>> idle;
};

/// What is asked of the store.
struct ObjectRequest {
    std::string method;
    std::string key;                          ///< behind the prefix; for none, the bucket
    std::map<std::string, std::string> query; ///< plain texts; in the order in which they are signed
    std::string body = {};                    ///< of a POST
    std::optional<std::uint64_t> upload = {}; ///< bytes that send() will bring
    std::string sha256 = {};                  ///< of these, when it is known: the store compares
    std::string range = {};                   ///< "5-9"
};

/// One request and its reply, on the thread that calls; bytes move only within calls, and wait for no longer than
/// ten seconds without any. What fails is a ServiceError `objectsGone`, with the reason for the log.
class ObjectExchange {
public:
    ObjectExchange(ObjectConnections& connections, ObjectRequest request);

    /// What has not come to its end is broken off.
    ~ObjectExchange();
    ObjectExchange(const ObjectExchange&) = delete;
    ObjectExchange& operator=(const ObjectExchange&) = delete;

    /// The next bytes of the upload; returns once they are on their way, or the store has answered already.
    void send(const void* data, std::size_t size);

    /// The status, once the head of the reply is there. @pre the whole upload was sent
    long status();

    /// A header of the reply, by its name in lower case; empty when there is none. @pre status() was called
    std::string header(const std::string& name) const;

    /// The next bytes of the reply, at least one; 0 at its end. @pre status() was called
    std::size_t read(void* data, std::size_t size);

    /// The rest of the reply, which has to be short.
    std::string rest();

    /// An error for what the store has answered. @pre status() was called
    ServiceError refusal();

private:
    using Clock = std::chrono::steady_clock;

    template <class Done>
    void drive(Done&& done);
    [[noreturn]] void fail(const std::string& why) const;
    void setUp();

    static std::size_t onUpload(char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t onHeader(const char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(const char* data, std::size_t size, std::size_t count, void* self);

    ObjectConnections& connections;
    const ObjectRequest request;
    const unsigned interruptions; ///< until the request began
    std::unique_ptr<ObjectConnections::Connection> connection;
    std::string_view pending; ///< given and not yet taken by the socket
    std::uint64_t given = 0;  ///< bytes of the upload
    std::uint64_t moved = 0;  ///< bytes in either direction
    bool headCame = false;
    std::map<std::string, std::string> headers;
    std::string received; ///< and not yet read
    std::size_t readOfReceived = 0;
    bool ended = false;
    int result = 0; ///< libcurl's, once it has ended
};

} // namespace tarnd
