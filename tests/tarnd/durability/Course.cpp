#include "tests/tarnd/durability/Course.h"

#include "tests/tarnd/durability/StoredState.h"

namespace tarnd::test {

namespace fs = std::filesystem;

void copyData(const fs::path& from, const fs::path& to)
{
    fs::remove_all(to);
    fs::copy(from, to, fs::copy_options::recursive);
    fs::remove(to / "tarn.db-shm"); // belongs to the processes that map it
}

CourseTest::CourseTest()
{
    const char* given = std::getenv("TARN_TEST_SEED");
    const auto seed = given ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
    std::printf("TARN_TEST_SEED=%u\n", seed);
    random.seed(seed);
}

void CourseTest::SetUp()
{
    if (service.usesPostgres()) GTEST_SKIP() << "takes copies of an SQLite database";
    Actor actor{&service, "actor"};
    service.addUser("keeper");
    service.start();
    for (std::size_t i = 0;; ++i) {
        const auto copy = folder.dataDir() / std::to_string(i);
        service.pause(); // removes what a change replaced after its answer
        copyData(service.dataDir(), copy);
        service.resume();
        course.push_back({actor, stateOf(copy, actor.name), copy});
        if (i == changes().size()) break;
        ASSERT_EQ(changes()[i].make(actor), 200) << changes()[i].name << " fails by itself";
    }
    service.kill();
}

void CourseTest::TearDown()
{
    if (HasFailure()) std::printf("%s", service.errors().c_str());
}

void Worker::work(std::size_t limit, const std::function<void()>& acknowledged)
{
    for (; done < limit; ++done) {
        const auto at = done % changes().size();
        if (at == 0) actor = {actor.service, name + "-" + std::to_string(done / changes().size())};
        lastStatus = changes()[at].make(actor);
        if (lastStatus != 200) return;
        acknowledged();
    }
}

std::string Worker::losses(const fs::path& dataDir, const std::vector<Moment>& course,
                           std::size_t acknowledged) const
{
    const auto at = acknowledged % changes().size();
    const auto number = acknowledged / changes().size();
    const auto state = stateOf(dataDir, name + "-" + std::to_string(number));
    std::string text;
    if (state != course[at].state && state != course[at + 1].state)
        text = name + " after " + std::to_string(acknowledged) + " changes has neither\n" + course[at].state +
               "nor\n" + course[at + 1].state + "but\n" + state;
    if (number > 0) text += stateOf(dataDir, name + "-" + std::to_string(number - 1)); // has removed itself
    return text;
}

bool inFull()
{
    return std::getenv("TARN_TEST_IN_FULL") != nullptr;
}

} // namespace tarnd::test
