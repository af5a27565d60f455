// The service is killed in the middle of work: what it acknowledged must be there afterwards, what it did not
// must have happened wholly or not at all, and nothing else may be left.
#include "tests/tarnd/http/ServiceTest.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <regex>
#include <thread>

namespace tarnd::test {
namespace {

/// What one worker's folder holds, as far as the interface shows it.
struct State {
    /// By name: content, number of versions, and whether it is granted to bob.
    std::map<std::string, std::string> files;

    bool operator==(const State&) const = default;
};

std::string described(std::string_view content, int versions, bool granted)
{
    return std::string(content) + " v" + std::to_string(versions) + (granted ? " granted" : "");
}

struct Step {
    std::string method, target, body;
    std::function<void(State&)> apply;
};

/// One client with a folder of its own, going through a fixed row of changes: for every number a file is
/// created, gets a second version, is moved, granted, restored, and the one before it deleted.
class Worker {
public:
    Worker(int number, std::string aliceSession)
        : folder("/w" + std::to_string(number)), session(aliceSession)
    {
    }

    /// Works until the service is gone. Counts in `done` what was acknowledged.
    void run(std::uint16_t port, std::atomic<int>& done)
    {
        try {
            Wire wire(port);
            while (true) {
                const auto step = next();
                inDoubt = step;
                wire.send(requestText(step.method, "/service/v1" + step.target, session, step.body));
                const auto reply = wire.receive();
                if (!reply) return;
                inDoubt.reset();
                if (reply->status != 200) refusals.push_back(step.target + ": " + reply->body);
                step.apply(acknowledged);
                ++turn;
                ++done;
            }
        } catch (const std::runtime_error&) { // not even connected
        }
    }

    Step next() const
    {
        const int group = turn / 6;
        const auto fresh = "f" + std::to_string(group);
        const auto moved = "m" + std::to_string(group);
        const auto before = "m" + std::to_string(group - 1);
        const std::string one(5'000 + static_cast<std::size_t>(group), 'a');
        const std::string two(70'000, static_cast<char>('b' + group % 20));
        const auto path = folder + "/";
        switch (turn % 6) {
        case 0:
            return {"PUT", "/files" + path + fresh + "?createMode=CREATE", one,
                    [=](State& s) { s.files[fresh] = described(one, 1, false); }};
        case 1:
            return {"PUT", "/files" + path + fresh + "?createMode=UPDATE&createNewVersion=true", two,
                    [=](State& s) { s.files[fresh] = described(two, 2, false); }};
        case 2:
            return {"PUT",
                    "/filesystem" + path + fresh + "?targetPath=" + path + moved + "&targetBucket=", "",
                    [=](State& s) {
                        s.files.erase(fresh);
                        s.files[moved] = described(two, 2, false);
                    }};
        case 3:
            return {"PUT", "/permissions?subject=bob&operation=READ_ONLY&path=" + path + moved, "",
                    [=](State& s) { s.files[moved] = described(two, 2, true); }};
        case 4:
            return {"PUT", "/versions/files" + path + moved + "?versionLabel=1&createNewVersion=true", "",
                    [=](State& s) { s.files[moved] = described(one, 3, true); }};
        default:
            if (group == 0) return {"GET", "/ping", "", [](State&) {}};
            return {"DELETE", "/files" + path + before, "", [=](State& s) { s.files.erase(before); }};
        }
    }

    /// Takes over what the service shows after a restart, if it is a state that may be.
    void settle(const State& shown)
    {
        auto withTheLast = acknowledged;
        if (inDoubt) inDoubt->apply(withTheLast);
        if (shown == acknowledged) return;
        EXPECT_TRUE(inDoubt && shown == withTheLast)
            << folder << " shows neither what was acknowledged nor that and "
            << (inDoubt ? inDoubt->target : "nothing");
        acknowledged = shown;
        ++turn;
    }

    const std::string folder;
    std::string session;
    State acknowledged;
    std::optional<Step> inDoubt;
    std::vector<std::string> refusals;
    int turn = 0;
};

std::vector<std::string> textsOf(const std::string& document, const std::string& element)
{
    const std::regex pattern("<" + element + ">([^<]*)<");
    std::vector<std::string> texts;
    for (std::sregex_iterator each(document.begin(), document.end(), pattern), end; each != end; ++each)
        texts.push_back((*each)[1].str());
    return texts;
}

class Crash : public ServiceTest {
protected:
    State shownIn(const std::string& folder)
    {
        const auto listing = asAlice("GET", "/service/v1/folders" + folder).body;
        const auto grants = textsOf(asAlice("GET", "/service/v1/permissions").body, "Path");
        State state;
        for (const auto& name : textsOf(listing.substr(listing.find("<Files>")), "Name")) {
            const auto path = folder + "/" + name;
            const auto versions =
                textsOf(asAlice("GET", "/service/v1/versions/files" + path).body, "VersionId");
            const bool granted = std::find(grants.begin(), grants.end(), path) != grants.end();
            state.files[name] = described(asAlice("GET", "/service/v1/files" + path).body,
                                          static_cast<int>(versions.size()), granted);
        }
        return state;
    }

    /// Kills the service once `changes` more were acknowledged.
    void workAndKill(std::vector<Worker>& workers, int changes)
    {
        std::atomic<int> done = 0;
        std::vector<std::jthread> threads;
        for (auto& worker : workers)
            threads.emplace_back([&] { worker.run(service.port(), done); });
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (done < changes && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        service.kill();
        ASSERT_GE(done, changes);
    }
};

TEST_F(Crash, LosesNothingAcknowledgedAndLeavesNothingHalfDone)
{
    std::vector<Worker> workers;
    for (int i = 0; i < 4; ++i) {
        workers.emplace_back(i, alice);
        ASSERT_EQ(asAlice("PUT", "/service/v1/folders" + workers.back().folder).status, 200);
    }
    for (const int changes : {97, 150, 61, 133}) {
        workAndKill(workers, changes);
        service.start();
        for (auto& worker : workers) {
            EXPECT_THAT(worker.refusals, ::testing::IsEmpty());
            worker.settle(shownIn(worker.folder));
        }
    }
    ASSERT_EQ(service.terminate(), 0);
    const auto fsck = service.run({"fsck"});
    EXPECT_EQ(fsck.exitCode, 0) << fsck.out << fsck.err;
}

} // namespace
} // namespace tarnd::test
