#pragma once

#include "cli/service/Profile.h"

#include <filesystem>
#include <string>

/// Changes to the configuration file that leave alone what else stands in it, comments included. It is replaced in one
/// step, and only by what can be read.
namespace tarncli {

/// Puts a profile at the end. @throws Failure when there is one of that name, or the name is no plain word
void addProfile(const std::filesystem::path& file, const std::string& name, const Profile& profile);

/// Makes a profile the default one; "local" says so of the local store. @throws Failure when there is none
void useProfile(const std::filesystem::path& file, const std::string& name);

} // namespace tarncli
