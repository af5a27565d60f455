#include "tarnhost/detail/HttpTransfer.h"

#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/detail/RequestCheck.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace connector::host::detail {
namespace {

constexpr long transferBufferBytes = 256 * 1024;
constexpr const char* notRepeated =
    "The connection was lost before the reply; the request is not sent a second time.";

} // namespace

HttpTransfer::HttpTransfer(const http::HttpClientRequest& request,
                           std::shared_ptr<const HttpOptions> httpOptions,
                           std::shared_ptr<TransferCounters> byteCounters)
    : options(std::move(httpOptions))
    , counters(std::move(byteCounters))
    , url(request.url)
    , target(checkedTarget(request))
    , method(checkedMethod(request, target))
    , isChange(request.atMostOnce || method != "GET")
    , headerLines(checkedHeaders(request, target))
    , clock(*options)
    , reply(request.replyBody, *options)
{
}

HttpTransfer::~HttpTransfer()
{
    if (settled) return;
    try {
        settle();
    } catch (...) { // without memory for an outcome the promise still says that it was destroyed
    }
}

template <class Value>
void HttpTransfer::set(CURLoption option, Value value)
{
    if (const CURLcode fault = curl_easy_setopt(easy.get(), option, value); fault != CURLE_OK) {
        throw std::runtime_error(curl_easy_strerror(fault));
    }
}

CURL* HttpTransfer::open()
{
    easy.reset(curl_easy_init());
    if (!easy) throw std::bad_alloc();
    setDefences();
    setRequest();
    setBodySource();
    return easy.get();
}

/// What keeps an exchange from leaving its host, its protocol, its limits or the reach of its errors.
void HttpTransfer::setDefences()
{
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_ERRORBUFFER, errorText.data());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_DISALLOW_USERNAME_IN_URL, 1L);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L); // a proxy's consent is no head of the reply
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!options->caFile.empty()) {
        set(CURLOPT_CAINFO, options->caFile.c_str());
        set(CURLOPT_CAPATH, nullptr);
    }
    set(CURLOPT_PROXY, options->proxy.c_str()); // empty also switches the environment's proxies off
    set(CURLOPT_NOPROXY, "");
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options->connectTimeout.count()));
}

void HttpTransfer::setRequest()
{
    set(CURLOPT_URL, url.c_str());
    set(CURLOPT_PATH_AS_IS, 1L);
    auto append = [this](const std::string& line) {
        curl_slist* grown = curl_slist_append(headerList.get(), line.c_str());
        if (!grown) throw std::bad_alloc();
        (void)headerList.release();
        headerList.reset(grown);
    };
    for (const auto& line : headerLines)
        append(line);
    append("Expect:"); // an upload does not wait for the service's consent
    set(CURLOPT_HTTPHEADER, headerList.get());
    set(CURLOPT_BUFFERSIZE, transferBufferBytes);
    set(CURLOPT_HEADERFUNCTION, &HttpTransfer::onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &HttpTransfer::onBody);
    set(CURLOPT_WRITEDATA, this);
}

/// libcurl repeats a request whose kept-alive connection turns out dead. A body without a way to rewind keeps
/// changes out of that, and where there is none, the check before sending does.
void HttpTransfer::setBodySource()
{
    if (body.size > 0 || method == "PUT") {
        set(CURLOPT_UPLOAD, 1L);
        set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(body.size));
        set(CURLOPT_UPLOAD_BUFFERSIZE, transferBufferBytes);
        set(CURLOPT_READFUNCTION, &HttpTransfer::onUpload);
        set(CURLOPT_READDATA, this);
    }
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
    set(CURLOPT_PREREQFUNCTION, &HttpTransfer::onBeforeSend);
    set(CURLOPT_PREREQDATA, this);
}

int HttpTransfer::onBeforeSend(void* self, char*, char*, int, int)
{
    auto& transfer = *static_cast<HttpTransfer*>(self);
    if (!std::exchange(transfer.sendBegun, true) || !transfer.isChange) return CURL_PREREQFUNC_OK;
    transfer.refusal = notRepeated;
    return CURL_PREREQFUNC_ABORT;
}

std::size_t HttpTransfer::onUpload(char* room, std::size_t unit, std::size_t count, void* self)
{
    auto& transfer = *static_cast<HttpTransfer*>(self);
    const auto bytes = std::min<std::uint64_t>(unit * count, transfer.body.size - transfer.uploaded);
    if (bytes == 0) return 0;
    std::memcpy(room, static_cast<const char*>(transfer.body.data) + transfer.uploaded, bytes);
    transfer.uploaded += bytes;
    transfer.counters->sent.fetch_add(bytes, std::memory_order_relaxed);
    return bytes;
}

