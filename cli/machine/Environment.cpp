#include "cli/machine/Environment.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace tarncli {

std::string environmentVariable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string loginName()
{
    // In a container one may well run under an id that has no name.
    const auto* entry = getpwuid(getuid());
    return entry == nullptr ? "me" : entry->pw_name;
}

} // namespace tarncli
