// Whatever goes wrong between the command line and its service, every verb ends in time with the right exit code, says
// nothing that is not so, and leaves the user's files as they were.
#include "tests/cli/Shell.h"
#include "tests/support/FaultServer.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
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

TrueReply replyOf(const std::string& type, const std::string& body)
{
    return {"HTTP/1.1 200 OK\r\nContent-Type: " + type +
                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n",
            body};
}

TrueReply document(const std::string& inner)
{
    return replyOf("application/xml", "<Response>" + inner + "</Response>");
}

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
        const bool failed = exitCode != 0;
        const bool struck = cell.fault.ending != Ending::noConnection;
        EXPECT_EQ(result.exitCode, failed && struck && cell.errand->partly ? cell.errand->partly : exitCode)
            << result.err;
        if (!failed) return;
        EXPECT_THAT(result.err, testing::StartsWith("tarn: "));
        EXPECT_THAT(result.err, HasSubstr(told));
        const bool mayBeDone = struck && cell.errand->changes;
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

/// A service whose replies, some of them, come to harm on their way.
class OnTheWay : public testing::Test {
protected:
    using Play = connector::host::test::Fault::Play;

    OnTheWay()
    {
        service.start();
        alice.set("TARN_USER", "alice");
        alice.set("TARN_TOKEN", service.addUser("alice"));
        for (int i = 0; i < 1'000'000; ++i)
            content += static_cast<char>(i * 7 + i / 1000);
        store(content);
        alice.write("f", "old");
    }

    void store(const std::string& bytes)
    {
        alice.write("f", bytes);
        EXPECT_EQ(run("put -q -f f /f || tarn put -q f /f").exitCode, 0);
    }

    /// Runs tarn where the first `times` requests that begin with `struck` meet `play`.
    CommandResult run(const std::string& arguments, const std::string& struck = "", int times = 0,
                      const Play& play = nullptr)
    {
        const FaultServer server(
            {"", Ending::noReply, play}, connector::host::test::truthOf(service.port()),
            [&](const std::string& request) { return request.starts_with(struck) && times-- > 0; });
        alice.set("TARN_ENDPOINT", server.url());
        return alice.run("tarn " + arguments);
    }

    /// The file in which the service keeps what is stored now.
    fs::path onlyContent() const
    {
        for (const auto& entry : fs::recursive_directory_iterator(service.dataDir() / "contents"))
            if (entry.is_regular_file() && entry.file_size() == content.size()) return entry.path();
        return {};
    }

    static Play cut()
    {
        return [](ScriptedHttpServer::Connection& connection, const TrueReply& reply) {
            connection.send(reply.head + reply.body.substr(0, reply.body.size() * 2 / 5));
        };
    }

    static constexpr const char* fetching = "GET /service/v1/files/f";
    TarndProcess service;
    Shell alice;
    std::string content;
};

/// Somebody whose connection is cut once in each command, at a place that chance chooses.
class Unlucky {
public:
    Unlucky(TarndProcess& target, const std::string& token, std::string bytes, unsigned seed)
        : service(target), content(std::move(bytes)), random(seed)
    {
        shell.set("TARN_USER", "alice");
        shell.set("TARN_TOKEN", token);
        shell.set("TARN_ENDPOINT", proxy.url());
        mine = "/" + std::to_string(seed);
        shell.write("f", content);
        EXPECT_TRUE(isFinished("put f " + mine, false));
    }

