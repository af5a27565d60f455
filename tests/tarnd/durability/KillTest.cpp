// tarnd is killed, or one of its calls on files fails: afterwards all that it acknowledged must be there, what
// was under way must have happened wholly or not at all, and nothing else may be left.
#include "tests/tarnd/durability/Course.h"
#include "tests/tarnd/durability/Faults.h"
#include "tests/tarnd/durability/StoredState.h"

#include <cerrno>
#include <thread>

namespace tarnd::test {
namespace {

using Action = FaultPlan::Action;

struct Fault {
    const char* name;
    Action action;
    int error = 0;
    bool lasting = false;
    bool worksOn = false; ///< before it is killed it makes another change, which is not struck
};

const std::vector<Fault> faultKinds = {
    {"killed before", Action::kill},
    {"killed within", Action::tear},
    {"EIO and killed at", Action::fail, EIO},
    {"ENOSPC and killed at", Action::fail, ENOSPC},
    {"EIO at", Action::fail, EIO, false, true},
    {"disk full from", Action::fail, ENOSPC, true, true},
};

constexpr int callsOfAChange = 25; // about

class Kill : public CourseTest {
protected:
    int below(int limit) { return std::uniform_int_distribution(0, limit - 1)(random); }

    bool strike(std::size_t number, const Fault& fault, int at);

    Faults faults{service.dataDir()};
};

/// One change, struck at one call. @returns whether it takes that many calls
bool Kill::strike(std::size_t number, const Fault& fault, int at)
{
    const auto& change = changes()[number];
    const auto& before = course[number];
    const auto& after = course[number + 1];
    SCOPED_TRACE(change.name + ", " + fault.name + " call " + std::to_string(at));
    copyData(before.data, service.dataDir());
    auto actor = before.actor;
    service.start();
    faults.strike(at, fault.action, fault.error, fault.lasting);
    const int status = change.make(actor);
    faults.heal();
    const bool struck = faults.hasStruck();
    const bool worksOn = struck && fault.worksOn;
    if (worksOn) service.addUser("late");
    service.kill();
    try {
        service.start();
    } catch (const std::runtime_error& error) {
        ADD_FAILURE() << error.what();
    }
    service.kill();

    const auto state = stateOf(service.dataDir(), actor.name);
    EXPECT_TRUE(struck || status == 200) << status;
    EXPECT_TRUE(state == after.state || (state == before.state && status != 200))
        << "Status " << status << " and then neither\n"
        << before.state << "nor\n"
        << after.state << "but\n"
        << state;
    EXPECT_EQ(stateOf(service.dataDir(), "late").empty(), !worksOn);
    EXPECT_EQ(faultsIn(service.dataDir()), "");
    return struck;
}

TEST_F(Kill, AtEveryCallOfEveryChange)
{
    int strikes = 0;
    for (std::size_t number = 0; number < changes().size(); ++number) {
        EXPECT_NE(course[number].state, course[number + 1].state) << changes()[number].name;
        for (const auto& fault : faultKinds) {
            // A commit that ends or fails in one of its syncs is where most can go wrong.
            const auto& name = changes()[number].name;
            const bool all = inFull() || (name == "PutNew" && fault.error == EIO && !fault.worksOn) ||
                             (name == "PutOver" && fault.action == Action::kill);
            for (int at = 1; all && strike(number, fault, at); ++at)
                ++strikes;
        }
        const auto& one = faultKinds[number % faultKinds.size()];
        if (!inFull()) strikes += strike(number, one, 1 + below(callsOfAChange));
    }
    std::printf("%d strikes\n", strikes);
}

/// Several at once, on one data directory through several kills, each at a call of its own.
TEST_F(Kill, AtRandomMomentsUnderLoad)
{
    const int kills = inFull() ? 1'000 : 20;
    const int killsOfOneDirectory = 10;
    std::vector<Worker> workers;
    std::atomic<int> acknowledged = 0;
    for (int kill = 0; kill < kills && !HasFailure(); ++kill) {
        if (kill % killsOfOneDirectory == 0) {
            service.kill();
            copyData(course.front().data, service.dataDir());
            service.start();
            workers.clear();
        }
        const int at = 1 + below(20 * callsOfAChange);
        SCOPED_TRACE("kill " + std::to_string(kill) + " at call " + std::to_string(at));
        for (const std::string name : {"ann", "ben", "eve", "joe"})
            workers.push_back({{&service}, name + std::to_string(kill)});
        faults.strike(at, below(2) ? Action::kill : Action::tear);
        std::vector<std::jthread> threads;
        std::atomic<int> working = 4;
        for (auto worker = workers.end() - 4; worker != workers.end(); ++worker)
            threads.emplace_back([&, worker] {
                worker->work(1'000, [&] { ++acknowledged; });
                --working;
            });
        // However long that takes on a machine that has more to do: a worker gives up by itself.
        while (!faults.hasStruck() && working > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        service.kill(); // a command may have been struck instead
        threads.clear();
        faults.heal();
        EXPECT_TRUE(faults.hasStruck());
        for (auto worker = workers.end() - 4; worker != workers.end() && !faults.hasStruck(); ++worker)
            ADD_FAILURE() << worker->name << " after " << worker->done << ": " << worker->actor.trouble;

        service.start();
        for (const auto& worker : workers) {
            EXPECT_EQ(worker.lastStatus, 0);
            EXPECT_EQ(worker.losses(service.dataDir(), course, worker.done), "");
        }
        EXPECT_EQ(faultsIn(service.dataDir()), "");
    }
    std::printf("%d kills, %d changes acknowledged\n", kills, acknowledged.load());
}

} // namespace
} // namespace tarnd::test
