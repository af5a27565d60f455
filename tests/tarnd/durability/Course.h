#pragma once

#include "tests/tarnd/durability/Actor.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <random>

namespace tarnd::test {

/// Before the change of the same index, or after the last one, when nothing goes wrong.
struct Moment {
    Actor actor;
    std::string state;
    std::filesystem::path data; ///< a copy of the data directory
};

/// Copies a data directory that nobody writes to.
void copyData(const std::filesystem::path& from, const std::filesystem::path& to);

/// Makes the changes again and again, each time as another user.
struct Worker {
    /// Goes on until a change is not acknowledged, or `limit` are. Tells of each that is.
    void work(std::size_t limit, const std::function<void()>& acknowledged);

    /// What is wrong with what is stored, once so many changes were acknowledged; the next one may have
    /// happened. Empty when all is well.
    std::string losses(const std::filesystem::path& dataDir, const std::vector<Moment>& course,
                       std::size_t acknowledged) const;

    Actor actor; ///< with the service to begin with
    std::string name;
    std::size_t done = 0;
    int lastStatus = 200;
};

/// `./check kill` rather than the suite, which has time for samples only.
bool inFull();

/// Has made all changes once beside a user "keeper", undisturbed. The service does not run.
class CourseTest : public ::testing::Test {
protected:
    CourseTest();
    void SetUp() override;
    void TearDown() override; ///< lets the service speak when something has failed

    std::mt19937 random;                        ///< seeded with TARN_TEST_SEED, or by chance; tells the seed
    TarndProcess service{{"--keep-free", "0"}}; ///< no reserve: its file would be one more to tell apart
    TarndProcess folder;                        ///< never started
    std::vector<Moment> course;
};

} // namespace tarnd::test
