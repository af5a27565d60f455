#include "tests/tarnd/store/StoreTest.h"

#include "tarnd/store/ContentFolder.h"

/// What a killed process, a full disk, a damaged disk or a wrong start may do to stored files.
namespace tarnd {

class RecoveryTest : public StoreTest {
protected:
    std::filesystem::path onlyContent() const
    {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(place.folder / "contents"))
            if (entry.is_regular_file()) return entry.path();
        return {};
    }

    void write(const std::filesystem::path& path, const std::string& bytes) const
    {
        std::ofstream(path, std::ios::binary) << bytes;
    }

    static std::string read(const std::filesystem::path& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// Overwrites the first page of a table or an index.
    void damage(const std::string& name)
    {
        constexpr std::int64_t pageBytes = 4096;
        store.reset();
        const auto page = Database(place.dialect()).read([&](Transaction& sql) {
            return sql.value<std::int64_t>("SELECT rootpage FROM sqlite_master WHERE name = $1", name);
        });
        std::fstream file(place.folder / "tarn.db", std::ios::binary | std::ios::in | std::ios::out);
        file.seekp((page.value() - 1) * pageBytes) << std::string(3000, 'x');
    }
};

/// Takes the schema back to what it was.
TEST_F(RecoveryTest, AStoreOfEveryEarlierVersionIsBroughtUpToDate)
{
    const std::pair<int, std::vector<std::string>> steps[] = {
        {4, {"DROP INDEX sessions_address", "ALTER TABLE sessions DROP COLUMN address"}},
        {3,
         {"CREATE TABLE old (token TEXT PRIMARY KEY, node BIGINT NOT NULL UNIQUE REFERENCES nodes(id) ON "
          "DELETE "
          "CASCADE)",
          "INSERT INTO old SELECT token, node FROM links WHERE expires = 0", "DROP TABLE links",
          "ALTER TABLE old RENAME TO links"}},
        {2,
         {"ALTER TABLE users DROP COLUMN disabled", "ALTER TABLE users DROP COLUMN quota",
          "ALTER TABLE users DROP COLUMN used"}},
        {1, {"ALTER TABLE versions DROP COLUMN revision"}},
    };
    const auto id = put(alice, at("/f"), "old").id;
    const auto link = store->links().get(alice, at("/f"));
    const auto carol = store->accounts().add("carol");
    for (const auto oldest : {4, 3, 2, 1}) {
        const auto session = store->sessions().login(carol, "192.0.2.7");
        store.reset();
        Database(place.dialect()).write([&](Transaction& sql) {
            for (const auto& [version, statements] : steps)
                for (const auto& statement : statements)
                    if (version >= oldest) sql.run(statement);
            sql.run("UPDATE meta SET value = $1 WHERE name = 'schema'", std::to_string(oldest));
        });
        open();
        if (place.isSqlite()) {
            const auto copied =
                Database(sqliteDialect(place.folder / "tarn.db.before-upgrade")).read([](auto& sql) {
                    return sql.template value<std::string>("SELECT value FROM meta WHERE name = 'schema'");
                });
            EXPECT_EQ(copied, std::to_string(oldest));
        }
        EXPECT_EQ(store->sessions().touch(session).user, "carol");
        EXPECT_EQ(store->sessions().list().back().address, "");
        EXPECT_EQ(get(alice, at("/f")), "old");
        EXPECT_EQ(problems(), "");
        EXPECT_EQ(store->links().get(alice, at("/f")), link);
        EXPECT_EQ(bytesOf(std::get<OpenContent>(store->links().open(link))), "old");
        EXPECT_NE(store->links().get(alice, at("/f"), now + oldest), link);
    }
    put(alice, at("/f"), "new");
    EXPECT_EQ(store->catalog().read(alice, at("/f")).tag.find(id + "-"), 0U);
}

/// Several processes may serve one database: one that starts meets uploads of the others at every step.
TEST_F(RecoveryTest, AStartBesideALiveUploadLeavesItsContentAlone)
{
    int starts = 0;
    listener = [&](WriteStep) {
        ++starts;
        Database database(place.dialect());
        DiskRoom room(place.folder, 0);
        ContentFolder contents(place.folder, room);
        const auto report = recover({database, contents, systemTime});
        EXPECT_EQ(report.abandonedUploads + report.orphanedContents, 0U);
    };
    put(alice, at("/f"), "bytes");
    listener = {};
    EXPECT_EQ(starts, 7);
    EXPECT_EQ(get(alice, at("/f")), "bytes");
}

/// Whether such a commit took place cannot be known, so its content must stay until the rows can be asked.
TEST_F(RecoveryTest, AConnectionLostAtTheCommitFailsOneUploadOnly)
{
    if (place.isSqlite()) GTEST_SKIP() << "has no connection to lose";
    listener = [&](WriteStep step) {
        if (step != WriteStep::transactionOpen) return;
        Database(place.dialect()).read([&](Transaction& sql) {
            sql.rows<std::int64_t>(
                "SELECT CASE WHEN pg_terminate_backend(pid) THEN 1 ELSE 0 END FROM pg_stat_activity WHERE "
                "application_name = $1 AND state = 'idle in transaction' AND pid <> pg_backend_pid()",
                place.schema);
        });
    };
    EXPECT_EQ(refusal([&] { put(alice, at("/f"), "bytes"); }), Kind::internal);
    listener = {};
    EXPECT_EQ(filesIn("contents"), 1U);
    put(alice, at("/g"), "bytes");
    EXPECT_EQ(names(alice, at("/")), "g");
    open();
    EXPECT_EQ(store->recovery().orphanedContents, 1U);
    EXPECT_EQ(problems(), "");
}

TEST_F(RecoveryTest, ContentsWithoutARowGoAtTheStart)
{
    put(alice, at("/f"), "bytes");
    const std::string id(32, 'a');
    write(place.folder / "contents" / "aa" / id, "deleted before the crash, unlinked never");
    EXPECT_NE(problems(), "");
    open();
    EXPECT_EQ(store->recovery().orphanedContents, 1U);
    EXPECT_EQ(filesIn("contents"), 1U);
    EXPECT_EQ(problems(), "");
}

TEST_F(RecoveryTest, ARowWithoutItsContentStopsTheStartUntilItIsSetAside)
{
    put(alice, at("/kept"), "other bytes");
    put(alice, at("/f"), "bytes");
    putVersion("/kept", "newer");
    store.reset();
    for (const auto& entry : std::filesystem::recursive_directory_iterator(place.folder / "contents"))
        if (entry.is_regular_file() && entry.file_size() == 5) std::filesystem::remove(entry.path());
    try {
        open();
        ADD_FAILURE() << "started";
    } catch (const ServiceError& error) {
        EXPECT_NE(error.detail().find("alice:/f, version 1"), std::string::npos) << error.detail();
    }
    open(Purpose::check);
    EXPECT_NE(problems().find("alice:/f, version 1"), std::string::npos);
    const auto gone = store->setMissingAside();
    ASSERT_EQ(gone.size(), 2U);
    EXPECT_EQ(gone[0].find("alice:/kept, version 2: content "), 0U) << gone[0];
    EXPECT_EQ(gone[1].find("alice:/f, version 1: content "), 0U) << gone[1];
    std::ifstream record(place.folder / "set-aside.txt");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(record), {}), gone[0] + "\n" + gone[1] + "\n");
    EXPECT_EQ(problems(), "");
    open();
    EXPECT_EQ(names(alice, at("/")), "kept");
    EXPECT_EQ(get(alice, at("/kept")), "other bytes");
}

