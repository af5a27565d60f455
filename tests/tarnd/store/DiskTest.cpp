#include "tests/tarnd/store/StoreTest.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

/// What the disk does to a service: a sync that is missing or fails, a disk that is full, files that are taken
/// away under it.

namespace {

std::mutex syncMutex;
std::vector<std::string> synced;         ///< files and folders, in the order of the calls
std::string failSyncOf = "no such file"; ///< a part of a name whose next sync fails

int sync(int fd, long call)
{
    const std::lock_guard lock(syncMutex);
    synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)));
    if (synced.back().find(failSyncOf) == std::string::npos) return static_cast<int>(::syscall(call, fd));
    failSyncOf = "no such file";
    errno = EIO;
    return -1;
}

} // namespace

// Stand before those of the C library, for the engine's calls as well.
extern "C" __attribute__((visibility("default"))) int fdatasync(int fd)
{
    return sync(fd, SYS_fdatasync);
}

extern "C" __attribute__((visibility("default"))) int fsync(int fd)
{
    return sync(fd, SYS_fsync);
}

namespace tarnd {

class DiskTest : public StoreTest {
protected:
    /// Puts the store onto a disk of this many bytes. False where this user may not mount one.
    bool moveToDiskOf(const char* size)
    {
        if (::unshare(CLONE_NEWNS) != 0) return false;
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        store.reset();
        if (::mount("tarn", place.folder.c_str(), "tmpfs", 0, size) != 0) return false;
        keepFree = 4 << 20;
        open();
        alice = login("alice");
        return true;
    }

    void TearDown() override
    {
        store.reset();
        ::umount2(place.folder.c_str(), MNT_DETACH);
    }
};

TEST_F(DiskTest, EachStepOfAWriteIsOnTheDiskBeforeTheNext)
{
    std::vector<std::string> steps;
    listener = [&](WriteStep step) {
        const std::lock_guard lock(syncMutex);
        steps.push_back(std::to_string(static_cast<int>(step)));
        for (const auto& path : std::exchange(synced, {}))
            steps.back() += path.find("/uploads/") != path.npos    ? " bytes"
                            : path.find("/contents/") != path.npos ? " folder"
                                                                   : " log";
    };
    put(alice, at("/first"), "the first commit of a connection syncs the head of the log as well");
    steps.clear();
    synced.clear();
    put(alice, at("/f"), "bytes");
    const std::vector<std::string> expected{
        "0", "1 bytes", "2", "3 folder", "4", place.isSqlite() ? "5 log" : "5", "6"};
    EXPECT_EQ(steps, expected);
}

/// The leader of a transaction runs those who sleep behind it; one that fails takes back its own part only.
TEST_F(DiskTest, WritesThatWaitShareACommitAndFailByThemselves)
{
    if (!place.isSqlite()) GTEST_SKIP() << "PostgreSQL gathers commits itself";
    Database database(place.dialect());
    const auto set = [&](const std::string& name, bool fails) {
        database.write([&](Transaction& sql) {
            sql.run("INSERT INTO meta (name, value) VALUES ($1, '1')", name);
            if (fails) throw sentences::busy();
        });
    };
    set("first", false); // a new connection syncs the head of the log as well
    std::vector<std::thread> others;
    std::optional<Kind> failed;
    database.write([&](Transaction&) {
        const auto startAsleep = [&](auto action) {
            std::atomic<pid_t> id = 0;
            others.emplace_back([&id, action] {
                id = ::gettid();
                action();
            });
            std::string state; // "ID (name) S …" once it sleeps, which it does only in the queue
            while (id == 0 || state.find(") S") == std::string::npos)
                std::getline(std::ifstream("/proc/self/task/" + std::to_string(id) + "/stat"), state);
        };
        startAsleep([&] { set("joins", false); });
        startAsleep([&] { failed = refusal([&] { set("fails", true); }); });
        startAsleep([&] { set("joins too", false); });
        const std::lock_guard lock(syncMutex);
        synced.clear();
    });
    for (auto& other : others)
        other.join();
    EXPECT_EQ(synced.size(), 1U);
    EXPECT_EQ(failed, Kind::unavailable);
    const auto names = database.read([](Transaction& sql) {
        return sql.rows<std::string>("SELECT name FROM meta WHERE value = '1' ORDER BY name");
    });
    EXPECT_EQ(names, (decltype(names){{"first"}, {"joins"}, {"joins too"}}));
}

/// A crash after it finds the commit in the log or does not; its content must be there in both cases.
TEST_F(DiskTest, AFailedSyncAtTheCommitKeepsTheContent)
{
    if (!place.isSqlite()) GTEST_SKIP() << "PostgreSQL syncs in its own process";
    put(alice, at("/before"), "1");
    listener = [&](WriteStep step) {
        const std::lock_guard lock(syncMutex);
        if (step == WriteStep::transactionOpen) failSyncOf = "tarn.db-wal";
    };
    EXPECT_EQ(refusal([&] { put(alice, at("/f"), "bytes"); }), Kind::internal);
    EXPECT_NE(lastSentence().find("may have happened"), std::string::npos) << lastSentence();
    listener = {};

    StorePlace crashed; // what the disk holds now
    std::filesystem::copy(place.folder, crashed.folder, std::filesystem::copy_options::recursive);
    std::filesystem::remove(crashed.folder / "tarn.db-shm");
    auto restarted = options();
    restarted.dataDir = crashed.folder;
    EXPECT_TRUE(Store(restarted, Purpose::serve).fsck().clean());

    put(alice, at("/after"), "2");
    open();
    EXPECT_EQ(get(alice, at("/after")), "2");
    EXPECT_EQ(problems(), "");
}

TEST_F(DiskTest, AFirstStartThatFailsLeavesNoIdBehind)
{
    StorePlace fresh;
    auto first = options();
    first.dataDir = fresh.folder;
    first.databaseUrl = fresh.databaseUrl;
    failSyncOf = "store-id";
    EXPECT_EQ(refusal([&] { Store(first, Purpose::serve); }), Kind::internal);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(fresh.folder))
        EXPECT_EQ(entry.path().filename().string().find("store-id"), std::string::npos) << entry.path();
}

