#pragma once

#include "tarnhost/detail/Descriptor.h"

#include <filesystem>

namespace connector::host::detail {

/// A file of this machine that gets its name when all of it is there; until then it goes by one of its own in the same
/// folder. Without `keep` nothing of it stays.
class NewFile {
public:
    /// @param name  of none yet, or of a regular file, both also behind symbolic links: it keeps its owner and mode, as
    ///              far as this process may see to that
    /// @throws std::system_error
    explicit NewFile(const std::filesystem::path& name);
    ~NewFile();

    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// Open for writing, and empty at first.
    int descriptor() const { return file.get(); }

    /// Has it on the disk under its name, as far as this process may see to that.
    /// @throws std::system_error  also where it has its name, which a power cut may take away
    void keep();

    /// Leaves nothing of it, unless it has its name.
    void discard();

private:
    std::filesystem::path behindLinks() const;
    void open(bool isPrivate);
    void syncFolder() const;
    [[noreturn]] void fail(int error) const;

    const std::filesystem::path name;
    std::filesystem::path target;    ///< behind the links
    std::filesystem::path temporary; ///< empty: it has its name, or is gone
    Descriptor file;
};

} // namespace connector::host::detail
