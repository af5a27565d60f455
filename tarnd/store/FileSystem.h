#pragma once

#include "tarnd/store/Sentences.h"

#include <sys/types.h>

#include <filesystem>

namespace tarnd {

/// The error for a system call on `path` that has just failed with errno.
ServiceError systemError(const std::filesystem::path& path);

/// Notices when a path no longer names the file that it named at the first look.
class FileWatch {
public:
    explicit FileWatch(std::filesystem::path path) : path(std::move(path)) {}

    /// True as long as nothing is there yet.
    bool isInPlace();

    /// The next look is the first again.
    void forget() { inode = 0; }

private:
    std::filesystem::path path;
    dev_t device = 0;
    ino_t inode = 0; ///< 0: not looked yet
};

/// Makes one folder, readable for this user only; false if it is there already. @throws ServiceError
bool makeFolder(const std::filesystem::path& path);

/// Makes the names in a folder durable. @throws ServiceError
void syncFolder(const std::filesystem::path& path);

} // namespace tarnd
