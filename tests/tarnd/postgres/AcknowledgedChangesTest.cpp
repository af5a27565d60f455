// Processes over one database are stopped, continued and killed, and their connections cut, while all are used:
// what was acknowledged is there, what was refused is not, and the others go on meanwhile.
#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/postgres/OwnDatabase.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <random>
#include <set>
#include <thread>

namespace tarnd::test {
namespace {

constexpr std::size_t processes = 3, clients = 6;

/// A path and what may be found there; "" stands for nothing.
struct File {
    std::string path;
    std::set<std::string> possible = {""};
};

class AcknowledgedChanges : public OwnDatabase {
protected:
    void startProcess(std::size_t which)
    {
        services[which]->start();
        const std::lock_guard lock(mutex);
        urls[which] = services[which]->url();
    }

    std::string urlOf(std::size_t client)
    {
        const std::lock_guard lock(mutex);
        return urls[client % processes];
    }

    /// Changes one file after another at random; goes on to the next when an outcome is unknown.
    void use(std::size_t client)
    {
        std::mt19937 random(static_cast<unsigned>(client));
        ServiceUser user("");
        user.useSession(session);
        auto& mine = files[client];
        for (int change = 0; !ending; ++change) {
            if (mine.empty() || mine.back().possible.size() > 1 || random() % 8 == 0)
                mine.push_back({"/" + std::to_string(client) + "-" + std::to_string(mine.size())});
            auto& [path, possible] = mine.back();
            const bool remove = random() % 3 == 0 && !possible.count("");
            const auto after = remove ? "" : std::to_string(change);
            const auto url = urlOf(client);
            int status = 0;
            try {
                user.moveTo(url);
                status =
                    (remove ? user.deleteFile({"", path}) : user.put({"", path}, after, "CREATE_OR_UPDATE"))
                        .status;
            } catch (const std::exception&) { // killed: goes on when there is another
                waitUntil([&] { return ending || urlOf(client) != url; });
            }
            if (status == 200) {
                possible = {after};
                ++acknowledged;
            } else if (status != 503) {
                possible.insert(after);
                EXPECT_TRUE(status == 0 || status == 500) << status;
            }
        }
    }

    std::vector<std::unique_ptr<TarndProcess>> services;
    std::mutex mutex; ///< guards urls
    std::vector<std::string> urls = std::vector<std::string>(processes);
    std::string session;
    std::vector<std::vector<File>> files = std::vector<std::vector<File>>(clients);
    std::atomic<bool> ending = false;
    std::atomic<std::size_t> acknowledged = 0;
};

/// TARN_TEST_ROUNDS=50 for the long form.
TEST_F(AcknowledgedChanges, OutliveStopsAndKills)
{
    const char* given = std::getenv("TARN_TEST_ROUNDS");
    const int rounds = given ? std::atoi(given) : 6;
    for (std::size_t i = 0; i < processes; ++i) {
        services.push_back(TarndProcess::over(url("options=-cidle_in_transaction_session_timeout%3D500ms"),
                                              i ? services[0]->dataDir() : std::filesystem::path()));
        startProcess(i);
    }
    ServiceUser login(urls[0]);
    login.login(services[0]->addUser("alice"));
    session = login.session();
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < clients; ++i)
        threads.emplace_back([&, i] { use(i); });

    const auto othersGoOn = [&] {
        waitUntil([this, enough = acknowledged + 30] { return acknowledged >= enough; });
    };
    std::mt19937 random(1);
    for (int round = 0; round < rounds; ++round) {
        const auto which = random() % processes;
        othersGoOn();
        switch (round % 3) {
        case 0:
            services[which]->signal(SIGSTOP);
            othersGoOn();
            services[which]->signal(SIGCONT);
            break;
        case 1:
            services[which]->signal(SIGSTOP);
            othersGoOn();
            services[which]->kill();
            othersGoOn();
            startProcess(which);
            break;
        default:
            ask("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE datname = current_database() "
                "AND pid <> "
                "pg_backend_pid()");
        }
    }
    othersGoOn();
    ending = true;
    for (auto& each : threads)
        each.join();

    login.moveTo(urls[0]);
    std::size_t doubtful = 0;
    for (const auto& mine : files)
        for (const auto& [path, possible] : mine) {
            const auto found = login.read({"", path});
            EXPECT_EQ(possible.count(found.status == 404 ? "" : found.body), 1U) << path << " " << found.body;
            doubtful += possible.size() > 1;
        }
    std::cout << rounds << " rounds, " << acknowledged << " changes acknowledged, " << doubtful
              << " unknown\n";
    for (auto& each : services)
        EXPECT_EQ(each->terminate(), 0) << each->errors();
    EXPECT_EQ(services[0]->run({"fsck"}).exitCode, 0);
}

} // namespace
} // namespace tarnd::test
