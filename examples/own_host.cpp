// A host of one's own, over another HTTP client and with a thread for each message, and the tests that it passes.
#include "tarn/foundation/Promise.h"
#include "tarntesting/HostTest.h"

#include <Poco/String.h>
#include <Poco/URI.h>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <thread>

namespace {

using namespace connector;
namespace beast = boost::beast;
using Socket = boost::asio::ip::tcp::socket;
using Reply = std::unique_ptr<Message>;

/// Takes HTTP requests. A connection for each, so that no dead one is ever met and nothing sent twice.
class HttpProvider : public ServiceProvider {
public:
    Future<Reply> deliver(Reply&& message, Address&&, std::shared_ptr<Context>&&) override
    {
        auto& asked = dynamic_cast<http::HttpClientRequest&>(*message);
        const Poco::URI url(asked.url);
        const auto target = asked.url.substr(asked.url.find('/', asked.url.find("//") + 2));
        const auto method = beast::http::string_to_verb(Poco::toUpper(asked.method));
        beast::http::request<beast::http::string_body> request(method, target, 11);
        request.set("Host", url.getAuthority());
        for (const auto& [name, value] : asked.headers)
            request.insert(name, value);
        if (asked.body)
            request.body() = reactive_streams::reduceContentToDataBuffer(asked.body).get().bytes();
        // In the place of what the headers say of it, which is for hosts that send a body while it arrives.
        if (asked.body || asked.method == "put") request.content_length(request.body().size());

        boost::asio::io_context io;
        Socket socket(io);
        boost::asio::connect(socket, Socket::protocol_type::resolver(io).resolve(
                                         url.getHost(), std::to_string(url.getPort())));
        const auto entered = enter(socket);
        beast::http::write(socket, request);
        beast::flat_buffer buffer;
        beast::http::response_parser<beast::http::string_body> reply;
        reply.body_limit(std::numeric_limits<std::uint64_t>::max());
        beast::http::read(socket, buffer, reply); // fails for one that is cut off
        if (reply.get().need_eof()) throw std::runtime_error("The reply does not say where it ends.");
        using Publisher = reactive_streams::OneShotPublisher<common::DataBuffer>;
        return makeReadyFuture<Reply>(std::make_unique<http::HttpClientResponse>(
            static_cast<std::uint16_t>(reply.get().result_int()),
            std::make_shared<Publisher>(common::DataBuffer(reply.get().body()))));
    }

protected:
    void onStop() override // breaks off what is under way, so that nobody waits for it
    {
        const std::lock_guard lock(mutex);
        for (auto* socket : sockets)
            socket->shutdown(Socket::shutdown_both);
    }

private:
    /// Lets onStop know of the connection as long as the result lives.
    std::shared_ptr<void> enter(Socket& socket)
    {
        const std::lock_guard lock(mutex);
        if (!isRunning()) throw std::runtime_error("The host has ended.");
        sockets.push_back(&socket);
        return {nullptr, [this, &socket](void*) {
                    const std::lock_guard leaving(mutex);
                    std::erase(sockets, &socket);
                }};
    }

    std::mutex mutex;
    std::vector<Socket*> sockets;
};

/// Carries messages to the providers, each on a thread of its own.
class OwnHost : public Context, public Connector, public std::enable_shared_from_this<OwnHost> {
public:
    std::shared_ptr<Context> getContext() override { return shared_from_this(); }

    void serve(const Address& address, std::shared_ptr<ServiceProvider> provider)
    {
        provider->start();
        const std::lock_guard lock(mutex);
        providers[address.getName()] = std::move(provider);
    }

    Future<Reply> send(Reply&& message, Address&& to) override
    {
        const std::lock_guard lock(mutex);
        const auto found = providers.find(to.getName());
        if (found == providers.end())
            return makeExceptionalFuture<Reply>(std::runtime_error("Nobody is at " + to.getName()));
        Promise<Reply> promise;
        auto future = promise.getFuture();
        threads.emplace_back([self = shared_from_this(), provider = found->second, moved = std::move(message),
                              kept = std::move(promise)]() mutable {
            std::exception_ptr failure;
            try {
                return kept.setValue(provider->deliver(std::move(moved), Address("http"), self).get());
            } catch (...) {
                failure = std::current_exception();
            }
            kept.setException(std::move(failure));
        });
        return future;
    }

    /// Ends what is under way. Not on a thread of this host.
    void stop()
    {
        std::unique_lock lock(mutex);
        const auto leaving = std::exchange(providers, {});
        lock.unlock(); // from here on nobody is found, and no thread is added
        for (const auto& [address, provider] : leaving)
            provider->stop();
        for (auto& thread : threads)
            thread.join();
    }

private:
    std::mutex mutex; ///< guards both below
    std::map<std::string, std::shared_ptr<ServiceProvider>> providers;
    std::vector<std::thread> threads;
};

struct OwnHostUnderTest : tarntesting::HostUnderTest {
    OwnHostUnderTest() { host->serve(http(), std::make_shared<HttpProvider>()); }

    ~OwnHostUnderTest() override { host->stop(); }

    std::shared_ptr<Connector> connector() override { return host; }

    Address http() override { return Address("http"); }

    void serve(const Address& address, std::shared_ptr<ServiceProvider> provider) override
    {
        host->serve(address, std::move(provider));
    }

    std::shared_ptr<OwnHost> host = std::make_shared<OwnHost>();
};

} // namespace

TARN_HOST_TEST([] { return std::make_unique<OwnHostUnderTest>(); })
