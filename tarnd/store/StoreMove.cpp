#include "tarnd/store/StoreMove.h"

#include "tarnd/store/DataDirectory.h"
#include "tarnd/store/Database.h"
#include "tarnd/store/FileSystem.h"
#include "tarnd/store/FileVersions.h"
#include "tarnd/store/ObjectContents.h"
#include "tarnd/store/RowCopy.h"

#include <atomic>
#include <mutex>
#include <thread>

namespace tarnd {

namespace fs = std::filesystem;

namespace {

/// Waiting for the store is most of what a small content takes.
constexpr std::size_t contentsAtATime = 8;

std::string storeOf(Transaction& transaction)
{
    return transaction.value<std::string>("SELECT value FROM meta WHERE name = 'store'").value_or("");
}

/// A start that was tried and refused may have left tables and the id of the store.
bool isEmpty(Transaction& transaction, const std::string& ownId)
{
    const auto id = storeOf(transaction);
    return (id.empty() || id == ownId) &&
           !transaction.value<std::int64_t>("SELECT 1 FROM users LIMIT 1").has_value();
}

std::vector<StoredContent> contentsOf(Database& database)
{
    std::vector<StoredContent> contents;
    for (auto& [id, size, sha256] : database.read([](Transaction& transaction) {
             return transaction.rows<std::string, std::int64_t, std::string>(
                 "SELECT DISTINCT content, size, sha256 FROM versions ORDER BY content");
         }))
        contents.push_back({std::move(id), size, std::move(sha256)});
    return contents;
}

/// Hands on all bytes; returns whether they are those that the row tells of.
bool isWhole(ContentBytes bytes, const StoredContent& content,
             const std::function<void(const char*, std::size_t)>& take = {})
{
    if (!bytes || bytes.size() != static_cast<std::uint64_t>(content.size)) return false;
    Sha256 digest;
    std::vector<char> piece(256 * 1024);
    while (const auto got = bytes.read(piece.data(), piece.size())) {
        digest.update(piece.data(), got);
        if (take) take(piece.data(), got);
    }
    return digest.finish() == content.sha256;
}

/// What is there is read, not trusted: it may be of an attempt that was interrupted.
void bring(const Contents& source, ObjectContents& objects, const StoredContent& content)
{
    if (isWhole(objects.open(content.id), content)) return;
    const auto writer = objects.writeAs(content.id, static_cast<std::uint64_t>(content.size));
    const bool wasWhole = isWhole(source.open(content.id), content,
                                  [&](const char* data, std::size_t size) { writer->write(data, size); });
    if (!wasWhole)
        throw sentences::contentsMissing.because(content.id + " is missing or damaged; see tarnd fsck");
    writer->publish();
    if (!isWhole(objects.open(content.id), content))
        throw sentences::internal.because("content " + content.id + " is not what was put");
    writer->keep();
}

/// Several at a time; the first failure ends all.
class Bringing {
public:
    Bringing(const Contents& source, ObjectContents& objects, const std::vector<StoredContent>& contents,
             const std::function<void(const StoredContent&)>& brought)
        : source(source), objects(objects), contents(contents), brought(brought)
    {
    }

    void run()
    {
        {
            std::vector<std::jthread> threads;
            for (std::size_t i = 0; i < contentsAtATime; ++i)
                threads.emplace_back([this] { work(); });
        }
        if (failure) std::rethrow_exception(failure);
    }

private:
    void work()
    {
        for (auto at = next++; at < contents.size(); at = next++)
            try {
                bring(source, objects, contents[at]);
                const std::lock_guard lock(mutex);
                brought(contents[at]);
            } catch (...) {
                const std::lock_guard lock(mutex);
                if (!failure) failure = std::current_exception();
                next = contents.size();
            }
    }

    const Contents& source;
    ObjectContents& objects;
    const std::vector<StoredContent>& contents;
    const std::function<void(const StoredContent&)>& brought;
    std::atomic<std::size_t> next = 0;
    std::mutex mutex; ///< guards the member below and the calls of `brought`
    std::exception_ptr failure;
};

void requireAll(const Contents& source, const std::vector<StoredContent>& contents)
{
    for (const auto& content : contents)
        if (!source.has(content.id))
            throw sentences::contentsMissing.because(content.id + " is missing; see tarnd fsck");
}

} // namespace

/// Contents first, without a transaction: what waits in one for long, a server ends.
MoveReport moveStore(Engine source, Database& target, ObjectContents* objects, const MoveProgress& progress)
{
    const auto storeId = source.database.read(storeOf);
    bool empty = false;
    target.read([&](Transaction& to) {
        empty = isEmpty(to, storeId);
        if (!empty && storeOf(to) != storeId) throw sentences::moveTargetTaken("The database");
    });
    if (objects && !objects->claim(storeId))
        throw sentences::moveTargetTaken(objects->store().address().name);

    const auto contents = contentsOf(source.database);
    MoveReport soFar, all{0, contents.size(), 0};
    for (const auto& content : contents)
        all.bytes += static_cast<std::uint64_t>(content.size);
    const auto count = [&](const StoredContent& content) {
        ++soFar.contents;
        soFar.bytes += static_cast<std::uint64_t>(content.size);
        progress(soFar, all);
    };
    if (objects)
        Bringing(source.contents, *objects, contents, count).run();
    else
        requireAll(source.contents, contents);

    source.database.read([&](Transaction& from) {
        if (!empty) { // an earlier attempt came to its commit
            if (target.read(digestOfRows) != digestOfRows(from)) throw sentences::moveAlreadyUsed();
            return;
        }
        target.write([&](Transaction& to) {
            if (!isEmpty(to, storeId)) throw sentences::moveTargetTaken("The database");
            to.run("DELETE FROM meta WHERE name = 'store'");
            soFar.rows = copyRows(from, to, target.dialect(), [&](std::uint64_t rows) {
                soFar.rows = rows;
                progress(soFar, all);
            });
        });
    });
    return soFar;
}

void setMovedAside(const fs::path& dataDir, bool contentsToo)
{
    const DataDirectory alone(dataDir, DataDirectory::Lock::exclusive);
    const auto setAside = [&](const std::string& name, const std::string& rest = {}) {
        if (fs::exists(dataDir / (name + rest)))
            fs::rename(dataDir / (name + rest), dataDir / (name + ".moved" + rest));
    };
    // The log first, if a command has left one: a database without it would be another.
    for (const auto* part : {"-shm", "-wal", ""})
        setAside("tarn.db", part);
    if (contentsToo) setAside("store-id");
    syncFolder(dataDir);
}

} // namespace tarnd
