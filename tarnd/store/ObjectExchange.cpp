#include "tarnd/store/ObjectExchange.h"

#include "tarnd/store/Secrets.h"
#include "tarnd/store/Sentences.h"

#include <Poco/String.h>

#include <algorithm>
#include <csignal>
#include <curl/curl.h>
#include <utility>

namespace tarnd {

namespace {

constexpr std::chrono::seconds stallLimit{10};
constexpr long connectLimit = 5000;                 // milliseconds
constexpr std::size_t receivedLimit = 256 * 1024;   // bytes that wait for whoever reads
constexpr std::size_t restLimit = 16 * 1024 * 1024; // bytes: more than a page of any list
constexpr std::size_t idleLimit = 64;               // connections

/// More than this is not sent over a connection that may have died while nobody used it: it could not be sent again.
constexpr std::uint64_t freshFrom = 1 << 20;

/// Libraries below would otherwise end the process when the other side hangs up.
void prepareProcess()
{
    static const bool prepared = [] {
        std::signal(SIGPIPE, SIG_IGN);
        return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    }();
    if (!prepared) throw sentences::internal.because("libcurl cannot be set up");
}

} // namespace

struct ObjectConnections::Connection {
    Connection() : easy(curl_easy_init()), multi(curl_multi_init())
    {
        if (!easy || !multi) throw sentences::internal.because("libcurl cannot be set up");
    }

    ~Connection()
    {
        end();
        curl_easy_cleanup(easy);
        curl_multi_cleanup(multi);
    }

    void end()
    {
        curl_multi_remove_handle(multi, easy);
        curl_easy_reset(easy);
        curl_slist_free_all(std::exchange(headers, nullptr));
    }

