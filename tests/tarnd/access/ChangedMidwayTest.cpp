// What was allowed when a request began may no longer be when it ends. An upload counts as of its commit, a
// download as of its beginning.
#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/access/SharedWorld.h"
#include "tests/tarnd/http/Wire.h"

#include <functional>
#include <gtest/gtest.h>
#include <optional>

namespace tarnd::test {
namespace {

/// An upload that stops in the middle of its content.
class SlowUpload {
public:
    SlowUpload(TarndProcess& service, const std::string& session, const std::string& target)
        : wire(service.port())
    {
        wire.send("PUT " + target + " HTTP/1.1\r\nHost: tarn\r\nx-qz-tarn-session-id: " + session +
                  "\r\nExpect: 100-continue\r\nContent-Length: 4\r\n\r\n");
        begun = wire.receive();
        wire.send("sl");
    }

    /// The service has judged the head and asks for the content.
    bool hasBegun() const { return begun && begun->status == 100; }

    std::string finish()
    {
        wire.send("ow");
        const auto reply = wire.receive();
        return reply ? outcomeOf({reply->status, {}, reply->body}) : "no reply";
    }

private:
    Wire wire;
    std::optional<WireReply> begun;
};

/// A service with one user, who has a folder /d and in it a file f.
class ChangedMidway : public ::testing::Test {
protected:
    ChangedMidway() : token(service.addUser("alice")), user(startAt(service))
    {
        require(user.login(token));
        require(user.createFolder({"", "/d"}));
        require(user.put({"", "/d/f"}, "first"));
    }

    static const std::string& startAt(TarndProcess& process)
    {
        process.start();
        return process.url();
    }