TEST_F(RecoveryTest, FsckFindsDamagedContentsAndABrokenTree)
{
    for (const auto* path : {"/d", "/looped", "/flat", "/flat/in", "/stolen"})
        folder(path);
    put(alice, at("/d/f"), "bytes");
    const auto report = store->fsck();
    EXPECT_EQ(report.contents, 1U);
    EXPECT_EQ(report.bytes, 5U);
    const auto expectProblem = [&](const char* problem) {
        EXPECT_NE(problems().find(problem), std::string::npos) << problem << "\n" << problems();
    };
    write(onlyContent(), "bytez");
    expectProblem("alice:/d/f, version 1: its content is damaged");
    write(onlyContent(), "byte");
    expectProblem("4 bytes instead of 5");
    write(onlyContent(), "bytes");
    EXPECT_EQ(problems(), "");
    write(place.folder / "contents" / ".DS_Store", "");
    EXPECT_EQ(problems(), "The file .DS_Store lies among the contents but is not one.\n");

    const char* const damages[][2] = {
        {"UPDATE nodes SET current = 'x' WHERE name = 'f'", "has no current version"},
        {"UPDATE nodes SET parent = id WHERE name = 'looped'", "cannot be reached"},
        {"UPDATE nodes SET kind = 1 WHERE name = 'flat'", "lies in a file"},
        {"UPDATE nodes SET owner = owner + 1 WHERE name = 'stolen'", "another owner"},
    };
    Database database(place.dialect());
    for (const auto& [damage, problem] : damages) {
        EXPECT_EQ(problems().find(problem), std::string::npos);
        database.write([&, damage = damage](Transaction& sql) { sql.run(damage); });
        expectProblem(problem);
    }
}

