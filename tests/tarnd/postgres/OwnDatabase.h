#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace tarnd::test {

/// A PostgreSQL database of a test's own, dropped with it: the write lock is one per database, and what stops
/// here must not stop other tests. Skips the test where there is no PostgreSQL.
class OwnDatabase : public ::testing::Test {
protected:
    void SetUp() override;
    ~OwnDatabase() override;

    /// @param options "key=value&…" as libpq knows them; @param port of a proxy in front of the server
    std::string url(const std::string& options = {}, int port = 0) const;
    int serverPort() const;

    /// What a query answers, one line per row.
    std::string ask(const std::string& sql) const;

    /// Waits until it holds, half a minute at most.
    static void waitUntil(const std::function<bool()>& holds);

    std::string name;

private:
    std::string server; ///< empty: there is none
};

} // namespace tarnd::test
