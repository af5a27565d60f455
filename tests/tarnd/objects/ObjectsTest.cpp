// Contents in an object store: they come back as they went, whatever their size, leave nothing behind, and a store that
// is away is told and costs nothing that was acknowledged.
#include "tarnd/store/ObjectStore.h"
#include "tests/support/SilentProxy.h"
#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/ServiceUser.h"

#include <future>
#include <gmock/gmock.h>
#include <thread>

namespace tarnd::test {
namespace {

using ::testing::HasSubstr;

const std::string given = std::getenv("TARN_TEST_OBJECTS") ? std::getenv("TARN_TEST_OBJECTS") : "";

class Objects : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (given.empty()) GTEST_SKIP() << "wants an object store: run it under scripts/with-objects";
        const auto query = given.find('?');
        url = given.substr(0, query) + "/" + randomHex(8) + given.substr(query) + "&part=1M";
        store.emplace(ObjectStoreAddress(url));
    }

    void start()
    {
        service = TarndProcess::over("", {}, url);
        token = service->addUser("alice");
        service->start();
        logIn();
    }

    void logIn()
    {
        alice = ServiceUser(service->url());
        require(alice.login(token));
    }

    /// "objects, uploads in parts that were not completed"
    std::string left()
    {
        return std::to_string(store->keys("").size()) + ", " + std::to_string(store->unfinished().size());
    }

    template <class Condition>
    static void waitUntil(Condition&& holds)
    {
        for (int i = 0; !holds(); ++i) {
            if (i == 600) throw std::runtime_error("waited in vain");
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }

    std::string url; ///< a place of this test's own in the store
    std::optional<ObjectStore> store;
    std::unique_ptr<TarndProcess> service;
    std::string token;
    ServiceUser alice{""};
};

TEST_F(Objects, ContentsOfEverySizeComeBackAndGo)
{
    start();
    constexpr std::size_t part = 1 << 20, small = 256 << 10;
    for (const auto size : {std::size_t{0}, std::size_t{1}, small, small + 1, part, part + 1, 9 * part + 5})
        for (const bool known : {true, false}) {
            std::string content = randomHex(size / 2 + 1);
            content.resize(size);
            char chunk[16];
            std::snprintf(chunk, sizeof chunk, "%zx", size);
            const auto chunks =
                size > 0 ? chunk + std::string("\r\n") + content + "\r\n0\r\n\r\n" : "0\r\n\r\n";
            const auto target = ServiceUser::targetOf("files", {"", "/f"}, "&createMode=CREATE_OR_UPDATE");
            const auto stored = alice.send("PUT", target, known ? content : chunks, {},
                                           known ? "" : "Transfer-Encoding: chunked\r\n");
            ASSERT_EQ(outcomeOf(stored), "200") << size << known;
            EXPECT_EQ(alice.read({"", "/f"}).body, content) << size << known;
            if (size < 2) continue;
            const auto range = "Range: bytes=" + std::to_string(size - 2) + "-\r\n";
            EXPECT_EQ(alice.send("GET", ServiceUser::targetOf("files", {"", "/f"}), {}, {}, range).body,
                      content.substr(size - 2));
        }
    EXPECT_EQ(service->run({"fsck"}).exitCode, 0);
    require(alice.deleteFile({"", "/f"}));
    waitUntil([&] { return left() == "1, 0"; });
}

/// What killed processes leave, and nothing else; and never what is another store's.
TEST_F(Objects, WhatNoFileHasIsSweptAway)
{
    url += "&grace=1";
    start();
    require(alice.put({"", "/f"}, "content"));
    store->putText(std::string(32, 'a'), "", sha256Hex(""));
    store->beginParts(std::string(32, 'b'));
    waitUntil([&] { return left() == "2, 0"; });
    EXPECT_EQ(alice.read({"", "/f"}).body, "content");
    const auto other = TarndProcess::over("", {}, url)->run({"user", "add", "alice"});
    EXPECT_THAT(other.err, HasSubstr("belongs to another"));
}

TEST_F(Objects, AStoreThatIsAwayIsToldAndNothingIsLost)
{
    const auto endpoint = given.find("127.0.0.1:") + 10;
    const SilentProxy proxy(std::stoi(given.substr(endpoint)));
    url.replace(url.find("127.0.0.1:") + 10, given.find('&', endpoint) - endpoint, proxy.port());
    start();
    const std::string large(64 << 20, 'x');
    require(alice.put({"", "/f"}, "content"));
    require(alice.put({"", "/large"}, large));
    EXPECT_THROW(alice.read({"", "/large"}, [&] { proxy.setSilent(true); }), std::runtime_error);

    const std::string gone =
        "503 The service cannot reach the store of its contents and has changed nothing. Try again.";
    auto upload = std::async(std::launch::async, [user = alice]() mutable {
        return outcomeOf(user.put({"", "/g"}, "content"));
    });
    auto ready = std::async(std::launch::async,
                            [user = alice]() mutable { return user.send("GET", "/health/ready").body; });
    EXPECT_EQ(outcomeOf(alice.read({"", "/f"})), gone);
    EXPECT_EQ(upload.get(), gone);
    EXPECT_THAT(ready.get(), HasSubstr("The store of the contents does not answer."));
    EXPECT_THAT(service->errors(), HasSubstr("nothing has moved for ten seconds"));
    proxy.setSilent(false);
    EXPECT_EQ(alice.read({"", "/f"}).body, "content");
    EXPECT_EQ(alice.read({"", "/large"}).body, large);
    EXPECT_EQ(alice.read({"", "/g"}).status, 404);
    EXPECT_EQ(service->terminate(), 0);
}

} // namespace
} // namespace tarnd::test
