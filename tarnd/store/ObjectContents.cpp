#include "tarnd/store/ObjectContents.h"

#include "tarnd/store/Database.h"
#include "tarnd/store/ObjectContentWriter.h"

#include <algorithm>

namespace tarnd {

namespace {

const std::string storeIdKey = "store-id";
constexpr std::size_t storeIdBytes = 16;

std::optional<std::string> storeOf(Transaction& transaction)
{
    return transaction.value<std::string>("SELECT value FROM meta WHERE name = 'store'");
}

/// The id of the database, made now if it has none.
std::string claimedBy(Database& database)
{
    if (const auto known = database.read(storeOf)) return *known;
    return database.write([&](Transaction& transaction) {
        if (const auto known = storeOf(transaction)) return *known;
        const auto id = randomHex(storeIdBytes);
        transaction.run("INSERT INTO meta (name, value) VALUES ('store', $1)", id);
        return id;
    });
}

bool hasContents(Database& database)
{
    return database.lookUp([](Transaction& transaction) {
        return transaction.value<std::int64_t>("SELECT 1 FROM versions LIMIT 1").has_value();
    });
}

} // namespace

ObjectContents::ObjectContents(ObjectStoreAddress address, WriteListener listener)
    : Contents(std::move(listener))
    , objects(std::move(address))
    // What stays because the store is away is an orphan, which the sweep removes.
    , remover([this](const auto& ids, bool) { return dropNow(ids), true; })
{
}

/// The database has its id first: an object whose id no database has can only be another store's. A store that died
/// in between continues here, since it has no contents yet.
void ObjectContents::join(Database& database, const DataDirectory&)
{
    const auto& name = objects.address().name;
    const auto there = objects.text(storeIdKey);
    if (there && there != database.read(storeOf)) throw sentences::foreignObjects(name);
    if (there) return;
    if (hasContents(database)) throw sentences::otherObjects(name);
    if (!claim(claimedBy(database))) throw sentences::foreignObjects(name);
}

/// Read again, because the store cannot refuse the second of two who put at once.
bool ObjectContents::claim(const std::string& storeId)
{
    const auto there = objects.text(storeIdKey);
    if (there) return *there == storeId;
    if (!objects.keys({}).empty()) return false;
    objects.putText(storeIdKey, storeId, sha256Hex(storeId));
    return objects.text(storeIdKey) == storeId;
}

ContentBytes ObjectContents::open(const std::string& id) const
{
    return {.stream = objects.open(id)};
}

std::unique_ptr<ContentWriter> ObjectContents::write(std::optional<std::uint64_t> size)
{
    return writeAs(newId(), size);
}

std::unique_ptr<ContentWriter> ObjectContents::writeAs(const std::string& id,
                                                       std::optional<std::uint64_t> size)
{
    return std::make_unique<ObjectContentWriter>(*this, id, size);
}

/// A name may be that of an upload in parts: "ID?UPLOAD". Gives up at the first that fails, and after a while, since
/// the lock under which it may be called keeps others waiting; what stays is found again.
void ObjectContents::dropNow(const std::vector<std::string>& names) noexcept
{
    constexpr std::chrono::seconds patience{3};
    const auto end = std::chrono::steady_clock::now() + patience;
    try {
        for (const auto& name : names) {
            const auto mark = std::min(name.find('?'), name.size());
            objects.remove(name.substr(0, mark), mark < name.size() ? name.substr(mark + 1) : "");
            if (std::chrono::steady_clock::now() > end) return;
        }
    } catch (const std::exception&) { // told when rows and contents are compared, if it lasts
    }
}

std::string ObjectContents::whyNotWritable()
{
    try {
        return objects.age(storeIdKey) ? "" : "The store of the contents has lost its object store-id.";
    } catch (const ServiceError&) {
        return "The store of the contents does not answer.";
    }
}

std::vector<std::string> ObjectContents::ids(const std::string& beginning) const
{
    auto found = objects.keys(beginning);
    std::erase_if(found, [](const auto& key) { return !isId(key); });
    return found;
}

bool ObjectContents::has(const std::string& id) const
{
    return objects.age(id).has_value();
}

std::vector<std::string> ObjectContents::strangers() const
{
    auto found = objects.keys({});
    std::erase_if(found, [](const auto& key) { return isId(key) || key == storeIdKey; });
    return found;
}

/// One that is gone by now counts, too: there is nothing to remove.
bool ObjectContents::isBeingWritten(const std::string& id) const
{
    const auto age = objects.age(id);
    return !age || *age <= objects.address().grace;
}

std::size_t ObjectContents::dropAbandonedUploads()
{
    std::size_t dropped = 0;
    for (const auto& upload : objects.unfinished()) {
        if (upload.age <= objects.address().grace) continue;
        objects.remove(upload.key, upload.uploadId);
        ++dropped;
    }
    return dropped;
}

} // namespace tarnd
