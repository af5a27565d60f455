#include "cli/machine/FileText.h"

#include "cli/machine/FileDescriptor.h"
#include "cli/machine/SystemError.h"

#include <array>
#include <cerrno>
#include <fcntl.h>

namespace tarncli {

std::string readToEnd(int fd, const std::filesystem::path& file)
{
    std::string text;
    std::array<char, 4096> buffer;
    while (true) {
        const auto count = ::read(fd, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throwErrno("Could not read", file);
        if (count == 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

std::string readFile(const std::filesystem::path& file)
{
    const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) throwErrno("Could not read", file);
    return readToEnd(fd.get(), file);
}

} // namespace tarncli