TEST_F(DiskTest, AFullDiskRefusesUploadsEarlyAndIsEmptiedThroughTheService)
{
    if (!place.isSqlite() || !moveToDiskOf("size=32m")) GTEST_SKIP() << "needs SQLite and a disk of its own";
    put(alice, at("/kept"), "bytes");
    put(alice, at("/big"), std::string(2 << 20, 'x'));
    const auto announce = [&](std::uint64_t size) {
        return store->catalog().put(alice, at("/new"), {}, size);
    };
    EXPECT_EQ(refusal([&] { announce(1'000'000'000'000'000'000); }), Kind::insufficientStorage);
    {
        const auto first = announce(16 << 20);
        EXPECT_EQ(refusal([&] { announce(16 << 20); }), Kind::insufficientStorage) << "both do not fit";
    }
    EXPECT_EQ(refusal([&] { announce(16 << 20); }), std::nullopt) << "the first was given up";
    const auto endless = store->catalog().put(alice, at("/new"), {}, std::nullopt);
    const std::string piece(1 << 20, 'x');
    EXPECT_EQ(refusal([&] {
                  for (int i = 0; i < 32; ++i)
                      endless->write(piece.data(), piece.size());
              }),
              Kind::insufficientStorage);
    EXPECT_GE(std::filesystem::space(place.folder).available, keepFree);
    const auto send = [&](const char* path) {
        return store->catalog().put(alice, at(path), {.isComing = true}, 1 << 20);
    };
    EXPECT_EQ(refusal([&] { send("/new"); }), Kind::insufficientStorage);
    EXPECT_EQ(refusal([&] { send("/none/new"); }), Kind::conflict) << "room would not help";

    std::ofstream filler(place.folder / "filler"); // another program
    while (filler << std::string(4096, 'x') && filler.flush()) {
    }
    EXPECT_EQ(refusal([&] { announce(1); }), Kind::insufficientStorage);
    const auto token = store->accounts().rotate("alice");
    for (int i = 0; i < 20; ++i)
        alice = store->sessions().touch(store->sessions().login(token));
    store->catalog().move(alice, at("/kept"), at("/moved"), false);
    store->catalog().deleteFile(alice, at("/big"));
    EXPECT_EQ(get(alice, at("/moved")), "bytes");

    filler.close();
    std::filesystem::remove(place.folder / "filler");
    put(alice, at("/f"), "bytes");
    EXPECT_TRUE(std::filesystem::exists(place.folder / "reserve")) << "for the next time";
    EXPECT_EQ(problems(), "");
}

TEST_F(DiskTest, NothingIsAcknowledgedOverADatabaseThatWasTakenAway)
{
    if (!place.isSqlite()) GTEST_SKIP() << "has no database file";
    for (const auto* file : {"tarn.db", "tarn.db-wal"})
        for (const bool replaced : {false, true}) {
            put(alice, at("/f"), "bytes");
            const auto path = place.folder / file;
            std::filesystem::rename(path, place.folder / "away");
            if (replaced) std::filesystem::copy_file(place.folder / "away", path);
            EXPECT_EQ(refusal([&] { put(alice, at("/g"), "bytes"); }), Kind::internal) << file;
            EXPECT_EQ(refusal([&] { store->catalog().deleteFile(alice, at("/f")); }), Kind::internal) << file;
            std::filesystem::rename(place.folder / "away", path);
            open();
            EXPECT_EQ(names(alice, at("/")), "f");
        }
}

} // namespace tarnd
