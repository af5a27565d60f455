// Eight clients do random things at once, and a model that states the rules a second time foretells every
// reply: what breaks only after an unusual history, or under load, shows here.
#include "tests/tarnd/model/RandomUser.h"
#include "tests/tarnd/model/Servers.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <thread>

namespace tarnd::test {
namespace {

constexpr std::size_t clients = 8;

/// TARN_TEST_SEED repeats a run: what each client does, though not how they interleave.
unsigned chooseSeed()
{
    const char* given = std::getenv("TARN_TEST_SEED");
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}

TEST(Model, ForetellsEveryReply)
{
    const auto seed = chooseSeed();
    std::cout << "TARN_TEST_SEED=" << seed << std::endl;
    Servers servers;
    const std::size_t operations = servers.first().usesPostgres() ? 10'000 : 2'000;
    std::deque<Account> accounts(clients);
    for (std::size_t i = 0; i < clients; ++i) {
        accounts[i].name = "user" + std::to_string(i);
        accounts[i].token = servers.first().addUser(accounts[i].name);
    }

    std::atomic<bool> agree = true;
    std::deque<RandomUser> users;
    for (std::size_t i = 0; i < clients; ++i)
        users.emplace_back(accounts, i, servers.urls(), seed + static_cast<unsigned>(i));
    std::vector<std::thread> threads;
    for (auto& user : users)
        threads.emplace_back([&] {
            try {
                for (std::size_t done = 0; done < operations / clients && agree; ++done)
                    if (!user.step()) agree = false;
            } catch (const std::exception& e) {
                agree = false;
                ADD_FAILURE() << e.what();
            }
        });
    for (auto& thread : threads)
        thread.join();
    if (agree)
        for (auto& user : users)
            user.judgeEverything();
    EXPECT_EQ(servers.endAndCheck(), "") << "TARN_TEST_SEED=" << seed;
}

} // namespace
} // namespace tarnd::test
