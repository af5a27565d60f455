// Memory that runs out at every single allocation of an operation: whatever fails, somebody must hear of it, and
// nothing may hang, crash or leak.
#include "support/ManualPublisher.h"
#include "support/WireTest.h"
#include "tarn/accesscontrol/AccessControlClient.h"
#include "tarn/accesscontrol/AccessControlClientServiceProvider.h"
#include "tarn/fileaccess/FileAccessClient.h"
#include "tarn/fileaccess/FileAccessClientServiceProvider.h"
#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/ReducingSubscriber.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"
#include "tarn/transfer/FileTransferClient.h"
#include "tarn/transfer/FileTransferClientServiceProvider.h"
#include "tarn/versioning/VersioningClient.h"
#include "tarn/versioning/VersioningClientServiceProvider.h"

#include <Poco/AutoPtr.h>
#include <Poco/DOM/DOMParser.h>
#include <Poco/DOM/Document.h>

#include <cstdlib>
#include <new>

namespace {

/// How this thread's memory runs out. Other threads are not touched.
thread_local struct {
    std::size_t before = 0; ///< allocations that succeed once armed
    std::size_t denied = 0; ///< how many then fail; 0: not armed
    bool reached = false;
    std::ptrdiff_t live = 0; ///< blocks allocated and not released
} memory;

bool isDenied()
{
    if (memory.denied == 0) return false;
    if (memory.before > 0) {
        --memory.before;
        return false;
    }
    --memory.denied;
    return memory.reached = true;
}

void* counted(void* block)
{
    if (block) ++memory.live;
    return block;
}

} // namespace

#ifdef TARN_SANITIZED
// The sanitizers have an allocator of their own below this.
void* operator new(std::size_t size)
{
    void* block = isDenied() ? nullptr : counted(std::malloc(size ? size : 1));
    return block ? block : throw std::bad_alloc();
}

void operator delete(void* block) noexcept
{
    if (block) --memory.live;
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}
#else
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size)
{
    return isDenied() ? nullptr : counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size)
{
    return isDenied() ? nullptr : counted(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size)
{
    if (isDenied()) return nullptr;
    return block ? __libc_realloc(block, size) : counted(__libc_malloc(size));
}

void free(void* block)
{
    if (block) --memory.live;
    __libc_free(block);
}
}
#endif

namespace {

using namespace connector;
using namespace connector::tarn;
using namespace tarntest;

struct Stream {
    std::shared_ptr<ManualPublisher> manual = std::make_shared<ManualPublisher>();
    std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>> publisher = manual;
};

struct SessionBench {
    std::shared_ptr<FakeTransport> transport = std::make_shared<FakeTransport>();
    std::shared_ptr<TarnSessionClient> client =
        std::make_shared<TarnSessionClient>(transport, Address("service"), "app 1.0", "test", "de_DE");

