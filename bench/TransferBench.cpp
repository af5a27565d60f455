// Megabytes per second of a body through the host over loopback, beside plain libcurl doing the same.
#include "Yardstick.h"

#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HttpClient.h"
#include "tarntesting/ScriptedHttpServer.h"

#include <curl/curl.h>

#include <stdexcept>
#include <string>

namespace connector::host::bench {
namespace {

using common::DataBuffer;
using tarntesting::ScriptedHttpServer;

constexpr std::size_t bodyBytes = 48 << 20; // a reply may have 64 MiB
constexpr double megabytes = bodyBytes / 1e6;

/// The host's side of the comparison.
class Host {
public:
    Host() { client->start(); }

    ~Host()
    {
        client->stop();
        threads->drain();
    }

    DataBuffer exchange(const std::string& method, const std::string& url, http::BodyPublisher body)
    {
        auto request = std::make_unique<http::HttpClientRequest>(url, method, std::move(body));
        auto reply = client->deliver(std::move(request), Address(), nullptr).get();
        auto& response = dynamic_cast<http::HttpClientResponse&>(*reply);
        return reactive_streams::reduceContentToDataBuffer(response.body).get();
    }

private:
    std::shared_ptr<DeliveryThreads> threads = std::make_shared<DeliveryThreads>();
    std::shared_ptr<HttpClient> client = std::make_shared<HttpClient>(threads, HttpOptions());
};

std::size_t append(char* bytes, std::size_t unit, std::size_t count, void* to)
{
    static_cast<std::string*>(to)->append(bytes, unit * count);
    return unit * count;
}

std::size_t take(char* room, std::size_t unit, std::size_t count, void* from)
{
    auto& left = *static_cast<std::string_view*>(from);
    const auto bytes = left.copy(room, unit * count);
    left.remove_prefix(bytes);
    return bytes;
}

/// One blocking exchange; the connection is kept in `easy`.
std::string plainExchange(CURL* easy, const std::string& url, const std::string* upload)
{
    std::string reply;
    std::string_view left;
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &reply);
    curl_slist* headers = curl_slist_append(nullptr, "Expect:");
    if (upload) {
        left = *upload;
        curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(upload->size()));
        curl_easy_setopt(easy, CURLOPT_READFUNCTION, &take);
        curl_easy_setopt(easy, CURLOPT_READDATA, &left);
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    }
    const CURLcode outcome = curl_easy_perform(easy);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, nullptr);
    curl_slist_free_all(headers);
    if (outcome != CURLE_OK) throw std::runtime_error(curl_easy_strerror(outcome));
    return reply;
}

void download(benchmark::State& state)
{
    ScriptedHttpServer server(
        ScriptedHttpServer::always(ScriptedHttpServer::reply(std::string(bodyBytes, 'x'))));
    Host host;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy(curl_easy_init(), &curl_easy_cleanup);
    Yardstick yardstick(state);
    for (auto _ : state) {
        yardstick.round(
            megabytes, [&] { benchmark::DoNotOptimize(host.exchange("get", server.url(), nullptr)); },
            [&] { benchmark::DoNotOptimize(plainExchange(easy.get(), server.url(), nullptr)); });
    }
    yardstick.report("MB", "host", "libcurl");
}

/// Takes uploads without keeping them.
void swallow(ScriptedHttpServer::Connection& connection)
{
    while (connection.readHead() && connection.skip(bodyBytes))
        connection.send(ScriptedHttpServer::reply(""));
}

void upload(benchmark::State& state)
{
    ScriptedHttpServer server(swallow);
    Host host;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy(curl_easy_init(), &curl_easy_cleanup);
    const std::string content(bodyBytes, 'x');
    Yardstick yardstick(state);
    for (auto _ : state) {
        DataBuffer copy{content};
        auto body = std::make_shared<reactive_streams::OneShotPublisher<DataBuffer>>(std::move(copy));
        yardstick.round(
            megabytes, [&] { host.exchange("put", server.url(), std::move(body)); },
            [&] { plainExchange(easy.get(), server.url(), &content); });
    }
    yardstick.report("MB", "host", "libcurl");
}

BENCHMARK(download)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(upload)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2);

} // namespace
} // namespace connector::host::bench
