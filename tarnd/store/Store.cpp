#include "tarnd/store/Store.h"

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/DataDirectory.h"
#include "tarnd/store/Database.h"
#include "tarnd/store/Dialect.h"
#include "tarnd/store/ObjectContents.h"
#include "tarnd/store/Repair.h"
#include "tarnd/store/Schema.h"
#include "tarnd/store/Sweeper.h"
#include "tarnd/store/Troubles.h"

#include <Poco/String.h>

namespace tarnd {

namespace {

DataDirectory::Lock lockFor(const StoreOptions& options, Purpose purpose)
{
    if (purpose != Purpose::serve && purpose != Purpose::check) return DataDirectory::Lock::none;
    return options.databaseUrl.empty() ? DataDirectory::Lock::exclusive : DataDirectory::Lock::shared;
}

/// False also where the folder may not be looked into: whoever opens it says so.
bool isMissing(const std::filesystem::path& file)
{
    std::error_code error;
    return !std::filesystem::exists(file, error) && !error;
}

/// SQLite would make an empty database, and drop the log that holds what was acknowledged last. At a first start
/// the database is there before the two that tell of an earlier one.
void requireDatabase(const std::filesystem::path& folder)
{
    const bool isNew = isMissing(folder / "store-id") && isMissing(folder / "tarn.db-wal");
    std::error_code error;
    const auto bytes = std::filesystem::file_size(folder / "tarn.db", error);
    if (!isNew && (bytes == 0 || error == std::errc::no_such_file_or_directory))
        throw sentences::databaseMissing(folder);
}

DataDirectory openDirectory(const StoreOptions& options, Purpose purpose)
{
    const bool mustExist = purpose != Purpose::serve && purpose != Purpose::begin;
    // What has neither database nor contents here may well be there without this directory.
    const bool isHere = options.databaseUrl.empty() || options.contentsUrl.empty();
    if (mustExist && isHere && isMissing(options.dataDir / "store-id") &&
        isMissing(options.dataDir / "tarn.db"))
        throw sentences::noData(options.dataDir);
    if (options.databaseUrl.empty()) requireDatabase(options.dataDir);
    return {options.dataDir, lockFor(options, purpose)};
}

std::unique_ptr<Dialect> dialectFor(const StoreOptions& options, const DataDirectory& directory)
{
    return options.databaseUrl.empty() ? sqliteDialect(directory.databaseFile())
                                       : postgresDialect(options.databaseUrl);
}

std::unique_ptr<Contents> contentsFor(const StoreOptions& options, DiskRoom& room)
{
    if (options.contentsUrl.empty())
        return std::make_unique<ContentFolder>(options.dataDir, room, options.writeListener);
    return std::make_unique<ObjectContents>(ObjectStoreAddress(options.contentsUrl), options.writeListener);
}

/// SQLite reads on the processor; who reads over a network waits for the most part.
std::size_t readersFor(const StoreOptions& options)
{
    if (options.readers > 0) return options.readers;
    return options.databaseUrl.empty() ? 4 : 16;
}

/// Connects, so that a wrong URL or a damaged file is told as such and not as a failed request.
void prepare(Database& database, const std::filesystem::path& folder)
{
    try {
        prepareSchema(database, folder);
    } catch (const ServiceError& error) {
        if (error.kind() != ServiceError::Kind::unavailable && error.what() != sentences::internal.text)
            throw;
        throw sentences::databaseUnreachable.because(error.detail());
    }
}

} // namespace

struct Store::Parts {
    Parts(StoreOptions options, Purpose purpose)
        : isBesideOthers(purpose == Purpose::copy || !options.databaseUrl.empty())
        , directory(openDirectory(options, purpose))
        , database(dialectFor(options, directory), readersFor(options))
        , room(directory.path(), options.keepFree)
        , contents(contentsFor(options, room))
        , engine{database, *contents, options.clock}
        , sessions(engine, accounts, options.sessionIdleMinutes)
    {
        // Nothing is removed before it is certain that contents and database belong together.
        prepare(database, directory.path());
        contents->join(database, directory);
        database.makeRoom = [this] { return room.giveReserve(); };
        // Only a server cleans up: administration works beside one, and a check must not change what it looks at.
        if (purpose != Purpose::serve) return;
        if (const auto interval = contents->sweepInterval())
            sweeper.emplace(engine, *interval, [this] { contents->join(database, directory); });
        else
            recovery = recover(engine);
        // From here on it goes its own way, and no backup may replace it.
        std::filesystem::remove(directory.path() / backupMark);
        room.takeReserve();
    }

