// The power fails: what was written and not synced may be there in part or not at all. Everything acknowledged
// must be there all the same. Rebuilt from the recorded calls of a workload.
#include "tests/tarnd/durability/Course.h"
#include "tests/tarnd/durability/Faults.h"
#include "tests/tarnd/durability/RecordedDisk.h"
#include "tests/tarnd/durability/StoredState.h"

#include "tarnd/store/Store.h"

#include <algorithm>
#include <fstream>
#include <thread>

namespace tarnd::test {
namespace {

/// All, nothing, the first or some of the changes survive, and of one write the first half.
RecordedDisk::Luck drawnFrom(std::mt19937& random)
{
    return [&random](std::size_t count) {
        std::vector<double> shares(count);
        const auto kind = random() % 4;
        const auto first = random() % (count + 1);
        for (std::size_t i = 0; i < count; ++i)
            shares[i] = kind == 0 ? 1 : kind == 1 ? 0 : kind == 2 ? i < first : random() % 2 == 0;
        if (first < count && kind != 0) shares[first] = 0.5;
        return shares;
    };
}

class PowerLoss : public CourseTest {
protected:
    void record();

    /// Rebuilds so many states, without the syncs of paths that hold `unsynced`. @returns what they have lost
    std::vector<std::string> losses(std::size_t states, const std::string& unsynced);

    /// How a start finds it when so many changes of each worker were acknowledged.
    std::string lossesIn(const std::filesystem::path& data,
                         const std::vector<std::size_t>& acknowledged) const;

    TarndProcess recorded{{"--keep-free", "0"}};
    std::vector<Worker> workers{{{&recorded}, "ann"}, {{&recorded}, "ben"}, {{&recorded}, "eve"}};
    std::string journal;
    std::vector<RecordedCall> calls;
};

/// From the first start on, with a restart in the middle.
void PowerLoss::record()
{
    const auto file = folder.dataDir() / "journal";
    Faults faults(recorded.dataDir());
    faults.recordTo(file);
    recorded.addUser("keeper");
    for (const std::size_t limit : {changes().size() + 10, (inFull() ? 5 : 2) * changes().size()}) {
        recorded.start();
        std::vector<std::jthread> threads;
        for (std::size_t i = 0; i < workers.size(); ++i)
            threads.emplace_back([&, i, limit] { workers[i].work(limit, [&, i] { faults.mark(i); }); });
        threads.clear();
        ASSERT_EQ(recorded.terminate(), 0);
        for (const auto& worker : workers)
            ASSERT_EQ(worker.done, limit) << worker.lastStatus;
    }
    std::ifstream in(file, std::ios::binary);
    journal.assign(std::istreambuf_iterator<char>(in), {});
    calls = recordedCalls(journal);

    RecordedDisk disk(recorded.dataDir());
    for (const auto& call : calls)
        disk.follow(call);
    const auto all = folder.dataDir() / "all";
    disk.leave(all, [](std::size_t count) { return std::vector<double>(count, 1); });
    const auto difference = runCommand({"diff", "-r", all, recorded.dataDir()});
    ASSERT_EQ(difference.out, "") << "some calls were not recorded";
}

std::string PowerLoss::lossesIn(const std::filesystem::path& data,
                                const std::vector<std::size_t>& acknowledged) const
{
    try {
        StoreOptions options;
        options.keepFree = 0;
        options.dataDir = data;
        Store(options, Purpose::serve);
        auto text = faultsIn(data);
        for (std::size_t i = 0; i < workers.size(); ++i)
            text += workers[i].losses(data, course, acknowledged[i]);
        return text;
    } catch (const ServiceError& error) {
        return error.what() + error.detail();
    }
}

std::vector<std::string> PowerLoss::losses(std::size_t states, const std::string& unsynced)
{
    std::vector<std::size_t> cuts(states), acknowledged(workers.size());
    for (auto& cut : cuts)
        cut = random() % (calls.size() + 1);
    std::sort(cuts.begin(), cuts.end());

    RecordedDisk disk(recorded.dataDir());
    std::vector<std::string> found;
    auto call = calls.cbegin();
    for (const auto cut : cuts) {
        for (; call < calls.cbegin() + static_cast<std::ptrdiff_t>(cut); ++call) {
            if (call->kind == FileCall::Kind::mark) ++acknowledged[call->number];
            const bool synced = call->kind == FileCall::Kind::sync;
            if (!synced || std::string_view(call->path.data()).find(unsynced) == std::string::npos)
                disk.follow(*call);
        }
        const auto data = folder.dataDir() / "state";
        std::filesystem::remove_all(data);
        disk.leave(data, drawnFrom(random));
        if (const auto lost = lossesIn(data, acknowledged); !lost.empty())
            found.push_back("power lost before call " + std::to_string(cut) + ":\n" + lost);
    }
    return found;
}

TEST_F(PowerLoss, LosesNothingAcknowledged)
{
    record();
    const std::size_t states = inFull() ? 2'000 : 60;
    const auto found = losses(states, "nothing");
    EXPECT_TRUE(found.empty()) << found.size() << " states lost something. The first: " << found.front();
    std::printf("%zu states of %zu calls\n", states, calls.size());

    // The proof that losses would be noticed; the first row is what synchronous=NORMAL does.
    for (const char* unsynced : {"/tarn.db-wal", "/uploads/", "/contents/"}) {
        const auto noticed = losses(20, unsynced);
        EXPECT_FALSE(noticed.empty()) << unsynced;
        std::printf("%zu of 20 states lost something without the syncs of %s\n", noticed.size(), unsynced);
    }
}

} // namespace
} // namespace tarnd::test
