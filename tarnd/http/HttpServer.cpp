#include "tarnd/http/HttpServer.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <microhttpd.h>
#include <mutex>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tarnd {

namespace {

constexpr std::size_t connectionMemory =
    128 * 1024; // bytes: one head, and the pieces in which a body arrives

/// Address space, of which a thread touches a few pages; the default would reserve 8 MiB per connection.
constexpr std::size_t threadStack = 1024 * 1024;

using ResponsePtr = std::unique_ptr<MHD_Response, decltype(&MHD_destroy_response)>;

ResponsePtr responseOf(Reply& reply)
{
    MHD_Response* response =
        reply.file
            ? MHD_create_response_from_fd64(reply.fileSize, reply.file.get())
            : MHD_create_response_from_buffer(reply.text.size(), reply.text.data(), MHD_RESPMEM_MUST_COPY);
    if (response != nullptr && reply.file) reply.file.release(); // the response closes it
    return {response, &MHD_destroy_response};
}

MHD_Result send(MHD_Connection* connection, Reply reply, bool close)
{
    const auto response = responseOf(reply);
    if (!response) return MHD_NO;
    const auto add = [&](const char* name, const std::string& value) {
        return MHD_add_response_header(response.get(), name, value.c_str()) == MHD_YES;
    };
    bool complete = add(MHD_HTTP_HEADER_CONTENT_TYPE, reply.contentType) &&
                    add(MHD_HTTP_HEADER_CACHE_CONTROL, "no-store") &&
                    add("X-Content-Type-Options", "nosniff") &&
                    (!close || add(MHD_HTTP_HEADER_CONNECTION, "close"));
    for (const auto& [name, value] : reply.headers)
        complete = complete && add(name.c_str(), value);
    return complete ? MHD_queue_response(connection, reply.status, response.get()) : MHD_NO;
}

Headers headersOf(MHD_Connection* connection)
{
    Headers headers;
    MHD_get_connection_values_n(
        connection, MHD_HEADER_KIND,
        [](void* target, MHD_ValueKind, const char* name, std::size_t nameSize, const char* value,
           std::size_t valueSize) {
            static_cast<Headers*>(target)->emplace_back(
                std::string(name, nameSize), value == nullptr ? "" : std::string(value, valueSize));
            return MHD_YES;
        },
        &headers);
    return headers;
}

/// The target is split and decoded in one place of our own, from what stood on the request line.
std::size_t leaveEncoded(void*, MHD_Connection*, char* text)
{
    return std::strlen(text);
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

} // namespace

struct HttpServer::Connections {
    explicit Connections(Site& theSite) : site(theSite) {}

    void start(const ServerOptions& options);
    void drain(std::chrono::milliseconds limit);

    MHD_Result handle(MHD_Connection* connection, const char* method, const char* data, std::size_t* size,
                      Exchange& exchange);

    // What the server library calls; `self` is this object, `exchange` belongs to one request.
    static void* onRequestLine(void* self, const char* target, MHD_Connection* connection);
    static MHD_Result onRequest(void* self, MHD_Connection* connection, const char* url, const char* method,
                                const char* version, const char* data, std::size_t* size, void** exchange);
    static void onRequestEnded(void* self, MHD_Connection* connection, void** exchange,
                               MHD_RequestTerminationCode why);
    static void onComplaint(void* self, const char* format, va_list arguments);

