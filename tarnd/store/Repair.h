#pragma once

#include "tarnd/store/Engine.h"

#include <filesystem>
#include <string>
#include <vector>

namespace tarnd {

/// Takes every version whose content is missing out of the tree: the newest version that is left becomes
/// current, and a file without any goes. What was taken is told, one line per version, and added to the file
/// `record` beforehand, so that it can be found again should the content turn up in a backup.
/// @throws ServiceError insufficientStorage, internal; then nothing has changed
std::vector<std::string> setMissingAside(Engine engine, const std::filesystem::path& record);

} // namespace tarnd