    void fetches(const std::string& verb)
    {
        fetched = 0;
        isFinished("--retries 0 get --continue " + mine + " new");
        const bool isThere = fs::exists(shell.work() / "new");
        EXPECT_TRUE(isThere || isFinished("get --continue " + mine + " new", false));
        EXPECT_EQ(shell.read("new"), content);
        EXPECT_LT(fetched, content.size() + 10'000) << "two logins, two questions, and heads";
        fs::remove(shell.work() / "new");

        shell.write("f", "old");
        EXPECT_TRUE(isFinished(verb + " " + mine + (verb == "cat" ? " >f" : " f")));
        EXPECT_EQ(shell.read("f"), content);
    }

    void stores(const std::string& verb)
    {
        const auto before = content;
        content[random() % content.size()] ^= 1;
        shell.write("f", content);
        const bool isThere = isFinished(verb + " " + mine + " <f");
        EXPECT_THAT(stored(), testing::AnyOf(content, isThere ? content : before));
        EXPECT_TRUE(isFinished("put -f f " + mine));
        EXPECT_EQ(stored(), content);
    }

private:
    using Connection = ScriptedHttpServer::Connection;

    bool isFinished(const std::string& arguments, bool isCut = true)
    {
        left = isCut ? 1 + static_cast<long>(random() % (content.size() + 3'000)) : 0;
        const auto result = shell.run("tarn -q " + arguments);
        EXPECT_THAT(result.exitCode, testing::AnyOf(0, 7)) << arguments << ": " << result.err;
        return result.exitCode == 0;
    }

    std::string stored() { return shell.run("tarn --endpoint " + service.url() + " cat " + mine).out; }

    std::size_t pass(std::size_t bytes, bool isReply)
    {
        const auto before = static_cast<std::size_t>(std::max(left.fetch_sub(static_cast<long>(bytes)), 0L));
        const auto passed = before > 0 ? std::min(before, bytes) : bytes;
        if (isReply) fetched += passed;
        return passed;
    }

    TarndProcess& service;
    Shell shell;
    std::string mine;
    std::string content;
    std::minstd_rand random;
    std::atomic<long> left{0}; ///< bytes, both ways, until the cut
    std::atomic<std::size_t> fetched{0};
    ScriptedHttpServer proxy{[this](Connection& connection) {
        connection.relay(service.port(), [this](auto... passing) { return pass(passing...); });
    }};
};

TEST_F(OnTheWay, CutAnywhereATransferIsWholeOrAnErrorAndNothingIsFetchedTwice)
{
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto token = service.run({"user", "rotate", "alice"}).out.substr(0, 64);
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < 10; ++i) // mostly they wait for another try
        threads.emplace_back([&, i] {
            Unlucky somebody(service, token, content, seed + i);
            for (std::size_t round = 0; round < 5; round += stride) {
                somebody.fetches(round % 2 == 0 ? "get -f" : "cat");
                somebody.stores(round % 2 == 0 ? "--retries 0 put -f f" : "put -f -");
            }
        });
}

TEST_F(OnTheWay, ALaterCommandFetchesAnewWhatWasReplaced)
{
    EXPECT_EQ(run("--retries 0 get /f new", fetching, 1, cut()).exitCode, 7);
    EXPECT_EQ(contentsOf(alice.work()).size(), 1u); // only "f", as nobody asked for more
    EXPECT_EQ(run("--retries 0 get --continue /f new", fetching, 1, cut()).exitCode, 7);
    EXPECT_EQ(contentsOf(alice.work()).size(), 3u);
    store(content = std::string(content.rbegin(), content.rend()));
    const auto result = run("get --continue /f new");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("had changed"));
    EXPECT_EQ(alice.read("new"), content);
    EXPECT_EQ(contentsOf(alice.work()).size(), 2u);
}

TEST_F(OnTheWay, WhatIsNotWhatItShouldBeIsRefused)
{
    const auto damageDigest = [](ScriptedHttpServer::Connection& connection, TrueReply reply) {
        const std::string word = "sha-256=:";
        for (auto at = reply.head.find(word); at != std::string::npos; at = reply.head.find(word, at + 1))
            reply.head[at + 12] = reply.head[at + 12] == 'A' ? 'B' : 'A';
        connection.send(reply.head + reply.body);
    };
    const auto refuses = [&](const std::string& arguments, const std::string& struck, const char* told) {
        const auto result = run(arguments, struck, 1, damageDigest);
        EXPECT_EQ(result.exitCode, 1) << arguments;
        EXPECT_THAT(result.err, HasSubstr(told));
        EXPECT_THAT(contentsOf(alice.work()), testing::ElementsAre(testing::Pair("f", "old"))) << arguments;
    };
    refuses("put -f f /f", "PUT ", "f: The service has stored something else");
    store(content);
    alice.write("f", "old");
    std::fstream(onlyContent(), std::ios::in | std::ios::out)
        .seekp(500'000)
        .put('\1'); // on the service's disk
    for (const auto* arguments : {"get -f /f .", "get -f --continue /f .", "cat /f >/dev/null"})
        refuses(arguments, "nothing", "\"/f\": The content is damaged");
    service.terminate();
    const auto check = service.run({"fsck"});
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_THAT(check.out, HasSubstr("alice:/f, version 1: its content is damaged"));
}

TEST_F(OnTheWay, AChangeWhoseReplyIsLostIsLookedAtAndMadeOnce)
{
    alice.write("d/x", "x");
    for (const auto* arguments : {"put f /new", "put --new-version d/x /new", "put -r d/ /d", "mkdir /m",
                                  "mv /new /moved", "rm -r /d"}) {
        const auto* struck = arguments[0] == 'r' ? "DELETE " : "PUT ";
        const auto result = run(arguments, struck, 1, [](const auto&, const auto&) {});
        EXPECT_EQ(result.exitCode, 0) << arguments << ": " << result.err;
    }
    // A heading and two versions.
    EXPECT_EQ(run("ls / && tarn versions /moved | wc -l").out, "m/\nf\nmoved\n3\n");
}

/// Answers in good form what cannot be, or not for long: a folder that holds itself a thousand times, and a file of five bytes that is
/// said to have `sizes`, one for each time somebody asks, the last for all further ones.
class StrangeService {
public:
    explicit StrangeService(std::vector<int> sizes = {})
        : told(std::move(sizes))
        , server(
              {}, [this](const std::string& request) { return answer(request); }, never)
    {
        shell.set("TARN_ENDPOINT", server.url());
        shell.set("TARN_USER", "alice");
        shell.set("TARN_TOKEN", "token");
        shell.write("f", "old");
    }

    Shell shell;
    std::atomic<int> listings{0};
    std::atomic<int> contents{0};

private:
    static bool never(const std::string&) { return false; }

    TrueReply answer(const std::string& request)
    {
        if (request.starts_with("GET /service/v1/login")) return document("<TarnSessionId>s</TarnSessionId>");
        if (request.starts_with("GET /service/v1/files/"))
            return ++contents, replyOf("application/octet-stream", "five!");
        if (request.starts_with("GET /service/v1/folders"))
            return document(std::string("<FolderSummary><Name>d</Name></FolderSummary><Files/>") +
                            (++listings < 1000
                                 ? "<Folders><FolderSummary><Name>d</Name></FolderSummary></Folders>"
                                 : "<Folders/>"));
        const bool isFile = request.starts_with("GET /service/v1/filesystem/f");
        const auto size = isFile ? told.front() : 0;
        if (isFile && told.size() > 1) told.erase(told.begin());
        return document(std::string("<FileAttributes><Type>") + (isFile ? "FILE" : "FOLDER") +
                        "</Type><Name>f</Name><Writable>true</Writable><Size>" + std::to_string(size) +
                        "</Size></FileAttributes>");
    }

    std::vector<int> told;
    FaultServer server;
};

TEST(StrangeService, FoldersWithoutEndAreCutOff)
{
    const StrangeService service;
    const auto result = service.shell.tarn({"tree"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_THAT(result.err, HasSubstr("nested too deeply"));
    EXPECT_LT(service.listings, 300);
}

TEST(StrangeService, AContentOfAnotherSizeIsFetchedOnceMoreInCaseTheFileWasReplaced)
{
    for (const auto* verb : {"cat /f", "get -f /f ."}) {
        const StrangeService wrong({1000});
        const auto refused = wrong.shell.run(std::string("tarn ") + verb);
        EXPECT_EQ(refused.exitCode, 1) << verb;
        EXPECT_EQ(refused.out, "");
        EXPECT_THAT(refused.err, HasSubstr("sent 5 bytes of a file that has 1000"));
        EXPECT_THAT(contentsOf(wrong.shell.work()), testing::ElementsAre(testing::Pair("f", "old")));
        EXPECT_EQ(wrong.contents, 2);

        const StrangeService replaced({1000, 5});
        EXPECT_THAT(replaced.shell.run(std::string("tarn -q ") + verb + " && cat f").out,
                    testing::StartsWith("five!"));
    }
}

} // namespace
} // namespace tarncli::test
