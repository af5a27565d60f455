#pragma once

#include "tarnd/store/UniqueFd.h"

#include <string>

namespace tarnd {

/// Where lines of one kind go: a file that only grows, or standard error. All calls may run on any thread.
class LogFile {
public:
    /// @param path  empty: standard error
    /// @throws std::runtime_error when the file cannot be opened
    explicit LogFile(std::string path);

    /// Writes the line, whole, and a line feed. What cannot be written is lost: a full disk must not end a request.
    void write(std::string line);

    /// Opens the path anew, for a file that was moved away. @throws as the constructor; then the old one stays
    void reopen();

private:
    UniqueFd opened() const;

    std::string path;
    UniqueFd file; ///< the number stays when what is behind it changes
};

} // namespace tarnd
