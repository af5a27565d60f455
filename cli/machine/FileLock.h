#pragma once

#include "cli/machine/FileDescriptor.h"

#include <filesystem>
#include <optional>
#include <sys/types.h>

/// Locks between processes.
namespace tarncli {

/// Waits for the exclusive lock on `file`, which is made when missing, with its folder; it is held until the descriptor
/// is closed. @throws Failure
FileDescriptor lockFile(const std::filesystem::path& file);

/// The process that holds a record lock (fcntl) on `file`; not positive when it runs where its id means nothing here:
/// in another container, on another machine. Nothing when no process does, or when there is no such file.
std::optional<pid_t> lockOwner(const std::filesystem::path& file);

} // namespace tarncli
