#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tarncli {

/// One request of a file that RecordingObserver has written, as far as it can be repeated.
struct RecordedRequest {
    std::uint64_t id = 0;
    std::string method;       ///< lower case
    std::string target;       ///< path and query, percent-encoded
    std::uint64_t size = 0;   ///< bytes of its body
    std::uint16_t status = 0; ///< 0: no complete reply came
    bool isFinished = false;
};

struct Recording {
    std::vector<RecordedRequest> requests; ///< in the order in which they began
    std::size_t leftOut =
        0; ///< those that need what no recording holds, such as a token or the id of a file handle

    /// @throws Failure when the file cannot be read or is no recording
    static Recording load(const std::filesystem::path& file);
};

} // namespace tarncli
