#pragma once

#include "tarn/foundation/DataBuffer.h"

#include <filesystem>

/// Contents on their way to the service. A content is one piece of memory, so it must fit in there.
namespace tarncli {

enum class Symlinks { follow, refuse };

/// The whole content of a regular file. @throws Failure when it cannot be read, is larger than the memory
/// that is left, or changes while it is being read
connector::common::DataBuffer readLocalFile(const std::filesystem::path& file, Symlinks symlinks);

/// All of standard input. @throws Failure
connector::common::DataBuffer readStandardInput();

} // namespace tarncli
