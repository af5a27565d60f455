#include "tests/tarnd/access/RestClient.h"

#include <curl/curl.h>
#include <stdexcept>
#include <strings.h>
#include <utility>

namespace tarnd::test {

namespace {

constexpr long patience = 60; // seconds

const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;

struct Arrival {
    RestReply& reply;
    std::function<void()> onFirstBytes;
};

std::size_t keepBody(char* data, std::size_t, std::size_t size, void* arriving)
{
    auto& arrival = *static_cast<Arrival*>(arriving);
    arrival.reply.body.append(data, size);
    if (const auto call = std::exchange(arrival.onFirstBytes, nullptr)) call();
    return size;
}

std::size_t keepHeader(char* data, std::size_t, std::size_t size, void* reply)
{
    if (strncasecmp(data, "date:", 5) != 0) static_cast<RestReply*>(reply)->headers.append(data, size);
    return size;
}

} // namespace

struct RestClient::Curl {
    Curl() : easy(curl_easy_init())
    {
        if (!initialised || easy == nullptr) throw std::runtime_error("libcurl does not start");
    }

    ~Curl() { curl_easy_cleanup(easy); }

    Curl(const Curl&) = delete;
    Curl& operator=(const Curl&) = delete;

    CURL* easy;
};

RestClient::RestClient() : curl(std::make_unique<Curl>()) {}

RestClient::~RestClient() = default;
RestClient::RestClient(RestClient&&) noexcept = default;

RestReply RestClient::send(const RestRequest& request)
{
    RestReply reply;
    Arrival arrival{reply, request.onFirstBytes};
    CURL* easy = curl->easy;
    curl_easy_reset(easy);
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(nullptr, curl_slist_free_all);
    const auto add = [&](const std::string& line) {
        auto* const longer = curl_slist_append(headers.get(), line.c_str());
        static_cast<void>(headers.release());
        headers.reset(longer);
    };
    add("Expect:");
    add("Content-Type: application/octet-stream");
    for (const auto& line : request.headers)
        add(line);
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT, patience);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, keepBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &arrival);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, keepHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &reply);
    if (request.method == "PUT") {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.data());
    }
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    const auto code = curl_easy_perform(easy);
    if (code != CURLE_OK)
        throw std::runtime_error(request.method + " " + request.url + ": " + curl_easy_strerror(code));
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    reply.status = static_cast<int>(status);
    return reply;
}

std::string headerOf(const RestReply& reply, const std::string& name)
{
    for (std::size_t begin = 0; begin < reply.headers.size();) {
        const auto end = reply.headers.find("\r\n", begin);
        const auto line = reply.headers.substr(begin, end - begin);
        if (line.size() > name.size() + 1 && line[name.size()] == ':' &&
            strncasecmp(line.c_str(), name.c_str(), name.size()) == 0)
            return line.substr(line.find_first_not_of(' ', name.size() + 1));
        begin = end + 2;
    }
    return {};
}

} // namespace tarnd::test
