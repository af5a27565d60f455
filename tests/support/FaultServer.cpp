#include "FaultServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace connector::host::test {
namespace {

using Connection = ScriptedHttpServer::Connection;

/// The head with another framing in the place of its Content-Length: whole header lines, or none.
std::string framed(const TrueReply& reply, const std::string& framing)
{
    std::string head = reply.head;
    const auto from = head.find("Content-Length:");
    head.replace(from, head.find("\r\n", from) + 2 - from, framing);
    return head;
}

/// The true body behind a head with this framing.
Fault framedAs(std::string name, Ending ending, std::string framing, std::string after = "")
{
    auto play = [=](Connection& connection, const TrueReply& reply) {
        connection.send(framed(reply, framing) + reply.body + after);
    };
    return {std::move(name), ending, play};
}

/// The true body behind further headers and a Content-Length that is wrong by `difference`.
Fault lengthOffBy(std::string name, Ending ending, int difference, std::string headers = "")
{
    auto play = [=](Connection& connection, const TrueReply& reply) {
        const auto length = static_cast<int>(reply.body.size()) + difference;
        connection.send(framed(reply, headers + "Content-Length: " + std::to_string(length) + "\r\n") +
                        reply.body);
    };
    return {std::move(name), ending, play};
}

std::string hex(std::size_t number)
{
    char digits[32];
    std::snprintf(digits, sizeof digits, "%zx", number);
    return digits;
}

/// The true body as one chunk whose size line says `difference` more, and what comes after its bytes.
Fault chunked(std::string name, Ending ending, std::size_t difference, std::string after)
{
    auto play = [=](Connection& connection, const TrueReply& reply) {
        connection.send(framed(reply, "Transfer-Encoding: chunked\r\n") +
                        hex(reply.body.size() + difference) + "\r\n" + reply.body + after);
    };
    return {std::move(name), ending, play};
}

/// Sends `bytes` again and again until the client has had enough.
Fault endless(std::string name, std::string framing, bool afterHead, std::string bytes,
              std::chrono::milliseconds pause = std::chrono::milliseconds(0))
{
    auto play = [=](Connection& connection, const TrueReply& reply) {
        std::string head = framed(reply, framing);
        if (!afterHead) head.resize(head.size() - 2);
        connection.send(head);
        while (connection.send(bytes))
            std::this_thread::sleep_for(pause);
    };
    return {std::move(name), Ending::noReply, play};
}

Fault endlessInterim()
{
    return {"100 Continue without end", Ending::noReply, [](Connection& connection, const TrueReply&) {
                while (connection.send("HTTP/1.1 100 Continue\r\n\r\n"))
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }};
}

enum class Then { close, reset, hang };

/// The part of head and body together, then no more.
Fault after(std::string name, Ending ending, std::function<std::size_t(const TrueReply&)> part, Then then)
{
    auto play = [=](Connection& connection, const TrueReply& reply) {
        connection.send((reply.head + reply.body).substr(0, part(reply)));
        if (then == Then::reset) connection.reset();
        if (then == Then::hang) connection.stall();
    };
    return {std::move(name), ending, play};
}

auto nothing()
{
    return [](const TrueReply&) { return std::size_t{0}; };
}

auto headBut(std::size_t missing)
{
    return [=](const TrueReply& reply) { return reply.head.size() - missing; };
}

auto headAndPercent(std::size_t percent)
{
    return [=](const TrueReply& reply) { return reply.head.size() + reply.body.size() * percent / 100; };
}

auto headUpTo(std::size_t offset)
{
    return [=](const TrueReply& reply) { return std::min(offset, reply.head.size() - 1); };
}

/// These bytes and the close of the connection.
Fault sends(std::string name, Ending ending, std::string bytes, std::string text = "")
{
    auto play = [=](Connection& connection, const TrueReply&) { connection.send(bytes); };
    return {std::move(name), ending, play, std::move(text)};
}

/// These bytes before the true reply.
Fault before(std::string name, std::string bytes)
{
    auto play = [=](Connection& connection, const TrueReply& reply) {
        connection.send(bytes + reply.head + reply.body);
    };
    return {std::move(name), Ending::truth, play};
}

Fault status(const std::string& line, const std::string& body, std::string text,
             const std::string& headers = "")
{
    return sends("status " + line, Ending::error,
                 "HTTP/1.1 " + line + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
                     "\r\n\r\n" + body,
                 std::move(text));
}

std::vector<Fault> makeFaults()
{
    using std::chrono::milliseconds;
    const std::string page = "<html><body><p>Welcome to our network<br></body></html>";
    const std::string xhtml =
        "<html xmlns=\"http://www.w3.org/1999/xhtml\"><body><p>Log in</p></body></html>";
    const std::string code = "<Error><code>No.</code></Error>";
    std::vector<Fault> table = {
        {"refuses", Ending::noConnection, nullptr, {}, Fault::Door::shut},
        {"hangs at connect", Ending::noConnection, nullptr, {}, Fault::Door::stuck},

        after("hangs before the reply", Ending::noReply, nothing(), Then::hang),
        after("hangs in the head", Ending::noReply, headBut(9), Then::hang),
        after("hangs before the empty line", Ending::noReply, headBut(2), Then::hang),
        after("hangs before the body", Ending::noReply, headAndPercent(0), Then::hang),
        after("hangs in the body", Ending::noReply, headAndPercent(50), Then::hang),
        after("closes before the body", Ending::noReply, headAndPercent(0), Then::close),
        after("resets before the body", Ending::noReply, headAndPercent(0), Then::reset),
        after("closes in the body", Ending::noReply, headAndPercent(50), Then::close),
        after("resets in the body", Ending::noReply, headAndPercent(50), Then::reset),
        after("closes after the body", Ending::truth, headAndPercent(100), Then::close),
        after("resets after the body", Ending::truth, headAndPercent(100), Then::reset),

        lengthOffBy("length short by one", Ending::cut, -1),
        lengthOffBy("length long by one", Ending::noReply, 1),
        framedAs("length huge", Ending::noReply, "Content-Length: 1000000000000000000\r\n"),
        framedAs("length beyond 64 bits", Ending::noReply, "Content-Length: 18446744073709551620\r\n"),
        framedAs("length negative", Ending::noReply, "Content-Length: -1\r\n"),
        framedAs("length that is no number", Ending::noReply, "Content-Length: many\r\n"),
        framedAs("length empty", Ending::noReply, "Content-Length:\r\n"),
        framedAs("two lengths", Ending::noReply, "Content-Length: 1\r\nContent-Length: 2\r\n"),
        framedAs("no length", Ending::noReply, ""),
        framedAs("no length, said to close", Ending::noReply, "Connection: close\r\n"),
        framedAs("length and chunks", Ending::noReply, "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n"),
        framedAs("unknown framing", Ending::noReply, "Transfer-Encoding: gzip\r\n"),

        chunked("one chunk", Ending::truth, 0, "\r\n0\r\n\r\n"),
        chunked("chunks without an end", Ending::noReply, 0, "\r\n"),
        chunked("chunks whose last line is missing", Ending::noReply, 0, "\r\n0\r\n"),
        chunked("chunk cut", Ending::noReply, 1, ""),
        chunked("chunk longer than it says", Ending::noReply, 0, "xx\r\n0\r\n\r\n"),
        chunked("chunk size that is no number", Ending::noReply, 0, "\r\nzz\r\n\r\n"),
        chunked("chunk size beyond 64 bits", Ending::noReply, 0, "\r\n11111111111111111\r\nx"),

        endless("endless chunks", "Transfer-Encoding: chunked\r\n", true,
                hex(65536) + "\r\n" + std::string(65536, ' ') + "\r\n"),
        endless("endless head", "", false, "X-More: " + std::string(200, 'x') + "\r\n"),
        endless("endless header", "X-More: ", false, std::string(1000, 'x')),
        endless("dripping head", "X-More: ", false, "x", milliseconds(10)),
        endless("dripping body", "Content-Length: 100000\r\n", true, " ", milliseconds(10)),
        endlessInterim(),
        before("100 Continue before the reply", "HTTP/1.1 100 Continue\r\n\r\n"),
        before("early hints before the reply", "HTTP/1.1 103 Early Hints\r\nLink: </>\r\n\r\n"),
        sends("100 Continue and no more", Ending::noReply, "HTTP/1.1 100 Continue\r\n\r\n"),
        sends("reply cut after 100 Continue", Ending::noReply,
              "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n"),
        lengthOffBy("folds a header", Ending::truth, 0, "X-Note: one\r\n two\r\n"),
        framedAs("folds the length", Ending::noReply, "Content-Length:\r\n 0\r\n"),
        sends("another protocol", Ending::noReply, "SSH-2.0-OpenSSH_9.2\r\n"),
        sends("body without a head", Ending::noReply, "<Reply/>"),

        status("204 No Content", "", "TARN error: "),
        status("304 Not Modified", "", "TARN error: "),
        status("404 Not Found", page, "File not found."),
        status("500 Internal Server Error", "<E><code>a</code><code>b</code></E>", "Unknown error."),
        status("502 Bad Gateway", page, "TARN error: " + page),
        status("503 Service Unavailable", "", "TARN error: "),
    };
    for (const char* line :
         {"301 Moved", "302 Found", "303 See Other", "307 Temporary Redirect", "308 Permanent Redirect"})
        table.push_back(status(line, "<Moved/>", "Unknown error.", "Location: /elsewhere\r\n"));
    for (const char* line :
         {"201 Created", "202 Accepted", "206 Partial Content", "400 Bad Request", "401 Unauthorized",
          "403 Forbidden", "407 Proxy Authentication Required", "409 Conflict", "411 Length Required",
          "413 Content Too Large", "429 Too Many Requests", "500 Internal Server Error",
          "507 Insufficient Storage"})
        table.push_back(status(line, code, "No."));
    table.push_back(repliesWith("error document in a 200", Ending::otherXml, code));
    table.push_back(repliesWith("HTML in a 200", Ending::notXml, page));
    table.push_back(repliesWith("XHTML in a 200", Ending::otherXml, xhtml));
    table.push_back(repliesWith("empty body", Ending::notXml, ""));
    return table;
}

int loopbackSocket(sockaddr_in& address, int flags = 0)
{
    address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0);
}