std::size_t HttpTransfer::onHeader(char* bytes, std::size_t unit, std::size_t count, void* self)
{
    return static_cast<HttpTransfer*>(self)->take(&IncomingReply::takeLine, {bytes, unit * count});
}

std::size_t HttpTransfer::onBody(char* bytes, std::size_t unit, std::size_t count, void* self)
{
    auto& transfer = *static_cast<HttpTransfer*>(self);
    transfer.counters->received.fetch_add(unit * count, std::memory_order_relaxed);
    return transfer.take(&IncomingReply::takeBody, {bytes, unit * count});
}

std::size_t HttpTransfer::take(void (IncomingReply::*step)(std::string_view), std::string_view bytes)
{
    try {
        (reply.*step)(bytes);
        return bytes.size();
    } catch (const std::exception& fault) {
        refusal = fault.what();
        return CURL_WRITEFUNC_ERROR;
    }
}

bool HttpTransfer::isOverdue(ExchangeClock::Time now)
{
    if (!sendBegun) return false; // until then libcurl watches the time
    curl_off_t sent = 0;          // on the wire, while `uploaded` runs ahead by what libcurl holds
    curl_easy_getinfo(easy.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
    const auto bytesOut = static_cast<std::uint64_t>(sent);
    refusal = clock.overdue(
        now, {bytesOut >= body.size, reply.hasBegun(), reply.isDocument(), bytesOut, reply.arrived()});
    return !refusal.empty();
}

void HttpTransfer::close(CURLcode outcome)
{
    if (outcome != CURLE_OK) {
        fail(errorOf(phaseOf(outcome), reasonOf(outcome)));
        return;
    }
    if (!reply.hasHead()) { // libcurl takes a head that the connection's end has cut off for a whole one
        fail(errorOf(TransportPhase::exchange, "The connection was closed in the head of the reply."));
        return;
    }
    complete = true;
    const char* type = nullptr;
    curl_easy_getinfo(easy.get(), CURLINFO_CONTENT_TYPE, &type);
    contentType = type ? type : "";
    easy.reset();
}

void HttpTransfer::fail(std::exception_ptr error)
{
    easy.reset();
    failure = std::move(error);
}

std::exception_ptr HttpTransfer::errorOf(TransportPhase phase, std::string reason) const
{
    return std::make_exception_ptr(
        TransportError(phase, target.printable(), target.peer(), std::move(reason), isChange && sendBegun));
}

TransportPhase HttpTransfer::phaseOf(CURLcode outcome) const
{
    if (sendBegun) return TransportPhase::exchange;
    switch (outcome) {
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_LOGIN_DENIED:
        return TransportPhase::prepare;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
        return TransportPhase::secure;
    default:
        return TransportPhase::connect;
    }
}

std::string HttpTransfer::reasonOf(CURLcode outcome) const
{
    if (!refusal.empty()) return refusal;
    if (outcome == CURLE_SEND_FAIL_REWIND) return notRepeated;
    long systemError = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_OS_ERRNO, &systemError);
    if (outcome == CURLE_COULDNT_CONNECT && systemError != 0) {
        return std::generic_category().message(static_cast<int>(systemError));
    }
    return errorText[0] != '\0' ? errorText.data() : curl_easy_strerror(outcome);
}

void HttpTransfer::check(const common::DataBuffer& content)
{
    if (failure || !options->replyCheck) return;
    try {
        auto wrong = options->replyCheck({reply.status(), contentType, !reply.isDocument(), content.bytes()});
        if (!wrong.empty()) failure = errorOf(TransportPhase::reply, std::move(wrong));
    } catch (...) {
        failure = std::current_exception();
    }
}

void HttpTransfer::settle()
{
    settled = true;
    body = common::DataBuffer(); // here, since giving much memory back would hold up the I/O thread
    if (!complete && !failure) failure = errorOf(TransportPhase::shutdown, errors::hostStopped);
    auto content = reply.takeContent();
    check(content);
    if (failure) {
        promise.setException(std::exchange(failure, nullptr));
        return;
    }
    promise.setValue(std::make_unique<http::HttpClientResponse>(
        reply.status(),
        std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(std::move(content))));
}

} // namespace connector::host::detail
