#pragma once

#include "tests/support/TarndProcess.h"

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

namespace tarnd::test {

/// What a query answers, one line per row. @param where the URL of the database
inline std::string ask(const std::string& sql, const std::string& where)
{
    auto result = runCommand({"psql", "--no-psqlrc", "-qtA", "--command", sql, where});
    if (result.exitCode != 0) throw std::runtime_error("psql: " + result.err);
    result.out.erase(result.out.find_last_not_of('\n') + 1);
    return result.out;
}

/// Waits until it holds, half a minute at most.
template <class Condition>
void waitUntil(Condition&& holds)
{
    for (int i = 0; !holds(); ++i) {
        if (i == 3000) throw std::runtime_error("waited in vain");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

/// A place for this name alone in the object store, which stays; empty without a store.
inline std::string objectsOf(const std::string& name)
{
    const char* given = std::getenv("TARN_TEST_OBJECTS");
    std::string objects = given ? given : "";
    return objects.empty() ? objects : objects.insert(objects.find('?'), "/" + name);
}

} // namespace tarnd::test
