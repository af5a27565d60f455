// Replies and contents that come to harm on their way: a transfer is whole or an error, nothing is fetched or made twice,
// and the user's files stay as they were.
#include "tests/cli/OnTheWay.h"

#include <atomic>
#include <fstream>
#include <random>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using connector::host::test::Ending;
using connector::host::test::FaultServer;
using connector::host::test::ScriptedHttpServer;
using connector::host::test::TrueReply;
using tarnd::test::TarndProcess;
using testing::HasSubstr;

#ifdef TARN_SANITIZED
constexpr std::size_t rounds = 1; // programs start many times slower
#else
constexpr std::size_t rounds = 5;
#endif

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
            for (std::size_t round = 0; round < rounds; ++round) {
                somebody.fetches(round % 2 == 0 ? "get -f" : "cat");
                somebody.stores(round % 2 == 0 ? "--retries 0 put -f f" : "put -f -");
            }
        });
}

/// Without what the others of its version say, as behind a gateway, or of a service that knows no parts.
TEST_F(OnTheWay, AnotherReplyThanTheFirstMayGoOnAndMakesNothingWrong)
{
    using Connection = ScriptedHttpServer::Connection;

    const auto without = [](std::string head) {
        for (const std::string name : {"ETag: ", "Repr-Digest: ", "Content-Digest: "})
            if (const auto at = head.find(name); at != std::string::npos)
                head.erase(at, head.find('\n', at) + 1 - at);
        return head;
    };
    TrueReply first;
    const auto bare = [&](Connection& connection, const TrueReply& reply) {
        connection.send(without(reply.head) + reply.body.substr(0, reply.body.size() / 2));
    };
    const auto another = [&](Connection& connection, TrueReply reply) {
        reply.body.back() ^= 1;
        connection.send(without(reply.head) + reply.body);
    };
    const auto whole = [&](Connection& connection, const TrueReply&) {
        connection.send(first.head + first.body);
    };

    const struct {
        Play second;
        const char* get;
        const char* cat;
    } rows[] = {
        {bare, "", ""},
        {another, "What has arrived is not", "What has arrived is not"},
        {whole, "does not send the rest of \"/f\" alone; all",
         "does not send the rest of \"/f\" alone; read"},
    };

    for (const auto& [second, get, cat] : rows)
        for (const std::string arguments : {"get /f new", "cat /f >new"}) {
            int requests = 0;
            const auto play = [&, later = second](Connection& connection, const TrueReply& reply) {
                if (requests++ > 0) return later(connection, reply);
                first = reply;
                cut()(connection, reply);
            };
            const auto result = run(arguments, fetching, 2, play);
            const std::string told = arguments.starts_with("get") ? get : cat;
            EXPECT_EQ(result.exitCode == 0, alice.read("new") == content) << arguments << result.err;
            EXPECT_EQ(result.exitCode, told.empty() || told.ends_with("all") ? 0 : 1) << arguments;
            EXPECT_THAT(result.err, HasSubstr(told));
            fs::remove(alice.work() / "new");
            EXPECT_EQ(result.err.find("fetched anew") != std::string::npos, told.ends_with("all"));
        }
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

TEST_F(OnTheWay, APartStaysUnlessItIsWrongItself)
{
    EXPECT_EQ(run("--retries 0 get --continue /f new", fetching, 1, cut()).exitCode, 7);
    const auto part = contentsOf(alice.work());
    EXPECT_EQ(part.size(), 3u);
    for (const std::string status : {"401 No", "403 No", "500 No", "502 No"}) {
        const auto refuse = [&](ScriptedHttpServer::Connection& connection, const TrueReply&) {
            connection.send("HTTP/1.1 " + status +
                            "\r\nContent-Type: application/xml\r\n"
                            "Content-Length: 33\r\n\r\n<Error><code>Wait.</code></Error>");
        };
        EXPECT_NE(run("--retries 0 get --continue /f new", fetching, 9, refuse).exitCode, 0);
        EXPECT_EQ(contentsOf(alice.work()), part) << status;
    }
    alice.set("TARN_ENDPOINT", service.url());
    const auto full = alice.run("ulimit -f 1000; tarn get --continue /f new");
    EXPECT_EQ(full.exitCode, 1) << full.err;
    EXPECT_THAT(alice.run("ulimit -f 1000; tarn sync alice:/ there; rm -r there").err,
                HasSubstr("/work/there/f: File too large."));
    EXPECT_EQ(contentsOf(alice.work()).size(), 3u) << full.err;

    const std::pair<const char*, const char*> wrongs[] = {
        {"truncate -s 2000000 .new.tarn-part", "is longer than the file"},
        {"rm .new.tarn-part-version", "Nothing tells of which version"},
        {"head -c 24 /dev/zero >.new.tarn-part-version", "Nothing tells of which version"},
    };
    for (const auto& [spoil, told] : wrongs) {
        run("--retries 0 get --continue /f new", fetching, 1, cut());
        EXPECT_EQ(alice.run(spoil).exitCode, 0);
        const auto result = run("get --continue /f new");
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_THAT(result.err, HasSubstr(told));
        EXPECT_EQ(alice.read("new"), content);
        fs::remove(alice.work() / "new");
    }
    alice.set("TARN_ENDPOINT", service.url());
    for (const std::string odd : {"mkfifo .new.tarn-part", "mkdir .new.tarn-part", "ln -s f .new.tarn-part",
                                  "mkfifo .new.tarn-part-version"}) {
        const auto place = odd.substr(odd.find(".new"));
        EXPECT_THAT(alice.run(odd + "; timeout 20 tarn get --continue /f new").err,
                    HasSubstr("Could not write " + place + ": "));
        fs::remove(alice.work() / place);
    }
    run("--retries 0 get --continue /f new", fetching, 1, cut());
    EXPECT_EQ(run("put -qr ./ /all; tarn ls /all").out, "f\n");
    EXPECT_EQ(run("get /f new").exitCode, 0);
    EXPECT_EQ(contentsOf(alice.work()).size(), 2u); // nobody will go on with the part
    for (const std::string end : {".tarn-part", ".tarn-part-version"})
        alice.write(".new" + end, "x");
    EXPECT_THAT(run("get --continue /f new").err, HasSubstr("Nothing to do"));
    EXPECT_EQ(contentsOf(alice.work()).size(), 2u); // likewise
}

TEST_F(OnTheWay, TellsOnceThatTheServiceAsksToWait)
{
    const auto turnAway = [](ScriptedHttpServer::Connection& connection, const TrueReply&) {
        connection.send("HTTP/1.1 429 Too Many Requests\r\nContent-Type: application/xml\r\n"
                        "Content-Length: 33\r\n\r\n<Error><code>Wait.</code></Error>");
    };
    const auto gateway = [](ScriptedHttpServer::Connection& connection, const TrueReply&) {
        connection.send("HTTP/1.1 429 Too Many Requests\r\nContent-Type: text/html\r\nRetry-After: 1\r\n"
                        "Content-Length: 3\r\n\r\n<p>");
    };
    const std::pair<const char*, Play> rows[] = {
        {"get -f /f .", turnAway}, {"cat /f >/dev/null", turnAway}, {"cat /f >/dev/null", gateway}};
    for (const auto& [arguments, reply] : rows) {
        const auto result = run(arguments, fetching, 2, reply);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        const auto told = result.err.find("asks to wait");
        EXPECT_NE(told, std::string::npos) << arguments;
        EXPECT_EQ(result.err.find("asks to wait", told + 1), std::string::npos) << arguments;
    }
}

TEST_F(OnTheWay, APipeThatCannotBeReadAgainIsToldSo)
{
    const auto busy = [](ScriptedHttpServer::Connection& connection, const TrueReply&) {
        connection.send("HTTP/1.1 503 Busy\r\nContent-Type: application/xml\r\n"
                        "Content-Length: 33\r\n\r\n<Error><code>Wait.</code></Error>");
    };
    const auto result = run("put - /new <f", "PUT ", 1, busy);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("\"/new\": Wait. Nothing was stored, and a pipe cannot be read twice"));
}

