// Whatever goes wrong between the command line and its service, every verb ends in time with the right exit code, says
// nothing that is not so, and leaves the user's files as they were.
#include "tests/cli/Shell.h"
#include "tests/support/FaultServer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using connector::host::test::document;
using connector::host::test::Ending;
using connector::host::test::Fault;
using connector::host::test::FaultServer;
using connector::host::test::ScriptedHttpServer;
using connector::host::test::TrueReply;
using tarnd::test::TarndProcess;
using testing::HasSubstr;
using testing::Not;

/// A verb at work, and the one of its requests that the fault strikes.
struct Errand {
    const char* arguments;
    const char* struck;   ///< how the request begins
    bool changes = false; ///< what is stored
    bool tells = false;   ///< its true reply holds one element that the verb cannot do without
    int partly =
        0; ///< exit code instead of that of the fault, when something else was done before; 0: none was
};

constexpr Errand errands[] = {
    {"login alice", "GET /service/v1/login", false, true},
    {"ping", "GET /service/v1/ping"},
    {"ls /d", "GET /service/v1/folders/d"},
    {"tree /d", "GET /service/v1/folders/d"},
    {"stat /f", "GET /service/v1/filesystem/f"},
    {"cat /f", "GET /service/v1/files/f"},
    {"get -f /f .", "GET /service/v1/files/f"},
    {"get -f /f .", "GET /service/v1/filesystem/f"},
    {"get -rf /d .", "GET /service/v1/files/d/f", false, false, 8},
    {"put f /new", "PUT /service/v1/files/new", true, true},
    {"put - /new", "PUT /service/v1/files/new", true, true},
    {"put -f f /f", "PUT /service/v1/files/f", true, true},
    {"put -r d/ /new", "PUT /service/v1/files/new/f", true, true, 8},
    {"cp /f /new", "PUT /service/v1/files/new", true, true},
    {"mkdir /new", "PUT /service/v1/folders/new", true},
    {"mv /f /new", "PUT /service/v1/filesystem/f", true},
    {"rm /f", "DELETE /service/v1/files/f", true},
    {"rm -r /d", "DELETE /service/v1/folders/d", true},
    {"grant /f bob", "PUT /service/v1/permissions", true, true},
    {"grants", "GET /service/v1/permissions"},
    {"revoke 1", "DELETE /service/v1/permissions/1", true},
    {"shared", "GET /service/v1/sharedcontent"},
    {"link /f", "GET /service/v1/public/urls/f", false, true},
    {"versions /f", "GET /service/v1/versions/files/f", false, true},
    {"restore /f 1", "PUT /service/v1/versions/files/f", true},
};

struct Outcome {
    int exitCode;
    const char* told;
};

/// A document that tells the fault is here no more than a page: it comes without the type of the service's documents.
const std::map<Ending, Outcome> outcomes = {
    {Ending::truth, {0, ""}},
    {Ending::noConnection, {7, "Could not connect to"}},
    {Ending::noReply, {7, "Could not complete the exchange with"}},
    {Ending::error, {1, "does not look like a Tarn service"}},
    {Ending::notXml, {1, "does not look like a Tarn service"}},
    {Ending::otherXml, {1, "does not look like a Tarn service"}},
    {Ending::cut, {1, ""}},
};

/// The true reply with `times` times what its document holds.
Fault holds(std::string name, int times)
{
    return {std::move(name), Ending::cut,
            [times](ScriptedHttpServer::Connection& connection, const TrueReply& reply) {
                const auto begin = reply.body.find("<Response>") + 10;
                const auto inner = reply.body.substr(begin, reply.body.rfind("</Response>") - begin);
                const auto changed = document(times == 0 ? "" : inner + inner);
                connection.send(changed.head + changed.body);
            }};
}

struct Cell {
    const Errand* errand;
    Fault fault;
};

std::vector<Cell> cells()
{
    std::vector<Cell> all;
    for (const auto& errand : errands) {
        for (const auto& fault : connector::host::test::faults())
            all.push_back({&errand, fault});
        for (const std::size_t offset : {0u, 12u, 17u, 40u})
            all.push_back({&errand, connector::host::test::closesInHead(offset)});
        if (!errand.tells) continue;
        all.push_back({&errand, holds("nothing in the document", 0)});
        all.push_back({&errand, holds("everything twice", 2)});
    }
    return all;
}

