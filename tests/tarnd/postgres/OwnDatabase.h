#pragma once

#include "tarnd/store/Secrets.h"
#include "tests/support/TarndProcess.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>

namespace tarnd::test {

/// A PostgreSQL database of a test's own, dropped with it: the write lock is one per database, and what stops
/// here must not stop other tests. Skips the test where there is no PostgreSQL.
class OwnDatabase : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (server.empty()) GTEST_SKIP() << "wants PostgreSQL: run it under scripts/with-postgres";
        ask("CREATE DATABASE " + name, server);
    }

    ~OwnDatabase() override
    {
        if (!server.empty()) ask("DROP DATABASE " + name + " WITH (FORCE)", server);
    }

    /// @param options "key=value&…" as libpq knows them
    std::string url(const std::string& options = {}) const
    {
        return server.substr(0, server.rfind('/') + 1) + name + "?" + options;
    }

    /// A place of the test's own in the object store, which stays; empty without a store.
    std::string ownObjects() const
    {
        const char* given = std::getenv("TARN_TEST_OBJECTS");
        std::string objects = given ? given : "";
        return objects.empty() ? objects : objects.insert(objects.find('?'), "/" + name);
    }

    /// What a query answers, one line per row.
    std::string ask(const std::string& sql) const { return ask(sql, url()); }

    /// Waits until it holds, half a minute at most.
    template <class Condition>
    static void waitUntil(Condition&& holds)
    {
        for (int i = 0; !holds(); ++i) {
            if (i == 3000) throw std::runtime_error("waited in vain");
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    const std::string name = "tarn_" + randomHex(8);
    const std::string server = std::getenv("TARN_TEST_DATABASE") ? std::getenv("TARN_TEST_DATABASE") : "";

private:
    static std::string ask(const std::string& sql, const std::string& where)
    {
        auto result = runCommand({"psql", "--no-psqlrc", "-qtA", "--command", sql, where});
        if (result.exitCode != 0) throw std::runtime_error("psql: " + result.err);
        result.out.erase(result.out.find_last_not_of('\n') + 1);
        return result.out;
    }
};

} // namespace tarnd::test
