#include "tarnd/http/HttpServer.h"

#include "tarnd/http/Acceptor.h"
#include "tarnd/http/DirectAnswer.h"
#include "tarnd/http/QueuedReply.h"
#include "tarnd/http/ReceivedHead.h"
#include "tarnd/http/Sentences.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <microhttpd.h>
#include <mutex>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tarnd {

namespace {

/// Bytes: for one head, and the pieces in which a body arrives. The library clears all of it after each request, so
/// that twice as much would cost a short request a seventh of its processor time; a long upload gains nothing by it.
constexpr std::size_t connectionMemory = 64 * 1024;

/// Address space, of which a thread touches a few pages; the default would reserve 8 MiB per connection.
constexpr std::size_t threadStack = 1024 * 1024;

/// GnuTLS allows TLS 1.0 and 1.1 by default.
const std::string tlsPriorities = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

/// The target is split and decoded in one place of our own, from what stood on the request line.
std::size_t leaveEncoded(void*, MHD_Connection*, char* text)
{
    return std::strlen(text);
}

int descriptorOf(MHD_Connection* connection)
{
    return MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
}

Client clientOf(MHD_Connection* connection)
{
    const auto* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    Client client;
    std::memcpy(&client.endpoint, info->client_addr,
                info->client_addr->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
    client.address = clientAddressOf(client.endpoint);
    client.socket = descriptorOf(connection);
    return client;
}

/// The library would parse the query as well, into its small memory, and forgets the request when that is
/// full. So it gets to see none: the text is the library's own buffer, where it is about to cut anyhow.
void hideQuery(const char* target)
{
    if (const auto* mark = std::strchr(target, '?')) const_cast<char*>(mark)[1] = '\0';
}

DirectConnection directly(MHD_Connection* connection)
{
    const auto* tls = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    return {descriptorOf(connection), tls != nullptr ? tls->tls_session : nullptr};
}

/// The library is told that the connection is over.
MHD_Result hangUp(int fd, bool withReset)
{
    const linger atOnce{1, 0};
    if (withReset) ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    // A reset needs the descriptor closed, which the library does next.
    if (!withReset) ::shutdown(fd, SHUT_RDWR);
    return MHD_NO;
}

/// The library finds the connection closed.
void refuseLength(MHD_Connection* connection)
{
    answerDirectly(directly(connection), errorReply(sentences::badContentLength()));
    ::shutdown(descriptorOf(connection), SHUT_RDWR);
}

/// The options of the server library, gathered one by one. What they point to outlives start().
class DaemonOptions {
public:
    void add(MHD_OPTION name, intptr_t number, void* pointer = nullptr)
    {
        items.push_back({name, number, pointer});
    }

    template <class Function>
    void addCallback(MHD_OPTION name, Function* function, void* argument)
    {
        add(name, reinterpret_cast<intptr_t>(function), argument);
    }

    void addText(MHD_OPTION name, const std::string& text) { add(name, 0, const_cast<char*>(text.c_str())); }

    MHD_OptionItem* terminated()
    {
        add(MHD_OPTION_END, 0);
        return items.data();
    }

private:
    std::vector<MHD_OptionItem> items;
};

/// The connection of this thread, from the request line to the end of the head.
thread_local MHD_Connection* receivingHead = nullptr;

} // namespace

struct HttpServer::Connections {
    Connections(Site& theSite, const ServerOptions& theOptions)
        : site(theSite), options(theOptions), table(theOptions.limits)
    {
    }

    void start();
    void stop();
    MHD_Daemon* startDaemon(const std::string& certificate, const std::string& key);
    void useCertificate(const std::string& certificate, const std::string& key);
    bool drain(std::chrono::milliseconds limit);

    MHD_Result begin(MHD_Connection* connection, RequestHead head, Exchange& exchange);
    MHD_Result receive(MHD_Connection* connection, const char* data, std::size_t* size, Exchange& exchange);
    void holdBack(std::chrono::milliseconds delay);
    bool handOver(int fd, const sockaddr_storage& address, socklen_t size);

