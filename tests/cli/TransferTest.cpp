// The main job, for real: files go to a service and come back the same, and nothing is replaced by mistake.
#include "tests/cli/Shell.h"

#include <chrono>
#include <gmock/gmock.h>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using tarnd::test::TarndProcess;
using testing::HasSubstr;

class TransferTest : public testing::Test {
protected:
    TransferTest()
    {
        service.start();
        alice.logIn(service, "alice");
    }

    /// Runs tarn and expects this exit code.
    CommandResult tarn(const std::vector<std::string>& arguments, int exitCode = 0) const
    {
        auto result = alice.tarn(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << arguments.front() << ": " << result.err;
        return result;
    }

    TarndProcess service;
    Shell alice;
};

/// Over a thousand entries: odd names at every level, empty files, empty folders, a file of some size.
void makeOddTree(const Shell& shell)
{
    const std::vector<std::string> odd{"space name", "Grüße",   "a+b",        "100%",        "50%25",
                                       "x&y=z;",     "'quote'", "\"double\"", "back\\slash", "日本語",
                                       "(a)[b]{c}",  "$HOME",   "~",          "-dash",       "a:b",
                                       "^`|<>!*,@",  ".hidden", "e\u0301"};
    for (std::size_t i = 0; i < 55; ++i)
        for (std::size_t j = 0; j < odd.size(); ++j) {
            const auto folder = "tree/" + odd[i % odd.size()] + "/" + std::to_string(i);
            shell.write(folder + "/" + odd[j], j % 5 == 0 ? "" : odd[j] + std::to_string(i * j));
        }
    shell.write("tree/big", std::string(3'000'001, '\xfe'));
    fs::create_directories(shell.work() / "tree/empty/inner");
}

TEST_F(TransferTest, BringsAThousandOddlyNamedFilesBackByteForByte)
{
    makeOddTree(alice);
    const auto stored = tarn({"put", "-r", "-j", "8", "tree/", "/tree"});
    EXPECT_THAT(stored.err, HasSubstr("Stored 991 files and 76 folders"));
    tarn({"get", "-r", "-j", "8", "/tree/", "back"});
    EXPECT_EQ(contentsOf(alice.work() / "tree"), contentsOf(alice.work() / "back"));
}

TEST_F(TransferTest, StoresWhereTheTargetSays)
{
    alice.write("a.txt", "A");
    alice.write("b.txt", "B");
    alice.write("d/x", "X");
    tarn({"mkdir", "-p", "/docs/deep"});
    tarn({"put", "a.txt", "/new name.txt"});
    tarn({"put", "a.txt", "/docs"});
    tarn({"put", "a.txt", "b.txt", "/docs/deep/"});

    const struct {
        std::vector<std::string> command;
        const char* told;
        const char* third = "Nothing to do";
    } rows[] = {
        {{"put", "-r", "d", "/docs"}, "Stored 1 file and 1 folder (1 B) in \"/docs/d\"."},
        {{"put", "-r", "d/", "/copy"}, "(1 B) in \"/copy\""},
        {{"put", "-r", "d", "/new"}, "(1 B) in \"/new/d\""},
        {{"put", "-r", "d/.", "/docs/deep"}, "(1 B) in \"/docs/deep\""},
        {{"put", "-r", "d", "a.txt", "/all"}, "Stored 2 files and 2 folders (2 B) in \"/all\"."},
        {{"put", "a.txt", "/docs/"}, "Nothing to do as \"/docs/a.txt\": 1 file was there already."},
        {{"get", "-r", "/new", "."}, "Fetched 1 file and 2 folders (1 B) to ./new."},
        {{"get", "-r", "/new/", "in"}, "(1 B) to in."},
        {{"get", "-r", "/new", "made"}, "(1 B) to made/new."},
        {{"get", "/docs/a.txt", "got"}, "(1 B) to got."},
    };

    for (const auto& row : rows) {
        EXPECT_THAT(tarn(row.command).err, HasSubstr(row.told));
        EXPECT_THAT(tarn(row.command).err, HasSubstr(row.third));
    }
    fs::last_write_time(alice.work() / "got", fs::file_time_type::clock::now());
    EXPECT_THAT(tarn({"get", "/docs/a.txt", "got"}).err, HasSubstr("Nothing to do"));
    alice.write("got", "B");
    tarn({"get", "/docs/a.txt", "got"}, 6);
    tarn({"rm", "-r", "/new", "/all"});
    EXPECT_EQ(tarn({"tree"}).out,
              "/\n├── copy/\n│   └── x\n├── docs/\n│   ├── d/\n│   │   └── x\n│   ├── deep/\n"
              "│   │   ├── a.txt\n│   │   ├── b.txt\n│   │   └── x\n│   └── a.txt\n└── new name.txt\n");
    tarn({"put", "a.txt", "b.txt", "/nowhere"}, 3);
    tarn({"put", "a.txt", "/nowhere/"}, 3);
    EXPECT_THAT(tarn({"put", "a.txt", "/nowhere/x"}, 3).err, HasSubstr("mkdir -p"));
    tarn({"put", "a.txt", "b.txt", "/docs/a.txt"}, 6);
    EXPECT_THAT(tarn({"put", "d", "/d"}, 2).err, HasSubstr("put -r"));
    tarn({"put", "missing", "/m"}, 3);
}

TEST_F(TransferTest, ReplacesOnlyWhenTold)
{
    alice.write("a", "one");
    tarn({"put", "a", "/a"});
    alice.write("a", "two");
    EXPECT_THAT(tarn({"put", "a", "/a"}, 6).err, HasSubstr("--force"));
    EXPECT_EQ(tarn({"cat", "/a"}).out, "one");
    tarn({"put", "--new-version", "a", "/a"});
    alice.write("a", "three");
    tarn({"put", "--force", "a", "/a"});
    tarn({"put", "--skip-existing", "a", "/a"});
    EXPECT_EQ(tarn({"cat", "/a"}).out, "three");
    EXPECT_EQ(tarn({"cat", "--version", "1", "/a"}).out, "one");
    EXPECT_EQ(tarn({"get", "--version", "1", "/a", "-"}).out, "one");
    tarn({"cat", "--version", "9", "/a"}, 3);
    tarn({"restore", "/a", "1"});
    EXPECT_EQ(tarn({"cat", "/a"}).out, "one");
    EXPECT_THAT(tarn({"restore", "--as-new", "/a", "2"}).err, HasSubstr("Version 3"));

    alice.write("a", "mine");
    tarn({"get", "/a", "a"}, 6);
    EXPECT_EQ(alice.read("a"), "mine");
    const auto times = alice.run("tarn get -q /a t && tarn get -q --no-times /a now && touch -r t same && "
                                 "tarn stat --json /a | grep -c $(stat -c %.3Y t | tr -d .) && "
                                 "test now -nt t && echo newer");
    EXPECT_EQ(times.out, "1\nnewer\n") << times.err;
    const auto alike = alice.run("tarn get -q --version 1 /a v1 && printf two >v && touch -r v1 v && "
                                 "tarn get -qf --version 1 /a v && cat v");
    EXPECT_EQ(alike.out, "one") << alike.err;
    tarn({"get", "-f", "/a", "a"});
    EXPECT_EQ(alice.read("a"), "three"); // version 3 is a copy of version 2
    // In a folder of its own, so that what is there in the end is all that was written.
    const auto linked =
        alice.run("mkdir real in && echo old >real/a && chmod 600 real/a && ln -s ../real/a in/a "
                  "&& tarn get -qf /a in && stat -c '%F %a' in/a real/a && ls -A in real");
    EXPECT_EQ(linked.out, "symbolic link 777\nregular file 600\nin:\na\n\nreal:\na\n") << linked.err;
    EXPECT_EQ(alice.read("real/a"), "three");
}

TEST_F(TransferTest, MergesTreesAndDoesWhatItCan)
{
    alice.write("t/old", "old");
    alice.write("t/sub/old", "old");
    tarn({"put", "-r", "t", "/"});
    alice.write("t/old", "OLD");
    alice.write("t/sub/new", "new");
    alice.write("t/what?", "q");
    alice.write("t/bad\xff", "b");
    fs::create_symlink("/etc/passwd", alice.work() / "t/link");
    const auto result = tarn({"put", "-r", "t/.", "/t"}, 8);
    EXPECT_THAT(result.err, HasSubstr("/t/old\" exists already; use --force"));
    EXPECT_THAT(result.err, HasSubstr("t/./what?: The service cannot be asked for names with '?'"));
    EXPECT_THAT(result.err, HasSubstr("t/./bad\\xff: The name is not valid UTF-8"));
    EXPECT_THAT(result.err, HasSubstr("Skipped t/./link: symbolic links are not followed"));
    EXPECT_EQ(tarn({"cat", "/t/sub/new"}).out, "new");
    EXPECT_EQ(alice
                  .run("mkdir only && cp -r t/sub only && rm only/sub/new && echo >only/sub/old && tarn put "
                       "-r only/. /t")
                  .exitCode,
              6); // nothing was done
    alice.write("t/old", "changed");
    tarn({"put", "-r", "--force", "t/.", "/t"}, 8);
    EXPECT_EQ(tarn({"cat", "/t/old"}).out, "changed");
    alice.write("present/t/old", "mine");
    tarn({"get", "-r", "/t", "present"}, 8);
    EXPECT_EQ(
        contentsOf(alice.work() / "present"),
        (std::map<std::string, std::string>{
            {"t/", ""}, {"t/old", "mine"}, {"t/sub/", ""}, {"t/sub/new", "new"}, {"t/sub/old", "old"}}));
}

TEST_F(TransferTest, ReadsAndWritesPipes)
{
    const auto piped =
        alice.run("head -c 2500000 /dev/zero | tarn put - /zeros && tarn get /zeros - | wc -c");
    EXPECT_EQ(piped.out, "2500000\n") << piped.err;
    EXPECT_EQ(alice.run("printf '' | tarn put - /none && tarn cat /none /zeros | wc -c").out, "2500000\n");
    EXPECT_EQ(alice.run("echo x | tarn put - /zeros").exitCode, 6);
    EXPECT_EQ(alice.run("echo x | tarn put - /").exitCode, 2);
    for (const std::string odd : {"fifo", "/proc/self/status"})
        EXPECT_THAT(
            alice.run("mkfifo fifo; exec tarn put " + odd + " /odd").err,
            testing::ContainsRegex("tarn: " + odd + " [^/]*; store it with `tarn put - /there < " + odd))
            << odd;
    tarn({"stat", "/odd"}, 3);
    // Closed, and no other file in its place.
    EXPECT_EQ(alice.run("timeout 20 tarn put - /closed <&-").exitCode, 1);
    EXPECT_EQ(alice.run("tarn cat /zeros >&-").exitCode, 1);
    const auto early = alice.run("tarn cat /zeros | head -c 1 | wc -c");
    EXPECT_EQ(early.out, "1\n");
    EXPECT_EQ(early.err, "");
    const auto late = alice.run("perl -e 'use Fcntl; fcntl(STDOUT, F_SETFL, O_NONBLOCK); exec @ARGV' "
                                "tarn cat /zeros | (sleep 0.2; wc -c)");
    EXPECT_EQ(late.out, "2500000\n") << late.err;
}

/// All of them together, whichever way they go.
TEST_F(TransferTest, KeepsToTheRateItWasGiven)
{
    for (int i = 0; i < 150; ++i)
        alice.write("d/" + std::to_string(i), std::string(10'000, 'x'));
    alice.write("d/big", std::string(500'000, 'x'));
    for (const auto* command : {"put -r d/ /d", "get -r /d back"}) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(alice.run("tarn --bwlimit 1M " + std::string(command)).exitCode, 0);
        EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500)) << command;
    }
    tarn({"--bwlimit", "1K", "ls"}, 2);
}

TEST_F(TransferTest, RefusesBeforeAnythingIsSent)
{
    alice.write("a", "A");
    service.kill(); // a request would fail as unreachable
    for (const std::string arguments :
         {"put a '/x?y'", "put a '/x#y'", "put a x", "put a /x//y", "put a", "put --force --new-version a /a",
          "get /../x .", "get /a ''", "put '' /a", "rm -r --keep /", "mv /a '/b?'", "tree /a /b",
          "ls --frobnicate", "revoke x/y", "frobnicate", "--endpoint 'http://[::1]:7070' ls",
          "--endpoint files.example.org ls", "--profile none ls"})
        EXPECT_EQ(alice.run("tarn " + arguments).exitCode, 2) << arguments;
    EXPECT_THAT(tarn({"lss"}, 2).err, HasSubstr("did you mean `tarn ls`?"));
    EXPECT_THAT(tarn({}, 2).err, HasSubstr("Examples:"));
    EXPECT_THAT(tarn({"put", "--help"}).out, HasSubstr("tarn put -r"));
    tarn({"get", "/a", "nowhere/"}, 3);
    // Not the port of the service that was: another may listen there by now.
    const auto unreachable =
        alice.run("TARN_USER=a TARN_TOKEN=t tarn --retries 0 --endpoint http://127.0.0.1:1 ls");
    EXPECT_EQ(unreachable.exitCode, 7);
    EXPECT_THAT(unreachable.err, HasSubstr("Could not connect to 127.0.0.1:1"));
}

TEST_F(TransferTest, MovesMakesAndDeletes)
{
    alice.write("a", "A");
    tarn({"put", "a", "/a"});
    tarn({"put", "a", "/b"});
    tarn({"mkdir", "/d"});
    tarn({"mkdir", "/d"}, 6);
    tarn({"mkdir", "-p", "/d"});
    tarn({"mkdir", "/no/such"}, 3);
    tarn({"mv", "/a", "/d"});
    tarn({"mv", "/b", "/d/a"}, 6);
    tarn({"mv", "-f", "/b", "/d/a"});
    tarn({"mv", "/d/a", "/none/"}, 3);
    tarn({"mv", "/d", "/d/e"}, 6);
    EXPECT_EQ(tarn({"ls", "/d"}).out, "a\n");
    EXPECT_EQ(tarn({"ls", "/d/a"}).out, "a\n");
    tarn({"ls", "/d/a/"}, 6);
    EXPECT_THAT(tarn({"rm", "/d"}, 6).err, HasSubstr("rm -r"));
    tarn({"rm", "/none"}, 3);
    tarn({"rm", "-f", "/none"});
    tarn({"rm", "/none", "/d/a"}, 8);
    tarn({"rm", "-r", "/d"});
    EXPECT_EQ(tarn({"ls"}).out, "");
}

} // namespace
} // namespace tarncli::test
