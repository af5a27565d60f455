#include "cli/terminal/TerminalSize.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace tarncli {

std::optional<int> terminalColumns(int fd)
{
    if (isatty(fd) == 0) return {};
    winsize size{};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

} // namespace tarncli