    // What the server library calls, on a thread of the connection; `self` is this object, `exchange` belongs
    // to one request.
    static void* onRequestLine(void* self, const char* target, MHD_Connection* connection);
    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* data, std::size_t* size, void** exchange);
    static void onRequestEnded(void* self, MHD_Connection* connection, void** exchange,
                               MHD_RequestTerminationCode why);
    static void onConnection(void* self, MHD_Connection* connection, void** context,
                             MHD_ConnectionNotificationCode what);
    static void onComplaint(void* self, const char* format, va_list arguments);

    Site& site;
    const ServerOptions options;
    ConnectionTable table;
    std::mutex daemonMutex; ///< guards the member below
    /// One for each certificate that a connection may still have; new connections go to the last.
    std::vector<MHD_Daemon*> daemons;
    std::atomic<bool> draining = false;
    std::mutex mutex;         ///< guards the members below
    std::string complaint;    ///< the last thing the server library said
    std::size_t underWay = 0; ///< requests begun and not yet answered in full
    std::condition_variable answered;
    std::condition_variable ending;     ///< draining was set
    std::unique_ptr<Acceptor> acceptor; ///< last, since it calls the others
};

void* HttpServer::Connections::onRequestLine(void* self, const char* target, MHD_Connection* connection)
{
    auto& connections = *static_cast<Connections*>(self);
    auto exchange = std::make_unique<Exchange>(connections.site, clientOf(connection), target);
    receivingHead = connection;
    hideQuery(target);
    const std::lock_guard lock(connections.mutex);
    ++connections.underWay;
    return exchange.release();
}

MHD_Result HttpServer::Connections::onRequest(void* self, MHD_Connection* connection, const char* url,
                                              const char* method, const char* version, const char* data,
                                              std::size_t* size, void** request)
{
    auto& connections = *static_cast<Connections*>(self);
    auto& exchange = *static_cast<Exchange*>(*request);
    receivingHead = nullptr;
    if (exchange.hasBegun()) return connections.receive(connection, data, size, exchange);
    return connections.begin(connection, receivedHead(connection, url, method, version), exchange);
}

MHD_Result HttpServer::Connections::begin(MHD_Connection* connection, RequestHead head, Exchange& exchange)
{
    const ConnectionTable::Busy busy(table, descriptorOf(connection));
    const auto body = exchange.begin(std::move(head));
    if (const auto& fault = exchange.fault()) {
        if (fault->kind == Fault::Kind::wait) holdBack(fault->time);
        if (fault->kind == Fault::Kind::drop) return hangUp(busy.descriptor(), true);
    }
    switch (body) {
    case Exchange::Body::wanted:
        table.enter(busy.descriptor(), ConnectionTable::Phase::upload);
        return MHD_YES;
    case Exchange::Body::refused:
        table.enter(busy.descriptor(), ConnectionTable::Phase::refused);
        return MHD_YES;
    case Exchange::Body::endless:
        answerUnread(directly(connection), exchange.finish());
        return MHD_NO;
    case Exchange::Body::ignored:
        break;
    }
    table.enter(busy.descriptor(), ConnectionTable::Phase::download);
    return queueReply(connection, exchange.finish(), AfterReply::close); // a refusal: no file
}

