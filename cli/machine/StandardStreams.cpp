#include "cli/machine/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace tarncli {

void reserveStandardStreams()
{
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        // The lowest that is free, which is this one. Opened the wrong way round, so that using it is an error.
        if (::fcntl(fd, F_GETFD) < 0) ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

} // namespace tarncli
