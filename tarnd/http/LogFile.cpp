#include "tarnd/http/LogFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace tarnd {

LogFile::LogFile(std::string thePath) : path(std::move(thePath)), file(opened()) {}

UniqueFd LogFile::opened() const
{
    if (path.empty()) return UniqueFd(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
    UniqueFd fd(::open(path.c_str(), O_CREAT | O_APPEND | O_WRONLY | O_CLOEXEC, 0600));
    if (!fd) throw std::runtime_error("Could not open the log " + path + ": " + std::strerror(errno) + ".");
    return fd;
}

/// In one call, so that lines of several threads and processes do not mix.
void LogFile::write(std::string line)
{
    line += '\n';
    [[maybe_unused]] const auto written = ::write(file.get(), line.data(), line.size());
}

/// Under the number that other threads are writing to: the kernel changes what is behind it in one step.
void LogFile::reopen()
{
    if (path.empty()) return;
    const auto fresh = opened();
    ::dup3(fresh.get(), file.get(), O_CLOEXEC);
}

} // namespace tarnd