MHD_Result HttpServer::Connections::receive(MHD_Connection* connection, const char* data, std::size_t* size,
                                            Exchange& exchange)
{
    const ConnectionTable::Busy busy(table, descriptorOf(connection));
    if (*size > 0) {
        const bool more = exchange.receive(data, *size);
        *size = 0;
        if (!more) answerUnread(directly(connection), exchange.finish());
        return more ? MHD_YES : MHD_NO;
    }
    table.enter(busy.descriptor(), ConnectionTable::Phase::download);
    auto reply = exchange.finish(receivedTrailers(connection));
    holdBack(exchange.delay());
    if (const auto& fault = exchange.fault()) {
        if (fault->kind == Fault::Kind::lose) return hangUp(busy.descriptor(), false);
        if (fault->kind == Fault::Kind::cut) {
            answerInPart(directly(connection), reply, fault->number);
            return hangUp(busy.descriptor(), false);
        }
    }
    const auto after = draining ? AfterReply::close : AfterReply::keep;
    if (reply.source) return queueProduced(connection, reply, {table, busy.descriptor(), exchange}, after);
    if (reply.file) table.watch(busy.descriptor(), reply.file, reply.fileOffset + reply.fileSize);
    return queueReply(connection, std::move(reply), after);
}

/// On the connection's own thread, so that it holds up nobody else.
void HttpServer::Connections::holdBack(std::chrono::milliseconds delay)
{
    if (delay.count() == 0) return;
    std::unique_lock lock(mutex);
    ending.wait_for(lock, delay, [&] { return draining.load(); });
}

void HttpServer::Connections::onRequestEnded(void* self, MHD_Connection* connection, void** exchange,
                                             MHD_RequestTerminationCode why)
{
    if (*exchange == nullptr) return;
    const std::unique_ptr<Exchange> ended(static_cast<Exchange*>(std::exchange(*exchange, nullptr)));
    ended->ended(why == MHD_REQUEST_TERMINATED_COMPLETED_OK);
    receivingHead = nullptr;
    auto& connections = *static_cast<Connections*>(self);
    connections.table.enter(descriptorOf(connection), ConnectionTable::Phase::head);
    const std::lock_guard lock(connections.mutex);
    --connections.underWay;
    connections.answered.notify_all();
}

void HttpServer::Connections::onConnection(void* self, MHD_Connection* connection, void**,
                                           MHD_ConnectionNotificationCode what)
{
    auto& connections = *static_cast<Connections*>(self);
    connections.site.metrics.connections += what == MHD_CONNECTION_NOTIFY_STARTED ? 1 : -1;
    // Called before the library closes the descriptor, so that the table never shuts down another's.
    if (what == MHD_CONNECTION_NOTIFY_CLOSED) connections.table.remove(descriptorOf(connection));
}

void HttpServer::Connections::onComplaint(void* self, const char* format, va_list arguments)
{
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& connections = *static_cast<Connections*>(self);
    const std::lock_guard lock(connections.mutex);
    connections.complaint = text.data();
    // A whole head that was not handed over has a length that the library does not understand. Its own reply to
    // that comes with two heads, so it is forestalled.
    if (receivingHead == nullptr) return;
    if (MHD_get_connection_info(receivingHead, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE) != nullptr)
        refuseLength(std::exchange(receivingHead, nullptr));
}