#ifdef TARN_SANITIZED
// Programs start and answer many times slower here: each cell has more time, and one in seven is played, which
// still meets each errand and each fault.
constexpr const char* limit = "10";
constexpr std::size_t stride = 7;
#else
constexpr const char* limit = "1";
constexpr std::size_t stride = 1;
#endif

class FaultMatrix : public testing::Test {
protected:
    FaultMatrix()
    {
        service.start();
        Shell alice;
        token = alice.logIn(service, "alice");
        service.addUser("bob");
        EXPECT_EQ(alice.run("echo true > f && tarn put f /f && tarn mkdir /d && tarn put f /d/f").exitCode,
                  0);
    }

    /// Questions are answered by a true service, and changes as it would: they must not happen for the next cell.
    TrueReply truth(const std::string& request) const
    {
        if (request.starts_with("GET ")) return connector::host::test::truthOf(service.port())(request);
        return document(
            "<VersionId>v</VersionId><VersionLabel>2</VersionLabel><PermissionId>p</PermissionId>");
    }

    void play(Shell& shell, const Cell& cell) const
    {
        SCOPED_TRACE(std::string("tarn ") + cell.errand->arguments + ", " + cell.fault.name);
        shell.write("f", "old");
        shell.write("d/f", "old");
        const auto before = contentsOf(shell.work());
        const FaultServer server(
            cell.fault, [this](const std::string& request) { return truth(request); },
            [&](const std::string& request) { return request.starts_with(cell.errand->struck); });
        shell.set("TARN_ENDPOINT", server.url());
        const auto begin = std::chrono::steady_clock::now();
        const auto result = shell.run(std::string("exec tarn --retries 0 --timeout ") + limit + " " +
                                      cell.errand->arguments + " </dev/null");
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
        EXPECT_TRUE(server.happened());
        auto [exitCode, told] = outcomes.at(cell.fault.ending);
        // Streamed, it is known to be too much as soon as it is.
        if (cell.fault.name == "never ends its chunks" &&
            std::string(cell.errand->struck).starts_with("GET /service/v1/files/"))
            exitCode = 1, told = "sends more than the file has";
        if (cell.fault.name.starts_with("answers 502") || cell.fault.name.starts_with("answers 503"))
            exitCode = 7, told = "a gateway answers there with status 50";
        const bool turnedAway =
            cell.fault.name.starts_with("answers 429"); // whoever says so has done nothing
        if (turnedAway) told = "What answers there asks to wait";
        const bool failed = exitCode != 0;
        const bool struck = cell.fault.ending != Ending::noConnection;
        EXPECT_EQ(result.exitCode, failed && struck && cell.errand->partly ? cell.errand->partly : exitCode)
            << result.err;
        if (!failed) return;
        EXPECT_THAT(result.err, testing::StartsWith("tarn: "));
        EXPECT_THAT(result.err, HasSubstr(told));
        const bool mayBeDone = struck && cell.errand->changes && !turnedAway;
        EXPECT_EQ(result.err.find("It may or may not have been done") != std::string::npos, mayBeDone)
            << result.err;
        const bool writesAsItComes = std::string(cell.errand->arguments).starts_with("cat ");
        EXPECT_TRUE(writesAsItComes || result.out.empty()) << result.out;
        EXPECT_THAT(result.err,
                    Not(testing::ContainsRegex("Stored [1-9]|Fetched [1-9]|may read|Logged|is now")));
        EXPECT_EQ(contentsOf(shell.work()), before);
    }

    TarndProcess service;
    std::string token;
};

TEST_F(FaultMatrix, EveryVerbEndsAndTellsTheTruth)
{
    const auto all = cells();
    std::atomic<std::size_t> next{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 8; ++i) // mostly they wait for time to pass
        workers.emplace_back([&] {
            Shell shell;
            shell.set("TARN_USER", "alice");
            shell.set("TARN_TOKEN", token);
            for (auto mine = next.fetch_add(stride); mine < all.size(); mine = next.fetch_add(stride)) {
                const auto& cell = all[mine];
                try {
                    play(shell, cell);
                } catch (const std::exception& error) {
                    ADD_FAILURE() << cell.errand->arguments << ", " << cell.fault.name << ": "
                                  << error.what();
                }
            }
        });
    for (auto& worker : workers)
        worker.join();
}

} // namespace
} // namespace tarncli::test
