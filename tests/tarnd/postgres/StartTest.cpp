// What a start over PostgreSQL accepts and refuses: a wrong start takes other people's contents for orphans.
#include "tarnd/store/Store.h"
#include "tests/support/TarndProcess.h"
#include "tests/tarnd/postgres/OwnDatabase.h"

#include <filesystem>
#include <fstream>
#include <future>
#include <gmock/gmock.h>

namespace tarnd::test {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

class Start : public OwnDatabase {
protected:
    ~Start() override { fs::remove_all(root); }

    /// Empty when it starts, otherwise why not.
    std::string start(const std::string& folder, WriteListener listener = {})
    {
        try {
            Store store({root / folder, url(), {}, 30, 0, 4, systemTime, std::move(listener)},
                        Purpose::serve);
            return {};
        } catch (const ServiceError& error) {
            return error.what();
        }
    }

    const fs::path root = fs::temp_directory_path() / ("tarn-start-" + std::to_string(::getpid()));
};

TEST_F(Start, OneContentFolderWinsAnEmptyDatabase)
{
    for (int round = 0; round < 5; ++round) {
        auto other = std::async(std::launch::async, [&] { return start("b"); });
        const auto mine = start("a"), theirs = other.get();
        EXPECT_NE(mine.empty(), theirs.empty()) << mine << theirs;
        EXPECT_THAT(mine + theirs, HasSubstr("is it mounted?"));
        EXPECT_EQ(start(mine.empty() ? "a" : "b"), "");
        ask("DROP SCHEMA public CASCADE; CREATE SCHEMA public");
        fs::remove_all(root);
    }
    EXPECT_EQ(start("a"), "");
    EXPECT_THAT(start("unmounted"), HasSubstr("is it mounted?"));
    ask("DELETE FROM meta WHERE name = 'store'"); // died after the folder had its id
    EXPECT_EQ(start("a"), "");
}

/// A start on another machine, where locks did not reach, has taken the upload for left behind.
TEST_F(Start, NoRowNamesAContentThatIsGone)
{
    const auto removeContents = [&](WriteStep step) {
        if (step == WriteStep::folderDurable)
            for (const auto& entry : fs::recursive_directory_iterator(root / "a/contents"))
                if (entry.is_regular_file()) fs::remove(entry);
    };
    {
        Store store({root / "a", url(), {}, 30, 0, 4, systemTime, removeContents}, Purpose::serve);
        const auto alice = store.sessions().touch(store.sessions().login(store.accounts().add("alice")));
        EXPECT_THROW(store.catalog().put(alice, {ItemPath::fromText("/f"), ""}, {}, 0)->commit(),
                     ServiceError);
    }
    EXPECT_EQ(start("a"), "");
}

TEST_F(Start, TellsWhatIsWrongInItsOwnWords)
{
    struct Case {
        std::string url;
        int exitCode;
        std::string sentence;
    };

    const std::string form = "its URL does not have the form postgresql://";
    ask("CREATE ROLE " + name + " LOGIN");
    auto asRole = url();
    asRole.replace(asRole.find("//") + 2, 4, name);
    const Case cases[] = {
        {"mysql://h/n", 2, "begins with postgresql://"},
        {"nonsense", 2, "begins with postgresql://"},
        {"postgresql://h:99999/n", 2, form},
        {"postgresql://h/n?no_such_key=1", 2, form},
        {"postgresql://u:secret@h/%zz", 2, form},
        {url("user=nobody"), 1, "tarnd: The database cannot be opened."},
        {"postgresql://nobody@127.0.0.1:1,127.0.0.1/n", 1, "tarnd: The database cannot be opened."},
        {asRole, 1, "tarnd: The database grants too little"},
    };
    for (const auto& [url, exitCode, sentence] : cases) {
        const auto result = TarndProcess::over(url)->run({"user", "add", "alice"});
        EXPECT_EQ(result.exitCode, exitCode) << url;
        EXPECT_THAT(result.err, HasSubstr(sentence));
        EXPECT_EQ(result.err.substr(0, result.err.find('\n')).find("[PostgreSQL]"), std::string::npos);
        EXPECT_EQ(result.err.find("secret"), std::string::npos);
    }

    EXPECT_EQ(start("a"), "");
    ask("GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA public TO PUBLIC");
    const auto service = TarndProcess::over(asRole, root / "a");
    service->start();
    EXPECT_NE(service->addUser("alice"), "");
    EXPECT_EQ(service->terminate(), 0);
    ask("DROP OWNED BY " + name + "; DROP ROLE " + name);
}

} // namespace
} // namespace tarnd::test
