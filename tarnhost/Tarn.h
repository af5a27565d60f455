#pragma once

#include "tarn/foundation/Export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// The service in few words: text is UTF-8, and no message is to be filled in.
///
///     Tarn tarn("https://files.example.org", {"alice", token});
///     tarn.put("/photos/cat.jpg", "cat.jpg");
///     for (const Entry& entry : tarn.list("/photos"))
///         std::cout << entry.name << ' ' << entry.size << '\n';
///
/// Whoever needs more than this has it in TarnHost.h, beside it: `tarn.host()`.
namespace connector::host {

class TarnHost;
class TarnAsync;

/// Where an item is: a path that begins with "/", in one's own storage or in that of a user who has shared it.
/// '?' and '#' in a path reach another item, except as the target of a move.
struct Place {
    Place(const char* ownPath) : path(ownPath) {}

    Place(std::string ownPath) : path(std::move(ownPath)) {}

    Place(std::string thePath, std::string theOwner) : path(std::move(thePath)), owner(std::move(theOwner)) {}

    std::string path;
    std::string owner = {}; ///< empty: who is logged in
};

/// A file or folder.
struct Entry {
    std::string name;
    bool isFolder = false;
    std::uint64_t size = 0;                 ///< bytes; of a folder 0
    std::int64_t created = 0, modified = 0; ///< milliseconds since 1970, UTC
    bool isWritable = false;
    std::string watermark; ///< changes when the content does
};

/// What one user shares.
struct SharedEntry {
    Place place;
    Entry entry;
};

/// Who else may read an item.
struct Grant {
    std::string id;
    Place place;
    std::string user;
    bool isPending = false; ///< waits until there is such a user
};

/// What opens an item for everybody who has it.
struct Link {
    std::string id;
    std::string url;
    Place place;
    std::int64_t expires = 0; ///< milliseconds since 1970, UTC; 0: it does not end
    bool isFolder = false;    ///< opens all in it
};

struct Version {
    std::int64_t label = 0; ///< its number, from 1
    std::string id;
    std::int64_t created = 0; ///< milliseconds since 1970, UTC; 0 where the service does not tell
};

/// What a file that is there already means for one that is stored.
enum class IfThere {
    fail,    ///< TarnError, kind conflict
    replace, ///< it gets the new content
    keep,    ///< it gets the new content, and the old one stays as an earlier version
};

/// A session with the service. Every function waits for the service's answer and throws what went wrong: TarnError when
/// it refused or when what answers is no such service, TransportError when no complete answer came. `async()` has the
/// same functions that do not wait.
///
/// May be used by several threads at a time, but for `logIn`. On a delivery thread, such as in a continuation, waiting
/// throws WouldDeadlock.
class TARN_API Tarn {
public:
    struct Login {
        std::string user;
        std::string token;
    };

    /// Logs in.
    /// @param endpoint  base URL of the service, http or https
    /// @throws std::invalid_argument for an endpoint that is none; as all functions
    Tarn(const std::string& endpoint, const Login& login);

    /// Over a host with options of its own. Does not log in.
    explicit Tarn(std::shared_ptr<TarnHost> host);

    /// Fails what is under way.
    ~Tarn();
    Tarn(Tarn&&) noexcept;
    Tarn& operator=(Tarn&&) noexcept;

    /// Begins a session, also a new one in the place of one that has ended (TarnError, kind notLoggedIn). Let it finish
    /// before other threads go on. When it fails, the former user's session goes on.
    void logIn(const Login& login);
    void logOut();
    void ping();

    /// Stores a file of this machine, whatever its size. Verified by its SHA-256 where the service tells it, as tarnd
    /// does.
    /// @throws std::system_error when it cannot be read, or is a folder
    Version put(const Place& target, const std::string& localFile, IfThere ifThere = IfThere::replace);

    /// Fetches a file, whatever its size, and verifies it as `put` does. The local file appears when all of it is there,
    /// behind a symbolic link if its name is one; until then it goes by a name of its own in the same folder. One that
    /// it replaces leaves it owner and mode.
    /// @param versionId  Version::id; empty: the current one
    /// @throws std::system_error when it cannot be written, or is a folder, a device or a pipe
    void get(const Place& source, const std::string& localFile, const std::string& versionId = "");

    /// Stores these bytes.
    Version write(const Place& target, std::string_view content, IfThere ifThere = IfThere::replace);

    /// All bytes of a file, which have to fit into memory. Unlike with `get`, its SHA-256 is not compared.
    /// @param versionId  Version::id; empty: the current one
    std::string read(const Place& source, const std::string& versionId = "");

    void remove(const Place& file);
    /// @param overwrite  a target that is there is replaced: a file by a file, an empty folder by a folder
    void move(const Place& from, const Place& to, bool overwrite = false);
    Entry stat(const Place& item);

    void makeFolder(const Place& folder);
    /// The folders in it, then the files, each in the order of the service.
    std::vector<Entry> list(const Place& folder);
    /// @param recursive  with everything in it; otherwise only an empty one
    void removeFolder(const Place& folder, bool recursive = false);

    /// What others have shared with who is logged in.
    std::vector<SharedEntry> shared();
    /// A URL at which everybody can read the item. @return empty when the service gives none
    std::string link(const Place& item);
    /// The same until `expires`, in milliseconds since 1970, UTC. These three fail with kind notSupported where the
    /// service does not have them.
    std::string linkUntil(const Place& item, std::int64_t expires);
    /// All links to the user's items that have not ended.
    std::vector<Link> links();
    void revokeLink(const std::string& linkId);

    /// Lets another user read a file, or a folder and all below it.
    /// @param pending  may name a user who is not there yet
    /// @return the id of the grant
    std::string grant(const Place& item, const std::string& user, bool pending = false);
    void revoke(const std::string& grantId);
    /// The grants on an item; all that the user has made without one.
    std::vector<Grant> grants(const Place& item = "");

    /// The versions of a file in one's own storage, in the order of the service.
    std::vector<Version> versions(const std::string& path);
    /// Makes an earlier version the current one. @param asNewVersion  a copy of it becomes the newest
    Version restore(const std::string& path, std::int64_t versionLabel, bool asNewVersion = false);

    /// The same functions, each giving a future at once. Declared in TarnAsync.h.
    TarnAsync& async();

    /// What it runs on.
    TarnHost& host();

private:
    std::unique_ptr<TarnAsync> later;
};

} // namespace connector::host