    TarndProcess service;
    std::string token;
    ServiceUser user;
};

struct Change {
    std::string name;
    std::string path; ///< what is uploaded meanwhile
    std::string mode;
    std::function<void(ServiceUser&, TarndProcess&)> make;
    std::string outcome;
    std::optional<std::vector<std::string>> listed; ///< all that is stored in the end, if the account is
};

void PrintTo(const Change& change, std::ostream* out)
{
    *out << change.name;
}

class Upload : public ChangedMidway, public ::testing::WithParamInterface<Change> {
protected:
    /// All below the folder, with contents: "/d/", "/d/f=first".
    std::vector<std::string> allBelow(const std::string& path)
    {
        std::vector<std::string> found;
        const auto document = parseXml(require(user.list({"", path})).body);
        const auto base = path == "/" ? path : path + "/";
        for (const auto& file : document.child("Files").children)
            found.push_back(base + file.only("Name") + "=" +
                            require(user.read({"", base + file.only("Name")})).body);
        for (const auto& folder : document.child("Folders").children) {
            const auto below = allBelow(base + folder.only("Name"));
            found.push_back(base + folder.only("Name") + "/");
            found.insert(found.end(), below.begin(), below.end());
        }
        return found;
    }
};

TEST_P(Upload, CountsAsOfItsCommit)
{
    const auto& change = GetParam();
    SlowUpload upload(service, user.session(),
                      ServiceUser::targetOf("files", {"", change.path},
                                            "&createNewVersion=true&createMode=" + change.mode));
    ASSERT_TRUE(upload.hasBegun());
    change.make(user, service);
    EXPECT_EQ(upload.finish(), change.outcome);
    if (change.listed) {
        if (user.ping().status != 200) {
            token = service.run({"user", "rotate", "alice"}).out;
            require(user.login(token.substr(0, token.find('\n'))));
        }
        EXPECT_EQ(allBelow("/"), *change.listed);
    }
    ASSERT_EQ(service.terminate(), 0);
    const auto checked = service.run({"fsck"});
    EXPECT_EQ(checked.exitCode, 0) << checked.out << checked.err;
}

const std::string ended = "401 Your session has ended. Log in again.";
const std::string noFolder = "409 The folder \"/d\" does not exist.";

using Stored = std::vector<std::string>;

const Change changes[] = {
    {"NothingChanged", "/d/n", "CREATE", [](auto&, auto&) {}, "200",
     Stored{"/d/", "/d/f=first", "/d/n=slow"}},
    {"FolderDeleted", "/d/n", "CREATE",
     [](auto& user, auto&) {
         require(user.deleteFolder({"", "/d"}, true));
     },
     noFolder, Stored{}},
    {"FolderMoved", "/d/n", "CREATE",
     [](auto& user, auto&) {
         require(user.move({"", "/d"}, {"", "/e"}, false));
     },
     noFolder, Stored{"/e/", "/e/f=first"}},
    {"FolderMadeAgain", "/d/n", "CREATE",
     [](auto& user, auto&) {
         require(user.deleteFolder({"", "/d"}, true));
         require(user.createFolder({"", "/d"}));
     },
     "200", Stored{"/d/", "/d/n=slow"}},
    {"FileDeleted", "/d/f", "UPDATE",
     [](auto& user, auto&) {
         require(user.deleteFile({"", "/d/f"}));
     },
     "404 The path does not exist.", Stored{"/d/"}},
    {"NameTaken", "/d/n", "CREATE",
     [](auto& user, auto&) {
         require(user.put({"", "/d/n"}, "quick"));
     },
     "409 The file already exists.", Stored{"/d/", "/d/f=first", "/d/n=quick"}},
    {"NameTakenByFolder", "/d/n", "CREATE_OR_UPDATE",
     [](auto& user, auto&) {
         require(user.createFolder({"", "/d/n"}));
     },
     "409 The path names a folder, not a file.", Stored{"/d/", "/d/f=first", "/d/n/"}},
    {"LoggedOut", "/d/n", "CREATE", [](auto& user, auto&) { require(user.logout()); }, ended,
     Stored{"/d/", "/d/f=first"}},
    {"TokenRotated", "/d/f", "UPDATE",
     [](auto&, auto& service) {
         service.run({"user", "rotate", "alice"});
     },
     ended, Stored{"/d/", "/d/f=first"}},
    {"AccountRemoved", "/d/f", "UPDATE",
     [](auto&, auto& service) {
         service.run({"user", "remove", "alice", "--force"});
     },
     ended, std::nullopt},
};

INSTANTIATE_TEST_SUITE_P(, Upload, ::testing::ValuesIn(changes),
                         [](const auto& each) { return each.param.name; });

TEST_F(ChangedMidway, AHandleCommitsOnlyWhereItsFileCanStillBe)
{
    const auto open = [&](const std::string& path) {
        return parseXml(require(user.openReadWrite({"", path}, "CREATE", false)).body).only("FileHandleId");
    };
    const auto orphaned = open("/d/n");
    require(user.deleteFolder({"", "/d"}, true));
    EXPECT_EQ(user.closeHandle(orphaned, true).status, 409);
    const auto late = open("/n");
    require(user.put({"", "/n"}, "quick"));
    EXPECT_EQ(outcomeOf(user.closeHandle(late, true)), "409 The file already exists.");
    EXPECT_EQ(user.read({"", "/n"}).body, "quick");

    const auto forgotten = open("/m");
    require(user.logout());
    require(user.login(token));
    EXPECT_EQ(user.closeHandle(forgotten, true).status, 400);
    EXPECT_EQ(user.attributes({"", "/m"}).status, 404);
}

/// The content is larger than what the sockets buffer: the service still sends when the change is made.
TEST_F(ChangedMidway, ADownloadThatBeganEndsWholeAndTheNextIsJudgedAnew)
{
    constexpr std::size_t size = 24 << 20;
    const auto bobsToken = service.addUser("bob");
    ServiceUser bob(service.url());
    const Place file{"alice", "/d/f"};
    const auto fill = [&](char c) {
        require(user.put(file, std::string(size, c), "CREATE_OR_UPDATE", false));
    };

    struct Row {
        std::string name;
        std::function<void(const std::string& grant)> change;
        std::string next;
    };

    const Row rows[] = {
        {"revoked", [&](auto& grant) { require(user.revoke(grant)); }, "404 The path does not exist."},
        {"moved",
         [&](auto&) {
             require(user.move(file, {"alice", "/d/g"}, false));
         },
         "404 The path does not exist."},
        {"deleted", [&](auto&) { require(user.deleteFile(file)); }, "404 The path does not exist."},
        {"replaced", [&](auto&) { fill('z'); }, std::string(size, 'z')},
        {"logged out", [&](auto&) { require(bob.logout()); }, ended},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fill('a');
        const auto grant = parseXml(require(user.grant(file, "bob")).body).only("PermissionId");
        require(bob.login(bobsToken));
        ServiceUser reader(service.url());
        reader.useSession(bob.session());
        const auto begun = reader.read(file, [&] { row.change(grant); });
        EXPECT_EQ(begun.status, 200);
        EXPECT_TRUE(begun.body == std::string(size, 'a'));
        const auto next = reader.read(file);
        EXPECT_TRUE((next.status == 200 ? next.body : outcomeOf(next)) == row.next) << next.status;
    }
}

} // namespace
} // namespace tarnd::test
