#pragma once

#include "tests/tarnd/durability/Actor.h"

#include <filesystem>
#include <random>

namespace tarnd::test {

/// Before the change of the same index, or after the last one, when nothing goes wrong.
struct Moment {
    Actor actor;
    std::string state;
    std::filesystem::path data; ///< a copy of the data directory
};

/// Makes all changes once beside a user "keeper", undisturbed. @param copies where the data directories go
std::vector<Moment> calmCourse(TarndProcess& service, const std::filesystem::path& copies);

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

/// Seeded with TARN_TEST_SEED, or by chance; prints the seed, so that a failure can be had again.
std::mt19937 seededRandom();

/// `./check kill` rather than the suite, which has time for samples only.
bool inFull();

} // namespace tarnd::test
