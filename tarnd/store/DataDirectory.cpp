#include "tarnd/store/DataDirectory.h"

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/Database.h"
#include "tarnd/store/FileSystem.h"
#include "tarnd/store/Secrets.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <fstream>
#include <system_error>

namespace tarnd {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t storeIdBytes = 16;

} // namespace

DataDirectory::DataDirectory(fs::path path, Lock lock) : folder(std::move(path))
{
    std::error_code error;
    if (fs::create_directories(folder, error)) fs::permissions(folder, fs::perms::owner_all, error);
    if (!error && ::access(folder.c_str(), R_OK | W_OK | X_OK) != 0)
        error.assign(errno, std::generic_category());
    if (error) throw sentences::badDataDir(folder, error.message());
    if (lock == Lock::none) return;
    claim = UniqueFd(::open((folder / "lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    if (!claim) throw systemError(folder / "lock");
    if (::flock(claim.get(), (lock == Lock::shared ? LOCK_SH : LOCK_EX) | LOCK_NB) != 0)
        throw sentences::dataInUse(folder);
    if (lock == Lock::exclusive) identify();
}

/// flock() keeps others out but does not tell them whom they met. A record lock does: F_GETLK names its owner, and the
/// kernel forgets it together with the process. Nothing depends on getting it.
void DataDirectory::identify()
{
    struct flock whole {};

    whole.l_type = F_WRLCK;
    identified = ::fcntl(claim.get(), F_SETLK, &whole) == 0;
}

void DataDirectory::announce(const std::string& url) const
{
    if (!identified) return;
    const auto text = "{\"pid\":" + std::to_string(::getpid()) + ",\"url\":\"" + url + "\"}\n";
    // A full disk must not stop a start: who cannot write this is harder to find, and serves all the same.
    if (::pwrite(claim.get(), text.data(), text.size(), 0) < 0) return;
    [[maybe_unused]] const auto cut = ::ftruncate(claim.get(), static_cast<off_t>(text.size()));
}

std::optional<std::string> DataDirectory::storeId() const
{
    std::ifstream file(folder / "store-id");
    if (!file.is_open()) {
        if (errno == ENOENT) return {};
        throw sentences::badDataDir(folder, "store-id: " + std::generic_category().message(errno) + ".");
    }
    std::string id;
    if (file >> id) return id;
    throw sentences::badDataDir(folder, "its file store-id is empty; bring it back from a backup.");
}

/// Never replaces an id: of two processes that find none, the second takes over what the first has written.
/// Written among the uploads, where the next start finds and removes what a dying process has left.
std::string DataDirectory::claimStoreId(ContentFolder& contents) const
{
    const auto temporary = contents.ownUploads() / "store-id";
    const auto id = randomHex(storeIdBytes);
    {
        std::ofstream file(temporary);
        file << id << '\n';
        if (!file.flush()) throw systemError(temporary);
    }
    const UniqueFd written(::open(temporary.c_str(), O_RDONLY | O_CLOEXEC));
    if (!written || ::fsync(written.get()) != 0) throw systemError(temporary);
    const bool linked = ::link(temporary.c_str(), (folder / "store-id").c_str()) == 0;
    if (!linked && errno != EEXIST) throw systemError(folder / "store-id");
    ::unlink(temporary.c_str());
    syncFolder(folder);
    return linked ? id : storeId().value_or(id);
}

/// The folder has its id first, and the database takes it over under the write lock: of two folders over one
/// empty database one loses here and now, not at its next start. A folder without an id is no new one when the
/// database has had one: it is the empty place where a folder should be mounted.
void DataDirectory::join(Database& database, ContentFolder& contents) const
{
    const auto storeOf = [](Transaction& transaction) {
        return transaction.value<std::string>("SELECT value FROM meta WHERE name = 'store'");
    };
    auto known = database.read(storeOf);
    const auto here = storeId();
    if (!known) {
        const auto id = here ? *here : claimStoreId(contents);
        known = database.write([&](Transaction& transaction) {
            const auto joined = storeOf(transaction);
            if (joined) return *joined;
            if (!contents.ids().empty()) throw sentences::foreignData(folder);
            transaction.run("INSERT INTO meta (name, value) VALUES ('store', $1)", id);
            return id;
        });
    }
    const auto now = storeId();
    if (now == known) return;
    // Where the database or the contents are, this is no empty place for a mount.
    if (!now && (fs::exists(databaseFile()) || !contents.ids().empty()))
        throw sentences::badDataDir(folder, "its file store-id is missing; bring it back from a backup.");
    throw contents.ids().empty() ? sentences::otherFolder(folder) : sentences::foreignData(folder);
}

} // namespace tarnd
