#pragma once

#include "cli/machine/FileDescriptor.h"
#include "cli/remote/ContentTarget.h"
#include "cli/terminal/Interrupts.h"
#include "cli/transfer/MovedBytes.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace tarncli {

enum class Overwrite { refuse, replace };

/// What becomes of a file that did not become whole.
enum class Unfinished {
    remove,
    keep, ///< stays beside its target for a later command to go on with; not when discard() was called
};

/// Of the part that Unfinished::keep leaves beside its target.
std::string partName(const std::string& target);

/// Whether a file of this name is one on its way, or a part that was left.
bool isIncoming(std::string_view name);

/// Removes what commands of this machine that were killed have left of files on their way; parts to go on with stay.
/// @param folder  a descriptor
void removeAbandoned(int folder);

/// A file on its way into a folder: under another name in there until it is whole and lasts.
///
/// Blocks of zeros become holes; the mode of what it replaces stays. An interrupt removes or keeps it as its destructor
/// does.
class IncomingFile : public ContentTarget, public std::enable_shared_from_this<IncomingFile> {
public:
    /// @param folder      where it goes
    /// @param finalName   in there
    /// @param shownPath   what the user calls it
    /// @param movedBytes  counts what has come, what is here from an earlier command included
    /// @throws Failure; conflict when another command is just fetching the file, with Unfinished::keep
    IncomingFile(std::shared_ptr<const FileDescriptor> folder, std::string finalName, std::string shownPath,
                 Unfinished unfinished, MovedBytes movedBytes);
    ~IncomingFile() override;
    IncomingFile(const IncomingFile&) = delete;
    IncomingFile& operator=(const IncomingFile&) = delete;

    std::uint64_t held() const override;
    std::shared_ptr<connector::tarn::Sha256> hash() override;

    std::string version() const override { return versionId; }

    void setVersion(const std::string& id) override;
    void startOver(const std::string& why) override;
    connector::tarn::ContentSubscriber subscriber() override;

    /// Why what was here was dropped and all has come anew; empty: it was not.
    const std::string& whyAnew() const { return reasonAnew; }

    /// What requestContent() has told. @throws what it fails with; Failure that names the file when that could not be
    /// written
    std::string toldDigest(connector::Future<std::string>&& received) const;

    /// @param milliseconds  since 1970, kept as the time of its last change; 0: now
    /// @throws Failure; conflict when there is a file of that name that must not be replaced
    void commit(Overwrite overwrite, std::uint64_t milliseconds);

    /// It is of no use to a later command.
    void discard() { unfinished = Unfinished::remove; }

private:
    class Sink;

    void openTemporary(mode_t mode);
    void openPart(mode_t mode);
    std::optional<struct stat> replaced() const;
    void takeAfter(const struct stat& before, mode_t andMore) const;
    bool isPart() const;
    std::filesystem::path shownPart() const;
    void requirePlaceOfPart() const;
    bool isStillNamed() const;
    void readVersion();
    void fillLastHole() const;
    connector::tarn::Sha256 hashUpTo(off_t end) const;
    void leave() const;
    bool isTaken(const std::string& target) const;
    void rename(Overwrite overwrite) const;
    void removeOlderPart() const;

    std::shared_ptr<const FileDescriptor> folder;
    std::string target;
    std::string shown;
    Unfinished unfinished;
    std::string name; ///< until it is whole
    MovedBytes moved;
    std::string versionId;
    std::shared_ptr<connector::tarn::Sha256> running;
    std::string reasonAnew;
    bool committed = false;
    /// Before the file exists, so that there is no moment in which it is forgotten.
    std::optional<InterruptGuard> guard;
    FileDescriptor file;
};

} // namespace tarncli
