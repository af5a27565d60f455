#pragma once

#include <array>
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace tarnd::test {

/// A call that changes a file or folder, or makes one durable. In a journal its data follow.
struct FileCall {
    enum class Kind { createFile, write, resize, sync, link, rename, remove, createFolder, mark };
    using Path = std::array<char, 200>; ///< with a NUL at its end

    FileCall(Kind kind, const std::string& ofPath = {}, std::size_t number = 0, std::size_t size = 0)
        : kind(kind), number(number), size(size)
    {
        ofPath.copy(path.data(), path.size() - 1);
    }

    Kind kind;
    std::size_t number; ///< offset of a write, new size of a resize, number of a mark
    std::size_t size;   ///< of the data of a write
    Path path{}, target{};
};

/// What a test tells the preloaded library, in a file that the test and every process under it map.
struct FaultPlan {
    enum class Action {
        kill, ///< the process dies before the call
        tear, ///< the process dies when half of the bytes are written; only writes count
        fail  ///< the call fails with `error`; a write has then written half
    };

    static constexpr const char* variable = "TARN_FAULT_PLAN"; ///< environment: the name of that file

    void record(const FileCall& call, const void* data = nullptr) const
    {
        const int file = ::open(journal.data(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        if (::write(file, &call, sizeof call) < 0 || ::write(file, data, call.size) < 0) std::abort();
        ::close(file);
    }

    std::atomic<int> at;      ///< which call below `root` is struck, counted from 1; 0: none
    std::atomic<int> calls;   ///< counted so far
    std::atomic<bool> struck; ///< one was
    Action action;
    int error;
    bool lasting;                 ///< all later calls fail as well
    std::atomic<bool> recording;  ///< held for the length of a recorded call, over all processes
    FileCall::Path root, journal; ///< absolute paths; without a journal nothing is recorded
};

} // namespace tarnd::test
