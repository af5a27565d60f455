#include "cli/machine/UserFolders.h"

#include "cli/machine/Environment.h"
#include "cli/terminal/Failure.h"

#include <pwd.h>
#include <unistd.h>

namespace tarncli::folders {

namespace {

std::filesystem::path home()
{
    std::filesystem::path result = environmentVariable("HOME");
    if (result.empty())
        if (const auto* entry = getpwuid(getuid())) result = entry->pw_dir;
    if (!result.is_absolute())
        throw Failure(ExitCode::failure, "The home folder is not known; set HOME to its absolute path.");
    return result;
}

std::filesystem::path folder(const char* variable, const char* below)
{
    // The rules for these variables: a relative path is to be ignored.
    const std::filesystem::path set = environmentVariable(variable);
    return (set.is_absolute() ? set : home() / below) / "tarn";
}

} // namespace

std::filesystem::path config()
{
    return folder("XDG_CONFIG_HOME", ".config");
}

std::filesystem::path state()
{
    return folder("XDG_STATE_HOME", ".local/state");
}

std::filesystem::path data()
{
    return folder("XDG_DATA_HOME", ".local/share");
}

} // namespace tarncli::folders
