#pragma once

#include <filesystem>
#include <string>

namespace tarncli {

/// All that can still be read of `fd`. @param file  what the failure names
/// @throws Failure
std::string readToEnd(int fd, const std::filesystem::path& file);

/// All that is in a file, or comes out of a pipe. @throws Failure that names it
std::string readFile(const std::filesystem::path& file);

} // namespace tarncli
