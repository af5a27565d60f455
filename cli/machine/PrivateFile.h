#pragma once

#include <filesystem>
#include <optional>
#include <string>

/// Small files that only their owner may read.
namespace tarncli {

/// Replaces the file in one durable step with mode 0600; makes its folder (0700) when missing. A reader sees
/// the old text or the new, whatever happens meanwhile. @throws Failure, also where requireReplaceable() does
void writePrivateFile(const std::filesystem::path& file, const std::string& text);

/// @throws Failure where a file of this name would take the place of a device, a pipe or the like, which others need
void requireReplaceable(const std::filesystem::path& file);

/// The file's text; nothing when there is no such file. @throws Failure when it cannot be read, or when
/// others than its owner may read it
std::optional<std::string> readPrivateFile(const std::filesystem::path& file);

/// The name of a file for any text: what is readable of it, and a hash that tells it from others that look alike.
std::string privateFileName(const std::string& text);

/// Makes a folder (0700) with all above it. @throws Failure
void makePrivateFolder(const std::filesystem::path& folder);

} // namespace tarncli