/// A gateway's own reply, while its service is away, tells as little of a change as none.
TEST_F(OnTheWay, AChangeWhoseReplyIsLostIsLookedAtAndMadeOnce)
{
    const auto lose = [](const auto&, const auto&) {};
    const auto replace = [](ScriptedHttpServer::Connection& connection, const auto&) {
        connection.send(
            "HTTP/1.1 502 Bad Gateway\r\nContent-Type: text/html\r\nContent-Length: 3\r\n\r\n<p>");
    };
    alice.write("d/x", "x");
    alice.set("EDITOR", "date >>");
    for (const auto& play : {Play(lose), Play(replace)}) {
        for (const std::string arguments :
             {"get -f /f got", "put f /new", "put --new-version d/x /new", "put -r d/ /d", "mkdir /m",
              "mv /new /moved", "sync d/ /s", "rm --keep /s/x", "rm -r /d", "restore /moved 1",
              "restore --as-new /moved 2", "edit /moved", "edit /made"}) {
            const auto* struck = arguments == "rm -r /d"         ? "DELETE "
                                 : arguments.starts_with("get ") ? fetching
                                                                 : "PUT ";
            const auto result = run(arguments, struck, 1, play);
            EXPECT_EQ(result.exitCode, 0) << arguments << ": " << result.err;
        }
        // A heading and four versions.
        EXPECT_EQ(run("ls / && tarn versions /moved | wc -l").out,
                  ".tarn-removed/\nm/\ns/\nf\nmade\nmoved\n5\n");
        EXPECT_EQ(run("rm -r /.tarn-removed /m /s /made /moved && rm got").exitCode, 0);
    }
}

