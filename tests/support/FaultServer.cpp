#include "FaultServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>

namespace connector::host::test {
namespace {

using Connection = ScriptedHttpServer::Connection;
using std::chrono::milliseconds;

enum class Then { close, reset, hang };

/// A fault as data.
struct Row {
    std::string name;
    Ending ending;
    std::string bytes; ///< what is sent; see `filledIn`
    Then then = Then::close;
    std::string again = {}; ///< then sent again and again, until the client has had enough
    milliseconds pause{0};
    std::string text = {};
};

/// The true reply in the place of the words in braces: {all} of it or {half} its body, its {head} or {halfhead},
/// {open} for the head before its empty line, {start} for that without its Content-Length, {body}, and the body's
/// size as {size}, {less}, {more}, and hexadecimal as {hex} and {hexmore}.
std::string filledIn(std::string bytes, const TrueReply& reply)
{
    auto hex = [](std::size_t number) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%zx", number);
        return std::string(digits);
    };
    const std::size_t size = reply.body.size();
    const std::string open = reply.head.substr(0, reply.head.size() - 2);
    const auto length = open.find("Content-Length:");
    const std::string start = std::string(open).erase(length, open.find("\r\n", length) + 2 - length);
    const std::pair<const char*, std::string> words[] = {
        {"{all}", reply.head + reply.body},
        {"{half}", reply.head + reply.body.substr(0, size / 2)},
        {"{head}", reply.head},
        {"{halfhead}", open.substr(0, open.size() - 7)},
        {"{open}", open},
        {"{start}", start},
        {"{body}", reply.body},
        {"{size}", std::to_string(size)},
        {"{less}", std::to_string(size - 1)},
        {"{more}", std::to_string(size + 1)},
        {"{hex}", hex(size)},
        {"{hexmore}", hex(size + 1)},
    };
    for (const auto& [word, text] : words)
        if (const auto at = bytes.find(word); at != std::string::npos)
            bytes.replace(at, std::strlen(word), text);
    return bytes;
}

/// @param upTo  no more than this many bytes of the true head are sent, and never its last
Fault faultOf(Row row, std::optional<std::size_t> upTo = std::nullopt)
{
    auto play = [=](Connection& connection, const TrueReply& reply) {
        std::string bytes = filledIn(row.bytes, reply);
        if (upTo) bytes.resize(std::min(*upTo, reply.head.size() - 1));
        connection.send(bytes);
        while (!row.again.empty() && connection.send(row.again))
            std::this_thread::sleep_for(row.pause);
        if (row.then == Then::reset) connection.reset();
        if (row.then == Then::hang) connection.stall();
    };
    return {row.name, row.ending, play, row.text};
}

Row answering(const std::string& line, const std::string& body, std::string text,
              const std::string& headers = "")
{
    return {"answers " + line,
            Ending::error,
            "HTTP/1.1 " + line + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) +
                "\r\n\r\n" + body,
            Then::close,
            "",
            milliseconds(0),
            std::move(text)};
}

