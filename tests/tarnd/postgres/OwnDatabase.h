#pragma once

#include "tarnd/store/Secrets.h"
#include "tests/tarnd/postgres/DatabaseTest.h"

#include <gtest/gtest.h>

namespace tarnd::test {

/// A PostgreSQL database of a test's own, dropped with it: the write lock is one per database, and what stops
/// here must not stop other tests. Skips the test where there is no PostgreSQL.
class OwnDatabase : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (server.empty()) GTEST_SKIP() << "wants PostgreSQL: run it under scripts/with-postgres";
        test::ask("CREATE DATABASE " + name, server);
    }

    ~OwnDatabase() override
    {
        if (!server.empty()) test::ask("DROP DATABASE " + name + " WITH (FORCE)", server);
    }

    /// @param options "key=value&…" as libpq knows them
    std::string url(const std::string& options = {}) const
    {
        return server.substr(0, server.rfind('/') + 1) + name + "?" + options;
    }

    std::string ownObjects() const { return objectsOf(name); }

    std::string ask(const std::string& sql) const { return test::ask(sql, url()); }

    const std::string name = "tarn_" + randomHex(8);
    const std::string server = std::getenv("TARN_TEST_DATABASE") ? std::getenv("TARN_TEST_DATABASE") : "";
};

} // namespace tarnd::test
