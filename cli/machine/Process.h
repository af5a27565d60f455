#pragma once

#include "cli/machine/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

/// Other programs: finding, starting and ending them.
namespace tarncli::process {

/// The program beside the running one, else the first on PATH; empty when there is none.
std::filesystem::path find(const std::string& program);

/// What a program has said and how it ended.
struct Finished {
    int exitCode = -1; ///< -1: ended by a signal
    std::string out;
};

/// Runs a program to its end, its standard error appended to `log`. @throws Failure when it cannot be started
Finished run(const std::vector<std::string>& commandLine, const std::filesystem::path& log);

/// Runs a program that the user works with, at the terminal of this one. Ctrl-C is its matter while it runs.
/// @return its exit code; 128 + the number of the signal that ended it @throws Failure when it cannot be started
int runAtTerminal(const std::vector<std::string>& commandLine);

/// A program that goes on when this one ends: in a session of its own, with nothing of this one open.
struct Detached {
    pid_t pid = 0;
    FileDescriptor out; ///< read end of its standard output
};

Detached startDetached(const std::vector<std::string>& commandLine, const std::filesystem::path& log);

/// The first line that arrives; empty when the stream ends or `limit` passes before there is one.
std::string readLine(const FileDescriptor& stream, std::chrono::seconds limit);

/// SIGTERM, and SIGKILL when that does not help within `limit`. Returns once the process is gone.
void end(pid_t pid, std::chrono::seconds limit);

} // namespace tarncli::process
