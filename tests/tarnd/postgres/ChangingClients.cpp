#include "tests/tarnd/postgres/ChangingClients.h"

#include "tarnd/store/ObjectStore.h"
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/postgres/DatabaseTest.h"

#include <gtest/gtest.h>
#include <iostream>
#include <random>

namespace tarnd::test {

ChangingClients::ChangingClients(std::string databaseUrl, std::string objectsUrl)
    : database(std::move(databaseUrl)), objects(objectsUrl.empty() ? "" : std::move(objectsUrl) + "&grace=3")
{
    for (std::size_t i = 0; i < processes; ++i) {
        // With an object store they share nothing else.
        const bool shares = i && objects.empty();
        services.push_back(
            TarndProcess::over(database, shares ? services[0]->dataDir() : std::filesystem::path(), objects));
        start(i);
    }
    ServiceUser login(urls[0]);
    login.login(services[0]->addUser("alice"));
    session = login.session();
    for (std::size_t i = 0; i < clients; ++i)
        threads.emplace_back([this, i] {
            try {
                use(i);
            } catch (const std::exception& e) {
                ADD_FAILURE() << e.what();
            }
        });
}

ChangingClients::~ChangingClients()
{
    end();
}

void ChangingClients::end()
{
    ending = true;
    for (auto& each : threads)
        each.join();
    threads.clear();
}

void ChangingClients::start(std::size_t which)
{
    services[which]->start();
    const std::lock_guard lock(mutex);
    urls[which] = services[which]->url();
}

std::string ChangingClients::urlOf(std::size_t client)
{
    const std::lock_guard lock(mutex);
    return urls[client % processes];
}

/// Changes one file after another at random; goes on to the next when an outcome is unknown.
void ChangingClients::use(std::size_t client)
{
    std::mt19937 random(static_cast<unsigned>(client));
    ServiceUser user("", session);
    auto& mine = possible[client];
    for (std::size_t change = 0, file = 0; !ending; ++change) {
        const auto path = "/" + std::to_string(client) + "-" + std::to_string(file);
        auto& contents = mine.insert({path, {""}}).first->second;
        const bool remove = random() % 3 == 0 && !contents.count("");
        const auto after = remove ? "" : std::to_string(change), url = urlOf(client);
        int status = 0;
        try {
            user.moveTo(url);
            status = (remove ? user.deleteFile({"", path}) : user.put({"", path}, after, "CREATE_OR_UPDATE"))
                         .status;
        } catch (const std::exception&) { // killed: goes on when there is another
            waitUntil([&] { return ending || urlOf(client) != url; });
        }
        if (status == 200) {
            contents = {after};
            countAcknowledged();
        }
        if (status == 200 || status == 503) continue;
        EXPECT_TRUE(status == 0 || status == 500) << status;
        contents.insert(after);
        ++file;
    }
}

void ChangingClients::countAcknowledged()
{
    const std::lock_guard lock(mutex);
    longestPause = std::max(longestPause, Clock::now() - last);
    last = Clock::now();
    ++acknowledged;
}

void ChangingClients::acknowledge(std::size_t more)
{
    for (const auto enough = acknowledged + more; acknowledged < enough;)
        waitUntil([this, before = acknowledged.load()] { return acknowledged > before; });
}

void ChangingClients::endAndCheck()
{
    end();
    ServiceUser user(urls[0], session);
    for (const auto& mine : possible)
        for (const auto& [path, contents] : mine) {
            // A server that dies while it is asked may cost one more "Try again.".
            const auto ask = [&user, &item = path] { return user.read({"", item}); };
            auto found = ask();
            waitUntil([&] { return found.status != 503 || (found = ask()).status != 503; });
            EXPECT_EQ(contents.count(found.status == 404 ? "" : found.body), 1U) << path << " " << found.body;
        }
    std::cout << acknowledged << " changes acknowledged, none for "
              << std::chrono::duration_cast<std::chrono::milliseconds>(longestPause).count()
              << " ms at most\n";
    for (auto& each : services)
        EXPECT_EQ(each->terminate(), 0) << each->errors();
    // What a change of unknown outcome left is found and removed by the next start, or by and by.
    services[0]->start();
    if (!objects.empty()) {
        ObjectStore store{ObjectStoreAddress(objects)};
        waitUntil([&] {
            return std::to_string(store.keys("").size() - 1) ==
                   ask("SELECT COUNT(DISTINCT content) FROM versions", database);
        });
    }
    EXPECT_EQ(services[0]->terminate(), 0);
    const auto fsck = services[0]->run({"fsck"});
    EXPECT_EQ(fsck.exitCode, 0) << fsck.out << fsck.err;
}

} // namespace tarnd::test
