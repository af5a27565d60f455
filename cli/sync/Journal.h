#pragma once

#include "cli/machine/FileDescriptor.h"
#include "cli/remote/RemotePath.h"
#include "cli/sync/Side.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace tarncli {

/// Which two folders are synchronised.
struct Pair {
    std::string service; ///< base URL; "local" for the local store
    std::string user;
    std::filesystem::path local; ///< absolute
    RemotePath remote;           ///< with its bucket

    bool operator==(const Pair& other) const;
    /// The item of the service that is at this place below both folders; empty: the folder itself.
    RemotePath remoteAt(const std::string& place) const;
    /// "service, user, local folder, remote folder": what of both differs first, with both values; empty: nothing.
    std::string differenceFrom(const Pair& other) const;
};

/// What is known of the files that were the same on both sides when a synchronisation of a pair has last seen to them.
///
/// A file in the user's state folder, one line of JSON each: the pair, then the files, of several for one place the
/// last. It is replaced in one durable step, and grows in between by a line for each file as it arrives. It never tells
/// more than is so: a line that is missing, or has no watermark, makes the next run ask the service.
///
/// While it lives, no other command synchronises the pair.
class Journal {
public:
    /// A file that was the same on both sides.
    struct Entry {
        std::uint64_t size = 0;    ///< bytes
        std::int64_t modified = 0; ///< of the local file, in nanoseconds since 1970; 0: to be read again
        std::string watermark;     ///< of the stored file; empty: to be asked for
        std::string sha256;

        bool operator==(const Entry&) const = default;

        /// The file here, or there, is still that one, as far as can be told without its content.
        bool fitsLocal(const FileState& state) const
        {
            return state.size == size && modified != 0 && state.modified == modified;
        }

        bool fitsRemote(const FileState& state) const
        {
            return state.size == size && !watermark.empty() && state.watermark == watermark;
        }
    };

    /// Waits for another command that has the same one. One that is damaged is as good as none. @throws Failure
    explicit Journal(const Pair& syncedPair);

    /// Null when nothing is known.
    const Entry* find(const std::string& place) const;

    /// Known from now on, also by the next command, however this one ends; lasts once it is saved.
    void note(const std::string& place, const Entry& entry);
    void forget(const std::string& place);
    /// Forgets what is on neither side any more, as far as they were looked at.
    void keepOnly(const Side& one, const Side& other);

    /// Writes it anew, unless nothing has changed. @throws Failure
    void save();

    /// The time of a local file's last change, as it is noted. One that is just over is not to be trusted: the clocks of
    /// file systems are coarse, and another change may follow in the same tick.
    static std::int64_t trusted(std::int64_t modified);

private:
    void load();
    std::string headerLine() const;

    Pair pair;
    std::filesystem::path file;
    FileDescriptor lock;
    FileDescriptor end; ///< for lines that are added
    std::map<std::string, Entry> entries;
    bool changed = true;
};

} // namespace tarncli
