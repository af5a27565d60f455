// Whatever a command did, undo brings back what was there before, also when the command was killed; and it touches
// nothing that somebody else has changed since.
#include "tarnhost/Tarn.h"
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <set>

namespace tarncli::test {
namespace {

using connector::host::Tarn;
using tarnd::test::TarndProcess;

/// All that a user has in the service.
struct Stored {
    std::map<std::string, std::string> contents; ///< folders end with '/'
    std::set<std::string> grants;
    std::set<std::string> versions;

    explicit Stored(Tarn& tarn)
    {
        add(tarn, "");
        for (const auto& grant : tarn.grants())
            grants.insert(grant.place.path + " " + grant.user);
    }

private:
    void add(Tarn& tarn, const std::string& folder)
    {
        for (const auto& entry : tarn.list(folder.empty() ? "/" : folder)) {
            const auto path = folder + "/" + entry.name;
            if (entry.isFolder) {
                contents[path + "/"];
                add(tarn, path);
                continue;
            }
            contents[path] = tarn.read(path);
            for (const auto& version : tarn.versions(path))
                versions.insert(path + " " + version.id);
        }
    }
};

constexpr const char* commands[] = {
    "tarn put l/x /t/new",
    "tarn put -r l /t",
    "tarn put -r l/ /t/d/e",
    "tarn put -r --new-version l/ /t",
    "echo piped | tarn put - /t/p",
    "echo piped | tarn put --new-version - /t/x",
    "tarn cp -r /t /u",
    "tarn cp --new-version /t/x /t/y",
    "tarn mv /t/d /t/f/",
    "tarn mv /t/x /t/z",
    "tarn rm -r --keep /t/d/c /t/d /t/x",
    "tarn mkdir -p /t/m/n/o",
    "tarn grant /t bob",
    "tarn grant --pending /t carol",
    "tarn revoke /t/d bob",
    "tarn edit /t/y",
    "tarn edit /t/made",
    "tarn restore /t/y 1",
    "tarn restore --as-new /t/y 1",
    "tarn sync --force --new-version l/ /t",
    "tarn sync l /",
    "tarn sync -q --plan p l /s && tarn apply p",
};

TEST(Undo, BringsBackWhatWasThereBeforeAnyCommand)
{
    const char* given = std::getenv("TARN_TEST_SEED");
    const char* rounds = std::getenv("TARN_TEST_ROUNDS");
    const auto seed =
        given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
    std::cout << "TARN_TEST_SEED=" << seed << std::endl;
    std::mt19937 random(seed);
    TarndProcess service;
    service.start();
    service.addUser("bob");
    Shell alice;
    Tarn tarn(service.url(), {"alice", alice.logIn(service, "alice")});
    alice.set("EDITOR", "sh -c 'echo more >>\"$1\"' x");
    ASSERT_EQ(alice
                  .run("mkdir -p l/d/e/f t/d/c t/f && echo 1 >l/x && : >l/empty && echo 2 >l/d/y && "
                       "head -c 300000 /dev/zero >l/d/e/big && echo a >t/x && : >t/y && echo c >t/d/c/z && "
                       "tarn put -r t / && tarn put --new-version l/x /t/y && tarn grant /t/d bob && "
                       "tarn restore /t/y 1 && rm -r ~/.local/state/tarn/undo")
                  .exitCode,
              0);
    std::vector<std::string> order(std::begin(commands), std::end(commands));
    std::ranges::shuffle(order, random);
    for (int round = 0; round < (rounds ? std::atoi(rounds) : 24); ++round) {
        const auto& command = order[static_cast<std::size_t>(round) % order.size()];
        // What a pipe or an editor gave cannot be compared afterwards.
        const bool isKilled = round % 3 == 2 && command.find_first_of("|&") == std::string::npos &&
                              !command.starts_with("tarn edit");
        SCOPED_TRACE(command + (isKilled ? ", killed" : ""));
        const Stored before(tarn);
        const auto pause = std::to_string(static_cast<double>(random() % 60) / 1000);
        const auto done =
            alice.run(isKilled ? command + " & sleep " + pause + "; kill -9 $!; wait" : command);
        EXPECT_EQ(done.exitCode, isKilled ? done.exitCode : 0) << done.err;
        if (isKilled) { // in order: what it had begun for the killed one is finished before
            const auto port = service.port();
            service.terminate();
            service.start(port);
        }
        const auto undone = alice.run("tarn undo --yes");
        EXPECT_EQ(undone.exitCode, isKilled && undone.exitCode == 3 ? 3 : 0) << undone.err;
        const Stored after(tarn);
        EXPECT_EQ(after.contents, before.contents) << undone.err;
        EXPECT_EQ(after.grants, before.grants) << undone.err;
        ASSERT_TRUE(std::ranges::includes(after.versions, before.versions)) << undone.err;
    }
}

struct Row {
    const char* typed;
    int exitCode;
    const char* output; ///< of both streams, exactly
};

constexpr Row rows[] = {
    {"tarn undo", 3, "tarn: There is no command of yours here that could be taken back.\n"},
    {"tarn put -qr l / && tarn undo </dev/null 2>&1 | tail -n 2", 0,
     "deleteFolder  /l\ntarn: Nothing was done; `tarn undo --yes` does it without asking.\n"},
    {"tarn undo -qn | sort", 0, "delete        /l/x\ndelete        /l/y\ndeleteFolder  /l\n"},
    {"tarn undo --list | awk 'NR > 1 {print $3, $4, $5, $6, $7, $8}'", 0, "3 tarn put -qr l /\n"},
    // Changed by others, who have no part in this log.
    {"echo 3 | XDG_STATE_HOME=$PWD/other TARN_USER=alice TARN_TOKEN=$TOKEN tarn put -qf - /l/x; "
     "XDG_STATE_HOME=$PWD/other TARN_USER=alice TARN_TOKEN=$TOKEN tarn put -q l/x /l/more; tarn undo -y",
     6,
     "tarn: It is not as `tarn put -qr l /` left it: \"/l/x\" has changed since, \"/l\" holds \"more\", "
     "which "
     "the command did not make. Nothing was done; `tarn undo --forget` leaves it so.\n"},
    {"tarn undo --forget; tarn cat /l/x", 0, "tarn: Forgot `tarn put -qr l /`; what it did stays.\n3\n"},
    // What nothing keeps is said.
    {"tarn put -qf l/x /l/y; tarn undo -y", 1,
     "tarn: `tarn put -qf l/x /l/y` cannot be taken back: \"/l/y\" was replaced, and nothing keeps what was "
     "there (--new-version would have). `tarn undo --forget` goes on to the one before.\n"},
    {"tarn mv -f /l/y /l/x; tarn undo -qy; tarn ls /l", 0,
     "move  /l/x  to /l/y\n"
     "tarn: Cannot be taken back: \"/l/x\" what was there was replaced, and nothing keeps it.\n"
     "tarn: 1 item could not be taken back; 1 was.\nmore\ny\n"},
    {"tarn rm /l/y; tarn undo -y", 1,
     "tarn: `tarn rm /l/y` cannot be taken back: \"/l/y\" was deleted, and nothing keeps it (`tarn rm "
     "--keep` "
     "would have). `tarn undo --forget` goes on to the one before.\n"},
    // A command that was killed when it was about to make a folder that it had made before.
    {"tarn put -q l/x /k; tarn rm -q --keep /k; tarn ls /; "
     "echo '{\"do\":\"makeFolder\",\"n\":3,\"path\":\"/.tarn-removed\"}' >>"
     "$(ls -t ~/.local/state/tarn/undo/*/* | head -n 1); tarn undo -qy | sed 's/[0-9][0-9]*/N/'; tarn ls /",
     0,
     ".tarn-removed/\nl/\nmove          /.tarn-removed/N/k  to /k\ndeleteFolder  /.tarn-removed/N\n"
     "deleteFolder  /.tarn-removed\nl/\nk\n"},
    {"tarn restore -q /k 1; tarn undo -y", 0,
     "tarn: Nothing of `tarn restore -q /k 1` is left to take back.\n"},
};

TEST(Undo, SaysWhatItDoesAndWhatItCannot)
{
    TarndProcess service;
    service.start();
    Shell alice;
    alice.set("TOKEN", alice.logIn(service, "alice"));
    alice.run("mkdir l && echo 1 >l/x && echo 2 >l/y");
    for (const auto& row : rows) {
        const auto result = alice.run("{ " + std::string(row.typed) + "; } 2>&1");
        EXPECT_EQ(result.exitCode, row.exitCode) << row.typed;
        EXPECT_EQ(result.out, row.output) << row.typed;
    }
}

} // namespace
} // namespace tarncli::test