/// Fresh or with a store of its own: in both cases every content here would be an orphan.
TEST_F(RecoveryTest, AnotherDatabaseDoesNotTakeTheContentsForOrphans)
{
    put(alice, at("/f"), "bytes");
    store.reset();
    StorePlace other;
    auto wrong = options();
    wrong.databaseUrl = other.databaseUrl;
    for (const bool fresh : {true, false}) {
        auto others = options();
        others.dataDir = other.folder;
        others.databaseUrl = other.databaseUrl;
        if (!fresh) Store(others, Purpose::serve).accounts().add("carol");
        if (place.isSqlite())
            for (const auto* file : {"tarn.db", "tarn.db-wal", "tarn.db-shm"}) {
                std::filesystem::remove(place.folder / file);
                if (!fresh && std::filesystem::exists(other.folder / file))
                    std::filesystem::copy_file(other.folder / file, place.folder / file);
            }
        EXPECT_EQ(refusal([&] { Store(wrong, Purpose::serve); }), Kind::conflict) << fresh;
        EXPECT_EQ(filesIn("contents"), 1U);
    }
}

TEST_F(RecoveryTest, ADamagedDatabaseIsToldAndReplacesNoBackup)
{
    if (!place.isSqlite()) GTEST_SKIP() << "damages the database file";
    put(alice, at("/f"), "bytes");
    const StorePlace backup;
    const auto backUp = [&] { store->copyTo(backup.folder, CopyPurpose::backup); };
    backUp();
    const auto good = read(backup.folder / "tarn.db");
    for (const auto* part : {"links", "versions_content"}) { // of these only the second is read for a copy
        damage(part);
        open(Purpose::copy);
        EXPECT_EQ(refusal(backUp), Kind::internal) << part;
        EXPECT_EQ(lastSentence().find("The database is damaged"), 0U) << lastSentence();
        EXPECT_TRUE(read(backup.folder / "tarn.db") == good) << part;
        EXPECT_EQ(problems().find("The database is damaged: SQLite 11: "), 0U) << part << ": " << problems();
    }
}

/// An empty one in its place would take the log, and with it the last changes, for that of another.
TEST_F(RecoveryTest, ADatabaseThatIsAwayIsNotMadeAnew)
{
    if (!place.isSqlite()) GTEST_SKIP() << "has no database file";
    put(alice, at("/f"), "bytes");
    StorePlace killed; // with its log, which the end of this store would take into the database
    std::filesystem::copy(place.folder, killed.folder, std::filesystem::copy_options::recursive);
    const auto database = killed.folder / "tarn.db", away = killed.folder / "away";
    auto others = options();
    others.dataDir = killed.folder;
    std::filesystem::rename(database, away);
    const auto expectRefusal = [&](const char* what, auto action) {
        lastSentence().clear();
        EXPECT_EQ(refusal(action), Kind::conflict) << what;
        EXPECT_EQ(lastSentence().find("tarn.db is missing"), 0U) << what << ": " << lastSentence();
        EXPECT_FALSE(std::filesystem::exists(database) && std::filesystem::file_size(database) > 0) << what;
    };
    for (const bool empty : {false, true}) {
        if (empty) write(database, "");
        for (const auto purpose : {Purpose::serve, Purpose::administer, Purpose::copy, Purpose::check})
            expectRefusal(empty ? "empty" : "away", [&] { Store(others, purpose); });
    }
    std::filesystem::remove(database);
    expectRefusal("target", [&] { store->copyTo(killed.folder, CopyPurpose::restore); });
    std::filesystem::remove(killed.folder / "store-id"); // as where contents are in an object store
    expectRefusal("log", [&] { Store(others, Purpose::serve); });
    std::filesystem::copy(place.folder / "store-id", killed.folder);
    std::filesystem::rename(away, database);
    EXPECT_EQ(Store(others, Purpose::serve).fsck().contents, 1U);
}

TEST_F(RecoveryTest, AStoreThatLostItsIdSaysWhichFileItWants)
{
    put(alice, at("/f"), "bytes");
    const auto file = place.folder / "store-id";
    const auto id = read(file);
    const auto expectRefusal = [&](const char* trouble) {
        lastSentence().clear();
        EXPECT_EQ(refusal([&] { open(place.isSqlite() ? Purpose::check : Purpose::serve); }), Kind::conflict);
        EXPECT_NE(lastSentence().find(trouble), std::string::npos) << trouble << ": " << lastSentence();
    };
    write(file, "");
    expectRefusal("store-id is empty");
    std::filesystem::remove(file);
    expectRefusal("store-id is missing");
    std::filesystem::create_symlink("store-id", file);
    expectRefusal("store-id: Too many levels");
    std::filesystem::remove(file);
    write(file, id);
    open();
    EXPECT_EQ(get(alice, at("/f")), "bytes");
}

TEST_F(RecoveryTest, NoLookAtADirectoryThatIsNotThereMakesOne)
{
    auto nowhere = options();
    nowhere.dataDir = place.folder / "none";
    for (const auto purpose : {Purpose::administer, Purpose::copy, Purpose::check})
        EXPECT_EQ(refusal([&] { Store(nowhere, purpose); }), Kind::badRequest);
    EXPECT_FALSE(std::filesystem::exists(nowhere.dataDir));
}

} // namespace tarnd
