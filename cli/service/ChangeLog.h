#pragma once

#include "cli/machine/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tarncli {

/// One change in the service, with what it takes to take it back.
struct Change {
    enum class Kind {
        createFile,
        addVersion,
        replaceContent, ///< nothing keeps the one before
        makeFolder,
        move,
        remove, ///< nothing keeps it
        grant,
        revoke,
        restore ///< of an earlier version
    };

    Kind kind;
    std::string path;        ///< as the user writes it
    std::string target = {}; ///< where it is moved to; the user it is granted to
    std::string before = {}; ///< the version that was current; the watermark of what is moved or replaced
    std::string localOrigin = {};  ///< file that the content comes from; empty: none, or a pipe
    std::string remoteOrigin = {}; ///< likewise, in the service
    std::uint64_t size = 0;        ///< bytes of that
    std::int64_t modified = 0;     ///< nanoseconds since 1970, of the local one
    bool loses = false;     ///< a move: what was at the target is gone; a grant: it may wait for its user
    std::string after = {}; ///< the version or grant that came of it; empty: not known
    bool isDone = false;    ///< false: the command ended, or lost the service, before it was known
};

/// What the commands of this user have changed in a service, for `tarn undo`.
///
/// One file for each command that changed something, in the user's state folder; a line of JSON for the command, one
/// before each change and one behind it. The newest twenty are kept. A command does not fail because nothing can be
/// written: then it just cannot be undone.
///
/// Used on one thread.
class ChangeLog {
public:
    /// What is wrong with it is told by the first change. @param typed  the command line
    ChangeLog(std::string serviceName, std::string userName, std::string typed)
        : service(std::move(serviceName)), user(std::move(userName)), command(std::move(typed))
    {
    }

    /// Before it is sent. @return its number
    std::size_t begin(const Change& change);
    /// It was made. @param after  as Change::after
    void done(std::size_t number, const std::string& after);
    /// It was certainly not made.
    void notDone(std::size_t number);

private:
    void open();
    void write(const std::string& line);

    std::string service;
    std::string user;
    std::string command;
    FileDescriptor file; ///< locked, so that others see that the command is at work
    std::filesystem::path path;
    bool isBroken = false;
    std::size_t count = 0;
};

/// A command that has changed something.
struct LoggedCommand {
    std::filesystem::path file;
    FileDescriptor lock;         ///< none: the command is at work, or is being undone
    std::string text;            ///< what was typed
    std::uint64_t when = 0;      ///< milliseconds since 1970
    std::vector<Change> changes; ///< that were made, or may have been; in order

    void forget() const;
};

/// The newest first. @throws Failure when they cannot be read
std::vector<LoggedCommand> loggedCommands(const std::string& service, const std::string& user);

} // namespace tarncli