TEST_F(OnTheWay, AChangeWhoseReplyIsLostCanBeTakenBackAndThatReplyMayBeLostToo)
{
    alice.set("EDITOR", "cp f");
    for (const std::string arguments : {"put f /new", "put --new-version f /f", "edit /f"}) {
        std::atomic changes = 2; // this one, and the one that takes it back
        const FaultServer server({"", Ending::noReply, [](const auto&, const auto&) {}},
                                 connector::host::test::truthOf(service.port()), [&](const auto& request) {
                                     const bool isChange =
                                         request.starts_with("PUT ") || request.starts_with("DELETE ");
                                     return isChange && changes-- > 0;
                                 });
        alice.set("TARN_ENDPOINT", server.url());
        const auto result = alice.run("tarn " + arguments + " && tarn undo --yes");
        EXPECT_EQ(result.exitCode, 0) << arguments << ": " << result.err;
        EXPECT_LT(changes, 1);
    }
    EXPECT_EQ(run("ls").out, "f\n");
    EXPECT_TRUE(run("cat /f").out == content);
}

TEST_F(OnTheWay, WhatAnotherStoresAtTheLastMomentStays)
{
    alice.set("EDITOR", "cp f");

    const struct {
        const char* arguments;
        const char* struck;
        const char* told;
    } rows[] = {
        {"put f /n && tarn undo --yes", "DELETE ", "is not what the request takes it for"},
        {"edit /n", "PUT ", "\"/n\" has changed while you edited it; nothing was stored. Your text is in"},
    };

    for (const auto& row : rows) {
        other.write("f", row.arguments);
        const auto truth = connector::host::test::truthOf(service.port());
        const auto meanwhile = [&](const std::string& request) {
            if (request.starts_with(row.struck)) other.run("tarn put --new-version f /n");
            return truth(request);
        };
        const FaultServer server({}, meanwhile, [](const auto&) { return false; });
        alice.set("TARN_ENDPOINT", server.url());
        const auto result = alice.run(std::string("tarn ") + row.arguments);
        EXPECT_EQ(result.exitCode, 6) << row.arguments;
        EXPECT_THAT(result.err, HasSubstr(row.told));
        EXPECT_EQ(run("cat /n").out, row.arguments);
    }
}

/// Where nobody has said how many.
TEST_F(OnTheWay, ManySmallContentsGoAtATimeAndFewLargeOnes)
{
    using Clock = std::chrono::steady_clock;

    struct Row {
        const char* options;
        std::size_t bytes;
        int most; ///< at a time
    };

    for (const auto& [options, bytes, most] :
         {Row{"", 1000, 16}, Row{"", 100'000, 4}, Row{"-j 2", 1000, 2}}) {
        for (int i = 0; i < 20; ++i)
            alice.write("d/" + std::to_string(i), std::string(bytes, 'x'));
        std::atomic<int> now = 0;
        std::atomic<int> highest = 0;
        const auto linger = [&, most = most](ScriptedHttpServer::Connection& connection,
                                             const TrueReply& reply) {
            for (int seen = highest, mine = ++now;
                 seen < mine && !highest.compare_exchange_weak(seen, mine);) {
            }
            const auto end = Clock::now() + std::chrono::seconds(3);
            while (highest < most && Clock::now() < end)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            --now;
            connection.send(reply.head + reply.body);
        };
        const FaultServer server(
            {"", Ending::truth, linger}, connector::host::test::truthOf(service.port()),
            [](const std::string& request) { return request.starts_with("PUT /service/v1/files/"); });
        alice.set("TARN_ENDPOINT", server.url());
        EXPECT_EQ(alice.run("tarn put -qrf d/ /d " + std::string(options)).exitCode, 0);
        EXPECT_EQ(highest, most) << options << " " << bytes;
    }
}

} // namespace
} // namespace tarncli::test