    const bool isBesideOthers; ///< who may change what is stored meanwhile
    DataDirectory directory;
    Database database;
    DiskRoom room;
    std::unique_ptr<Contents> contents;
    Engine engine;
    Accounts accounts{engine};
    Sessions sessions;
    Catalog catalog{engine};
    FileHandles handles{engine};
    Permissions permissions{engine};
    SharedContent sharedContent{engine};
    PublicLinks links{engine};
    Versions versions{engine};
    RecoveryReport recovery;
    Troubles troubles{engine};
    std::optional<Sweeper> sweeper; ///< last, since it works on the others
};

Store::Store(StoreOptions options, Purpose purpose)
    : parts(std::make_unique<Parts>(std::move(options), purpose))
{
}

Store::~Store() = default;

Accounts& Store::accounts()
{
    return parts->accounts;
}

Sessions& Store::sessions()
{
    return parts->sessions;
}

Catalog& Store::catalog()
{
    return parts->catalog;
}

FileHandles& Store::handles()
{
    return parts->handles;
}

Permissions& Store::permissions()
{
    return parts->permissions;
}

SharedContent& Store::sharedContent()
{
    return parts->sharedContent;
}

PublicLinks& Store::links()
{
    return parts->links;
}

Versions& Store::versions()
{
    return parts->versions;
}

void Store::interruptWaits()
{
    parts->database.interruptWaits();
    parts->contents->interruptWaits();
}

const RecoveryReport& Store::recovery() const
{
    return parts->recovery;
}

std::vector<std::string> Store::setMissingAside()
{
    return tarnd::setMissingAside(parts->engine, parts->directory.path() / "set-aside.txt");
}

void Store::finishDrops()
{
    parts->contents->finishDrops();
}

FsckReport Store::fsck()
{
    finishDrops(); // or it would meet contents whose rows are gone
    return tarnd::fsck(parts->engine, parts->isBesideOthers);
}

CopyReport Store::copyTo(const std::filesystem::path& target, CopyPurpose purpose)
{
    const auto* folder = dynamic_cast<const ContentFolder*>(parts->contents.get());
    if (!folder) throw sentences::copyOfObjects();
    return copyStore(parts->database, *folder, parts->directory.path(), target, purpose);
}

MoveReport Store::moveTo(const StoreOptions& target, const MoveProgress& progress)
{
    Database database(postgresDialect(target.databaseUrl), 1);
    prepare(database, target.dataDir);
    std::unique_ptr<ObjectContents> objects;
    if (!target.contentsUrl.empty())
        objects = std::make_unique<ObjectContents>(ObjectStoreAddress(target.contentsUrl), WriteListener());
    return moveStore(parts->engine, database, objects.get(), progress);
}

std::vector<std::string> Store::troubles()
{
    return parts->troubles.now();
}

Store::Numbers Store::numbers()
{
    auto& [database, contents, clock] = parts->engine;
    Numbers numbers{database.commits().counts(), contents.syncs().counts(), database.readerUse(),
                    database.writerUse(),        parts->room.freeBytes(),   {}};
    try {
        numbers.sessions = parts->sessions.count();
    } catch (const ServiceError&) { // the other numbers matter most just then
    }
    return numbers;
}

void Store::announce(const std::string& url) const
{
    parts->directory.announce(url);
}

} // namespace tarnd