std::vector<Fault> makeFaults()
{
    const std::string page = "<html><body><p>Welcome to our network<br></body></html>";
    const std::string xhtml =
        "<html xmlns=\"http://www.w3.org/1999/xhtml\"><body><p>Log in</p></body></html>";
    const std::string code = "<Error><code>No.</code></Error>";
    const std::string chunked = "{start}Transfer-Encoding: chunked\r\n\r\n";
    const std::string hints = "HTTP/1.1 103 Early Hints\r\n";
    const std::string goOn = "HTTP/1.1 100 Continue\r\n\r\n";
    constexpr auto noReply = Ending::noReply;
    constexpr auto truth = Ending::truth;
    std::vector<Row> rows = {
        {"hangs before the reply", noReply, "", Then::hang},
        {"hangs in the head", noReply, "{halfhead}", Then::hang},
        {"hangs before the empty line", noReply, "{open}", Then::hang},
        {"hangs before the body", noReply, "{head}", Then::hang},
        {"hangs in the body", noReply, "{half}", Then::hang},
        {"closes before the body", noReply, "{head}"},
        {"resets before the body", noReply, "{head}", Then::reset},
        {"closes in the body", noReply, "{half}"},
        {"resets in the body", noReply, "{half}", Then::reset},
        {"closes after the body", truth, "{all}"},
        {"resets after the body", truth, "{all}", Then::reset},

        {"announces a byte too few", Ending::cut, "{start}Content-Length: {less}\r\n\r\n{body}"},
        {"announces a byte too many", noReply, "{start}Content-Length: {more}\r\n\r\n{body}"},
        {"announces far too much", noReply, "{start}Content-Length: 1000000000000000000\r\n\r\n{body}"},
        {"announces more than 64 bits", noReply, "{start}Content-Length: 18446744073709551620\r\n\r\n{body}"},
        {"announces less than nothing", noReply, "{start}Content-Length: -1\r\n\r\n{body}"},
        {"announces a word", noReply, "{start}Content-Length: many\r\n\r\n{body}"},
        {"announces nothing", noReply, "{start}Content-Length:\r\n\r\n{body}"},
        {"announces twice", noReply, "{start}Content-Length: 1\r\nContent-Length: {size}\r\n\r\n{body}"},
        {"announces on a folded line", noReply, "{start}Content-Length:\r\n 0\r\n\r\n{body}"},
        {"announces no length", noReply, "{start}\r\n{body}"},
        {"announces its close", noReply, "{start}Connection: close\r\n\r\n{body}"},
        {"announces length and chunks", noReply, "{open}Transfer-Encoding: chunked\r\n\r\n{body}"},
        {"announces another encoding", noReply, "{start}Transfer-Encoding: gzip\r\n\r\n{body}"},

        {"sends one chunk", truth, chunked + "{hex}\r\n{body}\r\n0\r\n\r\n"},
        {"sends a chunk and no end", noReply, chunked + "{hex}\r\n{body}\r\n"},
        {"sends half an end", noReply, chunked + "{hex}\r\n{body}\r\n0\r\n"},
        {"cuts a chunk", noReply, chunked + "{hexmore}\r\n{body}"},
        {"sends a chunk that is too long", noReply, chunked + "{hex}\r\n{body}xx\r\n0\r\n\r\n"},
        {"sends a chunk of no size", noReply, chunked + "{hex}\r\n{body}\r\nzz\r\n\r\n"},
        {"sends a chunk beyond 64 bits", noReply, chunked + "{hex}\r\n{body}\r\n11111111111111111\r\nx"},

        {"never ends its chunks", noReply, chunked, Then::close,
         "8000\r\n" + std::string(0x8000, ' ') + "\r\n"},
        {"never ends its head", noReply, "{start}", Then::close, "X-More: " + std::string(200, 'x') + "\r\n"},
        {"never ends a header", noReply, "{start}X-More: ", Then::close, std::string(1000, 'x')},
        {"drips its head", noReply, "{start}X-More: ", Then::close, "x", milliseconds(10)},
        {"drips its body", noReply, "{start}Content-Length: 9999\r\n\r\n", Then::close, " ",
         milliseconds(10)},
        {"always says to go on", noReply, "", Then::close, goOn, milliseconds(1)},
        {"says to go on first", truth, goOn + "{all}"},
        {"hints first", truth, hints + "Content-Length: 3\r\n\r\n{all}"},
        {"hints first in a broken way", truth,
         hints + "Content-Length: many\r\nTransfer-Encoding: gzip\r\n\r\n{all}"},
        {"says to go on and no more", noReply, goOn},
        {"is cut after it said to go on", noReply, goOn + "{open}"},
        {"folds a header", truth, "{start}X-Note: one\r\n two\r\nContent-Length: {size}\r\n\r\n{body}"},
        {"speaks another protocol", noReply, "SSH-2.0-OpenSSH_9.2\r\n"},
        {"sends no head", noReply, "<Reply/>"},

        answering("204 No Content", "", "TARN error: "),
        answering("304 Not Modified", "", "TARN error: "),
        answering("404 Not Found", page, "File not found."),
        answering("500 Internal Server Error", "<E><code>a</code><code>b</code></E>", "Unknown error."),
        answering("502 Bad Gateway", page, "TARN error: " + page),
        answering("503 Service Unavailable", "", "TARN error: "),
    };
    for (const char* line : {"301 Moved", "302 Found", "303 See Other", "307 Temporary", "308 Permanent"})
        rows.push_back(answering(line, "<Moved/>", "Unknown error.", "Location: /elsewhere\r\n"));
    for (const char* line :
         {"201 Created", "202 Accepted", "206 Partial Content", "400 Bad Request", "401 Unauthorized",
          "403 Forbidden", "407 Proxy Authentication Required", "409 Conflict", "411 Length Required",
          "413 Content Too Large", "429 Too Many Requests", "500 Internal Server Error",
          "507 Insufficient Storage"})
        rows.push_back(answering(line, code, "No."));

    std::vector<Fault> table = {{"refuses", Ending::noConnection, nullptr, {}, Fault::Door::shut},
                                {"never accepts", Ending::noConnection, nullptr, {}, Fault::Door::stuck}};
    for (const Row& row : rows)
        table.push_back(faultOf(row));
    table.push_back(repliesWith("says an error in a 200", Ending::otherXml, code));
    table.push_back(repliesWith("sends HTML in a 200", Ending::notXml, page));
    table.push_back(repliesWith("sends XHTML in a 200", Ending::otherXml, xhtml));
    table.push_back(repliesWith("sends nothing in a 200", Ending::notXml, ""));
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

TrueReply replyOf(const std::string& type, const std::string& body)
{
    return {"HTTP/1.1 200 OK\r\nContent-Type: " + type +
                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n",
            body};
}

TrueReply document(const std::string& inner)
{
    return replyOf("application/xml", "<Response>" + inner + "</Response>");
}

const std::vector<Fault>& faults()
{
    static const std::vector<Fault> table = makeFaults();
    return table;
}

Fault closesInHead(std::size_t offset)
{
    return faultOf({"closes in the head at " + std::to_string(offset), Ending::noReply, "{head}"}, offset);
}

Fault resetsInHead(std::size_t offset)
{
    return faultOf(
        {"resets in the head at " + std::to_string(offset), Ending::noReply, "{head}", Then::reset}, offset);
}

Fault repliesWith(std::string name, Ending ending, std::string body)
{
    return faultOf(
        {std::move(name), ending, ScriptedHttpServer::reply(body), Then::close, "", milliseconds(0), body});
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
