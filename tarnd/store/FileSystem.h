#pragma once

#include "tarnd/store/Sentences.h"

#include <filesystem>

namespace tarnd {

/// The error for a system call on `path` that has just failed with errno.
ServiceError systemError(const std::filesystem::path& path);

/// Makes one folder, readable for this user only; false if it is there already. @throws ServiceError
bool makeFolder(const std::filesystem::path& path);

/// Makes the names in a folder durable. @throws ServiceError
void syncFolder(const std::filesystem::path& path);

} // namespace tarnd