/// All that the server at this port sends in reply to `bytes`.
std::string exchanged(std::uint16_t port, const std::string& bytes)
{
    sockaddr_in address{};
    const int socket = loopbackSocket(address);
    address.sin_port = htons(port);
    std::string reply;
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        for (std::size_t sent = 0; sent < bytes.size();) {
            const auto some = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (some <= 0) break;
            sent += static_cast<std::size_t>(some);
        }
        char chunk[65536];
        while (const auto got = ::recv(socket, chunk, sizeof chunk, 0)) {
            if (got < 0) break;
            reply.append(chunk, static_cast<std::size_t>(got));
        }
    }
    ::close(socket);
    return reply;
}

/// A port whose door stays shut: bound, so that nobody else gets it, but not listening, or never accepting.
class Door {
public:
    explicit Door(bool listens)
    {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        listener = loopbackSocket(address);
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(listener, generic, length) != 0 || ::getsockname(listener, generic, &length) != 0) {
            throw std::runtime_error("cannot bind on loopback");
        }
        boundPort = ntohs(address.sin_port);
        if (!listens) return;
        ::listen(listener, 0);
        while (connects(false)) { // fills the queue, until the kernel drops who else knocks
        }
    }

    ~Door()
    {
        ::close(listener);
        for (int caller : queued)
            ::close(caller);
    }

    std::uint16_t port() const { return boundPort; }

    /// Whether a connection is made within a moment, or refused when `refused` is asked for.
    bool connects(bool refused)
    {
        sockaddr_in address{};
        const int caller = loopbackSocket(address, SOCK_NONBLOCK);
        queued.push_back(caller);
        address.sin_port = htons(boundPort);
        if (::connect(caller, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) return !refused;
        if (errno == ECONNREFUSED) return refused;
        pollfd waiting{caller, POLLOUT, 0};
        if (::poll(&waiting, 1, 50) != 1) return false;
        return ((waiting.revents & POLLERR) != 0) == refused;
    }

private:
    int listener = -1;
    std::uint16_t boundPort = 0;
    std::vector<int> queued;
};

} // namespace