    CURL* easy;
    CURLM* multi;
    curl_slist* headers = nullptr;
};

ObjectConnections::ObjectConnections(ObjectStoreAddress theAddress)
    : address(std::move(theAddress)), key(keyFor(address))
{
    prepareProcess();
}

ObjectConnections::~ObjectConnections() = default;

std::unique_ptr<ObjectConnections::Connection> ObjectConnections::take()
{
    const std::lock_guard lock(mutex);
    if (idle.empty()) return std::make_unique<Connection>();
    auto last = std::move(idle.back());
    idle.pop_back();
    return last;
}

void ObjectConnections::giveBack(std::unique_ptr<Connection> connection)
{
    const std::lock_guard lock(mutex);
    if (idle.size() < idleLimit) idle.push_back(std::move(connection));
}

ObjectExchange::ObjectExchange(ObjectConnections& connections, ObjectRequest theRequest)
    : connections(connections)
    , request(std::move(theRequest))
    , interruptions(connections.interruptions)
    , connection(connections.take())
{
    setUp();
    if (curl_multi_add_handle(connection->multi, connection->easy) != CURLM_OK) fail("it cannot begin");
}

ObjectExchange::~ObjectExchange()
{
    if (!ended || result != CURLE_OK) return; // goes with its connection
    connection->end();
    connections.giveBack(std::move(connection));
}

void ObjectExchange::setUp()
{
    auto* const easy = connection->easy;
    const auto& address = connections.address;
    auto url = address.bucketUrl + "/" + (request.key.empty() ? "" : address.prefix + request.key);
    for (char separator = '?'; const auto& [name, value] : request.query) {
        url.append(1, separator).append(name).append("=").append(value);
        separator = '&';
    }
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_PROXY, ""); // none that the environment happens to name
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connectLimit);
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, static_cast<long>(receivedLimit));
    curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, static_cast<long>(receivedLimit));
    curl_easy_setopt(easy, CURLOPT_AWS_SIGV4, ("aws:amz:" + address.region + ":s3").c_str());
    // Apart from each other, since the id may hold a colon.
    curl_easy_setopt(easy, CURLOPT_USERNAME, connections.key.id.c_str());
    curl_easy_setopt(easy, CURLOPT_PASSWORD, connections.key.secret.c_str());
    const auto hash = !request.body.empty() ? sha256Hex(request.body)
                      : request.upload      ? "UNSIGNED-PAYLOAD"
                                            : sha256Hex("");
    const auto header = "x-amz-content-sha256: " + (request.sha256.empty() ? hash : request.sha256);
    connection->headers = curl_slist_append(connection->headers, header.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, connection->headers);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &ObjectExchange::onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &ObjectExchange::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
    if (request.upload) {
        curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(*request.upload));
        curl_easy_setopt(easy, CURLOPT_READFUNCTION, &ObjectExchange::onUpload);
        curl_easy_setopt(easy, CURLOPT_READDATA, this);
        curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, *request.upload >= freshFrom ? 1L : 0L);
    } else if (request.method == "POST") {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.c_str());
    } else if (request.method == "HEAD") {
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (request.method != "GET") {
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    if (!request.range.empty()) curl_easy_setopt(easy, CURLOPT_RANGE, request.range.c_str());
}

void ObjectExchange::fail(const std::string& why) const
{
    throw sentences::objectsGone.because(request.method + " " + request.key + " at " +
                                         connections.address.name + ": " + why);
}

/// Moves bytes until something is done. The limit is ours: libcurl's would count the time in which nobody reads.
template <class Done>
void ObjectExchange::drive(Done&& done)
{
    constexpr int slice = 200; // milliseconds
    auto last = Clock::now();
    for (auto before = moved; !ended && !done();) {
        int running = 0, left = 0;
        curl_multi_perform(connection->multi, &running);
        while (const auto* message = curl_multi_info_read(connection->multi, &left))
            if (message->msg == CURLMSG_DONE) {
                ended = true;
                result = message->data.result;
            }
        if (ended || done()) break;
        if (std::exchange(before, moved) != moved) last = Clock::now();
        if (Clock::now() - last > stallLimit) fail("nothing has moved for ten seconds");
        if (connections.interruptions != interruptions) fail("the service ends");
        curl_multi_poll(connection->multi, nullptr, 0, slice, nullptr);
    }
    // A reply that came before the whole upload was sent says more than the connection that ended with it.
    if (ended && result != CURLE_OK && !(headCame && request.upload))
        fail(curl_easy_strerror(static_cast<CURLcode>(result)));
}

void ObjectExchange::send(const void* data, std::size_t size)
{
    pending = {static_cast<const char*>(data), size};
    given += size;
    curl_easy_pause(connection->easy, CURLPAUSE_CONT);
    drive([&] { return pending.empty(); });
    pending = {};
}

long ObjectExchange::status()
{
    drive([&] { return headCame; });
    if (!headCame) fail("no reply came");
    long code = 0;
    curl_easy_getinfo(connection->easy, CURLINFO_RESPONSE_CODE, &code);
    return code;
}

std::string ObjectExchange::header(const std::string& name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

std::size_t ObjectExchange::read(void* data, std::size_t size)
{
    if (readOfReceived == received.size()) {
        received.clear();
        readOfReceived = 0;
        if (!ended) curl_easy_pause(connection->easy, CURLPAUSE_CONT);
        drive([&] { return !received.empty(); });
    }
    const auto count = received.copy(static_cast<char*>(data), size, readOfReceived);
    readOfReceived += count;
    return count;
}

std::string ObjectExchange::rest()
{
    std::string text, piece(receivedLimit, '\0');
    while (const auto count = read(piece.data(), piece.size())) {
        text.append(piece, 0, count);
        if (text.size() > restLimit) fail("its reply is too long");
    }
    return text;
}

/// A store that has trouble of its own is one that is away. Anything else is ours: rights, a wrong name.
ServiceError ObjectExchange::refusal()
{
    const auto code = status();
    const bool passes = code >= 500 || code == 408 || code == 429;
    const auto& sentence = code == 507 ? sentences::storageFull
                           : passes    ? sentences::objectsGone
                                       : sentences::internal;
    return sentence.because(request.method + " " + request.key + " at " + connections.address.name +
                            " was answered with " + std::to_string(code) + ": " + rest().substr(0, 500));
}

std::size_t ObjectExchange::onUpload(char* data, std::size_t size, std::size_t count, void* self)
{
    auto& exchange = *static_cast<ObjectExchange*>(self);
    const auto taken = exchange.pending.copy(data, size * count);
    exchange.pending.remove_prefix(taken);
    exchange.moved += taken;
    if (taken == 0 && exchange.given < *exchange.request.upload) return CURL_READFUNC_PAUSE;
    return taken;
}

std::size_t ObjectExchange::onHeader(const char* data, std::size_t size, std::size_t count, void* self)
{
    auto& exchange = *static_cast<ObjectExchange*>(self);
    const std::string line(data, size * count);
    const auto colon = line.find(':');
    exchange.moved += line.size();
    if (line.starts_with("HTTP/")) {
        exchange.headers.clear();
        // "100 Continue" is the head of no reply.
        exchange.headers[":status"] = Poco::trim(line.substr(line.find(' ') + 1));
    } else if (colon != std::string::npos) {
        exchange.headers[Poco::toLower(line.substr(0, colon))] = Poco::trim(line.substr(colon + 1));
    } else if (!exchange.headers[":status"].starts_with('1')) {
        exchange.headCame = true;
    }
    return line.size();
}

std::size_t ObjectExchange::onBody(const char* data, std::size_t size, std::size_t count, void* self)
{
    auto& exchange = *static_cast<ObjectExchange*>(self);
    if (exchange.received.size() >= receivedLimit) return CURL_WRITEFUNC_PAUSE;
    exchange.received.append(data, size * count);
    exchange.moved += size * count;
    return size * count;
}

} // namespace tarnd