    SessionBench()
    {
        transport->serve("service",
                         std::make_shared<TarnSessionClientServiceProvider>(nullptr, "http://host"));
    }
};

/// Runs `run` on a World of its own with memory that ends after n allocations, n counting up until it is enough:
/// once with a single failure, once with no memory from there on, while the World is destroyed, too. Each time it
/// throws, or the future it has filled in is settled; with enough memory it ends as expected.
/// @return in how many of these attempts not everything allocated was released
template <class World, class T, class Run>
int leaksOf(const std::string& expected, Run run)
{
    auto attempt = [&](std::size_t enough, std::size_t denied) {
        Future<T> future;
        bool thrown = false;
        auto world = std::make_unique<World>();
        memory.before = enough;
        memory.denied = denied;
        memory.reached = false;
        try {
            run(*world, future);
        } catch (const std::exception&) {
            thrown = true;
        }
        world.reset();
        memory.denied = 0;
        EXPECT_TRUE(future.isValid() ? future.isReady() : thrown)
            << "lost after " << enough << " allocations";
        if (!memory.reached) {
            EXPECT_EQ(outcomeOf(future), expected);
        }
    };
    attempt(0, 0); // what is made once and kept is there from here on
    int leaks = 0;
    for (const std::size_t denied : {std::size_t{1}, ~std::size_t{0}}) {
        memory.reached = true;
        for (std::size_t enough = 0; memory.reached; ++enough) {
            const auto before = memory.live;
            attempt(enough, denied);
            const bool reached = memory.reached;
            attempt(0, 0); // what was let go and is kept otherwise is there again
            memory.reached = reached;
            leaks += memory.live > before;
        }
    }
    return leaks;
}

TEST(AllocationFailure, OfAContinuationOrAnException)
{
    auto doubled = [](Promise<int>& promise, Future<std::string>& future) {
        future = promise.getFuture()
                     .then([](Future<int>&& value) { return std::make_unique<int>(value.get()); })
                     .then([](Future<std::unique_ptr<int>>&& value) {
                         return std::string(100, static_cast<char>(*value.get()));
                     });
        promise.setValue(7);
    };
    EXPECT_EQ((leaksOf<Promise<int>, std::string>("done", doubled)), 0);
    auto broken = [](Promise<int>& promise, Future<void>& future) {
        future = promise.getFuture().then([](Future<int>&& value) { value.get(); });
    };
    EXPECT_EQ((leaksOf<Promise<int>, void>("Promise destroyed before it provided a value.", broken)), 0);
}

TEST(AllocationFailure, OfAStream)
{
    auto reduced = [](Stream& stream, Future<common::DataBuffer>& future) {
        future = reactive_streams::reduceContentToDataBuffer(stream.publisher);
        for (const char* item : {"one", "two and more", "three"})
            stream.manual->subscriber->onNext(common::DataBuffer(item));
        stream.manual->subscriber->onComplete();
    };
    EXPECT_EQ((leaksOf<Stream, common::DataBuffer>("done", reduced)), 0);
    auto cancelled = [](Stream& stream, Future<common::DataBuffer>& future) {
        future = reactive_streams::reduceContentToDataBuffer(stream.publisher);
        stream.manual->subscriber->cancel();
    };
    EXPECT_EQ((leaksOf<Stream, common::DataBuffer>("Content stream cancelled.", cancelled)), 0);
}

TEST(AllocationFailure, OfAMessageThatIsRefused)
{
    auto refused = [](SessionBench& bench, Future<std::unique_ptr<FileReadResponse>>& future) {
        future = bench.transport->handle<FileReadResponse, FileRead>(std::make_unique<FileRead>(),
                                                                     Address("service"));
    };
    const std::string refusal = "Incorrect message type. Expected: "
                                "N9connector14ServiceMessageINS_4tarn26TarnSessionServiceProviderEEE but "
                                "found N9connector4tarn8FileReadE";
    EXPECT_EQ((leaksOf<SessionBench, std::unique_ptr<FileReadResponse>>(refusal, refused)), 0);
}

/// Poco's parser, which reads what has attributes, leaks by itself when its constructors run out of memory. Nothing of
/// ours may add to that.
int leaksOfTheParser(const std::string& text)
{
    struct Names {
        Poco::AutoPtr<Poco::XML::NamePool> pool = new Poco::XML::NamePool;
    };

    return leaksOf<Names, void>("done", [&](Names& names, Future<void>& future) {
        Poco::AutoPtr<Poco::XML::Document> document(
            Poco::XML::DOMParser(names.pool).parseMemory(text.data(), text.size()));
        future = makeReadyFuture();
    });
}

using Folding = reactive_streams::ReducingSubscriber<common::DataBuffer, common::DataBuffer>;

/// Calls `operation` of the bench's client and answers it.
template <class Bench, class Client, class Request>
int leaksOfOperation(ReplyTo<Request> (Client::*operation)(std::unique_ptr<Request>&&),
                     const std::string& reply)
{
    return leaksOf<Bench, std::unique_ptr<typename Request::Response>>(
        "done", [&](Bench& bench, ReplyTo<Request>& future) {
            auto request = std::make_unique<Request>();
            if constexpr (std::is_same_v<Request, FileUpload>) request->content = bodyOf("content");
            if constexpr (std::is_same_v<Request, FileDownload>) {
                request->content =
                    std::make_shared<Folding>(common::DataBuffer(), reactive_streams::appendContent);
            }
            future = ((*bench.client).*operation)(std::move(request));
            bench.transport->answer(200, reply);
        });
}

template <class Bench, class Client, class Request>
void expectOperation(ReplyTo<Request> (Client::*operation)(std::unique_ptr<Request>&&),
                     const std::string& reply)
{
    const bool hasAttributes = reply.find('=') != std::string::npos;
    EXPECT_EQ(leaksOfOperation<Bench>(operation, reply), hasAttributes ? leaksOfTheParser(reply) : 0)
        << reply;
}

TEST(AllocationFailure, OfAnOperationOfEachArea)
{
    using Files = WireBench<FileAccessClient, FileAccessClientServiceProvider>;
    using Grants = WireBench<AccessControlClient, AccessControlClientServiceProvider>;
    using Transfers = WireBench<FileTransferClient, FileTransferClientServiceProvider>;
    using Versions = WireBench<VersioningClient, VersioningClientServiceProvider>;
    expectOperation<SessionBench>(&TarnSessionClient::login, "<R><TarnSessionId>S1</TarnSessionId></R>");
    expectOperation<Files>(&FileAccessClient::createFile, "<R><VersionId>V1</VersionId></R>");
    EXPECT_EQ(leaksOfOperation<Files>(&FileAccessClient::readFile, "content"), 0);
    // Not counted: OpenSSL keeps what it notes of a failure with the thread. The leak sanitizer tells that apart.
    leaksOfOperation<Transfers>(&FileTransferClient::uploadFile, "<R><VersionId>V1</VersionId></R>");
    leaksOfOperation<Transfers>(&FileTransferClient::downloadFile, "content");
    expectOperation<Files>(&FileAccessClient::listFolder,
                           "<R><Files><F a='b'><Name>a longer name than fits</Name></F><F/></Files></R>");
    expectOperation<Grants>(&AccessControlClient::listPermissions,
                            "<R><Permission><Resource><Path>/a</Path></Resource></Permission></R>");
    expectOperation<Versions>(&VersioningClient::listVersions,
                              "<R><VersionSummary><VersionId>V1</VersionId></VersionSummary></R>");
}

} // namespace