const std::vector<Fault>& faults()
{
    static const std::vector<Fault> table = makeFaults();
    return table;
}

Fault closesInHead(std::size_t offset)
{
    return after("closes in the head at " + std::to_string(offset), Ending::noReply, headUpTo(offset),
                 Then::close);
}

Fault resetsInHead(std::size_t offset)
{
    return after("resets in the head at " + std::to_string(offset), Ending::noReply, headUpTo(offset),
                 Then::reset);
}

Fault repliesWith(std::string name, Ending ending, std::string body)
{
    return sends(std::move(name), ending, ScriptedHttpServer::reply(body), body);
}

Truth alwaysTrue(std::string body)
{
    return [reply = ScriptedHttpServer::reply(body), bytes = body.size()](const std::string&) {
        return TrueReply{reply.substr(0, reply.size() - bytes), reply.substr(reply.size() - bytes)};
    };
}

Truth truthOf(std::uint16_t servicePort)
{
    return [servicePort](const std::string& request) {
        // Asked to close, the service says itself where its reply ends.
        const auto endOfHead = request.find("\r\n\r\n");
        std::string reply =
            exchanged(servicePort, std::string(request).insert(endOfHead, "\r\nConnection: close"));
        if (const auto word = reply.find("Connection: close\r\n"); word != std::string::npos)
            reply.erase(word, 19);
        const auto head = reply.find("\r\n\r\n") + 4;
        return TrueReply{reply.substr(0, head), reply.substr(head)};
    };
}

