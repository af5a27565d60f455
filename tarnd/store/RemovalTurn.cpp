#include "tarnd/store/RemovalTurn.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <thread>

namespace tarnd {

/// Asked for again and again, since flock() itself would wait without an end.
RemovalTurn::RemovalTurn(const std::filesystem::path& dataDir, For purpose, std::chrono::milliseconds limit)
{
    constexpr std::chrono::milliseconds pause{10};
    const auto end = std::chrono::steady_clock::now() + limit;
    const int operation = (purpose == For::copying ? LOCK_EX : LOCK_SH) | LOCK_NB;
    for (;;) {
        // Writable, because over NFS an exclusive lock needs that.
        if (!file) file = UniqueFd(::open((dataDir / "store-id").c_str(), O_RDWR | O_CLOEXEC));
        // Without an id there is no store yet that anybody could copy.
        granted = file ? ::flock(file.get(), operation) == 0 : errno == ENOENT;
        if (granted || std::chrono::steady_clock::now() >= end) return;
        std::this_thread::sleep_for(pause);
    }
}

} // namespace tarnd