MHD_Daemon* HttpServer::Connections::startDaemon(const std::string& certificate, const std::string& key)
{
    DaemonOptions daemonOptions;
    daemonOptions.addCallback(MHD_OPTION_URI_LOG_CALLBACK, &onRequestLine, this);
    daemonOptions.addCallback(MHD_OPTION_UNESCAPE_CALLBACK, &leaveEncoded, nullptr);
    daemonOptions.addCallback(MHD_OPTION_NOTIFY_COMPLETED, &onRequestEnded, this);
    daemonOptions.addCallback(MHD_OPTION_NOTIFY_CONNECTION, &onConnection, this);
    // Not reached: the table holds the limit, but does not count those that it has shut down.
    daemonOptions.add(MHD_OPTION_CONNECTION_LIMIT, static_cast<intptr_t>(2 * options.limits.connections));
    daemonOptions.add(MHD_OPTION_CONNECTION_MEMORY_LIMIT, connectionMemory);
    daemonOptions.add(MHD_OPTION_THREAD_STACK_SIZE, threadStack);
    daemonOptions.add(MHD_OPTION_CONNECTION_TIMEOUT, options.idleTimeout.count());
    const bool tls = !certificate.empty();
    if (tls) {
        daemonOptions.addText(MHD_OPTION_HTTPS_MEM_CERT, certificate);
        daemonOptions.addText(MHD_OPTION_HTTPS_MEM_KEY, key);
        daemonOptions.addText(MHD_OPTION_HTTPS_PRIORITIES, tlsPriorities);
    }
    // A request may wait for disk, database or a lock: with a thread per connection it holds up no other one.
    // The library does not listen itself, because it accepts nobody when it is full.
    unsigned flags = MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL |
                     MHD_USE_NO_LISTEN_SOCKET | MHD_USE_ITC | MHD_USE_ERROR_LOG;
    if (tls) flags |= MHD_USE_TLS;
    auto* const daemon =
        MHD_start_daemon(flags, 0, nullptr, nullptr, &onRequest, this, MHD_OPTION_EXTERNAL_LOGGER,
                         &onComplaint, this, MHD_OPTION_ARRAY, daemonOptions.terminated(), MHD_OPTION_END);
    if (daemon != nullptr) return daemon;
    const std::lock_guard lock(mutex);
    complaint.erase(complaint.find_last_not_of('\n') + 1);
    throw std::runtime_error(
        "The HTTP server could not be set up: " + complaint +
        (tls ? " Check that certificate and key are PEM files and belong together." : ""));
}

/// The server library takes a certificate at its start only.
void HttpServer::Connections::useCertificate(const std::string& certificate, const std::string& key)
{
    if (options.tlsCertificate.empty())
        throw std::runtime_error("TLS begins with a start of the service only.");
    auto* const fresh = startDaemon(certificate, key);
    std::vector<MHD_Daemon*> unused;
    {
        const std::lock_guard lock(daemonMutex);
        const auto isUsed = [](MHD_Daemon* daemon) {
            return MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_CURRENT_CONNECTIONS)->num_connections > 0;
        };
        // The last one may just have been given a connection that it does not count yet; its turn comes next time.
        const auto last = std::prev(daemons.end());
        const auto idle = std::stable_partition(daemons.begin(), last, isUsed);
        unused.assign(idle, last);
        daemons.erase(idle, last);
        daemons.push_back(fresh);
    }
    for (auto* daemon : unused)
        MHD_stop_daemon(daemon);
}

void HttpServer::Connections::stop()
{
    const std::lock_guard lock(daemonMutex);
    for (auto* daemon : daemons)
        MHD_stop_daemon(daemon);
}

void HttpServer::Connections::start()
{
    daemons.push_back(startDaemon(options.tlsCertificate, options.tlsKey));
    acceptor = std::make_unique<Acceptor>(options.listenSocket, table,
                                          [this](int fd, const sockaddr_storage& address, socklen_t size) {
                                              return handOver(fd, address, size);
                                          });
}

bool HttpServer::Connections::handOver(int fd, const sockaddr_storage& address, socklen_t size)
{
    const std::lock_guard lock(daemonMutex); // so that the one it goes to is not given up meanwhile
    return MHD_add_connection(daemons.back(), fd, reinterpret_cast<const sockaddr*>(&address), size) ==
           MHD_YES;
}

bool HttpServer::Connections::drain(std::chrono::milliseconds limit)
{
    acceptor->stop();
    std::unique_lock lock(mutex);
    draining = true;
    ending.notify_all();
    return answered.wait_for(lock, limit, [&] { return underWay == 0; });
}

HttpServer::HttpServer(const ServerOptions& options, Site& site)
    : connections(std::make_unique<Connections>(site, options))
{
    connections->start();
}

void HttpServer::useCertificate(const std::string& certificate, const std::string& key)
{
    connections->useCertificate(certificate, key);
}

HttpServer::~HttpServer()
{
    drain(std::chrono::milliseconds(0));
    connections->stop();
}

bool HttpServer::drain(std::chrono::milliseconds limit)
{
    return connections->drain(limit);
}

} // namespace tarnd
