#pragma once

#include "tarnd/http/ConnectionTable.h"
#include "tarnd/http/Exchange.h"

#include <chrono>
#include <memory>
#include <string>

namespace tarnd {

struct ServerOptions {
    int listenSocket = -1; ///< listening and non-blocking; the server closes it
    ConnectionLimits limits;
    std::chrono::seconds idleTimeout{60}; ///< a connection on which nothing moves for so long is closed
    std::string tlsCertificate;           ///< PEM; empty: plain HTTP
    std::string tlsKey;                   ///< PEM
};

/// Speaks HTTP/1.1 on a socket and answers every request through an Exchange.
///
/// Contents go out by sendfile and come in piece by piece: no file is ever gathered in memory. A request
/// whose body ends early is dropped before its handler runs.
class HttpServer {
public:
    /// Accepts connections once constructed. `site` outlives the server.
    /// @throws std::runtime_error when the server cannot start, with the reason
    HttpServer(const ServerOptions& options, Site& site);

    /// Ends at once; requests under way are dropped.
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    /// Takes no more connections and waits until the requests under way are answered, `limit` at most. True
    /// when they are; may be called again when they are not.
    bool drain(std::chrono::milliseconds limit);

    /// Connections that come from now on get this certificate; those that are there go on with theirs. PEM both.
    /// @throws std::runtime_error for a certificate that cannot be used, or a server without TLS; nothing changes then
    void useCertificate(const std::string& certificate, const std::string& key);

private:
    struct Connections;
    std::unique_ptr<Connections> connections;
};

} // namespace tarnd
