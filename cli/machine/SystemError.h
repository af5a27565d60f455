#pragma once

#include <filesystem>
#include <string>

namespace tarncli {

/// "VERB FILE: REASON." with the text of errno, and the exit code that fits it.
[[noreturn]] void throwErrno(const std::string& verb, const std::filesystem::path& file);

} // namespace tarncli
