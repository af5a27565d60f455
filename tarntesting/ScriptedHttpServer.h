#pragma once

#include "tarn/foundation/Export.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tarntesting {

/// A server on a free loopback port that sends exactly the bytes a test wants and keeps those it received.
///
/// Each connection runs the script on a thread of its own; when the script returns, the connection is closed.
/// The destructor cuts all connections and waits for the scripts, whose reads then find the end.
class TARN_API ScriptedHttpServer {
public:
    class TARN_API Connection {
    public:
        /// 0 for the first connection to the server, and so on.
        unsigned number() const { return ordinal; }

        /// The next request up to and including the empty line; nothing once the peer has closed. It is
        /// recorded in `heads`.
        std::optional<std::string> readHead();
        /// The next request with its body, as long as Content-Length says or up to the last chunk; recorded in
        /// `heads` and `requests`.
        std::optional<std::string> readRequest();
        /// Reads `bytes` bytes and drops them. @return false when the peer has gone before
        bool skip(std::size_t bytes);
        /// @return false when the peer has gone
        bool send(std::string_view bytes);
        /// Sits still until the peer or the server goes.
        void stall();
        /// Reads nothing until the peer or the server goes.
        void ignore();
        /// Makes the close that follows a reset.
        void reset();
        /// How many of these bytes go on; where not all do, the connection ends after them.
        using Gate = std::function<std::size_t(std::size_t bytes, bool isReply)>;
        /// Passes everything on to the server at this port of loopback and back, instead of answering.
        void relay(std::uint16_t port, const Gate& gate);

    private:
        friend class ScriptedHttpServer;
        bool fill();

        ScriptedHttpServer* server = nullptr;
        unsigned ordinal = 0;
        int socket = -1;
        std::string buffered;
    };

    using Script = std::function<void(Connection&)>;

    explicit ScriptedHttpServer(Script script);
    ~ScriptedHttpServer();
    ScriptedHttpServer(const ScriptedHttpServer&) = delete;
    ScriptedHttpServer& operator=(const ScriptedHttpServer&) = delete;

    /// Answers every request on every connection with `reply`.
    static Script always(std::string reply);
    /// A complete reply with this body.
    static std::string reply(const std::string& body, const std::string& status = "200 OK");

    std::uint16_t port() const { return boundPort; }

    /// "127.0.0.1:PORT"
    std::string peer() const { return "127.0.0.1:" + std::to_string(boundPort); }

    std::string url(const std::string& path = "") const { return "http://" + peer() + path; }

    std::vector<std::string> heads() const;
    std::vector<std::string> requests() const;
    unsigned connectionCount() const;
    /// The largest number of connections open at the same time.
    unsigned peakConnections() const;
    /// @return whether `count` request heads had arrived within 20 seconds
    bool waitForHeads(std::size_t count) const;

private:
    void accept();
    void serve(unsigned ordinal, int socket);

    Script script;
    int listener = -1;
    std::uint16_t boundPort = 0;
    mutable std::mutex mutex; ///< guards everything below, the acceptor excepted
    mutable std::condition_variable changed;
    std::vector<std::string> recordedHeads;
    std::vector<std::string> recordedRequests;
    std::vector<int> open;
    std::vector<std::thread> workers;
    unsigned connections = 0;
    unsigned peak = 0;
    std::thread acceptor;
};

/// A loopback port on which nothing listens.
TARN_API std::uint16_t closedPort();

} // namespace tarntesting