    Site& site;
    MHD_Daemon* daemon = nullptr;
    std::atomic<bool> draining = false;
    int quiesced = -1;        ///< the listening socket once it is no longer the server library's to close
    std::mutex mutex;         ///< guards the members below
    std::string complaint;    ///< the last thing the server library said
    std::size_t underWay = 0; ///< requests begun and not yet answered in full
    std::condition_variable answered;
};

void* HttpServer::Connections::onRequestLine(void* self, const char* target, MHD_Connection*)
{
    auto& connections = *static_cast<Connections*>(self);
    auto exchange = std::make_unique<Exchange>(connections.site, target);
    const std::lock_guard lock(connections.mutex);
    ++connections.underWay;
    return exchange.release();
}

MHD_Result HttpServer::Connections::onRequest(void* self, MHD_Connection* connection, const char*,
                                              const char* method, const char*, const char* data,
                                              std::size_t* size, void** exchange)
{
    return static_cast<Connections*>(self)->handle(connection, method, data, size,
                                                   *static_cast<Exchange*>(*exchange));
}

MHD_Result HttpServer::Connections::handle(MHD_Connection* connection, const char* method, const char* data,
                                           std::size_t* size, Exchange& exchange)
{
    if (!exchange.hasBegun()) {
        const bool early = exchange.begin(method, headersOf(connection));
        return early ? send(connection, exchange.finish(), true) : MHD_YES;
    }
    if (*size > 0) {
        exchange.receive(data, *size);
        *size = 0;
        return MHD_YES;
    }
    return send(connection, exchange.finish(), draining);
}

void HttpServer::Connections::onRequestEnded(void* self, MHD_Connection*, void** exchange,
                                             MHD_RequestTerminationCode)
{
    if (*exchange == nullptr) return;
    delete static_cast<Exchange*>(std::exchange(*exchange, nullptr));
    auto& connections = *static_cast<Connections*>(self);
    const std::lock_guard lock(connections.mutex);
    --connections.underWay;
    connections.answered.notify_all();
}

void HttpServer::Connections::onComplaint(void* self, const char* format, va_list arguments)
{
    std::array<char, 512> text{};
    std::vsnprintf(text.data(), text.size(), format, arguments);
    auto& connections = *static_cast<Connections*>(self);
    const std::lock_guard lock(connections.mutex);
    connections.complaint = text.data();
}

void HttpServer::Connections::start(const ServerOptions& options)
{
    DaemonOptions daemonOptions;
    daemonOptions.add(MHD_OPTION_LISTEN_SOCKET, options.listenSocket);
    daemonOptions.addCallback(MHD_OPTION_URI_LOG_CALLBACK, &onRequestLine, this);
    daemonOptions.addCallback(MHD_OPTION_UNESCAPE_CALLBACK, &leaveEncoded, nullptr);
    daemonOptions.addCallback(MHD_OPTION_NOTIFY_COMPLETED, &onRequestEnded, this);
    daemonOptions.add(MHD_OPTION_STRICT_FOR_CLIENT, 1);
    daemonOptions.add(MHD_OPTION_CONNECTION_LIMIT, options.maxConnections);
    daemonOptions.add(MHD_OPTION_CONNECTION_MEMORY_LIMIT, connectionMemory);
    daemonOptions.add(MHD_OPTION_THREAD_STACK_SIZE, threadStack);
    daemonOptions.add(MHD_OPTION_CONNECTION_TIMEOUT, options.idleTimeout.count());

    const bool tls = !options.tlsCertificate.empty();
    if (tls) {
        daemonOptions.addText(MHD_OPTION_HTTPS_MEM_CERT, options.tlsCertificate);
        daemonOptions.addText(MHD_OPTION_HTTPS_MEM_KEY, options.tlsKey);
    }
    // A request may wait for disk, database or a lock: with a thread per connection it holds up no other one.
    unsigned flags = MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL |
                     MHD_USE_ITC | MHD_USE_ERROR_LOG;
    if (tls) flags |= MHD_USE_TLS;
    if (options.ipv6) flags |= MHD_USE_IPv6;
    daemon =
        MHD_start_daemon(flags, 0, nullptr, nullptr, &onRequest, this, MHD_OPTION_EXTERNAL_LOGGER,
                         &onComplaint, this, MHD_OPTION_ARRAY, daemonOptions.terminated(), MHD_OPTION_END);
    if (daemon != nullptr) return;
    complaint.erase(complaint.find_last_not_of('\n') + 1);
    throw std::runtime_error(
        "The HTTP server did not start: " + complaint +
        (tls ? " Check that certificate and key are PEM files and belong together." : ""));
}

void HttpServer::Connections::drain(std::chrono::milliseconds limit)
{
    draining = true;
    // Event threads may still look at the socket for a moment, so it refuses connections now and is closed
    // last.
    quiesced = MHD_quiesce_daemon(daemon);
    if (quiesced != MHD_INVALID_SOCKET) ::shutdown(quiesced, SHUT_RDWR);
    std::unique_lock lock(mutex);
    answered.wait_for(lock, limit, [&] { return underWay == 0; });
}

HttpServer::HttpServer(const ServerOptions& options, Site& site)
    : connections(std::make_unique<Connections>(site))
{
    connections->start(options);
}

HttpServer::~HttpServer()
{
    MHD_stop_daemon(connections->daemon);
    if (connections->quiesced >= 0) ::close(connections->quiesced);
}

void HttpServer::drain(std::chrono::milliseconds limit)
{
    connections->drain(limit);
}

} // namespace tarnd
