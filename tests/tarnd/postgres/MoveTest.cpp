// A store that moves from SQLite to PostgreSQL and comes back as a backup of it: everything is there afterwards, and
// what could lose or mix something is refused.
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/postgres/OwnDatabase.h"

#include <filesystem>
#include <gmock/gmock.h>

namespace tarnd::test {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

class Move : public OwnDatabase {
protected:
    /// Fills a store and tells what alice gets to see of it.
    std::string fill()
    {
        source->start();
        alice = source->addUser("alice");
        source->addUser("bob");
        source->addUser("later");
        source->run({"user", "remove", "later"});
        source->run({"user", "quota", "alice", "5M"});
        ServiceUser user(source->url());
        require(user.login(alice));
        user.createFolder({"", "/old"});
        for (int i = 0; i < 1100; ++i)
            require(user.createFolder({"", "/old/folder" + std::to_string(i)}));
        for (int i = 0; i < 20; ++i)
            require(user.put({"", "/old/" + std::to_string(i)}, std::to_string(i)));
        require(user.put({"", "/old/ü \"'\\"}, std::string(300'000, 'x')));
        require(user.put({"", "/old/0"}, "again", "UPDATE"));
        // Now a folder has a greater id than what is in it.
        user.createFolder({"", "/new"});
        require(user.move({"", "/old"}, {"", "/new/old"}, false));
        require(user.grant({"", "/new"}, "bob"));
        require(user.grant({"", "/new/old/1"}, "nobody yet", true));
        require(user.link({"", "/new/old/2"}));
        require(user.openReadWrite({"", "/new/handle"}, "CREATE", false));
        kept = user.session();
        const auto seen = seenAt(*source);
        EXPECT_EQ(source->terminate(), 0);
        return seen;
    }

    /// With the session that was there before.
    std::string seenAt(const TarndProcess& service)
    {
        ServiceUser user(service.url());
        user.useSession(kept);
        std::string text;
        for (const auto& reply :
             {user.list({"", "/new/old"}), user.versions({"", "/new/old/0"}), user.grants(), user.links(),
              user.read({"", "/new/old/0"}), user.read({"", "/new/old/ü \"'\\"})})
            text += require(reply).body;
        for (std::size_t at; (at = text.find(service.url())) != text.npos;) // in links
            text.erase(at, service.url().size());
        const auto session = service.run({"session", "list"}).out; // between id and address: the last use
        return text + service.run({"user", "list", "--long"}).out + session.substr(0, 32) +
               session.substr(session.rfind(' '));
    }

    std::unique_ptr<TarndProcess> targetFor(const TarndProcess& from) const
    {
        return TarndProcess::over(url(), from.dataDir(), contents);
    }

    CommandResult move() { return targetFor(*source)->run({"move"}); }

    void bringBack() const
    {
        for (const std::string name : {"tarn.db", "store-id"})
            if (fs::exists(source->dataDir() / (name + ".moved")))
                fs::rename(source->dataDir() / (name + ".moved"), source->dataDir() / name);
    }

    const std::string contents = ownObjects(); ///< empty: they stay in the folder
    const std::unique_ptr<TarndProcess> source = TarndProcess::over("");
    std::string alice, kept; ///< token and session
};

TEST_F(Move, TakesEverythingAlongAndABackupBringsItBack)
{
    const auto before = fill();
    source->start();
    EXPECT_THAT(move().err, HasSubstr("stop it first"));
    EXPECT_EQ(source->terminate(), 0);

    // Refused, but the tables are there from now on.
    EXPECT_EQ(TarndProcess::over(url(), source->dataDir())->run({"user", "list"}).exitCode, 1);
    ask("CREATE FUNCTION fail() RETURNS trigger AS 'BEGIN RAISE ''no''; END' LANGUAGE plpgsql; "
        "CREATE TRIGGER failing BEFORE INSERT ON handles FOR EACH ROW EXECUTE FUNCTION fail()");
    EXPECT_EQ(move().exitCode, 1);
    EXPECT_EQ(ask("SELECT COUNT(*) FROM nodes"), "0") << "all or nothing";
    ask("DROP TRIGGER failing ON handles");
    const auto moved = move();
    EXPECT_EQ(moved.exitCode, 0) << moved.err;
    bringBack(); // as if it had died before it set the source aside
    EXPECT_EQ(move().exitCode, 0);
    EXPECT_EQ(move().exitCode, 1) << "nothing is left to move";

    const auto target = targetFor(*source);
    target->start();
    EXPECT_EQ(seenAt(*target), before);
    const auto backup = source->dataDir().parent_path() / "backup";
    const auto taken = target->run({"backup", backup});
    EXPECT_EQ(taken.exitCode, contents.empty() ? 0 : 1) << taken.err;
    ServiceUser user(target->url());
    require(user.login(alice));
    require(user.createFolder({"", "/since"}));
    EXPECT_EQ(target->terminate(), 0);
    const auto checked = target->run({"fsck"});
    EXPECT_EQ(checked.exitCode, 0) << checked.out;

    if (contents.empty()) {
        const auto restored = TarndProcess::over("");
        const auto said = restored->run({"restore", backup});
        EXPECT_EQ(said.exitCode, 0) << said.out << said.err;
        restored->start();
        EXPECT_EQ(seenAt(*restored), before);
    }
    bringBack();
    EXPECT_THAT(move().err, HasSubstr("has changed there or here since"));
    const auto other = TarndProcess::over("");
    other->addUser("carol");
    EXPECT_THAT(targetFor(*other)->run({"move"}).err, HasSubstr("something else"));
}

} // namespace
} // namespace tarnd::test
