#include "tests/tarnd/postgres/OwnDatabase.h"

#include "tarnd/store/Secrets.h"
#include "tests/support/TarndProcess.h"

#include <cstdlib>
#include <stdexcept>
#include <thread>

namespace tarnd::test {

namespace {

std::string psql(const std::string& url, const std::string& sql)
{
    auto result = runCommand({"psql", "--no-psqlrc", "-qtA", "--command", sql, url});
    if (result.exitCode != 0) throw std::runtime_error("psql: " + result.err);
    result.out.erase(result.out.find_last_not_of('\n') + 1);
    return result.out;
}

} // namespace

void OwnDatabase::SetUp()
{
    const char* given = std::getenv("TARN_TEST_DATABASE");
    if (given == nullptr) GTEST_SKIP() << "wants PostgreSQL: run it under scripts/with-postgres";
    server = given;
    name = "tarn_" + randomHex(8);
    psql(server, "CREATE DATABASE " + name);
}

OwnDatabase::~OwnDatabase()
{
    if (!server.empty()) psql(server, "DROP DATABASE " + name + " WITH (FORCE)");
}

int OwnDatabase::serverPort() const
{
    return std::stoi(server.substr(server.rfind(':') + 1));
}

std::string OwnDatabase::url(const std::string& options, int port) const
{
    const auto host = server.substr(0, server.rfind(':') + 1);
    return host + std::to_string(port ? port : serverPort()) + "/" + name + "?" + options;
}

std::string OwnDatabase::ask(const std::string& sql) const
{
    return psql(url(), sql);
}

void OwnDatabase::waitUntil(const std::function<bool()>& holds)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("waited in vain");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace tarnd::test
