#include "tarntesting/TestService.h"

#include "tarnd/ListenSocket.h"
#include "tarnd/http/FaultScript.h"
#include "tarnd/http/HttpServer.h"
#include "tarnd/store/Accounts.h"
#include "tarnd/store/Store.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

namespace tarntesting {

namespace {

/// In memory where the system has such a folder, since a test writes and syncs all the time.
class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::error_code none;
        const std::filesystem::path memory("/dev/shm");
        const bool chosen = std::getenv("TMPDIR") != nullptr || !std::filesystem::is_directory(memory, none);
        auto name =
            ((chosen ? std::filesystem::temp_directory_path() : memory) / "tarn-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
        path = name;
    }

    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path path;
};

} // namespace

struct TestService::Parts {
    explicit Parts(const Options& options)
        : socket("127.0.0.1:0")
        , url("http://" + socket.name())
        , store(storeOptions(options), tarnd::Purpose::serve)
        , site{store,
               url,
               options.maxFileSize,
               tarnd::RequestLog(tarnd::LogFormat::off, {}),
               tarnd::AuditLog({}),
               tarnd::NumbersFor::loopback}
    {
        site.faults.set(std::make_shared<tarnd::FaultScript>(options.faults));
        tarnd::ServerOptions server;
        server.listenSocket = socket.release();
        http.emplace(server, site);
    }

    tarnd::StoreOptions storeOptions(const Options& options)
    {
        tarnd::StoreOptions chosen;
        chosen.dataDir = folder.path;
        chosen.keepFree = 0;
        chosen.sessionIdleMinutes = static_cast<std::uint32_t>(options.sessionIdle.count());
        chosen.clock = [this] { return tarnd::systemTime() + ahead; };
        return chosen;
    }

    TemporaryFolder folder;
    std::atomic<std::int64_t> ahead = 0; ///< milliseconds
    tarnd::ListenSocket socket;
    std::string url;
    tarnd::Store store;
    tarnd::Site site;
    std::optional<tarnd::HttpServer> http; ///< last: goes before what it asks
};

TestService::TestService() : TestService(Options{}) {}

TestService::TestService(Options options) : parts(std::make_unique<Parts>(options)) {}

TestService::~TestService() = default;

const std::string& TestService::url() const
{
    return parts->url;
}

std::string TestService::addUser(const std::string& name)
{
    return parts->store.accounts().add(name);
}

void TestService::removeUser(const std::string& name)
{
    parts->store.accounts().remove(name, true);
}

void TestService::script(const std::string& lines)
{
    parts->site.faults.set(std::make_shared<tarnd::FaultScript>(lines));
}

std::vector<std::string> TestService::unfired() const
{
    return parts->site.faults.get()->unfired();
}

std::uint32_t TestService::seed() const
{
    return parts->site.faults.get()->seed();
}

void TestService::advance(std::chrono::milliseconds time)
{
    parts->ahead += time.count();
}

} // namespace tarntesting
