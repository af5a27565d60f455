#pragma once

#include "cli/machine/FileDescriptor.h"
#include "cli/transfer/IncomingFile.h"
#include "cli/transfer/LocalContent.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tarncli {

/// A local folder that files are downloaded into. Nothing that a service can name leaves it: each name is one
/// name, and no symbolic link below the folder is followed. What killed commands have left in it goes when it is opened.
///
/// Immutable once made; may be used from any thread.
class DownloadFolder : public std::enable_shared_from_this<DownloadFolder> {
public:
    /// The folder at `path`, which the user named: links on the way to it are followed. @throws Failure
    static std::shared_ptr<const DownloadFolder> open(const std::filesystem::path& path);
    /// Likewise; makes it when it is missing, its parent must be there.
    static std::shared_ptr<const DownloadFolder> make(const std::filesystem::path& path);

    /// It was missing, and make() or makeChild() has made it.
    bool isNew() const { return made; }

    /// The folder `name` in this one, made when missing.
    /// @throws Failure also for a link or a file of that name
    std::shared_ptr<const DownloadFolder> makeChild(const std::string& name) const;

    /// Whether there is anything of that name. @throws Failure also for what cannot be a name
    bool contains(const std::string& name) const;

    /// The regular file of that name; nothing when there is none, or it cannot be read.
    std::optional<LocalContent> find(const std::string& name) const;

    /// A file that is to get that name when it is whole. @throws Failure; conflict when it exists and must not be
    /// replaced
    std::shared_ptr<IncomingFile> receive(const std::string& name, Overwrite overwrite, Unfinished unfinished,
                                          const MovedBytes& moved) const;

    /// Removes the file of that name, or the folder, which must be empty. @throws Failure
    void remove(const std::string& name, bool isFolder) const;

    /// What the user calls the file `name` in here.
    std::string shown(const std::string& name) const;

private:
    static std::shared_ptr<DownloadFolder> opened(const std::filesystem::path& path);

    /// Of what is between this folder and the one the user named there is none for longer than it is used, so that a
    /// tree of any size needs few. @throws Failure
    std::shared_ptr<const FileDescriptor> descriptor() const;

    std::shared_ptr<const DownloadFolder> parent; ///< empty for the folder the user named
    std::filesystem::path path; ///< the whole path, for messages and for the one without parent
    std::string shownStart;     ///< of what the user calls the files in here
    std::string ownName;        ///< in the parent
    bool made = false;
    mutable std::mutex mutex; ///< guards `inUse`
    mutable std::weak_ptr<const FileDescriptor> inUse;
};

} // namespace tarncli
