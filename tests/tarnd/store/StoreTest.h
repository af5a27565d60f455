#pragma once

#include "tarnd/store/Database.h"
#include "tarnd/store/Dialect.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/Store.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>

namespace tarnd {

/// An empty place for a store: a folder of its own and, when TARN_TEST_DATABASE is a postgresql:// URL, a
/// schema of its own in that database; otherwise SQLite in the folder. Both go with this object.
class StorePlace {
public:
    StorePlace()
    {
        if (!base.empty())
            databaseUrl = base + (base.find('?') == std::string::npos ? "?" : "&") +
                          "options=-csearch_path%3D" + schema + "&application_name=" + schema;
        std::filesystem::create_directories(folder);
        administer("CREATE SCHEMA " + schema);
    }

    ~StorePlace()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
        administer("DROP SCHEMA " + schema + " CASCADE");
    }

    std::unique_ptr<Dialect> dialect() const
    {
        return isSqlite() ? sqliteDialect(folder / "tarn.db") : postgresDialect(databaseUrl);
    }

    bool isSqlite() const { return base.empty(); }

    const std::string base = std::getenv("TARN_TEST_DATABASE") ? std::getenv("TARN_TEST_DATABASE") : "";
    const std::string schema = "tarn_" + randomHex(8);
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / schema;
    std::string databaseUrl;

private:
    void administer(const std::string& statement) const
    {
        if (!isSqlite()) Database(postgresDialect(base)).write([&](Transaction& sql) { sql.run(statement); });
    }
};

/// A store with the users alice and bob, a clock turned by hand, and short ways to say what a test does.
class StoreTest : public testing::Test {
protected:
    using Kind = ServiceError::Kind;

    void SetUp() override
    {
        open();
        alice = login("alice");
        bob = login("bob");
    }

    StoreOptions options()
    {
        StoreOptions options;
        options.dataDir = place.folder;
        options.databaseUrl = place.databaseUrl;
        options.keepFree = keepFree;
        options.clock = [this] { return now.load(); };
        options.writeListener = [this](WriteStep step) {
            if (listener) listener(step);
        };
        return options;
    }

    void open(Purpose purpose = Purpose::serve)
    {
        store.reset();
        store = std::make_unique<Store>(options(), purpose);
    }

    Caller login(const std::string& user)
    {
        return store->sessions().touch(store->sessions().login(store->accounts().add(user)));
    }

    static Location at(const std::string& path, const std::string& bucket = {})
    {
        return {ItemPath::fromText(path), bucket};
    }

    VersionStamp put(const Caller& caller, const Location& location, const std::string& bytes,
                     PutOptions options = {})
    {
        const auto upload = store->catalog().put(caller, location, options, bytes.size());
        upload->write(bytes.data(), bytes.size());
        return upload->commit();
    }

    VersionStamp putVersion(const std::string& path, const std::string& bytes)
    {
        return put(alice, at(path), bytes, {CreateMode::createOrUpdate, true});
    }

    void folder(const std::string& path) { store->catalog().createFolder(alice, at(path)); }

    static std::string bytesOf(OpenContent content)
    {
        std::string bytes(static_cast<std::size_t>(content.size) + 1, '\0');
        bytes.resize(content.bytes.read(bytes.data(), bytes.size()));
        return bytes;
    }

    std::string get(const Caller& caller, const Location& location, const VersionChoice& version = {})
    {
        return bytesOf(store->catalog().read(caller, location, version));
    }

    /// "docs/ notes/ a.txt b.txt": folders, then files.
    std::string names(const Caller& caller, const Location& location)
    {
        std::string text;
        const auto listing = store->catalog().list(caller, location);
        for (const auto& item : listing.folders)
            text.append(text.empty() ? "" : " ").append(item.name).append("/");
        for (const auto& item : listing.files)
            text.append(text.empty() ? "" : " ").append(item.name);
        return text;
    }

    /// How the action was refused; nothing when it was not.
    static std::optional<Kind> refusal(const std::function<void()>& action)
    {
        try {
            action();
            return std::nullopt;
        } catch (const ServiceError& error) {
            lastSentence() = error.what();
            return error.kind();
        }
    }

    static std::string& lastSentence()
    {
        thread_local std::string sentence;
        return sentence;
    }

    /// Files below a part of the data directory ("contents", "uploads"), locks aside.
    std::size_t filesIn(const std::string& part) const
    {
        if (store) store->finishDrops();
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(place.folder / part))
            count += entry.is_regular_file() && entry.path().filename() != "lock";
        return count;
    }

    std::string problems()
    {
        std::string text;
        for (const auto& problem : store->fsck().problems)
            text += problem + "\n";
        return text;
    }

    StorePlace place;
    std::atomic<std::int64_t> now = 1'700'000'000'000;
    std::uint64_t keepFree = 0; ///< a reserve takes time on a folder in memory
    std::function<void(WriteStep)> listener;
    std::unique_ptr<Store> store;
    Caller alice;
    Caller bob;
};

inline std::ostream& operator<<(std::ostream& out, ServiceError::Kind kind)
{
    return out << "kind " << static_cast<int>(kind);
}

} // namespace tarnd
