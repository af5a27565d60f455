#pragma once

#include "support/ScriptedHttpServer.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A service that goes wrong in one chosen way, and can show that it did. What can go wrong is one table, for
/// the library and the command line alike.
namespace connector::host::test {

/// What a client can truthfully report after a fault.
enum class Ending {
    noConnection, ///< nothing was sent
    noReply,      ///< sent, and no complete reply came: a change may have happened
    error,        ///< a complete reply that says `Fault::text`
    notXml,       ///< status 200 with the body `Fault::text`, which is no well-formed XML
    otherXml,     ///< status 200 with a well-formed document, but not the service's: `Fault::text`
    cut,          ///< status 200 and the true body without its last byte: nothing in the reply tells
    truth,        ///< the true reply, however it was dressed
};

/// A reply as a service in good health sends it.
struct TrueReply {
    std::string head; ///< up to and including the empty line
    std::string body;
};

/// One of status 200 with this body.
TrueReply replyOf(const std::string& type, const std::string& body);
/// One with this in its document.
TrueReply document(const std::string& inner);

struct Fault {
    enum class Door {
        open,
        shut,  ///< connections are refused
        stuck, ///< connections are never accepted
    };
    using Play = std::function<void(ScriptedHttpServer::Connection&, const TrueReply&)>;

    std::string name;
    Ending ending;
    Play play = nullptr; ///< sends what is to be sent; the connection is closed when it returns
    std::string text = {};
    Door door = Door::open;
};

/// Every fault there is, but for the two below.
const std::vector<Fault>& faults();
/// The connection ends after this many bytes of the head, at the latest before its last.
Fault closesInHead(std::size_t offset);
Fault resetsInHead(std::size_t offset);
/// A complete reply of status 200 with this body in the place of the true one.
Fault repliesWith(std::string name, Ending ending, std::string body);

/// The true reply to a request, head and body.
using Truth = std::function<TrueReply(const std::string& request)>;
/// The truth of one body for all requests.
Truth alwaysTrue(std::string body);
/// The truth of the service that listens on this loopback port.
Truth truthOf(std::uint16_t servicePort);

/// Answers with the truth but where `when` says otherwise of a request (head and body): there the fault plays.
///
///     TarndProcess service;
///     …
///     FaultServer server(faults()[3], truthOf(service.port()),
///                        [](const std::string& request) { return request.starts_with("PUT "); });
///     … run a command against server.url() …
///     EXPECT_TRUE(server.happened());
class FaultServer {
public:
    using When = std::function<bool(const std::string& request)>;

    FaultServer(Fault fault, Truth truth, When when = nullptr);
    ~FaultServer();

    std::string url() const;
    std::string peer() const;

    /// Whether the fault was played to its end at least once. Waits for that, 20 seconds at most. Doors that
    /// do not open are tried here.
    bool happened() const;

    /// The requests that met the fault.
    std::vector<std::string> met() const;

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace connector::host::test
