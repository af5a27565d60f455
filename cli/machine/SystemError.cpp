#include "cli/machine/SystemError.h"

#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <cerrno>
#include <cstring>

namespace tarncli {

namespace {

ExitCode codeOf(int error)
{
    switch (error) {
    case ENOENT:
        return ExitCode::notFound;
    case EACCES:
    case EPERM:
        return ExitCode::notAllowed;
    case EEXIST:
    case EISDIR:
    case ENOTDIR:
        return ExitCode::conflict;
    default:
        return ExitCode::failure;
    }
}

} // namespace

void throwErrno(const std::string& verb, const std::filesystem::path& file)
{
    // First: whatever is called next may change it.
    const int error = errno;
    throw Failure(codeOf(error), verb + " " + escaped(file.string()) + ": " + std::strerror(error) + ".");
}

} // namespace tarncli