struct FaultServer::State {
    State(Fault chosen, Truth truthful, When chosenWhen)
        : fault(std::move(chosen)), truth(std::move(truthful)), when(std::move(chosenWhen))
    {
        if (fault.door == Fault::Door::open) {
            server = std::make_unique<ScriptedHttpServer>([this](Connection& client) { answer(client); });
        } else {
            door = std::make_unique<Door>(fault.door == Fault::Door::stuck);
        }
    }

    void answer(Connection& client)
    {
        while (auto request = client.readRequest()) {
            const TrueReply reply = truth(*request);
            if (when && !when(*request)) {
                if (!client.send(reply.head + reply.body)) return;
                continue;
            }
            {
                std::lock_guard lock(mutex);
                met.push_back(*request);
            }
            fault.play(client, reply);
            std::lock_guard lock(mutex);
            ++played;
            changed.notify_all();
            return;
        }
    }

    const Fault fault;
    const Truth truth;
    const When when;
    std::mutex mutex; ///< guards the two below
    std::vector<std::string> met;
    unsigned played = 0;
    std::condition_variable changed;
    std::unique_ptr<Door> door;
    std::unique_ptr<ScriptedHttpServer> server; ///< goes first: its threads use the rest
};

FaultServer::FaultServer(Fault fault, Truth truth, When when)
    : state(std::make_unique<State>(std::move(fault), std::move(truth), std::move(when)))
{
}

FaultServer::~FaultServer() = default;

std::string FaultServer::peer() const
{
    return "127.0.0.1:" + std::to_string(state->door ? state->door->port() : state->server->port());
}

std::string FaultServer::url() const
{
    return "http://" + peer();
}

bool FaultServer::happened() const
{
    if (state->fault.door == Fault::Door::shut) return state->door->connects(true);
    if (state->fault.door == Fault::Door::stuck) return !state->door->connects(false);
    std::unique_lock lock(state->mutex);
    return state->changed.wait_for(lock, std::chrono::seconds(20), [this] { return state->played > 0; });
}

std::vector<std::string> FaultServer::met() const
{
    std::lock_guard lock(state->mutex);
    return state->met;
}

} // namespace connector::host::test
