// A backup that is taken while others work must be whole, and have all that was acknowledged before it began.
#include "tests/tarnd/durability/Course.h"
#include "tests/tarnd/durability/StoredState.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <thread>

namespace tarnd::test {
namespace {

class Backup : public CourseTest {
protected:
    struct Load {
        Worker worker;
        std::atomic<std::size_t> acknowledged = 0;
    };

    /// What one of the states is that the load may have been in between two moments; empty when all is well.
    std::string losses(const std::filesystem::path& data, const Load& load, std::size_t before) const
    {
        std::string text = "no state tried";
        for (auto count = before; count <= load.acknowledged && !text.empty(); ++count)
            text = load.worker.losses(data, course, count);
        return text;
    }
};

TEST_F(Backup, TakenUnderLoadHasAllThatWasAcknowledgedBefore)
{
    const int rounds = inFull() ? 40 : 10;
    copyData(course.front().data, service.dataDir());
    service.start();
    std::array<Load, 4> loads;
    std::vector<std::jthread> threads;
    const std::shared_ptr<void> end(nullptr, [&](void*) { service.kill(); }); // which ends the threads, too
    for (std::size_t i = 0; i < loads.size(); ++i) {
        loads[i].worker = {{&service}, "worker" + std::to_string(i)};
        threads.emplace_back([&load = loads[i]] { load.worker.work(100'000, [&] { ++load.acknowledged; }); });
    }
    // Linked where that works, and copied where it does not.
    const auto other = std::filesystem::path("/var/tmp") / service.dataDir().parent_path().filename();
    const std::shared_ptr<void> clean(nullptr, [&](void*) { std::filesystem::remove_all(other); });
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        const auto backup = (round % 2 ? other : folder.dataDir()) / "backup";
        std::array<std::size_t, 4> before;
        std::transform(loads.begin(), loads.end(), before.begin(),
                       [](auto& load) { return load.acknowledged.load(); });
        const auto taken = service.run({"backup", backup});
        ASSERT_EQ(taken.exitCode, 0) << taken.out << taken.err;

        TarndProcess restored({"--keep-free", "0"});
        const auto said = restored.run({"restore", backup});
        ASSERT_EQ(said.exitCode, 0) << said.out << said.err;
        EXPECT_EQ(faultsIn(restored.dataDir()), "");
        for (std::size_t i = 0; i < loads.size(); ++i)
            EXPECT_EQ(losses(restored.dataDir(), loads[i], before[i]), "");
        restored.start();
        EXPECT_EQ(restored.terminate(), 0);
        EXPECT_EQ(restored.run({"restore", backup}).exitCode, 1) << "over what is there";
    }
    EXPECT_EQ(service.run({"backup", service.dataDir() / "inside"}).exitCode, 1);
}

} // namespace
} // namespace tarnd::test
