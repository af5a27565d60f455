#include "service/http/HttpServer.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <microhttpd.h>
#include <mutex>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace tarnd {

namespace {

constexpr std::size_t connectionMemory =
    128 * 1024; // bytes: one head, and the pieces in which a body arrives

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

} // namespace

struct HttpServer::Connections {
    explicit Connections(Site& theSite) : site(theSite) {}

    void start(const ServerOptions& options);

    Exchange* open(const char* target);
    MHD_Result handle(MHD_Connection* connection, const char* method, const char* data, std::size_t* size,
                      Exchange& exchange);
    void closed();

    Site& site;
    MHD_Daemon* daemon = nullptr;
    std::atomic<bool> draining = false;
    int quiesced = -1;     ///< the listening socket once it is no longer the server library's to close
    std::mutex mutex;      ///< guards underWay and complaint
    std::string complaint; ///< the last thing the server library said
    std::condition_variable answered;
    std::size_t underWay = 0; ///< requests begun and not yet answered in full
};

Exchange* HttpServer::Connections::open(const char* target)
{
    auto exchange = std::make_unique<Exchange>(site, target);
    const std::lock_guard lock(mutex);
    ++underWay;
    return exchange.release();
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

void HttpServer::Connections::closed()
{
    const std::lock_guard lock(mutex);
    --underWay;
    answered.notify_all();
}

void HttpServer::Connections::start(const ServerOptions& options)
{
    const MHD_LogCallback log = [](void* self, const char* format, va_list arguments) {
        std::array<char, 512> text{};
        std::vsnprintf(text.data(), text.size(), format, arguments);
        auto& connections = *static_cast<Connections*>(self);
        const std::lock_guard lock(connections.mutex);
        connections.complaint = text.data();
    };
    const auto opened = +[](void* self, const char* target, MHD_Connection*) -> void* {
        return static_cast<Connections*>(self)->open(target);
    };
    const MHD_RequestCompletedCallback completed = [](void* self, MHD_Connection*, void** exchange,
                                                      MHD_RequestTerminationCode) {
        if (*exchange == nullptr) return;
        delete static_cast<Exchange*>(*exchange);
        *exchange = nullptr;
        static_cast<Connections*>(self)->closed();
    };
    const MHD_AccessHandlerCallback handle = [](void* self, MHD_Connection* connection, const char*,
                                                const char* method, const char*, const char* data,
                                                std::size_t* size, void** exchange) {
        return static_cast<Connections*>(self)->handle(connection, method, data, size,
                                                       *static_cast<Exchange*>(*exchange));
    };

    const auto value = [](auto function) { return reinterpret_cast<intptr_t>(function); };
    const auto text = [](const std::string& pem) { return const_cast<char*>(pem.c_str()); };
    std::array<MHD_OptionItem, 16> items{};
    std::size_t count = 0;
    const auto option = [&](MHD_OPTION name, intptr_t number, void* pointer = nullptr) {
        items[count++] = {name, number, pointer};
    };
    option(MHD_OPTION_LISTEN_SOCKET, options.listenSocket);
    option(MHD_OPTION_URI_LOG_CALLBACK, value(opened), this);
    option(MHD_OPTION_UNESCAPE_CALLBACK, value(&leaveEncoded), nullptr);
    option(MHD_OPTION_NOTIFY_COMPLETED, value(completed), this);
    option(MHD_OPTION_STRICT_FOR_CLIENT, 1);
    option(MHD_OPTION_CONNECTION_LIMIT, options.maxConnections);
    option(MHD_OPTION_CONNECTION_MEMORY_LIMIT, connectionMemory);
    option(MHD_OPTION_CONNECTION_TIMEOUT, options.idleTimeout.count());
    if (options.threads > 1) option(MHD_OPTION_THREAD_POOL_SIZE, options.threads);
    unsigned flags = MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC | MHD_USE_ERROR_LOG;
    if (options.ipv6) flags |= MHD_USE_IPv6;
    if (!options.tlsCertificate.empty()) {
        flags |= MHD_USE_TLS;
        option(MHD_OPTION_HTTPS_MEM_CERT, 0, text(options.tlsCertificate));
        option(MHD_OPTION_HTTPS_MEM_KEY, 0, text(options.tlsKey));
    }
    option(MHD_OPTION_END, 0);

    daemon = MHD_start_daemon(flags, 0, nullptr, nullptr, handle, this, MHD_OPTION_EXTERNAL_LOGGER, log, this,
                              MHD_OPTION_ARRAY, items.data(), MHD_OPTION_END);
    if (daemon == nullptr) throw std::runtime_error("The HTTP server did not start. " + complaint);
}

HttpServer::HttpServer(ServerOptions options, Site& site) : connections(std::make_unique<Connections>(site))
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
    connections->draining = true;
    // The socket stays open until the server ends, but nobody accepts from it any more.
    if (const auto socket = MHD_quiesce_daemon(connections->daemon); socket != MHD_INVALID_SOCKET)
        ::close(socket);
    std::unique_lock lock(connections->mutex);
    connections->answered.wait_for(lock, limit, [&] { return connections->underWay == 0; });
}

} // namespace tarnd
