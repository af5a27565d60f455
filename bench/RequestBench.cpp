// Small requests through the whole client, beside libcurl alone sending the same to the same server, whose URL
// is in TARN_BENCH_URL: several in flight against curl_multi, one after another against curl_easy.
#include "Yardstick.h"

#include "tarn/fileaccess/FileMessages.h"
#include "tarnhost/TarnHost.h"

#include <curl/curl.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace connector::host::bench {
namespace {

constexpr int requests = 4'000; // in a turn with several in flight
constexpr int blockingRequests = 500;

std::string serverUrl()
{
    const char* url = std::getenv("TARN_BENCH_URL");
    if (!url) throw std::runtime_error("set TARN_BENCH_URL to a server that answers the requests");
    return url;
}

const std::string query = "?clientString=tarn%20host&clientType=desktop";

struct ReadFile {
    static Future<void> send(TarnHost& host)
    {
        auto request = std::make_unique<tarn::FileRead>();
        request->path = u"/file.txt";
        return host.fileAccess()->readFile(std::move(request)).then([](auto&& reply) {
            benchmark::DoNotOptimize(reply.get()->content);
        });
    }

    static std::string url() { return serverUrl() + "/service/v1/files/file.txt" + query + "&bucket=alice"; }
};

struct Ping {
    static Future<void> send(TarnHost& host)
    {
        return host.session()->ping(std::make_unique<tarn::Ping>()).then([](auto&& reply) {
            benchmark::DoNotOptimize(reply.get()->value);
        });
    }

    static std::string url() { return serverUrl() + "/service/v1/ping" + query; }
};

/// A host that has logged in.
class Client {
public:
    Client()
    {
        auto login = std::make_unique<tarn::Login>();
        login->user = u"alice";
        host.session()->login(std::move(login)).get();
    }

    template <class Operation>
    void oneAfterAnother()
    {
        for (int i = 0; i < blockingRequests; ++i)
            Operation::send(host).get();
    }

    /// Each reply sends the next request, as an application that does not block would.
    template <class Operation>
    void severalInFlight(int inFlight)
    {
        auto turn = std::make_shared<Turn>();
        for (int i = 0; i < inFlight; ++i)
            sendNext<Operation>(turn);
        turn->over.get_future().get();
    }

private:
    struct Turn {
        std::atomic<int> toSend{requests};
        std::atomic<int> toArrive{requests};
        std::promise<void> over;
    };

    template <class Operation>
    void sendNext(const std::shared_ptr<Turn>& turn)
    {
        if (turn->toSend-- <= 0) return;
        static_cast<void>(Operation::send(host).then([this, turn](Future<void>&& reply) {
            requireReply(std::move(reply));
            if (--turn->toArrive == 0)
                turn->over.set_value();
            else
                sendNext<Operation>(turn);
        }));
    }

    /// Nothing measured with failures among it is worth a number.
    static void requireReply(Future<void>&& reply)
    {
        try {
            reply.get();
        } catch (const std::exception& error) {
            std::cerr << "request_bench: " << error.what() << '\n';
            std::_Exit(1);
        }
    }

    TarnHost host{{.endpoint = serverUrl()}};
};

std::size_t append(char* bytes, std::size_t unit, std::size_t count, void* to)
{
    static_cast<std::string*>(to)->append(bytes, unit * count);
    return unit * count;
}

/// An easy handle that asks for the same again and again.
class PlainRequest {
public:
    explicit PlainRequest(const std::string& url)
    {
        curl_easy_setopt(easy.get(), CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy.get(), CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy.get(), CURLOPT_HTTPHEADER, headers.get());
        curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, &append);
        curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &reply);
    }

    PlainRequest(const PlainRequest&) = delete;
    PlainRequest& operator=(const PlainRequest&) = delete;

    CURL* handle()
    {
        reply.clear();
        return easy.get();
    }

private:
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy{curl_easy_init(), &curl_easy_cleanup};
    std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers{
        curl_slist_append(nullptr, "x-qz-tarn-session-id: 0123456789abcdef"), &curl_slist_free_all};
    std::string reply;
};

void require(CURLcode outcome)
{
    if (outcome != CURLE_OK) throw std::runtime_error(curl_easy_strerror(outcome));
}

/// As many handles as are in flight, each added again as soon as it is done.
class PlainMulti {
public:
    PlainMulti(const std::string& url, int inFlight)
    {
        for (int i = 0; i < inFlight; ++i)
            plain.push_back(std::make_unique<PlainRequest>(url));
    }

    void turn()
    {
        int toSend = requests;
        int toArrive = requests;
        for (auto& request : plain) {
            curl_multi_add_handle(multi.get(), request->handle());
            curl_easy_setopt(request->handle(), CURLOPT_PRIVATE, request.get());
            --toSend;
        }
        while (toArrive > 0) {
            int running = 0;
            curl_multi_perform(multi.get(), &running);
            int left = 0;
            while (CURLMsg* message = curl_multi_info_read(multi.get(), &left)) {
                require(message->data.result);
                --toArrive;
                again(message->easy_handle, toSend);
            }
            if (toArrive > 0) curl_multi_poll(multi.get(), nullptr, 0, 1000, nullptr);
        }
    }

private:
    void again(CURL* easy, int& toSend)
    {
        PlainRequest* request = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &request);
        curl_multi_remove_handle(multi.get(), easy);
        if (toSend == 0) return;
        --toSend;
        curl_multi_add_handle(multi.get(), request->handle());
    }

    std::vector<std::unique_ptr<PlainRequest>> plain;
    std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi{curl_multi_init(), &curl_multi_cleanup};
};

template <class Operation>
void inFlight(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    Client client;
    PlainMulti plain(Operation::url(), count);
    Yardstick yardstick(state);
    for (auto _ : state) {
        yardstick.round(
            requests, [&] { client.severalInFlight<Operation>(count); }, [&] { plain.turn(); });
    }
    yardstick.report("requests", "tarn", "libcurl");
}

void blocking(benchmark::State& state)
{
    Client client;
    PlainRequest plain(ReadFile::url());
    Yardstick yardstick(state);
    for (auto _ : state) {
        yardstick.round(
            blockingRequests, [&] { client.oneAfterAnother<ReadFile>(); },
            [&] {
                for (int i = 0; i < blockingRequests; ++i)
                    require(curl_easy_perform(plain.handle()));
            });
    }
    yardstick.report("requests", "tarn", "libcurl");
}

BENCHMARK_TEMPLATE(inFlight, ReadFile)->Name("readFile")->Arg(16)->Arg(64)->UseManualTime();
BENCHMARK_TEMPLATE(inFlight, Ping)->Name("ping")->Arg(16)->Arg(64)->UseManualTime();
BENCHMARK(blocking)->UseManualTime();

} // namespace
} // namespace connector::host::bench
