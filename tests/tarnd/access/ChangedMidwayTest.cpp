// What was allowed when a request began may no longer be when it ends. An upload counts as of its commit, a
// download as of its beginning.
#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/ServiceUser.h"

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <optional>

namespace tarnd::test {
namespace {

namespace fs = std::filesystem;

const std::string ended = "401 Your session has ended. Log in again.";
const std::string missing = "404 The path does not exist.";
const std::string taken = "409 The file already exists.";
const std::string folderThere = "409 The path names a folder, not a file.";
const std::string noFolder = "409 The folder \"/d\" does not exist.";

class ChangedMidway : public ::testing::Test {
protected:
    ChangedMidway() { service.start(); }

    ~ChangedMidway() override
    {
        EXPECT_EQ(service.terminate(), 0);
        const auto checked = service.run({"fsck"});
        EXPECT_EQ(checked.exitCode, 0) << checked.out << checked.err;
    }

    ServiceUser add(const std::string& name)
    {
        ServiceUser user(service.url());
        require(user.login(service.addUser(name)));
        return user;
    }

    /// All below the folder, with contents: "d/ d/f=first ".
    std::string allBelow(ServiceUser& user, const std::string& folder = {})
    {
        std::string all, listed = "/" + folder;
        if (!folder.empty()) listed.pop_back();
        const auto document = parseXml(require(user.list({"", listed})).body);
        for (const auto& file : document.child("Files").children) {
            const auto path = folder + file.only("Name");
            all += path + "=" + require(user.read({"", "/" + path})).body + " ";
        }
        for (const auto& below : document.child("Folders").children) {
            const auto path = folder + below.only("Name");
            all += path + "/ " + allBelow(user, path + "/");
        }
        return all;
    }

    TarndProcess service;
};

/// A file handle makes its file at the commit. It follows its folder, which an upload finds by the path.
TEST_F(ChangedMidway, AnUploadCountsAsOfItsCommit)
{
    struct Row {
        std::string name, path, mode;
        std::function<void(ServiceUser&)> change;
        std::string outcome, ofHandle;
        std::optional<std::string> stored; ///< in the end, if the account is
    };

    const Place d{"", "/d"}, e{"", "/e"}, f{"", "/d/f"}, n{"", "/d/n"};
    const std::string gone = "409 The file of this handle, or its folder, is no longer there.";
    const Row rows[] = {
        {"nothing", "/d/n", "CREATE", [](auto&) {}, "200", taken, "d/ d/f=first d/n=slow "},
        {"deleted", "/d/n", "CREATE", [&](auto& user) { user.deleteFolder(d, true); }, noFolder, gone, ""},
        {"moved", "/d/n", "CREATE", [&](auto& user) { user.move(d, e, false); }, noFolder, "200",
         "e/ e/f=first e/n= "},
        {"again", "/d/n", "CREATE", [&](auto& user) { user.deleteFolder(d, true), user.createFolder(d); },
         "200", gone, "d/ d/n=slow "},
        {"deletedFile", "/d/f", "UPDATE", [&](auto& user) { user.deleteFile(f); }, missing, gone, "d/ "},
        {"taken", "/d/n", "CREATE", [&](auto& user) { user.put(n, "quick"); }, taken, taken,
         "d/ d/f=first d/n=quick "},
        {"takenByFolder", "/d/n", "CREATE_OR_UPDATE", [&](auto& user) { user.createFolder(n); }, folderThere,
         folderThere, "d/ d/f=first d/n/ "},
        {"loggedOut", "/d/n", "CREATE", [](auto& user) { user.logout(); }, ended, ended, "d/ d/f=first "},
        {"rotated", "/d/n", "CREATE",
         [&](auto&) {
             service.run({"user", "rotate", "rotated"});
         },
         ended, ended, "d/ d/f=first "},
        {"removed",
         "/d/f",
         "UPDATE",
         [&](auto&) {
             service.run({"user", "remove", "removed", "--force"});
         },
         ended,
         ended,
         {}},
    };
    for (const auto& [name, path, mode, change, outcome, ofHandle, stored] : rows) {
        SCOPED_TRACE(name);
        auto user = add(name);
        require(user.createFolder(d));
        require(user.put(f, "first"));
        const auto handle =
            parseXml(require(user.openReadWrite({"", path}, mode, true)).body).only("FileHandleId");
        const auto upload =
            requestText("PUT", ServiceUser::targetOf("files", {"", path}, "&createMode=" + mode),
                        user.session(), "slow", "Expect: 100-continue\r\n");
        Wire wire(service.port());
        wire.send(upload.substr(0, upload.size() - 2));
        ASSERT_EQ(wire.receive().value().status, 100) << "the service has judged the head";
        change(user);
        wire.send("ow");
        EXPECT_EQ(outcomeOf(wire.receive().value()), outcome);
        EXPECT_EQ(outcomeOf(user.closeHandle(handle, true)), ofHandle);
        if (outcome == ended && stored) {
            require(user.login(service.run({"user", "rotate", name}).out.substr(0, 64)));
            EXPECT_EQ(outcomeOf(user.closeHandle(handle, true)),
                      "400 The session has no open file handle with this id.");
        }
        if (stored) {
            EXPECT_EQ(allBelow(user), *stored);
        }
    }
}

/// The contents are larger than what the sockets buffer: the service still sends when the change is made.
TEST_F(ChangedMidway, ADownloadThatBeganEndsWholeAndTheNextIsJudgedAnew)
{
    constexpr std::size_t size = 24 << 20;
    const Place file{"alice", "/f"};
    auto alice = add("alice"), bob = add("bob");
    const auto fill = [&](char c) {
        require(alice.put(file, std::string(size, c), "CREATE_OR_UPDATE", false));
    };
    std::string grant;
    const std::pair<std::string, std::function<void()>> rows[] = {
        {missing, [&] { require(alice.revoke(grant)); }},
        {missing,
         [&] {
             require(alice.move(file, {"", "/g"}, false));
         }},
        {missing, [&] { require(alice.deleteFile(file)); }},
        {std::string(size, 'z'), [&] { fill('z'); }},
        {ended, [&] { require(ServiceUser(service.url(), bob.session()).logout()); }},
    };
    for (const auto& [next, change] : rows) {
        fill('a');
        grant = parseXml(require(alice.grant(file, "bob")).body).only("PermissionId");
        const auto begun = bob.read(file, change);
        EXPECT_TRUE(begun.status == 200 && begun.body == std::string(size, 'a'));
        const auto after = bob.read(file);
        EXPECT_TRUE((after.status == 200 ? after.body : outcomeOf(after)) == next) << after.status;
    }
}

/// What is not there cannot be sent, and the client is not left waiting for it.
TEST_F(ChangedMidway, ADownloadEndsAtOnceWhenItsContentIsCutShort)
{
    if (service.usesObjects()) GTEST_SKIP() << "cuts contents in their folder";
    const Place file{"", "/f"};
    auto alice = add("alice");
    require(alice.put(file, std::string(24 << 20, 'a')));
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_THROW(alice.read(file,
                            [&] {
                                for (const auto& entry :
                                     fs::recursive_directory_iterator(service.dataDir() / "contents"))
                                    if (entry.is_regular_file()) fs::resize_file(entry, 1000);
                            }),
                 std::runtime_error);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(8));
    require(alice.deleteFile(file));
}

} // namespace
} // namespace tarnd::test
